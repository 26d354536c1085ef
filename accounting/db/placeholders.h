// Scanning of statement text for ":NAME" placeholders, and the one place where
// text is adapted to the way SOCI's backends read parameters: placeholders are
// renamed to distinct positional names and troublesome comments are dropped.
#ifndef KVC_DB_PLACEHOLDERS_H_
#define KVC_DB_PLACEHOLDERS_H_

#include <string>
#include <string_view>
#include <vector>

namespace kvc::db {

struct Placeholder {
  size_t pos = 0;     // offset of the ':'
  size_t length = 0;  // ':' plus the name
  std::string name;   // without the ':'
};

// Every ":NAME" outside quoted text ('...'), quoted identifiers ("..."),
// block comments and line comments, in text order. NAME starts with a letter
// or '_' and goes on with letters, digits, '_' and '$'. A "::" is not a
// placeholder.
std::vector<Placeholder> FindPlaceholders(std::string_view sql);

// The distinct names of FindPlaceholders, first occurrence first, compared
// without regard to case.
std::vector<std::string> PlaceholderNames(std::string_view sql);

// `sql` with each placeholder replaced by ":p1", ":p2", ... in text order
// (a repeated name gets a new number each time, since some servers refuse a
// name used twice), and the original names in the same order.
struct PositionalText {
  std::string text;
  std::vector<std::string> names;
};
PositionalText ToPositional(std::string_view sql);

// Removes block and line comments that hold a ':' or a quote, which some
// drivers would otherwise read as parameters or as the start of a literal.
// Comments without them (the "/*NAME*/" markers of inlined values) stay.
std::string DropAmbiguousComments(std::string_view sql);

}  // namespace kvc::db

#endif  // KVC_DB_PLACEHOLDERS_H_
