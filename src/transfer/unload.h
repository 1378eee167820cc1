// The unloaded form of a partitioned data set: the sequential data set of
// RECFM VS that a PDS is copied into for transport, and back.
//
// Its logical records, in order (every number big-endian):
//   COPYR1   the original data set's attributes and device (56 bytes):
//              0 flags: bits 0-1 the form (00 a PDS unload, 40 a PDSE
//                unload, 80 an unload known to be incomplete or in
//                error, C0 the newer transfer format of unloads); 10 the
//                original held program objects; 01 it was a PDSE
//              1 eyecatcher CA 6D 0F
//              4 DS1DSORG (2), 6 DS1BLKL (2), 8 DS1LRECL (2),
//             10 DS1RECFM, 11 DS1KEYL, 12 DS1OPTCD, 13 DS1SMSFG
//             14 block size of the unload data set (2): the LRECL is
//                the larger of 280 and 16 + DS1BLKL + DS1KEYL (at most
//                32760), the block size that plus 4 (at least 284)
//             16 device: type (4), largest block (4), cylinders (2),
//                heads (2), track length (2), block overhead (2),
//                keyed overhead (1), flags (1), tolerance (2)
//             36 header records (2, always 2), 38 reserved (1),
//             39 DS1REFD (3), 42 DS1SCEXT (3), 45 DS1SCALO (4),
//             49 DS1LSTAR (3), 52 DS1TRBAL (2), 54 reserved (2)
//   COPYR2   the original extents (276 bytes): the last 16 bytes of the
//            DEB's basic section, then 16 extent entries of 16 bytes (the
//            first N used: UCB address (4), type (1), modifier (1)... from
//            byte 6 start CC HH, end CC HH, tracks (2)), 4 reserved
//   directory records: the directory blocks in the form of member blocks
//            below (KL 8, DL 256: 276 bytes each), every block of the
//            original directory, the unused ones behind the end entry
//            (name FF x 8) included; then a block of 12 zero bytes that
//            ends the directory
//   member records: blocks, each behind a 12-byte header (flags (1),
//            extent number M (1), BB (2), CC (2), HH (2), R (1), KL (1),
//            DL (2)), its key and data; a block with KL = DL = 0 is the
//            end-of-file record closing a member. Several blocks share a
//            record up to the unload data set's record length; a block
//            never spans records.
//
// A record given to or made by these functions is what followed the block
// and segment descriptor words in the unload data set: COPYR1 starts at
// its flags byte (offset 0), the eyecatcher at offset 1. No descriptor
// words are included and spanned segments are already joined.
//
// Thread safety: plain functions on plain values.
#ifndef CKDVOL_TRANSFER_UNLOAD_H_
#define CKDVOL_TRANSFER_UNLOAD_H_

#include <string>
#include <vector>

#include "common/export.h"
#include "transfer/transfer_contents.h"

namespace ckdvol {

// Reads the logical records of an unload data set into `out`. Each block's
// cylinder/head/record becomes a TTR of the original data set through the
// COPYR2 extents (relative track = tracks of the extents before M + the
// track's distance from the extent's start, counted with COPYR1's heads).
// False with `error` (and `out` unspecified) when the records are not a
// PDS unload or are damaged: "unloaded PDSE is not supported", "the unload
// is marked as in error", "the transfer format of unloads (PDSE, program
// objects) is not supported", "not an unload: COPYR1 eyecatcher missing",
// a directory block or member block that runs past its record, a block
// outside the extents, directory entries past their block, no end of the
// directory. Never reads outside `records`; work is bounded by their size.
CKDVOL_EXPORT bool readUnload(const std::vector<Bytes>& records, UnloadedPds& out, std::string& error);

// Writes `in` as the logical records of an unload data set (the form
// described above; COPYR1 with the attributes, device type and geometry of
// `in`, the block size `in.containerBlockSize` or, when 0, the one the
// rule above gives), so that readUnload gives `in` back (with
// containerBlockSize filled in). Each TTR
// becomes CC HH R through `in.extents` (heads from `in.heads`). The
// directory blocks are built from `in.entries` (as many whole entries as
// fit a block, their order kept as given), keyed with each block's last
// name, the end entry behind the last entry, then unused blocks up to
// `in.directoryBlocks`; they are addressed from record 1 of relative track
// 0 on. Each record holds as many whole blocks as its length allows. False with
// `error` when a TTR lies outside the extents, there are no extents, or a
// block is larger than a record can hold.
CKDVOL_EXPORT bool writeUnload(const UnloadedPds& in, std::vector<Bytes>& records, std::string& error);

}  // namespace ckdvol

#endif  // CKDVOL_TRANSFER_UNLOAD_H_
