// Encoding member statistics.
#include "edit/statistics.h"

#include <algorithm>

#include "codepage/code_page.h"

namespace ckdvol {
namespace {

constexpr size_t kShortForm = 30;
constexpr size_t kLongForm = 40;
constexpr uint32_t kU16Max = 0xFFFF;

unsigned char packed2(int v) { return static_cast<unsigned char>(((v / 10) % 10) << 4 | (v % 10)); }

// 0cyydddF: century 0 for 19xx, 1 for 20xx.
void putPackedDate(unsigned char* p, int year, int day) {
  const int century = year >= 2000 ? 1 : 0;
  const int yy = year % 100;
  p[0] = static_cast<unsigned char>(century);
  p[1] = packed2(yy);
  p[2] = static_cast<unsigned char>(((day / 100) % 10) << 4 | ((day / 10) % 10));
  p[3] = static_cast<unsigned char>((day % 10) << 4 | 0x0F);
}

void putBe16(unsigned char* p, uint32_t v) {
  p[0] = static_cast<unsigned char>(v >> 8);
  p[1] = static_cast<unsigned char>(v);
}

void putBe32(unsigned char* p, uint32_t v) {
  putBe16(p, v >> 16);
  putBe16(p + 2, v & 0xFFFF);
}

}  // namespace

std::vector<unsigned char> statisticsUserId(const std::string& name) {
  std::vector<unsigned char> id(8, 0x40);
  const CodePage& page = CodePage::defaultPage();
  size_t used = 0;
  for (char c : name) {
    if (used == 7) break;
    unsigned char u = static_cast<unsigned char>(c);
    if (u >= 'a' && u <= 'z') u = static_cast<unsigned char>(u - 'a' + 'A');
    if (u <= 0x20 || u >= 0x7F) continue;  // printable ASCII only
    const int e = page.toEbcdic(u);
    if (e >= 0) id[used++] = static_cast<unsigned char>(e);
  }
  return id;
}

std::vector<unsigned char> encodeStatistics(uint32_t lines, const std::tm& when, const std::string& userId,
                                            const MemberStatistics* previous) {
  const int year = std::min(std::max(when.tm_year + 1900, 1900), 2099);
  const int day = when.tm_yday + 1;
  uint32_t initial = lines;
  int version = 1, modification = 0;
  int createdYear = year, createdDay = day;
  if (previous != nullptr) {
    version = std::max<int>(previous->version, 1);
    modification = std::min(previous->modification + 1, 99);
    initial = previous->initialLines;
    if (!previous->created.empty()) {
      createdYear = previous->created.year;
      createdDay = previous->created.day;
    }
  }
  const bool extended = lines > kU16Max || initial > kU16Max;
  std::vector<unsigned char> u(extended ? kLongForm : kShortForm, 0);
  u[0] = static_cast<unsigned char>(version);
  u[1] = static_cast<unsigned char>(modification);
  u[2] = extended ? 0x20 : 0x00;
  u[3] = packed2(std::min(when.tm_sec, 59));
  putPackedDate(&u[4], createdYear, createdDay);
  putPackedDate(&u[8], year, day);
  u[12] = packed2(when.tm_hour);
  u[13] = packed2(when.tm_min);
  putBe16(&u[14], std::min(lines, kU16Max));
  putBe16(&u[16], std::min(initial, kU16Max));
  putBe16(&u[18], 0);
  const std::vector<unsigned char> id = statisticsUserId(userId);
  std::copy(id.begin(), id.end(), u.begin() + 20);
  if (extended) {
    putBe32(&u[28], lines);
    putBe32(&u[32], initial);
    putBe32(&u[36], 0);
  }
  return u;
}

}  // namespace ckdvol
