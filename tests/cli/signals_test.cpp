// The SIGINT and SIGTERM handling of kvctb (cli/signals.h) at the moments
// a random kill rarely hits: a signal that arrives during a commit, a commit
// that fails, work begun after a commit. Each case runs in a forked child
// that installs the handlers and signals itself; the parent checks the exit
// code, the line on standard error and the rows the SQLite file holds.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "accounting/db/connection.h"
#include "accounting/db/error.h"
#include "cli/kvctb_process.h"
#include "cli/signals.h"

namespace kvc::cli::testing {
namespace {

// Forwards everything to a connection, and at Commit first sends the process
// `signal` (while the commit guard holds it off), then commits, or throws
// instead when `refuse` is set, leaving the transaction open as a refused
// commit does.
class SignalAtCommit : public db::Connection {
 public:
  SignalAtCommit(db::Connection& inner, int signal, bool refuse)
      : inner_(inner), signal_(signal), refuse_(refuse) {}
  const db::Dialect& dialect() const override { return inner_.dialect(); }
  long long Execute(const std::string& sql, const db::BoundParams& params) override {
    return inner_.Execute(sql, params);
  }
  db::ResultSet Query(const std::string& sql, const db::BoundParams& params) override {
    return inner_.Query(sql, params);
  }
  void Begin(db::Isolation isolation) override { inner_.Begin(isolation); }
  void Commit() override {
    kill(getpid(), signal_);
    if (refuse_) throw db::DatabaseError("refused by the test", "commit");
    inner_.Commit();
  }
  void Rollback() override { inner_.Rollback(); }
  bool InTransaction() const override { return inner_.InTransaction(); }

 private:
  db::Connection& inner_;
  int signal_;
  bool refuse_;
};

struct ChildResult {
  int exit_code = -1;
  std::string err;
  std::vector<long long> rows;  // the values in table T afterwards
};

class SignalsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = NewDirectory(::testing::UnitTest::GetInstance()->current_test_info()->name());
    path_ = dir_ + "/t.db";
    db::Connect("sqlite:" + path_)->Execute("create table T (N integer)", {});
  }

  // Runs `body` in a child with the handlers installed and standard error
  // going to a file; the child ends with 0 when `body` returns.
  ChildResult InChild(const std::function<void(db::Connection&)>& body) {
    const std::string err_path = dir_ + "/err";
    const pid_t pid = fork();
    if (pid == 0) {
      const int fd = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      dup2(fd, 2);
      try {
        // The write state is the process's: a kvctb run earlier in this
        // test process (the fault loops run it in process) may have left it
        // at committed.
        ResetWriteState();
        InstallInterruptHandlers();
        auto c = db::Connect("sqlite:" + path_);
        body(*c);
      } catch (...) {
        _exit(99);
      }
      _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    ChildResult r;
    r.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    r.err = ReadFile(err_path);
    for (const auto& row :
         db::Connect("sqlite:" + path_)->Query("select N from T order by N", {}).rows)
      r.rows.push_back(row.at(0).AsInteger());
    const auto check = db::Connect("sqlite:" + path_)->Query("pragma integrity_check", {});
    EXPECT_EQ(check.rows.at(0).at(0).AsString(), "ok");
    return r;
  }

  std::string dir_, path_;
};

using Rows = std::vector<long long>;

TEST_F(SignalsTest, InterruptBeforeAnyCommitSaysNothingWasWritten) {
  const ChildResult r = InChild([](db::Connection& c) {
    SignalSafeConnection safe(c);
    safe.Begin(db::Isolation::kReadCommitted);
    safe.Execute("insert into T values (1)", {});
    kill(getpid(), SIGINT);
  });
  EXPECT_EQ(r.exit_code, 130);
  EXPECT_EQ(r.err, "kvctb: interrupted (SIGINT); nothing was written\n");
  EXPECT_EQ(r.rows, Rows{});  // the open transaction was rolled back from the journal
}

TEST_F(SignalsTest, SignalDuringACommitIsDeliveredAfterItAndReportedAsCommitted) {
  for (int signal : {SIGINT, SIGTERM}) {
    db::Connect("sqlite:" + path_)->Execute("delete from T", {});
    const ChildResult r = InChild([signal](db::Connection& c) {
      SignalAtCommit at_commit(c, signal, false);
      SignalSafeConnection safe(at_commit);
      safe.Begin(db::Isolation::kReadCommitted);
      safe.Execute("insert into T values (1)", {});
      safe.Commit();
    });
    const std::string name = signal == SIGINT ? "SIGINT" : "SIGTERM";
    EXPECT_EQ(r.exit_code, 128 + signal) << name;
    EXPECT_EQ(r.err, "kvctb: interrupted (" + name +
                         ") after the changes were committed; they were kept\n");
    EXPECT_EQ(r.rows, Rows{1}) << name;
  }
}

TEST_F(SignalsTest, SignalDuringARefusedCommitSaysNothingWasWritten) {
  const ChildResult r = InChild([](db::Connection& c) {
    SignalAtCommit at_commit(c, SIGTERM, true);
    SignalSafeConnection safe(at_commit);
    safe.Begin(db::Isolation::kReadCommitted);
    safe.Execute("insert into T values (1)", {});
    try {
      safe.Commit();
    } catch (const db::DatabaseError&) {
    }
  });
  EXPECT_EQ(r.exit_code, 143);
  EXPECT_EQ(r.err, "kvctb: interrupted (SIGTERM); nothing was written\n");
  EXPECT_EQ(r.rows, Rows{});
}

TEST_F(SignalsTest, WorkBegunAfterACommitIsReportedAsNotWritten) {
  const ChildResult r = InChild([](db::Connection& c) {
    SignalSafeConnection safe(c);
    safe.Begin(db::Isolation::kReadCommitted);
    safe.Execute("insert into T values (1)", {});
    safe.Commit();
    safe.Begin(db::Isolation::kReadCommitted);
    safe.Execute("insert into T values (2)", {});
    kill(getpid(), SIGINT);
  });
  EXPECT_EQ(r.exit_code, 130);
  EXPECT_EQ(r.err,
            "kvctb: interrupted (SIGINT); the changes committed before were kept, the rest was "
            "not written\n");
  EXPECT_EQ(r.rows, Rows{1});
}

TEST_F(SignalsTest, AStatementOutsideATransactionCountsAsCommitted) {
  const ChildResult r = InChild([](db::Connection& c) {
    SignalSafeConnection safe(c);
    safe.Execute("insert into T values (3)", {});
    kill(getpid(), SIGTERM);
  });
  EXPECT_EQ(r.exit_code, 143);
  EXPECT_EQ(r.err,
            "kvctb: interrupted (SIGTERM); the changes committed before were kept, the rest was "
            "not written\n");
  EXPECT_EQ(r.rows, Rows{3});
}

// The planner-statistics refresh after a posting writes nothing of the
// books: an interruption during it reports the posting committed and kept,
// not "the rest was not written".
TEST_F(SignalsTest, AnInterruptionDuringTheStatisticsRefreshReportsThePostingKept) {
  const ChildResult r = InChild([](db::Connection& c) {
    SignalSafeConnection safe(c);
    safe.Begin(db::Isolation::kReadCommitted);
    safe.Execute("insert into T values (4)", {});
    safe.Commit();
    safe.SetBooksUntouched(true);
    safe.Execute("analyze T", {});
    kill(getpid(), SIGINT);
  });
  EXPECT_EQ(r.exit_code, 130);
  EXPECT_EQ(r.err,
            "kvctb: interrupted (SIGINT) after the changes were committed; they were kept\n");
  EXPECT_EQ(r.rows, Rows{4});
}

TEST_F(SignalsTest, TheGuardRestoresTheSignalMask) {
  sigset_t before, inside, after;
  pthread_sigmask(SIG_SETMASK, nullptr, &before);
  {
    CommitSignalGuard guard;
    pthread_sigmask(SIG_SETMASK, nullptr, &inside);
  }
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  EXPECT_TRUE(sigismember(&inside, SIGINT));
  EXPECT_TRUE(sigismember(&inside, SIGTERM));
  EXPECT_EQ(sigismember(&after, SIGINT), sigismember(&before, SIGINT));
  EXPECT_EQ(sigismember(&after, SIGTERM), sigismember(&before, SIGTERM));
}

}  // namespace
}  // namespace kvc::cli::testing
