// The advisory guard of a file on POSIX: flock on a descriptor of the file
// itself. flock locks belong to the open file, so processes of one machine
// exclude each other, and a process that dies releases its lock.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <new>
#include <string>

#include "platform/file_guard.h"
#include "platform/posix/native_path.h"

namespace qorc::platform {
namespace {

using Clock = std::chrono::steady_clock;

void Pause(long microseconds) {
  struct timespec delay = {microseconds / 1000000, (microseconds % 1000000) * 1000};
  while (::nanosleep(&delay, &delay) != 0 && errno == EINTR) {
  }
}

// Whether the descriptor still shows the file that the path names: a
// rewrite that replaced or removed the file while we waited leaves us
// holding a lock on a file nobody reads any more.
bool StillNamed(int fd, const std::string& path) {
  struct stat held, named;
  return ::fstat(fd, &held) == 0 && ::stat(path.c_str(), &named) == 0 && held.st_dev == named.st_dev &&
         held.st_ino == named.st_ino;
}

enum class Attempt { Granted, Busy, Failed };

Attempt TryLock(int fd, GuardMode mode) {
  const int operation = (mode == GuardMode::Exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB;
  while (::flock(fd, operation) != 0) {
    if (errno == EINTR) continue;
    return errno == EWOULDBLOCK ? Attempt::Busy : Attempt::Failed;
  }
  return Attempt::Granted;
}

GuardResult Acquire(const std::string& path, GuardMode mode, bool create, int timeoutMs, FileGuardHandle* handle) {
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  long pause = 50;
  for (;;) {
    // Read access is enough for flock, and leaves read-only files usable.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | (create ? O_CREAT : 0), 0666);
    if (fd < 0) return errno == ENOENT && !create ? GuardResult::Missing : GuardResult::Unavailable;
    Attempt attempt = TryLock(fd, mode);
    // The lock is polled rather than waited for, so that a process that
    // hangs while holding it cannot hang us beyond the time-out.
    while (attempt == Attempt::Busy && Clock::now() < deadline) {
      Pause(pause);
      if (pause < 5000) pause *= 2;
      attempt = TryLock(fd, mode);
    }
    if (attempt == Attempt::Granted && StillNamed(fd, path)) {
      *handle = fd;
      return GuardResult::Held;
    }
    ::close(fd);
    if (attempt != Attempt::Granted || Clock::now() >= deadline) return GuardResult::Unavailable;
  }
}

}  // namespace

GuardResult AcquireFileGuard(const char16_t* path, GuardMode mode, bool create, int timeoutMs,
                             FileGuardHandle* handle) {
  *handle = kNoFileGuard;
  try {
    const std::string native = posix::NativePath(path);
    return native.empty() ? GuardResult::Unavailable : Acquire(native, mode, create, timeoutMs, handle);
  } catch (const std::bad_alloc&) {
    return GuardResult::Unavailable;
  }
}

void ReleaseFileGuard(FileGuardHandle handle) {
  if (handle == kNoFileGuard) return;
  const int fd = static_cast<int>(handle);
  // Explicitly, in case a child forked meanwhile shares the open file.
  ::flock(fd, LOCK_UN);
  ::close(fd);
}

bool ReplaceFile(const char16_t* from, const char16_t* to) {
  try {
    const std::string source = posix::NativePath(from);
    const std::string target = posix::NativePath(to);
    if (source.empty() || target.empty()) return false;
    // rename ignores the target's permissions; a read-only target is kept,
    // as the read-only attribute keeps a file from being replaced.
    struct stat status;
    if (::stat(target.c_str(), &status) == 0 && (status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) return false;
    return ::rename(source.c_str(), target.c_str()) == 0;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace qorc::platform
