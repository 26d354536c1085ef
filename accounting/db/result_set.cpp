// Field-name matching and column lookup for ResultSet.
#include "accounting/db/result_set.h"

namespace kvc::db {

bool SameFieldName(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'a' && x <= 'z') x = static_cast<char>(x - 'a' + 'A');
    if (y >= 'a' && y <= 'z') y = static_cast<char>(y - 'a' + 'A');
    if (x != y) return false;
  }
  return true;
}

std::optional<size_t> ResultSet::FindColumn(std::string_view name) const {
  for (size_t i = 0; i < columns.size(); ++i)
    if (SameFieldName(columns[i], name)) return i;
  return std::nullopt;
}

}  // namespace kvc::db
