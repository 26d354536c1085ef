// Regression, found by fuzz/error_table_fuzz.cpp: serialised table data with a
// number beyond the range of a double (such as 1e999) made
// ClientDataSet::LoadFromString let the JSON reader's out_of_range escape,
// where the method documents std::invalid_argument for malformed data; so
// the annual closing, which reads its caller's error table that way, raised
// an exception of no documented type instead of refusing the table. The
// fuzzer's reproducer, minimised: "5E858".
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "accounting/db/client_dataset.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

constexpr char kTabelaComNumeroEnorme[] =
    R"({"fields":[{"name":"DTA_ERRO","type":"datetime"},{"name":"MENSAGEM","type":"string"},)"
    R"({"name":"SQL","type":"string"},{"name":"EMESSAGE","type":"float"}],)"
    R"("rows":[["2024-12-31 23:59:58","m","s",1e999]]})";

TEST(TabelaErrosNumeroForaDoAlcance, ReproducerOfTheFuzzer) {
  db::ClientDataSet table("cdsErros");
  EXPECT_THROW(table.LoadFromString("5E858"), std::invalid_argument);
  EXPECT_FALSE(table.Active());
}

TEST(TabelaErrosNumeroForaDoAlcance, RefusedAsMalformedAndTheTableStaysAsItWas) {
  db::ClientDataSet table("cdsErros");
  table.DefineFields({{"X", db::FieldType::kString}});
  table.AppendRecord({"kept"});
  try {
    table.LoadFromString(kTabelaComNumeroEnorme);
    FAIL() << "loaded a number beyond the range of a double";
  } catch (const std::invalid_argument& e) {
    EXPECT_NE(std::string(e.what()).find("LoadFromString: malformed JSON"), std::string::npos)
        << e.what();
  }
  ASSERT_EQ(table.RecordCount(), 1u);
  EXPECT_EQ(table.FieldByName("X").AsString(), "kept");
}

class TabelaErrosNumeroForaDoAlcanceTest : public ModuleTest {};

TEST_P(TabelaErrosNumeroForaDoAlcanceTest, AnnualClosingRefusesItBeforeAnythingRuns) {
  Bind();
  std::string erros = kTabelaComNumeroEnorme;
  trace_->Clear();
  EXPECT_THROW(dm_->EncerramentoAnual("2023", erros, nullptr), std::invalid_argument);
  EXPECT_TRUE(trace_->Statements().empty());
}

KVC_INSTANTIATE_BACKENDS(TabelaErrosNumeroForaDoAlcanceTest);

}  // namespace
}  // namespace kvc::testing
