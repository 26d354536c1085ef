// After a posting of a thousand records or more, kvctb brings the server's
// planner statistics of the journal up to date: a PostgreSQL planner that
// still counts the tables empty, or Firebird index selectivities computed
// when the indexes were made, turn the next closing's reads of a year of
// entries into scans of the whole journal per account. A smaller posting
// leaves the statistics to the server. SQLite's statistics come with the
// schema and are never refreshed.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>

#include <fmt/format.h>

#include "accounting/db/backends/backend_hooks.h"
#include "accounting/db/connection.h"
#include "cli/kvctb_process.h"
#include "support/firebird_target.h"
#include "support/postgresql_target.h"
#include "support/records.h"

namespace kvc::cli::testing {
namespace {

// `count` records of June 2024 on the small chart, each of its own amount.
std::string Records(int count) {
  std::string text;
  kvc::testing::RegistroCampos campos = SmallBooksRecord();
  for (int i = 0; i < count; ++i) {
    campos.centavos = 1000 + i;
    text += kvc::testing::Registro(campos) + "\n";
  }
  return text;
}

// The small books on a server, the statements of one posting and a query
// of the server's statistics.
class StatisticsRefreshTest : public ::testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    const char* require = std::getenv("KVC_REQUIRE_SERVERS");
    const bool required = require && std::string(require) == "1";
    const std::string id = std::to_string(getpid());
    if (GetParam() == "Postgresql") {
      kvc::testing::PostgresqlTarget t;
      if (!kvc::testing::ParsePostgresqlTarget(t)) {
        if (required) FAIL() << "KVC_TEST_POSTGRESQL is required";
        GTEST_SKIP() << "KVC_TEST_POSTGRESQL not set";
      }
      const std::string schema = "kvctb_estatisticas_" + id;
      base_ = t.url;
      url_ = kvc::testing::SchemaUrl(t, schema);
      limpa_ = [base = base_, schema] {
        db::Connect(base)->Execute("drop schema if exists " + schema + " cascade", {});
      };
      limpa_();
      db::Connect(base_)->Execute("create schema " + schema, {});
      schema_ = schema;
    } else {
      kvc::testing::FirebirdTarget t;
      if (!kvc::testing::ParseFirebirdTarget(t)) {
        if (required) FAIL() << "KVC_TEST_FIREBIRD is required";
        GTEST_SKIP() << "KVC_TEST_FIREBIRD not set";
      }
      kvc::testing::ShutdownFirebirdClientAtExit();
      const std::string path = t.directory + "/kvctb_estatisticas_" + id + ".fdb";
      const std::string location = t.host + ":" + path;
      limpa_ = [location, t] { kvc::testing::DropFirebirdDatabaseIfThere(location, t); };
      limpa_();
      url_ = "firebird://" + t.user + ":" + t.password + "@" + t.host + "/" + path;
    }
    dir_ = NewDirectory("statistics_refresh");
    LoadSmallBooks(url_, dir_);
  }

  void TearDown() override {
    if (limpa_) limpa_();
  }

  // Posts `count` records with the statement trace; returns kvctb's result.
  RunResult Post(int count) {
    WriteFile(dir_ + "/records.txt", Records(count));
    return RunKvctb({"--db", url_, "--quiet", "--trace-sql", "trace.jsonl", "post", "records.txt"},
                    {dir_, {}, ""});
  }

  // Whether the server's statistics of the journal's account index say it
  // holds rows: PostgreSQL has analysed the table, Firebird's selectivity is
  // no longer that of the empty index.
  bool StatisticsSeeTheRows() {
    if (GetParam() == "Postgresql") {
      const auto rs = db::Connect(base_)->Query(
          "select count(*) from pg_stat_user_tables where schemaname = '" + schema_ +
              "' and relname = 'ctb_lancamento' and last_analyze is not null",
          {});
      return rs.rows.at(0).at(0).AsInteger() == 1;
    }
    const auto rs = db::Connect(url_)->Query(
        "select RDB$STATISTICS from RDB$INDICES where RDB$INDEX_NAME = 'IX_CTB_LANCAMENTO_1'", {});
    return !rs.rows.at(0).at(0).IsNull() && rs.rows.at(0).at(0).AsFloat() > 0;
  }

  std::string url_, base_, schema_, dir_;
  std::function<void()> limpa_;
};

TEST_P(StatisticsRefreshTest, ALargePostingRefreshesThePlannerStatisticsAfterItsCommit) {
  ASSERT_FALSE(StatisticsSeeTheRows()) << "the statistics were fresh before the posting";
  const RunResult r = Post(1000);
  ASSERT_EQ(r.exit_code, 0) << r.err;
  EXPECT_EQ(r.err.find("warning"), std::string::npos) << r.err;
  const std::string trace = ReadFile(dir_ + "/trace.jsonl");
  const std::string refresh = GetParam() == "Postgresql"
                                  ? "analyze CTB_LANCAMENTO\""
                                  : "set statistics index IX_CTB_LANCAMENTO_1\"";
  const size_t at = trace.find(refresh);
  ASSERT_NE(at, std::string::npos) << "no refresh in the trace";
  EXPECT_LT(trace.rfind("insert into"), at) << "the refresh must follow the posting";
  EXPECT_TRUE(StatisticsSeeTheRows());
}

TEST_P(StatisticsRefreshTest, ASmallPostingLeavesTheStatisticsToTheServer) {
  const RunResult r = Post(999);
  ASSERT_EQ(r.exit_code, 0) << r.err;
  const std::string trace = ReadFile(dir_ + "/trace.jsonl");
  EXPECT_EQ(trace.find("analyze "), std::string::npos);
  EXPECT_EQ(trace.find("set statistics"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Servers, StatisticsRefreshTest,
                         ::testing::Values("Postgresql", "Firebird"),
                         [](const auto& info) { return info.param; });

}  // namespace
}  // namespace kvc::cli::testing
