// Directory scans: listings of one directory, of a tree, of the executable
// search path and of the product's own directories, and directory chains.
// Listings come back as new arrays of names that grow by doubling; the
// caller owns them.
#include <qorc/file.h>

#include <new>
#include <string>
#include <unordered_set>
#include <vector>

#include "foundation/library.h"
#include "path/directory_listing.h"
#include "path/path_text.h"
#include "platform/directory.h"
#include "platform/filesystem.h"
#include "platform/process.h"

C_STRING C_FILE::ConfigVersion;

namespace {

using qorc::platform::DirectoryEntry;
using qorc::platform::DirectoryIdentity;

constexpr int kFirstCapacity = 100;

C_STRING FromUnits(const std::u16string& units) { return C_STRING(static_cast<int>(units.size()), units.c_str()); }

// Hands a string's buffer to another string without copying it.
void MoveString(C_STRING* from, C_STRING* to) {
  int number = 0, size = 0;
  C_CHAR* buffer = from->Detach(&number, &size);
  to->Replace(size, number, &buffer);
}

// Makes room for `needed` names: at least twice the old capacity. False,
// with the allocator's error pending, when there is no memory.
bool Reserve(int count, int needed, int* capacity, C_STRING** names) {
  if (needed <= *capacity) return true;
  const int grown = needed > 2 * *capacity ? needed : 2 * *capacity;
  C_STRING* larger = qorc::NewArray<C_STRING>(static_cast<std::size_t>(grown));
  if (larger == nullptr) return false;
  C_STRING* old = *names;
  for (int i = 0; i < count; ++i) MoveString(&old[i], &larger[i]);
  delete[] old;
  *names = larger;
  *capacity = grown;
  return true;
}

// Stores a name with one allocation (names of the file system are far
// shorter than a string's limit, but a longer one is cut there).
void AssignName(const char16_t* units, std::size_t length, C_STRING* out) {
  const int n = length < 65534 ? static_cast<int>(length) : 65534;
  C_CHAR* buffer = qorc::NewArray<C_CHAR>(static_cast<std::size_t>(n) + 1);
  if (buffer == nullptr) return;
  for (int i = 0; i < n; ++i) buffer[i] = C_CHAR(units[i]);
  buffer[n] = C_CHAR::VOID;
  out->Replace(n + 1, n, &buffer);
}

// Names beginning with "." are never listed, not only "." and "..".
bool IsHidden(const char16_t* name, std::size_t length) { return length > 0 && name[0] == u'.'; }

// The listing of dir + "\" + pattern, keeping directories or files.
void List(const C_STRING& dir, const C_STRING& pattern, bool directories, int* count, C_STRING** names) {
  *count = 0;
  *names = nullptr;
  C_STRING search;
  C_FILE::MakePath(dir, pattern, &search);
  C_FILE::ExpandPath(&search);
  qorc::platform::DirectoryListing listing;
  if (!qorc::FindEntries(search.GetWCHAR(), &listing)) return;
  int capacity = 0;
  if (!Reserve(0, kFirstCapacity, &capacity, names)) return;
  for (const DirectoryEntry& entry : listing.entries) {
    const char16_t* name = listing.NameOf(entry);
    if (IsHidden(name, entry.length) || entry.isDirectory != directories) continue;
    if (*count == capacity && !Reserve(*count, *count + 1, &capacity, names)) return;
    AssignName(name, entry.length, &(*names)[(*count)++]);
    if (C_ERROR::Is()) return;
  }
}

bool IdentifyDirectory(const C_STRING& dir, DirectoryIdentity* identity) {
  C_STRING expanded(dir);
  C_FILE::ExpandPath(&expanded);
  return qorc::platform::IdentifyDirectory(expanded.GetWCHAR(), identity);
}

bool IsOnPath(const std::vector<DirectoryIdentity>& ancestors, const DirectoryIdentity& identity) {
  for (const DirectoryIdentity& ancestor : ancestors) {
    if (ancestor == identity) return true;
  }
  return false;
}

struct RecursiveScan {
  const C_STRING& pattern;
  int* count;
  int capacity;
  C_STRING** paths;
  // The directories being scanned, from the top down to the current one.
  std::vector<DirectoryIdentity> ancestors;
};

void ScanTree(const C_STRING& dir, RecursiveScan* scan) {
  int found = 0;
  C_STRING* names = nullptr;
  C_FILE::ScanDir(dir, scan->pattern, &found, &names);
  if (!C_ERROR::Is() && Reserve(*scan->count, *scan->count + found, &scan->capacity, scan->paths)) {
    for (int i = 0; i < found && !C_ERROR::Is(); ++i) {
      C_FILE::MakePath(dir, names[i], &(*scan->paths)[(*scan->count)++]);
    }
  }
  delete[] names;
  if (C_ERROR::Is()) return;
  int dirs = 0;
  C_STRING* subdirs = nullptr;
  C_FILE::GetDirs(dir, &dirs, &subdirs);
  for (int i = 0; i < dirs && !C_ERROR::Is(); ++i) {
    C_STRING subdir;
    C_FILE::MakePath(dir, subdirs[i], &subdir);
    // A link back to a directory we are inside would never end.
    DirectoryIdentity identity;
    if (!IdentifyDirectory(subdir, &identity) || IsOnPath(scan->ancestors, identity)) continue;
    try {
      scan->ancestors.push_back(identity);
    } catch (const std::bad_alloc&) {
      CerrMemoryFull.Trigger();
      break;
    }
    ScanTree(subdir, scan);
    scan->ancestors.pop_back();
  }
  delete[] subdirs;
}

// Appends dir + name (as the caller writes it) for every name.
void AppendNames(const C_STRING& dir, int found, C_STRING* names, std::vector<C_STRING>* out) {
  for (int i = 0; i < found; ++i) {
    C_STRING path(dir);
    path += names[i];
    out->push_back(path);
  }
}

// A new array holding exactly the collected names.
void HandOver(std::vector<C_STRING>* collected, int* count, C_STRING** paths) {
  if (collected->empty()) return;
  C_STRING* array = qorc::NewArray<C_STRING>(collected->size());
  if (array == nullptr) return;
  for (std::size_t i = 0; i < collected->size(); ++i) MoveString(&(*collected)[i], &array[i]);
  *paths = array;
  if (C_ERROR::Is()) return;
  *count = static_cast<int>(collected->size());
}

C_STRING Joined(const char16_t* root, const C_STRING& name) {
  C_STRING path(root);
  path += name;
  return path;
}

// The first of the candidates that exists, expanded; otherwise the last
// candidate as written, with CerrFileNotFound pending.
void FirstExisting(const std::vector<C_STRING>& candidates, const C_STRING& name, C_STRING* path) {
  for (const C_STRING& candidate : candidates) {
    if (C_FILE::Exists(candidate)) {
      *path = candidate;
      C_FILE::ExpandPath(path);
      return;
    }
  }
  *path = candidates.back();
  CerrFileNotFound.RetriggerMild(&name);
}

}  // namespace

void C_FILE::ScanDir(const C_STRING& dir, const C_STRING& pattern, int* count, C_STRING** names) {
  List(dir, pattern, false, count, names);
}

void C_FILE::GetDirs(const C_STRING& dir, int* count, C_STRING** names) { List(dir, u"*.*", true, count, names); }

void C_FILE::ScanDirRecursive(const C_STRING& dir, const C_STRING& pattern, int* count, C_STRING** paths) {
  *count = 0;
  *paths = nullptr;
  RecursiveScan scan{pattern, count, 0, paths, {}};
  DirectoryIdentity top;
  try {
    if (IdentifyDirectory(dir, &top)) scan.ancestors.push_back(top);
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
    return;
  }
  ScanTree(dir, &scan);
}

void C_FILE::ScanExeDirs(const C_STRING& pattern, int* count, C_STRING** paths) {
  *count = 0;
  *paths = nullptr;
  int capacity = 0;
  if (!Reserve(0, kFirstCapacity, &capacity, paths)) return;
  try {
    // The current directory comes first, then the search path's.
    std::vector<std::u16string> directories{u"."};
    qorc::platform::ExecutableSearchPath(&directories);
    std::unordered_set<std::u16string> listed;
    for (const std::u16string& directory : directories) {
      // An empty entry ends the whole scan, as it always has: the
      // directories after it are not searched.
      if (directory.empty() || C_ERROR::Is()) break;
      C_STRING piece = FromUnits(directory);
      CleanPath(&piece);
      int found = 0;
      C_STRING* names = nullptr;
      ScanDir(piece, pattern, &found, &names);
      for (int i = 0; i < found && !C_ERROR::Is(); ++i) {
        C_STRING path;
        MakePath(piece, names[i], &path);
        const std::u16string key(path.GetWCHAR(), static_cast<std::size_t>(path.GetNumber()));
        if (!listed.insert(key).second) continue;
        if (*count == capacity && !Reserve(*count, *count + 1, &capacity, paths)) break;
        MoveString(&path, &(*paths)[(*count)++]);
      }
      delete[] names;
    }
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
  }
}

void C_FILE::ScanQorDirs(const C_STRING& name, C_STRING* path) {
  try {
    std::vector<C_STRING> candidates;
    candidates.push_back(Joined(u"$QORGROUP/", name));
    if (!ConfigVersion.IsVoid()) {
      C_STRING versioned(u"$QORCONFIG/");
      versioned += ConfigVersion;
      versioned += u"/";
      candidates.push_back(versioned + name);
    }
    candidates.push_back(Joined(u"$QORCONFIG/", name));
    candidates.push_back(Joined(u"$QORLANG/", name));
    candidates.push_back(Joined(u"$QORHOME/binext/", name));
    candidates.push_back(Joined(u"$QORHOME/bin/", name));
    candidates.push_back(Joined(u"$QORTARGET/bin/", name));
    candidates.push_back(Joined(u"$QOREXTTARGET/bin/", name));
    C_STRING current = GetCurrent();
    current += u"/";
    candidates.push_back(current + name);
    FirstExisting(candidates, name, path);
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
  }
}

void C_FILE::ScanQorDirs(const C_STRING& pattern, int* count, C_STRING** paths) {
  *count = 0;
  *paths = nullptr;
  try {
    // The versioned configuration comes after the plain one here but before
    // it in the single search; both orders are relied upon.
    std::vector<C_STRING> dirs;
    dirs.push_back(u"$QORGROUP/");
    dirs.push_back(u"$QORCONFIG/");
    if (!ConfigVersion.IsVoid()) {
      C_STRING versioned(u"$QORCONFIG/");
      versioned += ConfigVersion;
      versioned += u"/";
      dirs.push_back(versioned);
    }
    const std::size_t plainConfig = 1, language = dirs.size(), bin = dirs.size() + 2;
    dirs.push_back(u"$QORLANG/");
    dirs.push_back(u"$QORHOME/binext/");
    dirs.push_back(u"$QORHOME/bin/");
    dirs.push_back(u"$QORTARGET/bin/");
    dirs.push_back(u"$QOREXTTARGET/bin/");
    // The current directory is compared with the plain configuration, the
    // language, bin and target directories only: when it is the group, the
    // versioned configuration or binext directory its files come twice.
    const C_STRING current = GetCurrent();
    bool same = false;
    for (std::size_t i : {plainConfig, language, bin, bin + 1, bin + 2}) same = same || HasSamePath(current, dirs[i]);
    if (!same) dirs.push_back(current);
    std::vector<C_STRING> collected;
    for (const C_STRING& dir : dirs) {
      int found = 0;
      C_STRING* names = nullptr;
      ScanDir(dir, pattern, &found, &names);
      AppendNames(dir, found, names, &collected);
      delete[] names;
      if (C_ERROR::Is()) return;
    }
    HandOver(&collected, count, paths);
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
  }
}

void C_FILE::ScanBinDirs(const C_STRING& name, C_STRING* path) {
  try {
    FirstExisting({Joined(u"$QORHOME/binext/", name), Joined(u"$QORHOME/bin/", name)}, name, path);
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
  }
}

void C_FILE::MakeDir(const C_STRING& path) {
  using qorc::path::FindSeparator;
  using qorc::path::IsSeparator;
  C_STRING full(path);
  ExpandPath(&full);
  if (full.IsVoid()) {
    CerrFileCannotCreate.TriggerMild();
    return;
  }
  if (IsSeparator(qorc::path::At(full, full.GetNumber() - 1))) full.Remove(full.GetNumber() - 1);
  // The server of a network path is never created: the first level is its share.
  int position = 0;
  if (IsSeparator(qorc::path::At(full, 0)) && IsSeparator(qorc::path::At(full, 1))) {
    position = FindSeparator(full, 2);
    if (position < 0) return;
  }
  for (;;) {
    const int next = FindSeparator(full, position + 1);
    const C_STRING level = next < 0 ? full : qorc::path::Head(full, next);
    // Existing levels are left alone, so an existing directory is no error.
    if (!level.IsVoid() && !qorc::platform::PathExists(level.GetWCHAR()) &&
        !qorc::platform::MakeDirectory(level.GetWCHAR()) && !qorc::platform::PathExists(level.GetWCHAR())) {
      CerrFileCannotCreate.TriggerMild();
      return;
    }
    if (next < 0) return;
    position = next;
  }
}
