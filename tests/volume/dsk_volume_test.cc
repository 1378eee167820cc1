#include "volume/dsk_volume.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "support/volume_builder.h"

namespace {

using namespace ckdvol_test;

std::string listing(DskVolume& v) {
  RexxString out;
  v.printVTOC(out);
  return out.text();
}

bool startsWith(const std::string& s, const std::string& head) { return s.compare(0, head.size(), head) == 0; }

TEST(DskVolume, ClosedHandle) {
  DskVolume v;
  EXPECT_EQ(nullptr, v.file);
  EXPECT_FALSE(v.ownsFile);
  EXPECT_FALSE(v.label.loaded);
  EXPECT_FALSE(v.vtoc.f4.isSet());
  EXPECT_EQ(0, v.close());
  EXPECT_EQ(0, v.close());
}

TEST(DskVolume, OpenByPathOwnsTheFile) {
  TestVolume vol;
  vol.close();
  DskVolume v;
  ASSERT_EQ(0, v.open(vol.path().c_str(), true));
  ASSERT_NE(nullptr, v.file);
  EXPECT_TRUE(v.ownsFile);
  EXPECT_EQ(1, v.file->readOnly);
  EXPECT_TRUE(v.label.loaded);
  EXPECT_TRUE(v.vtoc.f4.isSet());

  EXPECT_EQ(0, v.close());
  EXPECT_EQ(nullptr, v.file);
  EXPECT_FALSE(v.ownsFile);
  EXPECT_FALSE(v.label.loaded);
  EXPECT_FALSE(v.vtoc.f4.isSet());
}

TEST(DskVolume, OpenOnAnOpenHandleIsRefused) {
  TestVolume vol;
  vol.close();
  DskVolume v;
  ASSERT_EQ(0, v.open(vol.path().c_str(), true));
  EmulatedCKDfile* before = v.file;

  errno = 0;
  EXPECT_EQ(-1, v.open(vol.path().c_str(), true));
  EXPECT_EQ(EEXIST, errno);
  EXPECT_EQ(before, v.file);
  EXPECT_TRUE(v.ownsFile);

  EmulatedCKDfile other;
  ASSERT_EQ(0, other.open(vol.path().c_str(), true));
  errno = 0;
  EXPECT_EQ(-1, v.open(&other)) << "a borrowed file must not replace an owned one";
  EXPECT_EQ(EEXIST, errno);
  EXPECT_EQ(before, v.file);
  EXPECT_TRUE(v.ownsFile);

  errno = 0;
  EXPECT_EQ(-1, v.open(static_cast<EmulatedCKDfile*>(nullptr)));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(before, v.file);  // an open handle keeps its file
  EXPECT_TRUE(v.label.loaded);
  EXPECT_EQ(0, v.close());
  EXPECT_GE(other.fileDescriptor, 0);
}

TEST(DskVolume, OpenNullLeavesTheHandleClosed) {
  DskVolume v;
  errno = 0;
  EXPECT_EQ(-1, v.open(static_cast<EmulatedCKDfile*>(nullptr)));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(nullptr, v.file);
}

TEST(DskVolume, FailingFileOpenReturnsItsOwnCode) {
  ScopedTempDir dir;
  DskVolume v;
  EXPECT_EQ(EmulatedCKDfile::kOpenCannotOpen, v.open(dir.file("missing.ckd").c_str(), true));
  EXPECT_EQ(nullptr, v.file);
  EXPECT_FALSE(v.ownsFile);

  // A file too short for a header.
  const std::string junk = dir.file("junk.ckd");
  FILE* f = std::fopen(junk.c_str(), "wb");
  ASSERT_NE(nullptr, f);
  std::fputs("not a volume", f);
  std::fclose(f);
  EXPECT_EQ(EmulatedCKDfile::kOpenBadHeader, v.open(junk.c_str(), true));
  EXPECT_EQ(nullptr, v.file);
}

TEST(DskVolume, ReadOnlyOpenWithAPendingHeaderUpdateReturnsOneAndStaysClosed) {
  TestVolume vol;
  vol.close();
  // Header byte 17, the format level: 0 marks an older file whose header
  // the volume file would rewrite, which a read-only open cannot do.
  FILE* f = std::fopen(vol.path().c_str(), "r+b");
  ASSERT_NE(nullptr, f);
  ASSERT_EQ(0, std::fseek(f, 17, SEEK_SET));
  ASSERT_EQ(0, std::fputc(0, f));
  std::fclose(f);
  DskVolume v;
  EXPECT_EQ(1, v.open(vol.path().c_str(), true));
  EXPECT_EQ(nullptr, v.file);
  EXPECT_FALSE(v.ownsFile);
  EXPECT_FALSE(v.label.loaded);
  ASSERT_EQ(0, v.open(vol.path().c_str(), false));  // read-write: the update is written
  EXPECT_TRUE(v.vtoc.f4.isSet());
}

TEST(DskVolume, MissingLabelIsReportedOnStandardOutput) {
  TestVolume vol;
  vol.setRecords(0, 0, {});
  vol.close();
  DskVolume v;
  testing::internal::CaptureStdout();
  errno = 0;
  int rc = v.open(vol.path().c_str(), true);
  int err = errno;
  EXPECT_EQ("lbl.initialize errno is 9999\n", testing::internal::GetCapturedStdout());
  EXPECT_EQ(-1, rc);
  EXPECT_EQ(EIO, err);
  EXPECT_NE(nullptr, v.file);  // open, so that close releases it
  EXPECT_TRUE(v.ownsFile);
  EXPECT_EQ(0, v.close());
  EXPECT_EQ(nullptr, v.file);
}

TEST(DskVolume, VtocNotStartingWithFormat4IsReported) {
  TestVolume vol;
  vol.patchLabel(15, {0x02});  // the VTOC address now names the Format-5 DSCB
  DskVolume v;
  testing::internal::CaptureStdout();
  errno = 0;
  int rc = v.open(&vol.file());
  int err = errno;
  EXPECT_EQ("vtoc.initialize errno is 9997\n", testing::internal::GetCapturedStdout());
  EXPECT_EQ(-1, rc);
  EXPECT_EQ(EIO, err);
  EXPECT_EQ(&vol.file(), v.file);
  EXPECT_TRUE(v.label.loaded);  // kept until close
  EXPECT_EQ(0, v.close());
  EXPECT_FALSE(v.label.loaded);
}

TEST(DskVolume, BorrowedFileStaysOpenAfterClose) {
  TestVolume vol;
  {
    DskVolume v;
    ASSERT_EQ(0, v.open(&vol.file()));
    EXPECT_FALSE(v.ownsFile);
    EXPECT_EQ(0, v.close());
    ASSERT_EQ(0, v.open(&vol.file()));  // reopen on the same file; destructor closes the handle
  }
  EXPECT_GE(vol.file().fileDescriptor, 0);
  EXPECT_EQ(0, vol.file().readTrack(0, 1, 0));
  EXPECT_GE(vol.readRecords(0, 0).size(), 3u);  // IPL1, IPL2, VOL1 and fillers
}

TEST(DskVolume, ListingLayout) {
  TestVolume vol;
  DataSetLayout ds;
  ds.name = "TEST.DATA";
  vol.writeVtoc({format1Dscb(ds)});
  DskVolume v;
  ASSERT_EQ(0, v.open(&vol.file()));
  const std::string text = listing(v);

  const std::string head = "VTOC listing of volume serial 0X0123\n";
  ASSERT_TRUE(startsWith(text, head)) << text.substr(0, 80);
  // ctime's text: 24 characters and its own line end, then a blank line.
  size_t time = head.size();
  ASSERT_GT(text.size(), time + 26);
  EXPECT_EQ('\n', text[time + 24]);
  EXPECT_EQ('\n', text[time + 25]);
  EXPECT_EQ(std::string(100, '=') + "\n\n" + "Volume label --\n", text.substr(time + 26, 118));
  size_t f4 = text.find("Format 4 DSCB at 0/1/1 (000000/01/01) --\n");
  size_t lbl = text.find("    LblVer: 40\n\n");  // label dump, then a line end
  ASSERT_NE(std::string::npos, lbl);
  EXPECT_EQ(lbl + 16, f4);
  EXPECT_NE(std::string::npos, text.find("Format-1 DSCBs: 1,  Format-8 DSCBs: 0\n"));
  EXPECT_TRUE(text.size() > 20 && text.compare(text.size() - 18, 18, "End of VTOC list\n\n") == 0);
}

TEST(DskVolume, StreamListingHasTheLengthOfTheStringListing) {
  TestVolume vol;
  std::vector<Dscb> dscbs;
  for (int i = 0; i < 40; ++i) {
    DataSetLayout ds;
    ds.name = "DATA.SET" + std::to_string(i);
    dscbs.push_back(format1Dscb(ds));
  }
  vol.writeVtoc(dscbs);
  DskVolume v;
  ASSERT_EQ(0, v.open(&vol.file()));
  const std::string text = listing(v);
  ASSERT_GT(text.size(), 32768u);  // more than the stream string's first capacity

  const std::string out = vol.dir().file("listing.txt");
  FILE* f = std::fopen(out.c_str(), "w");
  ASSERT_NE(nullptr, f);
  int n = v.printVTOC(f);
  std::fclose(f);
  EXPECT_EQ(static_cast<int>(text.size()), n);
  struct stat st;
  ASSERT_EQ(0, ::stat(out.c_str(), &st));
  EXPECT_EQ(n, st.st_size);

  FILE* readOnly = std::fopen("/dev/null", "r");
  ASSERT_NE(nullptr, readOnly);
  EXPECT_LT(v.printVTOC(readOnly), 0);  // the write fails
  std::fclose(readOnly);
}

TEST(DskVolume, ListingWithoutVtocThrowsAfterHeadingAndLabel) {
  DskVolume v;
  RexxString out;
  try {
    v.printVTOC(out);
    FAIL() << "expected a throw";
  } catch (const char* text) {
    EXPECT_STREQ("PTR::check - Reference to unassigned pointer", text);
  }
  const std::string text = out.text();
  EXPECT_TRUE(startsWith(text, "VTOC listing of volume serial \n")) << text.substr(0, 60);  // empty serial
  EXPECT_NE(std::string::npos, text.find("Volume label --\n       Key: \n"));
  EXPECT_TRUE(text.size() > 16 && text.compare(text.size() - 16, 16, "    LblVer: 00\n\n") == 0);

  ScopedTempDir dir;
  const std::string path = dir.file("empty.txt");
  FILE* f = std::fopen(path.c_str(), "w");
  ASSERT_NE(nullptr, f);
  EXPECT_THROW(v.printVTOC(f), const char*);
  std::fclose(f);
  struct stat st;
  ASSERT_EQ(0, ::stat(path.c_str(), &st));
  EXPECT_EQ(0, st.st_size);  // nothing written
}

}  // namespace
