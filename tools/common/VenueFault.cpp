#include "tools/common/VenueFault.hpp"

#include <filesystem>
#include <system_error>

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

}  // namespace wayloom::tools
