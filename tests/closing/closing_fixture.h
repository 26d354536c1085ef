// A fixture for the closing operations: accounts, entries with their division
// rows and stored balances written straight into the test database, and a
// snapshot of every table to prove that a run left nothing behind.
#ifndef KVC_TESTS_CLOSING_CLOSING_FIXTURE_H_
#define KVC_TESTS_CLOSING_CLOSING_FIXTURE_H_

#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>

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
  static std::string Num(const std::optional<int>& v) {
    return v ? std::to_string(*v) : std::string("null");
  }
  static std::string Txt(const std::string& v) { return v.empty() ? "null" : "'" + v + "'"; }

  void Conta(const std::string& conta, const std::string& superiora, const std::string& nivel) {
    raw_->Execute(fmt::format("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, "
                              "NIVEL) values ({}, {}, '{}', {}, '{}')",
                              empresa_, revenda_, conta, Txt(superiora), nivel),
                  {});
  }

  // An entry of the fixture's company and dealership with its division rows; numbers
  // start at 9001 so that they never meet the module's own.
  int Lancamento(int ano_mes, int dia, const std::string& conta, const std::string& natureza,
                 double valor, const std::vector<Div>& divisoes, int historico = 10,
                 std::optional<int> revenda_operacao = std::nullopt) {
    const int numero = ++ultimo_lancamento_;
    raw_->Execute(fmt::format("insert into CTB_LANCAMENTO (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, "
                              "CONTA, HISTORICO_PADRAO, DIA, NATUREZA, VAL_LANCAMENTO, ORIGEM, "
                              "REVENDA_OPERACAO) values ({}, {}, {}, {}, '{}', {}, {}, '{}', "
                              "{:.2f}, 'T', {})",
                              empresa_, revenda_, ano_mes, numero, conta, historico, dia, natureza,
                              valor, Num(revenda_operacao)),
                  {});
    for (const Div& d : divisoes)
      raw_->Execute(
          fmt::format("insert into CTB_LANCAMENTO_DIVIDIDO (SEQUENCIA, EMPRESA, REVENDA, ANO_MES, "
                      "LANCAMENTO, REVENDA_DIVISAO, CENTRO_CUSTO, FONTE, TIPO_ITEM, VAL_DIVISAO) "
                      "values ({}, {}, {}, {}, {}, {}, {}, {}, {}, {:.2f})",
                      ++ultima_sequencia_, empresa_, revenda_, ano_mes, numero,
                      Num(d.revenda_divisao), Num(d.centro_custo), Num(d.fonte), Txt(d.tipo_item),
                      d.valor),
          {});
    return numero;
  }

  void SaldoAnterior(const std::string& conta, int ano, double saldo) {
    raw_->Execute(fmt::format("insert into CTB_SALDO_ANTERIOR (EMPRESA, REVENDA, CONTA, ANO, "
                              "SALDO) values ({}, {}, '{}', {}, {:.2f})",
                              empresa_, revenda_, conta, ano, saldo),
                  {});
  }

  void SaldoAnteriorDivisao(const std::string& conta, int ano, double saldo,
                            std::optional<int> centro_custo = std::nullopt,
                            std::optional<int> revenda_divisao = std::nullopt) {
    raw_->Execute(fmt::format("insert into CTB_SALDO_ANTERIOR_DIVISAO (SEQUENCIA, EMPRESA, "
                              "REVENDA, ANO, CONTA, CENTRO_CUSTO, REVENDA_DIVISAO, SALDO) values "
                              "({}, {}, {}, {}, '{}', {}, {}, {:.2f})",
                              ++ultima_sequencia_, empresa_, revenda_, ano, conta,
                              Num(centro_custo), Num(revenda_divisao), saldo),
                  {});
  }

  // The numbering-book row of the company and dealership ("null" for an empty
  // date, or an ISO date).
  void Numeracao(const std::string& data = "null") {
    raw_->Execute(
        "insert into FAT_NUMERACAO_LIVROS (EMPRESA, REVENDA, ANOMES_APURACAO_RESULTADO) "
        "values (" +
            std::to_string(empresa_) + ", " + std::to_string(revenda_) + ", " +
            (data == "null" ? data : "'" + data + "'") + ")",
        {});
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
