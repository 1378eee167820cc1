// The repair a person would make of one damaged track, worked out before
// anything is written.
//
// EmulatedCKDfile::verifyTrack(true) mends by dropping: a home address or
// record zero that names another track gives an empty track, a bad count
// field loses every record from it on. The tool mends instead:
//   - a home address or record zero that disagrees with the slot while the
//     records agree with it is rewritten from the slot position;
//   - a count field whose cylinder/head differs from the track's other
//     records (or whose record number is 0) gets their address (its number
//     from its neighbours), when the track still walks to its end marker;
//   - a record that runs past the record area ends the track there: the
//     records before it stay;
//   - a broken version link is cleared.
// Only when none of that gives a sound track is it rewritten empty. Every
// plan says which records it keeps and which it drops.
#ifndef CKDVOL_TOOLS_CKDVOL_TRACK_MEND_H_
#define CKDVOL_TOOLS_CKDVOL_TRACK_MEND_H_

#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"

namespace ckdvol_tool {

struct TrackMend {
  std::vector<unsigned char> image;  // the mended slot, trackSlotSize bytes
  std::vector<std::string> steps;    // what changes, one phrase each
  unsigned kept = 0;                 // records after record zero that stay
  std::vector<std::string> dropped;  // the records lost ("R5 (KL 0, DL 4096)")
  bool emptied = false;              // rewritten as an empty track
  bool sound = false;                // the mended image passes verifyTrack

  // "home address rewritten from the slot position; 11 records kept"
  std::string describe() const;
};

// Works out the mending of the current track of `f` (after readTrack; the
// track's verifyTrack finding is `code`). trackBuffer is used to check the
// result and holds the track's own image again on return; trackDirty and
// the file are not touched.
TrackMend planMend(EmulatedCKDfile& f, int code);

// Puts `mend.image` into the current track and writes it with writeTrack.
// Under an active version the slot's trailer on disk (linked by the change
// journal to the saved copy of the former image) replaces the image's.
// Returns writeTrack's result.
int applyMend(EmulatedCKDfile& f, const TrackMend& mend);

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_TRACK_MEND_H_
