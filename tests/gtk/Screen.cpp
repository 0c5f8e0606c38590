#include "tests/gtk/Screen.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <unistd.h>

namespace wayloom::gtk {
namespace {

struct Process {
  std::string name;
  int parent = 0;
  double seconds = 0.0;
};

Process readProcess(int id) {
  std::ifstream file("/proc/" + std::to_string(id) + "/stat");
  std::string text((std::istreambuf_iterator<char>(file)), {});
  Process process;
  const auto open = text.find('('), close = text.rfind(')');
  if (open == text.npos || close == text.npos) return process;
  process.name = text.substr(open + 1, close - open - 1);
  std::istringstream rest(text.substr(close + 1));
  std::vector<std::string> fields{std::istream_iterator<std::string>(rest), {}};
  process.parent = std::stoi(fields.at(1));
  process.seconds = (std::stod(fields.at(11)) + std::stod(fields.at(12))) / static_cast<double>(::sysconf(_SC_CLK_TCK));
  return process;
}

}  // namespace

std::vector<int> descendants(const std::string& name) {
  std::map<int, Process> all;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const auto id = entry.path().filename().string();
    if (std::all_of(id.begin(), id.end(), ::isdigit)) all[std::stoi(id)] = readProcess(std::stoi(id));
  }
  std::vector<int> found;
  for (const auto& [id, process] : all) {
    int ancestor = process.parent;
    while (ancestor > 1 && ancestor != ::getpid()) ancestor = all[ancestor].parent;
    // The kernel cuts names after 15 characters.
    if (ancestor == ::getpid() && (name.empty() || process.name == name.substr(0, 15))) found.push_back(id);
  }
  return found;
}

double processorTime(const std::vector<int>& processes) {
  double seconds = readProcess(::getpid()).seconds;
  for (const int id : processes) seconds += readProcess(id).seconds;
  return seconds;
}

}  // namespace wayloom::gtk
