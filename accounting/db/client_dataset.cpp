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
#include "accounting/db/client_dataset.h"

#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <unordered_map>
#include <utility>

#include <nlohmann/json.hpp>

#include "accounting/db/error.h"
#include "accounting/db/filter.h"
#include "accounting/db/result_set.h"
#include "accounting/db/sql_format.h"

namespace kvc::db {

namespace {

constexpr const char* kTable = "\"data\"";

struct StmtDeleter {
  void operator()(sqlite3_stmt* s) const { sqlite3_finalize(s); }
};
using Stmt = std::unique_ptr<sqlite3_stmt, StmtDeleter>;

// Resets a statement on leaving the scope, so that none stays active between
// calls (an active statement would block DROP TABLE and keep a read open).
class ResetOnExit {
 public:
  explicit ResetOnExit(sqlite3_stmt* s) : s_(s) {}
  ~ResetOnExit() {
    sqlite3_reset(s_);
    sqlite3_clear_bindings(s_);
  }
  ResetOnExit(const ResetOnExit&) = delete;
  ResetOnExit& operator=(const ResetOnExit&) = delete;

 private:
  sqlite3_stmt* s_;
};

char UpperAscii(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

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

std::string_view ColumnType(FieldType type) {
  switch (type) {
    case FieldType::kInteger:
      return "INTEGER";
    case FieldType::kFloat:
      return "REAL";
    case FieldType::kString:
    case FieldType::kDateTime:
      return "TEXT";
  }
  return "TEXT";
}

// `value` in the type of a field, as it will be stored and read back. Throws
// std::invalid_argument when it does not convert.
Value ToFieldType(const Value& value, FieldType type) {
  if (value.IsNull()) return Value();
  switch (type) {
    case FieldType::kInteger:
      return value.IsInteger() ? value : Value(value.AsInteger());
    case FieldType::kFloat: {
      double d = value.AsFloat();
      // SQLite has no NaN: it would store a null, so the value is a null here.
      if (std::isnan(d)) return Value();
      return Value(d);
    }
    case FieldType::kString:
      return value.IsString() ? value : Value(value.AsString());
    case FieldType::kDateTime: {
      DateTime dt = value.AsDateTime();
      if (!dt.IsValid())
        throw std::invalid_argument("'" + dt.ToIso() + "' is not a valid date and time");
      return Value(dt);
    }
  }
  return value;
}

// `value` as an operand of an equality test against a field of `type`, or
// nullopt when no stored value can equal it.
std::optional<Value> ToComparable(const Value& value, FieldType type) {
  if (value.IsNull()) return Value();
  switch (type) {
    case FieldType::kInteger:
    case FieldType::kFloat:
      if (value.IsInteger() || value.IsFloat()) return value;
      if (value.IsString()) {
        int64_t i = 0;
        double d = 0;
        if (sql::ParseInteger(value.AsString(), i)) return Value(i);
        if (sql::ParseDouble(value.AsString(), d) && !std::isnan(d)) return Value(d);
      }
      return std::nullopt;
    case FieldType::kString:
      return Value(value.AsString());
    case FieldType::kDateTime:
      try {
        DateTime dt = value.AsDateTime();
        if (dt.IsValid()) return Value(dt.ToIso());
      } catch (const std::invalid_argument&) {
      }
      return std::nullopt;
  }
  return std::nullopt;
}

std::string Trim(std::string_view s) {
  size_t b = 0, e = s.size();
  while (b < e && (s[b] == ' ' || s[b] == '\t')) ++b;
  while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t')) --e;
  return std::string(s.substr(b, e - b));
}

// "f1;f2;f3" as trimmed names; empty items are dropped.
std::vector<std::string> SplitFieldList(std::string_view list) {
  std::vector<std::string> out;
  size_t start = 0;
  while (start <= list.size()) {
    size_t end = list.find(';', start);
    if (end == std::string_view::npos) end = list.size();
    std::string item = Trim(list.substr(start, end - start));
    if (!item.empty()) out.push_back(std::move(item));
    start = end + 1;
  }
  return out;
}

struct IndexDef {
  std::string name;
  std::vector<size_t> fields;
  std::string sql_name;  // the SQLite index
};

enum class EditState { kBrowse, kEdit, kInsert };

}  // namespace

struct ClientDataSet::Impl {
  explicit Impl(const std::string& owner_name) : owner(owner_name) {}
  ~Impl() { CloseDatabase(); }

  const std::string& owner;
  sqlite3* db = nullptr;

  // structure
  bool active = false;
  std::vector<FieldDef> fields;
  FieldMap field_map;
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
  std::unordered_map<std::string, Stmt> cache;
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

  // ---- SQLite plumbing ----------------------------------------------------
  [[noreturn]] void ThrowSqlite(const std::string& sql) const {
    throw DatabaseError(db ? sqlite3_errmsg(db) : "out of memory", sql);
  }

  void OpenDatabase() {
    if (db) return;
    sqlite3* handle = nullptr;
    int rc =
        sqlite3_open_v2(":memory:", &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (rc != SQLITE_OK) {
      std::string message = handle ? sqlite3_errmsg(handle) : sqlite3_errstr(rc);
      sqlite3_close(handle);
      throw DatabaseError(message, ":memory:");
    }
    db = handle;
  }

  void FinalizeStatements() {
    cache.clear();
    select_row.reset();
    insert_row.reset();
    update_row.reset();
    delete_row.reset();
  }

  void CloseDatabase() {
    FinalizeStatements();
    if (db) sqlite3_close(db);
    db = nullptr;
  }

  void Exec(const std::string& sql) {
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) ThrowSqlite(sql);
  }

  Stmt Prepare(const std::string& sql) {
    sqlite3_stmt* s = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), static_cast<int>(sql.size() + 1), &s, nullptr) !=
        SQLITE_OK) {
      sqlite3_finalize(s);
      ThrowSqlite(sql);
    }
    return Stmt(s);
  }

  // A prepared statement kept for reuse; the cache is bounded.
  sqlite3_stmt* Cached(const std::string& sql) {
    auto it = cache.find(sql);
    if (it != cache.end()) return it->second.get();
    if (cache.size() >= 64) cache.clear();
    Stmt s = Prepare(sql);
    sqlite3_stmt* raw = s.get();
    cache.emplace(sql, std::move(s));
    return raw;
  }

  void Bind(sqlite3_stmt* s, int index, const Value& v) const {
    int rc = SQLITE_OK;
    if (v.IsNull()) {
      rc = sqlite3_bind_null(s, index);
    } else if (v.IsInteger()) {
      rc = sqlite3_bind_int64(s, index, v.AsInteger());
    } else if (v.IsFloat()) {
      rc = sqlite3_bind_double(s, index, v.AsFloat());
    } else {
      std::string text = v.IsDateTime() ? v.AsDateTime().ToIso() : v.AsString();
      rc = sqlite3_bind_text64(s, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
    }
    if (rc != SQLITE_OK) ThrowSqlite(sqlite3_sql(s));
  }

  // Steps a statement that returns no row.
  void StepDone(sqlite3_stmt* s) const {
    if (sqlite3_step(s) != SQLITE_DONE) ThrowSqlite(sqlite3_sql(s));
  }

  static Value Read(sqlite3_stmt* s, int col, FieldType type) {
    if (sqlite3_column_type(s, col) == SQLITE_NULL) return Value();
    switch (type) {
      case FieldType::kInteger:
        return Value(static_cast<int64_t>(sqlite3_column_int64(s, col)));
      case FieldType::kFloat:
        return Value(sqlite3_column_double(s, col));
      case FieldType::kString:
      case FieldType::kDateTime: {
        const auto* p = reinterpret_cast<const char*>(sqlite3_column_text(s, col));
        std::string_view text(p ? p : "", static_cast<size_t>(sqlite3_column_bytes(s, col)));
        if (type == FieldType::kDateTime) {
          if (auto dt = DateTime::ParseIso(text)) return Value(*dt);
        }
        return Value(text);
      }
    }
    return Value();
  }

  // ---- structure ----------------------------------------------------------
  static std::string PickRowidName(const std::vector<FieldDef>& defs) {
    std::string name = "kvc_rowid";
    auto taken = [&](const std::string& n) {
      return std::any_of(defs.begin(), defs.end(),
                         [&](const FieldDef& f) { return SameFieldName(f.name, n); });
    };
    while (taken(name)) name += '_';
    return SqlIdentifier(name);
  }

  void CheckFieldDefs(const std::vector<FieldDef>& defs) const {
    FieldMap seen;
    for (size_t i = 0; i < defs.size(); ++i) {
      if (defs[i].name.empty())
        throw std::invalid_argument(Prefix() + "field " + std::to_string(i + 1) + " has no name");
      // The in-memory table names its columns after the fields, and an
      // identifier ends at a NUL character.
      if (defs[i].name.find('\0') != std::string::npos)
        throw std::invalid_argument(Prefix() + "the name of field " + std::to_string(i + 1) +
                                    " holds a NUL character");
      if (!seen.emplace(defs[i].name, i).second)
        throw std::invalid_argument(Prefix() + "duplicate field name '" + defs[i].name + "'");
    }
  }

  static std::string InsertSql(const std::vector<FieldDef>& defs) {
    if (defs.empty()) return std::string("INSERT INTO ") + kTable + " DEFAULT VALUES";
    std::string cols, marks;
    for (size_t i = 0; i < defs.size(); ++i) {
      if (i) {
        cols += ", ";
        marks += ", ";
      }
      cols += SqlIdentifier(defs[i].name);
      marks += '?';
    }
    return std::string("INSERT INTO ") + kTable + " (" + cols + ") VALUES (" + marks + ")";
  }

  std::string IndexSql(const IndexDef& ix, const std::vector<FieldDef>& defs) const {
    std::string sql = "CREATE INDEX " + SqlIdentifier(ix.sql_name) + " ON " + kTable + " (";
    for (size_t i = 0; i < ix.fields.size(); ++i) {
      if (i) sql += ", ";
      sql += SqlIdentifier(defs[ix.fields[i]].name);
    }
    return sql + ")";
  }

  // The indexes of the current structure whose fields all exist in `defs`,
  // mapped onto them.
  std::vector<IndexDef> KeptIndexes(const std::vector<FieldDef>& defs) const {
    std::vector<IndexDef> kept;
    for (const IndexDef& ix : indexes) {
      IndexDef copy{ix.name, {}, {}};
      for (size_t f : ix.fields) {
        for (size_t j = 0; j < defs.size(); ++j) {
          if (SameFieldName(defs[j].name, fields[f].name)) {
            copy.fields.push_back(j);
            break;
          }
        }
      }
      if (copy.fields.size() == ix.fields.size()) kept.push_back(std::move(copy));
    }
    return kept;
  }

  // Replaces the table by one with `defs`, `new_indexes` and the rows that
  // `fill` inserts through the statement it is given (fill binds and steps).
  // All or nothing: on any error the previous table and state stay.
  template <typename Fill>
  void Rebuild(std::vector<FieldDef> defs, std::vector<IndexDef> new_indexes, Fill&& fill) {
    CheckFieldDefs(defs);
    OpenDatabase();
    FinalizeStatements();
    std::string new_pk = PickRowidName(defs);
    Exec("BEGIN");
    try {
      Exec(std::string("DROP TABLE IF EXISTS ") + kTable);
      std::string create =
          std::string("CREATE TABLE ") + kTable + " (" + new_pk + " INTEGER PRIMARY KEY";
      for (const FieldDef& f : defs)
        create += ", " + SqlIdentifier(f.name) + " " + std::string(ColumnType(f.type));
      Exec(create + ")");
      {
        Stmt insert = Prepare(InsertSql(defs));
        fill(insert.get(), defs);
      }
      for (IndexDef& ix : new_indexes) {
        ix.sql_name = "ix" + std::to_string(next_index_id++);
        Exec(IndexSql(ix, defs));
      }
      Exec("COMMIT");
    } catch (...) {
      sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
      throw;
    }

    std::string old_index_name = active_index_name;
    fields = std::move(defs);
    field_map.clear();
    for (size_t i = 0; i < fields.size(); ++i) field_map.emplace(fields[i].name, i);
    pk = std::move(new_pk);
    indexes = std::move(new_indexes);
    active_index.reset();
    active_index_name.clear();
    for (size_t i = 0; i < indexes.size(); ++i) {
      if (!old_index_name.empty() && SameFieldName(indexes[i].name, old_index_name)) {
        active_index = i;
        active_index_name = indexes[i].name;
      }
    }
    active = true;
    state = EditState::kBrowse;
    buffer.clear();
    row.assign(fields.size(), Value());
    has_row = false;
    visible.clear();
    pos = 0;
    MarkStale(std::nullopt, 0);
  }

  // Re-translates the filter for the current structure; a failure is kept and
  // thrown when the visible rows are read.
  void RecompileFilter() {
    compiled = {};
    filter_error.reset();
    if (!filtered || !active) return;
    try {
      compiled = TranslateFilter(filter_text, fields);
    } catch (const FilterError& e) {
      filter_error = e.what();
    }
  }

  void RequireActive(const char* operation) const {
    if (!active) throw std::logic_error(Prefix() + operation + ": the dataset is not active");
  }

  size_t FieldIndex(std::string_view name) const {
    auto it = field_map.find(name);
    if (it == field_map.end())
      throw std::invalid_argument("field '" + std::string(name) + "' not found in " + OwnerName());
    return it->second;
  }

  std::vector<size_t> FieldList(std::string_view list, const std::string& what) const {
    std::vector<std::string> names = SplitFieldList(list);
    if (names.empty()) throw std::invalid_argument(Prefix() + what + ": no fields given");
    std::vector<size_t> out;
    for (const std::string& n : names) out.push_back(FieldIndex(n));
    return out;
  }

  // ---- rows ---------------------------------------------------------------
  std::vector<Value> Converted(const std::vector<Value>& values, const std::string& where) const {
    if (values.size() != fields.size())
      throw std::invalid_argument(Prefix() + where + std::to_string(values.size()) +
                                  " values for " + std::to_string(fields.size()) + " fields");
    std::vector<Value> out;
    out.reserve(values.size());
    for (size_t i = 0; i < values.size(); ++i) out.push_back(Convert(values[i], i, where));
    return out;
  }

  Value Convert(const Value& v, size_t field, const std::string& where) const {
    try {
      return ToFieldType(v, fields[field].type);
    } catch (const std::invalid_argument& e) {
      throw std::invalid_argument(Prefix() + where + "field '" + fields[field].name +
                                  "': " + e.what());
    }
  }

  int64_t Insert(const std::vector<Value>& typed) {
    if (!insert_row) insert_row = Prepare(InsertSql(fields));
    sqlite3_stmt* s = insert_row.get();
    ResetOnExit reset(s);
    for (size_t i = 0; i < typed.size(); ++i) Bind(s, static_cast<int>(i + 1), typed[i]);
    StepDone(s);
    return sqlite3_last_insert_rowid(db);
  }

  void Update(int64_t rowid, const std::vector<Value>& typed) {
    if (fields.empty()) return;
    if (!update_row) {
      std::string sql = std::string("UPDATE ") + kTable + " SET ";
      for (size_t i = 0; i < fields.size(); ++i) {
        if (i) sql += ", ";
        sql += SqlIdentifier(fields[i].name) + " = ?";
      }
      update_row = Prepare(sql + " WHERE " + pk + " = ?");
    }
    sqlite3_stmt* s = update_row.get();
    ResetOnExit reset(s);
    for (size_t i = 0; i < typed.size(); ++i) Bind(s, static_cast<int>(i + 1), typed[i]);
    Bind(s, static_cast<int>(typed.size() + 1), Value(rowid));
    StepDone(s);
  }

  void DeleteRow(int64_t rowid) {
    if (!delete_row)
      delete_row = Prepare(std::string("DELETE FROM ") + kTable + " WHERE " + pk + " = ?");
    sqlite3_stmt* s = delete_row.get();
    ResetOnExit reset(s);
    Bind(s, 1, Value(rowid));
    StepDone(s);
  }

  // ---- visible rows -------------------------------------------------------
  bool FilterApplies() const { return filtered && !compiled.Empty(); }
  // Whether the visible set is every row in insertion order.
  bool PlainOrder() const { return !FilterApplies() && !active_index; }

  void MarkStale(std::optional<int64_t> rowid, size_t fallback) {
    stale = true;
    want_rowid = rowid;
    want_pos = fallback;
  }

  std::optional<int64_t> CurrentRowid() const {
    if (pos < visible.size()) return visible[pos];
    return std::nullopt;
  }

  // SELECT of the visible rowids, with `extra` ANDed to the filter.
  std::string VisibleSql(const std::string& extra, bool first_only) const {
    std::string sql = "SELECT " + pk + " FROM " + kTable;
    std::string where;
    if (FilterApplies()) where = compiled.where;
    if (!extra.empty()) where = where.empty() ? extra : "(" + where + ") AND " + extra;
    if (!where.empty()) sql += " WHERE " + where;
    sql += " ORDER BY ";
    if (active_index) {
      for (size_t f : indexes[*active_index].fields) sql += SqlIdentifier(fields[f].name) + ", ";
    }
    sql += pk;
    if (first_only) sql += " LIMIT 1";
    return sql;
  }

  int BindFilter(sqlite3_stmt* s) const {
    int n = 0;
    if (FilterApplies())
      for (const Value& v : compiled.params) Bind(s, ++n, v);
    return n;
  }

  void Refresh() {
    if (!active) {
      visible.clear();
      pos = 0;
      has_row = false;
      stale = false;
      return;
    }
    if (filtered && filter_error) throw FilterError(*filter_error);
    sqlite3_stmt* s = Cached(VisibleSql({}, false));
    ResetOnExit reset(s);
    BindFilter(s);
    visible.clear();
    std::optional<size_t> found;
    int rc;
    while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
      int64_t id = sqlite3_column_int64(s, 0);
      if (want_rowid && id == *want_rowid) found = visible.size();
      visible.push_back(id);
    }
    if (rc != SQLITE_DONE) ThrowSqlite(sqlite3_sql(s));
    pos = found ? *found : std::min(want_pos, visible.size());
    want_rowid.reset();
    want_pos = 0;
    stale = false;
    LoadCurrent();
  }

  void EnsureFresh() {
    if (stale) Refresh();
  }

  // Reads the current row into `row` unless it is there already.
  void LoadCurrent() {
    if (pos >= visible.size()) {
      has_row = false;
      return;
    }
    const int64_t id = visible[pos];
    if (has_row && loaded_rowid == id) return;
    if (!select_row) {
      std::string sql = "SELECT ";
      for (const FieldDef& f : fields) sql += SqlIdentifier(f.name) + ", ";
      select_row = Prepare(sql + pk + " FROM " + kTable + " WHERE " + pk + " = ?");
    }
    sqlite3_stmt* s = select_row.get();
    ResetOnExit reset(s);
    Bind(s, 1, Value(id));
    int rc = sqlite3_step(s);
    if (rc == SQLITE_DONE)
      throw std::logic_error(Prefix() + "row " + std::to_string(id) + " vanished");
    if (rc != SQLITE_ROW) ThrowSqlite(sqlite3_sql(s));
    for (size_t i = 0; i < fields.size(); ++i)
      row[i] = Read(s, static_cast<int>(i), fields[i].type);
    has_row = true;
    loaded_rowid = id;
  }

  void SetCurrent(int64_t id, std::vector<Value> values) {
    row = std::move(values);
    has_row = true;
    loaded_rowid = id;
  }

  // ---- editing ------------------------------------------------------------
  // Posts a pending edit before an operation that leaves the row.
  void CheckBrowse() {
    if (state != EditState::kBrowse) Post();
  }

  void Post() {
    if (state == EditState::kBrowse) return;
    // The buffer stays in place until the row is written, so that a failed
    // write can be corrected and posted again.
    const bool inserting = state == EditState::kInsert;
    int64_t id = edit_rowid;
    if (inserting) {
      id = Insert(buffer);
    } else {
      Update(id, buffer);
    }
    std::vector<Value> values = std::move(buffer);
    state = EditState::kBrowse;
    buffer.clear();
    if (!stale && PlainOrder()) {
      if (inserting) {
        visible.push_back(id);
        pos = visible.size() - 1;
      }
      SetCurrent(id, std::move(values));
    } else {
      if (has_row && loaded_rowid == id) has_row = false;
      if (stale) {
        want_rowid = id;
      } else {
        MarkStale(id, pos);
      }
    }
  }

  void AppendRecord(const std::vector<Value>& values) {
    RequireActive("AppendRecord");
    CheckBrowse();
    std::vector<Value> typed = Converted(values, "AppendRecord: ");
    int64_t id = Insert(typed);
    if (!stale && PlainOrder()) {
      visible.push_back(id);
      pos = visible.size() - 1;
      SetCurrent(id, std::move(typed));
    } else if (stale) {
      want_rowid = id;
    } else {
      MarkStale(id, pos);
    }
  }

  // ---- filter and index ---------------------------------------------------
  void ViewChanged(bool keep_row) {
    if (stale) {
      if (!keep_row) {
        want_rowid.reset();
        want_pos = 0;
      }
      return;
    }
    MarkStale(keep_row ? CurrentRowid() : std::nullopt, 0);
  }

  // ---- locate -------------------------------------------------------------
  bool Locate(std::string_view list, const std::vector<Value>& values) {
    CheckBrowse();
    std::vector<size_t> which = FieldList(list, "Locate");
    if (which.size() != values.size())
      throw std::invalid_argument(Prefix() + "Locate: " + std::to_string(which.size()) +
                                  " fields but " + std::to_string(values.size()) + " values");
    EnsureFresh();
    if (visible.empty()) return false;
    std::vector<Value> operands;
    std::string extra;
    for (size_t i = 0; i < which.size(); ++i) {
      std::optional<Value> v = ToComparable(values[i], fields[which[i]].type);
      if (!v) return false;
      if (i) extra += " AND ";
      extra += SqlIdentifier(fields[which[i]].name) + " IS ?";
      operands.push_back(std::move(*v));
    }
    sqlite3_stmt* s = Cached(VisibleSql(extra, true));
    ResetOnExit reset(s);
    int n = BindFilter(s);
    for (const Value& v : operands) Bind(s, ++n, v);
    int rc = sqlite3_step(s);
    if (rc == SQLITE_DONE) return false;
    if (rc != SQLITE_ROW) ThrowSqlite(sqlite3_sql(s));
    const int64_t id = sqlite3_column_int64(s, 0);
    auto it = std::find(visible.begin(), visible.end(), id);
    if (it == visible.end()) return false;
    pos = static_cast<size_t>(it - visible.begin());
    LoadCurrent();
    return true;
  }

  // ---- serialised data ----------------------------------------------------
  static nlohmann::json ToJson(const Value& v) {
    if (v.IsNull()) return nullptr;
    if (v.IsInteger()) return v.AsInteger();
    if (v.IsFloat()) return v.AsFloat();
    if (v.IsDateTime()) return v.AsDateTime().ToIso();
    return v.AsString();
  }

  // After a new structure: the filter is translated again, and a filter that
  // no longer fits the fields is reported at once.
  void ApplyFilterToNewStructure() {
    RecompileFilter();
    if (filtered && filter_error) throw FilterError(*filter_error);
  }
};

namespace {

// A JSON cell as a Value of `type`; throws std::invalid_argument with `where`.
Value JsonCell(const nlohmann::json& j, FieldType type, const std::string& where) {
  if (j.is_null()) return Value();
  auto fail = [&](const char* expected) -> Value {
    throw std::invalid_argument(where + "expected " + expected + ", found " + j.dump());
  };
  switch (type) {
    case FieldType::kInteger:
      if (j.is_number_integer() && !j.is_number_unsigned()) return Value(j.get<int64_t>());
      if (j.is_number_unsigned()) {
        uint64_t u = j.get<uint64_t>();
        if (u <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max()))
          return Value(static_cast<int64_t>(u));
      }
      if (j.is_number_float()) {
        double d = j.get<double>();
        if (std::isfinite(d) && std::trunc(d) == d && std::fabs(d) < 9.2e18)
          return Value(static_cast<int64_t>(d));
      }
      return fail("an integer");
    case FieldType::kFloat:
      if (j.is_number()) return Value(j.get<double>());
      return fail("a number");
    case FieldType::kString:
      if (j.is_string()) return Value(j.get<std::string>());
      return fail("a text");
    case FieldType::kDateTime:
      if (j.is_string()) {
        if (auto dt = DateTime::ParseIso(j.get_ref<const std::string&>())) return Value(*dt);
      }
      return fail("a date-time \"YYYY-MM-DD HH:MM:SS\"");
  }
  return fail("a value");
}

}  // namespace

// ---- ClientDataSet ----------------------------------------------------------

ClientDataSet::ClientDataSet(std::string name)
    : name_(std::move(name)), impl_(std::make_unique<Impl>(name_)) {}

ClientDataSet::~ClientDataSet() = default;

void ClientDataSet::DefineFields(std::vector<FieldDef> fields) {
  Impl& d = *impl_;
  d.Rebuild(std::move(fields), {}, [](sqlite3_stmt*, const std::vector<FieldDef>&) {});
  d.filter_text.clear();
  d.filtered = false;
  d.ApplyFilterToNewStructure();
}

void ClientDataSet::LoadFrom(const ResultSet& rows) {
  Impl& d = *impl_;
  if (rows.columns.size() != rows.types.size())
    throw std::invalid_argument(d.Prefix() + "LoadFrom: " + std::to_string(rows.columns.size()) +
                                " columns but " + std::to_string(rows.types.size()) + " types");
  std::vector<FieldDef> defs;
  defs.reserve(rows.columns.size());
  for (size_t i = 0; i < rows.columns.size(); ++i) defs.push_back({rows.columns[i], rows.types[i]});
  std::vector<IndexDef> kept = d.KeptIndexes(defs);
  d.Rebuild(std::move(defs), std::move(kept),
            [&](sqlite3_stmt* s, const std::vector<FieldDef>& new_fields) {
              for (size_t r = 0; r < rows.rows.size(); ++r) {
                const std::vector<Value>& values = rows.rows[r];
                std::string where = "row " + std::to_string(r + 1) + ", ";
                if (values.size() != new_fields.size())
                  throw std::invalid_argument(d.Prefix() + "row " + std::to_string(r + 1) +
                                              " has " + std::to_string(values.size()) +
                                              " values for " + std::to_string(new_fields.size()) +
                                              " fields");
                ResetOnExit reset(s);
                for (size_t i = 0; i < values.size(); ++i) {
                  Value typed;
                  try {
                    typed = ToFieldType(values[i], new_fields[i].type);
                  } catch (const std::invalid_argument& e) {
                    throw std::invalid_argument(d.Prefix() + where + "field '" +
                                                new_fields[i].name + "': " + e.what());
                  }
                  d.Bind(s, static_cast<int>(i + 1), typed);
                }
                d.StepDone(s);
              }
            });
  d.ApplyFilterToNewStructure();
}

const std::vector<FieldDef>& ClientDataSet::FieldDefs() const { return impl_->fields; }

bool ClientDataSet::HasField(std::string_view name) const {
  return impl_->field_map.find(name) != impl_->field_map.end();
}

bool ClientDataSet::Active() const { return impl_->active; }

void ClientDataSet::Close() {
  Impl& d = *impl_;
  d.CloseDatabase();
  d.active = false;
  d.fields.clear();
  d.field_map.clear();
  d.pk.clear();
  d.indexes.clear();
  d.active_index.reset();
  d.active_index_name.clear();
  d.filter_text.clear();
  d.filtered = false;
  d.compiled = {};
  d.filter_error.reset();
  d.visible.clear();
  d.pos = 0;
  d.stale = false;
  d.want_rowid.reset();
  d.row.clear();
  d.has_row = false;
  d.state = EditState::kBrowse;
  d.buffer.clear();
}

// ---- rows -------------------------------------------------------------------

void ClientDataSet::AppendRecord(const std::vector<Value>& values) { impl_->AppendRecord(values); }

void ClientDataSet::Append() {
  Impl& d = *impl_;
  d.RequireActive("Append");
  d.CheckBrowse();
  d.state = EditState::kInsert;
  d.buffer.assign(d.fields.size(), Value());
}

void ClientDataSet::Edit() {
  Impl& d = *impl_;
  d.RequireActive("Edit");
  if (d.state != EditState::kBrowse) return;
  d.EnsureFresh();
  if (d.pos >= d.visible.size()) throw std::logic_error(d.Prefix() + "Edit: no current row");
  d.LoadCurrent();
  d.state = EditState::kEdit;
  d.buffer = d.row;
  d.edit_rowid = d.visible[d.pos];
}

void ClientDataSet::SetFieldValue(std::string_view field, const Value& value) {
  Impl& d = *impl_;
  if (d.state == EditState::kBrowse)
    throw std::logic_error(d.Prefix() + "SetFieldValue: not in Append or Edit");
  size_t i = d.FieldIndex(field);
  d.buffer[i] = d.Convert(value, i, "");
}

void ClientDataSet::Post() { impl_->Post(); }

void ClientDataSet::Cancel() {
  impl_->state = EditState::kBrowse;
  impl_->buffer.clear();
}

void ClientDataSet::Delete() {
  Impl& d = *impl_;
  d.RequireActive("Delete");
  if (d.state == EditState::kInsert) {
    Cancel();
    return;
  }
  Cancel();
  d.EnsureFresh();
  if (d.pos >= d.visible.size()) throw std::logic_error(d.Prefix() + "Delete: no current row");
  d.DeleteRow(d.visible[d.pos]);
  d.visible.erase(d.visible.begin() + static_cast<std::ptrdiff_t>(d.pos));
  d.has_row = false;
  d.LoadCurrent();
}

void ClientDataSet::EmptyDataSet() {
  Impl& d = *impl_;
  Cancel();
  if (!d.active) return;
  d.Exec(std::string("DELETE FROM ") + kTable);
  d.visible.clear();
  d.pos = 0;
  d.has_row = false;
  d.stale = false;
  d.want_rowid.reset();
}

// ---- indexes ----------------------------------------------------------------

void ClientDataSet::AddIndex(std::string_view index_name, std::string_view fields) {
  Impl& d = *impl_;
  if (index_name.empty())
    throw std::invalid_argument(d.Prefix() + "AddIndex: an index needs a name");
  IndexDef ix{
      std::string(index_name), d.FieldList(fields, "index '" + std::string(index_name) + "'"), {}};
  d.CheckBrowse();
  ix.sql_name = "ix" + std::to_string(d.next_index_id++);
  d.Exec(d.IndexSql(ix, d.fields));
  for (size_t i = 0; i < d.indexes.size(); ++i) {
    if (SameFieldName(d.indexes[i].name, index_name)) {
      std::string old = d.indexes[i].sql_name;
      d.indexes[i] = std::move(ix);
      d.Exec("DROP INDEX " + SqlIdentifier(old));
      if (d.active_index == i) {
        d.active_index_name = d.indexes[i].name;
        d.ViewChanged(true);
      }
      return;
    }
  }
  d.indexes.push_back(std::move(ix));
}

void ClientDataSet::SetIndexName(std::string_view index_name) {
  Impl& d = *impl_;
  std::optional<size_t> found;
  if (!index_name.empty()) {
    for (size_t i = 0; i < d.indexes.size(); ++i)
      if (SameFieldName(d.indexes[i].name, index_name)) found = i;
    if (!found)
      throw std::invalid_argument(d.Prefix() + "index '" + std::string(index_name) + "' not found");
  }
  d.CheckBrowse();
  if (found == d.active_index) return;
  d.active_index = found;
  d.active_index_name = found ? d.indexes[*found].name : std::string();
  d.ViewChanged(true);
}

const std::string& ClientDataSet::IndexName() const { return impl_->active_index_name; }

std::string ClientDataSet::IndexFieldNames() const {
  const Impl& d = *impl_;
  std::string out;
  if (!d.active_index) return out;
  for (size_t f : d.indexes[*d.active_index].fields) {
    if (!out.empty()) out += ';';
    out += d.fields[f].name;
  }
  return out;
}

// ---- filter -----------------------------------------------------------------

void ClientDataSet::SetFilter(std::string filter) {
  Impl& d = *impl_;
  if (filter == d.filter_text && !d.filter_error) return;
  d.CheckBrowse();
  if (d.filtered && d.active) {
    SqlFilter compiled = TranslateFilter(filter, d.fields);
    d.compiled = std::move(compiled);
    d.filter_error.reset();
    d.filter_text = std::move(filter);
    d.ViewChanged(false);
  } else {
    d.filter_text = std::move(filter);
  }
}

const std::string& ClientDataSet::Filter() const { return impl_->filter_text; }

void ClientDataSet::SetFiltered(bool on) {
  Impl& d = *impl_;
  if (on == d.filtered && !d.filter_error) return;
  d.CheckBrowse();
  if (on && d.active) {
    SqlFilter compiled = TranslateFilter(d.filter_text, d.fields);
    d.compiled = std::move(compiled);
  } else {
    d.compiled = {};
  }
  d.filter_error.reset();
  d.filtered = on;
  if (d.active) d.ViewChanged(false);
}

bool ClientDataSet::Filtered() const { return impl_->filtered; }

// ---- navigation -------------------------------------------------------------

void ClientDataSet::First() {
  Impl& d = *impl_;
  d.CheckBrowse();
  if (!d.active) return;
  if (d.stale || (d.filtered && d.filter_error)) {
    d.MarkStale(std::nullopt, 0);
    d.Refresh();
    return;
  }
  d.pos = 0;
  d.LoadCurrent();
}

void ClientDataSet::Next() {
  Impl& d = *impl_;
  d.CheckBrowse();
  d.EnsureFresh();
  if (d.pos < d.visible.size()) {
    ++d.pos;
    d.LoadCurrent();
  }
}

bool ClientDataSet::Eof() const {
  impl_->EnsureFresh();
  return impl_->pos >= impl_->visible.size();
}

bool ClientDataSet::IsEmpty() const {
  impl_->EnsureFresh();
  return impl_->visible.empty();
}

size_t ClientDataSet::RecordCount() const {
  impl_->EnsureFresh();
  return impl_->visible.size();
}

bool ClientDataSet::Locate(std::string_view fields, const std::vector<Value>& values) {
  return impl_->Locate(fields, values);
}

const Value& ClientDataSet::FieldByName(std::string_view field) const {
  Impl& d = *impl_;
  const size_t i = d.FieldIndex(field);
  if (d.state != EditState::kBrowse) return d.buffer[i];
  d.EnsureFresh();
  return d.has_row ? d.row[i] : d.null_value;
}

std::string ClientDataSet::VisibleRowsPlan() const {
  Impl& d = *impl_;
  if (!d.active) return {};
  if (d.filtered && d.filter_error) throw FilterError(*d.filter_error);
  std::string sql = "EXPLAIN QUERY PLAN " + d.VisibleSql({}, false);
  Stmt s = d.Prepare(sql);
  d.BindFilter(s.get());
  std::string plan;
  int rc;
  while ((rc = sqlite3_step(s.get())) == SQLITE_ROW) {
    const auto* detail = reinterpret_cast<const char*>(sqlite3_column_text(s.get(), 3));
    if (!plan.empty()) plan += '\n';
    plan += detail ? detail : "";
  }
  if (rc != SQLITE_DONE) d.ThrowSqlite(sql);
  return plan;
}

// ---- serialised table data --------------------------------------------------

std::string ClientDataSet::SaveToString() const {
  Impl& d = *impl_;
  if (!d.active) return {};
  nlohmann::json out = nlohmann::json::object();
  nlohmann::json defs = nlohmann::json::array();
  for (const FieldDef& f : d.fields)
    defs.push_back({{"name", f.name}, {"type", std::string(FieldTypeName(f.type))}});
  out["fields"] = std::move(defs);
  nlohmann::json rows = nlohmann::json::array();
  std::string sql = "SELECT ";
  for (const FieldDef& f : d.fields) sql += SqlIdentifier(f.name) + ", ";
  sql += d.pk + " FROM " + kTable + " ORDER BY " + d.pk;
  sqlite3_stmt* s = d.Cached(sql);
  {
    ResetOnExit reset(s);
    int rc;
    while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
      nlohmann::json r = nlohmann::json::array();
      for (size_t i = 0; i < d.fields.size(); ++i)
        r.push_back(Impl::ToJson(Impl::Read(s, static_cast<int>(i), d.fields[i].type)));
      rows.push_back(std::move(r));
    }
    if (rc != SQLITE_DONE) d.ThrowSqlite(sql);
  }
  out["rows"] = std::move(rows);
  try {
    return out.dump();
  } catch (const nlohmann::json::exception& e) {
    throw std::invalid_argument(d.Prefix() + "SaveToString: " + e.what());
  }
}

void ClientDataSet::LoadFromString(std::string_view data) {
  Impl& d = *impl_;
  if (data.find_first_not_of(" \t\r\n") == std::string_view::npos) {
    Close();
    return;
  }
  const std::string prefix = d.Prefix() + "LoadFromString: ";
  nlohmann::json doc;
  try {
    doc = nlohmann::json::parse(data);
  } catch (const nlohmann::json::exception& e) {
    // A syntax error, or a number beyond the range of a double (out_of_range).
    throw std::invalid_argument(prefix + "malformed JSON: " + e.what());
  }
  if (!doc.is_object()) throw std::invalid_argument(prefix + "expected a JSON object");
  auto fields_it = doc.find("fields");
  if (fields_it == doc.end() || !fields_it->is_array())
    throw std::invalid_argument(prefix + "\"fields\" must be an array");
  auto rows_it = doc.find("rows");
  if (rows_it == doc.end() || !rows_it->is_array())
    throw std::invalid_argument(prefix + "\"rows\" must be an array");

  std::vector<FieldDef> defs;
  for (size_t i = 0; i < fields_it->size(); ++i) {
    const nlohmann::json& f = (*fields_it)[i];
    const std::string where = prefix + "field " + std::to_string(i + 1) + ": ";
    if (!f.is_object()) throw std::invalid_argument(where + "expected an object");
    auto name = f.find("name");
    auto type = f.find("type");
    if (name == f.end() || !name->is_string() || name->get_ref<const std::string&>().empty())
      throw std::invalid_argument(where + "\"name\" must be a non-empty text");
    if (type == f.end() || !type->is_string())
      throw std::invalid_argument(where + "\"type\" must be a text");
    std::optional<FieldType> t = FieldTypeFromName(type->get_ref<const std::string&>());
    if (!t)
      throw std::invalid_argument(where + "unknown type '" + type->get<std::string>() +
                                  "' of field '" + name->get<std::string>() + "'");
    defs.push_back({name->get<std::string>(), *t});
  }

  const nlohmann::json& rows = *rows_it;
  std::vector<IndexDef> kept = d.KeptIndexes(defs);
  d.Rebuild(std::move(defs), std::move(kept),
            [&](sqlite3_stmt* s, const std::vector<FieldDef>& new_fields) {
              for (size_t r = 0; r < rows.size(); ++r) {
                const nlohmann::json& values = rows[r];
                const std::string where = prefix + "row " + std::to_string(r + 1);
                if (!values.is_array()) throw std::invalid_argument(where + ": expected an array");
                if (values.size() != new_fields.size())
                  throw std::invalid_argument(where + " has " + std::to_string(values.size()) +
                                              " values for " + std::to_string(new_fields.size()) +
                                              " fields");
                ResetOnExit reset(s);
                for (size_t i = 0; i < values.size(); ++i) {
                  Value v = JsonCell(values[i], new_fields[i].type,
                                     where + ", field '" + new_fields[i].name + "': ");
                  d.Bind(s, static_cast<int>(i + 1), v);
                }
                d.StepDone(s);
              }
            });
  d.ApplyFilterToNewStructure();
}

}  // namespace kvc::db
