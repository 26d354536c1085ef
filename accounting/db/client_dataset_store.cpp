#include "accounting/db/client_dataset_store.h"

#include <string_view>
#include <utility>

#include "accounting/db/error.h"

namespace kvc::db::client_dataset_detail {

void SqliteStore::Throw(const std::string& sql) const {
  throw DatabaseError(db_ ? sqlite3_errmsg(db_) : "out of memory", sql);
}

void SqliteStore::Open() {
  if (db_) return;
  sqlite3* handle = nullptr;
  int rc =
      sqlite3_open_v2(":memory:", &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  if (rc != SQLITE_OK) {
    std::string message = handle ? sqlite3_errmsg(handle) : sqlite3_errstr(rc);
    sqlite3_close(handle);
    throw DatabaseError(message, ":memory:");
  }
  db_ = handle;
}

void SqliteStore::Close() {
  ClearCache();
  if (db_) sqlite3_close(db_);
  db_ = nullptr;
}

void SqliteStore::Exec(const std::string& sql) {
  if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) Throw(sql);
}

Stmt SqliteStore::Prepare(const std::string& sql) {
  sqlite3_stmt* s = nullptr;
  if (sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size() + 1), &s, nullptr) !=
      SQLITE_OK) {
    sqlite3_finalize(s);
    Throw(sql);
  }
  return Stmt(s);
}

sqlite3_stmt* SqliteStore::Cached(const std::string& sql) {
  auto it = cache_.find(sql);
  if (it != cache_.end()) return it->second.get();
  if (cache_.size() >= 64) cache_.clear();
  Stmt s = Prepare(sql);
  sqlite3_stmt* raw = s.get();
  cache_.emplace(sql, std::move(s));
  return raw;
}

void SqliteStore::Bind(sqlite3_stmt* s, int index, const Value& v) const {
  int rc = SQLITE_OK;
  if (v.IsNull()) {
    rc = sqlite3_bind_null(s, index);
  } else if (v.IsInteger()) {
    rc = sqlite3_bind_int64(s, index, v.AsInteger());
  } else if (v.IsFloat()) {
    rc = sqlite3_bind_double(s, index, v.AsFloat());
  } else {
    std::string text = v.IsDateTime() ? v.AsDateTime().ToIso() : v.AsString();
    rc = sqlite3_bind_text64(s, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  }
  if (rc != SQLITE_OK) Throw(sqlite3_sql(s));
}

void SqliteStore::StepDone(sqlite3_stmt* s) const {
  if (sqlite3_step(s) != SQLITE_DONE) Throw(sqlite3_sql(s));
}

Value ReadColumn(sqlite3_stmt* s, int col, FieldType type) {
  if (sqlite3_column_type(s, col) == SQLITE_NULL) return Value();
  switch (type) {
    case FieldType::kInteger:
      return Value(static_cast<int64_t>(sqlite3_column_int64(s, col)));
    case FieldType::kFloat:
      return Value(sqlite3_column_double(s, col));
    case FieldType::kString:
    case FieldType::kDateTime: {
      const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(s, col));
      std::string_view text(p ? p : "", static_cast<size_t>(sqlite3_column_bytes(s, col)));
      if (type == FieldType::kDateTime) {
        if (auto dt = DateTime::ParseIso(text)) return Value(*dt);
      }
      return Value(text);
    }
  }
  return Value();
}

TransactionGuard BeginTransaction(SqliteStore& store) {
  return TransactionGuard(
      [&store] {
        store.Exec("BEGIN");
        return true;
      },
      [&store] {
        store.Exec("COMMIT");
        return true;
      },
      [&store] {
        return sqlite3_exec(store.db_, "ROLLBACK", nullptr, nullptr, nullptr) == SQLITE_OK;
      });
}

}  // namespace kvc::db::client_dataset_detail
