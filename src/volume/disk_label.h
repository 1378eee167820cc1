// DiskLabel: the standard volume label of a volume, read from its first track.
//
// The label is the record keyed "VOL1" (EBCDIC E5 D6 D3 F1, key length 4) on
// cylinder 0, head 0, whatever its record number. Its 80-byte data area:
//
//   0 Key[4] "VOL1" | 4 Serial[6] | 10 Security | 11 VTOC-loc CCHHR:
//   11 CC u16, 13 HH u16, 15 R u8 | 16 Resv[21] | 37 Owner-ID[14] |
//   51 Resv[9] | 60 DumpCond[6] | 66 Resv | 67 VolLblFlag | 68 Resv[11] |
//   79 LblVer
//
// Text is EBCDIC, numbers big-endian. Only the serial and the VTOC address
// are interpreted; every other byte is carried as read and shown in the dump.
// On volumes with 28-bit cylinder numbers the upper 12 bits of HH carry bits
// 16..27 of the cylinder and its low 4 bits the head.
//
// The object keeps a private copy of the data area and no reference to the
// volume file. One thread per object.
#ifndef CKDVOL_VOLUME_DISK_LABEL_H_
#define CKDVOL_VOLUME_DISK_LABEL_H_

#include "ckdfile/emulated_ckd_file.h"
#include "common/export.h"
#include "common/rexx_string.h"
#include "dscb/structure_field.h"

class CKDVOL_EXPORT DiskLabel {
 public:
  // Layout of the label record.
  enum {
    kLabelKeyLength = 4,    // key length of the label record
    kLabelDataLength = 80,  // data length of the label record
    kSerialOffset = 4,      // 6 EBCDIC bytes
    kSerialLength = 6,
    kVtocCcOffset = 11,     // u16 BE
    kVtocHhOffset = 13,     // u16 BE
    kVtocROffset = 15       // u8
  };
  // errno values that initialize() leaves beside -1 (besides EIO).
  enum LabelErrno {
    kErrNoLabel = 9999,         // track 0/0 holds no record keyed VOL1
    kErrLabelLength = 9998      // the VOL1 record's data length is not 80
  };

  unsigned char labelData[kLabelDataLength];  // the label's data area as read (EBCDIC)
  bool largeCylinders;  // the volume file's largeCylinders when the label was read
  bool loaded;          // a label was read successfully since the last reset

  // Both perform reset().
  DiskLabel();
  ~DiskLabel();

  // Zeroes labelData, largeCylinders and loaded.
  void reset();

  // Reads the label from the open volume `file`: track 0/0 (cell 0) into its
  // track buffer, the first record keyed VOL1 there. Results:
  //   0  labelData, loaded and largeCylinders set;
  //  -1  errno EIO: the track could not be read;
  //  -1  errno 9999 (kErrNoLabel): no record with the 4-byte key VOL1;
  //  -1  errno 9998 (kErrLabelLength): that record's data length is not 80.
  // A failure changes nothing in the object. References into the file's
  // track buffer held by the caller die (a track is read).
  int initialize(EmulatedCKDfile& file);

  // Copies the 6 serial bytes into `serial`. With `translate` false they stay
  // EBCDIC and exactly 6 bytes are written; with it true they are translated
  // to ASCII and a NUL is written as byte 6 (the caller provides 7 bytes;
  // trailing blanks stay). False, writing nothing, when no label is loaded.
  bool getSerial(char* serial, bool translate) const;

  // The address of the VTOC's first record, decoded for 28-bit cylinder
  // numbers when largeCylinders is set. False with all three -1 when no
  // label is loaded.
  bool getVTOC(int& cylinder, int& head, int& record) const;

  // Appends "Volume label --\n" and the dump of labelData through the
  // label's descriptor table (seven lines), whether loaded or not; returns
  // `out`.
  RexxString& print(RexxString& out) const;

  // The label's descriptor table (labelDesc): 15 entries and a terminator,
  // static, valid for the life of the library.
  static const StructureField* getDesc();
};

#endif  // CKDVOL_VOLUME_DISK_LABEL_H_
