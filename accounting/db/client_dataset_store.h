// The SQLite plumbing under ClientDataSet: the private in-memory database,
// its prepared statements, Values bound to and read from them, and SQLite's
// errors thrown as DatabaseError. Included only by the client dataset's own
// files (client_dataset*.cpp).
#ifndef KVC_DB_CLIENT_DATASET_STORE_H_
#define KVC_DB_CLIENT_DATASET_STORE_H_

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "accounting/db/transaction_guard.h"
#include "accounting/db/value.h"

namespace kvc::db::client_dataset_detail {

struct StmtDeleter {
  void operator()(sqlite3_stmt* s) const { sqlite3_finalize(s); }
};
using Stmt = std::unique_ptr<sqlite3_stmt, StmtDeleter>;

// Resets a statement on leaving the scope, so that none stays active between
// calls (an active statement would block DROP TABLE and keep a read open).
class ResetOnExit {
 public:
  explicit ResetOnExit(sqlite3_stmt* s) : s_(s) {}
  ~ResetOnExit() {
    sqlite3_reset(s_);
    sqlite3_clear_bindings(s_);
  }
  ResetOnExit(const ResetOnExit&) = delete;
  ResetOnExit& operator=(const ResetOnExit&) = delete;

 private:
  sqlite3_stmt* s_;
};

// A private in-memory SQLite database, opened on demand, with a bounded cache
// of prepared statements. A statement from Prepare belongs to the caller, who
// finalizes it before Close.
class SqliteStore {
 public:
  SqliteStore() = default;
  ~SqliteStore() { Close(); }
  SqliteStore(const SqliteStore&) = delete;
  SqliteStore& operator=(const SqliteStore&) = delete;

  // Opens the database unless it is open.
  void Open();
  // Finalizes the cached statements and closes the database.
  void Close();
  // Finalizes the cached statements.
  void ClearCache() { cache_.clear(); }

  void Exec(const std::string& sql);
  Stmt Prepare(const std::string& sql);
  // A prepared statement kept for reuse; the cache is bounded.
  sqlite3_stmt* Cached(const std::string& sql);

  void Bind(sqlite3_stmt* s, int index, const Value& v) const;
  // Steps a statement that returns no row.
  void StepDone(sqlite3_stmt* s) const;
  int64_t LastInsertRowid() const { return sqlite3_last_insert_rowid(db_); }

  // Throws the database's last error as a DatabaseError about `sql`.
  [[noreturn]] void Throw(const std::string& sql) const;

 private:
  friend TransactionGuard BeginTransaction(SqliteStore& store);

  sqlite3* db_ = nullptr;
  std::unordered_map<std::string, Stmt> cache_;
};

// BEGIN now, and the guard that ends it: COMMIT through its Commit() (a failed
// COMMIT raises, and the guard rolls back), ROLLBACK on leaving the scope
// without one. A failed BEGIN raises and leaves nothing to roll back.
TransactionGuard BeginTransaction(SqliteStore& store);

// Column `col` of the current row of `s` as a Value of `type`.
Value ReadColumn(sqlite3_stmt* s, int col, FieldType type);

}  // namespace kvc::db::client_dataset_detail

#endif  // KVC_DB_CLIENT_DATASET_STORE_H_
