/// @file
/// C_STRING: the library's counted, terminated UTF-16 text with 16-bit length and capacity.
#ifndef QORC_STRING_H
#define QORC_STRING_H

#include <qorc/char.h>
#include <qorc/export.h>
#include <qorc/types.h>
#include <qorc/windows_names.h>

/// The library's text value: an owned, counted and terminated array of C_CHAR
/// (UTF-16 units) with 16-bit length and capacity, so at most 65534 characters.
/// An empty string allocates nothing. Failures leave the pending error of C_ERROR:
/// CerrMemoryFull when memory runs out (constructors and assignments then leave an
/// empty string, appending operations leave the string unchanged, GetNew...
/// conversions return null) and CerrValueTooHigh for a capacity above MAX_SIZE.
/// Indexes are 0-based, ranges given by two indexes are inclusive, and a failed
/// search gives -1.
class QORC_API C_STRING {
 public:
  /// The empty string, the library's "no value" result.
  static const C_STRING VOID;
  /// The largest capacity, terminator included.
  static constexpr int MAX_SIZE = 65535;

  // Storage and ownership ---------------------------------------------------
  /// Empty, with no buffer.
  constexpr C_STRING() : buffer_(nullptr), size_(0), number_(0) {}
  /// Releases the buffer.
  ~C_STRING();
  /// A copy (with a buffer of exactly the length needed).
  C_STRING(const C_STRING& other);
  /// A copy of UTF-16 text up to its terminator; null gives the empty string.
  C_STRING(const char16_t* text);
  /// A copy up to the terminator; the pointer must not be null.
  C_STRING(const C_CHAR* text);
  /// 8-bit text in the library code page (byte for byte while CcharMBCS is false).
  /// Null gives the empty string; CerrMemoryFull when memory runs out.
  C_STRING(const char* text);
  /// Convenience for hosts: UTF-32 text of the platform's wchar_t.
  C_STRING(const wchar_t* text);
  /// Exactly n bytes, each zero-extended; embedded zeros kept.
  C_STRING(int n, const char* text);
  /// Exactly n characters.
  C_STRING(int n, const char16_t* text);
  /// Decimal text of the value. Explicit, so that no number turns into text by accident.
  explicit C_STRING(int value);
  /// Decimal text of the value.
  explicit C_STRING(long value) : C_STRING(static_cast<long long>(value)) {}
  /// Decimal text of the value.
  explicit C_STRING(long long value);
  /// The value formatted by a printf-style format with the directives of the
  /// Windows runtime (%s is wide text, %I64d a 64-bit value, ...).
  /// The format holds one directive for a 32-bit integer (with any flags and width).
  C_STRING(int value, const C_STRING& format);
  /// The 64-bit value formatted by a printf-style wide format (%I64d, %lld, ...).
  C_STRING(long long value, const C_STRING& format);
  /// style 'e' exponent, 'f' fixed, anything else the shortest form; digits is the precision.
  /// Example: 3.14159 with 2 and 'f' gives "3.14".
  C_STRING(double value, int digits, int style);
  /// The value formatted by a printf-style wide format (%f, %g, %.3e, ...).
  C_STRING(double value, const C_STRING& format);
  /// The text inserted into a format holding one string directive (%s); the result has no length limit below MAX_SIZE.
  C_STRING(const C_STRING& text, const C_STRING& format);

  /// The capacity in characters, the terminator's place included.
  int GetSize() const { return size_; }
  /// The length in characters, the terminator excluded.
  int GetNumber() const { return number_; }
  /// True when the length is 0.
  C_BOOL IsVoid() const { return number_ == 0; }
  /// The character at i; C_CHAR::VOID when i is outside the string.
  C_CHAR Get(int i) const { return i >= 0 && i < number_ ? buffer_[i] : C_CHAR::VOID; }
  /// Stores c at i when i is inside the string; otherwise does nothing.
  void Replace(int i, C_CHAR c) {
    if (i >= 0 && i < number_) buffer_[i] = c;
  }
  /// Empties the string, keeping the buffer for reuse.
  void Clear() { number_ = 0; }
  /// Empties the string and releases its buffer.
  void ClearAndDelete();
  /// Ensures a capacity of at least `capacity` characters (terminator included),
  /// keeping the text. CerrValueTooHigh above MAX_SIZE, CerrMemoryFull when the
  /// allocation fails; the string is unchanged then.
  void Grow(int capacity);
  /// As Grow, with the growth policy of appending: the largest of capacity, 10 and
  /// twice the current size (capped at MAX_SIZE), so that appending is linear.
  void GrowAuto(int capacity);
  /// Releases the current buffer and takes ownership of *buffer (allocated with
  /// new[]), which becomes null; the length is measured up to the first 0 and the
  /// capacity is size (at least the length + 1).
  void Attach(C_CHAR** buffer, int size);
  /// Hands the buffer to the caller: the first pointer receives the length, the second the capacity.
  /// The caller releases the returned buffer with delete[]; the string is left
  /// empty without a buffer. Either pointer may be null. An empty string that never
  /// had a buffer returns null.
  C_CHAR* Detach(int* number, int* size);
  /// Adopts *buffer with exactly the given capacity and length, measuring nothing.
  /// The string releases its old buffer and takes ownership of *buffer (allocated
  /// with new[]), which becomes null.
  void Replace(int size, int number, C_CHAR** buffer);
  /// A new copy on the heap; the caller deletes it. Null with CerrMemoryFull when memory runs out.
  C_STRING* Clone() const;
  /// The same as Clone.
  C_STRING* CloneSame() const;

  // Assignment and concatenation -------------------------------------------
  /// Copies the other string, reusing the buffer when it is large enough.
  C_STRING& operator=(const C_STRING& other);
  /// Copies UTF-16 text up to its terminator; null gives the empty string.
  C_STRING& operator=(const char16_t* text);
  /// Copies 8-bit text as the constructor from const char* converts it; null gives the empty string.
  C_STRING& operator=(const char* text);
  /// A new string: a followed by b.
  friend QORC_API C_STRING operator+(const C_STRING& a, const C_STRING& b);
  /// Appends one character, growing as GrowAuto does. The string is unchanged
  /// while an error is pending (after a failed growth, too).
  inline void Append(C_CHAR c);
  /// Appends a string, growing as GrowAuto does; unchanged while an error is pending.
  void Append(const C_STRING& other);
  /// Appends one character (see Append).
  C_STRING& operator+=(C_CHAR c) {
    Append(c);
    return *this;
  }
  /// Appends one byte as a Latin-1 character (zero-extended).
  C_STRING& operator+=(char byte) {
    Append(C_CHAR(static_cast<char16_t>(static_cast<unsigned char>(byte))));
    return *this;
  }
  /// Appends one UTF-16 unit.
  C_STRING& operator+=(char16_t c) {
    Append(C_CHAR(c));
    return *this;
  }
  /// Appends a string (see Append).
  C_STRING& operator+=(const C_STRING& other);
  /// Appends UTF-16 text up to its terminator; null appends nothing.
  C_STRING& operator+=(const char16_t* text);
  /// Appends 8-bit text, converted as the constructor from const char* does; null appends nothing.
  C_STRING& operator+=(const char* text);

  // Comparison: code units as unsigned numbers, no locale ----------------------
  /// 1 when both hold the same code units, else 0.
  int operator==(const C_STRING& o) const;
  /// 1 when the code units differ, else 0.
  int operator!=(const C_STRING& o) const { return !(*this == o); }
  /// Code units compared as unsigned numbers; a prefix is smaller, the empty string smallest.
  int operator<(const C_STRING& o) const { return CompareCodes(o) < 0; }
  /// Code units compared as unsigned numbers (see operator<).
  int operator<=(const C_STRING& o) const { return CompareCodes(o) <= 0; }
  /// Code units compared as unsigned numbers (see operator<).
  int operator>(const C_STRING& o) const { return CompareCodes(o) > 0; }
  /// Code units compared as unsigned numbers (see operator<).
  int operator>=(const C_STRING& o) const { return CompareCodes(o) >= 0; }
  /// 1 when the text (not null) holds the same code units, else 0.
  int operator==(const char16_t* text) const;
  /// 1 when the text (not null) differs, else 0.
  int operator!=(const char16_t* text) const { return !(*this == text); }
  /// Negative, 0 or positive as this string sorts before, with or after the other
  /// in the locale's collation; an empty string sorts first.
  int Compare(const C_STRING& other) const;
  /// As Compare, without regard to case.
  int CompareNoCase(const C_STRING& other) const;
  /// Compare on pointers, in the shape that Cqsort expects.
  static int Compare(const C_STRING* a, const C_STRING* b);
  /// CompareNoCase on pointers, in the shape that Cqsort expects.
  static int CompareNoCase(const C_STRING* a, const C_STRING* b);

  // Conversions out -------------------------------------------------------------
  /// The string's own UTF-16 text (see GetWCHAR).
  operator const char16_t*() const { return GetWCHAR(); }
  /// The string's own terminated UTF-16 text, valid until the string is next
  /// modified; never null (an empty string gives an empty text).
  const char16_t* GetWCHAR() const {
    return number_ > 0 ? reinterpret_cast<const char16_t*>(buffer_) : EmptyText();
  }
  /// The same as GetWCHAR.
  const char16_t* GetTCHAR() const { return GetWCHAR(); }
  /// A new terminated copy of the UTF-16 text, released by the caller with delete[]; null when memory runs out.
  char16_t* GetNewWCHAR() const;
  /// The same as GetNewWCHAR.
  char16_t* GetNewTCHAR() const { return GetNewWCHAR(); }
  /// Latin-1 bytes of at most the first 1023 characters (others than Latin-1 become
  /// "?"), in a library-wide area that the next call overwrites.
  const char* GetANSI() const;
  /// Latin-1 bytes of the whole text (others become "?"), a new array released by the caller with delete[].
  char* GetNewANSI() const;
  /// The text in the library code page (at most 1023 bytes), in a library-wide area
  /// that the next call overwrites; an empty text when it cannot be converted.
  const char* GetMBCS() const;
  /// The text in the library code page, a new array released by the caller with
  /// delete[]; null with CerrStringCannotConvertMBCS (mild) pending when it cannot be converted.
  char* GetNewMBCS() const;
  /// The text in the OEM code page (at most 1023 bytes), in a library-wide area
  /// that the next call overwrites; an empty text when it fails or an error is pending.
  const char* GetOEM() const;
  /// The text in the OEM code page, a new array released by the caller with
  /// delete[] (GetNewANSI's result when the conversion fails).
  char* GetNewOEM() const;
  /// The text as UTF-8 (each unit on its own, surrogates not paired), a new array
  /// released by the caller with delete[]; null with CerrInternalError pending
  /// beyond 65535 bytes.
  char* GetNewUTF8() const;

  // Conversions in ----------------------------------------------------------------
  /// Becomes the bytes of the text taken as Latin-1 (zero-extended), no code page.
  void FromANSI(const char* text);
  /// Becomes the UTF-8 text decoded unit by unit (a four-byte sequence is taken as
  /// a three-byte one; continuation bytes are not checked).
  void FromUTF8(const char* text);

  // Editing, in place. Ranges are inclusive; operations that grow leave the
  // string unchanged while an error is visible. -------------------------------
  /// Inserts c before the character at i, growing as GrowAuto does. Positions
  /// outside 0..length are ignored.
  void Insert(int i, C_CHAR c);
  /// Inserts the text before the character at i; positions outside 0..length are ignored.
  void Insert(int i, const C_STRING& text);
  /// Removes the character at i; nothing when i is outside the string.
  void Remove(int i);
  /// Removes the inclusive range. A first below 0 counts as 0, a last beyond the
  /// end as the last index.
  void Remove(int first, int last);
  /// Replaces the inclusive range by the text. The range is clamped as for
  /// Remove; nothing when it is then empty.
  void Replace(int first, int last, const C_STRING& text);
  /// Every occurrence, left to right; replaced text is never scanned again.
  void Replace(const C_STRING& from, const C_STRING& to);
  /// Every `from` becomes `to`.
  void ReplaceAll(C_CHAR from, C_CHAR to);
  /// Character-wise translation; CerrInvalidValue when the lengths differ.
  void SubstituteChars(const C_STRING& from, const C_STRING& to);
  /// Keeps only the inclusive range; empty when first exceeds last.
  void Trim(int first, int last);
  /// Removes every space (U+0020); other blanks stay.
  void RemoveAllSpaces();
  /// Adds copies of c at the start (left) or the end until the length is width; a longer string is not cut.
  void Pad(C_CHAR c, int width, C_BOOL left);
  /// Removes the run of c at the start (left) or else at the end.
  void Unpad(C_CHAR c, C_BOOL left);
  /// Removes white space at both ends; an all-blank string becomes empty.
  void UnpadSpaces();
  /// A new string with the inclusive range, clamped as for Remove; VOID when it is empty.
  C_STRING GetSlice(int first, int last) const;

  // Case --------------------------------------------------------------------------
  /// Every character becomes its lower-case form.
  void MakeLower();
  /// Every character becomes its upper-case form.
  void MakeUpper();
  /// The first character becomes its lower-case form.
  void MakeLower1();
  /// The first character becomes its upper-case form.
  void MakeUpper1();
  /// True when the string holds a letter and every letter is lower case.
  C_BOOL IsLower() const;
  /// True when the string holds a letter and every letter is upper case.
  C_BOOL IsUpper() const;
  /// True when the first character is a letter that is not lower case.
  C_BOOL IsUpper1() const;

  // Search: indexes, or -1 when nothing is found ------------------------------------
  /// The first c at or after start (start not negative); -1 when none.
  int Search(C_CHAR c, int start = 0) const;
  /// As Search, comparing lower-case forms.
  int SearchNoCase(C_CHAR c, int start = 0) const;
  /// The first place at or after start where the text occurs; -1 when none or either string is empty.
  int Search(const C_STRING& text, int start = 0) const;
  /// As Search, comparing lower-case forms.
  int SearchNoCase(const C_STRING& text, int start = 0) const;
  /// The last c at or before start (start below the length); -1 when none.
  int SearchFromEnd(C_CHAR c, int start) const;
  /// The last c of the string; -1 when none.
  int SearchFromEnd(C_CHAR c) const;
  /// A start of -1 means the last character.
  int BackwardSearch(C_CHAR c, int start = -1) const;
  /// The first character that belongs to the set, -1 when none; *which, when given,
  /// receives its index in the set. The start is accepted and ignored: the search
  /// always begins at index 0.
  int SearchCharSet(const C_STRING& set, int start = 0, int* which = nullptr) const;
  /// As the searches, leaving CerrStringNotFound (mild) pending when nothing is found.
  /// As Search(C_CHAR, int).
  int Find(C_CHAR c, int start = 0) const;
  /// As Search(const C_STRING&, int), with CerrStringNotFound (mild) pending when nothing is found.
  int Find(const C_STRING& text, int start = 0) const;
  /// As SearchFromEnd(C_CHAR, int), with CerrStringNotFound (mild) pending when nothing is found.
  int FindFromEnd(C_CHAR c, int start) const;
  /// As SearchFromEnd(C_CHAR), with CerrStringNotFound (mild) pending when nothing is found.
  int FindFromEnd(C_CHAR c) const;
  /// True when the string begins with the text.
  C_BOOL StartsWith(const C_STRING& text) const;
  /// True when the string ends with the text.
  C_BOOL EndsWith(const C_STRING& text) const;
  /// As StartsWith, comparing lower-case forms.
  C_BOOL StartsWithNoCase(const C_STRING& text) const;
  /// As EndsWith, comparing lower-case forms.
  C_BOOL EndsWithNoCase(const C_STRING& text) const;

  // Wildcards: "?" any one character, "*" any run; no escape, no classes --------------
  /// True when the whole string matches the pattern, case-sensitively: "?" is any
  /// one character, "*" any run (also empty); no escape, no classes.
  C_BOOL MatchWildCard(const C_STRING& pattern) const;
  /// As MatchWildCard without regard to case; patternIsLower spares lower-casing a
  /// pattern that already is lower case (one pattern against many strings).
  C_BOOL MatchWildCardNoCase(const C_STRING& pattern, C_BOOL patternIsLower = false) const;

  // Numbers in text. A scan reads from start; *end, when given, receives the
  // index just behind what was read. The decimal separator is always the full
  // stop. -----------------------------------------------------------------------------
  /// True when the string is not empty and holds only the digits 0 to 9 (no sign, no blank).
  C_BOOL IsInt() const;
  /// True when the string is not empty and holds only hexadecimal digits (no prefix, no sign).
  C_BOOL IsHexa() const;
  /// The decimal integer at start (leading blanks and a sign accepted); 0 with
  /// CerrStringNotInt (mild) pending when there is none.
  int ScanInt(int start = 0, int* end = nullptr) const;
  /// As ScanInt without an error: true and *value, or false and 0.
  C_BOOL HasInt(int start, int* value, int* end = nullptr) const;
  /// The 64-bit decimal integer at start (wrapping on overflow); 0 with
  /// CerrStringNotInt (mild) pending when there is none.
  long long ScanLong(int start = 0, int* end = nullptr) const;
  /// As ScanLong without an error: true and *value, or false and 0.
  C_BOOL HasLong(int start, long long* value, int* end = nullptr) const;
  /// The real number at start (blanks, sign, fraction, exponent); 0.0 with
  /// CerrStringNotReal (mild) pending when there is none.
  double ScanReal(int start = 0, int* end = nullptr) const;
  /// The whole string as a decimal integer; 0 with CerrStringNotInt (mild) pending
  /// when it is not one (trailing text included).
  int ToInt() const;
  /// The whole string as a real number; 0.0 with CerrStringNotReal (mild) pending when it is not one.
  double ToReal() const;
  /// The whole string as a hexadecimal number ("0x" accepted); 0 with
  /// CerrStringNotInt (mild) pending when it is not one, 0 without error when empty.
  int HexaToInt() const;
  /// Kept as it always was although it computes no hexadecimal value: a string of
  /// hexadecimal digits fails with CerrStringNotInt (mild) and 0. Use HexaToInt.
  long long HexaToLong() const;
  /// A mixed number ("3 1/4"), a fraction ("3/4") or a real; 0.0 when not understood.
  /// A zero or negative denominator also gives 0.0; parts that are not numbers
  /// leave CerrStringNotReal (mild) pending.
  static void ConvertFraction(const C_STRING& text, double* result);
  /// The next token separated by spaces or tabs; double quotes group blanks.
  /// *end receives the index behind the token.
  void ScanToken(C_STRING* token, int start, int* end) const;

  // Special characters and text coding ----------------------------------------------
  /// Characters from 0x00FF up become the escape 0x00FF and four hexadecimal digits.
  void Encode();
  /// Undoes Encode: each escape and its four hexadecimal digits become one character.
  void Decode();
  /// Latin-1 bytes, then decoded.
  void Decode(const char* text);
  /// Puts a backslash before every double quote (existing backslashes are not doubled).
  void ToSpecial();
  /// Removes the backslash of every backslash-quote pair.
  void FromSpecial();
  /// The text for an input field or a display, in a library-wide buffer that the
  /// next call overwrites.
  /// Symbols that the display cannot show are spelled out (see C_CHAR) and "%" is escaped.
  const char16_t* GetInputTCHAR() const;
  /// Becomes the text of an input field: the reverse of GetInputTCHAR's escapes ("%%" and "%d").
  void FromInputTCHAR(const char16_t* text);

  // Environment -----------------------------------------------------------------------
  /// This string names a variable: its value from the process environment, else
  /// the entry of that name under the key "Environment" of the user root, then of
  /// the machine root; VOID when none has it. Never leaves a settings error pending.
  C_STRING GetEnv() const;
  /// This string is an assignment "name=value" for the process environment
  /// ("name=" removes the variable).
  /// A failure leaves a mild error pending with this string as its extra text.
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
