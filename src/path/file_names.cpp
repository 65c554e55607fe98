// File names as pure text: separators, joining and splitting, "." and ".."
// components, display compaction, suffixes and numeric indexes.
#include <qorc/file.h>

#include "foundation/library.h"
#include "path/path_text.h"

using qorc::path::At;
using qorc::path::FindSeparator;
using qorc::path::Head;
using qorc::path::IsSeparator;
using qorc::path::Tail;

namespace {

// The backward scan shared by the suffix operations. Walking from the end, a
// "." followed (up to the current end) by digits only, and not at index 0, is
// an index when `skipIndexes` is set: the current end moves before it and the
// scan goes on. The first other "." ends the scan. With `stopAtSeparator` the
// scan looks only at the file-name part.
struct SuffixScan {
  int dot = -1;    // the "." that ends the suffix, or -1
  int end = 0;     // the suffix runs from dot + 1 to end - 1
  C_STRING index;  // the index met last (the one nearest the suffix)
  bool hasIndex = false;
};

SuffixScan ScanSuffix(const C_STRING& name, bool skipIndexes, bool stopAtSeparator) {
  SuffixScan scan;
  scan.end = name.GetNumber();
  for (int i = name.GetNumber() - 1; i >= 0; --i) {
    const char16_t c = At(name, i);
    if (stopAtSeparator && IsSeparator(c)) break;
    if (c != u'.') continue;
    if (skipIndexes && i != 0) {
      C_STRING following = name.GetSlice(i + 1, scan.end - 1);
      if (following.IsInt()) {
        scan.index = following;
        scan.hasIndex = true;
        scan.end = i;
        continue;
      }
    }
    scan.dot = i;
    break;
  }
  return scan;
}

}  // namespace

void C_FILE::CleanPath(C_STRING* path) {
  for (int i = 0; i < path->GetNumber(); ++i) {
    if (At(*path, i) == u'/') path->Replace(i, C_CHAR(u'\\'));
  }
}

// Deliberately plain: a dir ending in a separator gives a doubled one, and an
// empty dir gives a leading one.
void C_FILE::MakePath(const C_STRING& dir, const C_STRING& name, C_STRING* out) {
  C_STRING result(dir);
  result += C_CHAR(u'\\');
  result += name;
  *out = result;
}

void C_FILE::SplitPath(const C_STRING& path, C_STRING* dir, C_STRING* name) {
  int i = path.GetNumber() - 1;
  while (i >= 0 && !IsSeparator(At(path, i)) && At(path, i) != u':') --i;
  C_STRING dirPart;
  C_STRING namePart;
  if (i < 0) {
    namePart = path;
  } else {
    // The separator belongs to neither part, so C:name gives the dir C.
    dirPart = Head(path, i);
    namePart = Tail(path, i + 1);
  }
  // C:\a\.. is a directory with no file name.
  if (namePart == u"." || namePart == u"..") {
    dirPart = path;
    namePart.Clear();
  }
  *dir = dirPart;
  *name = namePart;
}

void C_FILE::SplitDir(const C_STRING& dir, C_STRING* root, int* count, C_STRING** parts) {
  if (root == &dir) {
    // The root is written while the directory is still being read.
    const C_STRING copy(dir);
    SplitDir(copy, root, count, parts);
    return;
  }
  *count = 0;
  const int length = dir.GetNumber();
  if (length == 0) return;
  int separators = 0;
  for (int i = 0; i < length; ++i) {
    if (IsSeparator(At(dir, i))) ++separators;
  }
  const bool network = At(dir, 0) == u'\\' && At(dir, 1) == u'\\';
  const int slots = 1 + separators - (network ? 2 : 0);
  C_STRING* array = qorc::NewArray<C_STRING>(static_cast<std::size_t>(slots));
  if (array == nullptr) return;

  int n = 0;
  int i = 0;
  if (network) {
    // The two backslashes and the server name.
    const int end = FindSeparator(dir, 2);
    i = end < 0 ? length : end;
    *root = Head(dir, i);
  } else {
    int first = 0;
    while (first < length && !IsSeparator(At(dir, first)) && At(dir, first) != u':') ++first;
    if (first < length && At(dir, first) == u':') {
      // A drive: the letter alone is the root.
      *root = Head(dir, first);
      i = first + 1;
    } else {
      // No root: the text before the first separator is a component (empty
      // for a leading separator). The root is left as it was.
      array[n++] = Head(dir, first);
      i = first;
    }
  }
  // Empty components (doubled or trailing separators) are kept.
  while (i < length && n < slots) {
    if (IsSeparator(At(dir, i))) ++i;
    int end = FindSeparator(dir, i);
    if (end < 0) end = length;
    array[n++] = dir.GetSlice(i, end - 1);
    i = end;
  }
  *parts = array;
  *count = n;
}

void C_FILE::SplitName(const C_STRING& name, C_STRING* prefix, C_STRING* suffix) {
  const SuffixScan scan = ScanSuffix(name, CfileManageIndex != 0, false);
  C_STRING prefixPart;
  C_STRING suffixPart;
  if (scan.dot < 0) {
    prefixPart = name;
  } else {
    // Indexes skipped by the scan belong to neither part.
    prefixPart = Head(name, scan.dot);
    suffixPart = name.GetSlice(scan.dot + 1, scan.end - 1);
  }
  *prefix = prefixPart;
  *suffix = suffixPart;
}

void C_FILE::ShrinkPath(C_STRING* path) {
  C_STRING dir;
  C_STRING name;
  SplitPath(*path, &dir, &name);
  C_STRING root;
  int count = 0;
  C_STRING* parts = nullptr;
  SplitDir(dir, &root, &count, &parts);
  if (C_ERROR::Is()) {
    delete[] parts;
    return;
  }

  C_STRING result;
  if (!root.IsVoid()) {
    result = root;
    if (root.GetNumber() > 2 && At(root, 0) == u'\\' && At(root, 1) == u'\\') {
      result += C_CHAR(u'\\');
    } else {
      result += u":\\";
    }
  }
  // The first component is never removed, so that a relative path keeps its
  // anchor; an unexpanded root ($NAME) is not undone by a following "..".
  int i = 1;
  while (i < count) {
    if (parts[i] == u".") {
      for (int k = i; k + 1 < count; ++k) parts[k] = parts[k + 1];
      --count;
    } else if (parts[i] == u"..") {
      const C_STRING& previous = parts[i - 1];
      if (previous == u"." || previous == u".." || At(previous, 0) == u'$') {
        ++i;
        continue;
      }
      for (int k = i - 1; k + 2 < count; ++k) parts[k] = parts[k + 2];
      count -= 2;
      i = i - 1 < 1 ? 1 : i - 1;
    } else {
      ++i;
    }
  }
  for (int k = 0; k < count; ++k) {
    result += parts[k];
    result += C_CHAR(u'\\');
  }
  result += name;
  delete[] parts;
  if (!C_ERROR::Is()) *path = result;
}

// The ellipsis rules of display compaction, for `width` visible characters:
// a path that fits is kept; otherwise the end of the directory gives way to
// "..." before the last component; when even "...\name" does not fit, the
// name is cut and ends in "..."; a name with no directory is cut the same
// way; below four characters only dots remain.
void C_FILE::CompactPath(const C_STRING& path, int width, C_STRING* out) {
  C_STRING result;
  const int length = path.GetNumber();
  if (width <= 0) {
    *out = result;
    return;
  }
  if (length <= width) {
    *out = path;
    return;
  }
  // The last component; a trailing separator belongs to it.
  int last = length - 2;
  while (last >= 0 && !IsSeparator(At(path, last))) --last;
  const auto dots = [&result](int n) {
    for (int k = 0; k < n; ++k) result += C_CHAR(u'.');
  };
  if (width <= 3) {
    dots(width);
  } else if (last < 0) {
    result = Head(path, width - 3);
    dots(3);
  } else {
    const C_STRING tail = Tail(path, last);  // the separator and the name
    if (tail.GetNumber() + 3 <= width) {
      result = Head(path, width - 3 - tail.GetNumber());
      dots(3);
      result += tail;
    } else if (width >= 8) {
      dots(3);
      result += Head(tail, width - 6);
      dots(3);
    } else {
      dots(width);
    }
  }
  *out = result;
}

void C_FILE::GetPrefix(const C_STRING& name, C_STRING* out) {
  const int dot = name.SearchFromEnd(C_CHAR(u'.'));
  *out = dot < 0 ? C_STRING() : Head(name, dot);
}

// Separators are not considered: a dot in a directory name counts.
void C_FILE::GetLastSuffix(const C_STRING& name, C_STRING* out) {
  const int dot = name.SearchFromEnd(C_CHAR(u'.'));
  *out = dot < 0 ? C_STRING() : Tail(name, dot + 1);
}

// Unlike GetLastSuffix and RemoveLastSuffix, only the file-name part is
// examined: a dot in a directory name is not used. An empty suffix leaves a
// trailing ".".
void C_FILE::SetLastSuffix(const C_STRING& suffix, C_STRING* path) {
  const SuffixScan scan = ScanSuffix(*path, false, true);
  C_STRING result;
  if (scan.dot >= 0) {
    result = Head(*path, scan.dot + 1);
  } else {
    result = *path;
    result += C_CHAR(u'.');
  }
  result += suffix;
  *path = result;
}

void C_FILE::RemoveLastSuffix(C_STRING* path, C_STRING* suffix) {
  if (suffix != nullptr) suffix->Clear();
  const int dot = path->SearchFromEnd(C_CHAR(u'.'));
  if (dot < 0) return;
  if (suffix != nullptr) *suffix = Tail(*path, dot + 1);
  *path = Head(*path, dot);
}

void C_FILE::GetSuffix(const C_STRING& name, C_STRING* out) {
  if (!CfileManageIndex) {
    GetLastSuffix(name, out);
    return;
  }
  const SuffixScan scan = ScanSuffix(name, true, false);
  *out = scan.dot < 0 ? C_STRING() : name.GetSlice(scan.dot + 1, scan.end - 1);
}

// With several trailing indexes only the one nearest the suffix is kept,
// deliberately: part.dat.3.4 with txt gives part.txt.3.
void C_FILE::SetSuffix(const C_STRING& suffix, C_STRING* path) {
  if (!CfileManageIndex) {
    SetLastSuffix(suffix, path);
    return;
  }
  const SuffixScan scan = ScanSuffix(*path, true, true);
  C_STRING result;
  if (scan.dot >= 0) {
    result = Head(*path, scan.dot + 1);
  } else {
    result = Head(*path, scan.end);
    result += C_CHAR(u'.');
  }
  result += suffix;
  if (scan.hasIndex) {
    result += C_CHAR(u'.');
    result += scan.index;
  }
  *path = result;
}

// The removed text includes the index (part.dat.3 gives dat.3), while the
// path keeps it (part.3): the index stays with the file.
void C_FILE::RemoveSuffix(C_STRING* path, C_STRING* suffix) {
  if (!CfileManageIndex) {
    RemoveLastSuffix(path, suffix);
    return;
  }
  if (suffix != nullptr) suffix->Clear();
  const SuffixScan scan = ScanSuffix(*path, true, false);
  if (scan.dot < 0) return;
  if (suffix != nullptr) *suffix = Tail(*path, scan.dot + 1);
  C_STRING result = Head(*path, scan.dot);
  if (scan.hasIndex) {
    result += C_CHAR(u'.');
    result += scan.index;
  }
  *path = result;
}

void C_FILE::GetIndex(const C_STRING& name, C_STRING* out) {
  C_STRING last;
  GetLastSuffix(name, &last);
  if (!last.IsInt()) last.Clear();
  *out = last;
}

void C_FILE::SetIndex(int index, C_STRING* path) {
  const C_STRING number(index);
  C_STRING current;
  GetIndex(*path, &current);
  if (!current.IsVoid()) {
    SetLastSuffix(number, path);
  } else {
    *path += C_CHAR(u'.');
    *path += number;
  }
}

void C_FILE::RemoveIndex(C_STRING* path, C_STRING* index) {
  C_STRING current;
  GetIndex(*path, &current);
  if (!current.IsVoid()) RemoveLastSuffix(path, index);
}
