// The services of a small world in memory.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "wayloom/platform/Platform.hpp"

namespace wayloom::test {

class RecordingLog : public platform::LogSink {
 public:
  void write(std::string_view line) override {
    const std::lock_guard lock(mutex_);
    lines_.emplace_back(line);
  }
  // What was written since the last call.
  std::vector<std::string> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

// Files in memory, directories implied.
class MemoryFiles : public platform::FileManager {
 public:
  explicit MemoryFiles(std::shared_ptr<const platform::CalendarClock> clock) : clock_(std::move(clock)) {}

  std::string documentsDirectory() const override { return "/documents"; }
  bool fileExists(const std::string& path) const override { return readFile(path).has_value(); }
  std::optional<std::string> readFile(const std::string& path) const override {
    const std::lock_guard lock(mutex_);
    const auto file = files_.find(path);
    return file == files_.end() ? std::nullopt : std::optional(file->second.bytes);
  }
  std::optional<platform::Error> writeFile(const std::string& path, std::string_view bytes) override {
    const std::lock_guard lock(mutex_);
    files_[path] = {std::string(bytes), clock_->now()};
    return std::nullopt;
  }
  std::optional<platform::Error> writeFileAtomically(const std::string& path, std::string_view bytes) override {
    return writeFile(path, bytes);
  }
  std::optional<platform::Error> removeFile(const std::string& path) override {
    const std::lock_guard lock(mutex_);
    return failUnless(files_.erase(path) > 0, path);
  }
  std::optional<platform::Error> copyFile(const std::string& from, const std::string& to) override {
    const std::lock_guard lock(mutex_);
    const bool possible = files_.contains(from) && !files_.contains(to);
    if (possible) files_[to] = files_[from];
    return failUnless(possible, from);
  }
  std::optional<platform::Error> moveFile(const std::string& from, const std::string& to) override {
    if (auto error = copyFile(from, to)) return error;
    return removeFile(from);
  }
  std::optional<platform::Error> createDirectory(const std::string&) override { return std::nullopt; }
  std::optional<std::vector<std::string>> listDirectory(const std::string& path) const override {
    const std::lock_guard lock(mutex_);
    if (files_.contains(path)) return std::nullopt;
    std::vector<std::string> names;
    for (const auto& [name, file] : files_)
      if (name.starts_with(path + "/")) names.push_back(name.substr(path.size() + 1));
    return names;
  }
  std::optional<platform::CalendarTime> modificationDate(const std::string& path) const override {
    const std::lock_guard lock(mutex_);
    const auto file = files_.find(path);
    return file == files_.end() ? std::nullopt : std::optional(file->second.modified);
  }
  std::optional<platform::Error> setModificationDate(const std::string& path, platform::CalendarTime date) override {
    const std::lock_guard lock(mutex_);
    const auto file = files_.find(path);
    if (file != files_.end()) file->second.modified = date;
    return failUnless(file != files_.end(), path);
  }

 private:
  struct File {
    std::string bytes;
    platform::CalendarTime modified;
  };

  static std::optional<platform::Error> failUnless(bool fine, const std::string& path) {
    return fine ? std::nullopt : std::optional(platform::Error{"Test", 1, path});
  }

  std::shared_ptr<const platform::CalendarClock> clock_;
  mutable std::mutex mutex_;
  std::map<std::string, File> files_;
};

// The files below a directory of MemoryFiles, and an information dictionary to set before use.
class MemoryBundle : public platform::Bundle {
 public:
  MemoryBundle(std::shared_ptr<const platform::FileManager> files, std::string directory)
      : files_(std::move(files)), directory_(std::move(directory)) {}

  std::optional<std::string> pathForResource(std::string_view name, std::string_view type) const override {
    auto path = directory_ + "/" + std::string(name) + "." + std::string(type);
    return files_->fileExists(path) ? std::optional(std::move(path)) : std::nullopt;
  }
  const platform::Json& infoDictionary() const override { return info; }

  platform::Json info = {{"NSLocationAlwaysUsageDescription", "To find your way"}};

 private:
  std::shared_ptr<const platform::FileManager> files_;
  std::string directory_;
};

// Property lists written as JSON.
class JsonPropertyLists : public platform::PropertyListReader {
 public:
  explicit JsonPropertyLists(std::shared_ptr<const platform::FileManager> files) : files_(std::move(files)) {}
  std::optional<platform::Json> readDictionary(const std::string& path) const override {
    const auto text = files_->readFile(path);
    auto json = platform::Json::parse(text.value_or(""), nullptr, false);
    return json.is_object() ? std::optional(std::move(json)) : std::nullopt;
  }

 private:
  std::shared_ptr<const platform::FileManager> files_;
};

class MemoryDefaults : public platform::UserDefaults {
 public:
  std::int64_t integerForKey(std::string_view key) const override {
    const auto text = stringForKey(key);
    return text ? std::stoll(*text) : 0;
  }
  void setInteger(std::string_view key, std::int64_t value) override { setString(key, std::to_string(value)); }
  std::optional<std::string> stringForKey(std::string_view key) const override {
    const std::lock_guard lock(mutex_);
    const auto entry = values_.find(std::string(key));
    return entry == values_.end() ? std::nullopt : std::optional(entry->second);
  }
  void setString(std::string_view key, std::string_view value) override {
    const std::lock_guard lock(mutex_);
    values_[std::string(key)] = std::string(value);
  }
  bool synchronize() override {
    const std::lock_guard lock(mutex_);
    onDisk_ = values_;
    return true;
  }
  std::string onDisk(const std::string& key) const {
    const std::lock_guard lock(mutex_);
    return onDisk_.contains(key) ? onDisk_.at(key) : "";
  }

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::string> values_;
  std::map<std::string, std::string> onDisk_;
};

struct FixedDevice : platform::DeviceIdentity {
  platform::UUID identifierForVendor() const override { return {}; }
};

// Answers each request, on its queue, from a list that a test fills; without an entry it has no route.
class ScriptedHttp : public platform::HttpClient {
 public:
  std::unique_ptr<platform::HttpTask> send(platform::HttpRequest request, platform::TaskQueue& queue,
                                           Handler handler) override {
    auto task = std::make_unique<Request>();
    queue.async(task->scope.bind([handler, response = take(std::move(request))]() { handler(response); }));
    return task;
  }

  void answer(const std::string& methodAndUrl, platform::HttpResponse response) {
    const std::lock_guard lock(mutex_);
    answers_[methodAndUrl] = std::move(response);
  }
  // Those sent since the last call.
  std::vector<platform::HttpRequest> takeRequests() {
    const std::lock_guard lock(mutex_);
    return std::exchange(requests_, {});
  }

 private:
  struct Request : platform::HttpTask {
    platform::TaskScope scope;
  };

  platform::HttpResponse take(platform::HttpRequest request) {
    const std::lock_guard lock(mutex_);
    requests_.push_back(request);
    const auto answer = answers_.find(request.method + " " + request.url);
    if (answer != answers_.end()) return answer->second;
    platform::HttpResponse failure;
    failure.error = platform::Error{"HTTP", 7, "no route"};
    return failure;
  }

  std::mutex mutex_;
  std::map<std::string, platform::HttpResponse> answers_;
  std::vector<platform::HttpRequest> requests_;
};

struct NoRadio : platform::CBCentralManager {
  platform::CBCentralManagerState state() const override { return platform::CBCentralManagerState::unsupported; }
  void setStateCallback(StateCallback) override {}
};

}  // namespace wayloom::test
