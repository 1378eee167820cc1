// ckdvol dscb: the formatted dump of one VTOC record.
//
//   ckdvol dscb FILE CYL HEAD REC
//
// Reads track CYL/HEAD of the volume (opened read-only), finds the record
// whose count field is CYL/HEAD/REC, requires the DSCB shape (key length 44,
// data length 96) and prints the record through the DSCB class its format
// identifier selects; formats without a class of their own are dumped as
// key and data. Chained DSCBs are not followed.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "ckdfile/emulated_ckd_file.h"
#include "command.h"
#include "open_failure.h"
#include "common/rexx_string.h"
#include "dscb/generic_dscb.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

using F = EmulatedCKDfile;

struct DscbOptions {
  std::string path;
  unsigned cyl = 0;
  unsigned head = 0;
  unsigned rec = 0;
};

std::string address(const DscbOptions& o) {
  return std::to_string(o.cyl) + "/" + std::to_string(o.head) + "/" + std::to_string(o.rec);
}

int runDscb(const DscbOptions& o) {
  if (o.head > 0xFFFF) return failWith(kExitUsage, "HEAD is a number up to 65535");
  if (o.rec > 0xFF) return failWith(kExitUsage, "REC is a number up to 255");
  VolumeLock lock;
  if (int status = lock.acquire(o.path, false)) return status;
  F f;
  const int orc = f.open(o.path.c_str(), true);
  if (orc < 0) return openFailed(o.path, orc, errno, f.errorText);
  const int rc = f.readTrack(o.cyl, static_cast<unsigned short>(o.head), 0);
  if (rc == F::kTrackRange) {
    const std::string geometry = f.deviceType == F::D200
                                     ? d200GeometryText()
                                     : count(f.cylinders, "cylinder") + " of " + count(f.tracksPerCylinder, "head");
    return failWith(kExitUsage, o.path + ": track " + std::to_string(o.cyl) + "/" + std::to_string(o.head) +
                                    " is not on the volume (" + geometry + ")");
  }
  if (rc != F::kTrackOk) {
    return fail(o.path, "track " + std::to_string(o.cyl) + "/" + std::to_string(o.head) +
                            " could not be read (result " + std::to_string(rc) + ")");
  }
  const void* ref = f.searchRecord(nullptr, o.cyl, static_cast<unsigned short>(o.head),
                                   static_cast<unsigned char>(o.rec));
  if (ref == nullptr) return fail(o.path, "no record " + address(o) + " on its track");
  const int keyLength = f.getRefKL(ref);
  const int dataLength = f.getRefDL(ref);
  if (keyLength != GenericDSCB::kKeyLength || dataLength != GenericDSCB::kDataLength) {
    return fail(o.path, "record " + address(o) + " is not a DSCB (key length " +
                            std::to_string(keyLength) + ", data length " +
                            std::to_string(dataLength) + "; a DSCB has 44 and 96)");
  }
  // The key and the data lie back to back in the track image: one DSCB.
  std::unique_ptr<GenericDSCB> dscb(GenericDSCB::create(f.getRefKey(ref), static_cast<int>(o.cyl),
                                                        static_cast<int>(o.head),
                                                        static_cast<int>(o.rec)));
  dscb->largeCylinders = f.largeCylinders != 0;
  RexxString out;
  dscb->print(out, 0);
  std::fputs(out.text(), stdout);
  f.close();
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "dscb", "Dump one VTOC record (DSCB) with the fields of its format", 35,
    [](CLI::App& app) -> std::function<int()> {
      auto o = std::make_shared<DscbOptions>();
      app.add_option("FILE", o->path, "The volume file (opened read-only)")->required();
      app.add_option("CYL", o->cyl, "Cylinder of the record")->required();
      app.add_option("HEAD", o->head, "Head of the record")->required();
      app.add_option("REC", o->rec, "Record number of the record")->required();
      app.footer(
          "The record must have a 44-byte key and 96 bytes of data. Its format\n"
          "identifier (data byte 0) selects the layout: formats 1, 3, 4, 5, 8 and 9 have\n"
          "their own ('ckdvol layout N' lists it); other formats show key and data in\n"
          "hexadecimal. Addresses inside the record (CCHH, CCHHR) are shown as stored.");
      return [o] { return runDscb(*o); };
    }});

}  // namespace
}  // namespace ckdvol_tool
