// The database queue on real files: what it keeps, and what it does when a file can't be used.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <sqlite3.h>
#include <stdexcept>
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
constexpr const char* kIndexes = "create index if not exists notes_by_text on notes (text);";

class DatabaseQueueTest : public testing::Test {
 protected:
  DatabaseQueueTest() {
    auto services = world.services();
    services.files = std::make_shared<posix::PosixFileManager>(folder.path());
    platform = std::make_unique<platform::Platform>(services);
  }

  std::unique_ptr<DatabaseQueue> open() {
    return std::make_unique<DatabaseQueue>(*platform, path, DatabaseQueue::Schema{kSchema, kIndexes});
  }
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
  void useRealThreads() {
    auto services = world.services();
    services.files = std::make_shared<posix::PosixFileManager>(folder.path());
    services.tasks = std::make_shared<posix::MainLoop>();
    services.monotonicClock = std::make_shared<posix::PosixMonotonicClock>();
    platform = std::make_unique<platform::Platform>(services);
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
  // The first column.
  std::vector<std::string> rows(const char* sql) {
    std::vector<std::string> all;
    const auto add = [](void* texts, int, char** values, char**) {
      static_cast<std::vector<std::string>*>(texts)->emplace_back(values[0]);
      return 0;
    };
    EXPECT_EQ(sqlite3_exec(handle_, sql, add, &all, nullptr), SQLITE_OK) << sql;
    return all;
  }

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

TEST_F(DatabaseQueueTest, whatACallbackThrowsReachesTheCallerAndTakesItsTransactionBack) {
  const auto queue = open();
  const auto other = open();
  EXPECT_THROW(queue->inTransaction([](DatabaseConnection& connection, bool&) {
    connection.executeUpdate("insert into notes (text) values ('x');");
    throw std::runtime_error("the host's");
  }),
               std::runtime_error);
  EXPECT_THROW(queue->inReadTransaction([](DatabaseConnection&) { throw 1; }), int);
  EXPECT_THROW(queue->inDatabase([](DatabaseConnection& connection) {
    connection.executeUpdate("begin immediate");
    throw 1;
  }),
               int);
  EXPECT_TRUE(add(*other, "kept"));
  EXPECT_TRUE(add(*queue, "kept"));
  EXPECT_EQ(count(*queue), 2);
  EXPECT_THAT(log(), IsEmpty());
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

TEST_F(DatabaseQueueTest, aStatementFailsAloneAndADroppedTableComesBack) {
  const auto queue = open();
  Stranger(path).execute("drop table notes; create table others (x);");
  for (int i = 0; i < 50; ++i) {
    EXPECT_FALSE(queue->inTransaction([](DatabaseConnection& connection, bool&) {
      EXPECT_FALSE(connection.executeUpdate("insert into notes (text) values ('lost');"));
      EXPECT_TRUE(connection.executeUpdate("insert into others values (1);"));
    }));
  }
  EXPECT_THAT(Stranger(path).rows("select count(*) from others"), ElementsAre("50"));
  EXPECT_THAT(log(), ElementsAre(HasSubstr("a statement failed: no such table: notes (1)")));
  world.wait(2);
  EXPECT_TRUE(add(*queue, "kept"));
  EXPECT_THAT(Stranger(path).rows("select name from sqlite_master where type = 'index'"), ElementsAre("notes_by_text"));
  EXPECT_THAT(log(), IsEmpty());
}

TEST_F(DatabaseQueueTest, aDamagedTableLeavesTheOthersUsable) {
  {
    Stranger stranger(path);
    stranger.execute("pragma page_size = 4096; create table damaged (x); create table whole (x);");
    stranger.execute("insert into damaged values (zeroblob(3000)); insert into damaged values (zeroblob(3000));");
  }
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(4096).write(std::string(4096, 'x').data(), 4096);  // the root of the first table
  file.close();
  const auto queue = open();
  EXPECT_TRUE(add(*queue, "kept"));
  for (int i = 0; i < 20; ++i) {
    EXPECT_FALSE(queue->inReadTransaction(
        [](DatabaseConnection& connection) { EXPECT_FALSE(connection.executeQuery("select * from damaged").next()); }));
    EXPECT_TRUE(queue->inTransaction([](DatabaseConnection& connection, bool&) {
      EXPECT_TRUE(connection.executeUpdate("insert into whole values (1);"));
    }));
    world.wait(7);
  }
  EXPECT_EQ(count(*queue), 1);
  EXPECT_THAT(log(), ElementsAre(HasSubstr("a statement failed: database disk image is malformed (11)")));
}

TEST_F(DatabaseQueueTest, whatFailsInMemoryEmptiesNothing) {
  DatabaseQueue queue(*platform, std::nullopt, {kSchema, kIndexes});
  EXPECT_TRUE(add(queue, "kept"));
  EXPECT_FALSE(queue.inTransaction([](DatabaseConnection& connection, bool&) {
    EXPECT_FALSE(connection.executeUpdate("insert into notes (id) values (1);"));
    EXPECT_FALSE(connection.executeUpdate("nonsense"));
  }));
  EXPECT_EQ(count(queue), 1);
  EXPECT_TRUE(add(queue, "kept"));
}

TEST_F(DatabaseQueueTest, aFileOfALaterVersionIsLeftAlone) {
  Stranger(path).execute("create table schema_version (version integer); insert into schema_version values (1), (2);");
  const auto bytes = std::filesystem::file_size(path);
  const auto queue = open();
  EXPECT_FALSE(add(*queue, "lost"));
  EXPECT_EQ(count(*queue), -1);
  EXPECT_THAT(log(), ElementsAre(HasSubstr("its schema has version 2, this library knows version 1")));
  EXPECT_EQ(std::filesystem::file_size(path), bytes);
  EXPECT_THAT(Stranger(path).rows("select name from sqlite_master"), ElementsAre("schema_version"));
}

TEST_F(DatabaseQueueTest, nobodyButItsOwnerMayReadTheFile) {
  namespace fs = std::filesystem;
  const auto others = [](const std::string& file) { return fs::status(file).permissions() & fs::perms(077); };
  {
    const auto queue = open();
    add(*queue, "private");
    for (const char* suffix : {"", "-wal", "-shm"}) EXPECT_EQ(others(path + suffix), fs::perms::none) << suffix;
  }
  fs::permissions(path, fs::perms(0644));
  EXPECT_EQ(count(*open()), 1);
  EXPECT_EQ(others(path), fs::perms::none);
}

TEST_F(DatabaseQueueTest, whereNothingCanBeMadeTheSchemaFails) {
  DatabaseQueue queue(*platform, folder / "missing/notes.sqlite", {kSchema, kIndexes});
  EXPECT_FALSE(add(queue, "lost"));
  EXPECT_THAT(log(), ElementsAre("Woah, SQL failed!", HasSubstr("unable to open database file (14)")));
}

// The log's size is what the disk has to hold beside the file.
TEST_F(DatabaseQueueTest, theLogIsMovedIntoTheFileAndStaysShort) {
  const auto logSize = [&] { return std::filesystem::file_size(path + "-wal"); };
  const auto addPages = [](DatabaseQueue& queue, int number) {
    for (; number > 0; --number)
      queue.inTransaction([](DatabaseConnection& connection, bool&) {
        connection.executeUpdate("insert into notes (bytes) values (zeroblob(4000));");
      });
  };
  auto queue = open();
  addPages(*queue, 300);
  EXPECT_LT(std::filesystem::file_size(path), 1U << 20U);
  world.time.runReady();  // in the background, when there is time
  EXPECT_GT(std::filesystem::file_size(path), 1U << 20U);
  // Where the background gets no time, whoever writes moves it.
  addPages(*queue, 6000);
  EXPECT_LT(logSize(), 12U << 20U);
  queue.reset();
  // Two writers without a pause, and the background at work.
  useRealThreads();
  queue = open();
  const auto other = open();
  std::thread thread([&] { addPages(*other, 6000); });
  addPages(*queue, 6000);
  thread.join();
  EXPECT_LT(logSize(), 12U << 20U);
  EXPECT_EQ(count(*queue), 18300);
}

// Run by hand for longer: WAYLOOM_LOAD_SECONDS=60.
TEST_F(DatabaseQueueTest, twoConnectionsUnderLoadLoseNothing) {
  const char* wanted = std::getenv("WAYLOOM_LOAD_SECONDS");  // NOLINT(concurrency-mt-unsafe)
  const auto seconds = std::chrono::seconds(wanted ? std::atoi(wanted) : 1);
  useRealThreads();
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
