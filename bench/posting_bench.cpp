// Posting throughput: N fixed-width records through GravaLancamento in one
// transaction on the embedded database (an SQLite file), with the chart and
// division settings a real company has. Reports records per second and the
// process's peak resident memory.
#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include <fmt/format.h>

#include "accounting/db/schema.h"
#include "accounting/module/uddmContabilidadeBD.h"

namespace {

// A valid 133-character record: division code at 13, YYMM at 33, day at 37,
// history at 42, the two account fields at 74 and 94, standard history at
// 114, side mark at 118 and the amount in hundredths at 119.
std::string Record(int64_t i) {
  std::string r(133, ' ');
  auto put = [&r](size_t pos, const std::string& text) { r.replace(pos - 1, text.size(), text); };
  put(13, "7");
  put(33, fmt::format("24{:02}", i % 12 + 1));
  put(37, fmt::format("{:02}", i % 28 + 1));
  put(42, fmt::format("Venda {}", i));
  put(74, fmt::format("1.1.{:03}", i % 50));
  put(94, fmt::format("3.1.{:03}", i % 150));
  put(114, "12");
  put(118, i % 3 ? "+" : "-");
  put(119, fmt::format("{:015}", 100 + i % 99999));
  return r;
}

long PeakRssKb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

void BM_GravaLancamento(benchmark::State& state) {
  const int64_t records = state.range(0);
  for (auto _ : state) {
    state.PauseTiming();
    const std::string path = (std::filesystem::temp_directory_path() /
                              ("kvc_posting_bench_" + std::to_string(getpid()) + ".db"))
                                 .string();
    std::filesystem::remove(path);
    auto connection = kvc::db::Connect("sqlite:" + path);
    kvc::db::CreateSchema(*connection);
    connection->Begin(kvc::db::Isolation::kReadCommitted);
    for (int i = 0; i < 50; ++i)
      connection->Execute(fmt::format("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, NIVEL, "
                                      "NIVEL_DIVISAO) values (1, 1, '1.1.{:03}', 'A', 0)",
                                      i),
                          {});
    for (int i = 0; i < 150; ++i)
      connection->Execute(fmt::format("insert into CTB_CONTA (EMPRESA, REVENDA, CONTA, NIVEL, "
                                      "NIVEL_DIVISAO) values (1, 1, '3.1.{:03}', 'A', 1)",
                                      i),
                          {});
    connection->Execute("insert into CTB_DIVISAO_CONTABIL values (1, 1, 1, 'C')", {});
    connection->Commit();
    kvc::TSimpleHostContext host;
    kvc::TddmContabilidadeBD dm;
    dm.AtualizaTAplicacao(host, connection.get(), 1);
    dm.SetaSQLConnection();
    state.ResumeTiming();

    if (!dm.IniciaTransacao()) state.SkipWithError("cannot begin");
    for (int64_t i = 0; i < records; ++i) dm.GravaLancamento(Record(i), "1", "1", "", "1", false);
    if (!dm.ComitaTransacao()) state.SkipWithError("cannot commit");

    state.PauseTiming();
    dm.LimpaSQLConnection();
    dm.FinalizaDM();
    connection.reset();
    std::filesystem::remove(path);
    state.ResumeTiming();
  }
  state.counters["records_per_second"] =
      benchmark::Counter(static_cast<double>(records) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
  state.counters["peak_rss_MiB"] = static_cast<double>(PeakRssKb()) / 1024.0;
}
BENCHMARK(BM_GravaLancamento)->Arg(100'000)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
