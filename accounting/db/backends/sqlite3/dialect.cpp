// The SQLite dialect: dates as ISO text, the local clock of the process that
// holds the database file as the server time.
#include "accounting/db/dialect.h"

namespace kvc::db {
namespace {

class Sqlite final : public Dialect {
 public:
  ServerKind Kind() const override { return ServerKind::kSqlite; }
  std::string_view TipoBanco() const override { return "SQLITE"; }
  std::string_view SchemaName() const override { return "sqlite"; }
  std::string DateLiteral(const DateTime& d) const override { return IsoDateLiteral(d); }
  std::string DateTimeLiteral(const DateTime& d) const override { return IsoDateTimeLiteral(d); }
  // The embedded engine's server is the process itself: its local time, with
  // milliseconds, is the database time.
  std::string ServerTimeQuery() const override {
    return "select strftime('%Y-%m-%d %H:%M:%f', 'now', 'localtime') AGORA";
  }
  std::string DummyFrom() const override { return {}; }
  // Statements of the common dialect run unchanged.
  std::string Adapt(std::string text) const override { return text; }
};

}  // namespace

const Dialect& SqliteDialect() {
  static const Sqlite kDialect;
  return kDialect;
}

}  // namespace kvc::db
