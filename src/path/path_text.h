// Small text helpers shared by the path sources.
#ifndef QORC_PATH_PATH_TEXT_H
#define QORC_PATH_PATH_TEXT_H

#include <qorc/string.h>

namespace qorc::path {

inline bool IsSeparator(char16_t c) { return c == u'\\' || c == u'/'; }

inline char16_t At(const C_STRING& s, int i) { return static_cast<char16_t>(s.Get(i)); }

// The characters before `end`, and those from `first` to the end.
inline C_STRING Head(const C_STRING& s, int end) { return s.GetSlice(0, end - 1); }
inline C_STRING Tail(const C_STRING& s, int first) { return s.GetSlice(first, s.GetNumber() - 1); }

// First index at or after start holding "\" or "/", or -1.
inline int FindSeparator(const C_STRING& s, int start) {
  for (int i = start < 0 ? 0 : start; i < s.GetNumber(); ++i) {
    if (IsSeparator(At(s, i))) return i;
  }
  return -1;
}

// Case-mapped copies.
inline C_STRING Lowered(const C_STRING& s) {
  C_STRING copy(s);
  copy.MakeLower();
  return copy;
}
inline C_STRING Uppered(const C_STRING& s) {
  C_STRING copy(s);
  copy.MakeUpper();
  return copy;
}

}  // namespace qorc::path

#endif
