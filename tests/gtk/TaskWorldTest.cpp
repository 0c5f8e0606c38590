// The task scheduler's contract, with GTK's main loop driving ours.
#include <glib.h>

#include "wayloom/gtk/MainLoopSource.hpp"
#include "wayloom/posix/PosixClocks.hpp"

#include "tests/platform/TaskWorld.hpp"

namespace wayloom::tests {
namespace {

class GtkWorld final : public TaskWorld {
 public:
  platform::TaskScheduler& tasks() override { return *loop_; }
  platform::MonotonicTime now() const override { return posix::PosixMonotonicClock().now(); }
  void runUntil(const std::function<bool()>& done) override {
    const auto look = g_timeout_add(
        1, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
    while (!done()) g_main_context_iteration(nullptr, TRUE);
    g_source_remove(look);
  }

 private:
  std::shared_ptr<posix::MainLoop> loop_ = std::make_shared<posix::MainLoop>(2);
  gtk::MainLoopSource source_{loop_};
};

INSTANTIATE_TEST_SUITE_P(Gtk, TaskCoreContract,
                         testing::Values(TaskWorldKind{"Gtk", [] { return std::make_unique<GtkWorld>(); }}),
                         [](const auto& kind) { return kind.param.name; });

// Timers and input take turns: neither waits for the other to come to rest.
TEST(GtkMainLoop, ABusyMainQueueLeavesRoomForGtk) {
  const auto loop = std::make_shared<posix::MainLoop>();
  auto source = std::make_unique<gtk::MainLoopSource>(loop);
  bool ended = false;
  std::function<void()> again = [&] {
    if (!ended) loop->mainQueue().async(again);
  };
  again();
  g_timeout_add(
      20, [](gpointer end) -> gboolean { return *static_cast<bool*>(end) = true, G_SOURCE_REMOVE; }, &ended);
  while (!ended) g_main_context_iteration(nullptr, TRUE);

  int runs = 0;
  loop->mainQueue().async([&] { source.reset(); });  // from within
  loop->mainQueue().async([&] { ++runs; });
  while (source) g_main_context_iteration(nullptr, TRUE);
  loop->mainQueue().async([&] { ++runs; });
  while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
  }
  EXPECT_EQ(runs, 1);  // that of the same pass
}

}  // namespace
}  // namespace wayloom::tests
