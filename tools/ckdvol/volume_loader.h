// Opening a volume's label and VTOC for the listing commands (vtoc, label,
// ls), with a one-line explanation naming the file for every way it can fail.
//
// The steps are those of DskVolume::open(EmulatedCKDfile*) (label, then
// VTOC), done one by one so that the reason each step leaves in errno can be
// told to the user instead of the handle's bare EIO.
#ifndef CKDVOL_TOOLS_CKDVOL_VOLUME_LOADER_H_
#define CKDVOL_TOOLS_CKDVOL_VOLUME_LOADER_H_

#include <string>

#include "ckdfile/emulated_ckd_file.h"
#include "volume/dsk_volume.h"
#include "tool_util.h"

namespace ckdvol_tool {

// A volume file opened read-only and the handle that borrows it. The handle
// is declared last, so it is closed before the file.
struct LoadedVolume {
  VolumeLock lock;  // shared: released after the file is closed
  EmulatedCKDfile file;
  DskVolume volume;
  ~LoadedVolume() { volume.close(); }
};

// Opens `path` read-only, reads its label and, when `withVtoc`, its VTOC
// into `v.volume` (which then uses `v.file`). Returns kExitOk, or writes
// "ckdvol: FILE: CAUSE" to standard error and returns kExitFailure.
int loadVolume(const std::string& path, bool withVtoc, LoadedVolume& v);

// Reads the VTOC of a volume that loadVolume(path, false, v) opened, with
// the volume classes' reader (their diagnostic lines become notes on
// standard error). kExitOk, or kExitFailure with `cause` explaining the
// refusal (nothing written).
int loadVtoc(const std::string& path, LoadedVolume& v, std::string& cause);

// The volume serial in ASCII with trailing blanks removed ("" without label).
std::string volumeSerial(const DiskLabel& label);

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_VOLUME_LOADER_H_
