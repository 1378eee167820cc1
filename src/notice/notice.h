// Product notice stamping.
//
// print_copyright_msg() opens "cpyrht.o" in the current directory for update,
// finds the first placeholder of 72 consecutive 4-byte groups 60 00 00 00
// (288 bytes), overwrites it with the 288-byte product notice that the library
// carries in an ELF note section of its own (".note.ckdvol"), closes the file
// and ends the process with exit(0). A missing file, or one without a
// complete placeholder, also ends with exit(0). It prints nothing, and
// nothing in the library calls it.
#ifndef CKDVOL_NOTICE_NOTICE_H_
#define CKDVOL_NOTICE_NOTICE_H_

#include "common/export.h"

extern "C" [[noreturn]] CKDVOL_EXPORT void print_copyright_msg();

#endif  // CKDVOL_NOTICE_NOTICE_H_
