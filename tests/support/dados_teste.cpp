// Seed rows for tests.
#include "support/dados_teste.h"

#include <stdexcept>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "accounting/db/sql_format.h"

namespace kvc::testing {
namespace {

// One insert, its columns in the order they were added; a column without a
// value is left out (and so is NULL).
class Insercao {
 public:
  explicit Insercao(std::string tabela) : tabela_(std::move(tabela)) {}

  Insercao& Texto(const char* coluna, const std::optional<std::string>& valor) {
    if (valor) Coluna(coluna, sql::Quoted(*valor));
    return *this;
  }
  Insercao& Inteiro(const char* coluna, const std::optional<int>& valor) {
    if (valor) Coluna(coluna, sql::Integer(*valor));
    return *this;
  }
  // A value already written as statement text.
  Insercao& Coluna(const char* coluna, std::string texto) {
    colunas_.emplace_back(coluna);
    valores_.push_back(std::move(texto));
    return *this;
  }
  Insercao& Divisao(const Dimensoes& d, bool com_revenda_origem) {
    Inteiro("REVENDA_DIVISAO", d.revenda_divisao);
    Inteiro("CENTRO_CUSTO", d.centro_custo);
    Inteiro("FONTE", d.fonte);
    Inteiro("CATEGORIA", d.categoria);
    Inteiro("SECAO_OFICINA", d.secao_oficina);
    Texto("TIPO_ITEM", d.tipo_item);
    Texto("MODALIDADE_OPERACAO", d.modalidade_operacao);
    if (com_revenda_origem) Inteiro("REVENDA_ORIGEM", d.revenda_origem);
    return *this;
  }

  void Executa(db::Connection& c) const {
    c.Execute(fmt::format("insert into {} ({}) values ({})", tabela_, fmt::join(colunas_, ", "),
                          fmt::join(valores_, ", ")),
              {});
  }

 private:
  std::string tabela_;
  std::vector<std::string> colunas_;
  std::vector<std::string> valores_;
};

}  // namespace

std::optional<std::string> NuloSeVazio(const std::string& texto) {
  if (texto.empty()) return std::nullopt;
  return texto;
}

DadosDeTeste::DadosDeTeste(db::Connection& conexao, int empresa, int revenda)
    : conexao_(&conexao), empresa_(empresa), revenda_(revenda) {}

DadosDeTeste DadosDeTeste::SegundoLivro() const {
  DadosDeTeste copia = *this;
  copia.segundo_livro_ = true;
  return copia;
}

DadosDeTeste DadosDeTeste::ComValores(EscritaDeValor escrita) const {
  DadosDeTeste copia = *this;
  copia.escrita_ = escrita;
  return copia;
}

std::string DadosDeTeste::Livro(const std::string& tabela) const {
  return segundo_livro_ ? tabela + "_CV" : tabela;
}

std::string DadosDeTeste::Valor(double valor) const {
  switch (escrita_) {
    case EscritaDeValor::kDuasCasas:
      return fmt::format("{:.2f}", valor);
    case EscritaDeValor::kMontante:
      return sql::Amount(valor);
    case EscritaDeValor::kCurta:
      break;
  }
  return fmt::format("{}", valor);
}

DadosDeTeste& DadosDeTeste::Conta(const std::string& conta, const OpcoesConta& o) {
  Insercao("CTB_CONTA")
      .Inteiro("EMPRESA", empresa_)
      .Inteiro("REVENDA", revenda_)
      .Texto("CONTA", conta)
      .Texto("CONTA_SUPERIORA", o.superiora)
      .Texto("NIVEL", o.nivel)
      .Inteiro("NIVEL_DIVISAO", o.nivel_divisao)
      .Texto("LANCAMENTO_DIVIDIDO", o.lancamento_dividido)
      .Texto("DES_CONTA", o.descricao)
      .Executa(*conexao_);
  return *this;
}

DadosDeTeste& DadosDeTeste::Lancamento(int ano_mes, int numero, const std::string& conta,
                                       const std::string& natureza, double valor,
                                       const OpcoesLancamento& o) {
  Insercao(Livro("CTB_LANCAMENTO"))
      .Inteiro("EMPRESA", empresa_)
      .Inteiro("REVENDA", revenda_)
      .Inteiro("ANO_MES", ano_mes)
      .Inteiro("LANCAMENTO", numero)
      .Inteiro("LCO_ORIGEM", o.lco_origem)
      .Inteiro("USUARIO", o.usuario)
      .Texto("CONTA", conta)
      .Inteiro("HISTORICO_PADRAO", o.historico_padrao)
      .Inteiro("DIA", o.dia)
      .Texto("NATUREZA", natureza)
      .Coluna("VAL_LANCAMENTO", Valor(valor))
      .Texto("ORIGEM", o.origem)
      .Texto("HIS_COMPLEMENTAR", o.his_complementar)
      .Inteiro("DOCUMENTO", o.documento)
      .Texto("LCO_OK", o.lco_ok)
      .Inteiro("OPERACAO", o.operacao)
      .Texto("ENCERRAMENTO_EXERCICIO", o.encerramento_exercicio)
      .Inteiro("REVENDA_OPERACAO", o.revenda_operacao)
      .Executa(*conexao_);
  return *this;
}

DadosDeTeste& DadosDeTeste::LancamentoDividido(int sequencia, int ano_mes, int numero, double valor,
                                               const Dimensoes& d) {
  Insercao(Livro("CTB_LANCAMENTO_DIVIDIDO"))
      .Inteiro("SEQUENCIA", sequencia)
      .Inteiro("EMPRESA", empresa_)
      .Inteiro("REVENDA", revenda_)
      .Inteiro("ANO_MES", ano_mes)
      .Inteiro("LANCAMENTO", numero)
      .Divisao(d, true)
      .Coluna("VAL_DIVISAO", Valor(valor))
      .Executa(*conexao_);
  return *this;
}

DadosDeTeste& DadosDeTeste::SaldoAnterior(const std::string& conta, int ano, double saldo) {
  Insercao(Livro("CTB_SALDO_ANTERIOR"))
      .Inteiro("EMPRESA", empresa_)
      .Inteiro("REVENDA", revenda_)
      .Texto("CONTA", conta)
      .Inteiro("ANO", ano)
      .Coluna("SALDO", Valor(saldo))
      .Executa(*conexao_);
  return *this;
}

DadosDeTeste& DadosDeTeste::SaldoAnteriorDivisao(int sequencia, const std::string& conta, int ano,
                                                 double saldo, const Dimensoes& d) {
  Insercao(Livro("CTB_SALDO_ANTERIOR_DIVISAO"))
      .Inteiro("SEQUENCIA", sequencia)
      .Inteiro("EMPRESA", empresa_)
      .Inteiro("REVENDA", revenda_)
      .Inteiro("ANO", ano)
      .Texto("CONTA", conta)
      .Divisao(d, true)
      .Coluna("SALDO", Valor(saldo))
      .Executa(*conexao_);
  return *this;
}

DadosDeTeste& DadosDeTeste::SaldoMes(const std::string& conta, int ano_mes, double saldo) {
  Insercao("CTB_SALANT_MES")
      .Inteiro("EMPRESA", empresa_)
      .Inteiro("REVENDA", revenda_)
      .Texto("CONTA", conta)
      .Inteiro("ANO_MES", ano_mes)
      .Coluna("SALDO", Valor(saldo))
      .Executa(*conexao_);
  return *this;
}

DadosDeTeste& DadosDeTeste::SaldoDivisaoMes(const std::string& conta, int ano_mes, double saldo,
                                            const Dimensoes& d) {
  if (d.revenda_origem)
    throw std::invalid_argument("CTB_SALANT_DIVISAO_MES has no REVENDA_ORIGEM column");
  Insercao("CTB_SALANT_DIVISAO_MES")
      .Inteiro("EMPRESA", empresa_)
      .Inteiro("REVENDA", revenda_)
      .Texto("CONTA", conta)
      .Inteiro("ANO_MES", ano_mes)
      .Divisao(d, false)
      .Coluna("SALDO", Valor(saldo))
      .Executa(*conexao_);
  return *this;
}

DadosDeTeste& DadosDeTeste::DivisaoContabil(int nivel,
                                            const std::optional<std::string>& tipo_divisao) {
  Insercao("CTB_DIVISAO_CONTABIL")
      .Inteiro("EMPRESA", empresa_)
      .Inteiro("REVENDA", revenda_)
      .Inteiro("NIVEL", nivel)
      .Texto("TIPO_DIVISAO", tipo_divisao)
      .Executa(*conexao_);
  return *this;
}

DadosDeTeste& DadosDeTeste::NumeracaoLivros(const std::optional<std::string>& apuracao_resultado) {
  Insercao("FAT_NUMERACAO_LIVROS")
      .Inteiro("EMPRESA", empresa_)
      .Inteiro("REVENDA", revenda_)
      .Texto("ANOMES_APURACAO_RESULTADO", apuracao_resultado)
      .Executa(*conexao_);
  return *this;
}

DadosDeTeste& DadosDeTeste::Numerador(const std::string& tabela, const std::string& chave,
                                      int ultimo_numero) {
  Insercao("GER_NUMERADOR")
      .Inteiro("EMPRESA", empresa_)
      .Inteiro("REVENDA", revenda_)
      .Texto("TABELA", tabela)
      .Texto("CHAVE", chave)
      .Inteiro("ULTIMO_NUMERO", ultimo_numero)
      .Executa(*conexao_);
  return *this;
}

}  // namespace kvc::testing
