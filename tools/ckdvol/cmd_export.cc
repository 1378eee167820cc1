// ckdvol export: a data set of the volume as a transfer file.
//
//   ckdvol export FILE DSN OUT [--members A,B] [--from-node N] [--from-user U]
//                 [--to-node N] [--to-user U] [--force]
//
// A partitioned data set is unloaded (transfer_volume.h) and sent as its
// unload; a sequential one as its records. The file is written to a
// temporary name beside OUT and renamed only when it is complete.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "data_input.h"
#include "data_sets.h"
#include "text_output.h"
#include "tool_util.h"
#include "transfer/transfer_file.h"
#include "transfer_volume.h"

namespace ckdvol_tool {
namespace {

constexpr size_t kNameLength = 8;        // node and user ids
constexpr size_t kMaxMessageLine = 255;  // bytes of a message line

struct ExportArgs {
  std::string file, dsn, out;
  std::vector<std::string> members;
  std::string fromNode, fromUser, toNode, toUser, message;
  bool force = false;
  TextOptions text;
};

// The lines of host text file `path` as EBCDIC records through the code
// page. False after a message.
bool messageRecords(const std::string& path, const TextOptions& text, std::vector<ckdvol::Bytes>& out) {
  std::string data;
  if (!readAllInput(path, data)) return false;
  size_t at = 0;
  for (uint64_t line = 1; at < data.size(); ++line) {
    size_t end = data.find('\n', at);
    if (end == std::string::npos) end = data.size();
    size_t stop = end;
    if (stop > at && data[stop - 1] == '\r') --stop;
    ckdvol::Bytes record;
    ckdvol::EncodeReport report;
    if (!text.page().encode(data.data() + at, stop - at, text.host(), record, &report) || record.size() > kMaxMessageLine) {
      fail(path, "line " + std::to_string(line) + " of the message " +
                     (record.size() > kMaxMessageLine ? "is longer than 255 bytes" : text.page().describe(report)));
      return false;
    }
    out.push_back(std::move(record));
    at = end + 1;
  }
  return true;
}

// An id for the origin fields: upper case, at most 8 characters, or `fallback`.
std::string idText(const char* value, const char* fallback) {
  std::string s = upperName(value != nullptr ? value : "");
  const size_t dot = s.find('.');
  if (dot != std::string::npos) s.erase(dot);
  if (s.size() > kNameLength) s.resize(kNameLength);
  return s.empty() ? fallback : s;
}

// yyyymmddhhmmss of $SOURCE_DATE_EPOCH (UTC) when set, else of now (UTC).
std::string timeText() {
  const char* fixed = std::getenv("SOURCE_DATE_EPOCH");
  char* end = nullptr;
  const long long epoch = fixed != nullptr ? std::strtoll(fixed, &end, 10) : -1;
  const std::time_t at =
      fixed != nullptr && *fixed != '\0' && *end == '\0' && epoch >= 0 ? static_cast<std::time_t>(epoch) : std::time(nullptr);
  std::tm when{};
  gmtime_r(&at, &when);
  char s[32];
  std::strftime(s, sizeof s, "%Y%m%d%H%M%S", &when);
  return s;
}

// Writes `bytes` to `target` through a temporary file beside it. kExitOk,
// or kExitFailure after a message (the temporary file removed).
int writeBeside(const std::string& target, const ckdvol::Bytes& bytes) {
  std::string temporary = target + ".XXXXXX";
  const int fd = ::mkstemp(&temporary[0]);
  if (fd < 0) return fail(target, std::string("cannot write: ") + std::strerror(errno));
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    done += static_cast<size_t>(n);
  }
  bool ok = done == bytes.size();
  int err = ok ? 0 : errno;
  const mode_t mask = ::umask(0);
  ::umask(mask);
  if (ok && (::fsync(fd) != 0 || ::fchmod(fd, 0666 & ~mask) != 0)) ok = false, err = errno;
  if (::close(fd) != 0 && ok) ok = false, err = errno;
  if (!ok) {
    ::unlink(temporary.c_str());
    return fail(target, std::string("cannot write: ") + std::strerror(err) + "; no file was made");
  }
  if (::rename(temporary.c_str(), target.c_str()) != 0) {
    const int e = errno;
    ::unlink(temporary.c_str());
    return fail(target, std::string("cannot write: ") + std::strerror(e) + "; no file was made");
  }
  return kExitOk;
}

int runExport(const ExportArgs& a) {
  struct stat st;
  if (!a.force && ::lstat(a.out.c_str(), &st) == 0) return fail(a.out, "exists (give --force to replace it)");
  ScannedVolume v;
  if (int status = scanVolume(a.file, v, true)) return status;
  int status = kExitOk;
  const ckdvol::DataSetInfo* ds = findDataSetOrFail(v, a.dsn, status);
  if (ds == nullptr) return status;

  ckdvol::TransferContents c;
  std::string error;
  c.attributes.dsn = ds->name;
  c.attributes.recfm = ds->recfm;
  c.attributes.lrecl = ds->lrecl;
  c.attributes.blksize = ds->blksize;
  c.attributes.sizeBytes = static_cast<uint64_t>(ds->tracksAllocated) * v.file.trackCapacity;
  uint64_t blocks = 0, members = 0, aliases = 0;
  if (ds->partitioned()) {
    c.partitioned = true;
    c.attributes.dsorg = ckdvol::kDsorgPO;
    if (!unloadFromVolume(v.file, *ds, a.members, c.pds, error)) return fail(a.file, error);
    c.attributes.directoryBlocks = c.pds.directoryBlocks;
    for (const ckdvol::UnloadedBlock& b : c.pds.blocks) blocks += b.endOfFile() ? 0 : 1;
    for (const ckdvol::DirectoryEntry& e : c.pds.entries) ++(e.alias() ? aliases : members);
  } else if (ds->sequential() && !ds->vsam()) {
    if (!a.members.empty()) return fail(a.file, ds->name + " is sequential: it has no members to choose");
    c.attributes.dsorg = ckdvol::kDsorgPS;
    if (!recordsFromVolume(v.file, *ds, c.records, error)) return fail(a.file, error);
    c.recordCount = c.records.size();
  } else {
    char dsorg[8];
    std::snprintf(dsorg, sizeof dsorg, "%04X", ds->dsorg);
    return fail(a.file, ds->name + " has DSORG " + dsorgText(ds->dsorg) + " (" + dsorg +
                            "): only sequential and partitioned data sets are exported");
  }
  char host[256] = {0};
  const std::string node = idText(::gethostname(host, sizeof host - 1) == 0 ? host : nullptr, "LOCAL");
  const std::string user = idText(std::getenv("USER"), "CKDVOL");
  c.origin.fromNode = a.fromNode.empty() ? node : upperName(a.fromNode);
  c.origin.fromUser = a.fromUser.empty() ? user : upperName(a.fromUser);
  c.origin.toNode = a.toNode.empty() ? c.origin.fromNode : upperName(a.toNode);
  c.origin.toUser = a.toUser.empty() ? c.origin.fromUser : upperName(a.toUser);
  c.origin.time = timeText();

  if (!a.message.empty() && !messageRecords(a.message, a.text, c.message)) return kExitFailure;
  ckdvol::Bytes bytes;
  if (!ckdvol::writeTransferFile(c, bytes, error)) return fail(a.file, ds->name + ": " + error);
  if (int s = writeBeside(a.out, bytes)) return s;
  if (c.partitioned) {
    std::printf("exported %s to %s: %s, %llu %s, %s, %s\n", ds->name.c_str(), a.out.c_str(), count(members, "member").c_str(),
                static_cast<unsigned long long>(aliases), aliases == 1 ? "alias" : "aliases", count(blocks, "block").c_str(),
                count(bytes.size(), "byte").c_str());
  } else {
    std::printf("exported %s to %s: %s, %s\n", ds->name.c_str(), a.out.c_str(), count(c.records.size(), "record").c_str(),
                count(bytes.size(), "byte").c_str());
  }
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "export", "Send a data set of the volume as a transfer file", 67,
    [](CLI::App& app) -> std::function<int()> {
      auto a = std::make_shared<ExportArgs>();
      app.add_option("FILE", a->file, "Volume file")->required();
      app.add_option("DSN", a->dsn, "Data set to send (any case)")->required();
      app.add_option("OUT", a->out, "The transfer file to write")->required();
      app.add_option("--members", a->members, "Members to send (any case, comma separated); their aliases come along")
          ->delimiter(',');
      app.add_option("--from-node", a->fromNode, "Sending node (default: the host name's first part, else LOCAL)");
      app.add_option("--from-user", a->fromUser, "Sending user (default: $USER, else CKDVOL)");
      app.add_option("--to-node", a->toNode, "Receiving node (default: the sending node)");
      app.add_option("--to-user", a->toUser, "Receiving user (default: the sending user)");
      app.add_option("--message", a->message, "Send the lines of this text file as a message in front of the data set");
      app.add_flag("--force", a->force, "Replace OUT when it exists");
      addTextOptions(app, a->text);
      app.footer(
          "A partitioned data set is sent unloaded: its attributes, this device's geometry,\n"
          "its extents, its directory entries and every block of its members with their\n"
          "TTRs, so that load modules arrive intact. A sequential data set is sent as its\n"
          "records. A --message goes in front of it, each line a record through the code\n"
          "page ('ckdvol import' shows it). The time in the file is now, or\n"
          "$SOURCE_DATE_EPOCH (UTC) when set.\n"
          "The file is written under a temporary name beside OUT and renamed when it is\n"
          "complete; an existing OUT is refused without --force.\n"
          "\n"
          "Examples:\n"
          "  ckdvol export work.ckd MY.LOADLIB loadlib.xmi\n"
          "  ckdvol export work.ckd MY.SOURCE part.xmi --members HELLO,WORLD --to-user SYSPROG\n");
      return [a]() { return runExport(*a); };
    }});

}  // namespace
}  // namespace ckdvol_tool
