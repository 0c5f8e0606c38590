#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "backends/sim/FreshFolder.hpp"

namespace wayloom::tools {

// The folder that an option names or, where it names none, a fresh one that goes with this object.
class DocumentsFolder {
 public:
  explicit DocumentsFolder(const std::string& named) {
    path_ = named.empty() ? fresh_.emplace().path() : std::filesystem::absolute(named).string();
  }

  const std::string& path() const { return path_; }  // absolute

 private:
  std::optional<sim::FreshFolder> fresh_;
  std::string path_;
};

}  // namespace wayloom::tools
