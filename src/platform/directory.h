// The seam's directory services: enumerating a directory,
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

// Every entry of a directory ("." and ".." too, where the system lists
// them), in the order the system gives them; the library matches and sorts
// them itself (path/directory_listing.h). False when the directory cannot be
// read.
bool ListDirectory(const char16_t* dir, DirectoryListing* out);

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
