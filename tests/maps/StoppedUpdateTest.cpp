// Processes that are stopped at every point of an update: what the next start finds, and that it finishes the job.
#include <filesystem>
#include <gmock/gmock.h>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/maps/TWLUpdateManager.hpp"
#include "wayloom/sim/SimPlatform.hpp"

#include "tests/maps/UpdateVenue.hpp"

namespace wayloom {
namespace {

using platform::Error;
using test::filesIn;
using testing::ElementsAre;
using testing::Pair;

struct Stopped {};

// Ends the process, by an exception, before the step of that number; steps are counted from 0.
struct Steps {
  int left = -1;  // never
  void take() {
    if (left == 0) throw Stopped();
    --left;
  }
};

// Every change of the disk is a step.
class StoppingFiles : public platform::FileManager {
 public:
  StoppingFiles(std::shared_ptr<platform::FileManager> files, Steps& steps) : files_(std::move(files)), steps_(steps) {}

  std::string documentsDirectory() const override { return files_->documentsDirectory(); }
  bool fileExists(const std::string& path) const override { return files_->fileExists(path); }
  std::optional<std::string> readFile(const std::string& path) const override { return files_->readFile(path); }
  std::optional<Error> writeFile(const std::string& path, std::string_view bytes) override {
    return steps_.take(), files_->writeFile(path, bytes);
  }
  std::optional<Error> writeFileAtomically(const std::string& path, std::string_view bytes) override {
    return steps_.take(), files_->writeFileAtomically(path, bytes);
  }
  std::optional<Error> removeFile(const std::string& path) override { return steps_.take(), files_->removeFile(path); }
  std::optional<Error> copyFile(const std::string& from, const std::string& to) override {
    return steps_.take(), files_->copyFile(from, to);
  }
  std::optional<Error> moveFile(const std::string& from, const std::string& to) override {
    return steps_.take(), files_->moveFile(from, to);
  }
  std::optional<Error> createDirectory(const std::string& path) override {
    return steps_.take(), files_->createDirectory(path);
  }
  std::optional<std::vector<std::string>> listDirectory(const std::string& path) const override {
    return files_->listDirectory(path);
  }
  std::optional<platform::CalendarTime> modificationDate(const std::string& path) const override {
    return files_->modificationDate(path);
  }
  std::optional<Error> setModificationDate(const std::string& path, platform::CalendarTime date) override {
    return steps_.take(), files_->setModificationDate(path, date);
  }

 private:
  std::shared_ptr<platform::FileManager> files_;
  Steps& steps_;
};

// So is every setting, and writing them out.
class StoppingDefaults : public platform::UserDefaults {
 public:
  StoppingDefaults(std::shared_ptr<platform::UserDefaults> defaults, Steps& steps)
      : defaults_(std::move(defaults)), steps_(steps) {}

  std::int64_t integerForKey(std::string_view key) const override { return defaults_->integerForKey(key); }
  void setInteger(std::string_view key, std::int64_t value) override { defaults_->setInteger(key, value); }
  std::optional<std::string> stringForKey(std::string_view key) const override { return defaults_->stringForKey(key); }
  void setString(std::string_view key, std::string_view value) override { defaults_->setString(key, value); }
  bool synchronize() override { return steps_.take(), defaults_->synchronize(); }

 private:
  std::shared_ptr<platform::UserDefaults> defaults_;
  Steps& steps_;
};

struct Process {
  Process(const test::UpdateVenue& venue, const std::string& documents, double now, Steps& steps)
      : world(options(venue, documents, now, steps)) {
    world.server().setRequestObserver([&steps](const platform::HttpRequest&) { steps.take(); });
  }

  static sim::SimOptions options(const test::UpdateVenue& venue, const std::string& documents, double now,
                                 Steps& steps) {
    sim::SimOptions options;
    options.venue = venue.path();
    options.documents = documents;
    options.start = platform::calendarTimeFromSeconds(now);
    options.decorate = [&steps](platform::PlatformServices& services) {
      services.files = std::make_shared<StoppingFiles>(services.files, steps);
      services.userDefaults = std::make_shared<StoppingDefaults>(services.userDefaults, steps);
    };
    return options;
  }

  TWLMapConfigRepo& repo() { return TWLMapConfigRepo::sharedRepo(world.platform()); }
  void update() {
    TWLUpdateManager::sharedUpdateManager(world.platform()).update();
    world.time().runReady();
  }

  sim::SimPlatform world;
};

const test::Paths kFirst = {{"a", "a.svg"}, {"b", "b.svg"}, {"gone", "gone.svg"}};
const test::Paths kSecond = {{"a", "a.svg"}, {"b", "b.svg"}, {"added", "added.svg"}};

// Whether the maps that the process has loaded and the images beside them are of one version.
void expectOneVersion(Process& process, const std::string& maps, int stop) {
  const auto map = process.repo().forMapId("a");
  const auto images = filesIn(maps);
  ASSERT_TRUE(map);
  const int version = static_cast<int>(map->latitude());
  ASSERT_TRUE(version == 2'000 || version == 3'000) << "stopped at " << stop;
  for (const auto& [mapId, path] : version == 2'000 ? kFirst : kSecond) {
    const auto image = images.find(mapId + ".svg");
    ASSERT_NE(image, images.end()) << mapId << " stopped at " << stop;
    EXPECT_EQ(image->second, path + " " + std::to_string(version)) << "stopped at " << stop;
  }
}

// Goes through one version and stops on the way to the next; false when there was no such step.
bool stopAt(int stop, const std::function<void(test::UpdateVenue&)>& publishNext, bool isDocumentNew) {
  test::UpdateVenue venue;
  const sim::TestFolder documents;
  const std::string maps = documents.path() + "/maps";
  Steps steps;
  venue.publish(kFirst, 2'000);
  Process(venue, documents.path(), 2'500, steps).update();
  publishNext(venue);
  bool wasStopped = false;
  {
    Process process(venue, documents.path(), 3'500, steps);
    process.repo();
    steps.left = stop;
    try {
      process.update();
    } catch (const Stopped&) {
      wasStopped = true;
    }
    steps.left = -1;
  }
  Process next(venue, documents.path(), 3'600, steps);
  next.repo();
  if (isDocumentNew)
    expectOneVersion(next, maps, stop);
  else
    EXPECT_EQ(filesIn(maps).size(), 3U) << "an image is missing; stopped at " << stop;
  next.update();
  EXPECT_EQ(filesIn(maps).at("a.svg"), "a.svg 3000") << "stopped at " << stop;
  EXPECT_EQ(filesIn(maps).at("b.svg"), "b.svg 3000") << "stopped at " << stop;
  if (isDocumentNew) expectOneVersion(next, maps, stop);
  EXPECT_THAT(filesIn(documents.path() + "/map_downloads"), testing::IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(documents.path() + "/map_update_to_complete"));
  return wasStopped;
}

TEST(StoppedUpdate, TheNextStartHasOneVersionAndFinishesTheJob) {
  const auto documentAndImages = [](test::UpdateVenue& venue) { venue.publish(kSecond, 3'000); };
  int steps = 0;
  while (stopAt(steps, documentAndImages, true) && !testing::Test::HasFailure()) ++steps;
  EXPECT_GT(steps, 20);
}

TEST(StoppedUpdate, ImagesAloneAreNeverMissing) {
  const auto imagesOnly = [](test::UpdateVenue& venue) {
    for (const std::string name : {"a.svg", "b.svg"}) venue.put("server/maps/" + name, name + " 3000", 3'000);
  };
  int steps = 0;
  while (stopAt(steps, imagesOnly, false) && !testing::Test::HasFailure()) ++steps;
  EXPECT_GT(steps, 15);
}

TEST(StoppedUpdate, SurvivesADamagedNote) {
  test::UpdateVenue venue;
  const sim::TestFolder documents;
  documents.write("map_config_updated.json", test::mapDocument({{"saved", "s.svg"}}));
  documents.write("map_update_to_complete", "{\"cut off");
  documents.write("map_downloads/a.svg", "downloaded");
  Steps steps;
  Process process(venue, documents.path(), 2'500, steps);
  EXPECT_THAT(process.repo().mapIds(), ElementsAre("saved"));
  EXPECT_THAT(filesIn(documents.path() + "/maps"), ElementsAre(Pair("a.svg", "downloaded")));
  EXPECT_FALSE(std::filesystem::exists(documents.path() + "/map_update_to_complete"));
}

}  // namespace
}  // namespace wayloom
