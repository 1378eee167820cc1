// DSCB dates and packed dates of directory statistics.
#include "dataset/dates.h"

#include "common/byte_order.h"

namespace ckdvol {

YearDay decodeDscbDate(const unsigned char* p, bool* valid) {
  YearDay d;
  const uint16_t day = loadBe16(p + 1);
  bool ok = true;
  if (p[0] != 0 || day != 0) {
    if (day >= 1 && day <= 366) {
      d.year = static_cast<uint16_t>(1900 + p[0]);
      d.day = day;
    } else {
      ok = false;
    }
  }
  if (valid != nullptr) *valid = ok;
  return d;
}

int packedByte(unsigned char b) {
  const int hi = b >> 4, lo = b & 0x0F;
  if (hi > 9 || lo > 9) return -1;
  return hi * 10 + lo;
}

bool decodePackedDate(const unsigned char* p, YearDay& date) {
  date = YearDay();
  // 0c yy dd dF
  const int sign = p[3] & 0x0F;
  if (p[0] > 1 || (sign != 0x0F && sign != 0x0C)) return false;
  const int yy = packedByte(p[1]);
  const int dd = packedByte(p[2]);
  const int d3 = p[3] >> 4;
  if (yy < 0 || dd < 0 || d3 > 9) return false;
  const int day = dd * 10 + d3;
  if (p[0] == 0 && yy == 0 && day == 0) return true;  // no date
  if (day < 1 || day > 366) return false;
  date.year = static_cast<uint16_t>(1900 + 100 * p[0] + yy);
  date.day = static_cast<uint16_t>(day);
  return true;
}

}  // namespace ckdvol
