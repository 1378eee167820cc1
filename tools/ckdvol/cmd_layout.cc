// ckdvol layout: the field layout of a VTOC record or of the volume label,
// as the library's descriptor table describes it.
//
//   ckdvol layout FORMAT       FORMAT: 1, 3, 4, 5, 8, 9, unknown or label
//
// Each line names a field with its offset (decimal and hexadecimal), length,
// rendering code and whether it ends a dump line; the last line gives the
// record length covered by the table. No volume is needed.
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "command.h"
#include "common/rexx_string.h"
#include "dscb/generic_dscb.h"
#include "dscb/structure_field.h"
#include "tool_util.h"
#include "volume/disk_label.h"

namespace ckdvol_tool {
namespace {

// The format identifier byte that makes the factory choose each DSCB class;
// 00 gives the table used for formats without a class of their own.
const std::map<std::string, unsigned char> kFormatIds = {
    {"1", 0xF1}, {"3", 0xF3}, {"4", 0xF4}, {"5", 0xF5}, {"8", 0xF8}, {"9", 0xF9}, {"unknown", 0x00},
};
constexpr char kLabel[] = "label";

int runLayout(const std::string& format) {
  RexxString out;
  if (format == kLabel) {
    StructureField::printDesc(out, DiskLabel::getDesc());
  } else {
    auto id = kFormatIds.find(format);
    if (id == kFormatIds.end()) {
      return failWith(kExitUsage, "unknown record format '" + format +
                                      "' (1, 3, 4, 5, 8, 9, unknown or label)");
    }
    unsigned char record[GenericDSCB::kLength] = {};
    record[GenericDSCB::kFormatIdOffset] = id->second;
    std::unique_ptr<GenericDSCB> dscb(GenericDSCB::create(record, -1, -1, -1));
    dscb->printDesc(out);
  }
  std::fputs(out.text(), stdout);
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "layout", "Show the field layout of a DSCB format or of the volume label", 85,
    [](CLI::App& app) -> std::function<int()> {
      auto format = std::make_shared<std::string>();
      app.add_option("FORMAT", *format, "1, 3, 4, 5, 8, 9, unknown or label")->required();
      app.footer(
          "One line per field: its label, Offset-decimal(0xhex), Length in bytes, Type\n"
          "(how a dump renders it: 3 unsigned, 4 hexadecimal, 5 bits, 6 EBCDIC text,\n"
          "7 grouped hexadecimal, 8 bytes, 9 halfwords, 16 date, 17 title) and NL (the\n"
          "field ends a dump line). Group fields are followed by their parts at the same\n"
          "offset; 'Total length' is the end of the furthest field. 'unknown' is the\n"
          "layout used to dump DSCBs of formats without a layout of their own (2, 6, 7).");
      return [format] { return runLayout(*format); };
    }});

}  // namespace
}  // namespace ckdvol_tool
