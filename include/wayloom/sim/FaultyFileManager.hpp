#pragma once

#include <cstdint>
#include <memory>

#include "wayloom/platform/FileManager.hpp"
#include "wayloom/sim/SeededRandom.hpp"

namespace wayloom::sim {

// How often what goes wrong, as shares of the operations, 0 to 1.
struct FileFaults {
  double failRead = 0.0;     // nothing comes back
  double garbageRead = 0.0;  // some bytes are others
  double failWrite = 0.0;    // an error, and the file is as it was; copies, moves, removals and new directories too
  double cutWrite = 0.0;     // an error, and a file that is not written atomically ends early
};

// A disk that goes wrong at random, the same way for the same seed. Decorates another file manager, which it shares;
// for one thread.
class FaultyFileManager : public platform::FileManager {
 public:
  FaultyFileManager(std::shared_ptr<platform::FileManager> files, FileFaults faults, std::uint64_t seed);

  std::string documentsDirectory() const override { return files_->documentsDirectory(); }
  bool fileExists(const std::string& path) const override { return files_->fileExists(path); }
  std::optional<std::string> readFile(const std::string& path) const override;
  std::optional<platform::Error> writeFile(const std::string& path, std::string_view bytes) override;
  std::optional<platform::Error> writeFileAtomically(const std::string& path, std::string_view bytes) override;
  std::optional<platform::Error> removeFile(const std::string& path) override;
  std::optional<platform::Error> copyFile(const std::string& from, const std::string& to) override;
  std::optional<platform::Error> moveFile(const std::string& from, const std::string& to) override;
  std::optional<platform::Error> restrictToOwner(const std::string& path) override {
    return files_->restrictToOwner(path);
  }
  std::optional<platform::Error> createDirectory(const std::string& path) override;
  std::optional<std::vector<std::string>> listDirectory(const std::string& path) const override {
    return files_->listDirectory(path);
  }
  std::optional<platform::CalendarTime> modificationDate(const std::string& path) const override {
    return files_->modificationDate(path);
  }
  std::optional<platform::Error> setModificationDate(const std::string& path, platform::CalendarTime date) override {
    return files_->setModificationDate(path, date);
  }

  void setFaults(const FileFaults& faults) { faults_ = faults; }

 private:
  // An error on the path, or none, as the dice fall.
  std::optional<platform::Error> drawFailure(double share, const std::string& path) const;

  std::shared_ptr<platform::FileManager> files_;
  FileFaults faults_;
  mutable SeededRandom random_;
};

}  // namespace wayloom::sim
