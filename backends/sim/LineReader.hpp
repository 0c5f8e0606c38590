#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "wayloom/sim/RecordingReader.hpp"

namespace wayloom::sim {

// Cuts a source of bytes into lines, in one buffer that grows to the longest of them.
class LineReader {
 public:
  // Readable bytes after each line, as the JSON parser wants them.
  static constexpr std::size_t kPadding = 64;

  LineReader(RecordingReader::Source source, std::size_t longestLine);

  // The next line without its end, valid until the next call. False at the end of the source and when it fails; then
  // `failure` says why, or is empty.
  bool next(std::string_view& line);

  const std::string& failure() const { return failure_; }
  std::uint64_t failedLine() const { return failedLine_; }  // 0: the source failed
  std::uint64_t lineNumber() const { return lineNumber_; }  // of the last line
  std::uint64_t bytesRead() const { return bytesRead_; }

 private:
  bool fill();
  bool hand(std::size_t length, std::string_view& line);

  RecordingReader::Source source_;
  std::size_t longestLine_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;  // of what was not handed out yet
  std::size_t end_ = 0;    // of what was read
  bool atEnd_ = false;
  std::uint64_t lineNumber_ = 0;
  std::uint64_t bytesRead_ = 0;
  std::string failure_;
  std::uint64_t failedLine_ = 0;
};

}  // namespace wayloom::sim
