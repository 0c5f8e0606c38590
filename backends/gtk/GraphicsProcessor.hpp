#pragma once

namespace wayloom::gtk {

// Whether OpenGL on the display is the work of a graphics processor, and GTK draws with it.
bool hasGraphicsProcessor();

}  // namespace wayloom::gtk
