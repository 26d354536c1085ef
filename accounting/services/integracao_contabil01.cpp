// The stand-alone accounting-integration library: the structure-version check
// against the version that the schema stores in the database, and the
// summarised balances kept in INT_SALDO_SUMARIZADO.
#include <cmath>

#include "accounting/db/error.h"
#include "accounting/db/sql_format.h"
#include "accounting/services/service_libraries.h"

namespace kvc {
namespace {

constexpr char kLibraryVersion[] = "2.09";

constexpr char kSelectVersao[] = "select VERSAO from GER_VERSAO_ESTRUTURA";
// One summarised balance. The library's own statements: their texts never
// change, and the values are bound (the amount as its text with a point, as
// the module writes amounts), so a posting prepares each of them once.
constexpr char kUpdateSaldo[] =
    "update INT_SALDO_SUMARIZADO set SALDO = SALDO + :VALOR"
    " where TIPO_SALDO = :TIPO_SALDO"
    " and TEXTO3 = :TEXTO3"
    " and TEXTO4 = :TEXTO4"
    " and CONTA = :CONTA"
    " and NATUREZA = :NATUREZA"
    " and EMPRESA = :EMPRESA"
    " and REVENDA = :REVENDA"
    " and ANO_MES = :ANO_MES"
    " and DIVISAO1 = :DIVISAO1"
    " and DIVISAO2 = :DIVISAO2"
    " and DIVISAO3 = :DIVISAO3"
    " and DIVISAO4 = :DIVISAO4"
    " and DIVISAO5 = :DIVISAO5";
constexpr char kInsertSaldo[] =
    "insert into INT_SALDO_SUMARIZADO (TIPO_SALDO, TEXTO3, TEXTO4, CONTA, NATUREZA, EMPRESA, "
    "REVENDA, ANO_MES, DIVISAO1, DIVISAO2, DIVISAO3, DIVISAO4, DIVISAO5, SALDO)"
    " values (:TIPO_SALDO, :TEXTO3, :TEXTO4, :CONTA, :NATUREZA, :EMPRESA, :REVENDA,"
    " :ANO_MES, :DIVISAO1, :DIVISAO2, :DIVISAO3, :DIVISAO4, :DIVISAO5, :VALOR)";

class IntegracaoContabil01 final : public IIntegracaoContabil01 {
 public:
  // Accepts the required version only when it is the library's own and the
  // database's structure version (GER_VERSAO_ESTRUTURA) is the same. A
  // database without the version table is refused.
  bool DLL_InicializaIntegracaoContabil01(db::Connection* conexao, const std::string& versao,
                                          int32_t) override {
    if (versao != kLibraryVersion || !conexao) return false;
    try {
      db::ResultSet rs = conexao->Query(kSelectVersao, {});
      if (rs.rows.size() != 1) return false;
      return rs.rows[0][0].AsString() == kLibraryVersion;
    } catch (const db::DatabaseError&) {
      return false;
    }
  }
  std::string DLL_VersaoIntegracaoContabil01() override { return kLibraryVersion; }
  void DLL_FinalizaIntegracaoContabil01(int32_t) override {}
  void DLL_AtualizaTAplicacaoIntegracaoContabil01(const TAplicacaoLibrary&, db::Connection*,
                                                  int32_t) override {}

  // texto2 is the kind of change: "I" adds the amount, "E" subtracts it; any
  // other kind is refused (false). The balance is keyed by the other five
  // texts and the eight integers, in the order received.
  bool DLL_AtualizaSaldoSumarizado(db::Connection& conexao, const std::string& texto1,
                                   const std::string& texto2, const std::string& texto3,
                                   const std::string& texto4, const std::string& texto5,
                                   const std::string& texto6, int32_t i1, int32_t i2, int32_t i3,
                                   int32_t i4, int32_t i5, int32_t i6, int32_t i7, int32_t i8,
                                   double valor, int32_t) override {
    // An amount that is no number fails as its literal failed when the
    // amount was written into the text; bound, it would be read as zero.
    if (!std::isfinite(valor))
      throw db::DatabaseError("the summarised balance's amount is not a finite number",
                              kUpdateSaldo);
    double signed_value;
    if (texto2 == "I")
      signed_value = valor;
    else if (texto2 == "E")
      signed_value = -valor;
    else
      return false;
    // The key in the order received; VALOR is the signed amount.
    const db::BoundParams valores{{"TIPO_SALDO", texto1}, {"TEXTO3", texto3},
                                  {"TEXTO4", texto4},     {"CONTA", texto5},
                                  {"NATUREZA", texto6},   {"EMPRESA", i1},
                                  {"REVENDA", i2},        {"ANO_MES", i3},
                                  {"DIVISAO1", i4},       {"DIVISAO2", i5},
                                  {"DIVISAO3", i6},       {"DIVISAO4", i7},
                                  {"DIVISAO5", i8},       {"VALOR", sql::Amount(signed_value)}};
    if (conexao.Execute(kUpdateSaldo, valores) == 0) conexao.Execute(kInsertSaldo, valores);
    return true;
  }
};

}  // namespace

std::unique_ptr<IIntegracaoContabil01> NewIntegracaoContabil01() {
  return std::make_unique<IntegracaoContabil01>();
}

}  // namespace kvc
