// The SQL Server dialect: ISO date literals, and GETDATE(). The schema's
// date columns are DATE and DATETIME2, which read "YYYY-MM-DD" and
// "YYYY-MM-DD HH:MM:SS" the same under every language and DATEFORMAT
// setting of the session.

#include "accounting/db/dialect.h"

namespace kvc::db {
namespace {

class SqlServer final : public Dialect {
 public:
  ServerKind Kind() const override { return ServerKind::kSqlServer; }
  std::string_view TipoBanco() const override { return "SQLSERVER"; }
  std::string_view SchemaName() const override { return "sqlserver"; }
  std::string ServerTimeQuery() const override { return "select getdate() AGORA"; }
};

}  // namespace

const Dialect& SqlServerDialect() {
  static const SqlServer kDialect;
  return kDialect;
}

}  // namespace kvc::db
