// Wildcard matching, pattern and text both from the input.
#include <cstdlib>

#include "fuzz_support.h"

namespace {

// The pattern matches the text in the library's single forward pass; the
// result can only claim a match a backtracking matcher also finds.
bool Backtracking(const char16_t* s, int n, const char16_t* p, int m) {
  if (m == 0) return n == 0;
  if (p[0] == u'*') {
    for (int k = 0; k <= n; ++k) {
      if (Backtracking(s + k, n - k, p + 1, m - 1)) return true;
    }
    return false;
  }
  return n > 0 && (p[0] == u'?' || p[0] == s[0]) && Backtracking(s + 1, n - 1, p + 1, m - 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Prepare();
  if (size < 2) return 0;
  // The first byte says where the pattern ends; units come in pairs of bytes.
  const std::u16string all = fuzz::Units(data + 1, size - 1);
  const std::size_t split = data[0] % (all.size() + 1);
  const std::u16string pattern = all.substr(0, split);
  const std::u16string text = all.substr(split);
  const C_STRING p = fuzz::MakeString(pattern);
  const C_STRING s = fuzz::MakeString(text);
  const bool matched = s.MatchWildCard(p);
  s.MatchWildCardNoCase(p, false);
  // Small cases only: the reference matcher is exponential.
  int stars = 0;
  for (char16_t c : pattern) stars += c == u'*' ? 1 : 0;
  if (matched && stars <= 3 && text.size() <= 24 &&
      !Backtracking(text.data(), static_cast<int>(text.size()), pattern.data(), static_cast<int>(pattern.size()))) {
    std::abort();
  }
  return 0;
}
