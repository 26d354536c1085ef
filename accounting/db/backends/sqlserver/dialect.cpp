// The SQL Server dialect: unambiguous "YYYYMMDD" literals whatever the
// session's date format, and GETDATE().
#include <fmt/format.h>

#include "accounting/db/dialect.h"

namespace kvc::db {
namespace {

class SqlServer final : public Dialect {
 public:
  ServerKind Kind() const override { return ServerKind::kSqlServer; }
  std::string_view TipoBanco() const override { return "SQLSERVER"; }
  std::string_view SchemaName() const override { return "sqlserver"; }
  std::string DateLiteral(const DateTime& d) const override {
    return fmt::format("'{:04}{:02}{:02}'", d.year, d.month, d.day);
  }
  std::string DateTimeLiteral(const DateTime& d) const override {
    return fmt::format("'{:04}{:02}{:02} {:02}:{:02}:{:02}'", d.year, d.month, d.day, d.hour,
                       d.minute, d.second);
  }
  std::string ServerTimeQuery() const override { return "select getdate() AGORA"; }
  std::string DummyFrom() const override { return {}; }
  // Statements of the common dialect run unchanged.
  std::string Adapt(std::string text) const override { return text; }
};

}  // namespace

const Dialect& SqlServerDialect() {
  static const SqlServer kDialect;
  return kDialect;
}

}  // namespace kvc::db
