// Books for comparing kvctb with plain-text accounting tools: one synthetic
// company written three ways from a seed, so that every tool reads the same
// postings.
//
//   chart.csv      the chart of accounts, as kvctb chart-import reads it;
//   records.txt    the postings as fixed-width records, as kvctb post reads them;
//   books.journal  the same postings as a plain-text journal (one transaction a
//                  record), with account names "1:1.1:1.1.1:1.1.1.001" so that
//                  the account tree is the chart's and each name ends with the
//                  account's code.
//
// The chart has five groups: 1 and 2 are balance-sheet accounts, 3 to 5 result
// accounts; below each group two levels of synthetic accounts and then the
// analytic accounts, about four in five of the chart. Division level 0
// everywhere, so no cost centre is needed. The postings fall in 2024 and 2025,
// days 1 to 28, between two distinct analytic accounts, with amounts from 0.01
// to 99,999.99; no two records share month, day, accounts and amount (kvctb
// post would take the second for the first posted twice). The journal's sign
// convention is kvctb's: the debited account gets the positive amount, so a
// balance is debits minus credits in every tool.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <tuple>
#include <unordered_set>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "cli/record.h"

namespace {

struct Account {
  std::string code;
  std::string parent;
  bool analytic = false;
  std::string description;
  std::string journal_name;  // the codes of the path from the group down, ':' between
};

struct Posting {
  int year = 0, month = 0, day = 0;
  size_t debit = 0, credit = 0;  // indices into the analytic accounts
  int64_t cents = 0;
  bool credit_first = false;  // the record's side mark: "-" credits the first account field
  int64_t number = 0;
};

// A draw in [0, n) from the generator's own bits, the same on every standard
// library (the standard distributions are not).
uint64_t Draw(std::mt19937_64& rng, uint64_t n) { return rng() % n; }

std::vector<Account> Chart(int accounts) {
  constexpr int kGroups = 5;
  const char* group_names[kGroups] = {"ATIVO", "PASSIVO", "RECEITAS", "CUSTOS", "DESPESAS"};
  // About one third-level account in eight; as many second-level accounts per
  // group as third-level ones per second-level account.
  const double per_group = std::max(1.0, accounts / 40.0);
  const int second = std::max(1, static_cast<int>(std::lround(std::sqrt(per_group))));
  const int third = std::max(1, static_cast<int>(std::lround(per_group / second)));
  const int leaves = kGroups * second * third;
  const int synthetic = kGroups + kGroups * second + leaves;
  const int analytic = accounts - synthetic;
  if (analytic < leaves)
    throw CLI::ValidationError("--accounts",
                               fmt::format("at least {} accounts are needed", synthetic + leaves));
  std::vector<std::vector<int>> per_leaf(leaves);
  for (int i = 0; i < analytic; ++i) per_leaf[i % leaves].push_back(i / leaves + 1);
  const int width = std::max(3, static_cast<int>(std::to_string(analytic / leaves + 1).size()));

  std::vector<Account> chart;
  for (int g = 1; g <= kGroups; ++g) {
    const std::string gc = std::to_string(g);
    chart.push_back({gc, "", false, group_names[g - 1], gc});
    for (int s = 1; s <= second; ++s) {
      const std::string sc = fmt::format("{}.{}", gc, s);
      chart.push_back({sc, gc, false, fmt::format("{} {}", group_names[g - 1], s), gc + ":" + sc});
      for (int t = 1; t <= third; ++t) {
        const std::string tc = fmt::format("{}.{}", sc, t);
        const std::string tj = fmt::format("{}:{}:{}", gc, sc, tc);
        chart.push_back({tc, sc, false, fmt::format("GRUPO {}", tc), tj});
        const int leaf = ((g - 1) * second + (s - 1)) * third + (t - 1);
        for (int n : per_leaf[leaf]) {
          const std::string ac = fmt::format("{}.{:0{}}", tc, n, width);
          chart.push_back({ac, tc, true, fmt::format("CONTA {}", ac), tj + ":" + ac});
        }
      }
    }
  }
  return chart;
}

std::vector<Posting> Postings(int64_t records, size_t analytic, std::mt19937_64& rng) {
  std::vector<Posting> postings;
  postings.reserve(static_cast<size_t>(records));
  std::unordered_set<std::string> keys;
  while (static_cast<int64_t>(postings.size()) < records) {
    Posting p;
    const uint64_t month_index = Draw(rng, 24);
    p.year = 2024 + static_cast<int>(month_index / 12);
    p.month = static_cast<int>(month_index % 12) + 1;
    p.day = static_cast<int>(Draw(rng, 28)) + 1;
    p.debit = Draw(rng, analytic);
    p.credit = Draw(rng, analytic - 1);
    if (p.credit >= p.debit) ++p.credit;
    // Mostly small amounts, some large: 1 to 999.99, or up to 99,999.99.
    p.cents = static_cast<int64_t>(Draw(rng, 4) ? Draw(rng, 99'999) + 1 : Draw(rng, 9'999'999) + 1);
    p.credit_first = Draw(rng, 3) == 0;
    // The record's two accounts in field order, for the duplicate check.
    const size_t first = p.credit_first ? p.credit : p.debit;
    const size_t other = p.credit_first ? p.debit : p.credit;
    if (!keys.insert(fmt::format("{}-{}-{}-{}-{}-{}", p.year, p.month, p.day,
                                 std::min(first, other), std::max(first, other), p.cents))
             .second)
      continue;
    postings.push_back(p);
  }
  // In date order, as books are kept; the number follows that order.
  std::stable_sort(postings.begin(), postings.end(), [](const Posting& a, const Posting& b) {
    return std::tie(a.year, a.month, a.day) < std::tie(b.year, b.month, b.day);
  });
  for (size_t i = 0; i < postings.size(); ++i) postings[i].number = static_cast<int64_t>(i) + 1;
  return postings;
}

std::string Amount(int64_t cents) {
  return fmt::format("{}{}.{:02}", cents < 0 ? "-" : "", std::llabs(cents) / 100,
                     std::llabs(cents) % 100);
}

void Write(const std::filesystem::path& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary);
  out << text;
  if (!out) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{
      "Books for comparing kvctb with plain-text accounting tools: chart.csv (kvctb\n"
      "chart-import), records.txt (kvctb post) and books.journal (the same postings as a\n"
      "plain-text journal), the same for the same seed.\n"
      "Example: peers_books --accounts 172 --records 20000 --seed 1 --out build/peers/data"};
  int accounts = 172;
  int64_t records = 20'000;
  uint64_t seed = 1;
  std::string out_dir;
  app.add_option("--accounts", accounts, "Accounts in the chart, synthetic and analytic (>= 20).")
      ->check(CLI::Range(20, 100'000));
  app.add_option("--records", records, "Records to write.")
      ->check(CLI::Range(int64_t{1}, int64_t{100'000'000}));
  app.add_option("--seed", seed, "Seed of the pseudo-random generator.");
  app.add_option("--out", out_dir, "Directory to write into (created if missing).")->required();
  CLI11_PARSE(app, argc, argv);

  try {
    std::mt19937_64 rng(seed);
    const std::vector<Account> chart = Chart(accounts);
    std::vector<const Account*> analytic;
    for (const Account& a : chart)
      if (a.analytic) analytic.push_back(&a);
    const std::vector<Posting> postings = Postings(records, analytic.size(), rng);

    const std::filesystem::path dir(out_dir);
    std::filesystem::create_directories(dir);

    std::string csv = "CONTA,CONTA_SUPERIORA,NIVEL,NIVEL_DIVISAO,LANCAMENTO_DIVIDIDO,DES_CONTA\n";
    for (const Account& a : chart)
      csv +=
          fmt::format("{},{},{},0,N,{}\n", a.code, a.parent, a.analytic ? "A" : "S", a.description);
    Write(dir / "chart.csv", csv);

    std::string text, journal;
    text.reserve(postings.size() * 134);
    journal.reserve(postings.size() * 110);
    journal += fmt::format("; {} postings over {} accounts, seed {}\n\n", postings.size(),
                           chart.size(), seed);
    for (const Posting& p : postings) {
      const std::string history = fmt::format("LANC {}", p.number);
      kvc::cli::RecordFields f;
      f.yymm = fmt::format("{:02}{:02}", p.year % 100, p.month);
      f.day = fmt::format("{:02}", p.day);
      f.history = history;
      f.account1 = analytic[p.credit_first ? p.credit : p.debit]->code;
      f.account2 = analytic[p.credit_first ? p.debit : p.credit]->code;
      f.standard_history = "1";
      f.side = p.credit_first ? "-" : " ";
      f.cents = p.cents;
      text += kvc::cli::BuildRecord(f);
      text += '\n';
      journal += fmt::format("{}/{:02}/{:02} {}\n    {}  {}\n    {}  {}\n\n", p.year, p.month,
                             p.day, history, analytic[p.debit]->journal_name, Amount(p.cents),
                             analytic[p.credit]->journal_name, Amount(-p.cents));
    }
    Write(dir / "records.txt", text);
    Write(dir / "books.journal", journal);
    std::fprintf(stderr, "peers_books: %zu accounts (%zu analytic), %zu records in %s\n",
                 chart.size(), analytic.size(), postings.size(), dir.string().c_str());
  } catch (const CLI::Error& e) {
    return app.exit(e);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "peers_books: %s\n", e.what());
    return 1;
  }
  return 0;
}
