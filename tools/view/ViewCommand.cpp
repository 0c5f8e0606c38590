// wayloom view: hands over to the program wayloom-view, so that the other commands need not load a user interface.
#include <cerrno>
#include <filesystem>
#include <fmt/format.h>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "tools/common/Command.hpp"

namespace wayloom::tools {
namespace {

constexpr const char* kDescription =
    "Opens a window that follows a recording, or the beacons around, on the venue's maps.";

// Beside this program; through the search path if that is unknown.
std::string viewProgram() {
  std::error_code failure;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", failure);
  return failure ? "wayloom-view" : (self.parent_path() / "wayloom-view").string();
}

int view(const std::vector<std::string>& arguments) {
  auto program = viewProgram();
  std::vector<std::string> words = {"wayloom view"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (auto& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  ::execvp(program.c_str(), pointers.data());
  complain(errno == ENOENT ? "there is no window in this build: it was made without GTK 4 and WebKitGTK 6.0"
                           : fmt::format("{}: {}", program, std::generic_category().message(errno)));
  return kRunFailed;
}

}  // namespace

void registerView(CommandLine& line) {
  // The program explains its own options.
  line.addCommand("view", kDescription).runsWithAnything(view, false);
}

}  // namespace wayloom::tools
