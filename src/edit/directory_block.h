// The 256-byte blocks of a partitioned data set's directory, as this layer
// writes them. Each is a record with an 8-byte key (the name of the last
// entry in the block) and 256 data bytes: bytes used (u16, counting
// themselves), then the entries. The end of the directory is an entry named
// eight bytes FF with TTR 0 and no user data; a block behind it holds
// nothing else but its own end entry, the form allocation gives every block.
#ifndef CKDVOL_EDIT_DIRECTORY_BLOCK_H_
#define CKDVOL_EDIT_DIRECTORY_BLOCK_H_

#include <cstring>

namespace ckdvol {

constexpr int kDirectoryKeyLength = 8;
constexpr int kDirectoryBlockLength = 256;

// An unused directory block: key eight bytes FF; bytes used 14; the end
// entry (name FF x 8, TTR 0, indicator 0); zeros.
inline void emptyDirectoryBlock(unsigned char* key, unsigned char* data) {
  std::memset(key, 0xFF, kDirectoryKeyLength);
  std::memset(data, 0, kDirectoryBlockLength);
  data[1] = 14;
  std::memset(data + 2, 0xFF, 8);
}

}  // namespace ckdvol

#endif  // CKDVOL_EDIT_DIRECTORY_BLOCK_H_
