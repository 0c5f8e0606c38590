// A small world, virtual or on real threads, for an object that ends while it calls somebody.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "wayloom/posix/MainLoop.hpp"
#include "wayloom/posix/PosixClocks.hpp"

#include "tests/support/TestPlatform.hpp"

namespace wayloom::test {

class LifeWorld {
 public:
  explicit LifeWorld(bool real) {
    auto services = base.services();
    if (real) {
      loop_ = std::make_shared<posix::MainLoop>(2);
      services.tasks = loop_;
      services.monotonicClock = std::make_shared<posix::PosixMonotonicClock>();
      services.location = std::make_shared<ranging::RangerLocationServices>(*loop_, *services.monotonicClock);
      services.widgets = std::make_shared<sim::SimWidgetFactory>(loop_);
    }
    location = std::dynamic_pointer_cast<ranging::RangerLocationServices>(services.location);
    platform = std::make_unique<platform::Platform>(services);
  }

  bool isReal() const { return loop_ != nullptr; }
  platform::TaskScheduler& tasks() { return platform->tasks(); }
  void answer(const std::string& methodAndUrl, std::string body, platform::HttpHeaders headers = {}) {
    platform::HttpResponse response;
    response.status = 200;
    response.body = std::move(body);
    response.headers = std::move(headers);
    base.http->answer(methodAndUrl, response);
  }

  // Runs the main loop until `done` holds, though not for ever.
  void runUntil(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (int step = 0; !done(); ++step) {
      if (isReal()) {
        loop_->runDue();
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        ASSERT_LT(std::chrono::steady_clock::now(), deadline);
      } else {
        base.wait(0.25);
        ASSERT_LT(step, 400);
      }
    }
  }
  // Again and again on the main thread, until it settles.
  void repeat(platform::Task task) {
    constexpr auto kInterval = std::chrono::milliseconds(20);
    timer_ = tasks().startTimer(tasks().mainQueue(), kInterval, kInterval, std::move(task));
  }
  // Everything that is under way comes to its end.
  void settle() {
    timer_.reset();
    if (!isReal()) return base.wait(7200);
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(15);
    runUntil([&] { return std::chrono::steady_clock::now() > end; });
  }

  TestPlatform base;
  std::shared_ptr<ranging::RangerLocationServices> location;
  std::unique_ptr<platform::Platform> platform;
  std::vector<std::shared_ptr<void>> kept;  // what the object may still use in its last call

 private:
  std::shared_ptr<posix::MainLoop> loop_;
  std::unique_ptr<platform::Timer> timer_;
};

// The call in which the object ends: at the hand of that very call, or of another thread meanwhile. In virtual time,
// where there is one thread, the call sleeps and the object ends inside that sleep.
class LastCall {
 public:
  LastCall(LifeWorld& world, bool byAnother) : world_(world), byAnother_(byAnother) {}
  ~LastCall() {
    abandoned_ = true;
    if (another_.joinable()) another_.join();
  }

  // What ends the object; set before anything is called.
  void ends(std::function<void()> end) {
    end_ = std::move(end);
    if (byAnother_ && world_.isReal()) another_ = std::thread([this] { endFromOutside(); });
  }

  // To be called by every callback of the object at the place that is under test.
  void operator()() {
    EXPECT_FALSE(gone_) << "called after its end";
    if (begun_.exchange(true)) return;
    if (!byAnother_) {
      end();
    } else if (world_.isReal()) {
      inside_ = true;
      while (!ending_) std::this_thread::yield();
      std::this_thread::sleep_for(std::chrono::milliseconds(3));
      inside_ = false;
    } else {
      inside_ = true;
      timer_ = world_.tasks().startTimer(world_.tasks().mainQueue(), std::chrono::milliseconds(500), std::nullopt,
                                         [this] { end(); });
      world_.tasks().sleep(std::chrono::seconds(1));
      inside_ = false;
    }
  }

  bool hasBegun() const { return begun_; }
  bool isOver() const { return gone_ && !inside_; }

 private:
  void end() {
    end_();
    gone_ = true;
  }
  void endFromOutside() {
    while (!inside_ && !abandoned_) std::this_thread::yield();
    if (abandoned_) return;
    ending_ = true;
    end();
    EXPECT_FALSE(inside_) << "its end did not wait for the call";
  }

  LifeWorld& world_;
  const bool byAnother_;
  std::function<void()> end_;
  std::thread another_;
  std::unique_ptr<platform::Timer> timer_;
  std::atomic<bool> begun_ = false, inside_ = false, ending_ = false, gone_ = false, abandoned_ = false;
};

}  // namespace wayloom::test
