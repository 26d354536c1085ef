// The balance sheet and the income statement, grouped by the chart: the
// balance-sheet accounts are those whose code begins with 1 (assets) or 2
// (liabilities and equity), the result accounts those whose code begins above
// 2, as the result calculation takes them. Built on the module's balances and
// the journal; writes nothing.
#ifndef KVC_REPORTS_FINANCIAL_STATEMENTS_H_
#define KVC_REPORTS_FINANCIAL_STATEMENTS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "accounting/db/connection.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/reports/chart_tree.h"
#include "accounting/reports/trial_balance.h"

namespace kvc::reports {

// Whether `conta` is a result account: its first byte is above '2'.
bool IsResultAccount(const std::string& conta);

// The balance of every account of `chart` at the end of `ano_mes` (month 00:
// the opening of the year): BuscaSaldoConta, general variant, once per
// analytic account, and the synthetic accounts as the sums beneath them.
std::vector<double> BalancesAt(TddmContabilidadeBD& module, const std::vector<ChartAccount>& chart,
                               int32_t empresa, int32_t revenda, int32_t ano_mes,
                               const BalanceFilters& filters, bool saldo_mensal = false);

struct StatementLine {
  ChartAccount account;
  double amount = 0;
};

struct BalanceSheet {
  int32_t ano_mes = 0;
  std::vector<StatementLine> assets;       // accounts beginning with 1, debit balances positive
  std::vector<StatementLine> liabilities;  // accounts beginning with 2, credit balances positive
  // The totals add the analytic accounts of each class.
  double total_assets = 0;
  double total_liabilities = 0;  // liabilities and equity
  // The result accounts' balance not yet closed into equity, a profit
  // positive.
  double unclosed_result = 0;
  // Accounts whose code begins with neither 1, 2 nor a result class: shown
  // among the liabilities.
  std::vector<std::string> unclassified;
  // Whether assets equal liabilities and equity plus the unclosed result.
  bool Balances() const;
};

// The balance sheet at the end of `ano_mes`. Throws ChartError for a cyclic
// chart; database errors propagate.
BalanceSheet ReadBalanceSheet(TddmContabilidadeBD& module, db::Connection& connection,
                              int32_t empresa, int32_t revenda, int32_t ano_mes);

struct IncomeStatement {
  Period period;
  // Result accounts in code order with their movement over the period,
  // revenue positive and expenses negative (credits minus debits); the
  // result calculation's own entries left out, so that a closed period
  // still shows what it earned.
  std::vector<StatementLine> lines;
  double result = 0;  // the sum of the analytic result accounts, a profit positive
  // Each month of the period, in order: the result accounts' net credits
  // (revenue) and net debits (expense), account by account; the month's
  // result is their difference.
  struct Month {
    int32_t ano_mes = 0;
    double revenue = 0;
    double expense = 0;
    double Result() const { return revenue - expense; }
  };
  std::vector<Month> monthly;
};

// The income statement of `period`. Throws std::invalid_argument for a bad
// period, ChartError for a cyclic chart; database errors propagate.
IncomeStatement ReadIncomeStatement(db::Connection& connection, int32_t empresa, int32_t revenda,
                                    const Period& period);

}  // namespace kvc::reports

#endif  // KVC_REPORTS_FINANCIAL_STATEMENTS_H_
