// The building blocks that every balance, movement and carried-forward
// statement splices in: the dealership-exclusion predicate, the join that
// applies it through an entry's division rows, and the choice of the
// carried-forward table. They touch no database and keep no state.
#include <fmt/format.h>

#include "accounting/db/sql_format.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace kvc {
namespace {

// The dealership-exclusion predicate, one per dealership column: {conector}
// joins it to what comes before ("and", "or"), {prefixo} is the table alias
// with its point or nothing, {lista} the host's list "(n,m,...)" as it stands.
constexpr char kExclusaoRevendaOperacao[] =
    " {conector} (({prefixo}REVENDA_OPERACAO is null) or ({prefixo}REVENDA_OPERACAO not in {lista})) ";
constexpr char kExclusaoRevendaDivisao[] =
    " {conector} (({prefixo}REVENDA_DIVISAO is null) or ({prefixo}REVENDA_DIVISAO not in {lista})) ";
constexpr char kExclusaoRevendaOrigem[] =
    " {conector} (({prefixo}REVENDA_ORIGEM is null) or ({prefixo}REVENDA_ORIGEM not in {lista})) ";

// The entry {alias} joined to its division rows outside the excluded
// dealerships ({exclusao}: the predicate on cld).
constexpr char kJuncaoDivisoes[] =
    " inner join CTB_LANCAMENTO_DIVIDIDO cld "
    "    on (cld.EMPRESA = {alias}.EMPRESA "
    "   and cld.REVENDA = {alias}.REVENDA "
    "   and cld.ANO_MES = {alias}.ANO_MES "
    "   and cld.LANCAMENTO = {alias}.LANCAMENTO {exclusao}) ";

constexpr char kSaldoAnterior[] = "CTB_SALDO_ANTERIOR";
constexpr char kSaldoAnteriorDivisao[] = "CTB_SALDO_ANTERIOR_DIVISAO";
constexpr char kSufixoCV[] = "_CV";
constexpr char kRestricaoRevenda[] = " and REVENDA = {revenda} ";

}  // namespace

// 1. An empty list excludes nothing: a single blank. 2. A non-empty alias
// gets its point. 3-5. The REVENDA_OPERACAO clause, or the REVENDA_DIVISAO
// clause followed by the REVENDA_ORIGEM clause when asked. A null dealership
// column always passes: rows without a dealership are never excluded.
std::string TddmContabilidadeBD::VerifRevendasDesconsiderar(
    const std::string& RevendasDesconsiderar, bool Operacao, std::string Alias,
    const std::string& Conector, bool Origem) const {
  if (RevendasDesconsiderar.empty()) return " ";  // 1
  if (!Alias.empty()) Alias += ".";               // 2
  auto exclusao = [&](const char* clausula) {
    return fmt::format(fmt::runtime(clausula), fmt::arg("conector", Conector),
                       fmt::arg("prefixo", Alias), fmt::arg("lista", RevendasDesconsiderar));
  };
  if (Operacao) return exclusao(kExclusaoRevendaOperacao);    // 4
  std::string resultado = exclusao(kExclusaoRevendaDivisao);  // 5
  if (Origem) resultado += exclusao(kExclusaoRevendaOrigem);
  return resultado;
}

// An inner join of the entry (alias `Alias`) to its division rows outside
// the excluded dealerships; an entry without division rows drops out.
std::string TddmContabilidadeBD::IncluiRestricaoRevendasDesconsiderar(
    const std::string& RevendasDesconsiderar, const std::string& Alias) const {
  if (RevendasDesconsiderar.empty()) return " ";
  return fmt::format(kJuncaoDivisoes, fmt::arg("alias", Alias),
                     fmt::arg("exclusao", VerifRevendasDesconsiderar(RevendasDesconsiderar, false,
                                                                     "cld", "and", true)));
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
    RestricaoRevenda = fmt::format(kRestricaoRevenda, fmt::arg("revenda", sql::Integer(Revenda)));
  }
  if (!TabelaCV.empty()) Tabela += kSufixoCV;  // 3
  Tabela = " " + Tabela + " ";                 // 4
}

}  // namespace kvc
