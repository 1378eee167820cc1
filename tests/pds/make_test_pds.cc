// make_test_pds OUT [d300]: writes a small volume with partitioned data sets
// to OUT for the tool's end-to-end test (the tool cannot make one itself).
// D600, 3 cylinders (default):
//   TEST.PDS   PO, FB, LRECL 80, BLKSIZE 3120, 1/0 .. 2/5 (21 tracks). Members
//              ALPHA (3 records "ALPHA 0".."ALPHA 2", 4 bytes of user data),
//              BETA (100 records "BETA i" in 3 blocks), EMPTY (no records),
//              FAR (its directory entry says TT 400, beyond the 21 tracks).
//   TEST.SEQ   PS.   TEST.LOAD  PO, RECFM U, LRECL 0; member PROG.
// D300 (19 heads), 4 cylinders, with "d300":
//   TEST.PDS   PO, FB 80/3120, one extent 1/10 .. 2/5: 15 real tracks that the
//              DSCB counts as 11. Members ALPHA (on relative track 2) and LATE
//              (on relative track 12, beyond the count).
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>

#include "support/pds_builder.h"

using namespace ckdvol_test;

int main(int argc, char** argv) {
  const bool d300 = argc == 3 && std::strcmp(argv[2], "d300") == 0;
  if (argc < 2 || argc > 3 || (argc == 3 && !d300)) {
    std::fprintf(stderr, "usage: make_test_pds OUT [d300]\n");
    return 2;
  }
  try {
    TestVolume vol(d300 ? EmulatedCKDfile::D300 : EmulatedCKDfile::D600, d300 ? 4 : 3);
    PdsLayoutOptions opts;
    if (d300) {
      DataSetLayout pds = pdsDataSet("TEST.PDS", 80, 3120, {{1, 10, 2, 5}});
      vol.writeVtoc({format1Dscb(pds)});
      std::vector<PdsMember> members = {{"ALPHA", textBlocks("ALPHA", 3, 80, 39), {}}};
      for (const char* m : {"FILL0", "FILL1", "FILL2", "FILL3", "LATE"}) {
        members.push_back({m, textBlocks(m[0] == 'F' ? "FILL" : m, 1, 80, 39), {}});
      }
      opts.recordsPerTrack = 1;  // fillers on tracks 4 .. 11
      if (writePds(vol, pds.extents, members, opts).memberTT.back() != 12) throw std::runtime_error("LATE not on TT 12");
    } else {
      DataSetLayout pds = pdsDataSet("TEST.PDS", 80, 3120, {{1, 0, 2, 5}});
      DataSetLayout seq = pdsDataSet("TEST.SEQ", 80, 3120, {{2, 14, 2, 14}});
      DataSetLayout load = pdsDataSet("TEST.LOAD", 0, 6144, {{2, 10, 2, 13}});
      seq.dsorg = 0x4000;
      load.recfm = 0xC0;
      vol.writeVtoc({format1Dscb(pds), format1Dscb(seq), format1Dscb(load)});
      PdsMember far{"FAR", textBlocks("FAR", 2, 80, 39), {}};
      far.entryTT = 400;
      opts.recordsPerTrack = 4;
      writePds(vol, pds.extents,
               {{"ALPHA", textBlocks("ALPHA", 3, 80, 39), {0x12, 0x34, 0x56, 0x78}},
                {"BETA", textBlocks("BETA", 100, 80, 39), {}}, {"EMPTY", {}, {}}, far},
               opts);
      writePds(vol, load.extents, {{"PROG", {Bytes(500, 0x47)}, {}}});
    }
    vol.close();
    Bytes bytes = fileBytes(vol.path());
    std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error(std::string("cannot write ") + argv[1]);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "make_test_pds: %s\n", e.what());
    return 1;
  }
  return 0;
}
