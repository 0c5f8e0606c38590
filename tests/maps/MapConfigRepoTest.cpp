#include <gmock/gmock.h>

#include "wayloom/maps/TWLMapConfigRepo.hpp"

#include "platform/HttpDate.hpp"
#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Strings = std::vector<std::string>;

constexpr char kBuiltIn[] = "/app/map_config.json";
constexpr char kSaved[] = "/documents/map_config_updated.json";

struct MapConfigRepoTest : testing::Test {
  test::TestPlatform world;

  Strings loadedMaps() { return TWLMapConfigRepo(world).mapIds(); }
};

TEST_F(MapConfigRepoTest, PrefersTheSavedDocumentAndSaysWhatItDoes) {
  world.files->writeFile(kBuiltIn, R"({"built-in": {}})");
  world.files->writeFile(kSaved, R"({"saved": {}})");
  EXPECT_THAT(loadedMaps(), ElementsAre("saved"));
  EXPECT_THAT(
      world.systemLog->take(),
      ElementsAre("Initializing map config repo", "Looking for json file at /documents/map_config_updated.json",
                  "Found data of length 13 at /documents/map_config_updated.json", "Trying to parse data as json"));

  world.files->removeFile(kSaved);
  EXPECT_THAT(loadedMaps(), ElementsAre("built-in"));
  EXPECT_THAT(world.systemLog->take(),
              ElementsAre("Initializing map config repo", "Looking for json file at /documents/map_config_updated.json",
                          "Found data of length 0 at /documents/map_config_updated.json",
                          "No map config saved json file available.  Loading from built in file"));

  for (const char* useless : {"", "{", "{}", "[]", "[{\"a\": {}}]", "7", R"({"error": "not found", "status": 404})"}) {
    world.files->writeFile(kSaved, useless);
    EXPECT_THAT(loadedMaps(), ElementsAre("built-in")) << useless;
  }
  world.files->removeFile(kBuiltIn);
  TWLMapConfigRepo empty(world);
  EXPECT_THAT(empty.mapIds(), IsEmpty());
  EXPECT_THAT(empty.maps(), IsEmpty());
  EXPECT_EQ(empty.forMapId("built-in"), nullptr);
}

TEST_F(MapConfigRepoTest, ReplacesItsMapsAsAWholeAndOnlyByMaps) {
  TWLMapConfigRepo repo(world, R"({"z": {"name": "Zoo"}, "": {"name": "Nameless"}, "a/../b": {}, "n": null})");
  EXPECT_THAT(repo.mapIds(), ElementsAre("z", "", "a/../b")) << "document order, without what is no map";
  EXPECT_EQ(repo.maps().at(1)->name(), "Nameless");
  EXPECT_EQ(repo.forMapId("a/../b")->mapId(), "a/../b");
  EXPECT_EQ(repo.updateUrl(), std::nullopt);
  const auto before = repo.configRepo();
  const auto zoo = repo.forMapId("z");

  EXPECT_FALSE(repo.loadFromJSON("{}"));
  EXPECT_FALSE(repo.loadFromJSON("{\"z\": {}"));
  EXPECT_EQ(repo.configRepo(), before);

  EXPECT_TRUE(repo.loadFromJSON(R"({"z": {"name": "Zebra"}})"));
  EXPECT_THAT(repo.mapIds(), ElementsAre("z"));
  EXPECT_EQ(repo.forMapId("z")->name(), "Zebra");
  EXPECT_EQ(before->find("z")->config, zoo) << "who holds the earlier maps keeps them";
  EXPECT_EQ(zoo->name(), "Zoo");
}

TEST_F(MapConfigRepoTest, ResetDeletesTheBuiltInDocumentButNotTheSavedOne) {
  world.files->writeFile(kBuiltIn, R"({"built-in": {}})");
  world.files->writeFile(kSaved, R"({"saved": {}})");
  TWLMapConfigRepo repo(world);
  repo.reset();
  EXPECT_FALSE(world.files->fileExists(kBuiltIn));
  EXPECT_THAT(repo.mapIds(), ElementsAre("saved"));
  world.files->removeFile(kSaved);
  repo.reset();
  EXPECT_THAT(repo.mapIds(), ElementsAre("saved")) << "nothing to load leaves the maps as they are";
}

TEST_F(MapConfigRepoTest, KnowsItsServerAndWhenItWasUpdated) {
  EXPECT_EQ(TWLMapConfigRepo(world).updateUrl(), std::nullopt);
  world.files->writeFile("/library/Wayloom.plist", R"({"WLMapConfigURL": "https://maps.example/map_config.json"})");
  world.files->writeFile(kBuiltIn, "{}");
  world.files->setModificationDate(kBuiltIn, platform::calendarTimeFromSeconds(900'000'000.9));
  auto& repo = TWLMapConfigRepo::sharedRepo(world);
  EXPECT_EQ(&repo, &TWLMapConfigRepo::sharedRepo(world));
  EXPECT_EQ(repo.updateUrl(), "https://maps.example/map_config.json");
  world.systemLog->take();

  EXPECT_EQ(repo.lastUpdateTime(), 900'000'000);
  EXPECT_EQ(world.defaults->integerForKey(MAP_CONFIG_UPDATE_TIME_KEY), 0) << "the document's date is not stored";
  world.files->setModificationDate(kBuiltIn, platform::calendarTimeFromSeconds(-1.5));
  EXPECT_EQ(repo.lastUpdateTime(), -1) << "truncated towards zero";
  world.files->removeFile(kBuiltIn);
  EXPECT_EQ(repo.lastUpdateTime(), 0);
  world.systemLog->take();

  world.wait(0.75);
  repo.setLastUpdateTime();
  EXPECT_EQ(repo.lastUpdateTime(), 1'000'000'000);
  EXPECT_EQ(world.defaults->onDisk("qmby_map_config_update_time"), "1000000000");
  EXPECT_THAT(world.systemLog->take(), ElementsAre("last update time will now be 1000000000", "loading from defaults",
                                                   "last update time is 1000000000"));
}

TEST(HttpDateTest, WritesEveryDateThatThereIs) {
  using platform::CalendarTime;
  const std::tuple<std::int64_t, const char*, const char*> cases[] = {
      {784111777, "Sun, 06 Nov 1994 08:49:37 GMT", "1994-11-06T08:49:37Z"},
      {-1, "Wed, 31 Dec 1969 23:59:59 GMT", "1969-12-31T23:59:59Z"},
      {-2'208'988'801, "Sun, 31 Dec 1899 23:59:59 GMT", "1899-12-31T23:59:59Z"},
      {13'569'465'600, "Fri, 11 Apr 2262 23:47:16 GMT", "2262-04-11T23:47:16Z"},  // of the year 2400
      {INT64_MAX, "Fri, 11 Apr 2262 23:47:16 GMT", "2262-04-11T23:47:16Z"},
      {INT64_MIN, "Tue, 21 Sep 1677 00:12:43 GMT", "1677-09-21T00:12:43Z"}};
  for (const auto& [seconds, http, iso] : cases) {
    const auto time = platform::calendarTimeFrom(seconds, 999'999'999);
    EXPECT_EQ(platform::httpDate(time), http);
    EXPECT_EQ(platform::isoDate(time), iso);
    const auto back = platform::parseHttpDate(http);
    ASSERT_TRUE(back);
    EXPECT_EQ(platform::httpDate(*back), http);
  }
}

TEST(HttpDateTest, ReadsTheOnePattern) {
  const auto seconds = [](const char* text) -> std::optional<double> {
    const auto date = TWLMapConfigRepo::dateFrom(text);
    return date ? std::optional(platform::secondsSince1970(*date)) : std::nullopt;
  };
  EXPECT_EQ(seconds("Sun, 06 Nov 1994 08:49:37 GMT"), 784111777.0);
  EXPECT_EQ(seconds("sun, 6 NOV 1994 08:49:37 utc"), 784111777.0);
  EXPECT_EQ(seconds("Sun, 06 Nov 1994 09:49:37 +0100"), 784111777.0);
  EXPECT_EQ(seconds("Sun, 06 Nov 1994 03:19:37 -05:30"), 784111777.0);
  EXPECT_EQ(seconds("Mon, 06 Nov 1994 08:49:37 GMT"), 784111777.0) << "the day of the week is not compared";
  EXPECT_EQ(seconds("Thu, 29 Feb 2024 00:00:00 Z"), 1709164800.0);
  EXPECT_EQ(seconds("Sat, 31 Dec 2016 23:59:60 GMT"), 1483228800.0);
  EXPECT_EQ(TWLMapConfigRepo::dateFrom("Fri, 31 Dec 9999 23:59:59 GMT"), platform::CalendarTime::max());
  EXPECT_EQ(TWLMapConfigRepo::dateFrom(std::nullopt), std::nullopt);
  for (const char* other : {"",
                            "Sun",
                            "Sun, 06 Nov 1994 08:49:37",
                            "Sun, 06 Nov 1994 08:49:37 ",
                            "Sun, 06 Nov 1994 08:49:37 GMT ",
                            "Sun, 06 Nov 1994 08:49:37 CET",
                            "Sun, 06 Nov 1994 08:49:37 +1",
                            "Sunday, 06-Nov-94 08:49:37 GMT",
                            "Sun Nov  6 08:49:37 1994",
                            "1994-11-06T08:49:37Z",
                            "Xyz, 06 Nov 1994 08:49:37 GMT",
                            "Sun, 31 Feb 1994 08:49:37 GMT",
                            "Sun, 00 Nov 1994 08:49:37 GMT",
                            "Sun, 06 Nov 94 08:49:37 GMT",
                            "Sun, 06 Nov 1994 24:00:00 GMT",
                            "Sun, 06 Nov 1994 08:60:00 GMT",
                            "Sun, 06 Nov 1994 08:49:61 GMT",
                            "Thu, 29 Feb 2023 00:00:00 GMT",
                            " Sun, 06 Nov 1994 08:49:37 GMT",
                            "Sun, 06 Nov 1994 8:49:37 GMT"})
    EXPECT_EQ(seconds(other), std::nullopt) << other;
}

}  // namespace
}  // namespace wayloom
