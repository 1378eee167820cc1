// A volume opened for a change by the space and VTOC commands (alloc,
// scratch, rename, relabel): exclusive lock, read-write open, VTOC scanned.
#ifndef CKDVOL_TOOLS_CKDVOL_EDIT_VOLUME_H_
#define CKDVOL_TOOLS_CKDVOL_EDIT_VOLUME_H_

#include <cerrno>
#include <string>

#include "ckdfile/emulated_ckd_file.h"
#include "command.h"
#include "dataset/vtoc_scan.h"
#include "open_failure.h"
#include "tool_util.h"

namespace ckdvol_tool {

struct EditVolume {
  VolumeLock lock;  // released after the file is closed
  EmulatedCKDfile file;
  ckdvol::VtocInfo vtoc;
  ~EditVolume() { file.close(); }
};

// kExitOk, or kExitFailure after "ckdvol: FILE: cause; nothing was changed".
inline int openForEdit(const std::string& path, EditVolume& v) {
  if (int status = v.lock.acquire(path, true)) return status;
  const int rc = v.file.open(path.c_str(), false);
  if (rc < 0) return openFailed(path, rc, errno, v.file.errorText);
  if (v.file.deviceType == EmulatedCKDfile::D200) return fail(path, "D200 volumes cannot be edited; nothing was changed");
  std::string error;
  if (ckdvol::scanVtoc(v.file, v.vtoc, error) != ckdvol::kScanOk) {
    return fail(path, "cannot read the volume label or the VTOC: " + error + "; nothing was changed");
  }
  return kExitOk;
}

// Closes the volume after a change; kExitFailure after a message when that fails.
inline int closeAfterEdit(const std::string& path, EditVolume& v) {
  if (v.file.close() != 0) return fail(path, "closing the volume failed after the change");
  return kExitOk;
}

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_EDIT_VOLUME_H_
