// Reading and checking the chart CSV of chart-import.
#include "cli/chart.h"

#include <functional>
#include <map>
#include <sstream>

#include <fmt/format.h>

#include "cli/commands.h"
#include "cli/validate.h"

namespace kvc::cli {
namespace {

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

}  // namespace

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

std::string ChartCsv(const std::vector<ChartLine>& chart) {
  std::string csv = std::string(kChartHeader) + ",DES_CONTA\n";
  for (const ChartLine& c : chart)
    csv += fmt::format("{},{},{},{},{},{}\n", c.conta, c.superiora, c.nivel,
                       c.nivel_divisao ? std::to_string(*c.nivel_divisao) : "", c.dividido,
                       c.descricao);
  return csv;
}

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

}  // namespace kvc::cli
