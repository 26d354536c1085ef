// One transaction held for the length of a block. Commit() or Rollback() ends
// it explicitly; leaving the block any other way (an early return, an
// exception) rolls it back. Every operation that holds a transaction uses it,
// over the module's IniciaTransacao / ComitaTransacao / RollbackTransacao or
// over a connection's Begin / Commit / Rollback.
#pragma once

#include <functional>
#include <utility>

#include "accounting/db/api.h"
#include "accounting/db/connection.h"

namespace kvc::db {

class KVC_API TransactionGuard {
 public:
  // Each step reports its result; a step may also raise, and a raising commit
  // leaves the transaction to the guard, which rolls it back.
  using Step = std::function<bool()>;

  // Whether the guard finishes a transaction that did not begin. The module
  // begins another transaction whatever the state of its own (they are not
  // nested), so a deletion that ignores its begin still ends the connection's
  // transaction, as it always has.
  enum class WhenBeginFails { kLeaveAlone, kFinishAnyway };

  TransactionGuard(const Step& begin, Step commit, Step rollback,
                   WhenBeginFails when_begin_fails = WhenBeginFails::kLeaveAlone)
      : commit_(std::move(commit)), rollback_(std::move(rollback)) {
    begun_ = begin();
    open_ = begun_ || when_begin_fails == WhenBeginFails::kFinishAnyway;
  }

  // A connection's steps raise on failure; begin's error reaches the caller
  // (nothing is open then), commit's leaves the transaction to the guard.
  static TransactionGuard Over(Connection& connection, Isolation isolation) {
    return TransactionGuard(
        [&connection, isolation] {
          connection.Begin(isolation);
          return true;
        },
        [&connection] {
          connection.Commit();
          return true;
        },
        [&connection] {
          connection.Rollback();
          return true;
        });
  }

  // Moving hands the transaction on: only the new guard ends it.
  TransactionGuard(TransactionGuard&& other) noexcept
      : commit_(std::move(other.commit_)),
        rollback_(std::move(other.rollback_)),
        begun_(other.begun_),
        open_(std::exchange(other.open_, false)) {}
  TransactionGuard(const TransactionGuard&) = delete;
  TransactionGuard& operator=(const TransactionGuard&) = delete;
  TransactionGuard& operator=(TransactionGuard&&) = delete;

  // Rolls back what was neither committed nor rolled back; never raises.
  ~TransactionGuard() {
    if (!open_) return;
    try {
      (void)rollback_();
    } catch (...) {
    }
  }

  bool Begun() const { return begun_; }

  // The commit's result. The guard is done with the transaction when the step
  // returns, whatever it says (the module's commit rolls back what it could
  // not commit); when the step raises, the destructor rolls back.
  [[nodiscard]] bool Commit() {
    if (!open_) return false;
    const bool committed = commit_();
    open_ = false;
    return committed;
  }

  // Rolls back now (a preview, a refused batch); the guard is done either way.
  [[nodiscard]] bool Rollback() {
    if (!open_) return false;
    open_ = false;
    return rollback_();
  }

 private:
  Step commit_;
  Step rollback_;
  bool begun_ = false;
  bool open_ = false;
};

}  // namespace kvc::db
