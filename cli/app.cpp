// kvctb as a function: parses the global options and the command, opens the
// trace file, runs the command and maps its outcome to the exit code (0 ok,
// 1 failed, 2 usage, 3 error rows). main() only calls it; the tests call it
// in the same process to reach the session's statement trace.
#include <fstream>
#include <iostream>

#include <fmt/format.h>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "accounting/db/error.h"
#include "cli/app.h"
#include "cli/commands.h"
#include "cli/signals.h"
#include "cli/validate.h"

namespace kvc::cli {
namespace {

constexpr char kDescription[] =
    "kvctb: the accounting module on the command line.\n"
    "Data goes to standard output, messages and progress to standard error.\n"
    "Exit codes: 0 success, 1 the operation failed, 2 usage error, 3 completed\n"
    "with error rows (close-year, rollup).\n\n"
    "Example:\n"
    "  kvctb --db sqlite:demo.db init --demo\n"
    "  kvctb --db sqlite:demo.db --format json balance 1.1.1.01 --month 202406";

// What the run had made durable when it failed, for the user.
std::string WhatWasKept() {
  switch (CurrentWriteState()) {
    case WriteState::kNothingWritten:
      return "nothing of this command was written";
    case WriteState::kCommitted:
      return "its changes had been committed and were kept";
    case WriteState::kPartlyCommitted:
      break;
  }
  return "the changes it committed before were kept, the rest was not written";
}

}  // namespace

int RunKvctb(int argc, char** argv) {
  ResetWriteState();
  CLI::App app(kDescription, "kvctb");
  app.require_subcommand(1);
  // Global options are accepted after the command too (kvctb balance 1 --format json).
  app.fallthrough(true);
  GlobalOptions globals;
  app.add_option("--db", globals.db,
                 "Database URL: sqlite:PATH, firebird://USER@HOST[:PORT]/PATH,\n"
                 "postgresql://USER@HOST[:PORT]/DBNAME or odbc:CONNECTION-STRING;\n"
                 "the password comes from KVCTB_PASSWORD or the URL.\n"
                 "Example: --db firebird://SYSDBA@127.0.0.1/var/lib/firebird/kvc.fdb")
      ->envname("KVCTB_DB")
      ->capture_default_str();
  app.add_option("--company", globals.company, "Company code. Example: --company 1")
      ->capture_default_str();
  app.add_option("--dealership", globals.dealership, "Dealership code. Example: --dealership 2")
      ->capture_default_str();
  app.add_option("--user", globals.user, "User code written in entries. Example: --user 7")
      ->capture_default_str();
  app.add_option("--server-type", globals.server_type,
                 "The module's server-type name (SQLITE, FIREBIRD, POSTGRESQL, SQLSERVER,\n"
                 "ORACLE); derived from the URL by default. Example: --server-type FIREBIRD");
  app.add_option("--format", globals.format,
                 "Output format: table, csv or json; export: ledger or csv; the reports\n"
                 "(trial-balance --from --to, balance-sheet, income-statement, ledger): html.\n"
                 "Example: --format csv")
      ->capture_default_str();
  app.add_option("--trace-sql", globals.trace_sql,
                 "Write every statement sent to the server to FILE, one JSON object a line\n"
                 "with the keys \"sql\" and \"params\". Example: --trace-sql trace.jsonl");
  app.add_flag("--quiet", globals.quiet, "No status lines or progress on standard error.");
  app.add_option("--busy-timeout", globals.busy_timeout,
                 "Seconds an SQLite command waits for another program writing to the same\n"
                 "database before it gives up (nothing written). Example: --busy-timeout 120")
      ->capture_default_str();

  Commands commands;
  AddSetupCommands(app, commands);
  AddDivisionCommands(app, commands);
  AddEntryCommands(app, commands);
  AddBalanceCommands(app, commands);
  AddReportCommands(app, commands);
  AddClosingCommands(app, commands);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::cerr << "kvctb: " << e.what() << "\n"
              << "Run 'kvctb --help' or 'kvctb COMMAND --help' for usage.\n";
    return kExitUsage;
  }

  // The trace file is opened first, so that a refused command leaves it
  // empty: nothing was sent.
  std::unique_ptr<std::ofstream> trace;
  if (!globals.trace_sql.empty()) {
    trace = std::make_unique<std::ofstream>(globals.trace_sql, std::ios::trunc);
    if (!*trace) {
      std::cerr << "kvctb: --trace-sql: cannot write '" << globals.trace_sql << "'\n";
      return kExitUsage;
    }
  }
  try {
    globals.Check();
    for (const Command& c : commands) {
      if (!c.app->parsed()) continue;
      const std::string& name = c.app->get_name();
      const bool report = name == "trial-balance" || name == "balance-sheet" ||
                          name == "income-statement" || name == "ledger";
      const std::string formats = name == "export" ? "ledger or csv"
                                  : report         ? "table, csv, json or html"
                                                   : "table, csv or json";
      if (globals.output_format == Format::kLedger && name != "export")
        throw UsageError(
            "--format",
            fmt::format("'ledger' is the format of export alone; {} gives {}", name, formats));
      if (globals.output_format == Format::kHtml && !report)
        throw UsageError("--format",
                         fmt::format("'html' is the format of the reports (trial-balance, "
                                     "balance-sheet, income-statement, ledger); {} gives {}",
                                     name, formats));
      return c.run(RunContext{globals, trace.get()});
    }
    return kExitUsage;
  } catch (const UsageError& e) {
    std::cerr << "kvctb: " << e.what() << "\n";
    return kExitUsage;
  } catch (const FileError& e) {
    std::cerr << e.what() << "\n";
    return kExitFailed;
  } catch (const kvc::db::DatabaseError& e) {
    std::cerr << "kvctb: error: " << e.what() << "\n";
    if (!e.Sql().empty() && !globals.quiet) std::cerr << "kvctb: statement: " << e.Sql() << "\n";
    const std::string hint = DatabaseConditionHint(e.what(), globals.busy_seconds);
    if (!hint.empty()) std::cerr << fmt::format("kvctb: {}; {}\n", hint, WhatWasKept());
    return kExitFailed;
  } catch (const std::exception& e) {
    std::cerr << "kvctb: error: " << e.what() << "\n";
    const std::string hint = DatabaseConditionHint(e.what(), globals.busy_seconds);
    if (!hint.empty()) std::cerr << fmt::format("kvctb: {}; {}\n", hint, WhatWasKept());
    return kExitFailed;
  }
}

}  // namespace kvc::cli
