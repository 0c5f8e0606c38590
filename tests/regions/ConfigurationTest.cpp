// The engine's settings, its log and the other small services that there is one of for each Platform.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "wayloom/regions/TGFConfiguration.hpp"
#include "wayloom/regions/TGFDevice.hpp"
#include "wayloom/regions/TGFLogger.hpp"
#include "wayloom/regions/TGFPartner.hpp"

#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

using platform::Json;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(Configuration, TheMainBundlesFileComesBeforeTheLibrarys) {
  test::TestPlatform world;
  world.files->writeFile("/library/Geofold.plist", R"({"GFAPIToken": "library", "GFMapName": "lobby"})");
  EXPECT_EQ(TGFConfiguration(world).apiToken(), "library");
  world.files->writeFile("/app/Geofold.plist", R"({"GFAPIToken": "main", "GFKitURL": "https://kits/1"})");
  auto& shared = TGFConfiguration::sharedConfiguration(world);
  EXPECT_EQ(shared.apiToken(), "main");
  EXPECT_EQ(shared.url(), "https://kits/1");
  EXPECT_EQ(shared.mapName(), std::nullopt);
  EXPECT_EQ(&shared, &TGFConfiguration::sharedConfiguration(world));

  test::TestPlatform other;
  EXPECT_EQ(TGFConfiguration::sharedConfiguration(other).apiToken(), std::nullopt);
}

TEST(Configuration, ADictionaryReplacesEveryValue) {
  test::TestPlatform world;
  world.files->writeFile("/app/Geofold.plist", R"({"GFAPIToken": "t", "GFMapName": "lobby"})");
  TGFConfiguration configuration(world);
  configuration.configureWithDictionary({{"GFKitURL", "https://kits/a b"}, {"GFAnalyticsURL", 7}});
  EXPECT_EQ(configuration.apiToken(), std::nullopt);
  EXPECT_EQ(configuration.mapName(), std::nullopt);
  EXPECT_EQ(configuration.url(), std::nullopt) << "malformed";
  EXPECT_EQ(configuration.analyticsURL(), std::nullopt) << "not a text";
  EXPECT_EQ(configuration.config(), (Json{{"GFKitURL", "https://kits/a b"}, {"GFAnalyticsURL", 7}}));

  configuration.setUrl("https://kits/2?x=%20");
  configuration.setAnalyticsURL("https://analytics");
  configuration.setApiToken("u");
  configuration.setMapName("hall");
  EXPECT_EQ(configuration.url(), "https://kits/2?x=%20");
  EXPECT_EQ(configuration.analyticsURL(), "https://analytics");
  EXPECT_EQ(configuration.apiToken(), "u");
  EXPECT_EQ(configuration.mapName(), "hall");
  configuration.configureWithDictionary(Json::array());
  EXPECT_EQ(configuration.url(), std::nullopt);
}

TEST(Configuration, AMissingFileIsLoggedAtLevelTwo) {
  test::TestPlatform world;
  TGFConfiguration configuration(world);
  EXPECT_THAT(world.console->take(), IsEmpty());
  TGFLogger::setLevel(world, 2);
  configuration.loadConfigFromPlist();
  EXPECT_THAT(world.console->take(), ElementsAre("Geofold[Critical] ERROR: Missing Geofold.plist file."));
}

TEST(Logger, PrintsUpToItsLevel) {
  test::TestPlatform world;
  TGFLogger::log(world, 1, "first %@ of %@", "line", 2);
  TGFLogger::log(world, 2, "not this");
  EXPECT_THAT(world.console->take(), ElementsAre("Geofold[Alert] first line of 2"));

  TGFLogger::setLevel(world, 1000);
  for (int level = -1; level <= 9; ++level) TGFLogger::log(world, level, "%@", level);
  EXPECT_THAT(world.console->take(),
              ElementsAre("Geofold[Emergency] 0", "Geofold[Alert] 1", "Geofold[Critical] 2", "Geofold[Error] 3",
                          "Geofold[Warning] 4", "Geofold[Notice] 5", "Geofold[Info] 6", "Geofold[Debug] 7"));
  TGFLogger::log(world, 3, "%@: %@", "a\nGeofold[Alert] forged %@", platform::Error{"HTTP", 7, "no route"});
  EXPECT_THAT(world.console->take(), ElementsAre("Geofold[Error] a Geofold[Alert] forged %@: no route (HTTP 7)"));

  TGFLogger::setLevel(world, -1);
  TGFLogger::log(world, 0, "nothing at all");
  EXPECT_THAT(world.console->take(), IsEmpty());
}

TEST(Partner, IsKeptForThePlatform) {
  test::TestPlatform world;
  EXPECT_EQ(TGFPartner::shared(world).getIdentifier(), "");
  TGFPartner::shared(world).setIdentifier("p");
  EXPECT_EQ(TGFPartner::shared(world).getIdentifier(), "p");
  EXPECT_EQ(TGFDevice::getUUID(world), "00000000-0000-0000-0000-000000000000");
}

}  // namespace
}  // namespace wayloom
