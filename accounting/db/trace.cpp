// The statement trace and fault injection decorator.
#include "accounting/db/trace.h"

#include <type_traits>
#include <utility>

#include "accounting/db/error.h"

namespace kvc::db {

std::vector<std::string> TracingConnection::Statements() const {
  std::vector<std::string> out;
  for (const auto& t : trace_)
    if (t.kind == TracedStatement::Kind::kExecute || t.kind == TracedStatement::Kind::kQuery)
      out.push_back(t.sql);
  return out;
}

void TracingConnection::FailNth(size_t n, std::string message) {
  sent_ = 0;
  fail_nth_ = n;
  fail_message_ = std::move(message);
}

void TracingConnection::FailMatching(std::string fragment, std::string message) {
  fail_fragments_.push_back(std::move(fragment));
  fail_message_ = std::move(message);
}

void TracingConnection::FailCommit(bool on, std::string message) {
  fail_commit_ = on;
  commit_message_ = std::move(message);
}

void TracingConnection::FailNextCommit(std::string message) {
  fail_next_commit_ = true;
  commit_message_ = std::move(message);
}

void TracingConnection::ClearFaults() {
  sent_ = 0;
  fail_nth_ = 0;
  fail_fragments_.clear();
  fail_commit_ = false;
  fail_next_commit_ = false;
}

void TracingConnection::MaybeFail(TracedStatement& traced) {
  ++sent_;
  bool fail = fail_nth_ != 0 && sent_ == fail_nth_;
  for (const auto& f : fail_fragments_) fail = fail || traced.sql.find(f) != std::string::npos;
  if (!fail) return;
  traced.failed = traced.injected = true;
  Record(traced);
  throw DatabaseError(fail_message_, traced.sql);
}

void TracingConnection::Record(TracedStatement traced) {
  if (sink_ && (traced.kind == TracedStatement::Kind::kExecute ||
                traced.kind == TracedStatement::Kind::kQuery))
    sink_(traced);
  if (keep_) trace_.push_back(std::move(traced));
}

// Runs `op` on the inner connection and records `traced`, marked failed
// (and the error passed on) when `op` raises.
template <class Op>
auto TracingConnection::Forward(TracedStatement traced, Op op) -> decltype(op()) {
  try {
    if constexpr (std::is_void_v<decltype(op())>) {
      op();
      Record(std::move(traced));
    } else {
      auto result = op();
      Record(std::move(traced));
      return result;
    }
  } catch (...) {
    traced.failed = true;
    Record(std::move(traced));
    throw;
  }
}

long long TracingConnection::Execute(const std::string& sql, const BoundParams& params) {
  TracedStatement t{TracedStatement::Kind::kExecute, sql, params, false, false};
  MaybeFail(t);
  return Forward(std::move(t), [&] { return inner_.Execute(sql, params); });
}

ResultSet TracingConnection::Query(const std::string& sql, const BoundParams& params) {
  TracedStatement t{TracedStatement::Kind::kQuery, sql, params, false, false};
  MaybeFail(t);
  return Forward(std::move(t), [&] { return inner_.Query(sql, params); });
}

void TracingConnection::Begin(Isolation isolation) {
  inner_.Begin(isolation);
  Record(TracedStatement{TracedStatement::Kind::kBegin, {}, {}, false, false});
}

void TracingConnection::Commit() {
  if (fail_commit_ || fail_next_commit_) {
    fail_next_commit_ = false;
    // The server refuses the commit: as on a real server, the transaction
    // stays open with its work pending until the caller rolls it back.
    Record(TracedStatement{TracedStatement::Kind::kCommit, {}, {}, true, true});
    throw DatabaseError(commit_message_, "commit");
  }
  Forward(TracedStatement{TracedStatement::Kind::kCommit, {}, {}, false, false},
          [this] { inner_.Commit(); });
}

void TracingConnection::Rollback() {
  Forward(TracedStatement{TracedStatement::Kind::kRollback, {}, {}, false, false},
          [this] { inner_.Rollback(); });
}

}  // namespace kvc::db
