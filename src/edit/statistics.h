// Member statistics in the common directory layout (the read side is
// decodeStatistics in dataset/pds_directory.h), as this layer writes them
// for text members:
//    0 version | 1 modification level | 2 flags (20: extended form)
//    3 changed seconds, packed | 4 created date 0cyydddF | 8 changed date
//   12 changed hour, packed | 13 changed minute, packed
//   14 current lines u16 | 16 initial lines u16 | 18 modified lines u16
//   20 user id, 8 EBCDIC characters (at most 7 used, blank padded)
//   28 two zero bytes (30-byte form, indicator halfwords 0F), or, when a line
//      count is above 65535, the 40-byte form (halfwords 14): 28 current,
//      32 initial, 36 modified lines as u32, the u16 counts then 65535.
//
// Thread safety: none needed (no state).
#ifndef CKDVOL_EDIT_STATISTICS_H_
#define CKDVOL_EDIT_STATISTICS_H_

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "common/export.h"
#include "dataset/pds_directory.h"

namespace ckdvol {

// The user id as statistics keep it: the first 7 characters of `name` in
// upper case that the default code page can hold, EBCDIC, blank padded to 8.
CKDVOL_EXPORT std::vector<unsigned char> statisticsUserId(const std::string& name);

// The user data for a member of `lines` lines written at `when` (local
// time) by `userId` (ASCII). With `previous` (the statistics the member
// had), the created date, version and initial lines are kept and the
// modification level goes up by one (at most 99); without, version 01,
// modification 00, created = changed and initial lines = `lines`.
CKDVOL_EXPORT std::vector<unsigned char> encodeStatistics(uint32_t lines, const std::tm& when,
                                                          const std::string& userId,
                                                          const MemberStatistics* previous);

// The indicator halfword count for user data of `bytes` bytes.
inline uint8_t userDataHalfwords(size_t bytes) { return static_cast<uint8_t>(bytes / 2); }

}  // namespace ckdvol

#endif  // CKDVOL_EDIT_STATISTICS_H_
