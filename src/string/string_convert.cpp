// C_STRING conversions to and from 8-bit, OEM, UTF-8 and wide buffers.
#include <qorc/string.h>

#include <cstring>

#include "foundation/library.h"
#include "platform/text.h"
#include "string/string_internal.h"

using qorc::Units;

namespace {

// Size of the areas that the kept conversions return.
constexpr int kKeptArea = 1024;

char Latin1OrQuestion(char16_t c) { return c < 0x100 ? static_cast<char>(c) : '?'; }

}  // namespace

char16_t* C_STRING::GetNewWCHAR() const {
  char16_t* copy = qorc::NewArray<char16_t>(static_cast<std::size_t>(number_) + 1);
  if (copy == nullptr) return nullptr;
  if (number_ > 0) std::memcpy(copy, buffer_, number_ * sizeof(char16_t));
  copy[number_] = 0;
  return copy;
}

const char* C_STRING::GetANSI() const {
  static char area[kKeptArea];
  const int count = number_ < kKeptArea - 1 ? number_ : kKeptArea - 1;
  const char16_t* text = Units(buffer_);
  for (int i = 0; i < count; ++i) area[i] = Latin1OrQuestion(text[i]);
  area[count] = '\0';
  return area;
}

char* C_STRING::GetNewANSI() const {
  char* bytes = qorc::NewArray<char>(static_cast<std::size_t>(number_) + 1);
  if (bytes == nullptr) return nullptr;
  const char16_t* text = Units(buffer_);
  for (int i = 0; i < number_; ++i) bytes[i] = Latin1OrQuestion(text[i]);
  bytes[number_] = '\0';
  return bytes;
}

// The conversion into the library code page fails as the platform's does
// when the result, terminator included, does not fit the kept area.
const char* C_STRING::GetMBCS() const {
  static char area[kKeptArea];
  const int length = qorc::platform::WideToMultiByte(qorc::LibraryCodePage(), GetWCHAR(), number_, area, kKeptArea);
  if (length < 0 || length >= kKeptArea) {
    area[0] = '\0';
  } else {
    area[length] = '\0';
  }
  area[kKeptArea - 1] = '\0';
  return area;
}

char* C_STRING::GetNewMBCS() const {
  const int codePage = qorc::LibraryCodePage();
  const int length = qorc::platform::WideToMultiByte(codePage, GetWCHAR(), number_, nullptr, 0);
  if (length < 0) {
    CerrStringCannotConvertMBCS.TriggerMild();
    return nullptr;
  }
  char* bytes = qorc::NewArray<char>(static_cast<std::size_t>(length) + 1);
  if (bytes == nullptr) return nullptr;
  qorc::platform::WideToMultiByte(codePage, GetWCHAR(), number_, bytes, length + 1);
  bytes[length] = '\0';
  return bytes;
}

const char* C_STRING::GetOEM() const {
  static char area[kKeptArea];
  const int length = qorc::platform::WideToMultiByte(qorc::OemCodePage(), GetWCHAR(), number_, area, kKeptArea - 1);
  if (length < 0 || C_ERROR::Is()) {
    area[0] = '\0';
  } else {
    area[length < kKeptArea - 1 ? length : kKeptArea - 1] = '\0';
  }
  area[kKeptArea - 1] = '\0';
  return area;
}

char* C_STRING::GetNewOEM() const {
  const std::size_t capacity = 2 * static_cast<std::size_t>(number_) + 1;
  char* bytes = qorc::NewArray<char>(capacity);
  if (bytes == nullptr) return nullptr;
  const int length = qorc::platform::WideToMultiByte(qorc::OemCodePage(), GetWCHAR(), number_, bytes,
                                                     static_cast<int>(capacity) - 1);
  if (length < 0 || length > static_cast<int>(capacity) - 1) {
    delete[] bytes;
    return GetNewANSI();
  }
  bytes[length] = '\0';
  return bytes;
}

// Each code unit is encoded on its own; surrogate halves are not paired.
char* C_STRING::GetNewUTF8() const {
  const char16_t* text = Units(buffer_);
  int count = 0;
  for (int i = 0; i < number_; ++i) count += text[i] <= 0x7F ? 1 : (text[i] <= 0x7FF ? 2 : 3);
  if (count > MAX_SIZE) {
    CerrInternalError.Trigger();
    return nullptr;
  }
  char* bytes = qorc::NewArray<char>(static_cast<std::size_t>(count) + 1);
  if (bytes == nullptr) return nullptr;
  unsigned char* out = reinterpret_cast<unsigned char*>(bytes);
  for (int i = 0; i < number_; ++i) {
    const char16_t c = text[i];
    if (c <= 0x7F) {
      *out++ = static_cast<unsigned char>(c);
    } else if (c <= 0x7FF) {
      *out++ = static_cast<unsigned char>(0xC0 | (c >> 6));
      *out++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
    } else {
      *out++ = static_cast<unsigned char>(0xE0 | (c >> 12));
      *out++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
      *out++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
    }
  }
  *out = 0;
  return bytes;
}

void C_STRING::FromANSI(const char* text) {
  const int count = text == nullptr ? 0 : static_cast<int>(std::strlen(text));
  number_ = 0;
  Grow(count + 1);
  if (C_ERROR::Is() || size_ < count + 1) return;
  for (int i = 0; i < count; ++i) buffer_[i] = C_CHAR(static_cast<char16_t>(static_cast<unsigned char>(text[i])));
  number_ = static_cast<unsigned short>(count);
  buffer_[count] = C_CHAR::VOID;
}

namespace {

// Bytes a UTF-8 sequence takes by its lead byte alone: a four-byte lead is
// deliberately taken as a three-byte sequence, and continuation bytes are not
// checked. A sequence cut by the end of the text is cut there.
int Utf8Step(const unsigned char* bytes, int remaining) {
  const int step = bytes[0] < 0x80 ? 1 : (bytes[0] < 0xE0 ? 2 : 3);
  return step < remaining ? step : remaining;
}

char16_t Utf8Decode(const unsigned char* b, int step) {
  const unsigned b1 = step > 1 ? b[1] : 0;
  const unsigned b2 = step > 2 ? b[2] : 0;
  if (b[0] < 0x80) return b[0];
  if (b[0] < 0xE0) return static_cast<char16_t>(((b[0] & 0x1F) << 6) | (b1 & 0x3F));
  return static_cast<char16_t>((b[0] << 12) | ((b1 & 0x3F) << 6) | (b2 & 0x3F));
}

}  // namespace

void C_STRING::FromUTF8(const char* text) {
  number_ = 0;
  if (text == nullptr) return;
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text);
  const int byteCount = static_cast<int>(std::strlen(text));
  int count = 0;
  for (int i = 0; i < byteCount; i += Utf8Step(bytes + i, byteCount - i)) ++count;
  if (count > MAX_SIZE - 1) {
    CerrValueTooHigh.Trigger();
    return;
  }
  Grow(count + 1);
  if (C_ERROR::Is() || size_ < count + 1) return;
  int n = 0;
  for (int i = 0; i < byteCount;) {
    const int step = Utf8Step(bytes + i, byteCount - i);
    buffer_[n++] = C_CHAR(Utf8Decode(bytes + i, step));
    i += step;
  }
  number_ = static_cast<unsigned short>(n);
  buffer_[n] = C_CHAR::VOID;
}
