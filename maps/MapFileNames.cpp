#include "maps/MapFileNames.hpp"

#include <algorithm>
#include <vector>

#include "wayloom/platform/Url.hpp"

namespace wayloom {
namespace {

// Bytes. A file system takes 255; writing under a temporary name needs none of them.
constexpr std::size_t kLongestFileName = 255;
constexpr std::size_t kLongestFilePath = 1024;
constexpr std::size_t kLongestInLog = 128;

bool isControl(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte < 0x20 || byte == 0x7F;
}

bool isHexadecimal(char character) {
  return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'F') ||
         (character >= 'a' && character <= 'f');
}

bool isEscape(std::string_view text) {
  return text.size() >= 3 && text[0] == '%' && isHexadecimal(text[1]) && isHexadecimal(text[2]);
}

// pchar of RFC 3986, 3.3, and the slash.
bool staysInPath(char character) {
  return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
         (character >= 'a' && character <= 'z') ||
         std::string_view("-._~!$&'()*+,;=:@/").find(character) != std::string_view::npos;
}

bool isPageResource(std::string_view fileName) {
  return std::any_of(kPageResources.begin(), kPageResources.end(), [&](const auto& resource) {
    return fileName == std::string(resource.first) + "." + std::string(resource.second);
  });
}

// The URL without its last path component, to which slashes at the end belong. Scheme and host always stay: otherwise a
// document could name the host.
std::string_view directoryOf(std::string_view url) {
  url = url.substr(0, url.find_first_of("?#"));
  const auto scheme = url.find("://");
  const auto path = url.find('/', scheme == url.npos ? 0 : scheme + 3);
  if (path == url.npos) return url;
  while (url.size() > path && url.ends_with('/')) url.remove_suffix(1);
  return url.substr(0, std::max(path, std::min(url.rfind('/'), url.size())));
}

bool isDots(std::string_view component, std::string_view dots) {
  return platform::withoutPercentEscapes(component).value_or(std::string(component)) == dots;
}

// The path without empty components, "." and "..", as a server would go it; nothing when it leads out at the start.
std::optional<std::string> resolvedPath(std::string_view path) {
  std::vector<std::string_view> components;
  for (std::size_t begin = 0; begin < path.size();) {
    const auto end = std::min(path.find('/', begin), path.size());
    const auto component = path.substr(begin, end - begin);
    begin = end + 1;
    if (component.empty() || isDots(component, ".")) continue;
    if (!isDots(component, "..")) {
      components.push_back(component);
      continue;
    }
    if (components.empty()) return std::nullopt;
    components.pop_back();
  }
  std::string resolved;
  for (const auto& component : components) (resolved += resolved.empty() ? "" : "/") += component;
  return resolved;
}

// Components are looked at as a server would, escapes decoded: an escaped slash may make more of them.
std::optional<std::string> refusalOfFilePath(std::string_view path) {
  if (path.empty()) return "it has no file path";
  if (path.size() > kLongestFilePath) return "its file path is too long";
  if (path.find("://") != path.npos) return "its file path is a URL";
  int depth = 0;
  for (const auto& component : platform::urlPathComponents("/" + escapedPath(path))) {
    if (std::any_of(component.begin(), component.end(), isControl)) return "its file path holds a control character";
    if (component != ".") depth += component == ".." ? -1 : 1;
    if (depth < 0) return "its file path leads out of the document's directory";
  }
  if (std::any_of(path.begin(), path.end(), isControl)) return "its file path holds a control character";
  return depth == 0 ? std::optional<std::string>("its file path names no file") : std::nullopt;
}

}  // namespace

bool isPlainFileName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestFileName && name.front() != '.' && name.find('/') == name.npos &&
         std::none_of(name.begin(), name.end(), isControl);
}

std::string_view lastPathComponent(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  const auto slash = path.rfind('/');
  return slash == path.npos ? path : path.substr(slash + 1);
}

std::string_view pathExtension(std::string_view path) {
  const auto name = lastPathComponent(path);
  const auto dot = name.rfind('.');
  return dot == name.npos || dot == 0 ? std::string_view() : name.substr(dot + 1);
}

std::optional<std::string> refusalOfLocalName(std::string_view mapId, std::string_view extension) {
  const std::string name = std::string(mapId) + "." + std::string(extension);
  if (mapId.empty()) return "its id is empty";
  if (mapId.find("..") != mapId.npos) return "its id holds \"..\"";
  if (!isPlainFileName(name)) return "no file can be named after its id";
  if (isPageResource(name)) return "its file would replace the map page's " + name;
  return std::nullopt;
}

std::string escapedPath(std::string_view path) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string escaped;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (staysInPath(path[i]) || isEscape(path.substr(i))) {
      escaped += path[i];
      continue;
    }
    const auto byte = static_cast<unsigned char>(path[i]);
    escaped += {'%', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
  }
  return escaped;
}

MapFileResult mapFile(std::string_view mapId, const std::optional<std::string>& filePath,
                      std::string_view documentUrl) {
  if (auto refusal = refusalOfFilePath(filePath.value_or(""))) return {std::nullopt, std::move(*refusal)};
  const auto path = resolvedPath(*filePath);
  if (!path || path->empty()) return {std::nullopt, "its file path leads out of the document's directory"};
  const auto extension = pathExtension(*path);
  if (auto refusal = refusalOfLocalName(mapId, extension)) return {std::nullopt, std::move(*refusal)};
  return {MapFile{std::string(mapId) + "." + std::string(extension),
                  std::string(directoryOf(documentUrl)) + "/" + escapedPath(*path)},
          {}};
}

std::string shownInLog(std::string_view text) {
  std::string shown(text.substr(0, kLongestInLog));
  std::replace_if(shown.begin(), shown.end(), isControl, '?');
  if (text.size() > kLongestInLog) shown += "...";
  return shown;
}

}  // namespace wayloom
