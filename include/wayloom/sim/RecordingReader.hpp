// Reads a recording line by line, in bounded memory.
//
//   auto reader = sim::RecordingReader::ofFile("walk.jsonl");
//   while (const sim::RecordedEvent* event = reader.next()) deliver(*event);
//   if (reader.error()) std::cerr << reader.error()->line << ": " << reader.error()->reason << '\n';
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "wayloom/sim/RecordedEvent.hpp"

namespace wayloom::sim {

// Why a recording can't be read any further.
struct RecordingError {
  std::uint64_t line = 0;  // counted from 1; 0 when no line is to blame
  std::string reason;      // one line of printable text
};

// Not thread-safe. Lines are trusted in nothing: a malformed one ends the reading with an error. Malformed is what is
// no JSON object, lacks a member that its type needs, has one of another type, or whose time is out of range, before an
// earlier line's or more than a year after the first one's. Blank lines are skipped, unknown members and types are not
// looked at. A number that only has to be within bounds (a signal strength) is bounded.
class RecordingReader {
 public:
  // Fills the span with the next bytes and returns how many; 0 at the end, negative when they can't be read.
  using Source = std::function<std::ptrdiff_t(std::span<char>)>;

  static constexpr std::size_t kLongestLine = 16U << 20U;  // bytes

  explicit RecordingReader(Source source);
  ~RecordingReader();
  RecordingReader(RecordingReader&&) noexcept;
  RecordingReader& operator=(RecordingReader&&) noexcept;

  static RecordingReader ofFile(const std::string& path);
  static RecordingReader ofText(std::string text);

  // The next event, valid until the next call; null at the end and after an error.
  const RecordedEvent* next();

  const std::optional<RecordingError>& error() const;
  std::uint64_t line() const;       // of the last event, counted from 1
  std::uint64_t bytesRead() const;  // from the source

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace wayloom::sim
