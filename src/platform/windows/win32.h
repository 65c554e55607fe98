// The one file of the library that includes <windows.h>. It pins the Windows
// version the seam is written for, keeps the header's macros out of the way
// (no min/max, no rarely used APIs), and holds what every Win32 file of the
// seam shares: the conversions between the library's paths and wide OS
// names, the guard that closes a handle, and the mapping of the system's
// error codes to the library's failure classes. Only the "W" functions of
// the API are called.
#ifndef QORC_PLATFORM_WINDOWS_WIN32_H
#define QORC_PLATFORM_WINDOWS_WIN32_H

#ifndef _WIN32_WINNT
#define _WIN32_WINNT 0x0601  // Windows 7: SRW locks, CopyFileExW, LockFileEx, GetTickCount64
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef UNICODE
#define UNICODE
#endif
#include <windows.h>
// Names of the seam that <windows.h> defines as macros for its own A/W pairs.
#undef CopyFile
#undef ReplaceFile

#include <string>

#include "platform/filesystem.h"

namespace qorc::platform::windows {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wide characters are UTF-16 units");

// The library's path form is the native one ("\" separators, drive letters,
// UNC names); only the unit type differs. May throw std::bad_alloc.
std::wstring WidePath(const char16_t* path);
inline const wchar_t* Wide(const char16_t* text) { return reinterpret_cast<const wchar_t*>(text); }
inline const char16_t* Units(const wchar_t* text) { return reinterpret_cast<const char16_t*>(text); }
std::u16string LibraryText(const wchar_t* text, std::size_t length);
inline std::u16string LibraryText(const std::wstring& text) { return LibraryText(text.data(), text.size()); }

// The failure class of a Win32 error code (GetLastError) and of a C runtime
// errno value: the one place where the system's codes meet the library's.
FileError FileErrorOf(DWORD error);
FileError FileErrorOfErrno(int error);

// Closes a kernel handle when it goes out of scope.
class HandleGuard {
 public:
  explicit HandleGuard(HANDLE handle = INVALID_HANDLE_VALUE) : handle_(handle) {}
  ~HandleGuard() { Close(); }
  HandleGuard(const HandleGuard&) = delete;
  HandleGuard& operator=(const HandleGuard&) = delete;
  HANDLE get() const { return handle_; }
  bool valid() const { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }
  HANDLE release() {
    HANDLE handle = handle_;
    handle_ = INVALID_HANDLE_VALUE;
    return handle;
  }
  void Close() {
    if (valid()) ::CloseHandle(handle_);
    handle_ = INVALID_HANDLE_VALUE;
  }

 private:
  HANDLE handle_;
};

// A FILETIME (100 ns units since 1601) as seconds since 1970 UTC, and back.
constexpr long long kFileTimeEpochOffset = 116444736000000000LL;
inline long long FileTimeTicks(const FILETIME& time) {
  return static_cast<long long>((static_cast<unsigned long long>(time.dwHighDateTime) << 32) | time.dwLowDateTime);
}
inline long long UnixSecondsOfFileTime(const FILETIME& time) {
  const long long ticks = FileTimeTicks(time) - kFileTimeEpochOffset;
  // Floor division, so that times before 1970 round down as on POSIX.
  return ticks >= 0 ? ticks / 10000000 : -((-ticks + 9999999) / 10000000);
}

}  // namespace qorc::platform::windows

#endif
