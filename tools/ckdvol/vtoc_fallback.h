// A VTOC the volume classes' reader refuses, filed for them from the data-set
// layer's walk: the DSCBs of the VTOC's own extent (read with the device's
// real heads per cylinder) made into the DiskVtoc lists as initialize()
// would file them, chains followed among those DSCBs only. vtoc lists it;
// pds replace finds its data set in it.
#ifndef CKDVOL_TOOLS_CKDVOL_VTOC_FALLBACK_H_
#define CKDVOL_TOOLS_CKDVOL_VTOC_FALLBACK_H_

#include "ckdfile/emulated_ckd_file.h"
#include "dataset/vtoc_scan.h"
#include "volume/disk_vtoc.h"

namespace ckdvol_tool {

// Resets `vtoc` and fills it from the tracks `info` says were walked.
void fillFromExtent(EmulatedCKDfile& file, const ckdvol::VtocInfo& info, DiskVtoc& vtoc);

}  // namespace ckdvol_tool

#endif  // CKDVOL_TOOLS_CKDVOL_VTOC_FALLBACK_H_
