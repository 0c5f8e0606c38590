#pragma once

#include <chrono>
#include <cstdint>

namespace wayloom::tools {

// How far a long run has come, on standard error: only when that is a terminal that standard output does not share,
// and only after a second.
class Progress {
 public:
  explicit Progress(std::uint64_t totalBytes);  // 0: unknown
  ~Progress() { clear(); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Cheap enough for every line.
  void show(std::uint64_t line, std::uint64_t bytes) {
    if (isShown_ && line % kLinesBetweenLooks == 0) look(line, bytes);
  }
  void clear();

 private:
  static constexpr std::uint64_t kLinesBetweenLooks = 1024;

  void look(std::uint64_t line, std::uint64_t bytes);

  std::uint64_t totalBytes_;
  bool isShown_;
  bool hasWritten_ = false;
  std::chrono::steady_clock::time_point next_;
};

}  // namespace wayloom::tools
