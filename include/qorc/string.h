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
