// Runs a change of a volume inside the change journal (journal/change_journal.h)
// and words the outcome: exit 0 only when the change is complete and on
// disk; otherwise exit 1 with a message saying "nothing was changed" (the
// journal undid it) or naming 'ckdvol recover' (an interrupted change is
// left in the file for it).
#ifndef CKDVOL_TOOLS_CKDVOL_JOURNALED_CHANGE_H_
#define CKDVOL_TOOLS_CKDVOL_JOURNALED_CHANGE_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "edit/staged_tracks.h"

namespace ckdvol_tool {

// Saves the slots at `slots` (and with `header` the header's versioning
// fields), runs `body` (which writes exactly those and returns an empty
// string, or what failed), and finishes the change. kExitOk, or
// kExitFailure after the message.
int journaledChange(EmulatedCKDfile& file, const std::string& path, const char* command,
                    const std::vector<uint64_t>& slots, const std::function<std::string()>& body,
                    bool header = false);

// Writes every track image staged in `staged` as one journaled change (its
// slots saved, the images written, the change finished). kExitOk, or
// kExitFailure after the message.
int journaledChange(ckdvol::StagedTracks& staged, const std::string& path, const char* command);

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_JOURNALED_CHANGE_H_
