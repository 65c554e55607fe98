// C runtime streams on POSIX: files are opened by their UTF-8 names, with
// 64-bit offsets; a full device is ENOSPC.
#include "platform/file_stream.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "platform/posix/native_path.h"
#include "platform/text.h"

namespace qorc::platform {

std::FILE* OpenStream(const char16_t* path, const char* mode) {
  try {
    const std::string name = posix::NativePath(path);
    if (name.empty()) {
      errno = ENOENT;
      return nullptr;
    }
    return ::fopen64(name.c_str(), mode);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

std::FILE* OpenStreamNarrow(const char* path, int codePage, const char* mode) {
  try {
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
  struct stat64 status;
  if (::fstat64(::fileno(stream), &status) != 0) return -1;
  // What is still buffered counts as written.
  const long long position = StreamTell(stream);
  return position > status.st_size ? position : static_cast<long long>(status.st_size);
}

long long StreamTell(std::FILE* stream) { return static_cast<long long>(::ftello64(stream)); }

bool StreamSeek(std::FILE* stream, long long offset, int whence) {
  return ::fseeko64(stream, static_cast<off64_t>(offset), whence) == 0;
}

bool LastFailureWasNoSpace() { return errno == ENOSPC; }

StreamLock::StreamLock(std::FILE* stream) : stream_(stream) { ::flockfile(stream_); }
StreamLock::~StreamLock() { ::funlockfile(stream_); }

int ReadByteUnlocked(std::FILE* stream) { return ::getc_unlocked(stream); }

int ReadBytesUntil(std::FILE* stream, char* out, int capacity, int stop1, int stop2, int* stop) {
  StreamLock lock(stream);
  int stored = 0;
  *stop = EOF;
  while (stored < capacity) {
    const int c = ::getc_unlocked(stream);
    if (c == EOF) break;
    if (c == stop1 || c == stop2) {
      *stop = c;
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
    const int low = ::getc_unlocked(stream);
    if (low == EOF) break;
    const int high = ::getc_unlocked(stream);
    if (high == EOF) break;
    unsigned char bytes[2] = {static_cast<unsigned char>(low), static_cast<unsigned char>(high)};
    char16_t unit;
    std::memcpy(&unit, bytes, sizeof unit);
    out[stored++] = unit;
    if (unit == stop) break;
  }
  return stored;
}

}  // namespace qorc::platform
