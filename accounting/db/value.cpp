// Conversions of Value and DateTime; no database is involved.
#include "accounting/db/value.h"

#include <cmath>
#include <limits>
#include <stdexcept>

#include <fmt/format.h>

#include "accounting/db/sql_format.h"

namespace kvc {

namespace {
bool IsLeap(int32_t y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }
int32_t DaysInMonth(int32_t y, int32_t m) {
  static constexpr int32_t kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return m == 2 && IsLeap(y) ? 29 : kDays[m - 1];
}
bool ReadDigits(std::string_view text, size_t pos, size_t count, int32_t& out) {
  if (pos + count > text.size()) return false;
  int32_t v = 0;
  for (size_t i = 0; i < count; ++i) {
    char c = text[pos + i];
    if (c < '0' || c > '9') return false;
    v = v * 10 + (c - '0');
  }
  out = v;
  return true;
}
}  // namespace

bool DateTime::IsValid() const {
  return year >= 1 && year <= 9999 && month >= 1 && month <= 12 && day >= 1 &&
         day <= DaysInMonth(year, month) && hour >= 0 && hour < 24 && minute >= 0 && minute < 60 &&
         second >= 0 && second < 60 && millisecond >= 0 && millisecond < 1000;
}

std::string DateTime::ToIsoDate() const {
  return fmt::format("{:04}-{:02}-{:02}", year, month, day);
}

std::string DateTime::ToIso() const {
  std::string out =
      fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", year, month, day, hour, minute, second);
  if (millisecond != 0) out += fmt::format(".{:03}", millisecond);
  return out;
}

std::optional<DateTime> DateTime::ParseIso(std::string_view text) {
  DateTime dt;
  dt.hour = dt.minute = dt.second = dt.millisecond = 0;
  if (!ReadDigits(text, 0, 4, dt.year) || text.size() < 10 || text[4] != '-' ||
      !ReadDigits(text, 5, 2, dt.month) || text[7] != '-' || !ReadDigits(text, 8, 2, dt.day))
    return std::nullopt;
  if (text.size() > 10) {
    if ((text[10] != ' ' && text[10] != 'T') || !ReadDigits(text, 11, 2, dt.hour) ||
        text.size() < 16 || text[13] != ':' || !ReadDigits(text, 14, 2, dt.minute))
      return std::nullopt;
    size_t pos = 16;
    if (text.size() > pos) {
      if (text[pos] != ':' || !ReadDigits(text, pos + 1, 2, dt.second)) return std::nullopt;
      pos += 3;
      if (text.size() > pos) {
        if (text[pos] != '.') return std::nullopt;
        ++pos;
        // Up to three digits count as milliseconds; finer digits are dropped.
        int32_t ms = 0;
        size_t n = 0;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
          if (n < 3) ms = ms * 10 + (text[pos] - '0');
          ++n;
          ++pos;
        }
        if (n == 0 || pos != text.size()) return std::nullopt;
        for (size_t i = n; i < 3; ++i) ms *= 10;
        dt.millisecond = ms;
      }
    }
  }
  if (!dt.IsValid()) return std::nullopt;
  return dt;
}

DateTime DateTime::FromTm(const std::tm& tm) {
  DateTime dt;
  dt.year = tm.tm_year + 1900;
  dt.month = tm.tm_mon + 1;
  dt.day = tm.tm_mday;
  dt.hour = tm.tm_hour;
  dt.minute = tm.tm_min;
  dt.second = tm.tm_sec;
  dt.millisecond = 0;
  return dt;
}

std::tm DateTime::ToTm() const {
  std::tm tm{};
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = second;
  tm.tm_isdst = -1;
  return tm;
}

namespace db {

std::string_view FieldTypeName(FieldType type) {
  switch (type) {
    case FieldType::kInteger:
      return "integer";
    case FieldType::kFloat:
      return "float";
    case FieldType::kString:
      return "string";
    case FieldType::kDateTime:
      return "datetime";
  }
  return "string";
}

std::optional<FieldType> FieldTypeFromName(std::string_view name) {
  if (name == "integer") return FieldType::kInteger;
  if (name == "float") return FieldType::kFloat;
  if (name == "string") return FieldType::kString;
  if (name == "datetime") return FieldType::kDateTime;
  return std::nullopt;
}

std::string Value::AsString() const {
  if (IsNull()) return {};
  if (auto* i = std::get_if<int64_t>(&v_)) return sql::Integer(*i);
  if (auto* d = std::get_if<double>(&v_)) return sql::DefaultDouble(*d);
  if (auto* s = std::get_if<std::string>(&v_)) return *s;
  return std::get<DateTime>(v_).ToIso();
}

int64_t Value::AsInteger() const {
  if (IsNull()) return 0;
  if (auto* i = std::get_if<int64_t>(&v_)) return *i;
  if (auto* d = std::get_if<double>(&v_)) {
    // A whole number read back from a decimal column; anything else truncates.
    if (!std::isfinite(*d) || std::fabs(*d) > 9.2e18)
      throw std::invalid_argument("'" + AsString() + "' is not a valid integer value");
    return static_cast<int64_t>(std::round(*d) == *d ? *d : std::trunc(*d));
  }
  if (auto* s = std::get_if<std::string>(&v_)) {
    int64_t v = 0;
    if (sql::ParseInteger(*s, v)) return v;
    double d = 0;
    // Servers hand back integer sums as "3" or "3.0" depending on the type.
    if (sql::ParseDouble(*s, d) && std::trunc(d) == d && std::fabs(d) < 9.2e18)
      return static_cast<int64_t>(d);
    throw std::invalid_argument("'" + *s + "' is not a valid integer value");
  }
  throw std::invalid_argument("a date-time is not a valid integer value");
}

double Value::AsFloat() const {
  if (IsNull()) return 0.0;
  if (auto* i = std::get_if<int64_t>(&v_)) return static_cast<double>(*i);
  if (auto* d = std::get_if<double>(&v_)) return *d;
  if (auto* s = std::get_if<std::string>(&v_)) {
    double v = 0;
    if (sql::ParseDouble(*s, v)) return v;
    throw std::invalid_argument("'" + *s + "' is not a valid floating point value");
  }
  throw std::invalid_argument("a date-time is not a valid floating point value");
}

DateTime Value::AsDateTime() const {
  if (IsNull()) return DateTime{};
  if (auto* dt = std::get_if<DateTime>(&v_)) return *dt;
  if (auto* s = std::get_if<std::string>(&v_)) {
    if (auto dt = DateTime::ParseIso(*s)) return *dt;
    throw std::invalid_argument("'" + *s + "' is not a valid date and time");
  }
  throw std::invalid_argument("'" + AsString() + "' is not a valid date and time");
}

}  // namespace db
}  // namespace kvc
