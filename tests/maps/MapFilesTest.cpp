// The map page and the images on disk, and when they are put there.
#include <gmock/gmock.h>
#include <regex>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/maps/TWLMapsFileManager.hpp"
#include "wayloom/maps/TWLUpdateManager.hpp"

#include "tests/support/TestPlatform.hpp"

namespace wayloom {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using Strings = std::vector<std::string>;

struct MapFilesTest : testing::Test {
  test::TestPlatform world;
  TWLMapsFileManager files{world};

  MapFilesTest() {
    for (const char* name : {"map.html", "maps.js", "platform.js", "jquery-1.11.1.min.js", "purl.js", "grid.svg"})
      world.files->writeFile(std::string("/library/") + name, name);
  }
  Strings installed() { return *world.files->listDirectory("/documents/maps"); }
  std::string content(const std::string& name) {
    return world.files->readFile("/documents/maps/" + name).value_or("(none)");
  }
  // Runs until nothing is left to do.
  void update(TWLUpdateManager& manager) {
    manager.update();
    world.time.runReady();
  }
};

TEST_F(MapFilesTest, InstallsFilesAndSaysSo) {
  world.systemLog->take();
  world.files->writeFile("/app/a.svg", "first");
  EXPECT_TRUE(files.copyFileFromPathToNewName("/app/a.svg", std::nullopt));
  EXPECT_THAT(world.systemLog->take(), ElementsAre("Created directory at /documents/maps",
                                                   "Could not delete file -:there was none at /documents/maps/a.svg ",
                                                   "Attempting copy file from /app/a.svg /documents/maps/a.svg",
                                                   "file successfully copied: /app/a.svg"));
  world.files->writeFile("/app/a.svg", "second");
  EXPECT_TRUE(files.copyFileFromPathToNewName("/app/a.svg", "a.svg"));
  EXPECT_THAT(world.systemLog->take(), Contains("Deleted file :/documents/maps/a.svg "));
  EXPECT_EQ(content("a.svg"), "second");

  EXPECT_FALSE(files.copyFileFromPathToNewName(std::nullopt, "a.svg"));
  EXPECT_THAT(world.systemLog->take(), ElementsAre("Cannot copy source file because it does not exist: (null)"));
  const std::string tooLong(256, 'a');
  for (const std::string& name : std::vector<std::string>{"", "..", "../a.svg", "/a", "b/a.svg", ".a", "a\nb", tooLong})
    EXPECT_FALSE(files.copyFileFromPathToNewName("/app/a.svg", name)) << name;
  EXPECT_EQ(content("a.svg"), "second");
  world.systemLog->take();
  EXPECT_FALSE(files.copyFileFromPathToNewName("/app/gone.svg", "a.svg"));
  EXPECT_THAT(
      world.systemLog->take(),
      ElementsAre("Created directory at /documents/maps", "Deleted file :/documents/maps/a.svg ",
                  "Attempting copy file from /app/gone.svg /documents/maps/a.svg", "file copy failed: /app/gone.svg",
                  "Error description-/app/gone.svg \n", "Error reason-Test 1"));
}

TEST_F(MapFilesTest, TheFirstFailureEndsASequence) {
  world.files->writeFile("/app/grid.svg", "the application's grid");
  EXPECT_TRUE(files.copyMapDependencies());
  EXPECT_EQ(content("grid.svg"), "the application's grid") << "the main bundle comes first";
  EXPECT_EQ(files.mapHtmlFilePath(), "/documents/maps/map.html");
  for (const auto& name : installed()) world.files->removeFile("/documents/maps/" + name);
  world.files->removeFile("/library/maps.js");
  EXPECT_FALSE(files.copyMapDependencies());
  EXPECT_THAT(installed(), ElementsAre("map.html"));
  EXPECT_THAT(world.systemLog->take(), Contains("Copying (null) result 0"));

  world.files->writeFile("/app/x.SVG", "x");
  EXPECT_FALSE(
      files.updateMapsFromDictionary({{"hall", "/app/x.SVG"}, {"gone", "/app/gone.svg"}, {"b", "/app/x.SVG"}}));
  EXPECT_THAT(installed(), ElementsAre("hall.SVG", "map.html"));
}

TEST_F(MapFilesTest, MovesDownloads) {
  world.files->writeFile(files.mapDownloadPath() + "/a.svg", "new");
  world.files->writeFile(files.mapDownloadPath() + "/b.svg", "left over");
  world.files->writeFile(files.mapDirectoryPath() + "/a.svg", "old");
  world.files->setModificationDate("/documents/map_downloads/a.svg", platform::calendarTimeFromSeconds(7));
  files.copyDownloadedMapFiles();
  EXPECT_EQ(content("a.svg"), "new");
  EXPECT_EQ(content("b.svg"), "left over");
  EXPECT_EQ(world.files->modificationDate("/documents/maps/a.svg"), platform::calendarTimeFromSeconds(7));
  EXPECT_THAT(*world.files->listDirectory("/documents/map_downloads"), IsEmpty());
}

TEST_F(MapFilesTest, EachBuildInstallsThePageOnce) {
  world.files->writeFile("/app/map_config.json", R"({"hall": {}, "lobby": {}})");
  world.files->writeFile("/app/hall.svg", "hall");
  TWLUpdateManager first(world, "Jan 30 2015 16:09:32");
  EXPECT_TRUE(first.shouldCopyMapResources());
  EXPECT_FALSE(first.menuReady() || first.mapReady() || first.updatedAt());
  first.setSearchReady(true);
  first.update();
  EXPECT_TRUE(first.updateInProgress());
  EXPECT_FALSE(first.searchReady());
  EXPECT_EQ(first.updatedAt(), world.time.calendarNow());
  world.time.runReady();
  EXPECT_TRUE(first.menuReady() && first.mapReady() && !first.updateInProgress());
  EXPECT_EQ(installed().size(), 7U) << "six of the page, and the one built-in image";
  EXPECT_EQ(world.defaults->onDisk("mapResourcesCopiedDate"), "Jan 30 2015 16:09:32");
  EXPECT_THAT(world.systemLog->take(), Contains("map id is lobby"));

  world.files->writeFile("/library/map.html", "a later page");
  TWLUpdateManager same(world, "Jan 30 2015 16:09:32");
  update(same);
  EXPECT_EQ(content("map.html"), "map.html");
  TWLUpdateManager later(world, "Feb 01 2015 10:00:00");
  update(later);
  EXPECT_EQ(content("map.html"), "a later page");

  world.files->removeFile("/library/purl.js");
  TWLUpdateManager broken(world, "Mar 01 2015 10:00:00");
  update(broken);
  EXPECT_TRUE(broken.mapReady()) << "a page that fails stops nothing else";
  EXPECT_FALSE(broken.shouldCopyMapResources()) << "and is not tried again";
  const std::regex stamp("[A-Z][a-z]{2} [ 0-9][0-9] [0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2}");
  EXPECT_TRUE(std::regex_match(TWLUpdateManager::sharedUpdateManager(world).buildDate(), stamp));
  TWLUpdateManager::sharedUpdateManager(world).waitUntilCompleted();
}

}  // namespace
}  // namespace wayloom
