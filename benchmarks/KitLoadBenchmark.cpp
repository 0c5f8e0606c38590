// Loading a kit of 100 000 beacons: parsing the answer of the kit server alone, and parsing it and building the kit.
#include <benchmark/benchmark.h>
#include <memory>
#include <string>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/regions/TGFAPIDeserializer.hpp"

#include "SampleKit.hpp"
#include "tests/support/TestPlatform.hpp"

namespace {

using namespace wayloom;

const std::string& answer() {
  static const std::string text = platform::Json{{"kit", benchmarks::sampleKit(100000)}}.dump();
  return text;
}

void ParseAlone(benchmark::State& state) {
  const auto& text = answer();  // made before the clock runs
  for (const auto _ : state) benchmark::DoNotOptimize(platform::parseJson(text).value);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void ParseAndBuild(benchmark::State& state) {
  const auto& text = answer();
  test::TestPlatform world;
  for (const auto _ : state) {
    auto document = platform::parseJson(text).value;
    auto kit = std::make_shared<const platform::Json>(std::move((*document)["kit"]));
    benchmark::DoNotOptimize(TGFAPIDeserializer::buildKit(world, std::move(kit)));
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

BENCHMARK(ParseAlone)->Unit(benchmark::kMillisecond);
BENCHMARK(ParseAndBuild)->Unit(benchmark::kMillisecond);

}  // namespace
