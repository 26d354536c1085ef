// Regression, found by fuzz/error_table_fuzz.cpp in the long run: a field
// name holding a NUL character ("\u0000" in the JSON) ended the in-memory
// table's column name early, and the storage engine's "unrecognized token"
// escaped from ClientDataSet::LoadFromString as a database error, where the
// method documents std::invalid_argument for malformed data; the annual
// closing, which reads its caller's error table that way, raised it too.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "accounting/db/client_dataset.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

constexpr char kCampoComNul[] =
    R"({"fields":[{"name":"DTA_ERRO","type":"datetime"},{"name":"MENSAGEM","type":"string"},)"
    R"({"name":"SQL","type":"string"},{"name":"E\u0000MESSAGE","type":"string"}],"rows":[]})";

TEST(TabelaErrosNomeDeCampoComNul, RefusedAsMalformedAndTheTableStaysAsItWas) {
  db::ClientDataSet table("cdsErros");
  table.DefineFields({{"X", db::FieldType::kString}});
  table.AppendRecord({"kept"});
  try {
    table.LoadFromString(kCampoComNul);
    FAIL() << "loaded a field name holding a NUL character";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("holds a NUL character"), std::string::npos) << e.what();
  }
  ASSERT_EQ(table.RecordCount(), 1u);
  EXPECT_EQ(table.FieldByName("X").AsString(), "kept");
}

class TabelaErrosNomeDeCampoComNulTest : public ModuleTest {};

TEST_P(TabelaErrosNomeDeCampoComNulTest, AnnualClosingRefusesItBeforeAnythingRuns) {
  Bind();
  std::string erros = kCampoComNul;
  trace_->Clear();
  EXPECT_THROW(dm_->EncerramentoAnual("2023", erros, nullptr), std::invalid_argument);
  EXPECT_TRUE(trace_->Statements().empty());
}

KVC_INSTANTIATE_BACKENDS(TabelaErrosNomeDeCampoComNulTest);

}  // namespace
}  // namespace kvc::testing
