// C_STRING: the library's counted, terminated UTF-16 text with 16-bit length and capacity.
#ifndef QORC_STRING_H
#define QORC_STRING_H

#include <qorc/char.h>
#include <qorc/export.h>
#include <qorc/types.h>

class QORC_API C_STRING {
 public:
  static const C_STRING VOID;
  // The largest capacity, terminator included.
  static constexpr int MAX_SIZE = 65535;

  // Storage and ownership ---------------------------------------------------
  constexpr C_STRING() : buffer_(nullptr), size_(0), number_(0) {}
  ~C_STRING();
  C_STRING(const C_STRING& other);
  C_STRING(const char16_t* text);
  C_STRING(const C_CHAR* text);
  // 8-bit text in the library code page (byte for byte while CcharMBCS is false).
  C_STRING(const char* text);
  // Convenience for hosts: UTF-32 text of the platform's wchar_t.
  C_STRING(const wchar_t* text);
  // Exactly n bytes, each zero-extended; embedded zeros kept.
  C_STRING(int n, const char* text);
  // Exactly n characters.
  C_STRING(int n, const char16_t* text);
  // Decimal text of the value. Explicit, so that no number turns into text by accident.
  explicit C_STRING(int value);
  explicit C_STRING(long value) : C_STRING(static_cast<long long>(value)) {}
  explicit C_STRING(long long value);
  // The value formatted by a printf-style format with the directives of the
  // Windows runtime (%s is wide text, %I64d a 64-bit value, ...).
  C_STRING(int value, const C_STRING& format);
  C_STRING(long long value, const C_STRING& format);
  // style 'e' exponent, 'f' fixed, anything else the shortest form; digits is the precision.
  C_STRING(double value, int digits, int style);
  C_STRING(double value, const C_STRING& format);
  C_STRING(const C_STRING& text, const C_STRING& format);

  int GetSize() const { return size_; }
  int GetNumber() const { return number_; }
  C_BOOL IsVoid() const { return number_ == 0; }
  C_CHAR Get(int i) const { return i >= 0 && i < number_ ? buffer_[i] : C_CHAR::VOID; }
  void Replace(int i, C_CHAR c) {
    if (i >= 0 && i < number_) buffer_[i] = c;
  }
  void Clear() { number_ = 0; }
  void ClearAndDelete();
  void Grow(int capacity);
  void GrowAuto(int capacity);
  void Attach(C_CHAR** buffer, int size);
  // Hands the buffer to the caller: the first pointer receives the length, the second the capacity.
  C_CHAR* Detach(int* number, int* size);
  // Adopts *buffer with exactly the given capacity and length, measuring nothing.
  void Replace(int size, int number, C_CHAR** buffer);
  C_STRING* Clone() const;
  C_STRING* CloneSame() const;

  // Assignment and concatenation -------------------------------------------
  C_STRING& operator=(const C_STRING& other);
  C_STRING& operator=(const char16_t* text);
  C_STRING& operator=(const char* text);
  friend QORC_API C_STRING operator+(const C_STRING& a, const C_STRING& b);
  inline void Append(C_CHAR c);
  void Append(const C_STRING& other);
  C_STRING& operator+=(C_CHAR c) {
    Append(c);
    return *this;
  }
  C_STRING& operator+=(char byte) {
    Append(C_CHAR(static_cast<char16_t>(static_cast<unsigned char>(byte))));
    return *this;
  }
  C_STRING& operator+=(char16_t c) {
    Append(C_CHAR(c));
    return *this;
  }
  C_STRING& operator+=(const C_STRING& other);
  C_STRING& operator+=(const char16_t* text);
  C_STRING& operator+=(const char* text);

  // Comparison: code units as unsigned numbers, no locale ----------------------
  int operator==(const C_STRING& o) const;
  int operator!=(const C_STRING& o) const { return !(*this == o); }
  int operator<(const C_STRING& o) const { return CompareCodes(o) < 0; }
  int operator<=(const C_STRING& o) const { return CompareCodes(o) <= 0; }
  int operator>(const C_STRING& o) const { return CompareCodes(o) > 0; }
  int operator>=(const C_STRING& o) const { return CompareCodes(o) >= 0; }
  int operator==(const char16_t* text) const;
  int operator!=(const char16_t* text) const { return !(*this == text); }
  // Locale collation, case-sensitive and not.
  int Compare(const C_STRING& other) const;
  int CompareNoCase(const C_STRING& other) const;
  static int Compare(const C_STRING* a, const C_STRING* b);
  static int CompareNoCase(const C_STRING* a, const C_STRING* b);

  // Conversions out -------------------------------------------------------------
  operator const char16_t*() const { return GetWCHAR(); }
  const char16_t* GetWCHAR() const {
    return number_ > 0 ? reinterpret_cast<const char16_t*>(buffer_) : EmptyText();
  }
  const char16_t* GetTCHAR() const { return GetWCHAR(); }
  char16_t* GetNewWCHAR() const;
  char16_t* GetNewTCHAR() const { return GetNewWCHAR(); }
  const char* GetANSI() const;
  char* GetNewANSI() const;
  const char* GetMBCS() const;
  char* GetNewMBCS() const;
  const char* GetOEM() const;
  char* GetNewOEM() const;
  char* GetNewUTF8() const;

  // Conversions in ----------------------------------------------------------------
  void FromANSI(const char* text);
  void FromUTF8(const char* text);

  // Editing, in place. Ranges are inclusive; operations that grow leave the
  // string unchanged while an error is visible. -------------------------------
  // Positions outside 0..length are ignored.
  void Insert(int i, C_CHAR c);
  void Insert(int i, const C_STRING& text);
  // Nothing when i is outside the string.
  void Remove(int i);
  // A first below 0 counts as 0, a last beyond the end as the last index.
  void Remove(int first, int last);
  // The range is clamped as for Remove; nothing when it is then empty.
  void Replace(int first, int last, const C_STRING& text);
  // Every occurrence, left to right; replaced text is never scanned again.
  void Replace(const C_STRING& from, const C_STRING& to);
  void ReplaceAll(C_CHAR from, C_CHAR to);
  // Character-wise translation; CerrInvalidValue when the lengths differ.
  void SubstituteChars(const C_STRING& from, const C_STRING& to);
  // Keeps only the inclusive range; empty when first exceeds last.
  void Trim(int first, int last);
  void RemoveAllSpaces();
  void Pad(C_CHAR c, int width, C_BOOL left);
  void Unpad(C_CHAR c, C_BOOL left);
  void UnpadSpaces();
  C_STRING GetSlice(int first, int last) const;

  // Case --------------------------------------------------------------------------
  void MakeLower();
  void MakeUpper();
  void MakeLower1();
  void MakeUpper1();
  C_BOOL IsLower() const;
  C_BOOL IsUpper() const;
  C_BOOL IsUpper1() const;

  // Search: indexes, or -1 when nothing is found ------------------------------------
  int Search(C_CHAR c, int start = 0) const;
  int SearchNoCase(C_CHAR c, int start = 0) const;
  int Search(const C_STRING& text, int start = 0) const;
  int SearchNoCase(const C_STRING& text, int start = 0) const;
  int SearchFromEnd(C_CHAR c, int start) const;
  int SearchFromEnd(C_CHAR c) const;
  // A start of -1 means the last character.
  int BackwardSearch(C_CHAR c, int start = -1) const;
  // The start is accepted and ignored: the search always begins at index 0.
  int SearchCharSet(const C_STRING& set, int start = 0, int* which = nullptr) const;
  // As the searches, leaving CerrStringNotFound (mild) pending when nothing is found.
  int Find(C_CHAR c, int start = 0) const;
  int Find(const C_STRING& text, int start = 0) const;
  int FindFromEnd(C_CHAR c, int start) const;
  int FindFromEnd(C_CHAR c) const;
  C_BOOL StartsWith(const C_STRING& text) const;
  C_BOOL EndsWith(const C_STRING& text) const;
  C_BOOL StartsWithNoCase(const C_STRING& text) const;
  C_BOOL EndsWithNoCase(const C_STRING& text) const;

  // Wildcards: "?" any one character, "*" any run; no escape, no classes --------------
  C_BOOL MatchWildCard(const C_STRING& pattern) const;
  C_BOOL MatchWildCardNoCase(const C_STRING& pattern, C_BOOL patternIsLower = false) const;

  // Numbers in text. A scan reads from start; *end, when given, receives the
  // index just behind what was read. The decimal separator is always the full
  // stop. -----------------------------------------------------------------------------
  C_BOOL IsInt() const;
  C_BOOL IsHexa() const;
  int ScanInt(int start = 0, int* end = nullptr) const;
  C_BOOL HasInt(int start, int* value, int* end = nullptr) const;
  long long ScanLong(int start = 0, int* end = nullptr) const;
  C_BOOL HasLong(int start, long long* value, int* end = nullptr) const;
  double ScanReal(int start = 0, int* end = nullptr) const;
  int ToInt() const;
  double ToReal() const;
  int HexaToInt() const;
  long long HexaToLong() const;
  // A mixed number ("3 1/4"), a fraction ("3/4") or a real; 0.0 when not understood.
  static void ConvertFraction(const C_STRING& text, double* result);
  // The next token separated by spaces or tabs; double quotes group blanks.
  void ScanToken(C_STRING* token, int start, int* end) const;

  // Special characters and text coding ----------------------------------------------
  // Characters from 0x00FF up become the escape 0x00FF and four hexadecimal digits.
  void Encode();
  void Decode();
  // Latin-1 bytes, then decoded.
  void Decode(const char* text);
  void ToSpecial();
  void FromSpecial();
  // The text for an input field or a display, in a library-wide buffer that the
  // next call overwrites.
  const char16_t* GetInputTCHAR() const;
  void FromInputTCHAR(const char16_t* text);

  // Environment -----------------------------------------------------------------------
  // This string names a variable: its value from the process environment, else
  // the entry of that name under the key "Environment" of the user root, then of
  // the machine root; VOID when none has it. Never leaves a settings error pending.
  C_STRING GetEnv() const;
  // This string is an assignment "name=value" for the process environment
  // ("name=" removes the variable).
  void PutEnv() const;

 private:
  static const char16_t* EmptyText();
  void AppendGrowing(C_CHAR c);
  void AppendUnits(const char16_t* text, int count);
  void AssignUnits(const char16_t* text, int count);
  void AssignBytes(const char* bytes, int count);
  int CompareCodes(const C_STRING& o) const;

  C_CHAR* buffer_;
  unsigned short size_;
  unsigned short number_;
};

// Appending consults the pending error, so the inline appends are defined
// with C_ERROR.
#include <qorc/error.h>

#endif
