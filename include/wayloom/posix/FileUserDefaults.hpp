#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "wayloom/platform/Json.hpp"
#include "wayloom/platform/LogSink.hpp"
#include "wayloom/platform/UserDefaults.hpp"

namespace wayloom::posix {

// User defaults in one JSON file, an object. Values are kept in memory and written by synchronize(), atomically, and at
// the latest by the destructor. One process a file: of two the last writer wins. A file that holds no JSON object is
// told in the log and set aside as "<path>.corrupt"; the defaults then start empty.
class FileUserDefaults : public platform::UserDefaults {
 public:
  // The file's directory is made with the first write. `log` hears of corrupt and unwritable files.
  FileUserDefaults(const std::string& path, std::shared_ptr<platform::LogSink> log);
  ~FileUserDefaults() override;

  std::int64_t integerForKey(std::string_view key) const override;  // of a text its leading integer
  void setInteger(std::string_view key, std::int64_t value) override;
  std::optional<std::string> stringForKey(std::string_view key) const override;  // of a number its decimal text
  void setString(std::string_view key, std::string_view value) override;
  bool synchronize() override;

 private:
  void load();
  void set(std::string_view key, platform::Json value);

  const std::string path_;
  const std::shared_ptr<platform::LogSink> log_;
  mutable std::mutex mutex_;
  platform::Json values_ = platform::Json::object();
  bool changed_ = false;  // since the last write
};

}  // namespace wayloom::posix
