// The chart of accounts as the reports read it: every account of a company
// and dealership in code order with its parent, kind and depth, and the
// roll-up that gives a synthetic account the sum of the accounts beneath it.
// Reading the chart is the one statement of this file; nothing is written.
#ifndef KVC_REPORTS_CHART_TREE_H_
#define KVC_REPORTS_CHART_TREE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

#include "accounting/db/connection.h"

namespace kvc::reports {

struct ChartAccount {
  std::string conta;      // the account code
  std::string superiora;  // its parent's code, empty for a top-level account
  std::string nivel;      // "A" (analytic, takes entries) or "S" (synthetic)
  std::string descricao;  // DES_CONTA, empty when the chart has none
  int depth = 1;          // 1 for a top-level account, 2 beneath it, ...
  bool Analytic() const { return nivel == "A"; }
  // A top-level account: no parent, or one the chart does not hold.
  bool Root() const { return depth == 1; }
};

// Raised when the chart cannot be read as a tree: an account whose parents
// lead back to itself.
class ChartError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A text column as the reports show it: null as empty, without the blanks
// that fixed-width columns come back padded with on some servers.
std::string ColumnText(const db::Value& value);

// Every account of `empresa` and `revenda`, in code order, with its depth. A
// parent missing from the chart makes its children top-level accounts
// (depth 1). Throws ChartError on a cycle; database errors propagate.
std::vector<ChartAccount> ReadChart(db::Connection& connection, int32_t empresa, int32_t revenda);

// Index of each account's code in `chart`.
std::unordered_map<std::string, size_t> IndexByCode(const std::vector<ChartAccount>& chart);

// The analytic accounts at or beneath `conta` (itself when analytic), in code
// order.
std::vector<std::string> AnalyticBeneath(const std::vector<ChartAccount>& chart,
                                         const std::string& conta);

// Gives every synthetic account of `chart` the sum of the accounts directly
// beneath it, `values` holding one figure per account (in chart order) of
// which only the analytic ones are read. `Figures` needs `+=` and a default
// value of zero. A synthetic account with nothing beneath it sums to zero.
// REQUIRES: `chart` came from ReadChart (no cycles).
template <typename Figures>
void RollUp(const std::vector<ChartAccount>& chart, std::vector<Figures>& values) {
  const auto index = IndexByCode(chart);
  for (size_t i = 0; i < chart.size(); ++i)
    if (!chart[i].Analytic()) values[i] = Figures{};
  // Deepest first, so that every child is complete before it is added to its
  // parent.
  std::vector<size_t> order(chart.size());
  for (size_t i = 0; i < order.size(); ++i) order[i] = i;
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return chart[a].depth > chart[b].depth; });
  for (size_t i : order) {
    if (chart[i].Root()) continue;
    const auto parent = index.find(chart[i].superiora);
    if (parent != index.end() && !chart[parent->second].Analytic())
      values[parent->second] += values[i];
  }
}

}  // namespace kvc::reports

#endif  // KVC_REPORTS_CHART_TREE_H_
