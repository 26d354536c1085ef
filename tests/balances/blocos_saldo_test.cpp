// The dealership-exclusion predicate, the exclusion join and the choice of
// the carried-forward table, as exact texts.
#include <gtest/gtest.h>

#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc::testing {
namespace {

class BlocosSaldoTest : public ::testing::Test {
 protected:
  TddmContabilidadeBD dm_;
};

TEST_F(BlocosSaldoTest, EmptyExclusionListYieldsSingleBlankWhateverTheArguments) {
  for (bool operacao : {false, true})
    for (bool origem : {false, true})
      for (const char* alias : {"", "L", "d", "cld"})
        EXPECT_EQ(dm_.VerifRevendasDesconsiderar("", operacao, alias, "and", origem), " ");
  EXPECT_EQ(dm_.IncluiRestricaoRevendasDesconsiderar("", "l"), " ");
  EXPECT_EQ(dm_.IncluiRestricaoRevendasDesconsiderar("", ""), " ");
}

TEST_F(BlocosSaldoTest, OperationClauseIgnoresTheOriginFlag) {
  EXPECT_EQ(dm_.VerifRevendasDesconsiderar("(3,7)", true, "L", "and", true),
            " and ((L.REVENDA_OPERACAO is null) or (L.REVENDA_OPERACAO not in (3,7))) ");
  EXPECT_EQ(dm_.VerifRevendasDesconsiderar("(3,7)", true, "L", "and", false),
            " and ((L.REVENDA_OPERACAO is null) or (L.REVENDA_OPERACAO not in (3,7))) ");
}

TEST_F(BlocosSaldoTest, DivisionClauseWithAliasReadsAsDocumented) {
  EXPECT_EQ(dm_.VerifRevendasDesconsiderar("(3,7)", false, "D", "and", false),
            " and ((D.REVENDA_DIVISAO is null) or (D.REVENDA_DIVISAO not in (3,7))) ");
}

TEST_F(BlocosSaldoTest, OriginClauseFollowsTheDivisionClause) {
  EXPECT_EQ(dm_.VerifRevendasDesconsiderar("(3,7)", false, "d", "and", true),
            " and ((d.REVENDA_DIVISAO is null) or (d.REVENDA_DIVISAO not in (3,7))) "
            " and ((d.REVENDA_ORIGEM is null) or (d.REVENDA_ORIGEM not in (3,7))) ");
}

TEST_F(BlocosSaldoTest, EmptyAliasYieldsUnqualifiedColumns) {
  EXPECT_EQ(dm_.VerifRevendasDesconsiderar("(3,7)", false, "", "and", false),
            " and ((REVENDA_DIVISAO is null) or (REVENDA_DIVISAO not in (3,7))) ");
}

TEST_F(BlocosSaldoTest, ListIsPassedThroughUntouched) {
  EXPECT_EQ(dm_.VerifRevendasDesconsiderar("(  12 ,x)", false, "e", "or", false),
            " or ((e.REVENDA_DIVISAO is null) or (e.REVENDA_DIVISAO not in (  12 ,x))) ");
}

TEST_F(BlocosSaldoTest, ExclusionJoinCarriesBothClausesInsideItsCondition) {
  EXPECT_EQ(dm_.IncluiRestricaoRevendasDesconsiderar("(3,7)", "l"),
            " inner join CTB_LANCAMENTO_DIVIDIDO cld     on (cld.EMPRESA = l.EMPRESA    and "
            "cld.REVENDA = l.REVENDA    and cld.ANO_MES = l.ANO_MES    and cld.LANCAMENTO = "
            "l.LANCAMENTO  and ((cld.REVENDA_DIVISAO is null) or (cld.REVENDA_DIVISAO not in "
            "(3,7)))  and ((cld.REVENDA_ORIGEM is null) or (cld.REVENDA_ORIGEM not in (3,7))) ) ");
}

TEST_F(BlocosSaldoTest, PlainTableForDealershipWithoutList) {
  std::string tabela, restricao;
  dm_.DefineTabelaSaldoAnterior(12, "", "", tabela, restricao);
  EXPECT_EQ(tabela, " CTB_SALDO_ANTERIOR ");
  EXPECT_EQ(restricao, " and REVENDA = 12 ");
}

TEST_F(BlocosSaldoTest, DivisionSecondBookTableWithListAndNoCondition) {
  std::string tabela = "x", restricao = "y";
  dm_.DefineTabelaSaldoAnterior(12, "(3)", "SPED", tabela, restricao);
  EXPECT_EQ(tabela, " CTB_SALDO_ANTERIOR_DIVISAO_CV ");
  EXPECT_EQ(restricao, "");
}

TEST_F(BlocosSaldoTest, AnyModalityTextSelectsTheSecondBook) {
  std::string tabela, restricao;
  dm_.DefineTabelaSaldoAnterior(4, "", "V", tabela, restricao);
  EXPECT_EQ(tabela, " CTB_SALDO_ANTERIOR_CV ");
  EXPECT_EQ(restricao, " and REVENDA = 4 ");
  dm_.DefineTabelaSaldoAnterior(4, "(1)", "", tabela, restricao);
  EXPECT_EQ(tabela, " CTB_SALDO_ANTERIOR_DIVISAO ");
  EXPECT_EQ(restricao, "");
}

}  // namespace
}  // namespace kvc::testing
