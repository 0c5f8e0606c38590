// The command line: what a program and its subcommands take. A cover over CLI11, all of which would be compiled again
// in the file of every subcommand: that would be a third of the whole build.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/common/Output.hpp"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace wayloom::tools {

// Exit statuses of the programs.
inline constexpr int kSucceeded = 0;
inline constexpr int kRunFailed = 1;   // unusable input, unwritable output
inline constexpr int kUsageError = 2;  // wrong options

// One thing to give on the command line. What it says of itself it also checks, and shows in the help.
class Argument {
 public:
  explicit Argument(CLI::Option& option) : option_(&option) {}

  Argument required();
  Argument named(const char* type);  // what the help calls its value
  Argument existingFolder();
  Argument existingFile();
  Argument oneOf(std::vector<std::string> values);
  Argument between(int low, int high);
  Argument between(double low, double high);
  Argument positive();
  Argument showsDefault();
  Argument separatedBy(char delimiter);
  Argument oneEach();  // may be given several times, with one value each time
  Argument needs(Argument other);
  Argument excludes(Argument other);

 private:
  CLI::Option* option_;
};

// What a program or a subcommand takes. A name is "--long", "-s,--long", or a bare word for what has no option before
// it. The values must live until the command has run.
class Arguments {
 public:
  explicit Arguments(CLI::App& app) : app_(&app) {}

  Argument add(const char* name, std::string& value, const char* description);
  Argument add(const char* name, int& value, const char* description);
  Argument add(const char* name, std::uint64_t& value, const char* description);
  Argument add(const char* name, double& value, const char* description);
  Argument add(const char* name, std::optional<double>& value, const char* description);
  Argument add(const char* name, std::vector<std::string>& values, const char* description);
  Argument add(const char* name, std::vector<double>& values, const char* description);
  Argument add(const char* name, bool& flag, const char* description);
  Argument addVenue(std::string& venue, const char* description = "Venue folder, with bundle/ and server/");

  // What to do, and the exit status that comes of it.
  void runs(std::function<int()> run);
  // Takes whatever is given, unread, without help of its own unless `explains`.
  void runsWithAnything(std::function<int(std::vector<std::string>)> run, bool explains);

 private:
  CLI::App* app_;
};

// While a command runs: ends the program as for an argument that isn't there.
[[noreturn]] void failForMissing(const char* name);

class CommandLine {
 public:
  CommandLine(const char* name, const char* description, const char* footer);
  ~CommandLine();

  // The program's own. One that has subcommands needs no arguments, and one of them has to be given.
  Arguments arguments() { return Arguments(*app_); }
  Arguments addCommand(const char* name, const char* description, const char* footer = "");
  void addVersion(const std::string& version);

  // Reads the line, runs what it says, and returns the exit status.
  int run(int argc, char** argv);

 private:
  int runCommand(int argc, char** argv);

  std::unique_ptr<CLI::App> app_;
};

}  // namespace wayloom::tools
