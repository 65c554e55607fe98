// The guard of a file over Win32: a named mutex of this machine, named after
// the file's full path (letters without case, as the file system compares
// them). Windows refuses to replace a file that anyone holds open, so the
// guard cannot lie on an open handle of the file while the file is being
// replaced, as it does on POSIX; a named kernel object leaves no file beside
// the document, and a process that dies abandons the mutex, which releases
// it. Shared guards are taken as exclusive ones.
#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "platform/file_guard.h"
#include "platform/windows/win32.h"

namespace qorc::platform {
namespace {

// "Global\qorc-guard-" and a 64-bit FNV-1a hash of the upper-cased full path.
std::wstring MutexName(const wchar_t* path, const wchar_t* scope) {
  std::vector<wchar_t> full(MAX_PATH + 1);
  DWORD length = ::GetFullPathNameW(path, static_cast<DWORD>(full.size()), full.data(), nullptr);
  if (length >= full.size()) {
    full.resize(length + 1);
    length = ::GetFullPathNameW(path, static_cast<DWORD>(full.size()), full.data(), nullptr);
  }
  if (length == 0) return std::wstring();
  std::wstring text(full.data(), length);
  ::CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
  unsigned long long hash = 14695981039346656037ULL;
  for (wchar_t c : text) {
    hash = (hash ^ static_cast<unsigned char>(c & 0xFF)) * 1099511628211ULL;
    hash = (hash ^ static_cast<unsigned char>(c >> 8)) * 1099511628211ULL;
  }
  wchar_t name[64];
  std::swprintf(name, 64, L"%ls\\qorc-guard-%016llx", scope, hash);
  return name;
}

HANDLE OpenGuardMutex(const wchar_t* path) {
  // Global names reach every session of the machine; where they are not
  // allowed, the session's own.
  for (const wchar_t* scope : {L"Global", L"Local"}) {
    const std::wstring name = MutexName(path, scope);
    if (name.empty()) return nullptr;
    HANDLE mutex = ::CreateMutexW(nullptr, FALSE, name.c_str());
    if (mutex != nullptr) return mutex;
  }
  return nullptr;
}

bool FileExists(const wchar_t* path) { return ::GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES; }

}  // namespace

GuardResult AcquireFileGuard(const char16_t* path, GuardMode, bool create, int timeoutMs, FileGuardHandle* handle) {
  *handle = kNoFileGuard;
  try {
    const wchar_t* name = windows::Wide(path);
    if (*name == L'\0') return GuardResult::Unavailable;
    if (!create && !FileExists(name)) return GuardResult::Missing;
    HANDLE mutex = OpenGuardMutex(name);
    if (mutex == nullptr) return GuardResult::Unavailable;
    const DWORD waited = ::WaitForSingleObject(mutex, timeoutMs < 0 ? 0 : static_cast<DWORD>(timeoutMs));
    // An abandoned mutex was held by a process that died: it is ours now.
    if (waited != WAIT_OBJECT_0 && waited != WAIT_ABANDONED) {
      ::CloseHandle(mutex);
      return GuardResult::Unavailable;
    }
    if (create && !FileExists(name)) {
      HANDLE file = ::CreateFileW(name, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
      if (file == INVALID_HANDLE_VALUE) {
        ::ReleaseMutex(mutex);
        ::CloseHandle(mutex);
        return GuardResult::Unavailable;
      }
      ::CloseHandle(file);
    } else if (!create && !FileExists(name)) {
      // Removed while we waited.
      ::ReleaseMutex(mutex);
      ::CloseHandle(mutex);
      return GuardResult::Missing;
    }
    *handle = reinterpret_cast<FileGuardHandle>(mutex);
    return GuardResult::Held;
  } catch (const std::bad_alloc&) {
    return GuardResult::Unavailable;
  }
}

void ReleaseFileGuard(FileGuardHandle handle) {
  if (handle == kNoFileGuard) return;
  HANDLE mutex = reinterpret_cast<HANDLE>(handle);
  ::ReleaseMutex(mutex);
  ::CloseHandle(mutex);
}

bool ReplaceFile(const char16_t* from, const char16_t* to) {
  return *from != u'\0' && *to != u'\0' &&
         ::MoveFileExW(windows::Wide(from), windows::Wide(to), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
}

}  // namespace qorc::platform
