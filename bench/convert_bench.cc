// Converting a volume to a zlib-compressed Hercules image and back, against
// zlib itself compressing and expanding the same track images.
//
// The volume: a sparse D600 volume of 1113 cylinders (16,695 tracks), every
// track formatted empty (home address, record zero, end marker), and every
// 8th track holding twelve 4,096-byte records of text-like data (about 100 MB
// of data in all).
//   ToCckd:   ckdvol convert VOL IMG (zlib): to_s, zlib_s (compress2 of the
//             data tracks' images behind their first five bytes, as the
//             image stores them), ratio = to_s / zlib_s (target: at most 1.5).
//   FromCckd: ckdvol convert IMG VOL2: back_s, unzlib_s (uncompress of the
//             same compressed images), ratio_back = back_s / unzlib_s.
//   ratio_round_trip = (to_s + back_s) / (zlib_s + unzlib_s).
// Both conversions include reading, writing and forcing the output to disk.
// Files live in a scratch directory (CKDVOL_TEST_TMP, TMPDIR or /tmp) and are
// removed afterwards.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "ckdfile/volume_format.h"
#include "common/byte_order.h"
#include "image/image.h"
#include "support/temp_dir.h"

namespace {

using Bytes = std::vector<unsigned char>;
constexpr uint32_t kCylinders = 1113, kHeads = 15, kSlot = 56832;
constexpr uint64_t kTracks = static_cast<uint64_t>(kCylinders) * kHeads;

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Track `t`'s image: empty, or twelve records of text-like bytes.
Bytes trackImage(uint64_t t) {
  const uint32_t cyl = static_cast<uint32_t>(t / kHeads), head = static_cast<uint32_t>(t % kHeads);
  Bytes b(5 + 16);
  ckdvol::storeBe16(b.data() + 1, static_cast<uint16_t>(cyl));
  ckdvol::storeBe16(b.data() + 3, static_cast<uint16_t>(head));
  std::memcpy(b.data() + 5, b.data() + 1, 4);
  b[12] = 8;  // record zero: DL 8
  if (t % 8 == 3) {
    static const char* kWords[] = {"MOVE ", "TOTAL-AMOUNT ", "TO ", "WS-BALANCE ", "IF ", "PERFORM ",
                                   "UNTIL ", "END-IF ", "CUSTOMER ", "0001 ", "DISPLAY ", "RECORD-"};
    uint32_t seed = static_cast<uint32_t>(t * 2654435761u);
    for (unsigned r = 1; r <= 12; ++r) {
      const size_t at = b.size();
      b.resize(at + 8 + 4096);
      std::memcpy(b.data() + at, b.data() + 1, 4);
      b[at + 4] = static_cast<unsigned char>(r);
      b[at + 6] = 0x10;  // DL 4096
      size_t p = at + 8;
      while (p < b.size()) {
        seed = seed * 1103515245u + 12345u;
        const char* w = kWords[(seed >> 16) % 12];
        for (; *w && p < b.size(); ++w) b[p++] = static_cast<unsigned char>(*w);
      }
    }
  }
  b.insert(b.end(), 8, 0xFF);
  return b;
}

void makeVolume(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
  unsigned char h[512] = {};
  std::memcpy(h, ckdvol::kMagicReady, 8);
  ckdvol::storeLe32(h + ckdvol::kHdrHeads, kHeads);
  ckdvol::storeLe32(h + ckdvol::kHdrTrackSize, kSlot);
  h[ckdvol::kHdrDeviceCode] = 0xAA;  // D600
  h[ckdvol::kHdrFormatLevel] = 3;
  ckdvol::storeLe32(h + ckdvol::kHdrCreatedCylinders, kCylinders);
  ckdvol::storeLe32(h + ckdvol::kHdrCylinders, kCylinders);
  bool ok = ::pwrite(fd, h, 512, 0) == 512 && ::ftruncate(fd, static_cast<off_t>(512 + kTracks * kSlot)) == 0;
  for (uint64_t t = 0; t < kTracks && ok; ++t) {
    const Bytes b = trackImage(t);
    ok = ::pwrite(fd, b.data(), b.size(), static_cast<off_t>(512 + t * kSlot)) == static_cast<ssize_t>(b.size());
  }
  ok = ::fsync(fd) == 0 && ok;
  ::close(fd);
  if (!ok) throw std::runtime_error("cannot write " + path);
}

double convert(const std::string& in, const std::string& out, ckdvol_image::Format to, benchmark::State& state) {
  ::unlink(out.c_str());
  const double t0 = now();
  std::string error;
  auto source = ckdvol_image::openSource(in, {}, error);
  ckdvol_image::WriteOptions o;
  o.format = to;
  ckdvol_image::WriteResult r;
  if (!source || !ckdvol_image::writeImage(*source, out, o, r, error)) state.SkipWithError(error.c_str());
  return now() - t0;
}

void BM_ConvertZlib(benchmark::State& state) {
  ckdvol_test::ScopedTempDir dir;
  const std::string vol = dir.file("vol.ckd"), img = dir.file("vol.cckd"), back = dir.file("back.ckd");
  makeVolume(vol);
  // The data tracks' images, as the image keeps them: compressed behind their first five bytes.
  std::vector<Bytes> images, packed;
  for (uint64_t t = 3; t < kTracks; t += 8) images.push_back(trackImage(t));
  for (auto _ : state) {
    const double to = convert(vol, img, ckdvol_image::Format::kCckd, state);
    double t0 = now();
    packed.clear();
    for (const Bytes& b : images) {
      uLongf n = compressBound(static_cast<uLong>(b.size() - 5));
      Bytes z(n);
      compress2(z.data(), &n, b.data() + 5, static_cast<uLong>(b.size() - 5), Z_DEFAULT_COMPRESSION);
      z.resize(n);
      packed.push_back(std::move(z));
    }
    const double zlib = now() - t0;
    const double back_s = convert(img, back, ckdvol_image::Format::kCkdvol, state);
    t0 = now();
    Bytes out(kSlot);
    for (size_t i = 0; i < packed.size(); ++i) {
      uLongf n = out.size();
      uncompress(out.data(), &n, packed[i].data(), static_cast<uLong>(packed[i].size()));
    }
    const double unzlib = now() - t0;
    state.counters["to_s"] = to;
    state.counters["zlib_s"] = zlib;
    state.counters["ratio"] = to / zlib;
    state.counters["back_s"] = back_s;
    state.counters["unzlib_s"] = unzlib;
    state.counters["ratio_back"] = back_s / unzlib;
    state.counters["ratio_round_trip"] = (to + back_s) / (zlib + unzlib);
    state.counters["data_tracks"] = static_cast<double>(images.size());
  }
}
BENCHMARK(BM_ConvertZlib)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
