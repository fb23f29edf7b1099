// The cost of a message: of one that is suppressed, as for every entry of a quiet run, and of one
// that is printed.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "services/say.h"

namespace {

const std::string kPath = "/home/user7/project/dir12345/file123456";

void sayUnheard(benchmark::State& state) {
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  for ([[maybe_unused]] auto _ : state)
    SAY(logger, 1, "micro_say", Echo::None, "Skipping symlink: %s", kPath.c_str());
}
BENCHMARK(sayUnheard);

void sayPrinted(benchmark::State& state) {
  const orvs::LoggerPtr logger = getLogger("cli.idshift", false);
  for ([[maybe_unused]] auto _ : state)
    SAY(logger, 1, "micro_say", Echo::Stdout, "Skipping symlink: %s", kPath.c_str());
}
BENCHMARK(sayPrinted);

void findLogger(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(getLogger("cli.idshift", false));
}
BENCHMARK(findLogger);

}  // namespace

// The results go to standard error, because the messages go to standard output.
int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (freopen("/dev/null", "w", stdout) == nullptr)
    return 1;
  benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_None);
  reporter.SetOutputStream(&std::cerr);
  reporter.SetErrorStream(&std::cerr);
  benchmark::RunSpecifiedBenchmarks(&reporter);
  return 0;
}
