// The general ledger of an account over months of one year: its opening
// balance, every entry in date and number order with a running balance, and
// its closing balance; a synthetic account lists the entries of the analytic
// accounts beneath it. The balances come from the module (BuscaSaldoConta,
// general variant), the entries from one read of the journal per analytic
// account. Writes nothing.
#ifndef KVC_REPORTS_GENERAL_LEDGER_H_
#define KVC_REPORTS_GENERAL_LEDGER_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "accounting/db/connection.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/reports/chart_tree.h"
#include "accounting/reports/trial_balance.h"

namespace kvc::reports {

struct LedgerEntry {
  int32_t ano_mes = 0;
  int32_t dia = 0;
  int32_t lancamento = 0;
  std::optional<int32_t> lco_origem;  // the entry of the pair it belongs to
  std::string conta;                  // the analytic account it was posted to
  std::optional<int64_t> documento;
  std::optional<int32_t> historico_padrao;
  std::string his_complementar;
  double debit = 0;
  double credit = 0;
  double balance = 0;  // the running balance after this entry
};

struct GeneralLedger {
  ChartAccount account;
  double opening = 0;
  double debits = 0;
  double credits = 0;
  double closing = 0;  // opening + debits - credits
  // The module's balance at the end of the period, which `closing` must
  // equal; they differ only if the journal and the balance rules disagree.
  double balance_at_end = 0;
  std::vector<LedgerEntry> entries;
  bool Consistent() const;
};

// The ledger of `conta` of `empresa`, `revenda` over `period`. Throws
// std::invalid_argument for a bad period or an account the chart does not
// hold, ChartError for a cyclic chart; database errors propagate.
GeneralLedger ReadGeneralLedger(TddmContabilidadeBD& module, db::Connection& connection,
                                int32_t empresa, int32_t revenda, const Period& period,
                                const std::string& conta);

}  // namespace kvc::reports

#endif  // KVC_REPORTS_GENERAL_LEDGER_H_
