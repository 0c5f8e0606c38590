// What tests on a real display share.
#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <memory>
#include <string>
#include <vector>

#include "wayloom/gtk/GtkWidgetFactory.hpp"
#include "wayloom/platform/Time.hpp"
#include "wayloom/posix/PosixClocks.hpp"

namespace wayloom::gtk {

// Runs GTK's main loop until the condition holds; false when it takes longer than that many seconds.
inline bool waitUntil(const std::function<bool()>& condition, double seconds = 20.0) {
  const posix::PosixMonotonicClock clock;
  const auto deadline = clock.now() + platform::durationFromSeconds(seconds);
  const auto tick = g_timeout_add(
      5, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr);
  bool holds = condition();
  while (!holds && clock.now() < deadline) {
    g_main_context_iteration(nullptr, TRUE);
    holds = condition();
  }
  g_source_remove(tick);
  return holds;
}

inline void runFor(double seconds) {
  waitUntil([] { return false; }, seconds);
}

// A window without a frame at the top left of the screen, so that its pixels are the screen's.
class Window {
 public:
  explicit Window(GtkWidget* content, int width = 800, int height = 600) : window_(gtk_window_new()) {
    gtk_window_set_decorated(GTK_WINDOW(window_), FALSE);
    gtk_window_set_default_size(GTK_WINDOW(window_), width, height);
    gtk_window_set_child(GTK_WINDOW(window_), content);
    gtk_window_present(GTK_WINDOW(window_));
  }
  ~Window() { gtk_window_destroy(GTK_WINDOW(window_)); }
  Window(const Window&) = delete;
  Window& operator=(const Window&) = delete;

  GtkWidget* native() const { return window_; }

 private:
  GtkWidget* window_;
};

// The processes that this one has started, and they in turn, of that name; of any name when it is empty.
std::vector<int> descendants(const std::string& name);

// Seconds of processor time that these and this process have taken.
double processorTime(const std::vector<int>& processes);

}  // namespace wayloom::gtk
