// Installation roots and path expansion, path comparison, and the process's
// well-known directories.
#include "path/roots.h"

#include <qorc/file.h>

#include <string>

#include "foundation/library.h"
#include "path/path_text.h"
#include "platform/filesystem.h"

using qorc::path::At;
using qorc::path::Head;
using qorc::path::Lowered;
using qorc::path::Tail;
using qorc::path::Uppered;

C_STRING* C_FILE::RootsNames = nullptr;
C_STRING* C_FILE::RootsDirs = nullptr;
int C_FILE::RootsNb = 0;
int C_FILE::RootsNba = 0;

namespace {

// Parallel arrays of strings that only grow: capacity 0 becomes `initial`,
// then doubles. Returns false (error pending) when the arrays cannot grow;
// they are then left as they were.
bool GrowPair(C_STRING** first, C_STRING** second, int count, int* capacity, int initial) {
  if (count < *capacity) return true;
  const int grown = *capacity == 0 ? initial : *capacity * 2;
  C_STRING* newFirst = qorc::NewArray<C_STRING>(static_cast<std::size_t>(grown));
  C_STRING* newSecond = newFirst == nullptr ? nullptr : qorc::NewArray<C_STRING>(static_cast<std::size_t>(grown));
  for (int i = 0; newSecond != nullptr && i < count && !C_ERROR::Is(); ++i) {
    newFirst[i] = (*first)[i];
    newSecond[i] = (*second)[i];
  }
  if (newSecond == nullptr || C_ERROR::Is()) {
    delete[] newFirst;
    delete[] newSecond;
    return false;
  }
  delete[] * first;
  delete[] * second;
  *first = newFirst;
  *second = newSecond;
  *capacity = grown;
  return true;
}

// Frees parallel arrays made by GrowPair and leaves them empty.
void FreePair(C_STRING** first, C_STRING** second, int* count, int* capacity) {
  delete[] * first;
  delete[] * second;
  *first = nullptr;
  *second = nullptr;
  *count = 0;
  *capacity = 0;
}

// The cache of network names: the paths asked and the answers given,
// failures included. It is never emptied while the process runs.
C_STRING* g_networkPaths = nullptr;
C_STRING* g_networkAnswers = nullptr;
int g_networkNb = 0;
int g_networkNba = 0;

C_STRING FromUnits(const std::u16string& text) { return C_STRING(static_cast<int>(text.size()), text.data()); }

// Gives the protected table to the library's own housekeeping.
struct RootTable : C_FILE {
  static void Destroy() { FreePair(&RootsNames, &RootsDirs, &RootsNb, &RootsNba); }
  static void Expand(C_STRING* path, bool ignoreCase);
};

// Each $NAME is replaced by the directory of the first root of that name; a
// name ends only at a backslash, so $QORHOME.old\x asks for QORHOME.old.
// Deliberately, an unknown name ends the whole expansion, and a "$" that a
// replacement brings in is expanded only when it lies beyond the old name.
void RootTable::Expand(C_STRING* path, bool ignoreCase) {
  CleanPath(path);
  int start = path->Search(C_CHAR(u'$'), 0);
  while (start >= 0) {
    int end = path->Search(C_CHAR(u'\\'), start);
    if (end < 0) end = path->GetNumber();
    if (C_ERROR::Is()) return;
    C_STRING name = path->GetSlice(start + 1, end - 1);
    if (ignoreCase) name = Lowered(name);
    for (int i = 0; i < RootsNb; ++i) {
      if ((ignoreCase ? Lowered(RootsNames[i]) : RootsNames[i]) == name) {
        C_STRING expanded = Head(*path, start);
        expanded += RootsDirs[i];
        expanded += Tail(*path, end);
        if (C_ERROR::Is()) return;
        *path = expanded;
        break;
      }
    }
    const int next = path->Search(C_CHAR(u'$'), 0);
    if (next < 0 || next <= end - 1) break;
    start = next;
  }
}

}  // namespace

namespace qorc {

void DestroyRootTables() {
  RootTable::Destroy();
  FreePair(&g_networkPaths, &g_networkAnswers, &g_networkNb, &g_networkNba);
}

}  // namespace qorc

void C_FILE::AddRoot(const C_STRING& name, const C_STRING& dir) {
  if (!GrowPair(&RootsNames, &RootsDirs, RootsNb, &RootsNba, 50)) return;
  RootsNames[RootsNb] = name;
  RootsDirs[RootsNb] = dir;
  ++RootsNb;
}

void C_FILE::GetRoots(int* count, const C_STRING** names, const C_STRING** dirs) {
  if (count != nullptr) *count = RootsNb;
  if (names != nullptr) *names = RootsNames;
  if (dirs != nullptr) *dirs = RootsDirs;
}

void C_FILE::ExpandPath(C_STRING* path) { RootTable::Expand(path, false); }

void C_FILE::ExpandPathNoCase(C_STRING* path) { RootTable::Expand(path, true); }

// Only the separators change, even where a root directory could be
// recognised: the stored $NAME form is ReplaceRoot's, on purpose.
C_STRING C_FILE::CompressPath(const C_STRING& path) {
  C_STRING result(path);
  CleanPath(&result);
  return result;
}

// Matched with case, as a plain character prefix (no separator needs to
// follow); the character after the directory goes to both results.
void C_FILE::RemoveRoot(C_STRING* path, C_STRING* root) {
  if (root != nullptr) root->Clear();
  ExpandPath(path);
  int best = -1;
  int bestLength = 0;
  for (int i = 0; i < RootsNb; ++i) {
    const int length = RootsDirs[i].GetNumber();
    if (length > bestLength && path->StartsWith(RootsDirs[i])) {
      best = i;
      bestLength = length;
    }
  }
  if (best < 0) return;
  if (root != nullptr) *root = path->GetSlice(0, bestLength);
  *path = Tail(*path, bestLength);
}

// Matched without case, unlike RemoveRoot: the stored form must survive a
// directory written with other capitals.
void C_FILE::ReplaceRoot(C_STRING* path) {
  ExpandPath(path);
  const C_STRING lower = Lowered(*path);
  int best = -1;
  int bestLength = 0;
  for (int i = 0; i < RootsNb; ++i) {
    const int length = RootsDirs[i].GetNumber();
    if (length > bestLength && lower.StartsWith(Lowered(RootsDirs[i]))) {
      best = i;
      bestLength = length;
    }
  }
  if (best < 0) return;
  C_STRING result(u"$");
  result += RootsNames[best];
  result += Tail(*path, bestLength);
  if (!C_ERROR::Is()) *path = result;
}

// The result is absolute and goes through the reference's directory, so that
// it stays valid when both trees move together.
void C_FILE::ShareRootPath(const C_STRING& reference, C_STRING* path) {
  C_STRING refDir;
  C_STRING refName;
  C_STRING dir;
  C_STRING name;
  SplitPath(reference, &refDir, &refName);
  SplitPath(*path, &dir, &name);
  ExpandPath(&refDir);
  ExpandPath(&dir);
  C_STRING refRoot;
  C_STRING root;
  int refCount = 0;
  int count = 0;
  C_STRING* refParts = nullptr;
  C_STRING* parts = nullptr;
  SplitDir(refDir, &refRoot, &refCount, &refParts);
  SplitDir(dir, &root, &count, &parts);
  if (!C_ERROR::Is() && refRoot.CompareNoCase(root) == 0) {
    int common = 0;
    while (common < refCount && common < count && refParts[common].CompareNoCase(parts[common]) == 0) ++common;
    C_STRING result(refDir);
    result += C_CHAR(u'\\');
    for (int i = common; i < refCount; ++i) result += u"..\\";
    for (int i = common; i < count; ++i) {
      result += parts[i];
      result += C_CHAR(u'\\');
    }
    result += name;
    if (!C_ERROR::Is()) *path = result;
  }
  delete[] refParts;
  delete[] parts;
}

// By text alone: no link, mount or short-name resolution.
C_BOOL C_FILE::HasSamePath(const C_STRING& a, const C_STRING& b) {
  C_STRING paths[2] = {a, b};
  for (C_STRING& path : paths) {
    ExpandPath(&path);
    if (At(path, 0) == u'.' && At(path, 1) == u'\\') {
      C_STRING absolute = GetCurrent();
      absolute += Tail(path, 2);
      path = absolute;
    }
    ShrinkPath(&path);
    path = Uppered(path);
  }
  return paths[0] == paths[1];
}

void C_FILE::GetNetworkName(const C_STRING& path, C_STRING* network) {
  for (int i = 0; i < g_networkNb; ++i) {
    if (g_networkPaths[i] == path) {
      *network = g_networkAnswers[i];
      return;
    }
  }
  C_STRING answer(path);
  std::u16string source;
  if (qorc::platform::NetworkSource(path.GetWCHAR(), &source)) answer = FromUnits(source);
  // Failures are kept too: the answer for a path never changes.
  if (GrowPair(&g_networkPaths, &g_networkAnswers, g_networkNb, &g_networkNba, 10)) {
    g_networkPaths[g_networkNb] = path;
    g_networkAnswers[g_networkNb] = answer;
    ++g_networkNb;
  }
  *network = answer;
}

C_STRING C_FILE::GetExePath() {
  std::u16string text;
  return qorc::platform::ExecutablePath(&text) ? FromUnits(text) : C_STRING();
}

C_STRING C_FILE::GetCurrent() {
  std::u16string text;
  C_STRING result;
  if (qorc::platform::CurrentDirectory(&text)) result = FromUnits(text);
  CleanPath(&result);
  if (At(result, result.GetNumber() - 1) != u'\\') result += C_CHAR(u'\\');
  return result;
}

C_STRING C_FILE::GetTempDir() {
  std::u16string text;
  return qorc::platform::TemporaryDirectory(&text) ? FromUnits(text) : C_STRING();
}
