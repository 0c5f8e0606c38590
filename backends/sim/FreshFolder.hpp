#pragma once

#include <string>

namespace wayloom::sim {

// A new folder of its own among the system's temporary ones, which goes with this object.
class FreshFolder {
 public:
  FreshFolder();  // std::system_error when none can be made
  ~FreshFolder();
  FreshFolder(const FreshFolder&) = delete;
  FreshFolder& operator=(const FreshFolder&) = delete;

  const std::string& path() const { return path_; }  // absolute

 private:
  std::string path_;
};

}  // namespace wayloom::sim
