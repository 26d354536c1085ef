// The shape of a statement: its text with the literals that may be bound taken
// out. The module writes most values into its statements as literals, so one
// statement (the insert of an entry, the update of a summarised balance) is a
// new text for every row; its shape is the same. The connection keeps one
// prepared statement per shape and binds the literals, which spares the
// server a compile per row while the module, the trace and the tests go on
// seeing the very text the module built.
#ifndef KVC_DB_STATEMENT_SHAPE_H_
#define KVC_DB_STATEMENT_SHAPE_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kvc::db {

struct ShapeSlot {
  enum class Kind : char { kText = 't', kInteger = 'i', kReal = 'r', kPlaceholder = 'p' };
  Kind kind = Kind::kText;
  std::string text;  // the text literal, unquoted; or the placeholder's name
  long long integer = 0;
  double real = 0;
};

struct StatementShape {
  std::string text;              // the statement with '?' for each slot
  std::vector<ShapeSlot> slots;  // in text order
  // A literal was kept as written for a typed parameter's sake (a number in
  // arithmetic, a negative amount): another value of it is another text.
  bool kept_for_type = false;
  // The text and the kinds of the literal slots: two statements with the
  // same key take the same prepared statement.
  std::string Key() const;
  // The same, written over `key` (whose buffer a caller can keep between
  // statements).
  void WriteKey(std::string& key) const;
  // Whether every slot is a placeholder: no literal was taken out.
  bool OnlyPlaceholders() const;
};

// The shape of a select, insert, update or delete (or a with query), or
// nothing when the text is anything else or holds something the scanner does
// not take apart with certainty (an unterminated quote or comment, a ';', a
// '?' or a bracketed identifier): such a text is sent as it is.
//
// Taken out as slots: quoted text ('...', with '' for a quote), integers that
// fit 64 bits and decimal numbers (bound as the double the server would read:
// the text is parsed exactly, whatever the locale), and ":NAME" placeholders
// (the same as FindPlaceholders finds). Kept as written, because a bound
// value would not mean the same:
//   - every literal of a select list (a literal's text is the name of its
//     column, and its type may be the column's type), nested parentheses
//     included;
//   - ORDER BY and GROUP BY, where an integer is a column position;
//   - the arguments of CAST (type lengths);
//   - blob literals (X'...'), numbers in hexadecimal, anything in comments
//     and quoted identifiers.
//
// With `typed_parameters` (a server that gives each parameter the type its
// context asks for, and cannot type one that stands in arithmetic), these
// are kept as written too, where a parameter would fail to compile or could
// read differently from the literal:
//   - a number next to an arithmetic operator (+ - * /, a sign included) and
//     a text next to the concatenation operator ||;
//   - an empty text and a text that reads as a date ("YYYY-MM-DD...": the
//     client library would parse it for a date or time parameter, not the
//     server);
//   - an integer beyond 32 bits, and a decimal number with more than two
//     decimal places or an exponent (a parameter typed as a money column
//     would round it).
// A text literal is still taken out: a value too long for the column it is
// compared with may fail where the literal would not, and the connection
// then runs the statement's own text (soci_connection.cpp).
std::optional<StatementShape> ShapeStatement(std::string_view sql, bool typed_parameters = false);

}  // namespace kvc::db

#endif  // KVC_DB_STATEMENT_SHAPE_H_
