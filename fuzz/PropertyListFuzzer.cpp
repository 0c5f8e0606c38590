// Any bytes as a property list, XML or binary. What comes out must be a dictionary of valid UTF-8 and finite numbers.
#include <cstdlib>
#include <string_view>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/posix/PlistReader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto value = wayloom::posix::PlistReader::parseDictionary(bytes);
  if (!value) return 0;
  if (!value->is_object()) std::abort();
  // dump() throws on invalid UTF-8 and writes null for what is not finite, which would not compare equal.
  if (wayloom::platform::parseJson(value->dump()).value != value) std::abort();
  return 0;
}
