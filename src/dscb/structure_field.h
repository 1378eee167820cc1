// StructureField: one entry of a record-layout table.
//
// A descriptor table is a contiguous array of entries in record order, ended
// by a terminator entry (name null, type SfldEnd, offset 0, length 0, newLine
// true). One table drives three things: the formatted dump of a record, the
// description listing of the layout, and the lookup of a field by its label.
// Entries may overlap (a group field followed by its parts at the same
// offset); the length of a table is the largest offset + length of its
// entries.
//
// Tables are static arrays built once at load time and read-only afterwards,
// so any number of threads may read them. Dumps keep their working text on
// their own stack; one thread per output string.
#ifndef CKDVOL_DSCB_STRUCTURE_FIELD_H_
#define CKDVOL_DSCB_STRUCTURE_FIELD_H_

#include <cstdint>

#include "common/export.h"
#include "common/rexx_string.h"

class CKDVOL_EXPORT StructureField {
 public:
  // How a field is rendered; the values are stored in `type`.
  enum SfldTyp : uint8_t {
    SfldNone = 0,             // ends a table walk; plain hexadecimal if printed alone
    SfldAscii = 1,            // the bytes as text, up to a NUL
    SfldInt = 2,              // big-endian 1/2/4/8 bytes; signed for 4 and 8
    SfldUint = 3,             // big-endian unsigned 1/2/4/8 bytes
    SfldHex = 4,              // hexadecimal, no grouping
    SfldBits = 5,             // the first byte as "bbbb bbbb"
    SfldEbcdic = 6,           // the bytes translated from EBCDIC, up to a NUL
    SfldDump = 7,             // hexadecimal, a space every 4 bytes
    SfldHexBytes = 8,         // hexadecimal, a space every byte
    SfldHexHalfwords = 9,     // hexadecimal, a space every 2 bytes (CCHH, CCHHR)
    SfldHexFullwords = 10,    // hexadecimal, a space every 4 bytes
    SfldHexDoublewords = 11,  // hexadecimal, a space every 8 bytes
    SfldIntLE = 12,           // as SfldInt, little-endian
    SfldUintLE = 13,          // as SfldUint, little-endian
    SfldLabel = 14,           // the label alone, no value
    SfldCString = 15,         // NUL-terminated text at the offset (length unused)
    SfldDate = 16,            // 3 bytes: year - 1900, day number - 1 (2 bytes)
    SfldTitle = 17,           // a title line: the name and a line end
    SfldEnd = 18              // table terminator; codes above render as hexadecimal
  };

  const char* name;  // label; static text, not owned; null only in the terminator
  uint16_t offset;   // byte offset of the field in the record
  uint16_t length;   // field length in bytes
  SfldTyp type;      // rendering
  bool newLine;      // the field ends a dump line

  // Stores the five values. An `offset` of 0 or more is stored as it is; -k
  // places the field where the entry k places before it in the same array
  // ends (that entry's offset + length): -1 right after the previous entry,
  // -2 at the start of the previous entry when that one followed its own
  // predecessor (a group followed by its parts). Precondition for a negative
  // offset: this entry is an element of an array whose elements are
  // constructed in order, at least k places from the array's start.
  StructureField(const char* name, SfldTyp type, int offset, int length, bool newLine);
  ~StructureField();

  // The first entry of `table` whose name equals `name` (case-sensitive), or
  // null. The walk stops at an entry of type 0 or with a null name. When
  // `index` is not null it receives the entry's position, or -1.
  static const StructureField* locateField(const char* name, const StructureField* table,
                                           int* index);

  // Appends this field of the record at `record` (label, value, and a line
  // end when `newLine`) and returns `out`. `width` is the label column width;
  // below 1 the name's own length. A title entry appends its name and a line
  // end only (record may then be null). Precondition: the field lies inside
  // the record's buffer.
  RexxString& print(RexxString& out, const void* record, int width) const;
  // Appends one description line of this entry (label column `width`, as
  // for print) and returns `out`.
  RexxString& printDesc(RexxString& out, int width) const;

  // Appends the dump of a whole record with `table`, every line indented by
  // `indent` spaces, and returns `out`. An empty table appends nothing.
  // Precondition: every field of the table lies inside the record's buffer.
  static RexxString& print(RexxString& out, const void* record, const StructureField* table,
                           int indent);
  // Appends the description of a whole table, closed by the line
  // "Total length: N", and returns `out`.
  static RexxString& printDesc(RexxString& out, const StructureField* table);
};

#endif  // CKDVOL_DSCB_STRUCTURE_FIELD_H_
