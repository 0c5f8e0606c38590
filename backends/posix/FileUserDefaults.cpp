#include "wayloom/posix/FileUserDefaults.hpp"

#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/JsonValue.hpp"

#include "backends/posix/PosixFiles.hpp"

namespace wayloom::posix {
namespace {

using platform::Json;

constexpr std::size_t kLargestDefaults = 16U << 20U;

std::string description(int error) { return std::generic_category().message(error); }

}  // namespace

FileUserDefaults::FileUserDefaults(const std::string& path, std::shared_ptr<platform::LogSink> log)
    : path_(absolutePath(path)), log_(std::move(log)) {
  if (const int error = load()) log_->write("User defaults cannot be read now: " + path_ + ": " + description(error));
}

FileUserDefaults::~FileUserDefaults() { FileUserDefaults::synchronize(); }

// Until it has succeeded nothing is written: what is in the file would be lost. 0 or an error number.
int FileUserDefaults::load() const {
  if (loaded_) return 0;
  const auto content = readContent(path_, kLargestDefaults);
  const bool wasRead = content.bytes || content.error == EFBIG;
  if (!wasRead && !content.isMissing()) return content.error;
  auto result = content.bytes ? platform::parseJson(*content.bytes) : platform::JsonParseResult{};
  if (result.value && result.value->is_object()) {
    // What was set meanwhile is newer.
    for (auto& [key, value] : values_.items()) (*result.value)[key] = std::move(value);
    values_ = std::move(*result.value);
  } else if (wasRead) {
    const auto aside = path_ + ".corrupt";
    if (std::rename(path_.c_str(), aside.c_str()) != 0) return errno;
    const auto reason = content.bytes ? result.error : description(content.error);
    log_->write("User defaults unreadable, starting empty; kept as " + aside + ": " +
                (reason.empty() ? "not a JSON object" : reason));
  }
  loaded_ = true;
  return 0;
}

const Json* FileUserDefaults::find(std::string_view key) const {
  load();
  return platform::member(values_, key);
}

std::int64_t FileUserDefaults::integerForKey(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  return platform::integerValue(find(key));
}

void FileUserDefaults::setInteger(std::string_view key, std::int64_t value) { set(key, value); }

std::optional<std::string> FileUserDefaults::stringForKey(std::string_view key) const {
  const std::lock_guard lock(mutex_);
  const auto* value = find(key);
  if (value && value->is_number()) return value->dump();
  return platform::stringValue(value);
}

void FileUserDefaults::setString(std::string_view key, std::string_view value) { set(key, value); }

void FileUserDefaults::set(std::string_view key, Json value) {
  const std::lock_guard lock(mutex_);
  load();
  auto& stored = values_[std::string(key)];
  if (stored == value) return;
  stored = std::move(value);
  changed_ = true;
}

bool FileUserDefaults::synchronize() {
  const std::lock_guard lock(mutex_);
  if (!changed_) return true;
  const int unread = load();
  auto error =
      unread != 0 ? systemError(unread, "cannot read", path_) : makeDirectories(directoryOf(path_), Readers::ownerOnly);
  if (!error)
    error = writeFileAsAWhole(path_, values_.dump(2, ' ', false, Json::error_handler_t::replace) + "\n",
                              Existing::isReplaced, Readers::ownerOnly);
  if (error) log_->write("User defaults not saved: " + error->description);
  changed_ = error.has_value();
  return !error;
}

}  // namespace wayloom::posix
