#include "tools/maps/UpdateDisplay.hpp"

#include <fmt/format.h>

#include "maps/MapFileNames.hpp"
#include "tools/common/Output.hpp"

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
  const auto text = fmt::format("map configuration {}, {} maps", document_, maps_);
  progress_.isShown() ? progress_.show(text) : tell(text);
}

void UpdateDisplay::showMap(const MapUpdateStep& step) {
  const auto name = shownInLog(step.mapId);
  bytes_ += step.outcome == Outcome::downloaded ? step.bytes : 0;
  if (step.outcome == Outcome::failed || step.outcome == Outcome::refused)
    return fail(fmt::format("map {}: {}", name, step.reason));
  const bool isFetched = step.outcome == Outcome::downloaded;
  ++(isFetched ? fetched_ : unchanged_);
  if (progress_.isShown())
    progress_.show(fmt::format("[{}] {}/{} {:.40}", bar(step.done, step.total), step.done, step.total, name));
  else
    tell(fmt::format("map {}: {} ({}/{})", name, isFetched ? "fetched, " + sizeText(step.bytes) : "unchanged",
                     step.done, step.total));
}

void UpdateDisplay::fail(const std::string& what) {
  ++failed_;
  tell(what);
}

void UpdateDisplay::tell(const std::string& text) {
  clear();
  standardError().print("{}\n", text);
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
