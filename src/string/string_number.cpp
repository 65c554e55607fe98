// Reading numbers and tokens out of a C_STRING. The readers are the
// library's own, so that the decimal separator is always the full stop and
// results never depend on the locale in force.
#include <qorc/string.h>

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "foundation/library.h"
#include "platform/text.h"
#include "string/string_internal.h"

using qorc::Units;

namespace {

bool IsBlank(char16_t c) { return qorc::platform::CharIs(c, qorc::platform::CharClass::Space); }
bool IsAsciiDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

int HexDigitValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// Skips leading blanks and one optional sign; returns the position behind them.
int SkipBlanksAndSign(const char16_t* text, int length, bool* negative) {
  int i = 0;
  while (i < length && IsBlank(text[i])) ++i;
  *negative = i < length && text[i] == u'-';
  if (i < length && (text[i] == u'+' || text[i] == u'-')) ++i;
  return i;
}

// A decimal integer as the C runtime's wcstol reads it in base 10 with a
// 32-bit long: blanks, one optional sign, digits. Values beyond the range
// saturate. Returns the units consumed (0 when no digit was read).
int ReadInt32(const char16_t* text, int length, int* value) {
  bool negative = false;
  int i = SkipBlanksAndSign(text, length, &negative);
  const int digitsStart = i;
  long long magnitude = 0;
  const long long limit = negative ? 2147483648LL : 2147483647LL;
  while (i < length && IsAsciiDigit(text[i])) {
    if (magnitude <= limit) magnitude = magnitude * 10 + (text[i] - u'0');
    ++i;
  }
  if (i == digitsStart) {
    *value = 0;
    return 0;
  }
  if (magnitude > limit) magnitude = limit;
  *value = static_cast<int>(negative ? -magnitude : magnitude);
  return i;
}

// The library's 64-bit reader: blanks, one optional sign, digits by the
// character classification, wrapping silently on overflow. Blanks and sign
// count as consumed only when a digit follows.
int ReadInt64(const char16_t* text, int length, long long* value) {
  bool negative = false;
  int i = SkipBlanksAndSign(text, length, &negative);
  const int digitsStart = i;
  unsigned long long accumulator = 0;
  while (i < length && qorc::platform::CharIs(text[i], qorc::platform::CharClass::Digit)) {
    accumulator = accumulator * 10u + static_cast<unsigned long long>(static_cast<long long>(text[i]) - u'0');
    ++i;
  }
  if (i == digitsStart) {
    *value = 0;
    return 0;
  }
  if (negative) accumulator = 0u - accumulator;
  *value = static_cast<long long>(accumulator);
  return i;
}

// A real as the C runtime's wcstod reads it: blanks, an optional sign,
// digits with an optional full stop and fraction (at least one digit in
// all), an optional exponent of "e" or "E", an optional sign and digits.
// Returns the units consumed (0 when no number was read).
int ReadReal(const char16_t* text, int length, double* value) {
  *value = 0.0;
  int i = 0;
  while (i < length && IsBlank(text[i])) ++i;
  const int numberStart = i;
  if (i < length && (text[i] == u'+' || text[i] == u'-')) ++i;
  int integerDigits = 0;
  int leadingZeros = 0;
  bool significant = false;
  while (i < length && IsAsciiDigit(text[i])) {
    if (!significant && text[i] == u'0') {
      ++leadingZeros;
    } else {
      significant = true;
      ++integerDigits;
    }
    ++i;
  }
  int fractionZeros = 0;  // zeros after the full stop before the first significant digit
  int fractionDigits = 0;
  if (i < length && text[i] == u'.') {
    int k = i + 1;
    while (k < length && IsAsciiDigit(text[k])) {
      if (!significant && text[k] == u'0') {
        ++fractionZeros;
      } else {
        significant = true;
      }
      ++fractionDigits;
      ++k;
    }
    if (integerDigits + leadingZeros + fractionDigits > 0) i = k;
  }
  if (integerDigits + leadingZeros + fractionDigits == 0) return 0;
  long long exponent = 0;
  if (i < length && (text[i] == u'e' || text[i] == u'E')) {
    int k = i + 1;
    bool negativeExponent = false;
    if (k < length && (text[k] == u'+' || text[k] == u'-')) {
      negativeExponent = text[k] == u'-';
      ++k;
    }
    if (k < length && IsAsciiDigit(text[k])) {
      while (k < length && IsAsciiDigit(text[k])) {
        if (exponent < 100000) exponent = exponent * 10 + (text[k] - u'0');
        ++k;
      }
      if (negativeExponent) exponent = -exponent;
      i = k;
    }
  }
  // The characters read are plain ASCII: narrow them and let the standard
  // library's exact, locale-independent conversion produce the value.
  const int count = i - numberStart;
  char small[128];
  char* narrow = small;
  if (count >= static_cast<int>(sizeof small)) {
    narrow = qorc::NewArray<char>(static_cast<std::size_t>(count) + 1);
    if (narrow == nullptr) return i;
  }
  for (int k = 0; k < count; ++k) narrow[k] = static_cast<char>(text[numberStart + k]);
  const char* begin = narrow;
  if (*begin == '+') ++begin;  // from_chars takes no plus sign
  double parsed = 0.0;
  const std::from_chars_result result = std::from_chars(begin, narrow + count, parsed, std::chars_format::general);
  if (result.ec == std::errc()) {
    *value = parsed;
  } else {
    // Out of range: beyond the largest double gives an infinity, below the
    // smallest a zero, each with the sign of the text.
    const bool negative = narrow[0] == '-';
    const long long magnitude = significant ? exponent + (integerDigits > 0 ? integerDigits : -fractionZeros) : -1;
    const double huge = std::numeric_limits<double>::infinity();
    *value = magnitude > 0 ? (negative ? -huge : huge) : (negative ? -0.0 : 0.0);
  }
  if (narrow != small) delete[] narrow;
  return i;
}

// Runs one of the readers above from position start of a text of number
// units (a start outside the text reads nothing). Sets *end behind what was
// read and *value to the value read, or 0; tells whether anything was read.
template <class T>
bool ReadFrom(int (*reader)(const char16_t*, int, T*), const char16_t* text, int number, int start, T* value,
              int* end) {
  T parsed = 0;
  const int read = start >= 0 && start < number ? reader(text + start, number - start, &parsed) : 0;
  if (end != nullptr) *end = start + read;
  if (value != nullptr) *value = read > 0 ? parsed : 0;
  return read > 0;
}

// A whole-string conversion keeps the value only when the scan read the whole
// text; a scan that read nothing has reported the failure already.
template <class T>
T WholeText(T value, int end, int number, const C_ERROR& failure, const C_STRING* text) {
  if (end == 0) return T();
  if (end != number) {
    failure.TriggerMild(text);
    return T();
  }
  return value;
}

}  // namespace

// Whole-string tests -----------------------------------------------------------

C_BOOL C_STRING::IsInt() const {
  if (number_ == 0) return false;
  const char16_t* text = Units(buffer_);
  for (int i = 0; i < number_; ++i) {
    if (!IsAsciiDigit(text[i])) return false;
  }
  return true;
}

C_BOOL C_STRING::IsHexa() const {
  if (number_ == 0) return false;
  const char16_t* text = Units(buffer_);
  for (int i = 0; i < number_; ++i) {
    if (HexDigitValue(text[i]) < 0) return false;
  }
  return true;
}

// Scanning ---------------------------------------------------------------------

// Each scan fails, with *end set to start, when start is not inside the text.

C_BOOL C_STRING::HasInt(int start, int* value, int* end) const {
  return ReadFrom(ReadInt32, Units(buffer_), number_, start, value, end);
}

int C_STRING::ScanInt(int start, int* end) const {
  int value = 0;
  if (!HasInt(start, &value, end)) CerrStringNotInt.TriggerMild(this);
  return value;
}

C_BOOL C_STRING::HasLong(int start, long long* value, int* end) const {
  return ReadFrom(ReadInt64, Units(buffer_), number_, start, value, end);
}

long long C_STRING::ScanLong(int start, int* end) const {
  long long value = 0;
  if (!HasLong(start, &value, end)) CerrStringNotInt.TriggerMild(this);
  return value;
}

double C_STRING::ScanReal(int start, int* end) const {
  double value = 0.0;
  if (!ReadFrom(ReadReal, Units(buffer_), number_, start, &value, end)) CerrStringNotReal.TriggerMild(this);
  return value;
}

// Whole-string conversions ----------------------------------------------------------

int C_STRING::ToInt() const {
  int end = 0;
  const int value = ScanInt(0, &end);
  return WholeText(value, end, number_, CerrStringNotInt, this);
}

double C_STRING::ToReal() const {
  int end = 0;
  const double value = ScanReal(0, &end);
  return WholeText(value, end, number_, CerrStringNotReal, this);
}

// The C runtime's wcstoul in base 16 with a 32-bit unsigned long: blanks, a
// sign, an optional "0x" or "0X", hexadecimal digits; beyond the range the
// value saturates, and a minus sign negates in unsigned arithmetic.
int C_STRING::HexaToInt() const {
  if (number_ == 0) return 0;
  const char16_t* text = Units(buffer_);
  const int length = number_;
  bool negative = false;
  int i = SkipBlanksAndSign(text, length, &negative);
  // A "0x" prefix counts only when a hexadecimal digit follows it; otherwise
  // the "0" alone is the number.
  if (i + 2 < length && text[i] == u'0' && (text[i + 1] == u'x' || text[i + 1] == u'X') &&
      HexDigitValue(text[i + 2]) >= 0) {
    i += 2;
  }
  const int digitsStart = i;
  unsigned long long value = 0;
  bool overflow = false;
  while (i < length && HexDigitValue(text[i]) >= 0) {
    if (!overflow) {
      value = value * 16 + static_cast<unsigned>(HexDigitValue(text[i]));
      if (value > 0xFFFFFFFFull) overflow = true;
    }
    ++i;
  }
  if (i == digitsStart || i != length) {
    CerrStringNotInt.TriggerMild(this);
    return 0;
  }
  unsigned int result = overflow ? 0xFFFFFFFFu : static_cast<unsigned int>(value);
  if (negative && !overflow) result = 0u - result;
  return static_cast<int>(result);
}

// This reader is kept exactly as hosts have always had it, although it does
// not compute a hexadecimal value: after accepting a character it adds the
// code of the next one, as a decimal digit, to ten times the total, and it
// looks one place past the character that stops it. A text made only of
// hexadecimal digits therefore always fails. Callers that need the value of
// hexadecimal text use HexaToInt.
long long C_STRING::HexaToLong() const {
  const char16_t* text = GetWCHAR();  // terminated, so text[number_] is readable
  const int length = number_;
  int position = 0;
  while (position < length && IsBlank(text[position])) ++position;
  unsigned long long accumulator = 0;
  while (position < length) {
    const char16_t c = text[position];
    int digit;
    if (qorc::platform::CharIs(c, qorc::platform::CharClass::Digit)) {
      digit = c - u'0';
    } else if (qorc::platform::CharIs(c, qorc::platform::CharClass::Alpha)) {
      digit = qorc::platform::CharToUpper(c) - 55;
    } else {
      break;
    }
    if (digit > 15) break;
    ++position;
    accumulator = accumulator * 10u + static_cast<unsigned long long>(static_cast<long long>(text[position]) - 48);
  }
  // The stopping character is taken as read.
  if (position + 1 == length) return static_cast<long long>(accumulator);
  CerrStringNotInt.TriggerMild(this);
  return 0;
}

// Fractions and tokens -----------------------------------------------------------

void C_STRING::ConvertFraction(const C_STRING& text, double* result) {
  *result = 0.0;
  const int space = text.Search(C_CHAR(u' '));
  const int slash = text.Search(C_CHAR(u'/'));
  if (space < 0 && slash < 0) {
    *result = text.ScanReal(0);
    return;
  }
  if (space >= 0 && slash >= 0) {
    const C_STRING whole = text.GetSlice(0, space - 1);
    const C_STRING numerator = text.GetSlice(space + 1, slash - 1);
    const C_STRING denominator = text.GetSlice(slash + 1, text.number_ - 1);
    if (C_ERROR::Is()) return;
    const double below = denominator.ScanReal(0);
    if (below > 1e-12) {
      const double wholePart = whole.ScanReal(0);
      *result = wholePart + numerator.ScanReal(0) / below;
    }
    return;
  }
  if (slash >= 0) {
    const C_STRING numerator = text.GetSlice(0, slash - 1);
    const C_STRING denominator = text.GetSlice(slash + 1, text.number_ - 1);
    if (C_ERROR::Is()) return;
    const double below = denominator.ScanReal(0);
    if (below > 1e-12) *result = numerator.ScanReal(0) / below;
    return;
  }
  // Only a space: deliberately not a number, so a real followed by a blank
  // reads as 0.0.
}

void C_STRING::ScanToken(C_STRING* token, int start, int* end) const {
  if (start < 0) start = 0;
  if (start >= number_) {
    token->Clear();
    if (end != nullptr) *end = start;
    return;
  }
  const char16_t* text = Units(buffer_);
  int i = start;
  while (i < number_ && (text[i] == u' ' || text[i] == u'\t')) ++i;
  const int first = i;
  bool quoted = false;
  while (i < number_) {
    const char16_t c = text[i];
    if (c == u'"') {
      quoted = !quoted;
    } else if (!quoted && (c == u' ' || c == u'\t')) {
      break;
    }
    ++i;
  }
  int from = first;
  int count = i - first;
  if (count >= 2 && text[first] == u'"' && text[i - 1] == u'"') {
    ++from;
    count -= 2;
  }
  if (end != nullptr) *end = i;
  if (token == this) {
    // Reading a token into the string it comes from: keep only the token.
    std::memmove(token->buffer_, buffer_ + from, count * sizeof(C_CHAR));
    token->number_ = static_cast<unsigned short>(count);
    if (token->buffer_ != nullptr) token->buffer_[count] = C_CHAR::VOID;
    return;
  }
  token->number_ = 0;
  if (count == 0) {
    if (token->buffer_ != nullptr) token->buffer_[0] = C_CHAR::VOID;
    return;
  }
  if (token->size_ < count + 1) {
    C_CHAR* fresh = qorc::NewArray<C_CHAR>(static_cast<std::size_t>(count) + 1);
    if (fresh == nullptr) return;
    delete[] token->buffer_;
    token->buffer_ = fresh;
    token->size_ = static_cast<unsigned short>(count + 1);
  }
  std::memcpy(token->buffer_, buffer_ + from, count * sizeof(C_CHAR));
  token->number_ = static_cast<unsigned short>(count);
  token->buffer_[count] = C_CHAR::VOID;
}
