// The commands of kvctb. Each Add* function declares its commands' options
// on the CLI11 application and appends a runner per command: the runner
// checks its options (UsageError), opens a session, calls the data module
// and prints the result. Runners return the process exit code.
#ifndef KVC_CLI_COMMANDS_H_
#define KVC_CLI_COMMANDS_H_

#include <functional>
#include <istream>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "cli/session.h"

namespace kvc::reports {
struct BalanceFilters;
}  // namespace kvc::reports

namespace kvc::cli {

// Exit codes.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitErrorRows = 3;

// What a runner receives: the checked global options and the trace sink.
struct RunContext {
  const GlobalOptions& options;
  std::ostream* trace;
};

struct Command {
  CLI::App* app;
  std::function<int(const RunContext&)> run;
};
using Commands = std::vector<Command>;

void AddSetupCommands(CLI::App& app, Commands& commands);     // init, chart-import,
                                                              // chart-export
void AddDivisionCommands(CLI::App& app, Commands& commands);  // cost-centre, cost-centres,
                                                              // cost-centre-add,
                                                              // division-types,
                                                              // division-type-add
void AddEntryCommands(CLI::App& app, Commands& commands);     // post, post-erp, delete-entry,
                                                              // invoice-text
void AddBalanceCommands(CLI::App& app, Commands& commands);   // balance, movement,
                                                              // day-movement, opening,
                                                              // trial-balance
void AddClosingCommands(CLI::App& app, Commands& commands);   // close-result, close-year,
                                                              // rollup, rebuild
void AddReportCommands(CLI::App& app, Commands& commands);    // ledger, journal,
                                                              // balance-sheet,
                                                              // income-statement, export

// The four-column trial balance (trial-balance --from --to): the months as
// given on the command line, and how much of the chart to show.
struct TrialBalanceLayout {
  std::string from, to;
  bool hide_zero = false;  // leave out accounts whose four figures are all zero
  int depth = 0;           // the deepest level shown; 0 shows every level
};
// Checks the months (UsageError), prints the report in the session's format
// with its totals and whether the books balance. Returns the exit code.
int PrintFourColumnTrialBalance(const RunContext& ctx, Session& session,
                                const TrialBalanceLayout& layout,
                                const reports::BalanceFilters& filters);

// A problem with one line of an input file; printed as "FILE:LINE: message"
// and answered with exit code 1.
class FileError : public std::runtime_error {
 public:
  FileError(const std::string& file, size_t line, const std::string& message)
      : std::runtime_error(file + ":" + std::to_string(line) + ": " + message) {}
  // Several problems, one "FILE:LINE: message" per line of `text`.
  explicit FileError(const std::string& text) : std::runtime_error(text) {}
};

// Called in the handler of a failure met while writing what line `line` of
// `file` asked for: a failure of the database itself (read-only, full disk,
// lock, damaged file) goes on as it is, since it is not the line's; any
// other becomes FileError naming the line, `note` appended to its message.
[[noreturn]] void RethrowForLine(const std::string& file, size_t line, const std::exception& e,
                                 const std::string& note);

// The problems of an input file, gathered so that the user sees every bad
// line at once instead of fixing them one run at a time. At most kShown
// lines are printed, then how many more there were.
class FileProblems {
 public:
  static constexpr size_t kShown = 20;

  explicit FileProblems(std::string file) : file_(std::move(file)) {}
  void Add(size_t line, const std::string& message);
  size_t size() const { return count_; }
  // Throws FileError with the problems, then `conclusion` on a line of its
  // own when not empty. Does nothing when there is none.
  void RaiseIfAny(const std::string& conclusion = "") const;

 private:
  std::string file_;
  std::string text_;
  size_t count_ = 0;
};

// Prints `output` on standard output in the session's format.
void PrintOutput(const GlobalOptions& options, const Output& output);

// Reads a whole file, or standard input for "-". Throws std::runtime_error.
std::string ReadInput(const std::string& path);

// A file read in several passes without holding it in memory: a path opened
// once (a file renamed over it meanwhile does not change what is read), or
// standard input for "-", copied first into an unnamed temporary file since it
// can be read only once. Throws std::runtime_error naming the path.
class InputFile {
 public:
  explicit InputFile(const std::string& path);
  // The stream at the start of the file, for one more pass.
  std::istream& Rewound();
  // Throws std::runtime_error when the last pass stopped on a read error.
  void CheckRead() const;

 private:
  std::string path_;
  std::unique_ptr<std::istream> in_;  // the file itself, or its copy
};

}  // namespace kvc::cli

#endif  // KVC_CLI_COMMANDS_H_
