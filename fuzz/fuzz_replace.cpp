// Search and replacement against a plain reference, with spare room in the
// buffer or without.
#include <cstdlib>

#include "fuzz_support.h"

namespace {

// Every occurrence, left to right, never scanning replaced text again.
std::u16string Reference(const std::u16string& text, const std::u16string& from, const std::u16string& to) {
  std::u16string result;
  std::size_t done = 0;
  for (std::size_t at = text.find(from); at != std::u16string::npos; at = text.find(from, done)) {
    result.append(text, done, at - done);
    result += to;
    done = at + from.size();
  }
  result.append(text, done, std::u16string::npos);
  return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Prepare();
  if (size < 3) return 0;
  // Units of a small alphabet, so that occurrences are frequent.
  std::u16string all = fuzz::Units(data + 3, size - 3);
  for (char16_t& c : all) c = static_cast<char16_t>(u'a' + c % 3);
  const std::size_t fromLength = 1 + data[0] % 4;
  const std::size_t toLength = data[1] % 8;
  if (all.size() < fromLength + toLength) return 0;
  const std::u16string from = all.substr(0, fromLength);
  const std::u16string to = all.substr(fromLength, toLength);
  const std::u16string text = all.substr(fromLength + toLength);

  C_STRING s;
  if (data[2] & 1) s.Grow(static_cast<int>(text.size()) * 3 + 1);
  s = fuzz::MakeString(text);
  const C_STRING f = fuzz::MakeString(from);
  const int found = s.Search(f, 0);
  if (found != (text.empty() ? -1 : static_cast<int>(text.find(from) == std::u16string::npos ? -1 : text.find(from)))) {
    std::abort();
  }
  s.Replace(f, fuzz::MakeString(to));
  const std::u16string expected = Reference(text, from, to);
  if (C_ERROR::Is()) return 0;  // longer than the longest string: unchanged
  if (std::u16string(s.GetWCHAR(), static_cast<std::size_t>(s.GetNumber())) != expected) std::abort();
  return 0;
}
