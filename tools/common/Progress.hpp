#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

namespace wayloom::tools {

// How far a long run has come: one line on standard error that changes, only on a terminal.
class Progress {
 public:
  Progress();
  ~Progress() { clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  bool isShown() const { return isShown_; }
  void show(std::string_view text);
  // Before anything else is printed there.
  void clear();

 private:
  bool isShown_;
  bool hasWritten_ = false;
};

// That of a file that is read line by line, after a second, unless its output is on the terminal, too.
class ReadingProgress {
 public:
  explicit ReadingProgress(std::uint64_t totalBytes);  // 0: unknown

  // Cheap enough for every line.
  void show(std::uint64_t line, std::uint64_t bytes) {
    if (isWanted_ && line % kLinesBetweenLooks == 0) look(line, bytes);
  }
  void clear() { progress_.clear(); }

 private:
  static constexpr std::uint64_t kLinesBetweenLooks = 1024;

  void look(std::uint64_t line, std::uint64_t bytes);

  Progress progress_;
  std::uint64_t totalBytes_;
  bool isWanted_;
  std::chrono::steady_clock::time_point next_;
};

}  // namespace wayloom::tools
