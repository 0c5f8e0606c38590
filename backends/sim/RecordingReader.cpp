#include "wayloom/sim/RecordingReader.hpp"

#include <cstring>
#include <fstream>
#include <limits>
#include <utility>

#include "backends/sim/LineReader.hpp"
#include "backends/sim/RecordingParser.hpp"

namespace wayloom::sim {
namespace {

// Longer, and a clock was set or a line is damaged: to let the years pass would take hours.
constexpr auto kLongestRecording = std::chrono::hours(366 * 24);
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

bool isBlank(std::string_view line) { return line.find_first_not_of(" \t\r") == line.npos; }

}  // namespace

static_assert(LineReader::kPadding >= simdjson::SIMDJSON_PADDING);

struct RecordingReader::State {
  explicit State(Source source) : lines(std::move(source), kLongestLine) {}

  // False at the end and after an error.
  bool readLine() {
    std::string_view line;
    std::string reason;
    if (!lines.next(line)) {
      if (!lines.failure().empty()) error = {lines.failedLine(), lines.failure()};
      return false;
    }
    if (lines.lineNumber() == 1 && line.starts_with(kByteOrderMark)) line.remove_prefix(kByteOrderMark.size());
    if (isBlank(line)) return true;
    if (parser.parse(line, event, reason) && isInOrder(reason)) {
      isReady = true;
      return true;
    }
    error = {lines.lineNumber(), std::move(reason)};
    return false;
  }

  bool isInOrder(std::string& reason) {
    if (event.type == RecordedType::header) return true;
    if (event.time < lastTime)
      reason = "\"t\" goes back in time";
    else if (firstTime && event.time - *firstTime > kLongestRecording)
      reason = "\"t\" is more than a year after the first line's";
    lastTime = event.time;
    if (!firstTime) firstTime = event.time;
    return reason.empty();
  }

  LineReader lines;
  RecordingParser parser;
  RecordedEvent event;
  std::optional<platform::CalendarTime> firstTime;
  std::optional<platform::CalendarTime> lastTime;
  bool isReady = false;
  std::optional<RecordingError> error;
};

RecordingReader::RecordingReader(Source source) : state_(std::make_unique<State>(std::move(source))) {}
RecordingReader::~RecordingReader() = default;
RecordingReader::RecordingReader(RecordingReader&&) noexcept = default;
RecordingReader& RecordingReader::operator=(RecordingReader&&) noexcept = default;

RecordingReader RecordingReader::ofFile(const std::string& path) {
  auto file = std::make_shared<std::ifstream>(path, std::ios::binary);
  return RecordingReader([file](std::span<char> bytes) -> std::ptrdiff_t {
    if (!file->is_open()) return -1;
    file->read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return file->bad() ? -1 : static_cast<std::ptrdiff_t>(file->gcount());
  });
}

RecordingReader RecordingReader::ofText(std::string text) {
  return RecordingReader([text = std::move(text), at = std::size_t{0}](std::span<char> bytes) mutable {
    const auto count = std::min(bytes.size(), text.size() - at);
    std::memcpy(bytes.data(), text.data() + at, count);
    at += count;
    return static_cast<std::ptrdiff_t>(count);
  });
}

const RecordedEvent* RecordingReader::next() {
  state_->isReady = false;
  while (!state_->isReady)
    if (state_->error || !state_->readLine()) return nullptr;
  return &state_->event;
}

const std::optional<RecordingError>& RecordingReader::error() const { return state_->error; }
std::uint64_t RecordingReader::line() const { return state_->lines.lineNumber(); }
std::uint64_t RecordingReader::bytesRead() const { return state_->lines.bytesRead(); }

}  // namespace wayloom::sim
