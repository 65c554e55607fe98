// Process facts over Win32: the computer and user names, the process id, and
// whether a process of this machine still runs for a user.
#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include "platform/process.h"
#include "platform/windows/win32.h"

namespace qorc::platform {
namespace {

// The user a process acts for, from its token ("" when it cannot be told).
std::wstring UserOfProcess(HANDLE process) {
  HANDLE token = nullptr;
  if (!::OpenProcessToken(process, TOKEN_QUERY, &token)) return std::wstring();
  windows::HandleGuard tokenGuard(token);
  DWORD size = 0;
  ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  if (size == 0) return std::wstring();
  std::vector<unsigned char> buffer(size);
  if (!::GetTokenInformation(token, TokenUser, buffer.data(), size, &size)) return std::wstring();
  const TOKEN_USER* user = reinterpret_cast<const TOKEN_USER*>(buffer.data());
  wchar_t name[256], domain[256];
  DWORD nameSize = 256, domainSize = 256;
  SID_NAME_USE use;
  if (!::LookupAccountSidW(nullptr, user->User.Sid, name, &nameSize, domain, &domainSize, &use)) return std::wstring();
  return std::wstring(name, nameSize);
}

}  // namespace

bool ComputerName(std::u16string* out) {
  try {
    wchar_t name[MAX_COMPUTERNAME_LENGTH + 1];
    DWORD size = MAX_COMPUTERNAME_LENGTH + 1;
    if (!::GetComputerNameW(name, &size) || size == 0) return false;
    *out = windows::LibraryText(name, size);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool UserName(std::u16string* out) {
  try {
    wchar_t name[257];
    DWORD size = 257;
    if (!::GetUserNameW(name, &size) || size <= 1) return false;
    *out = windows::LibraryText(name, size - 1);  // the size counts the terminator
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

unsigned long CurrentProcessId() { return static_cast<unsigned long>(::GetCurrentProcessId()); }

ProcessState ProcessOfUser(unsigned long id, const std::u16string& user) {
  try {
    if (id == 0) return ProcessState::Gone;
    windows::HandleGuard process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE,
                                               static_cast<DWORD>(id)));
    if (!process.valid()) {
      // A process of another user may refuse to be opened; one that does
      // not exist is an invalid parameter.
      return ::GetLastError() == ERROR_INVALID_PARAMETER ? ProcessState::Gone : ProcessState::Unknown;
    }
    // A process that has ended but whose handle someone still holds.
    if (::WaitForSingleObject(process.get(), 0) == WAIT_OBJECT_0) return ProcessState::Gone;
    const std::wstring owner = UserOfProcess(process.get());
    if (owner.empty()) return ProcessState::Unknown;
    // User names compare without case, as the system compares them.
    return ::CompareStringOrdinal(owner.c_str(), static_cast<int>(owner.size()), windows::Wide(user.c_str()),
                                  static_cast<int>(user.size()), TRUE) == CSTR_EQUAL
               ? ProcessState::Alive
               : ProcessState::Gone;
  } catch (const std::bad_alloc&) {
    return ProcessState::Unknown;
  }
}

bool ExecutableSearchPath(std::vector<std::u16string>* directories) {
  try {
    std::vector<wchar_t> buffer(1024);
    DWORD length = 0;
    for (;;) {
      length = ::GetEnvironmentVariableW(L"PATH", buffer.data(), static_cast<DWORD>(buffer.size()));
      if (length == 0) return false;
      if (length < buffer.size()) break;
      buffer.resize(length + 1);
    }
    const std::wstring list(buffer.data(), length);
    for (std::size_t start = 0;;) {
      const std::size_t end = std::min(list.find(L';', start), list.size());
      directories->push_back(windows::LibraryText(list.data() + start, end - start));
      if (end == list.size()) return true;
      start = end + 1;
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace qorc::platform
