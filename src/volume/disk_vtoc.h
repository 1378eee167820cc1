// DiskVtoc: a volume's table of contents (VTOC), read into memory.
//
// The VTOC is a run of 140-byte records (key length 44, data length 96), the
// data set control blocks (DSCBs). The label (DiskLabel) gives the address of
// the first one, which must be the Format-4 DSCB describing the VTOC; its
// "LastDSCB" field names the last active DSCB. initialize() walks the records
// after the Format-4 DSCB in track order up to and including that DSCB's
// track, files the Format-1, Format-5 and Format-8 DSCBs in lists and counts
// the empty (Format-0) and unknown ones, then follows the chains
// Format-1 -> Format-3 -> Format-3 ... and
// Format-8 -> Format-9 (-> Format-9 ...), each Format-9 naming Format-3 chains.
//
// A DSCB's place in the walk is its track index, cylinder * 15 + head, with
// the factor 15 for every device type.
//
// Ownership: the object owns every DSCB it holds. reset() and the destructor
// delete the Format-4 DSCB and the objects in f1List, f5List and f8List; the
// chained Format-3 and Format-9 DSCBs are owned by the f3List/f9List of their
// Format-1 or Format-8 DSCB and go with it. Format-0, unknown and unchained
// Format-3/9 objects met in the walk are deleted at once. The lists themselves
// are created without element ownership, so a caller that takes entries out
// of them must not rely on the lists to free anything.
//
// Format identifiers: the walk files by getType(), and a record is filed in a
// list only when the factory made an object of that list's class (byte 44 F1,
// F5, F8); a byte whose low bits merely give 1, 5 or 8 counts as unknown, and
// one that is not F4 fails the first-record check with 9997.
//
// Bounds on damaged volumes: the walk makes at most kMaxWalkDscbs DSCBs; a
// chain ends at an address it has already visited and after kMaxChainLength
// links, and one initialize() makes at most kMaxChainedDscbs chained DSCBs.
//
// One thread per object; no guard against other processes changing the file.
#ifndef CKDVOL_VOLUME_DISK_VTOC_H_
#define CKDVOL_VOLUME_DISK_VTOC_H_

#include "ckdfile/emulated_ckd_file.h"
#include "common/dynamic_typed_pointer_array.h"
#include "common/export.h"
#include "common/ptr.h"
#include "common/rexx_string.h"
#include "dscb/format1_dscb.h"
#include "dscb/format4_dscb.h"
#include "dscb/format5_dscb.h"
#include "dscb/format8_dscb.h"
#include "volume/disk_label.h"

class CKDVOL_EXPORT DiskVtoc {
 public:
  // errno values that initialize() leaves beside -1 (besides ENOENT, EIO).
  enum VtocErrno {
    kErrNoFirstRecord = 9999,  // the first VTOC record is not on its track
    kErrFirstLength = 9998,    // the first VTOC record is not key 44 / data 96
    kErrNotFormat4 = 9997,     // the first VTOC record is not a Format-4 DSCB
    kErrWalkLength = 9995      // a record of the walk is not key 44 / data 96
  };
  enum {
    kTrackIndexFactor = 15,     // track index = cylinder * 15 + head, any device
    kMaxWalkDscbs = 5000,       // the walk ends after this many DSCBs
    kMaxChainLength = 5000,     // links followed in one Format-3/Format-9 chain
    kMaxChainedDscbs = 50000    // chained DSCBs made by one initialize()
  };

  PTR<Format4DSCB> f4;                         // the VTOC's Format-4 DSCB; unset when empty
  DynamicTypedPointerArray<Format1DSCB> f1List;  // Format-1 DSCBs in walk order, dense
  DynamicTypedPointerArray<Format8DSCB> f8List;  // Format-8 DSCBs in walk order, dense
  DynamicTypedPointerArray<Format5DSCB> f5List;  // Format-5 DSCBs in walk order, dense
  int f0Count;       // Format-0 (empty) records met in the walk
  int unknownCount;  // records of formats 2, 4, 6, 7 and above 9 met in the walk

  // Empty: f4 unset, lists empty (growth step 32, not owning), counters 0.
  DiskVtoc();
  // reset(), then the lists are destroyed.
  ~DiskVtoc();
  DiskVtoc(const DiskVtoc&) = delete;
  DiskVtoc& operator=(const DiskVtoc&) = delete;

  // Deletes the Format-4 DSCB and every DSCB in the three lists (with their
  // chained DSCBs), clears the lists (storage kept) and zeroes the counters.
  void reset();

  // Reads the VTOC of the open volume `file` starting at the address that
  // `label` holds. Does not reset first: called twice it replaces the
  // Format-4 DSCB and adds the DSCBs again; the chains are then followed for
  // every data set DSCB held, so earlier ones get their chained DSCBs
  // appended once more. Results:
  //   0  the VTOC was read (chain failures are silent: a chain ends there);
  //  -1  errno ENOENT: `label` holds no label;
  //  -1  errno EIO: the first VTOC track could not be read;
  //  -1  errno 9999: the first VTOC record is not on that track;
  //  -1  errno 9998: it is not key length 44 / data length 96 (or, on a
  //      damaged track, such a record runs past the track's record area);
  //  -1  errno 9997: it is not a Format-4 DSCB (f4 stays as it was);
  //  -1  errno 9995: a record of the walk is not 44/96 or runs past the
  //      record area (slot size - 24); the line
  //      " key len err 9995 KL cc hh r is C H R" is written to standard
  //      output first. The Format-4 DSCB and the DSCBs met so far stay.
  // Failures before the walk leave the object unchanged. Reads tracks, so
  // the caller's references into the file's track buffer die.
  int initialize(EmulatedCKDfile& file, DiskLabel& label);

  // The Format-1 DSCB whose 44-byte key equals `name` (ASCII, at most its
  // first 44 characters, translated to EBCDIC and padded with EBCDIC blanks;
  // no case folding), or null; null for a null or empty name. Format-8 DSCBs
  // are not searched. The DSCB stays owned by this object until reset().
  const Format1DSCB* locateDataset(const char* name) const;

  // Appends the VTOC listing (Format-4, Format-5, Format-1 with their chains,
  // Format-8 with their chains, a line of 100 "=", the summary) and returns
  // `out`. Throws the const char* "PTR::check - Reference to unassigned
  // pointer" before appending anything when no Format-4 DSCB is held.
  RexxString& print(RexxString& out);
};

#endif  // CKDVOL_VOLUME_DISK_VTOC_H_
