// Recordings from outside: whatever the bytes are, reading ends, and what was read can be written and read again.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "wayloom/sim/RecordingReader.hpp"
#include "wayloom/sim/RecordingWriter.hpp"

using wayloom::sim::RecordingReader;
using wayloom::sim::RecordingWriter;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  auto reader = RecordingReader::ofText({reinterpret_cast<const char*>(data), size});
  std::ostringstream copy;
  std::uint64_t written = 0;
  {
    RecordingWriter writer(copy);
    while (const auto* event = reader.next()) {
      writer.write(*event);
      if (event->type != wayloom::sim::RecordedType::unknown && event->type != wayloom::sim::RecordedType::header)
        ++written;
    }
  }
  auto again = RecordingReader::ofText(copy.str());
  while (again.next() != nullptr) --written;
  if (again.error() || written != 0) std::abort();
  return 0;
}
