// Small text helpers shared by the path sources.
#ifndef QORC_PATH_PATH_TEXT_H
#define QORC_PATH_PATH_TEXT_H

#include <qorc/string.h>

namespace qorc::path {

inline bool IsSeparator(char16_t c) { return c == u'\\' || c == u'/'; }

inline char16_t At(const C_STRING& s, int i) { return static_cast<char16_t>(s.Get(i)); }

// The characters first to last inclusive, clamped to the string; empty when
// the range holds nothing.
C_STRING Slice(const C_STRING& s, int first, int last);
// The characters from `first` to the end.
inline C_STRING Tail(const C_STRING& s, int first) { return Slice(s, first, s.GetNumber() - 1); }
// The characters before `end`.
inline C_STRING Head(const C_STRING& s, int end) { return Slice(s, 0, end - 1); }

// First index of c at or after start, or -1.
int FindChar(const C_STRING& s, char16_t c, int start);
// First index at or after start holding "\" or "/", or -1.
int FindSeparator(const C_STRING& s, int start);
// Last index of c, or -1.
int FindLastChar(const C_STRING& s, char16_t c);

// The characters from first to end - 1 exist and are all decimal digits.
bool IsDigits(const C_STRING& s, int first, int end);
// s begins with prefix, code unit by code unit.
bool StartsWith(const C_STRING& s, const C_STRING& prefix);

// Case-mapped copies, character by character.
C_STRING Lowered(const C_STRING& s);
C_STRING Uppered(const C_STRING& s);

}  // namespace qorc::path

#endif
