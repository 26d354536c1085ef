// Dialect: what differs between database servers, one object per server, and
// nothing else. Statement text is written once for all servers; the dialect
// supplies date literals, the server-time query, the table-less select and the
// dialect adaptation applied to statements before they run.
#ifndef KVC_DB_DIALECT_H_
#define KVC_DB_DIALECT_H_

#include <string>
#include <string_view>

#include "accounting/db/value.h"

namespace kvc::db {

enum class ServerKind { kSqlite, kFirebird, kPostgresql, kSqlServer, kOracle };

class Dialect {
 public:
  virtual ~Dialect() = default;

  virtual ServerKind Kind() const = 0;
  // The server-type name of the suite ("SQLITE", "FIREBIRD", "POSTGRESQL",
  // "SQLSERVER", "ORACLE"): the value of TipoBanco for this server.
  virtual std::string_view TipoBanco() const = 0;
  // The name of the schema file for this server ("sqlite", "firebird", ...).
  virtual std::string_view SchemaName() const = 0;

  // A date literal for a DATE column (the time part is ignored).
  virtual std::string DateLiteral(const DateTime& date) const = 0;
  // A date-time literal for a TIMESTAMP column.
  virtual std::string DateTimeLiteral(const DateTime& date_time) const = 0;
  // A query of one row and one column, AGORA, holding the server's current
  // local date and time.
  virtual std::string ServerTimeQuery() const = 0;
  // What a select without a table needs after its column list (" from
  // rdb$database" on Firebird), with a leading blank, or empty.
  virtual std::string DummyFrom() const = 0;
  // Adapts a statement written in the module's common dialect to this server.
  // The module's statements are written to run unchanged on every supported
  // server, so the adaptation only touches constructs listed in each
  // implementation; text it does not know stays as it is.
  virtual std::string Adapt(std::string text) const = 0;
  // True when the server pads or stores text so that values read back need
  // their trailing blanks removed (fixed-width character types).
  virtual bool TrimsReadText() const { return false; }
};

// 'YYYY-MM-DD' and 'YYYY-MM-DD HH:MM:SS' (milliseconds dropped), the literals
// that servers with ISO date input accept.
std::string IsoDateLiteral(const DateTime& date);
std::string IsoDateTimeLiteral(const DateTime& date_time);

// The dialect object of a server kind (static storage, never null).
const Dialect& DialectFor(ServerKind kind);

// The dialect of a server-type name, compared exactly ("SQLSERVER"), also
// accepting "SQLITE3", "POSTGRES", "PG", "MSSQL", "INTERBASE". nullptr when
// the name is unknown.
const Dialect* DialectByTipoBanco(std::string_view tipo_banco);

}  // namespace kvc::db

#endif  // KVC_DB_DIALECT_H_
