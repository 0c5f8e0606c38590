#include "wayloom/platform/Url.hpp"

#include <algorithm>
#include <simdjson.h>

#include "platform/HexDigit.hpp"

namespace wayloom::platform {
namespace {

constexpr std::size_t kLongestFileName = 255;

// The byte that "%XX" at this place stands for, or -1.
int escapedByteAt(std::string_view text, std::size_t place) {
  if (text.size() - place < 3 || text[place] != '%') return -1;
  const int high = hexDigit(text[place + 1]);
  const int low = hexDigit(text[place + 2]);
  return high < 0 || low < 0 ? -1 : high * 16 + low;
}

bool isControl(char character) { return static_cast<unsigned char>(character) < 0x20 || character == '\x7F'; }

std::string percentDecoded(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int byte = escapedByteAt(text, i);
    decoded.push_back(byte < 0 ? text[i] : static_cast<char>(byte));
    if (byte >= 0) i += 2;
  }
  return decoded;
}

std::string_view pathOf(std::string_view url) {
  url = url.substr(0, url.find_first_of("?#"));
  const auto scheme = url.find(':');
  if (scheme < url.find('/')) url.remove_prefix(scheme + 1);
  if (!url.starts_with("//")) return url;
  const auto path = url.find('/', 2);
  return path == url.npos ? std::string_view() : url.substr(path);
}

}  // namespace

bool isWellFormedUrl(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char character = text[i];
    if (character <= ' ' || character >= '\x7F') return false;  // char may be signed: bytes from 0x80 fall below
    if (std::string_view("\"<>\\^`{|}").find(character) != std::string_view::npos) return false;
    if (character == '%' && escapedByteAt(text, i) < 0) return false;
  }
  return !text.empty();
}

std::vector<std::string> urlPathComponents(std::string_view url) {
  // Decoded before it is split, so that an escaped "/" separates components too.
  const std::string path = percentDecoded(pathOf(url));
  std::vector<std::string> components;
  for (std::size_t begin = 0; begin < path.size();) {
    const auto end = std::min(path.find('/', begin), path.size());
    if (end > begin) components.push_back(path.substr(begin, end - begin));
    begin = end + 1;
  }
  return components;
}

std::optional<std::string> cacheFileNameForUrl(std::string_view prefix, std::string_view url) {
  std::string name(prefix);
  const auto components = urlPathComponents(url);
  if (components.empty()) name.push_back('-');
  for (const auto& component : components) {
    if (component == "." || component == ".." || std::any_of(component.begin(), component.end(), isControl))
      return std::nullopt;
    name.push_back('-');
    name += component;
  }
  name += ".data";
  if (name.size() > kLongestFileName) return std::nullopt;
  return name;
}

std::optional<std::string> withoutPercentEscapes(std::string_view text) {
  for (auto place = text.find('%'); place != text.npos; place = text.find('%', place + 1))
    if (escapedByteAt(text, place) < 0) return std::nullopt;
  auto decoded = percentDecoded(text);
  if (!simdjson::validate_utf8(decoded)) return std::nullopt;
  return decoded;
}

std::string fileUrlForPath(std::string_view path) {
  constexpr std::string_view kPlain = "-._~/!$&'()*+,:=@";  // RFC 3986, 3.3
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string url = "file://";
  for (const char character : path) {
    const auto byte = static_cast<unsigned char>(character);
    const bool isPlain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                         kPlain.find(character) != kPlain.npos;
    if (isPlain)
      url += character;
    else
      (url += '%').append({kDigits[byte >> 4U], kDigits[byte & 15U]});
  }
  return url;
}

}  // namespace wayloom::platform
