// printf-style formatting of values by a caller's wide format, with the
// directives of the Windows runtime: in a wide format %s and %c take wide
// text, %S narrow text, and %I64d, %I64u, %I64x as well as %lld take 64-bit
// values. The format is translated directive by directive; a caller's format
// never reaches a C function whose argument types could differ.
#ifndef QORC_STRING_FORMAT_H
#define QORC_STRING_FORMAT_H

namespace qorc {

struct FormatValue {
  enum class Kind { Int, Int64, Real, Text };
  Kind kind;
  long long integer = 0;
  double real = 0.0;
  const char16_t* text = nullptr;
  int textLength = 0;

  static FormatValue Of(int v) { return {Kind::Int, v, 0.0, nullptr, 0}; }
  static FormatValue Of(long long v) { return {Kind::Int64, v, 0.0, nullptr, 0}; }
  static FormatValue Of(double v) { return {Kind::Real, 0, v, nullptr, 0}; }
  static FormatValue Of(const char16_t* t, int n) { return {Kind::Text, 0, 0.0, t, n}; }
};

// Formats the value by the format (`formatLength` units) into `out`, writing
// at most capacity - 1 units and a terminator (nothing when capacity is 0).
// The value goes to the first directive; later directives take no value and
// produce nothing. Returns the length of the whole result.
int FormatOne(const char16_t* format, int formatLength, const FormatValue& value, char16_t* out, int capacity);
// The same with `count` values, taken by the directives in order; directives
// beyond the last value produce nothing.
int FormatMany(const char16_t* format, int formatLength, const FormatValue* values, int count, char16_t* out,
               int capacity);

}  // namespace qorc

#endif
