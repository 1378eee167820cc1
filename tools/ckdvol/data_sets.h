// The tool's access to data sets through the data-set layer (src/dataset):
// a volume opened read-only with its VTOC scanned from the VTOC's own
// extent, data sets and members found by name in any case (with near
// misses suggested when not found), and the records of a data set or a
// member streamed to a FILE* as text lines or bytes.
#ifndef CKDVOL_TOOLS_CKDVOL_DATA_SETS_H_
#define CKDVOL_TOOLS_CKDVOL_DATA_SETS_H_

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "dataset/pds_directory.h"
#include "dataset/vtoc_scan.h"
#include "text_output.h"
#include "tool_util.h"

namespace ckdvol_tool {

// A volume file opened read-only (shared lock) and its scanned VTOC.
struct ScannedVolume {
  VolumeLock lock;  // released after the file is closed
  EmulatedCKDfile file;
  ckdvol::VtocInfo vtoc;
  std::string path;
};

// Opens `path` and scans its VTOC. kExitOk, or kExitFailure after
// "ckdvol: FILE: CAUSE". The walk's notes are written as
// "ckdvol: note: FILE: ..." on standard error when `withNotes`.
int scanVolume(const std::string& path, ScannedVolume& v, bool withNotes);

// `name` in upper case (ASCII letters only), surrounding blanks removed.
std::string upperName(const std::string& name);

// The names among `names` that `wanted` may have meant: within a small edit
// distance, or with the same last qualifier; at most five, best first.
std::vector<std::string> nearNames(const std::vector<std::string>& names, const std::string& wanted);
// " (did you mean A, B?)" or "".
std::string didYouMean(const std::vector<std::string>& near);

// The data set `dsn` (compared as given, then in upper case), or null with
// `status`: kExitUsage for an empty name, kExitFailure when there is no
// such data set (the message suggests near names) or its DSCB chain is
// damaged (the message names the damage); `afterwards` ends those
// messages (a changing command's "; nothing was changed").
const ckdvol::DataSetInfo* findDataSetOrFail(const ScannedVolume& v, const std::string& dsn, int& status,
                                             const std::string& afterwards = "");

// Reads the directory of `ds` into `members`. kExitOk, kExitFailure after a
// message naming the block and the cause (a data set that is not
// partitioned is told so, with a pointer to `ckdvol cat`).
int readDirectoryOrFail(ScannedVolume& v, const ckdvol::DataSetInfo& ds,
                        std::vector<ckdvol::MemberInfo>& members);

// The member `name` (any case) of `members`, or null after a message naming
// near misses (status kExitFailure).
const ckdvol::MemberInfo* findMemberOrFail(const ScannedVolume& v, const ckdvol::DataSetInfo& ds,
                                           const std::vector<ckdvol::MemberInfo>& members,
                                           const std::string& name);

// How records are written.
enum class Render {
  kAuto,     // text lines, but the bytes of RECFM U blocks (load modules)
  kText,     // text lines, whatever the format
  kData,     // the records' bytes back to back
  kRecords,  // each record as a 4-byte big-endian length, then its bytes
  kBlocks    // each block whole (descriptor words included), with the same prefix
};

// What stream() wrote.
struct StreamStats {
  uint64_t records = 0;  // records (or blocks with kBlocks) written
  uint64_t bytes = 0;    // their data bytes, without prefixes
  bool binary = false;   // written as bytes (not as text lines)
};

// Writes the data of `ds` (from its start; or member `member` when not null)
// to `out`, called `outName` in messages ("standard output" or a path).
// `what` names the data ("TEST.PDS(ALPHA)"). Returns kExitOk, or
// kExitFailure after "ckdvol: FILE: WHAT: CAUSE" naming the
// block and what is wrong, and how much was written before it. When
// `refuseBinaryOnTerminal` and kAuto would write bytes to a terminal,
// nothing is written and kExitFailure explains why.
int stream(ScannedVolume& v, const ckdvol::DataSetInfo& ds, const ckdvol::MemberInfo* member,
           Render render, const TextOptions& text, FILE* out, const std::string& outName, const std::string& what,
           bool refuseBinaryOnTerminal, StreamStats& stats);

// As stream(), but the data is held until it has been read whole and only
// then written to `out`: after a failed read (an I/O error, a short read, a
// damaged track or block) nothing at all is written, and the message says so.
int streamWhole(ScannedVolume& v, const ckdvol::DataSetInfo& ds, const ckdvol::MemberInfo* member,
                Render render, const TextOptions& text, FILE* out, const std::string& outName,
                const std::string& what, bool refuseBinaryOnTerminal, StreamStats& stats);

// As stream(), into a new file `target`: the data goes to a temporary file
// beside it, renamed to `target` (replacing a file of that name) only when
// the data was read and written whole. On any failure the temporary file is
// removed, `target` is left as it was, and the message says so.
int streamToFile(ScannedVolume& v, const ckdvol::DataSetInfo& ds, const ckdvol::MemberInfo* member,
                 Render render, const TextOptions& text, const std::string& target, const std::string& what,
                 StreamStats& stats);

// The usual abbreviations of DSORG (PS, PO, DA, IS, VS, "-"; U suffix for
// unmovable) and of RECFM (F, V, U; then B, S, T, A, M; "-" for 0).
std::string dsorgText(unsigned dsorg);
std::string recfmText(unsigned recfm);
// A DSCB or statistics date as YYYY.DDD, "" when empty.
std::string julianText(const ckdvol::YearDay& date);
// The same date as YYYY-MM-DD, "" when empty.
std::string isoText(const ckdvol::YearDay& date);
// "C/H" and "C/H/R".
std::string cylHeadText(uint32_t cyl, uint32_t head);
std::string addressText(const ckdvol::RecordAddress& a);

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_DATA_SETS_H_
