// TracingConnection: a decorator of Connection that records every statement
// sent to the server, with its parameters, and can make chosen statements fail
// with a database error. Tests assert exact statement texts through it; the
// command-line tool writes the trace to a file; reliability tests inject
// failures through it.
#ifndef KVC_DB_TRACE_H_
#define KVC_DB_TRACE_H_

#include <functional>
#include <string>
#include <vector>

#include "accounting/db/api.h"
#include "accounting/db/connection.h"

namespace kvc::db {

struct KVC_API TracedStatement {
  enum class Kind { kExecute, kQuery, kBegin, kCommit, kRollback };
  Kind kind = Kind::kExecute;
  std::string sql;  // empty for transaction operations
  BoundParams params;
  bool failed = false;    // the server (or an injected fault) refused it
  bool injected = false;  // the failure was injected
};

class KVC_API TracingConnection : public Connection {
 public:
  // Wraps `inner`, which must outlive this object.
  explicit TracingConnection(Connection& inner) : inner_(inner) {}

  const Dialect& dialect() const override { return inner_.dialect(); }
  long long Execute(const std::string& sql, const BoundParams& params) override;
  ResultSet Query(const std::string& sql, const BoundParams& params) override;
  void Begin(Isolation isolation) override;
  void Commit() override;
  void Rollback() override;
  bool InTransaction() const override { return inner_.InTransaction(); }

  // ---- the trace ------------------------------------------------------------
  // Everything recorded since the last Clear, in order, transaction operations
  // included.
  const std::vector<TracedStatement>& Trace() const { return trace_; }
  // Only the texts of executed statements and queries, in order.
  std::vector<std::string> Statements() const;
  void Clear() { trace_.clear(); }
  // Whether Trace keeps what is sent (the default). A long-running client
  // that only needs the sink turns it off: the trace of a posting of a
  // million records would hold every statement in memory.
  void KeepTrace(bool on) {
    keep_ = on;
    if (!on) trace_.clear();
  }
  // Called for each statement and query as it is sent (after it ran or
  // failed); the command-line tool's --trace-sql writes through it.
  void SetSink(std::function<void(const TracedStatement&)> sink) { sink_ = std::move(sink); }

  // ---- fault injection --------------------------------------------------------
  // The n-th statement or query sent from now on (1-based) fails with
  // DatabaseError(message) without reaching the server.
  void FailNth(size_t n, std::string message = "injected failure");
  // Every statement or query whose text contains `fragment` fails.
  void FailMatching(std::string fragment, std::string message = "injected failure");
  // Makes Commit fail until cleared, leaving the transaction open on the
  // server, as a refused commit does, for the caller to roll back.
  void FailCommit(bool on, std::string message = "injected commit failure");
  // Makes only the next Commit fail, in the same way.
  void FailNextCommit(std::string message = "injected commit failure");
  void ClearFaults();
  // Statements and queries sent since the last ClearFaults or FailNth.
  size_t SentCount() const { return sent_; }

 private:
  void MaybeFail(TracedStatement& traced);
  template <class Op>
  auto Forward(TracedStatement traced, Op op) -> decltype(op());
  void Record(TracedStatement traced);

  Connection& inner_;
  std::vector<TracedStatement> trace_;
  bool keep_ = true;
  std::function<void(const TracedStatement&)> sink_;
  size_t sent_ = 0;
  size_t fail_nth_ = 0;
  std::vector<std::string> fail_fragments_;
  bool fail_commit_ = false;
  bool fail_next_commit_ = false;
  std::string fail_message_ = "injected failure";
  std::string commit_message_;
};

}  // namespace kvc::db

#endif  // KVC_DB_TRACE_H_
