#pragma once

#include <string>

namespace wayloom::tools {

// The folder that an option names or, where it names none, a fresh one that goes with this object.
class DocumentsFolder {
 public:
  explicit DocumentsFolder(const std::string& named);  // std::runtime_error when no folder can be made
  ~DocumentsFolder();
  DocumentsFolder(const DocumentsFolder&) = delete;
  DocumentsFolder& operator=(const DocumentsFolder&) = delete;

  const std::string& path() const { return path_; }  // absolute

 private:
  std::string path_;
  bool isFresh_;
};

}  // namespace wayloom::tools
