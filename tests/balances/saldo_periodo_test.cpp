// The movement of an account between two days of a month, on each database:
// exact statements through the trace, the module's cache of the grouped
// movement and its key, the second book, the chart walker, and the cached
// and uncached answers against a reference model computed here from random rows.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <random>
#include <set>
#include <sstream>

#include <fmt/format.h>

#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

// One division row of an entry (all dimensions null unless given).
struct Divisao {
  double valor = 0;
  std::optional<int> revenda_divisao{};
  std::optional<int> centro_custo{};
  std::optional<int> fonte{};
  std::optional<int> categoria{};
  std::optional<int> secao_oficina{};
  std::optional<std::string> tipo_item{};
  std::optional<std::string> modalidade{};
  std::optional<int> revenda_origem{};
};

// The arguments of one call, defaults meaning no filter.
struct Consulta {
  std::string conta = "1.1";
  int dia_inicial = 1;
  int dia_final = 31;
  int centro_custo = -1;
  int fonte = -1;
  int categoria = -1;
  int secao_oficina = -1;
  int revenda_divisao = -1;
  std::string tipo_item{};
  std::string modalidade{};
  std::string centros_custo{};
  bool usa_cache = false;
  std::string lista{};
  int ano_mes = 202405;
  int empresa = 1;
  int revenda = 1;
};

// The statements that load the movement set.
size_t Agrupados(const std::vector<SqlEnviado>& statements) {
  return static_cast<size_t>(
      std::count_if(statements.begin(), statements.end(), [](const std::string& s) {
        return s.find("group by l.natureza, d.revenda_divisao") != std::string::npos;
      }));
}

class SaldoPeriodoTest : public ModuleTest {
 protected:
  // A journal row of the main book, or of the second one with "_CV".
  void Lancamento(int numero, int dia, const std::string& conta, const std::string& natureza,
                  double valor, const std::vector<Divisao>& divisoes = {},
                  std::optional<int> revenda_operacao = std::nullopt, const std::string& livro = "",
                  int ano_mes = 202405, int empresa = 1, int revenda = 1) {
    DadosDeTeste dados(*raw_, empresa, revenda);
    if (livro == "_CV") dados = dados.SegundoLivro();
    dados.Lancamento(ano_mes, numero, conta, natureza, valor,
                     {.dia = dia, .revenda_operacao = revenda_operacao});
    for (const Divisao& d : divisoes)
      dados.LancamentoDividido(++sequencia_, ano_mes, numero, d.valor,
                               {.revenda_divisao = d.revenda_divisao,
                                .centro_custo = d.centro_custo,
                                .fonte = d.fonte,
                                .categoria = d.categoria,
                                .secao_oficina = d.secao_oficina,
                                .tipo_item = d.tipo_item,
                                .modalidade_operacao = d.modalidade,
                                .revenda_origem = d.revenda_origem});
  }
  // An entry with one division row of the whole amount.
  void Dividido(int numero, int dia, const std::string& conta, const std::string& natureza,
                double valor, Divisao d = {}, std::optional<int> revenda_operacao = std::nullopt,
                const std::string& livro = "") {
    d.valor = valor;
    Lancamento(numero, dia, conta, natureza, valor, {d}, revenda_operacao, livro);
  }
  void Conta(const std::string& conta, const std::string& superiora, const std::string& nivel,
             int empresa = 1, int revenda = 1) {
    DadosDeTeste(*raw_, empresa, revenda)
        .Conta(conta, {.superiora = NuloSeVazio(superiora), .nivel = nivel});
  }
  double Movimento(const Consulta& c) {
    return dm_->BuscaSaldoContaAnaliticaPeriodo(
        c.empresa, c.revenda, c.ano_mes, c.dia_inicial, c.dia_final, c.centro_custo, c.fonte,
        c.categoria, c.secao_oficina, c.revenda_divisao, c.tipo_item, c.modalidade, c.conta,
        c.centros_custo, c.usa_cache, c.lista);
  }
  double Plano(const Consulta& c, const std::string& nivel, double saldo) {
    dm_->BuscaSaldoContaPeriodo(c.empresa, c.revenda, c.ano_mes, c.dia_inicial, c.dia_final,
                                c.centro_custo, c.fonte, c.categoria, c.secao_oficina,
                                c.revenda_divisao, c.tipo_item, c.modalidade, c.conta, nivel,
                                c.centros_custo, saldo, c.usa_cache, c.lista);
    return saldo;
  }

  int sequencia_ = 0;
};

constexpr char kAgrupadoInicio[] =
    "select l.natureza, d.revenda_divisao, d.revenda_origem, d.centro_custo,        d.fonte, "
    "d.categoria, d.secao_oficina,        d.tipo_item, d.modalidade_operacao, l.conta,        "
    "sum(coalesce(d.val_divisao, 0)) total  from ctb_lancamento_dividido d, ctb_lancamento l "
    "where l.lancamento = d.lancamento and l.empresa = d.empresa and l.revenda = d.revenda and "
    "l.ano_mes = d.ano_mes and l.empresa = 1 and l.revenda = 1 and l.ano_mes = 202405 and l.dia "
    "between ";
constexpr char kAgrupadoFim[] =
    " group by l.natureza, d.revenda_divisao, d.revenda_origem, d.centro_custo,        d.fonte, "
    "d.categoria, d.secao_oficina,        d.tipo_item, d.modalidade_operacao, l.conta";
constexpr char kMovimentoInicio[] =
    " select sum(coalesce(d.val_divisao, 0)) total  from ctb_lancamento_dividido d, "
    "ctb_lancamento l where l.lancamento = d.lancamento and l.empresa = d.empresa and l.revenda "
    "= d.revenda and l.ano_mes = d.ano_mes and l.empresa = 1 and l.revenda = 1 and l.conta = "
    "'1.1' and l.ano_mes = 202405 and l.dia between ";
constexpr char kMovimentoCVInicio[] =
    " select sum(coalesce(d.val_divisao, 0)) total  from ctb_lancamento_dividido_cv d, "
    "ctb_lancamento_cv l where l.lancamento = d.lancamento and l.empresa = d.empresa and "
    "l.revenda = d.revenda and l.ano_mes = d.ano_mes and l.empresa = 1 and l.revenda = 1 and "
    "l.conta = '1.1' and l.ano_mes = 202405 and l.dia between ";
constexpr char kExclusao3[] =
    " and ((L.REVENDA_OPERACAO is null) or (L.REVENDA_OPERACAO not in (3))) "
    " and ((D.REVENDA_DIVISAO is null) or (D.REVENDA_DIVISAO not in (3))) "
    " and ((D.REVENDA_ORIGEM is null) or (D.REVENDA_ORIGEM not in (3))) ";
constexpr char kExclusao3Minusculo[] =
    " and ((l.REVENDA_OPERACAO is null) or (l.REVENDA_OPERACAO not in (3))) "
    " and ((d.REVENDA_DIVISAO is null) or (d.REVENDA_DIVISAO not in (3))) "
    " and ((d.REVENDA_ORIGEM is null) or (d.REVENDA_ORIGEM not in (3))) ";

TEST_P(SaldoPeriodoTest, CachedCallRunsTheGroupedStatementAndKeepsTheKey) {
  Dividido(1, 3, "1.1", "D", 100);
  Dividido(2, 17, "1.1", "C", 30);
  Dividido(3, 10, "1.1", "D", 7, {}, 3);  // operation of excluded dealership 3
  Bind();
  EXPECT_EQ(dm_->ChavesCache(), (std::array<int32_t, 5>{-1, -1, -1, -1, -1}));
  EXPECT_FALSE(dm_->CacheExiste(2));
  trace_->Clear();
  EXPECT_NEAR(Movimento({.dia_inicial = 3, .dia_final = 17, .usa_cache = true, .lista = "(3)"}), 70,
              0.005);
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{std::string(kAgrupadoInicio) + "3 and 17" + kExclusao3 +
                                      kAgrupadoFim}));
  EXPECT_EQ(dm_->ChavesCache(), (std::array<int32_t, 5>{1, 1, 202405, 3, 17}));
  EXPECT_TRUE(dm_->CacheExiste(2));
}

TEST_P(SaldoPeriodoTest, GroupedStatementWithoutListKeepsTheBlankPredicates) {
  Dividido(1, 3, "1.1", "D", 100);
  Bind();
  trace_->Clear();
  EXPECT_NEAR(Movimento({.usa_cache = true}), 100, 0.005);
  EXPECT_EQ(trace_->Statements(), (std::vector<std::string>{std::string(kAgrupadoInicio) +
                                                            "1 and 31" + "  " + kAgrupadoFim}));
}

TEST_P(SaldoPeriodoTest, UncachedCallRunsTheDebitAndCreditStatements) {
  Dividido(1, 4, "1.1", "D", 100, {.revenda_divisao = 2, .centro_custo = 20});
  Dividido(2, 5, "1.1", "C", 30, {.revenda_divisao = 2, .centro_custo = 10});
  Dividido(3, 5, "1.1", "C", 50, {.revenda_divisao = 2, .centro_custo = 30});  // other centre
  Dividido(4, 5, "1.1", "D", 9, {.revenda_divisao = 2, .centro_custo = 10, .revenda_origem = 3});
  Bind();
  trace_->Clear();
  // The list of cost centres wins over the single one.
  EXPECT_NEAR(Movimento({.dia_inicial = 2,
                         .dia_final = 9,
                         .centro_custo = 30,
                         .revenda_divisao = 2,
                         .centros_custo = "10,20",
                         .lista = "(3)"}),
              70, 0.005);
  const std::string base = std::string(kMovimentoInicio) + "2 and 9" + kExclusao3Minusculo;
  const std::string fd = " and revenda_divisao = 2 and centro_custo in (10,20)";
  EXPECT_EQ(trace_->Statements(), (std::vector<std::string>{base + " and natureza = 'D'" + fd,
                                                            base + " and natureza = 'C'" + fd}));
  EXPECT_EQ(dm_->ChavesCache(), (std::array<int32_t, 5>{-1, -1, -1, -1, -1}));
  EXPECT_FALSE(dm_->CacheExiste(2));
}

TEST_P(SaldoPeriodoTest, UncachedStatementsWithoutListOrFilter) {
  Bind();
  trace_->Clear();
  EXPECT_EQ(Movimento({}), 0);
  const std::string base = std::string(kMovimentoInicio) + "1 and 31" + "  ";
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{base + " and natureza = 'D'", base + " and natureza = 'C'"}));
}

TEST_P(SaldoPeriodoTest, EveryDivisionFilterAndModalityGoesIntoTheStatement) {
  Bind();
  trace_->Clear();
  Movimento({.centro_custo = 10,
             .fonte = 7,
             .categoria = 5,
             .secao_oficina = 9,
             .revenda_divisao = 2,
             .tipo_item = "P",
             .modalidade = "V"});
  const std::string base = std::string(kMovimentoInicio) + "1 and 31" + "  ";
  const std::string fd =
      " and revenda_divisao = 2 and centro_custo = 10 and fonte = 7 and categoria = 5 and "
      "secao_oficina = 9 and tipo_item = 'P' and modalidade_operacao = 'V'";
  EXPECT_EQ(trace_->Statements(), (std::vector<std::string>{base + " and natureza = 'D'" + fd,
                                                            base + " and natureza = 'C'" + fd}));
}

TEST_P(SaldoPeriodoTest, SpedRunsTheSecondBookStatementsWithTheReducedFilter) {
  Bind();
  const Consulta c{.centro_custo = 10,
                   .fonte = 7,
                   .categoria = 5,
                   .secao_oficina = 9,
                   .revenda_divisao = 2,
                   .tipo_item = "P",
                   .modalidade = "SPED",
                   .lista = "(3)"};
  trace_->Clear();
  Movimento(c);
  const std::string base = std::string(kMovimentoInicio) + "1 and 31" + kExclusao3Minusculo;
  const std::string fd =
      " and revenda_divisao = 2 and centro_custo = 10 and fonte = 7 and categoria = 5 and "
      "secao_oficina = 9 and tipo_item = 'P'";
  const std::string base_cv = std::string(kMovimentoCVInicio) + "1 and 31";
  const std::string fd_cv = " and revenda_divisao = 2 and centro_custo = 10 and tipo_item = 'P'";
  const std::vector<std::string> cv = {base_cv + " and natureza = 'D'" + fd_cv,
                                       base_cv + " and natureza = 'C'" + fd_cv};
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{base + " and natureza = 'D'" + fd,
                                      base + " and natureza = 'C'" + fd, cv[0], cv[1]}));

  // Cached, the second book is still read by its own statements.
  Consulta cached = c;
  cached.usa_cache = true;
  trace_->Clear();
  Movimento(cached);
  EXPECT_EQ(
      trace_->Statements(),
      (std::vector<std::string>{
          std::string(kAgrupadoInicio) + "1 and 31" + kExclusao3 + kAgrupadoFim, cv[0], cv[1]}));
  trace_->Clear();
  Movimento(cached);
  EXPECT_EQ(trace_->Statements(), cv);
}

TEST_P(SaldoPeriodoTest, SpedAddsSecondBookIgnoringSourceCategoryAndSection) {
  Dividido(1, 4, "1.1", "D", 100,
           {.revenda_divisao = 2, .fonte = 7, .categoria = 5, .tipo_item = "P"});
  Dividido(2, 4, "1.1", "D", 1000,
           {.revenda_divisao = 2, .fonte = 8, .categoria = 5, .tipo_item = "P"});
  // Second book: source, category and section do not narrow it; the division
  // dealership and the item type do; no dealership is excluded.
  Dividido(1, 4, "1.1", "D", 40,
           {.revenda_divisao = 2, .fonte = 8, .secao_oficina = 1, .tipo_item = "P"}, 3, "_CV");
  Dividido(2, 6, "1.1", "C", 15,
           {.revenda_divisao = 2, .categoria = 99, .tipo_item = "P", .revenda_origem = 3},
           std::nullopt, "_CV");
  Dividido(3, 6, "1.1", "D", 500, {.revenda_divisao = 4, .fonte = 7, .tipo_item = "P"},
           std::nullopt, "_CV");
  Dividido(4, 6, "1.1", "D", 700, {.revenda_divisao = 2, .fonte = 7, .tipo_item = "X"},
           std::nullopt, "_CV");
  Lancamento(5, 6, "1.1", "D", 900, {}, std::nullopt, "_CV");  // no division rows
  Bind();
  for (bool cache : {false, true}) {
    const Consulta c{.fonte = 7,
                     .categoria = 5,
                     .secao_oficina = 2,
                     .revenda_divisao = 2,
                     .tipo_item = "P",
                     .modalidade = "SPED",
                     .usa_cache = cache,
                     .lista = "(3)"};
    Consulta sem_secao = c;
    sem_secao.secao_oficina = -1;
    // The section filter of the main book leaves its entry out.
    EXPECT_NEAR(Movimento(c), 40 - 15, 0.005) << "cache " << cache;
    EXPECT_NEAR(Movimento(sem_secao), 100 + 40 - 15, 0.005) << "cache " << cache;
    Consulta sem_sped = sem_secao;
    sem_sped.modalidade = "";
    EXPECT_NEAR(Movimento(sem_sped), 100, 0.005) << "cache " << cache;
  }
}

TEST_P(SaldoPeriodoTest, TwoCachedCallsForDifferentAccountsRunTheGroupedStatementOnce) {
  Dividido(1, 3, "1.1", "D", 100);
  Dividido(2, 3, "1.2", "C", 30);
  Dividido(3, 3, "1.2", "D", 5);
  Bind();
  trace_->Clear();
  EXPECT_NEAR(Movimento({.conta = "1.1", .usa_cache = true}), 100, 0.005);
  EXPECT_NEAR(Movimento({.conta = "1.2", .usa_cache = true}), -25, 0.005);
  EXPECT_NEAR(Movimento({.conta = "1.3", .usa_cache = true}), 0, 0.005);
  EXPECT_EQ(trace_->Statements().size(), 1u);
  EXPECT_EQ(Agrupados(trace_->Statements()), 1u);
}

TEST_P(SaldoPeriodoTest, CachedCallWithAnotherKeyValueReloadsTheSet) {
  Dividido(1, 3, "1.1", "D", 100);
  Lancamento(2, 3, "1.1", "D", 40, {{.valor = 40}}, std::nullopt, "", 202405, 1, 2);
  Bind();
  const Consulta base{.dia_inicial = 3, .dia_final = 17, .usa_cache = true};
  Movimento(base);
  std::vector<Consulta> outras(5, base);
  outras[0].empresa = 2;
  outras[1].revenda = 2;
  outras[2].ano_mes = 202406;
  outras[3].dia_inicial = 4;
  outras[4].dia_final = 2;
  const std::vector<double> esperados = {0, 40, 0, 0, 0};
  for (size_t i = 0; i < outras.size(); ++i) {
    trace_->Clear();
    EXPECT_NEAR(Movimento(outras[i]), esperados[i], 0.005) << i;
    EXPECT_EQ(Agrupados(trace_->Statements()), 1u) << i;
    const Consulta& o = outras[i];
    EXPECT_EQ(dm_->ChavesCache(), (std::array<int32_t, 5>{o.empresa, o.revenda, o.ano_mes,
                                                          o.dia_inicial, o.dia_final}));
    trace_->Clear();
    EXPECT_NEAR(Movimento(base), 100, 0.005) << i;
    EXPECT_EQ(Agrupados(trace_->Statements()), 1u) << i;
  }
}

TEST_P(SaldoPeriodoTest, CachedCallAfterUncachedOneStillLoadsTheSet) {
  Dividido(1, 3, "1.1", "D", 100);
  Dividido(2, 4, "1.1", "C", 25);
  Bind();
  EXPECT_NEAR(Movimento({}), 75, 0.005);
  EXPECT_FALSE(dm_->CacheExiste(2));
  trace_->Clear();
  EXPECT_NEAR(Movimento({.usa_cache = true}), 75, 0.005);
  EXPECT_EQ(Agrupados(trace_->Statements()), 1u);
  EXPECT_TRUE(dm_->CacheExiste(2));
  // An uncached call in between leaves the loaded set as it is.
  EXPECT_NEAR(Movimento({}), 75, 0.005);
  trace_->Clear();
  EXPECT_NEAR(Movimento({.usa_cache = true}), 75, 0.005);
  EXPECT_TRUE(trace_->Statements().empty());
}

TEST_P(SaldoPeriodoTest, EntryWithoutDivisionRowsContributesNothing) {
  Lancamento(1, 3, "1.1", "D", 100);                                 // no division rows
  Lancamento(2, 3, "1.1", "D", 30, {{.valor = 10}, {.valor = 20}});  // two division rows
  Lancamento(3, 3, "1.1", "C", 8, {{.valor = 5}});                   // only 5 divided
  Bind();
  EXPECT_NEAR(Movimento({}), 30 - 5, 0.005);
  EXPECT_NEAR(Movimento({.usa_cache = true}), 30 - 5, 0.005);
  EXPECT_NEAR(Movimento({.modalidade = "SPED"}), 30 - 5, 0.005);
}

TEST_P(SaldoPeriodoTest, CacheKeyIgnoresTheExclusionList) {
  Dividido(1, 3, "1.1", "D", 100);
  Dividido(2, 3, "1.1", "D", 20, {.revenda_divisao = 3});
  Bind();
  EXPECT_NEAR(Movimento({.usa_cache = true}), 120, 0.005);
  trace_->Clear();
  // Answered from the set loaded without a list.
  EXPECT_NEAR(Movimento({.usa_cache = true, .lista = "(3)"}), 120, 0.005);
  EXPECT_TRUE(trace_->Statements().empty());
  // Uncached, the list applies.
  EXPECT_NEAR(Movimento({.lista = "(3)"}), 100, 0.005);
  // And the other way round: loaded with the list, answered with it.
  EXPECT_NEAR(Movimento({.dia_final = 30, .usa_cache = true, .lista = "(3)"}), 100, 0.005);
  EXPECT_NEAR(Movimento({.dia_final = 30, .usa_cache = true}), 100, 0.005);
}

TEST_P(SaldoPeriodoTest, OnlyTheDaysMonthCompanyAndDealershipAskedForCount) {
  Dividido(1, 2, "1.1", "D", 1000);   // before the first day
  Dividido(2, 3, "1.1", "D", 100);    // first day
  Dividido(3, 17, "1.1", "C", 30);    // last day
  Dividido(4, 18, "1.1", "D", 1000);  // after the last day
  Lancamento(5, 10, "1.1", "D", 500, {{.valor = 500}}, std::nullopt, "", 202404);
  Lancamento(6, 10, "1.1", "D", 500, {{.valor = 500}}, std::nullopt, "", 202405, 2, 1);
  Lancamento(7, 10, "1.1", "D", 500, {{.valor = 500}}, std::nullopt, "", 202405, 1, 2);
  Bind();
  for (bool cache : {false, true})
    EXPECT_NEAR(Movimento({.dia_inicial = 3, .dia_final = 17, .usa_cache = cache}), 70, 0.005)
        << "cache " << cache;
}

TEST_P(SaldoPeriodoTest, ExclusionListLeavesOutOperationDivisionAndOriginDealerships) {
  Dividido(1, 3, "1.1", "D", 100);
  Dividido(2, 3, "1.1", "D", 1, {}, 3);
  Dividido(3, 3, "1.1", "D", 2, {.revenda_divisao = 3});
  Dividido(4, 3, "1.1", "D", 4, {.revenda_origem = 3});
  Dividido(5, 3, "1.1", "C", 8, {.revenda_divisao = 4, .revenda_origem = 1}, 2);
  Bind();
  for (bool cache : {false, true}) {
    EXPECT_NEAR(Movimento({.usa_cache = cache, .lista = "(3)"}), 100 - 8, 0.005);
    EXPECT_NEAR(Movimento({.dia_final = 20, .usa_cache = cache, .lista = "(2,4)"}), 107, 0.005);
  }
}

TEST_P(SaldoPeriodoTest, NoMatchingRowCountsAsZero) {
  Bind();
  for (bool cache : {false, true}) {
    EXPECT_EQ(Movimento({.usa_cache = cache}), 0);
    EXPECT_EQ(Movimento({.revenda_divisao = 2, .modalidade = "SPED", .usa_cache = cache}), 0);
  }
}

TEST_P(SaldoPeriodoTest, DatabaseErrorPropagatesAndAFailedLoadIsRetried) {
  Dividido(1, 3, "1.1", "D", 100);
  Bind();
  EXPECT_ANY_THROW(Movimento({.lista = "(3,"}));
  EXPECT_ANY_THROW(Movimento({.usa_cache = true, .lista = "(3,"}));
  EXPECT_EQ(dm_->ChavesCache(), (std::array<int32_t, 5>{-1, -1, -1, -1, -1}));
  EXPECT_FALSE(dm_->CacheExiste(2));
  trace_->Clear();
  EXPECT_NEAR(Movimento({.usa_cache = true}), 100, 0.005);
  EXPECT_EQ(Agrupados(trace_->Statements()), 1u);
}

TEST_P(SaldoPeriodoTest, ChartWalkerAddsTheAnalyticAccountsBeneathASyntheticOne) {
  Conta("1", "", "S");
  Conta("1.1", "1", "A");
  Conta("1.2", "1", "S");
  Conta("1.2.1", "1.2", "A");
  Conta("1.2.2", "1.2", "A");
  Conta("1.2.3", "1.2", "S");    // synthetic without children
  Conta("1.8", "1", "A", 1, 2);  // another dealership's chart
  Conta("1.9", "1", "A", 2, 1);  // another company's chart
  Conta("2.1", "2", "A");
  Dividido(1, 3, "1.1", "D", 100);
  Dividido(2, 3, "1.2.1", "C", 30);
  Dividido(3, 3, "1.2.2", "D", 7);
  Dividido(4, 3, "1.8", "D", 1000);
  Dividido(5, 3, "1.9", "D", 1000);
  Dividido(6, 3, "2.1", "D", 1000);
  Bind();
  EXPECT_NEAR(Plano({.conta = "1"}, "S", 5), 5 + 100 - 30 + 7, 0.005);
  EXPECT_NEAR(Plano({.conta = "1.2"}, "S", 0), -23, 0.005);

  trace_->Clear();
  EXPECT_NEAR(Plano({.conta = "1", .usa_cache = true}, "S", 0), 77, 0.005);
  const std::vector<SqlEnviado> statements = trace_->Statements();
  EXPECT_EQ(std::count(statements.begin(), statements.end(),
                       " select EMPRESA, REVENDA, CONTA_SUPERIORA,         CONTA, NIVEL  from "
                       "CTB_CONTA order by EMPRESA, REVENDA, CONTA_SUPERIORA"),
            1);
  EXPECT_EQ(Agrupados(statements), 1u);
  EXPECT_EQ(statements.size(), 2u);
}

TEST_P(SaldoPeriodoTest, ChartWalkerReturnsTheIncomingSaldoForASyntheticAccountWithoutChildren) {
  Conta("1", "", "S");
  Conta("2", "", "S");
  Conta("2.1", "2", "A");
  Dividido(1, 3, "2.1", "D", 100);
  Bind();
  for (bool cache : {false, true}) {
    double saldo = 12.5;
    EXPECT_EQ(dm_->BuscaSaldoContaPeriodo(1, 1, 202405, 1, 31, -1, -1, -1, -1, -1, "", "", "1", "S",
                                          "", saldo, cache, ""),
              12.5);
    EXPECT_EQ(saldo, 12.5);
  }
}

TEST_P(SaldoPeriodoTest, ChartWalkerOverwritesSaldoForAnAnalyticAccount) {
  Dividido(1, 3, "1.1", "D", 100);
  Dividido(2, 3, "1.1", "C", 40);
  Bind();
  trace_->Clear();
  EXPECT_NEAR(Plano({.conta = "1.1"}, "A", 999), 60, 0.005);
  // No chart read for an analytic account.
  EXPECT_EQ(trace_->Statements().size(), 2u);
}

// The reference model: every division row with its entry, as written; the movement of
// a call computed from them by the rules of the statements.
struct LinhaOraculo {
  bool cv = false;
  int revenda = 1;
  int ano_mes = 202405;
  int dia = 1;
  std::string conta{};
  std::string natureza{};
  std::optional<int> revenda_operacao{};
  Divisao d{};
};

std::set<int> Lista(const std::string& lista) {
  std::set<int> valores;
  std::string texto = lista;
  std::replace_if(
      texto.begin(), texto.end(), [](char ch) { return ch == '(' || ch == ')' || ch == ','; }, ' ');
  std::istringstream in(texto);
  for (int v; in >> v;) valores.insert(v);
  return valores;
}

bool Igual(const std::optional<int>& coluna, int valor) { return coluna && *coluna == valor; }

double Oraculo(const std::vector<LinhaOraculo>& linhas, const Consulta& c,
               const std::string& lista_principal) {
  const std::set<int> excluidas = Lista(lista_principal);
  const std::set<int> centros = Lista(c.centros_custo);
  auto excluida = [&](const std::optional<int>& revenda) {
    return revenda && excluidas.count(*revenda) > 0;
  };
  double debitos = 0, creditos = 0;
  for (const LinhaOraculo& l : linhas) {
    if (c.empresa != 1 || l.revenda != c.revenda || l.ano_mes != c.ano_mes ||
        l.dia < c.dia_inicial || l.dia > c.dia_final || l.conta != c.conta)
      continue;
    if (l.cv && c.modalidade != "SPED") continue;
    if (!l.cv && (excluida(l.revenda_operacao) || excluida(l.d.revenda_divisao) ||
                  excluida(l.d.revenda_origem)))
      continue;
    const Divisao& d = l.d;
    if (c.revenda_divisao > -1 && !Igual(d.revenda_divisao, c.revenda_divisao)) continue;
    if (!centros.empty()) {
      if (!d.centro_custo || centros.count(*d.centro_custo) == 0) continue;
    } else if (c.centro_custo > -1 && !Igual(d.centro_custo, c.centro_custo)) {
      continue;
    }
    if (!l.cv) {
      if (c.fonte > -1 && !Igual(d.fonte, c.fonte)) continue;
      if (c.categoria > -1 && !Igual(d.categoria, c.categoria)) continue;
      if (c.secao_oficina > -1 && !Igual(d.secao_oficina, c.secao_oficina)) continue;
      if (!c.modalidade.empty() && c.modalidade != "SPED" && d.modalidade != c.modalidade) continue;
    }
    if (!c.tipo_item.empty() && d.tipo_item != c.tipo_item) continue;
    (l.natureza == "D" ? debitos : creditos) += d.valor;
  }
  return debitos - creditos;
}

TEST_P(SaldoPeriodoTest, CachedAndUncachedEqualTheReferenceModelForRandomData) {
  std::mt19937 rng(29);
  auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  auto talvez = [&](int lo, int hi) {
    return pick(0, 2) == 0 ? std::nullopt : std::optional<int>(pick(lo, hi));
  };
  std::vector<LinhaOraculo> linhas;
  raw_->Begin(db::Isolation::kReadCommitted);
  for (int n = 1; n <= 48; ++n) {
    LinhaOraculo l;
    l.cv = pick(0, 4) == 0;
    l.revenda = pick(0, 7) == 0 ? 2 : 1;
    l.ano_mes = pick(0, 7) == 0 ? 202404 : 202405;
    l.dia = pick(1, 28);
    l.conta = fmt::format("1.{}", pick(1, 3));
    l.natureza = pick(0, 1) ? "D" : "C";
    l.revenda_operacao = talvez(1, 4);
    const double valor = pick(1, 90000) / 100.0;
    std::vector<Divisao> divisoes;
    for (int k = pick(0, 4) == 0 ? 0 : pick(1, 3); k > 0; --k) {
      Divisao d;
      d.valor = pick(1, 30000) / 100.0;
      d.revenda_divisao = talvez(1, 4);
      d.centro_custo = talvez(1, 3);
      d.fonte = talvez(7, 8);
      d.categoria = talvez(5, 6);
      d.secao_oficina = talvez(1, 2);
      if (pick(0, 1)) d.tipo_item = pick(0, 1) ? "P" : "S";
      if (pick(0, 1)) d.modalidade = pick(0, 1) ? "V" : "X";
      d.revenda_origem = talvez(1, 4);
      divisoes.push_back(d);
      LinhaOraculo linha = l;
      linha.d = d;
      linhas.push_back(linha);
    }
    Lancamento(n, l.dia, l.conta, l.natureza, valor, divisoes, l.revenda_operacao,
               l.cv ? "_CV" : "", l.ano_mes, 1, l.revenda);
  }
  raw_->Commit();
  Bind();

  const std::vector<std::string> listas = {"", "(3)", "(1,2)"};
  const std::vector<std::string> modalidades = {"", "", "SPED", "V"};
  const std::vector<std::pair<int, int>> dias = {{1, 31}, {5, 20}, {10, 10}};
  std::optional<std::array<int, 5>> chave_modelo;
  std::string lista_modelo;
  int nao_nulos = 0, acertos_cache = 0, outra_lista = 0;
  std::pair<int, int> periodo;
  int ano_mes = 0, revenda = 0;
  for (int i = 0; i < 60; ++i) {
    // A new key every few queries, so that most cached calls find the set.
    if (i % 4 == 0) {
      periodo = dias[pick(0, 2)];
      ano_mes = pick(0, 5) ? 202405 : 202404;
      revenda = pick(0, 5) ? 1 : 2;
    }
    const auto [di, df] = periodo;
    Consulta c{.conta = fmt::format("1.{}", pick(1, 3)),
               .dia_inicial = di,
               .dia_final = df,
               .centro_custo = pick(0, 2) ? -1 : pick(1, 3),
               .fonte = pick(0, 3) ? -1 : pick(7, 8),
               .categoria = pick(0, 3) ? -1 : pick(5, 6),
               .secao_oficina = pick(0, 3) ? -1 : pick(1, 2),
               .revenda_divisao = pick(0, 2) ? -1 : pick(1, 4),
               .tipo_item = pick(0, 3) ? "" : "P",
               .modalidade = modalidades[pick(0, 3)],
               .centros_custo = pick(0, 4) ? "" : "1,3",
               .lista = listas[pick(0, 2)],
               .ano_mes = ano_mes,
               .revenda = revenda};
    const double esperado = Oraculo(linhas, c, c.lista);
    const double sem_cache = Movimento(c);
    // The cache answers with the list of the call that loaded it.
    const std::array<int, 5> chave{c.empresa, c.revenda, c.ano_mes, c.dia_inicial, c.dia_final};
    if (chave_modelo != chave) {
      chave_modelo = chave;
      lista_modelo = c.lista;
    } else {
      ++acertos_cache;
      if (lista_modelo != c.lista) ++outra_lista;
    }
    if (std::fabs(esperado) > 0.005) ++nao_nulos;
    c.usa_cache = true;
    const double com_cache = Movimento(c);
    const std::string contexto = fmt::format(
        "query {}: {} {} {}..{} cc {} fonte {} cat {} sec {} rd {} tipo '{}' mod '{}' centros "
        "'{}' lista '{}' (cache '{}')",
        i, c.conta, c.ano_mes, c.dia_inicial, c.dia_final, c.centro_custo, c.fonte, c.categoria,
        c.secao_oficina, c.revenda_divisao, c.tipo_item, c.modalidade, c.centros_custo, c.lista,
        lista_modelo);
    EXPECT_NEAR(sem_cache, esperado, 0.005) << contexto;
    EXPECT_NEAR(com_cache, Oraculo(linhas, c, lista_modelo), 0.005) << contexto;
    if (lista_modelo == c.lista) {
      EXPECT_NEAR(com_cache, sem_cache, 0.005) << contexto;
    }
  }
  // The draw covers movement, answers from a loaded set, and answers from a
  // set loaded with another exclusion list.
  EXPECT_GE(nao_nulos, 15);
  EXPECT_GE(acertos_cache, 15);
  EXPECT_GE(outra_lista, 3);
}

KVC_INSTANTIATE_BACKENDS(SaldoPeriodoTest);

}  // namespace
}  // namespace kvc::testing
