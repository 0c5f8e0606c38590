// Loading a kit of 100 000 beacons: parsing the answer of the kit server alone, and parsing it and building the kit.
#include <benchmark/benchmark.h>
#include <memory>
#include <string>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/regions/TGFAPIDeserializer.hpp"
#include "wayloom/sim/SimPlatform.hpp"

#include "SampleKit.hpp"

namespace {

using namespace wayloom;

const std::string& answer() {
  static const std::string text = platform::Json{{"kit", benchmarks::sampleKit(100000)}}.dump();
  return text;
}

void ParseAlone(benchmark::State& state) {
  for (const auto _ : state) benchmark::DoNotOptimize(platform::parseJson(answer()).value);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(answer().size()));
}

void ParseAndBuild(benchmark::State& state) {
  sim::SimPlatform simulated;
  for (const auto _ : state) {
    auto document = platform::parseJson(answer()).value;
    auto kit = std::make_shared<const platform::Json>(std::move((*document)["kit"]));
    benchmark::DoNotOptimize(TGFAPIDeserializer::buildKit(simulated.platform(), std::move(kit)));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(answer().size()));
}

BENCHMARK(ParseAlone)->Unit(benchmark::kMillisecond);
BENCHMARK(ParseAndBuild)->Unit(benchmark::kMillisecond);

}  // namespace
