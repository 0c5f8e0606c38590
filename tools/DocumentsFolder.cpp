#include "tools/DocumentsFolder.hpp"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace wayloom::tools {

DocumentsFolder::DocumentsFolder(const std::string& named) : isFresh_(named.empty()) {
  path_ = isFresh_ ? std::filesystem::temp_directory_path() / "wayloom-XXXXXX" : std::filesystem::absolute(named);
  if (isFresh_ && ::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary folder can be made");
}

DocumentsFolder::~DocumentsFolder() {
  std::error_code ignored;
  if (isFresh_) std::filesystem::remove_all(path_, ignored);
}

}  // namespace wayloom::tools
