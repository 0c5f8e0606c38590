#include "tools/common/Progress.hpp"

#include <fmt/format.h>
#include <unistd.h>

namespace wayloom::tools {
namespace {

constexpr auto kFirst = std::chrono::seconds(1);
constexpr auto kInterval = std::chrono::milliseconds(200);

}  // namespace

Progress::Progress(std::uint64_t totalBytes)
    : totalBytes_(totalBytes),
      isShown_(::isatty(STDERR_FILENO) != 0 && ::isatty(STDOUT_FILENO) == 0),
      next_(std::chrono::steady_clock::now() + kFirst) {}

void Progress::look(std::uint64_t line, std::uint64_t bytes) {
  const auto now = std::chrono::steady_clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  hasWritten_ = true;
  if (totalBytes_ > 0)
    fmt::print(stderr, "\r{:3} %, {} lines ", bytes * 100 / totalBytes_, line);
  else
    fmt::print(stderr, "\r{} lines ", line);
}

void Progress::clear() {
  if (hasWritten_) fmt::print(stderr, "\r\033[K");
  hasWritten_ = false;
}

}  // namespace wayloom::tools
