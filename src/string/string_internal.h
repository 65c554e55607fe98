// Helpers shared by the C_STRING sources.
#ifndef QORC_STRING_STRING_INTERNAL_H
#define QORC_STRING_STRING_INTERNAL_H

#include <qorc/char.h>

namespace qorc {

// Length of a terminated text, at most the longest string.
int TextLength(const char16_t* text);
char16_t* Units(C_CHAR* buffer);
const char16_t* Units(const C_CHAR* buffer);

// One code point as UTF-16 (a pair above 0xFFFF, U+FFFD when invalid);
// returns the units written.
inline int EncodeUtf16(char32_t c, char16_t out[2]) {
  if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
  if (c <= 0xFFFF) {
    out[0] = static_cast<char16_t>(c);
    return 1;
  }
  c -= 0x10000;
  out[0] = static_cast<char16_t>(0xD800 + (c >> 10));
  out[1] = static_cast<char16_t>(0xDC00 + (c & 0x3FF));
  return 2;
}

}  // namespace qorc

#endif
