// The seam's text services: Windows code pages, classification and case
// mapping of one UTF-16 unit, and locale collation.
#ifndef QORC_PLATFORM_TEXT_H
#define QORC_PLATFORM_TEXT_H

namespace qorc::platform {

// The ANSI code page that the environment's locale implies (Windows numbering).
int SystemAnsiCodePage();
// The OEM code page that Windows pairs with an ANSI code page.
int OemCodePageFor(int ansiCodePage);
// Sets the character-type and collation categories from the environment and
// chooses the collation locale. The numeric category is never touched.
void ApplyEnvironmentLocale();
// Whether file-name calls take wide names (the seam converts them itself).
bool WideFileNames();

// Whether the code page can be used for conversions here.
bool IsCodePageAvailable(int codePage);
// Conversions between a code page (0: the system ANSI code page) and UTF-16.
// Each returns the length the whole conversion needs, terminator excluded,
// writing at most `capacity` units or bytes; -1 when the code page cannot be
// used. Characters the target cannot represent become its default character.
int MultiByteToWide(int codePage, const char* bytes, int byteCount, char16_t* out, int capacity);
int WideToMultiByte(int codePage, const char16_t* text, int count, char* out, int capacity);
// The longest character of a code page, in bytes.
int MaxCharBytes(int codePage);
// Reads one character from at most `limit` bytes into *out: the bytes used,
// 0 for the terminator, -1 for an invalid or incomplete sequence or a
// character that does not fit one UTF-16 unit.
int DecodeOneChar(int codePage, const char* bytes, int limit, char16_t* out);
// Writes one character (no terminator): the bytes written, or -1.
int EncodeOneChar(int codePage, char16_t c, char* out);
// Writes one character (no terminator) only when the code page has a form of
// its own for it, no default character: the bytes written, or -1.
int EncodeOneCharExact(int codePage, char16_t c, char* out);
// The length in bytes of the character that starts at `bytes` (at most
// `available`); 1 for a byte that starts no valid character.
int CharByteLength(int codePage, const char* bytes, int available);

enum class CharClass { Alpha, Lower, Upper, Space, Digit, AlphaNum, Hexa, Control, Print, Graph, Punct };
bool CharIs(char16_t c, CharClass cls);
char16_t CharToLower(char16_t c);
char16_t CharToUpper(char16_t c);
// The case-folded form of one unit, for comparisons without case.
char16_t CharFold(char16_t c);

// Locale collation of two texts: negative, 0 or positive. Case-insensitive
// collation compares at secondary strength.
int Collate(const char16_t* a, int aLength, const char16_t* b, int bLength, bool ignoreCase);

}  // namespace qorc::platform

#endif
