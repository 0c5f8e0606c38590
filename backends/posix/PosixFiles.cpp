#include "backends/posix/PosixFiles.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "backends/posix/FileDescriptor.hpp"

namespace wayloom::posix {
namespace {

using platform::Error;

// Less what the process's mask takes away.
constexpr mode_t kFileMode = 0666;
constexpr mode_t kOwnersFileMode = 0600;
constexpr mode_t kOwnersDirectoryMode = 0700;
constexpr std::size_t kCopyBufferSize = 64U << 10U;

template <class Call>
auto retried(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

FileDescriptor openFile(const std::string& path, int flags, mode_t mode = kFileMode) {
  return FileDescriptor(retried([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const auto written = retried([&] { return ::write(descriptor, bytes.data(), bytes.size()); });
    if (written < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// A new file in the directory of `path`, under a name of its own. Removed again unless it was given its final name. Its
// lock tells those who look for remains that somebody is at work on it.
class UnfinishedFile {
 public:
  explicit UnfinishedFile(const std::string& path, mode_t mode = kFileMode) {
    static std::atomic<unsigned> counter{0};
    const auto directory = path.substr(0, path.rfind('/') + 1);
    do {
      name_ = directory + std::string(kUnfinishedPrefix) + std::to_string(::getpid()) + '-' + std::to_string(++counter);
      descriptor_ = openFile(name_, O_WRONLY | O_CREAT | O_EXCL, mode);
    } while (descriptor_ ? wasRemovedUnlocked() : errno == EEXIST);
  }
  ~UnfinishedFile() {
    if (descriptor_ && !name_.empty()) ::unlink(name_.c_str());
  }
  UnfinishedFile(const UnfinishedFile&) = delete;
  UnfinishedFile& operator=(const UnfinishedFile&) = delete;

  explicit operator bool() const { return static_cast<bool>(descriptor_); }
  int descriptor() const { return descriptor_.get(); }
  const std::string& name() const { return name_; }
  void finished() { name_.clear(); }

 private:
  // Taken for remains in the moment before it was locked.
  bool wasRemovedUnlocked() {
    struct stat status {};
    retried([&] { return ::flock(descriptor_.get(), LOCK_EX); });
    return ::fstat(descriptor_.get(), &status) == 0 && status.st_nlink == 0;
  }

  std::string name_;
  FileDescriptor descriptor_;
};

// rename(2) that fails with EEXIST rather than replaces; 0 or an error number.
int renameToNew(const std::string& from, const std::string& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // A file system that can't: a hard link refuses just as well, and goes back to one name afterwards.
  if (::link(from.c_str(), to.c_str()) != 0) return errno;
  ::unlink(from.c_str());
  return 0;
}

// Gives the file its final name; 0 or an error number.
int publish(UnfinishedFile& file, const std::string& path, Existing existing) {
  const int failure = existing == Existing::isKept                          ? renameToNew(file.name(), path)
                      : std::rename(file.name().c_str(), path.c_str()) == 0 ? 0
                                                                            : errno;
  if (failure == 0) file.finished();
  return failure;
}

// 0 or an error number.
int copyContent(int source, int target) {
  std::array<char, kCopyBufferSize> buffer;
  for (;;) {
    const auto count = retried([&] { return ::read(source, buffer.data(), buffer.size()); });
    if (count < 0) return errno;
    if (count == 0) break;
    if (!writeAll(target, {buffer.data(), static_cast<std::size_t>(count)})) return errno;
  }
  struct stat status {};
  if (::fstat(source, &status) != 0) return errno;
  const std::array<timespec, 2> times{status.st_atim, status.st_mtim};
  return ::futimens(target, times.data()) == 0 ? 0 : errno;
}

// The file, open for reading, when it is a regular one; waits for no writer of a pipe.
FileDescriptor openRegularFile(const std::string& path, struct stat& status) {
  auto file = openFile(path, O_RDONLY | O_NONBLOCK);
  if (!file || ::fstat(file.get(), &status) != 0) return {};
  if (S_ISREG(status.st_mode)) return file;
  errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  return {};
}

}  // namespace

Error systemError(int number, std::string_view what, std::string_view path) {
  std::string text(what);
  text.append(" ").append(path).append(": ").append(std::generic_category().message(number));
  return {"POSIX", number, std::move(text)};
}

bool isUsablePath(std::string_view path) { return path.starts_with('/') && path.find('\0') == path.npos; }

std::string absolutePath(const std::string& path) {
  auto absolute = std::filesystem::absolute(path).lexically_normal().string();
  while (absolute.size() > 1 && absolute.ends_with('/')) absolute.pop_back();
  return absolute;
}

bool climbs(std::string_view path) {
  for (std::size_t begin = 0; begin <= path.size();) {
    const auto end = std::min(path.find('/', begin), path.size());
    if (path.substr(begin, end - begin) == "..") return true;
    begin = end + 1;
  }
  return false;
}

FileContent readContent(const std::string& path, std::size_t limit) {
  if (!isUsablePath(path)) return {std::nullopt, EINVAL};
  struct stat status {};
  const auto file = openRegularFile(path, status);
  if (!file) return {std::nullopt, errno};
  if (static_cast<std::size_t>(status.st_size) > limit) return {std::nullopt, EFBIG};
  std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t length = 0;
  while (length < bytes.size()) {
    const auto count = retried([&] { return ::read(file.get(), bytes.data() + length, bytes.size() - length); });
    if (count < 0) return {std::nullopt, errno};
    if (count == 0) break;  // somebody shortens it meanwhile
    length += static_cast<std::size_t>(count);
  }
  bytes.resize(length);
  return {std::move(bytes), 0};
}

std::optional<std::string> readRegularFile(const std::string& path, std::size_t limit) {
  return readContent(path, limit).bytes;
}

std::optional<Error> writeWholeFile(const std::string& path, std::string_view bytes) {
  const auto file = openFile(path, O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK);
  if (!file || !writeAll(file.get(), bytes)) return systemError(errno, "cannot write", path);
  return std::nullopt;
}

std::optional<Error> writeFileAsAWhole(const std::string& path, std::string_view bytes, Existing existing,
                                       Readers readers) {
  UnfinishedFile file(path, readers == Readers::all ? kFileMode : kOwnersFileMode);
  // Without the sync a power cut could leave the name on an empty file.
  if (!file || !writeAll(file.descriptor(), bytes) || ::fdatasync(file.descriptor()) != 0)
    return systemError(errno, "cannot write", path);
  if (const int failure = publish(file, path, existing)) return systemError(failure, "cannot write", path);
  return std::nullopt;
}

std::optional<Error> copyRegularFile(const std::string& from, const std::string& to) {
  struct stat status {};
  const auto source = openRegularFile(from, status);
  if (!source) return systemError(errno, "cannot copy", from);
  UnfinishedFile file(to);
  if (!file) return systemError(errno, "cannot copy to", to);
  if (const int failure = copyContent(source.get(), file.descriptor()))
    return systemError(failure, "cannot copy", from);
  if (::fdatasync(file.descriptor()) != 0) return systemError(errno, "cannot copy to", to);
  if (const int failure = publish(file, to, Existing::isKept)) return systemError(failure, "cannot copy to", to);
  return std::nullopt;
}

std::optional<Error> moveRegularFile(const std::string& from, const std::string& to) {
  const int failure = renameToNew(from, to);
  if (failure == 0) return std::nullopt;
  if (failure != EXDEV)
    return systemError(failure, failure == EEXIST ? "cannot move to" : "cannot move", failure == EEXIST ? to : from);
  if (auto error = copyRegularFile(from, to)) return error;
  if (::unlink(from.c_str()) != 0) return systemError(errno, "cannot remove", from);
  return std::nullopt;
}

void removeUnfinishedFiles(const std::string& directory) {
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(directory, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    if (!entry->path().filename().string().starts_with(kUnfinishedPrefix)) continue;
    const auto file = openFile(entry->path().string(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (file && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) ::unlink(entry->path().c_str());
  }
}

std::optional<Error> restrictFileToOwner(const std::string& path) {
  const FileDescriptor made = openFile(path, O_WRONLY | O_CREAT | O_EXCL, kOwnersFileMode);
  if (made) return std::nullopt;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return systemError(errno, "cannot restrict", path);
  const mode_t ofOthers = status.st_mode & (S_IRWXG | S_IRWXO);
  if (S_ISREG(status.st_mode) && ofOthers != 0 && ::chmod(path.c_str(), (status.st_mode & 07777U) ^ ofOthers) != 0)
    return systemError(errno, "cannot restrict", path);
  return std::nullopt;
}

std::optional<Error> makeDirectories(const std::string& path, Readers readers) {
  const bool isOwners = readers == Readers::ownerOnly;
  std::error_code failure;
  std::filesystem::create_directories(isOwners ? directoryOf(path) : path, failure);
  if (!failure && isOwners && ::mkdir(path.c_str(), kOwnersDirectoryMode) != 0 &&
      !(errno == EEXIST && std::filesystem::is_directory(path, failure)) && !failure)
    failure.assign(errno, std::generic_category());
  if (failure) return systemError(failure.value(), "cannot create directory", path);
  return std::nullopt;
}

std::string directoryOf(const std::string& path) { return path.substr(0, std::max<std::size_t>(path.rfind('/'), 1)); }

}  // namespace wayloom::posix
