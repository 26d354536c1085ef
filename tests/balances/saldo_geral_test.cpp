// The general (cached) balance equals the plain one for any data, filters,
// exclusions and books, and a chart walk through it reads each set once.
#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <random>
#include <string>

#include <fmt/format.h>

#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

// ---- the grouped statements of the general balance, company 1, dealership 1,
// carried-forward year 2023 (the movement ones take their values as
// parameters)

constexpr char kSaldoAnterior[] =
    "select conta, sum(saldo) saldo"
    " from  CTB_SALDO_ANTERIOR "
    " where empresa = 1 and REVENDA = 1 "
    "   and ano = 2023 "
    " group by conta";
constexpr char kSaldoAnteriorCV[] =
    "select conta, sum(saldo) saldo"
    " from  CTB_SALDO_ANTERIOR_CV "
    " where empresa = 1 and REVENDA = 1 "
    "   and ano = 2023 "
    " group by conta";
// With the exclusion list (9): the division table, no dealership condition.
constexpr char kSaldoAnteriorExclusao9[] =
    "select conta, sum(saldo) saldo"
    " from  CTB_SALDO_ANTERIOR_DIVISAO "
    " where empresa = 1"
    "   and ano = 2023"
    " and ((REVENDA_DIVISAO is null) or (REVENDA_DIVISAO not in (9))) "
    " group by conta";
constexpr char kSaldoDivisao[] =
    "select e.conta, e.revenda_divisao, e.centro_custo, e.fonte, e.categoria, e.secao_oficina, "
    "e.tipo_item, e.modalidade_operacao,"
    " sum(e.saldo) saldo  "
    " from ctb_saldo_anterior_divisao e "
    " where e.empresa = 1"
    " and e.revenda = 1"
    " and e.ano = 2023 "
    " group by e.conta, e.revenda_divisao, e.centro_custo, e.fonte, e.categoria, e.secao_oficina, "
    "e.tipo_item, e.modalidade_operacao";
constexpr char kSaldoDivisaoCV[] =
    "select e.conta, e.revenda_divisao, e.centro_custo, e.fonte, e.categoria, e.secao_oficina, "
    "e.tipo_item, e.modalidade_operacao,"
    " sum(e.saldo) saldo  "
    " from ctb_saldo_anterior_divisao_cv e "
    " where e.empresa = 1"
    " and e.revenda = 1"
    " and e.ano = 2023"
    " group by e.conta, e.revenda_divisao, e.centro_custo, e.fonte, e.categoria, e.secao_oficina, "
    "e.tipo_item, e.modalidade_operacao";

constexpr char kMovimento[] =
    "select l.natureza, l.conta, sum(l.val_lancamento) total"
    " from ctb_lancamento l"
    " where l.empresa = :EMPRESA"
    " and   l.revenda = :REVENDA"
    " and   l.ano_mes between :PERINI and :PERFIN"
    " group by l.natureza, l.conta";
constexpr char kMovimentoHistorico2[] =
    "select l.natureza, l.conta, sum(l.val_lancamento) total"
    " from ctb_lancamento l"
    " where l.empresa = :EMPRESA"
    " and   l.revenda = :REVENDA"
    " and   l.ano_mes between :PERINI and :PERFIN"
    " and l.HISTORICO_PADRAO <> 2"
    " group by l.natureza, l.conta";
constexpr char kMovimentoCV[] =
    "select l.natureza, l.conta, sum(l.val_lancamento) total"
    " from ctb_lancamento_cv l"
    " where l.empresa = :EMPRESA"
    " and   l.revenda = :REVENDA"
    " and   l.ano_mes between :PERINI and :PERFIN"
    " group by l.natureza, l.conta";
constexpr char kMovimentoDivisao[] =
    "select l.natureza, l.conta, d.revenda_divisao, d.centro_custo, d.fonte, d.categoria, "
    "d.secao_oficina, d.tipo_item, d.modalidade_operacao,"
    " sum(coalesce(d.val_divisao, 0)) total"
    " from ctb_lancamento_dividido d, ctb_lancamento l"
    " where l.lancamento = d.lancamento"
    " and l.empresa = d.empresa"
    " and l.revenda = d.revenda"
    " and l.ano_mes = d.ano_mes"
    " and l.empresa = :EMPRESA"
    " and l.revenda = :REVENDA"
    " and   l.ano_mes between :PERINI and :PERFIN"
    " group by l.natureza, l.conta, d.revenda_divisao, d.centro_custo, d.fonte, d.categoria, "
    "d.secao_oficina, d.tipo_item, d.modalidade_operacao";
constexpr char kMovimentoExclusao9[] =
    "select L.NATUREZA, L.CONTA, D.REVENDA_DIVISAO, D.CENTRO_CUSTO, D.FONTE, D.CATEGORIA, "
    "D.SECAO_OFICINA, D.TIPO_ITEM, D.MODALIDADE_OPERACAO,"
    "        sum(coalesce(D.VAL_DIVISAO, 0)) as TOTAL  "
    " from CTB_LANCAMENTO L       "
    " left outer join CTB_LANCAMENTO_DIVIDIDO D          on D.EMPRESA = L.EMPRESA        "
    " and D.REVENDA = L.REVENDA        "
    " and D.ANO_MES = L.ANO_MES        "
    " and D.LANCAMENTO = L.LANCAMENTO "
    " where L.EMPRESA = :EMPRESA  "
    " and L.REVENDA = :REVENDA  "
    " and L.ANO_MES between :PERINI and :PERFIN"
    " and ((L.REVENDA_OPERACAO is null) or (L.REVENDA_OPERACAO not in (9))) "
    " and ((D.REVENDA_DIVISAO is null) or (D.REVENDA_DIVISAO not in (9))) "
    " and ((D.REVENDA_ORIGEM is null) or (D.REVENDA_ORIGEM not in (9))) "
    " group by L.NATUREZA, L.CONTA, D.REVENDA_DIVISAO, D.CENTRO_CUSTO, D.FONTE, D.CATEGORIA, "
    "D.SECAO_OFICINA, D.TIPO_ITEM, D.MODALIDADE_OPERACAO";
constexpr char kMovimentoJuncao9[] =
    "select l.natureza, l.conta, cld.REVENDA_DIVISAO, cld.CENTRO_CUSTO, cld.FONTE, cld.CATEGORIA, "
    "cld.SECAO_OFICINA, cld.TIPO_ITEM, cld.MODALIDADE_OPERACAO,"
    " sum(coalesce(cld.VAL_DIVISAO, 0)) total"
    " from ctb_lancamento l"
    " inner join CTB_LANCAMENTO_DIVIDIDO cld "
    "    on (cld.EMPRESA = l.EMPRESA "
    "   and cld.REVENDA = l.REVENDA "
    "   and cld.ANO_MES = l.ANO_MES "
    "   and cld.LANCAMENTO = l.LANCAMENTO "
    " and ((cld.REVENDA_DIVISAO is null) or (cld.REVENDA_DIVISAO not in (9))) "
    " and ((cld.REVENDA_ORIGEM is null) or (cld.REVENDA_ORIGEM not in (9))) ) "
    " where l.empresa = :EMPRESA"
    " and l.revenda = :REVENDA"
    " and l.ano_mes between :PERINI and :PERFIN"
    " and ((l.REVENDA_OPERACAO is null) or (l.REVENDA_OPERACAO not in (9))) "
    " group by l.natureza, l.conta, cld.REVENDA_DIVISAO, cld.CENTRO_CUSTO, cld.FONTE, "
    "cld.CATEGORIA, cld.SECAO_OFICINA, cld.TIPO_ITEM, cld.MODALIDADE_OPERACAO";
constexpr char kMensal[] =
    "select 'D' natureza, conta, sum(saldo) total"
    " from ctb_salant_mes"
    " where empresa = :EMPRESA"
    " and   revenda = :REVENDA"
    " and   ano_mes between :PERINI and :PERFIN"
    " group by conta";
constexpr char kMensalDivisao[] =
    "select 'D' natureza, e.conta, e.revenda_divisao, e.centro_custo, e.fonte, e.categoria, "
    "e.secao_oficina, e.tipo_item, e.modalidade_operacao,"
    " sum(e.saldo) total"
    " from ctb_salant_divisao_mes e "
    " where e.empresa = :EMPRESA"
    " and   e.revenda = :REVENDA"
    " and   e.ano_mes between :PERINI and :PERFIN "
    " group by e.conta, e.revenda_divisao, e.centro_custo, e.fonte, e.categoria, e.secao_oficina, "
    "e.tipo_item, e.modalidade_operacao";

class SaldoGeralTest : public ModuleTest {
 protected:
  // Random journal rows (with division rows for most), carried-forward rows
  // (plain and by division), monthly rows, and second-book rows, over a small
  // chart of ten analytic accounts under two synthetic ones.
  void Popula(unsigned seed) {
    std::mt19937 rng(seed);
    auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    DadosDeTeste dados(*raw_);
    dados.Conta("1", {.nivel = "S"}).Conta("1.S", {.superiora = "1", .nivel = "S"});
    for (int c = 0; c < 10; ++c)
      dados.Conta(fmt::format("1.{}", c), {.superiora = c < 5 ? "1" : "1.S", .nivel = "A"});
    raw_->Begin(db::Isolation::kReadCommitted);
    int seq = 0;
    // Within a row the values are drawn last column first, so that every
    // seed keeps the rows it has always had.
    for (int n = 1; n <= 160; ++n) {
      DadosDeTeste livro = pick(0, 5) == 0 ? dados.SegundoLivro() : dados;
      const int ano_mes = (pick(0, 1) ? 2024 : 2023) * 100 + pick(1, 12);
      const std::string conta = fmt::format("1.{}", pick(0, 9));
      const double valor = pick(1, 50000) / 100.0;
      const std::optional<int> operacao =
          pick(0, 3) == 0 ? std::nullopt : std::optional<int>(pick(1, 4));
      const int historico = pick(1, 3);
      const int dia = pick(1, 28);
      const std::string natureza = pick(0, 1) ? "D" : "C";
      livro.Lancamento(ano_mes, n, conta, natureza, valor,
                       {.dia = dia, .historico_padrao = historico, .revenda_operacao = operacao});
      if (pick(0, 4) == 0) continue;  // no division rows
      for (int d = pick(1, 2); d > 0; --d) {
        const std::optional<int> revenda_origem =
            pick(0, 2) ? std::optional<int>(pick(1, 4)) : std::nullopt;
        const std::optional<std::string> tipo_item =
            pick(0, 1) ? std::optional<std::string>("P") : std::nullopt;
        const std::optional<int> fonte = pick(0, 1) ? std::nullopt : std::optional<int>(7);
        const int centro_custo = pick(1, 3);
        const int revenda_divisao = pick(1, 4);
        livro.LancamentoDividido(++seq, ano_mes, n, valor / 2,
                                 {.revenda_divisao = revenda_divisao,
                                  .centro_custo = centro_custo,
                                  .fonte = fonte,
                                  .tipo_item = tipo_item,
                                  .revenda_origem = revenda_origem});
      }
    }
    for (int c = 0; c < 10; ++c) {
      if (c % 4 == 3) continue;  // some accounts without carried-forward rows
      const std::string conta = fmt::format("1.{}", c);
      dados.SaldoAnterior(conta, 2023, pick(-9999, 9999) / 100.0);
      dados.SegundoLivro().SaldoAnterior(conta, 2023, pick(-999, 999) / 100.0);
      for (int d = 1; d <= 2; ++d) {
        const double saldo = pick(-999, 999) / 100.0;
        const int centro_custo = pick(1, 3);
        const int revenda_divisao = pick(1, 4);
        dados.SaldoAnteriorDivisao(
            ++seq, conta, 2023, saldo,
            {.revenda_divisao = revenda_divisao, .centro_custo = centro_custo});
      }
      dados.SaldoMes(conta, 202403, pick(-999, 999) / 100.0);
    }
    // The second book's division rows, from a stream of their own so that
    // the rows above stay as they were for every seed.
    std::mt19937 rng_cv(seed + 1);
    auto pick_cv = [&rng_cv](int lo, int hi) {
      return std::uniform_int_distribution<int>(lo, hi)(rng_cv);
    };
    for (int c = 0; c < 10; ++c) {
      if (c % 4 == 3) continue;
      for (int d = 1; d <= 2; ++d) {
        const double saldo = pick_cv(-999, 999) / 100.0;
        const int centro_custo = pick_cv(1, 3);
        const int revenda_divisao = pick_cv(1, 4);
        dados.SegundoLivro().SaldoAnteriorDivisao(
            ++seq, fmt::format("1.{}", c), 2023, saldo,
            {.revenda_divisao = revenda_divisao, .centro_custo = centro_custo});
      }
    }
    raw_->Commit();
  }
};

TEST_P(SaldoGeralTest, GeneralBalanceEqualsPlainBalanceForRandomQueries) {
  Popula(7);
  Bind();
  std::mt19937 rng(11);
  auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  const std::vector<std::string> listas = {"", "(3)", "(1,2)"};
  const std::vector<std::string> modalidades = {"", "SPED", "P"};
  int abertura_segundo_livro = 0;
  for (int i = 0; i < 120; ++i) {
    const std::string conta = fmt::format("1.{}", pick(0, 9));
    int ano_mes = 2024 * 100 + pick(0, 12);
    const int centro = pick(0, 2) ? -1 : pick(1, 3);
    int revenda_divisao = pick(0, 2) ? -1 : pick(1, 4);
    const int fonte = pick(0, 4) ? -1 : 7;
    const std::string tipo_item = pick(0, 4) ? "" : "P";
    std::string modalidade = modalidades[pick(0, 2)];
    const std::string centros = pick(0, 5) ? "" : "1,3";
    const bool mensal = pick(0, 5) == 0;
    const std::string filtro = pick(0, 4) ? "" : "{$ALIAS$}.HISTORICO_PADRAO <> 2";
    std::string lista = listas[pick(0, 2)];
    if (i % 8 == 0) {
      // The opening balance of the second book with a division filter and
      // no exclusion list, which random draws alone seldom reach.
      ano_mes = 202400;
      modalidade = "SPED";
      revenda_divisao = 1 + i % 4;
      lista.clear();
    }
    if (ano_mes % 100 == 0 && modalidade == "SPED" && revenda_divisao != -1 && lista.empty())
      ++abertura_segundo_livro;
    const double plain =
        dm_->BuscaSaldoContaAnalitica(1, 1, ano_mes, 0, 0, centro, fonte, -1, -1, revenda_divisao,
                                      tipo_item, modalidade, conta, centros, mensal, filtro, lista);
    const double geral = dm_->BuscaSaldoContaAnaliticaGeral(
        1, 1, ano_mes, 0, 0, centro, fonte, -1, -1, revenda_divisao, tipo_item, modalidade, conta,
        centros, mensal, filtro, lista);
    EXPECT_NEAR(geral, plain, 0.005)
        << "query " << i << ": " << conta << " " << ano_mes << " cc " << centro << " rd "
        << revenda_divisao << " fonte " << fonte << " tipo '" << tipo_item << "' mod '"
        << modalidade << "' centros '" << centros << "' mensal " << mensal << " filtro '" << filtro
        << "' lista '" << lista << "'";
  }
  EXPECT_GE(abertura_segundo_livro, 15);
}

TEST_P(SaldoGeralTest, ChartWalkThroughGeneralBalanceReadsEachSetOnce) {
  Popula(3);
  Bind();
  double plain = 0;
  dm_->BuscaSaldoConta(1, 1, 202406, 0, 0, -1, -1, -1, -1, -1, "", "", "1", "S", "", plain, false,
                       false, "", "");
  trace_->Clear();
  double geral = 0;
  dm_->BuscaSaldoConta(1, 1, 202406, 0, 0, -1, -1, -1, -1, -1, "", "", "1", "S", "", geral, true,
                       false, "", "");
  EXPECT_NEAR(geral, plain, 0.005);
  size_t grouped = 0;
  for (const auto& s : trace_->Statements())
    if (s.find("group by l.natureza, l.conta") != std::string::npos) ++grouped;
  EXPECT_EQ(grouped, 1u) << "one grouped movement statement for the whole walk";
  // Accounts without carried-forward rows fall back to the period statements;
  // the others cost no statement at all.
  for (const auto& s : trace_->Statements())
    EXPECT_EQ(s.find("and conta = '1.0'"), std::string::npos) << s;
}

// The grouped movement read of a whole chart used to start from a month
// range of IX_CTB_LANCAMENTO_2, look up every entry in the table and sort
// them: ten times slower at 2,000,000 entries than reading the account
// index, which holds the account, nature, month and amount in the grouping's
// order. The planner statistics of the schema steer it there.
TEST_P(SaldoGeralTest, OnSqliteTheGroupedMovementIsReadFromTheAccountIndexAlone) {
  if (GetParam() != "sqlite") GTEST_SKIP() << "a plan of the embedded database";
  Popula(4);
  Bind();
  double saldo = 0;
  dm_->BuscaSaldoConta(1, 1, 202406, 0, 0, -1, -1, -1, -1, -1, "", "", "1", "S", "", saldo, true,
                       false, "", "");
  std::vector<std::string> grouped;
  for (const auto& s : trace_->Statements())
    if (s.find("group by l.natureza, l.conta") != std::string::npos) grouped.push_back(s);
  ASSERT_EQ(grouped.size(), 1u);
  const db::BoundParams params = {{"EMPRESA", db::Value(1)},
                                  {"REVENDA", db::Value(1)},
                                  {"PERINI", db::Value(202301)},
                                  {"PERFIN", db::Value(202406)}};
  std::string plan;
  for (const auto& row : raw_->Query("explain query plan " + grouped[0], params).rows)
    plan += row.back().AsString() + "\n";
  EXPECT_NE(plan.find("COVERING INDEX IX_CTB_LANCAMENTO_1"), std::string::npos) << plan;
  EXPECT_EQ(plan.find("TEMP B-TREE"), std::string::npos) << plan;
}

TEST_P(SaldoGeralTest, ListVariantWithOneElementEqualsSingleValue) {
  Popula(5);
  Bind();
  for (int cc = 1; cc <= 3; ++cc)
    EXPECT_NEAR(dm_->BuscaSaldoContaAnalitica(1, 1, 202412, 0, 0, -1, -1, -1, -1, -1, "", "", "1.2",
                                              std::to_string(cc), false, "", ""),
                dm_->BuscaSaldoContaAnalitica(1, 1, 202412, 0, 0, cc, -1, -1, -1, -1, "", "", "1.2",
                                              "", false, "", ""),
                0.005);
}

TEST_P(SaldoGeralTest, DivisionVariantWithOneElementListsEqualsSingleValues) {
  Popula(13);
  Bind();
  std::mt19937 rng(17);
  auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  const std::vector<std::string> listas = {"", "(3)", "(1,2)"};
  for (int i = 0; i < 60; ++i) {
    const std::string conta = fmt::format("1.{}", pick(0, 9));
    const int ano_mes = 2024 * 100 + pick(0, 12);
    const int centro = pick(0, 1) ? -1 : pick(1, 3);
    const int fonte = pick(0, 3) ? -1 : 7;
    const std::string lista = listas[pick(0, 2)];
    const bool mensal = pick(0, 5) == 0;
    const double plain = dm_->BuscaSaldoContaAnalitica(1, 1, ano_mes, 0, 0, centro, fonte, -1, -1,
                                                       -1, "", "", conta, "", mensal, "", lista);
    // The same filters as one-element lists, the single values left at -1.
    const std::string centros = centro == -1 ? "" : std::to_string(centro);
    const std::string fontes = fonte == -1 ? "" : std::to_string(fonte);
    const double divisoes = dm_->BuscaSaldoContaAnaliticaDivisoes(
        1, 1, ano_mes, 0, 0, -1, -1, -1, -1, -1, "", "", conta, centros, fontes, "", "", "", "",
        mensal, lista);
    EXPECT_NEAR(divisoes, plain, 0.005)
        << "query " << i << " " << conta << " " << ano_mes << " cc " << centro << " fonte " << fonte
        << " lista '" << lista << "' mensal " << mensal;
    const double geral = dm_->BuscaSaldoContaAnaliticaGeralDivisoes(
        1, 1, ano_mes, 0, 0, -1, -1, -1, -1, -1, "", "", conta, centros, fontes, "", "", "", "",
        mensal, lista);
    EXPECT_NEAR(geral, divisoes, 0.005) << "query " << i;
  }
}

TEST_P(SaldoGeralTest, DivisionListsCoverSeveralValuesAtOnce) {
  Popula(19);
  Bind();
  for (const char* conta : {"1.0", "1.4", "1.7"}) {
    double separados = 0;
    for (int cc = 1; cc <= 3; ++cc)
      separados += dm_->BuscaSaldoContaAnaliticaDivisoes(
          1, 1, 202412, 0, 0, cc, -1, -1, -1, -1, "", "", conta, "", "", "", "", "", "", false, "");
    const double juntos =
        dm_->BuscaSaldoContaAnaliticaDivisoes(1, 1, 202412, 0, 0, -1, -1, -1, -1, -1, "", "", conta,
                                              "1,2,3", "", "", "", "", "", false, "");
    EXPECT_NEAR(juntos, separados, 0.005) << conta;
  }
}

TEST_P(SaldoGeralTest, DivisionVariantAppliesExclusionThroughTheJoin) {
  Popula(23);
  Bind();
  trace_->Clear();
  dm_->BuscaSaldoContaAnaliticaDivisoes(1, 1, 202405, 0, 0, -1, -1, -1, -1, -1, "", "", "1.2", "",
                                        "", "", "", "", "", false, "(3)");
  ASSERT_EQ(trace_->Statements().size(), 2u);
  EXPECT_EQ(trace_->Statements()[1],
            "select l.natureza, sum(coalesce(cld.VAL_DIVISAO, 0)) total from ctb_lancamento l "
            "inner join CTB_LANCAMENTO_DIVIDIDO cld     on (cld.EMPRESA = l.EMPRESA    and "
            "cld.REVENDA = l.REVENDA    and cld.ANO_MES = l.ANO_MES    and cld.LANCAMENTO = "
            "l.LANCAMENTO  and ((cld.REVENDA_DIVISAO is null) or (cld.REVENDA_DIVISAO not in "
            "(3)))  and ((cld.REVENDA_ORIGEM is null) or (cld.REVENDA_ORIGEM not in (3))) )  "
            "where l.empresa = 1 and l.revenda = 1 and l.conta = '1.2' and l.ano_mes between "
            "202401 and 202405 and ((l.REVENDA_OPERACAO is null) or (l.REVENDA_OPERACAO not in "
            "(3)))  group by l.natureza");
}

TEST_P(SaldoGeralTest, DivisionChartWalkerSumsAnalyticDescendants) {
  Popula(29);
  Bind();
  for (bool geral : {false, true}) {
    double esperado = 0;
    for (int c = 0; c < 10; ++c)
      esperado += dm_->BuscaSaldoContaAnaliticaDivisoes(1, 1, 202410, 0, 0, -1, -1, -1, -1, -1, "",
                                                        "", fmt::format("1.{}", c), "1,2", "", "",
                                                        "", "", "", false, "");
    double saldo = 0;
    EXPECT_NEAR(
        dm_->BuscaSaldoContaDivisoes(1, 1, 202410, 0, 0, -1, -1, -1, -1, -1, "", "", "1", "S",
                                     "1,2", "", "", "", "", "", saldo, geral, false, ""),
        esperado, 0.005);
  }
}

// The exact text of each grouped statement, one test per way of reading the
// sets; account 1.0 always has carried-forward rows, so no fallback runs.
TEST_P(SaldoGeralTest, PlainGeneralBalanceReadsEachSetInOneStatement) {
  Popula(31);
  Bind();
  trace_->Clear();
  dm_->BuscaSaldoContaAnaliticaGeral(1, 1, 202406, 0, 0, -1, -1, -1, -1, -1, "", "", "1.0", "",
                                     false, "{$ALIAS$}.HISTORICO_PADRAO <> 2", "");
  EXPECT_EQ(trace_->Statements(), (std::vector<std::string>{kSaldoAnterior, kMovimentoHistorico2}));
}

TEST_P(SaldoGeralTest, GeneralBalanceWithADivisionFilterReadsTheDivisionSets) {
  Popula(31);
  Bind();
  trace_->Clear();
  dm_->BuscaSaldoContaAnaliticaGeral(1, 1, 202406, 0, 0, 2, -1, -1, -1, -1, "", "", "1.0", "",
                                     false, "", "");
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{kSaldoAnterior, kSaldoDivisao, kMovimentoDivisao}));
}

TEST_P(SaldoGeralTest, GeneralBalanceWithAnExclusionListJoinsTheDivisionRows) {
  Popula(31);
  Bind();
  trace_->Clear();
  dm_->BuscaSaldoContaAnaliticaGeral(1, 1, 202406, 0, 0, -1, -1, -1, -1, -1, "", "", "1.0", "",
                                     false, "", "(9)");
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{kSaldoAnteriorExclusao9, kMovimentoExclusao9}));
  // The division variant keeps the carried-forward set and reads the
  // movement through the join that excludes the dealerships.
  trace_->Clear();
  dm_->BuscaSaldoContaAnaliticaGeralDivisoes(1, 1, 202406, 0, 0, -1, -1, -1, -1, -1, "", "", "1.0",
                                             "", "", "", "", "", "", false, "(9)");
  EXPECT_EQ(trace_->Statements(), (std::vector<std::string>{kMovimentoJuncao9}));
}

TEST_P(SaldoGeralTest, GeneralBalanceFromTheMonthlyTables) {
  Popula(31);
  Bind();
  trace_->Clear();
  dm_->BuscaSaldoContaAnaliticaGeral(1, 1, 202406, 0, 0, -1, -1, -1, -1, -1, "", "", "1.0", "",
                                     true, "", "");
  EXPECT_EQ(trace_->Statements(), (std::vector<std::string>{kSaldoAnterior, kMensal}));
  trace_->Clear();
  dm_->BuscaSaldoContaAnaliticaGeral(1, 1, 202406, 0, 0, 2, -1, -1, -1, -1, "", "", "1.0", "", true,
                                     "", "");
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{kSaldoAnterior, kSaldoDivisao, kMensalDivisao}));
}

TEST_P(SaldoGeralTest, GeneralBalanceOfTheSecondBook) {
  Popula(31);
  Bind();
  trace_->Clear();
  dm_->BuscaSaldoContaAnaliticaGeral(1, 1, 202406, 0, 0, -1, -1, -1, -1, -1, "", "SPED", "1.0", "",
                                     false, "", "");
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{kSaldoAnteriorCV, kMovimento, kMovimentoCV}));
  // The opening balance with a division filter reads the second book's
  // division rows, without the exclusion predicate.
  trace_->Clear();
  dm_->BuscaSaldoContaAnaliticaGeral(1, 1, 202400, 0, 0, -1, -1, -1, -1, 1, "", "SPED", "1.0", "",
                                     false, "", "");
  EXPECT_EQ(trace_->Statements(), (std::vector<std::string>{kSaldoAnteriorCV, kSaldoDivisaoCV}));
}

KVC_INSTANTIATE_BACKENDS(SaldoGeralTest);

}  // namespace
}  // namespace kvc::testing
