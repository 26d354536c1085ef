// kvctb trial-balance computes each analytic balance once and adds the
// synthetic accounts up from them; on random charts and postings every
// account's figure must be the one `kvctb balance` (BuscaSaldoConta, which
// walks the chart beneath a synthetic account) gives. KVC_TRIAL_SEED=N
// replays one seed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "kvctb_process.h"

namespace kvc::cli::testing {
namespace {

struct RandomBooks {
  std::string chart_csv;
  std::string records;
  std::vector<std::string> accounts;  // every account, parents first
};

// A tree of accounts under four groups, 2-4 levels deep, synthetic accounts
// with 1-3 children each, and 60 postings between random analytic accounts.
RandomBooks MakeBooks(unsigned seed) {
  std::mt19937 rng(seed);
  auto pick = [&rng](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
  RandomBooks b;
  b.chart_csv = "CONTA,CONTA_SUPERIORA,NIVEL,NIVEL_DIVISAO,LANCAMENTO_DIVIDIDO\n";
  std::vector<std::string> analytic;
  auto add = [&](auto&& self, const std::string& code, const std::string& parent,
                 int depth) -> void {
    const bool leaf = depth >= 2 && (depth == 4 || pick(3) == 0);
    b.chart_csv += fmt::format("{},{},{},0,N\n", code, parent, leaf ? "A" : "S");
    b.accounts.push_back(code);
    if (leaf) {
      analytic.push_back(code);
      return;
    }
    for (int i = 1, n = 1 + pick(3); i <= n; ++i)
      self(self, fmt::format("{}.{}", code, i), code, depth + 1);
  };
  for (const char* group : {"1", "2", "3", "5"}) add(add, group, "", 1);
  for (int i = 0; i < 60; ++i) {
    kvc::testing::RegistroCampos r;
    r.yymm = fmt::format("24{:02}", 1 + pick(12));
    r.dia = fmt::format("{:02}", 1 + pick(28));
    r.historico = fmt::format("LANCAMENTO {}", i);
    r.conta1 = analytic[static_cast<size_t>(pick(static_cast<int>(analytic.size())))];
    r.conta2 = analytic[static_cast<size_t>(pick(static_cast<int>(analytic.size())))];
    r.marca = pick(2) ? "-" : " ";
    r.centavos = 1 + pick(10'000'000);
    b.records += kvc::testing::Registro(r) + "\n";
  }
  return b;
}

// The "account,...,balance" rows of a CSV output: account -> balance text.
std::map<std::string, std::string> BalancesOf(const std::string& csv, size_t account_column,
                                              size_t balance_column) {
  std::map<std::string, std::string> out;
  std::istringstream in(csv);
  std::string line;
  std::getline(in, line);  // the header
  while (std::getline(in, line)) {
    std::vector<std::string> fields;
    std::stringstream row(line);
    for (std::string field; std::getline(row, field, ',');) fields.push_back(field);
    if (fields.size() > std::max(account_column, balance_column))
      out[fields[account_column]] = fields[balance_column];
  }
  return out;
}

TEST(TrialBalanceTest, EveryAccountEqualsItsBalanceOnRandomCharts) {
  std::vector<unsigned> seeds = {1, 2, 3, 4, 5};
  if (const char* one = std::getenv("KVC_TRIAL_SEED"))
    seeds = {static_cast<unsigned>(std::atoi(one))};
  for (unsigned seed : seeds) {
    SCOPED_TRACE(fmt::format("seed {} (replay with KVC_TRIAL_SEED={})", seed, seed));
    const RandomBooks books = MakeBooks(seed);
    const std::string dir = NewDirectory(fmt::format("trial_balance_{}", seed));
    WriteFile(dir + "/chart.csv", books.chart_csv);
    WriteFile(dir + "/records.txt", books.records);
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"--db", "sqlite:books.db", "init"},
          std::vector<std::string>{"--db", "sqlite:books.db", "chart-import", "chart.csv"},
          std::vector<std::string>{"--db", "sqlite:books.db", "post", "records.txt"}}) {
      RunResult r = RunKvctb(args, In(dir));
      ASSERT_EQ(r.exit_code, 0) << args.back() << ": " << r.err;
    }
    RunResult trial = RunKvctb(
        {"--db", "sqlite:books.db", "--format", "csv", "trial-balance", "--month", "202412"},
        In(dir));
    ASSERT_EQ(trial.exit_code, 0) << trial.err;
    const std::map<std::string, std::string> rows = BalancesOf(trial.out, 0, 3);
    ASSERT_EQ(rows.size(), books.accounts.size()) << trial.out;
    double roots = 0;
    for (const std::string& account : books.accounts) {
      RunResult one = RunKvctb(
          {"--db", "sqlite:books.db", "--format", "csv", "balance", account, "--month", "202412"},
          In(dir));
      ASSERT_EQ(one.exit_code, 0) << account << ": " << one.err;
      const std::map<std::string, std::string> single = BalancesOf(one.out, 0, 2);
      ASSERT_EQ(single.count(account), 1u) << one.out;
      EXPECT_EQ(rows.at(account), single.at(account)) << "account " << account;
      if (account.find('.') == std::string::npos) roots += std::stod(rows.at(account));
    }
    EXPECT_NEAR(roots, 0.0, 0.005) << "the groups of balanced postings add up to zero";
  }
}

}  // namespace
}  // namespace kvc::cli::testing
