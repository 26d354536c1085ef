// ClientDataSet's serialised table data: SaveToString and LoadFromString, a
// JSON text with the field definitions and every row.
#include "accounting/db/client_dataset.h"

#include <sqlite3.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include "accounting/db/client_dataset_impl.h"
#include "accounting/db/client_dataset_store.h"
#include "accounting/db/filter.h"

namespace kvc::db {

using client_dataset_detail::IndexDef;
using client_dataset_detail::kTable;
using client_dataset_detail::ReadColumn;
using client_dataset_detail::ResetOnExit;

namespace {

nlohmann::json ToJson(const Value& v) {
  if (v.IsNull()) return nullptr;
  if (v.IsInteger()) return v.AsInteger();
  if (v.IsFloat()) return v.AsFloat();
  if (v.IsDateTime()) return v.AsDateTime().ToIso();
  return v.AsString();
}

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
  sqlite3_stmt* s = d.store.Cached(sql);
  {
    ResetOnExit reset(s);
    int rc;
    while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
      nlohmann::json r = nlohmann::json::array();
      for (size_t i = 0; i < d.fields.size(); ++i)
        r.push_back(ToJson(ReadColumn(s, static_cast<int>(i), d.fields[i].type)));
      rows.push_back(std::move(r));
    }
    if (rc != SQLITE_DONE) d.store.Throw(sql);
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
                  d.store.Bind(s, static_cast<int>(i + 1), v);
                }
                d.store.StepDone(s);
              }
            });
  d.ApplyFilterToNewStructure();
}

}  // namespace kvc::db
