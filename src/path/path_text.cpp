#include "path/path_text.h"

namespace qorc::path {

C_STRING Slice(const C_STRING& s, int first, int last) {
  if (first < 0) first = 0;
  if (last > s.GetNumber() - 1) last = s.GetNumber() - 1;
  if (first > last) return C_STRING();
  return C_STRING(last - first + 1, s.GetWCHAR() + first);
}

int FindChar(const C_STRING& s, char16_t c, int start) {
  for (int i = start < 0 ? 0 : start; i < s.GetNumber(); ++i) {
    if (At(s, i) == c) return i;
  }
  return -1;
}

int FindSeparator(const C_STRING& s, int start) {
  for (int i = start < 0 ? 0 : start; i < s.GetNumber(); ++i) {
    if (IsSeparator(At(s, i))) return i;
  }
  return -1;
}

int FindLastChar(const C_STRING& s, char16_t c) {
  for (int i = s.GetNumber() - 1; i >= 0; --i) {
    if (At(s, i) == c) return i;
  }
  return -1;
}

bool IsDigits(const C_STRING& s, int first, int end) {
  if (first < 0 || end > s.GetNumber() || first >= end) return false;
  for (int i = first; i < end; ++i) {
    const char16_t c = At(s, i);
    if (c < u'0' || c > u'9') return false;
  }
  return true;
}

bool StartsWith(const C_STRING& s, const C_STRING& prefix) {
  if (prefix.GetNumber() > s.GetNumber()) return false;
  for (int i = 0; i < prefix.GetNumber(); ++i) {
    if (At(s, i) != At(prefix, i)) return false;
  }
  return true;
}

C_STRING Lowered(const C_STRING& s) {
  C_STRING out(s);
  for (int i = 0; i < out.GetNumber(); ++i) {
    C_CHAR c = out.Get(i);
    c.MakeLower();
    out.Replace(i, c);
  }
  return out;
}

C_STRING Uppered(const C_STRING& s) {
  C_STRING out(s);
  for (int i = 0; i < out.GetNumber(); ++i) {
    C_CHAR c = out.Get(i);
    c.MakeUpper();
    out.Replace(i, c);
  }
  return out;
}

}  // namespace qorc::path
