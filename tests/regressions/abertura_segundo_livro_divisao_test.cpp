// Regression: the opening balance (month 00) of the second book with a
// division filter sent "... from ctb_saldo_anterior_divisao_cv where
// empresa = 1 and revenda = 1 and e.ano = 2023 ...": an alias the statement
// never declares, which every server refuses (SQLite: no such column: e.ano).
// The plain, general and synthetic-account paths all threw there.
#include <gtest/gtest.h>

#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

class AberturaSegundoLivroDivisaoTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    if (!raw_) return;
    DadosDeTeste dados(*raw_);
    dados.Conta("1", {.nivel = "S"}).Conta("1.1", {.superiora = "1", .nivel = "A"});
    // The second book's plain row answers the existence query.
    DadosDeTeste cv = dados.SegundoLivro();
    cv.SaldoAnterior("1.1", 2023, 3)
        .SaldoAnteriorDivisao(1, "1.1", 2023, 11, {.revenda_divisao = 2})
        .SaldoAnteriorDivisao(2, "1.1", 2023, 22, {.revenda_divisao = 4});
    // The main book's division row must not be read.
    dados.SaldoAnteriorDivisao(3, "1.1", 2023, 999, {.revenda_divisao = 2});
  }
};

TEST_P(AberturaSegundoLivroDivisaoTest, OpeningBalanceOfTheSecondBookWithADivisionFilterRuns) {
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(dm_->BuscaSaldoContaAnalitica(1, 1, 202400, 0, 0, -1, -1, -1, -1, 2, "", "SPED",
                                                 "1.1", "", false, "", ""),
                   11);
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{
                "select SALDO   from  CTB_SALDO_ANTERIOR_CV  where empresa = 1 and REVENDA = 1    "
                "and ano     = 2023 ",
                "select coalesce(sum(saldo),0) saldo   from ctb_saldo_anterior_divisao_cv where "
                "empresa = 1 and revenda = 1 and ano = 2023 and conta = '1.1' and revenda_divisao "
                "= 2"}));
}

TEST_P(AberturaSegundoLivroDivisaoTest, GeneralAndSyntheticFormsGiveTheSameOpeningBalance) {
  Bind();
  EXPECT_DOUBLE_EQ(dm_->BuscaSaldoContaAnaliticaGeral(1, 1, 202400, 0, 0, -1, -1, -1, -1, 4, "",
                                                      "SPED", "1.1", "", false, "", ""),
                   22);
  double saldo = 0;
  dm_->BuscaSaldoConta(1, 1, 202400, 0, 0, -1, -1, -1, -1, 2, "", "SPED", "1", "S", "", saldo,
                       false, false, "", "");
  EXPECT_DOUBLE_EQ(saldo, 11);
  saldo = 0;
  dm_->BuscaSaldoConta(1, 1, 202400, 0, 0, -1, -1, -1, -1, 2, "", "SPED", "1", "S", "", saldo, true,
                       false, "", "");
  EXPECT_DOUBLE_EQ(saldo, 11);
}

KVC_INSTANTIATE_BACKENDS(AberturaSegundoLivroDivisaoTest);

}  // namespace
}  // namespace kvc::testing
