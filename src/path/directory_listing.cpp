// Listings of one directory by a wildcard pattern, with the Windows
// enumeration's pattern rules and one order on every system. The seam only
// enumerates a directory; which names match and in which order they come is
// decided here, so that both systems give the same listings: Windows would
// also match a pattern against the short 8.3 names, and POSIX gives entries
// in whatever order the file system keeps them.
#include "path/directory_listing.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <string>
#include <vector>

#include "platform/text.h"

namespace qorc {
namespace {

using platform::DirectoryEntry;
using platform::DirectoryListing;

char16_t Folded(char16_t c) {
  if (c < 0x80) return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + (u'a' - u'A')) : c;
  // Surrogates are compared as they are; other units fold one to one.
  if (c >= 0xD800 && c <= 0xDFFF) return c;
  return qorc::platform::CharFold(c);
}

std::u16string FoldedText(const std::u16string& text) {
  std::u16string out(text);
  for (char16_t& c : out) c = Folded(c);
  return out;
}

// "*" and "?", the name folded as it is read. A mismatch resumes after the
// last "*" met, one character further on, so no pattern takes more than
// the name's length times the pattern's.
bool MatchFolded(const char16_t* name, std::size_t nameLength, const char16_t* pattern, std::size_t patternLength) {
  std::size_t n = 0, p = 0;
  std::size_t starP = std::u16string::npos, starN = 0;
  while (n < nameLength) {
    if (p < patternLength && (pattern[p] == u'?' || pattern[p] == Folded(name[n]))) {
      ++n;
      ++p;
    } else if (p < patternLength && pattern[p] == u'*') {
      starP = p++;
      starN = n;
    } else if (starP != std::u16string::npos) {
      p = starP + 1;
      n = ++starN;
    } else {
      return false;
    }
  }
  while (p < patternLength && pattern[p] == u'*') ++p;
  return p == patternLength;
}

// `foldedPattern` is already case-folded.
bool MatchesFoldedPattern(const char16_t* name, std::size_t length, const std::u16string& foldedPattern) {
  if (MatchFolded(name, length, foldedPattern.data(), foldedPattern.size())) return true;
  // A trailing ".*" may also match nothing, dot included: "plan.*" finds
  // "plan", and "*.*" finds every name.
  const std::size_t patternLength = foldedPattern.size();
  return patternLength >= 2 && foldedPattern[patternLength - 2] == u'.' && foldedPattern[patternLength - 1] == u'*' &&
         MatchFolded(name, length, foldedPattern.data(), patternLength - 2);
}

// Splits "dir\pattern" at its last separator; without one the directory is
// the current one.
void SplitSearch(const std::u16string& search, std::u16string* dir, std::u16string* pattern) {
  const std::size_t last = search.find_last_of(u"\\/");
  if (last == std::u16string::npos) {
    dir->assign(1, u'.');
    *pattern = search;
    return;
  }
  *dir = last == 0 ? search.substr(0, 1) : search.substr(0, last);
  *pattern = search.substr(last + 1);
}

// An entry while the listing is sorted: the first twelve case-folded units
// of its name, big-endian and padded with zeros, so that most comparisons
// never leave the entry.
constexpr std::size_t kHeadWords = 3;
constexpr std::size_t kHeadUnits = 4 * kHeadWords;

struct Sortable {
  std::uint64_t head[kHeadWords];
  DirectoryEntry entry;
};

Sortable MakeSortable(const char16_t* name, const DirectoryEntry& entry) {
  Sortable sortable{{}, entry};
  for (std::size_t i = 0; i < kHeadUnits; ++i) {
    const std::uint64_t unit = i < entry.length ? Folded(name[i]) : 0;
    sortable.head[i / 4] = (sortable.head[i / 4] << 16) | unit;
  }
  return sortable;
}

// The order of two names whose heads are equal: the rest of the folded
// units, then the length, then the code units, so that the order is total.
bool TailComesBefore(const std::u16string& names, const DirectoryEntry& a, const DirectoryEntry& b) {
  const char16_t* p = names.data() + a.offset;
  const char16_t* q = names.data() + b.offset;
  const std::size_t common = a.length < b.length ? a.length : b.length;
  for (std::size_t i = kHeadUnits; i < common; ++i) {
    const char16_t u = Folded(p[i]), v = Folded(q[i]);
    if (u != v) return u < v;
  }
  if (a.length != b.length) return a.length < b.length;
  return names.compare(a.offset, a.length, names, b.offset, b.length) < 0;
}

// Letters without case first.
inline bool ComesBefore(const std::u16string& names, const Sortable& x, const Sortable& y) {
  for (std::size_t i = 0; i < kHeadWords; ++i) {
    if (x.head[i] != y.head[i]) return x.head[i] < y.head[i];
  }
  return TailComesBefore(names, x.entry, y.entry);
}

}  // namespace

bool FindEntries(const char16_t* search, DirectoryListing* out) {
  out->names.clear();
  out->entries.clear();
  try {
    std::u16string dir, pattern;
    SplitSearch(search, &dir, &pattern);
    const std::u16string foldedPattern = FoldedText(pattern);
    // The names stay in the enumeration's text; only the entries that match
    // are kept and sorted.
    if (!platform::ListDirectory(dir.c_str(), out)) return false;
    const std::u16string& names = out->names;
    // Kept from one listing to the next (the library runs in one thread at a
    // time), so that large directories do not fault in fresh pages each time.
    static thread_local std::vector<Sortable> sorting;
    sorting.clear();
    for (const DirectoryEntry& entry : out->entries) {
      const char16_t* name = out->NameOf(entry);
      if (MatchesFoldedPattern(name, entry.length, foldedPattern)) sorting.push_back(MakeSortable(name, entry));
    }
    out->entries.clear();
    std::sort(sorting.begin(), sorting.end(),
              [&names](const Sortable& x, const Sortable& y) { return ComesBefore(names, x, y); });
    out->entries.reserve(sorting.size());
    for (const Sortable& sorted : sorting) out->entries.push_back(sorted.entry);
    if (sorting.capacity() > 65536) std::vector<Sortable>().swap(sorting);
    return !out->entries.empty();
  } catch (const std::bad_alloc&) {
    out->names.clear();
    out->entries.clear();
    return false;
  }
}

bool MatchesPattern(const std::u16string& name, const std::u16string& pattern) {
  try {
    return MatchesFoldedPattern(name.data(), name.size(), FoldedText(pattern));
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace qorc
