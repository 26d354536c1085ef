// The command dataset: parameters, opening with the before-open handler,
// execution, and field access.
#include "accounting/db/sql_dataset.h"

#include <stdexcept>

#include "accounting/db/error.h"
#include "accounting/db/placeholders.h"

namespace kvc::db {

Param* Params::Find(std::string_view name) {
  for (auto& p : items_)
    if (SameFieldName(p.name, name)) return &p;
  return nullptr;
}

const Param* Params::Find(std::string_view name) const {
  for (auto& p : items_)
    if (SameFieldName(p.name, name)) return &p;
  return nullptr;
}

Param& Params::ByName(std::string_view name) {
  if (Param* p = Find(name)) return *p;
  throw std::invalid_argument("parameter '" + std::string(name) + "' not found");
}

Param& Params::Add(std::string_view name, ParamType type) {
  if (Param* p = Find(name)) return *p;
  items_.push_back(Param{std::string(name), type, Value()});
  return items_.back();
}

BoundParams Params::ToBound() const {
  BoundParams out;
  out.reserve(items_.size());
  for (auto& p : items_) out.push_back(BoundParam{p.name, p.value});
  return out;
}

void SQLDataSet::SetCommandText(std::string text) {
  Close();
  text_ = std::move(text);
  Params rebuilt;
  // Most of the module's texts carry their values as literals: a text
  // without a colon has no placeholder to look for.
  if (text_.find(':') == std::string::npos) {
    params_ = std::move(rebuilt);
    return;
  }
  for (const std::string& name : PlaceholderNames(text_)) {
    Param& p = rebuilt.Add(name);
    if (const Param* old = params_.Find(name)) {
      p.type = old->type;
      p.value = old->value;
    }
  }
  params_ = std::move(rebuilt);
}

void SQLDataSet::SetBeforeOpen(BeforeOpenHandler handler, std::string tag) {
  before_open_ = std::move(handler);
  before_open_tag_ = std::move(tag);
}

Connection& SQLDataSet::RequireConnection() const {
  if (!connection_) throw DatabaseError("dataset " + name_ + " has no connection", text_);
  return *connection_;
}

void SQLDataSet::Open() {
  if (active_) return;
  if (before_open_) before_open_(*this);
  Connection& connection = RequireConnection();
  rows_ = connection.Query(text_, params_.ToBound());
  active_ = true;
  pos_ = 0;
}

void SQLDataSet::Close() {
  active_ = false;
  rows_ = ResultSet{};
  pos_ = 0;
}

long long SQLDataSet::ExecSQL() {
  Close();
  return RequireConnection().Execute(text_, params_.ToBound());
}

const Value& SQLDataSet::FieldByName(std::string_view name) const {
  static const Value kNull;
  auto index = active_ ? rows_.FindColumn(name) : std::nullopt;
  if (!index)
    throw std::invalid_argument("field '" + std::string(name) + "' not found in " + name_);
  if (pos_ >= rows_.rows.size()) return kNull;
  return rows_.rows[pos_][*index];
}

bool SQLDataSet::HasField(std::string_view name) const {
  return active_ && rows_.FindColumn(name).has_value();
}

const Value& SQLDataSet::Field(size_t i) const {
  static const Value kNull;
  if (!active_ || i >= rows_.columns.size())
    throw std::invalid_argument("field " + std::to_string(i) + " not found in " + name_);
  if (pos_ >= rows_.rows.size()) return kNull;
  return rows_.rows[pos_][i];
}

}  // namespace kvc::db
