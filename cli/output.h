// The data kvctb prints on standard output: rows of named cells, rendered as
// an aligned table, CSV or JSON. Amounts always carry a point as decimal
// separator, whatever the process locale; the table groups thousands with
// commas, CSV and JSON do not group.
#ifndef KVC_CLI_OUTPUT_H_
#define KVC_CLI_OUTPUT_H_

#include <cstdint>
#include <ostream>
#include <string>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

namespace kvc::cli {

// kLedger, the plain-text accounting journal, is the export's alone; kHtml,
// a page to look at, the reports' (cli/html.h).
enum class Format { kTable, kCsv, kJson, kLedger, kHtml };

// An amount in currency units, printed with two decimals.
struct Amount {
  double value = 0;
};
// An empty cell (JSON null).
struct Null {};

using Cell = std::variant<Null, std::string, int64_t, Amount, bool>;

struct Output {
  std::vector<std::string> columns;
  std::vector<std::vector<Cell>> rows;
  // JSON: a single object instead of an array (commands with one answer).
  bool single = false;
};

// "1,234.56" (grouped) or "1234.56"; -0.00 prints as 0.00.
std::string FormatAmount(double value, bool grouped);
// The amount rounded to cents, for JSON.
double RoundCents(double value);

nlohmann::ordered_json ToJson(const Output& output);

// Rows written as they come, in CSV or JSON, for outputs too long to hold (a
// table needs every row before it can align its columns). The text is the
// one Print gives for the same rows.
class RowWriter {
 public:
  // REQUIRES: `format` is kCsv or kJson.
  RowWriter(std::ostream& out, std::vector<std::string> columns, Format format);
  void Row(const std::vector<Cell>& row);
  // Ends the output (the JSON array's bracket).
  void Finish();

 private:
  std::ostream& out_;
  std::vector<std::string> columns_;
  Format format_;
  long long rows_ = 0;
};
void Print(std::ostream& out, const Output& output, Format format);

}  // namespace kvc::cli

#endif  // KVC_CLI_OUTPUT_H_
