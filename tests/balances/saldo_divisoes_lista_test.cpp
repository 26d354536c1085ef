// The balance with division lists and the host's balance formula, on each
// database: exact statements through the trace, balances computed from rows
// written here, and agreement with the single-value balance.
#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "accounting/db/dialect.h"
#include "accounting/db/error.h"
#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

// The divided entries of the period form, up to the exclusion predicate.
constexpr char kJuncao[] =
    "select l.natureza, sum(coalesce(d.val_divisao, 0)) total  from ctb_lancamento_dividido d"
    "           inner join  ctb_lancamento l on (l.lancamento = d.lancamento"
    "                                       and  l.empresa = d.empresa"
    "                                       and l.revenda = d.revenda"
    "                                      and l.ano_mes = d.ano_mes"
    "                                   ";

// One division combination; an unset value is written as null.
struct Div {
  std::optional<int> revenda_divisao, centro_custo, fonte, categoria, secao_oficina;
  std::optional<std::string> tipo_item, modalidade;
};

// A combination of division dealership, cost centre and modality.
Div Combinacao(std::optional<int> revenda_divisao, std::optional<int> centro_custo,
               std::optional<std::string> modalidade = std::nullopt) {
  Div d;
  d.revenda_divisao = revenda_divisao;
  d.centro_custo = centro_custo;
  d.modalidade = std::move(modalidade);
  return d;
}

// The division columns of `d`, with the dealership the row originated in.
Dimensoes DimensoesDe(const Div& d, std::optional<int> revenda_origem = std::nullopt) {
  return {.revenda_divisao = d.revenda_divisao,
          .centro_custo = d.centro_custo,
          .fonte = d.fonte,
          .categoria = d.categoria,
          .secao_oficina = d.secao_oficina,
          .tipo_item = d.tipo_item,
          .modalidade_operacao = d.modalidade,
          .revenda_origem = revenda_origem};
}

class SaldoDivisoesListaTest : public ModuleTest {
 protected:
  void Lancamento(int ano_mes, int numero, const std::string& conta, const std::string& natureza,
                  double valor, std::optional<int> historico = std::nullopt,
                  std::optional<int> revenda_operacao = std::nullopt) {
    DadosDeTeste(*raw_).Lancamento(
        ano_mes, numero, conta, natureza, valor,
        {.dia = 1, .historico_padrao = historico, .revenda_operacao = revenda_operacao});
  }
  void Divisao(int ano_mes, int numero, const Div& d, double valor,
               std::optional<int> revenda_origem = std::nullopt) {
    DadosDeTeste(*raw_).LancamentoDividido(++sequencia_, ano_mes, numero, valor,
                                           DimensoesDe(d, revenda_origem));
  }
  // An entry with one division row carrying its whole amount.
  void Dividido(int ano_mes, int numero, const std::string& conta, const std::string& natureza,
                double valor, const Div& d, std::optional<int> historico = std::nullopt) {
    Lancamento(ano_mes, numero, conta, natureza, valor, historico);
    Divisao(ano_mes, numero, d, valor);
  }
  void SaldoAnterior(int ano, const std::string& conta, double saldo,
                     const std::string& tabela = "CTB_SALDO_ANTERIOR") {
    DadosDeTeste dados(*raw_);
    if (tabela == "CTB_SALDO_ANTERIOR_CV") dados = dados.SegundoLivro();
    dados.SaldoAnterior(conta, ano, saldo);
  }
  void SaldoAnteriorDivisao(int ano, const std::string& conta, const Div& d, double saldo) {
    DadosDeTeste(*raw_).SaldoAnteriorDivisao(++sequencia_, conta, ano, saldo, DimensoesDe(d));
  }
  void SalantDivisaoMes(int ano_mes, const std::string& conta, const Div& d, double saldo) {
    DadosDeTeste(*raw_).SaldoDivisaoMes(conta, ano_mes, saldo, DimensoesDe(d));
  }
  void Conta(const std::string& conta, const std::string& superiora, const std::string& nivel,
             int empresa = 1, int revenda = 1) {
    DadosDeTeste(*raw_, empresa, revenda)
        .Conta(conta, {.superiora = NuloSeVazio(superiora), .nivel = nivel});
  }
  // BuscaSaldoComDivisoes for company 1, dealership 1.
  double Listas(int ano_mes, const std::string& conta, const std::string& centros = "",
                const std::string& revendas_divisao = "", const std::string& modalidades = "",
                const std::string& excluir = "", bool mensal = false,
                const std::string& tipo_item = "", const std::string& fontes = "",
                const std::string& categorias = "", const std::string& secoes = "",
                const std::string& filtro = "") {
    return dm_->BuscaSaldoComDivisoes(1, 1, ano_mes, centros, fontes, categorias, secoes,
                                      revendas_divisao, tipo_item, modalidades, conta, mensal,
                                      filtro, excluir);
  }
  double Formula(const std::string& conta, const std::string& nivel, const DateTime& data,
                 const std::string& centros = "", const std::string& modalidades = "",
                 const std::string& historicos = "", const std::string& revendas_divisao = "",
                 const std::string& tipo_item = "", double inicial = 0) {
    double saldo = inicial;
    const double r =
        dm_->BuscaSaldoAnteriorFormula(conta, nivel, centros, "", "", "", revendas_divisao,
                                       tipo_item, modalidades, data, saldo, false, historicos);
    EXPECT_DOUBLE_EQ(r, saldo) << "the result is the in/out balance";
    return r;
  }
  int sequencia_ = 0;
};

const Div kCc10 = Combinacao(2, 10, "1");
const Div kCc20 = Combinacao(3, 20);

TEST_P(SaldoDivisoesListaTest, MinusOneListAddsNoConditionButIsAModalityValue) {
  SaldoAnteriorDivisao(2023, "1.1", kCc10, 5);
  SaldoAnteriorDivisao(2023, "1.1", kCc20, 7);
  Dividido(202402, 1, "1.1", "D", 100, kCc10);
  Dividido(202403, 2, "1.1", "D", 30, kCc20);
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(dm_->BuscaSaldoComDivisoes(1, 1, 202405, "-1", "-1", "-1", "-1", "-1", "", "",
                                              "1.1", false, "", ""),
                   5 + 7 + 100 + 30);
  ASSERT_EQ(trace_->Statements().size(), 2u);
  EXPECT_EQ(trace_->Statements()[0],
            "select sum(e.saldo) saldo from ctb_saldo_anterior_divisao e  where e.empresa = 1 and "
            "e.revenda = 1 and e.ano = 2023 and e.conta = '1.1' ");
  EXPECT_EQ(trace_->Statements()[1],
            "select l.natureza, sum(coalesce(d.val_divisao, 0)) total from "
            "ctb_lancamento_dividido d, ctb_lancamento l where l.lancamento = d.lancamento and "
            "l.empresa = d.empresa and l.revenda = d.revenda and l.ano_mes = d.ano_mes and "
            "l.empresa = 1 and l.revenda = 1 and l.conta = '1.1' and l.ano_mes between 202401 and "
            "202405   group by natureza");

  // The same text for the modalities (and the item type) is a value: nothing
  // carries -1, so the balance is empty. The list is written as it stands,
  // unquoted: PostgreSQL refuses to compare its text column with a number.
  trace_->Clear();
  if (raw_->dialect().Kind() == db::ServerKind::kPostgresql) {
    EXPECT_THROW(dm_->BuscaSaldoComDivisoes(1, 1, 202405, "-1", "-1", "-1", "-1", "-1", "", "-1",
                                            "1.1", false, "", ""),
                 db::DatabaseError);
  } else {
    EXPECT_DOUBLE_EQ(dm_->BuscaSaldoComDivisoes(1, 1, 202405, "-1", "-1", "-1", "-1", "-1", "",
                                                "-1", "1.1", false, "", ""),
                     0);
  }
  EXPECT_EQ(trace_->Statements()[0],
            "select sum(e.saldo) saldo from ctb_saldo_anterior_divisao e  where e.empresa = 1 and "
            "e.revenda = 1 and e.ano = 2023 and e.conta = '1.1'  and modalidade_operacao in (-1)");
  trace_->Clear();
  EXPECT_DOUBLE_EQ(
      dm_->BuscaSaldoComDivisoes(1, 1, 202405, "", "", "", "", "", "-1", "", "1.1", false, "", ""),
      0);
  EXPECT_EQ(trace_->Statements()[0],
            "select sum(e.saldo) saldo from ctb_saldo_anterior_divisao e  where e.empresa = 1 and "
            "e.revenda = 1 and e.ano = 2023 and e.conta = '1.1'  and tipo_item = '-1'");
}

TEST_P(SaldoDivisoesListaTest, MissingPreviousYearFallsBackToPeriodCountingExcludedDealerships) {
  // 2023 has a carried-forward row, but not for cost centre 10: after the
  // division filter there is none, so the period from 202301 answers.
  SaldoAnteriorDivisao(2023, "1.1", kCc20, 1000);
  SaldoAnteriorDivisao(2022, "1.1", kCc10, 7);
  Dividido(202305, 1, "1.1", "D", 40, kCc10);
  Dividido(202402, 2, "1.1", "C", 15, kCc10);
  Dividido(202403, 3, "1.1", "D", 200, kCc20);
  Lancamento(202403, 4, "1.1", "D", 60, std::nullopt, 3);  // operation of dealership 3
  Divisao(202403, 4, kCc10, 60, 3);                        // originated in dealership 3
  Lancamento(202212, 5, "1.1", "D", 500);                  // before the period
  Divisao(202212, 5, kCc10, 500);
  Bind();
  const double saldo = Listas(202405, "1.1", "10", "", "", "(3)");
  EXPECT_DOUBLE_EQ(saldo, 7 + 40 - 15 + 60) << "dealership 3 is counted";
  EXPECT_DOUBLE_EQ(saldo, dm_->BuscaSaldoComDivisoesPeriodo(1, 1, 202301, 202405, "10", "", "", "",
                                                            "", "", "", "1.1", false, "", ""));
  // With a carried-forward row the exclusion holds.
  SaldoAnteriorDivisao(2023, "1.1", kCc10, 50);
  EXPECT_DOUBLE_EQ(Listas(202405, "1.1", "10", "", "", "(3)"), 50 - 15);
  EXPECT_DOUBLE_EQ(Listas(202405, "1.1", "10"), 50 - 15 + 60);
}

TEST_P(SaldoDivisoesListaTest, FallbackDropsTheExclusionList) {
  Dividido(202402, 1, "1.1", "D", 10, kCc10);
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(
      Listas(202402, "1.1", "10,20", "", "", "(3)", false, "", "", "", "", "{$ALIAS$}.DIA = 1"),
      10);
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{
                "select sum(e.saldo) saldo from ctb_saldo_anterior_divisao e  where e.empresa = 1 "
                "and e.revenda = 1 and e.ano = 2023 and e.conta = '1.1' and ((e.REVENDA_DIVISAO "
                "is null) or (e.REVENDA_DIVISAO not in (3)))  and centro_custo in (10,20)",
                "select sum(e.saldo) saldo from ctb_saldo_anterior_divisao e  where e.empresa = 1 "
                "and e.revenda = 1 and e.ano = 2022 and e.conta = '1.1'  and centro_custo in "
                "(10,20)",
                std::string(kJuncao) +
                    " )  where l.empresa = 1 and l.revenda = 1 and l.conta = '1.1' and l.ano_mes "
                    "between 202301 and 202402  and l.DIA = 1 and centro_custo in (10,20) group "
                    "by l.natureza"}));
}

TEST_P(SaldoDivisoesListaTest, CarriedForwardAndEntriesStatementsAreExact) {
  Div dentro = Combinacao(2, 20, "V");
  dentro.fonte = 1;
  dentro.categoria = 3;
  dentro.secao_oficina = 4;
  dentro.tipo_item = "P";
  Div fora = dentro;
  fora.fonte = 9;
  SaldoAnteriorDivisao(2023, "1.1", dentro, 50);
  SaldoAnteriorDivisao(2023, "1.1", fora, 1000);
  Dividido(202402, 1, "1.1", "D", 100, dentro);
  Dividido(202403, 2, "1.1", "C", 30, dentro);
  Dividido(202403, 3, "1.1", "D", 1000, fora);
  Dividido(202403, 4, "1.1", "D", 1000, dentro, 9);  // history 9 is left out by the extra filter
  Dividido(202406, 5, "1.1", "D", 1000, dentro);     // after the month
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(dm_->BuscaSaldoComDivisoes(
                       1, 1, 202405, "10,20", "1", "2,3", "4", "2,5", "P", "'V','1'", "1.1", false,
                       "coalesce({$ALIAS$}.HISTORICO_PADRAO, 0) <> 9", "(7)"),
                   50 + 100 - 30);
  const std::string fd =
      " and revenda_divisao in (2,5) and centro_custo in (10,20) and fonte in (1) and categoria in "
      "(2,3) and secao_oficina in (4) and tipo_item = 'P' and modalidade_operacao in ('V','1')";
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{
                "select sum(e.saldo) saldo from ctb_saldo_anterior_divisao e  where e.empresa = 1 "
                "and e.revenda = 1 and e.ano = 2023 and e.conta = '1.1' and ((e.REVENDA_DIVISAO "
                "is null) or (e.REVENDA_DIVISAO not in (7))) " +
                    fd,
                "select l.natureza, sum(coalesce(d.val_divisao, 0)) total from "
                "ctb_lancamento_dividido d, ctb_lancamento l where l.lancamento = d.lancamento "
                "and l.empresa = d.empresa and l.revenda = d.revenda and l.ano_mes = d.ano_mes and "
                "l.empresa = 1 and l.revenda = 1 and l.conta = '1.1' and l.ano_mes between 202401 "
                "and 202405 and ((l.REVENDA_OPERACAO is null) or (l.REVENDA_OPERACAO not in (7))) "
                " and ((d.REVENDA_DIVISAO is null) or (d.REVENDA_DIVISAO not in (7)))  and "
                "((d.REVENDA_ORIGEM is null) or (d.REVENDA_ORIGEM not in (7)))  and "
                "coalesce(l.HISTORICO_PADRAO, 0) <> 9" +
                    fd + " group by natureza"}));
}

TEST_P(SaldoDivisoesListaTest, MonthlyTableStatementIsExact) {
  SaldoAnteriorDivisao(2023, "1.1", kCc10, 5);
  SalantDivisaoMes(202401, "1.1", kCc10, -25);
  SalantDivisaoMes(202403, "1.1", kCc20, 8);
  SalantDivisaoMes(202404, "1.1", kCc10, 1000);  // after the month
  Dividido(202401, 1, "1.1", "D", 1000, kCc10);  // the journal is not read
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Listas(202403, "1.1", "10,20", "", "", "(7)", true), 5 - 25 + 8);
  ASSERT_EQ(trace_->Statements().size(), 2u);
  EXPECT_EQ(trace_->Statements()[1],
            "select 'D' natureza, sum(e.saldo) total from ctb_salant_divisao_mes e  where "
            "e.empresa = 1 and   e.revenda = 1 and   e.conta = '1.1' and   e.ano_mes between "
            "202401 and 202403 and ((e.REVENDA_DIVISAO is null) or (e.REVENDA_DIVISAO not in "
            "(7)))  and centro_custo in (10,20)");
}

TEST_P(SaldoDivisoesListaTest, PeriodStatementsAreExact) {
  SaldoAnteriorDivisao(2022, "1.1", kCc10, 5);
  SaldoAnteriorDivisao(2023, "1.1", kCc10, 1000);  // not the year before the first month
  Dividido(202301, 1, "1.1", "D", 1000, kCc10);    // before the first month
  Dividido(202302, 2, "1.1", "D", 100, kCc10);
  Dividido(202405, 3, "1.1", "C", 40, kCc10);
  Lancamento(202403, 4, "1.1", "D", 70, std::nullopt, 7);  // operation of dealership 7
  Divisao(202403, 4, kCc10, 70);
  SalantDivisaoMes(202302, "1.1", kCc10, 11);
  SalantDivisaoMes(202406, "1.1", kCc10, 1000);
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(dm_->BuscaSaldoComDivisoesPeriodo(1, 1, 202302, 202405, "10", "", "", "", "", "",
                                                     "", "1.1", false, "{$ALIAS$}.DIA = 1", "(7)"),
                   5 + 100 - 40);
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{
                "select sum(e.saldo) saldo from ctb_saldo_anterior_divisao e  where e.empresa = 1 "
                "and e.revenda = 1 and e.ano = 2022 and e.conta = '1.1' and ((e.REVENDA_DIVISAO "
                "is null) or (e.REVENDA_DIVISAO not in (7)))  and centro_custo in (10)",
                std::string(kJuncao) +
                    " and ((l.REVENDA_OPERACAO is null) or (l.REVENDA_OPERACAO not in (7))) )  "
                    "where l.empresa = 1 and l.revenda = 1 and l.conta = '1.1' and l.ano_mes "
                    "between 202302 and 202405 and ((d.REVENDA_DIVISAO is null) or "
                    "(d.REVENDA_DIVISAO not in (7)))  and ((d.REVENDA_ORIGEM is null) or "
                    "(d.REVENDA_ORIGEM not in (7)))  and l.DIA = 1 and centro_custo in (10) "
                    "group by l.natureza"}));

  trace_->Clear();
  EXPECT_DOUBLE_EQ(dm_->BuscaSaldoComDivisoesPeriodo(1, 1, 202302, 202405, "10", "", "", "", "", "",
                                                     "", "1.1", true, "", "(7)"),
                   5 + 11);
  ASSERT_EQ(trace_->Statements().size(), 2u);
  EXPECT_EQ(trace_->Statements()[1],
            "select 'D' natureza, sum(e.saldo) total  from ctb_salant_divisao_mes e  where "
            "e.empresa = 1 and e.revenda = 1 and e.conta = '1.1' and e.ano_mes between 202302 and "
            "202405 and ((e.REVENDA_DIVISAO is null) or (e.REVENDA_DIVISAO not in (7)))  and "
            "centro_custo in (10)");

  // No carried-forward row reads as zero: no fallback.
  trace_->Clear();
  EXPECT_DOUBLE_EQ(dm_->BuscaSaldoComDivisoesPeriodo(1, 1, 202402, 202405, "20", "", "", "", "", "",
                                                     "", "1.1", false, "", ""),
                   0);
  EXPECT_EQ(trace_->Statements().size(), 2u);
}

TEST_P(SaldoDivisoesListaTest, OneElementListEqualsTheSingleValueBalance) {
  const std::vector<std::string> contas{"1.1", "1.2", "1.3"};
  std::mt19937 rng(20240517);
  auto um = [&rng](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
  auto divisao = [&]() {
    Div d;
    if (um(4)) d.revenda_divisao = 1 + um(2);
    if (um(4)) d.centro_custo = 10 * (1 + um(2));
    if (um(4)) d.fonte = 1 + um(2);
    if (um(4)) d.categoria = 5 + um(2);
    if (um(4)) d.secao_oficina = 7 + um(2);
    if (um(4)) d.tipo_item = um(2) ? "P" : "S";
    if (um(4)) d.modalidade = um(2) ? "V" : "A";
    return d;
  };
  auto valor = [&]() { return (1 + um(100000)) / 100.0; };
  // The single-value balance checks that the year has carried-forward rows,
  // in the second book's table when a modality is given.
  for (const auto& conta : contas) {
    SaldoAnterior(2023, conta, 1);
    SaldoAnterior(2023, conta, 1, "CTB_SALDO_ANTERIOR_CV");
  }
  for (int i = 0; i < 25; ++i)
    SaldoAnteriorDivisao(2023, contas[um(3)], divisao(), (um(2) ? 1 : -1) * valor());
  for (int numero = 1; numero <= 60; ++numero) {
    const int ano_mes = 202401 + um(6);
    const std::string conta = contas[um(3)];
    const double total = valor();
    Lancamento(ano_mes, numero, conta, um(2) ? "D" : "C", total);
    const int partes = um(3);
    for (int p = 0; p < partes; ++p) Divisao(ano_mes, numero, divisao(), total / partes);
  }
  for (int i = 0; i < 30; ++i)
    SalantDivisaoMes(202401 + um(6), contas[um(3)], divisao(), (um(2) ? 1 : -1) * valor());
  Bind();

  int com_saldo = 0;
  for (int caso = 0; caso < 40; ++caso) {
    const std::string conta = contas[um(3)];
    const int ano_mes = 202401 + um(6);
    const bool mensal = um(3) == 0;
    // One or two dimensions asked for, each with a value the rows may carry.
    Div d;
    for (int n = 1 + um(2); n > 0; --n) {
      const int dimensao = um(7);
      if (dimensao == 0) d.revenda_divisao = 1 + um(2);
      if (dimensao == 1) d.centro_custo = 10 * (1 + um(2));
      if (dimensao == 2) d.fonte = 1 + um(2);
      if (dimensao == 3) d.categoria = 5 + um(2);
      if (dimensao == 4) d.secao_oficina = 7 + um(2);
      if (dimensao == 5) d.tipo_item = um(2) ? "P" : "S";
      if (dimensao == 6) d.modalidade = um(2) ? "V" : "A";
    }
    auto texto = [](const std::optional<int>& v) { return v ? std::to_string(*v) : ""; };
    const double unico = dm_->BuscaSaldoContaAnalitica(
        1, 1, ano_mes, 0, 0, d.centro_custo.value_or(-1), d.fonte.value_or(-1),
        d.categoria.value_or(-1), d.secao_oficina.value_or(-1), d.revenda_divisao.value_or(-1),
        d.tipo_item.value_or(""), d.modalidade.value_or(""), conta, "", mensal, "", "");
    const double lista = dm_->BuscaSaldoComDivisoes(
        1, 1, ano_mes, texto(d.centro_custo), texto(d.fonte), texto(d.categoria),
        texto(d.secao_oficina), texto(d.revenda_divisao), d.tipo_item.value_or(""),
        d.modalidade ? "'" + *d.modalidade + "'" : "", conta, mensal, "", "");
    EXPECT_NEAR(lista, unico, 1e-6) << "case " << caso << ", account " << conta << ", month "
                                    << ano_mes << (mensal ? ", monthly table" : "");
    com_saldo += lista != 0;
  }
  EXPECT_GT(com_saldo, 20) << "the cases should mostly find rows";
}

TEST_P(SaldoDivisoesListaTest, FormulaUsesTheMonthBeforeTheDate) {
  SaldoAnterior(2023, "1.1", 50);
  SaldoAnterior(2022, "1.1", 9);
  Lancamento(202301, 1, "1.1", "D", 3);
  Lancamento(202312, 2, "1.1", "D", 4);
  Lancamento(202401, 3, "1.1", "C", 20);
  Lancamento(202409, 4, "1.1", "D", 100);
  Lancamento(202410, 5, "1.1", "D", 1000);  // the month of the date
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Formula("1.1", "A", DateTime{2024, 10, 31}), 50 - 20 + 100);
  EXPECT_EQ(trace_->Statements()[1],
            "select l.natureza, sum(l.val_lancamento) total from ctb_lancamento l where l.empresa "
            "= 1 and   l.revenda = 1 and   l.conta = '1.1' and   l.ano_mes between 202401 and "
            "202409 group by l.natureza");

  // January asks for December of the year before.
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Formula("1.1", "A", DateTime{2024, 1, 15}), 9 + 3 + 4);
  EXPECT_EQ(trace_->Statements()[1],
            "select l.natureza, sum(l.val_lancamento) total from ctb_lancamento l where l.empresa "
            "= 1 and   l.revenda = 1 and   l.conta = '1.1' and   l.ano_mes between 202301 and "
            "202312 group by l.natureza");
  // February asks for January, the month padded.
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Formula("1.1", "A", DateTime{2024, 2, 1}), 50 - 20);
  EXPECT_NE(trace_->Statements()[1].find("between 202401 and 202401"), std::string::npos);
}

TEST_P(SaldoDivisoesListaTest, FormulaWithoutDivisionsAnswersThroughTheChartForTheCurrentCompany) {
  Conta("1", "", "S", 2, 3);
  Conta("1.1", "1", "A", 2, 3);
  Conta("1.2", "1", "A", 2, 3);
  Conta("1", "", "S");  // another company and dealership
  DadosDeTeste(*raw_, 2, 3)
      .SaldoAnterior("1.1", 2023, 10)
      .SaldoAnterior("1.2", 2023, 20)
      .Lancamento(202402, 1, "1.2", "C", 5, {.dia = 1});
  host_.empresa = 2;
  host_.revenda = 3;
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Formula("1", "S", DateTime{2024, 3, 1}, "", "", "", "", "", 1000), 10 + 20 - 5)
      << "the balance starts at zero";
  EXPECT_EQ(trace_->Statements()[0],
            "select conta, nivel from ctb_conta where empresa = 2 and   revenda = 3 and   "
            "conta_superiora = '1'");
  EXPECT_EQ(trace_->Statements()[1],
            "select saldo   from  CTB_SALDO_ANTERIOR  where empresa = 2 and REVENDA = 3    and "
            "conta = '1.1'   and ano = 2023 ");
}

TEST_P(SaldoDivisoesListaTest, FormulaWithACommaUsesTheListForm) {
  SaldoAnteriorDivisao(2023, "1.1", kCc10, 5);
  SaldoAnteriorDivisao(2023, "1.1", kCc20, 7);
  Dividido(202402, 1, "1.1", "D", 100, kCc10);
  Dividido(202402, 2, "1.1", "C", 30, kCc20);
  Dividido(202402, 3, "1.1", "C", 1000, Combinacao(std::nullopt, 30));
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Formula("1.1", "A", DateTime{2024, 3, 10}, "10,20"), 5 + 7 + 100 - 30);
  EXPECT_EQ(trace_->Statements(),
            (std::vector<std::string>{
                "select sum(e.saldo) saldo from ctb_saldo_anterior_divisao e  where e.empresa = 1 "
                "and e.revenda = 1 and e.ano = 2023 and e.conta = '1.1'  and centro_custo in "
                "(10,20)",
                "select l.natureza, sum(coalesce(d.val_divisao, 0)) total from "
                "ctb_lancamento_dividido d, ctb_lancamento l where l.lancamento = d.lancamento "
                "and l.empresa = d.empresa and l.revenda = d.revenda and l.ano_mes = d.ano_mes and "
                "l.empresa = 1 and l.revenda = 1 and l.conta = '1.1' and l.ano_mes between 202401 "
                "and 202402   and centro_custo in (10,20) group by natureza"}));
  // A comma in any one of the seven is enough; the others stay as they are.
  EXPECT_DOUBLE_EQ(Formula("1.1", "A", DateTime{2024, 3, 10}, "10", "'1','V'"), 5 + 100);
  EXPECT_DOUBLE_EQ(Formula("1.1", "A", DateTime{2024, 3, 10}, "", "", "", "2,3"), 5 + 7 + 100 - 30);
}

TEST_P(SaldoDivisoesListaTest, FormulaConvertsSingleValuesStrictly) {
  SaldoAnterior(2023, "1.1", 1000);
  SaldoAnterior(2023, "1.1", 1000, "CTB_SALDO_ANTERIOR_CV");  // a modality reads this book's rows
  SaldoAnteriorDivisao(2023, "1.1", kCc10, 5);
  Dividido(202402, 1, "1.1", "D", 100, kCc10);
  Dividido(202402, 2, "1.1", "D", 30, kCc20);
  Bind();
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Formula("1.1", "A", DateTime{2024, 3, 10}, "10", "'1'", "", "2"), 5 + 100);
  ASSERT_EQ(trace_->Statements().size(), 3u);
  EXPECT_EQ(trace_->Statements()[1],
            "select coalesce(sum(e.saldo),0) saldo   from ctb_saldo_anterior_divisao e  where "
            "e.empresa = 1 and e.revenda = 1 and e.ano = 2023 and e.conta = '1.1'  and "
            "revenda_divisao = 2 and centro_custo = 10 and modalidade_operacao = '1'");
  // The item type goes through as it stands.
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Formula("1.1", "A", DateTime{2024, 3, 10}, "", "", "", "", "P"), 0);
  EXPECT_NE(trace_->Statements()[1].find(" and tipo_item = 'P'"), std::string::npos);

  for (const std::string texto : {"abc", "1x", "1.5", " "}) {
    double saldo = 0;
    EXPECT_THROW(dm_->BuscaSaldoAnteriorFormula("1.1", "A", texto, "", "", "", "", "", "",
                                                DateTime{2024, 3, 10}, saldo, false, ""),
                 std::invalid_argument)
        << texto;
    EXPECT_THROW(dm_->BuscaSaldoAnteriorFormula("1.1", "A", "", "", "", "", texto, "", "",
                                                DateTime{2024, 3, 10}, saldo, false, ""),
                 std::invalid_argument)
        << texto;
  }
}

TEST_P(SaldoDivisoesListaTest, FormulaLeavesOutEntriesOfExcludedHistories) {
  SaldoAnterior(2023, "1.1", 1);
  SaldoAnteriorDivisao(2023, "1.1", kCc10, 2);
  SaldoAnteriorDivisao(2023, "1.1", kCc20, 4);
  Dividido(202402, 1, "1.1", "D", 100, kCc10, 1);
  Dividido(202402, 2, "1.1", "D", 20, kCc20, 2);
  Dividido(202402, 3, "1.1", "D", 3000, kCc10, 3);
  Dividido(202402, 4, "1.1", "D", 7, kCc20);    // no history: counted
  Lancamento(202402, 5, "1.2", "D", 50000, 1);  // another account
  Divisao(202402, 5, kCc10, 50000);
  Bind();
  // Without divisions, through BuscaSaldoConta.
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Formula("1.1", "A", DateTime{2024, 3, 1}, "", "", "2, 3"), 1 + 100 + 7);
  EXPECT_EQ(trace_->Statements()[1],
            "select l.natureza, sum(l.val_lancamento) total from ctb_lancamento l where l.empresa "
            "= 1 and   l.revenda = 1 and   l.conta = '1.1' and   l.ano_mes between 202401 and "
            "202402 and ((l.HISTORICO_PADRAO is null) or (l.HISTORICO_PADRAO not in (2,3))) "
            "group by l.natureza");
  // With a single division value.
  EXPECT_DOUBLE_EQ(Formula("1.1", "A", DateTime{2024, 3, 1}, "10", "", "3"), 2 + 100);
  // With lists.
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Formula("1.1", "A", DateTime{2024, 3, 1}, "10,20", "", "2,3"), 2 + 4 + 100 + 7);
  EXPECT_NE(trace_->Statements()[1].find(" and ((l.HISTORICO_PADRAO is null) or "
                                         "(l.HISTORICO_PADRAO not in (2,3))) and centro_custo"),
            std::string::npos);
  EXPECT_DOUBLE_EQ(Formula("1.1", "A", DateTime{2024, 3, 1}, "10,20"), 2 + 4 + 100 + 20 + 3000 + 7);

  // A list longer than one "not in" may hold is split and still excludes
  // every code it names.
  std::string muitos;
  for (int codigo = 1000; codigo < 2200; ++codigo) muitos += std::to_string(codigo) + ",";
  muitos += "3";
  trace_->Clear();
  EXPECT_DOUBLE_EQ(Formula("1.1", "A", DateTime{2024, 3, 1}, "10,20", "", muitos),
                   2 + 4 + 100 + 20 + 7);
  EXPECT_NE(trace_->Statements()[1].find(" and l.HISTORICO_PADRAO not in (1995,"),
            std::string::npos);
}

KVC_INSTANTIATE_BACKENDS(SaldoDivisoesListaTest);

}  // namespace
}  // namespace kvc::testing
