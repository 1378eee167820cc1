// ckdvol types: the device table, one line per device type.
//
//   ckdvol types [--json]
#include <cstdio>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "ckdfile/emulated_ckd_file.h"
#include "command.h"

namespace ckdvol_tool {
namespace {

constexpr unsigned int kSlotUnitBytes = 512;
constexpr unsigned short kD200Cells = 10;

unsigned short cellsOf(uint32_t type) { return type == EmulatedCKDfile::D200 ? kD200Cells : 1; }

int runTypes(bool json) {
  if (json) {
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const EmulatedCKDfile::DeviceInfo* d = EmulatedCKDfile::deviceTable; d->type != 0; ++d) {
      char code[16];
      std::snprintf(code, sizeof code, "%04X", static_cast<unsigned>(d->type));
      rows.push_back({{"type", code},
                      {"fileCode", d->fileCode},
                      {"defaultCylinders", d->cylinders},
                      {"heads", d->heads},
                      {"slotBytes", static_cast<unsigned>(d->slotUnits) * kSlotUnitBytes},
                      {"trackCapacity", d->trackCapacity},
                      {"cells", cellsOf(d->type)}});
    }
    std::printf("%s\n", rows.dump(2).c_str());
    return kExitOk;
  }
  std::printf("%-6s %-9s %9s %6s %10s %14s %6s\n", "TYPE", "FILECODE", "CYLINDERS", "HEADS",
              "SLOTBYTES", "TRACKCAPACITY", "CELLS");
  for (const EmulatedCKDfile::DeviceInfo* d = EmulatedCKDfile::deviceTable; d->type != 0; ++d) {
    std::printf("%04X   0x%02X      %9u %6u %10u %14u %6u\n", static_cast<unsigned>(d->type),
                d->fileCode, d->cylinders, d->heads, static_cast<unsigned>(d->slotUnits) * kSlotUnitBytes,
                d->trackCapacity, cellsOf(d->type));
  }
  return kExitOk;
}

const CommandRegistration kRegistration(Command{
    "types", "List the device types with their geometry", 90,
    [](CLI::App& app) -> std::function<int()> {
      auto json = std::make_shared<bool>(false);
      app.add_flag("--json", *json, "Print the table as a JSON array");
      app.footer(
          "Columns: TYPE, the device-type code used by 'create' (with an optional model,\n"
          "e.g. D600-3); FILECODE, the byte a volume file's header stores for the type;\n"
          "CYLINDERS, the default cylinder count; HEADS, tracks per cylinder; SLOTBYTES,\n"
          "bytes one track occupies in the file; TRACKCAPACITY, the longest data length of\n"
          "one record; CELLS, the third address coordinate's range (D200 only).\n"
          "D200 addresses its tracks by cell, two cylinder bytes and two head bytes; its\n"
          "CYLINDERS and HEADS bound the two head bytes.");
      return [json] { return runTypes(*json); };
    }});

}  // namespace
}  // namespace ckdvol_tool
