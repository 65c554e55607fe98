// The seam's advisory guard on a file, which serialises the processes of one
// machine that rewrite the same file. The guard lies on the file itself; no
// other file is made.
#ifndef QORC_PLATFORM_FILE_GUARD_H
#define QORC_PLATFORM_FILE_GUARD_H

namespace qorc::platform {

enum class GuardMode { Shared, Exclusive };

// Opens the file (creating it empty when `create` is set) and takes the
// advisory lock on it. A file that is replaced or removed while the caller
// waits is opened again, so the guard always lies on the file the path names
// when it is granted. Waits at most `timeoutMs` milliseconds. Returns a
// handle, or -1 when the file is missing (and not to be created), cannot be
// opened, or the wait timed out.
int AcquireFileGuard(const char16_t* path, GuardMode mode, bool create, int timeoutMs);
// Releases the guard and closes the file.
void ReleaseFileGuard(int handle);

// Replaces `to` by `from` in one step: at every moment `to` names either the
// old or the new file. False when it cannot be done.
bool ReplaceFile(const char16_t* from, const char16_t* to);

}  // namespace qorc::platform

#endif
