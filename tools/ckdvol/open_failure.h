// Why a file is not a usable volume, in words a user can act on.
//
// EmulatedCKDfile::open reports a failure as a result code and one fixed
// text ("Unable to read file" covers a directory, an empty file, a text file
// and an unfinished creation alike). The tool looks at the file itself to
// name the cause and the next step.
#ifndef CKDVOL_TOOLS_CKDVOL_OPEN_FAILURE_H_
#define CKDVOL_TOOLS_CKDVOL_OPEN_FAILURE_H_

#include <string>

namespace ckdvol_tool {

// The cause of a failed open of `path`: `rc` is open()'s negative result,
// `savedErrno` errno right after it, `errorText` the handle's errorText.
// The file is examined read-only (stat and its first 512 bytes); the text
// never starts with the file name.
std::string openFailureCause(const std::string& path, int rc, int savedErrno, const char* errorText);

// True for what an interrupted 'ckdvol create' leaves behind: an empty file,
// a file whose header magic says "CKD_INIT" (initialisation never finished),
// or a file shorter than the header whose bytes begin a header as create
// writes it (the magic, heads, slot size and code of a known device, level 3
// or 4, then cylinder counts and zeros). `h` holds the file's first
// min(size, 512) bytes.
bool isUnfinishedCreation(const unsigned char* h, long long size);
// The cause for such a file: "an unfinished creation (...): 'ckdvol create
// --force FILE TYPE ...' replaces it, 'ckdvol recover FILE' removes it",
// naming the type and cylinders when the header bytes still say them.
std::string unfinishedCreationCause(const std::string& path, const unsigned char* h, long long size);

// Writes "ckdvol: FILE: CAUSE" to standard error and returns kExitFailure.
int openFailed(const std::string& path, int rc, int savedErrno, const char* errorText);

// How a volume file's length compares with what its header describes
// (512 + cylinders x heads x track size; D200: 512 + 200000 tracks).
struct SizeCheck {
  long long fileSize = 0;
  long long headerSize = 0;  // the length the header describes
  std::string finding;       // empty when the two agree; else both sizes and what differs
};
// `header`: the file's 512 header bytes; `size`: its length. Slots behind the
// last track are saved copies, not a finding, when the header shows versions.
SizeCheck checkFileSize(const unsigned char* header, long long size);

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_OPEN_FAILURE_H_
