// SQLite specifics of statement reading: declared column types, looked up on
// the statement handle that SOCI's backend prepared.
#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include "accounting/db/backends/backend_hooks.h"

namespace kvc::db {

std::vector<bool> SqliteExpressionColumns(soci::statement& st, size_t columns) {
  std::vector<bool> out(columns, false);
  // Only called for SQLite sessions, whose statements have this backend.
  auto* backend = static_cast<soci::sqlite3_statement_backend*>(st.get_backend());
  if (!backend || !backend->stmt_) return out;
  int count = sqlite_api::sqlite3_column_count(backend->stmt_);
  for (size_t i = 0; i < columns && static_cast<int>(i) < count; ++i)
    out[i] = sqlite_api::sqlite3_column_decltype(backend->stmt_, static_cast<int>(i)) == nullptr;
  return out;
}

}  // namespace kvc::db
