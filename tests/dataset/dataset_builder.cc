#include "dataset/dataset_builder.h"

#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

namespace ckdvol_test {
namespace {

void check(bool ok, const std::string& what) {
  if (!ok) throw std::runtime_error("dataset builder: " + what);
}

constexpr uint32_t kD600Heads = 15;
constexpr uint32_t kD600Slot = 56832;

}  // namespace

Bytes cat(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& p : parts) all.insert(all.end(), p.begin(), p.end());
  return all;
}

Bytes word(uint16_t length) { return {uint8_t(length >> 8), uint8_t(length), 0x00, 0x00}; }

Bytes sdw(uint16_t length, uint8_t control) {
  return {uint8_t(length >> 8), uint8_t(length), control, 0x00};
}

Dscb format4Dscb(Cchhr lastActive, uint8_t perTrack, Cchhr vtocLow, Cchhr vtocHigh, bool large) {
  Dscb d{};
  std::memset(d.data(), 0x04, 44);          // key: 44 x 04
  d[44] = 0xF4;                             // format identifier
  putCchhr(d.data() + 45, lastActive, large);  // DS4HPCHR
  d[74] = perTrack;                         // DS4DEVDT
  d[105] = 0x01;                            // DS4VTOCE: type, sequence 0,
  putCchh(d.data() + 107, vtocLow.cyl, vtocLow.head, large);    //   low CCHH
  putCchh(d.data() + 111, vtocHigh.cyl, vtocHigh.head, large);  //   high CCHH
  return d;
}

void layVtoc(TestVolume& vol, Cchhr format4,
             const std::vector<std::pair<Cchhr, std::vector<Dscb>>>& tracks) {
  unsigned char pointer[5];
  putCchhr(pointer, format4, vol.file().largeCylinders != 0);
  vol.patchLabel(label_layout::kVtocCc, Bytes(pointer, pointer + 5));
  for (const auto& t : tracks) {
    std::vector<Record> records;
    for (size_t i = 0; i < t.second.size(); ++i) {
      records.push_back(dscbRecord(static_cast<uint8_t>(i + 1), t.second[i]));
    }
    vol.setRecords(t.first.cyl, t.first.head, records);
  }
}

SparseLargeVolume::SparseLargeVolume(uint32_t cylinders) : path_(dir_.file("large.ckd")) {
  check(file_.create(path_.c_str(), EmulatedCKDfile::D600, static_cast<int>(cylinders)) == 0,
        "create");
  cylinders_ = file_.cylinders;  // rounded up to a multiple of 1113
  file_.close();
  const int fd = ::open(path_.c_str(), O_RDWR);
  check(fd >= 0, "reopen");
  check(::pwrite(fd, "CKD_XVOL", 8, 0) == 8, "stamp the header");  // header magic
  check(::ftruncate(fd, 512 + static_cast<off_t>(cylinders_) * kD600Heads * kD600Slot) == 0,
        "size the file");
  ::close(fd);
}

void SparseLargeVolume::setTrack(uint32_t cyl, uint16_t head, const std::vector<Record>& records) {
  Bytes slot(kD600Slot, 0);
  const uint16_t cc = uint16_t(cyl & 0xFFFF), hh = uint16_t(((cyl >> 16) << 4) | (head & 0xF));
  size_t at = 0;
  auto put = [&](const Bytes& b) {
    if (!b.empty()) std::memcpy(slot.data() + at, b.data(), b.size());
    at += b.size();
  };
  auto count = [&](uint8_t r, uint8_t kl, uint16_t dl) {
    put({uint8_t(cc >> 8), uint8_t(cc), uint8_t(hh >> 8), uint8_t(hh), r, kl, uint8_t(dl >> 8),
         uint8_t(dl)});
  };
  put({0x00, uint8_t(cc >> 8), uint8_t(cc), uint8_t(hh >> 8), uint8_t(hh)});  // home address
  count(0, 0, 8);                                                             // record zero
  put(Bytes(8, 0));
  for (const Record& r : records) {
    count(r.rec, uint8_t(r.key.size()), uint16_t(r.data.size()));
    put(r.key);
    put(r.data);
  }
  put(Bytes(8, 0xFF));  // end of track
  const int fd = ::open(path_.c_str(), O_RDWR);
  check(fd >= 0, "open for a track");
  const off_t offset = 512 + (static_cast<off_t>(cyl) * kD600Heads + head) * kD600Slot;
  check(::pwrite(fd, slot.data(), slot.size(), offset) == static_cast<ssize_t>(slot.size()),
        "write a track");
  ::close(fd);
}

EmulatedCKDfile& SparseLargeVolume::open() {
  check(file_.open(path_.c_str(), true) == 0, std::string("open: ") + file_.errorText);
  return file_;
}

}  // namespace ckdvol_test
