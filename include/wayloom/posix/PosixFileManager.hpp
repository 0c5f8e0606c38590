#pragma once

#include <string>

#include "wayloom/platform/FileManager.hpp"

namespace wayloom::posix {

// Files of the system the process runs on. Reads anywhere; writes, copies, moves and makes directories inside the
// Documents directory only, so that no name out of a document leads elsewhere: another path is refused with EACCES
// before anything is touched, and so is one with a ".." in it. Errors have domain "POSIX" and the error number as code.
class PosixFileManager : public platform::FileManager {
 public:
  // Makes the directory, for its owner alone, and those above it when they are missing; a failure shows as errors of
  // the operations. Removes there, and in the directories in it, what writes of a process that was stopped have left. A
  // relative path counts from the working directory of this moment.
  explicit PosixFileManager(const std::string& documentsDirectory);

  std::string documentsDirectory() const override { return documents_; }
  bool fileExists(const std::string& path) const override;
  std::optional<std::string> readFile(const std::string& path) const override;  // up to 1 GiB
  std::optional<platform::Error> writeFile(const std::string& path, std::string_view bytes) override;
  std::optional<platform::Error> writeFileAtomically(const std::string& path, std::string_view bytes) override;
  std::optional<platform::Error> removeFile(const std::string& path) override;  // anywhere; directories as writes
  std::optional<platform::Error> copyFile(const std::string& from, const std::string& to) override;
  std::optional<platform::Error> moveFile(const std::string& from, const std::string& to) override;
  std::optional<platform::Error> restrictToOwner(const std::string& path) override;
  std::optional<platform::Error> createDirectory(const std::string& path) override;
  // Without temporary files of writes that have not ended.
  std::optional<std::vector<std::string>> listDirectory(const std::string& path) const override;
  std::optional<platform::CalendarTime> modificationDate(const std::string& path) const override;
  std::optional<platform::Error> setModificationDate(const std::string& path, platform::CalendarTime date) override;

 private:
  std::optional<platform::Error> refusal(const std::string& path) const;

  std::string documents_;
};

}  // namespace wayloom::posix
