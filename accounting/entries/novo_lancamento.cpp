// Entry numbers: one sequence per company, dealership and month, under the
// numbering key "LCTO" followed by the month as the caller wrote it.
#include <stdexcept>

#include "accounting/db/error.h"
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {
namespace {

constexpr char kTabelaLancamento[] = "CTB_LANCAMENTO";
constexpr char kChaveLancamento[] = "LCTO";

// Strict decimal conversion of an int32 argument; the message names it.
int32_t StrToInt(const std::string& text, const char* argument) {
  int64_t v = 0;
  if (!sql::ParseInteger(text, v) || v < INT32_MIN || v > INT32_MAX)
    throw std::invalid_argument("'" + text + "' is not a valid integer value (" + argument + ")");
  return static_cast<int32_t>(v);
}

}  // namespace

int32_t TddmContabilidadeBD::PegaNovoLancamento(const std::string& empresa,
                                                const std::string& revenda,
                                                const std::string& anoMes) {
  const int32_t codigo_empresa = StrToInt(empresa, "empresa");
  const int32_t codigo_revenda = StrToInt(revenda, "revenda");
  if (!conexao_) throw db::DatabaseError("no connection", "");
  return BuscaProximoNumeroTran(*conexao_, codigo_empresa, codigo_revenda, kTabelaLancamento,
                                kChaveLancamento + anoMes, 1);
}

}  // namespace kvc
