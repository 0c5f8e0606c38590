// What the subcommands share. Each is one file with a function that adds it to the command.
#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string_view>

namespace wayloom::tools {

// Exit statuses of the command.
inline constexpr int kSucceeded = 0;
inline constexpr int kRunFailed = 1;   // unusable input, unwritable output
inline constexpr int kUsageError = 2;  // wrong options

// Has the subcommand run `run` and exit with what it returns.
template <class Run>
void runs(CLI::App& subcommand, Run run) {
  subcommand.callback([run] {
    if (const int status = run(); status != kSucceeded) throw CLI::RuntimeError(status);
  });
}

// "wayloom: <text>" on standard error.
void complain(std::string_view text);

void registerReplay(CLI::App& app);
void registerEvaluate(CLI::App& app);
void registerSimulate(CLI::App& app);
void registerView(CLI::App& app);
void registerServe(CLI::App& app);
void registerDump(CLI::App& app);
void registerMaps(CLI::App& app);
void registerScan(CLI::App& app);
void registerRecord(CLI::App& app);
void registerRun(CLI::App& app);
void registerDoctor(CLI::App& app);

}  // namespace wayloom::tools
