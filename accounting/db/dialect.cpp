// The registry of dialect objects, one per server kind.
#include "accounting/db/dialect.h"

#include "accounting/db/sql_format.h"

namespace kvc::db {

const Dialect& SqliteDialect();
const Dialect& FirebirdDialect();
const Dialect& PostgresqlDialect();
const Dialect& SqlServerDialect();
const Dialect& OracleDialect();

std::string IsoDateLiteral(const DateTime& date) { return sql::QuotedAsIs(date.ToIsoDate()); }

std::string IsoDateTimeLiteral(const DateTime& date_time) {
  DateTime whole = date_time;
  whole.millisecond = 0;
  return sql::QuotedAsIs(whole.ToIso());
}

const Dialect& DialectFor(ServerKind kind) {
  switch (kind) {
    case ServerKind::kSqlite:
      return SqliteDialect();
    case ServerKind::kFirebird:
      return FirebirdDialect();
    case ServerKind::kPostgresql:
      return PostgresqlDialect();
    case ServerKind::kSqlServer:
      return SqlServerDialect();
    case ServerKind::kOracle:
      return OracleDialect();
  }
  return SqliteDialect();
}

const Dialect* DialectByTipoBanco(std::string_view name) {
  if (name == "SQLITE" || name == "SQLITE3") return &SqliteDialect();
  if (name == "FIREBIRD" || name == "INTERBASE") return &FirebirdDialect();
  if (name == "POSTGRESQL" || name == "POSTGRES" || name == "PG") return &PostgresqlDialect();
  if (name == "SQLSERVER" || name == "MSSQL") return &SqlServerDialect();
  if (name == "ORACLE") return &OracleDialect();
  return nullptr;
}

}  // namespace kvc::db
