// Seed rows for tests, written straight into a test database: accounts of the
// chart, journal entries and their division rows, carried-forward and monthly
// balances, division levels and numbering rows.
//
//   DadosDeTeste dados(*raw_);  // company 1, dealership 1
//   dados.Conta("1", {.nivel = "S"})
//       .Conta("1.1", {.superiora = "1", .nivel = "A"})
//       .Lancamento(202401, 1, "1.1", "D", 100, {.dia = 1})
//       .LancamentoDividido(1, 202401, 1, 100, {.revenda_divisao = 2})
//       .SaldoAnterior("1.1", 2023, 40);
//   dados.SegundoLivro().SaldoAnterior("1.1", 2023, 3);  // CTB_SALDO_ANTERIOR_CV
//
// Every optional column left empty is written as NULL (the schema has no
// column defaults, so leaving a column out and writing NULL are the same
// row). Each method runs one insert through the connection, with the values
// written into the statement text: codes quoted with inner quotes doubled,
// integers in decimal, amounts as EscritaDeValor says.
#ifndef KVC_TESTS_SUPPORT_DADOS_TESTE_H_
#define KVC_TESTS_SUPPORT_DADOS_TESTE_H_

#include <optional>
#include <string>

#include "accounting/db/connection.h"

namespace kvc::testing {

// How an amount is written into the statement.
enum class EscritaDeValor {
  kCurta,      // the shortest text that reads back as the double: 10, 2.5, -0.1
  kDuasCasas,  // two decimals, printf rounding: 10.00, 2.50
  kMontante,   // sql::Amount: two decimals, halves away from zero, never "-0.00"
};

// The division columns of CTB_LANCAMENTO_DIVIDIDO, CTB_SALDO_ANTERIOR_DIVISAO
// and CTB_SALANT_DIVISAO_MES (which has no REVENDA_ORIGEM).
struct Dimensoes {
  std::optional<int> revenda_divisao{};
  std::optional<int> centro_custo{};
  std::optional<int> fonte{};
  std::optional<int> categoria{};
  std::optional<int> secao_oficina{};
  std::optional<std::string> tipo_item{};
  std::optional<std::string> modalidade_operacao{};
  std::optional<int> revenda_origem{};
};

// The optional columns of CTB_CONTA.
struct OpcoesConta {
  std::optional<std::string> superiora{};  // CONTA_SUPERIORA
  std::optional<std::string> nivel{};      // "A" analytic, "S" synthetic
  std::optional<int> nivel_divisao{};
  std::optional<std::string> lancamento_dividido{};  // "S" or "N"
  std::optional<std::string> descricao{};            // DES_CONTA
};

// The optional columns of CTB_LANCAMENTO.
struct OpcoesLancamento {
  std::optional<int> dia{};
  std::optional<int> historico_padrao{};
  std::optional<int> lco_origem{};
  std::optional<int> usuario{};
  std::optional<std::string> origem{};
  std::optional<std::string> his_complementar{};
  std::optional<int> documento{};
  std::optional<std::string> lco_ok{};
  std::optional<int> operacao{};
  std::optional<std::string> encerramento_exercicio{};
  std::optional<int> revenda_operacao{};
};

// `texto`, or no value when it is empty: for the helpers whose callers write
// "" for a NULL column.
std::optional<std::string> NuloSeVazio(const std::string& texto);

class DadosDeTeste {
 public:
  explicit DadosDeTeste(db::Connection& conexao, int empresa = 1, int revenda = 1);

  // A copy that writes the journal and carried-forward rows into the second
  // book's tables (the _CV ones). The other tables have no second book.
  DadosDeTeste SegundoLivro() const;
  // A copy that writes amounts as `escrita` says (kCurta unless told).
  DadosDeTeste ComValores(EscritaDeValor escrita) const;

  // CTB_CONTA.
  DadosDeTeste& Conta(const std::string& conta, const OpcoesConta& opcoes = {});

  // CTB_LANCAMENTO (or CTB_LANCAMENTO_CV): entry `numero` of `ano_mes`.
  DadosDeTeste& Lancamento(int ano_mes, int numero, const std::string& conta,
                           const std::string& natureza, double valor,
                           const OpcoesLancamento& opcoes = {});

  // CTB_LANCAMENTO_DIVIDIDO (or _CV): one division row of entry `numero`.
  DadosDeTeste& LancamentoDividido(int sequencia, int ano_mes, int numero, double valor,
                                   const Dimensoes& dimensoes = {});

  // CTB_SALDO_ANTERIOR (or _CV): the balance `conta` carries out of `ano`.
  DadosDeTeste& SaldoAnterior(const std::string& conta, int ano, double saldo);

  // CTB_SALDO_ANTERIOR_DIVISAO (or _CV).
  DadosDeTeste& SaldoAnteriorDivisao(int sequencia, const std::string& conta, int ano, double saldo,
                                     const Dimensoes& dimensoes = {});

  // CTB_SALANT_MES: the monthly balance row.
  DadosDeTeste& SaldoMes(const std::string& conta, int ano_mes, double saldo);

  // CTB_SALANT_DIVISAO_MES: the monthly division balance row; a
  // revenda_origem throws std::invalid_argument, the table has none.
  DadosDeTeste& SaldoDivisaoMes(const std::string& conta, int ano_mes, double saldo,
                                const Dimensoes& dimensoes = {});

  // CTB_DIVISAO_CONTABIL: the division of level `nivel` ("C" cost centre, ...).
  DadosDeTeste& DivisaoContabil(int nivel, const std::optional<std::string>& tipo_divisao);

  // FAT_NUMERACAO_LIVROS, with the date of the last result calculation (an
  // ISO date) or NULL.
  DadosDeTeste& NumeracaoLivros(const std::optional<std::string>& apuracao_resultado = {});

  // GER_NUMERADOR: the last number given under `tabela` and `chave`.
  DadosDeTeste& Numerador(const std::string& tabela, const std::string& chave, int ultimo_numero);

 private:
  // The table's name in the book written to.
  std::string Livro(const std::string& tabela) const;
  std::string Valor(double valor) const;

  db::Connection* conexao_;
  int empresa_;
  int revenda_;
  bool segundo_livro_ = false;
  EscritaDeValor escrita_ = EscritaDeValor::kCurta;
};

}  // namespace kvc::testing

#endif  // KVC_TESTS_SUPPORT_DADOS_TESTE_H_
