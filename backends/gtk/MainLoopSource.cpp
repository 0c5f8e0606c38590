#include "wayloom/gtk/MainLoopSource.hpp"

#include <glib-unix.h>
#include <memory>

namespace wayloom::gtk {
namespace {

using SharedLoop = std::shared_ptr<posix::MainLoop>;

gboolean runDue(gint, GIOCondition, gpointer shared) noexcept {
  const auto loop = *static_cast<SharedLoop*>(shared);  // what it runs may destroy the source
  loop->runDue();
  return G_SOURCE_CONTINUE;
}

void release(gpointer shared) noexcept { delete static_cast<SharedLoop*>(shared); }

}  // namespace

MainLoopSource::MainLoopSource(const std::shared_ptr<posix::MainLoop>& loop)
    : source_(g_unix_fd_add_full(G_PRIORITY_DEFAULT, loop->wakeDescriptor(), G_IO_IN, runDue, new SharedLoop(loop),
                                 release)) {}

MainLoopSource::~MainLoopSource() { g_source_remove(source_); }

}  // namespace wayloom::gtk
