// Symbol visibility for the shared library. The library is built with hidden
// default visibility; only declarations marked CKDVOL_EXPORT are reachable by
// the host process and by programs that link against libckdvol.so.
#ifndef CKDVOL_COMMON_EXPORT_H_
#define CKDVOL_COMMON_EXPORT_H_

#if defined(__GNUC__)
#define CKDVOL_EXPORT __attribute__((visibility("default")))
#else
#define CKDVOL_EXPORT
#endif

#endif  // CKDVOL_COMMON_EXPORT_H_
