// Map ids and file paths are outside text; here they become file names and URLs, or are refused.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace wayloom {

// The map page: resource names and types, in the order of installing.
inline constexpr std::array<std::pair<std::string_view, std::string_view>, 6> kPageResources = {
    {{"map", "html"},
     {"maps", "js"},
     {"platform", "js"},
     {"jquery-1.11.1.min", "js"},
     {"purl", "js"},
     {"grid", "svg"}}};

// Whether the text names a file in a directory, and nothing else: no part of a path, no control characters, neither
// too long nor hidden.
bool isPlainFileName(std::string_view name);

// What follows the last dot of the path's last component; empty when there is none, or nothing before it.
std::string_view pathExtension(std::string_view path);
std::string_view lastPathComponent(std::string_view path);

// Where a map's image is on disk and on the server.
struct MapFile {
  std::string localName;  // a plain file name, and none of the page's
  std::string url;
};

// The file of a map of the document at `documentUrl`, whose path is relative to the document's directory, with or
// without a slash before it, and must not lead out of it; otherwise why there is none, for the log.
struct MapFileResult {
  std::optional<MapFile> file;
  std::string refusal;
};
MapFileResult mapFile(std::string_view mapId, const std::optional<std::string>& filePath, std::string_view documentUrl);

// Why no file may be named "<map id>.<extension>"; nothing when it may.
std::optional<std::string> refusalOfLocalName(std::string_view mapId, std::string_view extension);

// The path of a file on the server as part of a URL. What a URL can't hold is escaped; escapes stay as they are.
std::string escapedPath(std::string_view path);

// The text for a log line, which control characters don't break; of a long one the beginning.
std::string shownInLog(std::string_view text);

}  // namespace wayloom
