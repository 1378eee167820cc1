// ckdvol cat: a sequential data set or a member, as text lines or bytes.
//
//   ckdvol cat FILE DSN[(MEMBER)] [--raw | --records | --blocks | --text]
//
// Read through the data-set layer: the data set's extents with the device's
// real heads per cylinder, every record format, the end of data where the
// data set's last-block pointer or an end-of-file record puts it.
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "command.h"
#include "data_sets.h"
#include "text_output.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

struct CatArgs {
  std::string file, name;
  bool raw = false, records = false, blocks = false, text = false;
  TextOptions textOptions;
};

int runCat(const CatArgs& a) {
  std::string dsn = a.name;
  std::string member;
  const size_t open = a.name.find('(');
  if (open != std::string::npos) {
    if (a.name.back() != ')' || open + 2 >= a.name.size()) {
      return failWith(kExitUsage, "'" + a.name + "' is neither DSN nor DSN(MEMBER)");
    }
    dsn = a.name.substr(0, open);
    member = a.name.substr(open + 1, a.name.size() - open - 2);
  }
  ScannedVolume v;
  int status = scanVolume(a.file, v, true);
  if (status != kExitOk) return status;
  const ckdvol::DataSetInfo* ds = findDataSetOrFail(v, dsn, status);
  if (ds == nullptr) return status;
  Render render = Render::kAuto;
  if (a.raw) render = Render::kData;
  if (a.records) render = Render::kRecords;
  if (a.blocks) render = Render::kBlocks;
  if (a.text) render = Render::kText;

  StreamStats stats;
  if (member.empty()) {
    if (ds->partitioned()) {
      return fail(a.file, "data set " + ds->name + " is partitioned: name a member, " + ds->name +
                              "(MEMBER); 'ckdvol pds list " + a.file + " " + ds->name + "' lists them");
    }
    if (ds->vsam()) return fail(a.file, "data set " + ds->name + " is a VSAM data set; its records are not read here");
    return stream(v, *ds, nullptr, render, a.textOptions, stdout, "standard output", ds->name, true, stats);
  }
  std::vector<ckdvol::MemberInfo> members;
  if ((status = readDirectoryOrFail(v, *ds, members)) != kExitOk) return status;
  const ckdvol::MemberInfo* m = findMemberOrFail(v, *ds, members, member);
  if (m == nullptr) return kExitFailure;
  return streamWhole(v, *ds, m, render, a.textOptions, stdout, "standard output", ds->name + "(" + m->name + ")",
                     true, stats);
}

const CommandRegistration kRegistration(Command{
    "cat", "Write a sequential data set or a member as text lines, or its bytes", 58,
    [](CLI::App& app) -> std::function<int()> {
      auto a = std::make_shared<CatArgs>();
      app.add_option("FILE", a->file, "Volume file")->required();
      app.add_option("DSN", a->name, "Data set name, or DSN(MEMBER) for a member (any case)")->required();
      auto* raw = app.add_flag("--raw", a->raw, "Write the records' bytes back to back, no line ends");
      auto* records = app.add_flag("--records", a->records,
                                   "Write each record as a 4-byte big-endian length, then its bytes");
      auto* blocks = app.add_flag("--blocks", a->blocks,
                                  "Write each block whole (descriptor words included) as a 4-byte\n"
                                  "big-endian length, then its bytes");
      auto* text = app.add_flag("--text", a->text, "Text lines even for RECFM U (undefined-length) blocks");
      raw->excludes(records)->excludes(blocks)->excludes(text);
      records->excludes(blocks)->excludes(text);
      blocks->excludes(text);
      addTextOptions(app, a->textOptions);
      app.footer(std::string(
                     "Records of every format (F, FB, V, VB, VS, VBS, U) are read up to the end of data\n"
                     "(an end-of-file record, or for a sequential data set its last-block pointer).\n"
                     "F and V records are written as text lines; RECFM U blocks as their bytes, and\n"
                     "not to a terminal unless --raw or --text is given. V records come without\n"
                     "their descriptor words except with --blocks. The length prefix of --records\n"
                     "and --blocks is 4 bytes, big-endian, the number of bytes that follow it. A\n"
                     "data set that cannot be read to its end gives status 1 and a message naming\n"
                     "the block and what is wrong, after what was read before it; a member is held\n"
                     "until it has been read whole, and one that cannot be gives no output.\n") +
                 kTextOptionsHelp);
      return [a] { return runCat(*a); };
    }});

}  // namespace
}  // namespace ckdvol_tool
