#pragma once

#include <array>
#include <cstdio>
#include <string>
#include <sys/wait.h>

namespace wayloom {

struct Outcome {
  int status = -1;
  std::string output;
};

// Runs a shell line to its end. The output is standard output alone, unless the line says otherwise.
inline Outcome runShell(const std::string& line) {
  Outcome outcome;
  std::FILE* pipe = ::popen(line.c_str(), "r");
  std::array<char, 4096> buffer{};
  for (std::size_t count = 0; (count = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
    outcome.output.append(buffer.data(), count);
  outcome.status = WEXITSTATUS(::pclose(pipe));
  return outcome;
}

}  // namespace wayloom
