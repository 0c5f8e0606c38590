// What outlives a run besides the documents: user defaults and the device identifier.
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <sstream>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include "wayloom/posix/FileDeviceIdentity.hpp"
#include "wayloom/posix/FileUserDefaults.hpp"
#include "wayloom/posix/PosixFileManager.hpp"
#include "wayloom/posix/StreamLogSink.hpp"

#include "tests/posix/TemporaryDirectory.hpp"

namespace wayloom::posix {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Optional;

class LinesSink : public platform::LogSink {
 public:
  void write(std::string_view line) override {
    const std::lock_guard lock(mutex_);
    lines.emplace_back(line);
  }
  std::vector<std::string> lines;

 private:
  std::mutex mutex_;
};

std::string contentOf(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path).rdbuf();
  return content.str();
}

class SettingsTest : public testing::Test {
 protected:
  TemporaryDirectory directory_;
  std::string path_ = directory_ / "settings/defaults.json";
  std::shared_ptr<LinesSink> log_ = std::make_shared<LinesSink>();
};

TEST_F(SettingsTest, DefaultsSurviveARestart) {
  {
    FileUserDefaults defaults(path_, log_);
    EXPECT_EQ(defaults.integerForKey("time"), 0);
    EXPECT_FALSE(defaults.stringForKey("date"));
    defaults.setInteger("time", INT64_MIN);
    defaults.setString("date", "Jan 30 2015 16:09:32\xff");
    EXPECT_TRUE(defaults.synchronize());
    defaults.setInteger("later", 7);  // left to the destructor
  }
  FileUserDefaults defaults(path_, log_);
  EXPECT_EQ(defaults.integerForKey("time"), INT64_MIN);
  EXPECT_THAT(defaults.stringForKey("date"), Optional(std::string("Jan 30 2015 16:09:32\uFFFD")));
  EXPECT_EQ(defaults.integerForKey("later"), 7);
  EXPECT_EQ(defaults.integerForKey("date"), 0);
  EXPECT_THAT(defaults.stringForKey("later"), Optional(std::string("7")));
  // Nothing changed: nothing is written.
  const auto before = std::filesystem::last_write_time(path_);
  defaults.setInteger("later", 7);
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(std::filesystem::last_write_time(path_), before);
  EXPECT_THAT(log_->lines, IsEmpty());
}

TEST_F(SettingsTest, CorruptDefaultsAreSetAside) {
  std::filesystem::create_directories(directory_ / "settings");
  for (const std::string content : {"{\"time\":1", "[1]", "", "\xff\xfe"}) {
    log_->lines.clear();
    std::ofstream(path_) << content;
    FileUserDefaults defaults(path_, log_);
    EXPECT_EQ(defaults.integerForKey("time"), 0);
    EXPECT_THAT(log_->lines, ElementsAre(HasSubstr(path_ + ".corrupt")));
    EXPECT_EQ(contentOf(path_ + ".corrupt"), content);
    defaults.setInteger("time", 2);
    EXPECT_TRUE(defaults.synchronize());
  }
  EXPECT_EQ(FileUserDefaults(path_, log_).integerForKey("time"), 2);
}

TEST_F(SettingsTest, UnwritableDefaultsStayInMemory) {
  std::ofstream(directory_ / "settings") << "a file where the directory should be";
  FileUserDefaults defaults(path_, log_);
  defaults.setInteger("time", 3);
  EXPECT_FALSE(defaults.synchronize());
  EXPECT_THAT(log_->lines, ElementsAre(HasSubstr("not saved")));
  EXPECT_EQ(defaults.integerForKey("time"), 3);
  std::filesystem::remove(directory_ / "settings");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_THAT(contentOf(path_), HasSubstr("\"time\": 3"));
}

TEST_F(SettingsTest, DeviceIdentifierIsMadeOnce) {
  const auto path = directory_ / "settings/device";
  std::vector<std::string> made(8);
  std::vector<std::thread> runs;
  for (auto& identifier : made)
    runs.emplace_back([&] { identifier = FileDeviceIdentity(path, *log_).identifierForVendor().string(); });
  for (auto& run : runs) run.join();
  EXPECT_THAT(made, testing::Each(made[0])) << "all that start at the same time agree";
  EXPECT_THAT(made[0], testing::MatchesRegex("[0-9A-F-]{14}4[0-9A-F]{3}-[89AB][0-9A-F-]{16}"));
  EXPECT_EQ(FileDeviceIdentity(path, *log_).identifierForVendor().string(), made[0]);
  EXPECT_THAT(log_->lines, IsEmpty());

  std::ofstream(path) << "not an identifier";
  const auto replaced = FileDeviceIdentity(path, *log_).identifierForVendor().string();
  EXPECT_NE(replaced, made[0]);
  EXPECT_EQ(FileDeviceIdentity(path, *log_).identifierForVendor().string(), replaced);
  EXPECT_THAT(log_->lines, ElementsAre(HasSubstr("replaced")));
  std::filesystem::create_directories(directory_ / "taken");
  EXPECT_NE(FileDeviceIdentity(directory_ / "taken", *log_).identifierForVendor(), platform::UUID());
  EXPECT_THAT(log_->lines.back(), HasSubstr("holds for this run only: cannot read"));
}

TEST_F(SettingsTest, BelongsToItsOwnerAlone) {
  const auto mode = [](const std::string& path) { return std::filesystem::status(path).permissions(); };
  const auto mask = ::umask(0);
  FileUserDefaults(path_, log_).setInteger("time", 1);
  FileDeviceIdentity(directory_ / "settings/device", *log_);
  const PosixFileManager files(directory_ / "deep/documents");
  ::umask(mask);
  using std::filesystem::perms;
  EXPECT_EQ(mode(path_), perms::owner_read | perms::owner_write);
  EXPECT_EQ(mode(directory_ / "settings/device"), perms::owner_read | perms::owner_write);
  EXPECT_EQ(mode(directory_ / "settings"), perms::owner_all);
  EXPECT_EQ(mode(files.documentsDirectory()), perms::owner_all);
  EXPECT_EQ(mode(directory_ / "deep"), perms::all);
}

TEST_F(SettingsTest, LogLinesStayLines) {
  const auto path = directory_ / "log";
  std::FILE* stream = std::fopen(path.c_str(), "w");
  StreamLogSink sink(stream);
  sink.write("plain ä\n");
  sink.write("forged\nGeofold[Alert] \x1b[2J\x7f");
  std::fclose(stream);
  EXPECT_EQ(contentOf(path), "plain ä\nforged?Geofold[Alert] ?[2J?\n");
}

}  // namespace
}  // namespace wayloom::posix
