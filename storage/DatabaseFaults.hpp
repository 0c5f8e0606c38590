#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "wayloom/platform/Time.hpp"
#include "wayloom/storage/DatabaseConnection.hpp"

#include "storage/RetryPause.hpp"

namespace wayloom {

namespace platform {
class Platform;
}

namespace storage {

// Keeps count of one file's faults: says in the system log when it begins to fail, for each reason once, and when it
// works again; decides how long to wait before it is opened again. A fault met while writing lasts until something has
// been written: a full disk can still be read. One met while reading lasts until anything succeeds.
class DatabaseFaults {
 public:
  // What SQLite's error says about the file.
  enum class Reach {
    statement,   // one statement can't be executed, for what it says or for the part of the file that it needs
    passing,     // the file can be expected to work as soon as the reason has gone: locked, disk full
    connection,  // the file has to be opened again
  };
  static Reach reachOf(const DatabaseError& error);

  DatabaseFaults(platform::Platform& platform, std::string name);

  void failed(const DatabaseError& error, bool wasWriting);
  // The schema could not be put in place, be it that the file could not even be opened.
  void setUpFailed(const DatabaseError& error);
  void lostChange() { ++lost_; }
  void succeeded(bool hasWritten);

  // Of a connection that could not be opened: whether to try again by now.
  bool mayOpen() const;
  void couldNotOpen();
  // For a lock that another process holds.
  platform::Duration patience() const;

 private:
  static std::uint32_t bitOf(const DatabaseError& error);
  void sayOnce(const DatabaseError& error, std::uint32_t& told, const std::string& line);

  platform::Platform& platform_;
  const std::string name_;
  bool failing_ = false;
  bool failsToWrite_ = false;
  std::uint32_t told_ = 0;             // a bit for each primary result code
  std::uint32_t toldOfStatement_ = 0;  // the same, of single statements
  std::optional<platform::MonotonicTime> toldOfStatementAt_;
  std::uint64_t lost_ = 0;
  RetryPause pause_;
};

}  // namespace storage
}  // namespace wayloom
