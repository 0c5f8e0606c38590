#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "wayloom/platform/Json.hpp"
#include "wayloom/platform/LogSink.hpp"
#include "wayloom/platform/UserDefaults.hpp"

namespace wayloom::posix {

// User defaults in one JSON file, an object, that its owner alone may read. Values are kept in memory and written by
// synchronize(), atomically, and at the latest by the destructor. One process a file: of two the last writer wins.
//
// A file that was read and holds no JSON object, or more than 16 MiB, is told in the log and set aside as
// "<path>.corrupt"; the defaults then start empty. One that can't be read (no descriptor left, no permission, a fault
// of the disk) stays as it is: every later call tries again, values set meanwhile go on top of those in the file, and
// until then synchronize() fails.
class FileUserDefaults : public platform::UserDefaults {
 public:
  // The file's directory is made with the first write, for its owner alone. `log` hears of what fails.
  FileUserDefaults(const std::string& path, std::shared_ptr<platform::LogSink> log);
  ~FileUserDefaults() override;

  std::int64_t integerForKey(std::string_view key) const override;  // of a text its leading integer
  void setInteger(std::string_view key, std::int64_t value) override;
  std::optional<std::string> stringForKey(std::string_view key) const override;  // of a number its decimal text
  void setString(std::string_view key, std::string_view value) override;
  bool synchronize() override;

 private:
  // All with the lock, or in the constructor.
  int load() const;
  const platform::Json* find(std::string_view key) const;
  void set(std::string_view key, platform::Json value);  // takes the lock

  const std::string path_;
  const std::shared_ptr<platform::LogSink> log_;
  mutable std::mutex mutex_;
  mutable platform::Json values_ = platform::Json::object();
  mutable bool loaded_ = false;
  bool changed_ = false;  // since the last write
};

}  // namespace wayloom::posix
