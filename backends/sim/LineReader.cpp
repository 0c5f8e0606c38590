#include "backends/sim/LineReader.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

namespace wayloom::sim {
namespace {

constexpr std::size_t kInitialCapacity = 256U << 10U;

}  // namespace

LineReader::LineReader(RecordingReader::Source source, std::size_t longestLine)
    : source_(std::move(source)), longestLine_(longestLine), buffer_(kInitialCapacity + kPadding) {}

bool LineReader::next(std::string_view& line) {
  std::size_t searched = begin_;
  while (failure_.empty()) {
    const char* data = buffer_.data();
    if (const void* newline = end_ > searched ? std::memchr(data + searched, '\n', end_ - searched) : nullptr)
      return hand(static_cast<std::size_t>(static_cast<const char*>(newline) - data) - begin_, line);
    if (atEnd_) return begin_ < end_ && hand(end_ - begin_, line);
    const auto pending = end_ - begin_;
    if (pending > longestLine_) {
      failedLine_ = ++lineNumber_;
      failure_ = "longer than " + std::to_string(longestLine_) + " bytes";
      return false;
    }
    if (!fill()) return false;
    searched = begin_ + pending;
  }
  return false;
}

bool LineReader::hand(std::size_t length, std::string_view& line) {
  line = {buffer_.data() + begin_, length};
  begin_ = std::min(begin_ + length + 1, end_);
  ++lineNumber_;
  return true;
}

// Moves what is pending to the front, makes room and reads more behind it.
bool LineReader::fill() {
  const auto pending = end_ - begin_;
  if (begin_ > 0) std::memmove(buffer_.data(), buffer_.data() + begin_, pending);
  begin_ = 0;
  end_ = pending;
  if (pending + kPadding >= buffer_.size() - kPadding) buffer_.resize(buffer_.size() * 2);
  const auto count = source_({buffer_.data() + end_, buffer_.size() - kPadding - end_});
  if (count < 0) failure_ = "can't be read";
  if (count == 0) atEnd_ = true;
  if (count <= 0) return count == 0;
  end_ += static_cast<std::size_t>(count);
  bytesRead_ += static_cast<std::uint64_t>(count);
  return true;
}

}  // namespace wayloom::sim
