#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "wayloom/platform/Error.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::platform {

// Files and the Documents directory. Paths are absolute UTF-8 texts with "/" between components. Operations return an
// error, or none when they succeeded; those that write may refuse a path outside the Documents directory. Thread-safe.
class FileManager {
 public:
  virtual ~FileManager() = default;

  // The directory that belongs to the host application; exists. Without a trailing slash.
  virtual std::string documentsDirectory() const = 0;

  virtual bool fileExists(const std::string& path) const = 0;
  virtual std::optional<std::string> readFile(const std::string& path) const = 0;  // nothing when unreadable
  virtual std::optional<Error> writeFile(const std::string& path, std::string_view bytes) = 0;
  // Temporary file in the same directory, then rename: readers see the old or the new file, never a part.
  virtual std::optional<Error> writeFileAtomically(const std::string& path, std::string_view bytes) = 0;
  virtual std::optional<Error> removeFile(const std::string& path) = 0;  // a directory: with all that it holds
  // Fails when `to` exists. The copy keeps the modification date; it is whole on the disk before it has its name.
  virtual std::optional<Error> copyFile(const std::string& from, const std::string& to) = 0;
  virtual std::optional<Error> moveFile(const std::string& from, const std::string& to) = 0;  // fails when `to` exists
  // Makes the file, empty, when it is missing. From then on nobody but its owner may read or write it, where the system
  // has owners.
  virtual std::optional<Error> restrictToOwner(const std::string&) { return std::nullopt; }
  virtual std::optional<Error> createDirectory(const std::string& path) = 0;  // parents are not made
  virtual std::optional<std::vector<std::string>> listDirectory(const std::string& path) const = 0;  // sorted names
  virtual std::optional<CalendarTime> modificationDate(const std::string& path) const = 0;
  virtual std::optional<Error> setModificationDate(const std::string& path, CalendarTime date) = 0;
};

}  // namespace wayloom::platform
