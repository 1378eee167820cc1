// GenericDSCB: base class of the data set control blocks (DSCBs), the
// 140-byte records of a volume's VTOC, and the object that stands for a DSCB
// of a format without a class of its own.
//
// A DSCB is a 44-byte key followed by 96 bytes of data; byte 44, the first
// data byte, is the format identifier (EBCDIC digit: F1 for format 1, ...).
// Numbers inside the record are big-endian. The object keeps its own copy of
// the record, so the caller's buffer may change or go away after
// construction.
//
//   0            44  45                                            140
//   +-------------+---+----------------------------------------------+
//   | key (44)    |id | data (95)                                    |
//   +-------------+---+----------------------------------------------+
//
// One thread per object; objects share only the read-only descriptor tables.
#ifndef CKDVOL_DSCB_GENERIC_DSCB_H_
#define CKDVOL_DSCB_GENERIC_DSCB_H_

#include "common/export.h"
#include "common/rexx_string.h"
#include "dscb/structure_field.h"

class CKDVOL_EXPORT GenericDSCB {
 public:
  // Record geometry.
  enum {
    kKeyLength = 44,      // bytes 0..43
    kDataLength = 96,     // bytes 44..139
    kLength = 140,        // key + data
    kFormatIdOffset = 44  // format identifier byte
  };

  int cyl;                      // cylinder of the track holding the DSCB; -1 unknown
  int head;                     // head of that track; -1 unknown
  int rec;                      // record number on the track; -1 unknown
  unsigned char dscb[kLength];  // copy of the record: key, then data
  bool largeCylinders;          // CCHH fields carry 28-bit cylinders; false after
                                // construction, set by the VTOC reader

  // Copies kLength bytes from `dscb` and stores the location.
  GenericDSCB(const unsigned char* dscb, int cyl, int head, int rec);
  virtual ~GenericDSCB();

  // Makes the object of the record's class from byte 44: F1, F3, F4, F5, F8
  // and F9 give the format classes, every other value a GenericDSCB. The
  // location is stored whatever the class. The caller owns the result and
  // deletes it through the virtual destructor. Precondition: kLength
  // readable bytes at `dscb`. Allocation failure throws std::bad_alloc.
  static GenericDSCB* create(const unsigned char* dscb, int cyl, int head, int rec);

  // The format number; here the low 4 bits of byte 44 (0 for a zero record).
  virtual int getType() const;
  // The class's descriptor table (here the one for unknown formats).
  virtual const StructureField* getDesc() const;
  // Appends the title line and the dump of the record with getDesc(), the
  // fields indented by `indent`; returns `out`.
  virtual RexxString& print(RexxString& out, int indent) const;
  // Appends the description of getDesc(); returns `out`.
  virtual RexxString& printDesc(RexxString& out) const;

  // Appends "Format N DSCB ", the location "at c/h/r (CCCCCC/HH/RR) " when
  // `cyl` is 0 or more, and "--" with a line end; returns `out`.
  RexxString& fmtTitle(RexxString& out) const;
  // Address of the first byte of the field labelled `name` in `dscb`.
  // Throws (const char*) "FXDSCB::getFieldAddr - no field descriptions" when
  // getDesc() is null and "FXDSCB::getFieldAddr - unknown field name" when
  // the label is not in it. Valid while this object lives.
  const unsigned char* getFieldAddr(const char* name) const;
};

#endif  // CKDVOL_DSCB_GENERIC_DSCB_H_
