#include "wayloom/posix/PlistReader.hpp"

#include <new>
#include <simdjson.h>

#include "backends/posix/PlistFormats.hpp"
#include "backends/posix/PosixFiles.hpp"

namespace wayloom::posix {
namespace {

constexpr std::size_t kLargestPlist = 4U << 20U;

}  // namespace

bool appendUtf8(std::string& text, char32_t codePoint) {
  const auto append = [&](char32_t byte) { text.push_back(static_cast<char>(byte)); };
  const auto appendRest = [&](int shift) { append(0x80U | ((codePoint >> shift) & 0x3FU)); };
  if (codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) return false;
  if (codePoint < 0x80) {
    append(codePoint);
  } else if (codePoint < 0x800) {
    append(0xC0U | (codePoint >> 6U));
    appendRest(0);
  } else if (codePoint < 0x10000) {
    append(0xE0U | (codePoint >> 12U));
    appendRest(6);
    appendRest(0);
  } else {
    append(0xF0U | (codePoint >> 18U));
    appendRest(12);
    appendRest(6);
    appendRest(0);
  }
  return true;
}

bool isUtf8(std::string_view text) { return simdjson::validate_utf8(text.data(), text.size()); }

std::optional<platform::Json> PlistReader::readDictionary(const std::string& path) const {
  const auto bytes = readRegularFile(path, kLargestPlist);
  return bytes ? parseDictionary(*bytes) : std::nullopt;
}

std::optional<platform::Json> PlistReader::parseDictionary(std::string_view bytes) try {
  if (bytes.size() > kLargestPlist) return std::nullopt;
  auto value = bytes.starts_with(kBinaryPlistMagic) ? parseBinaryPlist(bytes) : parseXmlPlist(bytes);
  if (value && !value->is_object()) return std::nullopt;
  return value;
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

}  // namespace wayloom::posix
