#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace wayloom::tools {

// Makes paths below some folders relative to them, wherever in a text they are, so that what is printed does not depend
// on where the folders are.
class RelativePaths {
 public:
  // Absolute paths; empty ones and the root are left out. Of nested folders the innermost counts.
  explicit RelativePaths(std::vector<std::string> folders);

  std::string shorten(std::string_view text) const;

 private:
  // Length of the folder's path that begins there, with its slash; 0 when none does.
  std::size_t folderLength(std::string_view text, std::size_t at) const;

  std::vector<std::string> folders_;  // longest first
};

}  // namespace wayloom::tools
