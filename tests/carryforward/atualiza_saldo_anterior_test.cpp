// The roll-up of carried-forward balances up the chart, on each database.
#include <gtest/gtest.h>

#include <clocale>
#include <map>
#include <random>
#include <stdexcept>

#include <fmt/format.h>

#include "accounting/db/error.h"
#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

class Comandos : public IProgressCallback {
 public:
  void Execute(const std::string& json) override { lista.push_back(CommandFromJson(json)); }
  std::vector<std::string> lista;
};

class AtualizaSaldoAnteriorTest : public ModuleTest {
 protected:
  void Conta(const std::string& conta, const std::string& superiora, const std::string& nivel) {
    DadosDeTeste(*raw_).Conta(conta, {.superiora = NuloSeVazio(superiora), .nivel = nivel});
  }
  void Saldo(const std::string& conta, double saldo, int ano = 2023) {
    DadosDeTeste(*raw_).SaldoAnterior(conta, ano, saldo);
  }
  void SaldoDivisao(const std::string& conta, double saldo, const std::string& tipo_item,
                    int revenda_divisao) {
    DadosDeTeste(*raw_).SaldoAnteriorDivisao(
        ++sequencia_, conta, 2023, saldo,
        {.revenda_divisao = revenda_divisao, .tipo_item = NuloSeVazio(tipo_item)});
  }
  std::vector<Linha> Saldos() {
    return Linhas(*raw_,
                  "select CONTA, SALDO from CTB_SALDO_ANTERIOR where ANO = 2023 order by "
                  "CONTA");
  }
  int sequencia_ = 1000;
};

TEST_P(AtualizaSaldoAnteriorTest, TwoAnalyticAccountsUnderOneParentAddUp) {
  Conta("1", "", "S");
  Conta("1.1", "1", "S");
  Conta("1.1.1", "1.1", "A");
  Conta("1.1.2", "1.1", "A");
  Saldo("1.1.1", 10);
  Saldo("1.1.2", 32.5);
  Saldo("1.1", 999);  // a stale synthetic row is removed first
  Bind();
  trace_->Clear();
  dm_->AtualizaSaldoAnterior("2023", nullptr);
  EXPECT_EQ(Saldos(),
            (std::vector<Linha>{
                {"1", "42.50"}, {"1.1", "42.50"}, {"1.1.1", "10.00"}, {"1.1.2", "32.50"}}));
  const auto s = trace_->Statements();
  EXPECT_EQ(s.at(0),
            " delete from ctb_saldo_anterior  where empresa = 1 and   revenda = 1 and   ano = "
            "2023 and   conta not in (select conta from ctb_conta                     where "
            "empresa = 1                     and   revenda = 1 and   nivel = 'A')");
  EXPECT_NE(std::find(s.begin(), s.end(),
                      "insert into ctb_saldo_anterior (empresa,revenda,conta,ano,saldo)values(1,1,"
                      "'1.1',2023,10)"),
            s.end());
  EXPECT_NE(std::find(s.begin(), s.end(),
                      "update ctb_saldo_anterior set saldo = 42.5 where empresa = 1 and revenda = "
                      "1 and conta = '1.1' and ano = 2023"),
            s.end());
  EXPECT_EQ(dm_->LogErros() ? dm_->LogErros()->RecordCount() : 0u, 0u);
}

TEST_P(AtualizaSaldoAnteriorTest, AccountWithoutSuperiorOnlyRewritesItsOwnRow) {
  // Neighbours: a tree beside it, and another account without a superior.
  Conta("1", "", "S");
  Conta("1.1", "1", "A");
  Conta("8", "", "A");
  Conta("9", "", "A");
  Saldo("1.1", 3);
  Saldo("8", 7);
  Saldo("9", 5);
  Bind();
  trace_->Clear();
  dm_->AtualizaSaldoAnterior("2023", nullptr);
  EXPECT_EQ(Saldos(),
            (std::vector<Linha>{{"1", "3.00"}, {"1.1", "3.00"}, {"8", "7.00"}, {"9", "5.00"}}));
  // Its only write is the rewrite of its own row with its own value.
  std::vector<std::string> escritas_de_9;
  for (const auto& t : trace_->Trace())
    if (t.kind == db::TracedStatement::Kind::kExecute && t.sql.find("'9'") != std::string::npos)
      escritas_de_9.push_back(t.sql);
  EXPECT_EQ(escritas_de_9,
            (std::vector<std::string>{"update ctb_saldo_anterior set saldo = 5 where empresa = 1 "
                                      "and revenda = 1 and conta = '9' and ano = 2023"}));
  EXPECT_EQ(dm_->LogErros() ? dm_->LogErros()->RecordCount() : 0u, 0u);
}

TEST_P(AtualizaSaldoAnteriorTest, EmptyYearSendsOnlyTheZeroBarAndWritesOnlyTheDeletion) {
  Conta("1", "", "S");
  Bind();
  Comandos comandos;
  trace_->Clear();
  dm_->AtualizaSaldoAnterior("2023", &comandos);
  EXPECT_EQ(comandos.lista, (std::vector<std::string>{"pBar#$#0"}));
  size_t escritas = 0;
  for (const auto& t : trace_->Trace())
    if (t.kind == db::TracedStatement::Kind::kExecute) ++escritas;
  EXPECT_EQ(escritas, 1u);
}

TEST_P(AtualizaSaldoAnteriorTest, ProgressIsSentOncePerWholePercentage) {
  Conta("1", "", "S");
  for (int i = 0; i < 3; ++i) {
    Conta(fmt::format("1.{}", i), "1", "A");
    Saldo(fmt::format("1.{}", i), 1);
  }
  Bind();
  Comandos comandos;
  dm_->AtualizaSaldoAnterior("2023", &comandos);
  EXPECT_EQ(comandos.lista,
            (std::vector<std::string>{"pBar#$#0", "pBar#$#33", "pBar#$#66", "pBar#$#100"}));
}

TEST_P(AtualizaSaldoAnteriorTest, BalanceIsWrittenWithAPointUnderACommaLocale) {
  Conta("1", "", "S");
  Conta("1.1", "1", "A");
  Saldo("1.1", 1234.5);
  Bind();
  if (!std::setlocale(LC_ALL, "pt_BR.UTF-8")) GTEST_SKIP() << "pt_BR.UTF-8 not installed";
  trace_->Clear();
  dm_->AtualizaSaldoAnterior("2023", nullptr);
  std::setlocale(LC_ALL, "C");
  const auto s = trace_->Statements();
  EXPECT_NE(std::find(s.begin(), s.end(),
                      "update ctb_saldo_anterior set saldo = 1234.5 where empresa = 1 and revenda "
                      "= 1 and conta = '1.1' and ano = 2023"),
            s.end());
  EXPECT_EQ(Saldos(), (std::vector<Linha>{{"1", "1234.50"}, {"1.1", "1234.50"}}));
}

TEST_P(AtualizaSaldoAnteriorTest, FailedWritesAreLoggedAndTheRunGoesOn) {
  Conta("1", "", "S");
  Conta("1.1", "1", "A");
  Conta("1.2", "1", "A");
  Saldo("1.1", 10);
  Saldo("1.2", 20);
  Bind();
  trace_->FailMatching("delete from ctb_saldo_anterior ", "disco cheio");
  trace_->FailMatching("values(1,1,'1',2023,10)", "disco cheio");
  dm_->AtualizaSaldoAnterior("2023", nullptr);
  ASSERT_NE(dm_->LogErros(), nullptr);
  db::ClientDataSet& log = *dm_->LogErros();
  ASSERT_EQ(log.RecordCount(), 2u);
  log.First();
  EXPECT_EQ(log.FieldByName("MENSAGEM").AsString(), "Erro ao excluir saldo anterior.");
  EXPECT_EQ(log.FieldByName("EMESSAGE").AsString(), "disco cheio");
  EXPECT_TRUE(log.FieldByName("DTA_ERRO").AsDateTime().IsValid());
  log.Next();
  EXPECT_EQ(log.FieldByName("MENSAGEM").AsString(), "Erro ao incluir saldo anterior.");
  EXPECT_EQ(log.FieldByName("SQL").AsString(),
            "insert into ctb_saldo_anterior (empresa,revenda,conta,ano,saldo)values(1,1,'1',2023,"
            "10)");
  // The second analytic row still reached the parent, as a new row.
  EXPECT_EQ(Saldos(), (std::vector<Linha>{{"1", "20.00"}, {"1.1", "10.00"}, {"1.2", "20.00"}}));
}

TEST_P(AtualizaSaldoAnteriorTest, SelfSuperiorAccountMakesTheWalkEndless) {
  Conta("7", "7", "A");
  Saldo("7", 1);
  Bind();
  // A statement budget stands in for the caller's patience: the walk runs
  // until the budget stops it.
  size_t enviados = 0;
  trace_->SetSink([&enviados](const db::TracedStatement&) {
    if (++enviados > 300) throw db::DatabaseError("statement budget exhausted", "");
  });
  EXPECT_THROW(dm_->AtualizaSaldoAnterior("2023", nullptr), std::exception);
  EXPECT_GT(enviados, 300u);
}

TEST_P(AtualizaSaldoAnteriorTest, DivisionFormWritesNullAndLooksItUpWithIsNull) {
  Conta("1", "", "S");
  Conta("1.1", "1", "A");
  Conta("1.2", "1", "A");
  SaldoDivisao("1.1", 10, "", 2);
  SaldoDivisao("1.2", 5, "", 2);
  SaldoDivisao("1.2", 7, "P", 2);
  Bind();
  Comandos comandos;
  trace_->Clear();
  dm_->AtualizaSaldoAnteriorDivisao("2023", &comandos);
  EXPECT_EQ(comandos.lista.at(0),
            "pnlMensagem.Caption#$#Atualizando saldo dividido das contas superioras ...");
  EXPECT_EQ(comandos.lista.at(1), "pBar#$#0");
  EXPECT_EQ(Linhas(*raw_,
                   "select CONTA, TIPO_ITEM, SALDO from CTB_SALDO_ANTERIOR_DIVISAO where "
                   "CONTA = '1' order by coalesce(TIPO_ITEM, '')"),
            (std::vector<Linha>{{"1", "NULL", "15.00"}, {"1", "P", "7.00"}}));
  const auto s = trace_->Statements();
  bool busca_is_null = false, inclui_null = false;
  for (const auto& x : s) {
    busca_is_null = busca_is_null ||
                    x == "select CONTA, REVENDA_DIVISAO, TIPO_ITEM, CATEGORIA, CENTRO_CUSTO,       "
                         "MODALIDADE_OPERACAO, SECAO_OFICINA, FONTE, SALDO from "
                         "CTB_SALDO_ANTERIOR_DIVISAO where EMPRESA = 1 and REVENDA = 1 and CONTA "
                         "= '1' and ANO = 2023 and revenda_divisao = 2 and tipo_item is null and "
                         "categoria is null and centro_custo is null and modalidade_operacao is "
                         "null and secao_oficina is null and fonte is null";
    inclui_null =
        inclui_null ||
        (x.rfind("insert into ctb_saldo_anterior_divisao  (sequencia, empresa, revenda, "
                 "ano, conta, revenda_divisao, tipo_item, categoria,  centro_custo, "
                 "modalidade_operacao, secao_oficina, fonte, saldo)values(",
                 0) == 0 &&
         x.find(",1,1,2023,'1',2,NULL,NULL,NULL,NULL,NULL,NULL,10)") != std::string::npos);
  }
  EXPECT_TRUE(busca_is_null);
  EXPECT_TRUE(inclui_null);
  // Sequence numbers come from the database-wide key under company 1, dealership 1.
  EXPECT_EQ(Column(*raw_, "select CHAVE from GER_NUMERADOR where EMPRESA = 1 and REVENDA = 1"),
            (std::vector<std::string>{"SEQUENCIA"}));
}

TEST_P(AtualizaSaldoAnteriorTest, EachFailingWriteBecomesOneLogRowAndTheRunCompletes) {
  Conta("1", "", "S");
  Conta("1.1", "1", "S");
  Conta("1.1.1", "1.1", "A");
  Conta("1.1.2", "1.1", "A");
  Conta("1.2", "1", "A");
  auto popula = [this]() {
    raw_->Execute("delete from CTB_SALDO_ANTERIOR", {});
    raw_->Execute("delete from CTB_SALDO_ANTERIOR_DIVISAO", {});
    raw_->Execute("delete from GER_NUMERADOR", {});
    Saldo("1.1.1", 10);
    Saldo("1.1.2", 20);
    Saldo("1.2", 30);
    SaldoDivisao("1.1.1", 1, "", 2);
    SaldoDivisao("1.2", 2, "P", 2);
  };
  Bind();
  for (bool divisao : {false, true}) {
    popula();
    trace_->ClearFaults();
    trace_->Clear();
    divisao ? dm_->AtualizaSaldoAnteriorDivisao("2023", nullptr)
            : dm_->AtualizaSaldoAnterior("2023", nullptr);
    std::vector<std::string> escritas;
    for (const auto& t : trace_->Trace())
      if (t.kind == db::TracedStatement::Kind::kExecute &&
          t.sql.find("GER_NUMERADOR") == std::string::npos)
        escritas.push_back(t.sql);
    ASSERT_GE(escritas.size(), 5u);
    for (const std::string& escrita : escritas) {
      popula();
      if (dm_->LogErros()) dm_->LogErros()->EmptyDataSet();
      trace_->ClearFaults();
      trace_->FailMatching(escrita, "falha injetada");
      EXPECT_NO_THROW(divisao ? dm_->AtualizaSaldoAnteriorDivisao("2023", nullptr)
                              : dm_->AtualizaSaldoAnterior("2023", nullptr));
      ASSERT_NE(dm_->LogErros(), nullptr);
      db::ClientDataSet& log = *dm_->LogErros();
      ASSERT_EQ(log.RecordCount(), 1u) << escrita;
      log.First();
      EXPECT_EQ(log.FieldByName("SQL").AsString(), escrita);
      EXPECT_EQ(log.FieldByName("EMESSAGE").AsString(), "falha injetada");
      const bool exclusao = escrita.find("delete") != std::string::npos;
      EXPECT_EQ(log.FieldByName("MENSAGEM").AsString(),
                std::string(exclusao ? "Erro ao excluir saldo anterior"
                                     : "Erro ao incluir saldo anterior") +
                    (divisao ? " dividido." : "."));
    }
  }
}

TEST_P(AtualizaSaldoAnteriorTest, RollUpOfARandomTreeGivesEverySyntheticAccountItsDescendantsSum) {
  // A random tree: synthetic accounts S0..S5 (each under an earlier one or at
  // the root) and analytic accounts A0..A19 under random synthetic ones, with
  // plain rows and division rows in two combinations.
  std::mt19937 rng(53);
  auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  std::map<std::string, std::string> pai;
  for (int i = 0; i < 6; ++i) {
    pai[fmt::format("S{}", i)] = i == 0 ? "" : fmt::format("S{}", pick(0, i - 1));
    Conta(fmt::format("S{}", i), pai[fmt::format("S{}", i)], "S");
  }
  std::map<std::string, double> plano;
  std::map<std::pair<std::string, int>, double> divisao;
  for (int i = 0; i < 20; ++i) {
    const std::string conta = fmt::format("A{:02}", i);
    pai[conta] = fmt::format("S{}", pick(0, 5));
    Conta(conta, pai[conta], "A");
    plano[conta] = pick(-9999, 9999) / 4.0;
    Saldo(conta, plano[conta]);
    for (int rd = 1; rd <= 2; ++rd)
      if (pick(0, 1)) {
        divisao[{conta, rd}] = pick(-999, 999) / 4.0;
        SaldoDivisao(conta, divisao[{conta, rd}], "", rd);
      }
  }
  Bind();
  dm_->AtualizaSaldoAnterior("2023", nullptr);
  dm_->AtualizaSaldoAnteriorDivisao("2023", nullptr);
  EXPECT_EQ(dm_->LogErros() ? dm_->LogErros()->RecordCount() : 0u, 0u);
  // Expected: every ancestor of an analytic account receives its balance.
  std::map<std::string, double> esperado = plano;
  std::map<std::pair<std::string, int>, double> esperado_divisao = divisao;
  for (const auto& [conta, saldo] : plano)
    for (std::string c = pai[conta]; !c.empty(); c = pai[c]) esperado[c] += saldo;
  for (const auto& [chave, saldo] : divisao)
    for (std::string c = pai[chave.first]; !c.empty(); c = pai[c])
      esperado_divisao[{c, chave.second}] += saldo;
  std::map<std::string, double> obtido;
  for (const auto& linha : raw_->Query("select CONTA, SALDO from CTB_SALDO_ANTERIOR where ANO = "
                                       "2023",
                                       {})
                               .rows)
    obtido[linha[0].AsString()] = linha[1].AsFloat();
  for (const auto& [conta, saldo] : obtido) EXPECT_TRUE(esperado.count(conta)) << conta;
  for (const auto& [conta, saldo] : esperado) {
    // A synthetic account without analytic descendants has no row.
    if (!obtido.count(conta)) {
      EXPECT_EQ(conta[0], 'S') << conta;
      continue;
    }
    EXPECT_NEAR(obtido[conta], saldo, 0.005) << conta;
  }
  std::map<std::pair<std::string, int>, double> obtido_divisao;
  for (const auto& linha : raw_->Query("select CONTA, REVENDA_DIVISAO, SALDO from "
                                       "CTB_SALDO_ANTERIOR_DIVISAO where ANO = 2023",
                                       {})
                               .rows)
    obtido_divisao[{linha[0].AsString(), static_cast<int>(linha[1].AsInteger())}] +=
        linha[2].AsFloat();
  EXPECT_EQ(obtido_divisao.size(), esperado_divisao.size());
  for (const auto& [chave, saldo] : esperado_divisao)
    EXPECT_NEAR(obtido_divisao[chave], saldo, 0.005) << chave.first << "/" << chave.second;
}

KVC_INSTANTIATE_BACKENDS(AtualizaSaldoAnteriorTest);

}  // namespace
}  // namespace kvc::testing
