// Crash consistency of kvctb on SQLite: the tool is started on a copy of the
// demo database and killed after a random delay (SIGKILL, SIGINT or
// SIGTERM). Afterwards the file must pass SQLite's integrity check, hold
// either everything the command writes or nothing of it (every table
// compared with the dumps before and after an uninterrupted run), and keep
// the journal's debits equal to its credits. SIGINT and SIGTERM must also be
// reported on standard error as the tool documents.
//
// Environment:
//   KVC_CRASH_KILLS=N          SIGKILL kills of post and close-result together
//                              (three quarters post); default 200, 24 in the
//                              sanitizer build (which also posts a smaller file)
//   KVC_CRASH_SIGNAL_KILLS=N   SIGINT kills, and as many SIGTERM kills; default
//                              20, 8 in the sanitizer build
//   KVC_CRASH_CLOSE_YEAR_KILLS=N  SIGKILL kills of close-year; default 20, 4 in
//                              the sanitizer build
//   KVC_CRASH_SEED=S           replay the kill of seed S alone (in each test run)
//   KVC_CRASH_BASE_SEED=S      the seed of the first kill (default: random)
//
// Each test prints one summary line starting with "crash-figures:" that
// scripts/crash-run.sh adds up.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <thread>

#include "cli/kvctb_process.h"
#include "support/records.h"

namespace kvc::cli::testing {
namespace {
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// ---- the database file as a later run finds it ----------------------------------------

// Every table's rows as text (columns separated by \x1f, null as \N), each
// table's rows sorted.
using Dump = std::map<std::string, std::vector<std::string>>;

class SqliteFile {
 public:
  // Opens `path` for reading and writing, as the next run of the tool does:
  // a rollback journal left by a killed process is played back here.
  explicit SqliteFile(const std::string& path) {
    if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK)
      throw std::runtime_error("cannot open " + path + ": " + sqlite3_errmsg(db_));
    sqlite3_busy_timeout(db_, 10000);
  }
  ~SqliteFile() { sqlite3_close(db_); }
  SqliteFile(const SqliteFile&) = delete;
  SqliteFile& operator=(const SqliteFile&) = delete;

  // The rows of `sql`, each as one text.
  std::vector<std::string> Rows(const std::string& sql) {
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &st, nullptr) != SQLITE_OK)
      throw std::runtime_error(sql + ": " + sqlite3_errmsg(db_));
    std::vector<std::string> rows;
    int rc;
    while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
      std::string row;
      for (int i = 0; i < sqlite3_column_count(st); ++i) {
        if (i) row += '\x1f';
        const unsigned char* text = sqlite3_column_text(st, i);
        row += text ? reinterpret_cast<const char*>(text) : "\\N";
      }
      rows.push_back(std::move(row));
    }
    const std::string error = sqlite3_errmsg(db_);
    sqlite3_finalize(st);
    if (rc != SQLITE_DONE) throw std::runtime_error(sql + ": " + error);
    return rows;
  }

  std::string IntegrityCheck() {
    std::string text;
    for (const std::string& row : Rows("pragma integrity_check")) text += row;
    return text;
  }

  Dump All() {
    Dump dump;
    for (const std::string& table :
         Rows("select name from sqlite_master where type = 'table' order by name")) {
      std::vector<std::string> rows = Rows("select * from \"" + table + "\"");
      std::sort(rows.begin(), rows.end());
      dump[table] = std::move(rows);
    }
    return dump;
  }

  // The journal's debits and credits in cents.
  std::pair<long long, long long> DebitsAndCredits() {
    const std::vector<std::string> rows = Rows(
        "select coalesce(sum(case when NATUREZA = 'D' then cast(round(VAL_LANCAMENTO * 100) as "
        "integer) end), 0), coalesce(sum(case when NATUREZA = 'C' then "
        "cast(round(VAL_LANCAMENTO * 100) as integer) end), 0) from CTB_LANCAMENTO");
    const std::string& row = rows.at(0);
    const size_t sep = row.find('\x1f');
    return {std::stoll(row.substr(0, sep)), std::stoll(row.substr(sep + 1))};
  }

 private:
  sqlite3* db_ = nullptr;
};

// Where `now` differs from both `before` and `after`: per table, the row
// counts of the three.
std::string DescribeDifference(const Dump& before, const Dump& now, const Dump& after) {
  std::ostringstream s;
  for (const auto& [table, rows] : now) {
    const auto b = before.find(table), a = after.find(table);
    const bool same_b = b != before.end() && b->second == rows;
    const bool same_a = a != after.end() && a->second == rows;
    if (same_b && same_a) continue;
    s << "  " << table << ": " << rows.size() << " rows (before "
      << (b == before.end() ? 0 : b->second.size()) << (same_b ? " =" : " ≠") << ", after "
      << (a == after.end() ? 0 : a->second.size()) << (same_a ? " =" : " ≠") << ")\n";
  }
  return s.str();
}

// ---- configuration --------------------------------------------------------------------

// The sanitizer build runs the tool several times slower: fewer kills there
// by default (the debug build runs the full count).
#ifdef KVC_SANITIZED_BUILD
constexpr int kDefaultKills = 24;
constexpr int kDefaultSignalKills = 8;
constexpr int kDefaultCloseYearKills = 4;
#else
constexpr int kDefaultKills = 200;
constexpr int kDefaultSignalKills = 20;
constexpr int kDefaultCloseYearKills = 20;
#endif

int EnvInt(const char* name, int fallback) {
  const char* v = std::getenv(name);
  return v && *v ? std::stoi(v) : fallback;
}

std::optional<uint64_t> ReplaySeed() {
  const char* v = std::getenv("KVC_CRASH_SEED");
  if (!v || !*v) return std::nullopt;
  return std::stoull(v);
}

uint64_t BaseSeed() {
  static const uint64_t base = [] {
    const char* v = std::getenv("KVC_CRASH_BASE_SEED");
    if (v && *v) return std::stoull(v);
    return static_cast<uint64_t>(std::random_device{}()) % 1000000000ull * 1000;
  }();
  return base;
}

// The seeds of a test's kills: the replayed one alone, or `count` from the
// base seed on (each test its own range).
std::vector<uint64_t> Seeds(int count, uint64_t offset) {
  if (auto s = ReplaySeed()) return {*s};
  std::vector<uint64_t> seeds;
  for (int i = 0; i < count; ++i) seeds.push_back(BaseSeed() + offset + static_cast<uint64_t>(i));
  return seeds;
}

// ---- the commands ----------------------------------------------------------------------

// One command run on a copy of a database, with the dumps before and after
// an uninterrupted run and the time that run took.
struct Scenario {
  std::string name;
  std::string template_db;
  std::vector<std::string> args;  // after "--db sqlite:demo.db --quiet"
  Dump before;
  Dump after;
  double seconds = 0;
};

std::vector<std::string> FullArgs(const std::vector<std::string>& args) {
  std::vector<std::string> full = {"--db", "sqlite:demo.db", "--quiet"};
  full.insert(full.end(), args.begin(), args.end());
  return full;
}

// A directory with a copy of `template_db` as demo.db.
std::string CopyOf(const std::string& template_db, const std::string& name) {
  const std::string dir = NewDirectory(name);
  fs::copy_file(template_db, dir + "/demo.db");
  return dir;
}

// Runs `args` to completion in `dir`; returns the seconds it took. Throws
// when it does not exit with 0.
double RunToCompletion(const std::vector<std::string>& args, const std::string& dir) {
  const auto start = Clock::now();
  const RunResult r = RunKvctb(FullArgs(args), In(dir));
  if (r.exit_code != 0)
    throw std::runtime_error("kvctb exited with " + std::to_string(r.exit_code) + ": " + r.err);
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Completes a scenario: the dump before, two uninterrupted runs (which must
// leave the same tables: the command is deterministic, or comparing with its
// result would prove nothing), their mean time.
Scenario Measured(std::string name, std::string template_db, std::vector<std::string> args) {
  Scenario s{std::move(name), std::move(template_db), std::move(args), {}, {}, 0};
  s.before = SqliteFile(s.template_db).All();
  Dump first;
  for (int run = 0; run < 2; ++run) {
    const std::string dir = CopyOf(s.template_db, s.name + "_reference");
    s.seconds += RunToCompletion(s.args, dir) / 2;
    Dump d = SqliteFile(dir + "/demo.db").All();
    if (run == 0)
      first = std::move(d);
    else if (d != first)
      throw std::runtime_error(s.name + ": two uninterrupted runs left different tables");
  }
  s.after = std::move(first);
  if (s.after == s.before) throw std::runtime_error(s.name + ": the command wrote nothing");
  return s;
}

#ifdef KVC_SANITIZED_BUILD
constexpr int kPostRecords = 500;
#else
constexpr int kPostRecords = 1200;
#endif

// `kPostRecords` valid records over the analytic accounts of the demo chart,
// from a fixed generator: the file is the same in every run.
std::string PostFile(const std::string& template_db) {
  const std::vector<std::string> accounts =
      SqliteFile(template_db).Rows("select CONTA from CTB_CONTA where NIVEL = 'A' order by CONTA");
  std::mt19937 g(20240615);
  std::string text;
  for (int i = 0; i < kPostRecords; ++i) {
    kvc::testing::RegistroCampos r;
    const unsigned month = 1 + g() % 12;
    r.yymm = (month < 10 ? "240" : "24") + std::to_string(month);
    r.dia = std::to_string(10 + g() % 19);
    r.historico = "CARGA " + std::to_string(i + 1);
    r.conta1 = accounts[g() % accounts.size()];
    r.conta2 = accounts[g() % accounts.size()];
    r.marca = g() % 4 == 0 ? "-" : " ";
    r.codigo_divisao = g() % 5 == 0 ? "" : std::to_string(1 + g() % 8);
    r.centavos = 100 + g() % 5000000;
    text += kvc::testing::Registro(r) + "\n";
  }
  return text;
}

const Scenario& PostScenario() {
  static const Scenario s = [] {
    const std::string dir = DirectoryWithDemo("crash_post_template");
    const std::string file = dir + "/records.txt";
    WriteFile(file, PostFile(dir + "/demo.db"));
    return Measured("post", dir + "/demo.db", {"post", file, "--document", "777"});
  }();
  return s;
}

const std::vector<std::string> kCloseResultArgs = {
    "close-result", "--month", "202412",           "--day",    "31",       "--year", "2024",
    "--history",    "99",      "--result-account", "2.9.1.01", "--confirm"};

const Scenario& CloseResultScenario() {
  static const Scenario s = [] {
    // As in the README: the year before is closed first.
    const std::string dir = DirectoryWithDemo("crash_close_result_template");
    RunToCompletion({"close-year", "2023"}, dir);
    return Measured("close-result", dir + "/demo.db", kCloseResultArgs);
  }();
  return s;
}

// ---- one kill --------------------------------------------------------------------------

enum class Found { kNothing, kEverything };

struct Kill {
  Found found = Found::kNothing;
  bool journal_left = false;  // a rollback journal was beside the file
  bool handled = false;       // SIGINT/SIGTERM: the tool's handler answered
};

// The delay before the signal: half of the draws anywhere in the run (and a
// little after), half near its end, where the commit is.
std::chrono::microseconds Delay(uint64_t seed, double seconds) {
  std::mt19937_64 g(seed);
  const double t = seconds * 1e6;
  const bool near_end = g() % 2 == 1;
  const double lo = near_end ? 0.8 * t : 0.0, hi = 1.1 * t;
  return std::chrono::microseconds(
      static_cast<long long>(lo + (hi - lo) * (static_cast<double>(g() % 1000000) / 1e6)));
}

std::string SignalName(int signal) {
  return signal == SIGKILL ? "SIGKILL" : signal == SIGINT ? "SIGINT" : "SIGTERM";
}

// Starts `args` in `dir`, signals it after
// the seed's delay and waits for it. Returns what it printed and how it ended.
RunResult StartAndSignal(const std::vector<std::string>& args, const std::string& dir,
                         std::chrono::microseconds delay, int signal) {
  const RunningKvctb running = StartKvctb(FullArgs(args), In(dir));
  std::this_thread::sleep_for(delay);
  kill(running.pid, signal);
  return WaitKvctb(running);
}

// Checks the file of a killed run against `before` and `after`; adds a
// failure naming `context` when it is neither, is damaged, or does not
// balance. Returns which of the two it is (nullopt on failure).
std::optional<Found> CheckFile(const std::string& path, const Dump& before, const Dump& after,
                               const std::string& context, bool* journal_left = nullptr) {
  if (journal_left)
    *journal_left = fs::exists(path + "-journal") && fs::file_size(path + "-journal") > 0;
  SqliteFile db(path);
  const std::string integrity = db.IntegrityCheck();
  EXPECT_EQ(integrity, "ok") << context;
  const auto [debits, credits] = db.DebitsAndCredits();
  EXPECT_EQ(debits, credits) << context << "the journal does not balance";
  const Dump now = db.All();
  if (now == before) return Found::kNothing;
  if (now == after) return Found::kEverything;
  ADD_FAILURE() << context << "the database holds part of the command's work:\n"
                << DescribeDifference(before, now, after);
  return std::nullopt;
}

// The lines the tool writes on SIGINT and SIGTERM (with --quiet, the whole of
// its standard error).
std::string NothingWritten(int signal) {
  return "kvctb: interrupted (" + SignalName(signal) + "); nothing was written\n";
}
std::string Committed(int signal) {
  return "kvctb: interrupted (" + SignalName(signal) +
         ") after the changes were committed; they were kept\n";
}

std::optional<Kill> KillOnce(const Scenario& s, double seconds, uint64_t seed, int signal) {
  const auto delay = Delay(seed, seconds);
  const std::string dir = CopyOf(s.template_db, s.name + "_kill");
  const RunResult r = StartAndSignal(s.args, dir, delay, signal);
  std::ostringstream context;
  context << "[" << s.name << " " << SignalName(signal) << " seed " << seed
          << " (replay: KVC_CRASH_SEED=" << seed << "), delay "
          << static_cast<double>(delay.count()) / 1000 << " ms of a "
          << static_cast<int>(seconds * 1000) << " ms run, exit " << r.exit_code << ", stderr '"
          << r.err << "'] ";
  Kill k;
  const std::optional<Found> found =
      CheckFile(dir + "/demo.db", s.before, s.after, context.str(), &k.journal_left);
  if (!found) return std::nullopt;
  k.found = *found;
  const bool finished = r.signal == 0 && r.exit_code == 0;
  if (signal == SIGKILL) {
    EXPECT_TRUE(finished || r.signal == SIGKILL) << context.str();
  } else if (r.signal == signal) {
    // The default action: the signal came before main() installed the
    // handlers, when nothing can have been written.
    EXPECT_EQ(k.found, Found::kNothing) << context.str();
    EXPECT_EQ(r.err, "") << context.str();
  } else if (!finished) {
    k.handled = true;
    EXPECT_EQ(r.exit_code, 128 + signal) << context.str();
    EXPECT_EQ(r.err, k.found == Found::kNothing ? NothingWritten(signal) : Committed(signal))
        << context.str();
  }
  if (finished) {
    EXPECT_EQ(k.found, Found::kEverything) << context.str() << "exit 0 but not everything written";
    EXPECT_EQ(r.err, "") << context.str();
  }
  fs::remove_all(dir);
  return k;
}

// ---- the tallies -----------------------------------------------------------------------

struct Tally {
  int kills = 0, nothing = 0, everything = 0, journals = 0, handled = 0, failures = 0;

  void Add(const std::optional<Kill>& k) {
    ++kills;
    if (!k) {
      ++failures;
      return;
    }
    (k->found == Found::kNothing ? nothing : everything)++;
    journals += k->journal_left;
    handled += k->handled;
  }

  void Print(const std::string& what, double seconds) const {
    std::printf(
        "crash-figures: %s kills=%d nothing=%d everything=%d journals=%d handled=%d failures=%d "
        "seconds=%.1f base_seed=%llu\n",
        what.c_str(), kills, nothing, everything, journals, handled, failures, seconds,
        static_cast<unsigned long long>(BaseSeed()));
    std::fflush(stdout);
  }
};

// The machine's load changes during a long run, and delays drawn from a
// stale run time would all land early (or late) in the run: the run time is
// measured again before every kRemeasureEvery-th kill, on a copy that must
// end as the first uninterrupted runs did.
constexpr int kRemeasureEvery = 20;

double Remeasured(const Scenario& s) {
  const std::string dir = CopyOf(s.template_db, s.name + "_remeasure");
  const double seconds = RunToCompletion(s.args, dir);
  EXPECT_TRUE(SqliteFile(dir + "/demo.db").All() == s.after)
      << s.name << ": an uninterrupted run left different tables";
  fs::remove_all(dir);
  return seconds;
}

// Runs the kills of one scenario and signal; `offset` separates the seed
// ranges of the tests.
Tally KillMany(const Scenario& s, int signal, int count, uint64_t offset) {
  const auto start = Clock::now();
  Tally t;
  double seconds = s.seconds;
  for (uint64_t seed : Seeds(count, offset)) {
    if (t.kills > 0 && t.kills % kRemeasureEvery == 0) seconds = Remeasured(s);
    t.Add(KillOnce(s, seconds, seed, signal));
    if (::testing::Test::HasFatalFailure()) break;
  }
  t.Print(s.name + "/" + SignalName(signal),
          std::chrono::duration<double>(Clock::now() - start).count());
  return t;
}

int PostKills() { return EnvInt("KVC_CRASH_KILLS", kDefaultKills) * 3 / 4; }
int CloseResultKills() { return EnvInt("KVC_CRASH_KILLS", kDefaultKills) - PostKills(); }

// ---- the tests -------------------------------------------------------------------------

TEST(CrashTest, PostKilledAtRandomWritesEverythingOrNothing) {
  const Scenario& s = PostScenario();
  const Tally t = KillMany(s, SIGKILL, PostKills(), 0);
  EXPECT_EQ(t.failures, 0);
  // Both ends were reached, or the delays did not cover the run.
  if (!ReplaySeed() && t.kills >= 20) {
    EXPECT_GT(t.nothing, 0);
    EXPECT_GT(t.everything, 0);
  }
}

TEST(CrashTest, CloseResultKilledAtRandomWritesEverythingOrNothing) {
  const Scenario& s = CloseResultScenario();
  const Tally t = KillMany(s, SIGKILL, CloseResultKills(), 100000);
  EXPECT_EQ(t.failures, 0);
  if (!ReplaySeed() && t.kills >= 20) {
    EXPECT_GT(t.nothing, 0);
    EXPECT_GT(t.everything, 0);
  }
}

// SIGINT and SIGTERM, three quarters on post, the rest on close-result.
void InterruptAtRandom(int signal, uint64_t offset) {
  const int count = EnvInt("KVC_CRASH_SIGNAL_KILLS", kDefaultSignalKills);
  Tally post = KillMany(PostScenario(), signal, count * 3 / 4, offset);
  Tally close = KillMany(CloseResultScenario(), signal, count - count * 3 / 4, offset + 50000);
  EXPECT_EQ(post.failures + close.failures, 0);
  // The handler answered at least once, or it is not installed.
  if (!ReplaySeed() && count >= 8) {
    EXPECT_GT(post.handled + close.handled, 0);
  }
}

TEST(CrashTest, SigintSaysWhetherAnythingWasWritten) { InterruptAtRandom(SIGINT, 200000); }

TEST(CrashTest, SigtermSaysWhetherAnythingWasWritten) { InterruptAtRandom(SIGTERM, 300000); }

// close-year killed at random moments, then run again to completion: the
// tables must equal those of one uninterrupted run (killed before its
// commit) or of two (killed after it).
TEST(CrashTest, CloseYearKilledThenRunAgainEqualsAnUninterruptedRun) {
  static const Scenario once = [] {
    const std::string dir = DirectoryWithDemo("crash_close_year_template");
    return Measured("close-year", dir + "/demo.db", {"close-year", "2023"});
  }();
  Dump twice;
  {
    const std::string dir = CopyOf(once.template_db, "close_year_twice");
    RunToCompletion(once.args, dir);
    RunToCompletion(once.args, dir);
    twice = SqliteFile(dir + "/demo.db").All();
  }
  const auto start = Clock::now();
  Tally t;
  double seconds = once.seconds;
  for (uint64_t seed :
       Seeds(EnvInt("KVC_CRASH_CLOSE_YEAR_KILLS", kDefaultCloseYearKills), 400000)) {
    if (t.kills > 0 && t.kills % kRemeasureEvery == 0) seconds = Remeasured(once);
    const auto delay = Delay(seed, seconds);
    const std::string dir = CopyOf(once.template_db, "close_year_kill");
    const RunResult r = StartAndSignal(once.args, dir, delay, SIGKILL);
    std::ostringstream context;
    context << "[close-year SIGKILL seed " << seed << " (replay: KVC_CRASH_SEED=" << seed
            << "), delay " << static_cast<double>(delay.count()) / 1000 << " ms of a "
            << static_cast<int>(seconds * 1000) << " ms run, exit " << r.exit_code << "] ";
    bool journal_left = false;
    const std::optional<Found> found =
        CheckFile(dir + "/demo.db", once.before, once.after, context.str(), &journal_left);
    const bool finished = r.signal == 0 && r.exit_code == 0;
    EXPECT_TRUE(finished || r.signal == SIGKILL) << context.str();
    if (finished) {
      EXPECT_EQ(found, Found::kEverything) << context.str();
    }
    std::optional<Kill> k;
    if (found) {
      // Run again to completion.
      const RunResult again = RunKvctb(FullArgs(once.args), In(dir));
      EXPECT_EQ(again.exit_code, 0) << context.str() << again.err;
      const Dump& expected = *found == Found::kNothing ? once.after : twice;
      const Dump now = SqliteFile(dir + "/demo.db").All();
      EXPECT_TRUE(now == expected)
          << context.str() << "after the second run the tables differ from "
          << (*found == Found::kNothing ? "one" : "two") << " uninterrupted run(s):\n"
          << DescribeDifference(expected, now, expected);
      if (now == expected) k = Kill{*found, journal_left, false};
    }
    t.Add(k);
    fs::remove_all(dir);
  }
  t.Print("close-year/SIGKILL+rerun", std::chrono::duration<double>(Clock::now() - start).count());
  EXPECT_EQ(t.failures, 0);
}

}  // namespace
}  // namespace kvc::cli::testing
