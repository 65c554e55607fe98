// C runtime streams of the Microsoft runtime: files opened by their wide
// names, or by multibyte names in the process's code page, in the runtime's
// binary or real text mode (a "b" in the mode or not: text mode writes CR LF
// for LF and reads it back as LF), with 64-bit positions.
#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "platform/file_stream.h"
#include "platform/text.h"
#include "platform/windows/win32.h"

namespace qorc::platform {
namespace {

std::wstring WideMode(const char* mode) {
  std::wstring out;
  for (const char* p = mode; *p != '\0'; ++p) out += static_cast<wchar_t>(*p);
  return out;
}

// The runtime refuses a directory only when it is written; reading one must
// fail as it does on POSIX.
bool IsDirectory(const wchar_t* path) {
  const DWORD attributes = ::GetFileAttributesW(path);
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

}  // namespace

std::FILE* OpenStream(const char16_t* path, const char* mode) {
  try {
    if (*path == u'\0') {
      errno = ENOENT;
      return nullptr;
    }
    const wchar_t* name = windows::Wide(path);
    if (IsDirectory(name)) {
      errno = EACCES;
      return nullptr;
    }
    return ::_wfopen(name, WideMode(mode).c_str());
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

std::FILE* OpenStreamNarrow(const char* path, int codePage, const char* mode) {
  try {
    // The runtime's multibyte functions take names in the ANSI code page;
    // other pages go through the wide form.
    const int length = static_cast<int>(std::strlen(path));
    const int needed = MultiByteToWide(codePage, path, length, nullptr, 0);
    if (needed < 0) return nullptr;
    std::u16string wide(static_cast<std::size_t>(needed) + 1, u'\0');
    MultiByteToWide(codePage, path, length, wide.data(), needed + 1);
    wide.resize(static_cast<std::size_t>(needed));
    return OpenStream(wide.c_str(), mode);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

long long StreamLength(std::FILE* stream) {
  struct _stati64 status;
  if (::_fstati64(::_fileno(stream), &status) != 0) return -1;
  // What is still buffered counts as written.
  const long long position = StreamTell(stream);
  return position > status.st_size ? position : static_cast<long long>(status.st_size);
}

long long StreamTell(std::FILE* stream) { return static_cast<long long>(::_ftelli64(stream)); }

bool StreamSeek(std::FILE* stream, long long offset, int whence) {
  return ::_fseeki64(stream, static_cast<__int64>(offset), whence) == 0;
}

bool LastFailureWasNoSpace() { return errno == ENOSPC; }

StreamLock::StreamLock(std::FILE* stream) : stream_(stream) { ::_lock_file(stream_); }
StreamLock::~StreamLock() { ::_unlock_file(stream_); }

// The runtime's lock is recursive, so the locked getc below only re-enters
// the lock the caller holds.
int ReadByteUnlocked(std::FILE* stream) { return std::getc(stream); }

int ReadBytesUntil(std::FILE* stream, char* out, int capacity, int stop1, int stop2, int* stop, bool pairs) {
  StreamLock lock(stream);
  int stored = 0;
  *stop = EOF;
  while (stored < capacity) {
    const int c = std::getc(stream);
    if (c == EOF) break;
    if (c == stop1 || c == stop2) {
      *stop = c;
      if (pairs) {
        const int partner = c == stop1 ? stop2 : stop1;
        const int next = std::getc(stream);
        if (next != partner && next != EOF) std::ungetc(next, stream);
      }
      break;
    }
    out[stored++] = static_cast<char>(c);
  }
  return stored;
}

int ReadUnitsUntil(std::FILE* stream, char16_t* out, int capacity, char16_t stop) {
  StreamLock lock(stream);
  int stored = 0;
  while (stored < capacity) {
    const int low = std::getc(stream);
    if (low == EOF) break;
    const int high = std::getc(stream);
    if (high == EOF) break;
    const char16_t unit = static_cast<char16_t>(low | (high << 8));
    out[stored++] = unit;
    if (unit == stop) break;
  }
  return stored;
}

}  // namespace qorc::platform
