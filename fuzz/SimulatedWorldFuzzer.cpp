// radio.json and walk documents: whatever they hold, reading them and a short walk through what was read must end well.
#include <cstdint>
#include <string>
#include <string_view>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/sim/RadioSimulator.hpp"

namespace {

using namespace wayloom;

sim::VenueFrame frame() {
  return sim::VenueFrame(
      {.coordinateOf =
           [](const sim::MapPoint& point) {
             return platform::CLLocationCoordinate2D{-point.y / 550000.0, point.x / 550000.0};
           },
       .pointOn =
           [](const platform::CLLocationCoordinate2D& coordinate, const std::string& mapId) {
             return sim::MapPoint{mapId, coordinate.longitude * 550000.0, -coordinate.latitude * 550000.0};
           }},
      {0.0, 0.0});
}

// A document may ask for a walk of years, or for thousands of frames a second; a fuzzer has no time for that.
bool isShort(const sim::WalkPath& path, const sim::RadioWorld& world) {
  return path.duration() < 100.0 && world.beacons().size() < 10 && (!world.fixes() || world.fixes()->interval > 0.1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto document = platform::parseJson({reinterpret_cast<const char*>(data), size});
  if (!document.value) return 0;
  std::string error;
  const sim::VenueFrame ground = frame();
  const auto world = sim::RadioWorld::fromJson(
      *document.value, ground, [](const std::string&) { return true; }, error);
  error.clear();
  const auto walk = sim::Walk::fromJson(*document.value, error);
  if (!walk) return 0;
  const sim::WalkPath path(*walk, ground, [](const std::string&) { return 0.0; });
  if (world && isShort(path, *world))
    sim::simulateRadio(*world, path, ground, 1,
                       {.frame = [](double, const ranging::IBeaconFrame&, const sim::RadioBeacon&) {},
                        .fix = [](double, const platform::CLLocationCoordinate2D&, double) {},
                        .truth = [](double, const sim::MapPoint&) {}});
  return 0;
}
