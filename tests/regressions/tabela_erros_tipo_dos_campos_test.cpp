// Regression, found while checking the property of fuzz/error_table_fuzz.cpp
// by hand (the fuzzer had not reached it): the annual closing accepted a
// caller's error table whose fields had the right names but not types that
// take an error row (DTA_ERRO as an integer, MENSAGEM as a number). Nothing
// showed until a statement failed: then writing its error row raised, and
// the run stopped halfway instead of logging the failure and going on. Such
// a table is now refused before anything runs, like one without the fields.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "support/test_db.h"

namespace kvc::testing {
namespace {

std::string Tabela(const std::string& tipo_data, const std::string& tipo_mensagem) {
  return R"({"fields":[{"name":"DTA_ERRO","type":")" + tipo_data +
         R"("},{"name":"MENSAGEM","type":")" + tipo_mensagem +
         R"("},{"name":"SQL","type":"string"},{"name":"EMESSAGE","type":"string"}],"rows":[]})";
}

class TabelaErrosTipoDosCamposTest : public ModuleTest {};

TEST_P(TabelaErrosTipoDosCamposTest, FieldsThatCannotTakeAnErrorRowAreRefusedBeforeAnythingRuns) {
  Bind();
  for (const auto& [data, mensagem] : {std::pair{"integer", "string"},
                                       {"float", "string"},
                                       {"datetime", "integer"},
                                       {"datetime", "datetime"}}) {
    std::string erros = Tabela(data, mensagem);
    trace_->Clear();
    EXPECT_THROW(dm_->EncerramentoAnual("2023", erros, nullptr), std::invalid_argument)
        << data << ", " << mensagem;
    EXPECT_TRUE(trace_->Statements().empty()) << data << ", " << mensagem;
  }
}

TEST_P(TabelaErrosTipoDosCamposTest, ADateAsTextStillTakesTheRows) {
  Bind();
  std::string erros = Tabela("string", "string");
  trace_->FailMatching(" delete from ctb_saldo_anterior", "locked");
  dm_->EncerramentoAnual("2023", erros, nullptr);
  trace_->ClearFaults();
  EXPECT_NE(erros.find("Erro ao excluir saldo anterior."), std::string::npos) << erros;
}

KVC_INSTANTIATE_BACKENDS(TabelaErrosTipoDosCamposTest);

}  // namespace
}  // namespace kvc::testing
