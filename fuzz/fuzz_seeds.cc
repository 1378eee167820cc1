// fuzz_seeds <directory>: writes the seed corpora of the fuzz targets, one
// subdirectory per target (open, track_walk, vtoc, pds, dataset, recover, edit, transfer), from volumes that the
// library makes: created and initialised volumes, versioned tracks, VTOCs with
// DSCB chains written through the volume builder, and partitioned data sets
// laid out by the data set builder. Each seed is in its target's input format
// (see the comment at the top of each <target>_fuzzer.cc).
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "common/byte_order.h"
#include "dataset/vtoc_scan.h"
#include "edit/allocate.h"
#include "edit/pds_edit.h"
#include "edit/staged_tracks.h"
#include "journal/change_journal.h"
#include "support/pds_builder.h"
#include "support/volume_builder.h"
#include "transfer/transfer_file.h"
#include "transfer/unload.h"

namespace {

using namespace ckdvol_test;

std::string outDir;
int written = 0;

void writeSeed(const std::string& target, const std::string& name, const Bytes& bytes) {
  const std::string dir = outDir + "/" + target;
  ::mkdir(dir.c_str(), 0755);
  std::ofstream out(dir + "/" + name, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot write seed " + dir + "/" + name);
  ++written;
}

Bytes concat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// The slot image of track `index` (file order) of a volume file's bytes.
Bytes slotOf(const Bytes& file, size_t slot, size_t index) {
  const size_t at = ckdvol::kHeaderSize + index * slot;
  if (at + slot > file.size()) throw std::runtime_error("no such slot");
  return Bytes(file.begin() + static_cast<long>(at), file.begin() + static_cast<long>(at + slot));
}

// ---- open: control, slot count, delta, then the file --------------------------

Bytes openSeed(uint8_t control, const Bytes& file, uint16_t slots = 0, int8_t delta = 0) {
  Bytes s = {control, static_cast<uint8_t>(slots >> 8), static_cast<uint8_t>(slots),
             static_cast<uint8_t>(delta)};
  return concat(s, file);
}

void openSeeds() {
  {
    TestVolume vol(EmulatedCKDfile::D130, 1);
    vol.close();
    Bytes file = fileBytes(vol.path());
    writeSeed("open", "d130-1cyl-ro", openSeed(0, file));
    writeSeed("open", "d130-1cyl-rw-verify", openSeed(3, file));
    // Level 0 (older file): cylinders come from the size, rewritten read-write.
    Bytes level0 = file;
    level0[ckdvol::kHdrFormatLevel] = 0;
    writeSeed("open", "d130-level0", openSeed(1, level0));
    // Header and two tracks, the rest of a 200-cylinder volume a hole.
    Bytes head(file.begin(), file.begin() + ckdvol::kHeaderSize + 2 * 4096);
    ckdvol::storeLe32(head.data() + ckdvol::kHdrCylinders, 200);
    writeSeed("open", "d130-200cyl-sparse", openSeed(4, head, 2000, 0));
  }
  {
    TestVolume vol(EmulatedCKDfile::D100, 1);
    vol.close();
    writeSeed("open", "d100-1cyl", openSeed(1, fileBytes(vol.path())));
  }
  {
    TestVolume vol(EmulatedCKDfile::D160, 1);
    vol.close();
    Bytes file = fileBytes(vol.path());
    writeSeed("open", "d160-1cyl", openSeed(2, file));
    // One cylinder more in the header than in the file.
    ckdvol::storeLe32(file.data() + ckdvol::kHdrCylinders, 2);
    writeSeed("open", "d160-corrected", openSeed(0, file));
  }
  {
    // A versioned volume: version 1 in effect, two tracks changed, so two
    // saved copies follow the last slot; then a pending version 2.
    TestVolume vol(EmulatedCKDfile::D130, 1);
    EmulatedCKDfile& f = vol.file();
    if (f.enableVersion() != 0) throw std::runtime_error("enableVersion");
    vol.reopen(false);
    vol.appendRecords(0, 2, {dataRecord(1, Bytes(100, 0xC1))});
    vol.appendRecords(0, 3, {dataRecord(1, Bytes(200, 0xC2))});
    vol.close();
    writeSeed("open", "d130-versioned", openSeed(1, fileBytes(vol.path())));
    vol.reopen(false);
    if (f.enableVersion() != 0) throw std::runtime_error("enableVersion 2");
    vol.close();
    writeSeed("open", "d130-version-pending", openSeed(0, fileBytes(vol.path())));
  }
  {
    // A created, not initialised file (magic CKD_INIT, header only).
    ScopedTempDir dir;
    EmulatedCKDfile f;
    const std::string path = dir.file("init.ckd");
    if (f.create(path.c_str(), EmulatedCKDfile::D200, 5) != 0) throw std::runtime_error("create");
    f.close();
    writeSeed("open", "d200-created", openSeed(4, fileBytes(path), 100, 0));
  }
}

// ---- track_walk: device, flags, cylinders, address, record, image ---------------

Bytes walkSeed(uint8_t device, uint8_t flags, uint8_t cylinders, uint32_t cyl, uint16_t head,
               uint16_t cell, uint8_t rec, const Bytes& image) {
  Bytes s(12);
  s[0] = device;
  s[1] = flags;
  s[2] = cylinders;
  ckdvol::storeBe32(&s[3], cyl);
  ckdvol::storeBe16(&s[7], head);
  ckdvol::storeBe16(&s[9], cell);
  s[11] = rec;
  return concat(s, image);
}

void trackWalkSeeds() {
  // D130 (device 1): the label track, the VTOC track, a data track with keyed
  // records, a PDS directory track.
  TestVolume vol(EmulatedCKDfile::D130, 3);
  DataSetLayout ds = pdsDataSet("SEED.PDS", 80, 800, {{1, 0, 1, 9}});
  vol.writeVtoc({format1Dscb(ds), format5Dscb({{20, 1, 0}}), emptyDscb()});
  PdsMember a{"ALPHA", textBlocks("ALPHA", 25, 80, 10), Bytes(4, 0x11)};
  PdsMember b{"BETA", textBlocks("BETA", 3, 80, 10), {}};
  writePds(vol, {{1, 0, 1, 9}}, {a, b});
  vol.appendRecords(0, 5, {keyedRecord(1, ebcdic("ABCD"), Bytes(40, 0xF1)),
                           keyedRecord(2, ebcdic("ABCC"), Bytes(10, 0xF2)),
                           keyedRecord(3, ebcdic("ABCDE"), Bytes(10, 0xF3)), eofRecord(4)});
  vol.close();
  const Bytes file = fileBytes(vol.path());
  writeSeed("track_walk", "d130-label", walkSeed(1, 0, 3, 0, 0, 0, 3, slotOf(file, 4096, 0)));
  writeSeed("track_walk", "d130-vtoc", walkSeed(1, 6, 3, 0, 1, 0, 1, slotOf(file, 4096, 1)));
  writeSeed("track_walk", "d130-keyed", walkSeed(1, 4, 3, 0, 5, 0, 2, slotOf(file, 4096, 5)));
  writeSeed("track_walk", "d130-pds-dir", walkSeed(1, 0, 3, 1, 0, 0, 1, slotOf(file, 4096, 10)));
  writeSeed("track_walk", "d130-pds-member", walkSeed(1, 4, 3, 1, 0, 0, 4, slotOf(file, 4096, 10)));
  // A wrong current address (code 2 on verification).
  writeSeed("track_walk", "d130-wrong-head", walkSeed(1, 4, 3, 0, 2, 0, 1, slotOf(file, 4096, 1)));

  // A versioned pair in the scratch file: the track 0/5 lies at slot 0 of it
  // and its saved copy at slot 1 (file offset 512 + 4096); the copy links
  // back to the track's own slot offset, 512 + 5 x 4096.
  Bytes home = slotOf(file, 4096, 5);
  Bytes copy = slotOf(file, 4096, 5);
  unsigned char* ht = home.data() + 4096 - ckdvol::kTrailerSize;
  unsigned char* ct = copy.data() + 4096 - ckdvol::kTrailerSize;
  std::memcpy(ht, ckdvol::kVersionMarker, 4);
  std::memcpy(ct, ckdvol::kVersionMarker, 4);
  ckdvol::storeBe16(ht + ckdvol::kTrlVersion, 1);
  ckdvol::storeBe64(ht + ckdvol::kTrlLink, ckdvol::kHeaderSize + 4096);
  ckdvol::storeBe64(ct + ckdvol::kTrlLink, ckdvol::kHeaderSize + 5 * 4096);
  writeSeed("track_walk", "d130-versioned", walkSeed(1, 2, 3, 0, 5, 0, 1, concat(home, copy)));

  // D200 (device 0) and D160 (device 2) images, composed with the encoders:
  // record zero, three records, the marker.
  for (uint8_t device : {uint8_t{0}, uint8_t{2}}) {
    EmulatedCKDfile f;
    f.setType(device == 0 ? EmulatedCKDfile::D200 : EmulatedCKDfile::D160);
    Bytes image(f.trackSlotSize, 0);
    unsigned char* w = image.data();
    f.putHA(w, 0, 0x0102, 0x0304);
    f.putCount(w, 0x0102, 0x0304, 0, 0, 8);
    w += 8;
    for (uint8_t r = 1; r <= 3; ++r) {
      f.putCount(w, 0x0102, 0x0304, r, 4, static_cast<unsigned short>(r * 50));
      std::memcpy(w, "\xC1\xC2\xC3\xC0", 4);
      w[3] = static_cast<unsigned char>(0xF0 + r);
      w += 4 + r * 50;
    }
    std::memset(w, 0xFF, 8);
    writeSeed("track_walk", device == 0 ? "d200-records" : "d160-records",
              walkSeed(device, 4, 20, 0x0102, 0x0304, 0, 2, image));
  }
  // Large-cylinder encoding on a D130 image: cylinder 100000, head 5.
  {
    EmulatedCKDfile f;
    f.setType(EmulatedCKDfile::D130);
    f.largeCylinders = 1;
    Bytes image(f.trackSlotSize, 0);
    unsigned char* w = image.data();
    f.putHA(w, 0, 100000, 5);
    f.putCount(w, 100000, 5, 0, 0, 8);
    w += 8;
    f.putCount(w, 100000, 5, 1, 0, 64);
    w += 64;
    std::memset(w, 0xFF, 8);
    writeSeed("track_walk", "d130-large-cylinders", walkSeed(1, 1, 255, 100000, 5, 0, 1, image));
  }
}

// ---- vtoc: control, then tracks 0/0 to 0/3 ------------------------------------

void vtocSeed(TestVolume& vol, const std::string& name, uint8_t control = 0) {
  vol.close();
  const Bytes file = fileBytes(vol.path());
  Bytes s = {control};
  for (size_t t = 0; t < 4; ++t) s = concat(s, slotOf(file, 4096, t));
  writeSeed("vtoc", name, s);
  vol.reopen(false);
}

void vtocSeeds() {
  {
    TestVolume vol(EmulatedCKDfile::D130, 3);
    vtocSeed(vol, "initialised");
    vtocSeed(vol, "initialised-by-file", 3);
  }
  {
    // Format-1 with a Format-3 chain, Format-8 with Format-9 and Format-3s,
    // Format-5, empty and unknown records.
    TestVolume vol(EmulatedCKDfile::D130, 3);
    DataSetLayout seq;
    seq.name = "SEED.SEQ";
    seq.extents = {{1, 0, 1, 4}, {1, 5, 1, 6}, {1, 7, 1, 7}};
    seq.nbrExts = 5;
    DataSetLayout big;
    big.name = "SEED.LARGE.DATA";
    big.extents = {{2, 0, 2, 1}};
    // Records: 2 F1, 3 F3, 4 F8, 5 F9, 6 F3 (of the F9), 7 F5, 8 empty, 9 F2.
    seq.next = Cchhr{0, 1, 3};
    big.next = Cchhr{0, 1, 5};
    vol.writeVtoc({format1Dscb(seq), format3Dscb({{2, 2, 2, 3}, {2, 4, 2, 4}}), format8Dscb(big),
                   format9Dscb({Cchhr{0, 1, 6}}), format3Dscb({{2, 5, 2, 9}}),
                   format5Dscb({{20, 1, 0}, {25, 0, 3}}), emptyDscb(), formatIdDscb(0xF2)});
    vtocSeed(vol, "chains");
    vtocSeed(vol, "chains-rw", 1);
    vtocSeed(vol, "chains-by-file-verify", 6);
  }
  {
    // A VTOC over three tracks (8 DSCBs a track), many data sets.
    TestVolume vol(EmulatedCKDfile::D130, 3);
    std::vector<Dscb> dscbs;
    for (int i = 0; i < 20; ++i) {
      DataSetLayout ds = i % 3 == 0 ? pdsDataSet("SEED.PDS" + std::to_string(i), 80, 3120, {{1, 0, 1, 1}})
                                  : DataSetLayout();
      if (i % 3 != 0) {
        ds.name = "SEED.DS" + std::to_string(i);
        ds.extents = {{2, static_cast<uint16_t>(i % 10), 2, static_cast<uint16_t>(i % 10)}};
      }
      dscbs.push_back(format1Dscb(ds));
    }
    dscbs.push_back(format5Dscb({{11, 0, 9}}));
    vol.writeVtoc(dscbs, 8);
    vtocSeed(vol, "three-tracks");
  }
}

// ---- pds: prefix, then the records of tracks 10 to 29 ---------------------------

struct PdsSeedLayout {
  uint16_t blksize = 800, lrecl = 80;
  uint8_t recfm = 0x90;
  uint16_t dsorg = 0x0200;
  int nbrExts = -1;  // -1: the number of extents
  std::vector<std::pair<uint8_t, uint8_t>> extents;  // relative to track 10
  std::string member;
  uint8_t control = 1;
};

void pdsSeed(const std::string& name, const PdsSeedLayout& layout, const std::vector<PdsMember>& members,
             const PdsLayoutOptions& options = {}) {
  TestVolume vol(EmulatedCKDfile::D130, 3);
  std::vector<ExtentSpec> extents;
  for (auto e : layout.extents) {
    const unsigned lo = 10 + e.first, hi = 10 + e.second;
    ExtentSpec x;
    x.loCyl = lo / 10;
    x.loHead = static_cast<uint16_t>(lo % 10);
    x.hiCyl = hi / 10;
    x.hiHead = static_cast<uint16_t>(hi % 10);
    extents.push_back(x);
  }
  writePds(vol, extents, members, options);

  Bytes s(37, 0);
  s[0] = layout.control;
  ckdvol::storeBe16(&s[1], layout.blksize);
  ckdvol::storeBe16(&s[3], layout.lrecl);
  s[5] = layout.recfm;
  ckdvol::storeBe16(&s[6], layout.dsorg);
  s[8] = static_cast<uint8_t>(layout.nbrExts >= 0 ? layout.nbrExts : static_cast<int>(layout.extents.size()));
  for (size_t i = 0; i < 6; ++i) {
    auto e = i < layout.extents.size() ? layout.extents[i] : std::make_pair(uint8_t{0}, uint8_t{0});
    s[9 + 2 * i] = e.first;
    s[10 + 2 * i] = e.second;
  }
  std::memcpy(&s[21], layout.member.data(), layout.member.size() < 16 ? layout.member.size() : 16);
  for (uint32_t t = 10; t < 30; ++t) {
    bool first = true;
    for (const Record& r : vol.readRecords(t / 10, static_cast<uint16_t>(t % 10))) {
      uint8_t control = first ? 1 : 0;
      if (r.cyl >= 0 && static_cast<uint32_t>(r.cyl) != t / 10) control |= 2;
      first = false;
      Bytes head = {control, r.rec, static_cast<uint8_t>(r.key.size()), 0, 0};
      ckdvol::storeBe16(&head[3], static_cast<uint16_t>(r.data.size()));
      s = concat(s, head);
      s = concat(s, r.key);
      s = concat(s, r.data);
    }
  }
  // The first track must not start with "next track": the builder starts on
  // track 10 already.
  if (s.size() > 37) s[37] &= static_cast<uint8_t>(~1u);
  writeSeed("pds", name, s);
}

void pdsSeeds() {
  PdsSeedLayout fb;
  fb.extents = {{0, 9}, {10, 19}};
  fb.member = "alpha";
  PdsSeedLayout verify = fb;
  verify.control = 3;
  pdsSeed("fb80-verify", verify, {{"ALPHA", textBlocks("ALPHA", 40, 80, 10), {}}});
  pdsSeed("fb80", fb,
          {{"ALPHA", textBlocks("ALPHA", 40, 80, 10), Bytes(6, 0x22)},
           {"BETA", textBlocks("BETA", 3, 80, 10), {}},
           {"GAMMA", {}, {}}});
  PdsSeedLayout big = fb;
  big.blksize = 3200;
  big.member = "MISSING";
  PdsLayoutOptions threeBlocks;
  threeBlocks.directoryBlocks = 3;
  std::vector<PdsMember> many;
  for (int i = 0; i < 24; ++i) {
    PdsMember m;
    m.name = "M" + std::to_string(i);
    m.blocks = textBlocks(m.name, 1 + i % 5, 80, 40);
    m.userData = Bytes(static_cast<size_t>((i % 4) * 2), static_cast<unsigned char>(i));
    many.push_back(m);
  }
  pdsSeed("many-members", big, many, threeBlocks);
  PdsSeedLayout three = fb;
  three.extents = {{0, 3}, {4, 7}, {8, 11}, {12, 19}};
  pdsSeed("four-extents", three, {{"SPREAD", textBlocks("SPREAD", 200, 80, 10), {}}});
  PdsSeedLayout undefined = fb;
  undefined.lrecl = 0;
  undefined.recfm = 0xC0;
  pdsSeed("undefined-length", undefined, {{"U", {Bytes(500, 0xC4)}, {}}});
}

// ---- dataset: control, then the records of tracks 1 to 29 ----------------------

// The records of volume tracks 1 to 29 in the dataset target's input form:
// advance (tracks moved on since the last record), R, KL, DL, key, data.
void datasetSeed(TestVolume& vol, const std::string& name, uint8_t control = 0) {
  Bytes s = {control};
  uint32_t last = 1;
  for (uint32_t t = 1; t < 30; ++t) {
    for (const Record& r : vol.readRecords(t / 10, static_cast<uint16_t>(t % 10))) {
      Bytes head = {static_cast<uint8_t>(t - last), r.rec, static_cast<uint8_t>(r.key.size()), 0, 0};
      ckdvol::storeBe16(&head[3], static_cast<uint16_t>(r.data.size()));
      s = concat(concat(concat(s, head), r.key), r.data);
      last = t;
    }
  }
  writeSeed("dataset", name, s);
}

// A D130 volume whose tracks 0/2 to 2/9 hold nothing after record zero.
struct DatasetSeedVolume {
  TestVolume vol{EmulatedCKDfile::D130, 3};
  DatasetSeedVolume() {
    for (uint32_t t = 2; t < 30; ++t) vol.setRecords(t / 10, static_cast<uint16_t>(t % 10), {});
  }
};

Bytes descriptor(uint16_t length, uint8_t control = 0) {
  return {static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length), control, 0};
}

void datasetSeeds() {
  // Statistics user data: version 1.5, 13:45:37, created 2024/032, changed
  // 2025/365, 100/50/10 lines, user IBMUSER.
  const Bytes stats = concat(concat(Bytes{0x01, 0x05, 0x00, 0x37, 0x01, 0x24, 0x03, 0x2F, 0x01, 0x25,
                                          0x36, 0x5F, 0x13, 0x45, 0x00, 0x64, 0x00, 0x32, 0x00, 0x0A},
                                    ebcdic("IBMUSER ")),
                             Bytes{0x00, 0x00});
  {
    DatasetSeedVolume s;
    TestVolume& vol = s.vol;
    DataSetLayout pds = pdsDataSet("SEED.PDS", 80, 800, {{1, 0, 1, 4}});
    writePds(vol, {{1, 0, 1, 4}}, {{"ALPHA", textBlocks("ALPHA", 25, 80, 10), stats},
                                   {"BETA", textBlocks("BETA", 3, 80, 10), Bytes(8, 0), 0x20},
                                   {"GAMMA", {}, {}, 0x80}});
    DataSetLayout vb;
    vb.name = "SEED.VB";
    vb.recfm = 0x50;
    vb.extents = {{1, 5, 1, 6}};
    vol.setRecords(1, 5, {dataRecord(1, concat(concat(descriptor(15), concat(descriptor(6), ebcdic("AB"))),
                                             concat(descriptor(5), ebcdic("C")))),
                          dataRecord(2, concat(descriptor(8), descriptor(4)))});
    vol.setRecords(1, 6, {eofRecord(1)});
    DataSetLayout vbs = vb;
    vbs.name = "SEED.VBS";
    vbs.recfm = 0x58;
    vbs.extents = {{1, 7, 1, 7}};
    vbs.lastTtrRecord = 2;
    vol.setRecords(1, 7, {dataRecord(1, concat(descriptor(11), concat(descriptor(7, 1), ebcdic("HEL")))),
                          dataRecord(2, concat(descriptor(11), concat(descriptor(7, 2), ebcdic("LO.")))),
                          eofRecord(3)});
    DataSetLayout u = vb;
    u.name = "SEED.U";
    u.recfm = 0xC0;
    u.extents = {{1, 8, 1, 9}};
    vol.setRecords(1, 8, {dataRecord(1, Bytes(1000, 0x47)), keyedRecord(2, Bytes(8, 0xC1), Bytes(77, 0x07))});
    vol.setRecords(1, 9, {dataRecord(1, Bytes(3, 0x01)), eofRecord(2)});
    DataSetLayout eav;
    eav.name = "SEED.EAV";
    eav.extents = {{2, 0, 2, 0}, {2, 1, 2, 1}, {2, 2, 2, 2}};
    eav.nbrExts = 4;
    eav.next = Cchhr{0, 1, 7};
    eav.lastTtrTrack = 3;
    eav.lastTtrRecord = 1;
    for (uint16_t h = 0; h < 4; ++h) vol.setRecords(2, h, {dataRecord(1, textBlocks("EAV", 10, 80, 10)[0])});
    // Records: 2 PDS, 3 VB, 4 VBS, 5 U, 6 F8, 7 F9, 8 F3, 9 F5, 10 empty, 11 F2.
    vol.writeVtoc({format1Dscb(pds), format1Dscb(vb), format1Dscb(vbs), format1Dscb(u), format8Dscb(eav),
                   format9Dscb({Cchhr{0, 1, 8}}), format3Dscb({{2, 3, 2, 3}}), format5Dscb({{24, 0, 6}}),
                   emptyDscb(), formatIdDscb(0xF2)});
    datasetSeed(vol, "mixed");
    datasetSeed(vol, "mixed-verify", 1);
  }
  {
    // A VTOC of three tracks (its Format-4 DSCB's extent 0/1 to 0/3), 40 data
    // sets, two of them with broken Format-3 chains.
    DatasetSeedVolume s;
    std::vector<Dscb> dscbs;
    for (int i = 0; i < 40; ++i) {
      DataSetLayout ds;
      ds.name = "SEED.DS" + std::to_string(i);
      ds.extents = {{2, static_cast<uint16_t>(i % 10), 2, static_cast<uint16_t>(i % 10)}};
      if (i == 7 || i == 8) {
        ds.nbrExts = 2;
        ds.next = Cchhr{0, 1, static_cast<uint8_t>(i == 7 ? 40 : 10)};  // missing / itself
      }
      dscbs.push_back(format1Dscb(ds));
    }
    s.vol.writeVtoc(dscbs, 16);
    s.vol.patchDscb(Cchhr{0, 1, 1}, 105, {0x01, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x03});
    datasetSeed(s.vol, "three-track-vtoc");
  }
}

// ---- recover: volume files as an interrupted run leaves them -----------------

void recoverSeeds() {
  using F = EmulatedCKDfile;
  // sealed, done, commit, a torn copy, sealed over an empty track (its index
  // entry stands for a copy that was never made)
  for (int stop = 0; stop < 5; ++stop) {
    TestVolume vol(F::D100, 1);
    F& f = vol.file();
    if (stop == 2 || stop == 3) {
      f.enableVersion();
      vol.reopen(false);
    }
    const uint64_t home = static_cast<uint64_t>(f.getOffset(0, 3, 0, true));
    std::string error;
    if (stop <= 1 || stop == 4) {
      if (stop == 4 && f.formatTrack(0, 3, 0) != F::kFormatOk) throw std::runtime_error("format track 0/3");
      ckdvol::ChangeJournal journal(f, "seed");
      if (journal.begin({home, home + f.trackSlotSize}) != 0) throw std::runtime_error(journal.error());
      if (stop == 1) {
        ckdvol::JournalRecord r;
        bool present = false;
        ckdvol::readJournalRecord(f.fileDescriptor, r, present);
        unsigned char place[ckdvol::JournalRecord::kPlaceSize];
        r.state = ckdvol::JournalState::kDone;
        ++r.sequence;
        r.encode(place);
        ::pwrite(f.fileDescriptor, place, sizeof place, ckdvol::JournalRecord::kOffset + (r.sequence % 2) * 64);
      }
    } else {
      vol.setRecords(0, 3, {dataRecord(1, Bytes(64, 0x5A))});
      if (stop == 2) {
        ckdvol::JournalRecord r;
        r.state = ckdvol::JournalState::kCommit;
        r.sequence = 1;
        r.version = 1;
        std::strcpy(r.command, "commit");
        unsigned char place[ckdvol::JournalRecord::kPlaceSize];
        r.encode(place);
        ::pwrite(f.fileDescriptor, place, sizeof place, ckdvol::JournalRecord::kOffset + 64);
      } else {
        vol.close();
        ::truncate(vol.path().c_str(), static_cast<off_t>(fileBytes(vol.path()).size() - 100));
        vol.reopen(false);
      }
    }
    vol.close();
    writeSeed("recover", "d100-" + std::to_string(stop), fileBytes(vol.path()));
  }
}

// ---- edit: 4 control bytes, then the records of tracks 1 to 29 ----------------

// Stages the allocation of `name` (PO when `dirblks` > 0) and writes the
// staged tracks straight over the volume (seeds need no journal).
void allocate(TestVolume& vol, const std::string& name, uint32_t tracks, uint32_t dirblks) {
  std::string error;
  ckdvol::VtocInfo vtoc;
  if (ckdvol::scanVtoc(vol.file(), vtoc, error) != ckdvol::kScanOk) throw std::runtime_error(error);
  ckdvol::StagedTracks staged(vol.file());
  ckdvol::AllocationRequest req;
  req.name = name;
  req.dsorg = dirblks > 0 ? ckdvol::kDsorgPO : ckdvol::kDsorgPS;
  req.primary = tracks;
  req.directoryBlocks = dirblks;
  ckdvol::AllocationResult result;
  if (!ckdvol::allocateDataSet(staged, vtoc, req, result, error)) throw std::runtime_error(error);
  error = staged.writeAll();
  if (!error.empty()) throw std::runtime_error(error);
}

// Members NAME -> lines of 80 bytes written into the PDS `dsn`, the first
// one written twice (its first copy left as unused space for a compress).
void writeMembers(TestVolume& vol, const std::string& dsn, const std::vector<std::pair<std::string, int>>& members) {
  std::string error;
  ckdvol::VtocInfo vtoc;
  if (ckdvol::scanVtoc(vol.file(), vtoc, error) != ckdvol::kScanOk) throw std::runtime_error(error);
  const ckdvol::DataSetInfo* ds = ckdvol::findDataSet(vtoc, dsn);
  if (ds == nullptr) throw std::runtime_error("no " + dsn);
  ckdvol::StagedTracks staged(vol.file());
  ckdvol::PdsEditor editor(staged, *ds);
  if (!editor.load(error)) throw std::runtime_error(error);
  for (size_t i = 0; i <= members.size(); ++i) {
    const auto& m = members[i == members.size() ? 0 : i];
    std::vector<Bytes> blocks = textBlocks(m.first, m.second, 80, 10);
    ckdvol::MemberWrite w;
    if (!editor.writeMember(m.first, blocks, Bytes(), true, w, error)) throw std::runtime_error(error);
  }
  if (!editor.addAlias("ALIAS", members[0].first, error) || !editor.commit(error)) throw std::runtime_error(error);
  error = staged.writeAll();
  if (!error.empty()) throw std::runtime_error(error);
}

void editSeed(TestVolume& vol, const std::string& name, Bytes header) {
  for (uint32_t t = 1, last = 1; t < 30; ++t) {
    for (const Record& r : vol.readRecords(t / 10, static_cast<uint16_t>(t % 10))) {
      Bytes head = {static_cast<uint8_t>(t - last), r.rec, static_cast<uint8_t>(r.key.size()), 0, 0};
      ckdvol::storeBe16(&head[3], static_cast<uint16_t>(r.data.size()));
      header = concat(concat(concat(header, head), r.key), r.data);
      last = t;
    }
  }
  writeSeed("edit", name, header);
}

void editSeeds() {
  {
    TestVolume vol(EmulatedCKDfile::D130, 3);
    allocate(vol, "SEED.PDS", 8, 2);
    writeMembers(vol, "SEED.PDS", {{"ALPHA", 30}, {"BETA", 5}, {"GAMMA", 0}});
    editSeed(vol, "pds-po-alloc", {0x01, 3, 2, 4});            // PO of 3 tracks, 2 blocks; 4-block member
    editSeed(vol, "pds-ps-placed-replace", {0x0C, 20, 0, 2});  // PS at track 20, member replaced
  }
  {
    TestVolume vol(EmulatedCKDfile::D130, 3);
    allocate(vol, "SEED.SEQ", 2, 0);
    allocate(vol, "SEED.LIB", 10, 1);
    writeMembers(vol, "SEED.LIB", {{"ONE", 12}, {"TWO", 40}});
    editSeed(vol, "ps-and-pds-cylinders", {0x03, 1, 4, 31});   // PO of 1 cylinder
  }
}

}  // namespace

// ---- transfer: transfer files and a bare unload made by the writer ---------

void transferSeeds() {
  ckdvol::TransferContents seq;
  seq.origin = {"NODE1", "USER1", "NODE2", "USER2", "20240102030405"};
  seq.attributes.dsn = "SEED.SEQ";
  seq.attributes.recfm = 0x90;  // FB
  seq.attributes.lrecl = 80;
  seq.attributes.blksize = 800;
  seq.records.assign(3, Bytes(80, 0x40));
  seq.records[1].assign(80, 0xC1);
  seq.message = {Bytes(20, 0xC8)};
  ckdvol::TransferContents po;
  po.attributes.dsn = "SEED.PDS";
  po.attributes.recfm = 0x90;
  po.attributes.lrecl = 80;
  po.attributes.blksize = 800;
  po.partitioned = true;
  ckdvol::UnloadedPds& p = po.pds;
  p.recfm = 0x90;
  p.lrecl = 80;
  p.blksize = 800;
  p.heads = 15;
  p.cylinders = 10;
  p.extents = {{1, 0, 1, 4, 5}};
  p.directoryBlocks = 2;
  ckdvol::DirectoryEntry e;
  std::memcpy(e.name.data(), "\xC1\xD3\xD7\xC8\xC1\x40\x40\x40", 8);  // ALPHA
  e.ttr = {1, 1};
  e.indicator = 0x02;
  e.userData = {0x01, 0x00, 0x00, 0x00};
  p.entries = {e};
  p.blocks = {{{1, 1}, {}, Bytes(160, 0xF1)}, {{1, 2}, {}, {}}};
  Bytes file;
  std::string error;
  if (!ckdvol::writeTransferFile(seq, file, error)) throw std::runtime_error(error);
  writeSeed("transfer", "sequential-with-message", file);
  if (!ckdvol::writeTransferFile(po, file, error)) throw std::runtime_error(error);
  writeSeed("transfer", "pds", file);
  std::vector<Bytes> records;
  if (!ckdvol::writeUnload(p, records, error)) throw std::runtime_error(error);
  Bytes bare;
  for (const Bytes& r : records) bare.insert(bare.end(), r.begin(), r.end());
  writeSeed("transfer", "bare-unload", bare);
}

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: fuzz_seeds <directory>\n");
    return 2;
  }
  outDir = argv[1];
  ::mkdir(outDir.c_str(), 0755);
  try {
    openSeeds();
    trackWalkSeeds();
    vtocSeeds();
    pdsSeeds();
    datasetSeeds();
    recoverSeeds();
    editSeeds();
    transferSeeds();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "fuzz_seeds: %s\n", e.what());
    return 1;
  }
  std::printf("fuzz_seeds: %d seeds in %s\n", written, outDir.c_str());
  return 0;
}
