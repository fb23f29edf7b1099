// The cost of the change table: to enter a record, to look up a known inode, and to look up an
// unknown one. The argument is the number of records. Inodes come in runs of ten, as from
// directories, and the runs in random order.
#include <benchmark/benchmark.h>

#include "privatelog/change_table.h"

namespace {

constexpr uint64_t kRun = 10;

InodeKey idOf(uint64_t i) {
  return {2049, (i / kRun * 0x9e3779b97f4a7c15u >> 24) * kRun + i % kRun};
}

ChangeTable tableOf(uint64_t count) {
  ChangeTable table;
  for (uint64_t i = 0; i < count; ++i)
    table.insert({idOf(i), 1, {500, 100}, {10001, 10000}, i * 100, 60});
  return table;
}

void insertRecord(benchmark::State& state) {
  const auto count = static_cast<uint64_t>(state.range(0));
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(tableOf(count).size());
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(insertRecord)
    ->RangeMultiplier(10)
    ->Range(100000, 10000000)
    ->Unit(benchmark::kMillisecond);

void findKnown(benchmark::State& state) {
  const auto count = static_cast<uint64_t>(state.range(0));
  const ChangeTable table = tableOf(count);
  uint64_t i = 0;
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(table.count(idOf(i++ % count)));
}
BENCHMARK(findKnown)->RangeMultiplier(10)->Range(100000, 10000000);

void findUnknown(benchmark::State& state) {
  const auto count = static_cast<uint64_t>(state.range(0));
  const ChangeTable table = tableOf(count);
  uint64_t i = count;
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(table.count(idOf(i++)));
}
BENCHMARK(findUnknown)->RangeMultiplier(10)->Range(100000, 10000000);

}  // namespace

BENCHMARK_MAIN();
