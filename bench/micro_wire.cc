// The cost of the agent's protocol: to encode and to parse each message, as client and agent do.
#include <benchmark/benchmark.h>

#include <string>
#include <string_view>

#include "services/agent/zone_wire.h"

namespace {

using orvs::wire::Kind;

// A message without the NUL that ends each message on the wire.
std::string_view bodyOf(const std::string& message) {
  return std::string_view(message).substr(0, message.size() - 1);
}

const orvs::wire::Question kQuestion = {Kind::User, "winifred", std::nullopt};
const orvs::wire::Record kRecord = {"winifred", 70001, 70000};

void encodeQuestion(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(orvs::wire::encodeQuestion(kQuestion, orvs::wire::kDefaultService));
}
BENCHMARK(encodeQuestion);

void parseRequest(benchmark::State& state) {
  const std::string message = orvs::wire::encodeQuestion(kQuestion, orvs::wire::kDefaultService);
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(orvs::wire::parseRequest(bodyOf(message)));
}
BENCHMARK(parseRequest);

void encodeRecord(benchmark::State& state) {
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(
        orvs::wire::encodeRecord(Kind::User, kRecord, orvs::wire::kDefaultService));
}
BENCHMARK(encodeRecord);

void parseReply(benchmark::State& state) {
  const std::string message =
      orvs::wire::encodeRecord(Kind::User, kRecord, orvs::wire::kDefaultService);
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(orvs::wire::parseReply(bodyOf(message), Kind::User));
}
BENCHMARK(parseReply);

}  // namespace

BENCHMARK_MAIN();
