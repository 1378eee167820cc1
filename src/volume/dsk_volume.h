// DskVolume: a volume handle tying one volume file to its label and its VTOC.
//
// open() reads the label (DiskLabel) and then the whole VTOC (DiskVtoc);
// close() forgets both. A handle opened by path creates, owns, closes and
// destroys its EmulatedCKDfile; a handle opened on a caller's file only
// borrows it and never closes or destroys it. printVTOC() produces the
// complete VTOC listing of the volume.
//
// One thread per object; no guard against other processes or other objects
// using the same volume file.
#ifndef CKDVOL_VOLUME_DSK_VOLUME_H_
#define CKDVOL_VOLUME_DSK_VOLUME_H_

#include <cstdio>

#include "ckdfile/emulated_ckd_file.h"
#include "common/export.h"
#include "common/rexx_string.h"
#include "volume/disk_label.h"
#include "volume/disk_vtoc.h"

class CKDVOL_EXPORT DskVolume {
 public:
  enum {
    kListingCapacity = 32768,  // initial capacity of the stream listing's string
    kSeparatorLength = 100     // "=" characters of the separator line
  };

  EmulatedCKDfile* file;  // the volume file in use; null when closed
  DiskLabel label;        // the volume label
  DiskVtoc vtoc;          // the VTOC
  bool ownsFile;          // `file` was created by open(path) and is closed and destroyed by close()

  // Closed: no file, not owning, empty label and VTOC.
  DskVolume();
  // close(), then the VTOC and the label are destroyed.
  ~DskVolume();
  DskVolume(const DskVolume&) = delete;
  DskVolume& operator=(const DskVolume&) = delete;

  // Opens the volume file at `path` (read-only when `readOnly`) and then the
  // volume, as open(EmulatedCKDfile*). Results:
  //   0  open; the handle owns the file;
  //  -1  errno EEXIST: the handle already holds a file (nothing changes);
  //  the volume file's own open() result (EmulatedCKDfile::OpenResult, the
  //      positive "read-only, update pending" one included) when that fails:
  //      nothing stays allocated and the handle stays closed;
  //  -1  errno EIO: the label or the VTOC could not be read (the line below
  //      was written); the handle stays open on the file so that close()
  //      releases it.
  int open(const char* path, bool readOnly);

  // Opens the volume on `volumeFile`, a volume file the caller opened and
  // keeps owning. Reads the label, then the VTOC. Results:
  //   0  open;
  //  -1  errno ENOENT: `volumeFile` is null (nothing changes: a closed
  //      handle stays closed, an open one keeps its file);
  //  -1  errno EEXIST: the handle already holds a file (nothing changes; the
  //      design leaves this case open and it would otherwise hand the
  //      caller's file to a handle that may destroy it);
  //  -1  errno EIO: the label could not be read, after "lbl.initialize errno
  //      is N" (N the label's errno: EIO, 9999, 9998) and a line end on
  //      standard output; or the VTOC could not be read, after
  //      "vtoc.initialize errno is N" (N: EIO, 9999, 9998, 9997, 9995).
  //      `file` stays set, and so do the label and what the VTOC collected,
  //      until close().
  int open(EmulatedCKDfile* volumeFile);

  // Releases the volume: closes and destroys the file when the handle owns
  // it, then forgets the file and resets the label and the VTOC. Returns the
  // file's close() result when the handle owned it, else 0. Harmless on a
  // closed handle.
  int close();

  // Appends the VTOC listing: "VTOC listing of volume serial SSSSSS", the
  // ctime() text of now, a blank line, 100 "=" and a blank line, the label
  // dump, the VTOC listing (DiskVtoc::print). The serial is empty when no
  // label is loaded. Throws the const char* "PTR::check - Reference to
  // unassigned pointer" when no VTOC is loaded, after the heading and the
  // label dump have been appended. Returns `out`.
  RexxString& printVTOC(RexxString& out);

  // Writes the listing of printVTOC(RexxString&) to `stream` with fputs.
  // Returns the listing's length in characters, or fputs' negative result
  // when the write fails. Throws as printVTOC(RexxString&), before writing
  // anything.
  int printVTOC(FILE* stream);
};

#endif  // CKDVOL_VOLUME_DSK_VOLUME_H_
