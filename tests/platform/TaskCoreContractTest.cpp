#include <atomic>
#include <gmock/gmock.h>
#include <mutex>
#include <string>
#include <vector>

#include "wayloom/platform/TaskScope.hpp"

#include "tests/platform/TaskWorld.hpp"

namespace wayloom::tests {

namespace {

using namespace std::chrono_literals;
using platform::TaskScope;
using testing::ElementsAre;

// Notes from any thread.
class Journal {
 public:
  void note(std::string word) {
    const std::lock_guard lock(mutex_);
    words_.push_back(std::move(word));
  }
  platform::Task noting(std::string word) {
    return [this, word = std::move(word)] { note(word); };
  }
  std::vector<std::string> words() const {
    const std::lock_guard lock(mutex_);
    return words_;
  }
  std::size_t size() const { return words().size(); }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> words_;
};

TEST_P(TaskCoreContract, QueuesRunInTheOrderOfPosting) {
  const auto serial = tasks().makeSerialQueue("serial");
  for (platform::TaskQueue* queue : {&tasks().mainQueue(), serial.get()}) {
    Journal journal;
    queue->async([&] {
      queue->async([&] {
        queue->async(journal.noting("from within"));
        journal.note("first");
      });
      for (const char* word : {"second", "third"}) queue->async(journal.noting(word));
    });
    world->runUntil([&] { return journal.size() == 4; });
    EXPECT_THAT(journal.words(), ElementsAre("first", "second", "third", "from within"));
  }
}

TEST_P(TaskCoreContract, SerialQueueRunsOneTaskAtATimeEvenWhileOneSleeps) {
  const auto serial = tasks().makeSerialQueue("serial");
  Journal journal;
  serial->async([&] {
    journal.note("begin");
    tasks().sleep(2ms);
    journal.note("end");
  });
  serial->async(journal.noting("next"));
  std::atomic<int> others = 0;
  for (int i = 0; i < 500; ++i) {
    tasks().backgroundQueue().async([&] { ++others; });
    serial->async([&] { ++others; });
  }
  world->runUntil([&] { return others == 1000; });
  EXPECT_THAT(journal.words(), ElementsAre("begin", "end", "next"));
}

TEST_P(TaskCoreContract, TimersFireInTheOrderOfDeadlineAndThenOfCreation) {
  const auto serial = tasks().makeSerialQueue("serial");
  for (platform::TaskQueue* queue : {&tasks().mainQueue(), serial.get()}) {
    Journal journal;
    std::vector<std::unique_ptr<platform::Timer>> timers;
    const auto start = [&](std::string word, platform::Duration delay) {
      timers.push_back(tasks().startTimer(*queue, delay, std::nullopt, journal.noting(std::move(word))));
    };
    queue->async([&] {
      start("now", 0ms);
      start("c", 60ms);
      start("a", 20ms);
      start("b", 40ms);
      start("a2", 20ms);
      start("never", platform::Duration::max());
      tasks().sleep(100ms);  // now they are all due at once
    });
    world->runUntil([&] { return journal.size() == 5; });
    EXPECT_THAT(journal.words(), ElementsAre("now", "a", "a2", "b", "c"));
  }
  EXPECT_THROW((void)tasks().startTimer(*serial, 0ms, 0ms, [] {}), std::invalid_argument);
}

TEST_P(TaskCoreContract, CancelledTimersAreSilent) {
  const auto serial = tasks().makeSerialQueue("serial");
  for (platform::TaskQueue* queue : {&tasks().mainQueue(), serial.get()}) {
    Journal journal;
    std::unique_ptr<platform::Timer> itself, neighbour;
    const auto captured = std::make_shared<int>();
    queue->async([&] {
      itself = tasks().startTimer(*queue, 1ms, 1ms, [&, captured] {
        itself.reset();
        neighbour.reset();  // due as well, perhaps in the queue already
        journal.note("once");
      });
      neighbour = tasks().startTimer(*queue, 1ms, std::nullopt, journal.noting("neighbour"));
      tasks().sleep(3ms);
    });
    std::atomic<bool> later = false;
    std::unique_ptr<platform::Timer> end;
    queue->async([&] { end = tasks().startTimer(*queue, 5ms, std::nullopt, [&] { later = true; }); });
    world->runUntil([&] { return later.load(); });
    EXPECT_THAT(journal.words(), ElementsAre("once"));
    EXPECT_EQ(captured.use_count(), 1);
  }
}

TEST_P(TaskCoreContract, RepeatingTimersSkipTheTicksThatTheyMiss) {
  constexpr auto interval = 1ms;
  std::int64_t calls = 0;
  const auto start = world->now();
  const auto timer = tasks().startTimer(tasks().mainQueue(), interval, interval, [&] {
    const std::int64_t missed = ++calls > 2 ? 10 : 0;
    EXPECT_LE(calls + missed, (world->now() - start) / interval);
    if (calls == 2) tasks().sleep(10 * interval);
  });
  world->runUntil([&] { return calls >= 5; });
}

TEST_P(TaskCoreContract, RepeatingTimersGoOnAfterAnException) {
  int calls = 0;
  const auto timer = tasks().startTimer(tasks().mainQueue(), 1ms, 1ms, [&] {
    if (++calls == 2) throw std::runtime_error("once");
  });
  EXPECT_THROW(world->runUntil([&] { return calls > 2; }), std::runtime_error);
  EXPECT_EQ(calls, 2);
  world->runUntil([&] { return calls >= 5; });
}

TEST_P(TaskCoreContract, EndOfPassComesBeforeWhatIsPostedDuringThePass) {
  Journal journal;
  auto& queue = tasks().mainQueue();
  queue.async([&] {
    tasks().atEndOfPass([&] {
      tasks().atEndOfPass(journal.noting("end, added at the end"));
      journal.note("end");
    });
    queue.async(journal.noting("next pass"));
    journal.note("first");
  });
  queue.async(journal.noting("second"));
  world->runUntil([&] { return journal.size() == 5; });
  EXPECT_THAT(journal.words(), ElementsAre("first", "second", "end", "next pass", "end, added at the end"));

  // One that adds itself again and again keeps nobody waiting.
  bool isServed = false;
  const std::function<void()> again = [&] {
    if (!isServed) tasks().atEndOfPass(again);
  };
  tasks().atEndOfPass([&] {
    queue.async([&] { isServed = true; });
    again();
  });
  world->runUntil([&] { return isServed; });

  tasks().backgroundQueue().async([&] { tasks().atEndOfPass(journal.noting("with no pass under way")); });
  world->runUntil([&] { return journal.size() == 6; });
}

TEST_P(TaskCoreContract, WaitsEndWhenAnotherTaskSignals) {
  const auto lock = tasks().makeConditionLock();
  int stage = 0;
  bool over = false;
  const auto waitFor = [&](int awaited) {
    while (stage != awaited) lock->wait();
    ++stage;
    lock->signalAll();
  };
  const auto stageTask = [&](int awaited) {
    return [&, awaited] {
      const std::lock_guard held(*lock);
      waitFor(awaited);
    };
  };
  // More waiting tasks than the pool has threads, the last of which starts it all.
  for (int awaited : {3, 2, 1, 0}) tasks().backgroundQueue().async(stageTask(awaited));
  tasks().mainQueue().async([&] {
    stageTask(4)();
    over = true;
  });
  world->runUntil([&] { return over; });
  EXPECT_EQ(stage, 5);
}

TEST_P(TaskCoreContract, SleepLetsAtLeastItsDurationPass) {
  const auto start = world->now();
  tasks().sleep(2ms);
  EXPECT_GE(world->now() - start, 2ms);
}

TEST_P(TaskCoreContract, ASerialQueueMayBeDestroyedByItsOwnTask) {
  Journal journal;
  auto serial = tasks().makeSerialQueue("serial");
  const auto captured = std::make_shared<int>();
  auto timer = tasks().startTimer(*serial, 1ms, 1ms, journal.noting("timer"));
  std::atomic<bool> over = false;
  serial->async([&] {
    serial->async([&, captured] { journal.note("dropped"); });
    serial.reset();
    EXPECT_EQ(captured.use_count(), 1);
    over = true;
  });
  world->runUntil([&] { return over.load(); });
  const auto end = tasks().startTimer(tasks().mainQueue(), 3ms, std::nullopt, journal.noting("end"));
  world->runUntil([&] { return journal.size() > 0 && journal.words().back() == "end"; });
  for (const auto& word : journal.words()) EXPECT_NE(word, "dropped");
}

// A subject whose tasks say so when they run after its end.
struct Subject {
  explicit Subject(platform::TaskScheduler& scheduler)
      : tasks(scheduler), serial(scheduler.makeSerialQueue("subject")) {
    alive = true;
    timer = tasks.startTimer(tasks.backgroundQueue(), 0ms, 1us, scope.bind([this] { touch(); }));
  }
  ~Subject() {
    scope.close();
    alive = false;
  }
  void touch() {
    EXPECT_TRUE(alive);
    for (platform::TaskQueue* queue : {&tasks.backgroundQueue(), &tasks.mainQueue(), serial.get()})
      queue->async(scope.bind([this] {
        EXPECT_TRUE(alive);
        ++touched;
        tasks.atEndOfPass(scope.bind([this] { EXPECT_TRUE(alive); }));
      }));
  }
  platform::TaskScheduler& tasks;
  std::atomic<bool> alive;
  std::atomic<int> touched = 0;
  std::unique_ptr<platform::TaskQueue> serial;
  std::unique_ptr<platform::Timer> timer;
  TaskScope scope;
};

TEST_P(TaskCoreContract, ObjectsMayGoUnderLoad) {
  for (int round = 0; round < 20; ++round) {
    auto subject = std::make_unique<Subject>(tasks());
    // Not through the pointer: it is null before what it pointed to has ended.
    auto* const object = subject.get();
    for (int i = 0; i < 20; ++i) tasks().backgroundQueue().async(object->scope.bind([object] { object->touch(); }));
    world->runUntil([&] { return subject->touched > 30; });
    subject.reset();
  }
}

TEST_P(TaskCoreContract, AScopeMayGoInItsOwnTask) {
  auto scope = std::make_unique<TaskScope>();
  Journal journal;
  auto inner = scope->bind(journal.noting("inner"));
  auto outer = scope->bind([&] {
    inner();
    scope.reset();
    inner();
    journal.note("goes on");
  });
  outer();
  outer();
  EXPECT_THAT(journal.words(), ElementsAre("inner", "goes on"));
}

TEST_P(TaskCoreContract, ShutDownDestroysWhatIsPending) {
  const auto captured = std::make_shared<std::atomic<int>>(0);
  const platform::Task count = [captured] { ++*captured; };
  auto serial = tasks().makeSerialQueue("serial");
  auto mainTimer = tasks().startTimer(tasks().mainQueue(), 24h, std::nullopt, count);
  auto serialTimer = tasks().startTimer(*serial, 24h, 24h, count);
  tasks().mainQueue().async(count);
  tasks().atEndOfPass(count);
  const auto lock = tasks().makeConditionLock();
  for (int i = 0; i < 10; ++i) serial->async(count);
  world.reset();
  const int ran = *captured;
  serial->async(count);
  serialTimer.reset();
  mainTimer.reset();
  EXPECT_EQ(captured.use_count(), 2);
  EXPECT_EQ(*captured, ran);
  const std::lock_guard held(*lock);
  EXPECT_THROW(lock->wait(), platform::AbandonedWait);
}

}  // namespace

}  // namespace wayloom::tests
