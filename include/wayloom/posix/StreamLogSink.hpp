#pragma once

#include <cstdio>

#include "wayloom/platform/LogSink.hpp"

namespace wayloom::posix {

// Writes lines to a stream, standard error by default. Each goes out in one piece, whatever other threads write;
// control characters in it become "?", so that no text out of a document forges a second line or steers a terminal, and
// line ends at its end are left out.
class StreamLogSink : public platform::LogSink {
 public:
  explicit StreamLogSink(std::FILE* stream = stderr) : stream_(stream) {}  // not owned

  void write(std::string_view line) override;

 private:
  std::FILE* stream_;
};

}  // namespace wayloom::posix
