#include "support/volume_builder.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace ckdvol_test {

namespace {

using namespace dscb_layout;

void require(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error("volume builder: " + what);
}
std::string where(uint32_t cyl, uint16_t head) {
  return std::to_string(cyl) + "/" + std::to_string(head);
}
void putBe16(unsigned char* p, uint16_t v) {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}

unsigned char ebcdicChar(char c) {
  const struct {
    char from, to;
    unsigned char first;
  } runs[] = {{'A', 'I', 0xC1}, {'J', 'R', 0xD1}, {'S', 'Z', 0xE2}, {'a', 'i', 0x81},
              {'j', 'r', 0x91}, {'s', 'z', 0xA2}, {'0', '9', 0xF0}};
  for (const auto& r : runs) {
    if (c >= r.from && c <= r.to) return static_cast<unsigned char>(r.first + (c - r.from));
  }
  const char punct[] = " .(+&$*)-/,_#@";
  const unsigned char code[] = {0x40, 0x4B, 0x4D, 0x4E, 0x50, 0x5B, 0x5C,
                                0x5D, 0x60, 0x61, 0x6B, 0x6D, 0x7B, 0x7C};
  const char* at = c != '\0' ? std::strchr(punct, c) : nullptr;
  require(at != nullptr, std::string("no EBCDIC byte for character '") + c + "'");
  return code[at - punct];
}

void putExtent(unsigned char* p, const ExtentSpec& e, int position) {
  p[kExtType] = e.type;
  p[kExtSeq] = e.seq == 0xFF ? static_cast<unsigned char>(position) : e.seq;
  putCchh(p + kExtLo, e.loCyl, e.loHead);
  putCchh(p + kExtHi, e.hiCyl, e.hiHead);
}

Dscb dataSetDscb(const DataSetLayout& layout, unsigned char formatId) {
  Dscb d{};
  std::vector<unsigned char> name = ebcdicPadded(layout.name, kKeyLength);
  std::vector<unsigned char> volser = ebcdicPadded(layout.volser, 6);
  std::memcpy(d.data(), name.data(), kKeyLength);
  std::memcpy(d.data() + kVolSer, volser.data(), 6);
  d[kFmtId] = formatId;
  putBe16(&d[kVolSeq], 1);
  d[kCreated] = 124;              // 2024
  putBe16(&d[kCreated + 1], 31);  // day 32
  d[kNbrExts] = static_cast<unsigned char>(layout.nbrExts >= 0 ? layout.nbrExts : layout.extents.size());
  putBe16(&d[kDsOrg], layout.dsorg);
  d[kRecFm] = layout.recfm;
  putBe16(&d[kBlkSize], layout.blksize);
  putBe16(&d[kLrecl], layout.lrecl);
  d[kKeyLen] = layout.keyLength;
  putBe16(&d[kLastTtr], layout.lastTtrTrack);
  d[kLastTtr + 2] = layout.lastTtrRecord;
  putBe16(&d[kTrkBal], layout.trackBalance);
  for (size_t i = 0; i < layout.extents.size() && i < 3; ++i) {
    putExtent(&d[kF1Extents + i * kExtentSize], layout.extents[i], static_cast<int>(i));
  }
  putCchhr(&d[kNext], layout.next);
  return d;
}

// Offset of slot i of a table split between key and data (Format-3, Format-5).
size_t splitSlot(size_t i, int inKey, int first, int later, int size) {
  return i < static_cast<size_t>(inKey) ? first + i * size : later + (i - inKey) * size;
}

}  // namespace

std::vector<unsigned char> ebcdic(const std::string& ascii) {
  std::vector<unsigned char> out;
  for (char c : ascii) out.push_back(ebcdicChar(c));
  return out;
}

std::vector<unsigned char> ebcdicPadded(const std::string& ascii, size_t length) {
  std::vector<unsigned char> out = ebcdic(ascii.substr(0, length));
  out.resize(length, 0x40);
  return out;
}

void putCchh(unsigned char* p, uint32_t cyl, uint16_t head, bool large) {
  putBe16(p, static_cast<uint16_t>(cyl & 0xFFFF));
  putBe16(p + 2, large ? static_cast<uint16_t>(((cyl >> 16) << 4) | (head & 0xF)) : head);
}

void putCchhr(unsigned char* p, Cchhr a, bool large) {
  putCchh(p, a.cyl, a.head, large);
  p[4] = a.rec;
}

Dscb format1Dscb(const DataSetLayout& layout) { return dataSetDscb(layout, 0xF1); }
Dscb format8Dscb(const DataSetLayout& layout) { return dataSetDscb(layout, 0xF8); }

Dscb format3Dscb(const std::vector<ExtentSpec>& extents, Cchhr next) {
  require(extents.size() <= static_cast<size_t>(kF3Extents), "a Format-3 DSCB holds 13 extents");
  Dscb d{};
  std::memset(&d[kF3KeyId], 0x03, 4);
  d[kFmtId] = 0xF3;
  for (size_t i = 0; i < extents.size(); ++i) {
    putExtent(&d[splitSlot(i, kF3ExtentsInKey, kF3FirstExtents, kF3LaterExtents, kExtentSize)],
              extents[i], 3 + static_cast<int>(i));
  }
  putCchhr(&d[kNext], next);
  return d;
}

Dscb format9Dscb(const std::vector<Cchhr>& format3, Cchhr next, int f3Count) {
  require(format3.size() <= static_cast<size_t>(kF9F3Slots), "a Format-9 DSCB holds 10 addresses");
  Dscb d{};
  d[kF9KeyId] = 0x09;
  d[kF9SubType] = d[kF9Count] = 0x01;
  d[kFmtId] = 0xF9;
  d[kF9F3Count] = static_cast<unsigned char>(f3Count >= 0 ? f3Count : static_cast<int>(format3.size()));
  for (size_t i = 0; i < format3.size(); ++i) putCchhr(&d[kF9F3Addresses + 5 * i], format3[i]);
  putCchhr(&d[kNext], next);
  return d;
}

Dscb format5Dscb(const std::vector<FreeExtent>& extents, Cchhr next) {
  require(extents.size() <= static_cast<size_t>(kF5Extents), "a Format-5 DSCB holds 26 extents");
  Dscb d{};
  std::memset(&d[kF5KeyId], 0x05, 4);
  d[kFmtId] = 0xF5;
  for (size_t i = 0; i < extents.size(); ++i) {
    unsigned char* p = &d[splitSlot(i, kF5ExtentsInKey, kF5FirstExtents, kF5LaterExtents, kF5ExtentSize)];
    putBe16(p, extents[i].track);
    putBe16(p + 2, extents[i].cylinders);
    p[4] = extents[i].tracks;
  }
  putCchhr(&d[kNext], next);
  return d;
}

Dscb formatIdDscb(unsigned char formatId) {
  Dscb d{};
  d[kFmtId] = formatId;
  return d;
}
Dscb emptyDscb() { return Dscb{}; }

Record dataRecord(uint8_t rec, std::vector<unsigned char> data) { return keyedRecord(rec, {}, std::move(data)); }
Record keyedRecord(uint8_t rec, std::vector<unsigned char> key, std::vector<unsigned char> data) {
  Record r;
  r.rec = rec;
  r.key = std::move(key);
  r.data = std::move(data);
  return r;
}
Record eofRecord(uint8_t rec) { return keyedRecord(rec, {}, {}); }
Record dscbRecord(uint8_t rec, const Dscb& dscb) {
  return keyedRecord(rec, std::vector<unsigned char>(dscb.begin(), dscb.begin() + kKeyLength),
                     std::vector<unsigned char>(dscb.begin() + kKeyLength, dscb.end()));
}

// ---- TestVolume ----

TestVolume::TestVolume(EmulatedCKDfile::CKDtype type, int cylinders) : path_(dir_.file("volume.ckd")) {
  require(file_.create(path_.c_str(), type, cylinders) == 0, "create " + path_);
  require(file_.initialize(nullptr, nullptr, true) == 0, "initialize " + path_);
  file_.close();
  reopen(false);
}

TestVolume::~TestVolume() { file_.close(); }

void TestVolume::close() {
  require(file_.writeTrack() == 0, "write back before close");
  file_.close();
}

void TestVolume::reopen(bool readOnly) {
  if (file_.fileDescriptor >= 0) close();
  require(file_.open(path_.c_str(), readOnly) == 0, "open " + path_);
}

std::vector<Record> TestVolume::readRecords(uint32_t cyl, uint16_t head) {
  require(file_.readTrack(cyl, head, 0) == 0, "read track " + where(cyl, head));
  const void* ref = file_.locate(EmulatedCKDfile::ORIENT_COUNT, cyl, head, 0);
  require(ref != nullptr, "record zero of track " + where(cyl, head));
  std::vector<Record> records;
  while ((ref = file_.locateNext(ref, false)) != nullptr &&
         file_.getRefType(ref) == EmulatedCKDfile::ORIENT_COUNT) {
    int c, h, r, kl, dl;
    require(file_.getRefCount(ref, c, h, r, kl, dl), "count field on track " + where(cyl, head));
    Record rec;
    rec.rec = static_cast<uint8_t>(r);
    rec.cyl = c;
    rec.head = h;
    if (kl > 0) rec.key.assign(file_.getRefKey(ref), file_.getRefKey(ref) + kl);
    if (dl > 0) rec.data.assign(file_.getRefData(ref), file_.getRefData(ref) + dl);
    records.push_back(std::move(rec));
  }
  return records;
}

void TestVolume::setRecords(uint32_t cyl, uint16_t head, const std::vector<Record>& records) {
  require(file_.readTrack(cyl, head, 0) == 0, "read track " + where(cyl, head));
  // Rewriting record zero from the home address erases everything after it.
  const void* r0 = file_.locate(EmulatedCKDfile::ORIENT_COUNT, cyl, head, 0);
  require(r0 != nullptr, "record zero of track " + where(cyl, head));
  int kl0 = file_.getRefKL(r0), dl0 = file_.getRefDL(r0);
  std::vector<unsigned char> r0bytes;
  if (kl0 > 0) r0bytes.insert(r0bytes.end(), file_.getRefKey(r0), file_.getRefKey(r0) + kl0);
  if (dl0 > 0) r0bytes.insert(r0bytes.end(), file_.getRefData(r0), file_.getRefData(r0) + dl0);
  const void* ha = file_.locate(EmulatedCKDfile::ORIENT_HA, cyl, head, 0);
  require(file_.writeCKD(ha, cyl, head, 0, static_cast<unsigned char>(kl0),
                         static_cast<unsigned short>(dl0), r0bytes.data()) == 0 &&
              file_.writeTrack() == 0,
          "rewrite record zero of track " + where(cyl, head));
  appendRecords(cyl, head, records);
}

void TestVolume::appendRecords(uint32_t cyl, uint16_t head, const std::vector<Record>& records) {
  const std::string track = where(cyl, head);
  require(file_.readTrack(cyl, head, 0) == 0, "read track " + track);
  const void* last = file_.locate(EmulatedCKDfile::ORIENT_COUNT, cyl, head, 0);
  require(last != nullptr, "record zero of track " + track);
  for (const void* next; (next = file_.locateNext(last, false)) != nullptr &&
                         file_.getRefType(next) == EmulatedCKDfile::ORIENT_COUNT;) {
    last = next;
  }
  for (const Record& r : records) {
    require(r.key.size() <= 255 && r.data.size() <= 65535, "record size on track " + track);
    std::vector<unsigned char> keyAndData(r.key);
    keyAndData.insert(keyAndData.end(), r.data.begin(), r.data.end());
    int rc = file_.writeCKD(last, r.cyl >= 0 ? static_cast<uint32_t>(r.cyl) : cyl,
                            r.head >= 0 ? static_cast<uint16_t>(r.head) : head, r.rec,
                            static_cast<unsigned char>(r.key.size()),
                            static_cast<unsigned short>(r.data.size()), keyAndData.data());
    require(rc == 0, "record " + std::to_string(r.rec) + " does not fit on track " + track +
                         " (writeCKD " + std::to_string(rc) + ")");
    last = file_.locateNext(last, false);
    require(last != nullptr, "locate the record just written on track " + track);
  }
  require(file_.writeTrack() == 0, "write track " + track);
}

void TestVolume::putRecord(uint32_t cyl, uint16_t head, const Record& r) {
  std::vector<Record> records = readRecords(cyl, head);
  size_t i = 0;
  while (i < records.size() && records[i].rec != r.rec) ++i;
  if (i < records.size()) {
    records[i] = r;
  } else {
    records.push_back(r);
  }
  setRecords(cyl, head, records);
}

namespace {

// DSCB records that still fit behind `records` on a track of `slotSize`
// bytes (home address and an 8-byte record zero first): by bytes, the end
// marker beginning by slot - 24, and by record numbers up to 255.
int roomBehind(const std::vector<Record>& records, unsigned int slotSize) {
  long long used = 5 + 8 + 8;
  int lastNumber = 0;
  for (const Record& r : records) {
    used += 8 + static_cast<long long>(r.key.size() + r.data.size());
    lastNumber = r.rec;
  }
  long long byBytes = (static_cast<long long>(slotSize) - 24 - used) / (8 + kLength);
  long long room = byBytes < 255 - lastNumber ? byBytes : 255 - lastNumber;
  return room > 0 ? static_cast<int>(room) : 0;
}

}  // namespace

int TestVolume::dscbsPerTrack() const { return roomBehind({}, file_.trackSlotSize); }

Cchhr TestVolume::vtocStart() {
  require(file_.readTrack(0, 0, 0) == 0, "read track 0/0");
  const unsigned char vol1[4] = {0xE5, 0xD6, 0xD3, 0xF1};
  const void* ref = file_.searchKey(nullptr, vol1, 4, false);
  require(ref != nullptr && file_.getRefDL(ref) == label_layout::kDataLength, "VOL1 label");
  const unsigned char* d = file_.getRefData(ref);
  Cchhr a;
  a.cyl = static_cast<uint32_t>((d[label_layout::kVtocCc] << 8) | d[label_layout::kVtocCc + 1]);
  a.head = static_cast<uint16_t>((d[label_layout::kVtocHh] << 8) | d[label_layout::kVtocHh + 1]);
  a.rec = d[label_layout::kVtocR];
  return a;
}

Dscb TestVolume::readDscb(Cchhr at) {
  for (const Record& r : readRecords(at.cyl, at.head)) {
    if (r.rec == at.rec && r.key.size() == size_t{kKeyLength} && r.data.size() == size_t{kDataLength}) {
      Dscb d;
      std::memcpy(d.data(), r.key.data(), kKeyLength);
      std::memcpy(d.data() + kKeyLength, r.data.data(), kDataLength);
      return d;
    }
  }
  throw std::runtime_error("volume builder: no DSCB at " + where(at.cyl, at.head) + "/" +
                           std::to_string(at.rec));
}

void TestVolume::putDscb(Cchhr at, const Dscb& dscb) { putRecord(at.cyl, at.head, dscbRecord(at.rec, dscb)); }

void TestVolume::patchDscb(Cchhr at, int offset, const std::vector<unsigned char>& bytes) {
  require(offset >= 0 && offset + bytes.size() <= static_cast<size_t>(kLength), "patch inside the DSCB");
  Dscb d = readDscb(at);
  std::memcpy(d.data() + offset, bytes.data(), bytes.size());
  putDscb(at, d);
}

void TestVolume::setLastDscb(Cchhr at) {
  std::vector<unsigned char> cchhr(5);
  putCchhr(cchhr.data(), at, file_.largeCylinders != 0);
  patchDscb(vtocStart(), kF4LastDscb, cchhr);
}

std::vector<Cchhr> TestVolume::writeVtoc(const std::vector<Dscb>& dscbs, int perTrack) {
  const Cchhr f4 = vtocStart();
  Dscb format4 = readDscb(f4);
  std::vector<Record> track;  // the Format-4 track keeps the records up to the Format-4 DSCB
  for (const Record& r : readRecords(f4.cyl, f4.head)) {
    track.push_back(r);
    if (r.rec == f4.rec) break;
  }
  int cap = dscbsPerTrack();
  if (perTrack > 0 && perTrack < cap) cap = perTrack;
  int room = std::min(roomBehind(track, file_.trackSlotSize), cap);
  uint32_t cyl = f4.cyl;
  uint16_t head = f4.head;
  int rec = f4.rec;
  std::vector<Cchhr> placed;
  for (const Dscb& d : dscbs) {
    if (room <= 0) {
      setRecords(cyl, head, track);
      track.clear();
      unsigned short cell = 0;
      require(!file_.increment(cell, cyl, head), "the VTOC runs past the end of the volume");
      rec = 0;
      room = cap;
    }
    track.push_back(dscbRecord(static_cast<uint8_t>(++rec), d));
    placed.push_back(Cchhr{cyl, head, static_cast<uint8_t>(rec)});
    --room;
  }
  setRecords(cyl, head, track);
  putCchhr(format4.data() + kF4LastDscb, placed.empty() ? f4 : placed.back(), file_.largeCylinders != 0);
  putDscb(f4, format4);
  return placed;
}

void TestVolume::patchLabel(int offset, const std::vector<unsigned char>& bytes) {
  require(offset >= 0 && offset + bytes.size() <= static_cast<size_t>(label_layout::kDataLength),
          "patch inside the label");
  for (Record r : readRecords(0, 0)) {
    if (r.key == std::vector<unsigned char>{0xE5, 0xD6, 0xD3, 0xF1}) {
      std::memcpy(r.data.data() + offset, bytes.data(), bytes.size());
      return putRecord(0, 0, r);
    }
  }
  require(false, "no VOL1 record on track 0/0");
}

}  // namespace ckdvol_test
