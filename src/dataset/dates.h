// Dates as data sets carry them, decoded to year and day of year.
//
// Two encodings occur:
//   DSCB dates (created, expires, last referenced): 3 bytes, the year minus
//     1900 in one byte, then the day of the year (1..366) as a big-endian
//     halfword. All three bytes 0: no date.
//   Packed dates of directory statistics: 4 bytes 0c yy dd dF, c the century
//     (0: 19xx, 1: 20xx), yy the year and ddd the day of the year in packed
//     decimal, F (or C) the sign nibble.
//
// Nothing here touches a file; thread-safe (no state).
#ifndef CKDVOL_DATASET_DATES_H_
#define CKDVOL_DATASET_DATES_H_

#include <cstdint>

#include "common/export.h"

namespace ckdvol {

// A date as year and day of year; year 0 means no date.
struct YearDay {
  uint16_t year = 0;  // 1900..2155 for DSCB dates, 1900..2099 for packed dates
  uint16_t day = 0;   // 1..366
  bool empty() const { return year == 0; }
};

// Decodes a 3-byte DSCB date at `p`. All zero gives the empty date; a day of
// 0 or above 366 with a non-zero year also gives the empty date (returned
// false in `valid` when given). Precondition: 3 readable bytes.
CKDVOL_EXPORT YearDay decodeDscbDate(const unsigned char* p, bool* valid = nullptr);

// Decodes a 4-byte packed date at `p`. False (date left empty) when a digit
// is not 0-9, the century byte is not 00 or 01, the sign nibble is not F or
// C, or the day is not 1..366; the all-zero date 00 00 00 0F gives true and
// the empty date. Precondition: 4 readable bytes.
CKDVOL_EXPORT bool decodePackedDate(const unsigned char* p, YearDay& date);

// The value of one packed-decimal byte of two digits (0x59 -> 59), or -1
// when either nibble is not a digit.
CKDVOL_EXPORT int packedByte(unsigned char b);

}  // namespace ckdvol

#endif  // CKDVOL_DATASET_DATES_H_
