// C_STRING editing in place, case mapping, search, prefix and suffix tests,
// and wildcard matching.
#include <qorc/string.h>

#include <cstring>

#include "foundation/library.h"
#include "platform/text.h"
#include "string/string_internal.h"
#include "string/string_search.h"

using qorc::Units;

namespace {

char16_t Lower(char16_t c) {
  if (c < 0x80) return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c;
  return qorc::platform::CharToLower(c);
}

char16_t Upper(char16_t c) {
  if (c < 0x80) return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c;
  return qorc::platform::CharToUpper(c);
}

bool IsSpaceChar(char16_t c) { return qorc::platform::CharIs(c, qorc::platform::CharClass::Space); }

}  // namespace

// Editing ---------------------------------------------------------------------

void C_STRING::Insert(int i, C_CHAR c) {
  // A position outside the text is ignored rather than written past the buffer.
  if (i < 0 || i > number_) return;
  GrowAuto(number_ + 2);
  if (C_ERROR::Is()) return;
  std::memmove(buffer_ + i + 1, buffer_ + i, (number_ - i + 1) * sizeof(C_CHAR));
  buffer_[i] = c;
  ++number_;
}

void C_STRING::Insert(int i, const C_STRING& text) {
  if (i < 0 || i > number_) return;
  if (&text == this) {
    const C_STRING copy(text);
    if (C_ERROR::Is()) return;
    Insert(i, copy);
    return;
  }
  const int count = text.number_;
  GrowAuto(number_ + count + 1);
  if (C_ERROR::Is() || count == 0) return;
  std::memmove(buffer_ + i + count, buffer_ + i, (number_ - i + 1) * sizeof(C_CHAR));
  std::memcpy(buffer_ + i, text.buffer_, count * sizeof(C_CHAR));
  number_ = static_cast<unsigned short>(number_ + count);
}

void C_STRING::Remove(int i) {
  if (i < 0 || i >= number_) return;
  std::memmove(buffer_ + i, buffer_ + i + 1, (number_ - i) * sizeof(C_CHAR));
  --number_;
}

void C_STRING::Remove(int first, int last) {
  if (first < 0) first = 0;
  if (last > number_ - 1) last = number_ - 1;
  if (first > last) return;
  const int count = last - first + 1;
  std::memmove(buffer_ + first, buffer_ + last + 1, (number_ - last) * sizeof(C_CHAR));
  number_ = static_cast<unsigned short>(number_ - count);
}

void C_STRING::Replace(int first, int last, const C_STRING& text) {
  if (first < 0) first = 0;
  if (last > number_ - 1) last = number_ - 1;
  if (first > last) return;
  if (&text == this) {
    const C_STRING copy(text);
    if (C_ERROR::Is()) return;
    Replace(first, last, copy);
    return;
  }
  const int range = last - first + 1;
  const int count = text.number_;
  if (count > range) {
    GrowAuto(number_ - range + count + 1);
    if (C_ERROR::Is()) return;
  }
  if (count != range) {
    std::memmove(buffer_ + first + count, buffer_ + last + 1, (number_ - last) * sizeof(C_CHAR));
  }
  if (count > 0) std::memcpy(buffer_ + first, text.buffer_, count * sizeof(C_CHAR));
  number_ = static_cast<unsigned short>(number_ - range + count);
}

void C_STRING::Replace(const C_STRING& from, const C_STRING& to) {
  const int fromCount = from.number_;
  if (fromCount == 0 || number_ < fromCount) return;
  if (&from == this || &to == this) {
    const C_STRING fromCopy(from);
    const C_STRING toCopy(to);
    if (C_ERROR::Is()) return;
    Replace(fromCopy, toCopy);
    return;
  }
  const char16_t* pattern = Units(from.buffer_);
  const char16_t* replacement = Units(to.buffer_);
  const int toCount = to.number_;
  char16_t* text = Units(buffer_);
  const int length = number_;

  // Occurrences do not overlap and are found left to right in the original
  // text: the scan resumes behind each replacement, so inserted text is
  // never scanned again.
  if (toCount <= fromCount) {
    // The text shrinks or keeps its length: one pass in place.
    int read = 0;
    int write = 0;
    for (;;) {
      const int found = qorc::FindUnits(text, length, read, pattern, fromCount);
      const int stop = found < 0 ? length : found;
      if (write != read) std::memmove(text + write, text + read, (stop - read) * sizeof(char16_t));
      write += stop - read;
      if (found < 0) break;
      if (toCount > 0) std::memcpy(text + write, replacement, toCount * sizeof(char16_t));
      write += toCount;
      read = found + fromCount;
    }
    number_ = static_cast<unsigned short>(write);
    buffer_[write] = C_CHAR::VOID;
    return;
  }

  // The text grows: count the occurrences (keeping the first positions) and
  // grow once.
  constexpr int kKept = 256;
  int kept[kKept];
  int occurrences = 0;
  for (int at = qorc::FindUnits(text, length, 0, pattern, fromCount); at >= 0;
       at = qorc::FindUnits(text, length, at + fromCount, pattern, fromCount)) {
    if (occurrences < kKept) kept[occurrences] = at;
    ++occurrences;
  }
  if (occurrences == 0) return;
  const long long grown = static_cast<long long>(length) + static_cast<long long>(occurrences) * (toCount - fromCount);
  if (grown > MAX_SIZE - 1) {
    CerrValueTooHigh.Trigger();
    return;
  }
  const int total = static_cast<int>(grown);
  if (C_ERROR::Is()) return;
  // A larger buffer is chosen as GrowAuto chooses it and the result laid out
  // in it directly. Otherwise the original text is first moved to the end of
  // the buffer and laid out again from the front; the writing position never
  // overtakes the reading one.
  C_CHAR* fresh = nullptr;
  int capacity = size_;
  if (size_ < total + 1) {
    capacity = 2 * size_ < MAX_SIZE ? 2 * size_ : MAX_SIZE;
    if (capacity < total + 1) capacity = total + 1;
    if (capacity < 10) capacity = 10;
    fresh = qorc::NewArray<C_CHAR>(static_cast<std::size_t>(capacity));
    if (fresh == nullptr) return;
  } else {
    std::memmove(text + (total - length), text, length * sizeof(char16_t));
  }
  const char16_t* source = fresh != nullptr ? text : text + (total - length);
  char16_t* out = fresh != nullptr ? Units(fresh) : text;
  int next = 0;  // the next occurrence to place
  int read = 0;
  int write = 0;
  while (next < occurrences) {
    const int found = next < kKept ? kept[next] : qorc::FindUnits(source, length, read, pattern, fromCount);
    ++next;
    std::memmove(out + write, source + read, (found - read) * sizeof(char16_t));
    write += found - read;
    std::memcpy(out + write, replacement, toCount * sizeof(char16_t));
    write += toCount;
    read = found + fromCount;
  }
  std::memmove(out + write, source + read, (length - read) * sizeof(char16_t));
  out[total] = 0;
  if (fresh != nullptr) {
    delete[] buffer_;
    buffer_ = fresh;
    size_ = static_cast<unsigned short>(capacity);
  }
  number_ = static_cast<unsigned short>(total);
}

void C_STRING::ReplaceAll(C_CHAR from, C_CHAR to) {
  char16_t* text = Units(buffer_);
  const char16_t a = from;
  const char16_t b = to;
  for (int i = 0; i < number_; ++i) {
    if (text[i] == a) text[i] = b;
  }
}

void C_STRING::SubstituteChars(const C_STRING& from, const C_STRING& to) {
  if (number_ == 0 || from.number_ == 0 || to.number_ == 0) return;
  if (from.number_ != to.number_) {
    CerrInvalidValue.TriggerMild(&from);
    return;
  }
  // The tables may be this very string: they are then read from copies.
  if (&from == this || &to == this) {
    const C_STRING fromCopy(from);
    const C_STRING toCopy(to);
    if (C_ERROR::Is()) return;
    SubstituteChars(fromCopy, toCopy);
    return;
  }
  const char16_t* source = Units(from.buffer_);
  const char16_t* target = Units(to.buffer_);
  const int count = from.number_;
  char16_t* text = Units(buffer_);
  for (int i = 0; i < number_; ++i) {
    for (int k = 0; k < count; ++k) {
      if (source[k] == text[i]) {
        text[i] = target[k];
        break;
      }
    }
  }
}

void C_STRING::Trim(int first, int last) {
  if (buffer_ == nullptr) return;
  // A negative first is taken as 0.
  if (first < 0) first = 0;
  if (last > number_ - 1) last = number_ - 1;
  if (first > last) {
    number_ = 0;
    buffer_[0] = C_CHAR::VOID;
    return;
  }
  const int count = last - first + 1;
  if (first > 0) std::memmove(buffer_, buffer_ + first, count * sizeof(C_CHAR));
  number_ = static_cast<unsigned short>(count);
  buffer_[count] = C_CHAR::VOID;
}

void C_STRING::RemoveAllSpaces() {
  char16_t* text = Units(buffer_);
  int write = 0;
  for (int read = 0; read < number_; ++read) {
    if (text[read] != u' ') text[write++] = text[read];
  }
  if (write == number_) return;
  number_ = static_cast<unsigned short>(write);
  buffer_[write] = C_CHAR::VOID;
}

void C_STRING::Pad(C_CHAR c, int width, C_BOOL left) {
  GrowAuto(width + 1);
  if (C_ERROR::Is() || number_ >= width) return;
  const int added = width - number_;
  char16_t* text = Units(buffer_);
  if (left) {
    std::memmove(text + added, text, number_ * sizeof(char16_t));
    for (int i = 0; i < added; ++i) text[i] = c;
  } else {
    for (int i = number_; i < width; ++i) text[i] = c;
  }
  number_ = static_cast<unsigned short>(width);
  buffer_[width] = C_CHAR::VOID;
}

void C_STRING::Unpad(C_CHAR c, C_BOOL left) {
  const char16_t* text = Units(buffer_);
  const char16_t code = c;
  if (left) {
    int run = 0;
    while (run < number_ && text[run] == code) ++run;
    if (run > 0) Remove(0, run - 1);
  } else {
    int keep = number_;
    while (keep > 0 && text[keep - 1] == code) --keep;
    if (keep < number_) {
      number_ = static_cast<unsigned short>(keep);
      buffer_[keep] = C_CHAR::VOID;
    }
  }
}

void C_STRING::UnpadSpaces() {
  const char16_t* text = Units(buffer_);
  int last = number_ - 1;
  while (last >= 0 && IsSpaceChar(text[last])) --last;
  int first = 0;
  while (first <= last && IsSpaceChar(text[first])) ++first;
  if (first == 0 && last == number_ - 1) return;
  Trim(first, last);
}

C_STRING C_STRING::GetSlice(int first, int last) const {
  C_STRING slice;
  if (buffer_ == nullptr) return slice;
  if (first < 0) first = 0;
  if (last > number_ - 1) last = number_ - 1;
  if (first > last) return slice;
  slice.AssignUnits(Units(buffer_) + first, last - first + 1);
  return slice;
}

// Case ------------------------------------------------------------------------

void C_STRING::MakeLower() {
  char16_t* text = Units(buffer_);
  for (int i = 0; i < number_; ++i) text[i] = Lower(text[i]);
}

void C_STRING::MakeUpper() {
  char16_t* text = Units(buffer_);
  for (int i = 0; i < number_; ++i) text[i] = Upper(text[i]);
}

void C_STRING::MakeLower1() {
  if (number_ > 0) buffer_[0] = C_CHAR(Lower(buffer_[0]));
}

void C_STRING::MakeUpper1() {
  if (number_ > 0) buffer_[0] = C_CHAR(Upper(buffer_[0]));
}

namespace {

// At least one letter, and every letter of the wanted case.
bool LettersAllOfCase(const char16_t* text, int count, qorc::platform::CharClass wanted) {
  bool letter = false;
  for (int i = 0; i < count; ++i) {
    if (!qorc::platform::CharIs(text[i], qorc::platform::CharClass::Alpha)) continue;
    if (!qorc::platform::CharIs(text[i], wanted)) return false;
    letter = true;
  }
  return letter;
}

}  // namespace

C_BOOL C_STRING::IsLower() const { return LettersAllOfCase(Units(buffer_), number_, qorc::platform::CharClass::Lower); }

C_BOOL C_STRING::IsUpper() const { return LettersAllOfCase(Units(buffer_), number_, qorc::platform::CharClass::Upper); }

C_BOOL C_STRING::IsUpper1() const {
  if (number_ == 0) return false;
  const char16_t c = buffer_[0];
  return qorc::platform::CharIs(c, qorc::platform::CharClass::Alpha) &&
         !qorc::platform::CharIs(c, qorc::platform::CharClass::Lower);
}

// Search ----------------------------------------------------------------------

// A negative start is taken as 0.
int C_STRING::Search(C_CHAR c, int start) const {
  if (start < 0) start = 0;
  if (start >= number_) return -1;
  return qorc::FindUnit(Units(buffer_), number_, start, c);
}

int C_STRING::SearchNoCase(C_CHAR c, int start) const {
  if (start < 0) start = 0;
  const char16_t* text = Units(buffer_);
  const char16_t wanted = Lower(c);
  for (int i = start; i < number_; ++i) {
    if (Lower(text[i]) == wanted) return i;
  }
  return -1;
}

int C_STRING::Search(const C_STRING& text, int start) const {
  if (start < 0) start = 0;
  if (number_ == 0 || text.number_ == 0 || start > number_ - text.number_) return -1;
  return qorc::FindUnits(Units(buffer_), number_, start, Units(text.buffer_), text.number_);
}

int C_STRING::SearchNoCase(const C_STRING& text, int start) const {
  if (start < 0) start = 0;
  const int count = text.number_;
  if (number_ == 0 || count == 0 || start > number_ - count) return -1;
  const char16_t* mine = Units(buffer_);
  const char16_t* wanted = Units(text.buffer_);
  const char16_t head = Lower(wanted[0]);
  for (int i = start; i <= number_ - count; ++i) {
    if (Lower(mine[i]) != head) continue;
    int k = 1;
    while (k < count && Lower(mine[i + k]) == Lower(wanted[k])) ++k;
    if (k == count) return i;
  }
  return -1;
}

// A start at or beyond the end is taken as the last character.
int C_STRING::SearchFromEnd(C_CHAR c, int start) const {
  if (buffer_ == nullptr || start < 0) return -1;
  if (start > number_ - 1) start = number_ - 1;
  const char16_t* text = Units(buffer_);
  const char16_t code = c;
  for (int i = start; i >= 0; --i) {
    if (text[i] == code) return i;
  }
  return -1;
}

int C_STRING::SearchFromEnd(C_CHAR c) const { return SearchFromEnd(c, number_ - 1); }

int C_STRING::BackwardSearch(C_CHAR c, int start) const { return SearchFromEnd(c, start == -1 ? number_ - 1 : start); }

// The start is deliberately ignored: callers rely on the search covering the
// whole text.
int C_STRING::SearchCharSet(const C_STRING& set, int /*start*/, int* which) const {
  if (number_ == 0 || set.number_ == 0) return -1;
  const char16_t* text = Units(buffer_);
  const char16_t* members = Units(set.buffer_);
  for (int i = 0; i < number_; ++i) {
    for (int k = 0; k < set.number_; ++k) {
      if (members[k] == text[i]) {
        if (which != nullptr) *which = k;
        return i;
      }
    }
  }
  return -1;
}

namespace {

int Found(int result, const C_STRING& sought) {
  if (result < 0) CerrStringNotFound.TriggerMild(&sought);
  return result;
}

C_STRING OneChar(C_CHAR c) {
  const char16_t unit = c;
  return C_STRING(1, &unit);
}

}  // namespace

int C_STRING::Find(C_CHAR c, int start) const { return Found(Search(c, start), OneChar(c)); }
int C_STRING::Find(const C_STRING& text, int start) const { return Found(Search(text, start), text); }
int C_STRING::FindFromEnd(C_CHAR c, int start) const { return Found(SearchFromEnd(c, start), OneChar(c)); }
int C_STRING::FindFromEnd(C_CHAR c) const { return Found(SearchFromEnd(c), OneChar(c)); }

// Prefix and suffix -------------------------------------------------------------

namespace {

bool SameUnits(const char16_t* a, const char16_t* b, int count) {
  return count == 0 || std::memcmp(a, b, count * sizeof(char16_t)) == 0;
}

bool SameUnitsNoCase(const char16_t* a, const char16_t* b, int count) {
  for (int i = 0; i < count; ++i) {
    if (a[i] != b[i] && Lower(a[i]) != Lower(b[i])) return false;
  }
  return true;
}

}  // namespace

C_BOOL C_STRING::StartsWith(const C_STRING& text) const {
  return number_ >= text.number_ && SameUnits(Units(buffer_), Units(text.buffer_), text.number_);
}

C_BOOL C_STRING::EndsWith(const C_STRING& text) const {
  return number_ >= text.number_ &&
         SameUnits(Units(buffer_) + (number_ - text.number_), Units(text.buffer_), text.number_);
}

C_BOOL C_STRING::StartsWithNoCase(const C_STRING& text) const {
  return number_ >= text.number_ && SameUnitsNoCase(Units(buffer_), Units(text.buffer_), text.number_);
}

C_BOOL C_STRING::EndsWithNoCase(const C_STRING& text) const {
  return number_ >= text.number_ &&
         SameUnitsNoCase(Units(buffer_) + (number_ - text.number_), Units(text.buffer_), text.number_);
}

// Wildcards -------------------------------------------------------------------

C_BOOL C_STRING::MatchWildCard(const C_STRING& pattern) const {
  return qorc::MatchWildCardUnits(Units(buffer_), number_, Units(pattern.buffer_), pattern.number_);
}

C_BOOL C_STRING::MatchWildCardNoCase(const C_STRING& pattern, C_BOOL patternIsLower) const {
  C_STRING text(*this);
  if (C_ERROR::Is()) return false;
  text.MakeLower();
  if (patternIsLower) return text.MatchWildCard(pattern);
  C_STRING lowered(pattern);
  if (C_ERROR::Is()) return false;
  lowered.MakeLower();
  return text.MatchWildCard(lowered);
}
