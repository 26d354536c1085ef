// The embedded engine's own time for a statement trace: runs the statements a
// kvctb run sent (the JSON lines of --trace-sql) on a copy of the SQLite file
// that run started from, straight through SQLite's C API with nothing of the
// module, its connection layer or its driver in between, and times SQLite's
// execution of them. No layer above SQLite can have the same statements
// executed in less: a target below this time cannot be met with them.
//
//   engine_floor DATABASE TRACE
//
// TRACE is a file (a named pipe works too, but a process writing it beside
// this one slows both on two cores). The session is kvctb's: a second thread
// for large sorts and an 8 MiB page cache; the trace's own pragma statements
// (a posting's larger cache) run where they stand. Everything runs in one
// immediate transaction, committed at the end: kvctb's own transactions
// could only add commits. Each statement is prepared as kvctb's connection
// prepares it on SQLite: by its shape (the connection's scanner takes the
// literals out), kept and bound with the literals and the trace's parameter
// values, so SQLite runs the very programs it runs under kvctb. Only stepping
// is timed (the execution, rows read to the end, each column fetched);
// preparing and the commit are reported apart. Prints one line,
//   statements N failed F execution S prepare P commit C
// then the five statement shapes (texts with the literals taken out) with
// the most execution time. A statement that fails is counted and the run
// goes on (kvctb logs some failures and goes on too); the exit status is 1
// when a statement failed, 2 on bad input.
#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

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

// kvctb's session settings on an SQLite file.
constexpr const char* kSessionSetup[] = {"pragma threads = 2", "pragma cache_size = -8192"};

struct Totals {
  long statements = 0;
  long failed = 0;
  double execution = 0;
  double prepare = 0;
  double commit = 0;
  // Execution seconds by statement shape (its first 100 characters).
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
  ~Replay() {
    for (auto& [key, statement] : prepared_) sqlite3_finalize(statement);
  }
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;

  // Runs one traced statement; false when SQLite refused it.
  bool Run(const std::string& sql, const nlohmann::json& params, Totals& totals) {
    const Clock::time_point start = Clock::now();
    sqlite3_stmt* statement = PreparedAndBound(sql, params);
    if (statement == nullptr) return Failed(sql, "prepare or bind");
    const Clock::time_point bound = Clock::now();
    int rc = SQLITE_OK;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW)
      for (int c = 0; c < sqlite3_column_count(statement); ++c) sqlite3_column_value(statement, c);
    const Clock::time_point done = Clock::now();
    totals.prepare += Seconds(start, bound);
    totals.execution += Seconds(bound, done);
    totals.by_shape[Label(sqlite3_sql(statement))] += Seconds(bound, done);
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    return rc == SQLITE_DONE || Failed(sql, "step");
  }

 private:
  // The statement SQLite runs for `sql` in kvctb: its shape's, the literals
  // and the placeholders bound (the connection's own scanner takes the text
  // apart), kept by the shape's key; a text with no shape (a pragma) is kept
  // by its text, its placeholders bound by name. Nullptr when SQLite refuses
  // the text or a value.
  sqlite3_stmt* PreparedAndBound(const std::string& sql, const nlohmann::json& params) {
    const std::optional<kvc::db::StatementShape> shape = kvc::db::ShapeStatement(sql);
    sqlite3_stmt* statement = Prepared(shape ? shape->text : sql, shape ? shape->Key() : sql);
    if (statement == nullptr) return nullptr;
    if (!shape) {
      for (int i = 1; i <= sqlite3_bind_parameter_count(statement); ++i) {
        const char* name = sqlite3_bind_parameter_name(statement, i);
        if (name == nullptr || !params.contains(name + 1) ||
            !BindJson(statement, i, params[name + 1]))
          return nullptr;
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
          ok = params.contains(slot.text) && BindJson(statement, i, params[slot.text]);
          break;
      }
      if (!ok) return nullptr;
    }
    return statement;
  }

  sqlite3_stmt* Prepared(const std::string& text, const std::string& key) {
    if (auto found = prepared_.find(key); found != prepared_.end()) return found->second;
    // As in the connection, a bounded set: texts that keep their literals
    // are each a shape of their own.
    if (prepared_.size() == kMaxPrepared) {
      for (auto& [old_key, old] : prepared_) sqlite3_finalize(old);
      prepared_.clear();
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db_, text.c_str(), static_cast<int>(text.size()), &statement, nullptr) !=
            SQLITE_OK ||
        statement == nullptr) {
      sqlite3_finalize(statement);
      return nullptr;
    }
    return prepared_.emplace(key, statement).first->second;
  }

  bool Failed(const std::string& sql, const char* where) {
    if (++failures_ <= 5)
      fmt::print(stderr, "engine_floor: {} failed: {}\n  {:.200}\n", where, sqlite3_errmsg(db_),
                 sql);
    return false;
  }

  sqlite3* db_;
  std::unordered_map<std::string, sqlite3_stmt*> prepared_;
  long failures_ = 0;
};

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
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(argv[1], &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
    fmt::print(stderr, "engine_floor: {}: {}\n", argv[1], db ? sqlite3_errmsg(db) : "cannot open");
    sqlite3_close(db);
    return 2;
  }
  std::ifstream trace(argv[2]);
  if (!trace) {
    fmt::print(stderr, "engine_floor: {}: cannot read\n", argv[2]);
    sqlite3_close(db);
    return 2;
  }
  for (const char* setup : kSessionSetup)
    if (!Execute(db, setup)) return 2;
  if (!Execute(db, "begin immediate")) return 2;

  Totals totals;
  int status = 0;
  {
    Replay replay(db);
    std::string line;
    long line_number = 0;
    while (std::getline(trace, line)) {
      ++line_number;
      nlohmann::json entry = nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false);
      if (!entry.is_object() || !entry.contains("sql") || !entry["sql"].is_string()) {
        fmt::print(stderr, "engine_floor: {} line {}: not a traced statement\n", argv[2],
                   line_number);
        status = 2;
        break;
      }
      ++totals.statements;
      if (!replay.Run(entry["sql"].get_ref<const std::string&>(),
                      entry.value("params", nlohmann::json::object()), totals))
        ++totals.failed;
    }
  }
  const Clock::time_point commit = Clock::now();
  if (!Execute(db, "commit")) status = 2;
  totals.commit = Seconds(commit, Clock::now());
  sqlite3_close(db);
  if (status != 0) return status;

  fmt::print("statements {} failed {} execution {:.3f} prepare {:.3f} commit {:.3f}\n",
             totals.statements, totals.failed, totals.execution, totals.prepare, totals.commit);
  std::multimap<double, std::string, std::greater<>> slowest;
  for (const auto& [text, seconds] : totals.by_shape) slowest.emplace(seconds, text);
  int shown = 0;
  for (const auto& [seconds, text] : slowest) {
    if (shown++ == 5) break;
    fmt::print("  {:8.3f} s  {}\n", seconds, text);
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
