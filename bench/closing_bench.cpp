// The closings of a company with a 2,000-account chart and its entries over
// two years, on the embedded database: the annual closing of the first year
// (EncerramentoAnual) and the result calculation of the second
// (ApuraResultado, committed). Reports time, statements issued and the
// process's peak memory, at 250,000 and at 1,000,000 entries: the statements
// follow the accounts and division combinations, not the entries.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <fmt/format.h>

#include "accounting/db/schema.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "bench/bench_support.h"

namespace {

// 4 groups, 10 subgroups each, 1,956 analytic accounts: 2,000 in all.
constexpr int kGrupos = 4;
constexpr int kSubgrupos = 10;
constexpr int kAnaliticas = 1956;

std::string Analitica(int i) {
  return fmt::format("{}.{:02}.{:04}", i % kGrupos + 1, i / kGrupos % kSubgrupos + 1, i);
}

// The database for `entries` entries, built once per machine in the
// temporary directory. Each entry has one division row: five cost centres
// and two division dealerships, so at most ten combinations per account.
std::string Database(int64_t entries) {
  const std::string path =
      (std::filesystem::temp_directory_path() / fmt::format("kvc_closing_bench_v3_{}.db", entries))
          .string();
  if (std::filesystem::exists(path)) return path;
  const std::string building = path + ".building";
  std::filesystem::remove(building);
  auto c = kvc::db::Connect("sqlite:" + building);
  kvc::db::CreateSchema(*c);
  c->Begin(kvc::db::Isolation::kReadCommitted);
  auto conta = [&c](const std::string& codigo, const std::string& superiora, const char* nivel) {
    c->Execute(fmt::format("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, "
                           "NIVEL) values (1, 1, '{}', {}, '{}')",
                           codigo, superiora.empty() ? "null" : "'" + superiora + "'", nivel),
               {});
  };
  for (int g = 1; g <= kGrupos; ++g) {
    conta(std::to_string(g), "", "S");
    for (int s = 1; s <= kSubgrupos; ++s)
      conta(fmt::format("{}.{:02}", g, s), std::to_string(g), "S");
  }
  c->Execute("create table BENCH_CONTA (IDX INTEGER PRIMARY KEY, CONTA VARCHAR(20))", {});
  for (int i = 0; i < kAnaliticas; ++i) {
    const std::string codigo = Analitica(i);
    conta(codigo, codigo.substr(0, 4), "A");
    c->Execute(fmt::format("insert into BENCH_CONTA values ({}, '{}')", i, codigo), {});
  }
  // Entries spread by arithmetic on their number: any account, month of
  // 2023 or 2024, day, side, amount and division.
  c->Execute(fmt::format("with recursive n(i) as (select 1 union all select i + 1 from n where i < "
                         "{}) insert into CTB_LANCAMENTO (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, "
                         "CONTA, HISTORICO_PADRAO, DIA, NATUREZA, VAL_LANCAMENTO, ORIGEM) select "
                         "1, 1, 202301 + (i % 24) / 12 * 100 + (i % 24) % 12, i, b.CONTA, 1, "
                         "i % 28 + 1, case when (i / 7) % 2 = 0 then 'D' else 'C' end, "
                         "(i * 37 % 100000) / 100.0, 'T' from n, BENCH_CONTA b where b.IDX = "
                         "(i * 7919) % {}",
                         entries, kAnaliticas),
             {});
  c->Execute(
      "insert into CTB_LANCAMENTO_DIVIDIDO (SEQUENCIA, EMPRESA, REVENDA, ANO_MES, "
      "LANCAMENTO, REVENDA_DIVISAO, CENTRO_CUSTO, VAL_DIVISAO) select LANCAMENTO, 1, 1, "
      "ANO_MES, LANCAMENTO, (LANCAMENTO / 3) % 2 + 1, (LANCAMENTO / 5) % 5 + 1, "
      "VAL_LANCAMENTO from CTB_LANCAMENTO",
      {});
  // The numbering of each month continues after the entries loaded here.
  c->Execute(
      "insert into GER_NUMERADOR (EMPRESA, REVENDA, TABELA, CHAVE, ULTIMO_NUMERO) select "
      "1, 1, 'CTB_LANCAMENTO', 'LCTO' || ANO_MES, max(LANCAMENTO) from CTB_LANCAMENTO "
      "group by ANO_MES",
      {});
  c->Execute("insert into FAT_NUMERACAO_LIVROS values (1, 1, '2023-12-31')", {});
  c->Execute("drop table BENCH_CONTA", {});
  c->Commit();
  c.reset();
  std::filesystem::rename(building, path);
  return path;
}

// A fresh copy of the database for one run.
std::string Copia(int64_t entries) {
  const std::string copia =
      (std::filesystem::temp_directory_path() / fmt::format("kvc_closing_run_{}.db", getpid()))
          .string();
  std::filesystem::copy_file(Database(entries), copia,
                             std::filesystem::copy_options::overwrite_existing);
  return copia;
}

void Closing(benchmark::State& state, bool resultado) {
  const int64_t entries = state.range(0);
  size_t statements = 0;
  std::string erros;
  std::string falha;
  for (auto _ : state) {
    state.PauseTiming();
    const std::string path = Copia(entries);
    auto raw = kvc::db::Connect("sqlite:" + path);
    kvc::bench::Contador trace(*raw);
    kvc::TSimpleHostContext host;
    kvc::TddmContabilidadeBD dm;
    dm.AtualizaTAplicacao(host, &trace, 1);
    dm.SetaSQLConnection();
    // The annual closing runs its statements one by one; on an SQLite file
    // a host would hold one transaction around it, as here.
    raw->Begin(kvc::db::Isolation::kReadCommitted);
    if (resultado) {
      dm.EncerramentoAnual("2023", erros, nullptr);
      raw->Commit();
      trace.enviados = 0;
      state.ResumeTiming();
      std::string credito, debito, diferenca, mensagem;
      if (!dm.ApuraResultado(202412, "2024", "31", "99", "2.01.0001", false, credito, debito,
                             diferenca, mensagem, true, false, false, ""))
        falha = "ApuraResultado answered false: " + mensagem;
    } else {
      state.ResumeTiming();
      dm.EncerramentoAnual("2023", erros, nullptr);
      raw->Commit();
    }
    state.PauseTiming();
    statements = trace.enviados;
    dm.LimpaSQLConnection();
    dm.FinalizaDM();
    raw.reset();
    std::filesystem::remove(path);
    state.ResumeTiming();
  }
  if (erros.find("Erro") != std::string::npos) falha = "errors reported";
  if (!falha.empty()) state.SkipWithError(falha.c_str());
  state.counters["statements"] = static_cast<double>(statements);
  state.counters["peak_rss_MiB"] = static_cast<double>(kvc::bench::PeakRssKb()) / 1024.0;
}

void BM_AnnualClosing(benchmark::State& state) { Closing(state, false); }
void BM_ResultCalculation(benchmark::State& state) { Closing(state, true); }
BENCHMARK(BM_AnnualClosing)->Arg(250'000)->Arg(1'000'000)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK(BM_ResultCalculation)
    ->Arg(250'000)
    ->Arg(1'000'000)
    ->Iterations(1)
    ->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
