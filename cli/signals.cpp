// The SIGINT and SIGTERM handlers of kvctb, the guard that holds them off
// during a commit, and the connection decorator that applies the guard to
// every commit of the run, the module's own included. The handler touches
// only the write state and the preformatted messages below, and calls only
// write(2) and _exit(2), which are async-signal-safe.
#include "cli/signals.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kvc::cli {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM};
constexpr int kStates = 3;

volatile sig_atomic_t g_state = static_cast<sig_atomic_t>(WriteState::kNothingWritten);

// The handler's lines, written before any handler is installed and never
// changed afterwards: [signal index][state].
struct Message {
  char text[160];
  size_t size;
};
Message g_messages[std::size(kSignals)][kStates];

const char* SignalName(int signal) { return signal == SIGINT ? "SIGINT" : "SIGTERM"; }

int SignalIndex(int signal) { return signal == SIGINT ? 0 : 1; }

void OnInterrupt(int signal) {
  int state = g_state;
  if (state < 0 || state >= kStates) state = 0;
  const Message& m = g_messages[SignalIndex(signal)][state];
  const char* p = m.text;
  size_t left = m.size;
  while (left > 0) {
    const ssize_t n = write(2, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    p += n;
    left -= static_cast<size_t>(n);
  }
  // Ends the process without unwinding: an open SQLite transaction stays in
  // its rollback journal (a "hot" journal), and SQLite rolls it back the next
  // time the file is opened; a server rolls back a transaction whose
  // connection went away. Nothing half-committed can be left, since commits
  // run with these signals blocked.
  _exit(128 + signal);
}

sigset_t InterruptSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (int s : kSignals) sigaddset(&set, s);
  return set;
}

}  // namespace

std::string InterruptMessage(int signal, WriteState state) {
  const std::string head = std::string("kvctb: interrupted (") + SignalName(signal) + ")";
  switch (state) {
    case WriteState::kCommitted:
      return head + " after the changes were committed; they were kept\n";
    case WriteState::kPartlyCommitted:
      return head + "; the changes committed before were kept, the rest was not written\n";
    case WriteState::kNothingWritten:
      break;
  }
  return head + "; nothing was written\n";
}

void InstallInterruptHandlers() {
  for (int s : kSignals) {
    for (int state = 0; state < kStates; ++state) {
      const std::string text = InterruptMessage(s, static_cast<WriteState>(state));
      Message& m = g_messages[SignalIndex(s)][state];
      m.size = std::min(text.size(), sizeof m.text);
      std::memcpy(m.text, text.data(), m.size);
    }
  }
  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_handler = OnInterrupt;
  // While one handler runs, the other signal waits (and never runs: the
  // first one exits).
  action.sa_mask = InterruptSignals();
  for (int s : kSignals) sigaction(s, &action, nullptr);
}

WriteState CurrentWriteState() { return static_cast<WriteState>(g_state); }

void ResetWriteState() { g_state = static_cast<sig_atomic_t>(WriteState::kNothingWritten); }

CommitSignalGuard::CommitSignalGuard() {
  const sigset_t block = InterruptSignals();
  pthread_sigmask(SIG_BLOCK, &block, &previous_);
}

void CommitSignalGuard::Committed(WriteState after_commit) {
  g_state = static_cast<sig_atomic_t>(after_commit);
}

// A signal that arrived while blocked is delivered here, inside
// pthread_sigmask, with the state already saying what the commit did.
CommitSignalGuard::~CommitSignalGuard() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

long long SignalSafeConnection::Execute(const std::string& sql, const db::BoundParams& params) {
  if (inner_.InTransaction() || books_untouched_) return inner_.Execute(sql, params);
  // Outside a transaction the statement commits by itself.
  CommitSignalGuard guard;
  const long long rows = inner_.Execute(sql, params);
  guard.Committed(WriteState::kPartlyCommitted);
  return rows;
}

void SignalSafeConnection::Begin(db::Isolation isolation) {
  inner_.Begin(isolation);
  if (CurrentWriteState() != WriteState::kNothingWritten)
    g_state = static_cast<sig_atomic_t>(WriteState::kPartlyCommitted);
}

void SignalSafeConnection::Commit() {
  CommitSignalGuard guard;
  try {
    inner_.Commit();
  } catch (const std::exception& e) {
    commit_error_ = e.what();
    throw;
  }
  guard.Committed();
}

}  // namespace kvc::cli
