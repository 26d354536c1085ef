// The journal of a period read month by month, and its two exports: the
// plain-text accounting journal format (balanced transactions, account names
// from the chart, amounts with a point) and CSV, so that the books can be
// checked with other tools. One read of the journal per month, so memory is
// bounded by the busiest month, not by the books. Writes nothing to the
// database.
#ifndef KVC_REPORTS_JOURNAL_H_
#define KVC_REPORTS_JOURNAL_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "accounting/db/connection.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "accounting/reports/chart_tree.h"
#include "accounting/reports/trial_balance.h"

namespace kvc::reports {

// A division row of an entry (CTB_LANCAMENTO_DIVIDIDO): the part of its
// amount that one combination of division values carries. A value the row
// leaves empty is nullopt.
struct DivisionRow {
  std::optional<int32_t> revenda_divisao, centro_custo, fonte, categoria, secao_oficina;
  std::string tipo_item, modalidade_operacao;
  double valor = 0;
};

struct JournalEntry {
  int32_t ano_mes = 0;
  int32_t dia = 0;
  int32_t lancamento = 0;
  std::optional<int32_t> lco_origem;  // the entry this one was generated from
  std::string conta;
  bool debit = true;  // NATUREZA "D"; otherwise a credit
  double valor = 0;
  std::optional<int64_t> documento;
  std::optional<int32_t> historico_padrao;
  std::string his_complementar;
  bool encerramento = false;  // ENCERRAMENTO_EXERCICIO "S": a result-calculation entry
  // The entry that opens its pair: the origin of a generated entry; for the
  // counter-entry of a result-calculation entry (numbered right after it,
  // with no origin), that entry; otherwise itself. Set by ForEachJournalMonth.
  int32_t par = 0;
  int32_t Pair() const { return par; }
  std::vector<DivisionRow> divisions;  // read only when asked for
};

// Calls `visit` once per month of `period` that has entries, with that
// month's entries in day order, each pair together (the entry that opens it
// first); with `with_divisions`, each entry with its division rows (one more
// read per month). Database errors propagate.
void ForEachJournalMonth(db::Connection& connection, int32_t empresa, int32_t revenda,
                         const Period& period,
                         const std::function<void(const std::vector<JournalEntry>&)>& visit,
                         bool with_divisions = false);

// What an export wrote.
struct ExportSummary {
  long long entries = 0;
  long long transactions = 0;
  // Pairs whose debits and credits differ: written as unbalanced (virtual)
  // postings, so that every balance stays exact; "YYYYMM/N" each.
  std::vector<std::string> unbalanced;
};

// Writes the journal of `period` in the plain-text accounting format: first
// a transaction of the opening balances (the module's balance of every
// analytic account at the end of the month before `period.from`), then one
// transaction per pair of entries, dated by its first entry, with the entry
// number as its code and the complementary history as its description.
// Account names are the chart's path ("1 ATIVO:1.1 ATIVO CIRCULANTE:..."), so
// that the other tools' balance of an account is its balance here. Throws
// std::invalid_argument for a bad period; database errors propagate.
ExportSummary ExportLedgerJournal(TddmContabilidadeBD& module, db::Connection& connection,
                                  int32_t empresa, int32_t revenda, const Period& period,
                                  std::ostream& out);

// Writes the journal of `period` as CSV, one row per entry: date, entry,
// origin, account, account name, nature, amount, document, standard history,
// complementary history.
ExportSummary ExportJournalCsv(db::Connection& connection, int32_t empresa, int32_t revenda,
                               const Period& period, std::ostream& out);

// The name of `chart[i]` in the plain-text accounting format: the codes and
// descriptions of its path joined by ':'.
std::string LedgerAccountName(const std::vector<ChartAccount>& chart, size_t i);

}  // namespace kvc::reports

#endif  // KVC_REPORTS_JOURNAL_H_
