// A kit server's answer of any bytes, through the kit model: parsing, regions, matching, and the request's own checks.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/JsonValue.hpp"
#include "wayloom/platform/Url.hpp"
#include "wayloom/regions/TGFAPIDeserializer.hpp"
#include "wayloom/regions/TGFLogger.hpp"

#include "tests/support/TestPlatform.hpp"

namespace {

using namespace wayloom;

void require(bool holds) {
  if (!holds) std::abort();
}

test::TestPlatform& world() {
  static test::TestPlatform made;
  TGFLogger::setLevel(made, TGFLogLevel::debug);
  return made;
}

// Every identity that the kit names, and its neighbours, as the platform would report them.
void match(const TGFKit& kit, const TGFBeacon& entry) {
  if (!entry.uuid()) return;
  const auto major = static_cast<std::uint16_t>(entry.major().value_or(0));
  const auto minor = static_cast<std::uint16_t>(entry.minor().value_or(0));
  const std::vector<platform::CLBeacon> beacons = {{*entry.uuid(), major, minor, -70, 1.0},
                                                   {*entry.uuid(), major, static_cast<std::uint16_t>(minor + 1)},
                                                   {*entry.uuid(), static_cast<std::uint16_t>(major + 1), minor}};
  for (const auto& beacon : kit.getIBeaconsForCLBeacons(beacons)) {
    require(beacon->attributes().is_object());
    require(beacon->isEqual(*beacon));
  }
  const auto region = std::make_shared<const platform::CLBeaconRegion>(*entry.uuid(), major, std::nullopt, "r");
  require(kit.getIBeaconRegionForCLBeaconRegion(region)->region() == region);
  require(kit.knowsRegion(platform::CLBeaconRegion(*entry.uuid(), std::nullopt, std::nullopt, "u")));
}

void useKit(const TGFKit& kit) {
  const auto* entries = platform::member(kit.json().get(), "ibeacons");
  const bool many = entries && entries->is_array() && entries->size() > 20;
  for (const auto& region : kit.beaconRegions()) {
    require(region->attributes().is_object());
    require(!many || !(region->hasMajor() || region->hasMinor()));
    if (region->identifier()) require(kit.getRegionForIdentifier(*region->identifier()) != nullptr);
  }
  if (kit.map())
    for (const auto& circle : kit.map()->overlays()) require(circle->region() != nullptr);
  kit.enumerateIBeaconsUsingBlock([&](const TGFBeacon& beacon, std::size_t, bool&) { match(kit, beacon); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (const auto name = platform::cacheFileNameForUrl("geofold", text))
    require(name->find('/') == name->npos && name->size() <= 255);

  auto parsed = platform::parseJson(text);
  if (!parsed.value) return 0;
  auto document = std::make_shared<const platform::Json>(std::move(*parsed.value));
  useKit(*TGFAPIDeserializer::buildKit(world(), std::move(document)));
  world().console->take();
  return 0;
}
