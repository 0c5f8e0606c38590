#include "tools/common/Progress.hpp"

#include <fmt/format.h>

#include "tools/common/Output.hpp"

namespace wayloom::tools {
namespace {

constexpr auto kFirst = std::chrono::seconds(1);
constexpr auto kInterval = std::chrono::milliseconds(200);
constexpr const char* kEmptyLine = "\r\033[K";

}  // namespace

Progress::Progress() : isShown_(standardError().isTerminal()) {}

void Progress::show(std::string_view text) {
  if (!isShown_) return;
  standardError().write(kEmptyLine + printable(text));
  hasWritten_ = true;
}

void Progress::clear() {
  if (hasWritten_) standardError().write(kEmptyLine);
  hasWritten_ = false;
}

ReadingProgress::ReadingProgress(std::uint64_t totalBytes)
    : totalBytes_(totalBytes),
      isWanted_(progress_.isShown() && !standardOutput().isTerminal()),
      next_(std::chrono::steady_clock::now() + kFirst) {}

void ReadingProgress::look(std::uint64_t line, std::uint64_t bytes) {
  const auto now = std::chrono::steady_clock::now();
  if (now < next_) return;
  next_ = now + kInterval;
  const auto lines = fmt::format("{} lines", line);
  progress_.show(totalBytes_ > 0 ? fmt::format("{:3} %, {}", bytes * 100 / totalBytes_, lines) : lines);
}

}  // namespace wayloom::tools
