#pragma once

#include <filesystem>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string>

namespace wayloom::posix {

// A fresh directory that goes with the object.
class TemporaryDirectory {
 public:
  TemporaryDirectory() : path_(testing::TempDir() + "/wayloom-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) ADD_FAILURE() << "no temporary directory";
    path_ = std::filesystem::canonical(path_).string();
  }
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace wayloom::posix
