#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "wayloom/posix/LibraryResources.hpp"
#include "wayloom/posix/PosixPlatform.hpp"
#include "wayloom/ranging/RangerLocationServices.hpp"

#include "tests/posix/TemporaryDirectory.hpp"

namespace wayloom::posix {
namespace {

using namespace std::chrono_literals;

// One process after another over the same directories, with everything the options leave to their defaults.
TEST(PosixPlatform, WorksAsAWholeAndAcrossRestarts) {
  const TemporaryDirectory directory;
  std::filesystem::create_directory(directory / "bundle");
  std::ofstream(directory / "bundle/Info.plist") << "<plist><dict><key>K</key><true/></dict></plist>";
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(directory.path());
  platform::UUID identifier;
  for (int run = 0; run < 2; ++run) {
    const auto loop = std::make_shared<MainLoop>();
    const auto platform = makePlatform({.mainBundle = "bundle", .documents = "documents", .loop = loop});
    EXPECT_EQ(platform->mainBundle().infoDictionary(), platform::Json({{"K", true}}));
    EXPECT_TRUE(platform->resourceBundle().pathForResource("map", "html")) << "those of the build folder";
    EXPECT_FALSE(platform->files().writeFileAtomically(directory / "documents/x", "x"));
    EXPECT_EQ(platform->userDefaults().integerForKey("runs"), run);
    platform->userDefaults().setInteger("runs", run + 1);
    const auto previous = std::exchange(identifier, platform->device().identifierForVendor());
    EXPECT_EQ(previous == identifier, run == 1);

    EXPECT_EQ(platform->location().isMonitoringAvailable(), false);
    EXPECT_EQ(platform->bluetooth().state(), platform::CBCentralManagerState::unsupported);
    std::vector<platform::CBCentralManagerState> states;
    platform->bluetooth().setStateCallback([&](auto state) { states.push_back(state); });
    // A request that fails ends the run: its response comes on the main queue.
    std::optional<platform::Error> error;
    const auto task = platform->http().send({.url = "http://127.0.0.1:1/"}, platform->tasks().mainQueue(),
                                            [&](const platform::HttpResponse& response) {
                                              error = response.error;
                                              loop->stop();
                                            });
    loop->run();
    EXPECT_TRUE(error);
    EXPECT_EQ(states, std::vector{platform::CBCentralManagerState::unsupported});
  }
  std::filesystem::current_path(before);
}

TEST(PosixPlatform, TakesTheHostsRadio) {
  const TemporaryDirectory directory;
  const auto services = makeServices({.mainBundle = directory.path(), .documents = directory.path()});
  const auto radio = std::make_shared<ranging::RangerLocationServices>(*services.tasks, *services.monotonicClock);
  const auto platform =
      makePlatform({.mainBundle = directory.path(), .documents = directory.path(), .location = radio});
  EXPECT_EQ(&platform->location(), radio.get());
}

TEST(LibraryResources, AreThoseNamedElseThoseBesideTheProgram) {
  const std::string ofTheBuild = std::string(WAYLOOM_BINARY_DIR) + "/share/wayloom/resources";
  EXPECT_EQ(std::filesystem::canonical(libraryResources()), std::filesystem::canonical(ofTheBuild));
  ::setenv("WAYLOOM_RESOURCES", "/elsewhere", 1);
  EXPECT_EQ(libraryResources(), "/elsewhere");
  EXPECT_EQ(libraryResources("given"), "given");
  ::setenv("WAYLOOM_RESOURCES", "", 1);
  EXPECT_EQ(std::filesystem::canonical(libraryResources()), std::filesystem::canonical(ofTheBuild));
  ::unsetenv("WAYLOOM_RESOURCES");
}

}  // namespace
}  // namespace wayloom::posix
