// The PostgreSQL dialect: ISO date literals and LOCALTIMESTAMP.
#include "accounting/db/dialect.h"

namespace kvc::db {
namespace {

class Postgresql final : public Dialect {
 public:
  ServerKind Kind() const override { return ServerKind::kPostgresql; }
  std::string_view TipoBanco() const override { return "POSTGRESQL"; }
  std::string_view SchemaName() const override { return "postgresql"; }
  std::string DateLiteral(const DateTime& d) const override { return IsoDateLiteral(d); }
  std::string DateTimeLiteral(const DateTime& d) const override { return IsoDateTimeLiteral(d); }
  std::string ServerTimeQuery() const override {
    return "select cast(localtimestamp as varchar(30)) AGORA";
  }
  std::string DummyFrom() const override { return {}; }
  // Statements of the common dialect run unchanged.
  std::string Adapt(std::string text) const override { return text; }
};

}  // namespace

const Dialect& PostgresqlDialect() {
  static const Postgresql kDialect;
  return kDialect;
}

}  // namespace kvc::db
