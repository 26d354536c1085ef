// Filtered reads of an in-memory client dataset: the cost of answering one
// account from a cached grouped movement of N rows, which should depend on
// the rows returned, not on N.
#include <benchmark/benchmark.h>

#include <string>

#include "accounting/db/client_dataset.h"

namespace {

using kvc::db::ClientDataSet;
using kvc::db::FieldType;
using kvc::db::Value;

// N rows over N / 10 accounts (ten rows each: five division dealerships and
// both natures), so that every filtered read returns five rows whatever N is.
int64_t Accounts(int64_t rows) { return rows / 10; }

void Fill(ClientDataSet& cds, int64_t rows) {
  cds.DefineFields({{"NATUREZA", FieldType::kString},
                    {"CONTA", FieldType::kString},
                    {"REVENDA_DIVISAO", FieldType::kInteger},
                    {"TOTAL", FieldType::kFloat}});
  for (int64_t i = 0; i < rows; ++i)
    cds.AppendRecord(
        {Value(i % 2 ? "D" : "C"), Value("3." + std::to_string(i / 10 % Accounts(rows))),
         Value(static_cast<long long>(i / 2 % 5)), Value(static_cast<double>(i % 97) + 0.5)});
  cds.AddIndex("indice", "conta;revenda_divisao");
  cds.SetIndexName("indice");
}

void BM_FilteredAccountRead(benchmark::State& state) {
  ClientDataSet cds("cdsSaldoTotal");
  Fill(cds, state.range(0));
  int64_t account = 0;
  for (auto _ : state) {
    cds.SetFiltered(false);
    cds.SetFilter(" CONTA = '3." + std::to_string(account++ % Accounts(state.range(0))) +
                  "' and natureza = 'D'");
    cds.SetFiltered(true);
    double sum = 0;
    int64_t returned = 0;
    for (cds.First(); !cds.Eof(); cds.Next(), ++returned) sum += cds.FieldByName("TOTAL").AsFloat();
    if (returned != 5) state.SkipWithError("a read did not return five rows");
    benchmark::DoNotOptimize(sum);
  }
  state.SetLabel(std::to_string(state.range(0)) + " rows held");
}
BENCHMARK(BM_FilteredAccountRead)->Arg(10'000)->Arg(100'000)->Arg(1'000'000);

void BM_LoadRows(benchmark::State& state) {
  for (auto _ : state) {
    ClientDataSet cds("load");
    Fill(cds, state.range(0));
    benchmark::DoNotOptimize(cds.RecordCount());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_LoadRows)->Arg(100'000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
