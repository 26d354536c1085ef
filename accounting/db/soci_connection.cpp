// The Connection implementation over SOCI: URL parsing, parameter binding,
// reading rows into ResultSet with the values normalised across servers, and
// transactions (with each statement committed on its own outside one).
#include <soci/soci.h>

#include <cctype>
#include <cstdlib>
#include <deque>
#include <memory>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>

#include <fmt/format.h>

#include "accounting/db/backends/backend_hooks.h"
#include "accounting/db/connection.h"
#include "accounting/db/database_url.h"
#include "accounting/db/dialect.h"
#include "accounting/db/error.h"
#include "accounting/db/placeholders.h"
#include "accounting/db/sql_format.h"
#include "accounting/db/statement_shape.h"

namespace kvc::db {
namespace {

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return out;
}

// SOCI connection strings quote values that hold blanks with double quotes.
std::string SociValue(std::string_view value) {
  if (value.find_first_of(" \t") == std::string_view::npos) return std::string(value);
  return "\"" + std::string(value) + "\"";
}

// USER[:PASSWORD]@HOST[:PORT]/REST
struct Authority {
  std::string user, password, host, port, rest;
};
Authority SplitAuthority(std::string_view text, std::string_view url) {
  Authority a;
  size_t at = text.rfind('@');
  size_t slash = text.find('/', at == std::string_view::npos ? 0 : at);
  if (at == std::string_view::npos || slash == std::string_view::npos)
    throw DatabaseError("malformed database URL (expected USER@HOST[:PORT]/DATABASE): " +
                            std::string(url.substr(0, url.find("://") + 3)) + "...",
                        "");
  std::string_view user = text.substr(0, at);
  size_t colon = user.find(':');
  a.user = std::string(user.substr(0, colon));
  if (colon != std::string_view::npos) a.password = std::string(user.substr(colon + 1));
  std::string_view host = text.substr(at + 1, slash - at - 1);
  colon = host.find(':');
  a.host = std::string(host.substr(0, colon));
  if (colon != std::string_view::npos) a.port = std::string(host.substr(colon + 1));
  a.rest = std::string(text.substr(slash + 1));
  return a;
}

// Where the first password entry of an ODBC connection string begins:
// PWD or PASSWORD, in any case, then blanks and '='. Keywords of ODBC
// ignore case. npos when there is none.
size_t PasswordEntry(std::string_view connection_string) {
  const std::string lower = Lower(connection_string);
  for (size_t i = 0; i < lower.size(); ++i) {
    for (std::string_view key : {"pwd", "password"}) {
      if (lower.compare(i, key.size(), key) != 0) continue;
      size_t j = i + key.size();
      while (j < lower.size() && (lower[j] == ' ' || lower[j] == '\t')) ++j;
      if (j < lower.size() && lower[j] == '=') return i;
    }
  }
  return std::string_view::npos;
}

ServerKind OdbcServerKind(std::string_view connection_string) {
  std::string lower = Lower(connection_string);
  if (lower.find("postgres") != std::string::npos) return ServerKind::kPostgresql;
  if (lower.find("sqlite") != std::string::npos) return ServerKind::kSqlite;
  if (lower.find("oracle") != std::string::npos) return ServerKind::kOracle;
  if (lower.find("firebird") != std::string::npos) return ServerKind::kFirebird;
  // FreeTDS and the vendor's own driver both reach SQL Server.
  return ServerKind::kSqlServer;
}

}  // namespace

DatabaseUrl ParseDatabaseUrl(std::string_view url, std::string_view password) {
  DatabaseUrl p;
  if (url.starts_with("sqlite:") && !url.starts_with("sqlite://")) {
    std::string path(url.substr(7));
    p.soci = "sqlite3://db=" + SociValue(path) + " timeout=30";
    p.display = std::string(url);
    p.kind = ServerKind::kSqlite;
  } else if (url.starts_with("firebird://") && url.find("service=") == std::string_view::npos) {
    Authority a = SplitAuthority(url.substr(11), url);
    if (a.password.empty()) a.password = std::string(password);
    // A path with a '/' is a file on the server; a bare name is an alias.
    std::string path = a.rest;
    if (path.find('/') != std::string::npos && !path.starts_with("/")) path = "/" + path;
    std::string service = a.host + (a.port.empty() ? "" : "/" + a.port) + ":" + path;
    p.soci = "firebird://service=" + SociValue(service) + " user=" + a.user +
             (a.password.empty() ? "" : " password=" + SociValue(a.password)) + " charset=UTF8";
    p.display =
        "firebird://" + a.user + "@" + a.host + (a.port.empty() ? "" : ":" + a.port) + "/" + a.rest;
    p.kind = ServerKind::kFirebird;
    p.firebird_location = service;
    p.user = a.user;
    p.password = a.password;
  } else if ((url.starts_with("postgresql://") || url.starts_with("postgres://")) &&
             url.find("host=") == std::string_view::npos &&
             url.find("dbname=") == std::string_view::npos) {
    size_t start = url.find("://") + 3;
    Authority a = SplitAuthority(url.substr(start), url);
    if (a.password.empty()) a.password = std::string(password);
    p.soci = "postgresql://host=" + a.host + (a.port.empty() ? "" : " port=" + a.port) +
             " dbname=" + SociValue(a.rest) + " user=" + a.user +
             (a.password.empty() ? "" : " password=" + SociValue(a.password));
    p.display = "postgresql://" + a.user + "@" + a.host + (a.port.empty() ? "" : ":" + a.port) +
                "/" + a.rest;
    p.kind = ServerKind::kPostgresql;
  } else if (url.starts_with("odbc:") && !url.starts_with("odbc://")) {
    std::string cs(url.substr(5));
    if (!password.empty() && PasswordEntry(cs) == std::string_view::npos)
      cs += ";PWD=" + std::string(password);
    p.soci = "odbc://" + cs;
    p.display = "odbc:" + std::string(url.substr(5, PasswordEntry(url.substr(5))));
    p.kind = OdbcServerKind(cs);
  } else if (url.find("://") != std::string_view::npos) {
    p.soci = std::string(url);
    std::string scheme = Lower(url.substr(0, url.find("://")));
    p.display = scheme + "://...";
    if (scheme == "sqlite3" || scheme == "sqlite")
      p.kind = ServerKind::kSqlite;
    else if (scheme == "firebird")
      p.kind = ServerKind::kFirebird;
    else if (scheme == "postgresql")
      p.kind = ServerKind::kPostgresql;
    else if (scheme == "odbc")
      p.kind = OdbcServerKind(url);
    else
      throw DatabaseError("unsupported database URL scheme '" + scheme + "'", "");
  } else {
    throw DatabaseError("unsupported database URL '" + std::string(url) +
                            "' (expected sqlite:PATH, firebird://USER@HOST/PATH, "
                            "postgresql://USER@HOST/DBNAME or odbc:CONNECTION-STRING)",
                        "");
  }
  return p;
}

namespace {

// Storage for the values bound to one statement; SOCI keeps references to it,
// so it must outlive the statement's execution and never move.
struct BindSlot {
  long long integer = 0;
  double real = 0;
  std::string text;
  std::tm date{};
  soci::indicator indicator = soci::i_ok;

  // Takes `value`, which must be of the kind the slot was bound with.
  void Set(const Value& value) {
    indicator = value.IsNull() ? soci::i_null : soci::i_ok;
    if (value.IsNull()) return;
    if (value.IsInteger())
      integer = value.AsInteger();
    else if (value.IsFloat())
      real = value.AsFloat();
    else if (value.IsDateTime())
      date = value.AsDateTime().ToTm();
    else
      text = value.AsString();
  }

  // Binds the slot to the next placeholder of `st` with the type of `value`
  // (a null as text), and takes the value.
  void BindTo(soci::statement& st, const Value& value) {
    Set(value);
    if (value.IsInteger())
      st.exchange(soci::use(integer, indicator));
    else if (value.IsFloat())
      st.exchange(soci::use(real, indicator));
    else if (value.IsDateTime())
      st.exchange(soci::use(date, indicator));
    else  // text, and a null
      st.exchange(soci::use(text, indicator));
  }
};

// The value given for the placeholder `name` (the last one of that name, in
// any case); a missing one is a DatabaseError naming it and the statement.
const Value& ParamValue(const BoundParams& params, const std::string& name,
                        const std::string& sql) {
  for (auto p = params.rbegin(); p != params.rend(); ++p)
    if (SameFieldName(p->name, name)) return p->value;
  throw DatabaseError("no value for parameter :" + name + " in: " + sql, sql);
}

// Whether `sql` is an SQLite pragma: a setting of the session, such as the
// busy timeout a caller sets after connecting, which must take effect before
// the first statement that reads the file (the first use).
bool IsPragma(std::string_view sql) {
  const size_t start = sql.find_first_not_of(" \t\r\n");
  return start != std::string_view::npos && SameFieldName(sql.substr(start, 6), "pragma") &&
         (sql.size() == start + 6 || std::isspace(static_cast<unsigned char>(sql[start + 6])));
}

// Whether `sql`, a select, insert, update or delete (or a with query), holds
// a second statement: a ';' outside quoted text, quoted identifiers and
// comments, with more than blanks after it. Some servers and drivers would
// run both (a host's filter ending "; delete from ..."). Definitions are left
// alone: a trigger's body holds its own ';'.
bool HoldsSecondStatement(std::string_view sql) {
  // Nearly every text has no ';' at all: one search of the whole text (the
  // library's, many bytes at a time) settles it before any character is
  // looked at one by one.
  if (sql.find(';') == std::string_view::npos) return false;
  const size_t start = sql.find_first_not_of(" \t\r\n(");
  if (start == std::string_view::npos) return false;
  const std::string_view first = sql.substr(start, sql.find_first_of(" \t\r\n(", start) - start);
  if (!SameFieldName(first, "select") && !SameFieldName(first, "insert") &&
      !SameFieldName(first, "update") && !SameFieldName(first, "delete") &&
      !SameFieldName(first, "with"))
    return false;
  for (size_t i = start; i < sql.size(); ++i) {
    const char c = sql[i];
    if (c == '\'' || c == '"') {
      const size_t end = sql.find(c, i + 1);  // a doubled quote reopens at once
      if (end == std::string_view::npos) return false;
      i = end;
    } else if (c == '-' && i + 1 < sql.size() && sql[i + 1] == '-') {
      i = sql.find('\n', i);
      if (i == std::string_view::npos) return false;
    } else if (c == '/' && i + 1 < sql.size() && sql[i + 1] == '*') {
      i = sql.find("*/", i + 2);
      if (i == std::string_view::npos) return false;
      ++i;
    } else if (c == ';') {
      return sql.find_first_not_of(" \t\r\n;", i) != std::string_view::npos;
    }
  }
  return false;
}

// Whether a server's message reports a lock conflict or a deadlock: the
// statement met another transaction's work, whatever its values were bound
// as.
bool IsLockConflict(std::string_view message) {
  return message.find("deadlock") != std::string_view::npos ||
         message.find("lock conflict") != std::string_view::npos ||
         message.find("update conflicts") != std::string_view::npos;
}

// The kind of a value as one letter, for the key of a prepared statement.
char KindLetter(const Value& value) {
  if (value.IsNull()) return 'n';
  if (value.IsInteger()) return 'i';
  if (value.IsFloat()) return 'f';
  if (value.IsDateTime()) return 'd';
  return 's';
}

// A statement prepared for one shape and kept for the next text of that
// shape, with the storage its values are bound to. The statement refers to
// the row and the slots, so it is declared after them (and destroyed first).
struct PreparedShape {
  explicit PreparedShape(soci::session& session) : st(session) {}
  soci::row row;
  std::deque<BindSlot> slots;
  soci::statement st;
};

// More shapes than this and the cache starts again: the module's operations
// use a few dozen, and a host's ad hoc queries must not make it grow forever.
constexpr size_t kMaxPreparedShapes = 256;

class SociConnection final : public Connection {
 public:
  SociConnection(const DatabaseUrl& url) : dialect_(&DialectFor(url.kind)) {
    try {
      session_.open(url.soci);
    } catch (const std::exception& e) {
      // The client libraries end their messages with line feeds.
      std::string reason = e.what();
      while (!reason.empty() && std::isspace(static_cast<unsigned char>(reason.back())))
        reason.pop_back();
      throw DatabaseError("cannot connect to " + url.display + ": " + reason, "");
    }
    session_.uppercase_column_names(true);
    first_use_done_ = true;  // the session's own settings come before the first use
    for (const std::string& setting : dialect_->SessionSetup()) Run(setting, {}, nullptr);
    first_use_done_ = false;
    // Where the dialect binds literals (the embedded engine; Firebird,
    // whose client prepares, describes and frees a statement in round trips
    // of their own) statements are prepared once per shape (see
    // statement_shape.h). On the other servers only texts whose values are
    // all bound are kept prepared, by their text: a statement run once goes
    // in one round trip there, and a bound literal would leave the server to
    // guess its type. The variable turns both off, to compare or to rule
    // them out.
    const char* off = std::getenv("KVC_NO_STATEMENT_CACHE");
    reuse_bound_only_ = !(off && *off && std::string_view(off) != "0");
    reuse_shapes_ = reuse_bound_only_ && dialect_->BindsLiterals();
    if (dialect_->HasImplicitTransaction()) {
      try {
        CheckFirebirdTransactionHandle(session_);
      } catch (const soci::soci_error& e) {
        throw DatabaseError(e.get_error_message(), "connect");
      }
    }
  }

  ~SociConnection() override {
    // A client library with an implicit transaction commits pending work
    // when the session closes; work of an unfinished transaction must be
    // rolled back instead.
    try {
      if (in_transaction_ || dialect_->HasImplicitTransaction()) session_.rollback();
    } catch (...) {
    }
  }

  const Dialect& dialect() const override { return *dialect_; }

  long long Execute(const std::string& sql, const BoundParams& params) override {
    long long affected = -1;
    Run(sql, params, nullptr, &affected);
    return affected;
  }

  ResultSet Query(const std::string& sql, const BoundParams& params) override {
    ResultSet rs;
    Run(sql, params, &rs);
    return rs;
  }

  void Begin(Isolation) override {
    if (in_transaction_) throw DatabaseError("a transaction is already active", "begin");
    if (!first_use_done_) FirstUse();
    try {
      // Read committed wherever the server has it (the dialect says how):
      // the server default on PostgreSQL and SQL Server, set explicitly on
      // PostgreSQL; with an implicit transaction (Firebird) a read-committed
      // transaction replaces the one that SOCI keeps open for reads (SOCI
      // itself would begin a snapshot); SQLite begins immediate.
      if (dialect_->HasImplicitTransaction()) {
        BeginFirebirdReadCommitted(session_);
      } else if (const std::string begin = dialect_->BeginStatement(); !begin.empty()) {
        session_ << begin;
      } else {
        session_.begin();
        if (const std::string isolation = dialect_->IsolationStatement(); !isolation.empty())
          session_ << isolation;
      }
      in_transaction_ = true;
    } catch (const soci::soci_error& e) {
      throw DatabaseError(e.get_error_message(), "begin");
    }
  }

  // A commit the server refuses leaves the transaction active, on the server
  // (SQLite keeps it open after a deferred constraint fails, Firebird after
  // a commit trigger raises) and here alike, so that the caller's rollback
  // reaches the server. Work whose commit failed must never be committed by
  // a later begin or statement.
  void Commit() override {
    if (!in_transaction_) throw DatabaseError("no transaction is active", "commit");
    try {
      session_.commit();
    } catch (const soci::soci_error& e) {
      throw DatabaseError(e.get_error_message(), "commit");
    }
    in_transaction_ = false;
  }

  // The transaction ends here whatever the server answers: a server that
  // cannot roll back has lost the transaction already (PostgreSQL ends it
  // itself when a commit fails).
  void Rollback() override {
    if (!in_transaction_) throw DatabaseError("no transaction is active", "rollback");
    in_transaction_ = false;
    try {
      session_.rollback();
    } catch (const soci::soci_error& e) {
      throw DatabaseError(e.get_error_message(), "rollback");
    }
  }

  bool InTransaction() const override { return in_transaction_; }

 private:
  void Run(const std::string& sql, const BoundParams& params, ResultSet* rs,
           long long* affected = nullptr) {
    if (HoldsSecondStatement(sql))
      throw DatabaseError("a statement text holds a second statement after a ';': " + sql, sql);
    if (!first_use_done_ && !IsPragma(sql)) FirstUse();
    if (reuse_bound_only_) {
      // A text with no literal to take out (every value bound, as in the
      // service libraries' own statements; literals the scanner keeps as
      // written aside) comes again unchanged: its shape is kept by its text
      // and not scanned again.
      if (auto known = bound_only_shapes_.find(sql); known != bound_only_shapes_.end()) {
        RunShape(known->second, sql, params, rs, affected);
        return;
      }
      // Typed parameters: a server that binds literals (Firebird).
      const bool typed = reuse_shapes_ && !dialect_->IsEmbedded();
      if (std::optional<StatementShape> shape = ShapeStatement(sql, typed)) {
        // A text with a literal kept for its type's sake (a negative amount)
        // is no text with every value bound: another value, another text.
        if (!shape->kept_for_type && shape->OnlyPlaceholders()) {
          if (bound_only_shapes_.size() >= kMaxPreparedShapes) bound_only_shapes_.clear();
          RunShape(bound_only_shapes_.emplace(sql, std::move(*shape)).first->second, sql, params,
                   rs, affected);
          return;
        }
        if (reuse_shapes_ && dialect_->IsEmbedded()) {
          RunShape(*shape, sql, params, rs, affected);
          return;
        }
        if (typed) {
          // A server types each parameter from its context: a shape it
          // cannot prepare, or a value its parameter cannot take (a text
          // longer than the column it is compared with), runs as the text the
          // module built, as if it had never been tried. A statement that
          // fails leaves nothing behind on such a server (each runs under
          // its own savepoint), and the rows it read so far are dropped. A
          // lock conflict is the statement's answer, not the binding's. A
          // shape whose text then ran is not bound again.
          std::string key = shape->Key();
          if (!unbindable_shapes_.contains(key)) {
            try {
              RunShape(*shape, sql, params, rs, affected);
              return;
            } catch (const DatabaseError& e) {
              if (IsLockConflict(e.what())) throw;
              if (rs) *rs = ResultSet{};
            }
            RunText(sql, params, rs, affected);
            if (unbindable_shapes_.size() >= kMaxPreparedShapes) unbindable_shapes_.clear();
            unbindable_shapes_.insert(std::move(key));
            return;
          }
        }
      } else {
        // Anything else (a definition, a pragma) may change what the
        // prepared statements would read: they are prepared again when next
        // needed, and tried bound again.
        prepared_.clear();
        unbindable_shapes_.clear();
      }
    }
    RunText(sql, params, rs, affected);
  }

  // Runs `sql` as it stands, prepared for this one run.
  void RunText(const std::string& sql, const BoundParams& params, ResultSet* rs,
               long long* affected) {
    PositionalText positional = ServerText(sql);
    const std::string& text = positional.text;
    // One slot per placeholder occurrence, bound in text order.
    std::deque<BindSlot> slots;
    try {
      soci::statement st(session_);
      soci::row row;
      if (rs) st.exchange(soci::into(row));
      for (const std::string& name : positional.names) {
        slots.emplace_back().BindTo(st, ParamValue(params, name, sql));
      }
      st.alloc();
      // Run once and dropped: where the client library tells the two apart
      // (PostgreSQL), a one-time statement is parsed, bound and run in one
      // round trip instead of being prepared, run and deallocated in three.
      // Not a text with a ';': a one-time statement without values goes
      // by the protocol that runs several statements in one text, which a
      // prepared one refuses.
      st.prepare(text, text.find(';') == std::string::npos ? soci::details::st_one_time_query
                                                           : soci::details::st_repeatable_query);
      st.define_and_bind();
      ExecuteAndRead(st, row, rs, affected);
      st.clean_up();
      if (!in_transaction_ && dialect_->HasImplicitTransaction()) session_.commit();
    } catch (const soci::soci_error& e) {
      AfterFailure();
      throw DatabaseError(e.get_error_message(), sql);
    } catch (const DatabaseError&) {
      AfterFailure();
      throw;
    } catch (const std::exception& e) {
      AfterFailure();
      throw DatabaseError(e.what(), sql);
    }
  }

  // Runs `sql` through the statement prepared for its shape, preparing it
  // the first time: the literals taken out and the placeholders' values are
  // bound, in text order. Errors are reported against `sql`, the text the
  // module built; a statement that failed is prepared again next time.
  void RunShape(const StatementShape& shape, const std::string& sql, const BoundParams& params,
                ResultSet* rs, long long* affected) {
    // The key and the values are written over buffers kept between
    // statements: a posting sends hundreds of thousands of them.
    std::string& key = key_buffer_;
    std::vector<Value>& values = values_buffer_;
    values.clear();
    values.reserve(shape.slots.size());
    shape.WriteKey(key);
    key += rs ? 'q' : 'x';
    for (const ShapeSlot& slot : shape.slots) {
      switch (slot.kind) {
        case ShapeSlot::Kind::kText:
          values.emplace_back(slot.text);
          break;
        case ShapeSlot::Kind::kInteger:
          values.emplace_back(slot.integer);
          break;
        case ShapeSlot::Kind::kReal:
          values.emplace_back(slot.real);
          break;
        case ShapeSlot::Kind::kPlaceholder: {
          const Value& value = ParamValue(params, slot.text, sql);
          values.push_back(value);
          key += KindLetter(value);
        }
      }
    }
    auto found = prepared_.find(key);
    try {
      if (found == prepared_.end()) {
        if (prepared_.size() >= kMaxPreparedShapes) prepared_.clear();
        auto prepared = std::make_unique<PreparedShape>(session_);
        if (rs) prepared->st.exchange(soci::into(prepared->row));
        for (const Value& value : values)
          prepared->slots.emplace_back().BindTo(prepared->st, value);
        prepared->st.alloc();
        prepared->st.prepare(PreparedText(shape, sql));
        prepared->st.define_and_bind();
        found = prepared_.emplace(key, std::move(prepared)).first;
      } else {
        for (size_t i = 0; i < values.size(); ++i) found->second->slots[i].Set(values[i]);
      }
      ExecuteAndRead(found->second->st, found->second->row, rs, affected);
      if (!in_transaction_ && dialect_->HasImplicitTransaction()) session_.commit();
    } catch (const soci::soci_error& e) {
      if (found != prepared_.end()) prepared_.erase(found);
      AfterFailure();
      throw DatabaseError(e.get_error_message(), sql);
    } catch (const std::exception& e) {
      if (found != prepared_.end()) prepared_.erase(found);
      AfterFailure();
      throw DatabaseError(e.what(), sql);
    }
  }

  // The dialect's settings that read the database, once, before the first
  // statement that is not itself a setting, or the first transaction; a
  // failure is the failure of that statement or transaction, and the
  // settings are not tried again (the connection works on without them).
  void FirstUse() {
    first_use_done_ = true;
    for (const std::string& setting : dialect_->FirstUseSetup()) Run(setting, {}, nullptr);
  }

  // The text a shape is prepared from: the shape's own, its slots marked
  // '?', on the embedded engine and for a shape with literals taken out (on
  // a server, without the comments the driver would misread); the text as
  // SOCI's backends read it for one whose values are all placeholders.
  std::string PreparedText(const StatementShape& shape, const std::string& sql) const {
    if (dialect_->IsEmbedded()) return shape.text;
    if (shape.OnlyPlaceholders()) return ServerText(sql).text;
    return dialect_->MisreadsComments() ? DropAmbiguousComments(shape.text) : shape.text;
  }

  // `sql` as SOCI's backends read it: placeholders renamed ":p1", ":p2", ...
  // in text order, and the comments the driver would misread dropped.
  PositionalText ServerText(const std::string& sql) const {
    PositionalText positional = ToPositional(sql);
    if (dialect_->MisreadsComments()) positional.text = DropAmbiguousComments(positional.text);
    return positional;
  }

  // Executes a prepared statement and reads all its rows into `rs` (a query)
  // or the count of rows it changed into `affected`.
  void ExecuteAndRead(soci::statement& st, soci::row& row, ResultSet* rs, long long* affected) {
    if (rs) {
      bool got = st.execute(true);
      ReadColumns(st, row, *rs);
      while (got) {
        ReadRow(row, *rs);
        got = st.fetch();
      }
      FinishColumns(*rs);
    } else {
      st.execute(true);
      if (affected) {
        // Some servers cannot count rows for every kind of statement (DDL on
        // Firebird); -1 then means "not known".
        try {
          *affected = st.get_affected_rows();
        } catch (const soci::soci_error&) {
          *affected = -1;
        }
      }
    }
  }

  void AfterFailure() {
    if (!in_transaction_ && dialect_->HasImplicitTransaction()) {
      try {
        session_.rollback();
      } catch (...) {
      }
    }
  }

  void ReadColumns(soci::statement& st, const soci::row& row, ResultSet& rs) {
    const size_t n = row.size();
    rs.columns.resize(n);
    rs.types.resize(n);
    expression_columns_.assign(n, false);
    for (size_t i = 0; i < n; ++i) {
      const soci::column_properties& props = row.get_properties(i);
      rs.columns[i] = props.get_name();
      switch (props.get_data_type()) {
        case soci::dt_double:
          rs.types[i] = FieldType::kFloat;
          break;
        case soci::dt_integer:
        case soci::dt_long_long:
        case soci::dt_unsigned_long_long:
          rs.types[i] = FieldType::kInteger;
          break;
        case soci::dt_date:
          rs.types[i] = FieldType::kDateTime;
          break;
        default:
          rs.types[i] = FieldType::kString;
      }
    }
    if (dialect_->IsEmbedded() && n > 0) expression_columns_ = SqliteExpressionColumns(st, n);
  }

  void ReadRow(const soci::row& row, ResultSet& rs) {
    const size_t n = row.size();
    std::vector<Value>& out = rs.rows.emplace_back();
    out.reserve(n);
    for (size_t i = 0; i < n; ++i) {
      if (row.get_indicator(i) == soci::i_null) {
        out.emplace_back();
        continue;
      }
      switch (row.get_properties(i).get_data_type()) {
        case soci::dt_double:
          out.emplace_back(row.get<double>(i));
          break;
        case soci::dt_integer:
          out.emplace_back(row.get<int>(i));
          break;
        case soci::dt_long_long:
          out.emplace_back(row.get<long long>(i));
          break;
        case soci::dt_unsigned_long_long:
          out.emplace_back(static_cast<long long>(row.get<unsigned long long>(i)));
          break;
        case soci::dt_date:
          out.emplace_back(DateTime::FromTm(row.get<std::tm>(i)));
          break;
        default: {
          std::string text = row.get<std::string>(i);
          if (dialect_->TrimsReadText()) {
            size_t end = text.find_last_not_of(' ');
            text.erase(end == std::string::npos ? 0 : end + 1);
          }
          if (expression_columns_[i])
            out.push_back(NumberFromExpressionText(std::move(text)));
          else
            out.emplace_back(std::move(text));
        }
      }
    }
  }

  // An SQLite expression column (a sum, a count, coalesce) has no declared
  // type, and SOCI hands it over as text: "105.5", "3". Canonical numbers are
  // turned back into numbers; the column's type follows its values.
  static Value NumberFromExpressionText(std::string text) {
    int64_t i = 0;
    if (sql::ParseInteger(text, i) && sql::Integer(i) == text)
      return Value(static_cast<long long>(i));
    double d = 0;
    if (!text.empty() && text.front() != ' ' && text.back() != ' ' &&
        text.find_first_of("0123456789") != std::string::npos &&
        text.find_first_not_of("0123456789.-+eE") == std::string::npos && sql::ParseDouble(text, d))
      return Value(d);
    return Value(std::move(text));
  }

  void FinishColumns(ResultSet& rs) {
    for (size_t c = 0; c < expression_columns_.size(); ++c) {
      if (!expression_columns_[c]) continue;
      bool any_text = false, any_float = false, any_value = false;
      for (auto& r : rs.rows) {
        if (r[c].IsNull()) continue;
        any_value = true;
        any_text = any_text || r[c].IsString();
        any_float = any_float || r[c].IsFloat();
      }
      if (!any_value) continue;
      if (any_text) {
        // Mixed: keep the column as text, as the server sent it.
        for (auto& r : rs.rows)
          if (!r[c].IsNull() && !r[c].IsString()) r[c] = Value(r[c].AsString());
        rs.types[c] = FieldType::kString;
      } else {
        rs.types[c] = any_float ? FieldType::kFloat : FieldType::kInteger;
      }
    }
  }

  soci::session session_;
  const Dialect* dialect_;
  bool in_transaction_ = false;
  std::vector<bool> expression_columns_;
  // One prepared statement per shape, by the shape's key; declared after the
  // session, so that the statements are finalised before it closes.
  bool reuse_shapes_ = false;
  bool reuse_bound_only_ = false;
  bool first_use_done_ = false;
  std::unordered_map<std::string, std::unique_ptr<PreparedShape>> prepared_;
  // The shapes of texts with no literal to take out, by text.
  std::unordered_map<std::string, StatementShape> bound_only_shapes_;
  // On a server that binds literals: the keys of the shapes whose bound
  // statement failed where the statement's own text then ran, sent as their
  // texts from then on (until a definition).
  std::unordered_set<std::string> unbindable_shapes_;
  std::string key_buffer_;
  std::vector<Value> values_buffer_;
};

}  // namespace

std::unique_ptr<Connection> Connect(std::string_view url, std::string_view password) {
  return std::make_unique<SociConnection>(ParseDatabaseUrl(url, password));
}

}  // namespace kvc::db
