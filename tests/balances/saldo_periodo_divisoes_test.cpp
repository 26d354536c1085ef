// The division variants of the movement between days: one-element lists
// answer as the single values do, a list covers several values at once, and
// the chart walker adds the analytic accounts beneath a synthetic one.
#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>

#include <fmt/format.h>

#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

class SaldoPeriodoDivisoesTest : public ModuleTest {
 protected:
  void Popula(unsigned seed) {
    std::mt19937 rng(seed);
    auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    DadosDeTeste dados(*raw_);
    dados.Conta("4", {.nivel = "S"});
    for (int c = 0; c < 4; ++c)
      dados.Conta(fmt::format("4.{}", c), {.superiora = "4", .nivel = "A"});
    raw_->Begin(db::Isolation::kReadCommitted);
    int seq = 0;
    // Within a row the values are drawn last column first, so that every
    // seed keeps the rows it has always had.
    for (int n = 1; n <= 120; ++n) {
      const bool cv = pick(0, 5) == 0;
      DadosDeTeste livro = cv ? dados.SegundoLivro() : dados;
      const std::optional<int> operacao =
          pick(0, 2) ? std::nullopt : std::optional<int>(pick(1, 3));
      const int dia = pick(1, 31);
      const std::string natureza = pick(0, 1) ? "D" : "C";
      const std::string conta = fmt::format("4.{}", pick(0, 3));
      livro.Lancamento(202405, n, conta, natureza, 10, {.dia = dia, .revenda_operacao = operacao});
      for (int d = pick(0, 2); d > 0; --d) {
        const double valor = pick(1, 9999) / 100.0;
        const int categoria = pick(1, 2);
        const int fonte = pick(1, 2);
        const int centro_custo = pick(1, 3);
        const int revenda_divisao = pick(1, 3);
        livro.LancamentoDividido(++seq, 202405, n, valor,
                                 {.revenda_divisao = revenda_divisao,
                                  .centro_custo = centro_custo,
                                  .fonte = fonte,
                                  .categoria = categoria});
      }
    }
    raw_->Commit();
  }
};

TEST_P(SaldoPeriodoDivisoesTest, OneElementListsAnswerAsSingleValues) {
  Popula(3);
  Bind();
  std::mt19937 rng(5);
  auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  const std::vector<std::string> listas = {"", "(2)"};
  const std::vector<std::string> modalidades = {"", "SPED"};
  for (int i = 0; i < 40; ++i) {
    const std::string conta = fmt::format("4.{}", pick(0, 3));
    const int di = pick(1, 15), df = pick(15, 31);
    const int centro = pick(0, 1) ? -1 : pick(1, 3);
    const int fonte = pick(0, 1) ? -1 : pick(1, 2);
    const int categoria = pick(0, 2) ? -1 : pick(1, 2);
    const int revenda_divisao = pick(0, 1) ? -1 : pick(1, 3);
    const std::string lista = listas[pick(0, 1)];
    const std::string modalidade = modalidades[pick(0, 1)];
    const double simples = dm_->BuscaSaldoContaAnaliticaPeriodo(
        1, 1, 202405, di, df, centro, fonte, categoria, -1, revenda_divisao, "", modalidade, conta,
        "", false, lista);
    auto texto = [](int v) { return v == -1 ? std::string() : std::to_string(v); };
    const double divisoes = dm_->BuscaSaldoContaAnaliticaPeriodoDivisoes(
        1, 1, 202405, di, df, -1, -1, -1, -1, -1, "", modalidade, conta, texto(centro),
        texto(fonte), texto(categoria), "", texto(revenda_divisao), "", lista);
    EXPECT_NEAR(divisoes, simples, 0.005)
        << "query " << i << " " << conta << " " << di << "-" << df << " cc " << centro << " fonte "
        << fonte << " cat " << categoria << " rd " << revenda_divisao << " lista '" << lista
        << "' mod '" << modalidade << "'";
  }
}

TEST_P(SaldoPeriodoDivisoesTest, ListCoversSeveralValuesAtOnce) {
  Popula(7);
  Bind();
  for (int c = 0; c < 4; ++c) {
    const std::string conta = fmt::format("4.{}", c);
    double separados = 0;
    for (int rd = 1; rd <= 2; ++rd)
      separados += dm_->BuscaSaldoContaAnaliticaPeriodo(1, 1, 202405, 1, 31, -1, -1, -1, -1, rd, "",
                                                        "", conta, "", false, "");
    EXPECT_NEAR(
        dm_->BuscaSaldoContaAnaliticaPeriodoDivisoes(1, 1, 202405, 1, 31, -1, -1, -1, -1, -1, "",
                                                     "", conta, "", "", "", "", "1,2", "", ""),
        separados, 0.005)
        << conta;
  }
}

TEST_P(SaldoPeriodoDivisoesTest, ListsAreWrittenAsInConditions) {
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(
      dm_->BuscaSaldoContaAnaliticaPeriodoDivisoes(1, 1, 202405, 3, 9, -1, -1, -1, -1, -1, "", "",
                                                   "4.1", "1,2", "5", "", "", "7", "'A','B'", ""),
      0);
  ASSERT_EQ(trace_->Statements().size(), 2u);
  EXPECT_EQ(trace_->Statements()[0],
            " select sum(coalesce(d.val_divisao, 0)) total  from ctb_lancamento_dividido d, "
            "ctb_lancamento l where l.lancamento = d.lancamento and l.empresa = d.empresa and "
            "l.revenda = d.revenda and l.ano_mes = d.ano_mes and l.empresa = 1 and l.revenda = 1 "
            "and l.conta = '4.1' and l.ano_mes = 202405 and l.dia between 3 and 9   and natureza "
            "= 'D' and revenda_divisao in (7) and centro_custo in (1,2) and fonte in (5) and "
            "modalidade_operacao in ('A','B')");
}

TEST_P(SaldoPeriodoDivisoesTest, ChartWalkerAddsAnalyticAccounts) {
  Popula(11);
  Bind();
  double esperado = 0;
  for (int c = 0; c < 4; ++c)
    esperado += dm_->BuscaSaldoContaAnaliticaPeriodoDivisoes(1, 1, 202405, 1, 20, -1, -1, -1, -1,
                                                             -1, "", "", fmt::format("4.{}", c),
                                                             "1,3", "", "", "", "", "", "");
  double saldo = 0;
  EXPECT_NEAR(dm_->BuscaSaldoContaPeriodoDivisoes(1, 1, 202405, 1, 20, -1, -1, -1, -1, -1, "", "",
                                                  "4", "S", "1,3", "", "", "", "", "", saldo, ""),
              esperado, 0.005);
  EXPECT_NEAR(saldo, esperado, 0.005);
}

KVC_INSTANTIATE_BACKENDS(SaldoPeriodoDivisoesTest);

}  // namespace
}  // namespace kvc::testing
