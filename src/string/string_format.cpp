// C_STRING constructors that write numbers and format values.
#include <qorc/string.h>

#include <cstdio>

#include "foundation/library.h"
#include "string/format.h"
#include "string/string_internal.h"

namespace {

// The library-wide scratch area of the formatting constructors.
constexpr int kScratchSize = 2000;
char16_t g_scratch[kScratchSize];

// Formats into the scratch area; the result is at most 1999 characters.
int FormatToScratch(const C_STRING& format, const qorc::FormatValue& value) {
  const int length = qorc::FormatOne(format.GetWCHAR(), format.GetNumber(), value, g_scratch, kScratchSize);
  return length < kScratchSize - 1 ? length : kScratchSize - 1;
}

C_STRING FormatFromText(const char* narrow) {
  C_STRING text;
  for (const char* p = narrow; *p != '\0'; ++p) text += *p;
  return text;
}

}  // namespace

C_STRING::C_STRING(int value) : C_STRING(static_cast<long long>(value)) {}

C_STRING::C_STRING(long long value) : C_STRING() {
  char digits[24];
  const int length = std::snprintf(digits, sizeof digits, "%lld", value);
  AssignBytes(digits, length);
}

C_STRING::C_STRING(int value, const C_STRING& format) : C_STRING() {
  AssignUnits(g_scratch, FormatToScratch(format, qorc::FormatValue::Of(value)));
}

C_STRING::C_STRING(long long value, const C_STRING& format) : C_STRING() {
  AssignUnits(g_scratch, FormatToScratch(format, qorc::FormatValue::Of(value)));
}

C_STRING::C_STRING(double value, const C_STRING& format) : C_STRING() {
  AssignUnits(g_scratch, FormatToScratch(format, qorc::FormatValue::Of(value)));
}

C_STRING::C_STRING(double value, int digits, int style) : C_STRING() {
  char format[32];
  const char conversion = style == 'e' ? 'e' : (style == 'f' ? 'f' : 'g');
  std::snprintf(format, sizeof format, "%%.%d%c", digits, conversion);
  AssignUnits(g_scratch, FormatToScratch(FormatFromText(format), qorc::FormatValue::Of(value)));
}

// The only formatting constructor whose output is not bounded by the scratch
// area: when 2000 characters do not suffice it formats into a buffer of
// (text + format + 100) characters, doubling it until the result fits, and
// keeps that buffer.
C_STRING::C_STRING(const C_STRING& text, const C_STRING& format) : C_STRING() {
  const qorc::FormatValue value = qorc::FormatValue::Of(text.GetWCHAR(), text.GetNumber());
  const int length = qorc::FormatOne(format.GetWCHAR(), format.GetNumber(), value, g_scratch, kScratchSize);
  if (length < kScratchSize) {
    AssignUnits(g_scratch, length);
    return;
  }
  if (length > MAX_SIZE - 1) {
    CerrValueTooHigh.Trigger();
    return;
  }
  int limit = text.GetNumber() + format.GetNumber() + 100;
  while (limit <= length) limit *= 2;
  if (limit > MAX_SIZE) limit = MAX_SIZE;
  buffer_ = qorc::NewArray<C_CHAR>(static_cast<std::size_t>(limit));
  if (buffer_ == nullptr) return;
  qorc::FormatOne(format.GetWCHAR(), format.GetNumber(), value, qorc::Units(buffer_), limit);
  size_ = static_cast<unsigned short>(limit);
  number_ = static_cast<unsigned short>(length);
}
