// ckdvol map: a picture of where the data sets lie on a volume.
//
//   ckdvol map FILE [--svg OUT.svg]
#include <cerrno>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "command.h"
#include "data_sets.h"
#include "edit/free_space.h"

namespace ckdvol_tool {
namespace {

// Who uses a run of tracks: 0 free, 1 the label track, 2 the VTOC, 3 on data sets.
struct Owned {
  ckdvol::TrackRun run;
  size_t owner;
};

struct VolumeMap {
  std::vector<std::string> owners;  // names by index (0 "free space", 1 label, 2 VTOC, then data sets)
  std::vector<Owned> runs;          // in use, in track order (overlaps drawn in order)
  uint32_t heads = 0, cylinders = 0, tracks = 0;
};

VolumeMap buildMap(const ScannedVolume& v) {
  VolumeMap m;
  m.heads = v.file.tracksPerCylinder;
  m.cylinders = v.file.cylinders;
  m.tracks = static_cast<uint32_t>(std::min<uint64_t>(static_cast<uint64_t>(m.cylinders) * m.heads, UINT32_MAX));
  m.owners = {"free space", "label track (IPL records, VOL1)", "VTOC"};
  std::map<std::string, size_t> index;
  std::vector<std::string> notes;
  for (const ckdvol::UsedRun& u : ckdvol::usedRuns(v.vtoc, notes)) {
    size_t k;
    if (u.owner == "the label track") {
      k = 1;
    } else if (u.owner == "the VTOC") {
      k = 2;
    } else {
      auto it = index.find(u.owner);
      if (it == index.end()) {
        it = index.emplace(u.owner, m.owners.size()).first;
        m.owners.push_back(u.owner);
      }
      k = it->second;
    }
    if (u.run.first >= m.tracks) continue;
    ckdvol::TrackRun r = u.run;
    if (static_cast<uint64_t>(r.first) + r.count > m.tracks) r.count = m.tracks - r.first;
    m.runs.push_back(Owned{r, k});
  }
  std::stable_sort(m.runs.begin(), m.runs.end(), [](const Owned& a, const Owned& b) { return a.run.first < b.run.first; });
  return m;
}

// XML text: & < > " escaped; bytes outside printable ASCII become '?'.
std::string xmlText(const std::string& s) {
  std::string out;
  for (unsigned char c : s) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      default: out.push_back(c >= 0x20 && c < 0x7F ? static_cast<char>(c) : '?');
    }
  }
  return out;
}

const char* const kPalette[] = {"#1f77b4", "#ff7f0e", "#2ca02c", "#9467bd", "#8c564b",
                                "#e377c2", "#17becf", "#bcbd22", "#7f7f7f", "#aec7e8"};

std::string colourOf(size_t owner) {
  if (owner == 0) return "#eeeeee";
  if (owner == 1) return "#333333";
  if (owner == 2) return "#d62728";
  return kPalette[(owner - 3) % (sizeof kPalette / sizeof kPalette[0])];
}

constexpr uint32_t kCell = 4;          // pixels per cylinder (wide) and per track (high)
constexpr uint32_t kPerBand = 250;     // cylinders per band before wrapping
constexpr uint32_t kLeft = 70, kTop = 40, kBandGap = 18, kLegendLine = 18;

std::string svgOf(const ScannedVolume& v, const VolumeMap& m, const std::string& type) {
  const uint32_t perBand = std::min(kPerBand, std::max<uint32_t>(m.cylinders, 1));
  const uint32_t bands = (m.cylinders + perBand - 1) / perBand;
  const uint32_t bandHeight = m.heads * kCell + kBandGap;
  const uint32_t width = kLeft + perBand * kCell + 20;
  const uint32_t legendTop = kTop + bands * bandHeight + 10;
  const uint32_t height = legendTop + static_cast<uint32_t>(m.owners.size()) * kLegendLine + 10;
  std::string s;
  s += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  s += "<svg xmlns=\"http://www.w3.org/2000/svg\" version=\"1.1\" width=\"" + std::to_string(std::max(width, 420u)) +
       "\" height=\"" + std::to_string(height) + "\" font-family=\"monospace\" font-size=\"12\">\n";
  const std::string title = "Volume " + v.vtoc.volser + " - " + type + ", " + count(m.cylinders, "cylinder") + " of " +
                            count(m.heads, "track");
  s += "<title>" + xmlText(title) + "</title>\n";
  s += "<text x=\"10\" y=\"20\" font-size=\"14\">" + xmlText(title) + "</text>\n";
  auto y0 = [&](uint32_t band) { return kTop + band * bandHeight; };
  auto rect = [&](uint32_t x, uint32_t y, uint32_t w, uint32_t h, size_t owner) {
    s += "<rect x=\"" + std::to_string(x) + "\" y=\"" + std::to_string(y) + "\" width=\"" + std::to_string(w) +
         "\" height=\"" + std::to_string(h) + "\" fill=\"" + colourOf(owner) + "\"/>\n";
  };
  for (uint32_t b = 0; b < bands; ++b) {
    const uint32_t first = b * perBand, n = std::min(perBand, m.cylinders - first);
    s += "<text x=\"4\" y=\"" + std::to_string(y0(b) + 12) + "\">cyl " + std::to_string(first) + "</text>\n";
    rect(kLeft, y0(b), n * kCell, m.heads * kCell, 0);
  }
  for (const Owned& o : m.runs) {
    uint32_t a = o.run.first;
    const uint32_t end = o.run.end();
    while (a < end) {
      const uint32_t cyl = a / m.heads, head = a % m.heads;
      const uint32_t band = cyl / perBand, x = kLeft + (cyl % perBand) * kCell;
      if (head != 0 || end - a < m.heads) {
        const uint32_t n = std::min(m.heads - head, end - a);
        rect(x, y0(band) + head * kCell, kCell, n * kCell, o.owner);
        a += n;
      } else {
        const uint32_t whole = std::min((end - a) / m.heads, (band + 1) * perBand - cyl);
        rect(x, y0(band), whole * kCell, m.heads * kCell, o.owner);
        a += whole * m.heads;
      }
    }
  }
  for (size_t k = 0; k < m.owners.size(); ++k) {
    const uint32_t y = legendTop + static_cast<uint32_t>(k) * kLegendLine;
    rect(10, y, 12, 12, k);
    s += "<text x=\"28\" y=\"" + std::to_string(y + 11) + "\">" + xmlText(m.owners[k]) + "</text>\n";
  }
  s += "</svg>\n";
  return s;
}

// One character per track: '.' free, 'L' label, 'V' VTOC, data sets a-z A-Z 0-9 (repeated).
char symbolOf(size_t owner) {
  static const char kSymbols[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKMNOPQRSTUWXYZ0123456789";
  if (owner == 0) return '.';
  if (owner == 1) return 'L';
  if (owner == 2) return 'V';
  return kSymbols[(owner - 3) % (sizeof kSymbols - 1)];
}

void printText(const ScannedVolume& v, const VolumeMap& m, const std::string& type) {
  std::printf("volume %s: %s, %s of %s; one character per track\n", v.vtoc.volser.c_str(), type.c_str(),
              count(m.cylinders, "cylinder").c_str(), count(m.heads, "track").c_str());
  std::vector<char> track(m.tracks, '.');
  for (const Owned& o : m.runs) {
    for (uint32_t t = o.run.first; t < o.run.end(); ++t) track[t] = symbolOf(o.owner);
  }
  uint32_t c = 0;
  while (c < m.cylinders) {
    const std::string line(track.begin() + static_cast<long>(c) * m.heads, track.begin() + static_cast<long>(c + 1) * m.heads);
    uint32_t same = c + 1;
    while (same < m.cylinders &&
           std::equal(line.begin(), line.end(), track.begin() + static_cast<long>(same) * m.heads)) {
      ++same;
    }
    const std::string label = same - c > 1 ? std::to_string(c) + "-" + std::to_string(same - 1) : std::to_string(c);
    std::printf("cyl %-13s %s\n", label.c_str(), line.c_str());
    c = same;
  }
  std::printf("legend: . free  L label track  V VTOC");
  for (size_t k = 3; k < m.owners.size(); ++k) std::printf("  %c %s", symbolOf(k), m.owners[k].c_str());
  std::printf("\n");
}

int runMap(const std::string& path, const std::string& svgPath) {
  ScannedVolume v;
  if (int status = scanVolume(path, v, true)) return status;
  if (v.file.deviceType == EmulatedCKDfile::D200) return fail(path, "D200 volumes are not mapped");
  const VolumeMap m = buildMap(v);
  char type[16];
  std::snprintf(type, sizeof type, "%04X", static_cast<unsigned>(v.file.deviceType));
  if (svgPath.empty()) {
    printText(v, m, type);
    return kExitOk;
  }
  const std::string svg = svgOf(v, m, type);
  FILE* out = std::fopen(svgPath.c_str(), "w");
  if (out == nullptr) return fail(svgPath, std::string("cannot write the picture: ") + std::strerror(errno));
  const bool ok = std::fwrite(svg.data(), 1, svg.size(), out) == svg.size();
  if (std::fclose(out) != 0 || !ok) {
    std::remove(svgPath.c_str());
    return fail(svgPath, "cannot write the picture (disk full?); no file was left");
  }
  std::printf("wrote %s: %s, %s, %zu bytes\n", svgPath.c_str(), count(m.cylinders, "cylinder").c_str(),
              count(m.owners.size() - 3, "data set").c_str(), svg.size());
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "map", "Draw where the data sets lie: a text map, or an SVG picture", 38,
    [](CLI::App& app) -> std::function<int()> {
      auto path = std::make_shared<std::string>();
      auto svg = std::make_shared<std::string>();
      app.add_option("FILE", *path, "The volume file")->required();
      app.add_option("--svg", *svg, "Write an SVG picture to this file instead of the text map");
      app.footer(
          "The text map has one line per cylinder (runs of equal cylinders on one line) and\n"
          "one character per track: '.' free, 'L' the label track, 'V' the VTOC, a letter\n"
          "or digit per data set (named in the legend). The SVG picture draws cylinders as\n"
          "columns of tracks, wrapping every 250 cylinders, each data set in a colour of its\n"
          "own, with a legend and a title naming the serial, device type and cylinders.\n"
          "\n"
          "Examples:\n"
          "  ckdvol map work.ckd\n"
          "  ckdvol map work.ckd --svg work.svg");
      return [path, svg] { return runMap(*path, *svg); };
    }});

}  // namespace
}  // namespace ckdvol_tool
