// Directory enumeration over FindFirstFileW/FindNextFileW: every entry of a
// directory, long names only (the library matches its patterns itself, so
// no 8.3 short name ever makes an entry match).
#include <new>
#include <string>

#include "platform/directory.h"
#include "platform/windows/win32.h"

namespace qorc::platform {
namespace {

// A reparse point (a symbolic link or a junction) counts as what it leads
// to; one that leads nowhere is a file.
bool IsDirectoryEntry(const std::wstring& dir, const WIN32_FIND_DATAW& found) {
  if ((found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
    return (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  }
  const std::wstring path = dir + L"\\" + found.cFileName;
  windows::HandleGuard target(::CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                            nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  BY_HANDLE_FILE_INFORMATION information;
  return target.valid() && ::GetFileInformationByHandle(target.get(), &information) &&
         (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

}  // namespace

bool ListDirectory(const char16_t* dir, DirectoryListing* out) {
  out->names.clear();
  out->entries.clear();
  try {
    std::wstring directory = windows::WidePath(dir);
    while (directory.size() > 1 && (directory.back() == L'\\' || directory.back() == L'/') &&
           directory[directory.size() - 2] != L':') {
      directory.pop_back();
    }
    const std::wstring search =
        directory + (directory.empty() || directory.back() == L'\\' || directory.back() == L'/' ? L"*" : L"\\*");
    WIN32_FIND_DATAW found;
    HANDLE find = ::FindFirstFileExW(search.c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0);
    if (find == INVALID_HANDLE_VALUE) return ::GetLastError() == ERROR_FILE_NOT_FOUND;
    out->names.reserve(8192);
    do {
      const std::size_t offset = out->names.size();
      const std::size_t length = std::wcslen(found.cFileName);
      out->names.append(windows::Units(found.cFileName), length);
      out->entries.push_back(DirectoryEntry{offset, length, IsDirectoryEntry(directory, found)});
    } while (::FindNextFileW(find, &found));
    ::FindClose(find);
    return true;
  } catch (const std::bad_alloc&) {
    out->names.clear();
    out->entries.clear();
    return false;
  }
}

bool MakeDirectory(const char16_t* path) { return *path != u'\0' && ::CreateDirectoryW(windows::Wide(path), nullptr); }

bool IdentifyDirectory(const char16_t* path, DirectoryIdentity* identity) {
  // The volume and the file index tell directories apart, whatever path
  // (links, junctions, "." and "..") leads to them.
  windows::HandleGuard directory(::CreateFileW(windows::Wide(path), 0,
                                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                               OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  BY_HANDLE_FILE_INFORMATION information;
  if (!directory.valid() || !::GetFileInformationByHandle(directory.get(), &information) ||
      (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    return false;
  }
  identity->device = information.dwVolumeSerialNumber;
  identity->inode = (static_cast<unsigned long long>(information.nFileIndexHigh) << 32) | information.nFileIndexLow;
  return true;
}

}  // namespace qorc::platform
