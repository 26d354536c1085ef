// The stand-alone accounting-integration library: the structure-version check
// against the version that the schema stores in the database, and the
// summarised balances kept in INT_SALDO_SUMARIZADO.
#include <fmt/format.h>

#include "accounting/db/error.h"
#include "accounting/db/sql_format.h"
#include "accounting/services/service_libraries.h"

namespace kvc {
namespace {

constexpr char kLibraryVersion[] = "2.09";

constexpr char kSelectVersao[] = "select VERSAO from GER_VERSAO_ESTRUTURA";
// One summarised balance: {delta} is "+ amount" or "- amount"; the texts are
// quoted.
constexpr char kUpdateSaldo[] =
    "update INT_SALDO_SUMARIZADO set SALDO = SALDO {delta}"
    " where TIPO_SALDO = {tipo_saldo}"
    " and TEXTO3 = {texto3}"
    " and TEXTO4 = {texto4}"
    " and CONTA = {conta}"
    " and NATUREZA = {natureza}"
    " and EMPRESA = {empresa}"
    " and REVENDA = {revenda}"
    " and ANO_MES = {ano_mes}"
    " and DIVISAO1 = {divisao1}"
    " and DIVISAO2 = {divisao2}"
    " and DIVISAO3 = {divisao3}"
    " and DIVISAO4 = {divisao4}"
    " and DIVISAO5 = {divisao5}";
constexpr char kInsertSaldo[] =
    "insert into INT_SALDO_SUMARIZADO (TIPO_SALDO, TEXTO3, TEXTO4, CONTA, NATUREZA, EMPRESA, "
    "REVENDA, ANO_MES, DIVISAO1, DIVISAO2, DIVISAO3, DIVISAO4, DIVISAO5, SALDO)"
    " values ({tipo_saldo}, {texto3}, {texto4}, {conta}, {natureza}, {empresa}, {revenda},"
    " {ano_mes}, {divisao1}, {divisao2}, {divisao3}, {divisao4}, {divisao5}, {saldo})";

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
    double signed_value;
    if (texto2 == "I")
      signed_value = valor;
    else if (texto2 == "E")
      signed_value = -valor;
    else
      return false;
    const std::string tipo_saldo = sql::Quoted(texto1);
    const std::string texto3_sql = sql::Quoted(texto3);
    const std::string texto4_sql = sql::Quoted(texto4);
    const std::string conta = sql::Quoted(texto5);
    const std::string natureza = sql::Quoted(texto6);
    const std::string empresa = sql::Integer(i1);
    const std::string revenda = sql::Integer(i2);
    const std::string ano_mes = sql::Integer(i3);
    const std::string divisao1 = sql::Integer(i4), divisao2 = sql::Integer(i5),
                      divisao3 = sql::Integer(i6), divisao4 = sql::Integer(i7),
                      divisao5 = sql::Integer(i8);
    const std::string delta =
        signed_value < 0 ? "- " + sql::Amount(-signed_value) : "+ " + sql::Amount(signed_value);
    const long long updated = conexao.Execute(
        fmt::format(kUpdateSaldo, fmt::arg("delta", delta), fmt::arg("tipo_saldo", tipo_saldo),
                    fmt::arg("texto3", texto3_sql), fmt::arg("texto4", texto4_sql),
                    fmt::arg("conta", conta), fmt::arg("natureza", natureza),
                    fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                    fmt::arg("ano_mes", ano_mes), fmt::arg("divisao1", divisao1),
                    fmt::arg("divisao2", divisao2), fmt::arg("divisao3", divisao3),
                    fmt::arg("divisao4", divisao4), fmt::arg("divisao5", divisao5)),
        {});
    if (updated == 0)
      conexao.Execute(fmt::format(kInsertSaldo, fmt::arg("tipo_saldo", tipo_saldo),
                                  fmt::arg("texto3", texto3_sql), fmt::arg("texto4", texto4_sql),
                                  fmt::arg("conta", conta), fmt::arg("natureza", natureza),
                                  fmt::arg("empresa", empresa), fmt::arg("revenda", revenda),
                                  fmt::arg("ano_mes", ano_mes), fmt::arg("divisao1", divisao1),
                                  fmt::arg("divisao2", divisao2), fmt::arg("divisao3", divisao3),
                                  fmt::arg("divisao4", divisao4), fmt::arg("divisao5", divisao5),
                                  fmt::arg("saldo", sql::Amount(signed_value))),
                      {});
    return true;
  }
};

}  // namespace

std::unique_ptr<IIntegracaoContabil01> NewIntegracaoContabil01() {
  return std::make_unique<IntegracaoContabil01>();
}

}  // namespace kvc
