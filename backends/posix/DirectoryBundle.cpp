#include "wayloom/posix/DirectoryBundle.hpp"

#include <filesystem>
#include <sys/stat.h>

#include "backends/posix/PosixFiles.hpp"

namespace wayloom::posix {

DirectoryBundle::DirectoryBundle(const std::string& path, const platform::PropertyListReader& propertyLists)
    : path_(absolutePath(path)),
      infoDictionary_(propertyLists.readDictionary(path_ + "/Info.plist").value_or(platform::Json::object())) {}

std::optional<std::string> DirectoryBundle::pathForResource(std::string_view name, std::string_view type) const {
  auto path = path_ + '/' + std::string(name);
  if (!type.empty()) path.append(".").append(type);
  if (name.empty() || !isUsablePath(path) || climbs(path)) return std::nullopt;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return path;
}

}  // namespace wayloom::posix
