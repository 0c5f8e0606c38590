// Alone in its file: X11's macros are too many to live with.
#include "tests/gtk/ScreenPixel.hpp"

#include <X11/Xutil.h>
#include <gdk/x11/gdkx.h>

namespace wayloom::gtk {

std::array<int, 3> screenPixel(int x, int y) {
  auto* display = gdk_x11_display_get_xdisplay(gdk_display_get_default());
  auto* image = XGetImage(display, DefaultRootWindow(display), x, y, 1, 1, AllPlanes, ZPixmap);
  const auto pixel = XGetPixel(image, 0, 0);
  XDestroyImage(image);
  return {static_cast<int>(pixel >> 16U & 255U), static_cast<int>(pixel >> 8U & 255U), static_cast<int>(pixel & 255U)};
}

}  // namespace wayloom::gtk
