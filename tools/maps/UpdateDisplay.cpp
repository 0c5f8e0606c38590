#include "tools/maps/UpdateDisplay.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <unistd.h>

#include "maps/MapFileNames.hpp"

namespace wayloom::tools {
namespace {

using Outcome = MapUpdateStep::Outcome;

constexpr std::size_t kBarWidth = 20;

std::string bar(std::size_t done, std::size_t total) {
  const std::size_t filled = total > 0 ? kBarWidth * done / total : 0;
  return std::string(filled, '#') + std::string(kBarWidth - filled, '.');
}

std::string sizeText(std::size_t bytes) {
  constexpr std::size_t kKilo = 1000;
  return bytes < 10 * kKilo ? fmt::format("{} bytes", bytes) : fmt::format("{} kB", bytes / kKilo);
}

}  // namespace

UpdateDisplay::UpdateDisplay() : isTerminal_(::isatty(STDERR_FILENO) != 0) {}

void UpdateDisplay::show(const MapUpdateStep& step) {
  switch (step.kind) {
    case MapUpdateStep::Kind::document:
      return showDocument(step);
    case MapUpdateStep::Kind::map:
      return showMap(step);
    case MapUpdateStep::Kind::ended:
      // Where maps have failed, they have said so; this is about the document, which has said it with its own step
      // unless it was refused.
      if (step.outcome == Outcome::failed && failed_ == 0) fail(step.reason);
  }
}

void UpdateDisplay::showDocument(const MapUpdateStep& step) {
  maps_ = step.total;
  bytes_ += step.bytes;
  switch (step.outcome) {
    case Outcome::unchanged:
      document_ = "unchanged";
      break;
    case Outcome::downloaded:
      document_ = "fetched";
      break;
    case Outcome::refused:
      document_ = "refused";
      return;
    case Outcome::failed:
      document_ = "failed";
      return fail("map configuration: " + step.reason);
  }
  line(fmt::format("map configuration {}, {} maps", document_, maps_), false);
}

void UpdateDisplay::showMap(const MapUpdateStep& step) {
  const auto name = shownInLog(step.mapId);
  bytes_ += step.outcome == Outcome::downloaded ? step.bytes : 0;
  if (step.outcome == Outcome::failed || step.outcome == Outcome::refused)
    return fail(fmt::format("map {}: {}", name, step.reason));
  const bool isFetched = step.outcome == Outcome::downloaded;
  ++(isFetched ? fetched_ : unchanged_);
  if (isTerminal_)
    line(fmt::format("[{}] {}/{} {:.40}", bar(step.done, step.total), step.done, step.total, name), false);
  else
    line(fmt::format("map {}: {} ({}/{})", name, isFetched ? "fetched, " + sizeText(step.bytes) : "unchanged",
                     step.done, step.total),
         true);
}

void UpdateDisplay::fail(const std::string& what) {
  ++failed_;
  line(what, true);
}

void UpdateDisplay::line(const std::string& text, bool stays) {
  std::string shown = text;
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
  std::replace_if(shown.begin(), shown.end(), isControl, '?');
  clear();
  fmt::print(stderr, "{}{}", shown, isTerminal_ && !stays ? "" : "\n");
  hasWritten_ = isTerminal_ && !stays;
}

void UpdateDisplay::clear() {
  if (hasWritten_) fmt::print(stderr, "\r\033[K");
  hasWritten_ = false;
}

std::string UpdateDisplay::summary() const {
  return fmt::format("map configuration {}; {} maps: {} fetched, {} unchanged; {} failed; {}", document_, maps_,
                     fetched_, unchanged_, failed_, sizeText(bytes_));
}

platform::Json UpdateDisplay::json() const {
  return {{"document", document_},   {"maps", maps_},     {"fetched", fetched_},
          {"unchanged", unchanged_}, {"failed", failed_}, {"bytes", bytes_}};
}

}  // namespace wayloom::tools
