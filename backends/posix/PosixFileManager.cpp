#include "wayloom/posix/PosixFileManager.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "backends/posix/PosixFiles.hpp"
#include "platform/HttpDate.hpp"

namespace wayloom::posix {
namespace {

using platform::CalendarTime;
using platform::Error;

constexpr std::size_t kLargestFile = 1U << 30U;
constexpr mode_t kDirectoryMode = 0777;

bool statusOf(const std::string& path, struct stat& status) {
  return isUsablePath(path) && ::stat(path.c_str(), &status) == 0;
}

}  // namespace

PosixFileManager::PosixFileManager(const std::string& documentsDirectory)
    : documents_(absolutePath(documentsDirectory)) {
  makeDirectories(documents_, Readers::ownerOnly);
  removeUnfinishedFiles(documents_);
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(documents_, failure), end; !failure && entry != end;
       entry.increment(failure))
    if (entry->is_directory(failure)) removeUnfinishedFiles(entry->path().string());
}

std::optional<Error> PosixFileManager::refusal(const std::string& path) const {
  const bool isInside = path.size() > documents_.size() + 1 && path.starts_with(documents_) &&
                        path[documents_.size()] == '/' && isUsablePath(path) && !climbs(path);
  if (isInside) return std::nullopt;
  return systemError(EACCES, "not inside the Documents directory:", path);
}

bool PosixFileManager::fileExists(const std::string& path) const {
  struct stat status {};
  return statusOf(path, status);
}

std::optional<std::string> PosixFileManager::readFile(const std::string& path) const {
  return readRegularFile(path, kLargestFile);
}

std::optional<Error> PosixFileManager::writeFile(const std::string& path, std::string_view bytes) {
  if (auto error = refusal(path)) return error;
  return writeWholeFile(path, bytes);
}

std::optional<Error> PosixFileManager::writeFileAtomically(const std::string& path, std::string_view bytes) {
  if (auto error = refusal(path)) return error;
  return writeFileAsAWhole(path, bytes, Existing::isReplaced);
}

std::optional<Error> PosixFileManager::removeFile(const std::string& path) {
  if (!isUsablePath(path) || climbs(path)) return systemError(EINVAL, "cannot remove", path);
  if (::unlink(path.c_str()) == 0) return std::nullopt;
  if (errno != EISDIR) return systemError(errno, "cannot remove", path);
  if (auto error = refusal(path)) return error;
  std::error_code failure;
  std::filesystem::remove_all(path, failure);
  if (failure) return systemError(failure.value(), "cannot remove", path);
  return std::nullopt;
}

std::optional<Error> PosixFileManager::copyFile(const std::string& from, const std::string& to) {
  if (!isUsablePath(from)) return systemError(EINVAL, "cannot copy", from);
  if (auto error = refusal(to)) return error;
  return copyRegularFile(from, to);
}

std::optional<Error> PosixFileManager::moveFile(const std::string& from, const std::string& to) {
  if (!isUsablePath(from)) return systemError(EINVAL, "cannot move", from);
  if (auto error = refusal(to)) return error;
  return moveRegularFile(from, to);
}

std::optional<Error> PosixFileManager::restrictToOwner(const std::string& path) {
  if (auto error = refusal(path)) return error;
  return restrictFileToOwner(path);
}

std::optional<Error> PosixFileManager::createDirectory(const std::string& path) {
  if (auto error = refusal(path)) return error;
  if (::mkdir(path.c_str(), kDirectoryMode) != 0) return systemError(errno, "cannot create directory", path);
  return std::nullopt;
}

std::optional<std::vector<std::string>> PosixFileManager::listDirectory(const std::string& path) const {
  if (!isUsablePath(path)) return std::nullopt;
  std::error_code failure;
  std::vector<std::string> names;
  for (std::filesystem::directory_iterator entry(path, failure), end; !failure && entry != end;
       entry.increment(failure))
    if (auto name = entry->path().filename().string(); !name.starts_with(kUnfinishedPrefix))
      names.push_back(std::move(name));
  if (failure) return std::nullopt;
  std::sort(names.begin(), names.end());
  return names;
}

std::optional<CalendarTime> PosixFileManager::modificationDate(const std::string& path) const {
  struct stat status {};
  if (!statusOf(path, status)) return std::nullopt;
  return platform::calendarTimeFrom(status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
}

std::optional<Error> PosixFileManager::setModificationDate(const std::string& path, CalendarTime date) {
  if (auto error = refusal(path)) return error;
  const auto seconds = std::chrono::floor<std::chrono::seconds>(date.time_since_epoch());
  const auto nanoseconds = date.time_since_epoch() - seconds;
  const std::array<timespec, 2> times{timespec{0, UTIME_OMIT},
                                      timespec{seconds.count(), static_cast<long>(nanoseconds.count())}};
  if (::utimensat(AT_FDCWD, path.c_str(), times.data(), 0) != 0)
    return systemError(errno, "cannot set the date of", path);
  return std::nullopt;
}

}  // namespace wayloom::posix
