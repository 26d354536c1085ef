// Balances of a 2,000-account chart at one month over 1,000,000 posted
// entries on the embedded database: every account, the plain analytic
// balance (its own statements per account) against the general one (one
// grouped statement per set, then in-memory reads); one analytic account
// through BuscaSaldoConta; and a synthetic account with 500 analytic
// accounts beneath it through the general variant, its sets loaded afresh.
// Reports statements issued, times and the process's peak memory.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <random>
#include <string>

#include <fmt/format.h>

#include "accounting/db/schema.h"
#include "accounting/db/trace.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace {

constexpr int kContas = 2000;
constexpr int kLancamentos = 1'000'000;

long PeakRssKb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

std::string Conta(int i) { return fmt::format("3.{:04}", i); }
// The analytic accounts hang from four synthetic ones, 500 each, under "3".
constexpr int kPorSintetica = 500;
std::string Sintetica(int i) { return fmt::format("3.S{}", i / kPorSintetica); }

// The database, built once per machine in the temporary directory.
std::string Database() {
  const std::string path =
      (std::filesystem::temp_directory_path() / "kvc_balance_bench_v3.db").string();
  if (std::filesystem::exists(path)) return path;
  const std::string building = path + ".building";
  std::filesystem::remove(building);
  auto c = kvc::db::Connect("sqlite:" + building);
  kvc::db::CreateSchema(*c);
  c->Begin(kvc::db::Isolation::kReadCommitted);
  c->Execute(
      "insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, NIVEL) values "
      "(1, 1, '3', '3', 'S')",
      {});
  for (int i = 0; i < kContas; i += kPorSintetica)
    c->Execute(fmt::format("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, "
                           "NIVEL) values (1, 1, '{}', '3', 'S')",
                           Sintetica(i)),
               {});
  for (int i = 0; i < kContas; ++i) {
    c->Execute(fmt::format("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, CONTA_SUPERIORA, "
                           "NIVEL) values (1, 1, '{}', '{}', 'A')",
                           Conta(i), Sintetica(i)),
               {});
    c->Execute(fmt::format("insert into CTB_SALDO_ANTERIOR values (1, 1, '{}', 2023, {})", Conta(i),
                           i % 997),
               {});
  }
  std::mt19937 rng(1);
  for (int n = 1; n <= kLancamentos; ++n)
    c->Execute(fmt::format("insert into CTB_LANCAMENTO (EMPRESA, REVENDA, ANO_MES, LANCAMENTO, "
                           "CONTA, NATUREZA, VAL_LANCAMENTO, DIA) values (1, 1, {}, {}, '{}', "
                           "'{}', {}.{:02}, 1)",
                           202400 + static_cast<int>(rng() % 12) + 1, n,
                           Conta(static_cast<int>(rng() % kContas)), rng() % 2 ? "D" : "C",
                           rng() % 10000, rng() % 100),
               {});
  c->Commit();
  c.reset();
  std::filesystem::rename(building, path);
  return path;
}

// The data module bound to the benchmark's database, as a host binds it,
// behind a trace that counts the statements.
struct Modulo {
  Modulo() : raw(kvc::db::Connect("sqlite:" + Database())), trace(*raw) {
    dm.AtualizaTAplicacao(host, &trace, 1);
    dm.SetaSQLConnection();
  }
  std::unique_ptr<kvc::db::Connection> raw;
  kvc::db::TracingConnection trace;
  kvc::TSimpleHostContext host;
  kvc::TddmContabilidadeBD dm;
};

void BalanceOfEveryAccount(benchmark::State& state, bool geral) {
  Modulo m;
  kvc::db::TracingConnection& trace = m.trace;
  kvc::TddmContabilidadeBD& dm = m.dm;
  size_t statements = 0;
  double total = 0;
  int32_t rodada = 0;
  for (auto _ : state) {
    trace.Clear();
    // A new month each round, so that the general variant loads its sets
    // every time, as a first call does.
    const int32_t ano_mes = 202412 - rodada++ % 6;
    total = 0;
    for (int i = 0; i < kContas; ++i)
      total += geral ? dm.BuscaSaldoContaAnaliticaGeral(1, 1, ano_mes, 0, 0, -1, -1, -1, -1, -1, "",
                                                        "", Conta(i), "", false, "", "")
                     : dm.BuscaSaldoContaAnalitica(1, 1, ano_mes, 0, 0, -1, -1, -1, -1, -1, "", "",
                                                   Conta(i), "", false, "", "");
    statements = trace.Statements().size();
  }
  benchmark::DoNotOptimize(total);
  state.counters["statements"] = static_cast<double>(statements);
  state.counters["peak_rss_MiB"] = static_cast<double>(PeakRssKb()) / 1024.0;
}

void BM_PlainBalanceOfEveryAccount(benchmark::State& state) { BalanceOfEveryAccount(state, false); }
void BM_GeneralBalanceOfEveryAccount(benchmark::State& state) {
  BalanceOfEveryAccount(state, true);
}
BENCHMARK(BM_GeneralBalanceOfEveryAccount)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_PlainBalanceOfEveryAccount)->Unit(benchmark::kMillisecond)->Iterations(3);

// BuscaSaldoConta of `conta` at a month that changes with each round (the
// general variant then loads its sets each time, as a first call does).
void SaldoDeUmaConta(benchmark::State& state, const std::string& (*conta)(int),
                     const std::string& nivel, bool geral) {
  Modulo m;
  kvc::db::TracingConnection& trace = m.trace;
  kvc::TddmContabilidadeBD& dm = m.dm;
  int32_t rodada = 0;
  size_t statements = 0;
  for (auto _ : state) {
    trace.Clear();
    const int n = rodada++;
    double saldo = 0;
    benchmark::DoNotOptimize(dm.BuscaSaldoConta(1, 1, 202412 - n % 6, 0, 0, -1, -1, -1, -1, -1, "",
                                                "", conta(n), nivel, "", saldo, geral, false, "",
                                                ""));
    statements = trace.Statements().size();
  }
  state.counters["statements"] = static_cast<double>(statements);
  state.counters["peak_rss_MiB"] = static_cast<double>(PeakRssKb()) / 1024.0;
}

// A different analytic account each round, spread over the chart.
const std::string& Analitica(int n) {
  static std::string conta;
  conta = Conta(n * 7919 % kContas);
  return conta;
}
// The synthetic account with 500 analytic accounts beneath it.
const std::string& SinteticaDe500(int) {
  static const std::string conta = Sintetica(kPorSintetica);
  return conta;
}

void BM_OneAnalyticAccount(benchmark::State& state) {
  SaldoDeUmaConta(state, Analitica, "A", false);
}
void BM_SyntheticOf500AnalyticGeneral(benchmark::State& state) {
  SaldoDeUmaConta(state, SinteticaDe500, "S", true);
}
BENCHMARK(BM_OneAnalyticAccount)->Unit(benchmark::kMicrosecond)->Iterations(2000);
BENCHMARK(BM_SyntheticOf500AnalyticGeneral)->Unit(benchmark::kMillisecond)->Iterations(12);

}  // namespace

BENCHMARK_MAIN();
