// The database-access layer on each database: values and types read back,
// parameters, transactions, the statement trace and fault injection.
#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>

#include <fmt/format.h>

#include "accounting/db/error.h"
#include "accounting/db/placeholders.h"
#include "accounting/db/schema.h"
#include "accounting/db/sql_format.h"
#include "accounting/services/zorutils.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

using ConnectionTest = ModuleTest;

TEST_P(ConnectionTest, ColumnsAreReadWithTheirTypesAndAnyCase) {
  raw_->Execute(
      "insert into CTB_LANCAMENTO (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, CONTA, "
      "NATUREZA, VAL_LANCAMENTO, DIA) values (1, 2, 202405, 9, '1101', 'D', 100.50, 3)",
      {});
  auto rs = raw_->Query(
      "select conta, val_lancamento, dia, natureza, lco_origem from "
      "CTB_LANCAMENTO",
      {});
  ASSERT_EQ(rs.rows.size(), 1u);
  EXPECT_EQ(rs.rows[0][*rs.FindColumn("Conta")].AsString(), "1101");
  EXPECT_DOUBLE_EQ(rs.rows[0][*rs.FindColumn("VAL_LANCAMENTO")].AsFloat(), 100.5);
  EXPECT_EQ(rs.rows[0][*rs.FindColumn("dia")].AsInteger(), 3);
  EXPECT_EQ(rs.rows[0][*rs.FindColumn("NATUREZA")].AsString(), "D") << "no padding";
  EXPECT_TRUE(rs.rows[0][*rs.FindColumn("LCO_ORIGEM")].IsNull());
}

TEST_P(ConnectionTest, ExpressionColumnsComeBackAsNumbers) {
  raw_->Execute("insert into CTB_SALDO_ANTERIOR values (1, 1, '1', 2023, 10.25)", {});
  raw_->Execute("insert into CTB_SALDO_ANTERIOR values (1, 1, '2', 2023, 20)", {});
  auto rs = raw_->Query(
      "select sum(SALDO) TOTAL, count(*) N, 'D' NATUREZA from "
      "CTB_SALDO_ANTERIOR",
      {});
  ASSERT_EQ(rs.rows.size(), 1u);
  EXPECT_DOUBLE_EQ(rs.rows[0][0].AsFloat(), 30.25);
  EXPECT_EQ(rs.rows[0][1].AsInteger(), 2);
  EXPECT_NE(rs.types[0], db::FieldType::kString);
  EXPECT_EQ(rs.types[1], db::FieldType::kInteger);
  EXPECT_EQ(rs.rows[0][2].AsString(), "D");
}

TEST_P(ConnectionTest, RepeatedParameterNamesBindOnEveryServer) {
  raw_->Execute("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, NIVEL) values (1, 1, '1', 'S')",
                {});
  auto rs = raw_->Query(
      "select CONTA from CTB_CONTA where EMPRESA = :E and REVENDA = :E and "
      "CONTA = :C",
      {{"e", 1}, {"C", "1"}});
  ASSERT_EQ(rs.rows.size(), 1u);
}

TEST_P(ConnectionTest, DoubleParameterKeepsItsValueUnderACommaLocale) {
  if (!std::setlocale(LC_ALL, "pt_BR.UTF-8")) GTEST_SKIP() << "pt_BR.UTF-8 not installed";
  try {
    raw_->Execute(
        "insert into CTB_SALDO_ANTERIOR (EMPRESA, REVENDA, CONTA, ANO, SALDO) values "
        "(1, 1, '1', 2023, :S)",
        {{"S", 1234.5}});
    auto rs =
        raw_->Query("select SALDO from CTB_SALDO_ANTERIOR where SALDO > :M", {{"M", 1234.25}});
    std::setlocale(LC_ALL, "C");
    ASSERT_EQ(rs.rows.size(), 1u);
    EXPECT_DOUBLE_EQ(rs.rows[0][0].AsFloat(), 1234.5);
  } catch (...) {
    std::setlocale(LC_ALL, "C");
    throw;
  }
}

TEST_P(ConnectionTest, CommentsWithColonsDoNotBecomeParameters) {
  auto rs = raw_->Query(
      "select /* at 12:30 it's :X */ VERSAO from GER_VERSAO_ESTRUTURA where "
      "VERSAO = :V",
      {{"V", "2.09"}});
  ASSERT_EQ(rs.rows.size(), 1u);
  EXPECT_EQ(rs.rows[0][0].AsString(), "2.09");
}

TEST_P(ConnectionTest, MissingParameterValueIsADatabaseError) {
  try {
    raw_->Query("select VERSAO from GER_VERSAO_ESTRUTURA where VERSAO = :V", {});
    FAIL() << "no error";
  } catch (const db::DatabaseError& e) {
    EXPECT_NE(std::string(e.what()).find(":V"), std::string::npos);
    EXPECT_EQ(e.Sql(), "select VERSAO from GER_VERSAO_ESTRUTURA where VERSAO = :V");
  }
}

TEST_P(ConnectionTest, ServerErrorCarriesStatementAndMessage) {
  try {
    raw_->Execute("insert into TABELA_QUE_NAO_EXISTE values (1)", {});
    FAIL() << "no error";
  } catch (const db::DatabaseError& e) {
    EXPECT_EQ(e.Sql(), "insert into TABELA_QUE_NAO_EXISTE values (1)");
    EXPECT_FALSE(e.ServerMessage().empty());
  }
  // The connection is still usable after the failure.
  EXPECT_EQ(CountRows(*raw_, "CTB_CONTA"), 0);
}

TEST_P(ConnectionTest, RollbackLeavesNoRowAndCommitKeepsThem) {
  raw_->Begin(db::Isolation::kReadCommitted);
  raw_->Execute("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA) values (1, 1, 'X')", {});
  raw_->Rollback();
  EXPECT_EQ(CountRows(*raw_, "CTB_CONTA"), 0);
  raw_->Begin(db::Isolation::kReadCommitted);
  raw_->Execute("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA) values (1, 1, 'Y')", {});
  raw_->Commit();
  EXPECT_EQ(CountRows(*raw_, "CTB_CONTA"), 1);
  EXPECT_THROW(raw_->Commit(), db::DatabaseError);
}

TEST_P(ConnectionTest, TraceRecordsTextParametersAndTransactionSteps) {
  trace_->Begin(db::Isolation::kReadCommitted);
  trace_->Execute("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA) values (:E, 1, 'Z')",
                  {{"E", 3}});
  trace_->Query("select CONTA from CTB_CONTA", {});
  trace_->Commit();
  const auto& t = trace_->Trace();
  ASSERT_EQ(t.size(), 4u);
  EXPECT_EQ(t[0].kind, db::TracedStatement::Kind::kBegin);
  EXPECT_EQ(t[1].sql, "insert into CTB_CONTA (EMPRESA, REVENDA, CONTA) values (:E, 1, 'Z')");
  ASSERT_EQ(t[1].params.size(), 1u);
  EXPECT_EQ(t[1].params[0].value, db::Value(3));
  EXPECT_EQ(t[2].kind, db::TracedStatement::Kind::kQuery);
  EXPECT_EQ(t[3].kind, db::TracedStatement::Kind::kCommit);
  EXPECT_EQ(trace_->Statements().size(), 2u);
}

TEST_P(ConnectionTest, InjectedFailureOfNthStatementNeverReachesServer) {
  trace_->FailNth(2, "disk full");
  trace_->Execute("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA) values (1, 1, 'A')", {});
  try {
    trace_->Execute("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA) values (1, 1, 'B')", {});
    FAIL() << "no injected failure";
  } catch (const db::DatabaseError& e) {
    EXPECT_EQ(e.ServerMessage(), "disk full");
    EXPECT_EQ(e.Sql(), "insert into CTB_CONTA (EMPRESA, REVENDA, CONTA) values (1, 1, 'B')");
  }
  trace_->Execute("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA) values (1, 1, 'C')", {});
  EXPECT_EQ(Column(*raw_, "select CONTA from CTB_CONTA order by CONTA"),
            (std::vector<std::string>{"A", "C"}));
  EXPECT_TRUE(trace_->Trace()[1].injected);
}

TEST_P(ConnectionTest, InjectedFailureByPatternHitsEveryMatch) {
  trace_->FailMatching("'B'");
  EXPECT_NO_THROW(
      trace_->Execute("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA) values (1, 1, 'A')", {}));
  EXPECT_THROW(
      trace_->Execute("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA) values (1, 1, 'B')", {}),
      db::DatabaseError);
  EXPECT_THROW(trace_->Query("select 1 X from CTB_CONTA where CONTA = 'B'", {}), db::DatabaseError);
  trace_->ClearFaults();
  EXPECT_NO_THROW(
      trace_->Execute("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA) values (1, 1, 'B')", {}));
}

TEST_P(ConnectionTest, CommandDatasetWalksRowsAndReadsFieldsByName) {
  Bind();
  raw_->Execute(
      "insert into CTB_CENTRO_CUSTO (EMPRESA, REVENDA, CENTRO_CUSTO, DES_CENTRO_CUSTO) "
      "values (1, 1, 1, 'Vendas')",
      {});
  raw_->Execute(
      "insert into CTB_CENTRO_CUSTO (EMPRESA, REVENDA, CENTRO_CUSTO, DES_CENTRO_CUSTO) "
      "values (1, 1, 2, null)",
      {});
  db::SQLDataSet& ds = dm_->sdsAux;
  ds.SetCommandText("select CENTRO_CUSTO, DES_CENTRO_CUSTO from CTB_CENTRO_CUSTO order by 1");
  ds.Open();
  std::vector<std::string> seen;
  for (ds.First(); !ds.Eof(); ds.Next())
    seen.push_back(ds.FieldByName("centro_custo").AsString() + ":" +
                   (ds.FieldByName("Des_Centro_Custo").IsNull()
                        ? "null"
                        : ds.FieldByName("DES_CENTRO_CUSTO").AsString()));
  EXPECT_EQ(seen, (std::vector<std::string>{"1:Vendas", "2:null"}));
  EXPECT_THROW(ds.FieldByName("NAO_EXISTE"), std::invalid_argument);
  ds.Close();
  EXPECT_FALSE(ds.Active());
}

TEST_P(ConnectionTest, OpenedQueryCopiesIntoClientDataSet) {
  Bind();
  raw_->Execute(
      "insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, NIVEL) values "
      "(1, 1, '11', '1', 'A')",
      {});
  raw_->Execute(
      "insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, NIVEL) values "
      "(1, 1, '12', '1', 'A')",
      {});
  db::SQLDataSet& ds = dm_->sdsAux;
  ds.SetCommandText("select CONTA, CONTA_SUPERIORA, NIVEL from CTB_CONTA order by CONTA");
  ds.Open();
  auto copy = SQLDatasetToClientDataSet(ds);
  EXPECT_EQ(copy->RecordCount(), 2u);
  copy->SetFilter("CONTA_SUPERIORA = '1' and conta = '12'");
  copy->SetFiltered(true);
  copy->First();
  ASSERT_FALSE(copy->Eof());
  EXPECT_EQ(copy->FieldByName("CONTA").AsString(), "12");
}

TEST_P(ConnectionTest, ProviderFeedsClientDataSetWithParameters) {
  Bind();
  raw_->Execute(
      "insert into CTB_LANCAMENTO (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, CONTA, "
      "NATUREZA, VAL_LANCAMENTO) values (1, 1, 202405, 1, '11', 'D', 10)",
      {});
  raw_->Execute(
      "insert into CTB_LANCAMENTO_DIVIDIDO (SEQUENCIA, EMPRESA, REVENDA, ANO_MES, "
      "LANCAMENTO, REVENDA_DIVISAO, VAL_DIVISAO) values (1, 1, 1, 202405, 1, 3, 10)",
      {});
  dm_->cdsSaldoTotalParams.ByName("EMPRESA").value = 1;
  dm_->cdsSaldoTotalParams.ByName("REVENDA").value = 1;
  dm_->cdsSaldoTotalParams.ByName("PERINI").value = 202401;
  dm_->cdsSaldoTotalParams.ByName("PERFIN").value = 202412;
  dm_->dspSaldoTotal.Provide(dm_->cdsSaldoTotal, "", dm_->cdsSaldoTotalParams);
  ASSERT_EQ(dm_->cdsSaldoTotal.RecordCount(), 1u);
  dm_->cdsSaldoTotal.First();
  EXPECT_EQ(dm_->cdsSaldoTotal.FieldByName("CONTA").AsString(), "11");
  EXPECT_DOUBLE_EQ(dm_->cdsSaldoTotal.FieldByName("TOTAL").AsFloat(), 10);
  EXPECT_EQ(dm_->cdsSaldoTotal.FieldByName("REVENDA_DIVISAO").AsInteger(), 3);
}

TEST_P(ConnectionTest, CarriedForwardLookupForYearWithoutRowsFindsNone) {
  raw_->Execute("insert into CTB_SALDO_ANTERIOR values (1, 1, '11', 2022, 50)", {});
  EXPECT_EQ(raw_->Query("select SALDO from CTB_SALDO_ANTERIOR where EMPRESA = 1 and REVENDA = 1 "
                        "and CONTA = '11' and ANO = 2023",
                        {})
                .rows.size(),
            0u);
  EXPECT_EQ(raw_->Query("select SALDO from CTB_SALDO_ANTERIOR where EMPRESA = 1 and REVENDA = 1 "
                        "and CONTA = '11' and ANO = 2022",
                        {})
                .rows.size(),
            1u);
}

TEST_P(ConnectionTest, NullDivisionColumnsMatchIsNullNeverASentinel) {
  raw_->Execute(
      "insert into CTB_LANCAMENTO_DIVIDIDO (SEQUENCIA, EMPRESA, REVENDA, ANO_MES, "
      "LANCAMENTO, CENTRO_CUSTO, TIPO_ITEM, VAL_DIVISAO) values (1, 1, 1, 202405, 1, "
      "null, null, 5)",
      {});
  EXPECT_EQ(CountRows(*raw_,
                      "CTB_LANCAMENTO_DIVIDIDO where CENTRO_CUSTO is null and TIPO_ITEM "
                      "is null"),
            1);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO where CENTRO_CUSTO = -1"), 0);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO where TIPO_ITEM = ''"), 0);
}

TEST_P(ConnectionTest, CarriedForwardTableKeepsColumnOrderForColumnlessInsert) {
  raw_->Execute("insert into CTB_SALDO_ANTERIOR values (1, 2, '1101', 2024, 10.5)", {});
  auto rs = raw_->Query("select EMPRESA, REVENDA, CONTA, ANO, SALDO from CTB_SALDO_ANTERIOR", {});
  ASSERT_EQ(rs.rows.size(), 1u);
  EXPECT_EQ(rs.rows[0][1].AsInteger(), 2);
  EXPECT_EQ(rs.rows[0][2].AsString(), "1101");
  EXPECT_EQ(rs.rows[0][3].AsInteger(), 2024);
  EXPECT_DOUBLE_EQ(rs.rows[0][4].AsFloat(), 10.5);
}

TEST_P(ConnectionTest, Utf8TextRoundTrips) {
  raw_->Execute(
      "insert into CTB_CENTRO_CUSTO (EMPRESA, REVENDA, CENTRO_CUSTO, DES_CENTRO_CUSTO) "
      "values (1, 1, 1, :D)",
      {{"D", "Manutenção e peças"}});
  EXPECT_EQ(Scalar(*raw_, "select DES_CENTRO_CUSTO from CTB_CENTRO_CUSTO").AsString(),
            "Manutenção e peças");
}

TEST_P(ConnectionTest, SchemaHoldsEveryTableAndTheStructureVersion) {
  for (const std::string& table : db::SchemaTables())
    EXPECT_NO_THROW(CountRows(*raw_, table)) << table;
  EXPECT_GE(db::SchemaTables().size(), 22u);
  EXPECT_EQ(Scalar(*raw_, "select VERSAO from GER_VERSAO_ESTRUTURA").AsString(), "2.09");
  EXPECT_TRUE(db::SchemaExists(*raw_));
}

// kvctb keeps no trace in memory (a posting of a million records held every
// statement text until it ended): with KeepTrace off the trace stays empty
// while the sink still sees every statement and faults are still injected.
TEST_P(ConnectionTest, TraceNotKeptStillFeedsTheSinkAndInjectsFaults) {
  db::TracingConnection traced(*raw_);
  traced.KeepTrace(false);
  std::vector<std::string> seen;
  traced.SetSink([&seen](const db::TracedStatement& s) { seen.push_back(s.sql); });
  traced.Execute("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA) values (1, 1, 'X')", {});
  traced.Query("select CONTA from CTB_CONTA", {});
  traced.FailNth(1);
  EXPECT_THROW(traced.Query("select CONTA from CTB_CONTA", {}), db::DatabaseError);
  EXPECT_TRUE(traced.Trace().empty());
  EXPECT_EQ(seen.size(), 3u);
  traced.KeepTrace(true);
  traced.Query("select CONTA from CTB_CONTA", {});
  EXPECT_EQ(traced.Trace().size(), 1u);
}

// Statements that differ only in their literals share a prepared statement
// on the servers that reuse them; every text still reads and writes its own
// values.
TEST_P(ConnectionTest, StatementsOfOneShapeEachSeeTheirOwnValues) {
  for (int i = 1; i <= 50; ++i)
    raw_->Execute(fmt::format("insert into CTB_SALDO_ANTERIOR values (1, {}, '{}''x', 2023, {}.25)",
                              i % 3, i, i),
                  {});
  for (int i = 1; i <= 50; ++i) {
    auto rs = raw_->Query(fmt::format("select SALDO, CONTA from CTB_SALDO_ANTERIOR where "
                                      "REVENDA = {} and CONTA = '{}''x'",
                                      i % 3, i),
                          {});
    ASSERT_EQ(rs.rows.size(), 1u) << i;
    EXPECT_DOUBLE_EQ(rs.rows[0][0].AsFloat(), i + 0.25);
    EXPECT_EQ(rs.rows[0][1].AsString(), std::to_string(i) + "'x");
  }
  EXPECT_EQ(
      raw_->Execute("update CTB_SALDO_ANTERIOR set SALDO = SALDO + 1.50 where REVENDA = 1", {}),
      17);
  EXPECT_EQ(
      raw_->Execute("update CTB_SALDO_ANTERIOR set SALDO = SALDO + 2.50 where REVENDA = 2", {}),
      17);
  auto rs = raw_->Query("select sum(SALDO) TOTAL from CTB_SALDO_ANTERIOR where ANO = 2023", {});
  EXPECT_DOUBLE_EQ(rs.rows[0][0].AsFloat(), 1275 + 12.5 + 17 * 1.5 + 17 * 2.5);
  rs = raw_->Query("select sum(SALDO) TOTAL from CTB_SALDO_ANTERIOR where ANO = 2024", {});
  EXPECT_TRUE(rs.rows[0][0].IsNull());
}

// A prepared statement that failed (here a duplicate key) is prepared again:
// the next text of its shape runs as if nothing had happened.
TEST_P(ConnectionTest, AFailedStatementDoesNotSpoilTheNextOfItsShape) {
  raw_->Execute("insert into CTB_SALDO_ANTERIOR values (1, 1, 'A', 2023, 1)", {});
  EXPECT_THROW(raw_->Execute("insert into CTB_SALDO_ANTERIOR values (1, 1, 'A', 2023, 2)", {}),
               db::DatabaseError);
  raw_->Execute("insert into CTB_SALDO_ANTERIOR values (1, 1, 'B', 2023, 3)", {});
  EXPECT_EQ(CountRows(*raw_, "CTB_SALDO_ANTERIOR"), 2);
}

// A table dropped and made again with other columns between two texts of
// one shape: the second reads the new table.
TEST_P(ConnectionTest, AStatementAfterATableIsMadeAgainReadsTheNewTable) {
  raw_->Execute("create table KVC_SHAPE_T (A integer, B varchar(10))", {});
  raw_->Execute("insert into KVC_SHAPE_T values (1, 'x')", {});
  auto rs = raw_->Query("select * from KVC_SHAPE_T where A = 1", {});
  ASSERT_EQ(rs.columns.size(), 2u);
  raw_->Execute("drop table KVC_SHAPE_T", {});
  raw_->Execute("create table KVC_SHAPE_T (A integer, C numeric(15,2), D varchar(5))", {});
  raw_->Execute("insert into KVC_SHAPE_T values (2, 3.5, 'y')", {});
  rs = raw_->Query("select * from KVC_SHAPE_T where A = 2", {});
  ASSERT_EQ(rs.columns.size(), 3u);
  EXPECT_DOUBLE_EQ(rs.rows[0][1].AsFloat(), 3.5);
  raw_->Execute("drop table KVC_SHAPE_T", {});
}

// A text whose values are all bound (the service libraries' numbering and
// summarised balances) is kept prepared on every server: each run binds its
// own values, a null among them too, and a run that failed (a duplicate key,
// inside a transaction that is then rolled back) spoils neither the next run
// nor the transaction after it.
TEST_P(ConnectionTest, BoundOnlyTextsRunAgainWithTheirOwnValues) {
  constexpr char kInsert[] =
      "insert into CTB_SALDO_ANTERIOR (EMPRESA, REVENDA, CONTA, ANO, SALDO)"
      " values (:EMPRESA, :REVENDA, :CONTA, :ANO, :SALDO)";
  constexpr char kSelect[] =
      "select SALDO from CTB_SALDO_ANTERIOR where EMPRESA = :EMPRESA and CONTA = :CONTA";
  for (int i = 1; i <= 20; ++i)
    raw_->Execute(kInsert, {{"EMPRESA", 1},
                            {"REVENDA", i % 3},
                            {"CONTA", fmt::format("K{}", i)},
                            {"ANO", 2024},
                            {"SALDO", i % 5 == 0 ? db::Value() : db::Value(i * 10)}});
  for (int i = 1; i <= 20; ++i) {
    auto rs = raw_->Query(kSelect, {{"EMPRESA", 1}, {"CONTA", fmt::format("K{}", i)}});
    ASSERT_EQ(rs.rows.size(), 1u) << i;
    if (i % 5 == 0)
      EXPECT_TRUE(rs.rows[0][0].IsNull()) << i;
    else
      EXPECT_DOUBLE_EQ(rs.rows[0][0].AsFloat(), i * 10) << i;
  }
  raw_->Begin(db::Isolation::kReadCommitted);
  EXPECT_THROW(
      raw_->Execute(kInsert,
                    {{"EMPRESA", 1}, {"REVENDA", 1}, {"CONTA", "K1"}, {"ANO", 2024}, {"SALDO", 1}}),
      db::DatabaseError);
  raw_->Rollback();
  raw_->Begin(db::Isolation::kReadCommitted);
  raw_->Execute(kInsert,
                {{"EMPRESA", 2}, {"REVENDA", 1}, {"CONTA", "K1"}, {"ANO", 2024}, {"SALDO", 7}});
  raw_->Commit();
  EXPECT_DOUBLE_EQ(
      raw_->Query(kSelect, {{"EMPRESA", 2}, {"CONTA", "K1"}}).rows.at(0).at(0).AsFloat(), 7);
  EXPECT_EQ(CountRows(*raw_, "CTB_SALDO_ANTERIOR"), 21);
}

// A bound-only text prepared before a table was made again with other
// columns reads the new table.
TEST_P(ConnectionTest, ABoundOnlyTextAfterATableIsMadeAgainReadsTheNewTable) {
  raw_->Execute("create table KVC_SHAPE_B (A integer, B varchar(10))", {});
  raw_->Execute("insert into KVC_SHAPE_B values (1, 'x')", {});
  auto rs = raw_->Query("select * from KVC_SHAPE_B where A = :A", {{"A", 1}});
  ASSERT_EQ(rs.columns.size(), 2u);
  raw_->Execute("drop table KVC_SHAPE_B", {});
  raw_->Execute("create table KVC_SHAPE_B (A integer, C numeric(15,2), D varchar(5))", {});
  raw_->Execute("insert into KVC_SHAPE_B values (2, 3.5, 'y')", {});
  rs = raw_->Query("select * from KVC_SHAPE_B where A = :A", {{"A", 2}});
  ASSERT_EQ(rs.columns.size(), 3u);
  EXPECT_DOUBLE_EQ(rs.rows.at(0)[1].AsFloat(), 3.5);
  raw_->Execute("drop table KVC_SHAPE_B", {});
}

// A text that holds a second statement after a ';' (a host's filter, say)
// is refused whole, on every server: PostgreSQL through ODBC, or as a
// one-time statement without values, would run both. A ';' in quoted text
// or a comment, or one that ends the text, is no second statement.
TEST_P(ConnectionTest, ASecondStatementAfterASemicolonIsRefusedWhole) {
  raw_->Execute("insert into CTB_SALDO_ANTERIOR values (1, 1, 'A;', 2023, 1)", {});
  EXPECT_THROW(raw_->Execute("update CTB_SALDO_ANTERIOR set SALDO = 2 where ANO = 1900; "
                             "delete from CTB_SALDO_ANTERIOR",
                             {}),
               db::DatabaseError);
  EXPECT_THROW(raw_->Query("select CONTA from CTB_SALDO_ANTERIOR where CONTA = 'A;' ;"
                           "delete from CTB_SALDO_ANTERIOR",
                           {}),
               db::DatabaseError);
  EXPECT_EQ(CountRows(*raw_, "CTB_SALDO_ANTERIOR"), 1);
  EXPECT_EQ(raw_->Query("select CONTA from CTB_SALDO_ANTERIOR where CONTA = 'A;' /* ; */", {})
                .rows.size(),
            1u);
}

// Statements whose literals differ run through one prepared statement per
// shape where the dialect binds literals (Firebird types each parameter from
// its context). What a parameter could not stand for is kept or falls back
// to the module's text, with the literal's answer, on every server: a number
// in arithmetic, a text compared with a column too narrow for it, two texts
// compared with each other, a decimal with more places than a money column.
TEST_P(ConnectionTest, LiteralsAParameterCannotStandForGiveTheLiteralsAnswer) {
  raw_->Execute("insert into CTB_SALDO_ANTERIOR values (1, 1, '1.1', 2023, 10.25)", {});
  raw_->Execute("insert into CTB_SALDO_ANTERIOR values (1, 1, '1.2', 2024, 3)", {});
  auto count = [&](const std::string& where) {
    return Scalar(*raw_, "select count(*) from CTB_SALDO_ANTERIOR where " + where).AsInteger();
  };
  for (int round = 0; round < 2; ++round) {  // the second round meets the kept shapes
    SCOPED_TRACE(round);
    EXPECT_EQ(count("ANO*100+1 = 202301"), 1);
    EXPECT_EQ(count("ANO - 1 = 2022"), 1);
    EXPECT_EQ(count("SALDO > -1"), 2);
    EXPECT_EQ(count("CONTA = '1.1.1.1.1.1.1.1.1.1.1.1.1.1'"), 0);  // beyond VARCHAR(20)
    EXPECT_EQ(count("'A' = 'A'"), 2);
    EXPECT_EQ(count("'A' = 'B'"), 0);
    EXPECT_EQ(count("SALDO = 10.251"), 0);  // a NUMERIC(15,2) parameter would read 10.25
    EXPECT_EQ(count("SALDO = 10.25"), 1);
    EXPECT_EQ(count("ANO < 3000000000"), 2);  // beyond 32 bits
    EXPECT_EQ(count("CONTA || 'x' = '1.1x'"), 1);
  }
  // A value too long for its column, then one that fits: each its own answer.
  EXPECT_EQ(count("CONTA = '1.2'"), 1);
}

// A statement whose bound form a typed server refuses (two texts compared,
// which it cannot type; a text longer than the column it is compared with)
// runs as its text inside the transaction:
// the transaction's earlier work stays, the refused attempt leaves nothing,
// the count of rows changed is the text's, and commit and rollback reach
// what it did, the next time too (when the text runs at once).
TEST_P(ConnectionTest, AStatementRunAsItsTextKeepsTheTransactionWhole) {
  auto update = [](int saldo) {
    return fmt::format("update CTB_SALDO_ANTERIOR set SALDO = {} where CONTA = '1.1' and 'A' = 'A'",
                       saldo);
  };
  auto saldo = [&] {
    return Scalar(*raw_, "select SALDO from CTB_SALDO_ANTERIOR where CONTA = '1.1'").AsFloat();
  };
  raw_->Begin(db::Isolation::kReadCommitted);
  raw_->Execute("insert into CTB_SALDO_ANTERIOR values (1, 1, '1.1', 2023, 5)", {});
  EXPECT_EQ(raw_->Execute(update(6), {}), 1);
  EXPECT_EQ(Scalar(*raw_,
                   "select count(*) from CTB_SALDO_ANTERIOR where CONTA = "
                   "'1.1.1.1.1.1.1.1.1.1.1.1.1.1'")
                .AsInteger(),
            0);
  raw_->Commit();
  EXPECT_EQ(saldo(), 6);
  raw_->Begin(db::Isolation::kReadCommitted);
  EXPECT_EQ(raw_->Execute(update(7), {}), 1);
  EXPECT_EQ(saldo(), 7);
  raw_->Rollback();
  EXPECT_EQ(saldo(), 6);
  EXPECT_EQ(CountRows(*raw_, "CTB_SALDO_ANTERIOR"), 1);
}

// A decimal literal written into a money column (NUMERIC(15,2)) or compared
// with one keeps every cent on every server, every amount from 0.00 to 49.99
// (0.29 is no exact double) and large ones, through one statement shape.
TEST_P(ConnectionTest, DecimalLiteralsKeepEveryCent) {
  std::vector<std::string> amounts;
  for (int hundredths = 0; hundredths < 5000; ++hundredths)
    amounts.push_back(fmt::format("{}.{:02}", hundredths / 100, hundredths % 100));
  for (int cents = 0; cents < 100; ++cents)
    amounts.push_back(fmt::format("98765432109.{:02}", cents));
  raw_->Begin(db::Isolation::kReadCommitted);
  for (size_t i = 0; i < amounts.size(); ++i)
    raw_->Execute(fmt::format("insert into CTB_SALDO_ANTERIOR values (1, 1, 'C{:05}', 2023, {})", i,
                              amounts[i]),
                  {});
  raw_->Commit();
  const auto rows =
      raw_->Query("select CONTA, SALDO from CTB_SALDO_ANTERIOR order by CONTA", {}).rows;
  ASSERT_EQ(rows.size(), amounts.size());
  for (size_t i = 0; i < amounts.size(); ++i)
    EXPECT_EQ(sql::Amount(rows[i][1].AsFloat()), amounts[i]) << rows[i][0].AsString();
  for (const char* amount : {"0.29", "1.15", "2.30", "4.35", "98765432109.29"}) {
    const auto at = std::find(amounts.begin(), amounts.end(), amount);
    ASSERT_NE(at, amounts.end()) << amount;
    const std::string conta = rows[at - amounts.begin()][0].AsString();
    const auto found = raw_->Query(
        fmt::format("select CONTA from CTB_SALDO_ANTERIOR where SALDO = {}", amount), {});
    ASSERT_EQ(found.rows.size(), 1u) << amount;
    EXPECT_EQ(found.rows[0][0].AsString(), conta) << amount;
  }
}

// The embedded engine's settings: large sorts on a second thread from the start,
// and the 8 MiB page cache once the file has been read (its setting reads
// the schema, so a file that is not a database is found by the first
// statement, never at connect).
TEST_P(ConnectionTest, OnSqliteTheSessionTakesItsPageCacheAndSorterThreads) {
  if (GetParam() != "sqlite") GTEST_SKIP() << "settings of the embedded database";
  EXPECT_EQ(raw_->Query("pragma threads", {}).rows.at(0).at(0).AsInteger(), 2);
  EXPECT_EQ(raw_->Query("pragma cache_size", {}).rows.at(0).at(0).AsInteger(), -8192);
  // The durable default stays: the rollback journal, synchronised in full.
  EXPECT_EQ(raw_->Query("pragma journal_mode", {}).rows.at(0).at(0).AsString(), "delete");
  EXPECT_EQ(raw_->Query("pragma synchronous", {}).rows.at(0).at(0).AsInteger(), 2);
}

KVC_INSTANTIATE_BACKENDS(ConnectionTest);

TEST(Placeholders, FindsNamesOutsideQuotesAndComments) {
  auto p = db::FindPlaceholders(
      "select ':X' a, \":Y\" from t /* :Z */ where a = :EMPRESA -- :W\n"
      " and b = :REVENDA and c::int = 1");
  ASSERT_EQ(p.size(), 2u);
  EXPECT_EQ(p[0].name, "EMPRESA");
  EXPECT_EQ(p[1].name, "REVENDA");
}

TEST(Placeholders, PositionalTextNumbersEveryOccurrence) {
  auto pt = db::ToPositional("a = :E or b = :E and c = :R");
  EXPECT_EQ(pt.text, "a = :p1 or b = :p2 and c = :p3");
  EXPECT_EQ(pt.names, (std::vector<std::string>{"E", "E", "R"}));
  EXPECT_EQ(db::PlaceholderNames("a = :E or b = :e and c = :R"),
            (std::vector<std::string>{"E", "R"}));
}

TEST(Placeholders, AmbiguousCommentsAreDroppedAndMarkersKept) {
  EXPECT_EQ(db::DropAmbiguousComments("select /* 12:30 */ a from t where y = /*P*/'5'"),
            "select   a from t where y = /*P*/'5'");
}

TEST(Schema, EveryServerFileSplitsIntoTheSameTables) {
  const size_t tables = db::SchemaTables().size();
  for (const char* server : {"sqlite", "firebird", "postgresql", "sqlserver", "oracle"}) {
    auto statements = db::SplitDdl(db::SchemaDdl(server));
    size_t creates = 0;
    for (auto& s : statements)
      if (s.find("create table") != std::string::npos ||
          s.find("CREATE TABLE") != std::string::npos)
        ++creates;
    EXPECT_EQ(creates, tables) << server;
    for (auto& s : statements) EXPECT_EQ(s.find(';'), std::string::npos) << server << ": " << s;
  }
}

TEST(Connect, UnknownUrlIsRefusedWithItsForm) {
  try {
    db::Connect("mysql:whatever");
    FAIL();
  } catch (const db::DatabaseError& e) {
    EXPECT_NE(std::string(e.what()).find("sqlite:PATH"), std::string::npos);
  }
}

}  // namespace
}  // namespace kvc::testing
