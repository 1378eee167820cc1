#include "edit/relabel.h"

#include <algorithm>
#include <cstring>

#include "edit/allocate.h"
#include "edit/vtoc_edit.h"

namespace ckdvol {

namespace {

constexpr int kSerialAt = 4;  // in the label's data
constexpr int kOwnerAt = 37;
constexpr int kDscbSerialAt = 45;
const unsigned char kVol1[4] = {0xE5, 0xD6, 0xD3, 0xF1};

}  // namespace

bool validateOwner(const std::string& owner, std::string& error) {
  if (owner.size() > kOwnerLength) {
    error = "the owner has at most " + std::to_string(kOwnerLength) + " characters, not " + std::to_string(owner.size());
    return false;
  }
  for (char c : owner) {
    if (c < 0x20 || c > 0x7E) {
      error = "the owner may hold printable ASCII characters only";
      return false;
    }
  }
  return true;
}

bool relabelVolume(StagedTracks& staged, const VtocInfo& vtoc, const std::string& serial, const std::string* owner,
                   std::string& error) {
  if (!validateVolumeSerial(serial, error)) return false;
  if (owner != nullptr && !validateOwner(*owner, error)) return false;
  VtocEditor editor(staged);
  if (!editor.load(vtoc, error)) return false;
  // The label: the record of track 0 keyed VOL1 with 80 data bytes.
  const unsigned char* image = staged.image(0, error);
  if (image == nullptr) return false;
  const uint32_t limit = staged.slotSize() - 24;
  int labelRecord = -1;
  for (uint32_t at = 5; at + 8 <= limit;) {
    const unsigned char* c = image + at;
    if (std::all_of(c, c + 8, [](unsigned char b) { return b == 0xFF; })) break;
    const uint32_t kl = c[5], dl = (static_cast<uint32_t>(c[6]) << 8) | c[7];
    if (at + 8 + kl + dl > limit) break;
    if (c[4] != 0 && kl == 4 && dl == 80 && std::memcmp(c + 8, kVol1, 4) == 0) {
      labelRecord = c[4];
      break;
    }
    at += 8 + kl + dl;
  }
  if (labelRecord < 0) {
    error = "no VOL1 label on cylinder 0 head 0";
    return false;
  }
  // Every DSCB first (reads), then the label.
  for (const DscbSlot& s : editor.slots()) {
    if (s.format != 1 && s.format != 8) continue;
    DscbBytes d;
    if (!editor.readDscb(s, d, error)) return false;
    encodeEbcdic(serial, d.data() + kDscbSerialAt, 6);
    if (!editor.writeDscb(s, d.data(), error)) return false;
  }
  uint32_t kl = 0, dl = 0;
  unsigned char* label = staged.stageRecord(0, static_cast<uint8_t>(labelRecord), kl, dl, error);
  if (label == nullptr) return false;
  unsigned char* data = label + kl;
  encodeEbcdic(serial, data + kSerialAt, 6);
  if (owner != nullptr) encodeEbcdic(*owner, data + kOwnerAt, kOwnerLength);
  return true;
}

}  // namespace ckdvol
