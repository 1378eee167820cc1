// Internal header (not installed): the product notice as the library carries
// it, for print_copyright_msg and its tests.
#ifndef CKDVOL_NOTICE_NOTICE_TEXT_H_
#define CKDVOL_NOTICE_NOTICE_TEXT_H_

namespace ckdvol {

constexpr int kNoticeSize = 288;       // bytes written over a placeholder
constexpr int kPlaceholderGroups = 72; // 72 groups of 60 00 00 00

// The notice bytes inside the library's note section (kNoticeSize bytes).
const unsigned char* noticeBytes();

}  // namespace ckdvol

#endif  // CKDVOL_NOTICE_NOTICE_TEXT_H_
