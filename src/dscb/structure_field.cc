// StructureField: descriptor-table entries, the one-field and whole-record
// dumps, the layout descriptions and the lookup of fields by label.
//
// Dump line grammar (whole record): every title entry first, in table order;
// then one line per run of fields ending with a newLine field. A line's first
// field has its label right-aligned in the table's widest label column; each
// further field follows a separator of a comma and spaces that makes it start
// at the next column that is a multiple of 5 and at least 3 columns on, and
// shows its label at its natural length.
#include "dscb/structure_field.h"

#include <cstdio>
#include <cstring>
#include <memory>

#include "common/architecture_translation.h"
#include "common/data_translator.h"
#include "dscb/dscb_util.h"

using ckdvol::appendSpaces;
using ckdvol::appendText;

namespace {

// Translates SfldEbcdic fields.
const DataTranslator fieldTranslator(DataTranslator::XLATE_EBCDIC_ASCII);

constexpr int kLineBuffer = 1024;  // value text; longer text fields use the heap
constexpr int kLabelBuffer = 256;  // one label, or one description line
constexpr int kBytesPerHexLine = 32;
// The widest hexadecimal line: 32 bytes as digits with a space between each.
constexpr int kHexLineMax = 2 * kBytesPerHexLine + kBytesPerHexLine - 1;
// Room left for the continuation indent of a hexadecimal line.
constexpr int kHexPadMax = kLineBuffer - kHexLineMax - 1;

const char kHexDigits[] = "0123456789ABCDEF";
// Grouping of the hexadecimal codes SfldDump .. SfldHexDoublewords.
const int kHexGroups[] = {4, 1, 2, 4, 8};

// The label column's width: `width`, or the name's length below 1.
int labelWidth(const char* name, int width) {
  return width < 1 ? static_cast<int>(std::strlen(name)) : width;
}

bool endsWalk(const StructureField& f) {
  return f.type == StructureField::SfldEnd || f.type == StructureField::SfldNone;
}

int groupOf(StructureField::SfldTyp type) {
  if (type >= StructureField::SfldDump && type <= StructureField::SfldHexDoublewords) {
    return kHexGroups[type - StructureField::SfldDump];
  }
  return 0;
}

// Appends `length` bytes as hexadecimal, a space every `group` bytes (0: no
// grouping), at most 32 bytes per line; continuation lines start with `pad`
// spaces.
void appendHex(RexxString& out, const unsigned char* p, int length, int group, int pad) {
  if (pad > kHexPadMax) pad = kHexPadMax;
  char line[kLineBuffer];
  int n = 0;
  for (int i = 0; i < length; ++i) {
    if (i != 0 && i % kBytesPerHexLine == 0) {
      line[n++] = '\n';
      line[n] = '\0';
      appendText(out, line);
      std::memset(line, ' ', static_cast<size_t>(pad));
      n = pad;
    } else if (i != 0 && group != 0 && i % group == 0) {
      line[n++] = ' ';
    }
    line[n++] = kHexDigits[p[i] >> 4];
    line[n++] = kHexDigits[p[i] & 0x0F];
  }
  line[n] = '\0';
  if (n > 0) appendText(out, line);
}

// Formats a 1, 2, 4 or 8-byte integer into `text`; false for other lengths.
bool formatNumber(char* text, size_t size, const unsigned char* p, int length, bool isSigned,
                  bool littleEndian) {
  switch (length) {
    case 1:
      std::snprintf(text, size, isSigned ? "%d" : "%u", static_cast<unsigned>(p[0]));
      return true;
    case 2: {
      unsigned short v;
      std::memcpy(&v, p, sizeof v);
      v = littleEndian ? ArchitectureTranslation::itohs(v) : ArchitectureTranslation::mtohs(v);
      std::snprintf(text, size, isSigned ? "%d" : "%u", static_cast<unsigned>(v));
      return true;
    }
    case 4: {
      unsigned int v;
      std::memcpy(&v, p, sizeof v);
      v = littleEndian ? ArchitectureTranslation::itohi(v) : ArchitectureTranslation::mtohi(v);
      if (isSigned) {
        std::snprintf(text, size, "%d", static_cast<int>(v));
      } else {
        std::snprintf(text, size, "%u", v);
      }
      return true;
    }
    case 8: {
      unsigned long long v;
      std::memcpy(&v, p, sizeof v);
      v = littleEndian ? ArchitectureTranslation::itohll(v) : ArchitectureTranslation::mtohll(v);
      if (isSigned) {
        std::snprintf(text, size, "%lld", static_cast<long long>(v));
      } else {
        std::snprintf(text, size, "%llu", v);
      }
      return true;
    }
    default:
      return false;
  }
}

// Appends the `length` bytes at `p` as text (translated from EBCDIC when
// `ebcdic`), up to the first NUL among them.
void appendFieldText(RexxString& out, const unsigned char* p, int length, bool ebcdic) {
  char line[kLineBuffer];
  std::unique_ptr<char[]> heap;
  char* text = line;
  if (length > kLineBuffer - 1) {
    heap.reset(new char[static_cast<size_t>(length) + 8]);
    text = heap.get();
  }
  if (ebcdic) {
    fieldTranslator.copyE2A(text, p, static_cast<unsigned>(length));
  } else {
    std::memcpy(text, p, static_cast<size_t>(length));
  }
  text[length] = '\0';
  appendText(out, text);
}

}  // namespace

StructureField::StructureField(const char* name, SfldTyp type, int offset, int length, bool newLine)
    : name(name), offset(0), length(static_cast<uint16_t>(length)), type(type), newLine(newLine) {
  if (offset >= 0) {
    this->offset = static_cast<uint16_t>(offset);
  } else {
    // The entry -offset places before this one, in the same array.
    const StructureField* prior = this + offset;
    this->offset = static_cast<uint16_t>(prior->offset + prior->length);
  }
}

StructureField::~StructureField() {}

const StructureField* StructureField::locateField(const char* name, const StructureField* table,
                                                  int* index) {
  if (index != nullptr) *index = -1;
  if (name == nullptr || table == nullptr) return nullptr;
  for (int i = 0; table[i].type != SfldNone && table[i].name != nullptr; ++i) {
    if (std::strcmp(table[i].name, name) == 0) {
      if (index != nullptr) *index = i;
      return &table[i];
    }
  }
  return nullptr;
}

RexxString& StructureField::print(RexxString& out, const void* record, int width) const {
  const char* label = name != nullptr ? name : "";
  if (type == SfldTitle) {
    appendText(out, label);
    appendText(out, "\n");
    return out;
  }

  int w = labelWidth(label, width);
  char format[32];
  std::snprintf(format, sizeof format, "%%%d.%ds: ", w, w);
  char labelText[kLabelBuffer];
  std::snprintf(labelText, sizeof labelText, format, label);
  appendText(out, labelText);

  if (record != nullptr) {
    const unsigned char* p = static_cast<const unsigned char*>(record) + offset;
    char text[kLineBuffer];
    switch (type) {
      case SfldAscii:
      case SfldEbcdic:
        appendFieldText(out, p, length, type == SfldEbcdic);
        break;
      case SfldInt:
      case SfldUint:
      case SfldIntLE:
      case SfldUintLE: {
        bool isSigned = type == SfldInt || type == SfldIntLE;
        bool littleEndian = type == SfldIntLE || type == SfldUintLE;
        if (formatNumber(text, sizeof text, p, length, isSigned, littleEndian)) {
          appendText(out, text);
        } else {
          appendText(out, "<Invalid data length>");
        }
        break;
      }
      case SfldBits: {
        int n = 0;
        for (int bit = 7; bit >= 0; --bit) {
          text[n++] = (p[0] >> bit) & 1 ? '1' : '0';
          if (bit == 4) text[n++] = ' ';
        }
        text[n] = '\0';
        appendText(out, text);
        break;
      }
      case SfldLabel:
        break;
      case SfldCString:
        appendText(out, reinterpret_cast<const char*>(p));
        break;
      case SfldDate:
        std::snprintf(text, sizeof text, "%d/%03d", p[0] + 1900, p[1] * 256 + p[2] + 1);
        appendText(out, text);
        break;
      default:  // SfldNone, SfldHex, the grouped codes, SfldEnd and above
        appendHex(out, p, length, groupOf(type), w + 2);
        break;
    }
  }

  if (newLine) appendText(out, "\n");
  return out;
}

RexxString& StructureField::printDesc(RexxString& out, int width) const {
  const char* label = name != nullptr ? name : "";
  int w = labelWidth(label, width);
  char format[96];
  std::snprintf(format, sizeof format,
                "%%%d.%ds: Offset-%%d(0x%%X), Length-%%d, Type-%%d, NL-%%s\n", w, w);
  char line[kLabelBuffer];
  std::snprintf(line, sizeof line, format, label, offset, offset, length, static_cast<int>(type),
                newLine ? "Yes" : "No");
  appendText(out, line);
  return out;
}

RexxString& StructureField::print(RexxString& out, const void* record, const StructureField* table,
                                  int indent) {
  if (table == nullptr || endsWalk(table[0])) return out;

  // Titles go out at once; the other labels give the common label width.
  int widest = 0;
  for (const StructureField* f = table; !endsWalk(*f); ++f) {
    if (f->type == SfldTitle) {
      if (indent > 0 && !f->newLine) appendSpaces(out, indent);
      f->print(out, nullptr, 0);
    } else {
      int n = f->name != nullptr ? static_cast<int>(std::strlen(f->name)) : 0;
      if (n > widest) widest = n;
    }
  }

  bool lineEnded = true;
  int lineStart = 0;
  for (const StructureField* f = table; !endsWalk(*f); ++f) {
    if (f->type == SfldTitle) continue;
    if (lineEnded) {
      lineStart = out.length();
      if (indent > 0) appendSpaces(out, indent);
      f->print(out, record, widest);
    } else {
      int used = out.length() - lineStart;
      int next = (used + 3 + 4) / 5 * 5;  // first multiple of 5 at least 3 columns on
      appendText(out, ",");
      appendSpaces(out, next - used - 1);
      f->print(out, record, -1);
    }
    lineEnded = f->newLine;
  }
  return out;
}

RexxString& StructureField::printDesc(RexxString& out, const StructureField* table) {
  int widest = 0;
  int total = 0;
  if (table != nullptr) {
    for (const StructureField* f = table; !endsWalk(*f); ++f) {
      int n = f->name != nullptr ? static_cast<int>(std::strlen(f->name)) : 0;
      if (n > widest) widest = n;
    }
    for (const StructureField* f = table; !endsWalk(*f); ++f) {
      f->printDesc(out, widest);
      int end = f->offset + f->length;
      if (end > total) total = end;
    }
  }
  appendSpaces(out, widest + 2);
  char line[64];
  std::snprintf(line, sizeof line, "Total length: %d\n", total);
  appendText(out, line);
  return out;
}
