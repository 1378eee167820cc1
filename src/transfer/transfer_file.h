// Transfer files: a data set (and perhaps a message in front of it) packed
// into card images for sending between systems.
//
// The file is a run of 80-byte cards. Their bytes, read one after the
// other, are segments: a length byte (2..255, counting itself and the
// flags), a flags byte, then length - 2 bytes of data. Flags:
//   80 first segment of a record      40 last segment of a record
//   20 the record is a control record 10 the record holds the number of
//                                        the next record (skipped)
// A record is the data of its segments joined. A control record starts
// with its name in EBCDIC: INMR01 (origin: text units), INMR02 (a 4-byte
// file number, then text units describing the file and the utility that
// made it), INMR03 (text units; the data records of the next file follow),
// INMR04 (a user's record, skipped), INMR06 (the end; the rest of the last
// card is padding), INMR07 (an acknowledgement, skipped). Other records are
// data records of the file opened by the last INMR03.
//
// A text unit: key (2), number of values (2), then per value its length (2)
// and bytes. Keys read and written here:
//   INMDSNAM 0002 (one value per qualifier) INMDIR   000C  INMSECND 000B
//   INMTERM  0028 (no values: a message)    INMBLKSZ 0030  INMDSORG 003C
//   INMLRECL 0042  INMRECFM 0049  INMTNODE 1001  INMTUID 1002
//   INMFNODE 1011  INMFUID  1012  INMFTIME 1024  INMUTILN 1028
//   INMRECCT 102A  INMSIZE  102C  INMNUMF  102F  INMTYPE 8012
// Numbers are big-endian of the value's length (at most 8 bytes); texts
// EBCDIC. INMDSORG: 4000 sequential, 0200 partitioned, 0008 VSAM, others
// refused. A partitioned data set is described by two INMR02 records of its
// file: one naming the unload utility (INMUTILN "IEBCOPY") with the data
// set's own attributes, and one naming INMCOPY with the attributes of its
// unloaded form (RECFM VS); its data records are the unload's logical
// records (unload.h). A sequential data set has one INMR02 with INMCOPY;
// its data records are its logical records (variable ones without their
// record descriptor word).
//
// TransferAttributes::spaceUnit and primary have no text unit here: the
// reader leaves them 0 and the writer does not send them; INMSECND is read
// into `secondary` and sent for a sequential data set when set.
//
// Thread safety: plain functions on plain values.
#ifndef CKDVOL_TRANSFER_TRANSFER_FILE_H_
#define CKDVOL_TRANSFER_TRANSFER_FILE_H_

#include <string>

#include "common/export.h"
#include "transfer/transfer_contents.h"

namespace ckdvol {

// Reads a whole transfer file. Also taken: an unloaded PDS as a host file
// (the unload data set's bytes, recognised by COPYR1's eyecatcher) in one
// of three forms: with its block and segment descriptor words (BDW + SDW
// before COPYR1), with a record descriptor word before each record (no
// block descriptors), or with no descriptor words at all (COPYR1 of 56
// bytes, COPYR2 of 276, then the blocks one behind the other); its
// contents come back with `partitioned` set, the attributes from COPYR1
// (no name) and no origin.
//
// Of several files, the message file (INMTERM) goes into `message` and the
// one data set into the rest; a file whose data set is a PDSE unload, a
// VSAM data set or another organisation is refused by name ("the transfer
// file holds a PDSE unload", "data set organisation VSAM is not
// supported", "data set organisation 0x1234 is not supported"), as is a
// second data set. `recordCount` is INMRECCT when given, else the records
// read. False with `error` (and `out` unspecified) for a damaged file:
// truncated, a segment or text unit running past its end, a segment flood
// without a last segment, no INMR01 first, no INMR06, data before INMR03.
// Never reads outside `file`; time and memory are bounded by its size.
CKDVOL_EXPORT bool readTransferFile(const Bytes& file, TransferContents& out, std::string& error);

// Writes `in` as a transfer file: INMR01 (INMFNODE, INMFUID, INMTNODE,
// INMTUID, INMFTIME, INMLRECL 80, INMNUMF), then for a message file (when
// `in.message` is not empty) an INMR02 with INMTERM, then the data set's
// INMR02 records (partitioned: the unload utility with INMDSORG, INMRECFM,
// INMLRECL, INMBLKSZ, INMDIR, INMSIZE, INMDSNAM and INMTYPE when set, then
// INMCOPY for the unload; sequential: INMCOPY with the attributes), an
// INMR03 before each file's data records, INMR06, zero bytes padding the
// last card to 80. Origin fields that are empty are written as "" would be
// (left out); an empty time becomes no INMFTIME. Segments are at most 255
// bytes and run on across cards. False with `error` when the data set name
// is not 1 to 44 characters of dotted qualifiers, or the partitioned
// contents cannot be unloaded (writeUnload).
CKDVOL_EXPORT bool writeTransferFile(const TransferContents& in, Bytes& out, std::string& error);

}  // namespace ckdvol

#endif  // CKDVOL_TRANSFER_TRANSFER_FILE_H_
