// The filter dialect of the in-memory client dataset (accounting/db/filter.cpp),
// translated alone and applied to a dataset. The input is one filter text.
//
// Properties:
// - TranslateFilter translates the text or throws FilterError (its message
//   starting "filter: "), nothing else, and translates the same text the
//   same way twice;
// - a blank text gives no condition and any other text a condition with one
//   "?" per parameter, every parameter an integer, a double or a text;
// - a text it accepts is one the dataset applies and reads without error
//   (the translation is valid SQLite), and the visible rows are at most all
//   the rows;
// - "(text)" shows the same rows, and "not (text)" none of them.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "accounting/db/client_dataset.h"
#include "accounting/db/filter.h"
#include "fuzz/fuzz_check.h"

namespace {

using kvc::DateTime;
using kvc::db::ClientDataSet;
using kvc::db::FieldDef;
using kvc::db::FieldType;
using kvc::db::FilterError;
using kvc::db::SqlFilter;
using kvc::db::Value;

const std::vector<FieldDef>& Fields() {
  static const std::vector<FieldDef> fields = {
      {"CONTA", FieldType::kString},          {"REVENDA", FieldType::kInteger},
      {"NATUREZA", FieldType::kString},       {"CENTRO_CUSTO", FieldType::kInteger},
      {"VALOR", FieldType::kFloat},           {"DATA", FieldType::kDateTime},
      {"descrição", FieldType::kString},      {"valor \"bruto\"", FieldType::kFloat},
      {"CONTA_SUPERIORA", FieldType::kString}};
  return fields;
}

// A dataset with the fields above and a few rows, nulls included.
ClientDataSet& Dataset() {
  static std::unique_ptr<ClientDataSet> ds = [] {
    auto d = std::make_unique<ClientDataSet>("cdsFuzz");
    d->DefineFields(Fields());
    const DateTime jan{2024, 1, 31, 0, 0, 0, 0};
    const DateTime feb{2024, 2, 1, 10, 20, 30, 500};
    d->AppendRecord({"1.1.01", 1, "D", 10, 123.45, jan, "ação", 1.5, "1.1"});
    d->AppendRecord({"1.1.02", 2, "C", Value(), -0.25, feb, "", Value(), Value()});
    d->AppendRecord({"O'Brien", -12, "D", 3, 0.0, Value(), Value(), 2.0, "1"});
    d->AppendRecord(
        {Value(), Value(), Value(), Value(), Value(), Value(), Value(), Value(), Value()});
    d->AppendRecord({"3.1.01", 7, "C", 11, 1e15, jan, "x", -3.5, "3.1"});
    d->SetFiltered(true);
    return d;
  }();
  return *ds;
}

size_t CountMarks(const std::string& where) {
  // Field names are written in double quotes (a quote inside doubled);
  // every "?" outside them is a parameter.
  size_t marks = 0;
  bool quoted = false;
  for (char c : where) {
    if (c == '"') quoted = !quoted;
    if (!quoted && c == '?') ++marks;
  }
  return marks;
}

bool Blank(std::string_view text) {
  return text.find_first_not_of(" \t\n\r\f") == std::string_view::npos;
}

// The visible rows of the dataset under `filter`; the filter must apply.
size_t Visible(const std::string& filter) {
  ClientDataSet& ds = Dataset();
  ds.SetFilter(filter);
  return ds.RecordCount();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  SqlFilter f;
  try {
    f = kvc::db::TranslateFilter(text, Fields());
  } catch (const FilterError& e) {
    FUZZ_CHECK(std::string_view(e.what()).starts_with("filter: "));
    return 0;
  }
  const SqlFilter again = kvc::db::TranslateFilter(text, Fields());
  FUZZ_CHECK(again.where == f.where && again.params == f.params);
  FUZZ_CHECK(f.Empty() == Blank(text));
  FUZZ_CHECK(!f.Empty() || f.params.empty());
  FUZZ_CHECK_MSG(CountMarks(f.where) == f.params.size(), f.where);
  for (const Value& v : f.params) FUZZ_CHECK(v.IsInteger() || v.IsFloat() || v.IsString());

  const size_t total = Visible("");
  const size_t rows = Visible(text);
  FUZZ_CHECK(rows <= total);
  if (f.Empty()) return 0;
  FUZZ_CHECK_MSG(Visible("(" + text + ")") == rows, f.where);
  FUZZ_CHECK_MSG(rows + Visible("not (" + text + ")") <= total, f.where);
  return 0;
}
