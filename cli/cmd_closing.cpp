// The closing commands: close-result (ApuraResultado), close-year
// (EncerramentoAnual with its error table), rollup (AtualizaSaldoAnterior and
// its division form, with the module's error log) and rebuild
// (RecompoeSaldoAnterior and its division form).
#include <charconv>
#include <cmath>
#include <fstream>
#include <iostream>

#include <fmt/format.h>

#include "accounting/db/client_dataset.h"
#include "accounting/module/log_erros.h"
#include "cli/closed_periods.h"
#include "cli/commands.h"
#include "cli/validate.h"

namespace kvc::cli {
namespace {

// The number of rows in the module's serialised error table ("" for none).
size_t ErrorRowCount(const std::string& erros) {
  if (erros.empty()) return 0;
  db::ClientDataSet table("errors");
  table.LoadFromString(erros);
  return table.RecordCount();
}

// The rows of an error table (the module's serialised table data, or its
// error log) as output, every field of the table a column.
Output ErrorRows(db::ClientDataSet& table) {
  Output out;
  for (const db::FieldDef& f : table.FieldDefs()) out.columns.push_back(f.name);
  for (table.First(); !table.Eof(); table.Next()) {
    auto& row = out.rows.emplace_back();
    for (const db::FieldDef& f : table.FieldDefs()) {
      const db::Value& v = table.FieldByName(f.name);
      // Built as text or left null, then moved: GCC 12 at -O3 takes a
      // temporary Null pushed straight in for uninitialised storage.
      std::string texto;
      if (v.IsDateTime())
        texto = v.AsDateTime().ToIso();
      else if (!v.IsNull())
        texto = v.AsString();
      if (v.IsNull())
        row.emplace_back();
      else
        row.emplace_back(std::move(texto));
    }
  }
  return out;
}

// A result calculation closes the movement from the day after the last one
// to its closing date, and records that date. One closing on or before the
// last date would move it back, and the next calculation would close the
// movement in between a second time: refused, always. One closing in a
// year whose annual closing has run changes that year's balances: refused
// unless reopened.
void CheckResultClosingDate(Session& session, const std::chrono::year_month_day& closing,
                            bool reopen) {
  const ClosedPeriods closed(session);
  if (const auto& last = closed.ResultCalculatedTo(); last && closing <= *last)
    throw std::runtime_error(fmt::format(
        "the result was already calculated up to {}: a calculation closing on {} would move "
        "that date back, and the next one would close the movement after {} a second time",
        IsoDate(*last), IsoDate(closing), IsoDate(closing)));
  const std::string why = closed.Why(closing, "the closing date");
  if (!why.empty() && !reopen)
    throw std::runtime_error(why + "; give --reopen to calculate the result all the same");
}

// A total of the result calculation as the module writes it with the
// separators the session sets ("52,500.75 C"): its amount and its side.
struct ResultTotal {
  double amount;
  std::string side;
};

ResultTotal ReadResultTotal(const std::string& text) {
  const SeparadoresNumericos separators = DisplaySeparators();
  const size_t blank = text.rfind(' ');
  const std::string shown = text.substr(0, blank == std::string::npos ? text.size() : blank);
  std::string digits;  // without the thousands separators, with a point
  for (size_t i = 0; i < shown.size();) {
    if (shown.compare(i, separators.milhar.size(), separators.milhar) == 0) {
      i += separators.milhar.size();
    } else if (shown.compare(i, separators.decimal.size(), separators.decimal) == 0) {
      digits += '.';
      i += separators.decimal.size();
    } else {
      digits += shown[i++];
    }
  }
  ResultTotal total{0, blank == std::string::npos ? "" : text.substr(blank + 1)};
  const auto [end, error] =
      std::from_chars(digits.data(), digits.data() + digits.size(), total.amount);
  if (error != std::errc() || end != digits.data() + digits.size() ||
      !std::isfinite(total.amount) || (total.side != "C" && total.side != "D"))
    throw std::runtime_error(
        fmt::format("the result calculation gave a total that is not an amount: '{}'", text));
  return total;
}

struct CloseResultOptions {
  std::string month, day, year, history, result_account, exclude;
  bool current_year = false, include_carried_forward = false, movement_only = false,
       confirm = false, reopen = false;
};

int RunCloseResult(const RunContext& ctx, const CloseResultOptions& o) {
  const int32_t month = ParseMonth("--month", o.month);
  const std::string day = ParseDay("--day", o.day);
  const std::string year = ParseYear("--year", o.year);
  const std::string history = std::to_string(ParseInt("--history", o.history, 0, 9999));
  const std::string account = ParseAccount("--result-account", o.result_account);
  // The calculation closes every account from 3 up; an account among them
  // would receive the result and be closed itself, and the income statement
  // could no longer tell the year's result from its closing.
  if (static_cast<unsigned char>(account[0]) > '2')
    throw UsageError("--result-account",
                     fmt::format("{} is a result account (codes from 3 up are closed by the "
                                 "calculation); the result goes to a balance-sheet account, such "
                                 "as 2.9.1.01",
                                 account));
  const std::string exclude = ExclusionList("--exclude-dealerships", o.exclude);
  Session session(ctx.options, ctx.trace);
  if (session.AccountLevel(account) != std::optional<std::string>("A"))
    throw std::runtime_error(
        fmt::format("the result account {} is not an analytic account of the chart", account));
  CheckResultClosingDate(session, EntryDate(month, std::stoi(day)), o.reopen);
  if (o.confirm) EnsureBookNumbering(session);
  std::string credito, debito, diferenca, mensagem;
  const bool ok = session.Module().ApuraResultado(
      month, year, day, history, account, o.current_year, credito, debito, diferenca, mensagem,
      o.confirm, o.include_carried_forward, o.movement_only, exclude);
  if (!ok)
    throw std::runtime_error(mensagem.empty() ? "the result calculation failed; nothing was changed"
                                              : "the result calculation failed: " + mensagem);
  session.Progress().Status(o.confirm ? "result calculated and committed"
                                      : "preview only: nothing was changed (use --confirm)");
  if (o.confirm && o.reopen) {
    const auto closing = EntryDate(month, std::stoi(day));
    for (const std::string& line : ClosedPeriods(session).RunAgain({closing}))
      if (line.find("annual closing") != std::string::npos) std::cerr << "kvctb: " << line << "\n";
  }
  Output out;
  out.single = true;
  if (ctx.options.output_format == Format::kTable) {
    out.columns = {"credit", "debit", "difference", "confirmed"};
    out.rows.push_back({credito, debito, diferenca, o.confirm});
  } else {
    // Machine formats get plain numbers, and the side of the difference in
    // a field of its own.
    const ResultTotal difference = ReadResultTotal(diferenca);
    out.columns = {"credit", "debit", "difference", "difference_side", "confirmed"};
    out.rows.push_back({Amount{ReadResultTotal(credito).amount},
                        Amount{ReadResultTotal(debito).amount}, Amount{difference.amount},
                        difference.side, o.confirm});
  }
  PrintOutput(ctx.options, out);
  return kExitOk;
}

// The annual closing runs in one transaction of the tool's own (the module
// opens none, so its host may). A closing that met error rows wrote only part
// of the year's balances: it is rolled back, so the previous closing stays
// whole, unless the user asks to keep the part.
int RunCloseYear(const RunContext& ctx, const std::string& year_text, const std::string& errors,
                 bool keep_partial) {
  const std::string year = ParseYear("YEAR", year_text);
  if (!errors.empty()) CheckedText("--errors", errors, 4096);
  Session session(ctx.options, ctx.trace);
  std::string erros;
  bool raised = false;
  std::string failure;
  InTransaction(session, "the changes", [&] {
    try {
      session.Module().EncerramentoAnual(year, erros, &session.Progress());
    } catch (const std::exception& e) {
      raised = true;
      failure = e.what();
      return false;
    }
    if (session.Progress().ErrorReceived()) return false;
    return keep_partial || ErrorRowCount(erros) == 0;
  });
  db::ClientDataSet table("errors");
  if (!erros.empty()) table.LoadFromString(erros);
  const Output out = erros.empty()
                         ? Output{{kCamposLogErros.begin(), kCamposLogErros.end()}, {}, false}
                         : ErrorRows(table);
  if (!errors.empty()) {
    std::ofstream file(errors, std::ios::trunc);
    file << ToJson(out).dump(2) << "\n";
    if (!file) throw std::runtime_error(fmt::format("cannot write '{}'", errors));
  }
  if (raised) {
    if (!out.rows.empty()) PrintOutput(ctx.options, out);
    throw std::runtime_error("the annual closing failed and was rolled back: " + failure);
  }
  if (session.Progress().ErrorReceived())
    throw std::runtime_error(fmt::format("the annual closing of {} was refused", year));
  // A table for people says that there were no error rows rather than show
  // an empty table; CSV and JSON keep their (empty) list for scripts.
  if (out.rows.empty() && ctx.options.output_format == Format::kTable) {
    std::cout << "no error rows\n";
    std::cout.flush();
  } else {
    PrintOutput(ctx.options, out);
  }
  if (!out.rows.empty() && !keep_partial)
    throw std::runtime_error(fmt::format(
        "the annual closing of {} met {} error row{} and was rolled back: the carried-forward "
        "balances are as they were (--keep-partial keeps what a closing with errors wrote)",
        year, out.rows.size(), out.rows.size() == 1 ? "" : "s"));
  if (!out.rows.empty()) {
    session.Progress().Status(
        fmt::format("year {} closed with {} error rows", year, out.rows.size()));
    return kExitErrorRows;
  }
  session.Progress().Status(fmt::format("year {} closed", year));
  return kExitOk;
}

int RunRollup(const RunContext& ctx, const std::string& year_text, bool by_division) {
  const std::string year = ParseYear("YEAR", year_text);
  Session session(ctx.options, ctx.trace);
  TddmContabilidadeBD& dm = session.Module();
  InTransaction(session, "the changes", [&] {
    if (by_division)
      dm.AtualizaSaldoAnteriorDivisao(year, &session.Progress());
    else
      dm.AtualizaSaldoAnterior(year, &session.Progress());
    return true;
  });
  if (dm.LogErros() && !dm.LogErros()->IsEmpty()) {
    const Output out = ErrorRows(*dm.LogErros());
    PrintOutput(ctx.options, out);
    session.Progress().Status(
        fmt::format("roll-up of {} done with {} error rows", year, out.rows.size()));
    return kExitErrorRows;
  }
  Output out;
  out.single = true;
  out.columns = {"year", "by_division", "rolled_up"};
  out.rows.push_back({year, by_division, true});
  PrintOutput(ctx.options, out);
  return kExitOk;
}

int RunRebuild(const RunContext& ctx, const std::string& year_text, bool by_division) {
  const std::string year = ParseYear("YEAR", year_text);
  Session session(ctx.options, ctx.trace);
  TddmContabilidadeBD& dm = session.Module();
  const bool ok =
      by_division ? dm.RecompoeSaldoAnteriorDivisao(year) : dm.RecompoeSaldoAnterior(year);
  if (!ok)
    throw std::runtime_error(fmt::format("the rebuild of {} failed; nothing was changed", year));
  Output out;
  out.single = true;
  out.columns = {"year", "by_division", "rebuilt"};
  out.rows.push_back({year, by_division, true});
  PrintOutput(ctx.options, out);
  return kExitOk;
}

}  // namespace

void AddClosingCommands(CLI::App& app, Commands& commands) {
  auto r = std::make_shared<CloseResultOptions>();
  CLI::App* cr = app.add_subcommand(
      "close-result",
      "The result calculation (ApuraResultado): closes the result accounts (codes from 3\n"
      "up) into the result account up to the given day. Without --confirm it is a\n"
      "preview and nothing is kept. Prints the credit, debit and difference totals.\n"
      "Example: kvctb close-result --month 202412 --day 31 --year 2024 --history 99\n"
      "         --result-account 2.9.1.01 --confirm");
  cr->add_option("--month", r->month, "Month of the closing date, YYYYMM. Example: --month 202412")
      ->required();
  cr->add_option("--day", r->day, "Day of the closing date. Example: --day 31")->required();
  cr->add_option("--year", r->year, "Year of the carried-forward balance. Example: --year 2024")
      ->required();
  cr->add_option("--history", r->history,
                 "Standard-history code of the entries. Example: --history 99")
      ->required();
  cr->add_option(
        "--result-account", r->result_account,
        "The analytic account that receives the result. Example: --result-account 2.9.1.01")
      ->required();
  cr->add_flag(
      "--current-year", r->current_year,
      "Take the carried-forward balance of --year itself (AnoAtual), not of the year before.");
  cr->add_flag("--include-carried-forward", r->include_carried_forward,
               "Include the carried-forward balance (IncluiSaldoAnterior).");
  cr->add_flag("--movement-only", r->movement_only, "Movement only (SomenteMovimento).");
  cr->add_option("--exclude-dealerships", r->exclude,
                 "Leave out these dealerships, numbers separated by commas.\n"
                 "Example: --exclude-dealerships 3,7");
  cr->add_flag("--confirm", r->confirm, "Commit the calculation (without it: a preview).");
  cr->add_flag("--reopen", r->reopen,
               "Calculate with a closing date in a year already closed; kvctb then says which\n"
               "annual closing to run again.");
  commands.push_back({cr, [r](const RunContext& ctx) { return RunCloseResult(ctx, *r); }});

  struct YearOptions {
    std::string year, errors;
    bool by_division = false;
    bool keep_partial = false;
  };
  auto y = std::make_shared<YearOptions>();
  CLI::App* cy = app.add_subcommand(
      "close-year",
      "The annual closing (EncerramentoAnual): rewrites the year's carried-forward\n"
      "balances, in one transaction. When a statement fails, its error rows are printed\n"
      "and the whole closing is rolled back (exit code 1), leaving the previous one intact.\n"
      "Example: kvctb close-year 2023 --errors errors.json");
  cy->add_option("YEAR", y->year, "The year, YYYY. Example: 2023")->required();
  cy->add_option("--errors", y->errors,
                 "Also save the error rows as JSON in FILE. Example: --errors errors.json");
  cy->add_flag("--keep-partial", y->keep_partial,
               "Commit what a closing with error rows wrote (exit code 3) instead of rolling\n"
               "it back.");
  commands.push_back({cy, [y](const RunContext& ctx) {
                        return RunCloseYear(ctx, y->year, y->errors, y->keep_partial);
                      }});

  auto ru = std::make_shared<YearOptions>();
  CLI::App* rollup = app.add_subcommand(
      "rollup",
      "Roll a year's carried-forward balances up the chart to the synthetic accounts\n"
      "(AtualizaSaldoAnterior; --by-division: AtualizaSaldoAnteriorDivisao). Failed\n"
      "writes are printed as a table (exit code 3).\n"
      "Example: kvctb rollup 2023 --by-division");
  rollup->add_option("YEAR", ru->year, "The year, YYYY. Example: 2023")->required();
  rollup->add_flag("--by-division", ru->by_division, "Per division combination.");
  commands.push_back(
      {rollup, [ru](const RunContext& ctx) { return RunRollup(ctx, ru->year, ru->by_division); }});

  auto rb = std::make_shared<YearOptions>();
  CLI::App* rebuild = app.add_subcommand(
      "rebuild",
      "Rebuild a year's carried-forward balances of the synthetic accounts in one\n"
      "transaction (RecompoeSaldoAnterior; --by-division: RecompoeSaldoAnteriorDivisao).\n"
      "Example: kvctb rebuild 2023");
  rebuild->add_option("YEAR", rb->year, "The year, YYYY. Example: 2023")->required();
  rebuild->add_flag("--by-division", rb->by_division, "Per division combination.");
  commands.push_back({rebuild, [rb](const RunContext& ctx) {
                        return RunRebuild(ctx, rb->year, rb->by_division);
                      }});
}

}  // namespace kvc::cli
