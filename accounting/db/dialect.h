// Dialect: what differs between database servers, one object per server, and
// nothing else. Statement text is written once for all servers; the dialect
// supplies date literals, the server-time query, the table-less select and the
// dialect adaptation applied to statements before they run, and tells the
// connection how the server's session behaves (its settings, how a
// transaction begins, what the driver needs). The base class holds what most
// servers share; each server overrides only where it differs.
#ifndef KVC_DB_DIALECT_H_
#define KVC_DB_DIALECT_H_

#include <string>
#include <string_view>
#include <vector>

#include "accounting/db/api.h"
#include "accounting/db/value.h"

namespace kvc::db {

enum class ServerKind { kSqlite, kFirebird, kPostgresql, kSqlServer, kOracle };

// 'YYYY-MM-DD' and 'YYYY-MM-DD HH:MM:SS' (milliseconds dropped), the literals
// that servers with ISO date input accept.
KVC_API std::string IsoDateLiteral(const DateTime& date);
KVC_API std::string IsoDateTimeLiteral(const DateTime& date_time);

class KVC_API Dialect {
 public:
  virtual ~Dialect() = default;

  virtual ServerKind Kind() const = 0;
  // The server-type name of the suite ("SQLITE", "FIREBIRD", "POSTGRESQL",
  // "SQLSERVER", "ORACLE"): the value of TipoBanco for this server.
  virtual std::string_view TipoBanco() const = 0;
  // The name of the schema file for this server ("sqlite", "firebird", ...).
  virtual std::string_view SchemaName() const = 0;

  // ---- statement text -------------------------------------------------------
  // A date literal for a DATE column (the time part is ignored): ISO
  // 'YYYY-MM-DD' unless the server wants another form.
  virtual std::string DateLiteral(const DateTime& date) const { return IsoDateLiteral(date); }
  // A date-time literal for a TIMESTAMP column: ISO 'YYYY-MM-DD HH:MM:SS'
  // unless the server wants another form.
  virtual std::string DateTimeLiteral(const DateTime& date_time) const {
    return IsoDateTimeLiteral(date_time);
  }
  // A query of one row and one column, AGORA, holding the server's current
  // local date and time.
  virtual std::string ServerTimeQuery() const = 0;
  // What a select without a table needs after its column list (" from
  // rdb$database" on Firebird), with a leading blank; nothing by default.
  virtual std::string DummyFrom() const { return {}; }
  // Adapts a statement written in the module's common dialect to this server.
  // The module's statements are written to run unchanged on every supported
  // server, so a server that needs an adaptation lists the constructs it
  // touches; by default the text stays as it is.
  virtual std::string Adapt(std::string text) const { return text; }

  // ---- the session ----------------------------------------------------------
  // Statements run once on a new connection (settings of the session); they
  // must not read the database.
  virtual std::vector<std::string> SessionSetup() const { return {}; }
  // Settings that read the database (an embedded engine's file): run once,
  // just before the connection's first statement or transaction, which then
  // meets the same file and the same locks.
  virtual std::vector<std::string> FirstUseSetup() const { return {}; }
  // Statements that bring the planner's statistics of the journal, its
  // division rows, the summarised balances and the numbering up to date,
  // for after a large posting: a server that still plans with the figures
  // of the empty tables reads a year's entries the slow way. None where the
  // statistics are fixed (SQLite's come with the schema) or the server keeps
  // them itself.
  virtual std::vector<std::string> StatisticsRefresh() const { return {}; }
  // Settings for one long write transaction (a posting of a whole file),
  // run after the connection's first use and before the transaction: none
  // where the server manages its own memory.
  virtual std::vector<std::string> LongWriteSetup() const { return {}; }
  // How a transaction begins: by the client library's begin, followed by
  // IsolationStatement() when there is one; or, when BeginStatement() is not
  // empty, by that statement alone.
  virtual std::string BeginStatement() const { return {}; }
  virtual std::string IsolationStatement() const { return {}; }
  // True when the client library keeps a transaction of its own open for
  // the statements run outside an explicit one (Firebird): each such
  // statement is then committed after it runs and rolled back when it fails,
  // that transaction is rolled back when the connection closes, and an
  // explicit transaction must be begun through the client library's own
  // parameters.
  virtual bool HasImplicitTransaction() const { return false; }
  // True when the driver reads a ':' or a quote inside a comment as a
  // parameter or a literal, so that such comments must go before a statement
  // is prepared (every server here but the embedded one).
  virtual bool MisreadsComments() const { return true; }
  // True for the embedded engine: its parameters take a value of any type,
  // so a literal is bound as it reads (statement_shape.h), and result
  // columns computed by an expression, which carry no declared type, are
  // typed from their values.
  virtual bool IsEmbedded() const { return false; }
  // True when the server pads or stores text so that values read back need
  // their trailing blanks removed (fixed-width character types).
  virtual bool TrimsReadText() const { return false; }
  // True when statements whose literals differ are run through one prepared
  // statement per shape, the literals bound (statement_shape.h): where the
  // compile or its round trips cost more than the statement. On a server
  // the parameters are typed from their context, and the literals a type
  // could change are kept.
  virtual bool BindsLiterals() const { return IsEmbedded(); }
};

// The dialect object of a server kind (static storage, never null).
KVC_API const Dialect& DialectFor(ServerKind kind);

// The dialect of a server-type name, compared exactly ("SQLSERVER"), also
// accepting "SQLITE3", "POSTGRES", "PG", "MSSQL", "INTERBASE". nullptr when
// the name is unknown.
KVC_API const Dialect* DialectByTipoBanco(std::string_view tipo_banco);

}  // namespace kvc::db

#endif  // KVC_DB_DIALECT_H_
