#pragma once

#include <functional>

#include "wayloom/platform/Widget.hpp"

namespace wayloom::platform {

// A view that holds widgets and that the host puts into one of its windows, by the backend's own means.
class ContainerView {
 public:
  virtual ~ContainerView() = default;

  // Above those added before. Not owned; a widget that is destroyed leaves its container.
  virtual void add(Widget& widget) = 0;
  virtual void setBackground(const Grey& grey) = 0;

  // Called on every layout pass with the size in points; sets the frames of the widgets.
  virtual void setLayoutCallback(std::function<void(double width, double height)> layout) = 0;
  // Called with true when the view has come into a window and with false when it has left it.
  virtual void setWindowCallback(std::function<void(bool inWindow)> moved) = 0;
  virtual bool isInWindow() const = 0;
};

}  // namespace wayloom::platform
