// The general form of the analytic balance. It answers every account the way
// BuscaSaldoContaAnalitica does; the cache of the whole period's movement
// that lets a chart walk cost one grouped statement is not built yet, so each
// account still costs its own statements.
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {

double TddmContabilidadeBD::BuscaSaldoContaAnaliticaGeral(
    int32_t Empresa, int32_t Revenda, int32_t AnoMes, int32_t Reservado1, int32_t Reservado2,
    int32_t CentroCusto, int32_t Fonte, int32_t Categoria, int32_t SecaoOficina,
    int32_t RevendaDivisao, const std::string& TipoItem, const std::string& Modalidade,
    const std::string& Conta, const std::string& CentrosCusto, bool SaldoMensal,
    const std::string& FiltroAdicional, const std::string& RevendasDesconsiderar) {
  return BuscaSaldoContaAnalitica(Empresa, Revenda, AnoMes, Reservado1, Reservado2, CentroCusto,
                                  Fonte, Categoria, SecaoOficina, RevendaDivisao, TipoItem,
                                  Modalidade, Conta, CentrosCusto, SaldoMensal, FiltroAdicional,
                                  RevendasDesconsiderar);
}

}  // namespace kvc
