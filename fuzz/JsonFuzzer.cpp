// Any bytes as a JSON document. What parseJson() says must agree with the Json type's own parser, and every lenient
// reader must cope with every value that comes out.
#include <cstdlib>
#include <string_view>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/JsonValue.hpp"

namespace {

using wayloom::platform::Json;

int depthOf(const Json& value) {
  int deepest = 0;
  if (value.is_structured())
    for (const auto& each : value) deepest = std::max(deepest, depthOf(each));
  return deepest + (value.is_structured() ? 1 : 0);
}

void readAll(const Json& value) {
  using namespace wayloom::platform;
  const auto* pointer = &value;
  const double number = doubleValue(pointer);
  const auto whole = integerValue(pointer);
  if (std::abs(number) < 1e15 && value.is_number() && whole != static_cast<std::int64_t>(number)) std::abort();
  if (value.is_string() && number != number) std::abort();
  floatValue(pointer);
  boolValue(pointer);
  stringValue(pointer);
  member(pointer, "a");
  if (value.is_structured())
    for (const auto& each : value) readAll(each);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto result = wayloom::platform::parseJson(text);
  if (result.value.has_value() != result.error.empty()) std::abort();
  // The other parser takes a zero byte for the end, and knows no limit of depth.
  if (text.find('\0') != text.npos) {
    if (result.value) std::abort();
    return 0;
  }
  const auto expected = Json::parse(text, nullptr, false);
  const bool isRefused = expected.is_discarded() || depthOf(expected) > wayloom::platform::kMaximumJsonDepth;
  if (isRefused == result.value.has_value()) std::abort();
  if (!result.value) return 0;
  const auto text2 = result.value->dump();
  if (text2 != expected.dump() || wayloom::platform::parseJson(text2).value != result.value) std::abort();
  readAll(*result.value);
  return 0;
}
