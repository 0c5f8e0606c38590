#pragma once

#include "wayloom/platform/Time.hpp"

namespace wayloom::platform {

// Points, from the top left corner of the containing view; y grows downwards.
struct Rect {
  double x = 0.0;
  double y = 0.0;
  double width = 0.0;
  double height = 0.0;

  bool operator==(const Rect&) const = default;
};

// A grey: white 0 is black, alpha 0 is invisible; both 0 to 1.
struct Grey {
  double white = 1.0;
  double alpha = 1.0;

  bool operator==(const Grey&) const = default;
};

// Something inside a ContainerView. Widgets are made by a WidgetFactory, and made, used, called back from and destroyed
// on the main thread. A callback may destroy its widget.
class Widget {
 public:
  virtual ~Widget() = default;

  // Where it is, at the next drawing.
  virtual void setFrame(const Rect& frame) = 0;
  // Out of sight and out of reach, but alive: a hidden page keeps its size and goes on working. Shown at first.
  virtual void setHidden(bool hidden) = 0;
  // At once; ends an animation under way. 0 to 1, initially 1.
  virtual void setAlpha(double alpha) = 0;
  // From what it is now. People who want no animations get the end at once.
  virtual void animateAlpha(double alpha, Duration duration) = 0;
  virtual void setBackground(const Grey& grey) = 0;
};

}  // namespace wayloom::platform
