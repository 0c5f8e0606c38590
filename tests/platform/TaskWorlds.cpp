#include <poll.h>

#include "wayloom/posix/MainLoop.hpp"
#include "wayloom/posix/PosixClocks.hpp"
#include "wayloom/sim/VirtualTime.hpp"

#include "tests/platform/TaskWorld.hpp"

namespace wayloom::tests {

namespace {

using namespace std::chrono_literals;

class VirtualWorld final : public TaskWorld {
 public:
  platform::TaskScheduler& tasks() override { return *scheduler_; }
  platform::MonotonicTime now() const override { return time_.now(); }
  void runUntil(const std::function<bool()>& done) override {
    for (time_.runReady(); !done(); time_.advanceTo(*time_.nextDeadline())) ASSERT_TRUE(time_.nextDeadline());
  }

 private:
  sim::VirtualTime time_{platform::calendarTimeFromSeconds(1e9)};
  std::shared_ptr<platform::TaskScheduler> scheduler_ = time_.scheduler();
};

class RealWorld : public TaskWorld {
 public:
  platform::TaskScheduler& tasks() override { return loop; }
  platform::MonotonicTime now() const override { return posix::PosixMonotonicClock().now(); }
  void runUntil(const std::function<bool()>& done) override {
    const auto look = loop.startTimer(loop.mainQueue(), 0ms, 1ms, [&] {
      if (done()) loop.stop();
    });
    loop.run();
  }

 protected:
  posix::MainLoop loop{2};
};

class GuestWorld final : public RealWorld {
 public:
  void runUntil(const std::function<bool()>& done) override {
    pollfd wake{loop.wakeDescriptor(), POLLIN, 0};
    for (loop.runDue(); !done(); loop.runDue()) poll(&wake, 1, 1);
  }
};

INSTANTIATE_TEST_SUITE_P(Worlds, TaskCoreContract,
                         testing::Values(TaskWorldKind{"Virtual", [] { return std::make_unique<VirtualWorld>(); }},
                                         TaskWorldKind{"Real", [] { return std::make_unique<RealWorld>(); }},
                                         TaskWorldKind{"RealAsGuest", [] { return std::make_unique<GuestWorld>(); }}),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace

}  // namespace wayloom::tests
