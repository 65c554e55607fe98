// What tests need of the system beyond the library, on both systems:
// modification times of files (seconds since 1970 UTC), a device that is
// always full, and whether the Windows programs run under Wine.
#ifndef QORC_TESTS_SUPPORT_OS_SUPPORT_H
#define QORC_TESTS_SUPPORT_OS_SUPPORT_H

#include <string>

// The library's headers come before <windows.h>, whose macros would clash with their names.
#include <qorc/qorc.h>
#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#include <tlhelp32.h>
#undef VOID  // the library's "empty" constants are named VOID
#undef far
#undef near

#include <filesystem>
#else
#include <filesystem>
#include <fcntl.h>
#include <sys/stat.h>
#endif

// The bytes of text as a TEXT file (the runtime's text mode) stores it: CR LF
// for each LF on Windows, unchanged on POSIX.
inline std::string TextLineEnds(const std::string& text) {
#ifdef _WIN32
  std::string out;
  for (char c : text) out += c == '\n' ? std::string("\r\n") : std::string(1, c);
  return out;
#else
  return text;
#endif
}

// An expression that counts only in the Windows build (false on POSIX).
#ifdef _WIN32
#define QORC_ON_WINDOWS(expression) (expression)
#else
#define QORC_ON_WINDOWS(expression) false
#endif

// A device on which every write fails for lack of space: Linux's /dev/full,
// reached under Wine through its Z: drive (Windows itself has none).
#ifdef _WIN32
constexpr char kFullDevice[] = "Z:\\dev\\full";
constexpr char16_t kFullDeviceUnits[] = u"Z:\\dev\\full";
#else
constexpr char kFullDevice[] = "/dev/full";
constexpr char16_t kFullDeviceUnits[] = u"/dev/full";
#endif

// Sets the modification time (and the access time) of a file; the fraction
// is given in nanoseconds. False when it cannot be done.
inline bool SetModificationTime(const std::string& path, long long seconds, long nanoseconds = 0) {
#ifdef _WIN32
  const long long ticks = seconds * 10000000LL + nanoseconds / 100 + 116444736000000000LL;
  FILETIME time;
  time.dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFF);
  time.dwHighDateTime = static_cast<DWORD>(static_cast<unsigned long long>(ticks) >> 32);
  HANDLE file = CreateFileW(std::filesystem::path(path).wstring().c_str(), FILE_WRITE_ATTRIBUTES,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS,
                            nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  const bool set = SetFileTime(file, nullptr, &time, &time) != 0;
  CloseHandle(file);
  return set;
#else
  const struct timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
  return utimensat(AT_FDCWD, path.c_str(), times, 0) == 0;
#endif
}

// The whole seconds of a file's modification time; -1 when unknown.
inline long long ModificationSeconds(const std::string& path) {
#ifdef _WIN32
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExW(std::filesystem::path(path).wstring().c_str(), GetFileExInfoStandard, &data)) return -1;
  const long long ticks =
      static_cast<long long>((static_cast<unsigned long long>(data.ftLastWriteTime.dwHighDateTime) << 32) |
                             data.ftLastWriteTime.dwLowDateTime);
  return (ticks - 116444736000000000LL) / 10000000;
#else
  struct stat status;
  return stat(path.c_str(), &status) == 0 ? static_cast<long long>(status.st_mtim.tv_sec) : -1;
#endif
}

// The threads of this process, or -1 where the system does not list them.
inline int ProcessThreadCount() {
#ifdef _WIN32
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  if (snapshot == INVALID_HANDLE_VALUE) return -1;
  THREADENTRY32 entry = {};
  entry.dwSize = sizeof entry;
  int count = 0;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
  }
  CloseHandle(snapshot);
  return count;
#else
  std::error_code error;
  std::filesystem::directory_iterator tasks("/proc/self/task", error);
  if (error) return -1;
  int count = 0;
  for (auto it = tasks; it != std::filesystem::directory_iterator(); it.increment(error)) ++count;
  return count;
#endif
}

// Whether this Windows program runs under Wine rather than Windows (always
// false on POSIX), for the tests that meet one of Wine's differences.
inline bool RunningUnderWine() {
#ifdef _WIN32
  const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
#else
  return false;
#endif
}

#endif
