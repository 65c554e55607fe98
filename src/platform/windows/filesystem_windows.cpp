// File-system services over Win32. The library's semantics are the system's
// own here: the read-only attribute, a move that never replaces its target,
// CopyFileExW with its progress routine, delete-on-close files.
#include <fcntl.h>
#include <io.h>

#include <cerrno>
#include <cstdio>
#include <new>
#include <vector>

#include "platform/filesystem.h"
#include "platform/windows/win32.h"

namespace qorc::platform {
namespace windows {

std::wstring WidePath(const char16_t* path) { return std::wstring(Wide(path)); }

std::u16string LibraryText(const wchar_t* text, std::size_t length) { return std::u16string(Units(text), length); }

FileError FileErrorOf(DWORD error) {
  switch (error) {
    case ERROR_SUCCESS:
      return FileError::None;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_INVALID_NAME:
    case ERROR_INVALID_DRIVE:
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_DIRECTORY:
      return FileError::NotFound;
    case ERROR_ACCESS_DENIED:
    case ERROR_SHARING_VIOLATION:
    case ERROR_LOCK_VIOLATION:
    case ERROR_WRITE_PROTECT:
      return FileError::AccessDenied;
    case ERROR_FILE_EXISTS:
    case ERROR_ALREADY_EXISTS:
    case ERROR_DIR_NOT_EMPTY:
      return FileError::AlreadyExists;
    default:
      return FileError::Other;
  }
}

FileError FileErrorOfErrno(int error) {
  switch (error) {
    case 0:
      return FileError::None;
    case ENOENT:
    case ENOTDIR:
      return FileError::NotFound;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return FileError::AccessDenied;
    case EEXIST:
    case ENOTEMPTY:
      return FileError::AlreadyExists;
    default:
      return FileError::Other;
  }
}

}  // namespace windows

namespace {

using windows::FileErrorOf;
using windows::Wide;

FileError LastFileError() { return FileErrorOf(::GetLastError()); }

template <typename Result, typename Body>
Result Guarded(Result onFailure, Body body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return onFailure;
  }
}

struct CopyState {
  CopyProgress progress;
  void* context;
  const volatile bool* cancel;
};

DWORD CALLBACK CopyProgressRoutine(LARGE_INTEGER total, LARGE_INTEGER transferred, LARGE_INTEGER, LARGE_INTEGER,
                                   DWORD, DWORD reason, HANDLE, HANDLE, LPVOID data) {
  const CopyState* state = static_cast<const CopyState*>(data);
  if (state->cancel != nullptr && *state->cancel) return PROGRESS_CANCEL;
  if (state->progress != nullptr &&
      !state->progress(transferred.QuadPart, total.QuadPart, reason == CALLBACK_STREAM_SWITCH, state->context)) {
    return PROGRESS_CANCEL;
  }
  return PROGRESS_CONTINUE;
}

}  // namespace

bool PathExists(const char16_t* path) { return ::GetFileAttributesW(Wide(path)) != INVALID_FILE_ATTRIBUTES; }

FileError CheckWritable(const char16_t* path) {
  const DWORD attributes = ::GetFileAttributesW(Wide(path));
  if (attributes == INVALID_FILE_ATTRIBUTES) return LastFileError();
  return (attributes & FILE_ATTRIBUTE_READONLY) != 0 ? FileError::AccessDenied : FileError::None;
}

FileError SetWritable(const char16_t* path, bool writable) {
  const DWORD attributes = ::GetFileAttributesW(Wide(path));
  if (attributes == INVALID_FILE_ATTRIBUTES) return LastFileError();
  DWORD wanted = writable ? (attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY))
                          : (attributes | FILE_ATTRIBUTE_READONLY);
  if (wanted == 0) wanted = FILE_ATTRIBUTE_NORMAL;
  return ::SetFileAttributesW(Wide(path), wanted) ? FileError::None : LastFileError();
}

FileError RemoveFile(const char16_t* path) {
  const DWORD attributes = ::GetFileAttributesW(Wide(path));
  if (attributes == INVALID_FILE_ATTRIBUTES) return LastFileError();
  // A directory is not a file to delete, and a read-only file is protected.
  if ((attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_READONLY)) != 0) return FileError::AccessDenied;
  return ::DeleteFileW(Wide(path)) ? FileError::None : LastFileError();
}

FileError RenameNoReplace(const char16_t* from, const char16_t* to) {
  // Without MOVEFILE_REPLACE_EXISTING an existing target is refused; a move
  // to another volume copies and deletes.
  if (::MoveFileExW(Wide(from), Wide(to), MOVEFILE_COPY_ALLOWED)) return FileError::None;
  return LastFileError();
}

bool CopyFile(const char16_t* from, const char16_t* to, bool failIfExists, CopyProgress progress, void* context,
              const volatile bool* cancel) {
  if (cancel != nullptr && *cancel) return false;
  const DWORD targetAttributes = ::GetFileAttributesW(Wide(to));
  const bool targetExisted = targetAttributes != INVALID_FILE_ATTRIBUTES;
  // A read-only target is never overwritten (Windows refuses it; Wine's copy
  // does not).
  if (targetExisted && (targetAttributes & FILE_ATTRIBUTE_READONLY) != 0) return false;
  CopyState state{progress, context, cancel};
  BOOL cancelFlag = FALSE;
  if (::CopyFileExW(Wide(from), Wide(to), CopyProgressRoutine, &state, &cancelFlag,
                    failIfExists ? COPY_FILE_FAIL_IF_EXISTS : 0)) {
    return true;
  }
  // A cancelled copy is removed by the system; a copy that failed on its way
  // is removed here, unless the target was there before and was refused.
  if (!targetExisted) ::DeleteFileW(Wide(to));
  return false;
}

FileError ModificationTime(const char16_t* path, long long* seconds) {
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!::GetFileAttributesExW(Wide(path), GetFileExInfoStandard, &data)) return LastFileError();
  *seconds = windows::UnixSecondsOfFileTime(data.ftLastWriteTime);
  return FileError::None;
}

std::FILE* CreateDeleteOnCloseFile(const char16_t* path) {
  // The system removes the file when its last handle closes, also when the
  // process dies.
  HANDLE file = ::CreateFileW(Wide(path), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                              nullptr, CREATE_NEW, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  if (file == INVALID_HANDLE_VALUE) return nullptr;
  const int fd = ::_open_osfhandle(reinterpret_cast<intptr_t>(file), _O_RDWR | _O_BINARY);
  if (fd < 0) {
    ::CloseHandle(file);
    return nullptr;
  }
  std::FILE* stream = ::_fdopen(fd, "w+b");
  if (stream == nullptr) ::_close(fd);
  return stream;
}

namespace {

// Calls a Win32 function that fills a buffer and answers the length it
// needs when the buffer is too small.
template <typename Fill>
bool FillBuffer(std::u16string* out, Fill fill) {
  std::vector<wchar_t> buffer(MAX_PATH + 1);
  for (;;) {
    const DWORD length = fill(buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) return false;
    if (length < buffer.size()) {
      *out = windows::LibraryText(buffer.data(), length);
      return true;
    }
    buffer.resize(length > buffer.size() ? length + 1 : buffer.size() * 2);
  }
}

}  // namespace

bool CurrentDirectory(std::u16string* out) {
  return Guarded(false, [&] {
    return FillBuffer(out, [](wchar_t* buffer, DWORD size) { return ::GetCurrentDirectoryW(size, buffer); });
  });
}

bool ExecutablePath(std::u16string* out) {
  return Guarded(false, [&] {
    return FillBuffer(out, [](wchar_t* buffer, DWORD size) {
      const DWORD length = ::GetModuleFileNameW(nullptr, buffer, size);
      // A truncated name fills the buffer exactly: ask again with more room.
      return length == size ? size : length;
    });
  });
}

bool TemporaryDirectory(std::u16string* out) {
  return Guarded(false, [&] {
    if (!FillBuffer(out, [](wchar_t* buffer, DWORD size) { return ::GetTempPathW(size, buffer); })) return false;
    if (out->empty() || out->back() != u'\\') *out += u'\\';
    return true;
  });
}

bool NetworkSource(const char16_t* path, std::u16string* out) {
  return Guarded(false, [&] {
    // A network drive is named by its letter and colon ("X:" or "X:\").
    std::u16string local(path);
    if (local.size() == 3 && local[2] == u'\\') local.resize(2);
    std::vector<wchar_t> buffer(MAX_PATH + 1);
    DWORD size = static_cast<DWORD>(buffer.size());
    DWORD result = ::WNetGetConnectionW(Wide(local.c_str()), buffer.data(), &size);
    if (result == ERROR_MORE_DATA) {
      buffer.resize(size + 1);
      size = static_cast<DWORD>(buffer.size());
      result = ::WNetGetConnectionW(Wide(local.c_str()), buffer.data(), &size);
    }
    if (result != NO_ERROR) return false;
    *out = windows::LibraryText(std::wstring(buffer.data()));
    return !out->empty();
  });
}

}  // namespace qorc::platform
