// Running kvctb as a whole process for the tests: arguments, environment,
// standard input and working directory in; standard output, standard error
// and exit code out. Also the shared demo database, built once per test
// process and copied for each test.
#ifndef KVC_TESTS_CLI_KVCTB_PROCESS_H_
#define KVC_TESTS_CLI_KVCTB_PROCESS_H_

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

#include "support/records.h"

namespace kvc::cli::testing {

struct RunResult {
  int exit_code = -1;  // 128 + the signal when a signal ended the process
  std::string out;
  std::string err;
  int signal = 0;  // the signal that ended the process, 0 when it exited
};

struct RunOptions {
  std::string cwd;                         // empty: the current directory
  std::map<std::string, std::string> env;  // added to a clean environment
  std::string stdin_text;
  long long file_size_limit = -1;  // bytes: the child's RLIMIT_FSIZE, when not negative
};

// Options that only set the working directory.
inline RunOptions In(const std::string& cwd) {
  RunOptions o;
  o.cwd = cwd;
  return o;
}

// Runs the kvctb binary with `args` (without the program name). The
// environment holds PATH, LANG=C.UTF-8 and `options.env` only, so that
// KVCTB_DB and KVCTB_PASSWORD from the caller never leak in.
RunResult RunKvctb(const std::vector<std::string>& args, const RunOptions& options = {});
// The same for another program of the build, at `path`.
RunResult RunProgram(const std::string& path, const std::vector<std::string>& args,
                     const RunOptions& options = {});

// A kvctb process started by StartKvctb and not yet waited for.
struct RunningKvctb {
  pid_t pid = -1;
  std::string base;  // its standard streams are base + ".in", ".out", ".err"
};

// Starts kvctb as RunKvctb does, without waiting: the caller may signal
// `pid`, then must call WaitKvctb. The child starts with no signal blocked
// and SIGINT and SIGTERM at their default actions.
RunningKvctb StartKvctb(const std::vector<std::string>& args, const RunOptions& options = {});
// Waits for the process and collects its outputs.
RunResult WaitKvctb(const RunningKvctb& running);

// A fresh empty directory under the system's temporary directory.
std::string NewDirectory(const std::string& name);

// A directory holding demo.db, a copy of the demo database made by
// `kvctb init --demo` (built once per process).
std::string DirectoryWithDemo(const std::string& name);

// A directory holding books.db, a small company built by kvctb itself
// (built once per process): the schema, the chart of SmallChart() and the
// two records of TwoRecords() posted as document 1. For tests that run a
// command many times, where the demo database would be slow.
std::string DirectoryWithSmallBooks(const std::string& name);

// Loads the small books into the empty database `url` with kvctb itself
// (init, chart-import, post), run in `dir`; throws std::runtime_error with
// kvctb's standard error when a command fails.
void LoadSmallBooks(const std::string& url, const std::string& dir);

// A chart of eight accounts in kvctb's CSV form: four groups (1 assets,
// 2 liabilities, 3 revenue, 5 expenses), each with one analytic account
// (1.1.1.01, 2.9.1.01 the result account, 3.1.1.01, 5.1.1.01).
std::string SmallChart();

// Two posting records of June 2024 on the demo chart, one per line: 123.45
// from 1.1.1.01 to 3.1.1.01 with division code 3, and 5.00 from 1.1.1.01 to
// 5.1.1.01 (the side mark "-" credits the first account field).
std::string TwoRecords();

// A valid record of June 2024 on the small chart: 10.00 on day 20 from
// 1.1.1.01 to 3.1.1.01, history VENDA, no division code. Tests change a
// field or two.
kvc::testing::RegistroCampos SmallBooksRecord();

// Reads a whole file ("" when it does not exist).
std::string ReadFile(const std::string& path);
bool FileExists(const std::string& path);
void WriteFile(const std::string& path, const std::string& text);

}  // namespace kvc::cli::testing

#endif  // KVC_TESTS_CLI_KVCTB_PROCESS_H_
