// A fixture for the closing operations: accounts, entries with their division
// rows and stored balances written straight into the test database, and a
// snapshot of every table to prove that a run left nothing behind.
#ifndef KVC_TESTS_CLOSING_CLOSING_FIXTURE_H_
#define KVC_TESTS_CLOSING_CLOSING_FIXTURE_H_

#include <optional>
#include <string>
#include <vector>

#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {

// The progress commands a callback received, as command texts.
class Comandos : public IProgressCallback {
 public:
  void Execute(const std::string& json) override { lista.push_back(CommandFromJson(json)); }
  std::vector<std::string> lista;
};

// One division row of an entry; an empty optional is a null column.
struct Div {
  Div(double v, std::optional<int> cc = std::nullopt, std::optional<int> rd = std::nullopt,
      std::string ti = "", std::optional<int> f = std::nullopt)
      : valor(v), centro_custo(cc), revenda_divisao(rd), tipo_item(std::move(ti)), fonte(f) {}
  double valor = 0;
  std::optional<int> centro_custo;
  std::optional<int> revenda_divisao;
  std::string tipo_item;
  std::optional<int> fonte;
};

class ClosingTest : public ModuleTest {
 protected:
  // The rows' writer for the fixture's company and dealership, amounts with
  // two decimals.
  DadosDeTeste Dados() const {
    return DadosDeTeste(*raw_, empresa_, revenda_).ComValores(EscritaDeValor::kDuasCasas);
  }

  void Conta(const std::string& conta, const std::string& superiora, const std::string& nivel) {
    Dados().Conta(conta, {.superiora = NuloSeVazio(superiora), .nivel = nivel});
  }

  // An entry of the fixture's company and dealership with its division rows; numbers
  // start at 9001 so that they never meet the module's own.
  int Lancamento(int ano_mes, int dia, const std::string& conta, const std::string& natureza,
                 double valor, const std::vector<Div>& divisoes, int historico = 10,
                 std::optional<int> revenda_operacao = std::nullopt) {
    const int numero = ++ultimo_lancamento_;
    DadosDeTeste dados = Dados();
    dados.Lancamento(ano_mes, numero, conta, natureza, valor,
                     {.dia = dia,
                      .historico_padrao = historico,
                      .origem = "T",
                      .revenda_operacao = revenda_operacao});
    for (const Div& d : divisoes)
      dados.LancamentoDividido(++ultima_sequencia_, ano_mes, numero, d.valor,
                               {.revenda_divisao = d.revenda_divisao,
                                .centro_custo = d.centro_custo,
                                .fonte = d.fonte,
                                .tipo_item = NuloSeVazio(d.tipo_item)});
    return numero;
  }

  void SaldoAnterior(const std::string& conta, int ano, double saldo) {
    Dados().SaldoAnterior(conta, ano, saldo);
  }

  void SaldoAnteriorDivisao(const std::string& conta, int ano, double saldo,
                            std::optional<int> centro_custo = std::nullopt,
                            std::optional<int> revenda_divisao = std::nullopt) {
    Dados().SaldoAnteriorDivisao(
        ++ultima_sequencia_, conta, ano, saldo,
        {.revenda_divisao = revenda_divisao, .centro_custo = centro_custo});
  }

  // The numbering-book row of the company and dealership ("null" for an empty
  // date, or an ISO date).
  void Numeracao(const std::string& data = "null") {
    Dados().NumeracaoLivros(data == "null" ? std::nullopt : std::optional<std::string>(data));
  }

  // Every row of every table, each table's rows sorted.
  TabelasDoBanco Banco() { return TodasAsTabelas(*raw_); }

  // The company and dealership of every row written (the host's are set
  // apart, in host_).
  int empresa_ = 1;
  int revenda_ = 1;
  int ultimo_lancamento_ = 9000;
  int ultima_sequencia_ = 5000;
};

}  // namespace kvc::testing

#endif  // KVC_TESTS_CLOSING_CLOSING_FIXTURE_H_
