// Readers shared by the balance operations: each opens one statement on a
// query object of the caller's, reads what the balance needs from its rows
// and closes it again; and the sum over the filtered rows of an in-memory
// set. Internal to the balance subsystem.
#ifndef KVC_BALANCES_LEITURA_SALDO_H_
#define KVC_BALANCES_LEITURA_SALDO_H_

#include <string>
#include <utility>

#include "accounting/db/client_dataset.h"
#include "accounting/db/sql_dataset.h"

namespace kvc {

// The sum of the first column over the rows of `sql`, and whether there was
// any row.
struct Soma {
  double valor = 0;
  bool tem_linhas = false;
};
Soma SomaPrimeiraColuna(db::SQLDataSet& consulta, std::string sql);

// Debits minus credits of a statement's NATUREZA / TOTAL rows: "D" adds,
// "C" subtracts, any other nature is ignored.
double SomaDebitosMenosCreditos(db::SQLDataSet& consulta, std::string sql);

// The value of field `campo` in the first row of `sql`; null when there is no
// row.
db::Value PrimeiroValor(db::SQLDataSet& consulta, std::string sql, const char* campo);

// The sum of `campo` over the rows of `cds` that pass `filtro`, and their
// count. Filtering is switched off before the text changes and left on.
std::pair<double, size_t> SomaFiltrada(db::ClientDataSet& cds, std::string filtro,
                                       const char* campo);

}  // namespace kvc

#endif  // KVC_BALANCES_LEITURA_SALDO_H_
