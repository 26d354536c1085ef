// ClientDataSet's rows as its cursor sees them: appending, editing and
// deleting rows, the filter, the visible rows (filtered, in index order) and
// navigation over them, Locate, and the current row's values.
#include "accounting/db/client_dataset.h"

#include <sqlite3.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <utility>

#include "accounting/db/client_dataset_impl.h"
#include "accounting/db/client_dataset_store.h"
#include "accounting/db/filter.h"
#include "accounting/db/sql_format.h"

namespace kvc::db {

using client_dataset_detail::EditState;
using client_dataset_detail::kTable;
using client_dataset_detail::ReadColumn;
using client_dataset_detail::ResetOnExit;
using client_dataset_detail::Stmt;
using client_dataset_detail::ToFieldType;

namespace {

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

}  // namespace

// ---- ClientDataSet::Impl: rows ------------------------------------------------

std::vector<Value> ClientDataSet::Impl::Converted(const std::vector<Value>& values,
                                                  const std::string& where) const {
  if (values.size() != fields.size())
    throw std::invalid_argument(Prefix() + where + std::to_string(values.size()) + " values for " +
                                std::to_string(fields.size()) + " fields");
  std::vector<Value> out;
  out.reserve(values.size());
  for (size_t i = 0; i < values.size(); ++i) out.push_back(Convert(values[i], i, where));
  return out;
}

Value ClientDataSet::Impl::Convert(const Value& v, size_t field, const std::string& where) const {
  try {
    return ToFieldType(v, fields[field].type);
  } catch (const std::invalid_argument& e) {
    throw std::invalid_argument(Prefix() + where + "field '" + fields[field].name +
                                "': " + e.what());
  }
}

int64_t ClientDataSet::Impl::Insert(const std::vector<Value>& typed) {
  if (!insert_row) insert_row = store.Prepare(InsertSql(fields));
  sqlite3_stmt* s = insert_row.get();
  ResetOnExit reset(s);
  for (size_t i = 0; i < typed.size(); ++i) store.Bind(s, static_cast<int>(i + 1), typed[i]);
  store.StepDone(s);
  return store.LastInsertRowid();
}

void ClientDataSet::Impl::Update(int64_t rowid, const std::vector<Value>& typed) {
  if (fields.empty()) return;
  if (!update_row) {
    std::string sql = std::string("UPDATE ") + kTable + " SET ";
    for (size_t i = 0; i < fields.size(); ++i) {
      if (i) sql += ", ";
      sql += SqlIdentifier(fields[i].name) + " = ?";
    }
    update_row = store.Prepare(sql + " WHERE " + pk + " = ?");
  }
  sqlite3_stmt* s = update_row.get();
  ResetOnExit reset(s);
  for (size_t i = 0; i < typed.size(); ++i) store.Bind(s, static_cast<int>(i + 1), typed[i]);
  store.Bind(s, static_cast<int>(typed.size() + 1), Value(rowid));
  store.StepDone(s);
}

void ClientDataSet::Impl::DeleteRow(int64_t rowid) {
  if (!delete_row)
    delete_row = store.Prepare(std::string("DELETE FROM ") + kTable + " WHERE " + pk + " = ?");
  sqlite3_stmt* s = delete_row.get();
  ResetOnExit reset(s);
  store.Bind(s, 1, Value(rowid));
  store.StepDone(s);
}

// ---- ClientDataSet::Impl: visible rows ----------------------------------------

void ClientDataSet::Impl::MarkStale(std::optional<int64_t> rowid, size_t fallback) {
  stale = true;
  want_rowid = rowid;
  want_pos = fallback;
}

std::optional<int64_t> ClientDataSet::Impl::CurrentRowid() const {
  if (pos < visible.size()) return visible[pos];
  return std::nullopt;
}

std::string ClientDataSet::Impl::VisibleSql(const std::string& extra, bool first_only) const {
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

int ClientDataSet::Impl::BindFilter(sqlite3_stmt* s) const {
  int n = 0;
  if (FilterApplies())
    for (const Value& v : compiled.params) store.Bind(s, ++n, v);
  return n;
}

void ClientDataSet::Impl::Refresh() {
  if (!active) {
    visible.clear();
    pos = 0;
    has_row = false;
    stale = false;
    return;
  }
  if (filtered && filter_error) throw FilterError(*filter_error);
  sqlite3_stmt* s = store.Cached(VisibleSql({}, false));
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
  if (rc != SQLITE_DONE) store.Throw(sqlite3_sql(s));
  pos = found ? *found : std::min(want_pos, visible.size());
  want_rowid.reset();
  want_pos = 0;
  stale = false;
  LoadCurrent();
}

void ClientDataSet::Impl::LoadCurrent() {
  if (pos >= visible.size()) {
    has_row = false;
    return;
  }
  const int64_t id = visible[pos];
  if (has_row && loaded_rowid == id) return;
  if (!select_row) {
    std::string sql = "SELECT ";
    for (const FieldDef& f : fields) sql += SqlIdentifier(f.name) + ", ";
    select_row = store.Prepare(sql + pk + " FROM " + kTable + " WHERE " + pk + " = ?");
  }
  sqlite3_stmt* s = select_row.get();
  ResetOnExit reset(s);
  store.Bind(s, 1, Value(id));
  int rc = sqlite3_step(s);
  if (rc == SQLITE_DONE)
    throw std::logic_error(Prefix() + "row " + std::to_string(id) + " vanished");
  if (rc != SQLITE_ROW) store.Throw(sqlite3_sql(s));
  for (size_t i = 0; i < fields.size(); ++i)
    row[i] = ReadColumn(s, static_cast<int>(i), fields[i].type);
  has_row = true;
  loaded_rowid = id;
}

void ClientDataSet::Impl::SetCurrent(int64_t id, std::vector<Value> values) {
  row = std::move(values);
  has_row = true;
  loaded_rowid = id;
}

// ---- ClientDataSet::Impl: editing ---------------------------------------------

void ClientDataSet::Impl::Post() {
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

void ClientDataSet::Impl::AppendRecord(const std::vector<Value>& values) {
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

// ---- ClientDataSet::Impl: filter and index ------------------------------------

void ClientDataSet::Impl::RecompileFilter() {
  compiled = {};
  filter_error.reset();
  if (!filtered || !active) return;
  try {
    compiled = TranslateFilter(filter_text, fields);
  } catch (const FilterError& e) {
    filter_error = e.what();
  }
}

void ClientDataSet::Impl::ApplyFilterToNewStructure() {
  RecompileFilter();
  if (filtered && filter_error) throw FilterError(*filter_error);
}

void ClientDataSet::Impl::ViewChanged(bool keep_row) {
  if (stale) {
    if (!keep_row) {
      want_rowid.reset();
      want_pos = 0;
    }
    return;
  }
  MarkStale(keep_row ? CurrentRowid() : std::nullopt, 0);
}

// ---- ClientDataSet::Impl: locate ----------------------------------------------

bool ClientDataSet::Impl::Locate(std::string_view list, const std::vector<Value>& values) {
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
  sqlite3_stmt* s = store.Cached(VisibleSql(extra, true));
  ResetOnExit reset(s);
  int n = BindFilter(s);
  for (const Value& v : operands) store.Bind(s, ++n, v);
  int rc = sqlite3_step(s);
  if (rc == SQLITE_DONE) return false;
  if (rc != SQLITE_ROW) store.Throw(sqlite3_sql(s));
  const int64_t id = sqlite3_column_int64(s, 0);
  auto it = std::find(visible.begin(), visible.end(), id);
  if (it == visible.end()) return false;
  pos = static_cast<size_t>(it - visible.begin());
  LoadCurrent();
  return true;
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
  d.store.Exec(std::string("DELETE FROM ") + kTable);
  d.visible.clear();
  d.pos = 0;
  d.has_row = false;
  d.stale = false;
  d.want_rowid.reset();
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
  Stmt s = d.store.Prepare(sql);
  d.BindFilter(s.get());
  std::string plan;
  int rc;
  while ((rc = sqlite3_step(s.get())) == SQLITE_ROW) {
    const auto* detail = reinterpret_cast<const char*>(sqlite3_column_text(s.get(), 3));
    if (!plan.empty()) plan += '\n';
    plan += detail ? detail : "";
  }
  if (rc != SQLITE_DONE) d.store.Throw(sql);
  return plan;
}

}  // namespace kvc::db
