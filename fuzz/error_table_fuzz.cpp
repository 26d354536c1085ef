// The serialised table data of the client dataset
// (ClientDataSet::LoadFromString / SaveToString,
// accounting/db/client_dataset_json.cpp), the form in which the annual closing's
// error table travels between the host and the module. The input is the
// serialised text.
//
// Properties:
// - LoadFromString loads the text or throws std::invalid_argument (as
//   documented), nothing else; a blank text leaves an inactive dataset;
// - what it loaded saves to a text that loads again and saves to the same
//   text, with every row;
// - a table that the annual closing accepts as its caller's error table
//   (the fields DTA_ERRO, a date-time or text, and MENSAGEM, SQL and
//   EMESSAGE, texts) takes the
//   closing's error row as the closing appends it, and gives it back after
//   the caller's rows.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "accounting/db/client_dataset.h"
#include "accounting/db/result_set.h"
#include "fuzz/fuzz_check.h"

namespace {

using kvc::db::ClientDataSet;

size_t SavedRows(const std::string& saved) {
  return saved.empty() ? 0 : nlohmann::json::parse(saved).at("rows").size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);

  ClientDataSet table("cdsErros");
  try {
    table.LoadFromString(text);
  } catch (const std::invalid_argument&) {
    return 0;
  }
  if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) {
    FUZZ_CHECK(!table.Active());
    FUZZ_CHECK(table.SaveToString().empty());
    return 0;
  }
  FUZZ_CHECK(table.Active());
  const std::string saved = table.SaveToString();
  ClientDataSet copy("cdsCopia");
  copy.LoadFromString(saved);
  const std::string saved_again = copy.SaveToString();
  FUZZ_CHECK_MSG(saved_again == saved, saved + "\n  " + saved_again);
  const size_t rows = SavedRows(saved);
  FUZZ_CHECK(copy.RecordCount() == rows && table.RecordCount() == rows);

  // The annual closing's use of its caller's table, when it accepts it: the
  // four fields, DTA_ERRO a date-time or text and the others texts.
  for (const char* field : {"DTA_ERRO", "MENSAGEM", "SQL", "EMESSAGE"})
    if (!table.HasField(field)) return 0;
  for (const kvc::db::FieldDef& f : table.FieldDefs()) {
    const bool date = kvc::db::SameFieldName(f.name, "DTA_ERRO");
    const bool text = kvc::db::SameFieldName(f.name, "MENSAGEM") ||
                      kvc::db::SameFieldName(f.name, "SQL") ||
                      kvc::db::SameFieldName(f.name, "EMESSAGE");
    if (date && f.type != kvc::db::FieldType::kDateTime && f.type != kvc::db::FieldType::kString)
      return 0;
    if (text && f.type != kvc::db::FieldType::kString) return 0;
  }
  table.Append();
  table.SetFieldValue("DTA_ERRO", kvc::DateTime{2024, 12, 31, 23, 59, 58, 0});
  table.SetFieldValue("MENSAGEM", std::string("Erro ao incluir saldo anterior."));
  table.SetFieldValue("SQL", std::string("insert into ctb_saldo_anterior values (1, 'x')"));
  table.SetFieldValue("EMESSAGE", std::string("UNIQUE constraint failed"));
  table.Post();
  const std::string returned = table.SaveToString();
  FUZZ_CHECK(SavedRows(returned) == rows + 1);
  FUZZ_CHECK(returned.starts_with(saved.substr(0, saved.size() - 2)));
  return 0;
}
