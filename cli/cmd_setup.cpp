// The set-up commands: init (the schema, optionally the demo company),
// chart-import (a chart of accounts from a CSV file, all or nothing) and
// chart-export (the chart in the file format chart-import reads).
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>

#include <fmt/format.h>

#include "accounting/db/backends/backend_hooks.h"
#include "accounting/db/connection.h"
#include "accounting/db/database_url.h"
#include "accounting/db/error.h"
#include "accounting/db/schema.h"
#include "cli/chart.h"
#include "cli/commands.h"
#include "cli/demo.h"
#include "cli/validate.h"

namespace kvc::cli {
namespace {

constexpr char kInsertConta[] =
    "insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, NIVEL, NIVEL_DIVISAO, "
    "LANCAMENTO_DIVIDIDO, DES_CONTA) values (:EMPRESA, :REVENDA, :CONTA, :CONTA_SUPERIORA, "
    ":NIVEL, :NIVEL_DIVISAO, :LANCAMENTO_DIVIDIDO, :DES_CONTA)";

// init makes a Firebird database that does not exist yet, as it makes an
// SQLite file: the server answers a connection to a missing file with an
// I/O error, which would send the user to find out how to create one.
void CreateMissingFirebirdDatabase(const GlobalOptions& options) {
  const char* password = std::getenv("KVCTB_PASSWORD");
  const db::DatabaseUrl url = db::ParseDatabaseUrl(options.db, password ? password : "");
  if (url.kind != db::ServerKind::kFirebird) return;
  try {
    db::Connect(options.db, password ? password : "");
    return;
  } catch (const db::DatabaseError& e) {
    if (std::string(e.what()).find("No such file or directory") == std::string::npos) throw;
  }
  db::CreateFirebirdDatabase(url.firebird_location, url.user, url.password);
  if (!options.quiet) std::cerr << "database " << url.display << " created\n";
}

int RunInit(const RunContext& ctx, bool demo) {
  CreateMissingFirebirdDatabase(ctx.options);
  Session session(ctx.options, ctx.trace, false);
  db::Connection& c = session.Connection();
  if (db::SchemaExists(c))
    throw std::runtime_error("the database already has the accounting schema");
  db::CreateSchema(c);
  // No result calculated yet, the demo company included: its first
  // calculation closes 2023, the next one 2024 (scripts/demo.sh runs them,
  // each before its year's annual closing).
  EnsureBookNumbering(session);
  session.Progress().Status("schema created");
  Output out;
  out.single = true;
  out.columns = {"schema"};
  out.rows.push_back({std::string("created")});
  if (demo) {
    session.Bind();
    session.Progress().Status("loading the demo company ...");
    const DemoSummary s = LoadDemo(session);
    session.Progress().Status("demo company loaded");
    out.columns.insert(out.columns.end(), {"accounts", "analytic_accounts", "cost_centres",
                                           "records", "entries", "invoice_entry", "invoice_month"});
    auto& row = out.rows.back();
    row.insert(row.end(), {s.accounts, s.analytic_accounts, s.cost_centres, s.records,
                           s.records * 2, int64_t{s.invoice_entry}, int64_t{s.invoice_month}});
  }
  PrintOutput(ctx.options, out);
  return kExitOk;
}

int RunChartImport(const RunContext& ctx, const std::string& file) {
  CheckedText("FILE", file, 4096);
  const std::vector<ChartLine> chart = ParseChart(file, ReadInput(file));
  Session session(ctx.options, ctx.trace);
  std::set<std::string> existing;
  for (const ChartLine& a : session.Chart()) existing.insert(a.conta);
  CheckTree(file, chart, existing);
  InTransaction(session, "the chart", [&] {
    for (const ChartLine& c : chart) {
      db::BoundParams p = CompanyParams(ctx.options);
      p.push_back({"CONTA", db::Value(c.conta)});
      p.push_back({"CONTA_SUPERIORA", c.superiora.empty() ? db::Value() : db::Value(c.superiora)});
      p.push_back({"NIVEL", db::Value(c.nivel)});
      p.push_back({"NIVEL_DIVISAO", c.nivel_divisao ? db::Value(*c.nivel_divisao) : db::Value()});
      p.push_back(
          {"LANCAMENTO_DIVIDIDO", c.dividido.empty() ? db::Value() : db::Value(c.dividido)});
      p.push_back({"DES_CONTA", c.descricao.empty() ? db::Value() : db::Value(c.descricao)});
      try {
        session.Connection().Execute(kInsertConta, p);
      } catch (const std::exception& e) {
        RethrowForLine(file, c.line, e, "");
      }
    }
    return true;
  });
  Output out;
  out.single = true;
  out.columns = {"file", "imported"};
  out.rows.push_back({file, static_cast<int64_t>(chart.size())});
  PrintOutput(ctx.options, out);
  return kExitOk;
}

// The chart goes to standard output as chart-import reads it, whatever
// --format says: the file is for chart-import (of another company, or of
// this one into a new database), not for reading.
int RunChartExport(const RunContext& ctx) {
  Session session(ctx.options, ctx.trace);
  const std::vector<ChartLine> chart = session.Chart();
  std::cout << ChartCsv(chart);
  std::cout.flush();
  session.Progress().Status(fmt::format("{} accounts of company {}, dealership {}", chart.size(),
                                        ctx.options.empresa, ctx.options.revenda));
  return kExitOk;
}

// Opens `path` for reading. A directory opens as a file on Linux and then
// reads as nothing: it is refused.
std::unique_ptr<std::ifstream> OpenInput(const std::string& path) {
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec))
    throw std::runtime_error(fmt::format("cannot read '{}': it is a directory", path));
  auto in = std::make_unique<std::ifstream>(path, std::ios::binary);
  if (!*in)
    throw std::runtime_error(fmt::format("cannot read '{}': {}", path, std::strerror(errno)));
  return in;
}

void CheckNotBad(const std::istream& in, const std::string& path) {
  if (in.bad())
    throw std::runtime_error(fmt::format("cannot read '{}': {}", path, std::strerror(errno)));
}

}  // namespace

void PrintOutput(const GlobalOptions& options, const Output& output) {
  Print(std::cout, output, options.output_format);
  std::cout.flush();
}

std::string ReadInput(const std::string& path) {
  std::ostringstream text;
  if (path == "-") {
    text << std::cin.rdbuf();
    return text.str();
  }
  const std::unique_ptr<std::ifstream> in = OpenInput(path);
  text << in->rdbuf();
  CheckNotBad(*in, path);
  return text.str();
}

InputFile::InputFile(const std::string& path) : path_(path) {
  std::unique_ptr<std::ifstream> named;
  if (path != "-") {
    named = OpenInput(path);
    // A regular file is read again from its start; anything else (a pipe,
    // a terminal, a process substitution) can be read only once.
    std::error_code ec;
    if (std::filesystem::is_regular_file(path, ec)) {
      in_ = std::move(named);
      return;
    }
  }
  std::istream& source = named ? *named : std::cin;
  const std::string what = named ? "'" + path + "'" : "standard input";
  auto fail = [&what](const std::string& why) {
    throw std::runtime_error(fmt::format("cannot keep {} in a temporary file: {}", what, why));
  };
  // The copy goes to a temporary file that loses its name at once, so that
  // nothing is left behind however the process ends.
  std::string name;
  try {
    name = (std::filesystem::temp_directory_path() / "kvctb-input-XXXXXX").string();
  } catch (const std::filesystem::filesystem_error& e) {
    fail(e.code().message());
  }
  const int fd = mkstemp(name.data());
  if (fd < 0) fail(std::strerror(errno));
  auto copy = std::make_unique<std::fstream>(name, std::ios::in | std::ios::out | std::ios::binary);
  unlink(name.c_str());
  close(fd);
  if (!*copy) fail(std::strerror(errno));
  char buffer[1 << 16];
  while (source.read(buffer, sizeof buffer) || source.gcount() > 0)
    if (!copy->write(buffer, source.gcount())) fail(std::strerror(errno));
  if (source.bad())
    throw std::runtime_error(fmt::format("cannot read {}: {}", what, std::strerror(errno)));
  if (!copy->flush()) fail(std::strerror(errno));
  in_ = std::move(copy);
}

std::istream& InputFile::Rewound() {
  in_->clear();
  in_->seekg(0);
  if (!*in_) throw std::runtime_error(fmt::format("cannot read '{}' again", path_));
  return *in_;
}

void InputFile::CheckRead() const { CheckNotBad(*in_, path_); }

void RethrowForLine(const std::string& file, size_t line, const std::exception& e,
                    const std::string& note) {
  if (!DatabaseConditionHint(e.what()).empty()) std::rethrow_exception(std::current_exception());
  throw FileError(file, line, e.what() + note);
}

void FileProblems::Add(size_t line, const std::string& message) {
  if (++count_ > kShown) return;
  if (!text_.empty()) text_ += '\n';
  text_ += file_ + ":" + std::to_string(line) + ": " + message;
}

void FileProblems::RaiseIfAny(const std::string& conclusion) const {
  if (count_ == 0) return;
  std::string text = text_;
  if (count_ > kShown)
    text += fmt::format("\n{}: ... and {} more (the first {} are shown)", file_, count_ - kShown,
                        kShown);
  if (!conclusion.empty()) text += "\n" + file_ + ": " + conclusion;
  throw FileError(text);
}

void AddSetupCommands(CLI::App& app, Commands& commands) {
  auto demo = std::make_shared<bool>(false);
  CLI::App* init = app.add_subcommand("init",
                                      "Create the accounting schema in an empty database.\n"
                                      "Example: kvctb --db sqlite:demo.db init --demo");
  init->add_flag("--demo", *demo,
                 "Also load the demo company: a chart of about 400 accounts four levels\n"
                 "deep, cost centres, division types, an invoice and two years (2023,\n"
                 "2024) of entries. Example: kvctb init --demo");
  commands.push_back({init, [demo](const RunContext& ctx) { return RunInit(ctx, *demo); }});

  auto file = std::make_shared<std::string>();
  CLI::App* import = app.add_subcommand(
      "chart-import",
      "Load a chart of accounts for the company and dealership from a CSV file\n"
      "with the header " +
          std::string(kChartHeader) +
          "\n"
          "(optionally ,DES_CONTA), in one transaction. A duplicate code, an unknown\n"
          "parent or a cycle refuses the whole file, naming the line.\n"
          "Example: kvctb chart-import chart.csv");
  import->add_option("FILE", *file, "The CSV file. Example: chart.csv")->required();
  commands.push_back(
      {import, [file](const RunContext& ctx) { return RunChartImport(ctx, *file); }});

  CLI::App* chart_export = app.add_subcommand(
      "chart-export",
      "Write the chart of accounts of the company and dealership to standard output\n"
      "as the CSV file chart-import reads (with DES_CONTA), whatever --format says.\n"
      "Example: kvctb chart-export > chart.csv");
  commands.push_back({chart_export, RunChartExport});
}

}  // namespace kvc::cli
