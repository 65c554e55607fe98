// The process environment through Win32, in UTF-16 as the system keeps it.
#include <new>
#include <string>
#include <vector>

#include "platform/environment.h"
#include "platform/windows/win32.h"

namespace qorc::platform {

bool ReadEnvironmentVariable(const std::u16string& name, std::u16string* value) {
  try {
    std::vector<wchar_t> buffer(256);
    for (;;) {
      ::SetLastError(ERROR_SUCCESS);
      const DWORD length = ::GetEnvironmentVariableW(windows::Wide(name.c_str()), buffer.data(),
                                                     static_cast<DWORD>(buffer.size()));
      if (length == 0) {
        // An empty variable is set; a missing one reports that it is missing.
        if (::GetLastError() == ERROR_ENVVAR_NOT_FOUND) return false;
        value->clear();
        return true;
      }
      if (length < buffer.size()) {
        *value = windows::LibraryText(buffer.data(), length);
        return true;
      }
      buffer.resize(length + 1);
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool WriteEnvironmentVariable(const std::u16string& name, const std::u16string& value) {
  if (name.empty() || name.find(u'=') != std::u16string::npos) return false;
  const wchar_t* wideValue = value.empty() ? nullptr : windows::Wide(value.c_str());
  if (!::SetEnvironmentVariableW(windows::Wide(name.c_str()), wideValue)) {
    // Removing a variable that is not set leaves the environment as asked.
    return value.empty() && ::GetLastError() == ERROR_ENVVAR_NOT_FOUND;
  }
  // The runtime keeps a copy of the environment for getenv; keep it in step.
  std::wstring assignment = std::wstring(windows::Wide(name.c_str())) + L"=";
  if (!value.empty()) assignment += windows::Wide(value.c_str());
  ::_wputenv(assignment.c_str());
  return true;
}

}  // namespace qorc::platform
