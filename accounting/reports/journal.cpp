// The journal month by month, and its exports.
#include "accounting/reports/journal.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

#include <fmt/format.h>

namespace kvc::reports {
namespace {

constexpr char kMonthEntries[] =
    "select DIA, LANCAMENTO, LCO_ORIGEM, CONTA, NATUREZA, VAL_LANCAMENTO, DOCUMENTO,"
    " HISTORICO_PADRAO, HIS_COMPLEMENTAR, ENCERRAMENTO_EXERCICIO"
    " from CTB_LANCAMENTO"
    " where EMPRESA = :EMPRESA and REVENDA = :REVENDA and ANO_MES = :ANO_MES";

constexpr char kMonthDivisions[] =
    "select LANCAMENTO, REVENDA_DIVISAO, CENTRO_CUSTO, FONTE, CATEGORIA, SECAO_OFICINA,"
    " TIPO_ITEM, MODALIDADE_OPERACAO, VAL_DIVISAO"
    " from CTB_LANCAMENTO_DIVIDIDO"
    " where EMPRESA = :EMPRESA and REVENDA = :REVENDA and ANO_MES = :ANO_MES"
    " order by LANCAMENTO, SEQUENCIA";

std::optional<int32_t> OptionalInt(const db::Value& v) {
  if (v.IsNull()) return std::nullopt;
  return static_cast<int32_t>(v.AsInteger());
}

// An amount with two decimals and a point, whatever the locale; -0.00 is
// 0.00.
std::string Cents(double value) {
  const long long cents = std::llround(value * 100.0);
  const unsigned long long magnitude = cents < 0 ? 0ULL - static_cast<unsigned long long>(cents)
                                                 : static_cast<unsigned long long>(cents);
  return fmt::format("{}{}.{:02}", cents < 0 ? "-" : "", magnitude / 100, magnitude % 100);
}

// Text on one line: control characters become blanks, runs of blanks one
// blank (two blanks end an account name in the plain-text format).
std::string OneLine(const std::string& text) {
  std::string out;
  for (char c : text) {
    const char d = static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    if (d == ' ' && (out.empty() || out.back() == ' ')) continue;
    out += d;
  }
  while (!out.empty() && out.back() == ' ') out.pop_back();
  return out;
}

std::string Date(int32_t ano_mes, int32_t dia) {
  return fmt::format("{:04}-{:02}-{:02}", ano_mes / 100, ano_mes % 100, std::max(dia, 1));
}

std::string CsvField(const std::string& s) {
  if (s.find_first_of(",\"\r\n") == std::string::npos) return s;
  std::string out = "\"";
  for (char c : s) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

std::string NameOnPath(const std::vector<ChartAccount>& chart,
                       const std::unordered_map<std::string, size_t>& index, size_t i) {
  std::vector<std::string> path;
  for (size_t at = i, steps = 0; steps < chart.size(); ++steps) {
    std::string part = chart[at].conta;
    if (!chart[at].descricao.empty()) part += " " + chart[at].descricao;
    // ':' separates the levels of a name; ';' starts a comment.
    std::replace(part.begin(), part.end(), ':', '.');
    std::replace(part.begin(), part.end(), ';', ',');
    path.push_back(OneLine(part));
    if (chart[at].Root()) break;
    at = index.at(chart[at].superiora);
  }
  std::string name;
  for (auto p = path.rbegin(); p != path.rend(); ++p) name += (name.empty() ? "" : ":") + *p;
  return name;
}

// Account code -> name in the plain-text format, for the whole chart.
std::unordered_map<std::string, std::string> LedgerNames(const std::vector<ChartAccount>& chart) {
  const auto index = IndexByCode(chart);
  std::unordered_map<std::string, std::string> names;
  for (size_t i = 0; i < chart.size(); ++i)
    names.emplace(chart[i].conta, NameOnPath(chart, index, i));
  return names;
}

}  // namespace

std::string LedgerAccountName(const std::vector<ChartAccount>& chart, size_t i) {
  return NameOnPath(chart, IndexByCode(chart), i);
}

void ForEachJournalMonth(db::Connection& connection, int32_t empresa, int32_t revenda,
                         const Period& period,
                         const std::function<void(const std::vector<JournalEntry>&)>& visit,
                         bool with_divisions) {
  CheckPeriod(period);
  std::vector<JournalEntry> entries;
  for (int32_t ano_mes = period.from; ano_mes <= period.to; ++ano_mes) {
    entries.clear();
    const db::BoundParams params = {{"EMPRESA", db::Value(empresa)},
                                    {"REVENDA", db::Value(revenda)},
                                    {"ANO_MES", db::Value(ano_mes)}};
    for (const auto& row : connection.Query(kMonthEntries, params).rows) {
      JournalEntry e;
      e.ano_mes = ano_mes;
      e.dia = row.at(0).IsNull() ? 0 : static_cast<int32_t>(row.at(0).AsInteger());
      e.lancamento = static_cast<int32_t>(row.at(1).AsInteger());
      if (!row.at(2).IsNull()) e.lco_origem = static_cast<int32_t>(row.at(2).AsInteger());
      e.conta = ColumnText(row.at(3));
      // An entry of neither nature counts in no balance of the module, and in
      // no report.
      const std::string natureza = ColumnText(row.at(4));
      if (natureza != "D" && natureza != "C") continue;
      e.debit = natureza == "D";
      e.valor = row.at(5).AsFloat();
      if (!row.at(6).IsNull()) e.documento = row.at(6).AsInteger();
      if (!row.at(7).IsNull()) e.historico_padrao = static_cast<int32_t>(row.at(7).AsInteger());
      e.his_complementar = ColumnText(row.at(8));
      e.encerramento = ColumnText(row.at(9)) == "S";
      entries.push_back(std::move(e));
    }
    if (entries.empty()) continue;
    if (with_divisions) {
      std::unordered_map<int32_t, size_t> by_number;
      for (size_t i = 0; i < entries.size(); ++i) by_number.emplace(entries[i].lancamento, i);
      for (const auto& row : connection.Query(kMonthDivisions, params).rows) {
        const auto found = by_number.find(static_cast<int32_t>(row.at(0).AsInteger()));
        if (found == by_number.end()) continue;  // a row of no entry belongs to no report
        DivisionRow d;
        d.revenda_divisao = OptionalInt(row.at(1));
        d.centro_custo = OptionalInt(row.at(2));
        d.fonte = OptionalInt(row.at(3));
        d.categoria = OptionalInt(row.at(4));
        d.secao_oficina = OptionalInt(row.at(5));
        d.tipo_item = ColumnText(row.at(6));
        d.modalidade_operacao = ColumnText(row.at(7));
        d.valor = row.at(8).AsFloat();
        entries[found->second].divisions.push_back(std::move(d));
      }
    }
    std::unordered_set<int32_t> closing_entries;
    for (const JournalEntry& e : entries)
      if (e.encerramento) closing_entries.insert(e.lancamento);
    for (JournalEntry& e : entries)
      e.par = e.lco_origem                                                 ? *e.lco_origem
              : !e.encerramento && closing_entries.count(e.lancamento - 1) ? e.lancamento - 1
                                                                           : e.lancamento;
    // Pairs together, then pairs by the day of their first entry.
    std::sort(entries.begin(), entries.end(), [](const JournalEntry& a, const JournalEntry& b) {
      return std::make_tuple(a.Pair(), a.lancamento) < std::make_tuple(b.Pair(), b.lancamento);
    });
    struct Group {
      size_t begin, end;
      int32_t dia, pair;
    };
    std::vector<Group> groups;
    for (size_t i = 0; i < entries.size(); ++i) {
      if (groups.empty() || entries[groups.back().begin].Pair() != entries[i].Pair())
        groups.push_back({i, i, entries[i].dia, entries[i].Pair()});
      groups.back().end = i + 1;
      groups.back().dia = std::min(groups.back().dia, entries[i].dia);
    }
    std::stable_sort(groups.begin(), groups.end(), [](const Group& a, const Group& b) {
      return std::tie(a.dia, a.pair) < std::tie(b.dia, b.pair);
    });
    std::vector<JournalEntry> ordered;
    ordered.reserve(entries.size());
    for (const Group& g : groups)
      for (size_t i = g.begin; i < g.end; ++i) ordered.push_back(std::move(entries[i]));
    visit(ordered);
  }
}

ExportSummary ExportLedgerJournal(TddmContabilidadeBD& module, db::Connection& connection,
                                  int32_t empresa, int32_t revenda, const Period& period,
                                  std::ostream& out) {
  CheckPeriod(period);
  const std::vector<ChartAccount> chart = ReadChart(connection, empresa, revenda);
  const auto names = LedgerNames(chart);
  auto name_of = [&names](const std::string& conta) {
    const auto found = names.find(conta);
    return found == names.end() ? OneLine(conta) : found->second;
  };
  ExportSummary summary;
  out << fmt::format("; the journal of company {}, dealership {}, {} to {}\n\n", empresa, revenda,
                     period.from, period.to);

  // 1. The opening balances, as one transaction.
  std::vector<std::pair<std::string, double>> openings;
  long long cents = 0;  // as written, so that the check is the other tools'
  for (const ChartAccount& a : chart) {
    if (!a.Analytic()) continue;
    double saldo = 0;
    module.BuscaSaldoConta(empresa, revenda, MonthBefore(period.from), 0, 0, -1, -1, -1, -1, -1, "",
                           "", a.conta, "A", "", saldo, true, false, "", "");
    if (std::llround(saldo * 100) == 0) continue;
    openings.emplace_back(a.conta, saldo);
    cents += std::llround(saldo * 100);
  }
  auto write = [&](const std::string& header,
                   const std::vector<std::pair<std::string, double>>& postings, bool balanced) {
    out << header << "\n";
    for (const auto& [conta, valor] : postings)
      // An unbalanced posting is written in parentheses (virtual).
      out << "    " << (balanced ? "" : "(") << name_of(conta) << (balanced ? "" : ")") << "  "
          << Cents(valor) << "\n";
    out << "\n";
  };
  if (!openings.empty()) {
    const bool balanced = cents == 0;
    if (!balanced) summary.unbalanced.push_back("opening balances");
    write(fmt::format("{} opening balances", Date(period.from, 1)), openings, balanced);
    ++summary.transactions;
  }

  // 2. One transaction per pair.
  ForEachJournalMonth(
      connection, empresa, revenda, period, [&](const std::vector<JournalEntry>& month) {
        std::vector<std::pair<std::string, double>> postings;
        for (size_t i = 0; i < month.size();) {
          const JournalEntry& first = month[i];
          postings.clear();
          long long pair_cents = 0;
          int32_t dia = first.dia;  // the pair's first day, by which it is ordered
          size_t j = i;
          for (; j < month.size() && month[j].Pair() == first.Pair(); ++j) {
            dia = std::min(dia, month[j].dia);
            const double valor = month[j].debit ? month[j].valor : -month[j].valor;
            postings.emplace_back(month[j].conta, valor);
            pair_cents += std::llround(valor * 100);
          }
          std::string header = fmt::format("{} ({}) {}", Date(first.ano_mes, dia), first.Pair(),
                                           OneLine(first.his_complementar));
          while (!header.empty() && header.back() == ' ') header.pop_back();
          std::string note;
          if (first.documento) note += fmt::format("document {}", *first.documento);
          if (first.historico_padrao)
            note += fmt::format("{}standard history {}", note.empty() ? "" : ", ",
                                *first.historico_padrao);
          if (!note.empty()) header += "\n    ; " + note;
          if (pair_cents != 0)
            summary.unbalanced.push_back(fmt::format("{}/{}", first.ano_mes, first.Pair()));
          write(header, postings, pair_cents == 0);
          summary.entries += static_cast<long long>(j - i);
          ++summary.transactions;
          i = j;
        }
      });
  return summary;
}

ExportSummary ExportJournalCsv(db::Connection& connection, int32_t empresa, int32_t revenda,
                               const Period& period, std::ostream& out) {
  CheckPeriod(period);
  const std::vector<ChartAccount> chart = ReadChart(connection, empresa, revenda);
  const auto index = IndexByCode(chart);
  ExportSummary summary;
  out << "date,entry,origin,account,account_name,nature,amount,document,standard_history,"
         "complementary_history\n";
  ForEachJournalMonth(
      connection, empresa, revenda, period, [&](const std::vector<JournalEntry>& month) {
        for (const JournalEntry& e : month) {
          const auto found = index.find(e.conta);
          // fmt, not the stream, writes the numbers: a host's stream may carry
          // a locale that groups digits.
          out << fmt::format(
              "{},{},{},{},{},{},{},{},{},{}\n", Date(e.ano_mes, e.dia), e.lancamento,
              e.lco_origem ? std::to_string(*e.lco_origem) : "", CsvField(e.conta),
              CsvField(found == index.end() ? "" : chart[found->second].descricao),
              e.debit ? 'D' : 'C', Cents(e.valor), e.documento ? std::to_string(*e.documento) : "",
              e.historico_padrao ? std::to_string(*e.historico_padrao) : "",
              CsvField(e.his_complementar));
        }
        summary.entries += static_cast<long long>(month.size());
      });
  return summary;
}

}  // namespace kvc::reports
