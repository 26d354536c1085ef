// The HTML page of a report.
#include "cli/html.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace kvc::cli {
namespace {

constexpr char kStyle[] = R"(
body { font-family: "DejaVu Sans", Arial, sans-serif; font-size: 13px; margin: 24px; color: #222; }
h1 { font-size: 20px; margin: 0 0 4px 0; }
p.subtitle { color: #555; margin: 0 0 16px 0; }
table { border-collapse: collapse; }
th, td { padding: 3px 10px; border-bottom: 1px solid #e3e3e3; white-space: nowrap; }
th { background: #f2f2f2; text-align: left; border-bottom: 2px solid #999; }
td.amount, th.amount { text-align: right; font-variant-numeric: tabular-nums; }
td.negative { color: #b00020; }
td.credit { color: #1a4f9c; }
tr.synthetic td { font-weight: bold; }
tr.total td { font-weight: bold; border-top: 2px solid #999; background: #fafafa; }
tr.folded { display: none; }
button.fold { border: none; background: none; cursor: pointer; width: 18px; padding: 0; }
p.verdict { margin-top: 16px; font-weight: bold; }
p.verdict.wrong { color: #b00020; font-size: 16px; }
svg { margin: 8px 0 20px 0; }
svg text { font-size: 11px; fill: #444; }
@media print {
  button.fold { visibility: hidden; }
  body { margin: 0; }
}
)";

// Folding: a button on a synthetic account hides every following row that
// lies deeper, or shows them again.
constexpr char kScript[] = R"(
document.querySelectorAll('button.fold').forEach(function (b) {
  b.addEventListener('click', function () {
    var row = b.closest('tr');
    var depth = +row.dataset.depth;
    var fold = b.textContent === '\u25be';
    b.textContent = fold ? '\u25b8' : '\u25be';
    for (var r = row.nextElementSibling; r && +r.dataset.depth > depth; r = r.nextElementSibling) {
      r.classList.toggle('folded', fold);
      var inner = r.querySelector('button.fold');
      if (inner) inner.textContent = '\u25be';
    }
  });
});
document.documentElement.dataset.folding = 'ready';
)";

std::string AmountText(double value, bool balance) {
  if (!balance) return FormatAmount(value, true);
  std::string text = FormatAmount(std::fabs(value), true);
  if (std::llround(value * 100) == 0) return text;
  return text + (value < 0 ? " C" : " D");
}

void WriteChart(std::ostream& out, const HtmlChart& chart) {
  const double width = 760, height = 280, left = 90, bottom = 30, top = 20;
  const size_t n = chart.labels.size();
  // The scale runs from the lowest figure (zero when none is below it) to
  // the highest.
  double high = 1, low = 0;
  for (size_t i = 0; i < n; ++i)
    for (double v : {chart.revenue[i], chart.expense[i], chart.revenue[i] - chart.expense[i]}) {
      high = std::max(high, v);
      low = std::min(low, v);
    }
  const double plot_height = height - bottom - top;
  auto y = [&](double v) { return top + (high - v) / (high - low) * plot_height; };
  const double zero = y(0);
  const double slot = (width - left - 10) / static_cast<double>(std::max<size_t>(n, 1));
  out << fmt::format(
      "<h2 style=\"font-size:15px\">{}</h2>\n<svg id=\"monthly-chart\" xmlns=\"http://www.w3.org/"
      "2000/svg\" width=\"{}\" height=\"{}\" role=\"img\" aria-label=\"{}\" data-months=\"{}\">\n",
      HtmlEscaped(chart.title), width, height, HtmlEscaped(chart.title), n);
  out << fmt::format(
      "<line x1=\"{}\" y1=\"{:.1f}\" x2=\"{}\" y2=\"{:.1f}\" stroke=\"#999\"/>\n"
      "<text x=\"{}\" y=\"{:.1f}\" text-anchor=\"end\">0.00</text>\n"
      "<text x=\"{}\" y=\"{:.1f}\" text-anchor=\"end\">{}</text>\n",
      left, zero, width - 10, zero, left - 6, zero + 4, left - 6, top + 4,
      FormatAmount(high, true));
  if (low < 0)
    out << fmt::format("<text x=\"{}\" y=\"{:.1f}\" text-anchor=\"end\">{}</text>\n", left - 6,
                       height - bottom + 4, FormatAmount(low, true));
  std::string line;
  for (size_t i = 0; i < n; ++i) {
    const double x = left + slot * static_cast<double>(i);
    const double bar = slot * 0.35;
    const double result = chart.revenue[i] - chart.expense[i];
    auto rect = [&](const char* kind, const char* colour, double x0, double v) {
      const double y0 = std::min(y(v), zero), h = std::fabs(y(v) - zero);
      out << fmt::format(
          "<rect class=\"{}\" x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" height=\"{:.1f}\" "
          "fill=\"{}\" data-value=\"{}\"><title>{} {}: {}</title></rect>\n",
          kind, x0, y0, bar, h, colour, FormatAmount(v, false), HtmlEscaped(chart.labels[i]), kind,
          FormatAmount(v, true));
    };
    rect("revenue", "#2e7d32", x + slot * 0.12, chart.revenue[i]);
    rect("expense", "#c62828", x + slot * 0.12 + bar, chart.expense[i]);
    const double cx = x + slot * 0.12 + bar;
    line += fmt::format("{}{:.1f},{:.1f}", line.empty() ? "" : " ", cx, y(result));
    out << fmt::format(
        "<circle class=\"result\" cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"3\" fill=\"#1a4f9c\" "
        "data-value=\"{}\"><title>{} result: {}</title></circle>\n"
        "<text x=\"{:.1f}\" y=\"{}\" text-anchor=\"middle\">{}</text>\n",
        cx, y(result), FormatAmount(result, false), HtmlEscaped(chart.labels[i]),
        FormatAmount(result, true), cx, height - 8, HtmlEscaped(chart.labels[i]));
  }
  if (n > 1)
    out << "<polyline fill=\"none\" stroke=\"#1a4f9c\" stroke-width=\"2\" points=\"" << line
        << "\"/>\n";
  out << fmt::format(
      "<text x=\"{}\" y=\"12\"><tspan fill=\"#2e7d32\">\u25a0</tspan> revenue</text>"
      "<text x=\"{}\" y=\"12\"><tspan fill=\"#c62828\">\u25a0</tspan> expense</text>"
      "<text x=\"{}\" y=\"12\"><tspan fill=\"#1a4f9c\">\u25cf</tspan> result</text>\n"
      "</svg>\n",
      left, left + 90, left + 180);
}

}  // namespace

std::string HtmlEscaped(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

void WriteHtml(std::ostream& out, const HtmlPage& page) {
  out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>"
      << HtmlEscaped(page.title) << "</title>\n<style>" << kStyle << "</style>\n</head>\n<body>\n"
      << "<h1>" << HtmlEscaped(page.title) << "</h1>\n<p class=\"subtitle\">"
      << HtmlEscaped(page.subtitle) << "</p>\n";
  if (page.chart) WriteChart(out, *page.chart);
  out << "<table id=\"report\">\n<thead><tr>";
  for (const HtmlColumn& c : page.columns) out << "<th>" << HtmlEscaped(c.title) << "</th>";
  out << "</tr></thead>\n<tbody>\n";
  for (size_t r = 0; r < page.rows.size(); ++r) {
    const HtmlRow& row = page.rows[r];
    // A fold button only where there is something beneath to fold.
    const bool folds =
        row.foldable && r + 1 < page.rows.size() && page.rows[r + 1].depth > row.depth;
    std::string classes = row.total ? "total" : row.foldable ? "synthetic" : "";
    out << "<tr" << (classes.empty() ? "" : " class=\"" + classes + "\"") << " data-depth=\""
        << row.depth << "\">";
    for (size_t i = 0; i < row.cells.size() && i < page.columns.size(); ++i) {
      const Cell& cell = row.cells[i];
      if (const auto* a = std::get_if<Amount>(&cell)) {
        const bool balance = page.columns[i].balance;
        const bool below = std::llround(a->value * 100) < 0;
        const char* mark = !below ? "" : balance ? " credit" : " negative";
        out << "<td class=\"amount" << mark << "\">" << HtmlEscaped(AmountText(a->value, balance))
            << "</td>";
        continue;
      }
      std::string text;
      if (const auto* s = std::get_if<std::string>(&cell)) text = HtmlEscaped(*s);
      if (const auto* n = std::get_if<int64_t>(&cell)) text = std::to_string(*n);
      if (const auto* b = std::get_if<bool>(&cell)) text = *b ? "yes" : "no";
      if (i == 0 && row.depth > 0) {
        // The account, indented by its level, with the fold button.
        text = fmt::format("<span style=\"padding-left:{}px\">{}{}</span>", 16 * (row.depth - 1),
                           folds ? "<button class=\"fold\">\u25be</button>"
                                 : "<span style=\"display:inline-block;width:18px\">"
                                   "</span>",
                           text);
      }
      out << (std::holds_alternative<int64_t>(cell) ? "<td class=\"amount\">" : "<td>") << text
          << "</td>";
    }
    out << "</tr>\n";
  }
  out << "</tbody>\n</table>\n";
  if (!page.verdict.empty())
    out << "<p class=\"verdict" << (page.verdict_ok ? "" : " wrong") << "\" id=\"verdict\">"
        << HtmlEscaped(page.verdict) << "</p>\n";
  out << "<script>" << kScript << "</script>\n</body>\n</html>\n";
}

}  // namespace kvc::cli
