// The result calculation on each database: the period, the balance rows, the
// closing entries and counter-entries with their divisions and summarised
// balances, the totals, the preview and the all-or-nothing rule.
#include <gtest/gtest.h>

#include <clocale>
#include <memory>
#include <utility>

#include "accounting/services/zorutils.h"
#include "closing/closing_fixture.h"
#include "support/fake_libraries.h"

namespace kvc::testing {
namespace {

// The module's integration library, except that it refuses the updates of
// one kind for one account.
class IntegracaoQueRecusa final : public ForwardingIntegracao01 {
 public:
  IntegracaoQueRecusa(std::string tipo, std::string conta)
      : tipo_(std::move(tipo)), conta_(std::move(conta)) {}
  bool DLL_AtualizaSaldoSumarizado(db::Connection& conexao, const std::string& t1,
                                   const std::string& t2, const std::string& t3,
                                   const std::string& t4, const std::string& t5,
                                   const std::string& t6, int32_t i1, int32_t i2, int32_t i3,
                                   int32_t i4, int32_t i5, int32_t i6, int32_t i7, int32_t i8,
                                   double valor, int32_t handle) override {
    if (t1 == tipo_ && t5 == conta_) return false;
    return ForwardingIntegracao01::DLL_AtualizaSaldoSumarizado(
        conexao, t1, t2, t3, t4, t5, t6, i1, i2, i3, i4, i5, i6, i7, i8, valor, handle);
  }

 private:
  std::string tipo_, conta_;
};

class ApuraResultadoTest : public ClosingTest {
 protected:
  // The chart: balance-sheet accounts under 1 and 2 (2.9 receives the
  // result), result accounts under 3 and 4.
  void Plano() {
    Conta("1", "", "S");
    Conta("1.1", "1", "A");
    Conta("2", "", "S");
    Conta("2.9", "2", "A");
    Conta("3", "", "S");
    Conta("3.1", "3", "A");
    Conta("3.2", "3", "A");
    Conta("4", "", "S");
    Conta("4.1", "4", "A");
  }

  // ApuraResultado for 2023-12-31, history 77, into 2.9.
  bool Apura(bool confirmar = true, bool ano_atual = false, bool inclui_anterior = false,
             bool somente_movimento = true, const std::string& revendas = "",
             const std::string& dia = "31", int32_t ano_mes = 202312) {
    return dm_->ApuraResultado(ano_mes, "2023", dia, "77", "2.9", ano_atual, credito_, debito_,
                               diferenca_, mensagem_, confirmar, inclui_anterior, somente_movimento,
                               revendas);
  }

  std::vector<Linha> Lancamentos() {
    return Linhas(*raw_,
                  "select ANO_MES, LANCAMENTO, CONTA, NATUREZA, VAL_LANCAMENTO, DIA, "
                  "HISTORICO_PADRAO, ENCERRAMENTO_EXERCICIO, ORIGEM, LCO_OK, USUARIO from "
                  "CTB_LANCAMENTO where ORIGEM = 'O' order by LANCAMENTO");
  }
  std::vector<Linha> Divisoes() {
    return Linhas(*raw_,
                  "select LANCAMENTO, REVENDA_DIVISAO, CENTRO_CUSTO, TIPO_ITEM, VAL_DIVISAO from "
                  "CTB_LANCAMENTO_DIVIDIDO where LANCAMENTO < 9000 order by LANCAMENTO, "
                  "CENTRO_CUSTO");
  }
  std::string DataApuracao() {
    const db::Value v = Scalar(*raw_, "select ANOMES_APURACAO_RESULTADO from FAT_NUMERACAO_LIVROS");
    return v.IsNull() ? "NULL" : v.AsDateTime().ToIsoDate();
  }
  // The result account's own balance at the end of 2023, through the module.
  double SaldoEm(const std::string& conta, int32_t ano_mes = 202312) {
    double saldo = 0;
    return dm_->BuscaSaldoConta(empresa_, revenda_, ano_mes, 0, 0, -1, -1, -1, -1, -1, "", "",
                                conta, "A", "", saldo, false, false, "", "");
  }

  std::string credito_, debito_, diferenca_, mensagem_;
};

TEST_P(ApuraResultadoTest, LastCalculationDateIsTheDayAfterTheStoredDate) {
  Numeracao("2023-06-30");
  Bind();
  trace_->Clear();
  EXPECT_EQ(dm_->RetornaDataUltApuracao(), "20230701");
  raw_->Execute("update FAT_NUMERACAO_LIVROS set ANOMES_APURACAO_RESULTADO = '2023-12-31'", {});
  EXPECT_EQ(dm_->RetornaDataUltApuracao(), "20240101");
  EXPECT_EQ(trace_->Statements().at(0),
            " select ANOMES_APURACAO_RESULTADO     from FAT_NUMERACAO_LIVROS   where EMPRESA = 1  "
            "  and REVENDA = 1");
}

TEST_P(ApuraResultadoTest, EmptyLastCalculationDateStartsOn18991231) {
  Numeracao();
  Bind();
  EXPECT_EQ(dm_->RetornaDataUltApuracao(), "18991231");
}

TEST_P(ApuraResultadoTest, NoNumberingRowGivesEmptyTextAndThePeriodStartsInJanuary) {
  Plano();
  Lancamento(202212, 20, "3.1", "C", 40, {{40}});  // before January: not read
  Lancamento(202301, 1, "3.1", "C", 100, {{100}});
  Bind();
  EXPECT_EQ(dm_->RetornaDataUltApuracao(), "");
  ASSERT_TRUE(Apura()) << mensagem_;
  EXPECT_EQ(credito_, "100.00 C");
  EXPECT_EQ(debito_, "0.00 D");
}

TEST_P(ApuraResultadoTest, ExactStatementsOfAClosingRun) {
  empresa_ = host_.empresa = 2;
  revenda_ = host_.revenda = 5;
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202306, 10, "3.1", "C", 100, {{100, 5}});
  Bind();
  trace_->Clear();
  ASSERT_TRUE(Apura()) << mensagem_;
  const auto s = trace_->Statements();
  auto tem = [&s](const std::string& sql) { return std::find(s.begin(), s.end(), sql) != s.end(); };
  EXPECT_EQ(s.at(0),
            " select ANOMES_APURACAO_RESULTADO     from FAT_NUMERACAO_LIVROS   where EMPRESA = 2  "
            "  and REVENDA = 5");
  EXPECT_EQ(s.at(1),
            " select conta, nivel from  ctb_conta where empresa = 2 and   revenda = 5 and   CONTA "
            ">= '3' and   nivel = 'A'");
  EXPECT_TRUE(
      tem(" select l.natureza, sum(coalesce(d.val_divisao, 0)) saldo, 'M' tipo from "
          "ctb_lancamento_dividido d, ctb_lancamento l where l.lancamento = d.lancamento "
          "and l.empresa = d.empresa and l.revenda = d.revenda and l.ano_mes = d.ano_mes "
          "and l.empresa = 2 and l.revenda = 5 and l.conta = '3.1' and "
          "l.ano_mes*100+l.dia >= 20230101 and l.ano_mes*100+l.dia <= 20231231   group by "
          "l.natureza"));
  EXPECT_TRUE(tem(
      " select l.conta,        d.centro_custo,          d.fonte,        d.categoria,         "
      "d.secao_oficina,         d.tipo_item,        d.modalidade_operacao,        "
      "d.revenda_divisao,        sum(val_divisao) saldo from ctb_lancamento_dividido d, "
      "ctb_lancamento l where l.lancamento = d.lancamento and l.empresa = d.empresa and "
      "l.revenda = d.revenda and l.ano_mes = d.ano_mes and l.conta = '3.1' and l.empresa = 2 and "
      "l.revenda = 5   and l.natureza = 'C' and l.ano_mes*100+l.dia >= 20230101 and "
      "l.ano_mes*100+l.dia <= 20231231 group by l.conta, d.centro_custo, d.fonte, d.categoria, "
      "d.secao_oficina, d.tipo_item, d.modalidade_operacao, d.revenda_divisao"));
  EXPECT_TRUE(
      tem(" insert into CTB_LANCAMENTO                 (EMPRESA, REVENDA, ANO_MES, "
          "LANCAMENTO, LCO_ORIGEM,            USUARIO, CONTA, HISTORICO_PADRAO, DIA, "
          "NATUREZA,              VAL_LANCAMENTO, ORIGEM, HIS_COMPLEMENTAR, DOCUMENTO,  "
          "        LCO_OK, OPERACAO, ENCERRAMENTO_EXERCICIO)                             "
          "         values ( 2, 5, 202312, 1, NULL, 1, '3.1', 77, 31, 'D', 100.00, 'O', "
          "NULL, NULL, 'N', NULL, 'S' )"));
  EXPECT_TRUE(
      tem("insert into ctb_lancamento_dividido       (SEQUENCIA, EMPRESA, REVENDA, "
          "ANO_MES, LANCAMENTO,         REVENDA_DIVISAO, CENTRO_CUSTO, FONTE, CATEGORIA, "
          "SECAO_OFICINA,            TIPO_ITEM, MODALIDADE_OPERACAO, VAL_DIVISAO)       "
          "values(1, 2, 5, 202312, 1, null, 5, null, null, null, null, null, 100.00)"));
  EXPECT_TRUE(
      tem(" insert into CTB_LANCAMENTO                 (EMPRESA, REVENDA, ANO_MES, "
          "LANCAMENTO, LCO_ORIGEM,            USUARIO, CONTA, HISTORICO_PADRAO, DIA, "
          "NATUREZA,              VAL_LANCAMENTO, ORIGEM, HIS_COMPLEMENTAR, DOCUMENTO,  "
          "        LCO_OK, OPERACAO)                           values ( 2, 5, 202312, 2, "
          "NULL, 1, '2.9', 77, 31, 'C', 100.00, 'O', NULL, NULL, 'N', NULL)"));
  EXPECT_TRUE(
      tem("insert into ctb_lancamento_dividido       (SEQUENCIA, EMPRESA, REVENDA, "
          "ANO_MES, LANCAMENTO,         REVENDA_DIVISAO, CENTRO_CUSTO, FONTE, CATEGORIA, "
          "SECAO_OFICINA,            TIPO_ITEM, MODALIDADE_OPERACAO, VAL_DIVISAO)       "
          "values(2, 2, 5, 202312, 2, null, 5, null, null, null, null, null, 100.00)"));
  EXPECT_TRUE(
      tem("select l.natureza, sum(coalesce(d.val_divisao, 0)) total from "
          "ctb_lancamento_dividido d, ctb_lancamento l where l.lancamento = d.lancamento "
          "and l.empresa = d.empresa and l.revenda = d.revenda and l.ano_mes = d.ano_mes "
          "and l.empresa = 2 and l.revenda = 5 and l.conta = '2.9' and l.ano_mes = 202312 "
          "and l.dia = 31 and l.historico_padrao = 77   group by l.natureza"));
  DateTime data;
  data.year = 2023;
  data.month = 12;
  data.day = 31;
  EXPECT_EQ(s.back(), "update FAT_NUMERACAO_LIVROS  set ANOMES_APURACAO_RESULTADO = " +
                          DataPSql(data, host_.tipo_banco) +
                          " where EMPRESA = 2   and REVENDA = 5");
  EXPECT_EQ(trace_->Trace().back().kind, db::TracedStatement::Kind::kCommit);

  EXPECT_EQ(Lancamentos(),
            (std::vector<Linha>{
                {"202312", "1", "3.1", "D", "100.00", "31", "77", "S", "O", "N", "1"},
                {"202312", "2", "2.9", "C", "100.00", "31", "77", "NULL", "O", "N", "1"}}));
  EXPECT_EQ(credito_, "100.00 C");
  EXPECT_EQ(debito_, "0.00 D");
  EXPECT_EQ(diferenca_, "100.00 C");
  EXPECT_EQ(mensagem_, "");
  EXPECT_EQ(DataApuracao(), "2023-12-31");
  EXPECT_DOUBLE_EQ(SaldoEm("3.1"), 0.0);
  EXPECT_DOUBLE_EQ(SaldoEm("2.9"), -100.0);
  EXPECT_EQ(dm_->ContadorDivisao(), 2);
}

// The result calculation reads each result account's division rows joined
// to their entries, by day and standard history: with the entry looked up in
// the table and then the division row, four searches an entry, it took twice
// as long at 1,000,000 entries as with both sides read from their indexes.
TEST_P(ApuraResultadoTest, OnSqliteTheDivisionReadsComeFromTheIndexesAlone) {
  if (GetParam() != "sqlite") GTEST_SKIP() << "a plan of the embedded database";
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202306, 10, "3.1", "C", 100, {{100, 5}});
  Lancamento(202307, 11, "3.2", "D", 40, {{40, 6}});
  Bind();
  trace_->Clear();
  ASSERT_TRUE(Apura()) << mensagem_;
  int joins = 0;
  for (const std::string& sql : trace_->Statements()) {
    if (sql.find("from ctb_lancamento_dividido d, ctb_lancamento l") == std::string::npos) continue;
    ++joins;
    std::string plan;
    for (const auto& row : raw_->Query("explain query plan " + sql, {}).rows)
      plan += row.back().AsString() + "\n";
    EXPECT_NE(plan.find("COVERING INDEX IX_CTB_LANCAMENTO_1"), std::string::npos) << sql << plan;
    EXPECT_NE(plan.find("COVERING INDEX IX_CTB_LANCAMENTO_DIVIDIDO_1"), std::string::npos)
        << sql << plan;
  }
  EXPECT_GE(joins, 3);
}

TEST_P(ApuraResultadoTest, SummarisedBalancesPassTheCompanyInTheDealershipsPlaceForDivisions) {
  empresa_ = host_.empresa = 2;
  revenda_ = host_.revenda = 5;
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202306, 10, "3.1", "C", 100, {{60, 5, 7, "P"}, {40, 6}});
  Bind();
  ASSERT_TRUE(Apura()) << mensagem_;
  EXPECT_EQ(Linhas(*raw_,
                   "select TIPO_SALDO, TEXTO3, CONTA, NATUREZA, EMPRESA, REVENDA, ANO_MES, "
                   "DIVISAO1, DIVISAO5, SALDO from INT_SALDO_SUMARIZADO order by CONTA, "
                   "TIPO_SALDO, DIVISAO1"),
            (std::vector<Linha>{
                {"D", "P", "2.9", "C", "2", "2", "202312", "5", "7", "60.00"},
                {"D", "", "2.9", "C", "2", "2", "202312", "6", "-1", "40.00"},
                {"L", "", "2.9", "C", "2", "5", "202312", "-1", "-1", "100.00"},
                {"D", "P", "3.1", "D", "2", "2", "202312", "5", "7", "60.00"},
                {"D", "", "3.1", "D", "2", "2", "202312", "6", "-1", "40.00"},
                {"L", "", "3.1", "D", "2", "5", "202312", "-1", "-1", "100.00"},
            }));
  EXPECT_EQ(Linhas(*raw_, "select TEXTO3 from INT_SALDO_SUMARIZADO where DIVISAO5 = 7"),
            (std::vector<Linha>{{"P"}, {"P"}}));
}

// No result account with a balance: nothing is written, the totals are
// zero (the difference on side C) and the date still moves.
TEST_P(ApuraResultadoTest, NoResultBalanceWritesNoEntryGivesZeroTotalsAndMovesTheDate) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202305, 3, "1.1", "D", 500, {{500}});  // balance-sheet: never closed
  Bind();
  ASSERT_TRUE(Apura()) << mensagem_;
  EXPECT_TRUE(Lancamentos().empty());
  EXPECT_EQ(credito_, "0.00 C");
  EXPECT_EQ(debito_, "0.00 D");
  EXPECT_EQ(diferenca_, "0.00 C");
  EXPECT_EQ(DataApuracao(), "2023-12-31");
}

TEST_P(ApuraResultadoTest, ZeroBalanceRowIsSkippedWithItsDivisions) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202305, 3, "3.2", "D", 0, {{0, 4}});
  Lancamento(202305, 3, "3.1", "C", 10, {{10, 4}});
  Bind();
  trace_->Clear();
  ASSERT_TRUE(Apura()) << mensagem_;
  size_t quebras = 0;
  for (const auto& sql : trace_->Statements())
    if (sql.find("sum(val_divisao) saldo") != std::string::npos) {
      ++quebras;
      EXPECT_NE(sql.find("l.conta = '3.1'"), std::string::npos) << sql;
    }
  EXPECT_EQ(quebras, 1u);
  const auto lancamentos = Lancamentos();
  ASSERT_EQ(lancamentos.size(), 2u);
  EXPECT_EQ(lancamentos[0][2], "3.1");
  EXPECT_EQ(lancamentos[1][2], "2.9");
}

TEST_P(ApuraResultadoTest, DebitAndCreditMovementGiveTwoClosingEntriesEachClosingItsSide) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202303, 3, "3.1", "D", 100, {{70, 1}, {30, 2}});
  Lancamento(202304, 3, "3.1", "C", 30, {{30, 1}});
  Bind();
  ASSERT_TRUE(Apura()) << mensagem_;
  EXPECT_EQ(Lancamentos(),
            (std::vector<Linha>{
                {"202312", "1", "3.1", "C", "100.00", "31", "77", "S", "O", "N", "1"},
                {"202312", "2", "2.9", "D", "100.00", "31", "77", "NULL", "O", "N", "1"},
                {"202312", "3", "3.1", "D", "30.00", "31", "77", "S", "O", "N", "1"},
                {"202312", "4", "2.9", "C", "30.00", "31", "77", "NULL", "O", "N", "1"}}));
  // Each closing entry is split over the divisions of its own side only.
  EXPECT_EQ(Divisoes(), (std::vector<Linha>{{"1", "NULL", "1", "NULL", "70.00"},
                                            {"1", "NULL", "2", "NULL", "30.00"},
                                            {"2", "NULL", "1", "NULL", "70.00"},
                                            {"2", "NULL", "2", "NULL", "30.00"},
                                            {"3", "NULL", "1", "NULL", "30.00"},
                                            {"4", "NULL", "1", "NULL", "30.00"}}));
  EXPECT_EQ(credito_, "30.00 C");
  EXPECT_EQ(debito_, "100.00 D");
  EXPECT_EQ(diferenca_, "70.00 D");
  EXPECT_DOUBLE_EQ(SaldoEm("3.1"), 0.0);
  EXPECT_DOUBLE_EQ(SaldoEm("2.9"), 70.0);
}

TEST_P(ApuraResultadoTest, PreviewReturnsTheSameTotalsAndLeavesNothingNotEvenTheDate) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202303, 3, "3.1", "D", 1234567.5, {{1234567.5, 1}});
  Lancamento(202304, 3, "4.1", "C", 30, {{30, 1}});
  Bind();
  const auto antes = Banco();
  ASSERT_TRUE(Apura(false)) << mensagem_;
  EXPECT_EQ(Banco(), antes);
  EXPECT_EQ(trace_->Trace().back().kind, db::TracedStatement::Kind::kRollback);
  const std::string c = credito_, d = debito_, x = diferenca_;
  EXPECT_EQ(d, "1,234,567.50 D");
  EXPECT_EQ(c, "30.00 C");
  EXPECT_EQ(x, "1,234,537.50 D");
  ASSERT_TRUE(Apura(true)) << mensagem_;
  EXPECT_EQ(credito_, c);
  EXPECT_EQ(debito_, d);
  EXPECT_EQ(diferenca_, x);
  EXPECT_EQ(DataApuracao(), "2023-12-31");
}

TEST_P(ApuraResultadoTest, ExcludedDealershipsAreLeftOutOfBalancesDivisionsAndTotals) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202303, 3, "3.1", "C", 100, {{60, 1, 3}, {40, 1, 7}});
  Lancamento(202303, 4, "3.2", "C", 50, {{50, 2}}, 10, 7);  // operation of dealership 7
  SaldoAnteriorDivisao("4.1", 2022, 25, 1, 7);
  SaldoAnteriorDivisao("4.1", 2022, 15, 1, 3);
  Bind();
  trace_->Clear();
  ASSERT_TRUE(Apura(true, false, true, false, "(7)")) << mensagem_;
  EXPECT_EQ(Lancamentos(),
            (std::vector<Linha>{
                {"202312", "1", "3.1", "D", "60.00", "31", "77", "S", "O", "N", "1"},
                {"202312", "2", "2.9", "C", "60.00", "31", "77", "NULL", "O", "N", "1"},
                {"202312", "3", "4.1", "C", "15.00", "31", "77", "S", "O", "N", "1"},
                {"202312", "4", "2.9", "D", "15.00", "31", "77", "NULL", "O", "N", "1"}}));
  EXPECT_EQ(Linhas(*raw_,
                   "select distinct REVENDA_DIVISAO from CTB_LANCAMENTO_DIVIDIDO where "
                   "LANCAMENTO < 9000"),
            (std::vector<Linha>{{"3"}}));
  EXPECT_EQ(credito_, "60.00 C");
  EXPECT_EQ(debito_, "15.00 D");
  // The totals query carries the exclusion too.
  bool totais_com_exclusao = false;
  for (const auto& sql : trace_->Statements())
    if (sql.rfind("select l.natureza, sum(coalesce(d.val_divisao, 0)) total", 0) == 0)
      totais_com_exclusao = sql.find("(l.REVENDA_OPERACAO not in (7))") != std::string::npos &&
                            sql.find("(d.REVENDA_DIVISAO not in (7))") != std::string::npos;
  EXPECT_TRUE(totais_com_exclusao);
}

TEST_P(ApuraResultadoTest, TotalsCountDivisionRowsOfTheResultAccountOnTheDateWithTheHistory) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202303, 3, "3.1", "C", 100, {{100, 1}});
  // By hand into the result account on the closing date with the history:
  // with division rows it counts, without them it does not; another history
  // does not count either.
  Lancamento(202312, 31, "2.9", "D", 11, {{11, 1}}, 77);
  Lancamento(202312, 31, "2.9", "D", 500, {}, 77);
  Lancamento(202312, 31, "2.9", "C", 900, {{900, 1}}, 78);
  Bind();
  ASSERT_TRUE(Apura()) << mensagem_;
  EXPECT_EQ(credito_, "100.00 C");
  EXPECT_EQ(debito_, "11.00 D");
  EXPECT_EQ(diferenca_, "89.00 C");
}

TEST_P(ApuraResultadoTest, CarriedForwardPartFollowsTheThreeFlags) {
  Plano();
  Numeracao("2022-12-31");
  SaldoAnteriorDivisao("4.1", 2022, -80, 2);  // a credit balance of the year before
  SaldoAnteriorDivisao("4.1", 2023, 33, 2);   // a debit balance of the year itself
  Bind();
  auto anteriores = [this](bool ano_atual, bool inclui, bool somente) {
    EXPECT_TRUE(Apura(false, ano_atual, inclui, somente)) << mensagem_;
    return credito_ + " / " + debito_;
  };
  EXPECT_EQ(anteriores(false, false, true), "0.00 C / 0.00 D");  // movement only
  EXPECT_EQ(anteriores(false, true, true), "80.00 C / 0.00 D");  // the year before
  EXPECT_EQ(anteriores(false, false, false), "80.00 C / 0.00 D");
  EXPECT_EQ(anteriores(true, false, true), "0.00 C / 33.00 D");  // the year itself
  trace_->Clear();
  ASSERT_TRUE(Apura(true, false, false, false));
  const auto enviados = trace_->Statements();
  EXPECT_NE(std::find(enviados.begin(), enviados.end(),
                      " select e.conta,        e.centro_custo,          e.fonte,        "
                      "e.categoria,         e.secao_oficina,         e.tipo_item,        "
                      "e.modalidade_operacao,        e.revenda_divisao,        sum(e.saldo) saldo "
                      "from   ctb_saldo_anterior_divisao e  where  e.conta = '4.1' and    "
                      "e.empresa = 1 and    e.revenda = 1  and    e.ano = 2022 and    e.saldo < 0 "
                      " group by e.conta, e.centro_custo, e.fonte, e.categoria, e.secao_oficina, "
                      "e.tipo_item,  e.modalidade_operacao, e.revenda_divisao"),
            enviados.end());
  EXPECT_EQ(Lancamentos(),
            (std::vector<Linha>{
                {"202312", "1", "4.1", "D", "80.00", "31", "77", "S", "O", "N", "1"},
                {"202312", "2", "2.9", "C", "80.00", "31", "77", "NULL", "O", "N", "1"}}));
}

TEST_P(ApuraResultadoTest, SecondRunReadsOnlyWhatWasPostedAfterTheFirst) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202312, 31, "3.1", "C", 100, {{100, 1}});
  Bind();
  ASSERT_TRUE(Apura()) << mensagem_;
  Lancamento(202312, 31, "3.1", "C", 5, {{5, 1}});  // the closing day itself: not read again
  ASSERT_TRUE(Apura()) << mensagem_;
  EXPECT_EQ(Lancamentos().size(), 2u);
}

TEST_P(ApuraResultadoTest, TotalsFollowTheSeparatorsSetByTheHostOrTheLocale) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202303, 3, "3.1", "D", 1234567.5, {{1234567.5, 1}});
  Bind();
  dm_->DefineSeparadoresNumericos({",", "."});
  ASSERT_TRUE(Apura(false)) << mensagem_;
  EXPECT_EQ(debito_, "1.234.567,50 D");
  dm_->UsaSeparadoresDoLocale();
  if (!std::setlocale(LC_ALL, "pt_BR.UTF-8")) GTEST_SKIP() << "pt_BR.UTF-8 not installed";
  trace_->Clear();
  const bool ok = Apura(true);
  std::setlocale(LC_ALL, "C");
  ASSERT_TRUE(ok) << mensagem_;
  EXPECT_EQ(debito_, "1.234.567,50 D");
  // Statement amounts keep their point under the comma locale.
  const auto s = trace_->Statements();
  EXPECT_TRUE(std::any_of(s.begin(), s.end(), [](const std::string& sql) {
    return sql.find("'C', 1234567.50, 'O'") != std::string::npos;
  }));
}

TEST_P(ApuraResultadoTest, FailureInsideTheTransactionIsRolledBackAndAnsweredFalse) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202303, 3, "3.1", "D", 100, {{100, 1}});
  Bind();
  const auto antes = Banco();
  trace_->FailMatching("insert into ctb_lancamento_dividido", "disk full");
  EXPECT_FALSE(Apura());
  trace_->ClearFaults();
  EXPECT_NE(mensagem_.find("disk full"), std::string::npos) << mensagem_;
  EXPECT_EQ(Banco(), antes);
  EXPECT_FALSE(dm_->TransacaoAtiva());
}

TEST_P(ApuraResultadoTest, ClosingDateThatIsNoCalendarDayFailsInsideTheBlock) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202311, 3, "3.1", "D", 100, {{100, 1}});
  Bind();
  const auto antes = Banco();
  EXPECT_FALSE(Apura(true, false, false, true, "", "31", 202311));
  EXPECT_NE(mensagem_.find("31/11/2023"), std::string::npos) << mensagem_;
  EXPECT_EQ(Banco(), antes);
}

// A refused summarised-balance update, of the entry or of a division row,
// of a closing entry or of a counter-entry, fails the run with an empty
// message.
TEST_P(ApuraResultadoTest, RefusedSummarisedBalanceFailsWithAnEmptyMessage) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202303, 3, "3.1", "D", 100, {{100, 1}});
  for (const auto& [tipo, conta] : std::vector<std::pair<std::string, std::string>>{
           {"L", "3.1"}, {"D", "3.1"}, {"L", "2.9"}, {"D", "2.9"}}) {
    dm_ = std::make_unique<TddmContabilidadeBD>();
    dm_->SetServiceLibraries(NewGeral01(), std::make_unique<IntegracaoQueRecusa>(tipo, conta));
    dm_->AtualizaTAplicacao(host_, trace_.get(), 1);
    dm_->SetaSQLConnection();
    const auto antes = Banco();
    mensagem_ = "left from before";
    EXPECT_FALSE(Apura()) << tipo << " " << conta;
    EXPECT_EQ(mensagem_, "") << tipo << " " << conta;
    EXPECT_EQ(Banco(), antes) << tipo << " " << conta;
    dm_->LimpaSQLConnection();
  }
}

// Every statement inside the transaction failing in turn leaves the
// database exactly as before and answers false with the message.
TEST_P(ApuraResultadoTest, EachStatementOfTheTransactionFailingInTurnLeavesNoTrace) {
  Plano();
  Numeracao("2022-12-31");
  Lancamento(202303, 3, "3.1", "D", 100, {{60, 1}, {40, 2}});
  Lancamento(202304, 3, "4.1", "C", 30, {{30, 1}});
  Bind();
  const auto antes = Banco();
  // A preview counts the statements inside the transaction.
  trace_->Clear();
  ASSERT_TRUE(Apura(false)) << mensagem_;
  size_t inicio = 0, dentro = 0;
  const auto& t = trace_->Trace();
  for (size_t i = 0; i < t.size(); ++i)
    if (t[i].kind == db::TracedStatement::Kind::kBegin) inicio = i;
  size_t antes_do_inicio = 0;
  for (size_t i = 0; i < t.size(); ++i) {
    const bool comando = t[i].kind == db::TracedStatement::Kind::kExecute ||
                         t[i].kind == db::TracedStatement::Kind::kQuery;
    if (!comando) continue;
    if (i < inicio)
      ++antes_do_inicio;
    else
      ++dentro;
  }
  ASSERT_GT(dentro, 10u);
  for (size_t n = 1; n <= dentro; ++n) {
    trace_->FailNth(antes_do_inicio + n, "failure " + std::to_string(n));
    mensagem_.clear();
    EXPECT_FALSE(Apura(true)) << "statement " << n;
    EXPECT_EQ(mensagem_, "failure " + std::to_string(n)) << "statement " << n;
    trace_->ClearFaults();
    EXPECT_EQ(Banco(), antes) << "statement " << n;
    EXPECT_FALSE(dm_->TransacaoAtiva());
  }
  ASSERT_TRUE(Apura(true)) << mensagem_;
  EXPECT_NE(Banco(), antes);
}

TEST_P(ApuraResultadoTest, FailedReadBeforeTheTransactionRaises) {
  Plano();
  Numeracao("2022-12-31");
  Bind();
  trace_->FailMatching("select conta, nivel from  ctb_conta", "no table");
  EXPECT_THROW((void)Apura(), std::exception);
  trace_->ClearFaults();
  EXPECT_FALSE(dm_->TransacaoAtiva());
}

KVC_INSTANTIATE_BACKENDS(ApuraResultadoTest);

}  // namespace
}  // namespace kvc::testing
