// The closing operations against an independent computation on generated
// data: two years of random entries over a several-level chart.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <random>

#include "closing/closing_fixture.h"

namespace kvc::testing {
namespace {

class ClosingModeloReferenciaTest : public ClosingTest {
 protected:
  struct Movimento {
    int ano_mes;
    std::string conta;
    int64_t centavos;  // debit positive
  };

  // A chart four levels deep under the groups 1 to 4: groups, two or three
  // subgroups each, two to four analytic accounts under each subgroup.
  void GeraPlano(std::mt19937& rng) {
    for (const std::string grupo : {"1", "2", "3", "4"}) {
      Registra(grupo, "", "S");
      const int subgrupos = std::uniform_int_distribution<int>(2, 3)(rng);
      for (int i = 1; i <= subgrupos; ++i) {
        const std::string sub = grupo + "." + std::to_string(i);
        Registra(sub, grupo, "S");
        const int folhas = std::uniform_int_distribution<int>(2, 4)(rng);
        for (int j = 1; j <= folhas; ++j) Registra(sub + ".0" + std::to_string(j), sub, "A");
      }
    }
    Registra("2.9", "2", "S");
    Registra("2.9.01", "2.9", "A");  // receives the result
  }

  void Registra(const std::string& conta, const std::string& superiora, const std::string& nivel) {
    Conta(conta, superiora, nivel);
    superiora_[conta] = superiora;
    if (nivel == "A" && conta != "2.9.01") analiticas_.push_back(conta);
    contas_.push_back(conta);
  }

  // `n` entries over 2023 and 2024, each split over one to three divisions
  // that add up to its amount.
  void GeraLancamentos(std::mt19937& rng, int n) {
    std::uniform_int_distribution<size_t> conta(0, analiticas_.size() - 1);
    std::uniform_int_distribution<int> mes(1, 12), dia(1, 28), partes(1, 3), cc(1, 4), rd(0, 2);
    std::uniform_int_distribution<int64_t> valor(1, 500000);
    for (int i = 0; i < n; ++i) {
      const int ano_mes = (i % 2 ? 2023 : 2024) * 100 + mes(rng);
      const std::string& c = analiticas_[conta(rng)];
      const bool debito = rng() % 2 == 0;
      const int64_t centavos = valor(rng);
      std::vector<Div> divisoes;
      int64_t resto = centavos;
      const int k = partes(rng);
      for (int p = 0; p < k; ++p) {
        const int64_t parte = p == k - 1 ? resto : resto / 2;
        resto -= parte;
        const int r = rd(rng);
        divisoes.emplace_back(static_cast<double>(parte) / 100.0, cc(rng),
                              r ? std::optional<int>(r) : std::nullopt);
      }
      Lancamento(ano_mes, dia(rng), c, debito ? "D" : "C", static_cast<double>(centavos) / 100.0,
                 divisoes);
      movimentos_.push_back({ano_mes, c, debito ? centavos : -centavos});
    }
  }

  // The balance of every account (synthetic ones as the sum of their
  // analytic descendants) at the end of `ate` (YYYYMM), in cents.
  std::map<std::string, int64_t> SaldosAte(int ate) const {
    std::map<std::string, int64_t> saldos;
    for (const auto& c : contas_) saldos[c] = 0;
    for (const auto& m : movimentos_) {
      if (m.ano_mes > ate) continue;
      for (std::string c = m.conta; !c.empty(); c = superiora_.at(c)) saldos[c] += m.centavos;
    }
    return saldos;
  }

  double SaldoModulo(const std::string& conta, int32_t ano_mes) {
    const std::string nivel =
        Scalar(*raw_, "select NIVEL from CTB_CONTA where CONTA = '" + conta + "'").AsString();
    double saldo = 0;
    return dm_->BuscaSaldoConta(1, 1, ano_mes, 0, 0, -1, -1, -1, -1, -1, "", "", conta, nivel, "",
                                saldo, false, false, "", "");
  }

  static int64_t Centavos(double v) { return std::llround(v * 100.0); }

  std::map<std::string, std::string> superiora_;
  std::vector<std::string> analiticas_;
  std::vector<std::string> contas_;
  std::vector<Movimento> movimentos_;
};

TEST_P(ClosingModeloReferenciaTest,
       AnnualClosingThenResultCalculationMatchAnIndependentComputation) {
  std::mt19937 rng(20261122);
  GeraPlano(rng);
  GeraLancamentos(rng, 240);
  Numeracao("2023-12-31");
  Bind();

  // The annual closing of 2023: every account's row is its balance at the
  // end of the year.
  std::string erros;
  dm_->EncerramentoAnual("2023", erros, nullptr);
  const auto fim_2023 = SaldosAte(202312);
  std::map<std::string, int64_t> gravados;
  for (const auto& l :
       Linhas(*raw_, "select CONTA, SALDO from CTB_SALDO_ANTERIOR where ANO = 2023"))
    gravados[l[0]] = std::llround(std::stod(l[1]) * 100.0);
  EXPECT_EQ(gravados, fim_2023);
  // The division rows of each analytic account add up to its row.
  for (const auto& c : analiticas_) {
    const db::Value soma =
        Scalar(*raw_,
               "select sum(SALDO) S from CTB_SALDO_ANTERIOR_DIVISAO where ANO = 2023 and "
               "CONTA = '" +
                   c + "'");
    EXPECT_EQ(soma.IsNull() ? 0 : Centavos(soma.AsFloat()), fim_2023.at(c)) << c;
  }

  // The balances of 2024 read through the stored year-end rows.
  for (int mes : {202401, 202407, 202412}) {
    const auto esperado = SaldosAte(mes);
    for (const auto& c : contas_)
      EXPECT_EQ(Centavos(SaldoModulo(c, mes)), esperado.at(c)) << c << " at " << mes;
  }

  // The result calculation of 2024 closes every result account into 2.9.01.
  const auto antes = SaldosAte(202412);
  int64_t resultado = 0;
  for (const auto& c : analiticas_)
    if (c[0] > '2') resultado += antes.at(c);
  std::string credito, debito, diferenca, mensagem;
  ASSERT_TRUE(dm_->ApuraResultado(202412, "2024", "31", "99", "2.9.01", false, credito, debito,
                                  diferenca, mensagem, true, false, false, ""))
      << mensagem;
  for (const auto& c : analiticas_) {
    if (c[0] > '2')
      EXPECT_EQ(Centavos(SaldoModulo(c, 202412)), 0) << c;
    else
      EXPECT_EQ(Centavos(SaldoModulo(c, 202412)), antes.at(c)) << c;
  }
  EXPECT_EQ(Centavos(SaldoModulo("2.9.01", 202412)), resultado);
  for (const std::string grupo : {"3", "4"}) EXPECT_EQ(Centavos(SaldoModulo(grupo, 202412)), 0);
  // The totals are the two sides posted into the result account.
  const auto lado = [this](const std::string& natureza) {
    const db::Value v = Scalar(*raw_,
                               "select sum(VAL_LANCAMENTO) S from CTB_LANCAMENTO where CONTA = "
                               "'2.9.01' and NATUREZA = '" +
                                   natureza + "'");
    return v.IsNull() ? 0 : Centavos(v.AsFloat());
  };
  const auto texto = [](int64_t centavos, const std::string& lado) {
    return FormataMilhar(static_cast<double>(centavos) / 100.0, SeparadoresDoLocale()) + " " + lado;
  };
  EXPECT_EQ(credito, texto(lado("C"), "C"));
  EXPECT_EQ(debito, texto(lado("D"), "D"));
  EXPECT_EQ(lado("D") - lado("C"), resultado);
}

// The progress of a closing over generated data: the status captions in
// order, and within each phase (from a "pBar#$#0" on) bar values that only
// go up, never repeat and end at 100 when the phase has work.
TEST_P(ClosingModeloReferenciaTest, ProgressBarNeverRepeatsOrGoesBackWithinAPhase) {
  std::mt19937 rng(7);
  GeraPlano(rng);
  GeraLancamentos(rng, 150);
  Bind();
  Comandos comandos;
  std::string erros;
  dm_->EncerramentoAnual("2023", erros, &comandos);
  std::vector<std::string> captions;
  std::vector<std::vector<int>> fases;
  for (const auto& c : comandos.lista) {
    if (c.rfind(kCmdCaption, 0) == 0) {
      captions.push_back(c.substr(std::string(kCmdCaption).size()));
    } else {
      ASSERT_EQ(c.rfind(kCmdBar, 0), 0u) << c;
      const int valor = std::stoi(c.substr(std::string(kCmdBar).size()));
      if (valor == 0) fases.emplace_back();
      ASSERT_FALSE(fases.empty()) << "a bar value before any phase began: " << c;
      fases.back().push_back(valor);
    }
  }
  EXPECT_EQ(captions,
            (std::vector<std::string>{"Buscando o movimento e saldo do período ...",
                                      "Atualizando o saldo Anterior na base ...",
                                      "Atualizando o saldo Anterior dividido na base ..",
                                      "Atualizando saldo das contas superioras ...",
                                      "Atualizando saldo dividido das contas superioras ..."}));
  ASSERT_EQ(fases.size(), 6u);
  for (size_t f = 0; f < fases.size(); ++f) {
    for (size_t i = 1; i < fases[f].size(); ++i)
      EXPECT_LT(fases[f][i - 1], fases[f][i]) << "phase " << f << " position " << i;
    EXPECT_LE(fases[f].back(), 100);
    // The empty phase is the caption's own "0" before the roll-up's.
    if (f != 3) {
      EXPECT_EQ(fases[f].back(), 100) << "phase " << f;
    }
  }
}

KVC_INSTANTIATE_BACKENDS(ClosingModeloReferenciaTest);

}  // namespace
}  // namespace kvc::testing
