// DataTranslator: stand-in for the host product's code-page translator.
// Type 12 translates between EBCDIC code page 037 and ISO-8859-1 as one
// bijective 256-entry table each way. The tables are constant, so a translator
// may be used from several threads at once.
#ifndef CKDVOL_COMMON_DATA_TRANSLATOR_H_
#define CKDVOL_COMMON_DATA_TRANSLATOR_H_

#include "common/export.h"

class CKDVOL_EXPORT DataTranslator {
 public:
  enum XlateType {
    XLATE_NONE = 0,          // bytes are copied unchanged
    XLATE_EBCDIC_ASCII = 12  // EBCDIC code page 037 <-> ISO-8859-1
  };

  // constexpr, so translators at namespace scope are ready before any
  // dynamic initialisation runs.
  constexpr explicit DataTranslator(XlateType type = XLATE_EBCDIC_ASCII) : type_(type) {}
  ~DataTranslator();

  // Each writes `length` translated bytes to `target` (which may equal `source`).
  void copyA2E(void* target, const void* source, unsigned length) const;
  void copyE2A(void* target, const void* source, unsigned length) const;
  // In place.
  void xlateE2A(void* buffer, unsigned length) const;
  void xlateA2E(void* buffer, unsigned length) const;

  XlateType type() const { return type_; }

 private:
  XlateType type_;
};

// The library's shared translator (type 12), used for data set names.
extern CKDVOL_EXPORT DataTranslator Xlater;

#endif  // CKDVOL_COMMON_DATA_TRANSLATOR_H_
