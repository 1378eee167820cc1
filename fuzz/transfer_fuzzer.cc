// Fuzz target: readTransferFile on any bytes (a transfer file, or an unload
// kept as a host file in any of its forms).
//
// Invariants: reading never crashes or reads outside the input; a refusal
// says why; contents that were read and can be written again (under a data
// set name of their own when they came without one) read back the same
// records, message, directory entries and member blocks.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"
#include "transfer/transfer_file.h"

using ckdvol::Bytes;
using ckdvol::TransferContents;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 1 << 16) return 0;
  const Bytes file(data, data + size);
  TransferContents in;
  std::string error;
  if (!ckdvol::readTransferFile(file, in, error)) {
    FUZZ_CHECK(!error.empty());
    return 0;
  }
  in.attributes.dsn = "FUZZ.DATA";
  Bytes again;
  if (!ckdvol::writeTransferFile(in, again, error)) return 0;
  FUZZ_CHECK(again.size() % 80 == 0);
  TransferContents back;
  FUZZ_CHECK(ckdvol::readTransferFile(again, back, error));
  FUZZ_CHECK(back.partitioned == in.partitioned);
  FUZZ_CHECK(back.records == in.records);
  FUZZ_CHECK(back.message == in.message);
  FUZZ_CHECK(back.pds.entries.size() == in.pds.entries.size());
  for (size_t i = 0; i < in.pds.entries.size(); ++i) {
    FUZZ_CHECK(back.pds.entries[i].name == in.pds.entries[i].name);
    FUZZ_CHECK(back.pds.entries[i].ttr == in.pds.entries[i].ttr);
    FUZZ_CHECK(back.pds.entries[i].userData == in.pds.entries[i].userData);
  }
  FUZZ_CHECK(back.pds.blocks.size() == in.pds.blocks.size());
  for (size_t i = 0; i < in.pds.blocks.size(); ++i) {
    FUZZ_CHECK(back.pds.blocks[i].ttr == in.pds.blocks[i].ttr);
    FUZZ_CHECK(back.pds.blocks[i].key == in.pds.blocks[i].key);
    FUZZ_CHECK(back.pds.blocks[i].data == in.pds.blocks[i].data);
  }
  return 0;
}
