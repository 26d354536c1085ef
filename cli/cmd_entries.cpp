// The entry commands: post and post-erp (fixed-width records through
// GravaLancamento and GravaLancamentoSAP, a whole file in one transaction),
// delete-entry, and the lookup invoice-text.
#include <chrono>
#include <cmath>
#include <functional>
#include <iostream>
#include <map>
#include <set>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "accounting/entries/registro_interface.h"
#include "cli/closed_periods.h"
#include "cli/commands.h"
#include "cli/divisions.h"
#include "cli/record.h"
#include "cli/record_file.h"
#include "cli/validate.h"

namespace kvc::cli {
namespace {

struct PostOptions {
  std::string file;
  std::string document;
  std::string division_dealership;
  bool code_in_account = false;
  bool dry_run = false;
  bool list = false;
  bool allow_duplicates = false;
  bool reopen = false;
};

// The entries of a month with a document number (or none), for the
// duplicate check.
constexpr char kSelectPosted[] =
    "select DIA, CONTA, NATUREZA, VAL_LANCAMENTO from CTB_LANCAMENTO where EMPRESA = :EMPRESA "
    "and REVENDA = :REVENDA and ANO_MES = :ANO_MES and DOCUMENTO = :DOCUMENTO";
constexpr char kSelectPostedWithoutDocument[] =
    "select DIA, CONTA, NATUREZA, VAL_LANCAMENTO from CTB_LANCAMENTO where EMPRESA = :EMPRESA "
    "and REVENDA = :REVENDA and ANO_MES = :ANO_MES and DOCUMENTO is null";

// The company's chart, by account code; read once for the checks of a post.
using Chart = std::map<std::string, ChartLine>;

// The checks of a post that read the database, made in one pass over the
// file before the transaction begins. Each gathers its own problems; they
// are raised in this order, so that the user sees the first kind of problem
// of the file, every line of it at once.

// Refuses the file when a record names an account that is not in the
// company's chart, or a synthetic one. The module writes whatever account it
// is given; such an entry never reaches a balance (balances read the
// analytic accounts of the chart), and the trial balance would stop adding
// up to zero.
class AccountCheck {
 public:
  AccountCheck(const Chart& chart, const std::string& file, int32_t empresa)
      : chart_(chart), problems_(file), empresa_(empresa) {}

  // Whether both accounts of `r` are analytic accounts of the chart.
  bool Check(const NumberedRecord& r) {
    bool good = true;
    const std::pair<const char*, const std::string*> fields[] = {
        {"first account field (positions 74-93)", &r.first},
        {"second account field (positions 94-113)", &r.second}};
    for (const auto& [field, account] : fields) {
      const auto found = chart_.find(*account);
      if (found == chart_.end()) {
        problems_.Add(r.line, fmt::format("{}: account {} is not in the chart of company {}", field,
                                          *account, empresa_));
        good = false;
      } else if (found->second.nivel != "A") {
        problems_.Add(r.line, fmt::format("{}: account {} is a synthetic account; entries go to "
                                          "the analytic accounts beneath it",
                                          field, *account));
        good = false;
      }
    }
    return good;
  }
  void RaiseIfAny() const { problems_.RaiseIfAny("nothing of the file was posted"); }

 private:
  const Chart& chart_;
  FileProblems problems_;
  int32_t empresa_;
};

// Where a side's division code stands in the record.
std::string DivisionCodeField(const NumberedRecord& r, const std::string& account,
                              bool code_in_account) {
  if (!code_in_account) return "division code (positions 13-16)";
  return account == r.first ? "first account field (positions 74-78)"
                            : "second account field (positions 94-98)";
}

// A record's division code is a cost centre. Refuses the file when a code
// that the division split keeps names no cost centre of the company (the
// entry would be analysed under a cost centre nobody defined). Warns of the
// codes the split drops where nobody would expect it: on an account whose
// division levels have no cost-centre level, the chart asking for a division
// the company has not set up (a fresh database defines none). The module
// drops them without a word. A balance-sheet account dropping the code is
// the split's design (cost centres analyse the result; interface files stamp
// a department on every record) and goes unremarked.
class DivisionCodeCheck {
 public:
  DivisionCodeCheck(Session& session, const Chart& chart, const std::string& file,
                    bool code_in_account)
      : session_(session),
        chart_(chart),
        file_(file),
        code_in_account_(code_in_account),
        types_(DivisionTypes(session)),
        problems_(file) {
    for (const CostCentre& c : CostCentres(session)) centres_.insert(c.code);
  }

  // `r` has passed the account check.
  void Check(const NumberedRecord& r) {
    struct Side {
      const std::string& account;
      const std::string& code;
      CostCentreFate fate;
    };
    const Side sides[] = {{r.debit, r.debit_code, FateOfCostCentre(chart_.at(r.debit), types_)},
                          {r.credit, r.credit_code, FateOfCostCentre(chart_.at(r.credit), types_)}};
    std::set<std::string> reported;  // a record's code, once
    for (const Side& side : sides) {
      if (side.code.empty()) continue;
      if (!side.fate.Kept()) {
        if (side.fate.no_cost_centre_level.empty()) continue;
        Lines& lines = dropped_[{side.account, side.fate.Why()}];
        if (lines.last == r.line) continue;
        lines.last = r.line;
        if (++lines.count <= kLinesShown) lines.shown.push_back(r.line);
      } else if (!centres_.count(std::stoi(side.code)) && reported.insert(side.code).second) {
        problems_.Add(r.line,
                      fmt::format("{}: {} is not a cost centre of company {}; define it "
                                  "with kvctb cost-centre-add {} DESCRIPTION",
                                  DivisionCodeField(r, side.account, code_in_account_), side.code,
                                  session_.Options().empresa, std::stoi(side.code)));
      }
    }
  }
  void RaiseIfAny() const { problems_.RaiseIfAny("nothing of the file was posted"); }

  // The warnings of the dropped codes, one per account and reason.
  std::vector<std::string> Warnings() const {
    std::vector<std::string> warnings;
    for (const auto& [key, lines] : dropped_) {
      std::string where =
          fmt::format("line{} {}", lines.count > 1 ? "s" : "", fmt::join(lines.shown, ", "));
      if (lines.count > kLinesShown)
        where += fmt::format(" and {} more", lines.count - kLinesShown);
      warnings.push_back(
          fmt::format("{}: {}: the division code is not kept on account {} (its "
                      "entries get no cost centre): {}",
                      file_, where, key.first, key.second));
    }
    return warnings;
  }

 private:
  static constexpr size_t kLinesShown = 10;
  // The lines of a dropped account: the first kLinesShown, and how many.
  struct Lines {
    std::vector<size_t> shown;
    size_t count = 0, last = 0;
  };

  Session& session_;
  const Chart& chart_;
  std::string file_;
  bool code_in_account_;
  std::map<int32_t, std::string> types_;
  std::set<int32_t> centres_;
  FileProblems problems_;
  std::map<std::pair<std::string, std::string>, Lines> dropped_;  // by account and reason
};

// The reminders of what to run again after changes in closed periods.
void PrintRunAgain(const ClosedPeriods& closed,
                   const std::set<std::chrono::year_month_day>& reopened) {
  for (const std::string& line : closed.RunAgain(reopened)) std::cerr << "kvctb: " << line << "\n";
}

void PrintWarnings(const std::vector<std::string>& warnings) {
  for (const std::string& w : warnings) std::cerr << "kvctb: " << w << "\n";
}

// Stops the posting when records of the file already stand in the journal:
// an entry for each side with the same month, day, account, amount and
// document. Posting a file twice is the commonest way to double a month's
// figures, and nothing in the journal would tell the copies apart later.
// A journal entry answers for one record only, so a file that holds a
// record twice, posted once before, has one duplicate. Holds the journal's
// entries of the file's months with the document, never the file's.
class DuplicateCheck {
 public:
  DuplicateCheck(Session& session, const std::string& file, std::string document)
      : session_(session), problems_(file), document_(std::move(document)) {}

  void Check(const NumberedRecord& r) {
    const RegistroInterface& reg = r.fields;
    const int32_t ano_mes = std::stoi(reg.ano_mes);
    auto month = posted_.find(ano_mes);
    if (month == posted_.end()) month = posted_.emplace(ano_mes, Posted(ano_mes)).first;
    const auto debit = month->second.find(Key(std::stoi(reg.dia), r.debit, 'D', reg.valor));
    const auto credit = month->second.find(Key(std::stoi(reg.dia), r.credit, 'C', reg.valor));
    if (debit == month->second.end() || credit == month->second.end() || debit->second == 0 ||
        credit->second == 0)
      return;
    --debit->second;
    --credit->second;
    problems_.Add(r.line, fmt::format("already in the journal: {} on day {} of {}, debit {}, "
                                      "credit {}, document {}",
                                      FormatAmount(reg.valor, false), reg.dia, ano_mes, r.debit,
                                      r.credit, document_.empty() ? "(none)" : document_));
  }
  void RaiseIfAny() const {
    problems_.RaiseIfAny(
        "nothing of the file was posted; to post these records again, give --allow-duplicates");
  }

 private:
  // "day|account|nature|cents" of an entry.
  static std::string Key(int dia, const std::string& conta, char natureza, double valor) {
    return fmt::format("{}|{}|{}|{}", dia, conta, natureza, std::llround(valor * 100));
  }

  // The journal's entries of a month with the document (or none), counted.
  std::map<std::string, int> Posted(int32_t ano_mes) {
    db::BoundParams params = CompanyParams(session_.Options());
    params.push_back({"ANO_MES", db::Value(ano_mes)});
    if (!document_.empty()) params.push_back({"DOCUMENTO", db::Value(std::stoi(document_))});
    std::map<std::string, int> month;
    for (const auto& row :
         session_.Connection()
             .Query(document_.empty() ? kSelectPostedWithoutDocument : kSelectPosted, params)
             .rows)
      ++month[Key(static_cast<int>(row.at(0).AsInteger()), Apara(row.at(1).AsString()),
                  Apara(row.at(2).AsString()).c_str()[0], row.at(3).AsFloat())];
    return month;
  }

  Session& session_;
  FileProblems problems_;
  std::string document_;
  std::map<int32_t, std::map<std::string, int>> posted_;
};

// Refuses the file when a record is dated in a closed period, unless
// `reopen`; keeps the closed dates it will post on (for the reminder of
// what to run again).
class ClosedPeriodCheck {
 public:
  ClosedPeriodCheck(Session& session, const std::string& file, bool reopen)
      : closed_(session), problems_(file), reopen_(reopen) {}

  void Check(const NumberedRecord& r) {
    const auto date = EntryDate(std::stoi(r.fields.ano_mes), std::stoi(r.fields.dia));
    const std::string why = closed_.Why(date);
    if (why.empty()) return;
    if (reopen_)
      reopened_.insert(date);
    else
      problems_.Add(r.line, why + "; give --reopen to post there all the same");
  }
  void RaiseIfAny() const { problems_.RaiseIfAny("nothing of the file was posted"); }

  void PrintRunAgain() const { cli::PrintRunAgain(closed_, reopened_); }

 private:
  ClosedPeriods closed_;
  FileProblems problems_;
  bool reopen_;
  std::set<std::chrono::year_month_day> reopened_;
};

int RunPost(const RunContext& ctx, const PostOptions& o, bool erp) {
  CheckedText("FILE", o.file, 4096);
  const std::string document =
      o.document.empty() ? "" : std::to_string(ParseInt("--document", o.document, 0, 999999999));
  const std::string division_dealership =
      o.division_dealership.empty()
          ? std::to_string(ctx.options.revenda)
          : std::to_string(ParseInt("--division-dealership", o.division_dealership, 0, 999999999));
  const bool code_in_account = !erp && o.code_in_account;
  RecordFile records(o.file, code_in_account, erp);

  Session session(ctx.options, ctx.trace);
  Chart chart;
  for (ChartLine& a : session.Chart()) chart[a.conta] = std::move(a);
  AccountCheck accounts(chart, o.file, ctx.options.empresa);
  DivisionCodeCheck division_codes(session, chart, o.file, code_in_account);
  DuplicateCheck duplicates(session, o.file, document);
  ClosedPeriodCheck closed(session, o.file, o.reopen);
  records.ForEach([&](const NumberedRecord& r) {
    if (!accounts.Check(r)) return;
    division_codes.Check(r);
    if (!o.allow_duplicates) duplicates.Check(r);
    closed.Check(r);
  });
  accounts.RaiseIfAny();
  division_codes.RaiseIfAny();
  duplicates.RaiseIfAny();
  closed.RaiseIfAny();

  TddmContabilidadeBD& dm = session.Module();
  const std::string empresa = std::to_string(ctx.options.empresa);
  const std::string revenda = std::to_string(ctx.options.revenda);
  Output out;
  // A file of a thousand records or more shows its progress; a smaller one
  // posts before anybody would look at a bar.
  constexpr size_t kProgressFrom = 1000;
  const size_t total = records.Records();
  size_t posted = 0;
  if (total >= kProgressFrom) session.Progress().Counted(0, total, "records");
  session.PrepareLongWrite();
  db::TransactionGuard transaction = BeginTransaction(dm);
  records.ForEach([&](const NumberedRecord& r) {
    try {
      if (erp) {
        int32_t origem = 0;
        dm.GravaLancamentoSAP(r.text, empresa, revenda, document, division_dealership, "C", false,
                              origem);
        dm.GravaLancamentoSAP(r.text, empresa, revenda, document, division_dealership, "D", false,
                              origem);
      } else {
        dm.GravaLancamento(r.text, empresa, revenda, document, division_dealership,
                           code_in_account);
      }
    } catch (const std::exception& e) {
      RethrowForLine(o.file, r.line, e, " (nothing of the file was posted)");
    }
    if (total >= kProgressFrom) session.Progress().Counted(++posted, total, "records");
    if (o.dry_run && o.list)
      out.rows.push_back({static_cast<int64_t>(r.line), r.fields.ano_mes, r.fields.dia, r.debit,
                          r.credit, Amount{r.fields.valor}});
  });
  const auto count = static_cast<int64_t>(total);
  if (o.dry_run) {
    if (!transaction.Rollback()) throw std::runtime_error("the dry run could not be rolled back");
  } else {
    CommitTransaction(session, transaction, "the entries");
    // A server that planned with the statistics of a journal a thousand
    // records smaller would read the next closing's entries the slow way.
    if (total >= kProgressFrom) session.RefreshStatistics();
  }
  records.AnnounceApostrophes();
  PrintWarnings(division_codes.Warnings());
  if (o.dry_run && o.list) {
    out.columns = {"line", "month", "day", "debit", "credit", "amount"};
  } else {
    out.single = true;
    out.columns = {"file", "records", "entries"};
    out.rows.push_back({o.file, count, count * 2});
  }
  if (o.dry_run)
    session.Progress().Status(
        fmt::format("dry run: {} records would be posted; nothing was written", count));
  else
    closed.PrintRunAgain();
  PrintOutput(ctx.options, out);
  return kExitOk;
}

void AddPost(CLI::App& app, Commands& commands, bool erp) {
  auto o = std::make_shared<PostOptions>();
  CLI::App* sub = app.add_subcommand(
      erp ? "post-erp" : "post",
      erp ? "Post every record of FILE as a pair of entries through GravaLancamentoSAP\n"
            "(credit then debit, linked), all in one transaction.\n"
            "Example: kvctb post-erp erp.txt --document 4711"
          : "Post every fixed-width record of FILE ('-' for standard input) through\n"
            "GravaLancamento, all in one transaction. Every record is checked first (its\n"
            "fields, both accounts analytic accounts of the chart, its division code a\n"
            "cost centre of cost-centres where an entry keeps it): each bad one is\n"
            "printed as FILE:LINE: message and nothing is posted.\n"
            "Example: kvctb post entries.txt --document 4711 --dry-run");
  sub->add_option("FILE", o->file, "The record file, 133 characters a line. Example: entries.txt")
      ->required();
  sub->add_option("--document", o->document,
                  "Document number written in the entries. Example: --document 4711");
  sub->add_option("--division-dealership", o->division_dealership,
                  "Dealership of the division rows (default: --dealership).\n"
                  "Example: --division-dealership 3");
  if (!erp)
    sub->add_flag("--code-in-account", o->code_in_account,
                  "The account fields carry a 5-character division code in front.");
  sub->add_flag("--dry-run", o->dry_run,
                "Post, say how many records would have been posted, and roll back.");
  sub->add_flag("--list", o->list,
                "With --dry-run, list every record that would have been posted\n"
                "(line, month, day, debit, credit, amount) instead of the count; the list\n"
                "is held in memory until the end.")
      ->needs("--dry-run");
  sub->add_flag("--reopen", o->reopen,
                "Post records dated in a closed period (on or before the last result\n"
                "calculation, or in a year already closed); kvctb then says which closing\n"
                "to run again.");
  sub->add_flag("--allow-duplicates", o->allow_duplicates,
                "Post records that already stand in the journal (same month, day, accounts,\n"
                "amount and document); without it such a file is refused.");
  commands.push_back({sub, [o, erp](const RunContext& ctx) { return RunPost(ctx, *o, erp); }});
}

}  // namespace

void AddEntryCommands(CLI::App& app, Commands& commands) {
  AddPost(app, commands, false);
  AddPost(app, commands, true);

  struct DeleteOptions {
    std::string entry, month, day;
    bool reopen = false;
  };
  auto d = std::make_shared<DeleteOptions>();
  CLI::App* del = app.add_subcommand(
      "delete-entry",
      "Delete an entry of the company and dealership with the entries generated from it,\n"
      "their division rows and summarised balances (ExcluiLancamentoSelecionado).\n"
      "Example: kvctb delete-entry 15 --month 202403 --day 12");
  del->add_option("ENTRY", d->entry, "Entry number. Example: 15")->required();
  del->add_option("--month", d->month, "Month of the entry, YYYYMM. Example: --month 202403")
      ->required();
  del->add_option("--day", d->day, "Day of the entry. Example: --day 12")->required();
  del->add_flag("--reopen", d->reopen,
                "Delete an entry dated in a closed period; kvctb then says which closing to\n"
                "run again.");
  commands.push_back(
      {del, [d](const RunContext& ctx) {
         const int32_t requested = ParseInt("ENTRY", d->entry, 1, 999999999);
         const int32_t month = ParseMonth("--month", d->month);
         std::string day = ParseDay("--day", d->day);
         Session session(ctx.options, ctx.trace);
         if (!session.EntryExists(month, requested, std::stoi(day)))
           throw std::runtime_error(
               fmt::format("there is no entry {} on day {} of month {}", requested, day, month));
         // The module deletes the selected entry with the entries generated
         // from it; selected on its generated half, it would leave the other
         // half standing and the journal unbalanced. The pair goes whole.
         int32_t entry = requested;
         if (const auto origin = session.EntryOrigin(month, requested)) {
           entry = origin->lancamento;
           day = fmt::format("{:02}", origin->dia);
           std::cerr << fmt::format(
               "kvctb: entry {} was generated from entry {} (day {} of month {}); deleting entry "
               "{} and every entry generated from it\n",
               requested, entry, day, month, entry);
         }
         // An entry that is not one half of a posted pair (the result
         // calculation and the annual closing write their entries and
         // counter-entries unlinked) cannot go without its other half.
         if (!session.HasGeneratedEntries(month, entry))
           throw std::runtime_error(fmt::format(
               "entry {} is not one half of a posted pair (the result calculation and the annual "
               "closing write such entries): deleting it alone would unbalance the journal",
               entry));
         const ClosedPeriods closed(session);
         const auto date = EntryDate(month, std::stoi(day));
         const std::string why = closed.Why(date);
         if (!why.empty() && !d->reopen)
           throw std::runtime_error(fmt::format(
               "entry {} cannot be deleted: {}; give --reopen to delete it all the same", entry,
               why));
         session.Module().ExcluiLancamentoSelecionado(entry, std::to_string(month), day,
                                                      &session.Progress());
         if (session.EntryExists(month, entry))
           throw std::runtime_error(fmt::format(
               "entry {} was not deleted (the module rolled the deletion back)", entry));
         if (!why.empty()) PrintRunAgain(closed, {date});
         Output out;
         out.single = true;
         out.columns = {"entry", "month", "deleted"};
         out.rows.push_back({int64_t{entry}, int64_t{month}, true});
         PrintOutput(ctx.options, out);
         return kExitOk;
       }});

  struct InvoiceOptions {
    std::string entry, month;
  };
  auto inv = std::make_shared<InvoiceOptions>();
  CLI::App* invs = app.add_subcommand(
      "invoice-text",
      "The free-text lines of the invoice behind an entry (BuscaItensNotaDescricaoLivre),\n"
      "one a row; exit code 1 when there are none.\n"
      "Example: kvctb invoice-text 1 --month 202401");
  invs->add_option("ENTRY", inv->entry, "Entry number. Example: 1")->required();
  invs->add_option("--month", inv->month, "Month of the entry, YYYYMM. Example: --month 202401")
      ->required();
  commands.push_back({invs, [inv](const RunContext& ctx) {
                        const int32_t entry = ParseInt("ENTRY", inv->entry, 1, 999999999);
                        const int32_t month = ParseMonth("--month", inv->month);
                        Session session(ctx.options, ctx.trace);
                        const std::string text = session.Module().BuscaItensNotaDescricaoLivre(
                            ctx.options.empresa, ctx.options.revenda, month, entry, "");
                        if (text.empty())
                          throw std::runtime_error(fmt::format(
                              "entry {} of month {} has no invoice text", entry, month));
                        Output out;
                        out.columns = {"line", "text"};
                        std::string line;
                        int64_t n = 0;
                        for (char c : text) {
                          if (c == '\r') {
                            out.rows.push_back({++n, line});
                            line.clear();
                          } else {
                            line += c;
                          }
                        }
                        if (!line.empty()) out.rows.push_back({++n, line});
                        PrintOutput(ctx.options, out);
                        return kExitOk;
                      }});
}

}  // namespace kvc::cli
