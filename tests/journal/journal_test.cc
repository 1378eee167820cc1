// The change journal: the header record's bytes, a change's file layout,
// undo and finish, and recovery from each state a killed run can leave.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ckdfile/versioning.h"
#include "journal/change_journal.h"
#include "journal/journal_format.h"
#include "support/volume_builder.h"

namespace {

using ckdvol::ChangeJournal;
using ckdvol::JournalRecord;
using ckdvol::JournalState;
using ckdvol_test::TestVolume;
using F = EmulatedCKDfile;
using Bytes = std::vector<unsigned char>;

Bytes fileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

uint64_t be64(const unsigned char* p) {
  uint64_t v = 0;
  for (int i = 0; i < 8; ++i) v = v << 8 | p[i];
  return v;
}

// Fills track (cyl, head) with one data record of `fill` bytes.
void changeTrack(F& f, unsigned cyl, unsigned short head, unsigned char fill) {
  ASSERT_EQ(f.readTrack(cyl, head, 0), F::kTrackOk);
  const void* r0 = f.locate(F::ORIENT_COUNT, cyl, head, 0);
  ASSERT_NE(r0, nullptr);
  Bytes data(100, fill);
  ASSERT_EQ(f.writeCKD(r0, cyl, head, 1, 0, 100, data.data()), F::kWriteOk);
  ASSERT_EQ(f.writeTrack(), F::kTrackOk);
}

uint64_t slotOf(const F& f, unsigned cyl, unsigned short head) {
  return static_cast<uint64_t>(f.getOffset(cyl, head, 0, true));
}

TEST(JournalRecordTest, PlaceBytesAndTornPlaces) {
  JournalRecord r;
  r.state = JournalState::kSealed;
  r.sequence = 0x01020304;
  r.version = 0x0506;
  r.startEnd = 0x1112131415161718ull;
  r.keepEnd = 0x2122232425262728ull;
  r.copyEnd = 0x3132333435363738ull;
  r.journalEnd = 0x4142434445464748ull;
  std::strcpy(r.command, "pds replace");
  unsigned char p[64];
  r.encode(p);
  const unsigned char expected[60] = {
      'C', 'K', 'D', 'V', 'J', 'N', 'L', '1',                  // magic
      0x01, 0x02, 0x03, 0x04,                                  // sequence
      0x02, 0x00,                                              // state sealed, reserved
      0x05, 0x06,                                              // version
      0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18,          // startEnd
      0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x27, 0x28,          // keepEnd
      0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38,          // copyEnd
      0x41, 0x42, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48,          // journalEnd
      'p', 'd', 's', ' ', 'r', 'e', 'p', 'l', 'a', 'c', 'e', 0  // command
  };
  EXPECT_EQ(0, std::memcmp(p, expected, sizeof expected));
  const uLong crc = crc32(0L, p, 60);  // the CRC-32 of zlib and of the usual file formats
  EXPECT_EQ(be64(p + 56) & 0xFFFFFFFFu, crc);

  JournalRecord back;
  ASSERT_TRUE(back.decode(p));
  EXPECT_EQ(back.journalEnd, r.journalEnd);
  EXPECT_STREQ(back.command, "pds replace");
  for (int i : {0, 12, 40, 63}) {  // any changed byte makes the place invalid
    unsigned char torn[64];
    std::memcpy(torn, p, 64);
    torn[i] ^= 0x40;
    EXPECT_FALSE(back.decode(torn)) << "byte " << i;
  }
}

TEST(JournalRecordTest, NewerValidPlaceWins) {
  ckdvol_test::ScopedTempDir dir;
  const std::string path = dir.file("h");
  struct Case {
    int seqA, seqB;      // 0: place left zero
    bool tornA, tornB;   // place written, then one byte spoilt
    int expectSeq;       // 0: no record
  } cases[] = {{0, 0, false, false, 0}, {1, 0, false, false, 1}, {1, 2, false, false, 2},
               {3, 2, false, false, 3}, {3, 2, true, false, 2},  {1, 2, false, true, 1},
               {1, 2, true, true, 0}};
  for (const Case& c : cases) {
    Bytes header(512, 0);
    auto put = [&](int seq, bool torn, int place) {
      if (seq == 0) return;
      JournalRecord r;
      r.state = JournalState::kOpen;
      r.sequence = static_cast<uint32_t>(seq);
      r.encode(&header[384 + 64 * place]);
      if (torn) header[384 + 64 * place + 20] ^= 1;
    };
    put(c.seqA, c.tornA, 0);
    put(c.seqB, c.tornB, 1);
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(header.data()), 512);
    const int fd = ::open(path.c_str(), O_RDONLY);
    JournalRecord r;
    bool present = true;
    ASSERT_TRUE(ckdvol::readJournalRecord(fd, r, present));
    ::close(fd);
    EXPECT_EQ(present, c.expectSeq != 0) << c.seqA << "/" << c.seqB;
    if (c.expectSeq != 0) {
      EXPECT_EQ(r.sequence, static_cast<uint32_t>(c.expectSeq));
    }
  }
}

// A change of a 3-cylinder D100 volume (8 heads, 24 slots): the copies,
// the index and the record lie where the format says; finish keeps the new
// tracks and gives back the file's length; undo gives back every byte.
TEST(ChangeJournalTest, LayoutFinishAndUndo) {
  struct Case {
    int tracks;        // changed: (0,1), (0,2), ...
    int journalSlots;  // copies + index (+ a pad slot: 24 + 7 + 1 would be whole cylinders)
    bool keep;
  } cases[] = {{2, 3, true}, {2, 3, false}, {7, 9, true}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.tracks);
    TestVolume v(F::D100, 3);
    F& f = v.file();
    const unsigned slot = f.trackSlotSize;
    const uint64_t dataEnd = 512 + 24 * 14848ull;
    v.close();
    const Bytes before = fileBytes(v.path());
    v.reopen();
    ChangeJournal j(f, "test change");
    std::vector<uint64_t> slots;
    for (int i = 1; i <= c.tracks; ++i) slots.push_back(512 + i * 14848ull);
    slots.push_back(slots[0]);  // a duplicate is saved once
    ASSERT_EQ(j.begin(slots), 0) << j.error();
    EXPECT_EQ(j.tracks(), static_cast<size_t>(c.tracks));
    Bytes now = fileBytes(v.path());
    ASSERT_EQ(now.size(), dataEnd + c.journalSlots * 14848ull);
    for (int i = 0; i < c.tracks; ++i) {
      const unsigned char* copy = &now[dataEnd + i * slot];
      EXPECT_EQ(0, std::memcmp(copy, &before[slots[i]], slot - 16)) << "copy " << i;
      EXPECT_EQ(0, std::memcmp(copy + slot - 16, "VER0\0\0\0\0", 8));
      EXPECT_EQ(be64(copy + slot - 8), slots[i]);
    }
    const unsigned char* index = &now[dataEnd + c.tracks * slot];
    EXPECT_EQ(0, std::memcmp(index, "CKDVJIDX\0\0\0\0\0\0\0", 15));
    EXPECT_EQ(index[15], c.tracks);
    EXPECT_EQ(be64(index + 16), slots[0]);  // entries: home, former trailer
    EXPECT_EQ(be64(index + 40), slots[1]);
    EXPECT_EQ(0, std::memcmp(index + slot - 16, "JNL0", 4));
    JournalRecord r;
    bool present = false;
    ASSERT_TRUE(ckdvol::readJournalRecord(f.fileDescriptor, r, present));
    EXPECT_EQ(r.state, JournalState::kSealed);
    EXPECT_EQ(r.startEnd, dataEnd);
    EXPECT_EQ(r.copyEnd, dataEnd + c.tracks * slot);

    changeTrack(f, 0, 1, 0xA1);
    changeTrack(f, 0, 2, 0xB2);
    if (c.keep) {
      ASSERT_EQ(j.finish(), 0) << j.error();
      EXPECT_TRUE(j.complete());
      v.close();
      now = fileBytes(v.path());
      ASSERT_EQ(now.size(), before.size());
      EXPECT_EQ(now[slots[0] + 29], 0xA1);  // record 1's data: after HA 5, R0 8 + 8, count 8
      EXPECT_EQ(Bytes(now.begin() + 384, now.begin() + 512), Bytes(128, 0));
    } else {
      ASSERT_EQ(j.undo(), 0) << j.error();
      v.close();
      EXPECT_TRUE(fileBytes(v.path()) == before);
    }
  }
}

// A change over empty formatted tracks (home address, record zero, end
// marker) and others on a 3-cylinder D100 (8 heads, slot 14848): only the
// others get saved copies; the index marks the empty ones, and undo,
// recovery of the sealed change and finish each give the right bytes back.
TEST(ChangeJournalTest, EmptyTracksGetNoCopy) {
  const uint64_t slot = 14848, dataEnd = 512 + 24 * slot;
  const auto at = [&](uint64_t cyl, uint64_t head) { return 512 + (cyl * 8 + head) * slot; };
  const Bytes oddTrailer = {0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7,
                            0xA8, 0xA9, 0xAA, 0xAB, 0xAC, 0xAD, 0xAE, 0xAF};
  enum End { kUndo, kRecover, kFinish };
  for (End end : {kUndo, kRecover, kFinish}) {
    SCOPED_TRACE(end);
    TestVolume v(F::D100, 3);
    F& f = v.file();
    for (unsigned short h = 0; h < 5; ++h) ASSERT_EQ(f.formatTrack(1, h, 0), F::kFormatOk);
    const int fd = f.fileDescriptor;
    ASSERT_EQ(::pwrite(fd, oddTrailer.data(), 16, static_cast<off_t>(at(1, 1) + slot - 16)), 16);
    ASSERT_EQ(::pwrite(fd, "\x01", 1, static_cast<off_t>(at(1, 2) + 13)), 1);            // R0's data
    ASSERT_EQ(::pwrite(fd, "\x01", 1, static_cast<off_t>(at(1, 3) + slot - 17)), 1);      // before the trailer
    ASSERT_EQ(::pwrite(fd, "\x01", 1, static_cast<off_t>(at(1, 4) + slot - 17)), 1);      // the same, no hole
    // Holes inside (1,0) (empty) and (1,3) (its odd byte lies behind the
    // hole): only the data around them is read, and still compared.
    for (uint64_t hole : {at(1, 0) + 3584, at(1, 3) + 4096}) {
      if (::fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(hole), 8192) != 0) {
        ASSERT_EQ(errno, EOPNOTSUPP);
      }
    }
    v.close();
    const Bytes before = fileBytes(v.path());
    // An empty track's bytes: HA flag 0, CC 0001, HH 0000; R0 count CC HH R
    // KL DL 0008; 8 zero data bytes; end marker; zeros.
    const Bytes emptyTrack = {0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x08,
                              0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
    ASSERT_EQ(Bytes(&before[at(1, 0)], &before[at(1, 0) + 30]), emptyTrack);
    v.reopen();
    ChangeJournal j(f, "load");
    // (1,0) empty, (0,5) fillers, (1,1) empty with a trailer, (1,2) to (1,4) one byte off empty
    const std::vector<uint64_t> slots = {at(1, 0), at(0, 5), at(1, 1), at(1, 2), at(1, 3), at(1, 4)};
    ASSERT_EQ(j.begin(slots), 0) << j.error();
    Bytes now = fileBytes(v.path());
    ASSERT_EQ(now.size(), dataEnd + 5 * slot);  // 4 copies + index (29 slots: no pad)
    const uint64_t copied[] = {slots[1], slots[3], slots[4], slots[5]};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(be64(&now[dataEnd + i * slot + slot - 8]), copied[i]) << "copy " << i;
    const Bytes index = {
        'C', 'K', 'D', 'V', 'J', 'I', 'D', 'X', 0, 0, 0, 0, 0, 0, 0, 6,  // magic, first 0, 6 entries
        0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x24, 0x00,                    // (0,5) at 74752
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                    //   its trailer
        0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x46, 0x00,                    // (1,2) at 148992
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                    //
        0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x80, 0x00,                    // (1,3) at 163840
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                    //
        0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0xBA, 0x00,                    // (1,4) at 178688
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                    //
        0x80, 0x00, 0x00, 0x00, 0x00, 0x01, 0xD2, 0x00,                    // empty flag | (1,0) at 119296
        0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,                    //
        0x80, 0x00, 0x00, 0x00, 0x00, 0x02, 0x0C, 0x00};                   // empty flag | (1,1) at 134144
    const unsigned char* idx = &now[dataEnd + 4 * slot];
    EXPECT_EQ(Bytes(idx, idx + index.size()), index);
    EXPECT_EQ(Bytes(idx + index.size(), idx + index.size() + 16), oddTrailer);
    EXPECT_EQ(Bytes(idx + slot - 16, idx + slot), Bytes({'J', 'N', 'L', '0', 0, 0, 0, 6, 0, 0, 0, 0, 0, 0, 0, 0}));
    JournalRecord r;
    bool present = false;
    ASSERT_TRUE(ckdvol::readJournalRecord(fd, r, present));
    EXPECT_EQ(r.copyEnd, dataEnd + 4 * slot);
    EXPECT_EQ(r.journalEnd, dataEnd + 5 * slot);

    for (unsigned short h = 0; h < 5; ++h) changeTrack(f, 1, h, static_cast<unsigned char>(0xC0 + h));
    changeTrack(f, 0, 5, 0xC5);
    if (end == kFinish) {
      ASSERT_EQ(j.finish(), 0) << j.error();
      v.close();
      now = fileBytes(v.path());
      ASSERT_EQ(now.size(), before.size());
      EXPECT_EQ(now[at(1, 1) + 29], 0xC1);
      continue;
    }
    if (end == kUndo) {
      ASSERT_EQ(j.undo(), 0) << j.error();
    } else {
      ASSERT_EQ(::fdatasync(fd), 0);
      v.close();
      ckdvol::RecoveryReport report;
      std::string error;
      ASSERT_EQ(ckdvol::recoverVolume(v.path(), report, error), 0) << error;
      EXPECT_EQ(report.tracksRestored, 6u);
      EXPECT_EQ(report.copiesDropped, 4u);
    }
    v.close();
    EXPECT_TRUE(fileBytes(v.path()) == before);
  }
}

// Under an active version, a track never versioned gets a saved copy that
// stays behind the change, and the version's rollback gives its image back.
TEST(ChangeJournalTest, JoinsTheActiveVersion) {
  TestVolume v(F::D100, 3);
  F& f = v.file();
  const unsigned slot = f.trackSlotSize;
  const uint64_t dataEnd = static_cast<uint64_t>(f.getMaxOffset());
  ASSERT_EQ(f.enableVersion(), 0);
  v.close();
  v.reopen();
  ASSERT_EQ(f.activeVersion, 1);
  changeTrack(f, 2, 1, 0x11);  // copied by the version itself: (2,1) now carries version 1
  v.close();
  const Bytes before = fileBytes(v.path());
  v.reopen();
  ChangeJournal j(f, "test");
  ASSERT_EQ(j.begin({slotOf(f, 2, 1), slotOf(f, 0, 7)}), 0) << j.error();
  changeTrack(f, 0, 7, 0x22);
  changeTrack(f, 2, 1, 0x33);
  ASSERT_EQ(j.finish(), 0) << j.error();
  Bytes now = fileBytes(v.path());
  // The version's own copy of (2,1), then the journal's copy of (0,7), kept.
  ASSERT_EQ(now.size(), dataEnd + 2 * slot);
  EXPECT_EQ(be64(&now[dataEnd + 2 * slot - 8]), slotOf(f, 0, 7));
  const unsigned char* t = &now[slotOf(f, 0, 7) + slot - 16];
  EXPECT_EQ(0, std::memcmp(t, "VER0\0\1\0\0", 8));
  EXPECT_EQ(be64(t + 8), dataEnd + slot);
  EXPECT_EQ(f.rollbackVersion(-1), 2);
  v.close();
  now = fileBytes(v.path());
  ASSERT_EQ(now.size(), dataEnd);
  EXPECT_EQ(Bytes(now.begin() + slotOf(f, 0, 7), now.begin() + slotOf(f, 0, 8)),
            Bytes(before.begin() + slotOf(f, 0, 7), before.begin() + slotOf(f, 0, 8)));
}

// A change that enables a version for itself (as a repair does): undo, and
// recovery of it, take the version back with the tracks.
TEST(ChangeJournalTest, UndoTakesBackTheVersionItEnabled) {
  for (bool viaRecovery : {false, true}) {
    TestVolume v(F::D100, 2);
    F& f = v.file();
    v.close();
    const Bytes before = fileBytes(v.path());
    v.reopen();
    ChangeJournal j(f, "repair");
    ASSERT_EQ(j.saveHeaderVersions(), 0) << j.error();
    ASSERT_EQ(f.enableVersion(), 0);
    v.close();
    v.reopen();
    ASSERT_EQ(f.activeVersion, 1);
    ASSERT_EQ(j.begin({slotOf(f, 1, 2)}), 0) << j.error();
    changeTrack(f, 1, 2, 0x77);
    if (viaRecovery) {
      v.close();
      ckdvol::RecoveryReport report;
      std::string error;
      ASSERT_EQ(ckdvol::recoverVolume(v.path(), report, error), 0) << error;
      EXPECT_EQ(report.action, "undone");
    } else {
      ASSERT_EQ(::fdatasync(f.fileDescriptor), 0);
      ASSERT_EQ(j.undo(), 0) << j.error();
      v.close();
    }
    EXPECT_TRUE(fileBytes(v.path()) == before) << "via recovery " << viaRecovery;
  }
}

// Recovery of each state a killed change leaves, and of the leftovers of
// versioning and creation without a record.
TEST(RecoveryTest, EachInterruptedState) {
  enum Stop { kAfterSeal, kOpenRecord, kDoneRecord, kTornCopy, kOrphanCopy, kUnfinished, kClean };
  struct Case {
    Stop stop;
    const char* action;
    bool expectAfter;  // else the volume as before
  } cases[] = {{kAfterSeal, "undone", false},  {kOpenRecord, "undone", false}, {kDoneRecord, "finished", true},
               {kTornCopy, "undone", false},   {kOrphanCopy, "undone", false}, {kUnfinished, "removed", false},
               {kClean, "none", false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.stop);
    TestVolume v(F::D100, 2);
    F& f = v.file();
    const unsigned slot = f.trackSlotSize;
    if (c.stop == kTornCopy || c.stop == kOrphanCopy) {
      ASSERT_EQ(f.enableVersion(), 0);
      v.close();
      v.reopen();
    }
    v.close();
    const Bytes before = fileBytes(v.path());
    v.reopen();
    const uint64_t home = slotOf(f, 1, 3);
    const int fd = f.fileDescriptor;
    if (c.stop == kAfterSeal || c.stop == kDoneRecord || c.stop == kOpenRecord) {
      ChangeJournal j(f, "killed");
      ASSERT_EQ(j.begin({home}), 0) << j.error();
      if (c.stop != kOpenRecord) changeTrack(f, 1, 3, 0x5A);  // "open": no track written yet
      if (c.stop != kAfterSeal) {
        ASSERT_EQ(::fdatasync(fd), 0);
        JournalRecord r;
        bool present = false;
        ASSERT_TRUE(ckdvol::readJournalRecord(fd, r, present));
        std::string error;
        ASSERT_EQ(ckdvol::putJournalRecord(fd, r, c.stop == kOpenRecord ? JournalState::kOpen : JournalState::kDone,
                                           error),
                  0);
      }
    } else if (c.stop == kTornCopy || c.stop == kOrphanCopy) {
      Bytes image(slot);
      ASSERT_EQ(f.readRawTrack(home, image.data()), F::kTrackOk);
      std::memcpy(&image[slot - 16], "VER0\0\0\0\0", 8);
      for (int i = 0; i < 8; ++i) image[slot - 8 + i] = static_cast<unsigned char>(home >> (56 - 8 * i));
      const size_t n = c.stop == kTornCopy ? slot / 2 : slot;
      ASSERT_EQ(::pwrite(fd, image.data(), n, static_cast<off_t>(before.size())), static_cast<ssize_t>(n));
    } else if (c.stop == kUnfinished) {
      ASSERT_EQ(::pwrite(fd, "CKD_INIT", 8, 0), 8);
    }
    v.close();
    ckdvol::RecoveryReport report;
    std::string error;
    ASSERT_EQ(ckdvol::recoverVolume(v.path(), report, error), 0) << error;
    EXPECT_EQ(report.action, c.action);
    if (c.stop == kUnfinished) {
      EXPECT_NE(::access(v.path().c_str(), F_OK), 0);
      continue;
    }
    const Bytes now = fileBytes(v.path());
    ASSERT_EQ(now.size(), before.size());
    const bool same = now == before;
    EXPECT_EQ(same, !c.expectAfter);
    if (c.expectAfter) {
      EXPECT_EQ(now[home + 29], 0x5A);
    }
    v.reopen();  // the library opens what recovery leaves
  }
}

}  // namespace
