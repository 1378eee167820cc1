#include "dataset/dataset_builder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace ckdvol_test {
namespace {

void check(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error("dataset builder: " + what);
}

constexpr off_t kD600Heads = 15, kD600Slot = 56832;

}  // namespace

Bytes cat(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& p : parts) all.insert(all.end(), p.begin(), p.end());
  return all;
}

DataSetLayout layout(const std::string& name, std::vector<ExtentSpec> extents, int nbrExts, Cchhr next,
                     uint8_t recfm, uint16_t lrecl) {
  DataSetLayout l;
  l.name = name;
  l.extents = std::move(extents);
  l.nbrExts = nbrExts;
  l.next = next;
  l.recfm = recfm;
  l.lrecl = lrecl;
  return l;
}

ckdvol::VtocInfo scan(EmulatedCKDfile& file) {
  ckdvol::VtocInfo v;
  std::string error;
  EXPECT_EQ(ckdvol::scanVtoc(file, v, error), ckdvol::kScanOk) << error;
  return v;
}

Dscb format4Dscb(Cchhr lastActive, uint8_t perTrack, Cchhr vtocLow, Cchhr vtocHigh, bool large) {
  Dscb d{};
  std::memset(d.data(), 0x04, 44);
  d[44] = 0xF4;
  putCchhr(d.data() + 45, lastActive, large);
  d[74] = perTrack;
  d[105] = 0x01;
  putCchh(d.data() + 107, vtocLow.cyl, vtocLow.head, large);
  putCchh(d.data() + 111, vtocHigh.cyl, vtocHigh.head, large);
  return d;
}

void layVtoc(TestVolume& vol, Cchhr format4, const std::vector<std::pair<Cchhr, std::vector<Dscb>>>& tracks) {
  unsigned char pointer[5];
  putCchhr(pointer, format4, vol.file().largeCylinders != 0);
  vol.patchLabel(label_layout::kVtocCc, Bytes(pointer, pointer + 5));
  for (const auto& t : tracks) {
    std::vector<Record> records;
    for (const Dscb& d : t.second) records.push_back(dscbRecord(uint8_t(records.size() + 1), d));
    vol.setRecords(t.first.cyl, t.first.head, records);
  }
}

SparseLargeVolume::SparseLargeVolume(uint32_t cylinders) : path_(dir_.file("large.ckd")) {
  check(file_.create(path_.c_str(), EmulatedCKDfile::D600, int(cylinders)) == 0, "create");
  const off_t size = 512 + off_t(file_.cylinders) * kD600Heads * kD600Slot;  // rounded count
  file_.close();
  const int fd = ::open(path_.c_str(), O_RDWR);
  check(fd >= 0 && ::pwrite(fd, "CKD_XVOL", 8, 0) == 8 && ::ftruncate(fd, size) == 0, "stamp and size");
  ::close(fd);
}

void SparseLargeVolume::setTrack(uint32_t cyl, uint16_t head, const std::vector<Record>& records) {
  Bytes slot;
  const uint8_t cc[2] = {uint8_t(cyl >> 8), uint8_t(cyl)};
  const uint16_t hh = uint16_t(((cyl >> 16) << 4) | (head & 0xF));
  auto count = [&](uint8_t r, size_t kl, size_t dl) {
    slot.insert(slot.end(), {cc[0], cc[1], uint8_t(hh >> 8), uint8_t(hh), r, uint8_t(kl), uint8_t(dl >> 8),
                             uint8_t(dl)});
  };
  slot = {0x00, cc[0], cc[1], uint8_t(hh >> 8), uint8_t(hh)};  // home address
  count(0, 0, 8);                                              // record zero, 8 zero bytes
  slot.resize(slot.size() + 8, 0);
  for (const Record& r : records) {
    count(r.rec, r.key.size(), r.data.size());
    slot.insert(slot.end(), r.key.begin(), r.key.end());
    slot.insert(slot.end(), r.data.begin(), r.data.end());
  }
  slot.resize(slot.size() + 8, 0xFF);  // end of track
  slot.resize(size_t(kD600Slot), 0);
  const int fd = ::open(path_.c_str(), O_RDWR);
  const off_t at = 512 + (off_t(cyl) * kD600Heads + head) * kD600Slot;
  check(fd >= 0 && ::pwrite(fd, slot.data(), slot.size(), at) == ssize_t(slot.size()), "write a track");
  ::close(fd);
}

EmulatedCKDfile& SparseLargeVolume::open() {
  check(file_.open(path_.c_str(), true) == 0, std::string("open: ") + file_.errorText);
  return file_;
}

}  // namespace ckdvol_test
