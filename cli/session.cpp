// The session of one kvctb run: global options, connection, trace, host
// context, data module and the rendering of progress commands.
#include "cli/session.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "accounting/db/dialect.h"
#include "accounting/db/error.h"
#include "accounting/db/schema.h"
#include "accounting/db/sql_format.h"
#include "accounting/services/service_libraries.h"
#include "cli/signals.h"
#include "cli/validate.h"

namespace kvc::cli {
namespace {

constexpr char kSelectLevel[] =
    "select NIVEL from CTB_CONTA where EMPRESA = :EMPRESA and REVENDA = :REVENDA and CONTA = "
    ":CONTA";
constexpr char kSelectChart[] =
    "select CONTA, CONTA_SUPERIORA, NIVEL, NIVEL_DIVISAO, LANCAMENTO_DIVIDIDO, DES_CONTA from "
    "CTB_CONTA where EMPRESA = :EMPRESA and REVENDA = :REVENDA order by CONTA";
constexpr char kSelectEntry[] =
    "select count(*) N from CTB_LANCAMENTO where EMPRESA = :EMPRESA and REVENDA = :REVENDA and "
    "ANO_MES = :ANO_MES and LANCAMENTO = :LANCAMENTO";
constexpr char kSelectEntryDay[] = " and DIA = :DIA";
constexpr char kSelectOrigin[] =
    "select o.LANCAMENTO, o.DIA from CTB_LANCAMENTO l, CTB_LANCAMENTO o where l.EMPRESA = "
    ":EMPRESA and l.REVENDA = :REVENDA and l.ANO_MES = :ANO_MES and l.LANCAMENTO = :LANCAMENTO "
    "and o.EMPRESA = l.EMPRESA and o.REVENDA = l.REVENDA and o.ANO_MES = l.ANO_MES and "
    "o.LANCAMENTO = l.LCO_ORIGEM";
// The row that keeps the date of the last result calculation.
constexpr char kCountBookNumbering[] =
    "select count(*) from FAT_NUMERACAO_LIVROS where EMPRESA = :EMPRESA and REVENDA = :REVENDA";
constexpr char kInsertBookNumbering[] =
    "insert into FAT_NUMERACAO_LIVROS (EMPRESA, REVENDA) values (:EMPRESA, :REVENDA)";
constexpr char kCountGenerated[] =
    "select count(*) from CTB_LANCAMENTO where EMPRESA = :EMPRESA and REVENDA = :REVENDA and "
    "ANO_MES = :ANO_MES and LCO_ORIGEM = :LANCAMENTO";
constexpr char kSelectVersion[] = "select VERSAO from GER_VERSAO_ESTRUTURA";
// Reads the header and the catalogue of an SQLite file, whatever it holds.
constexpr char kSelectSqliteCatalogue[] = "select count(*) from sqlite_master";

nlohmann::json JsonValue(const db::Value& v) {
  if (v.IsNull()) return nullptr;
  if (v.IsInteger()) return v.AsInteger();
  if (v.IsFloat()) return v.AsFloat();
  if (v.IsDateTime()) return v.AsDateTime().ToIso();
  return v.AsString();
}

// The path of an "sqlite:PATH" URL; empty for other URLs and ":memory:".
std::string SqlitePath(const std::string& url) {
  if (url.rfind("sqlite:", 0) != 0) return "";
  std::string path = url.substr(7);
  return path == ":memory:" ? "" : path;
}

std::string Trimmed(std::string s) {
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

std::function<void(db::TracingConnection&)>& SessionTraceObserver() {
  static std::function<void(db::TracingConnection&)> observer;
  return observer;
}

// While alive, the statements run outside a transaction are settings or
// planner statistics, which write nothing of the books: they neither hold
// the signals off nor change what an interruption reports.
class BooksUntouched {
 public:
  explicit BooksUntouched(SignalSafeConnection& connection) : connection_(connection) {
    connection_.SetBooksUntouched(true);
  }
  ~BooksUntouched() { connection_.SetBooksUntouched(false); }
  BooksUntouched(const BooksUntouched&) = delete;
  BooksUntouched& operator=(const BooksUntouched&) = delete;

 private:
  SignalSafeConnection& connection_;
};

}  // namespace

void GlobalOptions::Check() {
  CheckedText("--db", db, 1000);
  empresa = ParseInt("--company", company, 0, 999999999);
  revenda = ParseInt("--dealership", dealership, 0, 999999999);
  usuario = ParseInt("--user", user, 0, 999999999);
  busy_seconds = ParseInt("--busy-timeout", busy_timeout, 0, 3600);
  if (format == "table")
    output_format = Format::kTable;
  else if (format == "csv")
    output_format = Format::kCsv;
  else if (format == "json")
    output_format = Format::kJson;
  else if (format == "ledger")
    output_format = Format::kLedger;
  else if (format == "html")
    output_format = Format::kHtml;
  else
    throw UsageError("--format", fmt::format("'{}' is not one of table, csv, json (ledger for "
                                             "export, html for the reports)",
                                             CheckedText("--format", format)));
  if (!server_type.empty()) {
    const db::Dialect* d = db::DialectByTipoBanco(CheckedText("--server-type", server_type));
    if (!d)
      throw UsageError("--server-type", fmt::format("'{}' is not one of SQLITE, FIREBIRD, "
                                                    "POSTGRESQL, SQLSERVER, ORACLE",
                                                    server_type));
    tipo_banco = std::string(d->TipoBanco());
  }
}

std::string ColumnText(const db::Value& v) { return v.IsNull() ? "" : Trimmed(v.AsString()); }

db::BoundParams CompanyParams(const GlobalOptions& options) {
  return {{"EMPRESA", db::Value(options.empresa)}, {"REVENDA", db::Value(options.revenda)}};
}

// ---- progress -----------------------------------------------------------------

ProgressRenderer::ProgressRenderer(std::ostream& err, bool quiet, bool terminal)
    : err_(err),
      quiet_(quiet),
      terminal_(terminal),
      phase_start_(std::chrono::steady_clock::now()) {}

ProgressRenderer::~ProgressRenderer() { EndBar(); }

void ProgressRenderer::EndBar() {
  if (bar_open_) err_ << "\n" << std::flush;
  bar_open_ = false;
}

void ProgressRenderer::Counted(size_t done, size_t total, const std::string& unit) {
  if (quiet_ || total == 0) return;
  if (done == 0) {
    phase_start_ = std::chrono::steady_clock::now();
    last_plain_ = -1;
    last_counted_ = -1;
  }
  const int percent = static_cast<int>(std::min(done, total) * 100 / total);
  if (percent == last_counted_) return;
  last_counted_ = percent;
  Draw(percent, done, total, unit);
}

void ProgressRenderer::Draw(int percent, size_t done, size_t total, const std::string& unit) {
  if (terminal_) {
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - phase_start_).count();
    const auto whole = static_cast<long long>(seconds);
    const int filled = percent * 30 / 100;
    std::string rate;
    if (!unit.empty())
      rate = fmt::format(
          "  {} {}/s",
          seconds > 0 ? static_cast<long long>(static_cast<double>(done) / seconds) : 0, unit);
    err_ << fmt::format("\r[{}{}] {:3d}%  {:02d}:{:02d}{}", std::string(filled, '#'),
                        std::string(30 - filled, '.'), percent, whole / 60, whole % 60, rate)
         << std::flush;
    bar_open_ = true;
    if (percent == 100) EndBar();
  } else if (percent / 10 != last_plain_ / 10 || last_plain_ < 0) {
    std::string count;
    if (!unit.empty()) count = fmt::format(" ({} of {} {})", done, total, unit);
    err_ << fmt::format("progress: {}%{}", percent - percent % 10, count) << "\n";
    last_plain_ = percent;
  }
}

void ProgressRenderer::Status(const std::string& text) {
  if (quiet_) return;
  EndBar();
  err_ << text << "\n" << std::flush;
}

void ProgressRenderer::Execute(const std::string& json_command) {
  std::string command;
  try {
    command = CommandFromJson(json_command);
  } catch (const std::exception&) {
    command = json_command;
  }
  const std::string caption = kCmdCaption;
  const std::string bar = kCmdBar;
  const std::string error = kCmdError;
  if (command.rfind(caption, 0) == 0) {
    Status(command.substr(caption.size()));
  } else if (command.rfind(bar, 0) == 0) {
    if (quiet_) return;
    int percent = 0;
    try {
      percent = std::stoi(command.substr(bar.size()));
    } catch (const std::exception&) {
      return;
    }
    percent = std::max(0, std::min(100, percent));
    if (percent == 0) {
      phase_start_ = std::chrono::steady_clock::now();
      last_plain_ = -1;
    }
    Draw(percent, 0, 0, "");
  } else if (command.rfind(error, 0) == 0) {
    error_received_ = true;
    EndBar();
    std::string rest = command.substr(error.size());
    std::string title;
    const size_t sep = rest.find(kCmdSeparator);
    if (sep != std::string::npos) {
      title = rest.substr(sep + std::string(kCmdSeparator).size());
      rest = rest.substr(0, sep);
    }
    err_ << "kvctb: error: " << (title.empty() ? "" : title + ": ") << rest << "\n" << std::flush;
  } else if (!quiet_) {
    Status(command);
  }
}

// ---- session --------------------------------------------------------------------

void SetSessionTraceObserver(std::function<void(db::TracingConnection&)> observer) {
  SessionTraceObserver() = std::move(observer);
}

// SQLite waits for a busy database (see the connection's busy timeout)
// before a begin gives up; a server refuses it when the connection is lost.
db::TransactionGuard BeginTransaction(TddmContabilidadeBD& dm) {
  db::TransactionGuard transaction = dm.NovaTransacao();
  if (transaction.Begun()) return transaction;
  throw std::runtime_error(
      "cannot begin a transaction: the database is busy or unreachable (another program may "
      "be writing to it; run the command again when it has finished)");
}

namespace {

// The structure version recorded in the database ("" when the table is
// empty), or nullopt when it has no accounting schema. A file that SQLite
// cannot read as a database is an error, not a database without the schema:
// `kvctb init` would fail on it too.
// Whether a server error says that another connection holds the lock
// (SQLite after its busy timeout).
bool Busy(const std::string& message) {
  return message.find("database is locked") != std::string::npos ||
         message.find("database is busy") != std::string::npos;
}

// A database held by another program past the busy timeout is reported as
// busy (with what to do), never as missing its schema or as not a database.
std::optional<std::string> StructureVersion(db::Connection& c, const std::string& sqlite_path) {
  try {
    const auto rows = c.Query(kSelectVersion, {}).rows;
    return rows.empty() ? "" : ColumnText(rows.at(0).at(0));
  } catch (const db::DatabaseError& e) {
    if (Busy(e.what())) throw;
    if (sqlite_path.empty()) return std::nullopt;
  }
  try {
    c.Query(kSelectSqliteCatalogue, {});
  } catch (const db::DatabaseError& e) {
    if (Busy(e.what())) throw;
    throw std::runtime_error(fmt::format(
        "'{}' is not an SQLite database file, or it is damaged: check the --db path; nothing was "
        "read or written",
        sqlite_path));
  }
  return std::nullopt;
}

}  // namespace

std::string DatabaseConditionHint(const std::string& message, int32_t busy_seconds) {
  auto has = [&](const char* text) { return message.find(text) != std::string::npos; };
  if (Busy(message))
    return fmt::format(
        "the database is locked: another program held it for longer than the {} s kvctb waits "
        "(--busy-timeout); run the command again when that program has finished",
        busy_seconds);
  if (has("readonly database"))
    return "the database file is read-only for this user: make it writable, or work on a "
           "writable copy";
  if (has("unable to open database file"))
    return "SQLite could not create its rollback journal beside the database file: the "
           "directory must be writable for this user";
  if (has("database or disk is full") || has("disk I/O error"))
    return "the disk refused a write (full, or over the process's file-size limit): free some "
           "space and run the command again";
  if (has("FATAL:  database \"") && has("does not exist"))
    return "kvctb init creates the tables in a PostgreSQL database that exists: create the "
           "database first (for example: createdb -h HOST -U USER DBNAME)";
  if (has("database disk image is malformed") || has("file is not a database"))
    return "the database file is damaged: restore it from a backup";
  return "";
}

Session::Session(const GlobalOptions& options, std::ostream* trace, bool require_schema)
    : options_(options), progress_(std::cerr, options.quiet, isatty(2)) {
  const std::string path = SqlitePath(options.db);
  if (require_schema && !path.empty() && !std::filesystem::exists(path))
    throw std::runtime_error(
        fmt::format("database '{}' does not exist (create it with: kvctb init)", path));
  const char* password = std::getenv("KVCTB_PASSWORD");
  raw_ = db::Connect(options.db, password ? password : "");
  // The connection's own setting, as the connection layer makes it (30 s).
  if (!path.empty() && options.busy_seconds != 30)
    raw_->Execute("pragma busy_timeout = " + sql::Integer(int64_t{options.busy_seconds} * 1000),
                  {});
  signal_safe_ = std::make_unique<SignalSafeConnection>(*raw_);
  traced_ = std::make_unique<db::TracingConnection>(*signal_safe_);
  // The trace is only written through the sink (--trace-sql) and used for
  // its fault injection in tests; kept in memory it would grow with every
  // statement of a long posting.
  traced_->KeepTrace(false);
  if (trace) {
    traced_->SetSink([trace](const db::TracedStatement& s) {
      nlohmann::json params = nlohmann::json::object();
      for (const auto& p : s.params) params[p.name] = JsonValue(p.value);
      nlohmann::json line = {{"sql", s.sql}, {"params", params}};
      if (s.failed) line["failed"] = true;
      *trace << line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << "\n"
             << std::flush;
    });
  }
  if (SessionTraceObserver()) SessionTraceObserver()(*traced_);
  if (require_schema) {
    const std::optional<std::string> version = StructureVersion(*traced_, path);
    if (!version)
      throw std::runtime_error(
          "the database has no accounting schema (create it with: kvctb init)");
    // The module refuses another version with a message that names its own
    // version twice; the tool names both.
    if (*version != kVersaoEstrutura)
      throw std::runtime_error(fmt::format(
          "the database has structure version {} and this kvctb works with version {}; nothing "
          "was read or written",
          version->empty() ? "(none recorded)" : *version, kVersaoEstrutura));
    Bind();
  }
}

void EnsureBookNumbering(Session& session) {
  const db::BoundParams params = CompanyParams(session.Options());
  if (session.Connection().Query(kCountBookNumbering, params).rows.at(0).at(0).AsInteger() == 0)
    session.Connection().Execute(kInsertBookNumbering, params);
}

void CommitTransaction(Session& session, db::TransactionGuard& transaction,
                       const std::string& what) {
  if (transaction.Commit()) return;
  const std::string& reason = session.LastCommitError();
  throw std::runtime_error(
      fmt::format("{} could not be committed{}{}", what, reason.empty() ? "" : ": ", reason));
}

void InTransaction(Session& session, const std::string& what, const std::function<bool()>& work) {
  db::TransactionGuard transaction = BeginTransaction(session.Module());
  // Raising or returning false leaves the rollback to the guard.
  if (work()) CommitTransaction(session, transaction, what);
}

void Session::Bind() {
  host_.tipo_banco =
      options_.tipo_banco.empty() ? std::string(raw_->dialect().TipoBanco()) : options_.tipo_banco;
  host_.empresa = options_.empresa;
  host_.revenda = options_.revenda;
  host_.revenda_aplicacao = options_.revenda;
  host_.codigo_usuario = options_.usuario;
  module_ = std::make_unique<TddmContabilidadeBD>();
  module_->AtualizaTAplicacao(host_, traced_.get(), 1);
  if (host_.terminate_requested)
    throw std::runtime_error("the module refused the database: " + host_.last_message);
  module_->SetaSQLConnection();
  // The totals of the result calculation are printed with fixed separators,
  // whatever the locale.
  module_->DefineSeparadoresNumericos(DisplaySeparators());
}

SeparadoresNumericos DisplaySeparators() { return SeparadoresNumericos{".", ","}; }

Session::~Session() {
  progress_.EndBar();
  if (module_) {
    if (module_->TransacaoAtiva()) (void)module_->RollbackTransacao();
    module_->LimpaSQLConnection();
    module_->FinalizaDM();
  }
}

void Session::RefreshStatistics() {
  // The entries are committed: an interruption now reports them written.
  const BooksUntouched untouched(*signal_safe_);
  for (const std::string& statement : traced_->dialect().StatisticsRefresh()) {
    try {
      traced_->Execute(statement, {});
    } catch (const db::DatabaseError& e) {
      std::cerr << "kvctb: warning: the entries are committed, but the server refused to refresh "
                   "its planner statistics ("
                << statement << ": " << e.what()
                << "); reads may be slow until it refreshes them itself\n";
      return;
    }
  }
}

void Session::PrepareLongWrite() {
  const BooksUntouched untouched(*signal_safe_);
  for (const std::string& statement : traced_->dialect().LongWriteSetup())
    traced_->Execute(statement, {});
}

std::optional<std::string> Session::AccountLevel(const std::string& conta) {
  db::BoundParams params = CompanyParams(options_);
  params.push_back({"CONTA", db::Value(conta)});
  const db::ResultSet rs = traced_->Query(kSelectLevel, params);
  if (rs.rows.empty()) return std::nullopt;
  return Trimmed(rs.rows[0].at(0).AsString());
}

std::vector<ChartLine> Session::Chart() {
  std::vector<ChartLine> chart;
  for (const auto& row : traced_->Query(kSelectChart, CompanyParams(options_)).rows) {
    ChartLine c;
    c.conta = ColumnText(row.at(0));
    c.superiora = ColumnText(row.at(1));
    c.nivel = ColumnText(row.at(2));
    if (!row.at(3).IsNull()) c.nivel_divisao = static_cast<int32_t>(row.at(3).AsInteger());
    c.dividido = ColumnText(row.at(4));
    c.descricao = ColumnText(row.at(5));
    chart.push_back(std::move(c));
  }
  return chart;
}

std::optional<Session::EntryRef> Session::EntryOrigin(int32_t ano_mes, int32_t lancamento) {
  db::BoundParams params = CompanyParams(options_);
  params.push_back({"ANO_MES", db::Value(ano_mes)});
  params.push_back({"LANCAMENTO", db::Value(lancamento)});
  const auto rows = traced_->Query(kSelectOrigin, params).rows;
  if (rows.empty() || rows.at(0).at(0).AsInteger() == lancamento) return std::nullopt;
  return EntryRef{static_cast<int32_t>(rows.at(0).at(0).AsInteger()),
                  static_cast<int32_t>(rows.at(0).at(1).AsInteger())};
}

bool Session::HasGeneratedEntries(int32_t ano_mes, int32_t lancamento) {
  db::BoundParams params = CompanyParams(options_);
  params.push_back({"ANO_MES", db::Value(ano_mes)});
  params.push_back({"LANCAMENTO", db::Value(lancamento)});
  return traced_->Query(kCountGenerated, params).rows.at(0).at(0).AsInteger() > 0;
}

bool Session::EntryExists(int32_t ano_mes, int32_t lancamento, int32_t dia) {
  db::BoundParams params = CompanyParams(options_);
  params.push_back({"ANO_MES", db::Value(ano_mes)});
  params.push_back({"LANCAMENTO", db::Value(lancamento)});
  std::string sql = kSelectEntry;
  if (dia != -1) {
    sql += kSelectEntryDay;
    params.push_back({"DIA", db::Value(dia)});
  }
  return traced_->Query(sql, params).rows.at(0).at(0).AsInteger() > 0;
}

}  // namespace kvc::cli
