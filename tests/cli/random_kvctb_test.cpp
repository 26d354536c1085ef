// Random sessions of kvctb commands on the small books: postings of good and
// bad records (some in closed periods, some reopened), deletions of either
// half of a pair and of entries that do not exist, result calculations and
// annual closings. After every command:
//
//   - a command that was refused (exit 1 or 2) left the database file byte
//     for byte as it was, with no rollback journal beside it;
//   - the journal's debits equal its credits;
//   - the top-level accounts of the trial balance (as kvctb prints it) sum
//     to zero.
//
// KVC_KVCTB_SEEDS=N runs seeds 1 to N (200 by default, 20 in the sanitizer
// build); KVC_KVCTB_SEED=S replays one seed, printing every command.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "accounting/db/connection.h"
#include "cli/kvctb_process.h"
#include "support/records.h"

namespace kvc::cli::testing {
namespace {

using kvc::testing::Registro;
using kvc::testing::RegistroCampos;

int Seeds() {
  if (const char* n = std::getenv("KVC_KVCTB_SEEDS")) return std::atoi(n);
#if defined(__SANITIZE_ADDRESS__)
  return 20;
#else
  return 200;
#endif
}

constexpr int kCommands = 12;
const char* const kAnalytic[] = {"1.1.1.01", "3.1.1.01", "5.1.1.01", "2.9.1.01"};

class Scenario {
 public:
  Scenario(unsigned seed, std::string dir)
      : rng_(seed), dir_(std::move(dir)), db_(dir_ + "/books.db") {}

  // Runs the scenario; returns the first broken invariant with the commands
  // so far, or "".
  std::string Run() {
    for (int i = 0; i < kCommands; ++i) {
      const std::vector<std::string> args = NextCommand();
      std::string shown;
      for (const auto& a : args) shown += " " + a;
      log_ += fmt::format("  {}: kvctb{}\n", i + 1, shown);
      const std::string before = ReadFile(db_);
      std::vector<std::string> all = {"--db", "sqlite:books.db", "--quiet"};
      all.insert(all.end(), args.begin(), args.end());
      const RunResult r = RunKvctb(all, In(dir_));
      log_ += fmt::format("     exit {}{}", r.exit_code, r.err.empty() ? "\n" : ": " + r.err);
      if (r.exit_code == 1 || r.exit_code == 2) {
        if (ReadFile(db_) != before) return "a refused command changed the database";
        if (FileExists(db_ + "-journal")) return "a refused command left a rollback journal";
      } else if (r.exit_code != 0) {
        return "unexpected exit code";
      }
      if (const std::string broken = CheckBooks(); !broken.empty()) return broken;
    }
    return "";
  }

  const std::string& Log() const { return log_; }

 private:
  int Pick(int n) { return static_cast<int>(rng_() % static_cast<unsigned>(n)); }

  // A record of 2024 on two different analytic accounts.
  RegistroCampos GoodRecord() {
    RegistroCampos c;
    const int month = 1 + Pick(12);
    c.yymm = fmt::format("24{:02}", month);
    c.dia = fmt::format("{:02}", 1 + Pick(28));
    c.historico = Pick(4) == 0 ? "D'AVILA" : "LANCAMENTO";
    const int a = Pick(4);
    c.conta1 = kAnalytic[a];
    c.conta2 = kAnalytic[(a + 1 + Pick(3)) % 4];
    c.marca = Pick(2) ? "-" : " ";
    c.centavos = 1 + Pick(1000000);
    c.codigo_divisao = Pick(2) ? "3" : "";
    return c;
  }

  // A record refused before anything is written.
  std::string BadRecord() {
    RegistroCampos c = GoodRecord();
    switch (Pick(4)) {
      case 0:
        c.conta2 = "9.9.9.99";  // not in the chart
        break;
      case 1:
        c.conta1 = "3";  // synthetic
        break;
      case 2:
        c.yymm = "2402";
        c.dia = "30";
        break;
      default:
        return Registro(c).substr(0, 100);
    }
    return Registro(c);
  }

  std::vector<std::string> NextCommand() {
    switch (Pick(10)) {
      case 0:
      case 1:
      case 2: {  // good records, sometimes into a closed period
        std::string text;
        for (int n = 1 + Pick(3); n > 0; --n) text += Registro(GoodRecord()) + "\n";
        WriteFile(dir_ + "/entries.txt", text);
        std::vector<std::string> args = {"post", "entries.txt", "--document",
                                         std::to_string(1 + Pick(3))};
        if (Pick(3) == 0) args.push_back("--reopen");
        return args;
      }
      case 3: {  // a bad record among good ones
        std::string text = Registro(GoodRecord()) + "\n" + BadRecord() + "\n";
        WriteFile(dir_ + "/entries.txt", text);
        return {"post", "entries.txt", "--reopen"};
      }
      case 4:
      case 5: {  // delete either half of a pair that stands, or nothing
        const auto rows = db::Connect("sqlite:" + db_)
                              ->Query(
                                  "select ANO_MES, LANCAMENTO, DIA from CTB_LANCAMENTO where "
                                  "ENCERRAMENTO_EXERCICIO is null order by ANO_MES, LANCAMENTO",
                                  {})
                              .rows;
        std::vector<std::string> args;
        if (rows.empty() || Pick(5) == 0) {
          args = {
              "delete-entry", std::to_string(900 + Pick(50)), "--month", "202406", "--day", "15"};
        } else {
          const auto& row = rows.at(static_cast<size_t>(Pick(static_cast<int>(rows.size()))));
          args = {"delete-entry", row.at(1).AsString(), "--month", row.at(0).AsString(),
                  "--day",        row.at(2).AsString()};
        }
        if (Pick(2) == 0) args.push_back("--reopen");
        return args;
      }
      case 6:
      case 7: {  // a result calculation up to the end of a month of 2024
        const int month = 1 + Pick(12);
        const int last = month == 2                                                ? 29
                         : (month == 4 || month == 6 || month == 9 || month == 11) ? 30
                                                                                   : 31;
        return {"close-result",
                "--month",
                fmt::format("2024{:02}", month),
                "--day",
                std::to_string(last),
                "--year",
                "2024",
                "--history",
                "99",
                "--result-account",
                "2.9.1.01",
                "--confirm"};
      }
      default:
        return {"close-year", "2024"};
    }
  }

  // The journal balances, and so does kvctb's trial balance.
  std::string CheckBooks() {
    const auto sums =
        db::Connect("sqlite:" + db_)
            ->Query(
                "select coalesce(sum(case when NATUREZA = 'D' then cast(round(VAL_LANCAMENTO "
                "* 100) as integer) end), 0), coalesce(sum(case when NATUREZA = 'C' then "
                "cast(round(VAL_LANCAMENTO * 100) as integer) end), 0) from CTB_LANCAMENTO",
                {})
            .rows.at(0);
    if (sums.at(0).AsInteger() != sums.at(1).AsInteger())
      return fmt::format("debits {} != credits {} (cents)", sums.at(0).AsInteger(),
                         sums.at(1).AsInteger());
    const RunResult t = RunKvctb({"--db", "sqlite:books.db", "--quiet", "--format", "json",
                                  "trial-balance", "--month", "202412"},
                                 In(dir_));
    if (t.exit_code != 0) return "trial-balance failed: " + t.err;
    double roots = 0;
    for (const auto& row : nlohmann::json::parse(t.out))
      if (row["parent"].is_null()) roots += row["balance"].get<double>();
    if (std::fabs(roots) > 0.005)
      return fmt::format("the top-level accounts of the trial balance sum to {:.2f}", roots);
    return "";
  }

  std::mt19937 rng_;
  std::string dir_;
  std::string db_;
  std::string log_;
};

TEST(RandomKvctbTest, EveryCommandKeepsTheBooksWholeOrChangesNothing) {
  std::vector<unsigned> seeds;
  if (const char* one = std::getenv("KVC_KVCTB_SEED"))
    seeds.push_back(static_cast<unsigned>(std::atoi(one)));
  else
    for (int s = 1; s <= Seeds(); ++s) seeds.push_back(static_cast<unsigned>(s));
  for (unsigned seed : seeds) {
    Scenario scenario(seed, DirectoryWithSmallBooks("random_" + std::to_string(seed)));
    const std::string broken = scenario.Run();
    ASSERT_EQ(broken, "") << "seed " << seed << " (replay: KVC_KVCTB_SEED=" << seed << "), after:\n"
                          << scenario.Log();
    if (seeds.size() == 1) std::cout << scenario.Log();
  }
}

}  // namespace
}  // namespace kvc::cli::testing
