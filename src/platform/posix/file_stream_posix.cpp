// C runtime streams on POSIX: files are opened by their UTF-8 names, with
// 64-bit offsets; a full device is ENOSPC.
#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "platform/file_stream.h"
#include "platform/posix/native_path.h"
#include "platform/text.h"

namespace qorc::platform {

namespace {

bool OpensForWriting(const char* mode) { return std::strpbrk(mode, "wa+") != nullptr; }

// A file without write permission is read-only for every user: root too is
// refused, before the open would truncate it.
bool IsReadOnlyFile(const std::string& name) {
  struct stat status;
  return ::stat(name.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         (status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

std::FILE* OpenStream(const char16_t* path, const char* mode) {
  try {
    const std::string name = posix::NativePath(path);
    if (name.empty()) {
      errno = ENOENT;
      return nullptr;
    }
    if (OpensForWriting(mode) && IsReadOnlyFile(name)) {
      errno = EACCES;
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

namespace {

// The bytes the stream has buffered and not yet handed out. glibc keeps them
// between two public pointers of its FILE; getc_unlocked does no more than
// take the byte at the first and advance it. Elsewhere nothing is seen as
// buffered and every byte comes through getc_unlocked.
struct Window {
  const unsigned char* begin = nullptr;
  std::size_t size = 0;
};

Window Buffered(std::FILE* stream) {
  Window window;
#if defined(__GLIBC__)
  if (stream->_IO_read_ptr != nullptr && stream->_IO_read_ptr < stream->_IO_read_end) {
    window.begin = reinterpret_cast<const unsigned char*>(stream->_IO_read_ptr);
    window.size = static_cast<std::size_t>(stream->_IO_read_end - stream->_IO_read_ptr);
  }
#else
  (void)stream;
#endif
  return window;
}

void Consume(std::FILE* stream, std::size_t count) {
#if defined(__GLIBC__)
  stream->_IO_read_ptr += count;
#else
  (void)stream;
  (void)count;
#endif
}

// The first of the bytes a and b among count bytes, or null. Searched in
// short steps, so that finding the end of a short line costs that line and
// not the whole buffered window.
const unsigned char* FindEither(const unsigned char* bytes, std::size_t count, int a, int b) {
  constexpr std::size_t kStep = 256;
  for (std::size_t at = 0; at < count; at += kStep) {
    const std::size_t step = count - at < kStep ? count - at : kStep;
    const auto* first = static_cast<const unsigned char*>(std::memchr(bytes + at, a, step));
    const std::size_t limit = first == nullptr ? step : static_cast<std::size_t>(first - (bytes + at));
    const auto* second = static_cast<const unsigned char*>(std::memchr(bytes + at, b, limit));
    if (second != nullptr) return second;
    if (first != nullptr) return first;
  }
  return nullptr;
}

// The first unit equal to `unit` among `units` native 16-bit units, or
// null: the unit's first byte in memory is looked for with memchr and the
// hits that are not a whole unit are passed over.
const unsigned char* FindUnit(const unsigned char* bytes, std::size_t units, char16_t unit) {
  unsigned char pattern[2];
  std::memcpy(pattern, &unit, sizeof pattern);
  const std::size_t length = 2 * units;
  std::size_t at = 0;
  while (at < length) {
    const auto* hit = static_cast<const unsigned char*>(std::memchr(bytes + at, pattern[0], length - at));
    if (hit == nullptr) return nullptr;
    const std::size_t offset = static_cast<std::size_t>(hit - bytes);
    if ((offset & 1) == 0 && hit[1] == pattern[1]) return hit;
    at = offset + 1;
  }
  return nullptr;
}

// After the stop byte `stop`, takes the other stop byte when it comes next.
void TakePartner(std::FILE* stream, int stop, int stop1, int stop2) {
  const int partner = stop == stop1 ? stop2 : stop1;
  const Window window = Buffered(stream);
  if (window.size > 0) {
    if (window.begin[0] == partner) Consume(stream, 1);
    return;
  }
  const int next = ::getc_unlocked(stream);
  if (next != partner && next != EOF) ::ungetc(next, stream);
}

}  // namespace

int ReadBytesUntil(std::FILE* stream, char* out, int capacity, int stop1, int stop2, int* stop, bool pairs) {
  StreamLock lock(stream);
  int stored = 0;
  *stop = EOF;
  while (stored < capacity) {
    const Window window = Buffered(stream);
    if (window.size > 0) {
      const std::size_t room = static_cast<std::size_t>(capacity - stored);
      const std::size_t count = window.size < room ? window.size : room;
      const unsigned char* first = FindEither(window.begin, count, stop1, stop2);
      if (first != nullptr) {
        const std::size_t i = static_cast<std::size_t>(first - window.begin);
        const int c = window.begin[i];
        std::memcpy(out + stored, window.begin, i);
        Consume(stream, i + 1);
        *stop = c;
        if (pairs) TakePartner(stream, c, stop1, stop2);
        return stored + static_cast<int>(i);
      }
      std::memcpy(out + stored, window.begin, count);
      Consume(stream, count);
      stored += static_cast<int>(count);
      continue;
    }
    const int c = ::getc_unlocked(stream);
    if (c == EOF) break;
    if (c == stop1 || c == stop2) {
      *stop = c;
      if (pairs) TakePartner(stream, c, stop1, stop2);
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
    const Window window = Buffered(stream);
    if (window.size >= 2) {
      const std::size_t room = static_cast<std::size_t>(capacity - stored);
      const std::size_t units = window.size / 2 < room ? window.size / 2 : room;
      const unsigned char* found = FindUnit(window.begin, units, stop);
      const bool stopped = found != nullptr;
      const std::size_t taken = stopped ? static_cast<std::size_t>(found - window.begin) / 2 + 1 : units;
      std::memcpy(out + stored, window.begin, 2 * taken);
      Consume(stream, 2 * taken);
      stored += static_cast<int>(taken);
      if (stopped) break;
      continue;
    }
    // A unit across the end of the buffer, or no buffer to look into.
    const int low = ::getc_unlocked(stream);
    if (low == EOF) break;
    const int high = ::getc_unlocked(stream);
    if (high == EOF) break;
    const unsigned char bytes[2] = {static_cast<unsigned char>(low), static_cast<unsigned char>(high)};
    char16_t unit;
    std::memcpy(&unit, bytes, sizeof unit);
    out[stored++] = unit;
    if (unit == stop) break;
  }
  return stored;
}

}  // namespace qorc::platform
