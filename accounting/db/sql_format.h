// The typed formatters through which every value reaches statement text:
// quoted text, integers, amounts with two decimals and a point, the default
// double text, months and lists. All of them ignore the process locale.
#ifndef KVC_DB_SQL_FORMAT_H_
#define KVC_DB_SQL_FORMAT_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kvc::sql {

// 'text' with every quote inside doubled, the safe form for codes.
std::string Quoted(std::string_view text);

// 'text' copied as it stands. A quote inside breaks the statement; the callers
// that use this form write free text exactly as the record carried it, which
// is the documented behaviour of those statements.
std::string QuotedAsIs(std::string_view text);

// Decimal integer, "-" for negatives, no separators.
std::string Integer(int64_t value);

// The amount pattern "########0.00": at least one integer digit, exactly two
// decimals, no thousands separator, a point as decimal separator. Halves round
// away from zero on the decimal value (0.125 gives "0.13"); -0.0 and amounts
// that round to zero give "0.00".
std::string Amount(double value);

// The pattern "###0.00" used by the annual closing: same output as Amount.
inline std::string Amount4(double value) { return Amount(value); }

// The default double-to-text conversion: the shortest text, of at most 15
// significant digits, that reads back as the value; plain notation while the
// decimal exponent is below 15 and at least -5, otherwise "d.dddE+x" style
// written as "1E15" / "1.5E-7". Then every "," is a "." (there is none, since
// the conversion ignores the locale). NaN and infinities give "NAN", "INF",
// "-INF".
std::string DefaultDouble(double value);

// Parses a decimal text written with a point ("1234.5", "-3", "1E15", " 7 ").
// Leading and trailing blanks are allowed. Returns false on anything else.
bool ParseDouble(std::string_view text, double& out);

// Strict decimal integer conversion: optional blanks, an optional sign and
// digits only. Returns false on anything else or on overflow of int64.
bool ParseInteger(std::string_view text, int64_t& out);

// "(a,b,c)" from integers.
std::string IntegerList(const std::vector<int64_t>& values);

}  // namespace kvc::sql

#endif  // KVC_DB_SQL_FORMAT_H_
