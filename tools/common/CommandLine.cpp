#include "tools/common/CommandLine.hpp"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdio>
#include <exception>
#include <fmt/format.h>

namespace wayloom::tools {
namespace {

void exitWith(int status) {
  if (status != kSucceeded) throw CLI::RuntimeError(status);
}

// In the help, the name stands for what is checked.
Argument checked(CLI::Option& option, CLI::Validator validator, const std::string& name) {
  return Argument(*option.check(validator.description(""))->type_name(name));
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
Argument Argument::positive() { return checked(*option_, CLI::PositiveNumber, "NUMBER"); }
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
  return Argument(*app_->add_option(name, value, description));
}
Argument Arguments::add(const char* name, std::optional<double>& value, const char* description) {
  return Argument(*app_->add_option(name, value, description));
}
Argument Arguments::add(const char* name, std::vector<std::string>& values, const char* description) {
  return Argument(*app_->add_option(name, values, description));
}
Argument Arguments::add(const char* name, std::vector<double>& values, const char* description) {
  return Argument(*app_->add_option(name, values, description));
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

void complain(std::string_view text) { fmt::print(stderr, "wayloom: {}\n", text); }

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
  try {
    app_->parse(argc, argv);
    return kSucceeded;
  } catch (const CLI::RuntimeError& failure) {
    return failure.get_exit_code();
  } catch (const CLI::ParseError& request) {
    return app_->exit(request) == 0 ? kSucceeded : kUsageError;
  } catch (const std::exception& failure) {
    complain(failure.what());
    return kRunFailed;
  }
}

}  // namespace wayloom::tools
