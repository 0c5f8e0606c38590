// Where the values of a document are: any text, and for each that is a document the text at every place.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include "wayloom/platform/JsonParser.hpp"

#include "tools/check/JsonPlaces.hpp"

namespace {

using wayloom::platform::Json;
using wayloom::tools::JsonPath;
using wayloom::tools::JsonPlaces;

constexpr std::size_t kLargestDocument = 4096;

template <class Visit>
void visitAll(const Json& value, JsonPath& path, const Visit& visit) {
  visit(value, path);
  if (!value.is_structured()) return;
  for (const auto& [name, part] : value.items()) {
    path.push_back(name);
    visitAll(part, path, visit);
    path.pop_back();
  }
}

// The value that begins there, behind its name when it has one.
Json valueAt(std::string_view text, std::size_t offset, bool isMember) {
  std::istringstream stream{std::string(text.substr(offset))};
  Json value;
  stream >> value;
  char colon = 0;
  if (isMember && value.is_string()) stream >> colon >> value;
  return value;
}

void checkPlaces(std::string_view text, const Json& document) {
  JsonPlaces places(text);
  JsonPath path;
  visitAll(document, path, [&](const Json&, const JsonPath& at) { places.want(at); });
  places.find();
  if (!places.repeated().empty()) return;
  visitAll(document, path, [&](const Json& value, const JsonPath& at) {
    const auto offset = places.offsetOf(at);
    const auto place = places.placeOf(offset);
    if (offset >= text.size() || place.line == 0 || place.column == 0) std::abort();
    JsonPath container = at;
    if (!container.empty()) container.pop_back();
    const Json* around = &document;
    for (const auto& name : container) around = around->is_array() ? &(*around)[std::stoul(name)] : &(*around)[name];
    if (valueAt(text, offset, !at.empty() && around->is_object()) != value) std::abort();
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  JsonPlaces lost(text);
  lost.want({"a", "0"});
  lost.find();
  if (lost.offsetOf({"a", "0"}) > size) std::abort();
  if (size > kLargestDocument) return 0;
  if (const auto parsed = wayloom::platform::parseJson(text); parsed.value) checkPlaces(text, *parsed.value);
  return 0;
}
