#include "wayloom/posix/DirectoryBundle.hpp"

#include <filesystem>
#include <sys/stat.h>

#include "backends/posix/PosixFiles.hpp"

namespace wayloom::posix {
namespace {

platform::Json readInformation(const std::string& bundle, const platform::PropertyListReader& propertyLists) {
  if (bundle.empty()) return platform::Json::object();
  return propertyLists.readDictionary(bundle + "/Info.plist").value_or(platform::Json::object());
}

}  // namespace

DirectoryBundle::DirectoryBundle(const std::string& path, const platform::PropertyListReader& propertyLists)
    : path_(path.empty() ? path : absolutePath(path)), infoDictionary_(readInformation(path_, propertyLists)) {}

std::optional<std::string> DirectoryBundle::pathForResource(std::string_view name, std::string_view type) const {
  if (path_.empty()) return std::nullopt;
  auto path = path_ + '/' + std::string(name);
  if (!type.empty()) path.append(".").append(type);
  if (name.empty() || !isUsablePath(path) || climbs(path)) return std::nullopt;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return path;
}

}  // namespace wayloom::posix
