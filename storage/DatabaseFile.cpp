#include "storage/DatabaseFile.hpp"

#include <map>

#include "wayloom/platform/Platform.hpp"

namespace wayloom::storage {
namespace {

struct DatabaseFiles {
  std::mutex mutex;
  std::map<std::string, std::weak_ptr<DatabaseFile>> files;
};

}  // namespace

std::shared_ptr<DatabaseFile> DatabaseFile::at(platform::Platform& platform, const std::string& path) {
  auto made = std::make_shared<DatabaseFile>();
  if (path.empty()) return made;
  auto& all = platform.shared<DatabaseFiles>([] { return std::make_unique<DatabaseFiles>(); });
  const std::lock_guard lock(all.mutex);
  auto& entry = all.files[path];
  if (auto known = entry.lock()) return known;
  entry = made;
  return made;
}

// Most of it while others go on writing. They keep adding to the log, so the rest is moved while they wait.
void DatabaseFile::checkpoint(DatabaseConnection& connection) {
  const std::lock_guard only(checkpointer);
  if (connection.checkpoint()) return;
  const std::lock_guard pause(writer);
  connection.checkpoint();
}

}  // namespace wayloom::storage
