// The balance an analytic account carries into a month, on each database.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

class SaldoAnteriorContaTest : public ModuleTest {
 protected:
  // An entry of account 5.1 with its one division row, both numbered by numero_.
  void Lancamento(int ano_mes, const std::string& natureza, double valor, int revenda = 1,
                  std::optional<int> revenda_divisao = std::nullopt) {
    ++numero_;
    DadosDeTeste(*raw_, 1, revenda)
        .Lancamento(ano_mes, numero_, "5.1", natureza, valor, {.dia = 1})
        .LancamentoDividido(numero_, ano_mes, numero_, valor, {.revenda_divisao = revenda_divisao});
  }
  void Anterior(int ano, double saldo, int revenda = 1) {
    DadosDeTeste(*raw_, 1, revenda).SaldoAnterior("5.1", ano, saldo);
  }
  void AnteriorDivisao(int ano, double saldo, int revenda_divisao, int revenda = 1) {
    ++numero_;
    DadosDeTeste(*raw_, 1, revenda)
        .SaldoAnteriorDivisao(numero_, "5.1", ano, saldo, {.revenda_divisao = revenda_divisao});
  }
  double Total(int ano_mes, bool geral = false, const std::string& lista = "") {
    return dm_->CalculaSaldoAnteriorContaAnalitica(1, 1, ano_mes, -1, -1, -1, -1, -1, "", "", "5.1",
                                                   false, geral, "", false, lista);
  }
  size_t MovementStatements() const {
    size_t n = 0;
    for (const auto& s : trace_->Statements())
      if (s.find("ctb_lancamento") != std::string::npos ||
          s.find("CTB_LANCAMENTO") != std::string::npos)
        ++n;
    return n;
  }
  int numero_ = 0;
};

TEST_P(SaldoAnteriorContaTest, JanuaryWithStoredBalanceIsThatBalanceAlone) {
  Anterior(2023, 40);
  Lancamento(202401, "D", 1000);
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Total(202401), 40);
  EXPECT_EQ(MovementStatements(), 0u) << "no movement is read";
  EXPECT_EQ(trace_->Statements().at(0),
            " select saldo from  CTB_SALDO_ANTERIOR  where empresa = 1 and REVENDA = 1  and conta "
            "= '5.1' and ano = 2023 ");
}

TEST_P(SaldoAnteriorContaTest, JanuaryWithoutStoredBalanceAddsTheWholePreviousYear) {
  Anterior(2022, 7);
  Lancamento(202301, "D", 100);
  Lancamento(202312, "C", 30);
  Lancamento(202401, "D", 1000);  // the month asked for is not counted
  Bind();
  EXPECT_DOUBLE_EQ(Total(202401), 7 + 100 - 30);
}

TEST_P(SaldoAnteriorContaTest, MarchWithoutStoredBalancesCountsFromJanuaryOfThePreviousYear) {
  Lancamento(202301, "D", 100);
  Lancamento(202402, "C", 30);
  Lancamento(202403, "D", 1000);  // March itself is not counted
  Lancamento(202212, "D", 5000);  // before the window
  Bind();
  EXPECT_DOUBLE_EQ(Total(202403), 100 - 30);
}

TEST_P(SaldoAnteriorContaTest, DivisionModeTakesOnlyTheFirstStoredRowTotalModeAddsAll) {
  AnteriorDivisao(2023, 11, 2);
  AnteriorDivisao(2023, 22, 2);
  Anterior(2023, 5);
  Anterior(2023, 6, 2);
  Bind();
  const double divisao = dm_->CalculaSaldoAnteriorContaAnalitica(
      1, 1, 202401, -1, -1, -1, -1, 2, "", "", "5.1", true, false, "", false, "");
  EXPECT_TRUE(divisao == 11 || divisao == 22) << divisao;
  // Total mode with an exclusion list adds every dealership's stored rows.
  EXPECT_DOUBLE_EQ(Total(202401, false, "(9)"), 11 + 22);
  EXPECT_DOUBLE_EQ(Total(202401), 5);
}

TEST_P(SaldoAnteriorContaTest, ExclusionListSumsEveryDealershipButMovementStaysWithTheGivenOne) {
  AnteriorDivisao(2023, 10, 1, 1);
  AnteriorDivisao(2023, 20, 2, 2);
  AnteriorDivisao(2023, 40, 3, 1);  // excluded division dealership
  Lancamento(202401, "D", 100, 1, 1);
  Lancamento(202401, "D", 200, 2, 1);  // another dealership's entry
  Lancamento(202401, "C", 7, 1, 3);    // excluded division dealership
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Total(202402, false, "(3)"), 10 + 20 + 100);
  EXPECT_EQ(trace_->Statements().at(0),
            " select saldo from  CTB_SALDO_ANTERIOR_DIVISAO  where empresa = 1 and conta = '5.1' "
            "and ano = 2023 and ((REVENDA_DIVISAO is null) or (REVENDA_DIVISAO not in (3))) ");
}

TEST_P(SaldoAnteriorContaTest, GeneralMovementIgnoresTheExclusionList) {
  AnteriorDivisao(2023, 10, 1);
  Lancamento(202401, "D", 100, 1, 1);
  Lancamento(202401, "C", 7, 1, 3);
  Bind();
  EXPECT_DOUBLE_EQ(Total(202402, true, "(3)"), 10 + 100 - 7);
  EXPECT_DOUBLE_EQ(Total(202402, false, "(3)"), 10 + 100);
}

TEST_P(SaldoAnteriorContaTest, DivisionModeStatementSumsOnlyWithARestriction) {
  Bind();
  trace_->Clear();
  dm_->CalculaSaldoAnteriorContaAnalitica(1, 1, 202401, -1, -1, -1, -1, 2, "", "SPED", "5.1", true,
                                          false, "", false, "");
  EXPECT_EQ(trace_->Statements().at(0),
            "select (coalesce(e.saldo,0)) saldo  from ctb_saldo_anterior_divisao_cv e  where "
            "e.empresa = 1 and e.revenda = 1 and e.conta = '5.1' and e.ano = 2023 " +
                TddmContabilidadeBD::MontaRestricaoDivisao(-1, -1, -1, -1, 2, "", "SPED", ""));
  trace_->Clear();
  dm_->CalculaSaldoAnteriorContaAnalitica(1, 1, 202401, -1, -1, -1, -1, -1, "", "", "5.1", true,
                                          false, " and revenda_divisao = 4", false, "");
  EXPECT_EQ(trace_->Statements().at(0),
            "select sum(coalesce(e.saldo,0)) saldo  from ctb_saldo_anterior_divisao e  where "
            "e.empresa = 1 and e.revenda = 1 and e.conta = '5.1' and e.ano = 2023  and "
            "revenda_divisao = 4");
}

TEST_P(SaldoAnteriorContaTest, MonthWithoutSixDigitsRaises) {
  Bind();
  EXPECT_THROW(Total(2024), std::invalid_argument);
}

KVC_INSTANTIATE_BACKENDS(SaldoAnteriorContaTest);

}  // namespace
}  // namespace kvc::testing
