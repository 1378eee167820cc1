// Input for the writing commands: records from host text or bytes, the
// volume opened for a change, statistics of text members.
#include "data_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "command.h"
#include "journaled_change.h"
#include "edit/statistics.h"
#include "open_failure.h"
#include "tool_util.h"

namespace ckdvol_tool {
namespace {

constexpr unsigned char kEbcdicBlank = 0x40;

std::string scanText(int rc, const std::string& error) {
  return "cannot read the volume label or the VTOC (" + std::to_string(rc) + "): " + error;
}

}  // namespace

int openForChange(const std::string& path, ScannedVolume& v) {
  v.path = path;
  if (int status = v.lock.acquire(path, true)) return status;
  const int rc = v.file.open(path.c_str(), false);
  if (rc < 0) return openFailed(path, rc, errno, v.file.errorText);
  if (v.file.deviceType == EmulatedCKDfile::D200) return fail(path, "D200 volumes cannot be edited; nothing was changed");
  std::string error;
  const int scan = ckdvol::scanVtoc(v.file, v.vtoc, error);
  if (scan != ckdvol::kScanOk) return fail(path, scanText(scan, error) + "; nothing was changed");
  return kExitOk;
}

bool readAllInput(const std::string& path, std::string& data) {
  const bool stdinput = path.empty() || path == "-";
  const std::string name = stdinput ? "standard input" : path;
  int fd = STDIN_FILENO;
  if (!stdinput && (fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC)) < 0) {
    fail(name, std::string("cannot read the input: ") + std::strerror(errno) + "; nothing was changed");
    return false;
  }
  struct stat st;
  if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
    if (fd != STDIN_FILENO) ::close(fd);
    fail(name, "cannot read the input: it is a directory; nothing was changed");
    return false;
  }
  char buf[65536];
  for (;;) {
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n == 0) break;
    if (n < 0) {
      if (errno == EINTR) continue;
      const int err = errno;
      if (fd != STDIN_FILENO) ::close(fd);
      fail(name, std::string("cannot read the input: ") + std::strerror(err) + "; nothing was changed");
      return false;
    }
    data.append(buf, static_cast<size_t>(n));
  }
  if (fd != STDIN_FILENO) ::close(fd);
  return true;
}

std::string inputBlocks(const std::string& data, const std::string& source, const ckdvol::DataSetInfo& ds,
                        const InputOptions& o, std::vector<ckdvol::Bytes>& blocks, uint64_t& records) {
  ckdvol::Blocker blocker(ds.recfm, ds.lrecl, ds.blksize);
  if (!blocker.problem().empty()) return ds.name + ": " + blocker.problem();
  const bool fixed = (ds.recfm & ckdvol::kRecfmFormatMask) == ckdvol::kRecfmF;
  const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
  std::string error;
  if (o.raw && fixed) {
    if (data.size() % ds.lrecl != 0) {
      return source + " holds " + std::to_string(data.size()) + " bytes, not a whole number of " +
             std::to_string(ds.lrecl) + "-byte records";
    }
    for (size_t at = 0; at < data.size(); at += ds.lrecl) {
      if (!blocker.add(bytes + at, ds.lrecl, error)) return source + ": " + error;
    }
  } else if (o.raw) {
    for (size_t at = 0; at < data.size();) {
      if (data.size() - at < 4) return source + ": a record length cut short at byte " + std::to_string(at);
      const uint32_t n = (uint32_t(bytes[at]) << 24) | (uint32_t(bytes[at + 1]) << 16) |
                         (uint32_t(bytes[at + 2]) << 8) | bytes[at + 3];
      if (n > data.size() - at - 4) {
        return source + ": record " + std::to_string(blocker.records() + 1) + " at byte " + std::to_string(at) +
               " says " + std::to_string(n) + " bytes but only " + std::to_string(data.size() - at - 4) + " follow";
      }
      if (!blocker.add(bytes + at + 4, n, error)) return source + ": " + error;
      at += 4 + n;
    }
  } else {
    const ckdvol::CodePage& page = o.text.page();
    std::vector<uint8_t> line;
    uint64_t number = 0;
    for (size_t start = 0; start < data.size();) {
      const size_t nl = data.find('\n', start);
      const size_t end = nl == std::string::npos ? data.size() : nl;
      size_t stop = end;
      if (stop > start && data[stop - 1] == '\r') --stop;
      ++number;
      line.clear();
      ckdvol::EncodeReport report;
      if (!page.encode(data.data() + start, stop - start, o.text.host(), line, &report)) {
        return "line " + std::to_string(number) + " of " + source + ": " + page.describe(report);
      }
      if (fixed) {
        if (line.size() > ds.lrecl) {
          return "line " + std::to_string(number) + " of " + source + " has " + std::to_string(line.size()) +
                 " characters, more than the record length " + std::to_string(ds.lrecl);
        }
        line.resize(ds.lrecl, kEbcdicBlank);
      } else {
        while (!line.empty() && line.back() == kEbcdicBlank) line.pop_back();
      }
      if (!blocker.add(line.data(), line.size(), error)) {
        return "line " + std::to_string(number) + " of " + source + ": " + error;
      }
      start = end + 1;
    }
  }
  blocker.finish();
  records = blocker.records();
  blocks = std::move(blocker.blocks());
  return "";
}

ckdvol::Bytes textStatistics(uint64_t lines, const ckdvol::DirectoryEntry* previous) {
  ckdvol::MemberStatistics old;
  const bool keep = previous != nullptr && ckdvol::decodeStatistics(previous->indicator, previous->userData, old);
  // SOURCE_DATE_EPOCH (seconds since 1970, read as UTC) stands for now, so
  // that a volume written twice comes out the same byte for byte.
  std::tm when{};
  const char* fixed = std::getenv("SOURCE_DATE_EPOCH");
  char* end = nullptr;
  const long long epoch = fixed != nullptr ? std::strtoll(fixed, &end, 10) : -1;
  if (fixed != nullptr && *fixed != '\0' && *end == '\0' && epoch >= 0) {
    const std::time_t at = static_cast<std::time_t>(epoch);
    gmtime_r(&at, &when);
  } else {
    const std::time_t now = std::time(nullptr);
    localtime_r(&now, &when);
  }
  const char* user = std::getenv("USER");
  const uint32_t count = lines > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<uint32_t>(lines);
  return ckdvol::encodeStatistics(count, when, user != nullptr ? user : "", keep ? &old : nullptr);
}

bool writeInputMember(ckdvol::PdsEditor& pds, const ckdvol::DataSetInfo& ds, const std::string& member,
                      const std::string& data, const std::string& source, const InputOptions& o, bool noStats,
                      bool replace, ckdvol::MemberWrite& w, uint64_t& records, std::string& error) {
  std::vector<ckdvol::Bytes> blocks;
  error = inputBlocks(data, source, ds, o, blocks, records);
  if (!error.empty()) return false;
  const ckdvol::Bytes stats = o.raw || noStats ? ckdvol::Bytes() : textStatistics(records, pds.find(member));
  return pds.writeMember(member, blocks, stats, replace, w, error);
}

int changePds(const std::string& path, const std::string& dsn, const std::string& command, const PdsEdit& edit,
              bool streamed) {
  ScannedVolume v;
  int status = openForChange(path, v);
  if (status != kExitOk) return status;
  const ckdvol::DataSetInfo* ds = findDataSetOrFail(v, dsn, status, "; nothing was changed");
  if (ds == nullptr) return status;
  const std::string nothing = "; nothing was changed";
  if (!ds->partitioned()) return fail(path, ds->name + " is not a partitioned data set" + nothing);
  ckdvol::StagedTracks staged(v.file);
  std::string error, summary;
  if (streamed && !staged.planOnly(error)) return fail(path, error + nothing);
  {
    ckdvol::PdsEditor pds(staged, *ds);
    if (!pds.load(error) || !edit(pds, *ds, summary, error) || !pds.commit(error)) return fail(path, error + nothing);
  }
  if (!streamed) {
    status = journaledChange(staged, path, command.c_str());
  } else {
    // The planning run named the tracks; the journal saves them, and the
    // same change runs again writing each full track as soon as it is
    // built, so no image of a large change is held.
    status = journaledChange(v.file, path, command.c_str(), staged.slots(), [&]() {
      ckdvol::StagedTracks through(v.file);
      std::string cause;
      if (!through.writeThrough(staged.slots(), cause)) return cause;
      ckdvol::PdsEditor pds(through, *ds);
      if (!pds.load(cause) || !edit(pds, *ds, summary, cause) || !pds.commit(cause)) return cause;
      return through.writeAll();
    });
  }
  if (status != kExitOk) return status;
  std::printf("%s\n", summary.c_str());
  return kExitOk;
}

void addInputOptions(CLI::App& app, InputOptions& o) {
  app.add_flag("--raw", o.raw,
               "INPUT holds records as bytes: F/FB records of LRECL bytes back to back; V, VB and U records "
               "each after a 4-byte big-endian length (as 'ckdvol cat --records' writes them)");
  addTextOptions(app, o.text);
}

}  // namespace ckdvol_tool
