// The thousands-separated display format of amounts ("###,###,##0.00") and
// the separators it uses. SQL text never goes through here: amounts in
// statements are written by sql::Amount with a point whatever the locale.
#ifndef KVC_MODULE_FORMATO_NUMERICO_H_
#define KVC_MODULE_FORMATO_NUMERICO_H_

#include <string>

#include "accounting/db/api.h"

namespace kvc {

// The decimal and thousands separators of a displayed amount. Each may be
// more than one byte (a UTF-8 narrow no-break space, for instance).
struct KVC_API SeparadoresNumericos {
  std::string decimal = ".";
  std::string milhar = ",";

  bool operator==(const SeparadoresNumericos&) const = default;
};

// The separators of the process's LC_NUMERIC locale at the time of the call
// (what setlocale, or std::locale::global with a named locale, selected).
// A locale without a thousands separator, such as "C", gets ",", and one
// without a decimal point gets ".".
KVC_API SeparadoresNumericos SeparadoresDoLocale();

// `valor` with the pattern "###,###,##0.00": at least one integer digit,
// the integer part grouped by threes, exactly two decimals (halves away from
// zero on the decimal value), a leading "-" for negatives. -0.0 and amounts
// that round to zero give "0" + decimal + "00".
KVC_API std::string FormataMilhar(double valor, const SeparadoresNumericos& separadores);

}  // namespace kvc

#endif  // KVC_MODULE_FORMATO_NUMERICO_H_
