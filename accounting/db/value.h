// Values that cross the database-access layer: the date-time type of the
// public interface, and Value, the typed cell of a row, a parameter or a field.
// Nothing here touches a database.
#ifndef KVC_DB_VALUE_H_
#define KVC_DB_VALUE_H_

#include <compare>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "accounting/db/api.h"

namespace kvc {

// A calendar date and wall-clock time as the database server reports it, with
// no time zone. The default value is the null date of the suite, 1899-12-30
// 00:00:00. Fields hold plain numbers; nothing is normalised or validated
// unless IsValid() is asked.
struct KVC_API DateTime {
  int32_t year = 1899;
  int32_t month = 12;
  int32_t day = 30;
  int32_t hour = 0;
  int32_t minute = 0;
  int32_t second = 0;
  int32_t millisecond = 0;

  auto operator<=>(const DateTime&) const = default;

  // True when the fields name a real calendar day and time.
  bool IsValid() const;

  // "YYYY-MM-DD HH:MM:SS" (and ".mmm" when the milliseconds are not zero).
  std::string ToIso() const;
  // "YYYY-MM-DD".
  std::string ToIsoDate() const;

  // Reads "YYYY-MM-DD", "YYYY-MM-DD HH:MM[:SS[.fff]]" or the same with a "T".
  // Returns nullopt for anything else.
  static std::optional<DateTime> ParseIso(std::string_view text);

  static DateTime FromTm(const std::tm& tm);
  std::tm ToTm() const;
};

namespace db {

// The type of a field of a result set or an in-memory table.
enum class FieldType { kInteger, kFloat, kString, kDateTime };

KVC_API std::string_view FieldTypeName(FieldType type);
KVC_API std::optional<FieldType> FieldTypeFromName(std::string_view name);

// One cell: null, a 64-bit integer, a double, a UTF-8 text or a date-time.
// The As* readers convert between the kinds the way a dataset field does:
// text is read as a number with a point as decimal separator whatever the
// process locale; a null reads as 0, 0.0, empty text or the null date.
// A conversion that cannot succeed (AsInteger of "abc") throws
// std::invalid_argument naming the text.
class KVC_API Value {
 public:
  Value() = default;
  Value(std::nullptr_t) {}
  Value(int v) : v_(static_cast<int64_t>(v)) {}
  Value(long v) : v_(static_cast<int64_t>(v)) {}
  Value(long long v) : v_(static_cast<int64_t>(v)) {}
  Value(double v) : v_(v) {}
  Value(std::string v) : v_(std::move(v)) {}
  Value(const char* v) : v_(std::string(v)) {}
  Value(std::string_view v) : v_(std::string(v)) {}
  Value(DateTime v) : v_(v) {}

  bool IsNull() const { return std::holds_alternative<std::monostate>(v_); }
  bool IsInteger() const { return std::holds_alternative<int64_t>(v_); }
  bool IsFloat() const { return std::holds_alternative<double>(v_); }
  bool IsString() const { return std::holds_alternative<std::string>(v_); }
  bool IsDateTime() const { return std::holds_alternative<DateTime>(v_); }

  std::string AsString() const;
  int64_t AsInteger() const;
  double AsFloat() const;
  DateTime AsDateTime() const;

  bool operator==(const Value&) const = default;

 private:
  std::variant<std::monostate, int64_t, double, std::string, DateTime> v_;
};

}  // namespace db
}  // namespace kvc

#endif  // KVC_DB_VALUE_H_
