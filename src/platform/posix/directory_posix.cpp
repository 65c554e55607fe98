// Directory listing on POSIX with the Windows enumeration's pattern rules
// and a stable order: readdir gives entries in whatever order the file
// system keeps them, which differs between machines and even between calls.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/directory.h"
#include "platform/posix/native_path.h"

namespace qorc::platform {
namespace {

using posix::NativePath;

char16_t Folded(char16_t c) {
  if (c < 0x80) return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + (u'a' - u'A')) : c;
  // Surrogates are compared as they are; other units fold one to one.
  if (c >= 0xD800 && c <= 0xDFFF) return c;
  const UChar32 folded = u_foldCase(c, U_FOLD_CASE_DEFAULT);
  return folded <= 0xFFFF ? static_cast<char16_t>(folded) : c;
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

// Appends a name from the file system to the text; file names are mostly
// ASCII, which needs no converter.
void AppendName(const char* native, std::u16string* text) {
  const std::size_t start = text->size();
  const std::size_t length = std::strlen(native);
  text->resize(start + length);
  char16_t* out = &(*text)[start];
  for (std::size_t i = 0; i < length; ++i) {
    const unsigned char c = static_cast<unsigned char>(native[i]);
    if (c >= 0x80) {
      text->resize(start);
      *text += posix::LibraryPath(native);
      return;
    }
    out[i] = c;
  }
}

bool IsDirectoryEntry(int dirFd, const struct dirent* entry) {
  if (entry->d_type == DT_DIR) return true;
  if (entry->d_type != DT_LNK && entry->d_type != DT_UNKNOWN) return false;
  // Links are what they point to; a link that leads nowhere (missing
  // target, a loop) is a file.
  struct stat status;
  return ::fstatat(dirFd, entry->d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
}

// Splits "dir\pattern" at its last separator; without one the directory is
// the current one.
void SplitSearch(const std::u16string& search, std::u16string* dir, std::u16string* pattern) {
  const std::size_t last = search.find_last_of(u"\\/");
  if (last == std::u16string::npos) {
    *dir = u".";
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

bool FindNative(const std::u16string& search, DirectoryListing* out) {
  std::u16string dir, pattern;
  SplitSearch(search, &dir, &pattern);
  const std::u16string foldedPattern = FoldedText(pattern);
  const std::string nativeDir = NativePath(dir.c_str());
  if (nativeDir.empty()) return false;
  DIR* stream = ::opendir(nativeDir.c_str());
  if (stream == nullptr) return false;
  const int dirFd = ::dirfd(stream);
  std::u16string& names = out->names;
  names.reserve(8192);
  // Kept from one listing to the next (the library runs in one thread at a
  // time), so that large directories do not fault in fresh pages each time.
  static thread_local std::vector<Sortable> sorting;
  sorting.clear();
  // A directory removed while it is read simply ends the listing; what was
  // read until then is kept.
  while (const struct dirent* entry = ::readdir(stream)) {
    const std::size_t offset = names.size();
    AppendName(entry->d_name, &names);
    const std::size_t length = names.size() - offset;
    if (!MatchesFoldedPattern(names.data() + offset, length, foldedPattern)) {
      names.resize(offset);
      continue;
    }
    sorting.push_back(
        MakeSortable(names.data() + offset, DirectoryEntry{offset, length, IsDirectoryEntry(dirFd, entry)}));
  }
  ::closedir(stream);
  std::sort(sorting.begin(), sorting.end(),
            [&names](const Sortable& x, const Sortable& y) { return ComesBefore(names, x, y); });
  out->entries.reserve(sorting.size());
  for (const Sortable& sorted : sorting) out->entries.push_back(sorted.entry);
  if (sorting.capacity() > 65536) std::vector<Sortable>().swap(sorting);
  return !out->entries.empty();
}

}  // namespace

bool FindEntries(const char16_t* search, DirectoryListing* out) {
  out->names.clear();
  out->entries.clear();
  try {
    return FindNative(search, out);
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

bool MakeDirectory(const char16_t* path) {
  try {
    const std::string native = NativePath(path);
    return !native.empty() && ::mkdir(native.c_str(), 0777) == 0;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool IdentifyDirectory(const char16_t* path, DirectoryIdentity* identity) {
  try {
    struct stat status;
    if (::stat(NativePath(path).c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return false;
    identity->device = static_cast<unsigned long long>(status.st_dev);
    identity->inode = static_cast<unsigned long long>(status.st_ino);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace qorc::platform
