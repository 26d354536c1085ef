// The binding of the data module to a database for one run of kvctb: the
// global options, the connection (wrapped in the statement trace), the host
// context, and the progress callback that renders the module's commands on
// standard error.
#ifndef KVC_CLI_SESSION_H_
#define KVC_CLI_SESSION_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "accounting/db/connection.h"
#include "accounting/db/trace.h"
#include "accounting/module/formato_numerico.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "cli/chart.h"
#include "cli/output.h"
#include "cli/signals.h"

namespace kvc::cli {

// The options given before the command, as typed and as checked.
struct GlobalOptions {
  std::string db = "sqlite:kvctb.db";
  std::string company = "1";
  std::string dealership = "1";
  std::string user = "1";
  std::string server_type;
  std::string format = "table";
  std::string trace_sql;
  bool quiet = false;
  std::string busy_timeout = "30";

  // Filled by Check().
  int32_t empresa = 1;
  int32_t revenda = 1;
  int32_t usuario = 1;
  int32_t busy_seconds = 30;  // how long an SQLite command waits for another writer
  Format output_format = Format::kTable;
  // The canonical server-type name, or empty to take the connection's.
  std::string tipo_banco;

  // Checks every field; throws UsageError naming the option.
  void Check();
};

// Renders the module's progress commands on standard error:
// "pnlMensagem.Caption#$#TEXT" as a status line, "pBar#$#N" as a bar with
// percentage and elapsed time on a terminal or as a plain line at every ten
// percent otherwise (nothing with --quiet), and "mtError#$#MESSAGE#$#TITLE" as
// an error message, shown even with --quiet.
class ProgressRenderer : public IProgressCallback {
 public:
  ProgressRenderer(std::ostream& err, bool quiet, bool terminal);
  ~ProgressRenderer() override;
  void Execute(const std::string& json_command) override;
  // A status line of the tool's own.
  void Status(const std::string& text);
  // The progress of a count the tool keeps itself (`done` of `total`
  // `unit`, e.g. records): on a terminal a bar with the rate per second,
  // otherwise a plain line at every ten percent. Drawn when the percentage
  // moves; nothing with --quiet.
  void Counted(size_t done, size_t total, const std::string& unit);
  // Ends a bar drawn on the terminal.
  void EndBar();
  // Whether an error command was received.
  bool ErrorReceived() const { return error_received_; }

 private:
  // Draws `percent` of the current phase: the bar and its elapsed time on a
  // terminal, otherwise a plain line when the tens of the percentage move.
  // With a `unit`, the rate of `done` per second follows the bar and
  // "(done of total unit)" the plain line.
  void Draw(int percent, size_t done, size_t total, const std::string& unit);

  std::ostream& err_;
  bool quiet_;
  bool terminal_;
  bool bar_open_ = false;
  int last_plain_ = -1;
  int last_counted_ = -1;
  std::chrono::steady_clock::time_point phase_start_;
  bool error_received_ = false;
};

// The separators of the amounts the module formats for the tool (the totals
// of the result calculation), whatever the locale.
SeparadoresNumericos DisplaySeparators();

class Session {
 public:
  // Opens the database of `options`, wraps it in the trace (writing to
  // `trace` when not null) and, unless `bind` is false, binds a data module
  // to it as a host does. Throws std::runtime_error when the database cannot
  // be opened, has no schema (`require_schema`) or the module refuses it.
  Session(const GlobalOptions& options, std::ostream* trace, bool require_schema = true);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Binds the data module (done by the constructor when the schema exists).
  void Bind();

  TddmContabilidadeBD& Module() { return *module_; }
  db::Connection& Connection() { return *traced_; }
  ProgressRenderer& Progress() { return progress_; }
  const GlobalOptions& Options() const { return options_; }

  // Brings the server's planner statistics of the journal up to date after a
  // large posting (the dialect's StatisticsRefresh). The entries are
  // committed by then: a refusal is a warning on standard error, not a
  // failure of the command.
  void RefreshStatistics();
  // Settings of the server for the long write transaction about to begin
  // (the dialect's LongWriteSetup; the constructor has used the connection
  // by then, so the connection's first-use settings cannot undo them). They
  // write nothing of the books; a refusal fails the command before it
  // writes anything.
  void PrepareLongWrite();

  // The level ("A" or "S") of an account of the chart, or nullopt.
  std::optional<std::string> AccountLevel(const std::string& conta);
  // Every account of the company and dealership, in code order, as the
  // chart file of chart-import gives it (line 0).
  std::vector<ChartLine> Chart();
  // The server's message for the last commit it refused, or "".
  const std::string& LastCommitError() const { return signal_safe_->LastCommitError(); }
  // The entry an entry was generated from (its LCO_ORIGEM), when it was
  // generated from one that stands in the same month; nullopt otherwise.
  struct EntryRef {
    int32_t lancamento;
    int32_t dia;
  };
  std::optional<EntryRef> EntryOrigin(int32_t ano_mes, int32_t lancamento);
  // Whether entries of the same month were generated from an entry.
  bool HasGeneratedEntries(int32_t ano_mes, int32_t lancamento);
  // Whether an entry exists (on day `dia` when it is not -1).
  bool EntryExists(int32_t ano_mes, int32_t lancamento, int32_t dia = -1);

 private:
  GlobalOptions options_;
  std::unique_ptr<db::Connection> raw_;
  // Between the trace and the server: every commit runs with SIGINT and
  // SIGTERM held off (cli/signals.h).
  std::unique_ptr<SignalSafeConnection> signal_safe_;
  std::unique_ptr<db::TracingConnection> traced_;
  TSimpleHostContext host_;
  std::unique_ptr<TddmContabilidadeBD> module_;
  ProgressRenderer progress_;
};

// What the user can do when the database itself failed a command, rather
// than the command's input: another program holding the lock past the busy
// timeout, a read-only file or directory, a full disk or file-size limit, a
// damaged file. Empty for any other error text.
// `busy_seconds` is the wait that ran out, for the busy case.
std::string DatabaseConditionHint(const std::string& message, int32_t busy_seconds = 30);

// Creates the company and dealership's row of FAT_NUMERACAO_LIVROS, with no
// date, when there is none; committed on its own. The result calculation
// records its closing date by updating that row: without it (a company set
// up by kvctb alone) the date would be lost, and the next calculation would
// close the same movement again. The module reads a row without a date as
// "never calculated".
void EnsureBookNumbering(Session& session);

// Commits the guarded transaction, or throws std::runtime_error saying that
// `what` could not be committed and what the server answered.
void CommitTransaction(Session& session, db::TransactionGuard& transaction,
                       const std::string& what);

// Runs `work` inside a transaction of the module: rolled back when it raises
// (the exception goes on) or returns false, committed otherwise
// (CommitTransaction, naming `what`).
void InTransaction(Session& session, const std::string& what, const std::function<bool()>& work);

// Begins the module's transaction and returns its guard (rolling back unless
// committed), or throws std::runtime_error saying why a begin can fail: the
// module answers only false.
[[nodiscard]] db::TransactionGuard BeginTransaction(TddmContabilidadeBD& dm);

// For the tests: a function called with the statement trace of every session
// the tool opens, before its first statement, to inject faults or count
// statements. The tool itself never sets one.
void SetSessionTraceObserver(std::function<void(db::TracingConnection&)> observer);

// The company and dealership parameters of the tool's own reads.
db::BoundParams CompanyParams(const GlobalOptions& options);

// The text of a column without the blanks a CHAR column pads it with on the
// right; "" for null.
std::string ColumnText(const db::Value& v);

}  // namespace kvc::cli

#endif  // KVC_CLI_SESSION_H_
