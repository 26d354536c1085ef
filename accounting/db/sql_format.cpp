// Locale-independent formatting of values into statement text.
#include "accounting/db/sql_format.h"

#include <charconv>
#include <cmath>
#include <system_error>

#include <fmt/format.h>

namespace kvc::sql {

std::string Quoted(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  out += '\'';
  for (char c : text) {
    if (c == '\'') out += '\'';
    out += c;
  }
  out += '\'';
  return out;
}

std::string QuotedAsIs(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  out += '\'';
  out += text;
  out += '\'';
  return out;
}

std::string Integer(int64_t value) {
  char buf[24];
  return std::string(buf, std::to_chars(buf, buf + sizeof buf, value).ptr);
}

std::string Amount(double value) {
  if (!std::isfinite(value)) return DefaultDouble(value);
  // Round half away from zero on the value in hundredths. The nudge of a few
  // units in the last place makes 1.005 (stored as 1.00499999...) round the way
  // its decimal text reads.
  double hundredths = value * 100.0;
  // Beyond 1e15 hundredths a double has no fraction left to nudge.
  double nudged = std::fabs(hundredths) < 1e15
                      ? hundredths + std::copysign(std::fabs(hundredths) * 4e-16, hundredths)
                      : hundredths;
  double rounded = std::round(nudged);
  if (rounded == 0.0) return "0.00";
  if (std::fabs(rounded) >= 1e15) {
    // {:.2f} of a whole number of hundredths divided by 100 prints it exactly.
    return fmt::format("{:.2f}", rounded / 100.0);
  }
  // Below 1e15 the hundredths are an exact integer: written as units, a
  // point and two digits, the text {:.2f} gives, without a float conversion
  // (an amount of every entry a posting writes).
  const auto whole = static_cast<int64_t>(rounded);
  const uint64_t magnitude = static_cast<uint64_t>(whole < 0 ? -whole : whole);
  char buf[32];
  char* p = buf;
  if (whole < 0) *p++ = '-';
  p = std::to_chars(p, buf + sizeof buf, magnitude / 100).ptr;
  const auto cents = static_cast<unsigned>(magnitude % 100);
  *p++ = '.';
  *p++ = static_cast<char>('0' + cents / 10);
  *p++ = static_cast<char>('0' + cents % 10);
  return std::string(buf, p);
}

std::string DefaultDouble(double value) {
  if (std::isnan(value)) return "NAN";
  if (std::isinf(value)) return value > 0 ? "INF" : "-INF";
  if (value == 0.0) return "0";
  // Shortest precision (up to 15 digits) whose text reads back as the value;
  // a value that needs more than 15 digits is written with 15.
  // to_chars and from_chars ignore the process locale, unlike printf.
  auto scientific = [value](int digits) {
    char buf[64];
    auto result =
        std::to_chars(buf, buf + sizeof buf, value, std::chars_format::scientific, digits - 1);
    return std::string(buf, result.ptr);
  };
  int precision = 15;
  for (int p = 1; p <= 15; ++p) {
    std::string text = scientific(p);
    double back = 0;
    std::from_chars(text.data(), text.data() + text.size(), back);
    if (back == value) {
      precision = p;
      break;
    }
  }
  // text is "-d.ddddde+XX": split mantissa digits and exponent.
  std::string text = scientific(precision);
  bool negative = text[0] == '-';
  if (negative) text.erase(0, 1);
  size_t e = text.find('e');
  std::string mantissa = text.substr(0, e);
  int exponent = 0;
  const char* exp_begin = text.c_str() + e + 1;
  if (*exp_begin == '+') ++exp_begin;
  std::from_chars(exp_begin, text.c_str() + text.size(), exponent);
  std::string digits;
  for (char c : mantissa)
    if (c != '.') digits += c;
  while (digits.size() > 1 && digits.back() == '0') digits.pop_back();
  std::string out = negative ? "-" : "";
  if (exponent >= 15 || exponent < -5) {
    out += digits[0];
    if (digits.size() > 1) {
      out += '.';
      out += digits.substr(1);
    }
    out += 'E';
    out += std::to_string(exponent);
    return out;
  }
  if (exponent < 0) {
    out += "0.";
    out.append(static_cast<size_t>(-exponent - 1), '0');
    out += digits;
    return out;
  }
  size_t int_len = static_cast<size_t>(exponent) + 1;
  if (digits.size() <= int_len) {
    out += digits;
    out.append(int_len - digits.size(), '0');
  } else {
    out += digits.substr(0, int_len);
    out += '.';
    out += digits.substr(int_len);
  }
  return out;
}

namespace {
std::string_view TrimBlanks(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}
}  // namespace

bool ParseDouble(std::string_view text, double& out) {
  text = TrimBlanks(text);
  if (text.empty()) return false;
  if (text.front() == '+') text.remove_prefix(1);
  double v = 0;
  auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (ec != std::errc() || ptr != text.data() + text.size()) return false;
  out = v;
  return true;
}

bool ParseInteger(std::string_view text, int64_t& out) {
  text = TrimBlanks(text);
  if (text.empty()) return false;
  if (text.front() == '+') text.remove_prefix(1);
  int64_t v = 0;
  auto [ptr, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
  if (ec != std::errc() || ptr != text.data() + text.size()) return false;
  out = v;
  return true;
}

std::string IntegerList(const std::vector<int64_t>& values) {
  std::string out = "(";
  for (size_t i = 0; i < values.size(); ++i) {
    if (i) out += ',';
    out += Integer(values[i]);
  }
  out += ')';
  return out;
}

}  // namespace kvc::sql
