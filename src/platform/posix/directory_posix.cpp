// Directory listing on POSIX with the Windows enumeration's pattern rules
// and a stable order: readdir gives entries in whatever order the file
// system keeps them, which differs between machines and even between calls.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unicode/uchar.h>

#include <algorithm>
#include <cerrno>
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

// "*" and "?" on case-folded text; the last "*" met is where a mismatch
// resumes, which keeps the match linear for the patterns people write.
bool MatchFolded(const std::u16string& name, const char16_t* pattern, std::size_t patternLength) {
  std::size_t n = 0, p = 0;
  std::size_t starP = std::u16string::npos, starN = 0;
  while (n < name.size()) {
    if (p < patternLength && (pattern[p] == u'?' || pattern[p] == name[n])) {
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

// `foldedPattern` is already case-folded; `name` is folded here.
bool MatchesFoldedPattern(const std::u16string& name, const std::u16string& foldedPattern) {
  const std::u16string foldedName = FoldedText(name);
  if (MatchFolded(foldedName, foldedPattern.data(), foldedPattern.size())) return true;
  // A trailing ".*" may also match nothing, dot included: "plan.*" finds
  // "plan", and "*.*" finds every name.
  const std::size_t length = foldedPattern.size();
  return length >= 2 && foldedPattern[length - 2] == u'.' && foldedPattern[length - 1] == u'*' &&
         MatchFolded(foldedName, foldedPattern.data(), length - 2);
}

std::u16string NameFromNative(const char* native) {
  std::u16string out;
  for (const char* c = native; *c != '\0'; ++c) {
    if (static_cast<unsigned char>(*c) >= 0x80) return posix::LibraryPath(native);
    out += static_cast<char16_t>(*c);
  }
  return out;
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

struct SortedEntry {
  std::u16string key;
  DirectoryEntry entry;
};

void SortByName(std::vector<DirectoryEntry>* entries) {
  std::vector<SortedEntry> sorted;
  sorted.reserve(entries->size());
  for (DirectoryEntry& entry : *entries) {
    std::u16string key = FoldedText(entry.name);
    sorted.push_back(SortedEntry{std::move(key), std::move(entry)});
  }
  std::sort(sorted.begin(), sorted.end(), [](const SortedEntry& a, const SortedEntry& b) {
    if (a.key != b.key) return a.key < b.key;
    return a.entry.name < b.entry.name;
  });
  entries->clear();
  for (SortedEntry& item : sorted) entries->push_back(std::move(item.entry));
}

bool FindNative(const std::u16string& search, std::vector<DirectoryEntry>* out) {
  std::u16string dir, pattern;
  SplitSearch(search, &dir, &pattern);
  const std::u16string foldedPattern = FoldedText(pattern);
  const std::string nativeDir = NativePath(dir.c_str());
  if (nativeDir.empty()) return false;
  DIR* stream = ::opendir(nativeDir.c_str());
  if (stream == nullptr) return false;
  const int dirFd = ::dirfd(stream);
  // A directory removed while it is read simply ends the listing; what was
  // read until then is kept.
  while (const struct dirent* entry = ::readdir(stream)) {
    std::u16string name = NameFromNative(entry->d_name);
    if (!MatchesFoldedPattern(name, foldedPattern)) continue;
    out->push_back(DirectoryEntry{std::move(name), IsDirectoryEntry(dirFd, entry)});
  }
  ::closedir(stream);
  SortByName(out);
  return !out->empty();
}

}  // namespace

bool FindEntries(const char16_t* search, std::vector<DirectoryEntry>* out) {
  out->clear();
  try {
    return FindNative(search, out);
  } catch (const std::bad_alloc&) {
    out->clear();
    return false;
  }
}

bool MatchesPattern(const std::u16string& name, const std::u16string& pattern) {
  try {
    return MatchesFoldedPattern(name, FoldedText(pattern));
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
