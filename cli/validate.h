// The boundary checks of kvctb: every value that reaches statement text is
// checked here, before the data module or the database sees it. A value that
// fails raises UsageError naming the option; the tool answers it with exit
// code 2 and sends nothing to the database.
#ifndef KVC_CLI_VALIDATE_H_
#define KVC_CLI_VALIDATE_H_

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kvc::cli {

// A command line that cannot be run. what() is the whole message, for
// example "--month: '2024-1' is not a month (YYYYMM)".
class UsageError : public std::runtime_error {
 public:
  UsageError(const std::string& option, const std::string& message)
      : std::runtime_error(option + ": " + message), option_(option) {}
  const std::string& Option() const { return option_; }

 private:
  std::string option_;
};

// The longest text accepted for any option (the filter condition has its
// own, longer limit).
inline constexpr size_t kMaxOptionLength = 200;
inline constexpr size_t kMaxFilterLength = 1000;

// Text that is valid UTF-8, holds no control character and is at most
// `max_length` bytes long; returns it unchanged.
std::string CheckedText(const std::string& option, std::string_view text,
                        size_t max_length = kMaxOptionLength);

// A decimal integer in [min, max]: optional minus sign and digits only (no
// blanks, no plus sign, no leading zeros beyond the digits themselves).
int32_t ParseInt(const std::string& option, std::string_view text, int64_t min, int64_t max);

// An account code: 1 to 20 characters among letters, digits and '.'.
std::string ParseAccount(const std::string& option, std::string_view text);

// A month YYYYMM (year 1900-2999); month 00 is accepted only when
// `allow_month_zero` (the opening balance of a year).
int32_t ParseMonth(const std::string& option, std::string_view text, bool allow_month_zero = false);

// A year YYYY (1900-2999), returned as its four digits.
std::string ParseYear(const std::string& option, std::string_view text);

// A day of the month, 1 to 31, returned as two digits ("05").
std::string ParseDay(const std::string& option, std::string_view text);

// A list of non-negative integers separated by commas ("3,7"; blanks around
// items allowed), 1 to 100 items. Returns the items.
std::vector<int32_t> ParseNumberList(const std::string& option, std::string_view text);
// The items joined by commas ("3,7").
std::string JoinList(const std::vector<int32_t>& items);
// The exclusion list in the form the module expects: "(3,7)"; empty for an
// empty input.
std::string ExclusionList(const std::string& option, std::string_view text);

// A one-character division code of text type (item type): a letter or digit.
std::string ParseItemType(const std::string& option, std::string_view text);
// A modality: one letter or digit, or "SPED".
std::string ParseModality(const std::string& option, std::string_view text);

// An extra condition on the journal (the module's FiltroAdicional), checked
// against a small grammar before it is passed on unchanged:
//   condition := term { OR term }      term := factor { AND factor }
//   factor    := NOT factor | '(' condition ')' | comparison
//   comparison:= operand ( op operand | IS [NOT] NULL
//                        | [NOT] IN '(' literal {',' literal} ')'
//                        | [NOT] BETWEEN operand AND operand )
//   operand   := column | number | 'text'
// Columns are those of CTB_LANCAMENTO, optionally written {$ALIAS$}.COLUMN;
// text literals hold only letters, digits, blanks, '.' and '_'. Anything
// else (another keyword, a semicolon, a comment marker, an unbalanced quote)
// is refused.
std::string ParseFilter(const std::string& option, std::string_view text);

}  // namespace kvc::cli

#endif  // KVC_CLI_VALIDATE_H_
