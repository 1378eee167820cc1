// What the writing commands (put, load, pds add/replace/...) share: a volume
// opened for a change (exclusive lock, read-write, VTOC scanned, D200
// refused), host input turned into records for a data set's format, the
// statistics of a text member, and the change committed as one journaled
// change.
#ifndef CKDVOL_TOOLS_CKDVOL_DATA_INPUT_H_
#define CKDVOL_TOOLS_CKDVOL_DATA_INPUT_H_

#include <functional>
#include <string>
#include <vector>

#include "data_sets.h"
#include "edit/data_writer.h"
#include "edit/pds_edit.h"
#include "text_output.h"

namespace ckdvol_tool {

// Opens `path` for a change: kExitOk, or a failure status after a message
// that says nothing was changed.
int openForChange(const std::string& path, ScannedVolume& v);

// How input becomes records.
struct InputOptions {
  bool raw = false;  // bytes: F/FB cut by LRECL; V/VB/U each after a 4-byte big-endian length
  TextOptions text;  // else text lines through this code page and host encoding
};

// The records of `data` (read from `source`) for `ds`'s format, already
// checked by the data set's blocking: text lines padded with EBCDIC blanks
// to LRECL for F/FB, trailing blanks trimmed for V/VB/U. Empty, or why not
// (naming the line or record).
std::string inputBlocks(const std::string& data, const std::string& source, const ckdvol::DataSetInfo& ds,
                        const InputOptions& o, std::vector<ckdvol::Bytes>& blocks, uint64_t& records);

// The user data of a text member of `lines` lines written now (or at
// $SOURCE_DATE_EPOCH, UTC, when set) by $USER,
// keeping `previous`'s created date and version when it holds statistics.
ckdvol::Bytes textStatistics(uint64_t lines, const ckdvol::DirectoryEntry* previous);

// Writes member `member` (any case) of `ds` through `pds` from `data` (read
// from `source`): its records for the data set's format, and unless `o.raw`
// or `noStats` the statistics of a text member (keeping those of the member
// it replaces). An existing member is refused unless `replace`. False with
// `error`; nothing is staged before the editor's commit.
bool writeInputMember(ckdvol::PdsEditor& pds, const ckdvol::DataSetInfo& ds, const std::string& member,
                      const std::string& data, const std::string& source, const InputOptions& o, bool noStats,
                      bool replace, ckdvol::MemberWrite& w, uint64_t& records, std::string& error);

// One change of a partitioned data set: `edit` makes it in a loaded
// PdsEditor and says what it did in `summary`, or returns false with `error`.
using PdsEdit = std::function<bool(ckdvol::PdsEditor& pds, const ckdvol::DataSetInfo& ds, std::string& summary,
                                   std::string& error)>;

// Opens `path` for a change, finds the partitioned data set `dsn` (any
// case), loads its directory and runs `edit`; then stages the directory and
// the end of data and writes the whole as one journaled change called
// `command`, printing the summary. Every refusal comes before anything is
// written and says that nothing was changed. Returns the exit status.
// `streamed` runs `edit` twice: once to plan the tracks it writes, then,
// with those saved by the journal, writing each track as it is built (a
// large load holds no track images); the second run's summary is printed.
int changePds(const std::string& path, const std::string& dsn, const std::string& command, const PdsEdit& edit,
              bool streamed = false);

// Reads all of `path` ("" or "-": standard input) into `data`. False after
// a message.
bool readAllInput(const std::string& path, std::string& data);

// The --codepage/--encoding/--raw options of a writing command.
void addInputOptions(CLI::App& app, InputOptions& o);

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_DATA_INPUT_H_
