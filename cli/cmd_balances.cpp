// The balance commands: balance (BuscaSaldoConta), movement
// (CalculaMovimentoContaAnaliticaPeriodo), day-movement
// (BuscaSaldoContaPeriodo), opening (CalculaSaldoAnteriorContaAnalitica) and
// trial-balance (the general form of BuscaSaldoConta over the whole chart),
// with the division filters they share.
#include <set>
#include <stdexcept>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "accounting/reports/financial_statements.h"
#include "accounting/reports/trial_balance.h"
#include "cli/commands.h"
#include "cli/validate.h"

namespace kvc::cli {
namespace {

// Which of the shared options a command takes.
enum FilterSet : unsigned {
  kSingles = 1,         // --cost-centre ... --modality, --exclude-dealerships
  kCostCentreList = 2,  // --cost-centres
  kBalanceOnly = 4,     // --monthly, --general, --filter
  kLevel = 8,           // --level
  kByDivision = 16,     // --by-division
};

struct FilterOptions {
  std::string cost_centre, cost_centres, source, category, workshop_section, division_dealership,
      item_type, modality, exclude_dealerships, filter, level;
  bool monthly = false, general = false, by_division = false;
};

// The checked filters, with the module's sentinels (-1, empty) for none.
struct Filters {
  int32_t centro_custo = -1, fonte = -1, categoria = -1, secao_oficina = -1, revenda_divisao = -1;
  std::string tipo_item, modalidade, centros_custo, revendas_desconsiderar, filtro, nivel;
  bool mensal = false, geral = false, por_divisao = false;
};

int32_t Optional(const std::string& option, const std::string& text) {
  return text.empty() ? -1 : ParseInt(option, text, 0, 999999999);
}

Filters CheckFilters(const FilterOptions& o) {
  Filters f;
  f.centro_custo = Optional("--cost-centre", o.cost_centre);
  f.fonte = Optional("--source", o.source);
  f.categoria = Optional("--category", o.category);
  f.secao_oficina = Optional("--workshop-section", o.workshop_section);
  f.revenda_divisao = Optional("--division-dealership", o.division_dealership);
  if (!o.item_type.empty()) f.tipo_item = ParseItemType("--item-type", o.item_type);
  if (!o.modality.empty()) f.modalidade = ParseModality("--modality", o.modality);
  if (!o.cost_centres.empty())
    f.centros_custo = JoinList(ParseNumberList("--cost-centres", o.cost_centres));
  f.revendas_desconsiderar = ExclusionList("--exclude-dealerships", o.exclude_dealerships);
  if (!o.filter.empty()) f.filtro = ParseFilter("--filter", o.filter);
  if (!o.level.empty()) {
    if (o.level != "A" && o.level != "S")
      throw UsageError("--level",
                       fmt::format("'{}' is neither A nor S", CheckedText("--level", o.level)));
    f.nivel = o.level;
  }
  f.mensal = o.monthly;
  f.geral = o.general;
  f.por_divisao = o.by_division;
  return f;
}

// The filters as the reporting layer takes them.
reports::BalanceFilters ReportFilters(const Filters& f) {
  reports::BalanceFilters r;
  r.centro_custo = f.centro_custo;
  r.fonte = f.fonte;
  r.categoria = f.categoria;
  r.secao_oficina = f.secao_oficina;
  r.revenda_divisao = f.revenda_divisao;
  r.tipo_item = f.tipo_item;
  r.modalidade = f.modalidade;
  r.centros_custo = f.centros_custo;
  r.revendas_desconsiderar = f.revendas_desconsiderar;
  r.filtro = f.filtro;
  return r;
}

// The commands with --by-division read the division values only in that
// mode; without it they give the whole account's figure and the module
// ignores the division filters (all but the dealership exclusion, and the
// SPED marker of --modality, which adds the second book). A filter the
// command would ignore is a usage error, so that nobody reads a total as a
// cost centre's.
void RequireByDivisionForDivisionFilters(const FilterOptions& o) {
  if (o.by_division) return;
  const std::pair<const char*, const std::string*> filters[] = {
      {"--cost-centre", &o.cost_centre},
      {"--source", &o.source},
      {"--category", &o.category},
      {"--workshop-section", &o.workshop_section},
      {"--division-dealership", &o.division_dealership},
      {"--item-type", &o.item_type}};
  for (const auto& [option, value] : filters)
    if (!value->empty())
      throw UsageError(option,
                       "takes effect only with --by-division (without it the command gives the "
                       "whole account's figure)");
  if (!o.modality.empty() && o.modality != "SPED")
    throw UsageError("--modality",
                     "takes effect only with --by-division, or as SPED (which adds the second "
                     "book)");
}

void AddFilterOptions(CLI::App* sub, FilterOptions& o, unsigned set) {
  if (set & kSingles) {
    sub->add_option("--cost-centre", o.cost_centre,
                    "Only this cost centre. Example: --cost-centre 4");
    sub->add_option("--source", o.source, "Only this source. Example: --source 2");
    sub->add_option("--category", o.category, "Only this category. Example: --category 1");
    sub->add_option("--workshop-section", o.workshop_section,
                    "Only this workshop section. Example: --workshop-section 3");
    sub->add_option("--division-dealership", o.division_dealership,
                    "Only division rows of this dealership. Example: --division-dealership 2");
    sub->add_option("--item-type", o.item_type,
                    "Only this item type (one letter). Example: --item-type P");
    sub->add_option("--modality", o.modality,
                    "Only this modality (one letter), or SPED to add the second book.\n"
                    "Example: --modality V");
    sub->add_option("--exclude-dealerships", o.exclude_dealerships,
                    "Leave out the division rows of these dealerships, numbers separated by\n"
                    "commas. Example: --exclude-dealerships 3,7");
  }
  if (set & kCostCentreList)
    sub->add_option("--cost-centres", o.cost_centres,
                    "Only these cost centres, numbers separated by commas.\n"
                    "Example: --cost-centres 1,4,5");
  if (set & kBalanceOnly) {
    sub->add_flag("--monthly", o.monthly,
                  "Read the movement from the monthly balance tables (CTB_SALANT_MES and\n"
                  "CTB_SALANT_DIVISAO_MES: net movement per account and month, kept by other\n"
                  "parts of the suite or filled by kvctb monthly-build) instead of the journal\n"
                  "(SaldoMensal); refused for months the tables do not cover.");
    sub->add_flag("--general", o.general, "Answer through the module's cached (general) variant.");
    sub->add_option("--filter", o.filter,
                    "An extra condition on the journal's columns, {$ALIAS$}.COLUMN for the\n"
                    "alias; AND, OR, NOT, IS [NOT] NULL, IN, BETWEEN, comparisons, numbers and\n"
                    "simple 'text'. Example: --filter \"HISTORICO_PADRAO in (10, 11)\"");
  }
  if (set & kLevel)
    sub->add_option("--level", o.level,
                    "A (analytic) or S (synthetic); read from the chart by default.\n"
                    "Example: --level S");
  if (set & kByDivision)
    sub->add_flag("--by-division", o.by_division,
                  "For the one division combination given by the filters (PorDivisao).");
}

// The level of an account, from --level or the chart; a missing account is
// an error.
std::string Level(Session& session, const std::string& conta, const std::string& given) {
  if (!given.empty()) return given;
  const auto nivel = session.AccountLevel(conta);
  if (!nivel) throw std::runtime_error(fmt::format("account {} is not in the chart", conta));
  return *nivel;
}

void RequireAnalytic(Session& session, const std::string& conta) {
  if (Level(session, conta, "") != "A")
    throw std::runtime_error(
        fmt::format("account {} is synthetic; this command takes an analytic "
                    "account",
                    conta));
}

Output Single(std::vector<std::string> columns, std::vector<Cell> row) {
  Output out;
  out.single = true;
  out.columns = std::move(columns);
  out.rows.push_back(std::move(row));
  return out;
}

// The monthly balance tables: the net movement of each account and month,
// and of each division combination, which the balance reads with --monthly
// instead of the journal. Other parts of the suite keep them; monthly-build
// fills them from the journal for a range of months.
constexpr char kDeleteMonthly[] =
    "delete from CTB_SALANT_MES where EMPRESA = :EMPRESA and REVENDA = :REVENDA and ANO_MES "
    "between :DE and :ATE";
constexpr char kDeleteMonthlyDivision[] =
    "delete from CTB_SALANT_DIVISAO_MES where EMPRESA = :EMPRESA and REVENDA = :REVENDA and "
    "ANO_MES between :DE and :ATE";
constexpr char kInsertMonthly[] =
    "insert into CTB_SALANT_MES (EMPRESA, REVENDA, CONTA, ANO_MES, SALDO) select EMPRESA, "
    "REVENDA, CONTA, ANO_MES, sum(case when NATUREZA = 'D' then VAL_LANCAMENTO else "
    "-VAL_LANCAMENTO end) from CTB_LANCAMENTO where EMPRESA = :EMPRESA and REVENDA = :REVENDA "
    "and ANO_MES between :DE and :ATE group by EMPRESA, REVENDA, CONTA, ANO_MES";
constexpr char kInsertMonthlyDivision[] =
    "insert into CTB_SALANT_DIVISAO_MES (EMPRESA, REVENDA, CONTA, ANO_MES, REVENDA_DIVISAO, "
    "CENTRO_CUSTO, FONTE, CATEGORIA, SECAO_OFICINA, TIPO_ITEM, MODALIDADE_OPERACAO, SALDO) "
    "select l.EMPRESA, l.REVENDA, l.CONTA, l.ANO_MES, d.REVENDA_DIVISAO, d.CENTRO_CUSTO, "
    "d.FONTE, d.CATEGORIA, d.SECAO_OFICINA, d.TIPO_ITEM, d.MODALIDADE_OPERACAO, sum(case when "
    "l.NATUREZA = 'D' then d.VAL_DIVISAO else -d.VAL_DIVISAO end) from CTB_LANCAMENTO l, "
    "CTB_LANCAMENTO_DIVIDIDO d where d.EMPRESA = l.EMPRESA and d.REVENDA = l.REVENDA and "
    "d.ANO_MES = l.ANO_MES and d.LANCAMENTO = l.LANCAMENTO and l.EMPRESA = :EMPRESA and "
    "l.REVENDA = :REVENDA and l.ANO_MES between :DE and :ATE group by l.EMPRESA, l.REVENDA, "
    "l.CONTA, l.ANO_MES, d.REVENDA_DIVISAO, d.CENTRO_CUSTO, d.FONTE, d.CATEGORIA, "
    "d.SECAO_OFICINA, d.TIPO_ITEM, d.MODALIDADE_OPERACAO";
// The months of a range that the monthly table holds rows for, and those
// that the journal holds entries in.
constexpr char kMonthsCovered[] =
    "select distinct ANO_MES from CTB_SALANT_MES where EMPRESA = :EMPRESA and REVENDA = "
    ":REVENDA and ANO_MES between :DE and :ATE";
constexpr char kMonthsWithEntries[] =
    "select distinct ANO_MES from CTB_LANCAMENTO where EMPRESA = :EMPRESA and REVENDA = "
    ":REVENDA and ANO_MES between :DE and :ATE";

db::BoundParams RangeParams(const GlobalOptions& options, int32_t from, int32_t to) {
  db::BoundParams p = CompanyParams(options);
  p.push_back({"DE", db::Value(from)});
  p.push_back({"ATE", db::Value(to)});
  return p;
}

// Whether the annual closing of a year has written carried-forward rows.
constexpr char kCountCarriedForward[] =
    "select count(*) from CTB_SALDO_ANTERIOR where EMPRESA = :EMPRESA and REVENDA = :REVENDA and "
    "ANO = :ANO";

// A balance with --monthly reads the movement from January to the month
// from the monthly tables, and from January of the year before when that
// year has no carried-forward balances (the balance then starts from the
// movement of both years): refused when a month of that range with entries
// in the journal has no row there, since the answer would silently leave its
// movement out. A month without entries has no movement to leave out (and
// monthly-build writes no row for it).
void RequireMonthlyTables(Session& session, int32_t month) {
  int32_t from = month / 100 * 100 + 1;
  db::BoundParams year_before = CompanyParams(session.Options());
  year_before.push_back({"ANO", db::Value(month / 100 - 1)});
  const bool carried =
      session.Connection().Query(kCountCarriedForward, year_before).rows.at(0).at(0).AsInteger() >
      0;
  if (month % 100 == 0) {  // the opening balance: the year before's movement, when not carried
    if (carried) return;
    month -= 100 - 12;
  }
  if (!carried) from -= 100;
  const db::BoundParams range = RangeParams(session.Options(), from, month);
  std::set<int64_t> covered;
  for (const auto& row : session.Connection().Query(kMonthsCovered, range).rows)
    covered.insert(row.at(0).AsInteger());
  std::set<int64_t> missing;
  for (const auto& row : session.Connection().Query(kMonthsWithEntries, range).rows)
    if (!covered.count(row.at(0).AsInteger())) missing.insert(row.at(0).AsInteger());
  if (!missing.empty())
    throw std::runtime_error(fmt::format(
        "--monthly reads the movement of {} to {} from the monthly balance tables, which hold "
        "nothing for {}: fill them from the journal with kvctb monthly-build --from {} --to {}",
        from, month, fmt::join(missing, ", "), from, month));
}

struct AccountOptions {
  std::string account, month, from, to, from_day, to_day;
  FilterOptions filters;
};

}  // namespace

void AddBalanceCommands(CLI::App& app, Commands& commands) {
  // ---- balance ----
  auto b = std::make_shared<AccountOptions>();
  CLI::App* balance = app.add_subcommand(
      "balance",
      "The balance of an account at the end of a month (BuscaSaldoConta; a synthetic\n"
      "account as the sum of the analytic accounts beneath it).\n"
      "Example: kvctb balance 1.1.1.01 --month 202406 --cost-centres 1,2");
  balance->add_option("ACCOUNT", b->account, "Account code. Example: 1.1.1.01")->required();
  balance
      ->add_option("--month", b->month,
                   "Month YYYYMM (month 00: the opening balance of the year).\n"
                   "Example: --month 202406")
      ->required();
  AddFilterOptions(balance, b->filters, kSingles | kCostCentreList | kBalanceOnly | kLevel);
  commands.push_back({balance, [b](const RunContext& ctx) {
                        const std::string conta = ParseAccount("ACCOUNT", b->account);
                        const int32_t month = ParseMonth("--month", b->month, true);
                        const Filters f = CheckFilters(b->filters);
                        Session session(ctx.options, ctx.trace);
                        const std::string nivel = Level(session, conta, f.nivel);
                        if (f.mensal) RequireMonthlyTables(session, month);
                        double saldo = 0;
                        session.Module().BuscaSaldoConta(
                            ctx.options.empresa, ctx.options.revenda, month, 0, 0, f.centro_custo,
                            f.fonte, f.categoria, f.secao_oficina, f.revenda_divisao, f.tipo_item,
                            f.modalidade, conta, nivel, f.centros_custo, saldo, f.geral, f.mensal,
                            f.filtro, f.revendas_desconsiderar);
                        PrintOutput(ctx.options, Single({"account", "month", "balance"},
                                                        {conta, int64_t{month}, Amount{saldo}}));
                        return kExitOk;
                      }});

  // ---- movement ----
  auto m = std::make_shared<AccountOptions>();
  CLI::App* movement = app.add_subcommand(
      "movement",
      "The net movement (debits minus credits) of an analytic account over a range of\n"
      "months (CalculaMovimentoContaAnaliticaPeriodo).\n"
      "Example: kvctb movement 3.1.1.01 --from 202401 --to 202406 --by-division --cost-centre 2");
  movement->add_option("ACCOUNT", m->account, "Analytic account code. Example: 3.1.1.01")
      ->required();
  movement->add_option("--from", m->from, "First month, YYYYMM. Example: --from 202401")
      ->required();
  movement->add_option("--to", m->to, "Last month, YYYYMM. Example: --to 202406")->required();
  AddFilterOptions(movement, m->filters, kSingles | kByDivision);
  commands.push_back(
      {movement, [m](const RunContext& ctx) {
         const std::string conta = ParseAccount("ACCOUNT", m->account);
         const int32_t from = ParseMonth("--from", m->from);
         const int32_t to = ParseMonth("--to", m->to);
         if (to < from) throw UsageError("--to", "before --from");
         const Filters f = CheckFilters(m->filters);
         RequireByDivisionForDivisionFilters(m->filters);
         Session session(ctx.options, ctx.trace);
         RequireAnalytic(session, conta);
         const double v = session.Module().CalculaMovimentoContaAnaliticaPeriodo(
             ctx.options.empresa, ctx.options.revenda, from, to, f.centro_custo, f.fonte,
             f.categoria, f.secao_oficina, f.revenda_divisao, f.tipo_item, f.modalidade, conta,
             f.por_divisao, "", false, f.revendas_desconsiderar);
         PrintOutput(ctx.options, Single({"account", "from", "to", "movement"},
                                         {conta, int64_t{from}, int64_t{to}, Amount{v}}));
         return kExitOk;
       }});

  // ---- day-movement ----
  auto d = std::make_shared<AccountOptions>();
  CLI::App* day = app.add_subcommand(
      "day-movement",
      "The net movement of an account between two days of a month (BuscaSaldoContaPeriodo;\n"
      "a synthetic account as the sum beneath it).\n"
      "Example: kvctb day-movement 3 --month 202403 --from-day 1 --to-day 15");
  day->add_option("ACCOUNT", d->account, "Account code. Example: 3.1.1.01")->required();
  day->add_option("--month", d->month, "Month, YYYYMM. Example: --month 202403")->required();
  day->add_option("--from-day", d->from_day, "First day. Example: --from-day 1")->required();
  day->add_option("--to-day", d->to_day, "Last day. Example: --to-day 15")->required();
  AddFilterOptions(day, d->filters, kSingles | kCostCentreList | kLevel);
  commands.push_back(
      {day, [d](const RunContext& ctx) {
         const std::string conta = ParseAccount("ACCOUNT", d->account);
         const int32_t month = ParseMonth("--month", d->month);
         const std::string from = ParseDay("--from-day", d->from_day);
         const std::string to = ParseDay("--to-day", d->to_day);
         if (to < from) throw UsageError("--to-day", "before --from-day");
         const Filters f = CheckFilters(d->filters);
         Session session(ctx.options, ctx.trace);
         const std::string nivel = Level(session, conta, f.nivel);
         double saldo = 0;
         session.Module().BuscaSaldoContaPeriodo(
             ctx.options.empresa, ctx.options.revenda, month, std::stoi(from), std::stoi(to),
             f.centro_custo, f.fonte, f.categoria, f.secao_oficina, f.revenda_divisao, f.tipo_item,
             f.modalidade, conta, nivel, f.centros_custo, saldo, false, f.revendas_desconsiderar);
         PrintOutput(ctx.options, Single({"account", "month", "from_day", "to_day", "movement"},
                                         {conta, int64_t{month}, int64_t{std::stoi(from)},
                                          int64_t{std::stoi(to)}, Amount{saldo}}));
         return kExitOk;
       }});

  // ---- opening ----
  auto op = std::make_shared<AccountOptions>();
  CLI::App* opening = app.add_subcommand("opening",
                                         "The balance an analytic account carries into a month\n"
                                         "(CalculaSaldoAnteriorContaAnalitica).\n"
                                         "Example: kvctb opening 1.1.1.01 --month 202407");
  opening->add_option("ACCOUNT", op->account, "Analytic account code. Example: 1.1.1.01")
      ->required();
  opening->add_option("--month", op->month, "Month, YYYYMM. Example: --month 202407")->required();
  AddFilterOptions(opening, op->filters, kSingles | kByDivision);
  commands.push_back({opening, [op](const RunContext& ctx) {
                        const std::string conta = ParseAccount("ACCOUNT", op->account);
                        const int32_t month = ParseMonth("--month", op->month);
                        const Filters f = CheckFilters(op->filters);
                        RequireByDivisionForDivisionFilters(op->filters);
                        Session session(ctx.options, ctx.trace);
                        RequireAnalytic(session, conta);
                        const double v = session.Module().CalculaSaldoAnteriorContaAnalitica(
                            ctx.options.empresa, ctx.options.revenda, month, f.centro_custo,
                            f.fonte, f.categoria, f.secao_oficina, f.revenda_divisao, f.tipo_item,
                            f.modalidade, conta, f.por_divisao, false, "", false,
                            f.revendas_desconsiderar);
                        PrintOutput(ctx.options, Single({"account", "month", "balance"},
                                                        {conta, int64_t{month}, Amount{v}}));
                        return kExitOk;
                      }});

  // ---- trial-balance ----
  struct TrialOptions {
    std::string month, depth;
    TrialBalanceLayout layout;
    FilterOptions filters;
  };
  auto t = std::make_shared<TrialOptions>();
  CLI::App* trial = app.add_subcommand(
      "trial-balance",
      "With --month: every account of the chart in code order with its parent, level and\n"
      "balance at the end of the month, synthetic accounts as the sums beneath them, answered\n"
      "through the general (cached) variant of BuscaSaldoConta. As a table it ends with the\n"
      "total of the top-level accounts, zero when the books balance.\n"
      "With --from and --to (months of one year): the verification trial balance, each\n"
      "account with its level, opening balance, debits, credits and closing balance, a totals\n"
      "line, and whether debits equal credits and the closing balances sum to zero.\n"
      "Example: kvctb --format csv trial-balance --month 202412\n"
      "Example: kvctb trial-balance --from 202401 --to 202412 --depth 3 --hide-zero");
  trial->add_option("--month", t->month, "Month, YYYYMM. Example: --month 202412");
  trial->add_option("--from", t->layout.from,
                    "First month of the four-column form, YYYYMM. Example: --from 202401");
  trial->add_option("--to", t->layout.to,
                    "Last month of the four-column form, YYYYMM, in the year of --from.\n"
                    "Example: --to 202412");
  trial->add_flag("--hide-zero", t->layout.hide_zero,
                  "Four-column form: leave out accounts whose four figures are all zero.");
  trial->add_option("--depth", t->depth,
                    "Four-column form: show the chart down to this level (1 for the top-level\n"
                    "accounts). Example: --depth 2");
  AddFilterOptions(trial, t->filters, kSingles | kCostCentreList | kBalanceOnly);
  commands.push_back(
      {trial, [t](const RunContext& ctx) {
         const bool four_columns = !t->layout.from.empty() || !t->layout.to.empty();
         if (four_columns) {
           if (!t->month.empty())
             throw UsageError("--month", "goes without --from and --to (two forms of the report)");
           if (t->layout.from.empty()) throw UsageError("--from", "is needed with --to");
           if (t->layout.to.empty()) throw UsageError("--to", "is needed with --from");
           if (t->filters.monthly)
             throw UsageError("--monthly",
                              "has no debits and credits to give the four-column form (the "
                              "monthly tables hold net movement)");
           if (t->filters.general)
             throw UsageError("--general", "is how the four-column form always reads");
           TrialBalanceLayout layout = t->layout;
           if (!t->depth.empty()) layout.depth = ParseInt("--depth", t->depth, 1, 99);
           const Filters f = CheckFilters(t->filters);
           const reports::BalanceFilters filters = ReportFilters(f);
           Session session(ctx.options, ctx.trace);
           return PrintFourColumnTrialBalance(ctx, session, layout, filters);
         }
         if (t->month.empty()) throw UsageError("--month", "is needed (or --from and --to)");
         if (ctx.options.output_format == Format::kHtml)
           throw UsageError("--format", "html needs the four-column form (--from and --to)");
         if (t->layout.hide_zero || !t->depth.empty())
           throw UsageError(t->layout.hide_zero ? "--hide-zero" : "--depth",
                            "belongs to the four-column form (--from and --to)");
         const int32_t month = ParseMonth("--month", t->month, true);
         const Filters f = CheckFilters(t->filters);
         Session session(ctx.options, ctx.trace);
         // Each analytic balance once; the synthetic accounts as the sums
         // beneath them (BuscaSaldoConta would walk the chart again for each).
         const std::vector<reports::ChartAccount> chart =
             reports::ReadChart(session.Connection(), ctx.options.empresa, ctx.options.revenda);
         const reports::BalanceFilters filters = ReportFilters(f);
         const std::vector<double> balances =
             reports::BalancesAt(session.Module(), chart, ctx.options.empresa, ctx.options.revenda,
                                 month, filters, f.mensal);
         Output out;
         out.columns = {"account", "parent", "level", "balance"};
         double roots = 0;
         for (size_t i = 0; i < chart.size(); ++i) {
           const reports::ChartAccount& a = chart[i];
           out.rows.push_back({a.conta, a.superiora.empty() ? Cell{Null{}} : Cell{a.superiora},
                               a.nivel, Amount{balances[i]}});
           if (a.Root()) roots += balances[i];
         }
         // A table for people ends with the total of the top-level accounts,
         // zero when the books balance; CSV and JSON stay one row per account.
         if (ctx.options.output_format == Format::kTable)
           out.rows.push_back({std::string("total"), Null{}, Null{}, Amount{roots}});
         PrintOutput(ctx.options, out);
         return kExitOk;
       }});

  // ---- monthly-build ----
  struct RangeOptions {
    std::string from, to;
  };
  auto mb = std::make_shared<RangeOptions>();
  CLI::App* monthly = app.add_subcommand(
      "monthly-build",
      "Fill the monthly balance tables that balance --monthly reads (CTB_SALANT_MES and\n"
      "CTB_SALANT_DIVISAO_MES: the net movement of each account, and of each division\n"
      "combination, per month) from the journal, for a range of months, in one transaction.\n"
      "Example: kvctb monthly-build --from 202401 --to 202412");
  monthly->add_option("--from", mb->from, "First month, YYYYMM. Example: --from 202401")
      ->required();
  monthly->add_option("--to", mb->to, "Last month, YYYYMM. Example: --to 202412")->required();
  commands.push_back(
      {monthly, [mb](const RunContext& ctx) {
         const int32_t from = ParseMonth("--from", mb->from);
         const int32_t to = ParseMonth("--to", mb->to);
         if (to < from) throw UsageError("--to", "before --from");
         Session session(ctx.options, ctx.trace);
         const db::BoundParams p = RangeParams(ctx.options, from, to);
         db::Connection& c = session.Connection();
         long long rows = 0, division_rows = 0;
         InTransaction(session, "the monthly balance tables", [&] {
           c.Execute(kDeleteMonthly, p);
           c.Execute(kDeleteMonthlyDivision, p);
           rows = c.Execute(kInsertMonthly, p);
           division_rows = c.Execute(kInsertMonthlyDivision, p);
           return true;
         });
         PrintOutput(ctx.options,
                     Single({"from", "to", "account_months", "division_rows"},
                            {int64_t{from}, int64_t{to}, int64_t{rows}, int64_t{division_rows}}));
         return kExitOk;
       }});
}

}  // namespace kvc::cli
