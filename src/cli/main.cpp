// corvane: Corvane's measurements, comparisons and reports for scripts.
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "cli/CliCommands.h"
#include "cli/CliSupport.h"

namespace {

struct Command {
  const char* name;
  const char* synopsis;
  int (*run)(const std::vector<std::string>&);
};

const Command kCommands[] = {
    {"measure", "measure FILE [--json] [--speech] [--mode M]\n"
                "                             loudness, true peak, dynamics of a file; with\n"
                "                             --speech, speech-gated loudness; with --mode\n"
                "                             music|podcast|vod|broadcast, the verdicts of that\n"
                "                             mode's loudness targets",
     corvane::cli::runMeasureCommand},
    {"process", "process IN -o OUT STEP...  the editor's operations in the order given: --gain,\n"
                "                             --normalize-peak, --normalize-lufs [--ceiling], --limit,\n"
                "                             --fade-in, --fade-out, --trim, --level-dialogue\n"
                "                             (corvane process --help)",
     corvane::cli::runProcessCommand},
    {"info", "info FILE [--json]                 format, layout and identity of an audio file",
     corvane::cli::runInfoCommand},
    {"demo", "demo OUT.wav                       write Corvane's demo recording",
     corvane::cli::runDemoCommand},
};

void printUsage(std::ostream& out) {
  out << "usage: corvane COMMAND [ARGS...]\n\ncommands:\n";
  for (const auto& command : kCommands) out << "  " << command.synopsis << '\n';
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    printUsage(std::cerr);
    return corvane::cli::kExitUsage;
  }
  const std::string name = argv[1];
  if (name == "--help" || name == "-h" || name == "help") {
    printUsage(std::cout);
    return corvane::cli::kExitSuccess;
  }
  for (const auto& command : kCommands) {
    if (name == command.name) {
      return command.run(std::vector<std::string>(argv + 2, argv + argc));
    }
  }
  std::cerr << "corvane: unknown command '" << name << "'\n";
  printUsage(std::cerr);
  return corvane::cli::kExitUsage;
}
