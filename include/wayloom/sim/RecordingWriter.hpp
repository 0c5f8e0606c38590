// Writes a recording that reads back as the same events, numbers as the same doubles.
//
//   sim::RecordingWriter writer(std::cout);
//   writer.header({{"source", "handheld 3"}});
//   writer.write(event);
#pragma once

#include <memory>
#include <ostream>

#include "wayloom/platform/Json.hpp"
#include "wayloom/sim/RecordedEvent.hpp"

namespace wayloom::sim {

// Not thread-safe. The stream must outlive it; its own state tells whether writing failed.
class RecordingWriter {
 public:
  explicit RecordingWriter(std::ostream& stream);
  ~RecordingWriter();  // flushes
  RecordingWriter(const RecordingWriter&) = delete;
  RecordingWriter& operator=(const RecordingWriter&) = delete;

  // The first line; `more` is an object with whatever else is worth telling.
  void header(const platform::Json& more = platform::Json::object());

  // Events in time order. One of unknown type is left out, as is a header.
  void write(const RecordedEvent& event);

  void flush();

 private:
  struct Text;
  std::ostream& stream_;
  std::unique_ptr<Text> text_;
};

}  // namespace wayloom::sim
