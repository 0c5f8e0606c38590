#pragma once

#include <string>

namespace wayloom::platform {

// A failure as it is handed to completion handlers and delegates; failures are values here, never exceptions.
struct Error {
  std::string domain;  // "Geofold", "Wayl", or a platform's own such as "HTTP"
  int code = 0;
  std::string description;  // one line for people

  bool operator==(const Error&) const = default;
};

}  // namespace wayloom::platform
