// The subcommands. Each is one file with a function that adds it to the command.
#pragma once

#include "tools/common/CommandLine.hpp"

namespace wayloom::tools {

void registerReplay(CommandLine& line);
void registerEvaluate(CommandLine& line);
void registerSimulate(CommandLine& line);
void registerView(CommandLine& line);
void registerServe(CommandLine& line);
void registerDump(CommandLine& line);
void registerMaps(CommandLine& line);
void registerScan(CommandLine& line);
void registerRecord(CommandLine& line);
void registerRun(CommandLine& line);
void registerDoctor(CommandLine& line);

}  // namespace wayloom::tools
