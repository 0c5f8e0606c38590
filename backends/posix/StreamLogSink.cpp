#include "wayloom/posix/StreamLogSink.hpp"

#include <algorithm>
#include <new>
#include <string>

namespace wayloom::posix {

void StreamLogSink::write(std::string_view line) try {
  while (line.ends_with('\n') || line.ends_with('\r')) line.remove_suffix(1);
  std::string text(line);
  std::replace_if(
      text.begin(), text.end(),
      [](char character) {
        const auto code = static_cast<unsigned char>(character);
        return (code < 0x20 && character != '\t') || code == 0x7F;
      },
      '?');
  text.push_back('\n');
  std::fwrite(text.data(), 1, text.size(), stream_);
  std::fflush(stream_);
} catch (const std::bad_alloc&) {
  // A line that finds no memory is lost: logging never fails towards its caller.
}

}  // namespace wayloom::posix
