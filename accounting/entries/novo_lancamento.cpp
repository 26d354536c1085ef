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
