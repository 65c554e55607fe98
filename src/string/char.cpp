// C_CHAR: constants, the ANSI-to-ASCII table, classification and the
// multibyte conversions of one character.
#include <qorc/char.h>

#include "foundation/library.h"
#include "platform/text.h"

using qorc::platform::CharClass;
using qorc::platform::CharIs;

const C_CHAR C_CHAR::VOID(0x0000);
const C_CHAR C_CHAR::EOL(0x000A);
const C_CHAR C_CHAR::BOM(0xFEFF);
const C_CHAR C_CHAR::BOMINV(0xFFFE);
const C_CHAR C_CHAR::CODE(0x00FF);

C_BOOL C_CHAR::SupportsDiameterSymbol(true);
C_BOOL C_CHAR::SupportsDegreeSymbol(true);

C_CHAR C_CHAR::SpecChars[5] = {C_CHAR(0x00B1), C_CHAR(0x00D8), C_CHAR(0x00B0), C_CHAR(0x002D), C_CHAR(0x002B)};

// ASCII stand-ins for the codes below 256. The plus-minus sign deliberately
// becomes "#" and the multiplication sign a lower-case "x".
const char16_t C_CHAR::ANSIToASCII[256] = {
    0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F,
    0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1D, 0x1E, 0x1F,
    0x20, 0x21, 0x22, 0x23, 0x24, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2A, 0x2B, 0x2C, 0x2D, 0x2E, 0x2F,
    0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x3B, 0x3C, 0x3D, 0x3E, 0x3F,
    0x40, 0x41, 0x42, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x4B, 0x4C, 0x4D, 0x4E, 0x4F,
    0x50, 0x51, 0x52, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0x5B, 0x5C, 0x5D, 0x5E, 0x5F,
    0x60, 0x61, 0x62, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6A, 0x6B, 0x6C, 0x6D, 0x6E, 0x6F,
    0x70, 0x71, 0x72, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A, 0x7B, 0x7C, 0x7D, 0x7E, 0x7F,
    // 0x80-0x9F: all spaces
    ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ',
    ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ',
    // 0xA0-0xAF
    ' ', '!', 'c', 'L', '?', 'Y', '|', '?', '"', 'c', 'a', '<', '?', '?', 'r', '?',
    // 0xB0-0xBF
    'o', '#', '2', '3', '\'', 'u', 'P', '?', ',', '1', 'o', '>', '?', '?', '?', '?',
    // 0xC0-0xCF
    'A', 'A', 'A', 'A', 'A', 'A', 'A', 'C', 'E', 'E', 'E', 'E', 'I', 'I', 'I', 'I',
    // 0xD0-0xDF
    'D', 'N', 'O', 'O', 'O', 'O', 'O', 'x', 'O', 'U', 'U', 'U', 'U', 'Y', 'b', 'B',
    // 0xE0-0xEF
    'a', 'a', 'a', 'a', 'a', 'a', 'a', 'c', 'e', 'e', 'e', 'e', 'i', 'i', 'i', 'i',
    // 0xF0-0xFF
    '?', 'n', 'o', 'o', 'o', 'o', 'o', '?', 'o', 'u', 'u', 'u', 'u', 'y', 'b', 'y',
};

C_BOOL C_CHAR::IsAlpha() const { return CharIs(code_, CharClass::Alpha); }
C_BOOL C_CHAR::IsLower() const { return CharIs(code_, CharClass::Lower); }
C_BOOL C_CHAR::IsUpper() const { return CharIs(code_, CharClass::Upper); }
C_BOOL C_CHAR::IsSpace() const { return CharIs(code_, CharClass::Space); }
C_BOOL C_CHAR::IsDigit() const { return CharIs(code_, CharClass::Digit); }
C_BOOL C_CHAR::IsAlphaNum() const { return CharIs(code_, CharClass::AlphaNum); }
C_BOOL C_CHAR::IsHexa() const { return CharIs(code_, CharClass::Hexa); }
C_BOOL C_CHAR::IsControl() const { return CharIs(code_, CharClass::Control); }
C_BOOL C_CHAR::IsPrint() const { return CharIs(code_, CharClass::Print); }
C_BOOL C_CHAR::IsGraph() const { return CharIs(code_, CharClass::Graph); }
C_BOOL C_CHAR::IsPunct() const { return CharIs(code_, CharClass::Punct); }

void C_CHAR::MakeLower() { code_ = qorc::platform::CharToLower(code_); }
void C_CHAR::MakeUpper() { code_ = qorc::platform::CharToUpper(code_); }

int C_CHAR::GetMBCSMaxLength() { return qorc::platform::MaxCharBytes(qorc::LibraryCodePage()); }

int C_CHAR::FromMBCS(const char* text, int limit) {
  if (limit == 0) limit = GetMBCSMaxLength();
  if (CcharMBCS) return qorc::platform::DecodeOneChar(qorc::LibraryCodePage(), text, limit, &code_);
  if (limit > 1) return -1;
  // Byte for byte, the byte is sign-extended: 0x80 to 0xFF become 0xFF80 to
  // 0xFFFF. This differs from operator=(char) on purpose.
  code_ = static_cast<char16_t>(static_cast<short>(static_cast<signed char>(*text)));
  return *text == '\0' ? 0 : 1;
}

int C_CHAR::GetMBCS(char* area) const {
  if (CcharMBCS) return qorc::platform::EncodeOneChar(qorc::LibraryCodePage(), code_, area);
  *area = static_cast<char>(code_ & 0xFF);
  return 1;
}

C_CHAR C_CHAR::GetSpecialChar(SPEC_CHAR which) { return SpecChars[which]; }
void C_CHAR::SetSpecialChar(SPEC_CHAR which, C_CHAR c) { SpecChars[which] = c; }
C_BOOL C_CHAR::IsDiameterSymbolSupported() { return SupportsDiameterSymbol; }
C_BOOL C_CHAR::IsDegreeSymbolSupported() { return SupportsDegreeSymbol; }

void C_CHAR::Open() {
  SupportsDiameterSymbol = true;
  SupportsDegreeSymbol = true;
}
