// A property of posting: for a few thousand random valid records posted in
// one transaction, the journal balances, every debit entry points at its
// credit entry, and the summarised balances equal the journal's sums.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <tuple>

#include <fmt/format.h>

#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

using PostingPropertyTest = ModuleTest;

// A random valid 133-character record over a small chart.
std::string RandomRecord(std::mt19937& rng) {
  std::uniform_int_distribution<int> month(1, 12), day(1, 28), account(0, 19), mark(0, 2);
  std::uniform_int_distribution<int64_t> cents(1, 99'999'999);
  std::string r(133, ' ');
  auto put = [&r](size_t pos, const std::string& text) { r.replace(pos - 1, text.size(), text); };
  put(13, std::to_string(account(rng) % 4 + 1));
  put(33, fmt::format("24{:02}", month(rng)));
  put(37, fmt::format("{:02}", day(rng)));
  put(42, "lote aleatorio");
  put(74, fmt::format("1.{:02}", account(rng)));
  put(94, fmt::format("3.{:02}", account(rng)));
  put(114, "5");
  put(118, mark(rng) == 0 ? "-" : "+");
  put(119, fmt::format("{:015}", cents(rng)));
  return r;
}

TEST_P(PostingPropertyTest, RandomBatchBalancesAndFeedsSummarisedBalances) {
  DadosDeTeste dados(*raw_);
  for (int i = 0; i < 20; ++i) {
    dados.Conta(fmt::format("1.{:02}", i),
                {.nivel = "A", .nivel_divisao = i % 3, .lancamento_dividido = i % 2 ? "S" : "N"});
    dados.Conta(fmt::format("3.{:02}", i), {.nivel = "A", .nivel_divisao = i % 2});
  }
  dados.DivisaoContabil(1, "C");
  Bind();
  const int records = GetParam() == "sqlite" ? 3000 : 1000;
  std::mt19937 rng(20241122);
  ASSERT_TRUE(dm_->IniciaTransacao());
  for (int i = 0; i < records; ++i)
    dm_->GravaLancamento(RandomRecord(rng), "1", "1", "", "9", false);
  ASSERT_TRUE(dm_->ComitaTransacao());

  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO"), 2 * records);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO_DIVIDIDO"), 2 * records);

  // Debits equal credits, in cents.
  auto cents = [](const db::Value& v) { return std::llround(v.AsFloat() * 100); };
  EXPECT_EQ(cents(Scalar(*raw_,
                         "select sum(VAL_LANCAMENTO) S from CTB_LANCAMENTO where "
                         "NATUREZA = 'D'")),
            cents(Scalar(*raw_,
                         "select sum(VAL_LANCAMENTO) S from CTB_LANCAMENTO where "
                         "NATUREZA = 'C'")));

  // Every debit entry points at a credit entry of the same month and amount.
  EXPECT_EQ(CountRows(*raw_,
                      "CTB_LANCAMENTO d where d.NATUREZA = 'D' and not exists (select 1 "
                      "from CTB_LANCAMENTO c where c.EMPRESA = d.EMPRESA and c.REVENDA = "
                      "d.REVENDA and c.ANO_MES = d.ANO_MES and c.LANCAMENTO = "
                      "d.LCO_ORIGEM and c.NATUREZA = 'C' and c.VAL_LANCAMENTO = "
                      "d.VAL_LANCAMENTO)"),
            0);
  EXPECT_EQ(CountRows(*raw_, "CTB_LANCAMENTO where NATUREZA = 'C' and LCO_ORIGEM is not null"), 0);

  // The summarised balances per account, nature and month equal the
  // journal's sums, for the entry rows ("L") and for the division rows ("D").
  using Key = std::tuple<std::string, std::string, int64_t>;
  std::map<Key, int64_t> journal;
  for (auto& row : raw_->Query("select CONTA, NATUREZA, ANO_MES, VAL_LANCAMENTO from "
                               "CTB_LANCAMENTO",
                               {})
                       .rows)
    journal[{row[0].AsString(), row[1].AsString(), row[2].AsInteger()}] += cents(row[3]);
  for (const char* tipo : {"L", "D"}) {
    std::map<Key, int64_t> summarised;
    for (auto& row : raw_->Query(std::string("select CONTA, NATUREZA, ANO_MES, SALDO from "
                                             "INT_SALDO_SUMARIZADO where TIPO_SALDO = '") +
                                     tipo + "'",
                                 {})
                         .rows)
      summarised[{row[0].AsString(), row[1].AsString(), row[2].AsInteger()}] += cents(row[3]);
    EXPECT_EQ(summarised, journal) << tipo;
  }

  // Division rows carry the whole amount of their entry.
  EXPECT_EQ(CountRows(*raw_,
                      "CTB_LANCAMENTO_DIVIDIDO d where not exists (select 1 from "
                      "CTB_LANCAMENTO l where l.EMPRESA = d.EMPRESA and l.REVENDA = "
                      "d.REVENDA and l.ANO_MES = d.ANO_MES and l.LANCAMENTO = "
                      "d.LANCAMENTO and l.VAL_LANCAMENTO = d.VAL_DIVISAO)"),
            0);
}

KVC_INSTANTIATE_BACKENDS(PostingPropertyTest);

}  // namespace
}  // namespace kvc::testing
