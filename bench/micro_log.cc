// The cost of a record: to write it, to load it, to keep it in memory.
//
// Runs as root in a mount namespace of its own, with an /etc on tmpfs. IDSHIFT_BENCH_DIR can name a
// directory on another file system for the log.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "privatelog/private_log.h"
#include "services/paths.h"

namespace {

void enterNamespace() {
  const char* directory = getenv("IDSHIFT_BENCH_DIR");
  const bool isDone =
      unshare(CLONE_NEWNS) == 0 &&
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
      mount("tmpfs", "/etc", "tmpfs", 0, "mode=755") == 0 && mkdir("/etc/orvantadc", 0755) == 0 &&
      (directory == nullptr || mount(directory, "/etc/orvantadc", nullptr, MS_BIND, nullptr) == 0);
  if (!isDone) {
    perror("micro_log: cannot enter a namespace of its own");
    exit(1);
  }
}

std::string pathOf(uint64_t i) {
  return "/home/user" + std::to_string(i % 20) + "/project/dir" + std::to_string(i / 10) + "/file" +
         std::to_string(i);
}

// The status of a file on the file system of the current directory, created an hour ago.
void writeOne(PrivateLog& log, uint64_t inode, const std::string& path) {
  static const uint64_t device = [] {
    EntryStatus here;
    return lookAt(".", false, here) ? here.id.device : 0;
  }();
  static const int64_t birth = (time(nullptr) - 3600) * int64_t{1'000'000'000};
  EntryStatus status;
  status.id = {device, inode};
  status.owner = {500, 100};
  status.birth = birth;
  if (!log.beginRecord({status, path, "."}, {10001, 10000}))
    abort();
  log.finishRecord({10001, 10000});
}

void writeRecords(PrivateLog& log, uint64_t count) {
  for (uint64_t i = 0; i < count; ++i) {
    const std::string path = pathOf(i);
    writeOne(log, i + 1, path);
  }
}

size_t bytesInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

// Writes one record of many.
void writeRecord(benchmark::State& state) {
  PrivateLog log;
  if (!log.openPrivateLog(false))
    abort();
  const std::string path = pathOf(123456);
  uint64_t inode = 0;
  for ([[maybe_unused]] auto _ : state) {
    writeOne(log, ++inode, path);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(writeRecord);

// Loads a log of so many records. bytes_per_record is the memory that the table uses for one.
void loadLog(benchmark::State& state) {
  {
    PrivateLog log;
    if (!log.openPrivateLog(false))
      abort();
    writeRecords(log, static_cast<uint64_t>(state.range(0)));
  }
  size_t kept = 0;
  for ([[maybe_unused]] auto _ : state) {
    const size_t before = bytesInUse();
    PrivateLog log;
    if (!log.loadPrivateLog(false))
      abort();
    kept = bytesInUse() - before;
  }
  const auto records = static_cast<double>(state.range(0));
  state.counters["s_per_record"] = benchmark::Counter(
      records, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["bytes_per_record"] = static_cast<double>(kept) / records;
}
BENCHMARK(loadLog)->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  enterNamespace();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
