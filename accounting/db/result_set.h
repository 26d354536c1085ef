// ResultSet: the rows of one query, fully read, with column names and types.
// The unit in which rows travel between a connection, a command dataset and an
// in-memory client dataset.
#ifndef KVC_DB_RESULT_SET_H_
#define KVC_DB_RESULT_SET_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "accounting/db/api.h"
#include "accounting/db/value.h"

namespace kvc::db {

// Compares two field names without regard to ASCII case: servers return
// column names in upper, lower or written case. Inline: the statement-shape
// scanner compares every word of every statement with its keywords.
inline bool SameFieldName(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'a' && x <= 'z') x = static_cast<char>(x - 'a' + 'A');
    if (y >= 'a' && y <= 'z') y = static_cast<char>(y - 'a' + 'A');
    if (x != y) return false;
  }
  return true;
}

struct KVC_API ResultSet {
  std::vector<std::string> columns;  // as the server named them
  std::vector<FieldType> types;      // one per column
  std::vector<std::vector<Value>> rows;

  // Index of the column named `name` (any case), or nullopt.
  std::optional<size_t> FindColumn(std::string_view name) const;
};

}  // namespace kvc::db

#endif  // KVC_DB_RESULT_SET_H_
