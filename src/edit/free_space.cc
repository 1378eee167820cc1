#include "edit/free_space.h"

#include <algorithm>

namespace ckdvol {

namespace {

std::string extentText(const Extent& e) {
  return std::to_string(e.lowCyl) + "/" + std::to_string(e.lowHead) + "-" + std::to_string(e.highCyl) + "/" +
         std::to_string(e.highHead);
}

// Whole cylinders (from head 0 to the last head) inside `r`.
uint32_t wholeCylinders(const TrackRun& r, uint32_t heads) {
  if (heads == 0) return 0;
  const uint64_t first = (static_cast<uint64_t>(r.first) + heads - 1) / heads;  // first cylinder starting inside
  const uint64_t end = static_cast<uint64_t>(r.end()) / heads;                   // cylinders ending inside
  return end > first ? static_cast<uint32_t>(end - first) : 0;
}

}  // namespace

std::vector<UsedRun> dataSetRuns(const DataSetInfo& ds, uint32_t heads, std::vector<std::string>* notes) {
  std::vector<UsedRun> out;
  for (const Extent& e : ds.extents) {
    const uint32_t tracks = extentTracks(e, heads);
    if (tracks == 0) {
      if (notes != nullptr) notes->push_back("data set " + ds.name + ": extent " + extentText(e) + " is not well formed; not counted");
      continue;
    }
    UsedRun u;
    u.run.first = e.lowCyl * heads + e.lowHead;
    u.run.count = tracks;
    u.owner = ds.name;
    out.push_back(u);
  }
  return out;
}

std::vector<UsedRun> usedRuns(const VtocInfo& vtoc, std::vector<std::string>& notes) {
  std::vector<UsedRun> out;
  out.push_back(UsedRun{TrackRun{0, 1}, "the label track"});
  if (vtoc.vtocLastTrack >= vtoc.vtocFirstTrack) {
    out.push_back(UsedRun{TrackRun{vtoc.vtocFirstTrack, vtoc.vtocLastTrack - vtoc.vtocFirstTrack + 1}, "the VTOC"});
  }
  for (const DataSetInfo& ds : vtoc.dataSets) {
    std::vector<UsedRun> runs = dataSetRuns(ds, vtoc.heads, &notes);
    out.insert(out.end(), runs.begin(), runs.end());
  }
  return out;
}

FreeSpace computeFreeSpace(const std::vector<UsedRun>& used, uint32_t volumeTracks, uint32_t heads) {
  FreeSpace fs;
  fs.volumeTracks = volumeTracks;
  fs.heads = heads;
  std::vector<UsedRun> runs;
  runs.reserve(used.size());
  for (const UsedRun& u : used) {
    if (u.run.count == 0) continue;
    if (u.run.first >= volumeTracks) {
      fs.notes.push_back(u.owner + ": tracks " + std::to_string(u.run.first) + "-" +
                         std::to_string(static_cast<uint64_t>(u.run.first) + u.run.count - 1) +
                         " lie beyond the end of the volume; not counted");
      continue;
    }
    UsedRun c = u;
    if (static_cast<uint64_t>(c.run.first) + c.run.count > volumeTracks) {
      fs.notes.push_back(u.owner + ": an extent reaches beyond the end of the volume; counted up to its end");
      c.run.count = volumeTracks - c.run.first;
    }
    runs.push_back(c);
  }
  std::sort(runs.begin(), runs.end(), [](const UsedRun& a, const UsedRun& b) {
    return a.run.first != b.run.first ? a.run.first < b.run.first : a.run.count > b.run.count;
  });
  uint32_t next = 0;  // first track not yet known to be in use
  const UsedRun* reach = nullptr;  // the run that reaches furthest so far
  for (const UsedRun& u : runs) {
    if (reach != nullptr && u.run.first < reach->run.end()) {
      fs.notes.push_back(u.owner + " and " + reach->owner + " overlap at track " + std::to_string(u.run.first) +
                         "; the tracks are counted once");
    }
    if (u.run.first > next) fs.extents.push_back(TrackRun{next, u.run.first - next});
    if (u.run.end() > next) {
      next = u.run.end();
      reach = &u;
    }
  }
  if (next < volumeTracks) fs.extents.push_back(TrackRun{next, volumeTracks - next});
  for (const TrackRun& r : fs.extents) {
    fs.freeTracks += r.count;
    const uint32_t cyls = wholeCylinders(r, heads);
    fs.freeCylinders += cyls;
    fs.largestTracks = std::max(fs.largestTracks, r.count);
    fs.largestCylinders = std::max(fs.largestCylinders, cyls);
  }
  return fs;
}

FreeSpace freeSpaceOf(const VtocInfo& vtoc) {
  std::vector<std::string> notes;
  std::vector<UsedRun> used = usedRuns(vtoc, notes);
  const uint64_t tracks = static_cast<uint64_t>(vtoc.cylinders) * vtoc.heads;
  FreeSpace fs = computeFreeSpace(used, static_cast<uint32_t>(std::min<uint64_t>(tracks, UINT32_MAX)), vtoc.heads);
  notes.insert(notes.end(), fs.notes.begin(), fs.notes.end());
  fs.notes = notes;
  return fs;
}

}  // namespace ckdvol
