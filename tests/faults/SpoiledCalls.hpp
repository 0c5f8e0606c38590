#pragma once

#include <string>

namespace wayloom::test {

// The system's calls about files, as a program makes them that has no luck. One fault at a time; any thread.
enum class SpoiledCall { open, read, write, sync, rename };

struct FileFault {
  static constexpr int isShort = 0;  // the call does a part of its work

  const char* name;
  SpoiledCall call;
  int error;  // an error number, or isShort
};

// While it lives, the fault strikes what the process does with files below the directory.
class SpoiledCalls {
 public:
  SpoiledCalls(const std::string& directory, const FileFault& fault);
  ~SpoiledCalls();
  SpoiledCalls(const SpoiledCalls&) = delete;
  SpoiledCalls& operator=(const SpoiledCalls&) = delete;

  static int strikes();  // since the last one was made
};

}  // namespace wayloom::test
