// The PostgreSQL dialect: ISO date literals and LOCALTIMESTAMP.
#include "accounting/db/dialect.h"

namespace kvc::db {
namespace {

class Postgresql final : public Dialect {
 public:
  ServerKind Kind() const override { return ServerKind::kPostgresql; }
  std::string_view TipoBanco() const override { return "POSTGRESQL"; }
  std::string_view SchemaName() const override { return "postgresql"; }
  std::string ServerTimeQuery() const override {
    return "select cast(localtimestamp as varchar(30)) AGORA";
  }
  // The client library prints the server's notices (such as "does not
  // exist, skipping") on standard error; only warnings and errors are worth
  // a user's attention there.
  std::vector<std::string> SessionSetup() const override {
    return {"set client_min_messages to warning"};
  }
  // Autovacuum analyses the tables in its own time, up to a minute or more
  // after a posting.
  std::vector<std::string> StatisticsRefresh() const override {
    return {"analyze CTB_LANCAMENTO", "analyze CTB_LANCAMENTO_DIVIDIDO",
            "analyze INT_SALDO_SUMARIZADO", "analyze GER_NUMERADOR"};
  }
  // Read committed is the server's default; it is set all the same, so that
  // a changed server default cannot change what the module sees.
  std::string IsolationStatement() const override {
    return "set transaction isolation level read committed";
  }
};

}  // namespace

const Dialect& PostgresqlDialect() {
  static const Postgresql kDialect;
  return kDialect;
}

}  // namespace kvc::db
