#pragma once

#include <string_view>

namespace wayloom::platform {

// Where log lines end up. Thread-safe; never throws.
class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void write(std::string_view line) = 0;  // one line without its line end
};

}  // namespace wayloom::platform
