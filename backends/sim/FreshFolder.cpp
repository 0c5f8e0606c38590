#include "backends/sim/FreshFolder.hpp"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace wayloom::sim {

FreshFolder::FreshFolder() : path_((std::filesystem::temp_directory_path() / "wayloom-XXXXXX").string()) {
  if (::mkdtemp(path_.data()) == nullptr)
    throw std::system_error(errno, std::generic_category(), "cannot create directory " + path_);
}

FreshFolder::~FreshFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace wayloom::sim
