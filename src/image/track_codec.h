// Internal header (not installed): compression of a stored track image's
// bytes behind its first five, as the compressed images keep them.
#ifndef CKDVOL_IMAGE_TRACK_CODEC_H_
#define CKDVOL_IMAGE_TRACK_CODEC_H_

#include <cstddef>

#include "image/image.h"

namespace ckdvol_image {

// `length` bytes at `in` compressed into `out` (copied for kNone). False
// when the library fails.
bool compressBody(Compression c, const unsigned char* in, size_t length, Bytes& out);
// Expands `length` bytes at `in` into at most `room` bytes at `out`: the
// length, -2 when the result would not fit in `room`, -1 when the input is
// not valid compressed data.
long expandBody(Compression c, const unsigned char* in, size_t length, unsigned char* out, size_t room);

}  // namespace ckdvol_image

#endif  // CKDVOL_IMAGE_TRACK_CODEC_H_
