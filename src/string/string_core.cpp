// C_STRING storage, growth, ownership, construction, assignment, appending
// and comparison.
#include <qorc/string.h>

#include <cstring>

#include "foundation/library.h"
#include "platform/text.h"
#include "string/string_internal.h"

const C_STRING C_STRING::VOID;

namespace qorc {

int TextLength(const char16_t* text) {
  int length = 0;
  while (length < C_STRING::MAX_SIZE - 1 && text[length] != 0) ++length;
  return length;
}

char16_t* Units(C_CHAR* buffer) { return reinterpret_cast<char16_t*>(buffer); }
const char16_t* Units(const C_CHAR* buffer) { return reinterpret_cast<const char16_t*>(buffer); }

}  // namespace qorc

using qorc::Units;

const char16_t* C_STRING::EmptyText() {
  static const char16_t empty[1] = {0};
  return empty;
}

C_STRING::~C_STRING() { delete[] buffer_; }

// Storage and growth ----------------------------------------------------------

void C_STRING::ClearAndDelete() {
  delete[] buffer_;
  buffer_ = nullptr;
  size_ = 0;
  number_ = 0;
}

void C_STRING::Grow(int capacity) {
  if (size_ >= capacity) return;
  if (capacity > MAX_SIZE) {
    CerrValueTooHigh.Trigger();
    return;
  }
  C_CHAR* grown = qorc::NewArray<C_CHAR>(static_cast<std::size_t>(capacity));
  if (grown == nullptr) return;
  if (number_ > 0) std::memcpy(grown, buffer_, number_ * sizeof(C_CHAR));
  delete[] buffer_;
  buffer_ = grown;
  size_ = static_cast<unsigned short>(capacity);
}

void C_STRING::GrowAuto(int capacity) {
  if (size_ >= capacity) return;
  if (capacity > MAX_SIZE) {
    CerrValueTooHigh.Trigger();
    return;
  }
  int doubled = 2 * size_;
  if (doubled > MAX_SIZE) doubled = MAX_SIZE;
  int chosen = capacity;
  if (chosen < 10) chosen = 10;
  if (chosen < doubled) chosen = doubled;
  Grow(chosen);
}

void C_STRING::Attach(C_CHAR** buffer, int size) {
  delete[] buffer_;
  buffer_ = *buffer;
  *buffer = nullptr;
  number_ = static_cast<unsigned short>(buffer_ == nullptr ? 0 : qorc::TextLength(Units(buffer_)));
  size_ = static_cast<unsigned short>(size > number_ ? size : number_ + 1);
}

C_CHAR* C_STRING::Detach(int* number, int* size) {
  C_CHAR* detached = buffer_;
  if (number != nullptr) *number = number_;
  if (size != nullptr) *size = size_;
  buffer_ = nullptr;
  size_ = 0;
  number_ = 0;
  return detached;
}

void C_STRING::Replace(int size, int number, C_CHAR** buffer) {
  delete[] buffer_;
  buffer_ = *buffer;
  *buffer = nullptr;
  size_ = static_cast<unsigned short>(size);
  number_ = static_cast<unsigned short>(number);
}

C_STRING* C_STRING::Clone() const { return qorc::NewObject<C_STRING>(*this); }
C_STRING* C_STRING::CloneSame() const { return qorc::NewObject<C_STRING>(*this); }

// Construction and assignment -------------------------------------------------

// Stores a copy of the text, reusing the buffer when it is large enough and
// otherwise replacing it by one of exactly count + 1 characters. When memory
// runs out the string is left empty with no buffer. Texts longer than the
// longest string are cut there.
void C_STRING::AssignUnits(const char16_t* text, int count) {
  if (count > MAX_SIZE - 1) count = MAX_SIZE - 1;
  if (count == 0) {
    number_ = 0;
    if (buffer_ != nullptr) buffer_[0] = C_CHAR::VOID;
    return;
  }
  if (size_ >= count + 1) {
    std::memmove(Units(buffer_), text, count * sizeof(char16_t));
  } else {
    C_CHAR* fresh = qorc::NewArray<C_CHAR>(static_cast<std::size_t>(count) + 1);
    if (fresh == nullptr) {
      ClearAndDelete();
      return;
    }
    std::memcpy(Units(fresh), text, count * sizeof(char16_t));
    delete[] buffer_;
    buffer_ = fresh;
    size_ = static_cast<unsigned short>(count + 1);
  }
  number_ = static_cast<unsigned short>(count);
  buffer_[number_] = C_CHAR::VOID;
}

C_STRING::C_STRING(const C_STRING& other) : C_STRING() { AssignUnits(Units(other.buffer_), other.number_); }

C_STRING::C_STRING(const char16_t* text) : C_STRING() {
  if (text != nullptr) AssignUnits(text, qorc::TextLength(text));
}

C_STRING::C_STRING(const C_CHAR* text) : C_STRING() { AssignUnits(Units(text), qorc::TextLength(Units(text))); }

C_STRING::C_STRING(const char* text) : C_STRING() {
  if (text == nullptr) return;
  if (!CcharMBCS) {
    AssignBytes(text, static_cast<int>(std::strlen(text)));
    return;
  }
  // The buffer is exactly as large as the conversion asks, terminator
  // included: an empty text leaves a one-character buffer.
  const int byteCount = static_cast<int>(std::strlen(text)) + 1;
  const int needed = qorc::platform::MultiByteToWide(qorc::LibraryCodePage(), text, byteCount, nullptr, 0);
  if (needed <= 0 || needed > MAX_SIZE) return;
  buffer_ = qorc::NewArray<C_CHAR>(static_cast<std::size_t>(needed));
  if (buffer_ == nullptr) return;
  qorc::platform::MultiByteToWide(qorc::LibraryCodePage(), text, byteCount, Units(buffer_), needed);
  size_ = static_cast<unsigned short>(needed);
  number_ = static_cast<unsigned short>(needed - 1);
}

namespace {

// The UTF-16 units of one wide character: wchar_t is a UTF-16 unit where it
// has 16 bits (Windows) and a UTF-32 character where it has 32 (POSIX).
int WideCharUnits(wchar_t c, char16_t units[2]) {
  if constexpr (sizeof(wchar_t) == sizeof(char16_t)) {
    units[0] = static_cast<char16_t>(c);
    return 1;
  } else {
    return qorc::EncodeUtf16(static_cast<char32_t>(c), units);
  }
}

}  // namespace

C_STRING::C_STRING(const wchar_t* text) : C_STRING() {
  if (text == nullptr) return;
  int count = 0;
  char16_t units[2];
  for (const wchar_t* p = text; *p != 0; ++p) count += WideCharUnits(*p, units);
  if (count == 0) return;
  if (count > MAX_SIZE - 1) count = MAX_SIZE - 1;
  // A constructor fails only when its allocation does, whatever is pending.
  buffer_ = qorc::NewArray<C_CHAR>(static_cast<std::size_t>(count) + 1);
  if (buffer_ == nullptr) return;
  size_ = static_cast<unsigned short>(count + 1);
  int stored = 0;
  for (const wchar_t* p = text; *p != 0; ++p) {
    const int n = WideCharUnits(*p, units);
    if (stored + n > count) break;
    for (int i = 0; i < n; ++i) buffer_[stored++] = C_CHAR(units[i]);
  }
  number_ = static_cast<unsigned short>(stored);
  buffer_[stored] = C_CHAR::VOID;
}

C_STRING::C_STRING(int n, const char* text) : C_STRING() { AssignBytes(text, n); }

C_STRING::C_STRING(int n, const char16_t* text) : C_STRING() {
  if (n > 0) AssignUnits(text, n);
}

C_STRING& C_STRING::operator=(const C_STRING& other) {
  if (this != &other) AssignUnits(Units(other.buffer_), other.number_);
  return *this;
}

C_STRING& C_STRING::operator=(const char16_t* text) {
  AssignUnits(text, text == nullptr ? 0 : qorc::TextLength(text));
  return *this;
}

C_STRING& C_STRING::operator=(const char* text) {
  if (text == nullptr) {
    AssignUnits(nullptr, 0);
    return *this;
  }
  const int byteCount = static_cast<int>(std::strlen(text));
  if (!CcharMBCS) {
    AssignBytes(text, byteCount);
    return *this;
  }
  number_ = 0;
  const int needed = qorc::platform::MultiByteToWide(qorc::LibraryCodePage(), text, byteCount + 1, nullptr, 0);
  if (needed <= 0) return *this;
  // Growth fails only by leaving the buffer short. An error that was already
  // pending is no reason to leave the string empty: the error machinery
  // assigns keys exactly then.
  Grow(needed);
  if (size_ < needed) return *this;
  qorc::platform::MultiByteToWide(qorc::LibraryCodePage(), text, byteCount + 1, Units(buffer_), needed);
  number_ = static_cast<unsigned short>(needed - 1);
  return *this;
}

// Bytes zero-extended, no code page.
void C_STRING::AssignBytes(const char* bytes, int count) {
  if (count <= 0 || bytes == nullptr) {
    AssignUnits(nullptr, 0);
    return;
  }
  if (count > MAX_SIZE - 1) count = MAX_SIZE - 1;
  if (size_ < count + 1) {
    C_CHAR* fresh = qorc::NewArray<C_CHAR>(static_cast<std::size_t>(count) + 1);
    if (fresh == nullptr) {
      ClearAndDelete();
      return;
    }
    delete[] buffer_;
    buffer_ = fresh;
    size_ = static_cast<unsigned short>(count + 1);
  }
  for (int i = 0; i < count; ++i) buffer_[i] = C_CHAR(static_cast<char16_t>(static_cast<unsigned char>(bytes[i])));
  number_ = static_cast<unsigned short>(count);
  buffer_[number_] = C_CHAR::VOID;
}

// Appending -------------------------------------------------------------------

void C_STRING::AppendGrowing(C_CHAR c) {
  GrowAuto(number_ + 2);
  if (C_ERROR::Is()) return;
  buffer_[number_++] = c;
  buffer_[number_] = C_CHAR::VOID;
}

void C_STRING::AppendUnits(const char16_t* text, int count) {
  GrowAuto(number_ + count + 1);
  if (C_ERROR::Is() || count == 0) return;
  std::memmove(Units(buffer_) + number_, text, count * sizeof(char16_t));
  number_ = static_cast<unsigned short>(number_ + count);
  buffer_[number_] = C_CHAR::VOID;
}

void C_STRING::Append(const C_STRING& other) {
  // Appending a string to itself: the length is taken before growing, the
  // characters after, from wherever the buffer now is.
  const int count = other.number_;
  GrowAuto(number_ + count + 1);
  if (C_ERROR::Is() || count == 0) return;
  std::memmove(buffer_ + number_, other.buffer_, count * sizeof(char16_t));
  number_ = static_cast<unsigned short>(number_ + count);
  buffer_[number_] = C_CHAR::VOID;
}

C_STRING& C_STRING::operator+=(const C_STRING& other) {
  if (other.number_ > 0) Append(other);
  return *this;
}

C_STRING& C_STRING::operator+=(const char16_t* text) {
  if (text != nullptr && text[0] != 0) AppendUnits(text, qorc::TextLength(text));
  return *this;
}

C_STRING& C_STRING::operator+=(const char* text) {
  if (text == nullptr) return *this;
  const int byteCount = static_cast<int>(std::strlen(text));
  if (!CcharMBCS) {
    GrowAuto(number_ + byteCount + 1);
    if (C_ERROR::Is()) return *this;
    for (int i = 0; i < byteCount; ++i) {
      buffer_[number_++] = C_CHAR(static_cast<char16_t>(static_cast<unsigned char>(text[i])));
    }
    if (buffer_ != nullptr) buffer_[number_] = C_CHAR::VOID;
    return *this;
  }
  const int needed = qorc::platform::MultiByteToWide(qorc::LibraryCodePage(), text, byteCount + 1, nullptr, 0);
  if (needed <= 0) return *this;
  // Exact growth here, not doubling.
  Grow(number_ + needed);
  if (C_ERROR::Is() || size_ < number_ + needed) return *this;
  qorc::platform::MultiByteToWide(qorc::LibraryCodePage(), text, byteCount + 1, Units(buffer_) + number_, needed);
  number_ = static_cast<unsigned short>(number_ + needed - 1);
  return *this;
}

C_STRING operator+(const C_STRING& a, const C_STRING& b) {
  C_STRING result;
  const int count = a.number_ + b.number_;
  if (count == 0) return result;
  result.Grow(count + 1);
  if (result.size_ < count + 1) return result;
  if (a.number_ > 0) std::memcpy(result.buffer_, a.buffer_, a.number_ * sizeof(C_CHAR));
  if (b.number_ > 0) std::memcpy(result.buffer_ + a.number_, b.buffer_, b.number_ * sizeof(C_CHAR));
  result.number_ = static_cast<unsigned short>(count);
  result.buffer_[count] = C_CHAR::VOID;
  return result;
}

// Comparison ------------------------------------------------------------------

int C_STRING::CompareCodes(const C_STRING& o) const {
  const int common = number_ < o.number_ ? number_ : o.number_;
  const char16_t* a = Units(buffer_);
  const char16_t* b = Units(o.buffer_);
  for (int i = 0; i < common; ++i) {
    if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
  }
  return number_ < o.number_ ? -1 : (number_ > o.number_ ? 1 : 0);
}

int C_STRING::operator==(const C_STRING& o) const {
  return number_ == o.number_ && (number_ == 0 || std::memcmp(buffer_, o.buffer_, number_ * sizeof(C_CHAR)) == 0);
}

int C_STRING::operator==(const char16_t* text) const {
  const char16_t* mine = GetWCHAR();
  int i = 0;
  for (; i < number_; ++i) {
    // A string holding a zero is longer than the text: stop at its terminator.
    if (text[i] == 0 || mine[i] != text[i]) return 0;
  }
  return text[i] == 0;
}

namespace {

int CollateStrings(const C_STRING& a, const C_STRING& b, bool ignoreCase) {
  if (a.IsVoid()) return b.IsVoid() ? 0 : -1;
  if (b.IsVoid()) return 1;
  return qorc::platform::Collate(a.GetWCHAR(), a.GetNumber(), b.GetWCHAR(), b.GetNumber(), ignoreCase);
}

}  // namespace

int C_STRING::Compare(const C_STRING& other) const { return CollateStrings(*this, other, false); }
int C_STRING::CompareNoCase(const C_STRING& other) const { return CollateStrings(*this, other, true); }
int C_STRING::Compare(const C_STRING* a, const C_STRING* b) { return CollateStrings(*a, *b, false); }
int C_STRING::CompareNoCase(const C_STRING* a, const C_STRING* b) { return CollateStrings(*a, *b, true); }
