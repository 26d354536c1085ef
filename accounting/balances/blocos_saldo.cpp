// The building blocks that every balance, movement and carried-forward
// statement splices in: the dealership-exclusion predicate, the join that
// applies it through an entry's division rows, and the choice of the
// carried-forward table. They touch no database and keep no state.
#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {
namespace {

constexpr char kRevendaOperacao[] = "REVENDA_OPERACAO";
constexpr char kRevendaDivisao[] = "REVENDA_DIVISAO";
constexpr char kRevendaOrigem[] = "REVENDA_ORIGEM";

constexpr char kSaldoAnterior[] = "CTB_SALDO_ANTERIOR";
constexpr char kSaldoAnteriorDivisao[] = "CTB_SALDO_ANTERIOR_DIVISAO";
constexpr char kSufixoCV[] = "_CV";
constexpr char kRestricaoRevenda[] = " and REVENDA = ";

// " and ((A.C is null) or (A.C not in LIST)) " for one column.
std::string Clausula(const std::string& lista, const std::string& alias,
                     const std::string& conector, const char* coluna) {
  return " " + conector + " " + "((" + alias + coluna + " is null) or " + "(" + alias + coluna +
         " not in " + lista + ")) ";
}

}  // namespace

// 1. An empty list excludes nothing: a single blank. 2. A non-empty alias
// gets its point. 3-5. The REVENDA_OPERACAO clause, or the REVENDA_DIVISAO
// clause followed by the REVENDA_ORIGEM clause when asked. A null dealership
// column always passes: rows without a dealership are never excluded.
std::string TddmContabilidadeBD::VerifRevendasDesconsiderar(
    const std::string& RevendasDesconsiderar, bool Operacao, std::string Alias,
    const std::string& Conector, bool Origem) const {
  if (RevendasDesconsiderar.empty()) return " ";                                              // 1
  if (!Alias.empty()) Alias += ".";                                                           // 2
  if (Operacao) return Clausula(RevendasDesconsiderar, Alias, Conector, kRevendaOperacao);    // 4
  std::string resultado = Clausula(RevendasDesconsiderar, Alias, Conector, kRevendaDivisao);  // 5
  if (Origem) resultado += Clausula(RevendasDesconsiderar, Alias, Conector, kRevendaOrigem);
  return resultado;
}

// An inner join of the entry (alias `Alias`) to its division rows outside
// the excluded dealerships; an entry without division rows drops out.
std::string TddmContabilidadeBD::IncluiRestricaoRevendasDesconsiderar(
    const std::string& RevendasDesconsiderar, const std::string& Alias) const {
  if (RevendasDesconsiderar.empty()) return " ";
  const std::string filtro =
      VerifRevendasDesconsiderar(RevendasDesconsiderar, false, "cld", "and", true);
  return " inner join CTB_LANCAMENTO_DIVIDIDO cld     on (cld.EMPRESA = " + Alias + ".EMPRESA " +
         "   and cld.REVENDA = " + Alias + ".REVENDA " + "   and cld.ANO_MES = " + Alias +
         ".ANO_MES " + "   and cld.LANCAMENTO = " + Alias + ".LANCAMENTO " + filtro + ") ";
}

// With an exclusion list the per-division table (the only one with
// REVENDA_DIVISAO) and no dealership condition: its callers state their own
// or sum over the company, which is intended. Otherwise the plain table and
// " and REVENDA = n ". Any TabelaCV text selects the "_CV" table.
void TddmContabilidadeBD::DefineTabelaSaldoAnterior(int32_t Revenda,
                                                    const std::string& RevendasDesconsiderar,
                                                    const std::string& TabelaCV,
                                                    std::string& Tabela,
                                                    std::string& RestricaoRevenda) const {
  if (!RevendasDesconsiderar.empty()) {  // 1
    Tabela = kSaldoAnteriorDivisao;
    RestricaoRevenda.clear();
  } else {  // 2
    Tabela = kSaldoAnterior;
    RestricaoRevenda = kRestricaoRevenda + sql::Integer(Revenda) + " ";
  }
  if (!TabelaCV.empty()) Tabela += kSufixoCV;  // 3
  Tabela = " " + Tabela + " ";                 // 4
}

}  // namespace kvc
