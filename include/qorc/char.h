/// @file
/// C_CHAR: one UTF-16 code unit with classification, case mapping and conversions.
#ifndef QORC_CHAR_H
#define QORC_CHAR_H

#include <qorc/export.h>
#include <qorc/types.h>
#include <qorc/windows_names.h>

/// One UTF-16 code unit with classification, case mapping and conversions to and
/// from the library code page. Classification and case follow the Unicode data of
/// the platform's text engine, one unit at a time (surrogates are not paired).
class QORC_API C_CHAR {
 public:
  /// Replaceable technical symbols.
  /// Their current characters come from GetSpecialChar; a host may replace them
  /// with SetSpecialChar (for a display that lacks a symbol).
  enum SPEC_CHAR { PLUS_MINUS = 0, DIAMETER = 1, DEGREE = 2, MINUS = 3, PLUS = 4 };

  /// The empty character (code 0) and string terminator.
  static const C_CHAR VOID;    // the empty character and string terminator
  /// End of line: LF (0x000A) only.
  static const C_CHAR EOL;     // end of line (LF only)
  /// Byte-order mark in the machine's order (0xFEFF).
  static const C_CHAR BOM;     // byte-order mark in the machine's order
  /// Byte-order mark read in the inverse order (0xFFFE).
  static const C_CHAR BOMINV;  // byte-order mark read in the inverse order
  /// Escape character of the text coding (0x00FF), followed by four hexadecimal digits.
  static const C_CHAR CODE;    // escape character of the text coding

  /// The empty character (code 0).
  constexpr C_CHAR() : code_(0) {}
  /// The character of that UTF-16 code unit.
  constexpr C_CHAR(char16_t code) : code_(code) {}
  /// Copies the code.
  C_CHAR(const C_CHAR&) = default;
  /// Copies the code.
  C_CHAR& operator=(const C_CHAR&) = default;
  /// The byte is taken as Latin-1 (zero-extended).
  /// Returns the new character.
  C_CHAR operator=(char byte) {
    code_ = static_cast<unsigned char>(byte);
    return *this;
  }
  /// Takes the UTF-16 code unit; returns the new character.
  C_CHAR operator=(char16_t code) {
    code_ = code;
    return *this;
  }

  /// The code unit as a number (0 to 0xFFFF).
  constexpr operator int() const { return code_; }
  /// The code unit.
  constexpr operator char16_t() const { return code_; }
  /// The low byte for codes up to 0xFF, "?" otherwise.
  /// No code-page conversion: use GetMBCS for that.
  operator char() const { return code_ <= 0xFF ? static_cast<char>(code_) : '?'; }
  /// The code unit as a number (0 to 0xFFFF), as Windows numbers characters.
  unsigned int GetWinCoding() const { return code_; }

  /// Comparisons compare code units as unsigned numbers, without locale or case.
  bool operator<(C_CHAR o) const { return code_ < o.code_; }
  /// Compares code units as unsigned numbers.
  bool operator<=(C_CHAR o) const { return code_ <= o.code_; }
  /// Compares code units as unsigned numbers.
  bool operator>(C_CHAR o) const { return code_ > o.code_; }
  /// Compares code units as unsigned numbers.
  bool operator>=(C_CHAR o) const { return code_ >= o.code_; }
  /// Same code unit.
  bool operator==(C_CHAR o) const { return code_ == o.code_; }
  /// Different code units.
  bool operator!=(C_CHAR o) const { return code_ != o.code_; }
  /// Same code as the byte taken as Latin-1.
  bool operator==(char byte) const { return code_ == static_cast<unsigned char>(byte); }
  /// Not the code of the byte taken as Latin-1.
  bool operator!=(char byte) const { return code_ != static_cast<unsigned char>(byte); }
  /// Same code unit.
  bool operator==(char16_t code) const { return code_ == code; }
  /// Different code units.
  bool operator!=(char16_t code) const { return code_ != code; }
  /// The code unit equals the number.
  bool operator==(int code) const { return code_ == code; }
  /// The code unit differs from the number.
  bool operator!=(int code) const { return code_ != code; }

  /// True for the empty character (code 0).
  C_BOOL IsVoid() const { return code_ == 0; }
  /// True for LF.
  C_BOOL IsEOL() const { return code_ == 0x000A; }
  /// True below 0x80.
  C_BOOL IsASCII() const { return code_ < 0x80; }
  /// True below 0x100 (Latin-1).
  C_BOOL IsANSI() const { return code_ < 0x100; }
  /// True from 0x00FF up: the characters that the text coding escapes (C_STRING::Encode).
  C_BOOL NeedsCoding() const { return code_ >= 0x00FF; }
  /// True for a letter.
  C_BOOL IsAlpha() const;
  /// True for a lower-case letter.
  C_BOOL IsLower() const;
  /// True for an upper-case letter.
  C_BOOL IsUpper() const;
  /// True for white space (space, tab, line ends, form feed, vertical tab, and the Unicode spaces).
  C_BOOL IsSpace() const;
  /// True for a decimal digit.
  C_BOOL IsDigit() const;
  /// True for a letter or a decimal digit.
  C_BOOL IsAlphaNum() const;
  /// True for a hexadecimal digit (0-9, a-f, A-F).
  C_BOOL IsHexa() const;
  /// True for a control character.
  C_BOOL IsControl() const;
  /// True for a printable character, the space included.
  C_BOOL IsPrint() const;
  /// True for a printable character other than the space.
  C_BOOL IsGraph() const;
  /// True for punctuation: printable, neither a letter, a digit nor a space.
  C_BOOL IsPunct() const;

  /// Becomes the empty character.
  void Clear() { code_ = 0; }
  /// Becomes its lower-case form (unchanged when it has none of one unit).
  void MakeLower();
  /// Becomes its upper-case form (unchanged when it has none of one unit).
  void MakeUpper();
  /// Characters above 0xFF become "?".
  void MakeANSI() {
    if (code_ > 0xFF) code_ = u'?';
  }
  /// Becomes its ASCII replacement: accented letters lose their accents, 0x80 to 0x9F
  /// become spaces, characters above 0xFF "?".
  void MakeASCII() { code_ = code_ < 0x100 ? ANSIToASCII[code_] : u'?'; }

  /// Reads one character of the library code page from at most `limit` bytes
  /// (0: the code page's longest character). Returns the bytes consumed, 0 for
  /// the terminator, -1 for an invalid or incomplete sequence.
  /// On -1 the character is left as it was.
  int FromMBCS(const char* text, int limit);
  /// Writes the character in the library code page (no terminator) into an
  /// area of the code page's longest character. Returns the bytes written or -1.
  int GetMBCS(char* area) const;
  /// The longest character of the library code page, in bytes.
  static int GetMBCSMaxLength();

  /// The current character of a technical symbol.
  static C_CHAR GetSpecialChar(SPEC_CHAR which);
  /// Replaces the character of a technical symbol, process-wide.
  static void SetSpecialChar(SPEC_CHAR which, C_CHAR c);
  /// Whether the display in use shows the diameter symbol.
  static C_BOOL IsDiameterSymbolSupported();
  /// Whether the display in use shows the degree symbol.
  static C_BOOL IsDegreeSymbolSupported();
  /// Marks the diameter and degree symbols as shown by the display; for the host to
  /// call (Copen does not).
  static void Open();

 protected:
  /// Whether the display in use shows the diameter and degree symbols.
  static C_BOOL SupportsDiameterSymbol;
  /// Whether the display in use shows the degree symbol.
  static C_BOOL SupportsDegreeSymbol;

 private:
  static const char16_t ANSIToASCII[256];
  static C_CHAR SpecChars[5];

  char16_t code_;
};

static_assert(sizeof(C_CHAR) == sizeof(char16_t), "C_CHAR is laid out as one UTF-16 unit");

#endif
