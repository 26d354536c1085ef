// The balance of an account at the end of a month, on each database: exact
// statements through the trace and balances computed from rows written here.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

class SaldoContaTest : public ModuleTest {
 protected:
  // A journal row; division rows are written only when `divisao` is set.
  void Lancamento(int ano_mes, int numero, const std::string& conta, const std::string& natureza,
                  double valor, std::optional<int> revenda_divisao = std::nullopt, int revenda = 1,
                  std::optional<int> revenda_operacao = std::nullopt,
                  const std::string& tabela = "CTB_LANCAMENTO") {
    DadosDeTeste dados(*raw_, 1, revenda);
    if (tabela == "CTB_LANCAMENTO_CV") dados = dados.SegundoLivro();
    dados.Lancamento(ano_mes, numero, conta, natureza, valor,
                     {.dia = 1, .historico_padrao = numero, .revenda_operacao = revenda_operacao});
    if (revenda_divisao)
      dados.LancamentoDividido(numero, ano_mes, numero, valor,
                               {.revenda_divisao = revenda_divisao, .centro_custo = 10});
  }
  void SaldoAnterior(int ano, const std::string& conta, double saldo, int revenda = 1) {
    DadosDeTeste(*raw_, 1, revenda).SaldoAnterior(conta, ano, saldo);
  }
  void SaldoAnteriorDivisao(int sequencia, int ano, const std::string& conta, int revenda_divisao,
                            double saldo) {
    DadosDeTeste(*raw_).SaldoAnteriorDivisao(
        sequencia, conta, ano, saldo, {.revenda_divisao = revenda_divisao, .centro_custo = 10});
  }
  void Conta(const std::string& conta, const std::string& superiora, const std::string& nivel) {
    DadosDeTeste(*raw_).Conta(conta, {.superiora = NuloSeVazio(superiora), .nivel = nivel});
  }
  double Analitica(const std::string& conta, int ano_mes, const std::string& modalidade = "",
                   const std::string& revendas = "", int revenda_divisao = -1, bool mensal = false,
                   const std::string& filtro = "") {
    return dm_->BuscaSaldoContaAnalitica(1, 1, ano_mes, 0, 0, -1, -1, -1, -1, revenda_divisao, "",
                                         modalidade, conta, "", mensal, filtro, revendas);
  }
};

TEST_P(SaldoContaTest, CarriedForwardPlusDebitsMinusCredits) {
  SaldoAnterior(2023, "1.1", 50);
  Lancamento(202402, 1, "1.1", "D", 100);
  Lancamento(202404, 2, "1.1", "C", 30);
  Lancamento(202406, 3, "1.1", "D", 1000);  // after the month asked for
  Lancamento(202312, 4, "1.1", "D", 1000);  // the year before
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Analitica("1.1", 202405), 120);
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{
                "select saldo   from  CTB_SALDO_ANTERIOR  where empresa = 1 and REVENDA = 1    "
                "and conta = '1.1'   and ano = 2023 ",
                "select l.natureza, sum(l.val_lancamento) total from ctb_lancamento l where "
                "l.empresa = 1 and   l.revenda = 1 and   l.conta = '1.1' and   l.ano_mes between "
                "202401 and 202405 group by l.natureza"}));
}

TEST_P(SaldoContaTest, MonthZeroReturnsOpeningBalanceWithoutMovement) {
  SaldoAnterior(2023, "1.1", 50);
  SaldoAnterior(2024, "1.1", 999);
  Lancamento(202401, 1, "1.1", "D", 100);
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Analitica("1.1", 202400), 50);
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{"select saldo from  CTB_SALDO_ANTERIOR  where empresa = 1 "
                                      "and REVENDA = 1  and ano = 2023 and conta = '1.1' "}));
}

TEST_P(SaldoContaTest, MissingCarriedForwardRowFallsBackToThePeriodFromPreviousJanuary) {
  SaldoAnterior(2022, "1.1", 7);
  Lancamento(202302, 1, "1.1", "D", 40);
  Lancamento(202403, 2, "1.1", "C", 15);
  Lancamento(202212, 3, "1.1", "D", 500);  // before the period
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Analitica("1.1", 202405), 7 + 40 - 15);
  const auto statements = trace_->Statements();
  ASSERT_EQ(statements.size(), 3u);
  EXPECT_EQ(statements[1],
            "select saldo   from  CTB_SALDO_ANTERIOR  where empresa = 1 and REVENDA = 1    and "
            "conta = '1.1'   and ano = 2022 ");
  EXPECT_EQ(statements[2],
            "select l.natureza, sum(l.val_lancamento) total from ctb_lancamento l where l.empresa "
            "= 1 and   l.revenda = 1 and   l.conta = '1.1' and   l.ano_mes between 202301 and "
            "202405 group by l.natureza");
  EXPECT_DOUBLE_EQ(dm_->BuscaSaldoAntContaAnaliticaPeriodo(1, 1, 202301, 202405, -1, -1, -1, -1, -1,
                                                           "", "", "1.1", "", false, "", ""),
                   32);
}

TEST_P(SaldoContaTest, EntryWithoutDivisionRowsDoesNotCountWithExclusionList) {
  DadosDeTeste(*raw_).SaldoAnteriorDivisao(1, "1.1", 2023, 5);
  Lancamento(202401, 1, "1.1", "D", 100, 2);                 // divided, dealership 2: counts
  Lancamento(202401, 2, "1.1", "D", 70);                     // no division row: does not count
  Lancamento(202401, 3, "1.1", "C", 20, 3);                  // divided to excluded dealership 3
  Lancamento(202401, 4, "1.1", "C", 9, std::nullopt, 1, 3);  // operation of dealership 3
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Analitica("1.1", 202405, "", "(3)"), 5 + 100);
  ASSERT_EQ(trace_->Statements().size(), 2u);
  EXPECT_EQ(trace_->Statements()[0],
            "select saldo   from  CTB_SALDO_ANTERIOR_DIVISAO  where empresa = 1   and conta = "
            "'1.1'   and ano = 2023 and ((REVENDA_DIVISAO is null) or (REVENDA_DIVISAO not in "
            "(3))) ");
  EXPECT_EQ(
      trace_->Statements()[1],
      "select L.NATUREZA,        sum(coalesce(D.VAL_DIVISAO, 0)) as TOTAL   from CTB_LANCAMENTO L "
      "       left outer join CTB_LANCAMENTO_DIVIDIDO D          on D.EMPRESA = L.EMPRESA       "
      "  and D.REVENDA = L.REVENDA         and D.ANO_MES = L.ANO_MES         and D.LANCAMENTO = "
      "L.LANCAMENTO  where L.EMPRESA = 1   and L.REVENDA = 1   and L.CONTA = '1.1'   and "
      "L.ANO_MES between 202401 and 202405 and ((L.REVENDA_OPERACAO is null) or "
      "(L.REVENDA_OPERACAO not in (3)))  and ((D.REVENDA_DIVISAO is null) or (D.REVENDA_DIVISAO "
      "not in (3)))  and ((D.REVENDA_ORIGEM is null) or (D.REVENDA_ORIGEM not in (3)))  group "
      "by L.NATUREZA ");
}

TEST_P(SaldoContaTest, DivisionFilterReadsDivisionRowsAndDivisionCarriedForward) {
  SaldoAnterior(2023, "1.1", 1000);
  SaldoAnteriorDivisao(1, 2023, "1.1", 2, 11);
  SaldoAnteriorDivisao(2, 2023, "1.1", 4, 22);
  Lancamento(202401, 1, "1.1", "D", 100, 2);
  Lancamento(202401, 2, "1.1", "D", 300, 4);
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Analitica("1.1", 202402, "", "", 2), 11 + 100);
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{
                "select SALDO   from  CTB_SALDO_ANTERIOR  where empresa = 1 and REVENDA = 1    "
                "and ano     = 2023 ",
                "select coalesce(sum(e.saldo),0) saldo   from ctb_saldo_anterior_divisao e  where "
                "e.empresa = 1 and e.revenda = 1 and e.ano = 2023 and e.conta = '1.1'  and "
                "revenda_divisao = 2",
                "select l.natureza, sum(coalesce(d.val_divisao, 0)) total from "
                "ctb_lancamento_dividido d, ctb_lancamento l where l.lancamento = d.lancamento and "
                "l.empresa = d.empresa and l.revenda = d.revenda and l.ano_mes = d.ano_mes and "
                "l.empresa = 1 and l.revenda = 1 and l.conta = '1.1' and l.ano_mes between 202401 "
                "and 202402 and revenda_divisao = 2 group by l.natureza"}));
}

TEST_P(SaldoContaTest, FilterWithoutConditionStillChoosesTheDivisionPath) {
  SaldoAnterior(2023, "1.1", 1000);
  SaldoAnteriorDivisao(1, 2023, "1.1", 2, 11);
  Lancamento(202401, 1, "1.1", "D", 100, 2);
  Lancamento(202401, 2, "1.1", "D", 5);
  Bind();
  // -2 adds no condition but is not -1: the division path, with an empty FD.
  EXPECT_DOUBLE_EQ(dm_->BuscaSaldoContaAnalitica(1, 1, 202401, 0, 0, -1, -1, -1, -2, -1, "", "",
                                                 "1.1", "", false, "", ""),
                   11 + 100);
  // In month 00 only FD decides: empty, so the plain carried-forward row.
  EXPECT_DOUBLE_EQ(dm_->BuscaSaldoContaAnalitica(1, 1, 202400, 0, 0, -1, -1, -1, -2, -1, "", "",
                                                 "1.1", "", false, "", ""),
                   1000);
}

TEST_P(SaldoContaTest, SecondBookAddsItsEntriesThroughUnion) {
  DadosDeTeste(*raw_).SegundoLivro().SaldoAnterior("1.1", 2023, 3);
  Lancamento(202401, 1, "1.1", "D", 100);
  Lancamento(202401, 1, "1.1", "C", 40, std::nullopt, 1, std::nullopt, "CTB_LANCAMENTO_CV");
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Analitica("1.1", 202401, "SPED"), 3 + 100 - 40);
  ASSERT_EQ(trace_->Statements().size(), 2u);
  EXPECT_EQ(trace_->Statements()[0],
            "select saldo   from  CTB_SALDO_ANTERIOR_CV  where empresa = 1 and REVENDA = 1    "
            "and conta = '1.1'   and ano = 2023 ");
  EXPECT_EQ(trace_->Statements()[1],
            "select l.natureza, sum(l.val_lancamento) total from ctb_lancamento l where l.empresa "
            "= 1 and   l.revenda = 1 and   l.conta = '1.1' and   l.ano_mes between 202401 and "
            "202401 group by l.natureza union select l.natureza, sum(l.val_lancamento) total from "
            "ctb_lancamento_cv l where l.empresa = 1 and   l.revenda = 1 and   l.conta = '1.1' "
            "and   l.ano_mes between 202401 and 202401 group by l.natureza");
}

TEST_P(SaldoContaTest, MonthlyTableCountsItsSumAsDebit) {
  SaldoAnterior(2023, "1.1", 10);
  DadosDeTeste(*raw_).SaldoMes("1.1", 202401, -25).SaldoMes("1.1", 202402, 5);
  Lancamento(202401, 1, "1.1", "D", 1000);  // the journal is not read
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Analitica("1.1", 202402, "", "", -1, true), 10 - 25 + 5);
  EXPECT_EQ(trace_->Statements()[1],
            "select 'D' natureza, sum(saldo) total from ctb_salant_mes where empresa = 1 and   "
            "revenda = 1 and   conta = '1.1' and   ano_mes between 202401 and 202402");
}

TEST_P(SaldoContaTest, ExtraConditionUsesTheJournalAlias) {
  SaldoAnterior(2023, "1.1", 0);
  Lancamento(202401, 1, "1.1", "D", 100);
  Lancamento(202401, 2, "1.1", "D", 7);
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Analitica("1.1", 202401, "", "", -1, false, "{$ALIAS$}.HISTORICO_PADRAO <> 2"),
                   100);
  EXPECT_EQ(trace_->Statements()[1],
            "select l.natureza, sum(l.val_lancamento) total from ctb_lancamento l where l.empresa "
            "= 1 and   l.revenda = 1 and   l.conta = '1.1' and   l.ano_mes between 202401 and "
            "202401 and l.HISTORICO_PADRAO <> 2 group by l.natureza");
}

TEST_P(SaldoContaTest, SyntheticAccountWithoutChildrenReturnsIncomingSaldo) {
  Conta("9", "", "S");
  Bind();
  double saldo = 42.5;
  EXPECT_DOUBLE_EQ(dm_->BuscaSaldoConta(1, 1, 202401, 0, 0, -1, -1, -1, -1, -1, "", "", "9", "S",
                                        "", saldo, false, false, "", ""),
                   42.5);
  EXPECT_DOUBLE_EQ(saldo, 42.5);
}

TEST_P(SaldoContaTest, SyntheticAccountSumsItsAnalyticDescendants) {
  Conta("1", "", "S");
  Conta("1.1", "1", "S");
  Conta("1.1.1", "1.1", "A");
  Conta("1.1.2", "1.1", "A");
  Conta("1.2", "1", "A");
  SaldoAnterior(2023, "1.1.1", 10);
  SaldoAnterior(2023, "1.1.2", 20);
  SaldoAnterior(2023, "1.2", 30);
  Lancamento(202401, 1, "1.1.2", "C", 5);
  Lancamento(202401, 2, "1.2", "D", 1);
  Bind();
  for (bool geral : {false, true}) {
    double saldo = 0;
    EXPECT_DOUBLE_EQ(dm_->BuscaSaldoConta(1, 1, 202401, 0, 0, -1, -1, -1, -1, -1, "", "", "1", "S",
                                          "", saldo, geral, false, "", ""),
                     10 + 20 - 5 + 30 + 1);
    double analitica = 99;
    EXPECT_DOUBLE_EQ(dm_->BuscaSaldoConta(1, 1, 202401, 0, 0, -1, -1, -1, -1, -1, "", "", "1.2",
                                          "A", "", analitica, geral, false, "", ""),
                     31)
        << "an analytic account overwrites the accumulator";
  }
}

KVC_INSTANTIATE_BACKENDS(SaldoContaTest);

}  // namespace
}  // namespace kvc::testing
