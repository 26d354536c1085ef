// kvctb as a whole process on SQLite: every command's standard output,
// standard error and exit code against the golden files in golden/, and
// independent checks of what the commands computed and wrote. Set
// KVCTB_UPDATE_GOLDEN=1 to rewrite the golden files after an intended change.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <regex>
#include <sstream>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "accounting/db/connection.h"
#include "cli/kvctb_process.h"
#include "cli/output.h"
#include "support/records.h"

namespace kvc::cli::testing {
namespace {

using kvc::testing::Registro;
using kvc::testing::RegistroCampos;

std::string Golden(const std::string& name) {
  return std::string(KVCTB_GOLDEN_DIR) + "/" + name + ".txt";
}

class GoldenTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    dir_ = DirectoryWithDemo(info->name());
  }

  // Runs kvctb on the test's demo copy (cwd = its directory).
  RunResult Run(std::vector<std::string> args, const std::string& stdin_text = "") {
    args.insert(args.begin(), {"--db", "sqlite:demo.db"});
    return RunKvctb(args, {dir_, {}, stdin_text});
  }

  // Runs and compares with golden/NAME.txt.
  RunResult Expect(const std::string& name, std::vector<std::string> args,
                   const std::string& stdin_text = "") {
    std::vector<std::string> shown = {"--db", "sqlite:demo.db"};
    shown.insert(shown.end(), args.begin(), args.end());
    const RunResult r = Run(args, stdin_text);
    ExpectSame(name, shown, r);
    return r;
  }

  static void ExpectSame(const std::string& name, const std::vector<std::string>& args,
                         const RunResult& r) {
    std::string text = "$ kvctb";
    for (const auto& a : args) text += " " + a;
    text +=
        "\nexit " + std::to_string(r.exit_code) + "\n--- stdout\n" + r.out + "--- stderr\n" + r.err;
    // The server time of error rows changes from run to run.
    static const std::regex kTime(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d(\.\d+)?)");
    text = std::regex_replace(text, kTime, "<time>");
    const char* update = std::getenv("KVCTB_UPDATE_GOLDEN");
    if (update && std::string(update) == "1") {
      WriteFile(Golden(name), text);
      return;
    }
    ASSERT_TRUE(FileExists(Golden(name))) << "no golden file " << Golden(name);
    EXPECT_EQ(text, ReadFile(Golden(name))) << "golden " << name;
  }

  std::unique_ptr<db::Connection> Db() { return db::Connect("sqlite:" + dir_ + "/demo.db"); }

  long long Count(const std::string& sql) {
    return Db()->Query(sql, {}).rows.at(0).at(0).AsInteger();
  }

  // Debits minus credits of an account up to a month, plus the opening
  // balance of 2022, straight from the tables.
  double SqlBalance(const std::string& conta, int ate) {
    auto c = Db();
    const auto mov = c->Query(
        "select coalesce(sum(case when NATUREZA = 'D' then VAL_LANCAMENTO else -VAL_LANCAMENTO "
        "end), 0) S from CTB_LANCAMENTO where CONTA = '" +
            conta + "' and ANO_MES <= " + std::to_string(ate),
        {});
    const auto abertura = c->Query(
        "select coalesce(sum(SALDO), 0) S from CTB_SALDO_ANTERIOR where ANO = 2022 and CONTA = '" +
            conta + "'",
        {});
    return mov.rows.at(0).at(0).AsFloat() + abertura.rows.at(0).at(0).AsFloat();
  }

  std::string dir_;
};

nlohmann::json Json(const RunResult& r) { return nlohmann::json::parse(r.out); }

// ---- help and usage ----------------------------------------------------------------

TEST_F(GoldenTest, HelpListsEveryCommandWithAnExample) {
  const RunResult r = Expect("help", {"--help"});
  EXPECT_EQ(r.exit_code, 0);
  for (const char* c :
       {"init",          "chart-import", "post",          "post-erp",     "balance",     "movement",
        "day-movement",  "opening",      "trial-balance", "close-result", "close-year",  "rollup",
        "rebuild",       "delete-entry", "cost-centre",   "invoice-text", "--trace-sql", "--format",
        "--server-type", "Example",      "ledger"})
    EXPECT_NE(r.out.find(c), std::string::npos) << c;
}

TEST_F(GoldenTest, CommandHelpExplainsEveryOptionWithAnExample) {
  const RunResult r = Expect("help_balance", {"balance", "--help"});
  EXPECT_EQ(r.exit_code, 0);
  for (const char* o : {"--month", "--cost-centre", "--cost-centres", "--source", "--category",
                        "--workshop-section", "--division-dealership", "--item-type", "--modality",
                        "--exclude-dealerships", "--monthly", "--general", "--filter", "--level"})
    EXPECT_NE(r.out.find(o), std::string::npos) << o;
  for (const char* c : {"close-result", "post", "trial-balance", "close-year"}) {
    const RunResult h = Run({c, "--help"});
    EXPECT_EQ(h.exit_code, 0) << c;
    EXPECT_NE(h.out.find("Example"), std::string::npos) << c;
  }
}

TEST_F(GoldenTest, UsageErrorsExitWithTwo) {
  EXPECT_EQ(Expect("usage_no_command", {}).exit_code, 2);
  EXPECT_EQ(
      Expect("usage_unknown_option", {"balance", "1", "--month", "202401", "--bogus"}).exit_code,
      2);
  EXPECT_EQ(Expect("usage_missing_month", {"balance", "1"}).exit_code, 2);
  EXPECT_EQ(Expect("usage_bad_format", {"--format", "xml", "balance", "1", "--month", "202401"})
                .exit_code,
            2);
}

// ---- init and chart-import ---------------------------------------------------------

TEST_F(GoldenTest, GlobalOptionsAreAcceptedAfterTheCommand) {
  const RunResult before = Run({"--format", "json", "balance", "1.1.1.01", "--month", "202406"});
  const RunResult after = Run({"balance", "1.1.1.01", "--month", "202406", "--format", "json"});
  EXPECT_EQ(after.exit_code, 0) << after.err;
  EXPECT_EQ(after.out, before.out);
  EXPECT_EQ(Json(after).is_object() || Json(after).is_array(), true);
}

TEST_F(GoldenTest, InitCreatesTheSchemaAndRefusesASecondTime) {
  const std::string dir = NewDirectory("init_empty");
  const RunResult r = RunKvctb({"--db", "sqlite:new.db", "init"}, In(dir));
  ExpectSame("init", {"--db", "sqlite:new.db", "init"}, r);
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_TRUE(FileExists(dir + "/new.db"));
  const RunResult again = RunKvctb({"--db", "sqlite:new.db", "init"}, In(dir));
  ExpectSame("init_twice", {"--db", "sqlite:new.db", "init"}, again);
  EXPECT_EQ(again.exit_code, 1);
}

TEST_F(GoldenTest, InitDemoLoadsAChartSeveralLevelsDeepAndTwoYearsOfEntries) {
  const std::string dir = NewDirectory("init_demo");
  const RunResult r =
      RunKvctb({"--db", "sqlite:demo.db", "--format", "json", "init", "--demo"}, In(dir));
  ExpectSame("init_demo", {"--db", "sqlite:demo.db", "--format", "json", "init", "--demo"}, r);
  ASSERT_EQ(r.exit_code, 0) << r.err;
  const auto j = Json(r);
  EXPECT_GE(j["accounts"].get<int>(), 300);
  auto c = db::Connect("sqlite:" + dir + "/demo.db");
  auto count = [&](const std::string& sql) {
    return c->Query(sql, {}).rows.at(0).at(0).AsInteger();
  };
  EXPECT_EQ(count("select count(*) from CTB_CONTA"), j["accounts"].get<int>());
  EXPECT_EQ(count("select count(*) from CTB_LANCAMENTO"), j["entries"].get<int>());
  EXPECT_EQ(count("select count(*) from CTB_LANCAMENTO_DIVIDIDO"), j["entries"].get<int>());
  EXPECT_EQ(count("select count(distinct ANO_MES / 100) from CTB_LANCAMENTO"), 2);
  EXPECT_GT(count("select count(*) from CTB_CENTRO_CUSTO"), 5);
  EXPECT_GT(count("select count(*) from CTB_DIVISAO_CONTABIL"), 0);
  // Four levels: an analytic account whose parent's parent's parent exists.
  EXPECT_GT(count("select count(*) from CTB_CONTA a join CTB_CONTA b on b.CONTA = "
                  "a.CONTA_SUPERIORA join CTB_CONTA c on c.CONTA = b.CONTA_SUPERIORA join "
                  "CTB_CONTA d on d.CONTA = c.CONTA_SUPERIORA where a.NIVEL = 'A'"),
            200);
  // The same data on every run.
  const std::string dir2 = NewDirectory("init_demo_again");
  const RunResult r2 =
      RunKvctb({"--db", "sqlite:demo.db", "--format", "json", "init", "--demo"}, In(dir2));
  EXPECT_EQ(r2.out, r.out);
  const RunResult t1 = RunKvctb(
      {"--db", "sqlite:demo.db", "--format", "csv", "trial-balance", "--month", "202412"}, In(dir));
  const RunResult t2 =
      RunKvctb({"--db", "sqlite:demo.db", "--format", "csv", "trial-balance", "--month", "202412"},
               In(dir2));
  EXPECT_EQ(t1.out, t2.out);
}

TEST_F(GoldenTest, MissingDatabaseIsAFailureAndIsNotCreated) {
  const RunResult r =
      RunKvctb({"--db", "sqlite:absent.db", "balance", "1", "--month", "202401"}, In(dir_));
  ExpectSame("missing_database", {"--db", "sqlite:absent.db", "balance", "1", "--month", "202401"},
             r);
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_FALSE(FileExists(dir_ + "/absent.db"));
}

TEST_F(GoldenTest, ChartImportLoadsAValidTree) {
  WriteFile(dir_ + "/chart.csv",
            "CONTA,CONTA_SUPERIORA,NIVEL,NIVEL_DIVISAO,LANCAMENTO_DIVIDIDO\n"
            "6,,S,,\n6.1,6,S,,\n6.1.01,6.1,A,1,S\n6.1.02,6.1,A,,N\n");
  const RunResult r = Expect("chart_import", {"chart-import", "chart.csv"});
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(Count("select count(*) from CTB_CONTA where CONTA like '6%'"), 4);
  EXPECT_EQ(Count("select NIVEL_DIVISAO from CTB_CONTA where CONTA = '6.1.01'"), 1);
}

TEST_F(GoldenTest, ChartImportRefusesTheWholeFileNamingTheLine) {
  const long long before = Count("select count(*) from CTB_CONTA");
  const std::map<std::string, std::string> cases = {
      {"chart_cycle", "7,7.2,S,,\n7.1,7,S,,\n7.2,7.1,S,,\n"},
      {"chart_unknown_parent", "7,,S,,\n7.1,8,S,,\n"},
      {"chart_duplicate", "7,,S,,\n7.1,7,S,,\n7.1,7,A,,\n"},
      {"chart_existing", "7,,S,,\n1.1,7,S,,\n"},
      {"chart_bad_level", "7,,S,,\n7.1,7,X,,\n"},
      {"chart_hostile_code", "7,,S,,\n7.1';--,7,A,,\n"},
  };
  for (const auto& [name, body] : cases) {
    WriteFile(dir_ + "/chart.csv",
              "CONTA,CONTA_SUPERIORA,NIVEL,NIVEL_DIVISAO,LANCAMENTO_DIVIDIDO\n" + body);
    const RunResult r = Expect(name, {"chart-import", "chart.csv"});
    EXPECT_EQ(r.exit_code, 1) << name;
    EXPECT_EQ(r.err.rfind("chart.csv:", 0), 0u) << name << ": " << r.err;
  }
  EXPECT_EQ(Count("select count(*) from CTB_CONTA"), before);
}

// ---- posting -------------------------------------------------------------------------

TEST_F(GoldenTest, PostWritesTwoEntriesPerRecord) {
  WriteFile(dir_ + "/entries.txt", TwoRecords());
  const long long before = Count("select count(*) from CTB_LANCAMENTO");
  const RunResult r = Expect("post", {"post", "entries.txt", "--document", "4711"});
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO"), before + 4);
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO where DOCUMENTO = 4711"), 4);
  // The second record's side mark credits its first account field.
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO where DOCUMENTO = 4711 and CONTA = "
                  "'5.1.1.01' and NATUREZA = 'C'"),
            1);
}

TEST_F(GoldenTest, PostFromStandardInput) {
  const long long before = Count("select count(*) from CTB_LANCAMENTO");
  const RunResult r = Expect("post_stdin", {"--format", "json", "post", "-"}, TwoRecords());
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(Json(r)["records"], 2);
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO"), before + 4);
}

TEST_F(GoldenTest, PostDryRunReportsAndWritesNothing) {
  WriteFile(dir_ + "/entries.txt", TwoRecords());
  const long long before = Count("select count(*) from CTB_LANCAMENTO");
  const RunResult r = Expect("post_dry_run", {"post", "entries.txt", "--dry-run"});
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_NE(r.out.find("entries.txt        2        4"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("5.1.1.01"), std::string::npos) << r.out;
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO"), before);

  // --list shows every record that would have been posted.
  const RunResult list =
      Expect("post_dry_run_list", {"post", "entries.txt", "--dry-run", "--list"});
  EXPECT_EQ(list.exit_code, 0);
  EXPECT_NE(list.out.find("5.1.1.01"), std::string::npos);
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO"), before);

  // --list means nothing without --dry-run.
  const RunResult alone = Run({"post", "entries.txt", "--list"});
  EXPECT_EQ(alone.exit_code, 2) << alone.err;
  EXPECT_NE(alone.err.find("--dry-run"), std::string::npos) << alone.err;
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO"), before);
}

// A large file showed nothing until it was posted. From a thousand records
// on, the posting shows its progress: plain lines at every ten percent when
// standard error is not a terminal (a bar with the rate when it is).
TEST_F(GoldenTest, PostOfAThousandRecordsShowsItsProgress) {
  std::string many;
  for (int i = 0; i < 500; ++i) many += TwoRecords();
  WriteFile(dir_ + "/many.txt", many);
  const RunResult r = Run({"post", "many.txt", "--dry-run"});
  EXPECT_EQ(r.exit_code, 0) << r.err;
  std::string expected;
  for (int percent = 0; percent <= 100; percent += 10)
    expected += fmt::format("progress: {}% ({} of 1000 records)\n", percent, percent * 10);
  expected += "dry run: 1000 records would be posted; nothing was written\n";
  EXPECT_EQ(r.err, expected);
  EXPECT_EQ(Run({"--quiet", "post", "many.txt", "--dry-run"}).err, "");

  // One record fewer: no progress.
  WriteFile(dir_ + "/fewer.txt", many.substr(many.find('\n') + 1));
  const RunResult fewer = Run({"post", "fewer.txt", "--dry-run"});
  EXPECT_EQ(fewer.exit_code, 0) << fewer.err;
  EXPECT_EQ(fewer.err, "dry run: 999 records would be posted; nothing was written\n");
}

TEST_F(GoldenTest, PostBadRecordNamesFileLineAndFieldAndPostsNothing) {
  std::string bad = TwoRecords();
  bad += Registro(RegistroCampos{}).substr(0, 120) + "\n";
  WriteFile(dir_ + "/entries.txt", bad);
  const long long before = Count("select count(*) from CTB_LANCAMENTO");
  const RunResult r = Expect("post_short_record", {"post", "entries.txt"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_EQ(r.err.rfind("entries.txt:3: ", 0), 0u) << r.err;
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO"), before);

  RegistroCampos u;
  u.conta2 = "9.9.9.99";  // not in the chart either: the day is reported first
  u.dia = "3x";
  WriteFile(dir_ + "/entries.txt", Registro(u) + "\n");
  const RunResult r3 = Expect("post_bad_day", {"post", "entries.txt"});
  EXPECT_EQ(r3.exit_code, 1);
  EXPECT_NE(r3.err.find("entries.txt:1: day (positions 37-38)"), std::string::npos) << r3.err;
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO"), before);
}

TEST_F(GoldenTest, PostWritesAnApostropheAsTheTypographicOne) {
  RegistroCampos q;
  q.yymm = "2406";
  q.historico = "D'AVILA E O'REILLY";
  q.conta1 = "1.1.1.01";
  q.conta2 = "3.1.1.01";
  WriteFile(dir_ + "/entries.txt", TwoRecords() + Registro(q) + "\n");
  const RunResult r = Expect("post_apostrophe", {"post", "entries.txt"});
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO where trim(HIS_COMPLEMENTAR) = "
                  "'D\u2019AVILA E O\u2019REILLY'"),
            2);
}

TEST_F(GoldenTest, PostErpWritesLinkedPairs) {
  WriteFile(dir_ + "/erp.txt", TwoRecords());
  const RunResult r = Expect("post_erp", {"post-erp", "erp.txt", "--document", "900"});
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO where DOCUMENTO = 900"), 4);
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO where DOCUMENTO = 900 and NATUREZA = 'D' "
                  "and LCO_ORIGEM is not null"),
            2);
}

// ---- balances ----------------------------------------------------------------------------

TEST_F(GoldenTest, BalanceOfAnAnalyticAccountMatchesTheJournal) {
  Expect("balance_table", {"balance", "1.1.1.01", "--month", "202406"});
  Expect("balance_csv", {"--format", "csv", "balance", "1.1.1.01", "--month", "202406"});
  const RunResult r =
      Expect("balance_json", {"--format", "json", "balance", "1.1.1.01", "--month", "202406"});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  const auto j = Json(r);
  EXPECT_EQ(j["account"], "1.1.1.01");
  EXPECT_EQ(j["month"], 202406);
  EXPECT_NEAR(j["balance"].get<double>(), SqlBalance("1.1.1.01", 202406), 0.005);
}

TEST_F(GoldenTest, BalanceOfASyntheticAccountAndWithFilters) {
  Expect("balance_synthetic", {"balance", "3", "--month", "202412"});
  Expect("balance_filters", {"balance", "3.1.1.01", "--month", "202412", "--cost-centres", "1,2",
                             "--exclude-dealerships", "3"});
  Expect("balance_filter_condition", {"balance", "3.1.1.01", "--month", "202412", "--filter",
                                      "{$ALIAS$}.HISTORICO_PADRAO in (10, 11)"});
  Expect("balance_general_monthly",
         {"balance", "1.1.1.01", "--month", "202403", "--general", "--monthly"});
  const RunResult missing =
      Expect("balance_unknown_account", {"balance", "8.8", "--month", "202401"});
  EXPECT_EQ(missing.exit_code, 1);
  // A cost-centre filter narrows a result account to part of its balance.
  const double all =
      Json(Run({"--format", "json", "balance", "3", "--month", "202412"}))["balance"];
  const double some = Json(Run(
      {"--format", "json", "balance", "3", "--month", "202412", "--cost-centre", "2"}))["balance"];
  EXPECT_NE(all, some);
  EXPECT_LT(std::fabs(some), std::fabs(all));
}

TEST_F(GoldenTest, MovementDayMovementAndOpening) {
  const RunResult m = Expect("movement", {"--format", "json", "movement", "3.1.1.01", "--from",
                                          "202401", "--to", "202406"});
  ASSERT_EQ(m.exit_code, 0) << m.err;
  EXPECT_NEAR(Json(m)["movement"].get<double>(),
              SqlBalance("3.1.1.01", 202406) - SqlBalance("3.1.1.01", 202312), 0.005);
  Expect("movement_by_division",
         {"movement", "3.1.1.01", "--from", "202401", "--to", "202412", "--by-division",
          "--cost-centre", "2", "--division-dealership", "1"});
  const RunResult d = Expect("day_movement", {"--format", "json", "day-movement", "3", "--month",
                                              "202403", "--from-day", "1", "--to-day", "15"});
  ASSERT_EQ(d.exit_code, 0) << d.err;
  EXPECT_NE(Json(d)["movement"].get<double>(), 0.0);
  const RunResult o =
      Expect("opening", {"--format", "json", "opening", "1.1.1.01", "--month", "202407"});
  ASSERT_EQ(o.exit_code, 0) << o.err;
  EXPECT_NEAR(Json(o)["balance"].get<double>(), SqlBalance("1.1.1.01", 202406), 0.005);
  EXPECT_EQ(Expect("opening_synthetic", {"opening", "1.1", "--month", "202407"}).exit_code, 1);
}

TEST_F(GoldenTest, TrialBalanceSumsSyntheticAccountsAndBalancesToZero) {
  const RunResult r =
      Expect("trial_balance_csv", {"--format", "csv", "trial-balance", "--month", "202412"});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  const RunResult j = Run({"--format", "json", "trial-balance", "--month", "202412"});
  const auto rows = Json(j);
  ASSERT_GT(rows.size(), 300u);
  std::map<std::string, double> children_sum, balance;
  std::vector<std::string> order;
  double roots = 0;
  for (const auto& row : rows) {
    const std::string account = row["account"];
    order.push_back(account);
    balance[account] = row["balance"];
    if (row["parent"].is_null())
      roots += row["balance"].get<double>();
    else
      children_sum[row["parent"]] += row["balance"].get<double>();
    if (row["level"] == "A") {
      EXPECT_NEAR(row["balance"].get<double>(), SqlBalance(account, 202412), 0.005) << account;
    }
  }
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  for (const auto& [parent, sum] : children_sum) EXPECT_NEAR(balance[parent], sum, 0.005) << parent;
  EXPECT_NEAR(roots, 0.0, 0.005);
  EXPECT_EQ(r.out.find("\""), std::string::npos);     // no grouping, nothing to quote
  EXPECT_EQ(r.out.find("total"), std::string::npos);  // CSV: one row per account
  // The table ends with the total of the top-level accounts.
  const RunResult table = Run({"trial-balance", "--month", "202412"});
  static const std::regex kTotal(R"(\ntotal +0\.00\n$)");
  EXPECT_TRUE(std::regex_search(table.out, kTotal)) << table.out.substr(table.out.size() - 200);
}

// ---- reports ----------------------------------------------------------------------------

TEST_F(GoldenTest, FourColumnTrialBalanceOpensDebitsCreditsAndClosesEveryAccount) {
  Expect("trial_balance_four_columns",
         {"trial-balance", "--from", "202401", "--to", "202412", "--depth", "2"});
  Expect("trial_balance_four_columns_csv", {"--format", "csv", "trial-balance", "--from", "202407",
                                            "--to", "202409", "--depth", "3", "--hide-zero"});
  const RunResult j =
      Run({"--format", "json", "trial-balance", "--from", "202404", "--to", "202406"});
  ASSERT_EQ(j.exit_code, 0) << j.err;
  const auto report = Json(j);
  EXPECT_TRUE(report["balanced"].get<bool>());
  EXPECT_FALSE(report["filtered"].get<bool>());
  EXPECT_NEAR(report["totals"]["debits"].get<double>(), report["totals"]["credits"].get<double>(),
              0.005);
  EXPECT_NEAR(report["totals"]["closing"].get<double>(), 0.0, 0.005);
  size_t analytic = 0;
  for (const auto& row : report["accounts"]) {
    if (row["type"] != "A") continue;
    ++analytic;
    const std::string account = row["account"];
    EXPECT_NEAR(row["opening"].get<double>(), SqlBalance(account, 202403), 0.005) << account;
    EXPECT_NEAR(row["closing"].get<double>(), SqlBalance(account, 202406), 0.005) << account;
    EXPECT_NEAR(
        row["opening"].get<double>() + row["debits"].get<double>() - row["credits"].get<double>(),
        row["closing"].get<double>(), 0.005)
        << account;
  }
  EXPECT_GT(analytic, 200u);
  // A cost centre's view need not balance, and the report says it is one.
  const RunResult filtered = Run({"trial-balance", "--from", "202401", "--to", "202412", "--depth",
                                  "1", "--cost-centre", "2"});
  ASSERT_EQ(filtered.exit_code, 0) << filtered.err;
  EXPECT_NE(filtered.out.find("a filtered view of the books"), std::string::npos) << filtered.out;
}

TEST_F(GoldenTest, FourColumnTrialBalanceRefusesMixedFormsAndYears) {
  EXPECT_EQ(
      Expect("trial_balance_two_years", {"trial-balance", "--from", "202407", "--to", "202503"})
          .exit_code,
      2);
  EXPECT_EQ(Expect("trial_balance_month_and_range",
                   {"trial-balance", "--month", "202412", "--from", "202401", "--to", "202412"})
                .exit_code,
            2);
  EXPECT_EQ(Run({"trial-balance", "--from", "202401"}).exit_code, 2);
  EXPECT_EQ(Run({"trial-balance", "--month", "202401", "--depth", "2"}).exit_code, 2);
  EXPECT_EQ(Run({"trial-balance", "--from", "202401", "--to", "202402", "--monthly"}).exit_code, 2);
  EXPECT_EQ(Run({"trial-balance", "--from", "202401", "--to", "202402", "--depth", "0"}).exit_code,
            2);
}

// An unbalanced journal (a debit without its credit) is said loudly: in the
// table, and on standard error in the machine formats.
TEST_F(GoldenTest, FourColumnTrialBalanceSaysLoudlyWhenTheBooksDoNotBalance) {
  Db()->Execute(
      "insert into CTB_LANCAMENTO (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, CONTA, NATUREZA, "
      "VAL_LANCAMENTO, DIA) values (1, 1, 202405, 99999, '1.1.1.01', 'D', 100.5, 3)",
      {});
  Expect("trial_balance_unbalanced",
         {"trial-balance", "--from", "202405", "--to", "202405", "--depth", "1"});
  const RunResult csv =
      Run({"--format", "csv", "trial-balance", "--from", "202405", "--to", "202405"});
  EXPECT_EQ(csv.exit_code, 0);
  EXPECT_NE(csv.err.find("THE BOOKS DO NOT BALANCE"), std::string::npos) << csv.err;
  const RunResult json =
      Run({"--format", "json", "trial-balance", "--from", "202405", "--to", "202405"});
  EXPECT_FALSE(Json(json)["balanced"].get<bool>());
}

TEST_F(GoldenTest, LedgerListsTheEntriesOfAnAccountWithItsRunningBalance) {
  Expect("ledger", {"ledger", "1.1.1.01", "--from", "202403", "--to", "202404"});
  Expect("ledger_synthetic_csv",
         {"--format", "csv", "ledger", "1.1.1", "--from", "202403", "--to", "202403"});
  const RunResult j =
      Run({"--format", "json", "ledger", "3.1.1.01", "--from", "202401", "--to", "202406"});
  ASSERT_EQ(j.exit_code, 0) << j.err;
  const auto ledger = Json(j);
  EXPECT_NEAR(ledger["opening"].get<double>(), SqlBalance("3.1.1.01", 202312), 0.005);
  EXPECT_NEAR(ledger["closing"].get<double>(), SqlBalance("3.1.1.01", 202406), 0.005);
  double running = ledger["opening"];
  for (const auto& e : ledger["entries"]) {
    running += e["debit"].get<double>() - e["credit"].get<double>();
    EXPECT_NEAR(e["balance"].get<double>(), running, 0.005);
  }
  EXPECT_EQ(static_cast<long long>(ledger["entries"].size()),
            Count("select count(*) from CTB_LANCAMENTO where CONTA = '3.1.1.01' and ANO_MES "
                  "between 202401 and 202406"));
  EXPECT_EQ(
      Expect("ledger_unknown_account", {"ledger", "9.9", "--from", "202401", "--to", "202401"})
          .exit_code,
      1);
}

TEST_F(GoldenTest, JournalAndExportListEveryEntryOfTheMonthsPairByPair) {
  Expect("journal", {"journal", "--from", "202403", "--to", "202403"});
  Expect("export_csv", {"--format", "csv", "export", "--from", "202403", "--to", "202403"});
  const RunResult ledger =
      Expect("export_ledger", {"export", "--from", "202412", "--to", "202412"});
  EXPECT_EQ(ledger.exit_code, 0);
  // One posting line per entry of the month, beside the opening balances.
  long long postings = 0;
  std::istringstream in(ledger.out);
  bool opening = false;
  for (std::string line; std::getline(in, line);) {
    if (line.find("opening balances") != std::string::npos) opening = true;
    if (line.empty()) opening = false;
    if (!opening && line.rfind("    ", 0) == 0 && line.rfind("    ;", 0) != 0) ++postings;
  }
  EXPECT_EQ(postings, Count("select count(*) from CTB_LANCAMENTO where ANO_MES = 202412"));
  EXPECT_EQ(Run({"--format", "json", "export", "--from", "202401", "--to", "202401"}).exit_code, 2);
  EXPECT_EQ(Expect("usage_ledger_format_elsewhere",
                   {"--format", "ledger", "balance", "1", "--month", "202401"})
                .exit_code,
            2);
}

TEST_F(GoldenTest, BalanceSheetAndIncomeStatementFollowTheChartAndBalance) {
  Expect("balance_sheet", {"balance-sheet", "--month", "202412", "--depth", "2"});
  Expect("income_statement",
         {"income-statement", "--from", "202401", "--to", "202412", "--depth", "2"});
  const auto sheet = Json(Run({"--format", "json", "balance-sheet", "--month", "202406"}));
  EXPECT_TRUE(sheet["balanced"].get<bool>());
  EXPECT_NEAR(
      sheet["total_assets"].get<double>(),
      sheet["total_liabilities_and_equity"].get<double>() + sheet["unclosed_result"].get<double>(),
      0.005);
  EXPECT_GT(sheet["total_assets"].get<double>(), 0.0);
  // The period's result is the result accounts' credits minus debits.
  const auto income =
      Json(Run({"--format", "json", "income-statement", "--from", "202403", "--to", "202409"}));
  const double journal =
      Db()->Query(
              "select coalesce(sum(case when NATUREZA = 'C' then VAL_LANCAMENTO else "
              "-VAL_LANCAMENTO end), 0) from CTB_LANCAMENTO where CONTA >= '3' and ANO_MES "
              "between 202403 and 202409",
              {})
          .rows.at(0)
          .at(0)
          .AsFloat();
  EXPECT_NEAR(income["result"].get<double>(), journal, 0.005);
  double months = 0;
  for (const auto& m : income["monthly"]) months += m["result"].get<double>();
  EXPECT_NEAR(months, journal, 0.005);
  EXPECT_EQ(income["monthly"].size(), 7u);
}

// The result calculation zeroes the result accounts with entries of its own;
// the income statement leaves them out and still shows what the year earned,
// and the balance sheet still balances with the result now in equity.
TEST_F(GoldenTest, IncomeStatementOfAClosedYearShowsWhatItEarned) {
  const double before = Json(Run(
      {"--format", "json", "income-statement", "--from", "202401", "--to", "202412"}))["result"];
  const RunResult closed =
      Run({"--quiet", "close-result", "--month", "202412", "--day", "31", "--year", "2024",
           "--history", "99", "--result-account", "2.9.1.01", "--confirm"});
  ASSERT_EQ(closed.exit_code, 0) << closed.err;
  const double after = Json(Run(
      {"--format", "json", "income-statement", "--from", "202401", "--to", "202412"}))["result"];
  EXPECT_NEAR(after, before, 0.005);
  EXPECT_NE(before, 0.0);
  EXPECT_TRUE(Json(Run({"--format", "json", "balance-sheet", "--month", "202412"}))["balanced"]
                  .get<bool>());
}

// Every report in every format it has, on the demo company.
TEST_F(GoldenTest, EveryReportInEveryFormat) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> reports = {
      {"trial_balance_four_columns",
       {"trial-balance", "--from", "202404", "--to", "202406", "--depth", "2"}},
      {"ledger", {"ledger", "1.1.1.02", "--from", "202405", "--to", "202405"}},
      {"journal", {"journal", "--from", "202402", "--to", "202402", "--division-rows"}},
      {"balance_sheet", {"balance-sheet", "--month", "202406", "--depth", "2"}},
      {"income_statement",
       {"income-statement", "--from", "202401", "--to", "202406", "--depth", "2"}},
  };
  for (const auto& [name, args] : reports) {
    for (const char* format : {"table", "csv", "json", "html"}) {
      if (name == "journal" && std::string(format) == "html") continue;
      std::vector<std::string> with_format = {"--format", format};
      with_format.insert(with_format.end(), args.begin(), args.end());
      const RunResult r = Expect(fmt::format("all_{}_{}", name, format), with_format);
      EXPECT_EQ(r.exit_code, 0) << name << " " << format << "\n" << r.err;
      if (std::string(format) == "json") {
        EXPECT_NO_THROW(Json(r)) << name;
      }
    }
  }
  EXPECT_EQ(Run({"--format", "html", "journal", "--from", "202402", "--to", "202402"}).exit_code,
            2);
  EXPECT_EQ(Run({"--format", "html", "trial-balance", "--month", "202402"}).exit_code, 2);
}

// The journal writes CSV and JSON month by month through RowWriter: the same
// text as Print gives for the same rows, none held.
TEST(RowWriterTest, WritesWhatPrintWrites) {
  Output output;
  output.columns = {"name", "amount", "count", "none"};
  output.rows = {{std::string("a, \"b\""), Amount{-1234.5}, int64_t{7}, Null{}},
                 {std::string("c"), Amount{0.004}, int64_t{-1}, Null{}}};
  for (Format format : {Format::kCsv, Format::kJson}) {
    std::ostringstream printed, written;
    Print(printed, output, format);
    RowWriter writer(written, output.columns, format);
    for (const auto& row : output.rows) writer.Row(row);
    writer.Finish();
    EXPECT_EQ(written.str(), printed.str());
    std::ostringstream empty_printed, empty_written;
    Print(empty_printed, Output{output.columns, {}, false}, format);
    RowWriter empty(empty_written, output.columns, format);
    empty.Finish();
    EXPECT_EQ(empty_written.str(), empty_printed.str());
  }
}

// The result calculation writes each closing entry and its counter-entry
// (numbered right after it) without an origin: the journal and the export
// keep them together as one balanced transaction.
TEST_F(GoldenTest, ExportKeepsTheResultCalculationsEntriesPaired) {
  const RunResult closed =
      Run({"--quiet", "close-result", "--month", "202412", "--day", "31", "--year", "2024",
           "--history", "99", "--result-account", "2.9.1.01", "--confirm"});
  ASSERT_EQ(closed.exit_code, 0) << closed.err;
  ASSERT_GT(Count("select count(*) from CTB_LANCAMENTO where ENCERRAMENTO_EXERCICIO = 'S'"), 0);
  const RunResult exported = Run({"--quiet", "export", "--from", "202412", "--to", "202412"});
  ASSERT_EQ(exported.exit_code, 0) << exported.err;
  EXPECT_EQ(exported.err, "");  // no unbalanced transaction
  EXPECT_EQ(exported.out.find("    ("), std::string::npos);
  const RunResult report =
      Run({"--format", "json", "trial-balance", "--from", "202412", "--to", "202412"});
  EXPECT_TRUE(Json(report)["balanced"].get<bool>());
}

// The result goes to a balance-sheet account: a result account would be
// closed by the very calculation that feeds it.
TEST_F(GoldenTest, CloseResultRefusesAResultAccountAsTheTarget) {
  EXPECT_EQ(Expect("close_result_into_result_account",
                   {"close-result", "--month", "202412", "--day", "31", "--year", "2024",
                    "--history", "99", "--result-account", "3.1.1.01", "--confirm"})
                .exit_code,
            2);
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO where ENCERRAMENTO_EXERCICIO = 'S'"), 0);
}

// The books exported in the plain-text accounting format give hledger, the
// independent tool, every account's balance of kvctb's trial balance to the
// cent.
TEST_F(GoldenTest, ExportedJournalGivesHledgerTheTrialBalanceToTheCent) {
  if (std::system("hledger --version > /dev/null 2>&1") != 0) {
    const char* require = std::getenv("KVC_REQUIRE_SERVERS");
    if (require && std::string(require) == "1")
      FAIL() << "hledger is required (scripts/install-deps.sh installs it)";
    GTEST_SKIP() << "hledger is not installed";
  }
  const RunResult exported = Run({"--quiet", "export", "--from", "202401", "--to", "202412"});
  ASSERT_EQ(exported.exit_code, 0) << exported.err;
  EXPECT_EQ(exported.err, "");
  WriteFile(dir_ + "/books.journal", exported.out);
  const std::string command =
      "hledger -f '" + dir_ + "/books.journal' balance --flat -O csv --no-total 2>&1";
  std::string csv;
  {
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) csv.append(buffer, n);
    ASSERT_EQ(pclose(pipe), 0) << csv;
  }
  // "account","balance" rows; the account's code is the last level's first
  // word.
  std::map<std::string, double> hledger;
  std::istringstream in(csv);
  std::string line;
  std::getline(in, line);
  ASSERT_EQ(line, "\"account\",\"balance\"");
  while (std::getline(in, line)) {
    const size_t split = line.find("\",\"");
    ASSERT_NE(split, std::string::npos) << line;
    const std::string name = line.substr(1, split - 1);
    const std::string amount = line.substr(split + 3, line.size() - split - 4);
    const std::string last = name.substr(name.rfind(':') + 1);
    hledger[last.substr(0, last.find(' '))] = std::stod(amount);
  }
  const auto report =
      Json(Run({"--format", "json", "trial-balance", "--from", "202401", "--to", "202412"}));
  size_t compared = 0;
  for (const auto& row : report["accounts"]) {
    if (row["type"] != "A") continue;
    const std::string account = row["account"];
    const double closing = row["closing"];
    const auto found = hledger.find(account);
    EXPECT_NEAR(found == hledger.end() ? 0.0 : found->second, closing, 0.005) << account;
    if (found != hledger.end()) {
      hledger.erase(found);
      ++compared;
    }
  }
  EXPECT_TRUE(hledger.empty()) << "hledger has an account kvctb does not: "
                               << hledger.begin()->first;
  EXPECT_GT(compared, 250u);
}

// --monthly reads the monthly balance tables, which the demo does not fill:
// refused until monthly-build has filled the months it reads, then the same
// balances as from the journal.
TEST_F(GoldenTest, MonthlyBalancesNeedTheMonthlyTablesAndThenMatchTheJournal) {
  const RunResult refused =
      Run({"--quiet", "balance", "3.1.1.01", "--month", "202406", "--monthly"});
  EXPECT_EQ(refused.exit_code, 1);
  EXPECT_EQ(refused.err,
            "kvctb: error: --monthly reads the movement of 202301 to 202406 from the monthly "
            "balance tables, which hold nothing for 202301, 202302, 202303, 202304, 202305, "
            "202306, 202307, 202308, 202309, 202310, 202311, 202312, 202401, 202402, 202403, "
            "202404, 202405, 202406: fill them from the journal with kvctb monthly-build --from "
            "202301 --to 202406\n");
  const RunResult built =
      Run({"--quiet", "--format", "json", "monthly-build", "--from", "202301", "--to", "202412"});
  ASSERT_EQ(built.exit_code, 0) << built.err;
  EXPECT_GT(Json(built)["account_months"].get<long long>(), 0);
  EXPECT_EQ(Count("select count(*) from CTB_SALANT_MES"),
            Count("select count(*) from (select distinct CONTA, ANO_MES from CTB_LANCAMENTO)"));
  for (const std::vector<std::string>& query :
       {std::vector<std::string>{"3.1.1.01", "--month", "202406"},
        {"3", "--month", "202406", "--cost-centres", "1,2"},
        {"1", "--month", "202312"},
        {"1.1.1.01", "--month", "202400"},
        {"5", "--month", "202412", "--cost-centre", "2"}}) {
    std::vector<std::string> args = {"--quiet", "--format", "json", "balance"};
    args.insert(args.end(), query.begin(), query.end());
    const RunResult journal = Run(args);
    args.push_back("--monthly");
    const RunResult monthly = Run(args);
    ASSERT_EQ(monthly.exit_code, 0) << monthly.err;
    EXPECT_NEAR(Json(monthly)["balance"].get<double>(), Json(journal)["balance"].get<double>(),
                0.005)
        << query[0];
  }
}

// ---- closing -----------------------------------------------------------------------------

TEST_F(GoldenTest, CloseResultPreviewChangesNothingAndConfirmClosesTheResultAccounts) {
  // As in the README and the demo: the result of the year before is
  // calculated, then that year is closed.
  ASSERT_EQ(Run({"--quiet", "close-result", "--month", "202312", "--day", "31", "--year", "2023",
                 "--history", "99", "--result-account", "2.9.1.01", "--confirm"})
                .exit_code,
            0);
  for (const char* group : {"3", "4", "5"}) {
    const auto j = Json(Run({"--format", "json", "balance", group, "--month", "202312"}));
    EXPECT_NEAR(j["balance"].get<double>(), 0.0, 0.005) << group;
  }
  ASSERT_EQ(Run({"--quiet", "close-year", "2023"}).exit_code, 0);
  const long long before = Count("select count(*) from CTB_LANCAMENTO");
  const std::vector<std::string> args = {"close-result", "--month",          "202412",  "--day",
                                         "31",           "--year",           "2024",    "--history",
                                         "99",           "--result-account", "2.9.1.01"};
  const RunResult preview = Expect("close_result_preview", args);
  EXPECT_EQ(preview.exit_code, 0);
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO"), before);
  // Scripts get numbers, the difference's side apart: the same totals as the
  // table's "9,718,509.66 C", "3,888,701.01 D" and "5,829,808.65 C".
  auto json_args = args;
  json_args.insert(json_args.begin(), {"--format", "json"});
  const auto totals = Json(Run(json_args));
  EXPECT_NEAR(totals["credit"].get<double>(), 9718509.66, 0.001) << totals;
  EXPECT_NEAR(totals["debit"].get<double>(), 3888701.01, 0.001) << totals;
  EXPECT_NEAR(totals["difference"].get<double>(), 5829808.65, 0.001) << totals;
  EXPECT_EQ(totals["difference_side"], "C") << totals;
  EXPECT_EQ(totals["confirmed"], false) << totals;
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO"), before);
  auto confirm_args = args;
  confirm_args.push_back("--confirm");
  const RunResult confirm = Expect("close_result_confirm", confirm_args);
  EXPECT_EQ(confirm.exit_code, 0);
  EXPECT_GT(Count("select count(*) from CTB_LANCAMENTO"), before);
  for (const char* group : {"3", "4", "5"}) {
    const auto j = Json(Run({"--format", "json", "balance", group, "--month", "202412"}));
    EXPECT_NEAR(j["balance"].get<double>(), 0.0, 0.005) << group;
  }
}

TEST_F(GoldenTest, CloseYearWritesTheCarriedForwardBalances) {
  const RunResult r = Expect("close_year", {"close-year", "2023", "--errors", "errors.json"});
  EXPECT_EQ(r.exit_code, 0);
  // No empty table: the user is told that there were no error rows.
  EXPECT_EQ(r.out, "no error rows\n");
  EXPECT_EQ(nlohmann::json::parse(ReadFile(dir_ + "/errors.json")), nlohmann::json::array());
  EXPECT_EQ(Count("select count(*) from CTB_SALDO_ANTERIOR where ANO = 2023"),
            Count("select count(*) from CTB_CONTA"));
  auto c = Db();
  const double stored =
      c->Query("select SALDO from CTB_SALDO_ANTERIOR where ANO = 2023 and CONTA = '1.1.1.01'", {})
          .rows.at(0)
          .at(0)
          .AsFloat();
  EXPECT_NEAR(stored, SqlBalance("1.1.1.01", 202312), 0.005);
  // Quiet: the same data, no progress.
  const RunResult q = Run({"--quiet", "close-year", "2023"});
  EXPECT_EQ(q.exit_code, 0);
  EXPECT_EQ(q.err, "");
  // Scripts keep an empty list.
  const RunResult j = Run({"--quiet", "--format", "json", "close-year", "2023"});
  EXPECT_EQ(j.exit_code, 0);
  EXPECT_EQ(nlohmann::json::parse(j.out), nlohmann::json::array());
}

// By default the closing is rolled back; --keep-partial commits what it
// wrote and exits 3. Both print and save the error rows.
TEST_F(GoldenTest, CloseYearWithFailedInsertsRollsBackOrKeepsThePartAndSavesTheErrorRows) {
  Db()->Execute(
      "create trigger block_insert before insert on CTB_SALDO_ANTERIOR when new.CONTA = "
      "'1.1.1.02' begin select raise(fail, 'blocked by the test'); end",
      {});
  const std::string closed_before = "select count(*) from CTB_SALDO_ANTERIOR where ANO = 2023";
  ASSERT_EQ(Count(closed_before), 0);
  const RunResult rolled_back =
      Expect("close_year_error_rows",
             {"--format", "csv", "close-year", "2023", "--errors", "errors.json"});
  EXPECT_EQ(rolled_back.exit_code, 1);
  EXPECT_EQ(Count(closed_before), 0);
  EXPECT_EQ(nlohmann::json::parse(ReadFile(dir_ + "/errors.json")).size(), 1u);

  const RunResult r = Expect(
      "close_year_keep_partial",
      {"--format", "csv", "close-year", "2023", "--errors", "errors.json", "--keep-partial"});
  EXPECT_EQ(r.exit_code, 3);
  EXPECT_GT(Count(closed_before), 0);
  const auto rows = nlohmann::json::parse(ReadFile(dir_ + "/errors.json"));
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_NE(rows[0]["SQL"].get<std::string>().find("1.1.1.02"), std::string::npos);
  EXPECT_NE(rows[0]["EMESSAGE"].get<std::string>().find("blocked by the test"), std::string::npos);
  for (const char* f : {"DTA_ERRO", "MENSAGEM", "SQL", "EMESSAGE"})
    EXPECT_TRUE(rows[0].contains(f)) << f;
}

TEST_F(GoldenTest, CloseYearRefusedForASelfReferencingAccount) {
  Db()->Execute(
      "insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, NIVEL) values "
      "(1, 1, '9', '9', 'S')",
      {});
  const RunResult r = Expect("close_year_refused", {"close-year", "2023"});
  EXPECT_EQ(r.exit_code, 1);
  EXPECT_NE(r.err.find("Encerramento Anual Cancelado"), std::string::npos);
  EXPECT_EQ(Count("select count(*) from CTB_SALDO_ANTERIOR where ANO = 2023"), 0);
}

TEST_F(GoldenTest, RollupAndRebuild) {
  ASSERT_EQ(Run({"--quiet", "close-year", "2023"}).exit_code, 0);
  Db()->Execute("update CTB_SALDO_ANTERIOR set SALDO = 0 where ANO = 2023 and CONTA = '1'", {});
  EXPECT_EQ(Expect("rollup", {"rollup", "2023"}).exit_code, 0);
  auto saldo = [&](const std::string& conta) {
    return Db()
        ->Query("select SALDO from CTB_SALDO_ANTERIOR where ANO = 2023 and CONTA = '" + conta + "'",
                {})
        .rows.at(0)
        .at(0)
        .AsFloat();
  };
  EXPECT_NEAR(saldo("1"), saldo("1.1") + saldo("1.2") + saldo("1.3"), 0.005);
  EXPECT_EQ(Expect("rollup_by_division", {"rollup", "2023", "--by-division"}).exit_code, 0);
  Db()->Execute("update CTB_SALDO_ANTERIOR set SALDO = 0 where ANO = 2023 and CONTA = '1'", {});
  EXPECT_EQ(Expect("rebuild", {"rebuild", "2023"}).exit_code, 0);
  EXPECT_NEAR(saldo("1"), saldo("1.1") + saldo("1.2") + saldo("1.3"), 0.005);
  EXPECT_NE(saldo("1"), 0.0);
  EXPECT_EQ(Expect("rebuild_by_division", {"rebuild", "2023", "--by-division"}).exit_code, 0);
}

// ---- entries and lookups ------------------------------------------------------------------

TEST_F(GoldenTest, DeleteEntryRemovesItAndItsPair) {
  const auto row = Db()->Query(
                           "select LANCAMENTO, DIA from CTB_LANCAMENTO where ANO_MES = 202403 "
                           "and LCO_ORIGEM is null order by LANCAMENTO",
                           {})
                       .rows.at(0);
  const std::string entry = row.at(0).AsString(), day = row.at(1).AsString();
  EXPECT_EQ(
      Expect("delete_entry", {"delete-entry", entry, "--month", "202403", "--day", day}).exit_code,
      0);
  EXPECT_EQ(Count("select count(*) from CTB_LANCAMENTO where ANO_MES = 202403 and (LANCAMENTO = " +
                  entry + " or LCO_ORIGEM = " + entry + ")"),
            0);
  EXPECT_EQ(
      Expect("delete_entry_missing", {"delete-entry", entry, "--month", "202403", "--day", day})
          .exit_code,
      1);
}

TEST_F(GoldenTest, CostCentreAndInvoiceTextLookups) {
  EXPECT_EQ(Expect("cost_centre", {"cost-centre", "4"}).exit_code, 0);
  EXPECT_EQ(Expect("cost_centre_inactive", {"cost-centre", "9", "--active-only"}).exit_code, 1);
  EXPECT_EQ(Run({"cost-centre", "9"}).exit_code, 0);
  const RunResult inv =
      Expect("invoice_text", {"--format", "json", "invoice-text", "1", "--month", "202401"});
  ASSERT_EQ(inv.exit_code, 0) << inv.err;
  EXPECT_EQ(Json(inv).size(), 3u);
  EXPECT_EQ(Expect("invoice_text_none", {"invoice-text", "2", "--month", "202402"}).exit_code, 1);
}

// ---- the trace ---------------------------------------------------------------------------

TEST_F(GoldenTest, TraceSqlWritesOneJsonObjectPerStatement) {
  const RunResult r =
      Run({"--trace-sql", "trace.jsonl", "balance", "1.1.1.01", "--month", "202406"});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  const std::string trace = ReadFile(dir_ + "/trace.jsonl");
  size_t lines = 0, start = 0;
  bool saw_journal = false;
  while (start < trace.size()) {
    const size_t end = trace.find('\n', start);
    const auto j = nlohmann::json::parse(trace.substr(start, end - start));
    EXPECT_TRUE(j.contains("sql") && j.contains("params"));
    saw_journal = saw_journal ||
                  j["sql"].get<std::string>().find("CTB_LANCAMENTO") != std::string::npos ||
                  j["sql"].get<std::string>().find("ctb_lancamento") != std::string::npos;
    ++lines;
    start = end + 1;
  }
  EXPECT_GT(lines, 2u);
  EXPECT_TRUE(saw_journal);
}

TEST_F(GoldenTest, AmountsKeepAPointUnderACommaLocale) {
  const RunResult r = RunKvctb(
      {"--db", "sqlite:demo.db", "--format", "csv", "balance", "1.1.1.01", "--month", "202406"},
      {dir_, {{"LC_ALL", "pt_BR.UTF-8"}}, ""});
  ASSERT_EQ(r.exit_code, 0) << r.err;
  const RunResult c = Run({"--format", "csv", "balance", "1.1.1.01", "--month", "202406"});
  EXPECT_EQ(r.out, c.out);
  EXPECT_NE(r.out.find("."), std::string::npos);
}

}  // namespace
}  // namespace kvc::cli::testing
