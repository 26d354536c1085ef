// The general ledger of an account.
#include "accounting/reports/general_ledger.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <tuple>

namespace kvc::reports {
namespace {

constexpr char kEntries[] =
    "select ANO_MES, DIA, LANCAMENTO, LCO_ORIGEM, DOCUMENTO, HISTORICO_PADRAO,"
    " HIS_COMPLEMENTAR, NATUREZA, VAL_LANCAMENTO"
    " from CTB_LANCAMENTO"
    " where EMPRESA = :EMPRESA and REVENDA = :REVENDA and CONTA = :CONTA"
    " and ANO_MES between :DE and :ATE"
    " order by ANO_MES, DIA, LANCAMENTO";

template <typename T>
std::optional<T> Optional(const db::Value& v) {
  if (v.IsNull()) return std::nullopt;
  return static_cast<T>(v.AsInteger());
}

double Balance(TddmContabilidadeBD& module, int32_t empresa, int32_t revenda, int32_t ano_mes,
               const ChartAccount& account) {
  double saldo = 0;
  return module.BuscaSaldoConta(empresa, revenda, ano_mes, 0, 0, -1, -1, -1, -1, -1, "", "",
                                account.conta, account.nivel, "", saldo, true, false, "", "");
}

}  // namespace

bool GeneralLedger::Consistent() const { return std::fabs(closing - balance_at_end) < 0.005; }

GeneralLedger ReadGeneralLedger(TddmContabilidadeBD& module, db::Connection& connection,
                                int32_t empresa, int32_t revenda, const Period& period,
                                const std::string& conta) {
  CheckPeriod(period);
  const std::vector<ChartAccount> chart = ReadChart(connection, empresa, revenda);
  const auto index = IndexByCode(chart);
  const auto found = index.find(conta);
  if (found == index.end())
    throw std::invalid_argument("account " + conta + " is not in the chart");
  GeneralLedger ledger;
  ledger.account = chart[found->second];
  ledger.opening = Balance(module, empresa, revenda, MonthBefore(period.from), ledger.account);
  ledger.balance_at_end = Balance(module, empresa, revenda, period.to, ledger.account);

  for (const std::string& analytic : AnalyticBeneath(chart, conta)) {
    const db::BoundParams params = {{"EMPRESA", db::Value(empresa)},
                                    {"REVENDA", db::Value(revenda)},
                                    {"CONTA", db::Value(analytic)},
                                    {"DE", db::Value(period.from)},
                                    {"ATE", db::Value(period.to)}};
    for (const auto& row : connection.Query(kEntries, params).rows) {
      LedgerEntry e;
      e.ano_mes = static_cast<int32_t>(row.at(0).AsInteger());
      e.dia = static_cast<int32_t>(row.at(1).IsNull() ? 0 : row.at(1).AsInteger());
      e.lancamento = static_cast<int32_t>(row.at(2).AsInteger());
      e.lco_origem = Optional<int32_t>(row.at(3));
      e.conta = analytic;
      e.documento = Optional<int64_t>(row.at(4));
      e.historico_padrao = Optional<int32_t>(row.at(5));
      e.his_complementar = ColumnText(row.at(6));
      // An entry of neither nature counts in no balance of the module.
      const std::string natureza = ColumnText(row.at(7));
      if (natureza != "D" && natureza != "C") continue;
      (natureza == "D" ? e.debit : e.credit) = row.at(8).AsFloat();
      ledger.entries.push_back(std::move(e));
    }
  }
  // A synthetic account's entries come account by account; one order for
  // all: month, day, entry number, then account.
  std::stable_sort(ledger.entries.begin(), ledger.entries.end(),
                   [](const LedgerEntry& a, const LedgerEntry& b) {
                     return std::tie(a.ano_mes, a.dia, a.lancamento, a.conta) <
                            std::tie(b.ano_mes, b.dia, b.lancamento, b.conta);
                   });
  double running = ledger.opening;
  for (LedgerEntry& e : ledger.entries) {
    running += e.debit - e.credit;
    e.balance = running;
    ledger.debits += e.debit;
    ledger.credits += e.credit;
  }
  ledger.closing = running;
  return ledger;
}

}  // namespace kvc::reports
