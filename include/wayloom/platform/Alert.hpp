#pragma once

#include <optional>
#include <string>

namespace wayloom::platform {

// Plain text, whatever is in it.
struct AlertContent {
  std::string title;
  std::string message;
  std::string cancelButton;                // dismisses
  std::optional<std::string> otherButton;  // the one that does something

  bool operator==(const AlertContent&) const = default;
};

// An alert that is being shown. Destruction takes it away, and no callback follows.
class Alert {
 public:
  virtual ~Alert() = default;
};

}  // namespace wayloom::platform
