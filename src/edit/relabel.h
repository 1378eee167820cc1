// A new volume serial (and owner) for a volume.
//
// The serial lives in the VOL1 label (track 0/0, the record keyed VOL1,
// data bytes 4-9) and in every Format-1 and Format-8 DSCB (bytes 45-50),
// which name the volume their data set is on; all of them are changed
// together. The Format-4 DSCB carries no serial. The owner field of the
// label is data bytes 37-50 (14 characters, blank padded). Both are written
// in EBCDIC (code page 037).
//
// Nothing is written: the change is staged in a StagedTracks. Thread
// safety: none; one thread per StagedTracks.
#ifndef CKDVOL_EDIT_RELABEL_H_
#define CKDVOL_EDIT_RELABEL_H_

#include <string>

#include "common/export.h"
#include "dataset/vtoc_scan.h"
#include "edit/staged_tracks.h"

namespace ckdvol {

// Length of the label's owner field.
constexpr size_t kOwnerLength = 14;

// An owner text: at most 14 characters, each a printable ASCII character.
// False with `error`.
CKDVOL_EXPORT bool validateOwner(const std::string& owner, std::string& error);

// Stages `serial` (checked with validateVolumeSerial) in the label and in
// every Format-1/8 DSCB of the VTOC that `vtoc` (a scan of the same volume)
// describes, and `owner` in the label when it is not null. False with
// `error`, nothing staged, when a value is not valid, the label cannot be
// found or the VTOC cannot be read.
CKDVOL_EXPORT bool relabelVolume(StagedTracks& staged, const VtocInfo& vtoc, const std::string& serial,
                                 const std::string* owner, std::string& error);

}  // namespace ckdvol

#endif  // CKDVOL_EDIT_RELABEL_H_
