#include <atomic>
#include <gmock/gmock.h>
#include <thread>

#include "wayloom/platform/NotificationCenter.hpp"
#include "wayloom/platform/NotificationQueue.hpp"
#include "wayloom/sim/VirtualTime.hpp"

namespace wayloom::platform {

namespace {

using testing::ElementsAre;
using Words = std::vector<std::string>;

TEST(NotificationCenter, DeliversByNameAndObjectInTheOrderOfObserving) {
  NotificationCenter center;
  Words words;
  const int one = 1, other = 2;
  const auto noting = [&](std::string word) {
    return [&words, word = std::move(word)](const Notification& n) { words.push_back(word + n.name); };
  };
  const auto first = center.addObserver("A", nullptr, noting("all "));
  const auto second = center.addObserver("A", &one, noting("one "));
  auto third = center.addObserver("B", nullptr, noting("all "));
  center.post({"A", &one, {}});
  center.post({"A", &other, {}});
  center.post({"A", nullptr, {}});
  center.post({"B", &one, {}});
  center.post({"C", &one, {}});
  EXPECT_THAT(words, ElementsAre("all A", "one A", "all A", "all A", "all B"));
  EXPECT_TRUE(center.hasObservers("B"));
  third.reset();
  EXPECT_FALSE(center.hasObservers("B"));
  EXPECT_FALSE(center.hasObservers("C"));
}

TEST(NotificationCenter, ObserversMayComeAndGoDuringAPost) {
  auto center = std::make_unique<NotificationCenter>();
  Words words;
  std::unique_ptr<NotificationCenter::Observation> itself, later, added;
  itself = center->addObserver("A", nullptr, [&](const Notification&) {
    words.push_back("itself");
    itself.reset();
    later.reset();
    added = center->addObserver("A", nullptr, [&](const Notification&) { words.push_back("added"); });
  });
  later = center->addObserver("A", nullptr, [&](const Notification&) { words.push_back("later"); });
  const auto last = center->addObserver("A", nullptr, [&](const Notification&) { words.push_back("last"); });
  center->post({"A", nullptr, {}});
  center->post({"A", nullptr, {}});
  EXPECT_THAT(words, ElementsAre("itself", "last", "last", "added"));
  center.reset();  // the observations outlive it
}

// Quadratic, it would take minutes.
TEST(NotificationCenter, ManyObserveOneName) {
  NotificationCenter center;
  std::vector<std::unique_ptr<NotificationCenter::Observation>> observations(50'000);
  int calls = 0;
  for (auto& observation : observations) observation = center.addObserver("A", nullptr, [&](const auto&) { ++calls; });
  center.post({"A", nullptr, {}});
  EXPECT_EQ(calls, 50'000);
  for (std::size_t i = 1; i < observations.size(); i += 2) observations[i].reset();
  center.post({"A", nullptr, {}});
  EXPECT_EQ(calls, 75'000);
  observations.clear();
  EXPECT_FALSE(center.hasObservers("A"));
}

TEST(NotificationCenter, EndingAnObservationWaitsForItsCallback) {
  NotificationCenter center;
  std::atomic<bool> stop = false;
  std::thread poster([&] {
    while (!stop) center.post({"A", nullptr, {}});
  });
  for (int i = 0; i < 30; ++i) {
    std::atomic<bool> alive = true;
    std::atomic<int> calls = 0;
    auto observation = center.addObserver("A", nullptr, [&](const Notification&) {
      EXPECT_TRUE(alive);
      ++calls;
    });
    while (calls == 0) std::this_thread::yield();
    observation.reset();
    alive = false;
  }
  stop = true;
  poster.join();
}

TEST(NotificationQueue, DeliversEveryOneAtTheEndOfThePassInOrder) {
  sim::VirtualTime time(calendarTimeFromSeconds(0));
  const auto tasks = time.scheduler();
  NotificationCenter center;
  auto queue = std::make_unique<NotificationQueue>(center, *tasks);
  Words words;
  const auto observation = center.addObserver("A", nullptr, [&](const Notification& n) {
    words.push_back(*n.userInfo.get<std::string>("text"));
    EXPECT_EQ(n.userInfo.get<int>("text"), nullptr);
  });
  const auto enqueue = [&](std::string text) {
    Notification notification{"A", &center, {}};
    notification.userInfo.set("text", std::move(text));
    queue->enqueue(std::move(notification));
  };
  tasks->mainQueue().async([&] {
    for (const char* text : {"same", "same", "other"}) enqueue(text);
    tasks->mainQueue().async([&] { words.push_back("next pass"); });
    words.push_back("pass");
  });
  time.runReady();
  EXPECT_THAT(words, ElementsAre("pass", "same", "same", "other", "next pass"));

  enqueue("lost");
  queue.reset();
  time.runReady();
  EXPECT_EQ(words.size(), 5U);
}

}  // namespace

}  // namespace wayloom::platform
