// ckdvol recover: finish or undo whatever an interrupted run left in a volume.
//
//   ckdvol recover FILE [--json]
//
// Every change this tool makes first saves the former images of the tracks
// it changes and records in the volume header how far it got; a version
// commit or rollback records that it is under way. When a run is killed or
// the machine stops, the next command that would change the volume refuses
// and names this command, which puts the volume back exactly as it was
// before the change, or completes it when its tracks were already whole.
#include <cstdio>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "command.h"
#include "journal/change_journal.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

int runRecover(const std::string& path, bool json) {
  VolumeLock lock;
  if (int status = lock.acquire(path, true, true)) return status;
  ckdvol::RecoveryReport report;
  std::string error;
  if (ckdvol::recoverVolume(path, report, error) != 0) {
    return fail(path, error + (report.action == "none" ? "" : "; run 'ckdvol recover' again"));
  }
  if (json) {
    nlohmann::ordered_json notes = report.notes;
    nlohmann::ordered_json j = {{"file", path},
                                {"found", report.found.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(report.found)},
                                {"action", report.action},
                                {"command", report.command.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(report.command)},
                                {"tracksRestored", report.tracksRestored},
                                {"copiesDropped", report.copiesDropped},
                                {"bytesBefore", report.bytesBefore},
                                {"bytesAfter", report.bytesAfter},
                                {"notes", notes}};
    std::printf("%s\n", j.dump(2).c_str());
    return kExitOk;
  }
  if (report.action == "none") {
    std::printf("%s: nothing to recover: no interrupted change, commit or rollback\n", path.c_str());
    return kExitOk;
  }
  std::printf("%s: found %s\n", path.c_str(), report.found.c_str());
  for (const std::string& note : report.notes) std::printf("  %s\n", note.c_str());
  if (report.action == "removed") {
    std::printf("%s: removed (run 'ckdvol create' to make the volume again)\n", path.c_str());
    return kExitOk;
  }
  std::string done = report.action == "undone" ? "undone: the volume is as it was before the change"
                                               : "finished: the volume is as the interrupted run would have left it";
  std::printf("%s: %s\n", path.c_str(), done.c_str());
  if (report.tracksRestored > 0) {
    std::printf("  %s written back\n", count(report.tracksRestored, "track").c_str());
  }
  if (report.copiesDropped > 0) {
    std::printf("  %s dropped; file %llu -> %llu bytes\n", (std::to_string(report.copiesDropped) + (report.copiesDropped == 1 ? " saved copy" : " saved copies")).c_str(),
                static_cast<unsigned long long>(report.bytesBefore), static_cast<unsigned long long>(report.bytesAfter));
  }
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "recover", "Finish or undo a change, commit or rollback that was interrupted", 47,
    [](CLI::App& app) -> std::function<int()> {
      struct Args {
        std::string file;
        bool json = false;
      };
      auto a = std::make_shared<Args>();
      app.add_option("FILE", a->file, "Volume file")->required();
      app.add_flag("--json", a->json, "Print what was found and done as one JSON object");
      app.footer(
          "Every change ckdvol makes to a volume first saves the former image of each\n"
          "track it changes behind the last track, forces it to disk, and records in\n"
          "the volume header how far the change got; a version commit or rollback\n"
          "records that it is under way. If the run is killed, or the machine stops,\n"
          "the volume keeps that record, and every command that would change it\n"
          "refuses and names this command. recover then:\n"
          "  - undoes a change whose tracks were not all written: every track gets its\n"
          "    former image back, byte for byte, and the saved copies are dropped;\n"
          "  - finishes a change whose tracks were complete: the copies are dropped;\n"
          "  - finishes an interrupted version commit or rollback;\n"
          "  - drops a saved copy cut short at the end of a versioned volume's file,\n"
          "    and trailing copies whose tracks never took the change;\n"
          "  - removes an unfinished creation (header \"CKD_INIT\", or shorter than a\n"
          "    header): it never held data.\n"
          "On a sound volume it changes nothing and says so. Run it before handing a\n"
          "volume whose last change was interrupted to an emulator.\n"
          "Exit status: 0 the volume is consistent (recovered or nothing to do);\n"
          "1 it could not be recovered (the message names the file and the cause).");
      return [a]() -> int { return runRecover(a->file, a->json); };
    }});

}  // namespace
}  // namespace ckdvol_tool
