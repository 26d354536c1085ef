// The reports' figures against the module's own balances and the journal:
// the four-column trial balance and the general ledger on random charts and
// books, on every backend. KVC_REPORT_SEED=N replays one seed.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <fmt/format.h>

#include "accounting/reports/financial_statements.h"
#include "accounting/reports/general_ledger.h"
#include "accounting/reports/trial_balance.h"
#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

using reports::ChartAccount;

class ReportTest : public ModuleTest {
 protected:
  // A tree of accounts under four groups, 2 to 4 levels deep, and balanced
  // pairs of entries (a debit and a credit of one amount) over 2023 and
  // 2024, most with a division row of cost centre 1 or 2 for the whole
  // amount; with `carried`, carried-forward rows of 2023 that sum to zero.
  void Popula(unsigned seed, bool carried) {
    std::mt19937 rng(seed);
    DadosDeTeste dados = DadosDeTeste(*raw_).ComValores(EscritaDeValor::kMontante);
    auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    auto add = [&](auto&& self, const std::string& code, const std::string& parent,
                   int depth) -> void {
      const bool leaf = depth >= 2 && (depth == 4 || pick(0, 2) == 0);
      dados.Conta(code, {.superiora = NuloSeVazio(parent),
                         .nivel = leaf ? "A" : "S",
                         .descricao = "CONTA " + code});
      if (leaf) {
        analiticas_.push_back(code);
        return;
      }
      for (int i = 1, n = pick(1, 3); i <= n; ++i)
        self(self, fmt::format("{}.{}", code, i), code, depth + 1);
    };
    for (const char* group : {"1", "2", "3", "4"}) add(add, group, "", 1);
    const int n = static_cast<int>(analiticas_.size());
    raw_->Begin(db::Isolation::kReadCommitted);
    int lancamento = 0, sequencia = 0;
    for (int k = 0; k < 120; ++k) {
      const int ano_mes = (pick(0, 2) ? 2024 : 2023) * 100 + pick(1, 12);
      const double valor = pick(1, 500000) / 100.0;
      const int dia = pick(1, 28);
      const int centro_custo = pick(0, 2);
      const int revenda_divisao = pick(0, 3) ? 1 : 2;
      int origem = 0;
      for (const char* natureza : {"D", "C"}) {
        ++lancamento;
        // The history code is drawn before the account: each seed keeps the
        // books it has always made.
        const int historico = pick(1, 3);
        const std::string& conta = analiticas_[static_cast<size_t>(pick(0, n - 1))];
        dados.Lancamento(ano_mes, lancamento, conta, natureza, valor,
                         {.dia = dia,
                          .historico_padrao = historico,
                          .lco_origem = origem ? std::optional<int>(origem) : std::nullopt,
                          .his_complementar = fmt::format("PAR {}", k),
                          .documento = 1000 + k});
        if (!origem) origem = lancamento;
        if (centro_custo)
          dados.LancamentoDividido(
              ++sequencia, ano_mes, lancamento, valor,
              {.revenda_divisao = revenda_divisao, .centro_custo = centro_custo});
      }
    }
    if (carried) {
      // A carried-forward row of 2023 for every analytic account, as the
      // annual closing writes them, the last one making them sum to zero.
      double soma = 0;
      for (int k = 0; k < n; ++k) {
        const double saldo = k + 1 < n ? pick(-100000, 100000) / 100.0 : -soma;
        soma += saldo;
        dados.SaldoAnterior(analiticas_[static_cast<size_t>(k)], 2023, saldo);
      }
    }
    raw_->Commit();
    Bind();
  }

  // The module's plain (not cached) balance of an analytic account.
  double Saldo(const std::string& conta, int32_t ano_mes, const reports::BalanceFilters& f = {}) {
    double saldo = 0;
    return dm_->BuscaSaldoConta(1, 1, ano_mes, 0, 0, f.centro_custo, f.fonte, f.categoria,
                                f.secao_oficina, f.revenda_divisao, f.tipo_item, f.modalidade,
                                conta, "A", f.centros_custo, saldo, false, false, f.filtro,
                                f.revendas_desconsiderar);
  }

  double Soma(const std::string& conta, const char* natureza, const reports::Period& p) {
    return Scalar(*raw_, fmt::format("select coalesce(sum(VAL_LANCAMENTO), 0) from CTB_LANCAMENTO "
                                     "where EMPRESA = 1 and REVENDA = 1 and CONTA = '{}' and "
                                     "NATUREZA = '{}' and ANO_MES between {} and {}",
                                     conta, natureza, p.from, p.to))
        .AsFloat();
  }

  // The division rows of cost centre 1 outside division dealership 2.
  double SomaDivisao(const std::string& conta, const char* natureza, const reports::Period& p) {
    return Scalar(*raw_,
                  fmt::format("select coalesce(sum(d.VAL_DIVISAO), 0) from CTB_LANCAMENTO l, "
                              "CTB_LANCAMENTO_DIVIDIDO d where d.EMPRESA = l.EMPRESA and "
                              "d.REVENDA = l.REVENDA and d.ANO_MES = l.ANO_MES and "
                              "d.LANCAMENTO = l.LANCAMENTO and l.EMPRESA = 1 and l.REVENDA = "
                              "1 and l.CONTA = '{}' and l.NATUREZA = '{}' and l.ANO_MES "
                              "between {} and {} and d.CENTRO_CUSTO = 1 and "
                              "d.REVENDA_DIVISAO <> 2",
                              conta, natureza, p.from, p.to))
        .AsFloat();
  }

  std::vector<unsigned> Seeds() const {
    if (const char* s = std::getenv("KVC_REPORT_SEED"))
      return {static_cast<unsigned>(std::atoi(s))};
    if (GetParam() == "sqlite") return {1, 2, 3, 4, 5, 6};
    return {1};
  }

  reports::Period RandomPeriod(unsigned seed) const {
    std::mt19937 rng(seed * 7919u);
    // Odd seeds start in January, whose opening is month 00.
    const int from = seed % 2 ? 1 : std::uniform_int_distribution<int>(1, 12)(rng);
    const int to = std::uniform_int_distribution<int>(from, 12)(rng);
    return {202400 + from, 202400 + to};
  }

  // Every synthetic account's figures are the sums of the accounts directly
  // beneath it.
  static void ExpectSyntheticSums(const reports::TrialBalance& t) {
    std::map<std::string, reports::Figures> sums;
    for (size_t i = 0; i < t.chart.size(); ++i)
      if (!t.chart[i].Root()) sums[t.chart[i].superiora] += t.figures[i];
    for (size_t i = 0; i < t.chart.size(); ++i) {
      if (t.chart[i].Analytic()) continue;
      const reports::Figures& f = t.figures[i];
      const reports::Figures& s = sums[t.chart[i].conta];
      EXPECT_NEAR(f.opening, s.opening, 0.005) << t.chart[i].conta;
      EXPECT_NEAR(f.debits, s.debits, 0.005) << t.chart[i].conta;
      EXPECT_NEAR(f.credits, s.credits, 0.005) << t.chart[i].conta;
      EXPECT_NEAR(f.closing, s.closing, 0.005) << t.chart[i].conta;
    }
  }

  std::vector<std::string> analiticas_;
};

TEST_P(ReportTest, FourColumnFiguresAreTheModulesBalancesAndTheJournalsDebitsAndCredits) {
  for (unsigned seed : Seeds()) {
    for (bool carried : {false, true}) {
      SCOPED_TRACE(
          fmt::format("seed {} carried-forward rows {} (KVC_REPORT_SEED={})", seed, carried, seed));
      TearDown();
      SetUp();
      analiticas_.clear();
      Popula(seed, carried);
      const reports::Period p = RandomPeriod(seed);
      const reports::TrialBalance t = reports::FourColumnTrialBalance(*dm_, *trace_, 1, 1, p, {});
      ASSERT_FALSE(t.chart.empty());
      for (size_t i = 0; i < t.chart.size(); ++i) {
        const ChartAccount& a = t.chart[i];
        if (!a.Analytic()) continue;
        const reports::Figures& f = t.figures[i];
        EXPECT_NEAR(f.opening, Saldo(a.conta, reports::MonthBefore(p.from)), 0.005) << a.conta;
        EXPECT_NEAR(f.closing, Saldo(a.conta, p.to), 0.005) << a.conta;
        EXPECT_NEAR(f.debits, Soma(a.conta, "D", p), 0.005) << a.conta;
        EXPECT_NEAR(f.credits, Soma(a.conta, "C", p), 0.005) << a.conta;
      }
      ExpectSyntheticSums(t);
      // A condition every entry meets sends the debits and credits through
      // the module's balances instead of the journal's sums: the same
      // figures.
      reports::BalanceFilters todas;
      todas.filtro = "{$ALIAS$}.LANCAMENTO > 0";
      const reports::TrialBalance m =
          reports::FourColumnTrialBalance(*dm_, *trace_, 1, 1, p, todas);
      ASSERT_EQ(m.figures.size(), t.figures.size());
      for (size_t i = 0; i < t.chart.size(); ++i) {
        EXPECT_NEAR(m.figures[i].opening, t.figures[i].opening, 0.005) << t.chart[i].conta;
        EXPECT_NEAR(m.figures[i].debits, t.figures[i].debits, 0.005) << t.chart[i].conta;
        EXPECT_NEAR(m.figures[i].credits, t.figures[i].credits, 0.005) << t.chart[i].conta;
        EXPECT_NEAR(m.figures[i].closing, t.figures[i].closing, 0.005) << t.chart[i].conta;
      }
      EXPECT_TRUE(m.inconsistent.empty()) << m.inconsistent.front();
      EXPECT_TRUE(t.inconsistent.empty()) << t.inconsistent.front();
      EXPECT_TRUE(t.DebitsEqualCredits()) << t.totals.debits << " " << t.totals.credits;
      EXPECT_TRUE(t.ClosingSumsToZero()) << t.totals.closing;
      EXPECT_GT(t.totals.debits, 0.0);
    }
  }
}

TEST_P(ReportTest, FiltersNarrowEveryColumnAlike) {
  Popula(11, true);
  reports::BalanceFilters f;
  f.centro_custo = 1;
  f.revendas_desconsiderar = "(2)";
  const reports::Period p{202403, 202410};
  const reports::TrialBalance t = reports::FourColumnTrialBalance(*dm_, *trace_, 1, 1, p, f);
  bool some_narrowed = false;
  for (size_t i = 0; i < t.chart.size(); ++i) {
    const ChartAccount& a = t.chart[i];
    if (!a.Analytic()) continue;
    const reports::Figures& fig = t.figures[i];
    EXPECT_NEAR(fig.opening, Saldo(a.conta, 202402, f), 0.005) << a.conta;
    EXPECT_NEAR(fig.closing, Saldo(a.conta, 202410, f), 0.005) << a.conta;
    EXPECT_NEAR(fig.debits, SomaDivisao(a.conta, "D", p), 0.005) << a.conta;
    EXPECT_NEAR(fig.credits, SomaDivisao(a.conta, "C", p), 0.005) << a.conta;
    if (std::fabs(fig.debits - Soma(a.conta, "D", p)) > 0.005) some_narrowed = true;
  }
  EXPECT_TRUE(some_narrowed) << "the cost-centre filter left every account's debits whole";
  EXPECT_TRUE(t.inconsistent.empty()) << t.inconsistent.front();
  ExpectSyntheticSums(t);
  EXPECT_TRUE(f.Narrowing());
}

TEST_P(ReportTest, AnUnmatchedEntryIsReportedAsUnbalanced) {
  Popula(3, false);
  raw_->Execute(fmt::format("insert into CTB_LANCAMENTO (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, "
                            "CONTA, NATUREZA, VAL_LANCAMENTO, DIA) values (1, 1, 202405, 9999, "
                            "'{}', 'D', 10.25, 3)",
                            analiticas_.front()),
                {});
  const reports::TrialBalance t =
      reports::FourColumnTrialBalance(*dm_, *trace_, 1, 1, {202401, 202412}, {});
  EXPECT_FALSE(t.DebitsEqualCredits());
  EXPECT_NEAR(t.totals.debits - t.totals.credits, 10.25, 0.005);
  EXPECT_NEAR(t.totals.closing, 10.25, 0.005);
}

TEST_P(ReportTest, LedgerListsEveryEntryWithItsRunningBalance) {
  Popula(5, true);
  const reports::Period p{202402, 202411};
  // The analytic account with the most entries, and a top-level account.
  std::string busiest;
  long long most = -1;
  for (const std::string& conta : analiticas_) {
    const long long n =
        Scalar(*raw_, fmt::format("select count(*) from CTB_LANCAMENTO where CONTA = '{}' and "
                                  "ANO_MES between 202402 and 202411",
                                  conta))
            .AsInteger();
    if (n > most) most = n, busiest = conta;
  }
  for (const std::string& conta : {busiest, std::string("1")}) {
    SCOPED_TRACE(conta);
    const reports::GeneralLedger g = reports::ReadGeneralLedger(*dm_, *trace_, 1, 1, p, conta);
    // The chart's codes extend their parent's, so a prefix finds what lies
    // beneath an account.
    const long long expected =
        Scalar(*raw_, fmt::format("select count(*) from CTB_LANCAMENTO where (CONTA = '{0}' or "
                                  "CONTA like '{0}.%') and ANO_MES between 202402 and 202411",
                                  conta))
            .AsInteger();
    EXPECT_EQ(static_cast<long long>(g.entries.size()), expected);
    EXPECT_GT(expected, 0);
    double running = g.opening;
    for (size_t i = 0; i < g.entries.size(); ++i) {
      const reports::LedgerEntry& e = g.entries[i];
      running += e.debit - e.credit;
      EXPECT_NEAR(e.balance, running, 0.005);
      if (i) {
        const reports::LedgerEntry& b = g.entries[i - 1];
        EXPECT_LE(std::tie(b.ano_mes, b.dia, b.lancamento),
                  std::tie(e.ano_mes, e.dia, e.lancamento));
      }
      EXPECT_GE(e.ano_mes, p.from);
      EXPECT_LE(e.ano_mes, p.to);
    }
    EXPECT_NEAR(g.closing, running, 0.005);
    EXPECT_TRUE(g.Consistent()) << g.closing << " " << g.balance_at_end;
    double saldo = 0;
    EXPECT_NEAR(g.closing,
                dm_->BuscaSaldoConta(1, 1, p.to, 0, 0, -1, -1, -1, -1, -1, "", "", conta,
                                     g.account.nivel, "", saldo, false, false, "", ""),
                0.005);
  }
  EXPECT_THROW(reports::ReadGeneralLedger(*dm_, *trace_, 1, 1, p, "9.9.9"), std::invalid_argument);
}

TEST_P(ReportTest, BalanceSheetAndIncomeStatementAgreeWithTheBalancesAndTheJournal) {
  for (bool carried : {false, true}) {
    SCOPED_TRACE(fmt::format("carried-forward rows {}", carried));
    TearDown();
    SetUp();
    analiticas_.clear();
    Popula(21, carried);
    const reports::BalanceSheet b = reports::ReadBalanceSheet(*dm_, *trace_, 1, 1, 202409);
    double assets = 0, liabilities = 0, result = 0;
    for (const std::string& conta : analiticas_) {
      const double saldo = Saldo(conta, 202409);
      if (conta[0] == '1') assets += saldo;
      if (conta[0] == '2') liabilities -= saldo;
      if (conta[0] > '2') result -= saldo;
    }
    EXPECT_NEAR(b.total_assets, assets, 0.005);
    EXPECT_NEAR(b.total_liabilities, liabilities, 0.005);
    EXPECT_NEAR(b.unclosed_result, result, 0.005);
    EXPECT_TRUE(b.Balances());
    for (const auto& l : b.assets) EXPECT_EQ(l.account.conta[0], '1');
    for (const auto& l : b.liabilities) EXPECT_EQ(l.account.conta[0], '2');

    const reports::IncomeStatement st =
        reports::ReadIncomeStatement(*trace_, 1, 1, {202402, 202408});
    const double journal =
        Scalar(*raw_,
               "select coalesce(sum(case when NATUREZA = 'C' then VAL_LANCAMENTO else "
               "-VAL_LANCAMENTO end), 0) from CTB_LANCAMENTO where CONTA >= '3' and ANO_MES "
               "between 202402 and 202408")
            .AsFloat();
    EXPECT_NEAR(st.result, journal, 0.005);
    ASSERT_EQ(st.monthly.size(), 7u);
    double months = 0;
    for (const auto& m : st.monthly) months += m.Result();
    EXPECT_NEAR(months, journal, 0.005);
    for (const auto& l : st.lines) EXPECT_TRUE(reports::IsResultAccount(l.account.conta));
  }
}

// The statements' totals add the analytic accounts of each class, whatever
// the tree above them: here every group sits under one top account "0".
TEST_P(ReportTest, StatementTotalsFollowTheAccountClassNotTheTree) {
  Popula(8, true);
  raw_->Execute("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, NIVEL) values (1, 1, '0', 'S')",
                {});
  raw_->Execute("update CTB_CONTA set CONTA_SUPERIORA = '0' where CONTA in ('1', '2', '3', '4')",
                {});
  const reports::BalanceSheet b = reports::ReadBalanceSheet(*dm_, *trace_, 1, 1, 202412);
  double assets = 0, result = 0;
  for (const std::string& conta : analiticas_) {
    if (conta[0] == '1') assets += Saldo(conta, 202412);
    if (conta[0] > '2') result -= Saldo(conta, 202412);
  }
  EXPECT_NEAR(b.total_assets, assets, 0.005);
  EXPECT_NEAR(b.unclosed_result, result, 0.005);
  EXPECT_NE(assets, 0.0);
  EXPECT_TRUE(b.Balances());
  EXPECT_EQ(b.unclassified, std::vector<std::string>{"0"});
  const reports::IncomeStatement st = reports::ReadIncomeStatement(*trace_, 1, 1, {202401, 202412});
  const double journal =
      Scalar(*raw_,
             "select coalesce(sum(case when NATUREZA = 'C' then VAL_LANCAMENTO else "
             "-VAL_LANCAMENTO end), 0) from CTB_LANCAMENTO where CONTA >= '3' and ANO_MES "
             "between 202401 and 202412")
          .AsFloat();
  EXPECT_NEAR(st.result, journal, 0.005);
  EXPECT_NE(journal, 0.0);
}

// A month's revenue is the result accounts' net credits account by account,
// its expense their net debits: a debit on a revenue account lowers revenue.
TEST_P(ReportTest, MonthlyRevenueAndExpenseAreNetPerAccount) {
  Popula(9, false);
  const reports::IncomeStatement st = reports::ReadIncomeStatement(*trace_, 1, 1, {202401, 202412});
  ASSERT_EQ(st.monthly.size(), 12u);
  for (const auto& m : st.monthly) {
    double revenue = 0, expense = 0;
    for (const auto& row :
         Linhas(*raw_, fmt::format("select CONTA, sum(case when NATUREZA = 'C' then VAL_LANCAMENTO "
                                   "else -VAL_LANCAMENTO end) from CTB_LANCAMENTO where CONTA >= "
                                   "'3' and ANO_MES = {} group by CONTA",
                                   m.ano_mes))) {
      const double net = std::stod(row.at(1));
      (net > 0 ? revenue : expense) += std::fabs(net);
    }
    EXPECT_NEAR(m.revenue, revenue, 0.005) << m.ano_mes;
    EXPECT_NEAR(m.expense, expense, 0.005) << m.ano_mes;
  }
}

KVC_INSTANTIATE_BACKENDS(ReportTest);

// ---- the chart and the period, without a module ----

class ChartTreeTest : public ModuleTest {};

TEST_P(ChartTreeTest, DepthsFollowTheParentsAndAnUnknownParentMakesATopLevelAccount) {
  for (const char* values : {"'1', null, 'S'", "'1.1', '1', 'S'", "'1.1.01', '1.1', 'A'",
                             "'1.2', '1', 'A'", "'7.1', '7', 'A'"})
    raw_->Execute(fmt::format("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, "
                              "NIVEL) values (1, 1, {})",
                              values),
                  {});
  const std::vector<ChartAccount> chart = reports::ReadChart(*raw_, 1, 1);
  std::map<std::string, int> depth;
  for (const ChartAccount& a : chart) depth[a.conta] = a.depth;
  EXPECT_EQ(depth, (std::map<std::string, int>{
                       {"1", 1}, {"1.1", 2}, {"1.1.01", 3}, {"1.2", 2}, {"7.1", 1}}));
  EXPECT_EQ(reports::AnalyticBeneath(chart, "1"), (std::vector<std::string>{"1.1.01", "1.2"}));
  EXPECT_EQ(reports::AnalyticBeneath(chart, "1.2"), (std::vector<std::string>{"1.2"}));
  std::vector<double> values(chart.size(), 0.0);
  for (size_t i = 0; i < chart.size(); ++i)
    if (chart[i].Analytic()) values[i] = chart[i].conta == "1.2" ? 2.5 : 1.0;
  reports::RollUp(chart, values);
  std::map<std::string, double> rolled;
  for (size_t i = 0; i < chart.size(); ++i) rolled[chart[i].conta] = values[i];
  EXPECT_EQ(rolled["1.1"], 1.0);
  EXPECT_EQ(rolled["1"], 3.5);
}

TEST_P(ChartTreeTest, ACycleThroughTheParentsIsRefusedByName) {
  for (const char* values : {"'1', null, 'S'", "'2', '3', 'S'", "'3', '2', 'S'", "'3.1', '3', 'A'"})
    raw_->Execute(fmt::format("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, "
                              "NIVEL) values (1, 1, {})",
                              values),
                  {});
  try {
    reports::ReadChart(*raw_, 1, 1);
    FAIL() << "a cyclic chart was read";
  } catch (const reports::ChartError& e) {
    EXPECT_NE(std::string(e.what()).find("account 2 "), std::string::npos) << e.what();
  }
}

KVC_INSTANTIATE_BACKENDS(ChartTreeTest);

TEST(ReportPeriodTest, MonthsOfOneYearInOrder) {
  EXPECT_NO_THROW(reports::CheckPeriod({202401, 202412}));
  EXPECT_NO_THROW(reports::CheckPeriod({202405, 202405}));
  EXPECT_THROW(reports::CheckPeriod({202412, 202501}), std::invalid_argument);
  EXPECT_THROW(reports::CheckPeriod({202405, 202404}), std::invalid_argument);
  EXPECT_THROW(reports::CheckPeriod({202400, 202404}), std::invalid_argument);
  EXPECT_THROW(reports::CheckPeriod({202401, 202413}), std::invalid_argument);
  EXPECT_EQ(reports::MonthBefore(202401), 202400);
  EXPECT_EQ(reports::MonthBefore(202407), 202406);
}

}  // namespace
}  // namespace kvc::testing
