// Cross-server conformance: one generated scenario (postings, deletions,
// balances, the annual closing and the result calculation) runs on every
// configured server, and every server must give the same results to the
// cent as the embedded database.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <random>
#include <string>

#include <fmt/format.h>

#include "accounting/db/dialect.h"
#include "support/dados_teste.h"
#include "support/test_db.h"

namespace kvc::testing {
namespace {

// Everything the scenario leaves behind that must not depend on the server,
// as text, keyed by what it is.
using Resultados = std::map<std::string, std::string>;

std::string Cents(double v) { return std::to_string(std::llround(v * 100.0)); }

// A random valid record of 2023 or 2024 over the scenario's chart.
std::string Registro(std::mt19937& rng) {
  std::uniform_int_distribution<int> ano(23, 24), mes(1, 12), dia(1, 28), conta(1, 8), marca(0, 2);
  std::uniform_int_distribution<int64_t> centavos(1, 9'999'999);
  std::string r(133, ' ');
  auto put = [&r](size_t pos, const std::string& text) { r.replace(pos - 1, text.size(), text); };
  put(13, std::to_string(conta(rng) % 4 + 1));
  put(33, fmt::format("{}{:02}", ano(rng), mes(rng)));
  put(37, fmt::format("{:02}", dia(rng)));
  put(42, "conformidade");
  put(74, fmt::format("1.{:02}", conta(rng)));
  put(94, fmt::format("3.{:02}", conta(rng)));
  put(114, "5");
  put(118, marca(rng) == 0 ? "-" : "+");
  put(119, fmt::format("{:015}", centavos(rng)));
  return r;
}

Resultados Cenario(const BackendName& backend, db::Connection& c) {
  // The chart: 1 and 3 with eight analytic accounts each, 2.9 for the result.
  DadosDeTeste dados(c);
  auto conta = [&dados](const std::string& codigo, const std::string& superiora,
                        const std::string& nivel, int nivel_divisao, const char* dividido) {
    dados.Conta(codigo, {.superiora = NuloSeVazio(superiora),
                         .nivel = nivel,
                         .nivel_divisao = nivel_divisao,
                         .lancamento_dividido = dividido});
  };
  std::vector<std::string> contas = {"1", "2", "2.9", "3"};
  conta("1", "", "S", 0, "N");
  conta("2", "", "S", 0, "N");
  conta("2.9", "2", "A", 0, "N");
  conta("3", "", "S", 0, "N");
  for (int i = 1; i <= 8; ++i) {
    conta(fmt::format("1.{:02}", i), "1", "A", i % 3, i % 2 ? "S" : "N");
    conta(fmt::format("3.{:02}", i), "3", "A", i % 2, "N");
    contas.push_back(fmt::format("1.{:02}", i));
    contas.push_back(fmt::format("3.{:02}", i));
  }
  dados.DivisaoContabil(1, "C").NumeracaoLivros();

  TSimpleHostContext host;
  host.tipo_banco = backend == "sqlserver" ? "SQLSERVER" : std::string(c.dialect().TipoBanco());
  TddmContabilidadeBD dm;
  dm.AtualizaTAplicacao(host, &c, 1);
  dm.SetaSQLConnection();
  dm.DefineSeparadoresNumericos({".", ","});
  Resultados r;

  // Postings.
  std::mt19937 rng(20261122);
  EXPECT_TRUE(dm.IniciaTransacao());
  for (int i = 0; i < 240; ++i) dm.GravaLancamento(Registro(rng), "1", "1", "", "9", false);
  EXPECT_TRUE(dm.ComitaTransacao());

  // Deletions: the first credit entry of five months.
  for (int mes : {202302, 202305, 202311, 202403, 202408}) {
    const auto rs = c.Query(fmt::format("select LANCAMENTO, DIA from CTB_LANCAMENTO where ANO_MES "
                                        "= {} and NATUREZA = 'C' order by LANCAMENTO",
                                        mes),
                            {});
    if (rs.rows.empty()) continue;
    dm.ExcluiLancamentoSelecionado(static_cast<int32_t>(rs.rows[0][0].AsInteger()),
                                   std::to_string(mes), rs.rows[0][1].AsString(), nullptr);
  }

  // Balances before the closings.
  auto saldos = [&](const std::string& etapa, std::initializer_list<int32_t> meses) {
    for (const auto& codigo : contas)
      for (int32_t mes : meses) {
        const std::string nivel = codigo.size() > 1 ? "A" : "S";
        double saldo = 0;
        dm.BuscaSaldoConta(1, 1, mes, 0, 0, -1, -1, -1, -1, -1, "", "", codigo, nivel, "", saldo,
                           false, false, "", "");
        r[fmt::format("{} balance {} {}", etapa, codigo, mes)] = Cents(saldo);
      }
  };
  saldos("posted", {202303, 202312, 202406, 202412});

  // The annual closing of 2023.
  std::string erros;
  dm.EncerramentoAnual("2023", erros, nullptr);
  r["closing errors"] = erros.find("Erro") == std::string::npos ? "none" : "some";
  for (const auto& row :
       c.Query("select CONTA, ANO, SALDO from CTB_SALDO_ANTERIOR order by CONTA, ANO", {}).rows)
    r["carried " + row[0].AsString() + " " + row[1].AsString()] = Cents(row[2].AsFloat());
  for (const auto& row : c.Query("select CONTA, sum(SALDO) S, count(*) N from "
                                 "CTB_SALDO_ANTERIOR_DIVISAO group by CONTA order by CONTA",
                                 {})
                             .rows)
    r["carried by division " + row[0].AsString()] =
        Cents(row[1].AsFloat()) + " in " + row[2].AsString();
  saldos("closed", {202406, 202412});

  // The result calculation of 2024, committed.
  std::string credito, debito, diferenca, mensagem;
  r["result"] = dm.ApuraResultado(202412, "2024", "31", "9", "2.9", false, credito, debito,
                                  diferenca, mensagem, true, false, false, "")
                    ? "true"
                    : "false: " + mensagem;
  r["result totals"] = credito + " / " + debito + " / " + diferenca;
  r["last calculation"] = dm.RetornaDataUltApuracao();
  saldos("result", {202412});

  // The journal and the summarised balances.
  for (const auto& row : c.Query("select ANO_MES, NATUREZA, count(*) N, sum(VAL_LANCAMENTO) S from "
                                 "CTB_LANCAMENTO group by ANO_MES, NATUREZA order by ANO_MES, "
                                 "NATUREZA",
                                 {})
                             .rows)
    r["journal " + row[0].AsString() + " " + row[1].AsString()] =
        row[2].AsString() + " for " + Cents(row[3].AsFloat());
  for (const auto& row : c.Query("select TIPO_SALDO, CONTA, NATUREZA, sum(SALDO) S from "
                                 "INT_SALDO_SUMARIZADO group by TIPO_SALDO, CONTA, NATUREZA order "
                                 "by TIPO_SALDO, CONTA, NATUREZA",
                                 {})
                             .rows)
    r["summarised " + row[0].AsString() + " " + row[1].AsString() + " " + row[2].AsString()] =
        Cents(row[3].AsFloat());

  dm.LimpaSQLConnection();
  dm.FinalizaDM();
  return r;
}

TEST(ConformanceTest, EveryServerGivesTheSameResultsToTheCent) {
  const char* exigidos = std::getenv("KVC_REQUIRE_SERVERS");
  Resultados referencia;
  for (const BackendName& backend : AllBackends()) {
    auto c = OpenTestDatabase(backend);
    if (!c) {
      if (exigidos && std::string(exigidos) == "1") ADD_FAILURE() << backend << " is required";
      continue;
    }
    const Resultados r = Cenario(backend, *c);
    if (backend == "sqlite") {
      referencia = r;
      // The scenario has real work in it.
      EXPECT_GT(r.size(), 150u);
      EXPECT_EQ(r.at("result"), "true");
      EXPECT_EQ(r.at("last calculation"), "20250101");
      EXPECT_EQ(r.at("closing errors"), "none");
      EXPECT_NE(r.at("result totals"), "0.00 C / 0.00 D / 0.00 C");
      continue;
    }
    for (const auto& [chave, valor] : referencia) {
      const auto it = r.find(chave);
      if (it == r.end())
        ADD_FAILURE() << backend << ": no " << chave;
      else
        EXPECT_EQ(it->second, valor) << backend << ": " << chave;
    }
    EXPECT_EQ(r.size(), referencia.size()) << backend;
  }
}

}  // namespace
}  // namespace kvc::testing
