// Umbrella header: the whole public interface of libckdvol.
#ifndef CKDVOL_CKDVOL_H_
#define CKDVOL_CKDVOL_H_

#include "common/architecture_translation.h"
#include "common/data_translator.h"
#include "common/dynamic_typed_pointer_array.h"
#include "common/ptr.h"
#include "common/rexx_string.h"
#include "ckdfile/emulated_ckd_file.h"
#include "dscb/structure_field.h"
#include "dscb/generic_dscb.h"
#include "dscb/format1_dscb.h"
#include "dscb/format3_dscb.h"
#include "dscb/format4_dscb.h"
#include "dscb/format5_dscb.h"
#include "dscb/format8_dscb.h"
#include "dscb/format9_dscb.h"
#include "volume/disk_label.h"
#include "volume/disk_vtoc.h"
#include "volume/dsk_volume.h"
#include "pds/basic_partitioned_access_method.h"
#include "notice/notice.h"
#include "codepage/code_page.h"
#include "dataset/vtoc_scan.h"
#include "dataset/block_reader.h"
#include "dataset/record_reader.h"
#include "dataset/pds_directory.h"
#include "journal/change_journal.h"
#include "edit/staged_tracks.h"

#endif  // CKDVOL_CKDVOL_H_
