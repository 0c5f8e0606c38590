#pragma once

#include <memory>
#include <string>

#include "wayloom/platform/Time.hpp"
#include "wayloom/posix/PosixFileManager.hpp"

namespace wayloom::sim {

// Files of the real system, dated in the world's own time.
class DatedFileManager : public posix::PosixFileManager {
 public:
  DatedFileManager(const std::string& documents, std::shared_ptr<const platform::CalendarClock> clock)
      : PosixFileManager(documents), clock_(std::move(clock)) {}

  std::optional<platform::Error> writeFile(const std::string& path, std::string_view bytes) override {
    auto error = PosixFileManager::writeFile(path, bytes);
    return error ? error : setModificationDate(path, clock_->now());
  }
  std::optional<platform::Error> writeFileAtomically(const std::string& path, std::string_view bytes) override {
    auto error = PosixFileManager::writeFileAtomically(path, bytes);
    return error ? error : setModificationDate(path, clock_->now());
  }

 private:
  std::shared_ptr<const platform::CalendarClock> clock_;
};

}  // namespace wayloom::sim
