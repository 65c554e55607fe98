// Text services through Win32 NLS: code pages by their own numbers, the
// character types and case mappings of the system's tables, and the locale
// collation of CompareStringW.
#include <clocale>
#include <cstring>
#include <new>
#include <vector>

#include "platform/text.h"
#include "platform/windows/win32.h"

namespace qorc::platform {
namespace {

constexpr int kUtf8 = 65001;

int ResolveCodePage(int codePage) { return codePage == 0 ? SystemAnsiCodePage() : codePage; }

// Code pages that take no conversion flags of their own (the UTF forms,
// GB 18030 and the stateful ones).
bool TakesNoFlags(int codePage) {
  return codePage == kUtf8 || codePage == 65000 || codePage == 54936 || codePage == 52936 || codePage == 42 ||
         (codePage >= 50220 && codePage <= 50229) || (codePage >= 57002 && codePage <= 57011);
}

// Runs a conversion that Win32 does all or nothing: the length is asked
// first, and a result longer than the caller's room is made in a scratch
// buffer of which the first `capacity` elements are kept.
template <typename Unit, typename Convert>
int ConvertWithin(Unit* out, int capacity, Convert convert) {
  const int needed = convert(static_cast<Unit*>(nullptr), 0);
  if (needed <= 0 || out == nullptr || capacity <= 0) return needed;
  if (capacity >= needed) return convert(out, capacity) == needed ? needed : -1;
  try {
    std::vector<Unit> scratch(static_cast<std::size_t>(needed));
    if (convert(scratch.data(), needed) != needed) return -1;
    std::memcpy(out, scratch.data(), sizeof(Unit) * static_cast<std::size_t>(capacity));
    return needed;
  } catch (const std::bad_alloc&) {
    return -1;
  }
}

bool ConvertsToOneUnit(int codePage, const char* bytes, int length, char16_t* out) {
  wchar_t units[2];
  const int count = ::MultiByteToWideChar(static_cast<UINT>(codePage), MB_ERR_INVALID_CHARS, bytes, length, units, 2);
  if (count != 1) return false;
  *out = static_cast<char16_t>(units[0]);
  return true;
}

WORD CharType(char16_t c) {
  WORD type = 0;
  const wchar_t unit = static_cast<wchar_t>(c);
  if (!::GetStringTypeW(CT_CTYPE1, &unit, 1, &type)) return 0;
  return type;
}

char16_t MapCase(char16_t c, DWORD flags) {
  // Surrogates have no case of their own.
  if (c >= 0xD800 && c <= 0xDFFF) return c;
  const wchar_t unit = static_cast<wchar_t>(c);
  wchar_t mapped = unit;
  if (::LCMapStringW(LOCALE_INVARIANT, flags, &unit, 1, &mapped, 1) != 1) return c;
  return static_cast<char16_t>(mapped);
}

}  // namespace

int SystemAnsiCodePage() {
  // The ANSI code page of the thread's locale; a locale that has none (one
  // written only in Unicode) gives the system's ANSI page.
  wchar_t digits[8] = {};
  if (::GetLocaleInfoW(::GetThreadLocale(), LOCALE_IDEFAULTANSICODEPAGE, digits, 8) > 0) {
    int page = 0;
    for (const wchar_t* p = digits; *p >= L'0' && *p <= L'9'; ++p) page = page * 10 + (*p - L'0');
    if (page != 0) return page;
  }
  return static_cast<int>(::GetACP());
}

namespace {

// The pair of code pages that OemCodePageFor looks for among the locales.
struct CodePageSearch {
  int ansi;
  int oem;
};

// Called for each locale: stops at the first whose ANSI page is the one
// wanted, keeping its OEM page. A function of the system's calling
// convention, as 32-bit Windows needs.
BOOL CALLBACK KeepOemPageOfLocale(LPWSTR name, DWORD, LPARAM data) {
  CodePageSearch* wanted = reinterpret_cast<CodePageSearch*>(data);
  DWORD ansi = 0, oem = 0;
  if (::GetLocaleInfoEx(name, LOCALE_IDEFAULTANSICODEPAGE | LOCALE_RETURN_NUMBER, reinterpret_cast<LPWSTR>(&ansi),
                        sizeof ansi / sizeof(wchar_t)) == 0 ||
      static_cast<int>(ansi) != wanted->ansi) {
    return TRUE;
  }
  if (::GetLocaleInfoEx(name, LOCALE_IDEFAULTCODEPAGE | LOCALE_RETURN_NUMBER, reinterpret_cast<LPWSTR>(&oem),
                        sizeof oem / sizeof(wchar_t)) == 0) {
    return TRUE;
  }
  wanted->oem = static_cast<int>(oem);
  return FALSE;
}

}  // namespace

int OemCodePageFor(int ansiCodePage) {
  // The system's own pairing for its ANSI page; for another page, the OEM
  // page of the first locale that uses it as its ANSI page, as Windows pairs
  // them (437 when none does).
  if (ansiCodePage == static_cast<int>(::GetACP())) return static_cast<int>(::GetOEMCP());
  if (ansiCodePage == kUtf8) return kUtf8;
  CodePageSearch search{ansiCodePage, 0};
  ::EnumSystemLocalesEx(KeepOemPageOfLocale, LOCALE_WINDOWS, reinterpret_cast<LPARAM>(&search), nullptr);
  return search.oem != 0 ? search.oem : 437;
}

void ApplyEnvironmentLocale() {
  // The runtime's character-type and collation categories follow the user's
  // locale; the numeric category is left alone.
  std::setlocale(LC_CTYPE, "");
  std::setlocale(LC_COLLATE, "");
}

bool WideFileNames() { return true; }

bool IsCodePageAvailable(int codePage) { return ::IsValidCodePage(static_cast<UINT>(ResolveCodePage(codePage))) != 0; }

int MultiByteToWide(int codePage, const char* bytes, int byteCount, char16_t* out, int capacity) {
  codePage = ResolveCodePage(codePage);
  if (!::IsValidCodePage(static_cast<UINT>(codePage))) return -1;
  if (byteCount <= 0) return 0;
  return ConvertWithin(reinterpret_cast<wchar_t*>(out), capacity, [&](wchar_t* target, int room) {
    return ::MultiByteToWideChar(static_cast<UINT>(codePage), 0, bytes, byteCount, target, room);
  });
}

int WideToMultiByte(int codePage, const char16_t* text, int count, char* out, int capacity) {
  codePage = ResolveCodePage(codePage);
  if (!::IsValidCodePage(static_cast<UINT>(codePage))) return -1;
  if (count <= 0) return 0;
  // Decomposed sequences convert as their precomposed characters, where the
  // code page has them.
  const DWORD flags = TakesNoFlags(codePage) ? 0 : WC_COMPOSITECHECK;
  return ConvertWithin(out, capacity, [&](char* target, int room) {
    return ::WideCharToMultiByte(static_cast<UINT>(codePage), flags, windows::Wide(text), count, target, room,
                                 nullptr, nullptr);
  });
}

int MaxCharBytes(int codePage) {
  CPINFO info;
  if (!::GetCPInfo(static_cast<UINT>(ResolveCodePage(codePage)), &info)) return 1;
  return static_cast<int>(info.MaxCharSize);
}

int DecodeOneChar(int codePage, const char* bytes, int limit, char16_t* out) {
  if (limit <= 0) return -1;
  if (*bytes == '\0') {
    *out = 0;
    return 0;
  }
  codePage = ResolveCodePage(codePage);
  if (!::IsValidCodePage(static_cast<UINT>(codePage))) return -1;
  // The shortest run of bytes that makes one whole character.
  const int longest = MaxCharBytes(codePage);
  for (int length = 1; length <= longest && length <= limit; ++length) {
    if (ConvertsToOneUnit(codePage, bytes, length, out)) return length;
  }
  return -1;
}

int EncodeOneChar(int codePage, char16_t c, char* out) {
  char area[8];
  const int length = WideToMultiByte(codePage, &c, 1, area, static_cast<int>(sizeof area));
  if (length <= 0 || length > static_cast<int>(sizeof area)) return -1;
  std::memcpy(out, area, static_cast<std::size_t>(length));
  return length;
}

int EncodeOneCharExact(int codePage, char16_t c, char* out) {
  codePage = ResolveCodePage(codePage);
  if (!::IsValidCodePage(static_cast<UINT>(codePage))) return -1;
  char area[8];
  const wchar_t unit = static_cast<wchar_t>(c);
  int length = 0;
  if (TakesNoFlags(codePage)) {
    length = ::WideCharToMultiByte(static_cast<UINT>(codePage), codePage == kUtf8 ? WC_ERR_INVALID_CHARS : 0, &unit, 1,
                                   area, static_cast<int>(sizeof area), nullptr, nullptr);
  } else {
    BOOL usedDefault = FALSE;
    length = ::WideCharToMultiByte(static_cast<UINT>(codePage), WC_NO_BEST_FIT_CHARS, &unit, 1, area,
                                   static_cast<int>(sizeof area), nullptr, &usedDefault);
    if (usedDefault) return -1;
  }
  if (length <= 0) return -1;
  std::memcpy(out, area, static_cast<std::size_t>(length));
  return length;
}

int CharByteLength(int codePage, const char* bytes, int available) {
  if (available <= 1 || MaxCharBytes(codePage) == 1) return available > 0 ? 1 : 0;
  char16_t ignored;
  const int length = DecodeOneChar(codePage, bytes, available, &ignored);
  return length > 0 ? length : 1;
}

bool CharIs(char16_t c, CharClass cls) {
  const WORD type = CharType(c);
  switch (cls) {
    case CharClass::Alpha: return (type & C1_ALPHA) != 0;
    case CharClass::Lower: return (type & C1_LOWER) != 0;
    case CharClass::Upper: return (type & C1_UPPER) != 0;
    case CharClass::Space: return (type & C1_SPACE) != 0;
    case CharClass::Digit: return (type & C1_DIGIT) != 0;
    case CharClass::AlphaNum: return (type & (C1_ALPHA | C1_DIGIT)) != 0;
    case CharClass::Hexa: return (type & C1_XDIGIT) != 0;
    case CharClass::Control: return (type & C1_CNTRL) != 0;
    // Printable: a defined character that is no control; graphic: one that
    // also leaves a mark (no space).
    case CharClass::Print: return (type & C1_DEFINED) != 0 && (type & C1_CNTRL) == 0;
    case CharClass::Graph: return (type & C1_DEFINED) != 0 && (type & (C1_CNTRL | C1_SPACE)) == 0;
    case CharClass::Punct: return (type & C1_PUNCT) != 0;
  }
  return false;
}

char16_t CharToLower(char16_t c) { return MapCase(c, LCMAP_LOWERCASE); }
char16_t CharToUpper(char16_t c) { return MapCase(c, LCMAP_UPPERCASE); }
// The system folds case for comparisons by lower-casing.
char16_t CharFold(char16_t c) { return MapCase(c, LCMAP_LOWERCASE); }

int Collate(const char16_t* a, int aLength, const char16_t* b, int bLength, bool ignoreCase) {
  const int result = ::CompareStringW(LOCALE_USER_DEFAULT, ignoreCase ? NORM_IGNORECASE : 0, windows::Wide(a), aLength,
                                      windows::Wide(b), bLength);
  if (result == 0) {
    // No collation: fall back on code-unit order.
    const int common = aLength < bLength ? aLength : bLength;
    for (int i = 0; i < common; ++i) {
      if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
    }
    return aLength < bLength ? -1 : (aLength > bLength ? 1 : 0);
  }
  return result - CSTR_EQUAL;
}

}  // namespace qorc::platform
