#pragma once

#include <functional>
#include <optional>
#include <string>

#include "wayloom/platform/Widget.hpp"

namespace wayloom::platform {

class Button : public Widget {
 public:
  // Path of an image file; without one, the platform shows something that fits the label.
  virtual void setImage(const std::optional<std::string>& path) = 0;
  virtual void setLabel(const std::string& label) = 0;  // for assistive technology and as a hint
  virtual void setCornerRadius(double points) = 0;
  virtual void setPressedCallback(std::function<void()> pressed) = 0;
};

}  // namespace wayloom::platform
