// The embedded engine's own time for a statement trace: runs the statements a
// kvctb run sent (the JSON lines of --trace-sql) on a copy of the SQLite file
// that run started from, straight through SQLite's C API with nothing of the
// module, its connection layer or its driver in between, and times SQLite's
// execution of them. With kvctb's session settings, no layer above SQLite can
// have the same statements executed in less: a target below this time cannot
// be met with them.
//
//   engine_floor DATABASE TRACE
//
// TRACE is a file (a named pipe works too, but a process writing it beside
// this one slows both on two cores). The session is kvctb's, its settings
// taken from the connection's SQLite dialect (a busy timeout, a second thread
// for large sorts, an 8 MiB page cache); the trace's own pragma statements
// (a posting's larger cache) run where they stand. Everything runs in one
// immediate transaction, committed at the end, as kvctb runs each operation
// it is used on (a posting, a closing, a roll-up) in one transaction.
//
// Each statement is prepared as kvctb's connection prepares it on SQLite: by
// its shape (the connection's scanner takes the literals out), kept and bound
// with the literals and the trace's parameter values (a name found whatever
// its case), so SQLite runs the very programs it runs under kvctb; a text
// with no shape (a pragma, a definition) is prepared on its own and, as in
// the connection, empties the set of kept statements. A statement the trace
// marks as failed is not run: kvctb's run went on without its effects.
//
// Only stepping is timed (the execution, rows read to the end, each column
// fetched; the clock is read twice a statement, some 40 ns in all); preparing,
// binding and the commit are reported apart. Prints one line,
//   statements N failed F execution S prepare P commit C skipped K
// (F: statements that failed here; K: those the trace marks as failed), then
// the five statement shapes (texts with the literals taken out) with the most
// execution time. A statement that fails is counted, the run goes on and the
// exit status is 1; on a line that is no traced statement nothing is
// committed and the exit status is 2.
#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "accounting/db/dialect.h"
#include "accounting/db/result_set.h"
#include "accounting/db/statement_shape.h"

namespace {

using Clock = std::chrono::steady_clock;

double Seconds(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

// A text's first 100 characters with each run of blanks as one, to name it
// in the report.
std::string Label(const std::string& sql) {
  std::string label;
  for (char c : sql) {
    if (c == ' ' && (label.empty() || label.back() == ' ')) continue;
    label += c;
    if (label.size() == 100) break;
  }
  return label;
}

struct Totals {
  long statements = 0;
  long failed = 0;
  long skipped = 0;
  double execution = 0;
  double prepare = 0;
  double commit = 0;
  // Execution seconds by statement shape (the prepared text).
  std::unordered_map<std::string, double> by_shape;
};

// Binds one value of the trace (JSON) to parameter `i`; false for a value
// of no SQL type.
bool BindJson(sqlite3_stmt* statement, int i, const nlohmann::json& value) {
  if (value.is_null()) return sqlite3_bind_null(statement, i) == SQLITE_OK;
  if (value.is_boolean())
    return sqlite3_bind_int(statement, i, value.get<bool>() ? 1 : 0) == SQLITE_OK;
  if (value.is_number_integer())
    return sqlite3_bind_int64(statement, i, value.get<sqlite3_int64>()) == SQLITE_OK;
  if (value.is_number()) return sqlite3_bind_double(statement, i, value.get<double>()) == SQLITE_OK;
  if (value.is_string())
    return sqlite3_bind_text(statement, i, value.get_ref<const std::string&>().c_str(), -1,
                             SQLITE_TRANSIENT) == SQLITE_OK;
  return false;
}

class Replay {
 public:
  static constexpr size_t kMaxPrepared = 256;

  explicit Replay(sqlite3* db) : db_(db) {}
  ~Replay() { Forget(); }
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  // Runs one traced statement; false when it failed (counted in `totals`).
  bool Run(const std::string& sql, const nlohmann::json& params, Totals& totals) {
    const Clock::time_point start = Clock::now();
    std::string why;
    sqlite3_stmt* statement = PreparedAndBound(sql, params, why);
    if (statement == nullptr) return Failed(sql, why, totals);
    const Clock::time_point bound = Clock::now();
    int rc = SQLITE_OK;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW)
      for (int c = 0; c < sqlite3_column_count(statement); ++c) sqlite3_column_value(statement, c);
    const Clock::time_point done = Clock::now();
    totals.prepare += Seconds(start, bound);
    totals.execution += Seconds(bound, done);
    totals.by_shape[sqlite3_sql(statement)] += Seconds(bound, done);
    const std::string error = rc == SQLITE_DONE ? "" : sqlite3_errmsg(db_);
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    return rc == SQLITE_DONE || Failed(sql, "step: " + error, totals);
  }

 private:
  // The statement SQLite runs for `sql` in kvctb, prepared and bound; nullptr
  // with the reason in `why` when SQLite refuses the text or a value, or the
  // trace has no value for a parameter.
  sqlite3_stmt* PreparedAndBound(const std::string& sql, const nlohmann::json& params,
                                 std::string& why) {
    const std::optional<kvc::db::StatementShape> shape = kvc::db::ShapeStatement(sql);
    if (!shape) Forget();  // as the connection does for a text with no shape
    sqlite3_stmt* statement = Prepared(shape ? shape->text : sql, shape ? shape->Key() : sql, why);
    if (statement == nullptr) return nullptr;
    if (!shape) {
      for (int i = 1; i <= sqlite3_bind_parameter_count(statement); ++i) {
        const char* name = sqlite3_bind_parameter_name(statement, i);
        if (name == nullptr || !Bind(statement, i, name + 1, params, why)) return nullptr;
      }
      return statement;
    }
    int i = 0;
    for (const kvc::db::ShapeSlot& slot : shape->slots) {
      ++i;
      bool ok = false;
      switch (slot.kind) {
        case kvc::db::ShapeSlot::Kind::kText:
          ok =
              sqlite3_bind_text(statement, i, slot.text.c_str(), -1, SQLITE_TRANSIENT) == SQLITE_OK;
          break;
        case kvc::db::ShapeSlot::Kind::kInteger:
          ok = sqlite3_bind_int64(statement, i, slot.integer) == SQLITE_OK;
          break;
        case kvc::db::ShapeSlot::Kind::kReal:
          ok = sqlite3_bind_double(statement, i, slot.real) == SQLITE_OK;
          break;
        case kvc::db::ShapeSlot::Kind::kPlaceholder:
          if (!Bind(statement, i, slot.text.c_str(), params, why)) return nullptr;
          ok = true;
          break;
      }
      if (!ok) {
        why = fmt::format("bind of value {}: {}", i, sqlite3_errmsg(db_));
        return nullptr;
      }
    }
    return statement;
  }

  // Binds the trace's value of parameter `name`, found as the connection
  // finds it (whatever the case of its letters).
  bool Bind(sqlite3_stmt* statement, int i, const char* name, const nlohmann::json& params,
            std::string& why) {
    for (const auto& [key, value] : params.items()) {
      if (!kvc::db::SameFieldName(key, name)) continue;
      if (BindJson(statement, i, value)) return true;
      why = fmt::format("bind of :{}: {}", name, sqlite3_errmsg(db_));
      return false;
    }
    why = fmt::format("the trace has no value for :{}", name);
    return false;
  }

  sqlite3_stmt* Prepared(const std::string& text, const std::string& key, std::string& why) {
    if (auto found = prepared_.find(key); found != prepared_.end()) return found->second;
    // As in the connection, a bounded set: texts that keep their literals
    // are each a shape of their own.
    if (prepared_.size() == kMaxPrepared) Forget();
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db_, text.c_str(), static_cast<int>(text.size()), &statement, nullptr) !=
            SQLITE_OK ||
        statement == nullptr) {
      why = std::string("prepare: ") + sqlite3_errmsg(db_);
      sqlite3_finalize(statement);
      return nullptr;
    }
    return prepared_.emplace(key, statement).first->second;
  }

  void Forget() {
    for (auto& [key, statement] : prepared_) sqlite3_finalize(statement);
    prepared_.clear();
  }

  bool Failed(const std::string& sql, const std::string& why, Totals& totals) {
    if (++totals.failed <= 5) fmt::print(stderr, "engine_floor: {}\n  {:.200}\n", why, sql);
    return false;
  }

  sqlite3* db_;
  std::unordered_map<std::string, sqlite3_stmt*> prepared_;
};

struct CloseDatabase {
  void operator()(sqlite3* db) const { sqlite3_close(db); }
};
using Database = std::unique_ptr<sqlite3, CloseDatabase>;

bool Execute(sqlite3* db, const char* sql) {
  char* error = nullptr;
  if (sqlite3_exec(db, sql, nullptr, nullptr, &error) == SQLITE_OK) return true;
  fmt::print(stderr, "engine_floor: {}: {}\n", sql, error != nullptr ? error : "failed");
  sqlite3_free(error);
  return false;
}

int Main(int argc, char** argv) {
  if (argc != 3) {
    fmt::print(stderr, "usage: engine_floor DATABASE TRACE\n");
    return 2;
  }
  sqlite3* opened = nullptr;
  const int rc = sqlite3_open_v2(argv[1], &opened, SQLITE_OPEN_READWRITE, nullptr);
  const Database db(opened);
  if (rc != SQLITE_OK) {
    fmt::print(stderr, "engine_floor: {}: {}\n", argv[1],
               db ? sqlite3_errmsg(db.get()) : "cannot open");
    return 2;
  }
  std::ifstream trace(argv[2]);
  if (!trace) {
    fmt::print(stderr, "engine_floor: {}: cannot read\n", argv[2]);
    return 2;
  }
  // kvctb's session settings on an SQLite file, from the connection's dialect.
  const kvc::db::Dialect& sqlite = kvc::db::DialectFor(kvc::db::ServerKind::kSqlite);
  for (const std::vector<std::string>& settings : {sqlite.SessionSetup(), sqlite.FirstUseSetup()})
    for (const std::string& setting : settings)
      if (!Execute(db.get(), setting.c_str())) return 2;
  if (!Execute(db.get(), "begin immediate")) return 2;

  Totals totals;
  {
    Replay replay(db.get());
    std::string line;
    long line_number = 0;
    while (std::getline(trace, line)) {
      ++line_number;
      nlohmann::json entry = nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false);
      if (!entry.is_object() || !entry.contains("sql") || !entry["sql"].is_string()) {
        fmt::print(stderr, "engine_floor: {} line {}: not a traced statement; nothing committed\n",
                   argv[2], line_number);
        Execute(db.get(), "rollback");
        return 2;
      }
      ++totals.statements;
      if (entry.value("failed", false)) {
        ++totals.skipped;
        continue;
      }
      replay.Run(entry["sql"].get_ref<const std::string&>(),
                 entry.value("params", nlohmann::json::object()), totals);
    }
  }
  const Clock::time_point commit = Clock::now();
  if (!Execute(db.get(), "commit")) return 2;
  totals.commit = Seconds(commit, Clock::now());

  fmt::print("statements {} failed {} execution {:.3f} prepare {:.3f} commit {:.3f} skipped {}\n",
             totals.statements, totals.failed, totals.execution, totals.prepare, totals.commit,
             totals.skipped);
  std::multimap<double, std::string, std::greater<>> slowest;
  for (const auto& [text, seconds] : totals.by_shape) slowest.emplace(seconds, text);
  int shown = 0;
  for (const auto& [seconds, text] : slowest) {
    if (shown++ == 5) break;
    fmt::print("  {:8.3f} s  {}\n", seconds, Label(text));
  }
  return totals.failed > 0 ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    fmt::print(stderr, "engine_floor: {}\n", error.what());
    return 2;
  }
}
