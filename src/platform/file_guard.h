// The seam's advisory guard on a file, which serialises the processes of one
// machine that rewrite the same file. The guard lies on the file itself; no
// other file is made.
#ifndef QORC_PLATFORM_FILE_GUARD_H
#define QORC_PLATFORM_FILE_GUARD_H

#include <cstdint>

namespace qorc::platform {

// An open file that holds the guard: a descriptor on POSIX, a HANDLE on
// Windows; kNoFileGuard when none is held.
using FileGuardHandle = std::intptr_t;
constexpr FileGuardHandle kNoFileGuard = -1;

enum class GuardMode { Shared, Exclusive };

enum class GuardResult {
  // *handle holds the guard.
  Held,
  // The file does not exist (and was not to be created).
  Missing,
  // No guard: the file cannot be opened, the file system has no such locks,
  // or the wait timed out.
  Unavailable
};

// Opens the file (creating it empty when `create` is set) and takes the
// advisory lock on it. A file that is replaced or removed while the caller
// waits is opened again, so the guard always lies on the file the path names
// when it is granted. Waits at most `timeoutMs` milliseconds.
GuardResult AcquireFileGuard(const char16_t* path, GuardMode mode, bool create, int timeoutMs,
                             FileGuardHandle* handle);
// Releases the guard and closes the file; kNoFileGuard does nothing.
void ReleaseFileGuard(FileGuardHandle handle);

// Replaces `to` by `from` in one step: at every moment `to` names either the
// old or the new file. False when it cannot be done, and when `to` is
// read-only.
bool ReplaceFile(const char16_t* from, const char16_t* to);

}  // namespace qorc::platform

#endif
