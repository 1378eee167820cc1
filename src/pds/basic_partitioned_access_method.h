// BasicPartionedAccessMethod: member access to one partitioned data set (PDS)
// on an open volume: open the data set by name, read a member's logical
// records, replace a member's records in place.
//
// A PDS starts with its directory: 256-byte data records (the 8-byte key,
// the name of the block's last member, is not used), each
//
//   0 bytes used, u16 big-endian, these two bytes included (at most 256)
//   2 directory entries back to back, as many as the bytes used hold
//
// and a directory entry (12 to 74 bytes) is
//
//   0 member name, 8 bytes EBCDIC, blank (40) padded
//   8 TT, relative track of the member's first block in the data set, u16 BE
//  10 R, record number of that block on its track
//  11 indicator byte; its low 5 bits count the halfwords of user data
//  12 user data, 2 x (indicator & 1F) bytes
//
// An entry whose name bytes are all FF ends the directory. The directory is
// closed by an end-of-file record (data length 0). A member is a run of
// blocks (data records), each a whole number of fixed-length logical records,
// from TT/R on in track order up to an end-of-file record.
//
// Relative tracks count through the data set's extents. The extents come
// from the Format-1 DSCB (and its Format-3 DSCBs), whose track numbers count
// 15 tracks per cylinder whatever the device; tt2cchh() then spreads the
// relative track over the volume's real heads per cylinder.
//
// Ownership: the object owns every Extent, DirEnt and RexxString held in its
// four lists (the lists themselves are made without element ownership):
// `records` is emptied at every readMember(), its strings being reused for
// the new records or deleted; all four are released at destruction. A caller
// that wants to keep a record copies the RexxString, or takes it out of the
// list by setting its slot to null (it then owns and deletes it).
//
// Thread safety: none. One thread per object; the volume handle must stay
// open, and be used by nobody else, while the object is used. Nothing locks
// the volume file against other processes.
#ifndef CKDVOL_PDS_BASIC_PARTITIONED_ACCESS_METHOD_H_
#define CKDVOL_PDS_BASIC_PARTITIONED_ACCESS_METHOD_H_

#include <cstdint>

#include "common/dynamic_typed_pointer_array.h"
#include "common/export.h"
#include "common/rexx_string.h"
#include "volume/dsk_volume.h"

class CKDVOL_EXPORT BasicPartionedAccessMethod {
 public:
  // ---- on-disk layout of the directory ------------------------------------
  enum DirectoryLayout {
    kDirBlockSize = 256,          // data length of every directory block
    kDirUsedSize = 2,             // the bytes-used halfword at block offset 0
    kDirNameSize = 8,             // member name, EBCDIC, blank padded
    kDirTrackOffset = 8,          // TT, u16 big-endian
    kDirRecordOffset = 10,        // R
    kDirIndicatorOffset = 11,     // indicator byte
    kDirUserDataOffset = 12,      // user data
    kDirEntryFixedSize = 12,      // entry length without user data
    kDirUserHalfwordMask = 0x1F,  // indicator bits counting user halfwords
    kDirMaxUserData = 62          // 2 x 31
  };

  // ---- result codes, named once -------------------------------------------
  enum OpenResult {
    kOpenOk = 0,
    kOpenNotFound = -1,        // ENOENT: no Format-1 DSCB of that name
    kOpenNoName = -2,          // ENOENT: name null or empty
    kOpenNotPartitioned = -3,  // ENOENT: DSORG is not 0200 (or 0300)
    kOpenNoExtent = -5,        // EIO: the data set has no extent
    kOpenUnreadable = -6,      // EIO: first track of the first extent unreadable
    kOpenNoFirstRecord = -7    // EIO: that track has no record 1
  };
  enum ReadResult {
    kReadOk = 0,               // also for a member whose first block is missing
    kReadNoMember = -1,        // ENOENT: directory empty or no such member
    kReadOutsideExtents = -3,  // EIO: the member's relative track is beyond the extents
    kReadUnreadable = -4,      // EIO: the member's first track cannot be read
    kReadUndefinedLength = -8  // EINVAL: recordLength is 0 (or unset); cannot deblock
  };
  enum SetRecordResult {
    kSetOk = 0,         // added, or nothing added for length 0
    kSetBadLength = -1  // length negative or above recordLength, or data null; errno unchanged
  };
  enum ReplaceResult {
    kReplaceOk = 0,
    // Any non-zero ReadResult of the implied readMember(), unchanged
    // (kReadUndefinedLength included).
    kReplaceCountMismatch = -10,   // errno unchanged; nothing written
    kReplaceOutsideExtents = -13,  // EIO
    kReplaceUnreadable = -14,      // EIO: the member's first track cannot be read
    kReplaceBlockWrite = -15,      // EIO: writeD refused a block
    kReplaceTrackWrite = -16       // EIO: the last track could not be written back
  };

  // One extent of the data set. Track indexes count 15 tracks per cylinder
  // (as the DSCB does); every value is -1 until filled.
  struct CKDVOL_EXPORT Extent {
    int lowCyl;          // first track: cylinder
    int lowHead;         //   and head
    int highCyl;         // last track: cylinder
    int highHead;        //   and head
    int lowTrackIndex;   // lowCyl x 15 + lowHead
    int highTrackIndex;  // highCyl x 15 + highHead
    int tracks;          // highTrackIndex - lowTrackIndex + 1 (0: not supplied)
    Extent();
  };

  // One directory entry in memory.
  class CKDVOL_EXPORT DirEnt {
   public:
    char name[12];                            // ASCII, trailing blanks removed, NUL padded
    uint16_t track;                           // TT in host order
    uint8_t record;                           // R
    uint8_t indicators;                       // indicator byte as stored
    unsigned char userData[kDirMaxUserData];  // as stored; zero past 2 x (indicators & 1F)

    // Builds the entry from its on-disk bytes. Precondition: the
    // 12 + 2 x (entry[11] & 1F) bytes at `entry` are readable.
    explicit DirEnt(const unsigned char* entry);
    // On-disk length of the entry whose bytes start at `entry` (reads byte 11).
    static int entryLength(const unsigned char* entry);
  };

  // ---- data members, in this order ----------------------------------------
  DskVolume& volume;                         // open volume handle; file and VTOC taken at each call
  RexxString datasetName;                    // name given to openDataset, unchanged
  DynamicTypedPointerArray<Extent> extents;  // extents in extent order; owned (see above)
  DynamicTypedPointerArray<DirEnt> directory;       // entries in directory order; owned
  DynamicTypedPointerArray<RexxString> records;     // records of the member last read; owned
  DynamicTypedPointerArray<RexxString> newRecords;  // replacement records in call order; owned
  int blockSize;                                    // BLKSIZE (0..65535); -1 until openDataset
  int recordLength;                                 // LRECL (0..65535); -1 until openDataset
  int memberTrack;                                  // TT of the member last read
  uint16_t memberRecord;                            // R of that member's first block
  uint16_t recordFormat;                            // RECFM byte; 0xFFFF until openDataset
  char memberName[12];  // upper-cased name of the member last read; NUL padded

  // Remembers `volume`; empty lists, attributes unset, memberName all zero.
  explicit BasicPartionedAccessMethod(DskVolume& volume);
  // Releases every Extent, DirEnt and RexxString held in the lists.
  ~BasicPartionedAccessMethod();
  BasicPartionedAccessMethod(const BasicPartionedAccessMethod&) = delete;
  BasicPartionedAccessMethod& operator=(const BasicPartionedAccessMethod&) = delete;

  // Opens the data set `name` (ASCII, the VTOC name without trailing blanks,
  // case as stored): finds its Format-1 DSCB, requires DSORG 0200 or 0300,
  // takes BLKSIZE, LRECL and RECFM, collects the extents (Format-3 DSCBs
  // included) and reads the whole directory: from record 1 of the first
  // extent's first track, record after record in the volume's track order,
  // up to the first record whose data length is not 256 (so directory blocks
  // after the end entry are read too and yield nothing). Returns an
  // OpenResult; every failure sets errno as listed there. Does not clear
  // what an earlier call collected: one object serves one data set. A block
  // whose bytes-used count runs past its 256 bytes, or an entry that would
  // run past them, ends that block's entries (nothing outside the block is
  // read).
  int openDataset(const char* name);

  // Copies extent `index`'s first six values; false (all six -1) for an index
  // outside 0 .. extents.count - 1 or an empty slot.
  bool getExtent(int index, int& lowCyl, int& lowHead, int& highCyl, int& highHead,
                 int& lowTrackIndex, int& highTrackIndex);

  // Cylinder and head of the track `relativeTrack` tracks from the data set's
  // start, counting each extent's `tracks` in extent order, then spreading
  // the extent's lowHead + remainder over the volume's real heads per
  // cylinder (integer division, so a negative `relativeTrack` gives a track
  // before the extent, possibly with a negative head). False when the track
  // lies beyond the extents or when no volume file is open.
  bool tt2cchh(int relativeTrack, int& cylinder, int& head) const;

  // Reads member `name` (ASCII, any case; compared upper-cased with the
  // entry names) into `records`, one RexxString of recordLength bytes per
  // logical record. Empties `records` (strings of the previous read are
  // reused or deleted; pointers to them are void) and zeroes memberName
  // first. Blocks
  // are taken from TT/R on, across tracks, until one whose data length is 0,
  // above blockSize or not a multiple of recordLength. Returns a ReadResult;
  // 0 with `records` empty when the first block is not on its track.
  int readMember(const char* name);

  // Adds a copy of `length` bytes at `data` to newRecords (`recordNumber` is
  // ignored: records go in call order). 0 (nothing added) for length 0;
  // kSetBadLength for a negative length, one above recordLength, or null
  // data. errno is never changed.
  int setRecord(int recordNumber, const char* data, int length);

  // Reads member `name` again and overwrites each of its logical records, in
  // order, with the matching newRecords entry padded with EBCDIC blanks (40);
  // every block keeps its data length. Returns a ReplaceResult (or a ReadResult
  // of the implied read, unchanged). After a failure from -15 on, blocks
  // already rewritten stay rewritten. Afterwards `records` holds the member's
  // content from before the rewrite; newRecords is never cleared.
  int replaceMember(const char* name);
};

#endif  // CKDVOL_PDS_BASIC_PARTITIONED_ACCESS_METHOD_H_
