// The database queue on real files: what it keeps, and what it does when a file can't be used.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <thread>

#include "wayloom/posix/MainLoop.hpp"
#include "wayloom/posix/PosixClocks.hpp"
#include "wayloom/posix/PosixFileManager.hpp"
#include "wayloom/storage/DatabaseQueue.hpp"

#include "tests/posix/TemporaryDirectory.hpp"
#include "tests/support/TestPlatform.hpp"

namespace wayloom::storage {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kSchema =
    "create table if not exists schema_version (version integer);"
    "create table if not exists notes (id integer primary key autoincrement, text text, bytes blob);";

class DatabaseQueueTest : public testing::Test {
 protected:
  DatabaseQueueTest() {
    auto services = world.services();
    services.files = std::make_shared<posix::PosixFileManager>(folder.path());
    platform = std::make_unique<platform::Platform>(services);
  }

  std::unique_ptr<DatabaseQueue> open() { return std::make_unique<DatabaseQueue>(*platform, path, kSchema); }
  static bool add(DatabaseQueue& queue, const std::string& text) {
    return queue.inTransaction([&](DatabaseConnection& connection, bool&) {
      connection.executeUpdate("insert into notes (text) values (?);", {text});
    });
  }
  static std::int64_t count(DatabaseQueue& queue) {
    std::int64_t number = -1;
    queue.inReadTransaction([&](DatabaseConnection& connection) {
      auto rows = connection.executeQuery("select count(*) from notes");
      if (rows.next()) number = rows.integer(0);
    });
    return number;
  }
  std::vector<std::string> log() { return world.systemLog->take(); }

  posix::TemporaryDirectory folder;
  const std::string path = folder / "notes.sqlite";
  test::TestPlatform world;
  std::unique_ptr<platform::Platform> platform;
};

// Somebody else's connection to the file.
class Stranger {
 public:
  explicit Stranger(const std::string& path) { sqlite3_open(path.c_str(), &handle_); }
  ~Stranger() { sqlite3_close(handle_); }
  void execute(const char* sql) { EXPECT_EQ(sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql; }

 private:
  sqlite3* handle_ = nullptr;
};

TEST_F(DatabaseQueueTest, keepsValuesOfEveryTypeAndTakesBackWhatIsRolledBack) {
  const auto queue = open();
  const auto time = platform::calendarTimeFromSeconds(1448106000.25);
  queue->inTransaction([&](DatabaseConnection& connection, bool&) {
    connection.executeUpdate("insert into notes (text, bytes) values (?, ?);",
                             {time, Blob{std::string_view("a\0b", 3)}});
    connection.executeUpdate("insert into notes (text, bytes) values (?, ?);", {std::optional<int>(), nullptr});
    EXPECT_EQ(connection.lastInsertRowId(), 2);
  });
  EXPECT_TRUE(queue->inTransaction([&](DatabaseConnection& connection, bool& rollback) {
    connection.executeUpdate("delete from notes;");
    rollback = true;
  }));
  queue->inReadTransaction([&](DatabaseConnection& connection) {
    auto rows = connection.executeQuery("select * from notes order by id");
    ASSERT_TRUE(rows.next());
    EXPECT_EQ(rows.text("text"), "1448106000.25");
    EXPECT_EQ(rows.date("text"), time);
    EXPECT_EQ(rows.text("bytes"), std::string_view("a\0b", 3));
    EXPECT_EQ(rows.columnNamed("none"), -1);
    EXPECT_EQ(rows.date("none"), std::nullopt);
    // The same query within itself.
    auto inner = connection.executeQuery("select * from notes order by id");
    EXPECT_TRUE(inner.next() && inner.next() && !inner.next());
    ASSERT_TRUE(rows.next());
    EXPECT_TRUE(rows.isNull("text"));
    EXPECT_FALSE(rows.next());
  });
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(DatabaseQueueTest, theStampChangesWithWhatOthersWriteAndWithWhatIsTakenBack) {
  const auto queue = open();
  const auto other = open();
  const auto stamp = [&] {
    std::uint64_t seen = 0;
    queue->inTransaction([&](DatabaseConnection& connection, bool&) { seen = connection.stamp(); });
    return seen;
  };
  const auto first = stamp();
  add(*queue, "own");
  EXPECT_EQ(stamp(), first);
  add(*other, "other");
  const auto second = stamp();
  EXPECT_NE(second, first);
  queue->inTransaction([&](DatabaseConnection& connection, bool& rollback) {
    connection.executeUpdate("insert into notes (text) values ('x');");
    rollback = true;
  });
  EXPECT_NE(stamp(), second);
}

TEST_F(DatabaseQueueTest, aLockedFileCostsPatienceOnceAndIsUsedAgainAtOnce) {
  const auto queue = open();
  Stranger stranger(path);
  stranger.execute("begin immediate;");
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 100; ++i) EXPECT_FALSE(add(*queue, "lost"));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s);  // and not 100 times a quarter of a second
  EXPECT_EQ(count(*queue), 0);                              // reading goes on
  stranger.execute("rollback;");
  EXPECT_TRUE(add(*queue, "kept"));
  const auto lines = log();
  ASSERT_THAT(lines, testing::SizeIs(testing::Ge(2U)));
  EXPECT_THAT(lines.front(), HasSubstr("notes.sqlite can't be used: database is locked (5)"));
}

TEST_F(DatabaseQueueTest, aFullDiskLosesOnlyWhatIsWrittenMeanwhile) {
  const auto queue = open();
  EXPECT_TRUE(add(*queue, "before"));
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit usual{};
  ::getrlimit(RLIMIT_FSIZE, &usual);
  rlimit small = usual;
  small.rlim_cur = std::filesystem::file_size(path + "-wal") + 1;
  ::setrlimit(RLIMIT_FSIZE, &small);
  for (int i = 0; i < 3; ++i) {
    EXPECT_FALSE(add(*queue, std::string(100000, 'x')));
    world.wait(31);
    EXPECT_EQ(count(*queue), 1);  // reading still works, and is no recovery
    EXPECT_TRUE(queue->inTransaction([](DatabaseConnection&, bool&) {}));
  }
  ::setrlimit(RLIMIT_FSIZE, &usual);
  world.wait(31);
  EXPECT_TRUE(add(*queue, "after"));
  EXPECT_EQ(count(*queue), 2);
  EXPECT_THAT(log(),
              ElementsAre(HasSubstr("can't be used"), HasSubstr("can be used again; changes lost meanwhile: 3")));
}

TEST_F(DatabaseQueueTest, whatIsNoDatabaseIsTriedAgainWithPauses) {
  std::ofstream(path) << std::string(5000, 'x');
  const auto queue = open();
  for (int i = 0; i < 50; ++i) EXPECT_FALSE(add(*queue, "lost"));
  EXPECT_EQ(count(*queue), -1);
  EXPECT_THAT(log(), ElementsAre("Woah, SQL failed!", HasSubstr("file is not a database (26)")));
  std::filesystem::remove(path);
  EXPECT_FALSE(add(*queue, "too early"));
  world.wait(1.5);
  EXPECT_TRUE(add(*queue, "kept"));
  EXPECT_EQ(count(*queue), 1);
  EXPECT_THAT(log(), ElementsAre(HasSubstr("can be used again; changes lost meanwhile: 51")));
}

TEST_F(DatabaseQueueTest, aRemovedFileIsBegunAnewByAllItsConnections) {
  const auto one = open();
  const auto two = open();
  add(*one, "gone");
  for (const bool andLog : {false, true}) {
    std::filesystem::remove(path);
    if (andLog) std::filesystem::remove(path + "-wal");
    EXPECT_TRUE(add(*one, "new"));
    EXPECT_TRUE(add(*two, "new"));
    EXPECT_EQ(count(*one), 2);
    EXPECT_EQ(count(*two), 2);
    EXPECT_THAT(log(), ElementsAre(HasSubstr("has been removed or replaced")));
  }
  std::filesystem::rename(folder.path(), folder.path() + "-away");
  EXPECT_FALSE(add(*one, "nowhere"));
  EXPECT_FALSE(add(*two, "nowhere"));
  std::filesystem::rename(folder.path() + "-away", folder.path());
  world.wait(2);
  EXPECT_TRUE(add(*two, "back"));
  EXPECT_EQ(count(*one), 3);
}

TEST_F(DatabaseQueueTest, aDroppedTableComesBack) {
  const auto queue = open();
  Stranger(path).execute("drop table notes;");
  EXPECT_FALSE(add(*queue, "lost"));
  world.wait(2);
  EXPECT_TRUE(add(*queue, "kept"));
}

TEST_F(DatabaseQueueTest, theLogIsMovedIntoTheFileInTheBackground) {
  const auto queue = open();
  const std::string page(4000, 'x');
  for (int i = 0; i < 3000; ++i) add(*queue, page);
  EXPECT_LT(std::filesystem::file_size(path), 1U << 20U);
  world.time.runReady();
  EXPECT_GT(std::filesystem::file_size(path), 10U << 20U);
  for (int i = 0; i < 900; ++i) add(*queue, page);
  EXPECT_LT(std::filesystem::file_size(path + "-wal"), 32U << 20U);
  EXPECT_EQ(count(*queue), 3900);
}

// Run by hand for longer: WAYLOOM_LOAD_SECONDS=60.
TEST_F(DatabaseQueueTest, twoConnectionsUnderLoadLoseNothing) {
  const char* wanted = std::getenv("WAYLOOM_LOAD_SECONDS");  // NOLINT(concurrency-mt-unsafe)
  const auto seconds = std::chrono::seconds(wanted ? std::atoi(wanted) : 1);
  auto services = world.services();
  services.files = std::make_shared<posix::PosixFileManager>(folder.path());
  services.tasks = std::make_shared<posix::MainLoop>();
  services.monotonicClock = std::make_shared<posix::PosixMonotonicClock>();
  platform = std::make_unique<platform::Platform>(services);
  const auto writer = open();
  const auto marker = open();
  std::atomic<std::int64_t> written = 0;
  std::atomic<std::int64_t> failures = 0;
  const auto end = std::chrono::steady_clock::now() + seconds;
  const auto load = [&](DatabaseQueue& queue) {
    while (std::chrono::steady_clock::now() < end) {
      if (add(queue, "x")) {
        ++written;
      } else {
        ++failures;
      }
      const bool marked = queue.inTransaction([](DatabaseConnection& connection, bool&) {
        connection.executeUpdate("update notes set bytes = 'm' where id = (select max(id) from notes);");
      });
      const auto atLeast = written.load();
      if (!marked || count(queue) < atLeast) ++failures;
    }
  };
  std::thread other([&] { load(*marker); });
  load(*writer);
  other.join();
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(count(*writer), written);
  EXPECT_THAT(log(), IsEmpty());
  RecordProperty("rows", std::to_string(written));
}

}  // namespace
}  // namespace wayloom::storage
