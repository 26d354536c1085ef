// The roll-up of a year's carried-forward balances for a 2,000-account chart
// five levels deep, with a plain row per analytic account and 20,000 division
// rows, on the embedded database: time and statements issued.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <fmt/format.h>

#include "accounting/db/schema.h"
#include "accounting/module/uddmContabilidadeBD.h"
#include "bench/bench_support.h"

namespace {

// Levels of 2, 10, 50 and 250 synthetic accounts, then 1,688 analytic ones.
constexpr int kNivel[] = {2, 10, 50, 250, 1688};
constexpr int kLinhasDivisao = 20'000;

std::string Conta(int nivel, int i) { return fmt::format("N{}.{:04}", nivel, i); }

void Popula(kvc::db::Connection& c) {
  c.Begin(kvc::db::Isolation::kReadCommitted);
  for (int nivel = 0; nivel < 5; ++nivel)
    for (int i = 0; i < kNivel[nivel]; ++i)
      c.Execute(
          fmt::format("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, "
                      "NIVEL) values (1, 1, '{}', {}, '{}')",
                      Conta(nivel, i),
                      nivel == 0 ? "null" : "'" + Conta(nivel - 1, i % kNivel[nivel - 1]) + "'",
                      nivel == 4 ? "A" : "S"),
          {});
  for (int i = 0; i < kNivel[4]; ++i)
    c.Execute(fmt::format("insert into CTB_SALDO_ANTERIOR values (1, 1, '{}', 2023, {})",
                          Conta(4, i), i % 1000),
              {});
  for (int i = 0; i < kLinhasDivisao; ++i)
    c.Execute(fmt::format("insert into CTB_SALDO_ANTERIOR_DIVISAO (SEQUENCIA, EMPRESA, REVENDA, "
                          "ANO, CONTA, REVENDA_DIVISAO, CENTRO_CUSTO, SALDO) values ({}, 1, 1, "
                          "2023, '{}', {}, {}, {})",
                          i + 1, Conta(4, i % kNivel[4]), i / kNivel[4] % 4 + 1,
                          i / kNivel[4] / 4 + 1, i % 97),
              {});
  c.Execute(
      "insert into GER_NUMERADOR values (1, 1, 'CTB_SALDO_ANTERIOR_DIVISAO', 'SEQUENCIA', "
      "20000)",
      {});
  c.Commit();
}

// The roll-up as the annual closing runs it: both forms inside the caller's
// transaction.
void BM_RollUpOfAYear(benchmark::State& state) {
  size_t statements = 0;
  for (auto _ : state) {
    state.PauseTiming();
    const std::string path = (std::filesystem::temp_directory_path() /
                              ("kvc_rollup_bench_" + std::to_string(getpid()) + ".db"))
                                 .string();
    std::filesystem::remove(path);
    auto raw = kvc::db::Connect("sqlite:" + path);
    kvc::db::CreateSchema(*raw);
    Popula(*raw);
    kvc::bench::Contador trace(*raw);
    kvc::TSimpleHostContext host;
    kvc::TddmContabilidadeBD dm;
    dm.AtualizaTAplicacao(host, &trace, 1);
    dm.SetaSQLConnection();
    state.ResumeTiming();

    if (!dm.IniciaTransacao()) state.SkipWithError("cannot begin");
    dm.AtualizaSaldoAnterior("2023", nullptr);
    dm.AtualizaSaldoAnteriorDivisao("2023", nullptr);
    if (!dm.ComitaTransacao()) state.SkipWithError("cannot commit");

    state.PauseTiming();
    statements = trace.enviados;
    if (dm.LogErros() && dm.LogErros()->RecordCount() > 0) state.SkipWithError("errors logged");
    dm.LimpaSQLConnection();
    dm.FinalizaDM();
    raw.reset();
    std::filesystem::remove(path);
    state.ResumeTiming();
  }
  state.counters["statements"] = static_cast<double>(statements);
  state.counters["peak_rss_MiB"] = static_cast<double>(kvc::bench::PeakRssKb()) / 1024.0;
}
BENCHMARK(BM_RollUpOfAYear)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
