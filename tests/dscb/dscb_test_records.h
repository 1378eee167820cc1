// Hand-built DSCB records shared by the Format-1 and Format-8 tests.
#ifndef CKDVOL_TESTS_DSCB_DSCB_TEST_RECORDS_H_
#define CKDVOL_TESTS_DSCB_DSCB_TEST_RECORDS_H_

#include <cstring>

namespace dscb_test {

// A data set DSCB (format identifier `id`: F1 or F8) named SYS1.TEST.PDS
// with three extents: 0/1-0/14, 1/0-1/14, 2/0-2/4; next DSCB at 0000 0002 05.
struct DataSetRecord {
  unsigned char bytes[140] = {};
  explicit DataSetRecord(unsigned char id) {
    // "SYS1.TEST.PDS" in EBCDIC, blank-padded to 44 bytes.
    const unsigned char name[13] = {0xE2, 0xE8, 0xE2, 0xF1, 0x4B, 0xE3, 0xC5,
                                    0xE2, 0xE3, 0x4B, 0xD7, 0xC4, 0xE2};
    std::memset(bytes, 0x40, 44);
    std::memcpy(bytes, name, sizeof name);
    bytes[44] = id;                                                        // format identifier
    const unsigned char volser[6] = {0xE5, 0xD6, 0xD3, 0xF0, 0xF0, 0xF1};  // VOL001
    std::memcpy(bytes + 45, volser, 6);
    bytes[52] = 1;     // volume sequence 0001
    bytes[53] = 0x7A;  // created 2022, day 0x001F + 1
    bytes[55] = 0x1F;
    bytes[59] = 3;     // extent count
    bytes[61] = 0x40;  // flags
    bytes[75] = 0x7B;  // referenced 2023, day 0x012C + 1
    bytes[76] = 0x01;
    bytes[77] = 0x2C;
    bytes[78] = 0x08;  // SMS indicators
    bytes[82] = 0x02;  // DSORG 0200 (partitioned)
    bytes[84] = 0x90;  // RECFM
    bytes[86] = 0x19;  // BLKSIZE 6400
    bytes[89] = 0x50;  // LRECL 80
    bytes[93] = 0x80;
    bytes[94] = 0xC0;
    bytes[97] = 0x0A;
    bytes[100] = 0x05;
    bytes[101] = 0x12;  // track balance 4660
    bytes[102] = 0x34;
    setExtent(0, 0x0000, 0x0001, 0x0000, 0x000E);
    setExtent(1, 0x0001, 0x0000, 0x0001, 0x000E);
    setExtent(2, 0x0002, 0x0000, 0x0002, 0x0004);
    bytes[138] = 0x02;  // next DSCB 0000 0002 05
    bytes[139] = 0x05;
  }
  // Extent i (0 to 2) at offset 105 + 10 i: type 81, sequence i, CCHH pairs.
  void setExtent(int i, int loCc, int loHh, int hiCc, int hiHh) {
    unsigned char* e = bytes + 105 + 10 * i;
    e[0] = 0x81;
    e[1] = static_cast<unsigned char>(i);
    putCchh(e + 2, loCc, loHh);
    putCchh(e + 6, hiCc, hiHh);
  }
  static void putCchh(unsigned char* p, int cc, int hh) {
    p[0] = static_cast<unsigned char>(cc >> 8);
    p[1] = static_cast<unsigned char>(cc);
    p[2] = static_cast<unsigned char>(hh >> 8);
    p[3] = static_cast<unsigned char>(hh);
  }
};

// A Format-3 record whose extent slot m (0 to 12) runs from cylinder
// base + m head 0 to cylinder base + m head 14.
struct ChainedFormat3Record {
  unsigned char bytes[140] = {};
  explicit ChainedFormat3Record(int base) {
    std::memset(bytes, 0x03, 4);
    bytes[44] = 0xF3;
    for (int m = 0; m < 13; ++m) {
      unsigned char* e = bytes + (m < 4 ? 4 + 10 * m : 45 + 10 * (m - 4));
      e[0] = 0x81;
      DataSetRecord::putCchh(e + 2, base + m, 0);
      DataSetRecord::putCchh(e + 6, base + m, 14);
    }
  }
};

}  // namespace dscb_test

#endif  // CKDVOL_TESTS_DSCB_DSCB_TEST_RECORDS_H_
