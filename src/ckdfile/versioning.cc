// Track versioning: saved copies of changed tracks behind the last slot.
// Interim: until versioning lands, no copies are ever made.
#include "ckdfile/emulated_ckd_file.h"

long long EmulatedCKDfile::versionTrack(unsigned long long /*slotOffset*/) {
  if (activeVersion == 0 || activeVersion == -1) return 0;
  return -1;  // versioning is not available yet: refuse rather than lose the former image
}
