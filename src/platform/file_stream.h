// The seam's C runtime stream services: opening by a library path, 64-bit
// positions and lengths, the cause of a failed write, and byte and unit
// reading without a lock per character for the line and token readers.
#ifndef QORC_PLATFORM_FILE_STREAM_H
#define QORC_PLATFORM_FILE_STREAM_H

#include <cstdio>

namespace qorc::platform {

// Opens a stream on a path in library form with a C runtime mode string
// ("rb", "r", "r+", "rb+", "w+", "wb+", "wb"). Binary and text modes are the
// same stream here: text conventions are the library's own. A read-only file
// (no write permission) is not opened for writing, whoever asks. Null on
// failure.
std::FILE* OpenStream(const char16_t* path, const char* mode);
// The same with a path in the given code page (the narrow file-name form).
std::FILE* OpenStreamNarrow(const char* path, int codePage, const char* mode);

// Length of the stream's file in bytes; -1 when it cannot be told.
long long StreamLength(std::FILE* stream);
long long StreamTell(std::FILE* stream);
// whence is SEEK_SET, SEEK_CUR or SEEK_END; false on failure.
bool StreamSeek(std::FILE* stream, long long offset, int whence);

// Whether the last failed stream call ran out of space on its device.
bool LastFailureWasNoSpace();

// Holds the stream's lock across a run of the unlocked calls below.
class StreamLock {
 public:
  explicit StreamLock(std::FILE* stream);
  ~StreamLock();
  StreamLock(const StreamLock&) = delete;
  StreamLock& operator=(const StreamLock&) = delete;

 private:
  std::FILE* stream_;
};

// One byte (0 to 255), or EOF. The caller holds the StreamLock.
int ReadByteUnlocked(std::FILE* stream);
// Reads bytes into out until one equal to stop1 or stop2 has been read, the
// end of the file, or `capacity` bytes stored. The stop byte is not stored;
// *stop receives it, or EOF when none was met. With `pairs`, the other stop
// byte right after it is taken too (CR LF and LF CR count as one stop).
// Returns the bytes stored.
int ReadBytesUntil(std::FILE* stream, char* out, int capacity, int stop1, int stop2, int* stop, bool pairs = false);
// Reads native 16-bit units into out until the unit `stop` has been read and
// stored, the end of the file, or `capacity` units stored. A last odd byte
// is dropped. Returns the units stored.
int ReadUnitsUntil(std::FILE* stream, char16_t* out, int capacity, char16_t stop);

}  // namespace qorc::platform

#endif
