// The seam's directory services: listing a directory by a wildcard pattern,
// creating one directory, and telling two directories apart. Paths come and
// go in the library's form ("\" as separator).
#ifndef QORC_PLATFORM_DIRECTORY_H
#define QORC_PLATFORM_DIRECTORY_H

#include <string>
#include <vector>

namespace qorc::platform {

struct DirectoryEntry {
  // Where the name lies in the listing's text.
  std::size_t offset;
  std::size_t length;
  // A symbolic link counts as what it points to; a link that leads nowhere
  // is a file.
  bool isDirectory;
};

// The names of a listing lie one after another in one text, which keeps a
// listing of many thousand names to a few allocations.
struct DirectoryListing {
  std::u16string names;
  std::vector<DirectoryEntry> entries;
  const char16_t* NameOf(const DirectoryEntry& entry) const { return names.data() + entry.offset; }
};

// Lists the entries of a directory whose names match a pattern, the way the
// Windows find-first enumeration does: `search` is the directory, a
// separator and the pattern ("dir\*.dll"). The pattern knows "*" (any run
// of characters) and "?" (one character), compares letters without case,
// and a trailing ".*" also matches names without a dot, so "*.*" matches
// every name. "." and ".." are listed like any other name. The entries come
// sorted by name, letters without case and ties in code-unit order, because
// the order in which POSIX lists a directory changes from one call to the
// next. False, with nothing listed, when the directory cannot be read or no
// entry matches.
bool FindEntries(const char16_t* search, DirectoryListing* out);

// Whether `name` matches `pattern` by the rules of FindEntries.
bool MatchesPattern(const std::u16string& name, const std::u16string& pattern);

// Creates one directory (its parent must exist). False when it cannot.
bool MakeDirectory(const char16_t* path);

// What tells one directory from another, whatever path leads to it.
struct DirectoryIdentity {
  unsigned long long device;
  unsigned long long inode;
  bool operator==(const DirectoryIdentity& other) const { return device == other.device && inode == other.inode; }
};

// The identity of the directory a path leads to (links followed). False
// when it is not a reachable directory.
bool IdentifyDirectory(const char16_t* path, DirectoryIdentity* identity);

}  // namespace qorc::platform

#endif
