// The ckdvol tool's subcommand registry. Each subcommand lives in a file of
// its own and registers itself with a static CommandRegistration; main.cc
// only builds the parser from the registry and runs the chosen command.
#ifndef CKDVOL_TOOLS_CKDVOL_COMMAND_H_
#define CKDVOL_TOOLS_CKDVOL_COMMAND_H_

#include <functional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace ckdvol_tool {

// Exit statuses of every subcommand.
enum ExitStatus {
  kExitOk = 0,
  kExitFailure = 1,   // the operation failed or the volume was refused
  kExitUsage = 2,     // bad arguments (CLI11's own parse errors also exit 2)
  kExitFindings = 3   // verification found damaged tracks
};

// A registered subcommand. `setup` adds the options to the subcommand's
// CLI::App and returns the function to run when it is chosen.
struct Command {
  std::string name;
  std::string description;
  int order;  // position in the --help listing
  std::function<std::function<int()>(CLI::App&)> setup;
};

std::vector<Command>& registry();

struct CommandRegistration {
  explicit CommandRegistration(Command c) { registry().push_back(std::move(c)); }
};

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_COMMAND_H_
