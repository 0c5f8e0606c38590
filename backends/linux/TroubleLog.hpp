#pragma once

#include <map>
#include <memory>
#include <string_view>

#include "wayloom/platform/LogSink.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::linux_ {

// Log lines about troubles that come and go. Some do so every few seconds for as long as the device runs, so each is
// logged five times and then once in fifteen minutes, with how often it was left out; its end only when it was logged.
// Main thread.
class TroubleLog {
 public:
  explicit TroubleLog(std::shared_ptr<platform::LogSink> sink) : sink_(std::move(sink)) {}

  void setSink(std::shared_ptr<platform::LogSink> sink) { sink_ = std::move(sink); }

  void begin(int trouble, std::string_view line, platform::MonotonicTime now);
  void end(std::string_view line);

 private:
  struct History {
    int lines = 0;
    int leftOut = 0;  // since the last line
    platform::MonotonicTime lastLine;
  };

  std::shared_ptr<platform::LogSink> sink_;
  std::map<int, History> histories_;
  bool isTold_ = false;  // there is a line about a trouble, and none about its end
};

}  // namespace wayloom::linux_
