// Searching UTF-16 units and matching wildcards: the loops behind the search
// and wildcard operations of C_STRING, shared with the other subsystems that
// scan texts.
#ifndef QORC_STRING_STRING_SEARCH_H
#define QORC_STRING_STRING_SEARCH_H

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "foundation/builtins.h"

namespace qorc {

// The first `unit` in text[start, length), or -1.
inline int FindUnit(const char16_t* text, int length, int start, char16_t unit) {
  int i = start;
#if defined(__SSE2__)
  const __m128i wanted = _mm_set1_epi16(static_cast<short>(unit));
  for (; i + 8 <= length; i += 8) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
    const int mask = _mm_movemask_epi8(_mm_cmpeq_epi16(block, wanted));
    if (mask != 0) return i + qorc::CountTrailingZeros32(static_cast<unsigned>(mask)) / 2;
  }
#endif
  for (; i < length; ++i) {
    if (text[i] == unit) return i;
  }
  return -1;
}

// The first occurrence of pattern[0, count) in text[start, length) that lies
// wholly inside it, or -1. count is at least 1.
inline int FindUnits(const char16_t* text, int length, int start, const char16_t* pattern, int count) {
  if (count == 1) return FindUnit(text, length, start, pattern[0]);
  const int lastStart = length - count;  // the last position an occurrence may start at
  int i = start;
  const char16_t first = pattern[0];
  const char16_t last = pattern[count - 1];
  const std::size_t middleBytes = static_cast<std::size_t>(count - 2) * sizeof(char16_t);
#if defined(__SSE2__)
  // Eight candidate positions at a time: both the first and the last unit of
  // the pattern must be in place before the middle is compared.
  const __m128i firstUnits = _mm_set1_epi16(static_cast<short>(first));
  const __m128i lastUnits = _mm_set1_epi16(static_cast<short>(last));
  for (; i + 7 <= lastStart; i += 8) {
    const __m128i heads = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
    const __m128i tails = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i + count - 1));
    unsigned mask = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi16(heads, firstUnits), _mm_cmpeq_epi16(tails, lastUnits))));
    while (mask != 0) {
      const int at = i + qorc::CountTrailingZeros32(mask) / 2;
      if (std::memcmp(text + at + 1, pattern + 1, middleBytes) == 0) return at;
      mask &= mask - 1;  // each unit sets two mask bits
      mask &= mask - 1;
    }
  }
#endif
  for (; i <= lastStart; ++i) {
    if (text[i] == first && text[i + count - 1] == last && std::memcmp(text + i + 1, pattern + 1, middleBytes) == 0) {
      return i;
    }
  }
  return -1;
}

// Wildcard matching in one forward pass that remembers only the last star and
// never moves back in the text. This is the library's documented matching
// rule, and hosts depend on it: some texts that a backtracking matcher would
// accept are refused ("aab" does not match "*ab").
inline bool MatchWildCardUnits(const char16_t* s, int n, const char16_t* p, int m) {
  int i = 0;
  int j = 0;
  int star = -1;
  if (m > 0) {
    while (i < m && j < n) {
      const char16_t c = p[i];
      if (c == u'*') {
        if (i == m - 1) return true;
        star = i;
      } else {
        if (c != u'?' && c != s[j]) {
          if (star == -1) return false;
          i = star;
        }
        ++j;
      }
      // The pattern's last character is used up but text remains: the star
      // takes over again.
      if (i == m - 1 && star != -1 && j < n) i = star;
      ++i;
    }
  }
  if (j < n) return false;
  if (i < m) return i == m - 1 && p[i] == u'*';
  return true;
}

}  // namespace qorc

#endif
