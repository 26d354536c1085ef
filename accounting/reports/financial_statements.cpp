// The balance sheet and the income statement.
#include "accounting/reports/financial_statements.h"

#include <cmath>
#include <map>

namespace kvc::reports {
namespace {

// The movement of the result accounts by month, nature and account, without
// the result calculation's entries (ENCERRAMENTO_EXERCICIO 'S').
constexpr char kResultMovement[] =
    "select ANO_MES, CONTA, NATUREZA, sum(VAL_LANCAMENTO)"
    " from CTB_LANCAMENTO"
    " where EMPRESA = :EMPRESA and REVENDA = :REVENDA and ANO_MES between :DE and :ATE"
    " and CONTA >= '3' and coalesce(ENCERRAMENTO_EXERCICIO, 'N') <> 'S'"
    " group by ANO_MES, CONTA, NATUREZA";

}  // namespace

bool IsResultAccount(const std::string& conta) {
  return !conta.empty() && static_cast<unsigned char>(conta[0]) > '2';
}

std::vector<double> BalancesAt(TddmContabilidadeBD& module, const std::vector<ChartAccount>& chart,
                               int32_t empresa, int32_t revenda, int32_t ano_mes,
                               const BalanceFilters& f, bool saldo_mensal) {
  std::vector<double> balances(chart.size(), 0.0);
  for (size_t i = 0; i < chart.size(); ++i) {
    if (!chart[i].Analytic()) continue;
    double saldo = 0;
    balances[i] = module.BuscaSaldoConta(
        empresa, revenda, ano_mes, 0, 0, f.centro_custo, f.fonte, f.categoria, f.secao_oficina,
        f.revenda_divisao, f.tipo_item, f.modalidade, chart[i].conta, "A", f.centros_custo, saldo,
        true, saldo_mensal, f.filtro, f.revendas_desconsiderar);
  }
  RollUp(chart, balances);
  return balances;
}

bool BalanceSheet::Balances() const {
  return std::fabs(total_assets - total_liabilities - unclosed_result) < 0.005;
}

BalanceSheet ReadBalanceSheet(TddmContabilidadeBD& module, db::Connection& connection,
                              int32_t empresa, int32_t revenda, int32_t ano_mes) {
  BalanceSheet sheet;
  sheet.ano_mes = ano_mes;
  const std::vector<ChartAccount> chart = ReadChart(connection, empresa, revenda);
  const std::vector<double> balances = BalancesAt(module, chart, empresa, revenda, ano_mes, {});
  // The totals add the analytic accounts of each class, whatever the shape
  // of the tree above them.
  for (size_t i = 0; i < chart.size(); ++i) {
    const ChartAccount& a = chart[i];
    const bool analytic = a.Analytic();
    if (IsResultAccount(a.conta)) {
      if (analytic) sheet.unclosed_result -= balances[i];
    } else if (a.conta[0] == '1') {
      sheet.assets.push_back({a, balances[i]});
      if (analytic) sheet.total_assets += balances[i];
    } else {
      // Liabilities and equity as credit balances; a code below 1 is shown
      // with them and named.
      if (a.conta[0] != '2') sheet.unclassified.push_back(a.conta);
      sheet.liabilities.push_back({a, -balances[i]});
      if (analytic) sheet.total_liabilities -= balances[i];
    }
  }
  return sheet;
}

IncomeStatement ReadIncomeStatement(db::Connection& connection, int32_t empresa, int32_t revenda,
                                    const Period& period) {
  CheckPeriod(period);
  IncomeStatement statement;
  statement.period = period;
  std::vector<ChartAccount> chart = ReadChart(connection, empresa, revenda);
  std::erase_if(chart, [](const ChartAccount& a) { return !IsResultAccount(a.conta); });
  const auto index = IndexByCode(chart);
  std::vector<double> amounts(chart.size(), 0.0);
  // Each month's net amount per account: a net credit is revenue, a net
  // debit expense (a sales return lowers revenue, it is no expense).
  std::map<std::pair<int32_t, size_t>, double> net;
  std::map<int32_t, IncomeStatement::Month> monthly;
  for (int32_t m = period.from; m <= period.to; ++m) monthly[m].ano_mes = m;
  const db::BoundParams params = {{"EMPRESA", db::Value(empresa)},
                                  {"REVENDA", db::Value(revenda)},
                                  {"DE", db::Value(period.from)},
                                  {"ATE", db::Value(period.to)}};
  for (const auto& row : connection.Query(kResultMovement, params).rows) {
    const auto found = index.find(ColumnText(row.at(1)));
    // Outside the chart, or posted to a synthetic account: in no balance.
    if (found == index.end() || !chart[found->second].Analytic()) continue;
    const std::string natureza = ColumnText(row.at(2));
    if (natureza != "D" && natureza != "C") continue;
    const double valor = natureza == "C" ? row.at(3).AsFloat() : -row.at(3).AsFloat();
    amounts[found->second] += valor;
    net[{static_cast<int32_t>(row.at(0).AsInteger()), found->second}] += valor;
  }
  for (const auto& [key, valor] : net)
    (valor > 0 ? monthly[key.first].revenue : monthly[key.first].expense) += std::fabs(valor);
  for (size_t i = 0; i < chart.size(); ++i)
    if (chart[i].Analytic()) statement.result += amounts[i];
  RollUp(chart, amounts);
  for (size_t i = 0; i < chart.size(); ++i) statement.lines.push_back({chart[i], amounts[i]});
  for (const auto& [ano_mes, month] : monthly) statement.monthly.push_back(month);
  return statement;
}

}  // namespace kvc::reports
