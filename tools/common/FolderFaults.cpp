#include "tools/common/FolderFaults.hpp"

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <unistd.h>

#include "wayloom/posix/PlistReader.hpp"

namespace wayloom::tools {

std::string propertyListFault(const std::string& venue) {
  for (const char* name : {"Geofold.plist", "Wayloom.plist", "Info.plist"}) {
    const auto path = venue + "/bundle/" + name;
    std::error_code failure;
    if (!std::filesystem::exists(path, failure)) return path + ": there is no such file";
    if (!posix::PlistReader().readDictionary(path)) return path + ": can't be read as a property list";
  }
  return {};
}

std::string documentsFault(const std::string& folder) {
  std::error_code failure;
  std::filesystem::create_directories(folder, failure);
  if (!failure && ::access(folder.c_str(), W_OK | X_OK) != 0) failure = {errno, std::generic_category()};
  return failure ? folder + ": " + failure.message() : std::string();
}

}  // namespace wayloom::tools
