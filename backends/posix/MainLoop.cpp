#include "wayloom/posix/MainLoop.hpp"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include "wayloom/posix/PosixClocks.hpp"

#include "backends/posix/BlockedThreads.hpp"
#include "backends/posix/MainSink.hpp"
#include "backends/posix/SerialQueue.hpp"
#include "backends/posix/TimerThread.hpp"
#include "backends/posix/WorkerPool.hpp"

namespace wayloom::posix {

namespace {

unsigned usualPoolThreads() { return std::clamp(std::thread::hardware_concurrency(), 2U, 4U); }

}  // namespace

struct MainLoop::Parts {
  explicit Parts(unsigned poolThreads)
      : pool(std::make_shared<WorkerPool>(poolThreads > 0 ? poolThreads : usualPoolThreads())) {}

  const std::shared_ptr<MainSink> main = std::make_shared<MainSink>();
  const std::shared_ptr<WorkerPool> pool;
  const std::shared_ptr<BlockedThreads> blockedThreads = std::make_shared<BlockedThreads>();
  TimerThread timerThread;
  SinkQueue mainQueue{main};
  SinkQueue backgroundQueue{pool};
};

MainLoop::MainLoop(unsigned poolThreads) : parts_(std::make_unique<Parts>(poolThreads)) {}

MainLoop::~MainLoop() {
  parts_->main->timers()->close();
  parts_->timerThread.close();
  parts_->main->close();
  parts_->pool->close();
  parts_->blockedThreads->close();
  parts_->pool->join();
}

platform::TaskQueue& MainLoop::mainQueue() { return parts_->mainQueue; }

platform::TaskQueue& MainLoop::backgroundQueue() { return parts_->backgroundQueue; }

std::unique_ptr<platform::TaskQueue> MainLoop::makeSerialQueue(std::string) {
  return std::make_unique<SerialQueue>(parts_->pool);
}

std::unique_ptr<platform::Timer> MainLoop::startTimer(platform::TaskQueue& queue, platform::Duration delay,
                                                      std::optional<platform::Duration> interval, platform::Task task) {
  if (interval && *interval <= platform::Duration::zero())
    throw std::invalid_argument("a timer's interval must be positive");
  auto& table = &queue == &parts_->mainQueue ? *parts_->main->timers() : parts_->timerThread.timers();
  return table.start(dynamic_cast<SinkQueue&>(queue).sink(), delay, interval, std::move(task));
}

void MainLoop::atEndOfPass(platform::Task task) { parts_->main->atEndOfPass(std::move(task)); }

void MainLoop::sleep(platform::Duration duration) {
  std::shared_ptr(parts_->blockedThreads)->sleep(parts_->timerThread.timers(), duration);
}

std::unique_ptr<platform::ConditionLock> MainLoop::makeConditionLock() {
  return parts_->blockedThreads->makeConditionLock();
}

// The queue is held on to while it runs, since a task may destroy the loop.
void MainLoop::run() { std::shared_ptr(parts_->main)->run(); }

void MainLoop::stop() { parts_->main->stop(); }

int MainLoop::wakeDescriptor() const { return parts_->main->descriptor(); }

std::optional<platform::Duration> MainLoop::timeToNextDeadline() const {
  if (parts_->main->hasReady()) return platform::Duration::zero();
  const auto due = parts_->main->timers()->firstDue();
  if (!due) return std::nullopt;
  return std::max(*due - PosixMonotonicClock().now(), platform::Duration::zero());
}

void MainLoop::runDue() { std::shared_ptr(parts_->main)->runDue(); }

}  // namespace wayloom::posix
