// Lock files: the document P is held by the processes listed in P.lck, one
// locker name ("\\computer\user\pid") per line, the most recent last. The
// file is written and read with the text-line operations of the file
// object, so a lock file written here reads the same in every installation.
#include <qorc/file.h>

#include <string>

#include "foundation/library.h"
#include "platform/file_guard.h"
#include "platform/filesystem.h"
#include "platform/process.h"

namespace {

using qorc::platform::GuardMode;

// Long enough for any rewrite at human pace, short enough that a process
// hanging while it holds the guard cannot stop the others for good.
constexpr int kGuardWaitMs = 10000;

C_STRING FromUnits(const std::u16string& units) { return C_STRING(static_cast<int>(units.size()), units.c_str()); }

C_STRING LockPathOf(const C_STRING& path) {
  C_STRING lockPath(path);
  lockPath += u".lck";
  C_FILE::ExpandPath(&lockPath);
  return lockPath;
}

// Holds the advisory guard of a lock file for one rewrite or read.
class LockFileGuard {
 public:
  LockFileGuard(const C_STRING& lockPath, GuardMode mode, bool create)
      : result_(qorc::platform::AcquireFileGuard(lockPath.GetWCHAR(), mode, create, kGuardWaitMs, &handle_)) {}
  ~LockFileGuard() { qorc::platform::ReleaseFileGuard(handle_); }
  LockFileGuard(const LockFileGuard&) = delete;
  LockFileGuard& operator=(const LockFileGuard&) = delete;

  // The lock file went away before the guard was granted. Without a guard
  // (none to be had) the work goes on unguarded, as it always has.
  bool FileIsGone() const { return result_ == qorc::platform::GuardResult::Missing; }

 private:
  qorc::platform::FileGuardHandle handle_ = qorc::platform::kNoFileGuard;
  qorc::platform::GuardResult result_;
};

// Removes a file that may not be there, leaving no error behind.
void RemoveIfPresent(const C_STRING& path) { qorc::platform::RemoveFile(path.GetWCHAR()); }

// Reads every line of the lock file: counted first, then read into an
// array of that size. An empty file gives no entries and no error.
void ReadLockers(const C_STRING& lockPath, int* count, C_STRING** lockers) {
  C_FILE file(lockPath, C_FILE::READ, C_FILE::AUTO);
  if (C_ERROR::Is()) return;
  int lines = 0;
  for (C_STRING line; file.Read(&line), !C_ERROR::Is();) ++lines;
  if (!CerrFileEndReached.IsPending()) return;
  C_ERROR::ClearPending();
  if (lines == 0) return;
  C_STRING* entries = qorc::NewArray<C_STRING>(static_cast<std::size_t>(lines));
  if (entries == nullptr) return;
  file.Rewind();
  for (int i = 0; i < lines && !C_ERROR::Is(); ++i) file.Read(&entries[i]);
  if (C_ERROR::Is()) {
    delete[] entries;
    return;
  }
  *count = lines;
  *lockers = entries;
}

// The "\\computer\user" part and the process part of a locker name.
void SplitLocker(const C_STRING& locker, C_STRING* who, C_STRING* process) { C_FILE::SplitPath(locker, who, process); }

bool IsOneOf(const C_STRING& line, int count, const C_STRING* names) {
  for (int i = 0; i < count; ++i) {
    if (line == names[i]) return true;
  }
  return false;
}

// Copies every line but the removed names and empty lines, counting the
// copies. True when the whole lock file was read.
bool CopyRemaining(C_FILE* lockFile, C_FILE* workFile, int count, const C_STRING* removed, int* copied) {
  for (C_STRING line;;) {
    lockFile->Read(&line);
    if (C_ERROR::Is()) break;
    if (line.IsVoid() || IsOneOf(line, count, removed)) continue;
    workFile->Write(line);
    ++*copied;
  }
  if (!CerrFileEndReached.IsPending()) return false;
  C_ERROR::ClearPending();
  return true;
}

// Copies the lock file to the work file without the removed names and
// empty lines, then puts the work file in its place (or removes both when
// nothing is left). The copies are written with no line end between them:
// with two or more remaining entries they run together on one line, which
// is what every installation of this library writes and must keep writing.
void RewriteWithout(const C_STRING& lockPath, const C_STRING& workPath, int count, const C_STRING* removed) {
  int copied = 0;
  {
    C_FILE lockFile(lockPath, C_FILE::READ, C_FILE::AUTO);
    if (!C_ERROR::Is()) {
      C_FILE workFile(workPath, C_FILE::WRITE, C_FILE::AUTO);
      if (!C_ERROR::Is()) CopyRemaining(&lockFile, &workFile, count, removed, &copied);
    }
  }
  if (C_ERROR::Is()) {
    // Unreadable lock file, or a work file that could not be written in
    // full: the lock file stays as it was.
    C_ERROR::ReportPending();
    RemoveIfPresent(workPath);
    return;
  }
  // The work file replaces the lock file in one step rather than by removal
  // and renaming, so that a process waiting for the guard never finds the
  // lock file missing and starts a new one beside the rewrite.
  if (copied == 0) {
    // The work file goes first: once the lock file is removed our guard
    // protects nothing, and the next process may already be writing a work
    // file of its own.
    RemoveIfPresent(workPath);
    C_FILE::Remove(lockPath);
  } else if (!qorc::platform::ReplaceFile(workPath.GetWCHAR(), lockPath.GetWCHAR())) {
    CerrFileCannotWrite.TriggerMild(&lockPath);
    RemoveIfPresent(workPath);
  }
  C_ERROR::ReportPending();
}

// The shared part of Unlock and RemoveLockers, on the expanded lock path.
void RemoveEntries(const C_STRING& lockPath, int count, const C_STRING* removed) {
  if (!C_FILE::Exists(lockPath)) return;
  C_STRING workPath(lockPath);
  workPath += u".tmp";
  LockFileGuard guard(lockPath, GuardMode::Exclusive, false);
  // Removed by another process meanwhile: nothing left to remove.
  if (guard.FileIsGone()) return;
  // A read-only lock file is neither rewritten nor removed: the rewrite would
  // end by removing or replacing it, which the attribute forbids.
  if (C_FILE::IsReadOnly(lockPath)) {
    CerrFileReadOnly.TriggerMild(&lockPath);
    C_ERROR::ReportPending();
    return;
  }
  RewriteWithout(lockPath, workPath, count, removed);
}

// Writes the lock file anew: the kept entries each with a line end, the
// caller last without one.
void WriteLockFile(const C_STRING& lockPath, int count, const C_STRING* entries, const C_STRING& locker) {
  C_STRING who, process;
  SplitLocker(locker, &who, &process);
  C_FILE file(lockPath, C_FILE::WRITE, C_FILE::AUTO);
  for (int i = 0; i < count && !C_ERROR::Is(); ++i) {
    C_STRING entryWho, entryProcess;
    SplitLocker(entries[i], &entryWho, &entryProcess);
    // Any earlier entry of the same user on the same machine is replaced.
    if (entryWho == who) continue;
    file.Write(entries[i]);
    file.WriteEOL();
  }
  file.Write(locker);
}

}  // namespace

void C_FILE::BuildLockerName(C_STRING* out) {
  out->Clear();
  std::u16string computer, user;
  if (!qorc::platform::ComputerName(&computer)) {
    CerrFileLock.TriggerMild();
    return;
  }
  *out = u"\\\\";
  *out += FromUnits(computer);
  if (!qorc::platform::UserName(&user)) {
    CerrFileLock.TriggerMild();
    return;
  }
  *out += u'\\';
  *out += FromUnits(user);
  *out += u'\\';
  *out += C_STRING(static_cast<long long>(qorc::platform::CurrentProcessId()));
}

void C_FILE::GetLockers(const C_STRING& path, int* count, C_STRING** lockers) {
  *count = 0;
  *lockers = nullptr;
  const C_STRING lockPath = LockPathOf(path);
  if (!Exists(lockPath)) return;
  LockFileGuard guard(lockPath, GuardMode::Shared, false);
  if (guard.FileIsGone()) return;
  ReadLockers(lockPath, count, lockers);
}

// This process's locker name; without one the failure is reported as the
// document's lock failure, as every lock operation reports its own.
static bool NameThisLocker(const C_STRING& path, C_STRING* locker) {
  C_FILE::BuildLockerName(locker);
  if (!C_ERROR::Is()) return true;
  CerrFileLock.RetriggerMild(&path);
  C_ERROR::ReportPending();
  return false;
}

void C_FILE::Lock(const C_STRING& path) {
  const C_STRING lockPath = LockPathOf(path);
  C_STRING locker;
  if (!NameThisLocker(path, &locker)) return;
  // The guard makes the lock file when there is none, so that there is a
  // file to hold it on; an empty lock file means nobody holds the document.
  LockFileGuard guard(lockPath, GuardMode::Exclusive, true);
  int count = 0;
  C_STRING* entries = nullptr;
  if (Exists(lockPath)) ReadLockers(lockPath, &count, &entries);
  if (!C_ERROR::Is()) WriteLockFile(lockPath, count, entries, locker);
  C_ERROR::ReportPending();
  delete[] entries;
}

void C_FILE::Unlock(const C_STRING& path) {
  const C_STRING lockPath = LockPathOf(path);
  if (!Exists(lockPath)) return;
  C_STRING locker;
  if (!NameThisLocker(path, &locker)) return;
  RemoveEntries(lockPath, 1, &locker);
}

void C_FILE::RemoveLockers(const C_STRING& path, int count, const C_STRING* lockers) {
  if (count <= 0 || lockers == nullptr) return;
  RemoveEntries(LockPathOf(path), count, lockers);
}

C_BOOL C_FILE::IsLocked(const C_STRING& path) {
  if (!Exists(LockPathOf(path))) return false;
  int count = 0;
  C_STRING* entries = nullptr;
  GetLockers(path, &count, &entries);
  if (count == 0) return false;
  C_STRING locker;
  BuildLockerName(&locker);
  if (C_ERROR::Is()) {
    // Without our own name, every entry might be somebody else's.
    C_ERROR::ClearPending();
    delete[] entries;
    return true;
  }
  C_STRING who, process;
  SplitLocker(locker, &who, &process);
  bool other = false;
  for (int i = 0; i < count && !other; ++i) {
    C_STRING entryWho, entryProcess;
    SplitLocker(entries[i], &entryWho, &entryProcess);
    other = entryWho != who || entryProcess != process;
  }
  delete[] entries;
  return other;
}

C_LOG C_FILE::IsLockerAlive(const C_STRING& locker) {
  // "\\" computer "\" user "\" decimal process id, nothing else.
  const int userStart = locker.Search(C_CHAR(u'\\'), 2) + 1;
  const int idStart = userStart > 0 ? locker.Search(C_CHAR(u'\\'), userStart) + 1 : 0;
  if (locker.Get(0) != C_CHAR(u'\\') || locker.Get(1) != C_CHAR(u'\\') || userStart <= 3 || idStart <= userStart + 1 ||
      idStart >= locker.GetNumber()) {
    return C_LOG();
  }
  unsigned long id = 0;
  for (int i = idStart; i < locker.GetNumber(); ++i) {
    const char16_t c = static_cast<char16_t>(locker.Get(i));
    if (c < u'0' || c > u'9' || id > 0xFFFFFFFFul / 10) return C_LOG();
    id = id * 10 + static_cast<unsigned long>(c - u'0');
  }
  std::u16string computer;
  if (!qorc::platform::ComputerName(&computer)) return C_LOG();
  const C_STRING entryComputer = locker.GetSlice(2, userStart - 2);
  if (entryComputer.CompareNoCase(FromUnits(computer)) != 0) return C_LOG();
  const C_STRING user = locker.GetSlice(userStart, idStart - 2);
  const std::u16string userUnits(user.GetWCHAR(), static_cast<std::size_t>(user.GetNumber()));
  switch (qorc::platform::ProcessOfUser(id, userUnits)) {
    case qorc::platform::ProcessState::Alive:
      return C_LOG(1);
    case qorc::platform::ProcessState::Gone:
      return C_LOG(0);
    default:
      return C_LOG();
  }
}
