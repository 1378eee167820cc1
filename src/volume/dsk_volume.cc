#include "volume/dsk_volume.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

namespace {

void append(RexxString& out, const char* text) {
  RexxString joined = out + text;
  out.copy(joined.text(), joined.length());
}

// Writes "<what> errno is <reason>" and a line end to standard output.
void reportStep(const char* what, int reason) {
  std::printf("%s errno is %d\n", what, reason);
  std::fflush(stdout);
}

// Reads the label and then the VTOC of the handle's file (set, not null).
int readLabelAndVtoc(DskVolume& volume) {
  if (volume.label.initialize(*volume.file) != 0) {
    reportStep("lbl.initialize", errno);
    errno = EIO;
    return -1;
  }
  if (volume.vtoc.initialize(*volume.file, volume.label) != 0) {
    reportStep("vtoc.initialize", errno);
    errno = EIO;
    return -1;
  }
  return 0;
}

}  // namespace

DskVolume::DskVolume() : file(nullptr), label(), vtoc(), ownsFile(false) {}

DskVolume::~DskVolume() { close(); }

int DskVolume::open(const char* path, bool readOnly) {
  if (file != nullptr) {
    errno = EEXIST;
    return -1;
  }
  std::unique_ptr<EmulatedCKDfile> opened(new EmulatedCKDfile());
  int rc = opened->open(path, readOnly);
  if (rc != 0) return rc;  // the destructor closes what was opened
  file = opened.release();
  ownsFile = true;
  return readLabelAndVtoc(*this);
}

int DskVolume::open(EmulatedCKDfile* volumeFile) {
  if (volumeFile == nullptr) {
    errno = ENOENT;  // a closed handle stays closed, an open one keeps its file
    return -1;
  }
  if (file != nullptr) {
    errno = EEXIST;
    return -1;
  }
  file = volumeFile;
  return readLabelAndVtoc(*this);
}

int DskVolume::close() {
  int result = 0;
  if (ownsFile && file != nullptr) {
    result = file->close();
    delete file;
  }
  ownsFile = false;
  file = nullptr;
  label.reset();
  vtoc.reset();
  return result;
}

RexxString& DskVolume::printVTOC(RexxString& out) {
  time_t now = std::time(nullptr);
  char serial[DiskLabel::kSerialLength + 1] = {0};  // stays empty without a label
  label.getSerial(serial, true);
  const char* when = std::ctime(&now);
  char heading[128];
  std::snprintf(heading, sizeof heading, "VTOC listing of volume serial %s\n%s\n", serial,
                when != nullptr ? when : "\n");
  append(out, heading);
  char separator[kSeparatorLength + 3];
  std::memset(separator, '=', kSeparatorLength);
  separator[kSeparatorLength] = '\n';
  separator[kSeparatorLength + 1] = '\n';
  separator[kSeparatorLength + 2] = '\0';
  append(out, separator);
  label.print(out);
  append(out, "\n");
  vtoc.print(out);
  append(out, "\n");
  return out;
}

int DskVolume::printVTOC(FILE* stream) {
  RexxString out(static_cast<int>(kListingCapacity));
  printVTOC(out);
  int rc = std::fputs(out.text(), stream);
  if (rc < 0) return rc;
  return out.length();
}
