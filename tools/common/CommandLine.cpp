#include "tools/common/CommandLine.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <fmt/format.h>
#include <numeric>
#include <sstream>
#include <utility>

namespace wayloom::tools {
namespace {

void exitWith(int status) {
  if (status != kSucceeded) throw CLI::RuntimeError(status);
}

// In the help, the name stands for what is checked.
Argument checked(CLI::Option& option, CLI::Validator validator, const std::string& name) {
  return Argument(*option.check(validator.description(""))->type_name(name));
}

// Without "nan" and "inf", which read as numbers: no bound and no calculation means them.
Argument finite(CLI::Option& option) {
  return Argument(*option.check([](const std::string& text) {
    return std::isfinite(std::strtod(text.c_str(), nullptr)) ? std::string() : printable(text) + " is no finite number";
  }));
}

// How many letters have to be put in, left out or changed to make one word of the other (Levenshtein, 1966).
std::size_t editDistance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const auto changed = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, changed}));
    }
  }
  return row.back();
}

std::string nearest(const std::string& word, const std::vector<std::string>& known) {
  std::string best;
  auto least = word.size() / 2 + 1;  // farther than half of its letters, it was meant otherwise
  for (const auto& name : known)
    if (const auto far = editDistance(word, name); far < least) {
      least = far;
      best = name;
    }
  return best;
}

// What an argument that nothing takes may have been meant to be.
std::string suggestion(const CLI::App& app) {
  const auto commands = app.get_subcommands();
  const auto& command = commands.empty() ? app : *commands.front();
  for (const auto& word : app.remaining(true)) {
    std::vector<std::string> known;
    if (word.starts_with("--"))
      for (const auto* option : command.get_options())
        for (const auto& name : option->get_lnames()) known.push_back("--" + name);
    else if (commands.empty())
      for (const auto* other : app.get_subcommands([](const CLI::App*) { return true; }))
        known.push_back(other->get_name());
    if (const auto meant = nearest(word.substr(0, word.find('=')), known); !meant.empty())
      return fmt::format("There is no {}. Did you mean {}?\n", printable(word), meant);
  }
  return {};
}

}  // namespace

Argument Argument::required() { return Argument(*option_->required()); }
Argument Argument::named(const char* type) { return Argument(*option_->type_name(type)); }
Argument Argument::existingFolder() { return checked(*option_, CLI::ExistingDirectory, "DIR"); }
Argument Argument::existingFile() { return checked(*option_, CLI::ExistingFile, "FILE"); }
Argument Argument::oneOf(std::vector<std::string> values) {
  return Argument(*option_->check(CLI::IsMember(std::move(values))));
}
Argument Argument::between(int low, int high) {
  return checked(*option_, CLI::Range(low, high), fmt::format("{}..{}", low, high));
}
Argument Argument::between(double low, double high) {
  return checked(*option_, CLI::Range(low, high), fmt::format("{}..{}", low, high));
}
Argument Argument::positive() {
  const auto check = [](const std::string& text) {
    return std::strtod(text.c_str(), nullptr) > 0.0 ? std::string() : printable(text) + " is not above 0";
  };
  return Argument(*option_->check(check)->type_name("NUMBER"));
}
Argument Argument::showsDefault() { return Argument(*option_->capture_default_str()); }
Argument Argument::separatedBy(char delimiter) { return Argument(*option_->delimiter(delimiter)); }
Argument Argument::oneEach() { return Argument(*option_->allow_extra_args(false)); }
Argument Argument::needs(Argument other) { return Argument(*option_->needs(other.option_)); }
Argument Argument::excludes(Argument other) { return Argument(*option_->excludes(other.option_)); }

Argument Arguments::add(const char* name, std::string& value, const char* description) {
  return Argument(*app_->add_option(name, value, description));
}
Argument Arguments::add(const char* name, int& value, const char* description) {
  return Argument(*app_->add_option(name, value, description));
}
Argument Arguments::add(const char* name, std::uint64_t& value, const char* description) {
  return Argument(*app_->add_option(name, value, description));
}
Argument Arguments::add(const char* name, double& value, const char* description) {
  return finite(*app_->add_option(name, value, description));
}
Argument Arguments::add(const char* name, std::optional<double>& value, const char* description) {
  return finite(*app_->add_option(name, value, description));
}
Argument Arguments::add(const char* name, std::vector<std::string>& values, const char* description) {
  return Argument(*app_->add_option(name, values, description));
}
Argument Arguments::add(const char* name, std::vector<double>& values, const char* description) {
  return finite(*app_->add_option(name, values, description));
}
Argument Arguments::add(const char* name, bool& flag, const char* description) {
  return Argument(*app_->add_flag(name, flag, description));
}

Argument Arguments::addVenue(std::string& venue, const char* description) {
  return add("--venue", venue, description).existingFolder();
}

void Arguments::runs(std::function<int()> run) {
  app_->callback([run = std::move(run)] { exitWith(run()); });
}

void Arguments::runsWithAnything(std::function<int(std::vector<std::string>)> run, bool explains) {
  if (!explains) app_->set_help_flag();
  app_->prefix_command();
  app_->callback([app = app_, run = std::move(run)] { exitWith(run(app->remaining())); });
}

void failForMissing(const char* name) { throw CLI::RequiredError(name); }

CommandLine::CommandLine(const char* name, const char* description, const char* footer)
    : app_(std::make_unique<CLI::App>(description, name)) {
  app_->footer(footer);
}

CommandLine::~CommandLine() = default;

Arguments CommandLine::addCommand(const char* name, const char* description, const char* footer) {
  app_->require_subcommand(1);
  auto& command = *app_->add_subcommand(name, description);
  command.footer(footer);
  return Arguments(command);
}

void CommandLine::addVersion(const std::string& version) { app_->set_version_flag("--version", version); }

int CommandLine::run(int argc, char** argv) {
  prepareStandardStreams();
  return finishStandardOutput(runCommand(argc, argv));
}

int CommandLine::runCommand(int argc, char** argv) {
  try {
    app_->parse(argc, argv);
    return kSucceeded;
  } catch (const CLI::RuntimeError& failure) {
    return failure.get_exit_code();
  } catch (const CLI::ParseError& request) {
    std::ostringstream help;
    std::ostringstream error;
    const int status = app_->exit(request, help, error);
    standardOutput().write(help.str());
    standardError().write(suggestion(*app_) + error.str());
    return status == 0 ? kSucceeded : kUsageError;
  } catch (const std::exception& failure) {
    complain(failure.what());
    return kRunFailed;
  }
}

}  // namespace wayloom::tools
