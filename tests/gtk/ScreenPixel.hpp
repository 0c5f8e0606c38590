#pragma once

#include <array>

namespace wayloom::gtk {

// Red, green and blue of the screen at that place, 0 to 255.
std::array<int, 3> screenPixel(int x, int y);

}  // namespace wayloom::gtk
