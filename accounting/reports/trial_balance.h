// The verification trial balance: for every account of the chart, its
// opening balance, debits, credits and closing balance over a range of months
// of one year, synthetic accounts as the sums beneath them. Built on the
// module's own balance (BuscaSaldoConta, general variant), so that every
// figure follows the module's rules for carried-forward balances, the second
// book, the division filters and the dealership exclusion; reads nothing
// else but the chart, and writes nothing.
#ifndef KVC_REPORTS_TRIAL_BALANCE_H_
#define KVC_REPORTS_TRIAL_BALANCE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "accounting/db/connection.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/reports/chart_tree.h"

namespace kvc::reports {

// The months from `from` to `to` (YYYYMM), both within one year.
struct Period {
  int32_t from = 0;
  int32_t to = 0;
};

// Throws std::invalid_argument, naming the bound, unless both are months
// (01 to 12) of one year and `from` is not after `to`. One year, because the
// module carries balances forward per year: across a year end the closing
// balance of a month and the opening of the next need not differ by the
// movement alone (the result accounts, the years without carried-forward
// rows).
void CheckPeriod(const Period& period);

// The month whose closing balance is the opening of `from`: the month before,
// or month 00 (the opening of the year) for January.
int32_t MonthBefore(int32_t from);

// The filters of the module's balance, with its sentinels for none (-1,
// empty); the same meaning as BuscaSaldoConta's arguments of those names.
struct BalanceFilters {
  int32_t centro_custo = -1;
  int32_t fonte = -1;
  int32_t categoria = -1;
  int32_t secao_oficina = -1;
  int32_t revenda_divisao = -1;
  std::string tipo_item;
  std::string modalidade;  // one letter, or "SPED" to add the second book
  std::string centros_custo;
  std::string revendas_desconsiderar;
  std::string filtro;  // an extra condition on the journal, {$ALIAS$}.COLUMN
  // Whether anything narrows the books to part of them (the second book
  // widens them and does not count).
  bool Narrowing() const;
};

struct Figures {
  double opening = 0;
  double debits = 0;
  double credits = 0;
  double closing = 0;
  Figures& operator+=(const Figures& other);
};

struct TrialBalance {
  std::vector<ChartAccount> chart;  // every account, in code order
  std::vector<Figures> figures;     // one per account of `chart`
  Figures totals;                   // of the top-level accounts
  // Analytic accounts whose opening plus debits minus credits is not their
  // closing balance (the module's figures disagree with each other).
  std::vector<std::string> inconsistent;
  // Accounts whose parent is an analytic account: no balance counts them
  // (the module does not walk below an analytic account), so neither do the
  // totals.
  std::vector<std::string> beneath_analytic;

  bool DebitsEqualCredits() const;
  bool ClosingSumsToZero() const;
};

// The trial balance of `empresa`, `revenda` over `period`. Each analytic
// account's opening and closing balances are BuscaSaldoConta at the month
// before `period.from` and at `period.to`. Its debits and credits are the
// journal's sums over the period; when a filter narrows the books (or the
// second book is asked for), they are instead the difference between the
// same two balances read with the extra condition that the entry is a debit
// (credit), so that every filter applies to them as it does to the balance.
// Each pass over the chart goes through the general variant and is answered
// from one grouped read. Throws std::invalid_argument
// for a bad period, ChartError for a cyclic chart; database errors
// propagate.
TrialBalance FourColumnTrialBalance(TddmContabilidadeBD& module, db::Connection& connection,
                                    int32_t empresa, int32_t revenda, const Period& period,
                                    const BalanceFilters& filters);

}  // namespace kvc::reports

#endif  // KVC_REPORTS_TRIAL_BALANCE_H_
