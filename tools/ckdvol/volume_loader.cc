#include "volume_loader.h"

#include <cerrno>
#include <cstring>

#include "command.h"
#include "open_failure.h"
#include "stdout_notes.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

std::string address(int cyl, int head, int rec) {
  return std::to_string(cyl) + "/" + std::to_string(head) + "/" + std::to_string(rec);
}

std::string labelCause(int reason) {
  switch (reason) {
    case EIO:
      return "no volume label: track 0/0 cannot be read";
    case DiskLabel::kErrNoLabel:
      return "no volume label: track 0/0 holds no record keyed VOL1 (a volume initialised "
             "without labels?)";
    case DiskLabel::kErrLabelLength:
      return "damaged volume label: the VOL1 record on track 0/0 does not have 80 data bytes";
    default:
      return "the volume label cannot be read (reason " + std::to_string(reason) + ")";
  }
}

std::string vtocCause(int reason, const DiskLabel& label) {
  int cyl, head, rec;
  label.getVTOC(cyl, head, rec);
  const std::string at = "the label puts the VTOC at " + address(cyl, head, rec) + ", but ";
  switch (reason) {
    case EIO:
      return at + "that track cannot be read (it lies outside the volume?)";
    case DiskVtoc::kErrNoFirstRecord:
      return at + "there is no such record: the volume has no VTOC";
    case DiskVtoc::kErrFirstLength:
      return at + "that record is not a VTOC record (key length 44, data length 96): the "
                  "volume has no VTOC";
    case DiskVtoc::kErrNotFormat4:
      return at + "that record is not a Format-4 DSCB: the VTOC is empty or damaged";
    case DiskVtoc::kErrWalkLength:
      return "damaged VTOC: a record before its last active DSCB does not have key length 44 "
             "and data length 96 (the note above gives its address)";
    default:
      return "the VTOC cannot be read (reason " + std::to_string(reason) + ")";
  }
}

}  // namespace

int loadVtoc(const std::string& path, LoadedVolume& v, std::string& cause) {
  int rc, reason;
  {
    // The walk writes " key len err ..." to standard output: a note.
    StdoutNotes notes(path);
    rc = v.volume.vtoc.initialize(v.file, v.volume.label);
    reason = errno;
  }
  if (rc == 0) return kExitOk;
  cause = vtocCause(reason, v.volume.label);
  return kExitFailure;
}

int loadVolume(const std::string& path, bool withVtoc, LoadedVolume& v) {
  if (int status = v.lock.acquire(path, false)) return status;
  const int rc = v.file.open(path.c_str(), true);
  if (rc < 0) return openFailed(path, rc, errno, v.file.errorText);
  // The handle borrows the file; its close() leaves the file to us.
  v.volume.file = &v.file;
  v.volume.ownsFile = false;
  if (v.volume.label.initialize(v.file) != 0) return fail(path, labelCause(errno));
  std::string cause;
  if (withVtoc && loadVtoc(path, v, cause) != kExitOk) return fail(path, cause);
  return kExitOk;
}

std::string volumeSerial(const DiskLabel& label) {
  char serial[DiskLabel::kSerialLength + 1] = {0};
  if (!label.getSerial(serial, true)) return "";
  std::string s = serial;
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

}  // namespace ckdvol_tool
