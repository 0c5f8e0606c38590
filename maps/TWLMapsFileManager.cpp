#include "wayloom/maps/TWLMapsFileManager.hpp"

#include <algorithm>
#include <memory>
#include <mutex>

#include "wayloom/platform/Platform.hpp"

#include "maps/MapFileNames.hpp"

namespace wayloom {
namespace {

// Replacing a file takes two steps. A run that installs built-in images and an update that ends at the same time must
// not meet between them.
struct InstallTurn {
  std::mutex mutex;
};

std::string reasonOf(const platform::Error& error) { return error.domain + " " + std::to_string(error.code); }

}  // namespace

TWLMapsFileManager::TWLMapsFileManager(platform::Platform& platform)
    : platform_(platform), turn_(&platform.shared<InstallTurn>([] { return std::make_unique<InstallTurn>(); }).mutex) {}

std::string TWLMapsFileManager::madeDirectory(std::string_view name) const {
  auto& files = platform_.files();
  std::string path = files.documentsDirectory() + "/" + std::string(name);
  if (files.fileExists(path)) return path;
  const auto error = files.createDirectory(path);
  if (!error)
    log("Created directory at " + path);
  else if (!files.fileExists(path))  // it may have been made by another thread
    log("Cannot create directory at " + path + " due to " + error->description);
  return path;
}

std::string TWLMapsFileManager::mapDirectoryPath() const { return madeDirectory("maps"); }

std::string TWLMapsFileManager::mapDownloadPath() const { return madeDirectory("map_downloads"); }

std::string TWLMapsFileManager::mapHtmlFilePath() const { return mapDirectoryPath() + "/map.html"; }

bool TWLMapsFileManager::copyFileFromPathToNewName(const std::optional<std::string>& sourcePath,
                                                   const std::optional<std::string>& newName) {
  if (!sourcePath) {
    log("Cannot copy source file because it does not exist: (null)");
    return false;
  }
  const std::string name = newName ? *newName : std::string(lastPathComponent(*sourcePath));
  if (!isPlainFileName(name)) {
    log("Refused to install a file named " + shownInLog(name));
    return false;
  }
  return install(*sourcePath, mapDirectoryPath() + "/" + name);
}

bool TWLMapsFileManager::install(const std::string& source, const std::string& destination) {
  const std::lock_guard turn(*turn_);
  auto& files = platform_.files();
  if (const auto error = files.removeFile(destination)) {
    const bool isThere = files.fileExists(destination);
    log("Could not delete file -:" + (isThere ? error->description : "there was none at " + destination) + " ");
  } else {
    log("Deleted file :" + destination + " ");
  }
  log("Attempting copy file from " + source + " " + destination);
  if (const auto error = files.copyFile(source, destination)) {
    log("file copy failed: " + source);
    log("Error description-" + error->description + " \n");
    log("Error reason-" + reasonOf(*error));
    return false;
  }
  log("file successfully copied: " + source);
  return true;
}

bool TWLMapsFileManager::copyResourceFileOfType(std::string_view name, std::string_view type) {
  auto path = platform_.mainBundle().pathForResource(name, type);
  if (!path) path = platform_.resourceBundle().pathForResource(name, type);
  const bool copied = copyFileFromPathToNewName(path, std::nullopt);
  log("Copying " + path.value_or("(null)") + " result " + (copied ? "1" : "0"));
  return copied;
}

bool TWLMapsFileManager::copyMapDependencies() {
  return std::all_of(kPageResources.begin(), kPageResources.end(),
                     [this](const auto& resource) { return copyResourceFileOfType(resource.first, resource.second); });
}

bool TWLMapsFileManager::updateMapsFromDictionary(const Images& images) {
  return std::all_of(images.begin(), images.end(), [this](const auto& image) {
    const auto& [mapId, source] = image;
    return copyFileFromPathToNewName(source, mapId + "." + std::string(pathExtension(source)));
  });
}

void TWLMapsFileManager::copyDownloadedMapFiles() {
  const std::string downloads = mapDownloadPath();
  const std::string from = downloads + "/";
  const std::string to = mapDirectoryPath() + "/";
  for (const auto& name : platform_.files().listDirectory(downloads).value_or(std::vector<std::string>()))
    moveInto(from + name, to + name);
}

// A failed removal is told a second time in the end, as the move's failure.
void TWLMapsFileManager::moveInto(const std::string& source, const std::string& destination) {
  const std::lock_guard turn(*turn_);
  auto& files = platform_.files();
  std::optional<platform::Error> error;
  if (files.fileExists(destination)) error = files.removeFile(destination);
  if (error) log("Error removing existing map: " + error->description);
  if (auto failure = files.moveFile(source, destination)) error = std::move(failure);
  if (error) log("Error moving downloaded map: " + error->description);
}

void TWLMapsFileManager::log(std::string_view line) const { platform_.systemLog().write(line); }

}  // namespace wayloom
