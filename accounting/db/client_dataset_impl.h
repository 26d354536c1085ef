// ClientDataSet: rows in a private in-memory SQLite table, the visible rows as
// a list of rowids in display order, and the current row cached as Values.
//
// The table is "data" with one column per field (INTEGER, REAL or TEXT; a
// date-time is ISO text, which sorts in time order) plus an INTEGER PRIMARY
// KEY column, an alias of the rowid, that addresses rows and gives insertion
// order. Each named index is an SQLite index on its fields; the visible-row
// query orders by the active index's fields and then the rowid, so a filter
// fixing the leading index fields is a range scan of that index.
//
// The visible set is read lazily: changes mark it stale together with where
// the cursor should land, and the next read of the dataset runs the query.
//
// This header holds the state shared by the client dataset's own files, and
// nothing else includes it:
//   client_dataset.cpp         structure: fields, rebuilding the table, indexes
//   client_dataset_cursor.cpp  rows, editing, filter, the visible rows and
//                              navigation over them
//   client_dataset_json.cpp    serialised table data (SaveToString and
//                              LoadFromString)
//   client_dataset_store.h     the SQLite plumbing
#ifndef KVC_DB_CLIENT_DATASET_IMPL_H_
#define KVC_DB_CLIENT_DATASET_IMPL_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "accounting/db/client_dataset.h"
#include "accounting/db/client_dataset_store.h"
#include "accounting/db/filter.h"
#include "accounting/db/result_set.h"
#include "accounting/db/value.h"

namespace kvc::db {

namespace client_dataset_detail {

inline constexpr const char* kTable = "\"data\"";

inline char UpperAscii(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// Case-insensitive (ASCII) hashing and equality for the field-name map; both
// are transparent so that lookups by string_view do not allocate.
struct NameHash {
  using is_transparent = void;
  size_t operator()(std::string_view s) const noexcept {
    uint64_t h = 1469598103934665603ull;
    for (char c : s) {
      h ^= static_cast<unsigned char>(UpperAscii(c));
      h *= 1099511628211ull;
    }
    return static_cast<size_t>(h);
  }
};
struct NameEq {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const noexcept {
    return SameFieldName(a, b);
  }
};
using FieldMap = std::unordered_map<std::string, size_t, NameHash, NameEq>;

struct IndexDef {
  std::string name;
  std::vector<size_t> fields;
  std::string sql_name;  // the SQLite index
};

enum class EditState { kBrowse, kEdit, kInsert };

// `value` in the type of a field, as it will be stored and read back. Throws
// std::invalid_argument when it does not convert.
Value ToFieldType(const Value& value, FieldType type);

}  // namespace client_dataset_detail

struct ClientDataSet::Impl {
  using EditState = client_dataset_detail::EditState;
  using IndexDef = client_dataset_detail::IndexDef;
  using Stmt = client_dataset_detail::Stmt;
  // Inserts the rows of a rebuilt table through the INSERT statement it is
  // given, for the new fields (it binds and steps).
  using RowFill = std::function<void(sqlite3_stmt* insert, const std::vector<FieldDef>& fields)>;

  explicit Impl(const std::string& owner_name) : owner(owner_name) {}
  ~Impl() { CloseDatabase(); }

  const std::string& owner;
  client_dataset_detail::SqliteStore store;

  // structure
  bool active = false;
  std::vector<FieldDef> fields;
  client_dataset_detail::FieldMap field_map;
  std::string pk;  // quoted name of the rowid alias column
  std::vector<IndexDef> indexes;
  std::optional<size_t> active_index;
  std::string active_index_name;
  uint64_t next_index_id = 0;

  // filter
  std::string filter_text;
  bool filtered = false;
  SqlFilter compiled;  // translation of filter_text while filtered
  std::optional<std::string> filter_error;

  // statements
  Stmt select_row, insert_row, update_row, delete_row;

  // visible rows and cursor
  std::vector<int64_t> visible;
  size_t pos = 0;
  bool stale = false;
  std::optional<int64_t> want_rowid;  // where the cursor lands on refresh
  size_t want_pos = 0;                // ... when want_rowid is not visible
  std::vector<Value> row;
  bool has_row = false;
  int64_t loaded_rowid = 0;

  // edit buffer
  EditState state = EditState::kBrowse;
  std::vector<Value> buffer;
  int64_t edit_rowid = 0;

  const Value null_value;

  // ---- messages -----------------------------------------------------------
  std::string OwnerName() const { return owner.empty() ? "client dataset" : owner; }
  std::string Prefix() const {
    return owner.empty() ? "client dataset: " : "client dataset " + owner + ": ";
  }

  // ---- structure (client_dataset.cpp) ---------------------------------------
  void FinalizeStatements();
  void CloseDatabase();
  static std::string PickRowidName(const std::vector<FieldDef>& defs);
  void CheckFieldDefs(const std::vector<FieldDef>& defs) const;
  static std::string InsertSql(const std::vector<FieldDef>& defs);
  std::string IndexSql(const IndexDef& ix, const std::vector<FieldDef>& defs) const;
  // The indexes of the current structure whose fields all exist in `defs`,
  // mapped onto them.
  std::vector<IndexDef> KeptIndexes(const std::vector<FieldDef>& defs) const;
  // Replaces the table by one with `defs`, `new_indexes` and the rows that
  // `fill` inserts through the statement it is given (fill binds and steps).
  // All or nothing: on any error the previous table and state stay.
  void Rebuild(std::vector<FieldDef> defs, std::vector<IndexDef> new_indexes, const RowFill& fill);
  void RequireActive(const char* operation) const;
  size_t FieldIndex(std::string_view name) const;
  std::vector<size_t> FieldList(std::string_view list, const std::string& what) const;

  // ---- rows (client_dataset_cursor.cpp) -------------------------------------
  std::vector<Value> Converted(const std::vector<Value>& values, const std::string& where) const;
  Value Convert(const Value& v, size_t field, const std::string& where) const;
  int64_t Insert(const std::vector<Value>& typed);
  void Update(int64_t rowid, const std::vector<Value>& typed);
  void DeleteRow(int64_t rowid);

  // ---- visible rows (client_dataset_cursor.cpp) -----------------------------
  bool FilterApplies() const { return filtered && !compiled.Empty(); }
  // Whether the visible set is every row in insertion order.
  bool PlainOrder() const { return !FilterApplies() && !active_index; }
  void MarkStale(std::optional<int64_t> rowid, size_t fallback);
  std::optional<int64_t> CurrentRowid() const;
  // SELECT of the visible rowids, with `extra` ANDed to the filter.
  std::string VisibleSql(const std::string& extra, bool first_only) const;
  int BindFilter(sqlite3_stmt* s) const;
  void Refresh();
  void EnsureFresh() {
    if (stale) Refresh();
  }
  // Reads the current row into `row` unless it is there already.
  void LoadCurrent();
  void SetCurrent(int64_t id, std::vector<Value> values);

  // ---- editing (client_dataset_cursor.cpp) ----------------------------------
  // Posts a pending edit before an operation that leaves the row.
  void CheckBrowse() {
    if (state != EditState::kBrowse) Post();
  }
  void Post();
  void AppendRecord(const std::vector<Value>& values);

  // ---- filter and index (client_dataset_cursor.cpp) -------------------------
  // Re-translates the filter for the current structure; a failure is kept and
  // thrown when the visible rows are read.
  void RecompileFilter();
  // After a new structure: the filter is translated again, and a filter that
  // no longer fits the fields is reported at once.
  void ApplyFilterToNewStructure();
  void ViewChanged(bool keep_row);

  // ---- locate (client_dataset_cursor.cpp) -----------------------------------
  bool Locate(std::string_view list, const std::vector<Value>& values);
};

}  // namespace kvc::db

#endif  // KVC_DB_CLIENT_DATASET_IMPL_H_
