// The main kvctb commands on a Firebird server, when KVC_TEST_FIREBIRD names
// one ("USER:PASSWORD@HOST:/writable/directory"): a database is created,
// the demo company loaded, and the answers compared with the same commands
// on SQLite (the demo company is the same on every server).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "accounting/db/backends/backend_hooks.h"
#include "cli/kvctb_process.h"
#include "support/firebird_target.h"

namespace kvc::cli::testing {
namespace {

TEST(FirebirdSmokeTest, MainCommandsAnswerAsOnSqlite) {
  kvc::testing::FirebirdTarget t;
  if (!kvc::testing::ParseFirebirdTarget(t)) {
    const char* require = std::getenv("KVC_REQUIRE_SERVERS");
    if (require && std::string(require) == "1") FAIL() << "KVC_TEST_FIREBIRD is required";
    GTEST_SKIP() << "KVC_TEST_FIREBIRD not set";
  }
  kvc::testing::ShutdownFirebirdClientAtExit();
  const std::string path = t.directory + "/kvctb_smoke_" + std::to_string(getpid()) + ".fdb";
  const std::string location = t.host + ":" + path;
  kvc::testing::DropFirebirdDatabaseIfThere(location, t);
  // init creates the database file, as it creates an SQLite file.
  const std::string url = "firebird://" + t.user + "@" + t.host + "/" + path;
  const std::string dir = NewDirectory("firebird_smoke");
  const std::string sqlite_dir = DirectoryWithDemo("firebird_smoke_sqlite");
  auto fb = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"--db", url, "--quiet"});
    return RunKvctb(args, {dir, {{"KVCTB_PASSWORD", t.password}}, ""});
  };
  auto lite = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"--db", "sqlite:demo.db", "--quiet"});
    return RunKvctb(args, {sqlite_dir, {}, ""});
  };
  const std::vector<std::vector<std::string>> commands = {
      {"--format", "json", "init", "--demo"},
      {"balance", "1.1.1.01", "--month", "202406"},
      {"balance", "3", "--month", "202412", "--cost-centres", "1,2", "--exclude-dealerships", "3"},
      {"movement", "3.1.1.01", "--from", "202401", "--to", "202406"},
      {"day-movement", "3", "--month", "202403", "--from-day", "1", "--to-day", "15"},
      {"opening", "1.1.1.01", "--month", "202407"},
      {"cost-centre", "4"},
      {"cost-centres"},
      {"division-types"},
      {"chart-export"},
      {"invoice-text", "1", "--month", "202401"},
      {"close-year", "2023"},
      {"rollup", "2023"},
      {"rebuild", "2023", "--by-division"},
      {"close-result", "--month", "202412", "--day", "31", "--year", "2024", "--history", "99",
       "--result-account", "2.9.1.01", "--confirm"},
      {"--format", "csv", "trial-balance", "--month", "202412"},
      // The reports, after the closings and the result calculation.
      {"--format", "csv", "trial-balance", "--from", "202401", "--to", "202412"},
      {"ledger", "1.1.1.01", "--from", "202403", "--to", "202404"},
      {"--format", "csv", "journal", "--from", "202412", "--to", "202412"},
      {"--format", "json", "balance-sheet", "--month", "202412"},
      {"--format", "json", "income-statement", "--from", "202401", "--to", "202412"},
      {"export", "--from", "202412", "--to", "202412"},
      {"--format", "html", "trial-balance", "--from", "202401", "--to", "202412"},
  };
  for (const auto& c : commands) {
    const RunResult f = fb(c);
    std::string shown;
    for (const auto& a : c) shown += a + " ";
    EXPECT_EQ(f.exit_code, 0) << shown << "\n" << f.err;
    if (c[0] == "--format" && c[2] == "init") continue;  // the SQLite copy was made earlier
    const RunResult l = lite(c);
    EXPECT_EQ(f.out, l.out) << shown;
  }
  kvc::testing::DropFirebirdDatabaseIfThere(location, t);
}

}  // namespace
}  // namespace kvc::cli::testing
