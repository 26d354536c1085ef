// The set-up commands: init (the schema, optionally the demo company) and
// chart-import (a chart of accounts from a CSV file, all or nothing).
#include <fstream>
#include <iostream>
#include <map>
#include <set>
#include <sstream>

#include <fmt/format.h>

#include "accounting/db/schema.h"
#include "cli/commands.h"
#include "cli/demo.h"
#include "cli/validate.h"

namespace kvc::cli {
namespace {

constexpr char kChartHeader[] = "CONTA,CONTA_SUPERIORA,NIVEL,NIVEL_DIVISAO,LANCAMENTO_DIVIDIDO";
constexpr char kInsertConta[] =
    "insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, NIVEL, NIVEL_DIVISAO, "
    "LANCAMENTO_DIVIDIDO, DES_CONTA) values (:EMPRESA, :REVENDA, :CONTA, :CONTA_SUPERIORA, "
    ":NIVEL, :NIVEL_DIVISAO, :LANCAMENTO_DIVIDIDO, :DES_CONTA)";

struct ChartLine {
  size_t line = 0;
  std::string conta, superiora, nivel, descricao, dividido;
  std::optional<int32_t> nivel_divisao;
};

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

// The message of a UsageError without its "OPTION: " prefix, with the column
// named instead.
std::string ColumnProblem(const std::function<void()>& check) {
  try {
    check();
    return "";
  } catch (const UsageError& e) {
    return e.what();
  }
}

std::vector<ChartLine> ParseChart(const std::string& file, const std::string& text) {
  const std::vector<std::string> lines = Lines(text);
  if (lines.empty()) throw FileError(file, 1, "empty file");
  std::string header = lines[0];
  if (header.rfind("\xEF\xBB\xBF", 0) == 0) header = header.substr(3);
  const bool with_description = header == std::string(kChartHeader) + ",DES_CONTA";
  if (header != kChartHeader && !with_description)
    throw FileError(file, 1,
                    fmt::format("the header must be {} (optionally ,DES_CONTA)", kChartHeader));
  std::vector<ChartLine> chart;
  for (size_t i = 1; i < lines.size(); ++i) {
    if (lines[i].empty()) continue;
    std::vector<std::string> cols;
    size_t start = 0;
    while (cols.size() < (with_description ? 5u : 99u)) {
      const size_t comma = lines[i].find(',', start);
      if (comma == std::string::npos) break;
      cols.push_back(lines[i].substr(start, comma - start));
      start = comma + 1;
    }
    cols.push_back(lines[i].substr(start));
    const size_t expected = with_description ? 6 : 5;
    if (cols.size() != expected)
      throw FileError(file, i + 1, fmt::format("{} columns, expected {}", cols.size(), expected));
    ChartLine c;
    c.line = i + 1;
    std::string problem = ColumnProblem([&] {
      c.conta = ParseAccount("CONTA", cols[0]);
      if (!cols[1].empty()) c.superiora = ParseAccount("CONTA_SUPERIORA", cols[1]);
      if (cols[2] != "A" && cols[2] != "S")
        throw UsageError("NIVEL",
                         fmt::format("'{}' is neither A nor S", CheckedText("NIVEL", cols[2])));
      c.nivel = cols[2];
      if (!cols[3].empty()) c.nivel_divisao = ParseInt("NIVEL_DIVISAO", cols[3], 0, 99);
      if (!cols[4].empty() && cols[4] != "S" && cols[4] != "N")
        throw UsageError(
            "LANCAMENTO_DIVIDIDO",
            fmt::format("'{}' is neither S nor N", CheckedText("LANCAMENTO_DIVIDIDO", cols[4])));
      c.dividido = cols[4];
      if (with_description) c.descricao = CheckedText("DES_CONTA", cols[5], 100);
    });
    if (!problem.empty()) throw FileError(file, i + 1, problem);
    chart.push_back(std::move(c));
  }
  return chart;
}

// Refuses duplicates, unknown parents and cycles; `existing` are the codes
// already in the chart.
void CheckTree(const std::string& file, const std::vector<ChartLine>& chart,
               const std::set<std::string>& existing) {
  std::map<std::string, const ChartLine*> by_code;
  for (const ChartLine& c : chart) {
    if (existing.count(c.conta))
      throw FileError(file, c.line, fmt::format("account {} is already in the chart", c.conta));
    if (!by_code.emplace(c.conta, &c).second)
      throw FileError(
          file, c.line,
          fmt::format("account {} is a duplicate of line {}", c.conta, by_code.at(c.conta)->line));
  }
  for (const ChartLine& c : chart)
    if (!c.superiora.empty() && !by_code.count(c.superiora) && !existing.count(c.superiora))
      throw FileError(file, c.line,
                      fmt::format("the parent {} of account {} is unknown", c.superiora, c.conta));
  for (const ChartLine& c : chart) {
    std::set<std::string> seen{c.conta};
    for (std::string p = c.superiora; !p.empty() && by_code.count(p);
         p = by_code.at(p)->superiora) {
      if (!seen.insert(p).second)
        throw FileError(file, c.line, fmt::format("account {} is in a cycle of parents", c.conta));
    }
  }
}

int RunInit(const RunContext& ctx, bool demo) {
  Session session(ctx.options, ctx.trace, false);
  db::Connection& c = session.Connection();
  if (db::SchemaExists(c))
    throw std::runtime_error("the database already has the accounting schema");
  db::CreateSchema(c);
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
  for (const ChartAccount& a : session.Chart()) existing.insert(a.conta);
  CheckTree(file, chart, existing);
  TddmContabilidadeBD& dm = session.Module();
  BeginTransaction(dm);
  for (const ChartLine& c : chart) {
    db::BoundParams p = CompanyParams(ctx.options);
    p.push_back({"CONTA", db::Value(c.conta)});
    p.push_back({"CONTA_SUPERIORA", c.superiora.empty() ? db::Value() : db::Value(c.superiora)});
    p.push_back({"NIVEL", db::Value(c.nivel)});
    p.push_back({"NIVEL_DIVISAO", c.nivel_divisao ? db::Value(*c.nivel_divisao) : db::Value()});
    p.push_back({"LANCAMENTO_DIVIDIDO", c.dividido.empty() ? db::Value() : db::Value(c.dividido)});
    p.push_back({"DES_CONTA", c.descricao.empty() ? db::Value() : db::Value(c.descricao)});
    try {
      session.Connection().Execute(kInsertConta, p);
    } catch (const std::exception& e) {
      (void)dm.RollbackTransacao();
      throw FileError(file, c.line, e.what());
    }
  }
  if (!dm.ComitaTransacao()) throw std::runtime_error("the chart could not be committed");
  Output out;
  out.single = true;
  out.columns = {"file", "imported"};
  out.rows.push_back({file, static_cast<int64_t>(chart.size())});
  PrintOutput(ctx.options, out);
  return kExitOk;
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
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error(fmt::format("cannot read '{}'", path));
  text << in.rdbuf();
  return text.str();
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
}

}  // namespace kvc::cli
