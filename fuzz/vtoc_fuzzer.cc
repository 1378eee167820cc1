// Fuzz target: DskVolume::open and printVTOC over a volume whose label and
// VTOC tracks hold arbitrary bytes.
//
// The volume is a freshly initialised D130 volume of 3 cylinders (made once
// per process); its first four tracks, 0/0 (label) to 0/3 (the VTOC and the
// tracks a longer VTOC spills onto), are overlaid with the input.
//
// Input:
//   byte 0      control: bit 0 opens read-write (else read-only), bit 1 opens
//               the volume file first and hands it to DskVolume::open(file),
//               bit 2 (with bit 1) sets verifyTracks on that file first
//   bytes 1...  the slot images of tracks 0/0, 0/1, 0/2 and 0/3 back to back,
//               4096 bytes each; a short last piece overlays only the start of
//               its slot, the rest of the slot keeps the initialised image
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "ckdfile/emulated_ckd_file.h"
#include "common/data_translator.h"
#include "common/rexx_string.h"
#include "dscb/format1_dscb.h"
#include "fuzz_support.h"
#include "support/pds_builder.h"
#include "support/volume_builder.h"
#include "volume/dsk_volume.h"

namespace {

constexpr EmulatedCKDfile::CKDtype kType = EmulatedCKDfile::D130;
constexpr int kCylinders = 3;
constexpr size_t kSlot = 4096;
constexpr size_t kFuzzedTracks = 4;
constexpr size_t kHeader = 512;

struct Fixture {
  std::vector<unsigned char> image;  // the initialised volume file
  ckdvol_fuzz::MemFile file;
  FILE* sink = nullptr;

  Fixture() {
    ckdvol_test::TestVolume vol(kType, kCylinders);
    FUZZ_CHECK(vol.file().trackSlotSize == kSlot);
    vol.close();
    image = ckdvol_test::fileBytes(vol.path());
    sink = std::fopen("/dev/null", "w");
    FUZZ_CHECK(sink != nullptr);
  }
};

// Every Format-1 DSCB the VTOC holds is found again by its own name.
void checkLocateDataset(const DiskVtoc& vtoc) {
  for (int i = 0; i < vtoc.f1List.count; ++i) {
    const Format1DSCB* f1 = vtoc.f1List.get(i);
    if (f1 == nullptr) continue;
    char name[45] = {0};
    Xlater.copyE2A(name, f1->dscb, GenericDSCB::kKeyLength);
    int n = 44;
    while (n > 0 && name[n - 1] == ' ') --n;
    name[n] = '\0';
    if (n == 0 || std::strlen(name) != static_cast<size_t>(n)) continue;
    const Format1DSCB* found = vtoc.locateDataset(name);
    FUZZ_CHECK(found != nullptr);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > 1 + kFuzzedTracks * kSlot) return 0;
  static Fixture* fx = new Fixture();

  std::vector<unsigned char> image = fx->image;
  std::memcpy(image.data() + kHeader, data + 1, size - 1);
  fx->file.assign(image);

  const bool readOnly = (data[0] & 1) == 0;
  const bool byFile = (data[0] & 2) != 0;
  EmulatedCKDfile own;
  DskVolume volume;
  int rc;
  if (byFile) {
    FUZZ_CHECK(own.open(fx->file.path(), readOnly) == 0);
    own.verifyTracks = (data[0] & 4) != 0;
    rc = volume.open(&own);
  } else {
    rc = volume.open(fx->file.path(), readOnly);
  }
  FUZZ_CHECK(rc == 0 || rc == -1);
  FUZZ_CHECK(volume.file != nullptr);

  RexxString listing;
  bool threw = false;
  try {
    volume.printVTOC(listing);
  } catch (const char*) {
    threw = true;
  }
  // Only a VTOC without its Format-4 DSCB makes the listing throw.
  FUZZ_CHECK(threw == !volume.vtoc.f4.isSet());
  if (!threw) {
    const int written = volume.printVTOC(fx->sink);
    FUZZ_CHECK(written == listing.length());
    FUZZ_CHECK(static_cast<int>(std::strlen(listing.text())) <= listing.length());
  }
  if (rc == 0) checkLocateDataset(volume.vtoc);

  volume.close();
  FUZZ_CHECK(volume.file == nullptr);
  if (byFile) FUZZ_CHECK(own.fileDescriptor >= 0 && own.close() == 0);
  return 0;
}
