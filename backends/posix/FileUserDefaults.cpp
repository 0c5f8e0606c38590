#include "wayloom/posix/FileUserDefaults.hpp"

#include <cstdio>
#include <utility>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/JsonValue.hpp"

#include "backends/posix/PosixFiles.hpp"

namespace wayloom::posix {
namespace {

using platform::Json;

constexpr std::size_t kLargestDefaults = 16U << 20U;

std::string directoryOf(const std::string& path) {
  const auto slash = path.rfind('/');
  return slash == std::string::npos || slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

FileUserDefaults::FileUserDefaults(const std::string& path, std::shared_ptr<platform::LogSink> log)
    : path_(absolutePath(path)), log_(std::move(log)) {
  load();
}

FileUserDefaults::~FileUserDefaults() { FileUserDefaults::synchronize(); }

void FileUserDefaults::load() {
  const auto bytes = readRegularFile(path_, kLargestDefaults);
  auto result = bytes ? platform::parseJson(*bytes) : platform::JsonParseResult{};
  if (result.value && result.value->is_object()) {
    values_ = std::move(*result.value);
    return;
  }
  const auto aside = path_ + ".corrupt";
  if (std::rename(path_.c_str(), aside.c_str()) == 0)  // fails when there is no file, as on the first run
    log_->write("User defaults unreadable, starting empty; kept as " + aside + ": " +
                (result.error.empty() ? "not a JSON object" : result.error));
}

std::int64_t FileUserDefaults::integerForKey(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  return platform::integerValue(platform::member(values_, key));
}

void FileUserDefaults::setInteger(std::string_view key, std::int64_t value) { set(key, value); }

std::optional<std::string> FileUserDefaults::stringForKey(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  const auto* value = platform::member(values_, key);
  if (value && value->is_number()) return value->dump();
  return platform::stringValue(value);
}

void FileUserDefaults::setString(std::string_view key, std::string_view value) { set(key, value); }

void FileUserDefaults::set(std::string_view key, Json value) {
  const std::lock_guard lock(mutex_);
  auto& stored = values_[std::string(key)];
  if (stored == value) return;
  stored = std::move(value);
  changed_ = true;
}

bool FileUserDefaults::synchronize() {
  const std::lock_guard lock(mutex_);
  if (!changed_) return true;
  auto error = makeDirectories(directoryOf(path_));
  if (!error)
    error = writeFileAsAWhole(path_, values_.dump(2, ' ', false, Json::error_handler_t::replace) + "\n",
                              Existing::isReplaced);
  if (error) log_->write("User defaults not saved: " + error->description);
  changed_ = error.has_value();
  return !error;
}

}  // namespace wayloom::posix
