// C_CHAR: one UTF-16 code unit with classification, case mapping and conversions.
#ifndef QORC_CHAR_H
#define QORC_CHAR_H

#include <qorc/export.h>
#include <qorc/types.h>

class QORC_API C_CHAR {
 public:
  // Replaceable technical symbols.
  enum SPEC_CHAR { PLUS_MINUS = 0, DIAMETER = 1, DEGREE = 2, MINUS = 3, PLUS = 4 };

  static const C_CHAR VOID;    // the empty character and string terminator
  static const C_CHAR EOL;     // end of line (LF only)
  static const C_CHAR BOM;     // byte-order mark in the machine's order
  static const C_CHAR BOMINV;  // byte-order mark read in the inverse order
  static const C_CHAR CODE;    // escape character of the text coding

  constexpr C_CHAR() : code_(0) {}
  constexpr C_CHAR(char16_t code) : code_(code) {}
  C_CHAR(const C_CHAR&) = default;
  C_CHAR& operator=(const C_CHAR&) = default;
  // The byte is taken as Latin-1 (zero-extended).
  C_CHAR operator=(char byte) {
    code_ = static_cast<unsigned char>(byte);
    return *this;
  }
  C_CHAR operator=(char16_t code) {
    code_ = code;
    return *this;
  }

  constexpr operator int() const { return code_; }
  constexpr operator char16_t() const { return code_; }
  // The low byte for codes up to 0xFF, "?" otherwise.
  operator char() const { return code_ <= 0xFF ? static_cast<char>(code_) : '?'; }
  unsigned int GetWinCoding() const { return code_; }

  bool operator<(C_CHAR o) const { return code_ < o.code_; }
  bool operator<=(C_CHAR o) const { return code_ <= o.code_; }
  bool operator>(C_CHAR o) const { return code_ > o.code_; }
  bool operator>=(C_CHAR o) const { return code_ >= o.code_; }
  bool operator==(C_CHAR o) const { return code_ == o.code_; }
  bool operator!=(C_CHAR o) const { return code_ != o.code_; }
  bool operator==(char byte) const { return code_ == static_cast<unsigned char>(byte); }
  bool operator!=(char byte) const { return code_ != static_cast<unsigned char>(byte); }
  bool operator==(char16_t code) const { return code_ == code; }
  bool operator!=(char16_t code) const { return code_ != code; }
  bool operator==(int code) const { return code_ == code; }
  bool operator!=(int code) const { return code_ != code; }

  C_BOOL IsVoid() const { return code_ == 0; }
  C_BOOL IsEOL() const { return code_ == 0x000A; }
  C_BOOL IsASCII() const { return code_ < 0x80; }
  C_BOOL IsANSI() const { return code_ < 0x100; }
  C_BOOL NeedsCoding() const { return code_ >= 0x00FF; }
  C_BOOL IsAlpha() const;
  C_BOOL IsLower() const;
  C_BOOL IsUpper() const;
  C_BOOL IsSpace() const;
  C_BOOL IsDigit() const;
  C_BOOL IsAlphaNum() const;
  C_BOOL IsHexa() const;
  C_BOOL IsControl() const;
  C_BOOL IsPrint() const;
  C_BOOL IsGraph() const;
  C_BOOL IsPunct() const;

  void Clear() { code_ = 0; }
  void MakeLower();
  void MakeUpper();
  void MakeANSI() {
    if (code_ > 0xFF) code_ = u'?';
  }
  void MakeASCII() { code_ = code_ < 0x100 ? ANSIToASCII[code_] : u'?'; }

  // Reads one character of the library code page from at most `limit` bytes
  // (0: the code page's longest character). Returns the bytes consumed, 0 for
  // the terminator, -1 for an invalid or incomplete sequence.
  int FromMBCS(const char* text, int limit);
  // Writes the character in the library code page (no terminator) into an
  // area of the code page's longest character. Returns the bytes written or -1.
  int GetMBCS(char* area) const;
  // The longest character of the library code page, in bytes.
  static int GetMBCSMaxLength();

  static C_CHAR GetSpecialChar(SPEC_CHAR which);
  static void SetSpecialChar(SPEC_CHAR which, C_CHAR c);
  static C_BOOL IsDiameterSymbolSupported();
  static C_BOOL IsDegreeSymbolSupported();
  static void Open();

 protected:
  // Whether the display in use shows the diameter and degree symbols.
  static C_BOOL SupportsDiameterSymbol;
  static C_BOOL SupportsDegreeSymbol;

 private:
  static const char16_t ANSIToASCII[256];
  static C_CHAR SpecChars[5];

  char16_t code_;
};

static_assert(sizeof(C_CHAR) == sizeof(char16_t), "C_CHAR is laid out as one UTF-16 unit");

#endif
