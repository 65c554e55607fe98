// The file object: opening in its modes and types, Unicode detection by the
// byte-order mark, closing, position, size and line count.
#include <qorc/file.h>

#include <cstring>

#include "file/block_compressor.h"
#include "file/file_internal.h"
#include "file/storage_stream.h"
#include "foundation/library.h"
#include "platform/file_stream.h"

using qorc::file::ReadUnit;

namespace {

C_FILE::TYPE KnownType(C_FILE::TYPE type) {
  switch (type) {
    case C_FILE::AUTO:
    case C_FILE::TEXT:
    case C_FILE::UNICODE:
    case C_FILE::BINARY:
    case C_FILE::COMPRESSED:
      return type;
  }
  return C_FILE::BINARY;
}

}  // namespace

// Construction and destruction -----------------------------------------------

C_FILE::C_FILE() : mode_(WRITE), type_(BINARY) {
  stream_ = CreateTempFile();
  if (stream_ == nullptr) CerrFileCannotCreateTemporary.Trigger();
}

C_FILE::C_FILE(const C_STRING& path, int mode, TYPE type) : path_(path), pathExp_(path) {
  coding_ = true;
  if ((mode & DIRECT) != 0) {
    direct_ = true;
    mode &= ~DIRECT;
  }
  // Every mode but READ and WRITE is an update.
  mode_ = mode == READ ? READ : (mode == WRITE ? WRITE : UPDATE);
  type_ = KnownType(type);
  ExpandPath(&pathExp_);
  if (C_ERROR::Is()) return;
  if (pathExp_.IsVoid()) {
    CerrFileCannotOpen.TriggerMild(&pathExp_);
    return;
  }
  if (type_ == COMPRESSED) {
    type_ = BINARY;
    compressed_ = true;
    if (mode_ == WRITE) compressThreads_ = CfileCompressThreads;
  }
  if (mode_ == READ) {
    OpenForReading();
  } else {
    OpenForWriting();
  }
}

C_FILE::C_FILE(const C_FILE& other)
    : path_(other.path_),
      pathExp_(other.pathExp_),
      mode_(other.mode_),
      type_(other.type_),
      coding_(other.coding_),
      swapped_(other.swapped_),
      compressed_(other.compressed_),
      direct_(other.direct_) {}

C_FILE& C_FILE::operator=(const C_FILE& other) {
  if (this == &other) return *this;
  Close();
  path_ = other.path_;
  pathExp_ = other.pathExp_;
  mode_ = other.mode_;
  type_ = other.type_;
  coding_ = other.coding_;
  swapped_ = other.swapped_;
  compressed_ = other.compressed_;
  direct_ = other.direct_;
  return *this;
}

C_FILE::~C_FILE() { Close(); }

std::FILE* C_FILE::OpenPath(const char* how) const {
  if (CcharUnicode) return qorc::platform::OpenStream(pathExp_.GetWCHAR(), how);
  return qorc::platform::OpenStreamNarrow(pathExp_.GetMBCS(), qorc::LibraryCodePage(), how);
}

void C_FILE::OpenForReading() {
  if (type_ != BINARY) {
    stream_ = OpenPath("rb");
    if (stream_ == nullptr) {
      CerrFileCannotOpen.TriggerMild(&pathExp_);
      return;
    }
    char16_t mark = 0;
    const bool marked = ReadUnit(stream_, &mark) && (C_CHAR(mark) == C_CHAR::BOM || C_CHAR(mark) == C_CHAR::BOMINV);
    if (!marked) {
      if (type_ == UNICODE) {
        // The stream stays open: the caller sees the error and may still read.
        CerrFileIsNotUnicode.TriggerMild(&pathExp_);
        return;
      }
      type_ = TEXT;
      std::fclose(stream_);
      stream_ = OpenPath("r");
      if (stream_ == nullptr) CerrFileCannotOpen.TriggerMild(&pathExp_);
      return;
    }
    if (type_ == TEXT) {
      CerrFileIsUnicode.TriggerMild(&pathExp_);
      return;
    }
    type_ = UNICODE;
    if (C_CHAR(mark) == C_CHAR::BOMINV) swapped_ = true;
    return;
  }
  stream_ = OpenPath("rb");
  if (stream_ == nullptr) {
    CerrFileCannotOpen.TriggerMild(&pathExp_);
    return;
  }
  if (!compressed_) return;
  char magic[16];
  if (std::fread(magic, 1, sizeof magic, stream_) != sizeof magic ||
      std::memcmp(magic, COMPRESS_MAGIC, sizeof magic) != 0) {
    // Without the magic the file is read as it stands, without error.
    compressed_ = false;
    std::rewind(stream_);
    return;
  }
  block_ = qorc::NewArray<unsigned char>(COMPRESS_BUFFER_SIZE);
  if (block_ == nullptr) {
    CloseStream();
    return;
  }
  std::memset(block_, 0, COMPRESS_BUFFER_SIZE);
  if (direct_) {
    currentBlock_ = -1;
    return;
  }
  DecompressToTemp();
}

void C_FILE::OpenForWriting() {
  if (type_ == AUTO) type_ = TEXT;
  if (mode_ == UPDATE) {
    stream_ = OpenPath(type_ == TEXT ? "r+" : "rb+");
    if (stream_ == nullptr) {
      CerrFileCannotOpen.TriggerMild(&pathExp_);
      return;
    }
  } else if (!compressed_ || direct_) {
    stream_ = OpenPath(type_ == TEXT ? "w+" : "wb+");
    if (stream_ == nullptr) {
      CerrFileCannotCreate.TriggerMild(&pathExp_);
      return;
    }
    // A compressed file written in place gets its magic and its block
    // buffer at once, so that it is a valid compressed file from the start
    // and every write has a buffer to go to.
    if (compressed_) {
      block_ = qorc::NewArray<unsigned char>(COMPRESS_BUFFER_SIZE);
      if (block_ == nullptr) {
        CloseStream();
        return;
      }
      std::memset(block_, 0, COMPRESS_BUFFER_SIZE);
      if (std::fwrite(COMPRESS_MAGIC, 1, 16, stream_) != 16) {
        ReportWriteFailure();
        return;
      }
    }
  } else {
    // Written to a temporary file, compressed into the target at close.
    stream_ = CreateTempFile();
    if (stream_ == nullptr) return;
    viaTemp_ = true;
  }
  if (type_ == UNICODE) {
    // Also in UPDATE, where it replaces the first unit of the file: an
    // updated Unicode file always begins with a mark.
    const char16_t mark = C_CHAR::BOM;
    if (std::fwrite(&mark, sizeof mark, 1, stream_) != 1) ReportWriteFailure();
  }
}

void C_FILE::CloseStream() {
  if (stream_ != nullptr) std::fclose(stream_);
  stream_ = nullptr;
}

void C_FILE::Close() {
  if (storageStream_ != nullptr) {
    CloseStorageStream();
    return;
  }
  if (stream_ != nullptr && compressed_ && mode_ == WRITE) {
    if (IsDirectCompressed()) {
      EndCompressBlock();
    } else if (viaTemp_) {
      CompressFromTemp();
    }
  }
  // No worker outlives the file.
  StopCompressWorkers();
  if (stream_ != nullptr) {
    // Buffered data reaches the disk here: a full disk shows now. The last
    // flush is checked on its own, since a runtime may not tell it through
    // the close (Wine's returns success all the same).
    const bool flushed = mode_ == READ || std::fflush(stream_) == 0;
    const bool failed = std::fclose(stream_) != 0 || !flushed;
    stream_ = nullptr;
    if (failed && mode_ != READ) ReportWriteFailure();
  }
  delete[] block_;
  block_ = nullptr;
  delete[] blockOffsets_;
  blockOffsets_ = nullptr;
  delete[] blockStarts_;
  blockStarts_ = nullptr;
  delete[] flushPoints_;
  flushPoints_ = nullptr;
  blockCount_ = -1;
  flushCount_ = 0;
  flushCapacity_ = 0;
  cursor_ = 0;
  fill_ = 0;
  viaTemp_ = false;
}

// Failures ---------------------------------------------------------------------

void C_FILE::ReportWriteFailure() const {
  if (qorc::platform::LastFailureWasNoSpace()) {
    CerrFileNotEnoughSpace.TriggerMild(&pathExp_);
  } else {
    CerrFileCannotWrite.TriggerMild(&pathExp_);
  }
}

void C_FILE::ReportReadFailure() const {
  if (stream_ != nullptr && std::ferror(stream_)) {
    CerrFileCannotRead.TriggerMild(&pathExp_);
  } else {
    CerrFileEndReached.TriggerMild(&pathExp_);
  }
}

bool C_FILE::RefusedOnStorage() const {
  if (storageStream_ == nullptr) return false;
  CerrNotAnOleStreamFunction.TriggerDbg();
  return true;
}

// Switches -----------------------------------------------------------------------

// Turning the switch off is not offered: a file once known to be compressed
// stays so for its callers.
void C_FILE::SetCompressed(C_BOOL on) {
  if (!on) return;
  type_ = BINARY;
  compressed_ = true;
}

// Position and size ------------------------------------------------------------

long long C_FILE::GetSize() {
  if (RefusedOnStorage()) return 0;
  if (stream_ == nullptr) return 0;
  // Blocks still with the workers count as written, as they would be without them.
  if (compressor_ != nullptr) WriteCompressedBlocks(true);
  const long long length = qorc::platform::StreamLength(stream_);
  return length < 0 ? 0 : length;
}

long long C_FILE::GetPosit() {
  if (storageStream_ != nullptr) return storageStream_->Position();
  if (stream_ == nullptr) return 0;
  if (RefusesStreamPositions()) {
    if (mode_ != READ) {
      CerrFileCannotSeek.TriggerMild(&pathExp_);
      return 0;
    }
    if (currentBlock_ < 0) return 0;
    UpdateCompressBlockTable();
    if (C_ERROR::Is() || currentBlock_ >= blockCount_) return 0;
    return blockStarts_[currentBlock_] + cursor_;
  }
  const long long position = qorc::platform::StreamTell(stream_);
  return position < 0 ? 0 : position;
}

void C_FILE::SetPosit(long long position) {
  if (storageStream_ != nullptr) return storageStream_->Seek(position);
  if (stream_ == nullptr) return;
  if (RefusesStreamPositions()) {
    PositionDirect(position);
    return;
  }
  if (!qorc::platform::StreamSeek(stream_, position, SEEK_SET)) CerrFileCannotSeek.TriggerMild(&pathExp_);
}

void C_FILE::Rewind() {
  if (storageStream_ != nullptr) return storageStream_->Seek(0);
  if (stream_ == nullptr) return;
  if (RefusesStreamPositions()) {
    if (mode_ != READ) {
      CerrFileCannotSeek.TriggerMild(&pathExp_);
      return;
    }
    // The first block still in the buffer only needs the cursor back. A read
    // that met the end has emptied the buffer, though: then the block is read
    // again, so that nothing is lost.
    if (currentBlock_ == 0 && fill_ != 0) {
      cursor_ = 0;
      return;
    }
    qorc::platform::StreamSeek(stream_, 16, SEEK_SET);
    currentBlock_ = -1;
    fill_ = 0;
    cursor_ = 0;
    return;
  }
  std::rewind(stream_);
}

void C_FILE::Unwind() {
  if (storageStream_ != nullptr) {
    // The end is then asked of GetSize, as for every file, and GetSize
    // refuses storage files: callers have always seen that refusal after an
    // Unwind on a storage file, so it stays.
    storageStream_->SeekEnd();
    GetSize();
    return;
  }
  if (stream_ == nullptr) return;
  if (RefusesStreamPositions()) {
    CerrFileCannotSeek.TriggerMild(&pathExp_);
    return;
  }
  qorc::platform::StreamSeek(stream_, GetSize(), SEEK_SET);
}

// Counted from the start each time: no line counter is kept while reading.
// Line feeds are counted in the file's own form: bytes on TEXT files, UTF-16
// units (in the file's byte order) on the others.
int C_FILE::GetLine() {
  if (RefusedOnStorage()) return 0;
  if (stream_ == nullptr) return 0;
  if (RefusesStreamPositions()) {
    CerrFileCannotSeek.TriggerMild(&pathExp_);
    return 0;
  }
  const long long position = qorc::platform::StreamTell(stream_);
  if (position <= 0) return 0;
  std::rewind(stream_);
  const bool units = type_ != TEXT;
  const char16_t lineFeed = swapped_ ? 0x0A00 : 0x000A;
  unsigned char chunk[8192];
  long long done = 0;
  int count = 0;
  while (done < position) {
    long long want = position - done;
    if (units && (want & 1) != 0) ++want;  // the unit under the position is read whole
    if (want > static_cast<long long>(sizeof chunk)) want = sizeof chunk;
    const std::size_t got = std::fread(chunk, 1, static_cast<std::size_t>(want), stream_);
    if (got == 0) break;
    if (units) {
      for (std::size_t i = 0; i + 1 < got; i += 2) {
        char16_t unit;
        std::memcpy(&unit, chunk + i, sizeof unit);
        if (unit == lineFeed) ++count;
      }
    } else {
      for (std::size_t i = 0; i < got; ++i) count += chunk[i] == '\n' ? 1 : 0;
    }
    done += static_cast<long long>(got);
  }
  qorc::platform::StreamSeek(stream_, position, SEEK_SET);
  return count;
}

void C_FILE::Flush() {
  if (RefusedOnStorage()) return;
  if (stream_ == nullptr) return;
  if (IsDirectCompressed()) {
    // The buffered bytes end a block early, after the blocks in flight.
    if (mode_ == WRITE) EndCompressBlock();
    if (C_ERROR::Is()) return;
  } else if (viaTemp_) {
    // The position ends a block when the file is compressed at close.
    const long long position = qorc::platform::StreamTell(stream_);
    if (position < 0) {
      CerrFileCannotRead.TriggerMild(&pathExp_);
      return;
    }
    if (flushCount_ == flushCapacity_) {
      const int capacity = flushCapacity_ == 0 ? 10 : 2 * flushCapacity_;
      long long* points = qorc::NewArray<long long>(static_cast<std::size_t>(capacity));
      if (points == nullptr) return;
      for (int i = 0; i < flushCount_; ++i) points[i] = flushPoints_[i];
      delete[] flushPoints_;
      flushPoints_ = points;
      flushCapacity_ = capacity;
    }
    flushPoints_[flushCount_++] = position;
  }
  if (std::fflush(stream_) != 0) ReportWriteFailure();
}

void C_FILE::FlushFile(std::FILE* stream) {
  if (stream != nullptr) std::fflush(stream);
}
