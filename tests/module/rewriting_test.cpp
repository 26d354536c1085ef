// The statement-rewriting step run before a command dataset opens, checked
// through the statement trace on an embedded database.
#include <gtest/gtest.h>

#include <memory>

#include "accounting/db/connection.h"
#include "accounting/db/trace.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc::testing {
namespace {

class RewritingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    raw_ = db::Connect("sqlite::memory:");
    raw_->Execute("create table t (a integer, x integer)", {});
    raw_->Execute("create table u (b integer, y varchar(10))", {});
    raw_->Execute("insert into t values (1, 10)", {});
    raw_->Execute("insert into u values (10, '5')", {});
    trace_ = std::make_unique<db::TracingConnection>(*raw_);
  }

  void Bind(const std::string& tipo_banco) {
    host_.tipo_banco = tipo_banco;
    dm_ = std::make_unique<TddmContabilidadeBD>();
    dm_->AtualizaTAplicacao(host_, trace_.get(), 1);
    dm_->SetaSQLConnection();
    trace_->Clear();
  }

  std::unique_ptr<db::Connection> raw_;
  std::unique_ptr<db::TracingConnection> trace_;
  TSimpleHostContext host_;
  std::unique_ptr<TddmContabilidadeBD> dm_;
};

constexpr char kSubQuery[] = "select a from t where x in (select b from u where y = :P)";

TEST_F(RewritingTest, OtherServerOnlyAdaptsDialectAndKeepsParametersAndLineFeeds) {
  Bind("SQLITE");
  db::SQLDataSet& ds = dm_->sdsAux;
  ds.SetCommandText("select a\n  from t\n where x in (select b from u where y = :P)");
  ds.ParamByName("P").value = "5";
  ds.Open();
  EXPECT_EQ(ds.CommandText(), "select a\n  from t\n where x in (select b from u where y = :P)");
  ASSERT_EQ(ds.GetParams().Count(), 1u);
  EXPECT_EQ(ds.GetParams()[0].value, db::Value("5"));
  ASSERT_EQ(trace_->Trace().size(), 1u);
  EXPECT_EQ(trace_->Trace()[0].sql, ds.CommandText());
  ASSERT_EQ(trace_->Trace()[0].params.size(), 1u);
  EXPECT_EQ(ds.FieldByName("A").AsInteger(), 1);
}

TEST_F(RewritingTest, SqlServerWithoutSubQueryKeepsTextAndBindsParameter) {
  Bind("SQLSERVER");
  db::SQLDataSet& ds = dm_->sdsAux;
  ds.SetCommandText("select a from t\nwhere x = :P");
  ds.ParamByName("P").value = 10;
  ds.Open();
  EXPECT_EQ(ds.CommandText(), "select a from t\nwhere x = :P");
  ASSERT_EQ(ds.GetParams().Count(), 1u);
  ASSERT_EQ(trace_->Statements().size(), 1u);
  EXPECT_EQ(trace_->Statements()[0], "select a from t\nwhere x = :P");
  ASSERT_EQ(trace_->Trace()[0].params.size(), 1u);
  EXPECT_EQ(trace_->Trace()[0].params[0].value, db::Value(10));
  EXPECT_FALSE(ds.IsEmpty());
}

TEST_F(RewritingTest, SqlServerInlinesParameterOfSubQueryClosedByParenthesis) {
  Bind("SQLSERVER");
  db::SQLDataSet& ds = dm_->sdsAux;
  ds.SetCommandText(kSubQuery);
  ds.ParamByName("P").value = 5;
  ds.Open();
  EXPECT_EQ(ds.CommandText(), "select a from t where x in (select b from u where y = /*P*/'5')");
  EXPECT_EQ(ds.GetParams().Count(), 0u);
  ASSERT_EQ(trace_->Trace().size(), 1u);
  EXPECT_EQ(trace_->Trace()[0].sql,
            "select a from t where x in (select b from u where y = /*P*/'5')");
  EXPECT_TRUE(trace_->Trace()[0].params.empty());
  EXPECT_EQ(ds.FieldByName("a").AsInteger(), 1);
}

TEST_F(RewritingTest, ReopeningRewrittenTextUpdatesTheInlinedValue) {
  Bind("SQLSERVER");
  db::SQLDataSet& ds = dm_->sdsAux;
  ds.SetCommandText(kSubQuery);
  ds.ParamByName("P").value = 5;
  ds.Open();
  ds.Close();
  ds.GetParams().Add("P").value = 7;
  ds.Open();
  // The replacement of a quoted value ends with a blank, so each re-run adds
  // one blank before the closing parenthesis.
  EXPECT_EQ(ds.CommandText(), "select a from t where x in (select b from u where y = /*P*/'7' )");
  EXPECT_EQ(ds.GetParams().Count(), 0u);
  EXPECT_TRUE(ds.IsEmpty()) << "no row of u has y = '7'";
}

TEST_F(RewritingTest, UnquotedSegmentIsReplacedThroughItsBlank) {
  Bind("SQLSERVER");
  db::SQLDataSet& ds = dm_->sdsAux;
  ds.SetCommandText("select a from t where x in (select b from u where b = /*P*/10 and 1 = 1)");
  ds.GetParams().Add("P").value = 11;
  ds.Open();
  EXPECT_EQ(ds.CommandText(),
            "select a from t where x in (select b from u where b = /*P*/'11' and 1 = 1)");
}

TEST_F(RewritingTest, EmptyValueKeepsPlaceholderAndIsDroppedWithTheOthers) {
  Bind("SQLSERVER");
  db::SQLDataSet& ds = dm_->sdsAux;
  ds.SetCommandText("select a from t where x in (select b from u where y = :P and b = :Q )");
  ds.ParamByName("P").value = "5";
  ds.ParamByName("Q").value = "";
  EXPECT_THROW(ds.Open(), std::exception) << "the placeholder reaches the server unbound";
  EXPECT_EQ(ds.CommandText(),
            "select a from t where x in (select b from u where y = /*P*/'5' and b = :Q )");
  EXPECT_EQ(ds.GetParams().Count(), 0u);
  ASSERT_EQ(trace_->Trace().size(), 1u);
  EXPECT_EQ(trace_->Trace()[0].sql, ds.CommandText());
  EXPECT_TRUE(trace_->Trace()[0].params.empty());
}

TEST_F(RewritingTest, QuoteInValueIsNotEscaped) {
  Bind("SQLSERVER");
  db::SQLDataSet& ds = dm_->sdsAux;
  ds.SetCommandText(kSubQuery);
  ds.ParamByName("P").value = "O'Hara";
  EXPECT_THROW(ds.Open(), std::exception) << "unbalanced quote";
  EXPECT_EQ(ds.CommandText(),
            "select a from t where x in (select b from u where y = /*P*/'O'Hara')");
}

TEST_F(RewritingTest, PlaceholderFollowedByOtherCharacterIsNotReplaced) {
  Bind("SQLSERVER");
  db::SQLDataSet& ds = dm_->sdsAux;
  ds.SetCommandText("select a from t where x in (select b from u where b = :P+0)");
  ds.ParamByName("P").value = 10;
  EXPECT_THROW(ds.Open(), std::exception);
  EXPECT_EQ(ds.CommandText(), "select a from t where x in (select b from u where b = :P+0)");
  EXPECT_EQ(ds.GetParams().Count(), 0u) << "cleared because a value was inlined";
}

TEST_F(RewritingTest, SqlServerLineFeedsBecomeBlanksWhenNoParameters) {
  Bind("SQLSERVER");
  db::SQLDataSet& ds = dm_->sdsAux;
  ds.SetCommandText("  select a\nfrom t\n");
  ds.Open();
  EXPECT_EQ(ds.CommandText(), "select a from t");
}

TEST_F(RewritingTest, ServerTypeIsCaseSensitive) {
  Bind("sqlserver");
  db::SQLDataSet& ds = dm_->sdsAux;
  ds.SetCommandText(kSubQuery);
  ds.ParamByName("P").value = 5;
  ds.Open();
  EXPECT_EQ(ds.CommandText(), kSubQuery);
  EXPECT_EQ(ds.GetParams().Count(), 1u);
}

TEST_F(RewritingTest, ExecutedStatementsDoNotPassThroughRewriting) {
  Bind("SQLSERVER");
  db::SQLDataSet& ds = dm_->sdsExecutaSQL;
  ds.SetCommandText("update t set a = 2\nwhere x in (select b from u where y = :P)");
  ds.ParamByName("P").value = "5";
  EXPECT_EQ(ds.ExecSQL(), 1);
  ASSERT_EQ(trace_->Statements().size(), 1u);
  EXPECT_EQ(trace_->Statements()[0],
            "update t set a = 2\nwhere x in (select b from u where y = :P)");
}

}  // namespace
}  // namespace kvc::testing
