// Track verification. Interim: the full checks land with versioning.
#include "ckdfile/emulated_ckd_file.h"

bool EmulatedCKDfile::verifyTrack(bool /*repair*/) {
  if (currentCyl == 0xFFFFFFFFu || currentHead == 0xFFFF || currentCell == 0xFFFF) {
    verifyCode = 1;
    return false;
  }
  verifyCode = 0;
  return true;
}
