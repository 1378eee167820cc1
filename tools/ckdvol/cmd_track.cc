// ckdvol track: the records of one track, as they lie in its slot.
//
//   ckdvol track FILE CYL HEAD [--cell N]
//
// For each record: its slot offset and count field, then its key and data in
// hexadecimal beside their EBCDIC text; finally the end marker's offset. The
// volume is opened read-only and the track is walked with the library's own
// positioning, so a damaged track shows where the walk stopped.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "ckdfile/emulated_ckd_file.h"
#include "ckdfile/volume_format.h"
#include "command.h"
#include "open_failure.h"
#include "common/byte_order.h"
#include "common/data_translator.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

using F = EmulatedCKDfile;

constexpr size_t kBytesPerLine = 16;

// One dump line: offset within the field, hex bytes, EBCDIC text.
std::string dumpLine(const unsigned char* p, size_t offset, size_t n) {
  std::string line;
  char buf[24];
  std::snprintf(buf, sizeof buf, "%06zx ", offset);
  line += buf;
  for (size_t i = 0; i < kBytesPerLine; ++i) {
    if (i < n) {
      std::snprintf(buf, sizeof buf, " %02X", p[i]);
      line += buf;
    } else {
      line += "   ";
    }
    if (i == 7) line += ' ';
  }
  unsigned char text[kBytesPerLine];
  Xlater.copyE2A(text, p, static_cast<unsigned>(n));
  line += "  |";
  for (size_t i = 0; i < n; ++i) line += text[i] >= 0x20 && text[i] < 0x7F ? static_cast<char>(text[i]) : '.';
  line += "|";
  return line;
}

// Dumps `n` bytes; runs of lines equal to the line before them show as "*".
void dumpField(const char* name, const unsigned char* p, size_t n) {
  bool starred = false;
  for (size_t off = 0; off < n; off += kBytesPerLine) {
    const size_t len = n - off < kBytesPerLine ? n - off : kBytesPerLine;
    const bool last = off + len == n;
    if (off != 0 && !last && len == kBytesPerLine &&
        std::memcmp(p + off, p + off - kBytesPerLine, kBytesPerLine) == 0) {
      if (!starred) std::printf("    %-5s *\n", "");
      starred = true;
      continue;
    }
    starred = false;
    std::printf("    %-5s %s\n", off == 0 ? name : "", dumpLine(p + off, off, len).c_str());
  }
}

int runTrack(const std::string& path, unsigned cyl, unsigned head, unsigned cell) {
  VolumeLock lock;
  if (int status = lock.acquire(path, false)) return status;
  F f;
  const int orc = f.open(path.c_str(), true);
  if (orc < 0) return openFailed(path, orc, errno, f.errorText);
  if (head > 0xFFFF || cell > 0xFFFF) return fail(path, "head and cell are numbers up to 65535");
  errno = 0;
  const int rc = f.readTrack(cyl, static_cast<unsigned short>(head), static_cast<unsigned short>(cell));
  if (rc == F::kTrackRange) {
    const std::string geometry = f.deviceType == F::D200
                                     ? d200GeometryText()
                                     : count(f.cylinders, "cylinder") + " of " + count(f.tracksPerCylinder, "head");
    return failWith(kExitUsage, path + ": track " + std::to_string(cyl) + "/" + std::to_string(head) + " cell " +
                                    std::to_string(cell) + " is not on the volume (" + geometry + ")");
  }
  if (rc != F::kTrackOk) {
    return fail(path, std::string("cannot read the track: ") +
                          (errno != 0 ? std::strerror(errno) : "the file is shorter than the volume"));
  }

  const unsigned char* b = f.trackBuffer;
  // D200 addresses are byte pairs: shown in hexadecimal, as verify lists them.
  std::printf(f.deviceType == F::D200 ? "Track %04X/%04X cell %u: slot at file offset %lld, %u bytes\n"
                                      : "Track %u/%u cell %u: slot at file offset %lld, %u bytes\n",
              cyl, head, cell,
              f.getOffset(cyl, static_cast<unsigned short>(head), static_cast<unsigned short>(cell), false),
              f.trackSlotSize);
  std::printf("Home address: flag %02X, cylinder %d, head %d\n", b[0], f.getRefCC(b), f.getRefHH(b));

  const size_t dataLimit = f.trackSlotSize - ckdvol::kDataLimitFromEnd;
  const void* ref = f.locateNext(b, false);
  size_t lastEnd = ckdvol::kRecordZeroOffset;
  bool sawMarker = false;
  while (ref != nullptr) {
    const size_t off = static_cast<size_t>(static_cast<const unsigned char*>(ref) - b);
    if (f.getRefType(ref) == F::ORIENT_EOT) {
      std::printf("End marker at offset %zu\n", off);
      sawMarker = true;
      break;
    }
    int c, h, r, kl, dl;
    if (!f.getRefCount(ref, c, h, r, kl, dl)) break;
    std::printf("R%d at offset %zu: CC %d HH %d R %d KL %d DL %d\n", r, off, c, h, r, kl, dl);
    lastEnd = off + ckdvol::kCountSize + kl + dl;
    if (kl > 0) {
      if (const unsigned char* key = f.getRefKey(ref)) {
        dumpField("key", key, static_cast<size_t>(kl));
      } else {
        std::printf("    key runs past the record area\n");
      }
    }
    if (dl > 0) {
      if (const unsigned char* data = f.getRefData(ref)) {
        dumpField("data", data, static_cast<size_t>(dl));
      } else {
        std::printf("    data runs past the record area\n");
      }
    }
    ref = f.locateNext(ref, false);
  }
  if (!sawMarker) {
    std::printf("No end marker: the records end at offset %zu, %s the end of the record area (%zu)\n",
                lastEnd, lastEnd > dataLimit ? "beyond" : "before", dataLimit);
  }

  const unsigned char* trailer = b + f.trackSlotSize - ckdvol::kTrailerSize;
  if (std::memcmp(trailer + ckdvol::kTrlMarker, ckdvol::kVersionMarker, ckdvol::kVersionMarkerLength) == 0) {
    std::printf("Trailer: version %u, saved copy link %llu\n", ckdvol::loadBe16(trailer + ckdvol::kTrlVersion),
                static_cast<unsigned long long>(ckdvol::loadBe64(trailer + ckdvol::kTrlLink)));
  }
  return kExitOk;
}

struct TrackOptions {
  std::string path;
  unsigned cyl = 0;
  unsigned head = 0;
  unsigned cell = 0;
};

const CommandRegistration kRegistration(Command{
    "track", "Show the records of one track: count fields, keys and data", 30,
    [](CLI::App& app) -> std::function<int()> {
      auto o = std::make_shared<TrackOptions>();
      app.add_option("FILE", o->path, "The volume file (opened read-only)")->required();
      app.add_option("CYL", o->cyl, "Cylinder number")->required();
      app.add_option("HEAD", o->head, "Head number")->required();
      app.add_option("--cell", o->cell, "Cell number (device type D200 only)");
      app.footer(
          "Numbers may be given in hexadecimal with 0x (D200: cylinder 0x0109 is\n"
          "cylinder byte 1, 9). D200 tracks are addressed by --cell 0-9, cylinder\n"
          "0x0000-0x1309 and head 0x0000-0x0413, each byte its own coordinate.\n"
          "Each record shows its slot offset and count field (CC HH R KL DL), then its key\n"
          "and data: offset within the field, 16 bytes in hexadecimal and their EBCDIC text\n"
          "('.' where a byte has no printable character). Lines equal to the line before\n"
          "them show as '*'. The last line gives the end marker's slot offset.");
      return [o] { return runTrack(o->path, o->cyl, o->head, o->cell); };
    }});

}  // namespace
}  // namespace ckdvol_tool
