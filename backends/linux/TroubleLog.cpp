#include "backends/linux/TroubleLog.hpp"

#include <chrono>
#include <fmt/format.h>
#include <utility>

namespace wayloom::linux_ {
namespace {

constexpr int kFirstLines = 5;
constexpr platform::Duration kBetweenLines = std::chrono::minutes(15);

}  // namespace

void TroubleLog::begin(int trouble, std::string_view line, platform::MonotonicTime now) {
  auto& history = histories_[trouble];
  if (history.lines >= kFirstLines && now - history.lastLine < kBetweenLines) {
    ++history.leftOut;
    return;
  }
  ++history.lines;
  history.lastLine = now;
  isTold_ = true;
  const int leftOut = std::exchange(history.leftOut, 0);
  sink_->write(leftOut == 0 ? std::string(line)
                            : fmt::format("{} ({} more times since the last such line.)", line, leftOut));
}

void TroubleLog::end(std::string_view line) {
  if (std::exchange(isTold_, false)) sink_->write(line);
}

}  // namespace wayloom::linux_
