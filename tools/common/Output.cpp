#include "tools/common/Output.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <simdjson.h>
#include <system_error>
#include <unistd.h>

#include "tools/common/CommandLine.hpp"

namespace wayloom::tools {
namespace {

constexpr std::size_t kFlushAt = 64U << 10U;

// Length of the character at the beginning, 0 when there is none that may be shown.
std::size_t shownLength(std::string_view text) {
  const auto first = static_cast<unsigned char>(text.front());
  if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
  for (std::size_t length = 2; length <= std::min<std::size_t>(4, text.size()); ++length)
    if (simdjson::validate_utf8(text.data(), length)) {
      const bool isControl = first == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0;  // U+0080 to U+009F
      return isControl ? 0 : length;
    }
  return 0;
}

// 0 when all was written, an errno otherwise. The descriptor may be one that doesn't wait.
int writeAll(int descriptor, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const auto count = ::write(descriptor, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      pollfd writable{descriptor, POLLOUT, 0};
      ::poll(&writable, 1, -1);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

std::string printable(std::string_view text) {
  std::string shown;
  shown.reserve(text.size());
  while (!text.empty()) {
    const auto length = shownLength(text);
    shown += length > 0 ? text.substr(0, length) : "?";
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return shown;
}

void Output::write(std::string_view text) noexcept try {
  const std::lock_guard lock(mutex_);
  if (error_ != 0) return;
  pending_ += text;
  if (buffering_ == Buffering::none || pending_.size() >= kFlushAt) send();
} catch (...) {
  const std::lock_guard lock(mutex_);
  error_ = ENOMEM;  // the buffer can't grow
}

bool Output::flush() noexcept {
  const std::lock_guard lock(mutex_);
  send();
  return error_ == 0;
}

void Output::send() noexcept {
  if (error_ == 0) error_ = writeAll(descriptor_, pending_);
  pending_.clear();
}

bool Output::isClosed() const noexcept {
  const std::lock_guard lock(mutex_);
  return error_ == EPIPE || error_ == ECONNRESET;
}

int Output::failure() const noexcept {
  const std::lock_guard lock(mutex_);
  return error_ == EPIPE || error_ == ECONNRESET ? 0 : error_;
}

bool Output::isTerminal() const noexcept { return ::isatty(descriptor_) != 0; }

Output& standardOutput() {
  static Output output(STDOUT_FILENO,
                       ::isatty(STDOUT_FILENO) != 0 ? Output::Buffering::none : Output::Buffering::whole);
  return output;
}

Output& standardError() {
  static Output output(STDERR_FILENO, Output::Buffering::none);
  return output;
}

void complain(std::string_view text) {
  standardOutput().flush();  // what it is about comes first
  standardError().print("wayloom: {}\n", text);
}

void prepareStandardStreams() {
  std::signal(SIGPIPE, SIG_IGN);  // NOLINT(cert-err33-c): it can't fail
  // Open for reading alone: what is written there fails.
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (::fcntl(stream, F_GETFD) < 0 && ::open("/dev/null", O_RDONLY) < 0) return;
}

int finishStandardOutput(int status) {
  auto& output = standardOutput();
  output.flush();
  if (output.failure() == 0) return status;
  complain("standard output: " + std::generic_category().message(output.failure()));
  return status == kSucceeded ? kRunFailed : status;
}

}  // namespace wayloom::tools
