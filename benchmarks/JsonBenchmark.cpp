// parseJson() on a kit of 100 000 beacons, side by side with the Json type's own parser, which is what it replaces, and
// with simdjson's document alone, which is the part of it that is not ours to make faster.
#include <benchmark/benchmark.h>
#include <simdjson.h>
#include <string>

#include "wayloom/platform/JsonParser.hpp"

namespace {

using wayloom::platform::Json;

const std::string& kitDocument() {
  static const std::string text = [] {
    Json beacons = Json::array();
    for (int i = 0; i < 100'000; ++i)
      beacons.push_back({{"uuid", "5A0E1E2C-3F4B-4D61-9A70-0123456789AB"},
                         {"major", i / 100},
                         {"minor", i % 100},
                         {"name", "Beacon " + std::to_string(i)},
                         {"attributes",
                          {{"measured_power", -59},
                           {"map_id", "floor" + std::to_string(i % 7)},
                           {"latitude", 50.1 + i * 1.23456789e-7},
                           {"longitude", 8.6 - i * 9.87654321e-8}}}});
    return Json({{"kit", {{"id", 1}, {"map", {{"beacons", std::move(beacons)}}}}}}).dump();
  }();
  return text;
}

void setRate(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kitDocument().size()));
}

void parseJson(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(wayloom::platform::parseJson(kitDocument()));
  setRate(state);
}

void nlohmannParse(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(Json::parse(kitDocument(), nullptr, false));
  setRate(state);
}

void simdjsonDocumentAlone(benchmark::State& state) {
  for (auto _ : state) {
    simdjson::dom::parser parser;
    benchmark::DoNotOptimize(parser.parse(kitDocument()).error());
  }
  setRate(state);
}

// What building and destroying the value costs without any parsing.
void copyOfTheValue(benchmark::State& state) {
  const auto value = wayloom::platform::parseJson(kitDocument()).value;
  for (auto _ : state) benchmark::DoNotOptimize(Json(*value));
  setRate(state);
}

BENCHMARK(parseJson)->Unit(benchmark::kMillisecond);
BENCHMARK(nlohmannParse)->Unit(benchmark::kMillisecond);
BENCHMARK(simdjsonDocumentAlone)->Unit(benchmark::kMillisecond);
BENCHMARK(copyOfTheValue)->Unit(benchmark::kMillisecond);

}  // namespace
