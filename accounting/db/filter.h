// The filter dialect of the in-memory client dataset, translated to an SQLite
// boolean expression over the columns of the dataset's table.
//
// Grammar (keywords and field names ignore case):
//   filter     := [condition]
//   condition  := term { OR term }
//   term       := factor { AND factor }
//   factor     := NOT factor | '(' condition ')' | predicate
//   predicate  := operand op operand
//               | field IS [NOT] NULL
//               | field [NOT] IN '(' literal { ',' literal } ')'
//   operand    := field | literal
//   op         := '=' | '<>' | '!=' | '<' | '>' | '<=' | '>='
//   literal    := 'text with '' for a quote' | number
//   number     := ['-'] digits ['.' digits] | ['-'] '.' digits
//   field      := a name of letters, digits and '_' (not starting with a
//                 digit), or any name written as [name] or "name"
//
// A literal compared with a field takes the field's type: a number compared
// with a text field is the text written in the filter, a quoted number
// compared with a numeric field is that number, a quoted date-time compared
// with a date-time field is read as "YYYY-MM-DD[ HH:MM[:SS[.mmm]]]". Text is
// compared exactly (binary, case-sensitive). Comparisons follow SQL rules for
// nulls: a comparison with a null field is not true, and neither is its NOT.
#ifndef KVC_DB_FILTER_H_
#define KVC_DB_FILTER_H_

#include <string>
#include <string_view>
#include <vector>

#include "accounting/db/client_dataset.h"
#include "accounting/db/value.h"

namespace kvc::db {

// `name` as an SQLite identifier: in double quotes, a double quote inside
// doubled.
std::string SqlIdentifier(std::string_view name);

// A translated filter. `where` refers to the columns by their quoted field
// names and holds one "?" per literal; `params` are the values of those
// placeholders in order (integers, doubles and texts; date-times are already
// ISO text).
struct SqlFilter {
  std::string where;  // empty when the filter text is blank
  std::vector<Value> params;

  bool Empty() const { return where.empty(); }
};

// Parses `text` against `fields` and translates it. Throws FilterError naming
// the problem, its 1-based character position and the text.
SqlFilter TranslateFilter(std::string_view text, const std::vector<FieldDef>& fields);

}  // namespace kvc::db

#endif  // KVC_DB_FILTER_H_
