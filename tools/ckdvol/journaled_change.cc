#include "journaled_change.h"

#include "command.h"
#include "journal/change_journal.h"
#include "tool_util.h"

namespace ckdvol_tool {

int journaledChange(EmulatedCKDfile& file, const std::string& path, const char* command,
                    const std::vector<uint64_t>& slots, const std::function<std::string()>& body,
                    bool header) {
  ckdvol::ChangeJournal journal(file, command);
  std::string cause;
  if ((header && journal.saveHeaderVersions() != 0) || journal.begin(slots) != 0) {
    cause = "cannot save the former tracks: " + journal.error();
  } else {
    cause = body();
    if (cause.empty() && journal.finish() == 0) return kExitOk;
    if (cause.empty()) cause = journal.error();
    if (journal.complete()) {
      return fail(path, cause + "; the change itself is complete and on disk: run 'ckdvol recover " + path +
                            "' to drop its saved copies");
    }
  }
  if (journal.undo() == 0) return fail(path, cause + "; nothing was changed");
  return fail(path, cause + "; undoing it failed too (" + journal.error() + "): the change was interrupted, run 'ckdvol recover " +
                        path + "'");
}

int journaledChange(ckdvol::StagedTracks& staged, const std::string& path, const char* command) {
  return journaledChange(staged.file(), path, command, staged.slots(), [&staged]() { return staged.writeAll(); });
}

}  // namespace ckdvol_tool
