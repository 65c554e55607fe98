// Functions on zero-terminated 8-bit text in the library code page and on
// zero-terminated UTF-16 text.
#include <qorc/error.h>
#include <qorc/memory.h>
#include <qorc/rawstring.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "foundation/library.h"
#include "platform/text.h"

namespace {

// Bytes before the terminator, at most `limit`.
int BoundedLength(const char* text, int limit) {
  int length = 0;
  while (length < limit && text[length] != '\0') ++length;
  return length;
}

// Steps through 8-bit text one character at a time in the library code page.
class CharWalker {
 public:
  CharWalker() : codePage_(qorc::LibraryCodePage()), maxBytes_(qorc::platform::MaxCharBytes(codePage_)) {}

  // Bytes of the character at p; 0 at the terminator. A byte that starts no
  // complete character of the code page is a character of its own.
  int Length(const char* p) const {
    if (*p == '\0') return 0;
    if (maxBytes_ <= 1) return 1;
    const int available = BoundedLength(p, maxBytes_);
    if (available <= 1) return 1;
    return qorc::platform::CharByteLength(codePage_, p, available);
  }

  // Bytes taken by at most `count` characters from p.
  int BytesOf(const char* p, int count) const {
    int bytes = 0;
    for (int n = 0; n < count; ++n) {
      const int step = Length(p + bytes);
      if (step == 0) break;
      bytes += step;
    }
    return bytes;
  }

  int CodePage() const { return codePage_; }
  int MaxBytes() const { return maxBytes_; }

 private:
  int codePage_;
  int maxBytes_;
};

// The text as UTF-16 through the library code page; false when the code
// page cannot be used or memory ran out (CerrMemoryFull is then pending).
bool Widen(int codePage, const char* bytes, int count, std::u16string* wide) {
  if (count == 0) {
    wide->clear();
    return true;
  }
  const int needed = qorc::platform::MultiByteToWide(codePage, bytes, count, nullptr, 0);
  if (needed < 0) return false;
  try {
    wide->resize(static_cast<std::size_t>(needed));
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
    return false;
  }
  qorc::platform::MultiByteToWide(codePage, bytes, count, wide->data(), needed);
  return true;
}

int Sign(int order) { return order < 0 ? -1 : (order > 0 ? 1 : 0); }

// Collation of two 8-bit texts of the given byte counts. Where the text
// cannot be converted, the bytes are compared instead.
int CollateBytes(const char* a, int aCount, const char* b, int bCount, bool ignoreCase) {
  const int codePage = qorc::LibraryCodePage();
  std::u16string wideA;
  std::u16string wideB;
  if (!Widen(codePage, a, aCount, &wideA) || !Widen(codePage, b, bCount, &wideB)) {
    const int common = aCount < bCount ? aCount : bCount;
    const int order = std::memcmp(a, b, static_cast<std::size_t>(common));
    if (order != 0) return Sign(order);
    return aCount < bCount ? -1 : (aCount > bCount ? 1 : 0);
  }
  return qorc::platform::Collate(wideA.data(), static_cast<int>(wideA.size()), wideB.data(),
                                 static_cast<int>(wideB.size()), ignoreCase);
}

int CompareBytes(const char* a, const char* b, bool ignoreCase) {
  return CollateBytes(a, static_cast<int>(std::strlen(a)), b, static_cast<int>(std::strlen(b)), ignoreCase);
}

// Collation of the first count characters (not bytes) of each text.
int CompareCharacters(int count, const char* a, const char* b, bool ignoreCase) {
  if (count <= 0) return 0;
  const CharWalker walker;
  return CollateBytes(a, walker.BytesOf(a, count), b, walker.BytesOf(b, count), ignoreCase);
}

int UnitLength(const char16_t* text) {
  int length = 0;
  while (text[length] != 0) ++length;
  return length;
}

}  // namespace

// 8-bit text -----------------------------------------------------------------------

void CastrCopy(const char* source, char* destination) { std::strcpy(destination, source); }

void CastrNcopy(int count, const char* source, char* destination) {
  if (count <= 0) return;
  const CharWalker walker;
  int bytes = 0;
  int copied = 0;
  while (copied < count) {
    const int step = walker.Length(source + bytes);
    if (step == 0) break;
    bytes += step;
    ++copied;
  }
  std::memcpy(destination, source, static_cast<std::size_t>(bytes));
  // One zero for every character the source lacked.
  std::memset(destination + bytes, 0, static_cast<std::size_t>(count - copied));
}

void CastrConcat(const char* source, char* destination) { std::strcat(destination, source); }

void CastrNconcat(int count, const char* source, char* destination) {
  char* end = destination + std::strlen(destination);
  const int bytes = count > 0 ? CharWalker().BytesOf(source, count) : 0;
  std::memcpy(end, source, static_cast<std::size_t>(bytes));
  end[bytes] = '\0';
}

int CastrLength(const char* text) { return static_cast<int>(std::strlen(text)); }

int CastrCharNumber(const char* text) {
  const CharWalker walker;
  if (walker.MaxBytes() <= 1) return static_cast<int>(std::strlen(text));
  int count = 0;
  for (int step = walker.Length(text); step > 0; step = walker.Length(text)) {
    text += step;
    ++count;
  }
  return count;
}

int CastrComp(const char* a, const char* b) { return CompareBytes(a, b, false); }
int CastrNcomp(int count, const char* a, const char* b) { return CompareCharacters(count, a, b, false); }
int CastrCompI(const char* a, const char* b) { return CompareBytes(a, b, true); }
int CastrNcompI(int count, const char* a, const char* b) { return CompareCharacters(count, a, b, true); }

char* CastrInc(const char* position) {
  const int step = CharWalker().Length(position);
  return const_cast<char*>(position + (step > 0 ? step : 1));
}

char* CastrDec(const char* position, const char* start) {
  if (position <= start) return nullptr;
  // Which bytes are trail bytes is known only from the start of the text.
  const CharWalker walker;
  const char* p = start;
  for (;;) {
    const int step = walker.Length(p);
    const char* next = p + (step > 0 ? step : 1);
    if (next >= position) return const_cast<char*>(p);
    p = next;
  }
}

void CastrDuplic(const char* source, char** result) { CmemDuplic(source, result); }

int CastrCharToWideChar(const char* source, char16_t* result) {
  if (*source == '\0') {
    *result = 0;
    return 0;
  }
  const CharWalker walker;
  // Never read past the terminator, whatever the longest character is.
  const int available = BoundedLength(source, walker.MaxBytes());
  return qorc::platform::DecodeOneChar(walker.CodePage(), source, available, result);
}

int CastrWideCharToChar(char16_t character, char* result) {
  return qorc::platform::EncodeOneCharExact(qorc::LibraryCodePage(), character, result);
}

// UTF-16 text ----------------------------------------------------------------------

void CstrCopy(const char16_t* source, char16_t* destination) {
  std::memmove(destination, source, (static_cast<std::size_t>(UnitLength(source)) + 1) * sizeof(char16_t));
}

void CstrNcopy(int count, const char16_t* source, char16_t* destination) {
  int i = 0;
  for (; i < count && source[i] != 0; ++i) destination[i] = source[i];
  for (; i < count; ++i) destination[i] = 0;
}

void CstrConcat(const char16_t* source, char16_t* destination) {
  CstrCopy(source, destination + UnitLength(destination));
}

void CstrNconcat(int count, const char16_t* source, char16_t* destination) {
  char16_t* end = destination + UnitLength(destination);
  int i = 0;
  for (; i < count && source[i] != 0; ++i) end[i] = source[i];
  end[i] = 0;
}

int CstrLength(const char16_t* text) { return UnitLength(text); }
int CstrCharNumber(const char16_t* text) { return UnitLength(text); }

int CstrComp(const char16_t* a, const char16_t* b) {
  return qorc::platform::Collate(a, UnitLength(a), b, UnitLength(b), false);
}

namespace {

int LengthUpTo(const char16_t* text, int count) {
  int length = 0;
  while (length < count && text[length] != 0) ++length;
  return length;
}

}  // namespace

int CstrNcomp(int count, const char16_t* a, const char16_t* b) {
  if (count <= 0) return 0;
  return qorc::platform::Collate(a, LengthUpTo(a, count), b, LengthUpTo(b, count), false);
}

int CstrCompI(const char16_t* a, const char16_t* b) {
  return qorc::platform::Collate(a, UnitLength(a), b, UnitLength(b), true);
}

int CstrNcompI(int count, const char16_t* a, const char16_t* b) {
  if (count <= 0) return 0;
  return qorc::platform::Collate(a, LengthUpTo(a, count), b, LengthUpTo(b, count), true);
}

char16_t* CstrInc(const char16_t* position) { return const_cast<char16_t*>(position + 1); }

char16_t* CstrDec(const char16_t* position, const char16_t* start) {
  return position <= start ? nullptr : const_cast<char16_t*>(position - 1);
}

void CstrDuplic(const char16_t* source, char16_t** result) {
  void* copy = nullptr;
  CmemDuplic((UnitLength(source) + 1) * static_cast<int>(sizeof(char16_t)), source, &copy);
  *result = static_cast<char16_t*>(copy);
}

// The second names ---------------------------------------------------------------------

void CwstrCopy(const char16_t* source, char16_t* destination) { CstrCopy(source, destination); }
void CwstrNcopy(int count, const char16_t* source, char16_t* destination) { CstrNcopy(count, source, destination); }
void CwstrConcat(const char16_t* source, char16_t* destination) { CstrConcat(source, destination); }
void CwstrNconcat(int count, const char16_t* source, char16_t* destination) { CstrNconcat(count, source, destination); }
int CwstrCharNumber(const char16_t* text) { return CstrCharNumber(text); }
int CwstrComp(const char16_t* a, const char16_t* b) { return CstrComp(a, b); }
int CwstrNcomp(int count, const char16_t* a, const char16_t* b) { return CstrNcomp(count, a, b); }
int CwstrCompI(const char16_t* a, const char16_t* b) { return CstrCompI(a, b); }
int CwstrNcompI(int count, const char16_t* a, const char16_t* b) { return CstrNcompI(count, a, b); }
char16_t* CwstrInc(const char16_t* position) { return CstrInc(position); }
char16_t* CwstrDec(const char16_t* position, const char16_t* start) { return CstrDec(position, start); }
void CwstrDuplic(const char16_t* source, char16_t** result) { CstrDuplic(source, result); }

// Sorting ---------------------------------------------------------------------------------

void Cqsort(void* base, int count, int size, int (*compare)(const void*, const void*)) {
  if (count < 2 || size <= 0) return;
  std::qsort(base, static_cast<std::size_t>(count), static_cast<std::size_t>(size), compare);
}
