#include "wayloom/posix/LibraryResources.hpp"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace wayloom::posix {
namespace {

namespace fs = std::filesystem;

constexpr const char* kVariable = "WAYLOOM_RESOURCES";
constexpr const char* kBelowPrefix = "share/wayloom/resources";

bool isDirectory(const fs::path& path) {
  std::error_code failure;
  return fs::is_directory(path, failure);
}

fs::path directoryOfProgram() {
  std::error_code failure;
  return fs::read_symlink("/proc/self/exe", failure).parent_path();
}

}  // namespace

std::string libraryResources(const std::string& given) {
  if (!given.empty()) return given;
  const char* variable = std::getenv(kVariable);  // NOLINT(concurrency-mt-unsafe): nobody sets it meanwhile
  if (variable != nullptr && *variable != '\0') return variable;
  if (const auto program = directoryOfProgram(); !program.empty()) {
    for (const auto& prefix : {program, program.parent_path()})
      if (const auto path = prefix / kBelowPrefix; isDirectory(path)) return path.string();
  }
  return isDirectory(WAYLOOM_INSTALLED_RESOURCES) ? WAYLOOM_INSTALLED_RESOURCES : "";
}

}  // namespace wayloom::posix
