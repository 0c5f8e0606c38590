#include "tools/check/CheckedDocument.hpp"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <map>

#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/platform/JsonParser.hpp"

#include "backends/posix/PosixFiles.hpp"
#include "maps/MapFileNames.hpp"

namespace wayloom::tools {
namespace {

using platform::Json;

// No client of ours takes a longer one.
constexpr std::size_t kLargestDocument = platform::kMaximumHttpBody;

// The parser's errors begin with "byte <number>: ", where the number counts from 1, if the place is known.
std::size_t offsetIn(std::string_view error) {
  constexpr std::string_view kPrefix = "byte ";
  std::size_t number = 0;
  if (error.starts_with(kPrefix)) std::from_chars(error.data() + kPrefix.size(), error.data() + error.size(), number);
  return number > 0 ? number - 1 : 0;
}

}  // namespace

std::string_view nameOf(Severity severity) {
  constexpr std::string_view kNames[] = {"error", "warning", "note"};
  return kNames[static_cast<std::size_t>(severity)];
}

std::string textOf(const Finding& finding) {
  std::string text = finding.file;
  if (finding.place.line > 0) text += fmt::format(":{}:{}", finding.place.line, finding.place.column);
  text += fmt::format(": {}: {}", nameOf(finding.severity), finding.message);
  if (!finding.pointer.empty()) text += fmt::format(" [{}]", finding.pointer);
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
  std::replace_if(text.begin(), text.end(), isControl, '?');
  return text;
}

Json jsonOf(const Finding& finding) {
  Json json = {{"severity", nameOf(finding.severity)}, {"file", finding.file}};
  json["line"] = finding.place.line > 0 ? Json(finding.place.line) : Json();
  json["column"] = finding.place.line > 0 ? Json(finding.place.column) : Json();
  json["pointer"] = finding.pointer;
  json["message"] = finding.message;
  return json;
}

std::string inQuotes(std::string_view text) { return "\"" + shownInLog(text) + "\""; }

CheckedDocument::CheckedDocument(std::string file, Severity whenMissing) : file_(std::move(file)) {
  if (auto text = posix::readRegularFile(file_, kLargestDocument)) {
    text_ = std::move(*text);
    parse();
  } else {
    unreadable_ = Finding{.severity = whenMissing, .file = file_, .message = "can't be read"};
  }
}

void CheckedDocument::parse() {
  auto parsed = platform::parseJson(text_);
  json_ = std::move(parsed.value);
  if (json_) return;
  unreadable_ = Finding{.file = file_,
                        .place = JsonPlaces(text_).placeOf(offsetIn(parsed.error)),
                        .message = "is not JSON: " + parsed.error};
}

void CheckedDocument::tell(Severity severity, JsonPath path, std::string message) {
  told_.push_back({severity, std::move(path), std::move(message)});
}

std::vector<Finding> CheckedDocument::findings() const {
  if (unreadable_) return {*unreadable_};
  JsonPlaces places(text_);
  for (const auto& told : told_) places.want(told.path);
  places.find();
  std::multimap<std::size_t, Finding> ordered;  // by offset; of one offset as they were told
  const auto add = [&](std::size_t offset, Severity severity, const JsonPath& path, std::string message) {
    ordered.emplace(offset, Finding{.severity = severity,
                                    .file = file_,
                                    .place = places.placeOf(offset),
                                    .pointer = jsonPointer(path),
                                    .message = std::move(message)});
  };
  for (const auto& told : told_) add(places.offsetOf(told.path), told.severity, told.path, told.message);
  for (const auto& [path, offset] : places.repeated())
    add(offset, Severity::error, path, inQuotes(path.back()) + " is given twice, and only the last one counts");
  std::vector<Finding> findings;
  findings.reserve(ordered.size());
  for (auto& [offset, finding] : ordered) findings.push_back(std::move(finding));
  return findings;
}

}  // namespace wayloom::tools
