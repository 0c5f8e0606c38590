// The file operations that the file manager, the user defaults and the device identity share. Any thread.
#pragma once

#include <cerrno>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "wayloom/platform/Error.hpp"

namespace wayloom::posix {

// Names that begin so are files whose writing has not ended, or was cut off.
inline constexpr std::string_view kUnfinishedPrefix = ".unfinished-";

// Domain "POSIX", code `number`, described as "<what> <path>: <the system's text for number>".
platform::Error systemError(int number, std::string_view what, std::string_view path);

// Whether the text can be handed to the system as it is: absolute, and without a zero byte that would cut it off.
bool isUsablePath(std::string_view path);

// Whether one of the path's components is "..".
bool climbs(std::string_view path);

// Normalised, without a trailing slash; a relative path counts from the working directory.
std::string absolutePath(const std::string& path);

// What reading a file gave: its bytes, or the system's number of the error that kept it from being read.
struct FileContent {
  std::optional<std::string> bytes;
  int error = 0;

  // There is none: an error that another attempt doesn't mend, and that leaves nothing to lose.
  bool isMissing() const { return error == ENOENT || error == ENOTDIR; }
};

// Reads a regular file of at most `limit` bytes: a longer one is EFBIG, a directory EISDIR, anything else EINVAL.
FileContent readContent(const std::string& path, std::size_t limit);

// The same for those to whom one failure is like another.
std::optional<std::string> readRegularFile(const std::string& path, std::size_t limit);

std::optional<platform::Error> writeWholeFile(const std::string& path, std::string_view bytes);

// Whether a file that is at the destination already gives way.
enum class Existing { isReplaced, isKept };

// Who may read what is made, as far as the process's mask lets them.
enum class Readers { all, ownerOnly };

// Writes a file beside `path` to its end and onto the disk, then gives it that name. A kept file is error EEXIST.
std::optional<platform::Error> writeFileAsAWhole(const std::string& path, std::string_view bytes, Existing existing,
                                                 Readers readers = Readers::all);

// Both fail with EEXIST when `to` exists. The copy has the original's modification date.
std::optional<platform::Error> copyRegularFile(const std::string& from, const std::string& to);
std::optional<platform::Error> moveRegularFile(const std::string& from, const std::string& to);

// Removes what writes that were cut off have left in the directory. Writes under way in any process are left alone.
void removeUnfinishedFiles(const std::string& directory);

// Makes a file, empty, when there is none, and takes from everybody but its owner what they may do with it.
std::optional<platform::Error> restrictFileToOwner(const std::string& path);

// The directory and those above it; error when one can't be made. `readers` is about the directory alone, and not when
// it was there.
std::optional<platform::Error> makeDirectories(const std::string& path, Readers readers = Readers::all);

// What is before the path's last "/"; the root of a name in it.
std::string directoryOf(const std::string& path);

}  // namespace wayloom::posix
