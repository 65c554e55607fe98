// C_STRING text coding (the escape 0x00FF and four hexadecimal digits),
// quote escaping, and the input and display form of the technical symbols.
#include <qorc/memory.h>
#include <qorc/string.h>

#include <cstring>

#include "foundation/library.h"
#include "string/string_internal.h"
#include "string/string_search.h"

using qorc::Units;

namespace {

constexpr char16_t kHexDigits[] = u"0123456789ABCDEF";

int HexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

bool NeedsCoding(char16_t c) { return c >= 0x00FF; }

}  // namespace

// Coding ------------------------------------------------------------------------

void C_STRING::Encode() {
  const char16_t* text = Units(buffer_);
  int count = 0;
  for (int i = 0; i < number_; ++i) count += NeedsCoding(text[i]) ? 1 : 0;
  if (count == 0) return;
  const long long coded = number_ + 4LL * count;
  // A coded text longer than the longest string cannot be stored.
  if (coded > MAX_SIZE - 1) {
    CerrValueTooHigh.Trigger();
    return;
  }
  C_CHAR* fresh = qorc::NewArray<C_CHAR>(static_cast<std::size_t>(coded) + 1);
  if (fresh == nullptr || C_ERROR::Is()) {
    delete[] fresh;
    return;
  }
  char16_t* out = Units(fresh);
  for (int i = 0; i < number_; ++i) {
    const char16_t c = text[i];
    if (!NeedsCoding(c)) {
      *out++ = c;
      continue;
    }
    *out++ = C_CHAR::CODE;
    *out++ = kHexDigits[(c >> 12) & 0xF];
    *out++ = kHexDigits[(c >> 8) & 0xF];
    *out++ = kHexDigits[(c >> 4) & 0xF];
    *out++ = kHexDigits[c & 0xF];
  }
  *out = 0;
  delete[] buffer_;
  buffer_ = fresh;
  number_ = static_cast<unsigned short>(coded);
  size_ = static_cast<unsigned short>(coded + 1);
}

// An escape stands for the character whose code the up to four hexadecimal
// digits behind it give, and reading moves on five places whatever those
// digits were. An escape with no hexadecimal digit at all behind it is not
// text that coding produced; it is kept as the character 0x00FF itself and
// reading moves on one place, so that no text is lost.
void C_STRING::Decode() {
  char16_t* text = Units(buffer_);
  const int length = number_;
  int read = qorc::FindUnit(text, length, 0, C_CHAR::CODE);
  if (read < 0) return;
  int write = read;
  while (read < length) {
    const char16_t c = text[read];
    if (c != static_cast<char16_t>(C_CHAR::CODE)) {
      text[write++] = c;
      ++read;
      continue;
    }
    int value = 0;
    int digits = 0;
    while (digits < 4 && read + 1 + digits < length) {
      const int digit = HexValue(text[read + 1 + digits]);
      if (digit < 0) break;
      value = value * 16 + digit;
      ++digits;
    }
    if (digits == 0) {
      text[write++] = c;
      ++read;
      continue;
    }
    text[write++] = static_cast<char16_t>(value);
    read += 5;
  }
  number_ = static_cast<unsigned short>(write);
  buffer_[write] = C_CHAR::VOID;
}

void C_STRING::Decode(const char* text) {
  FromANSI(text);
  if (!C_ERROR::Is()) Decode();
}

// Quote escaping -------------------------------------------------------------------

// Backslashes already present are not doubled, so the escaping cannot be
// undone for text that holds a backslash before a quote; hosts rely on the
// plain form.
void C_STRING::ToSpecial() {
  int quotes = 0;
  const char16_t* text = Units(buffer_);
  for (int i = 0; i < number_; ++i) quotes += text[i] == u'"' ? 1 : 0;
  if (quotes == 0) return;
  const int length = number_;
  GrowAuto(length + quotes + 1);
  if (C_ERROR::Is()) return;
  char16_t* units = Units(buffer_);
  int write = length + quotes;
  units[write] = 0;
  for (int read = length - 1; read >= 0; --read) {
    units[--write] = units[read];
    if (units[read] == u'"') units[--write] = u'\\';
  }
  number_ = static_cast<unsigned short>(length + quotes);
}

void C_STRING::FromSpecial() {
  char16_t* text = Units(buffer_);
  int write = 0;
  for (int read = 0; read < number_; ++read) {
    if (text[read] == u'\\' && read + 1 < number_ && text[read + 1] == u'"') continue;
    text[write++] = text[read];
  }
  if (write == number_) return;
  number_ = static_cast<unsigned short>(write);
  buffer_[write] = C_CHAR::VOID;
}

// Input and display form -----------------------------------------------------------

namespace {

// The library-wide buffer of GetInputTCHAR, grown with the C runtime heap.
char16_t* g_inputBuffer = nullptr;
int g_inputCapacity = 0;

bool GrowInputBuffer(int capacity) {
  if (capacity <= g_inputCapacity) return true;
  void* block = g_inputBuffer;
  CmemRealloc(capacity * static_cast<int>(sizeof(char16_t)), &block);
  // A failed reallocation leaves the old block in place; a successful one may
  // have moved it, even while an older error is pending.
  if (block != g_inputBuffer || !C_ERROR::Is()) {
    g_inputBuffer = static_cast<char16_t*>(block);
    g_inputCapacity = capacity;
  }
  return !C_ERROR::Is();
}

bool EscapesPercent(char16_t next, char16_t diameter) { return next == u'd' || next == u'%' || next == diameter; }

}  // namespace

const char16_t* C_STRING::GetInputTCHAR() const {
  const char16_t diameter = C_CHAR::GetSpecialChar(C_CHAR::DIAMETER);
  const char16_t degree = C_CHAR::GetSpecialChar(C_CHAR::DEGREE);
  const bool diameterShown = C_CHAR::IsDiameterSymbolSupported();
  const char16_t* text = GetWCHAR();
  const int length = number_;

  // Escape pass: "%" before "d", "%" or the diameter becomes "%%", and the
  // diameter becomes "%d" where the display cannot show it.
  int escaped = length;
  bool escaping = false;
  for (int i = 0; i < length; ++i) {
    if (text[i] == u'%' && i + 1 < length && EscapesPercent(text[i + 1], diameter)) {
      ++escaped;
      escaping = true;
    } else if (text[i] == diameter) {
      if (!diameterShown) ++escaped;
      escaping = true;
    }
  }
  const char16_t* result = text;
  int resultLength = length;
  if (escaping) {
    if (!GrowInputBuffer(escaped + 1)) return text;
    char16_t* out = g_inputBuffer;
    for (int i = 0; i < length; ++i) {
      const char16_t c = text[i];
      if (c == u'%' && i + 1 < length && EscapesPercent(text[i + 1], diameter)) {
        *out++ = u'%';
        *out++ = u'%';
      } else if (c == diameter && !diameterShown) {
        *out++ = u'%';
        *out++ = u'd';
      } else {
        *out++ = c;
      }
    }
    *out = 0;
    result = g_inputBuffer;
    resultLength = static_cast<int>(out - g_inputBuffer);
  }

  // Degree pass: the degree sign is spelled out where the display cannot
  // show it. The buffer is filled from the end, so it may hold the source.
  if (C_CHAR::IsDegreeSymbolSupported()) return result;
  int degrees = 0;
  for (int i = 0; i < resultLength; ++i) degrees += result[i] == degree ? 1 : 0;
  if (degrees == 0) return result;
  const int spelled = resultLength + 2 * degrees;
  // Growing keeps what the escape pass wrote, wherever the buffer moves.
  if (!GrowInputBuffer(spelled + 1)) return text;
  if (!escaping) std::memcpy(g_inputBuffer, text, resultLength * sizeof(char16_t));
  char16_t* units = g_inputBuffer;
  int write = spelled;
  units[write] = 0;
  for (int read = resultLength - 1; read >= 0; --read) {
    if (units[read] == degree) {
      units[--write] = u'g';
      units[--write] = u'e';
      units[--write] = u'd';
    } else {
      units[--write] = units[read];
    }
  }
  return g_inputBuffer;
}

// The reverse of the escape pass, whatever the display flags say. A degree
// sign that was spelled out stays spelled out: "deg" is ordinary text.
void C_STRING::FromInputTCHAR(const char16_t* text) {
  *this = text;
  const char16_t diameter = C_CHAR::GetSpecialChar(C_CHAR::DIAMETER);
  char16_t* units = Units(buffer_);
  int write = 0;
  for (int read = 0; read < number_; ++read) {
    if (units[read] == u'%' && read + 1 < number_) {
      if (units[read + 1] == u'%') {
        units[write++] = u'%';
        ++read;
        continue;
      }
      if (units[read + 1] == u'd') {
        units[write++] = diameter;
        ++read;
        continue;
      }
    }
    units[write++] = units[read];
  }
  if (write == number_) return;
  number_ = static_cast<unsigned short>(write);
  buffer_[write] = C_CHAR::VOID;
}
