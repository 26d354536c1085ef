// The verification trial balance, from the module's balances.
#include "accounting/reports/trial_balance.h"

#include <cmath>
#include <stdexcept>

#include <fmt/format.h>

namespace kvc::reports {
namespace {

// The debits and credits of every account over a range of months, when no
// filter narrows the books: one grouped read, answered from the journal's
// account index alone where the server has it.
constexpr char kDebitsAndCredits[] =
    "select CONTA, NATUREZA, sum(VAL_LANCAMENTO)"
    " from CTB_LANCAMENTO"
    " where EMPRESA = :EMPRESA and REVENDA = :REVENDA and ANO_MES between :DE and :ATE"
    " group by CONTA, NATUREZA";

// Half a cent: two figures closer than this print the same.
constexpr double kHalfCent = 0.005;

bool Month(int32_t ano_mes) {
  return ano_mes >= 100001 && ano_mes <= 999912 && ano_mes % 100 >= 1 && ano_mes % 100 <= 12;
}

// The extra condition that keeps the entries of one nature, joined to the
// user's own when there is one.
std::string NatureCondition(const std::string& filtro, char natureza) {
  const std::string nature = fmt::format("{{$ALIAS$}}.NATUREZA = '{}'", natureza);
  return filtro.empty() ? nature : "(" + filtro + ") and " + nature;
}

}  // namespace

void CheckPeriod(const Period& period) {
  if (!Month(period.from))
    throw std::invalid_argument(
        fmt::format("the first month {} is not a month YYYYMM", period.from));
  if (!Month(period.to))
    throw std::invalid_argument(fmt::format("the last month {} is not a month YYYYMM", period.to));
  if (period.to < period.from)
    throw std::invalid_argument(
        fmt::format("the last month {} is before the first {}", period.to, period.from));
  if (period.to / 100 != period.from / 100)
    throw std::invalid_argument(fmt::format(
        "the months {} and {} are in different years; a report covers months of one year",
        period.from, period.to));
}

// January's month before is month 00 of its year, which the module reads as
// the opening of the year.
int32_t MonthBefore(int32_t from) { return from - 1; }

bool BalanceFilters::Narrowing() const {
  // As the module counts them: any number but -1 is a filter.
  return centro_custo != -1 || fonte != -1 || categoria != -1 || secao_oficina != -1 ||
         revenda_divisao != -1 || !tipo_item.empty() ||
         (!modalidade.empty() && modalidade != "SPED") || !centros_custo.empty() ||
         !revendas_desconsiderar.empty() || !filtro.empty();
}

Figures& Figures::operator+=(const Figures& other) {
  opening += other.opening;
  debits += other.debits;
  credits += other.credits;
  closing += other.closing;
  return *this;
}

bool TrialBalance::DebitsEqualCredits() const {
  return std::fabs(totals.debits - totals.credits) < kHalfCent;
}

bool TrialBalance::ClosingSumsToZero() const { return std::fabs(totals.closing) < kHalfCent; }

TrialBalance FourColumnTrialBalance(TddmContabilidadeBD& module, db::Connection& connection,
                                    int32_t empresa, int32_t revenda, const Period& period,
                                    const BalanceFilters& filters) {
  CheckPeriod(period);
  TrialBalance report;
  report.chart = ReadChart(connection, empresa, revenda);
  report.figures.resize(report.chart.size());
  const int32_t before = MonthBefore(period.from);

  // One pass over the analytic accounts: the module's general variant loads
  // its caches once per pass (their key holds the month and the extra
  // condition), so the passes run one after the other, never interleaved.
  auto pass = [&](int32_t ano_mes, const std::string& filtro, double Figures::*field, double sign) {
    for (size_t i = 0; i < report.chart.size(); ++i) {
      const ChartAccount& a = report.chart[i];
      if (!a.Analytic()) continue;
      double saldo = 0;
      module.BuscaSaldoConta(empresa, revenda, ano_mes, 0, 0, filters.centro_custo, filters.fonte,
                             filters.categoria, filters.secao_oficina, filters.revenda_divisao,
                             filters.tipo_item, filters.modalidade, a.conta, "A",
                             filters.centros_custo, saldo, true, false, filtro,
                             filters.revendas_desconsiderar);
      report.figures[i].*field += sign * saldo;
    }
  };
  pass(before, filters.filtro, &Figures::opening, 1);
  pass(period.to, filters.filtro, &Figures::closing, 1);
  if (!filters.Narrowing() && filters.modalidade.empty()) {
    // The whole books: the journal's own sums, in one statement instead of
    // four passes. They equal what the passes would give (the tests compare
    // both with the module's balances).
    const auto index = IndexByCode(report.chart);
    const db::BoundParams params = {{"EMPRESA", db::Value(empresa)},
                                    {"REVENDA", db::Value(revenda)},
                                    {"DE", db::Value(period.from)},
                                    {"ATE", db::Value(period.to)}};
    for (const auto& row : connection.Query(kDebitsAndCredits, params).rows) {
      const auto found = index.find(ColumnText(row.at(0)));
      // An entry on an account the chart does not hold stays out of the
      // report, as it stays out of every balance; the totals then show it.
      if (found == index.end() || !report.chart[found->second].Analytic()) continue;
      const std::string natureza = ColumnText(row.at(1));
      Figures& f = report.figures[found->second];
      if (natureza == "D") f.debits += row.at(2).AsFloat();
      if (natureza == "C") f.credits += row.at(2).AsFloat();
    }
  } else {
    const std::string debits = NatureCondition(filters.filtro, 'D');
    pass(period.to, debits, &Figures::debits, 1);
    pass(before, debits, &Figures::debits, -1);
    // Credits lower a balance: the difference of the credit-only balances
    // is the credits with their sign turned.
    const std::string credits = NatureCondition(filters.filtro, 'C');
    pass(period.to, credits, &Figures::credits, -1);
    pass(before, credits, &Figures::credits, 1);
  }

  for (size_t i = 0; i < report.chart.size(); ++i) {
    const Figures& f = report.figures[i];
    if (report.chart[i].Analytic() &&
        std::fabs(f.opening + f.debits - f.credits - f.closing) >= kHalfCent)
      report.inconsistent.push_back(report.chart[i].conta);
  }
  {
    const auto index = IndexByCode(report.chart);
    for (const ChartAccount& a : report.chart) {
      const auto parent = index.find(a.superiora);
      if (!a.Root() && parent != index.end() && report.chart[parent->second].Analytic())
        report.beneath_analytic.push_back(a.conta);
    }
  }
  RollUp(report.chart, report.figures);
  for (size_t i = 0; i < report.chart.size(); ++i)
    if (report.chart[i].Root()) report.totals += report.figures[i];
  return report;
}

}  // namespace kvc::reports
