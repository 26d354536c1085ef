// The chart CSV of chart-import: reading the file and checking the tree it
// describes, before anything of it reaches the database.
#ifndef KVC_CLI_CHART_H_
#define KVC_CLI_CHART_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kvc::cli {

// One account line of the file.
struct ChartLine {
  size_t line = 0;  // 1-based line of the file
  std::string conta, superiora, nivel, descricao, dividido;
  std::optional<int32_t> nivel_divisao;
};

// The header of the file, optionally followed by ",DES_CONTA".
inline constexpr char kChartHeader[] =
    "CONTA,CONTA_SUPERIORA,NIVEL,NIVEL_DIVISAO,LANCAMENTO_DIVIDIDO";

// Reads the CSV text of `file` (named in messages): the header, then one
// account a line (empty lines skipped), each column checked. Throws FileError
// (cli/commands.h) naming the line.
std::vector<ChartLine> ParseChart(const std::string& file, const std::string& text);

// The chart as chart-import reads it: the header with ",DES_CONTA", then one
// account a line ("\n"), in the order given. Parsing the text gives `chart`
// back (the line numbers aside).
std::string ChartCsv(const std::vector<ChartLine>& chart);

// Refuses duplicates, unknown parents and cycles; `existing` are the codes
// already in the chart. Throws FileError naming the line.
void CheckTree(const std::string& file, const std::vector<ChartLine>& chart,
               const std::set<std::string>& existing);

}  // namespace kvc::cli

#endif  // KVC_CLI_CHART_H_
