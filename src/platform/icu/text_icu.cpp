// Text services on POSIX: ICU carries the code pages, the character
// properties and the collation, so results do not depend on which system
// locales a machine has installed.
#include "platform/text.h"

#include <langinfo.h>
#include <unicode/ucnv.h>
#include <unicode/ucol.h>
#include <unicode/uchar.h>
#include <unicode/unorm2.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

namespace qorc::platform {
namespace {

constexpr int kUtf8 = 65001;
constexpr int kFallbackAnsi = 1252;  // ASCII and unknown codesets

// Windows code-page numbers of the codesets a POSIX locale may name.
struct CodesetName {
  const char* codeset;  // normalised: upper case, no '-' or '_'
  int codePage;
};
constexpr CodesetName kCodesets[] = {
    {"UTF8", 65001},      {"ANSIX3.41968", 1252}, {"ASCII", 1252},      {"USASCII", 1252},
    {"ISO88591", 28591},  {"ISO88592", 28592},    {"ISO88593", 28593},  {"ISO88594", 28594},
    {"ISO88595", 28595},  {"ISO88596", 28596},    {"ISO88597", 28597},  {"ISO88598", 28598},
    {"ISO88599", 28599},  {"ISO885913", 28603},   {"ISO885915", 28605}, {"CP1250", 1250},
    {"CP1251", 1251},     {"CP1252", 1252},       {"CP1253", 1253},     {"CP1254", 1254},
    {"CP1255", 1255},     {"CP1256", 1256},       {"CP1257", 1257},     {"CP1258", 1258},
    {"SJIS", 932},        {"SHIFTJIS", 932},      {"CP932", 932},       {"EUCJP", 20932},
    {"GBK", 936},         {"GB2312", 936},        {"CP936", 936},       {"GB18030", 54936},
    {"BIG5", 950},        {"BIG5HKSCS", 950},     {"EUCKR", 949},       {"CP949", 949},
    {"KOI8R", 20866},     {"KOI8U", 21866},       {"TIS620", 874},      {"CP874", 874},
};

// The OEM code page Windows pairs with each ANSI code page; 437 for the rest.
struct CodePagePair {
  int ansi;
  int oem;
};
constexpr CodePagePair kOemPairs[] = {
    {1250, 852}, {1251, 866}, {1252, 850}, {1253, 737}, {1254, 857}, {1255, 862},
    {1256, 720}, {1257, 775}, {1258, 1258}, {874, 874}, {932, 932}, {936, 936},
    {949, 949}, {950, 950}, {65001, 65001},
};

std::string NormaliseCodeset(const char* text) {
  std::string out;
  for (const char* p = text; *p != '\0'; ++p) {
    if (*p == '-' || *p == '_') continue;
    out += static_cast<char>(*p >= 'a' && *p <= 'z' ? *p - 'a' + 'A' : *p);
  }
  return out;
}

int CodePageOfCodeset(const char* codeset) {
  const std::string name = NormaliseCodeset(codeset);
  for (const CodesetName& entry : kCodesets) {
    if (name == entry.codeset) return entry.codePage;
  }
  return 0;
}

// The locale name the environment asks for, for one category.
std::string EnvironmentLocaleName(const char* category) {
  for (const char* variable : {"LC_ALL", category, "LANG"}) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') return value;
  }
  return "C";
}

// "ja_JP.SJIS@euro" gives the codeset "SJIS"; none gives "".
std::string CodesetOfLocaleName(const std::string& name) {
  const std::size_t dot = name.find('.');
  if (dot == std::string::npos) return "";
  const std::size_t at = name.find('@', dot);
  return name.substr(dot + 1, at == std::string::npos ? std::string::npos : at - dot - 1);
}

// "de_DE.UTF-8@euro" gives the ICU locale "de_DE"; C and POSIX give the root.
std::string IcuLocaleOfLocaleName(const std::string& name) {
  std::string base = name.substr(0, name.find_first_of(".@"));
  if (base == "C" || base == "POSIX") return "";
  return base;
}

std::string g_collationLocale;

struct Collators {
  UCollator* exact = nullptr;
  UCollator* noCase = nullptr;
  std::string locale;
};
Collators g_collators;

UCollator* OpenCollator(bool ignoreCase) {
  if (g_collators.locale != g_collationLocale || (g_collators.exact == nullptr && g_collators.noCase == nullptr)) {
    if (g_collators.exact != nullptr) ucol_close(g_collators.exact);
    if (g_collators.noCase != nullptr) ucol_close(g_collators.noCase);
    g_collators = Collators{};
    g_collators.locale = g_collationLocale;
  }
  UCollator*& slot = ignoreCase ? g_collators.noCase : g_collators.exact;
  if (slot == nullptr) {
    UErrorCode status = U_ZERO_ERROR;
    slot = ucol_open(g_collationLocale.c_str(), &status);
    if (U_FAILURE(status)) {
      slot = nullptr;
      return nullptr;
    }
    ucol_setStrength(slot, ignoreCase ? UCOL_SECONDARY : UCOL_TERTIARY);
  }
  return slot;
}

// ICU names under which a Windows code page may be known.
UConverter* OpenConverterForCodePage(int codePage) {
  if (codePage == kUtf8) {
    UErrorCode status = U_ZERO_ERROR;
    UConverter* converter = ucnv_open("UTF-8", &status);
    return U_SUCCESS(status) ? converter : nullptr;
  }
  const std::string number = std::to_string(codePage);
  for (const char* prefix : {"windows-", "cp", "ibm-"}) {
    UErrorCode status = U_ZERO_ERROR;
    UConverter* converter = ucnv_open((prefix + number).c_str(), &status);
    if (U_SUCCESS(status) && status != U_AMBIGUOUS_ALIAS_WARNING) {
      // Windows writes "?" for a character the code page lacks.
      UErrorCode substStatus = U_ZERO_ERROR;
      ucnv_setSubstChars(converter, "?", 1, &substStatus);
      return converter;
    }
    if (converter != nullptr) ucnv_close(converter);
  }
  return nullptr;
}

struct ConverterCache {
  std::map<int, UConverter*> converters;
  ~ConverterCache() {
    for (auto& entry : converters) {
      if (entry.second != nullptr) ucnv_close(entry.second);
    }
  }
};
ConverterCache g_converters;

int ResolveCodePage(int codePage) { return codePage == 0 ? SystemAnsiCodePage() : codePage; }

// A converter for the code page, reset to its initial state; null when unknown.
UConverter* Converter(int codePage) {
  codePage = ResolveCodePage(codePage);
  auto found = g_converters.converters.find(codePage);
  UConverter* converter = nullptr;
  if (found == g_converters.converters.end()) {
    converter = OpenConverterForCodePage(codePage);
    g_converters.converters[codePage] = converter;
  } else {
    converter = found->second;
  }
  if (converter != nullptr) ucnv_reset(converter);
  return converter;
}

bool NeedsComposition(const char16_t* text, int count) {
  for (int i = 0; i < count; ++i) {
    if (text[i] >= 0x300) return true;
  }
  return false;
}

}  // namespace

int SystemAnsiCodePage() {
  // The codeset that the environment names wins, even when this machine lacks
  // that locale; otherwise the codeset of the locale in force; otherwise the
  // page Windows uses for the C locale's languages.
  const std::string name = EnvironmentLocaleName("LC_CTYPE");
  const std::string codeset = CodesetOfLocaleName(name);
  int page = codeset.empty() ? 0 : CodePageOfCodeset(codeset.c_str());
  if (page == 0 && !IcuLocaleOfLocaleName(name).empty()) page = CodePageOfCodeset(nl_langinfo(CODESET));
  return page != 0 ? page : kFallbackAnsi;
}

int OemCodePageFor(int ansiCodePage) {
  for (const CodePagePair& pair : kOemPairs) {
    if (pair.ansi == ansiCodePage) return pair.oem;
  }
  return 437;
}

void ApplyEnvironmentLocale() {
  // Either call may fail on a machine that lacks the locale; ICU carries its
  // own locale data, so collation still follows the environment's language.
  std::setlocale(LC_CTYPE, "");
  std::setlocale(LC_COLLATE, "");
  g_collationLocale = IcuLocaleOfLocaleName(EnvironmentLocaleName("LC_COLLATE"));
}

bool WideFileNames() { return true; }

bool IsCodePageAvailable(int codePage) { return Converter(codePage) != nullptr; }

int MultiByteToWide(int codePage, const char* bytes, int byteCount, char16_t* out, int capacity) {
  UConverter* converter = Converter(codePage);
  if (converter == nullptr) return -1;
  UErrorCode status = U_ZERO_ERROR;
  const int32_t length = ucnv_toUChars(converter, reinterpret_cast<UChar*>(out), capacity, bytes, byteCount, &status);
  if (U_FAILURE(status) && status != U_BUFFER_OVERFLOW_ERROR) return -1;
  return length;
}

int WideToMultiByte(int codePage, const char16_t* text, int count, char* out, int capacity) {
  UConverter* converter = Converter(codePage);
  if (converter == nullptr) return -1;
  std::u16string composed;
  // Decomposed sequences convert as their precomposed characters, where the
  // code page has them.
  if (ResolveCodePage(codePage) != kUtf8 && NeedsComposition(text, count)) {
    UErrorCode status = U_ZERO_ERROR;
    const UNormalizer2* nfc = unorm2_getNFCInstance(&status);
    if (U_SUCCESS(status)) {
      composed.resize(static_cast<std::size_t>(count));
      int32_t length = unorm2_normalize(nfc, reinterpret_cast<const UChar*>(text), count,
                                        reinterpret_cast<UChar*>(composed.data()), count, &status);
      if (status == U_BUFFER_OVERFLOW_ERROR) {
        status = U_ZERO_ERROR;
        composed.resize(static_cast<std::size_t>(length));
        length = unorm2_normalize(nfc, reinterpret_cast<const UChar*>(text), count,
                                  reinterpret_cast<UChar*>(composed.data()), length, &status);
      }
      if (U_SUCCESS(status)) {
        composed.resize(static_cast<std::size_t>(length));
        text = composed.data();
        count = length;
      }
    }
  }
  UErrorCode status = U_ZERO_ERROR;
  const int32_t length = ucnv_fromUChars(converter, out, capacity, reinterpret_cast<const UChar*>(text), count, &status);
  if (U_FAILURE(status) && status != U_BUFFER_OVERFLOW_ERROR) return -1;
  return length;
}

int MaxCharBytes(int codePage) {
  UConverter* converter = Converter(codePage);
  return converter == nullptr ? 1 : ucnv_getMaxCharSize(converter);
}

int DecodeOneChar(int codePage, const char* bytes, int limit, char16_t* out) {
  if (limit <= 0) return -1;
  if (*bytes == '\0') {
    *out = 0;
    return 0;
  }
  UConverter* converter = Converter(codePage);
  if (converter == nullptr) return -1;
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setToUCallBack(converter, UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  const char* cursor = bytes;
  status = U_ZERO_ERROR;
  const UChar32 c = ucnv_getNextUChar(converter, &cursor, bytes + limit, &status);
  UErrorCode restore = U_ZERO_ERROR;
  ucnv_setToUCallBack(converter, UCNV_TO_U_CALLBACK_SUBSTITUTE, nullptr, nullptr, nullptr, &restore);
  if (U_FAILURE(status) || c < 0 || c > 0xFFFF) return -1;
  *out = static_cast<char16_t>(c);
  return static_cast<int>(cursor - bytes);
}

int EncodeOneChar(int codePage, char16_t c, char* out) {
  char area[8];
  const int length = WideToMultiByte(codePage, &c, 1, area, static_cast<int>(sizeof area));
  if (length < 0 || length > static_cast<int>(sizeof area)) return -1;
  std::memcpy(out, area, static_cast<std::size_t>(length));
  return length;
}

int EncodeOneCharExact(int codePage, char16_t c, char* out) {
  UConverter* converter = Converter(codePage);
  if (converter == nullptr) return -1;
  UErrorCode status = U_ZERO_ERROR;
  ucnv_setFromUCallBack(converter, UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  char area[8];
  status = U_ZERO_ERROR;
  const int32_t length =
      ucnv_fromUChars(converter, area, static_cast<int32_t>(sizeof area), reinterpret_cast<const UChar*>(&c), 1, &status);
  UErrorCode restore = U_ZERO_ERROR;
  ucnv_setFromUCallBack(converter, UCNV_FROM_U_CALLBACK_SUBSTITUTE, nullptr, nullptr, nullptr, &restore);
  if (U_FAILURE(status) || length <= 0 || length > static_cast<int32_t>(sizeof area)) return -1;
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
  switch (cls) {
    case CharClass::Alpha: return u_isalpha(c);
    case CharClass::Lower: return u_islower(c);
    case CharClass::Upper: return u_isupper(c);
    case CharClass::Space: return u_isspace(c);
    case CharClass::Digit: return u_isdigit(c);
    case CharClass::AlphaNum: return u_isalnum(c);
    case CharClass::Hexa: return u_isxdigit(c);
    case CharClass::Control: return u_iscntrl(c);
    case CharClass::Print: return u_isprint(c);
    case CharClass::Graph: return u_isgraph(c);
    // The C runtime's punctuation covers symbols too: visible and not alphanumeric.
    case CharClass::Punct: return u_isgraph(c) && !u_isalnum(c);
  }
  return false;
}

char16_t CharToLower(char16_t c) {
  const UChar32 mapped = u_tolower(c);
  return mapped <= 0xFFFF ? static_cast<char16_t>(mapped) : c;
}

char16_t CharToUpper(char16_t c) {
  const UChar32 mapped = u_toupper(c);
  return mapped <= 0xFFFF ? static_cast<char16_t>(mapped) : c;
}

char16_t CharFold(char16_t c) {
  const UChar32 folded = u_foldCase(c, U_FOLD_CASE_DEFAULT);
  return folded <= 0xFFFF ? static_cast<char16_t>(folded) : c;
}

int Collate(const char16_t* a, int aLength, const char16_t* b, int bLength, bool ignoreCase) {
  UCollator* collator = OpenCollator(ignoreCase);
  if (collator == nullptr) {
    // No collator: fall back on code-unit order.
    const int common = aLength < bLength ? aLength : bLength;
    for (int i = 0; i < common; ++i) {
      if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
    }
    return aLength < bLength ? -1 : (aLength > bLength ? 1 : 0);
  }
  return static_cast<int>(ucol_strcoll(collator, reinterpret_cast<const UChar*>(a), aLength,
                                       reinterpret_cast<const UChar*>(b), bLength));
}

}  // namespace qorc::platform
