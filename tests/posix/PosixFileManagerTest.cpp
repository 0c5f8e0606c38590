#include <atomic>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

#include "wayloom/posix/DirectoryBundle.hpp"
#include "wayloom/posix/PlistReader.hpp"
#include "wayloom/posix/PosixFileManager.hpp"

#include "tests/posix/TemporaryDirectory.hpp"

namespace wayloom::posix {
namespace {

using platform::CalendarTime;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;

class PosixFileManagerTest : public testing::Test {
 protected:
  std::string in(const std::string& name) const { return files_.documentsDirectory() + "/" + name; }

  TemporaryDirectory directory_;
  PosixFileManager files_{directory_ / "a/b/Documents/"};
};

int codeOf(const std::optional<platform::Error>& error) { return error ? error->code : 0; }

TEST_F(PosixFileManagerTest, ReadsWhatItWrote) {
  EXPECT_EQ(files_.documentsDirectory(), directory_ / "a/b/Documents");
  const std::string bytes("a\0b\xff", 4);
  EXPECT_FALSE(files_.writeFile(in("x"), bytes));
  EXPECT_THAT(files_.readFile(in("x")), Optional(bytes));
  EXPECT_FALSE(files_.writeFileAtomically(in("x"), ""));
  EXPECT_THAT(files_.readFile(in("x")), Optional(std::string()));
  EXPECT_TRUE(files_.fileExists(in("x")));
  EXPECT_TRUE(files_.fileExists(files_.documentsDirectory()));
  EXPECT_FALSE(files_.removeFile(in("x")));
  EXPECT_FALSE(files_.fileExists(in("x")));
  EXPECT_FALSE(files_.readFile(in("x")));
}

TEST_F(PosixFileManagerTest, AtomicWritesShowOldOrNewContent) {
  const std::string pieces[] = {std::string(200'000, 'a'), std::string(300'000, 'b')};
  ASSERT_FALSE(files_.writeFileAtomically(in("f"), pieces[0]));
  std::atomic<bool> done = false;
  std::thread writer([&] {
    for (int i = 0; i < 100; ++i) files_.writeFileAtomically(in("f"), pieces[i % 2]);
    done = true;
  });
  while (!done) {
    const auto content = files_.readFile(in("f")).value_or("none");
    ASSERT_TRUE(content == pieces[0] || content == pieces[1]) << content.size();
    ASSERT_THAT(files_.listDirectory(files_.documentsDirectory()), Optional(ElementsAre("f")));
  }
  writer.join();
  // A failed write leaves the old file and nothing beside it.
  ASSERT_FALSE(files_.createDirectory(in("d")));
  EXPECT_NE(codeOf(files_.writeFileAtomically(in("d"), "x")), 0);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(files_.documentsDirectory()), {}), 2);
}

TEST_F(PosixFileManagerTest, CopiesAndMovesNeverOverwrite) {
  const auto date = platform::calendarTimeFromSeconds(784111777.125);
  ASSERT_FALSE(files_.writeFile(in("from"), "from"));
  ASSERT_FALSE(files_.writeFile(in("there"), "there"));
  ASSERT_FALSE(files_.setModificationDate(in("from"), date));
  for (const auto& error : {files_.copyFile(in("from"), in("there")), files_.moveFile(in("from"), in("there"))}) {
    EXPECT_EQ(codeOf(error), EEXIST);
    EXPECT_THAT(error->description, testing::AllOf(HasSubstr(in("there")), HasSubstr("File exists")));
  }
  EXPECT_THAT(files_.readFile(in("there")), Optional(std::string("there")));
  EXPECT_FALSE(files_.copyFile(in("from"), in("copy")));
  EXPECT_THAT(files_.readFile(in("copy")), Optional(std::string("from")));
  EXPECT_THAT(files_.modificationDate(in("copy")), Optional(date));
  EXPECT_FALSE(files_.moveFile(in("copy"), in("moved")));
  EXPECT_THAT(files_.modificationDate(in("moved")), Optional(date));
  EXPECT_FALSE(files_.fileExists(in("copy")));
  EXPECT_EQ(codeOf(files_.copyFile(in("missing"), in("x"))), ENOENT);
  EXPECT_EQ(codeOf(files_.moveFile(in("missing"), in("x"))), ENOENT);
  EXPECT_EQ(codeOf(files_.copyFile(files_.documentsDirectory(), in("x"))), EISDIR);
  EXPECT_THAT(files_.listDirectory(files_.documentsDirectory()), Optional(ElementsAre("from", "moved", "there")));
}

TEST_F(PosixFileManagerTest, ErrorsAreClear) {
  EXPECT_EQ(codeOf(files_.writeFile(in("no/x"), "x")), ENOENT);
  EXPECT_EQ(codeOf(files_.createDirectory(in("no/x"))), ENOENT);
  ASSERT_FALSE(files_.createDirectory(in("d")));
  EXPECT_EQ(codeOf(files_.createDirectory(in("d"))), EEXIST);
  EXPECT_EQ(codeOf(files_.removeFile(in("missing"))), ENOENT);
  ASSERT_FALSE(files_.writeFile(in("d/x"), "x"));
  EXPECT_FALSE(files_.removeFile(in("d"))) << "with all that it holds";
  ASSERT_FALSE(files_.createDirectory(in("d")));
  const auto error = files_.writeFile(in("d"), "x");
  EXPECT_EQ(error, (platform::Error{"POSIX", EISDIR, "cannot write " + in("d") + ": Is a directory"}));
  EXPECT_EQ(codeOf(files_.writeFile(in(std::string(300, 'n')), "x")), ENAMETOOLONG);
  EXPECT_FALSE(files_.listDirectory(in("missing")));
  EXPECT_FALSE(files_.modificationDate(in("missing")));
  EXPECT_FALSE(files_.readFile(in("d")));
  ASSERT_EQ(::mkfifo(in("pipe").c_str(), 0600), 0);
  EXPECT_FALSE(files_.readFile(in("pipe"))) << "must not wait for a writer";
  EXPECT_NE(codeOf(files_.writeFile(in("pipe"), "x")), 0) << "nor for a reader";
}

TEST_F(PosixFileManagerTest, ListsSortedAndKeepsDatesExactly) {
  for (const auto* name : {"b", "B", "a", "ä", "10", "9"}) ASSERT_FALSE(files_.writeFile(in(name), ""));
  EXPECT_THAT(files_.listDirectory(files_.documentsDirectory()), Optional(ElementsAre("10", "9", "B", "a", "b", "ä")));
  for (const double seconds : {0.0, 784111777.0, 1422634172.123456, -1.5}) {
    const auto date = platform::calendarTimeFromSeconds(seconds);
    EXPECT_FALSE(files_.setModificationDate(in("a"), date));
    EXPECT_THAT(files_.modificationDate(in("a")), Optional(date)) << seconds;
  }
}

TEST_F(PosixFileManagerTest, NothingIsWrittenOutsideDocuments) {
  ASSERT_FALSE(files_.writeFile(in("x"), "x"));
  const auto outside = directory_ / "outside";
  const std::string paths[] = {outside,
                               files_.documentsDirectory(),
                               files_.documentsDirectory() + "x",
                               in("../outside"),
                               in("a/../../outside"),
                               in(".."),
                               "x",
                               "",
                               in(std::string("y\0/../z", 7))};
  for (const auto& path : paths) {
    EXPECT_EQ(codeOf(files_.writeFile(path, "x")), EACCES) << path;
    EXPECT_EQ(codeOf(files_.writeFileAtomically(path, "x")), EACCES) << path;
    EXPECT_EQ(codeOf(files_.copyFile(in("x"), path)), EACCES) << path;
    EXPECT_EQ(codeOf(files_.moveFile(in("x"), path)), EACCES) << path;
    EXPECT_EQ(codeOf(files_.createDirectory(path)), EACCES) << path;
    EXPECT_EQ(codeOf(files_.setModificationDate(path, CalendarTime())), EACCES) << path;
  }
  EXPECT_THAT(files_.listDirectory(files_.documentsDirectory()), Optional(ElementsAre("x")));
  EXPECT_FALSE(files_.fileExists(outside));
  EXPECT_NE(codeOf(files_.removeFile(in("../Documents/x"))), 0);
}

TEST(DirectoryBundle, FindsResourcesInsideOnly) {
  const TemporaryDirectory directory;
  std::filesystem::create_directories(directory / "bundle/sub");
  for (const auto* name : {"bundle/map.html", "bundle/sub/a.svg", "bundle/plain", "secret.txt"})
    std::ofstream(directory / name) << "x";
  std::ofstream(directory / "bundle/Info.plist") << "<plist><dict><key>K</key><string>v</string></dict></plist>";
  const PlistReader reader;
  const DirectoryBundle bundle(directory / "bundle/", reader);
  EXPECT_THAT(bundle.pathForResource("map", "html"), Optional(directory / "bundle/map.html"));
  EXPECT_THAT(bundle.pathForResource("sub/a", "svg"), Optional(directory / "bundle/sub/a.svg"));
  EXPECT_TRUE(bundle.pathForResource("plain", ""));
  EXPECT_EQ(bundle.infoDictionary(), platform::Json({{"K", "v"}}));
  EXPECT_FALSE(bundle.pathForResource("missing", "html"));
  EXPECT_FALSE(bundle.pathForResource("sub", "")) << "a directory";
  EXPECT_FALSE(bundle.pathForResource("../secret", "txt"));
  EXPECT_FALSE(bundle.pathForResource("sub/../../secret", "txt"));
  EXPECT_FALSE(bundle.pathForResource("", "html"));
  EXPECT_FALSE(bundle.pathForResource(std::string("map.html\0", 9), "x"));
  EXPECT_FALSE(bundle.pathForResource(std::string(5000, 'x'), "svg"));
  EXPECT_TRUE(DirectoryBundle(directory / "missing", reader).infoDictionary().is_object());
  EXPECT_FALSE(DirectoryBundle("", reader).pathForResource("etc/hostname", "")) << "not the root directory";
}

}  // namespace
}  // namespace wayloom::posix
