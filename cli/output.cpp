// Rendering of kvctb's data: table, CSV and JSON.
#include "cli/output.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace kvc::cli {
namespace {

std::string CellText(const Cell& cell, bool grouped) {
  struct Visitor {
    bool grouped;
    std::string operator()(const Null&) const { return ""; }
    std::string operator()(const std::string& s) const { return s; }
    std::string operator()(int64_t v) const { return std::to_string(v); }
    std::string operator()(const Amount& a) const { return FormatAmount(a.value, grouped); }
    std::string operator()(bool b) const { return b ? "yes" : "no"; }
  };
  return std::visit(Visitor{grouped}, cell);
}

bool RightAligned(const Cell& cell) {
  return std::holds_alternative<int64_t>(cell) || std::holds_alternative<Amount>(cell);
}

std::string CsvField(const std::string& s) {
  if (s.find_first_of(",\"\r\n") == std::string::npos) return s;
  std::string out = "\"";
  for (char c : s) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

// Display width in characters of UTF-8 text.
size_t Width(const std::string& s) {
  size_t n = 0;
  for (char c : s)
    if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) ++n;
  return n;
}

}  // namespace

double RoundCents(double value) {
  const double r = std::round(value * 100.0) / 100.0;
  return r == 0 ? 0.0 : r;
}

std::string FormatAmount(double value, bool grouped) {
  const long long cents = std::llround(value * 100.0);
  const bool negative = cents < 0;
  const unsigned long long abs_cents = negative ? 0ULL - static_cast<unsigned long long>(cents)
                                                : static_cast<unsigned long long>(cents);
  std::string units = std::to_string(abs_cents / 100);
  if (grouped)
    for (int i = static_cast<int>(units.size()) - 3; i > 0; i -= 3) units.insert(i, ",");
  return fmt::format("{}{}.{:02d}", negative ? "-" : "", units, abs_cents % 100);
}

nlohmann::ordered_json ToJson(const Output& output) {
  auto object = [&](const std::vector<Cell>& row) {
    nlohmann::ordered_json o = nlohmann::ordered_json::object();
    for (size_t i = 0; i < output.columns.size() && i < row.size(); ++i) {
      const Cell& c = row[i];
      nlohmann::ordered_json v;
      if (const auto* s = std::get_if<std::string>(&c)) v = *s;
      if (const auto* n = std::get_if<int64_t>(&c)) v = *n;
      if (const auto* a = std::get_if<Amount>(&c)) v = RoundCents(a->value);
      if (const auto* b = std::get_if<bool>(&c)) v = *b;
      o[output.columns[i]] = v;
    }
    return o;
  };
  if (output.single)
    return output.rows.empty() ? nlohmann::ordered_json::object() : object(output.rows[0]);
  nlohmann::ordered_json a = nlohmann::ordered_json::array();
  for (const auto& row : output.rows) a.push_back(object(row));
  return a;
}

RowWriter::RowWriter(std::ostream& out, std::vector<std::string> columns, Format format)
    : out_(out), columns_(std::move(columns)), format_(format) {
  if (format_ != Format::kCsv) return;
  for (size_t i = 0; i < columns_.size(); ++i) out_ << (i ? "," : "") << CsvField(columns_[i]);
  out_ << "\n";
}

void RowWriter::Row(const std::vector<Cell>& row) {
  if (format_ == Format::kCsv) {
    for (size_t i = 0; i < row.size(); ++i)
      out_ << (i ? "," : "") << CsvField(CellText(row[i], false));
    out_ << "\n";
  } else {
    // An element of the array as dump(2) indents it.
    const std::string object = ToJson(Output{columns_, {row}, true}).dump(2);
    out_ << (rows_ ? ",\n  " : "[\n  ");
    for (char c : object) {
      out_ << c;
      if (c == '\n') out_ << "  ";
    }
  }
  ++rows_;
}

void RowWriter::Finish() {
  if (format_ == Format::kJson) out_ << (rows_ ? "\n]\n" : "[]\n");
  out_.flush();
}

void Print(std::ostream& out, const Output& output, Format format) {
  if (format == Format::kJson) {
    out << ToJson(output).dump(2) << "\n";
    return;
  }
  if (format == Format::kCsv) {
    for (size_t i = 0; i < output.columns.size(); ++i)
      out << (i ? "," : "") << CsvField(output.columns[i]);
    out << "\n";
    for (const auto& row : output.rows) {
      for (size_t i = 0; i < row.size(); ++i)
        out << (i ? "," : "") << CsvField(CellText(row[i], false));
      out << "\n";
    }
    return;
  }
  std::vector<size_t> widths;
  for (const auto& c : output.columns) widths.push_back(Width(c));
  std::vector<std::vector<std::string>> texts;
  for (const auto& row : output.rows) {
    auto& t = texts.emplace_back();
    for (size_t i = 0; i < row.size() && i < widths.size(); ++i) {
      t.push_back(CellText(row[i], true));
      widths[i] = std::max(widths[i], Width(t.back()));
    }
  }
  auto line = [&](const std::vector<std::string>& cells, const std::vector<Cell>* row) {
    std::string s;
    for (size_t i = 0; i < cells.size(); ++i) {
      const size_t pad = widths[i] - Width(cells[i]);
      const bool right = row && RightAligned((*row)[i]);
      if (i) s += "  ";
      if (right) s += std::string(pad, ' ');
      s += cells[i];
      if (!right && i + 1 < cells.size()) s += std::string(pad, ' ');
    }
    while (!s.empty() && s.back() == ' ') s.pop_back();
    out << s << "\n";
  };
  line(output.columns, nullptr);
  std::vector<std::string> rule;
  rule.reserve(widths.size());
  for (size_t w : widths) rule.push_back(std::string(w, '-'));
  line(rule, nullptr);
  for (size_t r = 0; r < texts.size(); ++r) line(texts[r], &output.rows[r]);
}

}  // namespace kvc::cli
