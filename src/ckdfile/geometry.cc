// Device types and geometry: the constant device table, the text form of a
// device type, and the object state that a type establishes (buffer size,
// heads, cells, default cylinder count and the model derived from it).
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"

namespace {

constexpr unsigned int kAllOnes32 = 0xFFFFFFFFu;
constexpr unsigned short kAllOnes16 = 0xFFFF;
constexpr int kSlotUnitShift = 9;  // slot size = units << 9 (512-byte units)
constexpr unsigned short kD200Cells = 10;
constexpr int kModelLetterA = 59;  // "D600-A" / "D600-a"

}  // namespace

// type, fileCode, default cylinders, heads, slot units, track capacity.
const EmulatedCKDfile::DeviceInfo EmulatedCKDfile::deviceTable[12] = {
    {D100, 0xA1, 48, 8, 29, 14660},    //
    {D130, 0xA2, 200, 10, 8, 3625},    //
    {D160, 0xA3, 200, 20, 15, 7294},   //
    {D200, 0xA4, 5, 20, 5, 2000},      // cylinders/heads bound the HH bytes
    {D300, 0xA5, 404, 19, 26, 13030},  //
    {D400, 0xA6, 348, 12, 17, 8368},   //
    {D430, 0xA7, 555, 30, 38, 19069},  //
    {D460, 0xA8, 959, 12, 70, 35616},  //
    {D500, 0xA9, 885, 15, 93, 47476},  //
    {D600, 0xAA, 1113, 15, 111, 56664},
    {D700, 0xAB, 1440, 15, 91, 46456},
    {0, 0, 0, 0, 0, 0},  // closes the table
};

const EmulatedCKDfile::DeviceInfo* EmulatedCKDfile::findDevice(uint32_t type) {
  for (const DeviceInfo* row = deviceTable; row->type != 0; ++row) {
    if (row->type == type) return row;
  }
  return nullptr;
}

const EmulatedCKDfile::DeviceInfo* EmulatedCKDfile::findDeviceByFileCode(unsigned char fileCode) {
  for (const DeviceInfo* row = deviceTable; row->type != 0; ++row) {
    if (row->fileCode == fileCode) return row;
  }
  return nullptr;
}

// The members that init() leaves unchanged are zeroed once here, so that an
// object never holds indeterminate values.
EmulatedCKDfile::EmulatedCKDfile()
    : trackBuffer(nullptr), trackCapacity(0), latestVersion(0), headerCylinders(0) {
  init(false);
}

EmulatedCKDfile::~EmulatedCKDfile() { close(); }

void EmulatedCKDfile::init(bool freeBuffer) {
  if (freeBuffer && trackBuffer != nullptr) delete[] trackBuffer;
  trackBuffer = nullptr;
  lastReadOffset = 0;
  trackSlotSize = 0;
  currentCyl = kAllOnes32;
  currentHead = kAllOnes16;
  currentCell = kAllOnes16;
  fileDescriptor = -1;
  trackDirty = 0;
  deviceType = static_cast<CKDtype>(0);
  activeVersion = -1;
  cylinders = 0;
  tracksPerCylinder = 0;
  cellCount = 0;
  model = 0;
  verifyCode = 0;
  formatLevel = 0;
  extendedVolume = 0;
  cylindersRounded = 0;
  largeCylinders = 0;
  readOnly = 0;
  verifyTracks = 0;
  cylindersCorrected = 0;
  std::memset(errorText, 0, sizeof errorText);
}

// True with `type` and `model` (0 when none is given) for "XXXX" or
// "XXXX-model"; false otherwise. On false, `type` is 0 when no row matched and
// the row's code when only the model part was bad; `model` is then -1.
bool EmulatedCKDfile::parseType(const char* text, CKDtype& type, int& model) {
  type = static_cast<CKDtype>(0);
  model = -1;
  if (text == nullptr) return false;
  while (*text != '\0' && std::isspace(static_cast<unsigned char>(*text))) ++text;
  if (*text == '\0') return false;

  const DeviceInfo* match = nullptr;
  for (const DeviceInfo* row = deviceTable; row->type != 0 && match == nullptr; ++row) {
    char code[16];
    std::snprintf(code, sizeof code, "%04X", static_cast<unsigned int>(row->type));
    if (std::strncmp(code, text, 4) == 0) match = row;
  }
  if (match == nullptr) return false;
  type = static_cast<CKDtype>(match->type);

  const char* rest = text + 4;
  if (*rest == '\0') {
    model = 0;
    return true;
  }
  if (*rest != '-') return false;
  ++rest;
  if ((rest[0] == 'A' || rest[0] == 'a') && rest[1] == '\0') {
    model = kModelLetterA;
    return true;
  }
  char* end = nullptr;
  // The value is stored in the int `model` (modulo 2^32 beyond its range)
  // and the stored value is tested; an empty text converts to 0.
  model = static_cast<int>(std::strtol(rest, &end, 10));
  if (*end != '\0' || model <= 0) {
    model = -1;
    return false;
  }
  return true;
}

// On an idle object: adopts the type's geometry and allocates the track buffer
// (not cleared); true. Unknown type (0 included): false, nothing changed. On a
// typed object: nothing changed, true exactly when it already has `type`.
bool EmulatedCKDfile::setType(CKDtype type) {
  if (deviceType != 0) return deviceType == type;
  const DeviceInfo* row = findDevice(type);
  if (row == nullptr) return false;
  init(true);
  deviceType = type;
  cellCount = (type == D200) ? kD200Cells : 1;
  setCylinders(row->cylinders);
  tracksPerCylinder = row->heads;
  trackSlotSize = static_cast<unsigned int>(row->slotUnits) << kSlotUnitShift;
  trackCapacity = row->trackCapacity;
  trackBuffer = new unsigned char[trackSlotSize];
  return true;
}

void EmulatedCKDfile::setCylinders(unsigned int count) {
  cylinders = count;
  setModel();
}

// Bounds are inclusive. Only init() clears the two large-volume flags.
void EmulatedCKDfile::setModel() {
  switch (deviceType) {
    case D100:
      model = cylinders <= 48 ? 1 : 2;
      break;
    case D300:
      model = cylinders <= 404 ? 1 : 11;
      break;
    case D400:
      model = cylinders <= 348 ? 35 : 70;
      break;
    case D500:
      model = cylinders <= 885 ? 1 : cylinders <= 1770 ? 2 : 3;
      break;
    case D600:
      model = cylinders <= 1113 ? 1 : cylinders <= 2226 ? 2 : cylinders <= 10016 ? 3 : 9;
      if (cylinders > ckdvol::kMaxSmallCylinders) {
        largeCylinders = 1;
        extendedVolume = 1;
      }
      break;
    case D700:
      model = cylinders <= 1440 ? 1 : 2;
      break;
    default:
      model = 0;
      break;
  }
}
