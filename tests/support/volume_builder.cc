#include "support/volume_builder.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace ckdvol_test {

namespace {

using Bytes = std::vector<unsigned char>;

void require(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error("volume builder: " + what);
}
std::string where(uint32_t cyl, uint16_t head) { return std::to_string(cyl) + "/" + std::to_string(head); }
void putBe16(unsigned char* p, uint16_t v) { p[0] = static_cast<unsigned char>(v >> 8), p[1] = static_cast<unsigned char>(v); }

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
  const unsigned char code[] = {0x40, 0x4B, 0x4D, 0x4E, 0x50, 0x5B, 0x5C, 0x5D, 0x60, 0x61, 0x6B, 0x6D, 0x7B, 0x7C};
  const char* at = c != '\0' ? std::strchr(punct, c) : nullptr;
  require(at != nullptr, std::string("no EBCDIC byte for character '") + c + "'");
  return code[at - punct];
}

// An extent: type, sequence, low CCHH, high CCHH.
void putExtent(unsigned char* p, const ExtentSpec& e, int position) {
  p[0] = e.type;
  p[1] = e.seq == 0xFF ? static_cast<unsigned char>(position) : e.seq;
  putCchh(p + 2, e.loCyl, e.loHead);
  putCchh(p + 6, e.hiCyl, e.hiHead);
}

// Format-1/8: name 0, id 44, volser 45, volume sequence 51, created 53 (year
// - 1900, day - 1), extents 59, DSORG 82, RECFM 84, BLKSIZE 86, LRECL 88, key
// length 90, LastTTR 98, track balance 101, three extents from 105, next 135.
Dscb dataSetDscb(const DataSetLayout& l, unsigned char formatId) {
  Dscb d{};
  Bytes name = ebcdicPadded(l.name, 44), volser = ebcdicPadded(l.volser, 6);
  std::copy(name.begin(), name.end(), d.begin());
  std::copy(volser.begin(), volser.end(), d.begin() + 45);
  d[44] = formatId;
  putBe16(&d[51], 1);
  d[53] = 124, d[55] = 31;  // 2024, day 32
  d[59] = static_cast<unsigned char>(l.nbrExts >= 0 ? l.nbrExts : static_cast<int>(l.extents.size()));
  putBe16(&d[82], l.dsorg);
  d[84] = l.recfm;
  putBe16(&d[86], l.blksize);
  putBe16(&d[88], l.lrecl);
  d[90] = l.keyLength;
  putBe16(&d[98], l.lastTtrTrack);
  d[100] = l.lastTtrRecord;
  putBe16(&d[101], l.trackBalance);
  for (size_t i = 0; i < l.extents.size() && i < 3; ++i) putExtent(&d[105 + i * 10], l.extents[i], static_cast<int>(i));
  putCchhr(&d[135], l.next);
  return d;
}

}  // namespace

Bytes ebcdic(const std::string& ascii) {
  Bytes out;
  for (char c : ascii) out.push_back(ebcdicChar(c));
  return out;
}

Bytes ebcdicPadded(const std::string& ascii, size_t length) {
  Bytes out = ebcdic(ascii.substr(0, length));
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

// Format-3: key 03030303, extents 1-4 from 4, 5-13 from 45, next at 135.
Dscb format3Dscb(const std::vector<ExtentSpec>& extents, Cchhr next) {
  require(extents.size() <= 13, "a Format-3 DSCB holds 13 extents");
  Dscb d{};
  std::memset(&d[0], 0x03, 4);
  d[44] = 0xF3;
  for (size_t i = 0; i < extents.size(); ++i) {
    putExtent(&d[i < 4 ? 4 + i * 10 : 45 + (i - 4) * 10], extents[i], 3 + static_cast<int>(i));
  }
  putCchhr(&d[135], next);
  return d;
}

// Format-9: key 09, subtype 01, count 01; F3count at 45, CCHHRs from 46, next at 135.
Dscb format9Dscb(const std::vector<Cchhr>& format3, Cchhr next, int f3Count) {
  require(format3.size() <= 10, "a Format-9 DSCB holds 10 addresses");
  Dscb d{};
  d[0] = 0x09, d[1] = d[2] = 0x01, d[44] = 0xF9;
  d[45] = static_cast<unsigned char>(f3Count >= 0 ? f3Count : static_cast<int>(format3.size()));
  for (size_t i = 0; i < format3.size(); ++i) putCchhr(&d[46 + 5 * i], format3[i]);
  putCchhr(&d[135], next);
  return d;
}

// Format-5: key 05050505; free extents (track u16, cylinders u16, tracks) of
// 5 bytes, 1-8 from 4, 9-26 from 45; next at 135.
Dscb format5Dscb(const std::vector<FreeExtent>& extents, Cchhr next) {
  require(extents.size() <= 26, "a Format-5 DSCB holds 26 extents");
  Dscb d{};
  std::memset(&d[0], 0x05, 4);
  d[44] = 0xF5;
  for (size_t i = 0; i < extents.size(); ++i) {
    unsigned char* p = &d[i < 8 ? 4 + i * 5 : 45 + (i - 8) * 5];
    putBe16(p, extents[i].track);
    putBe16(p + 2, extents[i].cylinders);
    p[4] = extents[i].tracks;
  }
  putCchhr(&d[135], next);
  return d;
}

Dscb formatIdDscb(unsigned char formatId) { Dscb d{}; d[44] = formatId; return d; }
Dscb emptyDscb() { return Dscb{}; }

Record dataRecord(uint8_t rec, Bytes data) { return Record{rec, {}, std::move(data)}; }
Record keyedRecord(uint8_t rec, Bytes key, Bytes data) { return Record{rec, std::move(key), std::move(data)}; }
Record eofRecord(uint8_t rec) { return Record{rec, {}, {}}; }
Record dscbRecord(uint8_t rec, const Dscb& d) { return Record{rec, Bytes(d.begin(), d.begin() + 44), Bytes(d.begin() + 44, d.end())}; }

TestVolume::TestVolume(EmulatedCKDfile::CKDtype type, int cylinders) : path_(dir_.file("volume.ckd")) {
  require(file_.create(path_.c_str(), type, cylinders) == 0, "create " + path_);
  require(file_.initialize(nullptr, nullptr, true) == 0, "initialize " + path_);
  file_.close();
  reopen(false);
}

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
  while ((ref = file_.locateNext(ref, false)) != nullptr && file_.getRefType(ref) == EmulatedCKDfile::ORIENT_COUNT) {
    int c, h, r, kl, dl;
    require(file_.getRefCount(ref, c, h, r, kl, dl), "count field on track " + where(cyl, head));
    const unsigned char *k = file_.getRefKey(ref), *d = file_.getRefData(ref);
    records.push_back(Record{static_cast<uint8_t>(r), kl > 0 ? Bytes(k, k + kl) : Bytes(),
                             dl > 0 ? Bytes(d, d + dl) : Bytes(), c, h});
  }
  return records;
}

void TestVolume::setRecords(uint32_t cyl, uint16_t head, const std::vector<Record>& records) {
  require(file_.readTrack(cyl, head, 0) == 0, "read track " + where(cyl, head));
  // Rewriting record zero from the home address erases everything after it.
  const void* r0 = file_.locate(EmulatedCKDfile::ORIENT_COUNT, cyl, head, 0);
  require(r0 != nullptr, "record zero of track " + where(cyl, head));
  int kl0 = file_.getRefKL(r0), dl0 = file_.getRefDL(r0);
  Bytes r0bytes;
  if (kl0 > 0) r0bytes.insert(r0bytes.end(), file_.getRefKey(r0), file_.getRefKey(r0) + kl0);
  if (dl0 > 0) r0bytes.insert(r0bytes.end(), file_.getRefData(r0), file_.getRefData(r0) + dl0);
  const void* ha = file_.locate(EmulatedCKDfile::ORIENT_HA, cyl, head, 0);
  require(file_.writeCKD(ha, cyl, head, 0, static_cast<unsigned char>(kl0), static_cast<unsigned short>(dl0),
                         r0bytes.data()) == 0 && file_.writeTrack() == 0,
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
    Bytes keyAndData(r.key);
    keyAndData.insert(keyAndData.end(), r.data.begin(), r.data.end());
    int rc = file_.writeCKD(last, r.cyl >= 0 ? static_cast<uint32_t>(r.cyl) : cyl,
                            r.head >= 0 ? static_cast<uint16_t>(r.head) : head, r.rec,
                            static_cast<unsigned char>(r.key.size()), static_cast<unsigned short>(r.data.size()),
                            keyAndData.data());
    require(rc == 0, "record " + std::to_string(r.rec) + " does not fit on track " + track + " (writeCKD " +
                         std::to_string(rc) + ")");
    last = file_.locateNext(last, false);
    require(last != nullptr, "locate the record just written on track " + track);
  }
  require(file_.writeTrack() == 0, "write track " + track);
}

void TestVolume::putRecord(uint32_t cyl, uint16_t head, const Record& r) {
  std::vector<Record> records = readRecords(cyl, head);
  auto it = std::find_if(records.begin(), records.end(), [&](const Record& x) { return x.rec == r.rec; });
  it != records.end() ? void(*it = r) : records.push_back(r);
  setRecords(cyl, head, records);
}

namespace {
// DSCB records that still fit behind `records` on a track of `slotSize` bytes
// (home address and an 8-byte record zero first): by bytes, the end marker
// beginning by slot - 24, and by record numbers up to 255.
int roomBehind(const std::vector<Record>& records, unsigned int slotSize) {
  long long used = 5 + 8 + 8;
  int lastNumber = 0;
  for (const Record& r : records) used += 8 + static_cast<long long>(r.key.size() + r.data.size()), lastNumber = r.rec;
  long long room = std::min<long long>((static_cast<long long>(slotSize) - 24 - used) / (8 + 140), 255 - lastNumber);
  return room > 0 ? static_cast<int>(room) : 0;
}
const Bytes kVol1 = {0xE5, 0xD6, 0xD3, 0xF1};
}  // namespace

int TestVolume::dscbsPerTrack() const { return roomBehind({}, file_.trackSlotSize); }

Cchhr TestVolume::vtocStart() {
  require(file_.readTrack(0, 0, 0) == 0, "read track 0/0");
  const void* ref = file_.searchKey(nullptr, kVol1.data(), 4, false);
  require(ref != nullptr && file_.getRefDL(ref) == label_layout::kDataLength, "VOL1 label");
  const unsigned char* d = file_.getRefData(ref) + label_layout::kVtocCc;
  return Cchhr{static_cast<uint32_t>((d[0] << 8) | d[1]), static_cast<uint16_t>((d[2] << 8) | d[3]), d[4]};
}

Dscb TestVolume::readDscb(Cchhr at) {
  for (const Record& r : readRecords(at.cyl, at.head)) {
    if (r.rec == at.rec && r.key.size() == 44 && r.data.size() == 96) {
      Dscb d;
      std::copy(r.data.begin(), r.data.end(), std::copy(r.key.begin(), r.key.end(), d.begin()));
      return d;
    }
  }
  throw std::runtime_error("volume builder: no DSCB at " + where(at.cyl, at.head) + "/" + std::to_string(at.rec));
}

void TestVolume::putDscb(Cchhr at, const Dscb& dscb) { putRecord(at.cyl, at.head, dscbRecord(at.rec, dscb)); }

void TestVolume::patchDscb(Cchhr at, int offset, const Bytes& bytes) {
  require(offset >= 0 && offset + bytes.size() <= 140, "patch inside the DSCB");
  Dscb d = readDscb(at);
  std::copy(bytes.begin(), bytes.end(), d.begin() + offset);
  putDscb(at, d);
}

void TestVolume::setLastDscb(Cchhr at) {
  Bytes cchhr(5);
  putCchhr(cchhr.data(), at, file_.largeCylinders != 0);
  patchDscb(vtocStart(), 45, cchhr);
}

std::vector<Cchhr> TestVolume::writeVtoc(const std::vector<Dscb>& dscbs, int perTrack) {
  const Cchhr f4 = vtocStart();
  Dscb format4 = readDscb(f4);
  std::vector<Record> track;  // the Format-4 track keeps the records up to the Format-4 DSCB
  for (const Record& r : readRecords(f4.cyl, f4.head)) {
    track.push_back(r);
    if (r.rec == f4.rec) break;
  }
  const int cap = perTrack > 0 ? std::min(perTrack, dscbsPerTrack()) : dscbsPerTrack();
  int room = std::min(roomBehind(track, file_.trackSlotSize), cap), rec = f4.rec;
  uint32_t cyl = f4.cyl;
  uint16_t head = f4.head;
  std::vector<Cchhr> placed;
  for (const Dscb& d : dscbs) {
    if (room-- <= 0) {
      setRecords(cyl, head, track);
      track.clear();
      unsigned short cell = 0;
      require(!file_.increment(cell, cyl, head), "the VTOC runs past the end of the volume");
      rec = 0, room = cap - 1;
    }
    track.push_back(dscbRecord(static_cast<uint8_t>(++rec), d));
    placed.push_back(Cchhr{cyl, head, static_cast<uint8_t>(rec)});
  }
  setRecords(cyl, head, track);
  putCchhr(format4.data() + 45, placed.empty() ? f4 : placed.back(), file_.largeCylinders != 0);  // LastDSCB
  putDscb(f4, format4);
  return placed;
}

void TestVolume::patchLabel(int offset, const Bytes& bytes) {
  require(offset >= 0 && offset + bytes.size() <= size_t{label_layout::kDataLength}, "patch inside the label");
  for (Record r : readRecords(0, 0)) {
    if (r.key == kVol1) {
      std::copy(bytes.begin(), bytes.end(), r.data.begin() + offset);
      return putRecord(0, 0, r);
    }
  }
  require(false, "no VOL1 record on track 0/0");
}

}  // namespace ckdvol_test
