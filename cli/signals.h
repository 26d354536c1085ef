// What kvctb does when SIGINT or SIGTERM arrives: it says on standard error
// whether anything was written and exits at once with 128 + the signal
// number. Commits are never cut in half: SIGINT and SIGTERM are blocked while
// a commit runs and delivered once it has finished, and a handler that runs
// after a commit says that the changes were kept. The state the handler reads
// is one process-wide sig_atomic_t.
#ifndef KVC_CLI_SIGNALS_H_
#define KVC_CLI_SIGNALS_H_

#include <signal.h>

#include <string>

#include "accounting/db/connection.h"

namespace kvc::cli {

// What the process has made durable so far, as the signal handler reports it.
enum class WriteState : sig_atomic_t {
  kNothingWritten = 0,  // no commit yet: "nothing was written"
  kCommitted = 1,       // the last commit holds everything written so far
  kPartlyCommitted = 2  // something was committed, and more work was begun after it
};

// Installs the handlers of SIGINT and SIGTERM. Each writes one line on file
// descriptor 2 with write(2) and ends the process with _exit(128 + signal):
// nothing else runs, no destructor, no stream flush. A transaction left open
// in the database is rolled back by the server; an SQLite file keeps its
// rollback journal, which SQLite plays back when the file is next opened.
// Call once, first thing in main().
void InstallInterruptHandlers();

// The state the handler would report now.
WriteState CurrentWriteState();

// Starts a run of the tool with nothing written: RunKvctb calls it, since
// the tests run the tool more than once in one process.
void ResetWriteState();

// The line the handler writes for `signal` in `state`, with its line feed.
// For tests and documentation; the handler itself uses preformatted copies.
std::string InterruptMessage(int signal, WriteState state);

// Blocks SIGINT and SIGTERM in the calling thread for its lifetime, around
// one commit (or one statement that commits on its own). Call Committed()
// once the commit has succeeded: the state becomes kCommitted (or
// `after_commit`) before the signals are unblocked, so that a signal that
// arrived during the commit is delivered after it and reported as committed.
// Without Committed() (the commit raised) the state is left as it was.
class CommitSignalGuard {
 public:
  CommitSignalGuard();
  ~CommitSignalGuard();
  CommitSignalGuard(const CommitSignalGuard&) = delete;
  CommitSignalGuard& operator=(const CommitSignalGuard&) = delete;

  void Committed(WriteState after_commit = WriteState::kCommitted);

 private:
  sigset_t previous_;
};

// A decorator of Connection that puts every commit under a CommitSignalGuard
// and keeps the write state: Commit sets kCommitted; a statement run outside
// a transaction commits by itself and sets kPartlyCommitted; a Begin after a
// commit sets kPartlyCommitted. Queries and rollbacks change nothing.
class SignalSafeConnection : public db::Connection {
 public:
  // Wraps `inner`, which must outlive this object.
  explicit SignalSafeConnection(db::Connection& inner) : inner_(inner) {}

  const db::Dialect& dialect() const override { return inner_.dialect(); }
  long long Execute(const std::string& sql, const db::BoundParams& params) override;
  db::ResultSet Query(const std::string& sql, const db::BoundParams& params) override {
    return inner_.Query(sql, params);
  }
  void Begin(db::Isolation isolation) override;
  void Commit() override;
  void Rollback() override { inner_.Rollback(); }
  bool InTransaction() const override { return inner_.InTransaction(); }

  // The server's message for the last commit it refused ("" when none was):
  // the module answers a refused commit with false only.
  const std::string& LastCommitError() const { return commit_error_; }

  // While on, statements outside a transaction write nothing of the books
  // (settings, the planner statistics after a posting): they neither hold
  // the signals off nor change what an interruption reports.
  void SetBooksUntouched(bool on) { books_untouched_ = on; }

 private:
  db::Connection& inner_;
  std::string commit_error_;
  bool books_untouched_ = false;
};

}  // namespace kvc::cli

#endif  // KVC_CLI_SIGNALS_H_
