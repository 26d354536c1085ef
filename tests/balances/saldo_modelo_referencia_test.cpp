// A reference model of the account balance: random entries (with division rows,
// several dealerships and a second book) and carried-forward rows are
// written, and for random accounts, months and filters the balance equals a
// computation made here from the rows written.
#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

struct Divisao {
  int revenda_divisao;
  std::optional<int> revenda_origem;
  double valor;
};
struct Entrada {
  int revenda;
  int ano_mes;
  std::string conta;
  char natureza;
  double valor;
  std::optional<int> revenda_operacao;
  bool cv;
  std::vector<Divisao> divisoes;
};
struct Anterior {
  int revenda;
  std::string conta;
  int ano;
  double saldo;
};
struct AnteriorDivisao {
  int revenda;
  std::string conta;
  int ano;
  int revenda_divisao;
  double saldo;
};

bool Fora(std::optional<int> revenda, const std::set<int>& lista) {
  return !revenda || !lista.count(*revenda);
}

class SaldoModeloReferenciaTest : public ModuleTest {
 protected:
  void Gera(unsigned seed) {
    std::mt19937 rng(seed);
    auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
    for (int n = 0; n < 220; ++n) {
      Entrada e;
      e.revenda = pick(1, 2);
      e.ano_mes = pick(2022, 2024) * 100 + pick(1, 12);
      e.conta = fmt::format("2.{}", pick(0, 5));
      e.natureza = pick(0, 1) ? 'D' : 'C';
      // Second-book amounts end in 7 cents, the main book's never do, so
      // that no total of one book equals a total of the other.
      e.cv = pick(0, 6) == 0;
      e.valor = pick(1, 9000) + (e.cv ? 0.07 : 0.10 * pick(0, 9));
      if (pick(0, 2) == 0) e.revenda_operacao = pick(1, 4);
      for (int d = pick(0, 2); d > 0; --d)
        e.divisoes.push_back(
            {pick(1, 4), pick(0, 1) ? std::nullopt : std::optional<int>(pick(1, 4)), e.valor / 2});
      entradas_.push_back(e);
    }
    for (int c = 0; c < 6; ++c)
      for (int revenda = 1; revenda <= 2; ++revenda)
        for (int ano = 2022; ano <= 2023; ++ano) {
          if (pick(0, 3) == 0) continue;
          anteriores_.push_back({revenda, fmt::format("2.{}", c), ano, pick(-5000, 5000) / 2.0});
          for (int rd = 1; rd <= 4; ++rd)
            if (pick(0, 1))
              anteriores_divisao_.push_back(
                  {revenda, fmt::format("2.{}", c), ano, rd, pick(-900, 900) / 4.0});
        }
    raw_->Begin(db::Isolation::kReadCommitted);
    int numero = 0, sequencia = 0;
    for (const Entrada& e : entradas_) {
      DadosDeTeste dados(*raw_, 1, e.revenda);
      if (e.cv) dados = dados.SegundoLivro();
      ++numero;
      dados.Lancamento(e.ano_mes, numero, e.conta, std::string(1, e.natureza), e.valor,
                       {.dia = 1, .revenda_operacao = e.revenda_operacao});
      for (const Divisao& d : e.divisoes)
        dados.LancamentoDividido(
            ++sequencia, e.ano_mes, numero, d.valor,
            {.revenda_divisao = d.revenda_divisao, .revenda_origem = d.revenda_origem});
    }
    for (const Anterior& a : anteriores_) {
      DadosDeTeste dados(*raw_, 1, a.revenda);
      dados.SaldoAnterior(a.conta, a.ano, a.saldo);
      dados.SegundoLivro().SaldoAnterior(a.conta, a.ano, a.saldo / 2);
    }
    for (const AnteriorDivisao& a : anteriores_divisao_)
      DadosDeTeste(*raw_, 1, a.revenda)
          .SaldoAnteriorDivisao(++sequencia, a.conta, a.ano, a.saldo,
                                {.revenda_divisao = a.revenda_divisao});
    raw_->Commit();
  }

  // The balance of `conta` at the end of `ano_mes` computed from the rows,
  // with an optional division dealership and an optional exclusion list.
  double Esperado(int revenda, const std::string& conta, int ano_mes, int revenda_divisao,
                  const std::set<int>& lista, bool sped) const {
    const int ano = ano_mes / 100;
    const bool filtro = revenda_divisao != -1;
    // The carried-forward table and whether it has rows for the account (or,
    // with a division filter, for the company) in the previous year.
    auto tem_anterior = [&](int ano_anterior) {
      if (!lista.empty()) {
        for (const auto& a : anteriores_divisao_)
          if (a.ano == ano_anterior && (filtro || a.conta == conta) &&
              Fora(a.revenda_divisao, lista))
            return true;
        return false;
      }
      for (const auto& a : anteriores_)
        if (a.ano == ano_anterior && a.revenda == revenda && (filtro || a.conta == conta))
          return true;
      return false;
    };
    auto anterior = [&](int ano_anterior) {
      double sa = 0;
      if (filtro) {
        for (const auto& a : anteriores_divisao_)
          if (a.ano == ano_anterior && a.revenda == revenda && a.conta == conta &&
              a.revenda_divisao == revenda_divisao && Fora(a.revenda_divisao, lista))
            sa += a.saldo;
      } else if (!lista.empty()) {
        for (const auto& a : anteriores_divisao_)
          if (a.ano == ano_anterior && a.conta == conta && Fora(a.revenda_divisao, lista))
            sa += a.saldo;
      } else {
        for (const auto& a : anteriores_)
          if (a.ano == ano_anterior && a.revenda == revenda && a.conta == conta)
            sa += sped ? a.saldo / 2 : a.saldo;
      }
      return sa;
    };
    auto movimento = [&](int de, int ate) {
      double m = 0;
      for (const Entrada& e : entradas_) {
        if (e.revenda != revenda || e.conta != conta || e.ano_mes < de || e.ano_mes > ate) continue;
        const double sinal = e.natureza == 'D' ? 1 : -1;
        if (e.cv) {
          if (sped && !filtro) m += sinal * e.valor;
          continue;
        }
        if (!filtro && lista.empty()) {
          m += sinal * e.valor;
          continue;
        }
        if (!lista.empty() && !Fora(e.revenda_operacao, lista)) continue;
        for (const Divisao& d : e.divisoes)
          if ((!filtro || d.revenda_divisao == revenda_divisao) && Fora(d.revenda_divisao, lista) &&
              Fora(d.revenda_origem, lista))
            m += sinal * d.valor;
      }
      return m;
    };
    if (tem_anterior(ano - 1)) return anterior(ano - 1) + movimento(ano * 100 + 1, ano_mes);
    // No carried-forward row: the period from January of the previous year,
    // on the balance carried from the year before it.
    return anterior(ano - 2) + movimento((ano - 1) * 100 + 1, ano_mes);
  }

  // The balance over a range of months: the carried-forward balance of the
  // year before the first month's (none counts as zero) plus the movement.
  double EsperadoPeriodo(int revenda, const std::string& conta, int inicial, int final,
                         int revenda_divisao) const {
    const int ano_anterior = inicial / 100 - 1;
    double sa = 0;
    for (const auto& a : anteriores_divisao_)
      if (revenda_divisao != -1 && a.ano == ano_anterior && a.revenda == revenda &&
          a.conta == conta && a.revenda_divisao == revenda_divisao)
        sa += a.saldo;
    for (const auto& a : anteriores_)
      if (revenda_divisao == -1 && a.ano == ano_anterior && a.revenda == revenda &&
          a.conta == conta)
        sa += a.saldo;
    double m = 0;
    for (const Entrada& e : entradas_) {
      if (e.cv || e.revenda != revenda || e.conta != conta || e.ano_mes < inicial ||
          e.ano_mes > final)
        continue;
      const double sinal = e.natureza == 'D' ? 1 : -1;
      if (revenda_divisao == -1) {
        m += sinal * e.valor;
      } else {
        for (const Divisao& d : e.divisoes)
          if (d.revenda_divisao == revenda_divisao) m += sinal * d.valor;
      }
    }
    return sa + m;
  }

  std::vector<Entrada> entradas_;
  std::vector<Anterior> anteriores_;
  std::vector<AnteriorDivisao> anteriores_divisao_;
};

TEST_P(SaldoModeloReferenciaTest, BalanceEqualsIndependentComputationFromTheRowsWritten) {
  Gera(31);
  Bind();
  std::mt19937 rng(37);
  auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  for (int i = 0; i < 150; ++i) {
    const int revenda = pick(1, 2);
    const std::string conta = fmt::format("2.{}", pick(0, 5));
    const int ano_mes = pick(2023, 2024) * 100 + pick(1, 12);
    const int revenda_divisao = pick(0, 2) ? -1 : pick(1, 4);
    std::set<int> lista;
    std::string texto_lista;
    if (pick(0, 2) == 0) {
      lista = {pick(1, 4)};
      texto_lista = fmt::format("({})", *lista.begin());
    }
    const bool sped = revenda_divisao == -1 && lista.empty() && pick(0, 3) == 0;
    const double esperado = Esperado(revenda, conta, ano_mes, revenda_divisao, lista, sped);
    for (bool geral : {false, true}) {
      const double obtido = geral ? dm_->BuscaSaldoContaAnaliticaGeral(
                                        1, revenda, ano_mes, 0, 0, -1, -1, -1, -1, revenda_divisao,
                                        "", sped ? "SPED" : "", conta, "", false, "", texto_lista)
                                  : dm_->BuscaSaldoContaAnalitica(
                                        1, revenda, ano_mes, 0, 0, -1, -1, -1, -1, revenda_divisao,
                                        "", sped ? "SPED" : "", conta, "", false, "", texto_lista);
      EXPECT_NEAR(obtido, esperado, 0.005)
          << "query " << i << (geral ? " (general)" : "") << ": revenda " << revenda << " " << conta
          << " " << ano_mes << " rd " << revenda_divisao << " lista '" << texto_lista << "' sped "
          << sped;
    }
  }
}

TEST_P(SaldoModeloReferenciaTest, SyntheticAccountEqualsSumOfAnalyticDescendants) {
  Gera(41);
  DadosDeTeste dados(*raw_);
  dados.Conta("2", {.nivel = "S"}).Conta("2.X", {.superiora = "2", .nivel = "S"});
  for (int c = 0; c < 6; ++c)
    dados.Conta(fmt::format("2.{}", c), {.superiora = c % 2 ? "2" : "2.X", .nivel = "A"});
  Bind();
  for (int ano_mes : {202301, 202406, 202412}) {
    double esperado = 0;
    for (int c = 0; c < 6; ++c)
      esperado += Esperado(1, fmt::format("2.{}", c), ano_mes, -1, {}, false);
    for (bool geral : {false, true}) {
      double saldo = 0;
      EXPECT_NEAR(dm_->BuscaSaldoConta(1, 1, ano_mes, 0, 0, -1, -1, -1, -1, -1, "", "", "2", "S",
                                       "", saldo, geral, false, "", ""),
                  esperado, 0.005)
          << ano_mes << (geral ? " general" : "");
    }
  }
}

TEST_P(SaldoModeloReferenciaTest, PeriodBalanceEqualsIndependentComputationOfItsRange) {
  Gera(43);
  Bind();
  std::mt19937 rng(47);
  auto pick = [&rng](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  for (int i = 0; i < 60; ++i) {
    const int revenda = pick(1, 2);
    const std::string conta = fmt::format("2.{}", pick(0, 5));
    const int inicial = pick(2023, 2024) * 100 + pick(1, 12);
    const int final = inicial + pick(0, 14);
    const int revenda_divisao = pick(0, 1) ? -1 : pick(1, 4);
    const double esperado = EsperadoPeriodo(revenda, conta, inicial, final, revenda_divisao);
    EXPECT_NEAR(
        dm_->BuscaSaldoAntContaAnaliticaPeriodo(1, revenda, inicial, final, -1, -1, -1, -1,
                                                revenda_divisao, "", "", conta, "", false, "", ""),
        esperado, 0.005)
        << "query " << i << " " << conta << " " << inicial << "-" << final << " rd "
        << revenda_divisao;
    EXPECT_NEAR(dm_->BuscaSaldoAntContaAnaliticaPeriodoDivisoes(
                    1, revenda, inicial, final, -1, -1, -1, -1, revenda_divisao, "", "", conta, "",
                    "", "", "", false, "", ""),
                esperado, 0.005)
        << "division variant, query " << i;
  }
}

KVC_INSTANTIATE_BACKENDS(SaldoModeloReferenciaTest);

}  // namespace
}  // namespace kvc::testing
