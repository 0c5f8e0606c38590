#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>

#include "wayloom/storage/DatabaseConnection.hpp"

namespace wayloom {

namespace platform {
class Platform;
}

namespace storage {

// What all queues of one Platform on one file share.
struct DatabaseFile {
  // Shared while a connection is used. Alone while one is opened: a file that somebody removed is begun anew, and until
  // that is done no other connection may touch the old one's log.
  std::shared_mutex gate;
  // Held by whoever writes. It hands the turn on at once, where SQLite's own waiting sleeps and gives up.
  std::mutex writer;
  // Held by whoever moves the log into the file; before `writer`.
  std::mutex checkpointer;
  // Grows when the file is begun anew; under `gate`.
  std::uint64_t generation = 0;

  // A path of "" is nobody else's.
  static std::shared_ptr<DatabaseFile> at(platform::Platform& platform, const std::string& path);

  // Moves the whole log into the file, so that the next writer begins it anew; less when a reader is in the way.
  void checkpoint(DatabaseConnection& connection);
};

}  // namespace storage
}  // namespace wayloom
