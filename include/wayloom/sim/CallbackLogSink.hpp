#pragma once

#include <functional>
#include <string_view>
#include <utility>

#include "wayloom/platform/LogSink.hpp"

namespace wayloom::sim {

// Hands each log line to a function, on the thread that logs.
class CallbackLogSink : public platform::LogSink {
 public:
  explicit CallbackLogSink(std::function<void(std::string_view)> callback) : callback_(std::move(callback)) {}
  void write(std::string_view line) override { callback_(line); }

 private:
  std::function<void(std::string_view)> callback_;
};

}  // namespace wayloom::sim
