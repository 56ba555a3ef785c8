// The subcommands of the `corvane` tool. Each lives in a file of its own (MeasureCommand.cpp,
// InfoCommand.cpp, ...) and is listed once in main.cpp's table.
//
// Contract of every command: `args` holds the arguments after the command's name. It returns
// the process exit code: 0 on success, 1 for a named error (its text already written to
// standard error), 2 for a usage error. Standard output carries only the result (text or
// JSON); log lines and errors go to standard error.
#pragma once

#include <string>
#include <vector>

namespace corvane::cli {

int runDemoCommand(const std::vector<std::string>& args);
int runInfoCommand(const std::vector<std::string>& args);
int runMeasureCommand(const std::vector<std::string>& args);
int runProcessCommand(const std::vector<std::string>& args);

}  // namespace corvane::cli
