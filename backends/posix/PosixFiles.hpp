// The file operations that the file manager, the user defaults and the device identity share. Any thread.
#pragma once

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

// The content of a regular file; nothing when it can't be read, is something else or is longer than `limit` bytes.
std::optional<std::string> readRegularFile(const std::string& path, std::size_t limit);

std::optional<platform::Error> writeWholeFile(const std::string& path, std::string_view bytes);

// Whether a file that is at the destination already gives way.
enum class Existing { isReplaced, isKept };

// Writes a file beside `path` to its end and onto the disk, then gives it that name. A kept file is error EEXIST.
std::optional<platform::Error> writeFileAsAWhole(const std::string& path, std::string_view bytes, Existing existing);

// Both fail with EEXIST when `to` exists. The copy has the original's modification date.
std::optional<platform::Error> copyRegularFile(const std::string& from, const std::string& to);
std::optional<platform::Error> moveRegularFile(const std::string& from, const std::string& to);

// The directory and those above it; error when one can't be made.
std::optional<platform::Error> makeDirectories(const std::string& path);

}  // namespace wayloom::posix
