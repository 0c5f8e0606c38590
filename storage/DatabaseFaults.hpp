#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "wayloom/platform/Time.hpp"
#include "wayloom/storage/DatabaseConnection.hpp"

namespace wayloom {

namespace platform {
class Platform;
}

namespace storage {

// Keeps count of one file's faults: says in the system log when it begins to fail, for each reason once, and when it
// works again; decides how long to wait before it is tried again. A fault met while writing lasts until something has
// been written: a full disk can still be read. One met while reading lasts until anything succeeds.
class DatabaseFaults {
 public:
  DatabaseFaults(platform::Platform& platform, std::string name);

  // Whether the file can be expected to work as soon as the reason has gone, without being opened again.
  static bool passes(const DatabaseError& error);

  enum class During { reading, writing, setUp };
  void failed(const DatabaseError& error, During during);
  void lostChange() { ++lost_; }
  void succeeded(bool hasWritten);

  // Of a connection that could not be opened: whether to try again by now.
  bool mayOpen() const;
  void couldNotOpen();
  // For a lock that another process holds.
  platform::Duration patience() const;

 private:
  platform::Platform& platform_;
  const std::string name_;
  bool failing_ = false;
  bool failsToWrite_ = false;
  std::uint32_t told_ = 0;  // a bit for each primary result code
  std::uint64_t lost_ = 0;
  platform::Duration wait_{};
  std::optional<platform::MonotonicTime> notBefore_;
};

}  // namespace storage
}  // namespace wayloom
