// Reading the chart of accounts for the reports, and the walks over it.
#include "accounting/reports/chart_tree.h"

#include <algorithm>

namespace kvc::reports {
namespace {

constexpr char kChart[] =
    "select CONTA, CONTA_SUPERIORA, NIVEL, DES_CONTA"
    " from CTB_CONTA"
    " where EMPRESA = :EMPRESA and REVENDA = :REVENDA"
    " order by CONTA";

}  // namespace

std::string ColumnText(const db::Value& value) {
  std::string s = value.IsNull() ? std::string() : value.AsString();
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

std::unordered_map<std::string, size_t> IndexByCode(const std::vector<ChartAccount>& chart) {
  std::unordered_map<std::string, size_t> index;
  index.reserve(chart.size());
  for (size_t i = 0; i < chart.size(); ++i) index.emplace(chart[i].conta, i);
  return index;
}

std::vector<ChartAccount> ReadChart(db::Connection& connection, int32_t empresa, int32_t revenda) {
  std::vector<ChartAccount> chart;
  const db::BoundParams params = {{"EMPRESA", db::Value(empresa)}, {"REVENDA", db::Value(revenda)}};
  for (const auto& row : connection.Query(kChart, params).rows) {
    ChartAccount a;
    a.conta = ColumnText(row.at(0));
    a.superiora = ColumnText(row.at(1));
    a.nivel = ColumnText(row.at(2));
    a.descricao = ColumnText(row.at(3));
    chart.push_back(std::move(a));
  }
  // Depths: walk up from each account until a known depth or the top. A
  // walk longer than the chart has met a cycle.
  const auto index = IndexByCode(chart);
  std::vector<int> depth(chart.size(), 0);
  for (size_t i = 0; i < chart.size(); ++i) {
    std::vector<size_t> path;
    size_t at = i;
    while (depth[at] == 0) {
      path.push_back(at);
      if (path.size() > chart.size())
        throw ChartError("the parents (CONTA_SUPERIORA) of account " + chart[i].conta +
                         " lead round a cycle and never to a top-level account");
      const auto parent = index.find(chart[at].superiora);
      if (chart[at].superiora.empty() || parent == index.end()) {
        depth[at] = 1;
        path.pop_back();
        break;
      }
      at = parent->second;
    }
    for (auto p = path.rbegin(); p != path.rend(); ++p) {
      const auto parent = index.find(chart[*p].superiora);
      depth[*p] = depth[parent->second] + 1;
    }
  }
  for (size_t i = 0; i < chart.size(); ++i) chart[i].depth = depth[i];
  return chart;
}

std::vector<std::string> AnalyticBeneath(const std::vector<ChartAccount>& chart,
                                         const std::string& conta) {
  const auto index = IndexByCode(chart);
  std::vector<std::string> found;
  for (const ChartAccount& a : chart) {
    if (!a.Analytic()) continue;
    // Up the parents until `conta` or the top; depth bounds the walk. An
    // account beneath another analytic account is not in that account's
    // balance (the module does not walk below an analytic account), so the
    // walk stops there.
    const ChartAccount* at = &a;
    for (int step = a.depth; step > 0; --step) {
      if (at->conta == conta) {
        found.push_back(a.conta);
        break;
      }
      if (at != &a && at->Analytic()) break;
      const auto parent = index.find(at->superiora);
      if (parent == index.end()) break;
      at = &chart[parent->second];
    }
  }
  return found;
}

}  // namespace kvc::reports
