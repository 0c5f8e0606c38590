// What is on the disk outlives the faults of files: whatever fails meanwhile, nothing of it is taken for corrupt, gone
// or empty, what was reported as saved is there afterwards, and everything works again.
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <optional>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/posix/FileDeviceIdentity.hpp"
#include "wayloom/posix/FileUserDefaults.hpp"
#include "wayloom/sim/RecordingReader.hpp"
#include "wayloom/sim/RecordingWriter.hpp"
#include "wayloom/sim/SimPlatform.hpp"
#include "wayloom/storage/DatabaseQueue.hpp"

#include "tests/faults/SpoiledCalls.hpp"
#include "tests/posix/TemporaryDirectory.hpp"

namespace wayloom {
namespace {

using namespace std::chrono_literals;
using test::FileFault;
using test::SpoiledCall;
using test::SpoiledCalls;

constexpr FileFault kFaults[] = {
    {"NoDescriptorLeft", SpoiledCall::open, EMFILE},
    {"NoPermission", SpoiledCall::open, EACCES},
    {"ReadingFails", SpoiledCall::read, EIO},
    {"ShortReads", SpoiledCall::read, FileFault::isShort},
    {"WritingFails", SpoiledCall::write, EIO},
    {"DiskFull", SpoiledCall::write, ENOSPC},
    {"ShortWrites", SpoiledCall::write, FileFault::isShort},
    {"SyncingFails", SpoiledCall::sync, EIO},
    {"RenamingFails", SpoiledCall::rename, ENOSPC},
};

// Something that keeps files in a folder.
class Keeper {
 public:
  virtual ~Keeper() = default;
  virtual void fill() = 0;         // before the fault
  virtual void use() = 0;          // while it lasts
  virtual void expectWhole() = 0;  // afterwards, by the same objects and by fresh ones
};

class SilentLog : public platform::LogSink {
  void write(std::string_view) override {}
};

class Settings : public Keeper {
 public:
  explicit Settings(const std::string& folder) : file_(folder + "/settings/defaults.json") {}

  void fill() override { set("kept", 7); }
  void use() override {
    set("unlucky", 1);
    during_.emplace(file_, log_);
    during_->setInteger("new", 2);
    during_->synchronize();
  }
  void expectWhole() override {
    EXPECT_EQ(during_->integerForKey("kept"), 7);
    EXPECT_TRUE(during_->synchronize());
    const posix::FileUserDefaults next(file_, log_);
    EXPECT_EQ(next.integerForKey("kept"), 7);
    EXPECT_EQ(next.integerForKey("new"), 2);
    EXPECT_EQ(next.integerForKey("unlucky"), wasSaved_ ? 1 : 0);
    EXPECT_FALSE(std::filesystem::exists(file_ + ".corrupt"));
  }

 private:
  void set(const char* key, std::int64_t value) {
    posix::FileUserDefaults defaults(file_, log_);
    defaults.setInteger(key, value);
    wasSaved_ = defaults.synchronize();
  }

  const std::string file_;
  const std::shared_ptr<platform::LogSink> log_ = std::make_shared<SilentLog>();
  bool wasSaved_ = false;
  std::optional<posix::FileUserDefaults> during_;
};

class Identity : public Keeper {
 public:
  explicit Identity(const std::string& folder) : file_(folder + "/settings/device") {}

  void fill() override { made_ = read(file_); }
  void use() override {
    for (const auto& file : {file_, file_ + "2"}) EXPECT_NE(read(file), platform::UUID());
  }
  void expectWhole() override {
    EXPECT_EQ(read(file_), made_);
    EXPECT_EQ(read(file_ + "2"), read(file_ + "2"));
  }

 private:
  static platform::UUID read(const std::string& file) {
    SilentLog log;
    return posix::FileDeviceIdentity(file, log).identifierForVendor();
  }

  const std::string file_;
  platform::UUID made_;
};

class Store : public Keeper {
 public:
  explicit Store(const std::string& folder) : path_(folder + "/store.sqlite") {}

  void fill() override {
    before_ = open();
    insert(*before_);
  }
  void use() override {
    insert(*before_);
    before_->inDatabase([](storage::DatabaseConnection& connection) { connection.checkpoint(); });
    during_ = open();
    insert(*during_);
  }
  void expectWhole() override {
    world_.time().advanceBy(1min);
    EXPECT_TRUE(insert(*before_));
    EXPECT_TRUE(insert(*during_));
    int rows = 0;
    std::string soundness;
    const auto fresh = open();
    EXPECT_TRUE(fresh->inDatabase([&](storage::DatabaseConnection& connection) {
      for (auto each = connection.executeQuery("select n from numbers;"); each.next();) ++rows;
      auto check = connection.executeQuery("pragma integrity_check;");
      if (check.next()) soundness = check.text(0);
    }));
    EXPECT_EQ(rows, inserted_) << "what was committed, and nothing else";
    EXPECT_EQ(soundness, "ok");
  }

 private:
  std::unique_ptr<storage::DatabaseQueue> open() {
    constexpr auto kSchema =
        "create table if not exists numbers (n integer); create table if not exists schema_version (version integer);";
    return std::make_unique<storage::DatabaseQueue>(world_.platform(), path_,
                                                    storage::DatabaseQueue::Schema{.tables = kSchema});
  }

  bool insert(storage::DatabaseQueue& queue) {
    const bool succeeded = queue.inTransaction([](storage::DatabaseConnection& connection, bool&) {
      connection.executeUpdate("insert into numbers values (?);", {1});
    });
    inserted_ += succeeded ? 1 : 0;
    return succeeded;
  }

  const std::string path_;
  sim::SimPlatform world_;
  int inserted_ = 0;
  std::unique_ptr<storage::DatabaseQueue> before_;
  std::unique_ptr<storage::DatabaseQueue> during_;
};

class Maps : public Keeper {
 public:
  explicit Maps(const std::string& folder) : world_({.documents = folder}), image_(folder + "/plan.png") {}

  void fill() override {
    save("old");
    world_.platform().files().writeFileAtomically(image_, "old");
  }
  void use() override {
    const TWLMapConfigRepo repository(world_.platform());
    save("new");
    imageSaved_ = !world_.platform().files().writeFileAtomically(image_, "new");
    copied_ = !world_.platform().files().copyFile(image_, image_ + "2");
  }
  void expectWhole() override {
    EXPECT_THAT(TWLMapConfigRepo(world_.platform()).mapIds(), testing::ElementsAre(saved_));
    const auto image = world_.platform().files().readFile(image_);
    EXPECT_EQ(image, imageSaved_ ? "new" : "old");
    EXPECT_EQ(world_.platform().files().readFile(image_ + "2"), copied_ ? image : std::nullopt);
    save("newest");
    EXPECT_THAT(TWLMapConfigRepo(world_.platform()).mapIds(), testing::ElementsAre("newest"));
  }

 private:
  void save(const std::string& name) {
    if (TWLMapConfigRepo::saveJsonData(world_.platform(), R"({")" + name + R"(": {"name": "Map"}})")) saved_ = name;
  }

  sim::SimPlatform world_;
  const std::string image_;
  std::string saved_;
  bool imageSaved_ = false;
  bool copied_ = false;
};

class Recording : public Keeper {
 public:
  explicit Recording(const std::string& folder) : file_(folder + "/walk.jsonl") {}

  void fill() override { EXPECT_TRUE(write(file_)); }
  void use() override {
    read(file_);
    wasWritten_ = write(file_ + "2");
  }
  void expectWhole() override {
    EXPECT_EQ(read(file_), kEvents);
    if (wasWritten_) {
      EXPECT_EQ(read(file_ + "2"), kEvents);
    }
    EXPECT_TRUE(write(file_ + "3"));
    EXPECT_EQ(read(file_ + "3"), kEvents);
  }

 private:
  static constexpr int kEvents = 5000;  // more than any buffer holds

  static bool write(const std::string& file) {
    std::ofstream stream(file, std::ios::binary);
    {
      sim::RecordingWriter writer(stream);
      writer.header();
      for (int i = 0; i < kEvents; ++i) {
        sim::RecordedEvent event;
        event.type = sim::RecordedType::network;
        event.time = platform::calendarTimeFromSeconds(1e9 + i);
        writer.write(event);
      }
    }
    stream.close();
    return !stream.fail();
  }

  static int read(const std::string& file) {
    auto reader = sim::RecordingReader::ofFile(file);
    int events = 0;
    while (const auto* event = reader.next()) events += event->type == sim::RecordedType::network ? 1 : 0;
    EXPECT_EQ(reader.error().has_value(), events < kEvents) << "one that can't be read is no shorter recording";
    return events;
  }

  const std::string file_;
  bool wasWritten_ = false;
};

using MakeKeeper = std::unique_ptr<Keeper> (*)(const std::string& folder);
template <class Kept>
std::unique_ptr<Keeper> make(const std::string& folder) {
  return std::make_unique<Kept>(folder);
}

struct KeeperKind {
  const char* name;
  MakeKeeper make;
};
constexpr KeeperKind kKeepers[] = {{"Settings", make<Settings>},
                                   {"Identity", make<Identity>},
                                   {"Store", make<Store>},
                                   {"Maps", make<Maps>},
                                   {"Recording", make<Recording>}};

TEST(FileFaults, NothingThatIsKeptIsLost) {
  int strikes = 0;
  for (const auto& kind : kKeepers) {
    for (const auto& fault : kFaults) {
      SCOPED_TRACE(std::string(kind.name) + ": " + fault.name);
      const posix::TemporaryDirectory folder;
      const auto keeper = kind.make(folder.path());
      keeper->fill();
      {
        const SpoiledCalls spoiled(folder.path(), fault);
        keeper->use();
      }
      strikes += SpoiledCalls::strikes() > 0 ? 1 : 0;
      keeper->expectWhole();
      for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path()))
        EXPECT_FALSE(entry.path().filename().string().starts_with(".unfinished")) << entry.path();
    }
  }
  constexpr int kNotConcerned = 3;  // recordings are neither synced nor renamed, nor is a database
  EXPECT_EQ(strikes, static_cast<int>(std::size(kKeepers) * std::size(kFaults)) - kNotConcerned);
}

}  // namespace
}  // namespace wayloom
