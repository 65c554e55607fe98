// The advisory guard of a file over Win32: LockFileEx on a handle of the file
// itself. Windows locks are mandatory for the bytes they cover, so the lock
// lies on one byte far beyond any content, where it excludes the other
// guards without keeping anyone from reading the file. A process that dies
// releases its locks.
#include <chrono>
#include <new>
#include <string>

#include "platform/file_guard.h"
#include "platform/windows/win32.h"

namespace qorc::platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr DWORD kGuardOffsetHigh = 0x7FFFFFFF;

OVERLAPPED GuardRegion() {
  OVERLAPPED region = {};
  region.Offset = 0;
  region.OffsetHigh = kGuardOffsetHigh;
  return region;
}

bool SameFile(HANDLE a, HANDLE b) {
  BY_HANDLE_FILE_INFORMATION x, y;
  return ::GetFileInformationByHandle(a, &x) && ::GetFileInformationByHandle(b, &y) &&
         x.dwVolumeSerialNumber == y.dwVolumeSerialNumber && x.nFileIndexHigh == y.nFileIndexHigh &&
         x.nFileIndexLow == y.nFileIndexLow;
}

HANDLE OpenShared(const wchar_t* path, DWORD disposition) {
  // Others may read, rewrite, replace and delete the file while it is held.
  return ::CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, disposition,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Whether the handle still shows the file that the path names: a rewrite
// that replaced or removed the file while we waited leaves us holding a lock
// on a file nobody reads any more.
bool StillNamed(HANDLE held, const wchar_t* path) {
  windows::HandleGuard named(OpenShared(path, OPEN_EXISTING));
  return named.valid() && SameFile(held, named.get());
}

enum class Attempt { Granted, Busy, Failed };

Attempt TryLock(HANDLE file, GuardMode mode) {
  OVERLAPPED region = GuardRegion();
  const DWORD flags = LOCKFILE_FAIL_IMMEDIATELY | (mode == GuardMode::Exclusive ? LOCKFILE_EXCLUSIVE_LOCK : 0);
  if (::LockFileEx(file, flags, 0, 1, 0, &region)) return Attempt::Granted;
  return ::GetLastError() == ERROR_LOCK_VIOLATION || ::GetLastError() == ERROR_IO_PENDING ? Attempt::Busy
                                                                                          : Attempt::Failed;
}

}  // namespace

GuardResult AcquireFileGuard(const char16_t* path, GuardMode mode, bool create, int timeoutMs,
                             FileGuardHandle* handle) {
  *handle = kNoFileGuard;
  const wchar_t* name = windows::Wide(path);
  if (*name == L'\0') return GuardResult::Unavailable;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  DWORD pause = 1;
  for (;;) {
    windows::HandleGuard file(OpenShared(name, create ? OPEN_ALWAYS : OPEN_EXISTING));
    if (!file.valid()) {
      const DWORD error = ::GetLastError();
      return !create && (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) ? GuardResult::Missing
                                                                                         : GuardResult::Unavailable;
    }
    // The lock is polled rather than waited for, so that a process that
    // hangs while holding it cannot hang us beyond the time-out.
    Attempt attempt = TryLock(file.get(), mode);
    while (attempt == Attempt::Busy && Clock::now() < deadline) {
      ::Sleep(pause);
      if (pause < 5) pause *= 2;
      attempt = TryLock(file.get(), mode);
    }
    if (attempt == Attempt::Granted && StillNamed(file.get(), name)) {
      *handle = reinterpret_cast<FileGuardHandle>(file.release());
      return GuardResult::Held;
    }
    if (attempt == Attempt::Granted) {
      OVERLAPPED region = GuardRegion();
      ::UnlockFileEx(file.get(), 0, 1, 0, &region);
    }
    if (attempt != Attempt::Granted || Clock::now() >= deadline) return GuardResult::Unavailable;
  }
}

void ReleaseFileGuard(FileGuardHandle handle) {
  if (handle == kNoFileGuard) return;
  HANDLE file = reinterpret_cast<HANDLE>(handle);
  OVERLAPPED region = GuardRegion();
  ::UnlockFileEx(file, 0, 1, 0, &region);
  ::CloseHandle(file);
}

bool ReplaceFile(const char16_t* from, const char16_t* to) {
  return *from != u'\0' && *to != u'\0' &&
         ::MoveFileExW(windows::Wide(from), windows::Wide(to), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}

}  // namespace qorc::platform
