// Fuzz target: recovery over arbitrary volume files: header change records
// that lie, indexes that name slots outside the volume or are cut short,
// saved copies torn at the end of the file.
//
// Input: the file's bytes (at most 4 MiB). Invariants: recovery ends (0 or
// an error), never leaves a change record behind after success, never
// makes the file longer, and a second run finds nothing more to do.
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz_support.h"
#include "journal/change_journal.h"

namespace {

constexpr size_t kMaxFileBytes = 4u << 20;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kMaxFileBytes) return 0;
  static ckdvol_fuzz::MemFile* file = new ckdvol_fuzz::MemFile();
  file->assign(data, size);
  ckdvol::RecoveryReport report;
  std::string error;
  const int rc = ckdvol::recoverVolume(file->path(), report, error);
  FUZZ_CHECK(rc == 0 || rc == -1);
  FUZZ_CHECK(rc == 0 || !error.empty());
  FUZZ_CHECK(report.bytesAfter <= report.bytesBefore);
  if (rc != 0 || report.action == "removed") return 0;  // a memfd cannot be unlinked
  ckdvol::RecoveryReport again;
  FUZZ_CHECK(ckdvol::recoverVolume(file->path(), again, error) == 0);
  FUZZ_CHECK(again.action == "none");
  return 0;
}
