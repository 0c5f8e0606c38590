// From a kit document to regions, and what regions answer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "wayloom/regions/TGFAPIDeserializer.hpp"
#include "wayloom/regions/TGFLogger.hpp"

#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

using platform::CLBeaconRegion;
using platform::Json;
using platform::UUID;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr auto kFirst = "5A0E1C9E-0000-4B7E-8000-000000000001";
constexpr auto kSecond = "5A0E1C9E-0000-4B7E-8000-000000000002";

Json entry(const std::string& identifier, Json major, Json minor, const char* uuid = kFirst) {
  return {{"identifier", identifier}, {"uuid", uuid}, {"major", std::move(major)}, {"minor", std::move(minor)}};
}

class Kit : public testing::Test {
 protected:
  Kit() { TGFLogger::setLevel(world, TGFLogLevel::debug); }

  std::unique_ptr<TGFKit> build(Json document) {
    return TGFAPIDeserializer::buildKit(world, std::make_shared<const Json>(std::move(document)));
  }

  test::TestPlatform world;
};

TEST_F(Kit, ReadsWhatTheDocumentSays) {
  const auto kit =
      build(Json::parse(R"({"id": "42", "name": "Museum", "status_url": "https://status", "status_token": "t",
    "extra": [1], "map": {"overlays": [
      {"type": "circle", "identifier": "yard", "name": "Yard", "center": [50.1, "8.6"], "radius": 30,
       "attributes": {"a": 1}},
      {"type": "polygon", "identifier": "roof"}, {"identifier": "typeless"}, 5]},
    "ibeacons": [{"identifier": "yard", "uuid": "5A0E1C9E-0000-4B7E-8000-000000000001", "major": 1, "minor": null}]})"));
  EXPECT_EQ(kit->id(), 42);
  EXPECT_EQ(kit->name(), "Museum");
  EXPECT_EQ(kit->statusURL(), "https://status");
  EXPECT_EQ(kit->statusToken(), "t");
  EXPECT_EQ(kit->url(), std::nullopt);
  EXPECT_EQ(kit->json()->at("extra"), Json::array({1}));

  ASSERT_EQ(kit->map()->overlays().size(), 1U);
  const auto& yard = *kit->map()->overlays()[0];
  EXPECT_EQ(yard.latitude(), 50.1F);
  EXPECT_EQ(yard.longitude(), 8.6F);
  EXPECT_EQ(yard.radius(), 30.0F);
  EXPECT_EQ(yard.attributes().at("a"), 1);
  const auto circle = std::dynamic_pointer_cast<const platform::CLCircularRegion>(yard.region());
  EXPECT_EQ(circle->identifier(), "yard");
  EXPECT_EQ(circle->center().latitude, 50.1F);
  EXPECT_EQ(circle->center().longitude, 8.6F);
  EXPECT_EQ(circle->radius(), 30.0F);
  EXPECT_EQ(kit->getRegionForIdentifier("yard").get(), &yard) << "a geofence comes before a beacon region";
  EXPECT_EQ(kit->getRegionForIdentifier("roof"), nullptr);
}

TEST_F(Kit, RegistersOneRegionAnEntryUpToTwenty) {
  Json entries = Json::array();
  for (int i = 0; i < 20; ++i) entries.push_back(entry("b" + std::to_string(i), 1, i, i % 2 ? kFirst : kSecond));
  EXPECT_EQ(build({{"ibeacons", entries}})->beaconRegions().size(), 20U);

  entries.push_back(entry("b20", 1, 20, "5a0e1c9e-0000-4b7e-8000-000000000001"));
  world.console->take();
  const auto kit = build({{"ibeacons", entries}});
  EXPECT_THAT(world.console->take(),
              ElementsAre("Geofold[Debug] More than 20 regions found, registering generic UUID level regions"));
  std::vector<std::string> made;
  for (const auto& region : kit->beaconRegions()) {
    made.push_back(*region->identifier() + " " + region->uuid()->string());
    EXPECT_FALSE(region->hasMajor() || region->hasMinor());
    EXPECT_THAT(region->attributes(), IsEmpty());
  }
  // Texts are told apart, not what they stand for.
  EXPECT_THAT(made,
              ElementsAre(std::string("gf-ibeacon-region-0 ") + kSecond, std::string("gf-ibeacon-region-1 ") + kFirst,
                          std::string("gf-ibeacon-region-2 ") + kFirst));
}

TEST_F(Kit, MakesThePlatformsRegionFromWhatIsConstrained) {
  struct Case {
    Json major, minor;
    bool made;
    std::optional<std::uint16_t> expectedMajor, expectedMinor;
  };
  for (const auto& [major, minor, made, expectedMajor, expectedMinor] :
       {Case{nullptr, nullptr, true, {}, {}}, Case{7, nullptr, true, 7, {}}, Case{7, "8", true, 7, 8},
        Case{nullptr, 8, false, {}, {}}}) {
    const TGFBeaconRegion region(entry("r", major, minor));
    ASSERT_EQ(region.region() != nullptr, made) << major << minor;
    if (!made) continue;
    EXPECT_EQ(region.region()->major(), expectedMajor);
    EXPECT_EQ(region.region()->minor(), expectedMinor);
    EXPECT_EQ(region.region()->identifier(), "r");
    EXPECT_TRUE(region.region()->notifyOnEntry && region.region()->notifyOnExit &&
                region.region()->notifyEntryStateOnDisplay);
  }
  const TGFBeaconRegion incomplete(Json{{"uuid", kFirst}});
  EXPECT_TRUE(incomplete.hasMajor() && incomplete.hasMinor()) << "a missing member is not null";
  EXPECT_EQ(incomplete.major(), std::nullopt);
  EXPECT_EQ(TGFBeaconRegion(entry("r", 1, 2, "no uuid")).region(), nullptr);
}

TEST_F(Kit, EqualityLooksAtWhatTheReceiverConstrains) {
  const TGFBeaconRegion wide(entry("w", nullptr, nullptr));
  const TGFBeaconRegion narrow(entry("n", 7, nullptr));
  const TGFBeaconRegion exact(entry("e", 7, 8));
  EXPECT_TRUE(wide.isEqual(exact) && wide.isEqual(narrow) && narrow.isEqual(exact));
  EXPECT_FALSE(exact.isEqual(wide) || exact.isEqual(narrow) || narrow.isEqual(wide));
  EXPECT_FALSE(wide.isEqual(TGFBeaconRegion(entry("o", nullptr, nullptr, kSecond))));
  EXPECT_FALSE(wide.isEqual(TGFBeacon(entry("b", 7, 8)))) << "a beacon is no beacon region";
  EXPECT_FALSE(wide.isEqualToGFIBeaconRegion(nullptr));

  const TGFBeaconRegion unreadable(entry("u", nullptr, nullptr, "no uuid"));
  EXPECT_TRUE(unreadable.isEqual(unreadable));
  EXPECT_FALSE(unreadable.isEqual(TGFBeaconRegion(entry("u", nullptr, nullptr, "no uuid"))));
  const TGFBeacon incomplete(Json{{"uuid", kFirst}});
  EXPECT_FALSE(incomplete.isEqual(TGFBeacon(Json{{"uuid", kFirst}}))) << "an absent number equals none";

  const auto uuidHash = UUID::parse(kFirst)->hash();
  EXPECT_EQ(exact.hash(), uuidHash | (std::size_t{7} ^ ~std::size_t{8}));
  EXPECT_EQ(wide.hash(), uuidHash | ~std::size_t{0});
  EXPECT_EQ(TGFBeacon(entry("e", 7, 8)).hash(), exact.hash());
}

TEST_F(Kit, ARegionOfThePlatformKeepsItsOwnNumbers) {
  const auto kit = build({{"ibeacons", {entry("wide", nullptr, nullptr), entry("exact", 7, 8)}}});
  const auto reported = std::make_shared<const CLBeaconRegion>(*UUID::parse(kFirst), 7, std::nullopt, "r");
  const auto region = kit->getIBeaconRegionForCLBeaconRegion(reported);
  EXPECT_EQ(region->identifier(), "wide");
  EXPECT_TRUE(region->hasMajor());
  EXPECT_FALSE(region->hasMinor());
  EXPECT_EQ(region->region(), reported);
}

TEST_F(Kit, EnumeratesItsBeaconsInOrderUntilToldToStop) {
  const auto kit = build({{"ibeacons", {entry("a", 1, 1), 5, entry("b", 1, 2), entry("c", 1, 3)}}});
  std::vector<std::string> seen;
  kit->enumerateIBeaconsUsingBlock([&](const TGFBeacon& beacon, std::size_t index, bool& stop) {
    seen.push_back(*beacon.identifier() + std::to_string(index));
    stop = index == 2;
  });
  EXPECT_THAT(seen, ElementsAre("a0", "b2"));
}

TEST_F(Kit, DocumentsOfTheWrongShapeGiveAnEmptyKitAndALogLine) {
  struct Case {
    const char* document;
    const char* line;
  };
  for (const auto& [document, line] : {
           Case{R"({"ibeacons": {"uuid": 1}})", "Geofold[Warning] Skipped the kit's beacons: not an array"},
           Case{R"({"map": [1]})", "Geofold[Warning] Skipped the kit's map: not an object"},
           Case{R"({"ibeacons": [1, null, "x", [[]]]})", "Geofold[Warning] Skipped 4 kit beacons: not objects"},
           Case{R"({"map": {"overlays": {"type": "circle"}}})", nullptr},
           Case{R"([1])", nullptr},
           Case{R"({"id": {}, "name": 5, "map": null, "ibeacons": null})", nullptr},
       }) {
    const auto kit = build(Json::parse(document));
    EXPECT_THAT(kit->beaconRegions(), IsEmpty()) << document;
    EXPECT_EQ(kit->name(), std::nullopt);
    EXPECT_EQ(kit->id(), 0);
    const auto lines = world.console->take();
    EXPECT_EQ(lines, line ? std::vector<std::string>{line} : std::vector<std::string>{}) << document;
  }

  const auto kit = build(Json::parse(R"({"ibeacons": [{"uuid": "z", "major": 1e300, "attributes": [1]}],
                                         "map": {"overlays": [{"type": "circle", "center": 7, "radius": "wide"}]}})"));
  EXPECT_THAT(world.console->take(), ElementsAre("Geofold[Warning] 1 kit beacons have no readable uuid"));
  EXPECT_EQ(kit->beaconRegions()[0]->region(), nullptr);
  EXPECT_TRUE(kit->beaconRegions()[0]->attributes().is_object());
  EXPECT_EQ(kit->map()->overlays()[0]->radius(), 0.0F);
}

}  // namespace
}  // namespace wayloom
