// ckdvol: create, inspect and change emulated CKD volume files.
// Only wiring lives here: every subcommand registers itself (command.h).
//
// Exit statuses are those of command.h and nothing else: the parser's own
// error codes become kExitUsage, and an exception that a command lets escape
// becomes kExitFailure after one line naming it, so no input ends the tool
// with another status.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <new>
#include <string>

#include <CLI/CLI.hpp>

#include "command.h"
#include "tool_util.h"

namespace ckdvol_tool {
std::vector<Command>& registry() {
  static std::vector<Command> commands;
  return commands;
}

namespace {

std::string nearestCommand(const std::vector<Command>& commands, const std::string& name) {
  std::string best;
  size_t bestDistance = 3;  // more than two edits away is no suggestion
  for (const Command& c : commands) {
    const size_t d = editDistance(name, c.name);
    const bool prefix = name.size() >= 2 && c.name.compare(0, name.size(), name) == 0;
    if (prefix || d < bestDistance) {
      best = c.name;
      bestDistance = prefix ? 0 : d;
    }
  }
  return best;
}

bool isCommand(const std::vector<Command>& commands, const std::string& name) {
  return std::any_of(commands.begin(), commands.end(), [&](const Command& c) { return c.name == name; });
}

// The first argument that is not an option: the command's name.
int commandIndex(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--") return i + 1 < argc ? i + 1 : -1;
    if (a.empty() || a[0] != '-') return i;
  }
  return -1;
}

int run(int argc, char** argv) {
  CLI::App app{
      "ckdvol - emulated count-key-data (CKD) disk volumes\n\n"
      "A volume is one host file: a 512-byte header, then one fixed-size slot per\n"
      "track. Run 'ckdvol COMMAND --help' for the options of a command."};
  app.require_subcommand(1);
  app.set_version_flag("--version", "ckdvol " CKDVOL_VERSION);
  // --wait is given after the command; the commands pass it up to here.
  app.fallthrough(true);
  std::string wait;
  app.add_flag("--wait{forever}", wait,
               "Wait for another ckdvol that holds the volume (forever, or --wait=SECONDS)\n"
               "instead of giving up at once");
  app.footer(
      "Exit status: 0 success; 1 the operation failed or the file was refused (the\n"
      "message names the file and the cause); 2 bad arguments; 3 verify found damage.");

  std::vector<Command> commands = registry();
  std::sort(commands.begin(), commands.end(),
            [](const Command& a, const Command& b) { return a.order < b.order; });
  std::map<CLI::App*, std::function<int()>> actions;
  for (const Command& c : commands) {
    CLI::App* sub = app.add_subcommand(c.name, c.description);
    actions[sub] = c.setup(*sub);
  }

  const int named = commandIndex(argc, argv);
  bool asksForHelp = false;
  for (int i = 1; i < argc && (named < 0 || i < named); ++i) {
    const std::string a = argv[i];
    asksForHelp = asksForHelp || a == "--help" || a == "-h" || a == "--version";
  }
  if (named < 0 && !asksForHelp) {
    failWith(kExitUsage, "a command is required:");
    std::fputs(app.help().c_str(), stderr);
    return kExitUsage;
  }
  if (named >= 0 && !asksForHelp && !isCommand(commands, argv[named])) {
    const std::string name = argv[named];
    const std::string near = nearestCommand(commands, name);
    return failWith(kExitUsage, "'" + name + "' is not a command" +
                                    (near.empty() ? "" : " (did you mean '" + near + "'?)") +
                                    "; 'ckdvol --help' lists the commands");
  }

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == 0) return app.exit(e);  // --help, --version
    const std::string where = named >= 0 ? std::string(argv[named]) + ": " : "";
    const std::string help = named >= 0 ? "'ckdvol " + std::string(argv[named]) + " --help'" : "'ckdvol --help'";
    return failWith(kExitUsage, where + e.what() + " (" + help + " shows the arguments)");
  }
  if (!wait.empty()) {
    if (int status = setLockWait(wait)) return status;
  }
  for (auto& entry : actions) {
    if (entry.first->parsed()) return entry.second();
  }
  return kExitUsage;
}

}  // namespace
}  // namespace ckdvol_tool

int main(int argc, char** argv) {
  // Whatever a command lets escape ends here with status 1, never with an
  // abort: the message says what happened, the file was left as the command
  // had it at that moment.
  try {
    return ckdvol_tool::run(argc, argv);
  } catch (const std::bad_alloc&) {
    return ckdvol_tool::failWith(ckdvol_tool::kExitFailure, "out of memory; the command was stopped");
  } catch (const std::exception& e) {
    return ckdvol_tool::failWith(ckdvol_tool::kExitFailure,
                                 std::string("the command was stopped by an unexpected error: ") + e.what());
  } catch (...) {
    return ckdvol_tool::failWith(ckdvol_tool::kExitFailure, "the command was stopped by an unexpected error");
  }
}
