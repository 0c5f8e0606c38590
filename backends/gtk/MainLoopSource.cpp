#include "wayloom/gtk/MainLoopSource.hpp"

#include <glib-unix.h>
#include <utility>

namespace wayloom::gtk {
namespace {

gboolean runDue(gint, GIOCondition, gpointer loop) noexcept {
  static_cast<posix::MainLoop*>(loop)->runDue();
  return G_SOURCE_CONTINUE;
}

}  // namespace

MainLoopSource::MainLoopSource(std::shared_ptr<posix::MainLoop> loop)
    : loop_(std::move(loop)), source_(g_unix_fd_add(loop_->wakeDescriptor(), G_IO_IN, runDue, loop_.get())) {}

MainLoopSource::~MainLoopSource() { g_source_remove(source_); }

}  // namespace wayloom::gtk
