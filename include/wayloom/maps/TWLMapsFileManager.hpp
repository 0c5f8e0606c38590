#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace wayloom::platform {
class Platform;
}

namespace wayloom {

// The map page and the map images on disk, where the map view loads them:
//
//   Documents/maps            "map.html", its scripts, the grid image, and "<map id>.<extension>" for each map
//   Documents/map_downloads   map images of an update that has not ended, under the same names
//
// Has no state: make one wherever it is needed. Any thread; all instances of one Platform take turns with a file. What
// fails is logged. Names that are no plain file name, such as one that leads out of the directory, are refused.
class TWLMapsFileManager {
 public:
  // Map ids and where their images are.
  using Images = std::vector<std::pair<std::string, std::string>>;

  explicit TWLMapsFileManager(platform::Platform& platform);

  // The directories, without a trailing slash; made when they are missing. When that fails, the path all the same.
  std::string mapDirectoryPath() const;
  std::string mapDownloadPath() const;
  // The map page.
  std::string mapHtmlFilePath() const;

  // Puts a copy into the maps directory, in place of what is there under that name; the source's own name by default.
  // False when it failed; the file that was there is then gone, unless there is no source or the name is refused.
  bool copyFileFromPathToNewName(const std::optional<std::string>& sourcePath,
                                 const std::optional<std::string>& newName);
  // The same for a resource of the main bundle or, when it has none, of the library's.
  bool copyResourceFileOfType(std::string_view name, std::string_view type);
  // The six resources of the map page, up to the first that fails; whether none did.
  bool copyMapDependencies();
  // Built-in images, in this order up to the first that fails, as "<map id>.<extension of the source>"; whether none
  // did.
  bool updateMapsFromDictionary(const Images& images);

  // Moves all downloaded images into the maps directory. What can't be moved stays for the next time.
  void copyDownloadedMapFiles();

 private:
  std::string madeDirectory(std::string_view name) const;
  bool install(const std::string& source, const std::string& destination);
  void moveInto(const std::string& source, const std::string& destination);
  void log(std::string_view line) const;

  platform::Platform& platform_;
  std::mutex* turn_;  // the Platform's
};

}  // namespace wayloom
