// The reports an accountant reads: the verification trial balance (the
// four-column form of trial-balance, with --from and --to) and the general
// ledger of an account (ledger). Both are built by the reporting layer of the
// library (accounting/reports/); this file checks options and lays the
// figures out.
#include <cmath>
#include <iostream>
#include <optional>
#include <stdexcept>

#include <fmt/format.h>

#include "accounting/reports/financial_statements.h"
#include "accounting/reports/general_ledger.h"
#include "accounting/reports/journal.h"
#include "accounting/reports/trial_balance.h"
#include "cli/commands.h"
#include "cli/html.h"
#include "cli/validate.h"

namespace kvc::cli {
namespace {

Cell OptionalCell(const std::optional<int64_t>& v) { return v ? Cell{*v} : Cell{Null{}}; }

reports::Period CheckedPeriod(const std::string& from_text, const std::string& to_text) {
  const reports::Period period{ParseMonth("--from", from_text), ParseMonth("--to", to_text)};
  if (period.to < period.from)
    throw UsageError("--to", fmt::format("{} is before --from {}", period.to, period.from));
  if (period.to / 100 != period.from / 100)
    throw UsageError("--to",
                     fmt::format("{} is not in the year of --from {}: a report covers months of "
                                 "one year (balances are carried forward year by year)",
                                 period.to, period.from));
  return period;
}

std::vector<Cell> FigureCells(const reports::Figures& f) {
  return {Amount{f.opening}, Amount{f.debits}, Amount{f.credits}, Amount{f.closing}};
}

// What the trial balance says about its totals, in one sentence.
std::string Verdict(const reports::TrialBalance& report, bool narrowed) {
  const reports::Figures& t = report.totals;
  if (narrowed)
    return fmt::format("a filtered view of the books: debits {} and credits {} need not be equal",
                       FormatAmount(t.debits, true), FormatAmount(t.credits, true));
  if (report.DebitsEqualCredits() && report.ClosingSumsToZero())
    return "the books balance: debits equal credits and the closing balances sum to zero";
  return fmt::format(
      "THE BOOKS DO NOT BALANCE: debits {} against credits {} (difference {}); the closing "
      "balances sum to {}",
      FormatAmount(t.debits, true), FormatAmount(t.credits, true),
      FormatAmount(t.debits - t.credits, true), FormatAmount(t.closing, true));
}

// The account's code as a table shows the tree: indented two blanks a level.
std::string IndentedCode(const reports::ChartAccount& a) {
  return std::string(2 * static_cast<size_t>(a.depth - 1), ' ') + a.conta;
}

bool Zero(const reports::Figures& f) {
  return std::llround(f.opening * 100) == 0 && std::llround(f.debits * 100) == 0 &&
         std::llround(f.credits * 100) == 0 && std::llround(f.closing * 100) == 0;
}

// How much of a statement to show: --depth and --hide-zero as the options
// give them.
struct StatementOptions {
  std::string depth;
  bool hide_zero = false;
  int Depth() const { return depth.empty() ? 0 : ParseInt("--depth", depth, 1, 99); }
};

void AddStatementOptions(CLI::App* sub, StatementOptions& o) {
  sub->add_option("--depth", o.depth,
                  "Show the chart down to this level (1 for the top-level accounts).\n"
                  "Example: --depth 2");
  sub->add_flag("--hide-zero", o.hide_zero, "Leave out accounts whose amount is zero.");
}

// The rows of a statement's accounts: account (indented in a table),
// description, level, type and the amount.
void StatementRows(const std::vector<reports::StatementLine>& lines, int depth, bool hide_zero,
                   bool table, Output& out, const std::string& section = "") {
  for (const reports::StatementLine& l : lines) {
    const reports::ChartAccount& a = l.account;
    if (depth > 0 && a.depth > depth) continue;
    if (hide_zero && std::llround(l.amount * 100) == 0) continue;
    std::vector<Cell> row;
    if (!section.empty()) row.push_back(section);
    row.push_back(table ? IndentedCode(a) : a.conta);
    row.push_back(a.descricao);
    row.push_back(int64_t{a.depth});
    row.push_back(a.nivel);
    row.push_back(Amount{l.amount});
    out.rows.push_back(std::move(row));
  }
}

// The HTML page's line under the title.
std::string Subtitle(const RunContext& ctx, const std::string& when) {
  return fmt::format("Company {}, dealership {}: {}", ctx.options.empresa, ctx.options.revenda,
                     when);
}

// The required --from and --to of a report over months of one year; `to`
// is the example of --to.
void AddMonthRange(CLI::App* sub, std::string& from, std::string& to, const char* example_to) {
  sub->add_option("--from", from, "First month, YYYYMM. Example: --from 202401")->required();
  sub->add_option(
         "--to", to,
         fmt::format("Last month, YYYYMM, in the year of --from. Example: --to {}", example_to))
      ->required();
}

// An entry's date as the reports show it.
std::string DateText(int32_t ano_mes, int32_t dia) {
  return fmt::format("{:04}-{:02}-{:02}", ano_mes / 100, ano_mes % 100, dia);
}

std::string MonthText(int32_t ano_mes) {
  return fmt::format("{:04}-{:02}", ano_mes / 100, ano_mes % 100);
}

// An account's row of an HTML page: its cells after the code, in the tree.
HtmlRow TreeRow(const reports::ChartAccount& a, std::vector<Cell> cells) {
  cells.insert(cells.begin(), {a.conta, a.descricao});
  return HtmlRow{a.depth, !a.Analytic(), false, std::move(cells)};
}

HtmlChart MonthlyChart(const reports::IncomeStatement& st) {
  HtmlChart chart;
  chart.title = "Revenue and expense of the result accounts, and the result, by month";
  for (const reports::IncomeStatement::Month& m : st.monthly) {
    chart.labels.push_back(MonthText(m.ano_mes));
    chart.revenue.push_back(m.revenue);
    chart.expense.push_back(m.expense);
  }
  return chart;
}

bool Shown(const reports::ChartAccount& a, int depth, bool hide_zero, double amount) {
  return (depth == 0 || a.depth <= depth) && !(hide_zero && std::llround(amount * 100) == 0);
}

}  // namespace

int PrintFourColumnTrialBalance(const RunContext& ctx, Session& session,
                                const TrialBalanceLayout& layout,
                                const reports::BalanceFilters& filters) {
  const reports::Period period = CheckedPeriod(layout.from, layout.to);
  const reports::TrialBalance report =
      reports::FourColumnTrialBalance(session.Module(), session.Connection(), ctx.options.empresa,
                                      ctx.options.revenda, period, filters);
  const bool table = ctx.options.output_format == Format::kTable;
  Output out;
  out.columns = {"account", "description", "level",   "type",
                 "opening", "debits",      "credits", "closing"};
  for (size_t i = 0; i < report.chart.size(); ++i) {
    const reports::ChartAccount& a = report.chart[i];
    if (layout.depth > 0 && a.depth > layout.depth) continue;
    if (layout.hide_zero && Zero(report.figures[i])) continue;
    // A table shows the tree by indenting the codes.
    std::vector<Cell> row = {table ? IndentedCode(a) : a.conta, a.descricao, int64_t{a.depth},
                             a.nivel};
    for (Cell& c : FigureCells(report.figures[i])) row.push_back(std::move(c));
    out.rows.push_back(std::move(row));
  }
  const bool narrowed = filters.Narrowing();
  const bool balanced = report.DebitsEqualCredits() && report.ClosingSumsToZero();
  const std::string verdict = Verdict(report, narrowed);
  if (ctx.options.output_format == Format::kHtml) {
    HtmlPage page;
    page.title = "Trial balance";
    page.subtitle =
        Subtitle(ctx, fmt::format("{} to {}", MonthText(period.from), MonthText(period.to)));
    page.columns = {{"Account"}, {"Description"}, {"Opening", true},
                    {"Debits"},  {"Credits"},     {"Closing", true}};
    for (size_t i = 0; i < report.chart.size(); ++i) {
      const reports::ChartAccount& a = report.chart[i];
      if (layout.depth > 0 && a.depth > layout.depth) continue;
      if (layout.hide_zero && Zero(report.figures[i])) continue;
      page.rows.push_back(TreeRow(a, FigureCells(report.figures[i])));
    }
    std::vector<Cell> total = {std::string("Total"), Null{}};
    for (Cell& c : FigureCells(report.totals)) total.push_back(std::move(c));
    page.rows.push_back(HtmlRow{0, false, true, std::move(total)});
    page.verdict = verdict;
    page.verdict_ok = balanced || narrowed;
    // The chart is of the whole books; a narrowed report goes without it.
    if (!narrowed)
      page.chart = MonthlyChart(reports::ReadIncomeStatement(
          session.Connection(), ctx.options.empresa, ctx.options.revenda, period));
    WriteHtml(std::cout, page);
  } else if (ctx.options.output_format == Format::kJson) {
    nlohmann::ordered_json j;
    j["from"] = period.from;
    j["to"] = period.to;
    j["accounts"] = ToJson(out);
    j["totals"] = ToJson(
        Output{{"opening", "debits", "credits", "closing"}, {FigureCells(report.totals)}, true});
    j["balanced"] = balanced;
    j["filtered"] = narrowed;
    std::cout << j.dump(2) << "\n";
  } else {
    if (table) {
      std::vector<Cell> total = {std::string("total"), Null{}, Null{}, Null{}};
      for (Cell& c : FigureCells(report.totals)) total.push_back(std::move(c));
      out.rows.push_back(std::move(total));
    }
    PrintOutput(ctx.options, out);
    if (table) std::cout << "\n" << verdict << "\n";
  }
  std::cout.flush();
  // Machine formats carry the verdict in their data (JSON) or not at all
  // (CSV): a user reading them is told on standard error when it matters.
  if (!narrowed && !balanced && !table) std::cerr << "kvctb: warning: " << verdict << "\n";
  if (!report.beneath_analytic.empty())
    std::cerr << fmt::format(
        "kvctb: warning: {} account(s) lie beneath an analytic account, first {}: no balance "
        "and no total counts them; give them a synthetic parent in the chart\n",
        report.beneath_analytic.size(), report.beneath_analytic.front());
  if (!report.inconsistent.empty())
    std::cerr << fmt::format(
        "kvctb: warning: the opening balance plus debits minus credits is not the closing "
        "balance of {} account(s), first {}: the journal and the carried-forward balances "
        "disagree (kvctb rebuild recomputes them)\n",
        report.inconsistent.size(), report.inconsistent.front());
  return kExitOk;
}

void AddReportCommands(CLI::App& app, Commands& commands) {
  struct RangeOptions {
    std::string from, to;
  };

  // ---- journal ----
  struct JournalOptions {
    std::string from, to;
    bool division_rows = false;
  };
  auto jo = std::make_shared<JournalOptions>();
  CLI::App* journal = app.add_subcommand(
      "journal",
      "The entries of months of one year in date order, each pair together (the entry it was\n"
      "generated from first): date, entry, origin, account, description, debit, credit,\n"
      "document, standard history and complementary history; with --division-rows each\n"
      "entry followed by its division rows.\n"
      "Example: kvctb journal --from 202403 --to 202403 --division-rows");
  AddMonthRange(journal, jo->from, jo->to, "202403");
  journal->add_flag("--division-rows", jo->division_rows,
                    "Each entry followed by its division rows (kind \"division\"): the\n"
                    "division values in the description, the row's part of the amount on the\n"
                    "entry's side.");
  commands.push_back(
      {journal, [jo](const RunContext& ctx) {
         const reports::Period period = CheckedPeriod(jo->from, jo->to);
         Session session(ctx.options, ctx.trace);
         const std::vector<reports::ChartAccount> chart =
             reports::ReadChart(session.Connection(), ctx.options.empresa, ctx.options.revenda);
         const auto index = reports::IndexByCode(chart);
         const bool table = ctx.options.output_format == Format::kTable;
         // A table aligns every row, so it holds them; CSV and JSON are
         // written month by month.
         Output out;
         out.columns = {"date",  "entry",  "origin",   "account", "description",
                        "debit", "credit", "document", "history", "complement"};
         // Division rows carry their part of the amount in a column of their
         // own, so that the debit and credit columns still add up to the
         // journal's.
         if (jo->division_rows) {
           out.columns.insert(out.columns.begin(), "kind");
           out.columns.push_back("division_amount");
         }
         std::optional<RowWriter> writer;
         if (!table) writer.emplace(std::cout, out.columns, ctx.options.output_format);
         reports::ForEachJournalMonth(
             session.Connection(), ctx.options.empresa, ctx.options.revenda, period,
             [&](const std::vector<reports::JournalEntry>& month) {
               for (const reports::JournalEntry& e : month) {
                 const auto found = index.find(e.conta);
                 std::vector<Cell> row = {
                     DateText(e.ano_mes, e.dia),
                     int64_t{e.lancamento},
                     e.lco_origem ? Cell{int64_t{*e.lco_origem}} : Cell{Null{}},
                     e.conta,
                     found == index.end() ? std::string() : chart[found->second].descricao,
                     table && !e.debit ? Cell{Null{}} : Cell{Amount{e.debit ? e.valor : 0}},
                     table && e.debit ? Cell{Null{}} : Cell{Amount{e.debit ? 0 : e.valor}},
                     OptionalCell(e.documento),
                     e.historico_padrao ? Cell{int64_t{*e.historico_padrao}} : Cell{Null{}},
                     e.his_complementar};
                 auto emit = [&](std::vector<Cell> cells, const char* kind, Cell part) {
                   if (jo->division_rows) {
                     cells.insert(cells.begin(), std::string(kind));
                     cells.push_back(std::move(part));
                   }
                   if (writer)
                     writer->Row(cells);
                   else
                     out.rows.push_back(std::move(cells));
                 };
                 emit(std::move(row), "entry", Null{});
                 for (const reports::DivisionRow& d : e.divisions) {
                   std::string values;
                   auto add = [&](const char* name, const std::string& value) {
                     if (!value.empty())
                       values += fmt::format("{}{} {}", values.empty() ? "" : ", ", name, value);
                   };
                   auto number = [](const std::optional<int32_t>& v) {
                     return v ? std::to_string(*v) : std::string();
                   };
                   add("dealership", number(d.revenda_divisao));
                   add("cost centre", number(d.centro_custo));
                   add("source", number(d.fonte));
                   add("category", number(d.categoria));
                   add("workshop section", number(d.secao_oficina));
                   add("item type", d.tipo_item);
                   add("modality", d.modalidade_operacao);
                   emit({Null{}, Null{}, Null{}, e.conta, "division: " + values, Null{}, Null{},
                         Null{}, Null{}, Null{}},
                        "division", Amount{e.debit ? d.valor : -d.valor});
                 }
               }
             },
             jo->division_rows);
         if (writer)
           writer->Finish();
         else
           PrintOutput(ctx.options, out);
         return kExitOk;
       }});

  // ---- balance-sheet ----
  struct SheetOptions {
    std::string month;
    StatementOptions shown;
  };
  auto bs = std::make_shared<SheetOptions>();
  CLI::App* sheet = app.add_subcommand(
      "balance-sheet",
      "The balance sheet at the end of a month: assets (accounts beginning with 1), liabilities\n"
      "and equity (beginning with 2) with their subtotals, the result not yet closed (the\n"
      "result accounts' balance), and whether assets equal liabilities and equity plus that\n"
      "result. Example: kvctb balance-sheet --month 202412 --depth 2");
  sheet->add_option("--month", bs->month, "Month, YYYYMM. Example: --month 202412")->required();
  AddStatementOptions(sheet, bs->shown);
  commands.push_back(
      {sheet, [bs](const RunContext& ctx) {
         const int32_t month = ParseMonth("--month", bs->month);
         const int depth = bs->shown.Depth();
         Session session(ctx.options, ctx.trace);
         const reports::BalanceSheet b =
             reports::ReadBalanceSheet(session.Module(), session.Connection(), ctx.options.empresa,
                                       ctx.options.revenda, month);
         const bool table = ctx.options.output_format == Format::kTable;
         const std::string verdict =
             b.Balances()
                 ? "assets equal liabilities and equity plus the result not yet closed"
                 : fmt::format(
                       "THE BALANCE SHEET DOES NOT BALANCE: assets {} against liabilities "
                       "and equity plus the unclosed result {} (difference {})",
                       FormatAmount(b.total_assets, true),
                       FormatAmount(b.total_liabilities + b.unclosed_result, true),
                       FormatAmount(b.total_assets - b.total_liabilities - b.unclosed_result,
                                    true));
         if (ctx.options.output_format == Format::kHtml) {
           HtmlPage page;
           page.title = "Balance sheet";
           page.subtitle = Subtitle(ctx, "at the end of " + MonthText(month));
           page.columns = {{"Account"}, {"Description"}, {"Balance"}};
           auto section = [&](const std::vector<reports::StatementLine>& lines) {
             for (const reports::StatementLine& l : lines)
               if (Shown(l.account, depth, bs->shown.hide_zero, l.amount))
                 page.rows.push_back(TreeRow(l.account, {Amount{l.amount}}));
           };
           auto total = [&](const char* label, double amount) {
             page.rows.push_back(
                 HtmlRow{0, false, true, {std::string(label), Null{}, Amount{amount}}});
           };
           section(b.assets);
           total("Total assets", b.total_assets);
           section(b.liabilities);
           total("Total liabilities and equity", b.total_liabilities);
           total("Result not yet closed", b.unclosed_result);
           total("Liabilities, equity and result", b.total_liabilities + b.unclosed_result);
           page.verdict = verdict;
           page.verdict_ok = b.Balances();
           WriteHtml(std::cout, page);
           return kExitOk;
         }
         Output out;
         out.columns = {"section", "account", "description", "level", "type", "balance"};
         StatementRows(b.assets, depth, bs->shown.hide_zero, table, out, "assets");
         StatementRows(b.liabilities, depth, bs->shown.hide_zero, table, out, "liabilities");
         if (ctx.options.output_format == Format::kJson) {
           nlohmann::ordered_json j;
           j["month"] = month;
           j["accounts"] = ToJson(out);
           j["total_assets"] = RoundCents(b.total_assets);
           j["total_liabilities_and_equity"] = RoundCents(b.total_liabilities);
           j["unclosed_result"] = RoundCents(b.unclosed_result);
           j["balanced"] = b.Balances();
           std::cout << j.dump(2) << "\n";
           std::cout.flush();
         } else {
           // The totals close the table and the CSV (JSON has them as fields).
           {
             auto total = [&](const char* label, double amount) {
               out.rows.push_back({table ? Cell{Null{}} : Cell{std::string("total")},
                                   std::string(label), Null{}, Null{}, Null{}, Amount{amount}});
             };
             total("total assets", b.total_assets);
             total("total liabilities and equity", b.total_liabilities);
             total("result not yet closed", b.unclosed_result);
             total("liabilities, equity and result", b.total_liabilities + b.unclosed_result);
           }
           PrintOutput(ctx.options, out);
           if (table) std::cout << "\n" << verdict << "\n";
         }
         if (!b.Balances() && !table) std::cerr << "kvctb: warning: " << verdict << "\n";
         if (!b.unclassified.empty())
           std::cerr << fmt::format(
               "kvctb: warning: {} account(s) begin with neither 1 (assets), 2 (liabilities and "
               "equity) nor 3 and above (result), first {}: shown among the liabilities\n",
               b.unclassified.size(), b.unclassified.front());
         return kExitOk;
       }});

  // ---- income-statement ----
  struct IncomeOptions {
    std::string from, to;
    StatementOptions shown;
  };
  auto is = std::make_shared<IncomeOptions>();
  CLI::App* income = app.add_subcommand(
      "income-statement",
      "The income statement of months of one year: the result accounts (codes from 3 up)\n"
      "with their movement, revenue positive and expenses negative, subtotals by the chart,\n"
      "and the period's result; the result calculation's own entries are left out.\n"
      "Example: kvctb income-statement --from 202401 --to 202412 --depth 2");
  AddMonthRange(income, is->from, is->to, "202412");
  AddStatementOptions(income, is->shown);
  commands.push_back(
      {income, [is](const RunContext& ctx) {
         const reports::Period period = CheckedPeriod(is->from, is->to);
         const int depth = is->shown.Depth();
         Session session(ctx.options, ctx.trace);
         const reports::IncomeStatement st = reports::ReadIncomeStatement(
             session.Connection(), ctx.options.empresa, ctx.options.revenda, period);
         if (ctx.options.output_format == Format::kHtml) {
           HtmlPage page;
           page.title = "Income statement";
           page.subtitle =
               Subtitle(ctx, fmt::format("{} to {}", MonthText(period.from), MonthText(period.to)));
           page.columns = {{"Account"}, {"Description"}, {"Amount"}};
           for (const reports::StatementLine& l : st.lines)
             if (Shown(l.account, depth, is->shown.hide_zero, l.amount))
               page.rows.push_back(TreeRow(l.account, {Amount{l.amount}}));
           page.rows.push_back(
               HtmlRow{0,
                       false,
                       true,
                       {std::string(st.result >= 0 ? "Result (profit)" : "Result (loss)"), Null{},
                        Amount{st.result}}});
           page.chart = MonthlyChart(st);
           WriteHtml(std::cout, page);
           return kExitOk;
         }
         const bool table = ctx.options.output_format == Format::kTable;
         Output out;
         out.columns = {"account", "description", "level", "type", "amount"};
         StatementRows(st.lines, depth, is->shown.hide_zero, table, out);
         if (ctx.options.output_format == Format::kJson) {
           nlohmann::ordered_json j;
           j["from"] = period.from;
           j["to"] = period.to;
           j["accounts"] = ToJson(out);
           j["result"] = RoundCents(st.result);
           nlohmann::ordered_json months = nlohmann::ordered_json::array();
           for (const reports::IncomeStatement::Month& m : st.monthly)
             months.push_back({{"month", m.ano_mes},
                               {"revenue", RoundCents(m.revenue)},
                               {"expense", RoundCents(m.expense)},
                               {"result", RoundCents(m.Result())}});
           j["monthly"] = months;
           std::cout << j.dump(2) << "\n";
           std::cout.flush();
         } else {
           if (table)
             out.rows.push_back({std::string(st.result >= 0 ? "result (profit)" : "result (loss)"),
                                 Null{}, Null{}, Null{}, Amount{st.result}});
           PrintOutput(ctx.options, out);
         }
         return kExitOk;
       }});

  // ---- export ----
  auto ex = std::make_shared<RangeOptions>();
  CLI::App* exporting = app.add_subcommand(
      "export",
      "The journal of months of one year for other tools, on standard output: with --format\n"
      "ledger (the default) in the plain-text accounting journal format, an opening-balances\n"
      "transaction and then one balanced transaction per pair of entries, accounts named by\n"
      "their path in the chart; with --format csv one row per entry.\n"
      "Example: kvctb export --from 202401 --to 202412 > books.journal");
  AddMonthRange(exporting, ex->from, ex->to, "202412");
  commands.push_back(
      {exporting, [ex](const RunContext& ctx) {
         const reports::Period period = CheckedPeriod(ex->from, ex->to);
         if (ctx.options.output_format == Format::kJson)
           throw UsageError("--format", "export writes ledger or csv");
         Session session(ctx.options, ctx.trace);
         const reports::ExportSummary summary =
             ctx.options.output_format == Format::kCsv
                 ? reports::ExportJournalCsv(session.Connection(), ctx.options.empresa,
                                             ctx.options.revenda, period, std::cout)
                 : reports::ExportLedgerJournal(session.Module(), session.Connection(),
                                                ctx.options.empresa, ctx.options.revenda, period,
                                                std::cout);
         std::cout.flush();
         if (!summary.unbalanced.empty())
           std::cerr << fmt::format(
               "kvctb: warning: {} transaction(s) do not balance, first {}: written as unbalanced "
               "(virtual) postings, so that every account's balance stays exact\n",
               summary.unbalanced.size(), summary.unbalanced.front());
         if (!ctx.options.quiet)
           std::cerr << fmt::format("kvctb: exported {} entries\n", summary.entries);
         return kExitOk;
       }});

  // ---- ledger ----
  struct LedgerOptions {
    std::string account, from, to;
  };
  auto l = std::make_shared<LedgerOptions>();
  CLI::App* ledger = app.add_subcommand(
      "ledger",
      "The general ledger of an account over months of one year: its opening balance, each\n"
      "entry (date, entry number, document, standard history, complementary history, debit,\n"
      "credit, running balance) and its closing balance. A synthetic account lists the entries\n"
      "of the analytic accounts beneath it.\n"
      "Example: kvctb ledger 1.1.1.01 --from 202401 --to 202403");
  ledger->add_option("ACCOUNT", l->account, "Account code. Example: 1.1.1.01")->required();
  AddMonthRange(ledger, l->from, l->to, "202403");
  commands.push_back(
      {ledger, [l](const RunContext& ctx) {
         const std::string conta = ParseAccount("ACCOUNT", l->account);
         const reports::Period period = CheckedPeriod(l->from, l->to);
         Session session(ctx.options, ctx.trace);
         if (!session.AccountLevel(conta))
           throw std::runtime_error(fmt::format("account {} is not in the chart", conta));
         const reports::GeneralLedger g =
             reports::ReadGeneralLedger(session.Module(), session.Connection(), ctx.options.empresa,
                                        ctx.options.revenda, period, conta);
         const bool synthetic = g.account.nivel != "A";
         // A page shows the ledger as the table does, opening and closing lines
         // included.
         const bool table = ctx.options.output_format == Format::kTable ||
                            ctx.options.output_format == Format::kHtml;
         Output out;
         out.columns = {"date", "entry", "origin", "document", "history", "complement"};
         if (synthetic) out.columns.push_back("account");
         for (const char* c : {"debit", "credit", "balance"}) out.columns.push_back(c);
         auto row = [&](Cell date, Cell complement, Cell debit, Cell credit, double balance) {
           std::vector<Cell> r = {std::move(date), Null{}, Null{},
                                  Null{},          Null{}, std::move(complement)};
           if (synthetic) r.push_back(Null{});
           r.push_back(std::move(debit));
           r.push_back(std::move(credit));
           r.push_back(Amount{balance});
           return r;
         };
         if (table)
           out.rows.push_back(
               row(Null{}, std::string("opening balance"), Null{}, Null{}, g.opening));
         for (const reports::LedgerEntry& e : g.entries) {
           std::vector<Cell> r = {
               DateText(e.ano_mes, e.dia),
               int64_t{e.lancamento},
               e.lco_origem ? Cell{int64_t{*e.lco_origem}} : Cell{Null{}},
               OptionalCell(e.documento),
               e.historico_padrao ? Cell{int64_t{*e.historico_padrao}} : Cell{Null{}},
               e.his_complementar};
           if (synthetic) r.push_back(e.conta);
           // A table leaves the other side of an entry blank.
           r.push_back(table && e.debit == 0 ? Cell{Null{}} : Cell{Amount{e.debit}});
           r.push_back(table && e.credit == 0 ? Cell{Null{}} : Cell{Amount{e.credit}});
           r.push_back(Amount{e.balance});
           out.rows.push_back(std::move(r));
         }
         if (ctx.options.output_format == Format::kHtml) {
           HtmlPage page;
           page.title = fmt::format("General ledger of {}{}{}", g.account.conta,
                                    g.account.descricao.empty() ? "" : " ", g.account.descricao);
           page.subtitle =
               Subtitle(ctx, fmt::format("{} to {}", MonthText(period.from), MonthText(period.to)));
           for (const std::string& c : out.columns) {
             std::string title = c;
             title[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(title[0])));
             page.columns.push_back({title, c == "balance"});
           }
           out.rows.push_back(row(Null{}, std::string("closing balance"), Amount{g.debits},
                                  Amount{g.credits}, g.closing));
           for (auto& r : out.rows) page.rows.push_back(HtmlRow{0, false, false, std::move(r)});
           page.rows.front().total = page.rows.back().total = true;
           page.verdict = g.Consistent() ? ""
                                         : fmt::format(
                                               "The ledger closes at {} but the balance at the end "
                                               "of the period is {}",
                                               FormatAmount(g.closing, true),
                                               FormatAmount(g.balance_at_end, true));
           page.verdict_ok = g.Consistent();
           WriteHtml(std::cout, page);
           return kExitOk;
         }
         if (ctx.options.output_format == Format::kJson) {
           nlohmann::ordered_json j;
           j["account"] = g.account.conta;
           j["description"] = g.account.descricao;
           j["from"] = period.from;
           j["to"] = period.to;
           j["opening"] = RoundCents(g.opening);
           j["entries"] = ToJson(out);
           j["debits"] = RoundCents(g.debits);
           j["credits"] = RoundCents(g.credits);
           j["closing"] = RoundCents(g.closing);
           std::cout << j.dump(2) << "\n";
           std::cout.flush();
         } else {
           if (table)
             out.rows.push_back(row(Null{}, std::string("closing balance"), Amount{g.debits},
                                    Amount{g.credits}, g.closing));
           if (table)
             std::cout << fmt::format("{}{}{}, {} to {}\n\n", g.account.conta,
                                      g.account.descricao.empty() ? "" : " ", g.account.descricao,
                                      period.from, period.to);
           PrintOutput(ctx.options, out);
         }
         if (!g.Consistent())
           std::cerr << fmt::format(
               "kvctb: warning: the ledger closes at {} but the balance of {} at the end of {} "
               "is {}: the journal and the carried-forward balances disagree (kvctb rebuild "
               "recomputes them)\n",
               FormatAmount(g.closing, true), g.account.conta, period.to,
               FormatAmount(g.balance_at_end, true));
         return kExitOk;
       }});
}

}  // namespace kvc::cli
