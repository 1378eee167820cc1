// ckdvol: create, inspect and change emulated CKD volume files.
// Only wiring lives here: every subcommand registers itself (command.h).
#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include <CLI/CLI.hpp>

#include "command.h"

namespace ckdvol_tool {
std::vector<Command>& registry() {
  static std::vector<Command> commands;
  return commands;
}
}  // namespace ckdvol_tool

int main(int argc, char** argv) {
  using namespace ckdvol_tool;
  CLI::App app{
      "ckdvol - emulated count-key-data (CKD) disk volumes\n\n"
      "A volume is one host file: a 512-byte header, then one fixed-size slot per\n"
      "track. Run 'ckdvol COMMAND --help' for the options of a command."};
  app.require_subcommand(1);
  app.set_version_flag("--version", "ckdvol " CKDVOL_VERSION);

  std::vector<Command> commands = registry();
  std::sort(commands.begin(), commands.end(),
            [](const Command& a, const Command& b) { return a.order < b.order; });
  std::map<CLI::App*, std::function<int()>> actions;
  for (const Command& c : commands) {
    CLI::App* sub = app.add_subcommand(c.name, c.description);
    actions[sub] = c.setup(*sub);
  }
  CLI11_PARSE(app, argc, argv);
  for (auto& entry : actions) {
    if (entry.first->parsed()) return entry.second();
  }
  return kExitUsage;
}
