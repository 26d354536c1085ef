// The HTML form of kvctb's reports: one self-contained page (inline CSS, a few
// lines of inline script to fold the chart's tree, inline SVG for the monthly
// chart; no external file and no network), printable. Amounts carry a point
// and group thousands with commas, as the table does.
#ifndef KVC_CLI_HTML_H_
#define KVC_CLI_HTML_H_

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "cli/output.h"

namespace kvc::cli {

struct HtmlColumn {
  std::string title;
  // A balance: a credit balance (below zero) shows as its amount with "C",
  // a debit balance with "D". Other amounts show their sign; below zero they
  // are marked.
  bool balance = false;
};

struct HtmlRow {
  int depth = 0;          // 1 for a top-level account; 0 outside the tree (totals)
  bool foldable = false;  // a synthetic account: its rows beneath can be folded
  bool total = false;     // a totals line
  std::vector<Cell> cells;
};

// Revenue against expense by month, and the result, drawn as bars and a line.
struct HtmlChart {
  std::string title;
  std::vector<std::string> labels;  // one per month
  std::vector<double> revenue, expense;
};

struct HtmlPage {
  std::string title;     // the report's name
  std::string subtitle;  // company, dealership, months
  std::vector<HtmlColumn> columns;
  std::vector<HtmlRow> rows;
  std::string verdict;  // a closing sentence, empty for none
  bool verdict_ok = true;
  std::optional<HtmlChart> chart;
};

// Text with &, <, >, " and ' escaped.
std::string HtmlEscaped(const std::string& text);

void WriteHtml(std::ostream& out, const HtmlPage& page);

}  // namespace kvc::cli

#endif  // KVC_CLI_HTML_H_
