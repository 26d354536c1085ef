// Field-name matching and column lookup for ResultSet.
#include "accounting/db/result_set.h"

namespace kvc::db {

std::optional<size_t> ResultSet::FindColumn(std::string_view name) const {
  for (size_t i = 0; i < columns.size(); ++i)
    if (SameFieldName(columns[i], name)) return i;
  return std::nullopt;
}

}  // namespace kvc::db
