// The demo company of `kvctb init --demo`: a chart of accounts four levels
// deep, division types, cost centres, an invoice with free-text lines, the
// opening balances of 2022, and two years (2023 and 2024) of entries posted
// through the data module. Deterministic: the same data on every run.
#ifndef KVC_CLI_DEMO_H_
#define KVC_CLI_DEMO_H_

#include <cstdint>
#include <string>

#include "cli/session.h"

namespace kvc::cli {

struct DemoSummary {
  int64_t accounts = 0;
  int64_t analytic_accounts = 0;
  int64_t cost_centres = 0;
  int64_t records = 0;
  // The entry that carries the demo invoice, and its month.
  int32_t invoice_entry = 0;
  int32_t invoice_month = 0;
};

// The account that receives the result of the year in the demo chart.
inline constexpr char kDemoResultAccount[] = "2.9.1.01";

// Loads the demo company into the session's company and dealership, all in
// one transaction. REQUIRES: a bound session on a database whose chart for
// that company and dealership is empty. Throws on any failure (rolled back).
DemoSummary LoadDemo(Session& session);

}  // namespace kvc::cli

#endif  // KVC_CLI_DEMO_H_
