// ClientDataSet's structure: field definitions, the table rebuilt for a new
// structure (DefineFields, LoadFrom), Close, and the named indexes. How the
// rows are kept is described in client_dataset_impl.h.
#include "accounting/db/client_dataset.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "accounting/db/client_dataset_impl.h"
#include "accounting/db/client_dataset_store.h"
#include "accounting/db/filter.h"
#include "accounting/db/result_set.h"

namespace kvc::db {

using client_dataset_detail::BeginTransaction;
using client_dataset_detail::EditState;
using client_dataset_detail::FieldMap;
using client_dataset_detail::IndexDef;
using client_dataset_detail::kTable;
using client_dataset_detail::ResetOnExit;
using client_dataset_detail::Stmt;
using client_dataset_detail::ToFieldType;

namespace client_dataset_detail {

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

}  // namespace client_dataset_detail

namespace {

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

}  // namespace

// ---- ClientDataSet::Impl: structure -------------------------------------------

void ClientDataSet::Impl::FinalizeStatements() {
  store.ClearCache();
  select_row.reset();
  insert_row.reset();
  update_row.reset();
  delete_row.reset();
}

void ClientDataSet::Impl::CloseDatabase() {
  FinalizeStatements();
  store.Close();
}

std::string ClientDataSet::Impl::PickRowidName(const std::vector<FieldDef>& defs) {
  std::string name = "kvc_rowid";
  auto taken = [&](const std::string& n) {
    return std::any_of(defs.begin(), defs.end(),
                       [&](const FieldDef& f) { return SameFieldName(f.name, n); });
  };
  while (taken(name)) name += '_';
  return SqlIdentifier(name);
}

void ClientDataSet::Impl::CheckFieldDefs(const std::vector<FieldDef>& defs) const {
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

std::string ClientDataSet::Impl::InsertSql(const std::vector<FieldDef>& defs) {
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

std::string ClientDataSet::Impl::IndexSql(const IndexDef& ix,
                                          const std::vector<FieldDef>& defs) const {
  std::string sql = "CREATE INDEX " + SqlIdentifier(ix.sql_name) + " ON " + kTable + " (";
  for (size_t i = 0; i < ix.fields.size(); ++i) {
    if (i) sql += ", ";
    sql += SqlIdentifier(defs[ix.fields[i]].name);
  }
  return sql + ")";
}

std::vector<IndexDef> ClientDataSet::Impl::KeptIndexes(const std::vector<FieldDef>& defs) const {
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

void ClientDataSet::Impl::Rebuild(std::vector<FieldDef> defs, std::vector<IndexDef> new_indexes,
                                  const RowFill& fill) {
  CheckFieldDefs(defs);
  store.Open();
  FinalizeStatements();
  std::string new_pk = PickRowidName(defs);
  {
    TransactionGuard transaction = BeginTransaction(store);
    store.Exec(std::string("DROP TABLE IF EXISTS ") + kTable);
    std::string create =
        std::string("CREATE TABLE ") + kTable + " (" + new_pk + " INTEGER PRIMARY KEY";
    for (const FieldDef& f : defs)
      create += ", " + SqlIdentifier(f.name) + " " + std::string(ColumnType(f.type));
    store.Exec(create + ")");
    {
      Stmt insert = store.Prepare(InsertSql(defs));
      fill(insert.get(), defs);
    }
    for (IndexDef& ix : new_indexes) {
      ix.sql_name = "ix" + std::to_string(next_index_id++);
      store.Exec(IndexSql(ix, defs));
    }
    (void)transaction.Commit();
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

void ClientDataSet::Impl::RequireActive(const char* operation) const {
  if (!active) throw std::logic_error(Prefix() + operation + ": the dataset is not active");
}

size_t ClientDataSet::Impl::FieldIndex(std::string_view name) const {
  auto it = field_map.find(name);
  if (it == field_map.end())
    throw std::invalid_argument("field '" + std::string(name) + "' not found in " + OwnerName());
  return it->second;
}

std::vector<size_t> ClientDataSet::Impl::FieldList(std::string_view list,
                                                   const std::string& what) const {
  std::vector<std::string> names = SplitFieldList(list);
  if (names.empty()) throw std::invalid_argument(Prefix() + what + ": no fields given");
  std::vector<size_t> out;
  out.reserve(names.size());
  for (const std::string& n : names) out.push_back(FieldIndex(n));
  return out;
}

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
                  d.store.Bind(s, static_cast<int>(i + 1), typed);
                }
                d.store.StepDone(s);
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

// ---- indexes ----------------------------------------------------------------

void ClientDataSet::AddIndex(std::string_view index_name, std::string_view fields) {
  Impl& d = *impl_;
  if (index_name.empty())
    throw std::invalid_argument(d.Prefix() + "AddIndex: an index needs a name");
  IndexDef ix{
      std::string(index_name), d.FieldList(fields, "index '" + std::string(index_name) + "'"), {}};
  d.CheckBrowse();
  ix.sql_name = "ix" + std::to_string(d.next_index_id++);
  d.store.Exec(d.IndexSql(ix, d.fields));
  for (size_t i = 0; i < d.indexes.size(); ++i) {
    if (SameFieldName(d.indexes[i].name, index_name)) {
      std::string old = d.indexes[i].sql_name;
      d.indexes[i] = std::move(ix);
      d.store.Exec("DROP INDEX " + SqlIdentifier(old));
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

}  // namespace kvc::db
