// The block-compressed format: the magic "QORCOMPRESS_V1.0", then records of
// two little-endian 32-bit lengths (uncompressed U, compressed C) followed by
// one zlib stream of C bytes holding U bytes (1 to 131072). There is no
// count, index or trailer: the end of the file ends the list of blocks.
//
// Two routes use it. Through a temporary file (the default), the whole file
// is decompressed into a temporary file when opened for reading, and a
// temporary file is compressed into the target when a file written closes.
// In place (DIRECT), reads and writes go through one block buffer; reading
// can position itself by a table of the blocks built on demand; writing
// appends. A file opened in place for writing gets its magic and its block
// buffer when it is opened, so it is a valid (empty) compressed file at once.
//
// While CfileCompressThreads is above 1, the blocks of a file being written
// (in place, or from its temporary file at close) are compressed by worker
// threads and written in the order they were made, and a flush waits for the
// blocks in flight: the file is byte for byte the one written without them.
#include <qorc/file.h>

#include <cstring>

#include "file/block_compressor.h"
#include "file/block_deflate.h"
#include "file/block_inflate.h"
#include "file/file_internal.h"
#include "foundation/library.h"
#include "platform/file_stream.h"

using qorc::file::LoadLE32;
using qorc::file::StoreLE32;

const char C_FILE::COMPRESS_MAGIC[17] = "QORCOMPRESS_V1.0";

namespace {

constexpr int kTableStart = 10;

// A scratch buffer for one compressed block: the caller's, or one owned for
// the duration of the call.
class Scratch {
 public:
  explicit Scratch(void* given) : area_(static_cast<unsigned char*>(given)) {}
  ~Scratch() { delete[] owned_; }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  // Null with CerrMemoryFull pending when none can be had.
  unsigned char* Get() {
    if (area_ == nullptr) area_ = owned_ = qorc::NewArray<unsigned char>(C_FILE::COMPRESS_SCRATCH_SIZE);
    return area_;
  }

 private:
  unsigned char* area_;
  unsigned char* owned_ = nullptr;
};

}  // namespace

// Blocks ---------------------------------------------------------------------------

void C_FILE::ReadCompressBlock(void* scratch) {
  bool atBoundary = false;
  ReadBlockRecord(scratch, &atBoundary);
}

bool C_FILE::ReadBlockRecord(void* scratch, bool* atBoundary) {
  *atBoundary = false;
  cursor_ = 0;
  Scratch work(scratch);
  unsigned char* area = work.Get();
  bool done = false;
  unsigned char header[8];
  const std::size_t lengthBytes = area == nullptr ? 0 : std::fread(header, 1, 4, stream_);
  if (area == nullptr) {
    // No memory: the error is pending.
  } else if (lengthBytes != 4 || std::fread(header + 4, 1, 4, stream_) != 4) {
    *atBoundary = lengthBytes == 0 && !std::ferror(stream_);
    ReportShortRecord();
  } else {
    const unsigned int stored = LoadLE32(header);
    const unsigned int packed = LoadLE32(header + 4);
    if (packed > static_cast<unsigned int>(COMPRESS_SCRATCH_SIZE) ||
        stored > static_cast<unsigned int>(COMPRESS_BLOCK_SIZE)) {
      // No writer of this format makes such a record, and taking its lengths
      // at their word would read past the scratch buffer or leave a fill
      // beyond the block buffer: the block is refused.
      CerrFileCannotDecompress.TriggerMild();
    } else if (std::fread(area, 1, packed, stream_) != packed) {
      ReportShortRecord();
    } else if (qorc::file::InflateBlock(area, packed, stored, block_, &fill_)) {
      ++currentBlock_;
      done = true;
    } else {
      CerrFileCannotDecompress.TriggerMild();
    }
  }
  if (!done) {
    fill_ = 0;
    cursor_ = 0;
  }
  return done;
}

void C_FILE::ReportShortRecord() const {
  if (std::ferror(stream_)) {
    CerrFileCannotRead.TriggerMild();
  } else {
    CerrFileEndReached.TriggerMild();
  }
}

void C_FILE::WriteCompressBlock(void* scratch) {
  // An empty block is never written.
  if (cursor_ == 0) return;
  if (StartCompressWorkers()) {
    HandBlockToWorkers();
  } else {
    CompressAndWriteBlock(scratch);
  }
}

bool C_FILE::CompressAndWriteBlock(void* scratch) {
  if (cursor_ == 0) return true;
  Scratch work(scratch);
  unsigned char* area = work.Get();
  if (area == nullptr) return false;
  unsigned int packed = 0;
  if (!qorc::file::ThreadDeflater().Compress(block_, cursor_, area, COMPRESS_SCRATCH_SIZE, &packed)) {
    CerrFileCannotCompress.TriggerMild();
    return false;
  }
  if (!WriteBlockRecord(cursor_, area, packed)) return false;
  cursor_ = 0;
  ++currentBlock_;
  return true;
}

bool C_FILE::WriteBlockRecord(unsigned int stored, const unsigned char* packed, unsigned int packedSize) {
  unsigned char header[8];
  StoreLE32(stored, header);
  StoreLE32(packedSize, header + 4);
  if (std::fwrite(header, 1, sizeof header, stream_) != sizeof header ||
      std::fwrite(packed, 1, packedSize, stream_) != packedSize) {
    ReportWriteFailure();
    return false;
  }
  return true;
}

// Blocks compressed by workers ------------------------------------------------------

// Workers start with the first block handed to them. When none can be
// started the file goes on without them, compressing each block at once.
bool C_FILE::StartCompressWorkers() {
  if (compressor_ != nullptr) return true;
  if (compressThreads_ <= 1) return false;
  compressor_ = qorc::file::BlockCompressor::Start(compressThreads_).release();
  if (compressor_ == nullptr) compressThreads_ = 1;
  return compressor_ != nullptr;
}

// The blocks already compressed are written first. A block that cannot be
// written keeps its place at the head and the buffered bytes stay where they
// are, as when a block written at once fails: nothing is written after a
// failed block, and nothing accepted is dropped.
bool C_FILE::HandBlockToWorkers() {
  if (!WriteCompressedBlocks(false)) return false;
  qorc::file::CompressJob* job = compressor_->NextFree();
  if (job == nullptr) {
    // Every job is in flight: the oldest is waited for and written.
    qorc::file::CompressJob* oldest = compressor_->Oldest(true);
    if (!WriteCompressedJob(oldest)) return false;
    compressor_->Release();
    job = compressor_->NextFree();
  }
  std::memcpy(job->data.get(), block_, cursor_);
  job->size = cursor_;
  compressor_->Submit();
  cursor_ = 0;
  ++currentBlock_;
  return true;
}

// Writes the blocks in flight whose compression is done, in order; with
// `wait`, every block in flight. False at the first block that fails, with
// its error pending.
bool C_FILE::WriteCompressedBlocks(bool wait) {
  while (qorc::file::CompressJob* job = compressor_->Oldest(wait)) {
    if (!WriteCompressedJob(job)) return false;
    compressor_->Release();
  }
  return true;
}

bool C_FILE::WriteCompressedJob(qorc::file::CompressJob* job) {
  if (!job->compressed) {
    // Compressed again here, as a block compressed at once is tried again
    // by the next call that writes it.
    qorc::file::BlockCompressor::Compress(job, &qorc::file::ThreadDeflater());
    if (!job->compressed) {
      CerrFileCannotCompress.TriggerMild();
      return false;
    }
  }
  return WriteBlockRecord(job->size, job->packed.get(), job->packedSize);
}

// Ends a block at the bytes buffered and writes every block in flight, so a
// flush lands where it lands without workers. With nothing in flight the
// block is compressed at once: flushing alone never starts a worker.
void C_FILE::EndCompressBlock() {
  if (compressor_ == nullptr || compressor_->InFlight() == 0) {
    CompressAndWriteBlock(nullptr);
    return;
  }
  if (cursor_ != 0 && !HandBlockToWorkers()) return;
  WriteCompressedBlocks(true);
}

// Joins the workers; blocks still in flight (after a failure) are dropped.
void C_FILE::StopCompressWorkers() {
  delete compressor_;
  compressor_ = nullptr;
}

// Reading and writing in place ---------------------------------------------------

void C_FILE::ReadCompress(int count, void* data, int* got) {
  if (got != nullptr) *got = 0;
  if (count <= 0) return;
  unsigned char* out = static_cast<unsigned char*>(data);
  const unsigned int wanted = static_cast<unsigned int>(count);
  const unsigned int left = fill_ > cursor_ ? fill_ - cursor_ : 0;
  if (wanted <= left) {
    std::memcpy(out, block_ + cursor_, wanted);
    cursor_ += wanted;
    if (got != nullptr) *got = count;
    return;
  }
  std::memcpy(out, block_ + cursor_, left);
  cursor_ += left;
  unsigned int delivered = left;
  Scratch scratch(nullptr);
  while (delivered < wanted) {
    unsigned char* area = scratch.Get();
    if (area == nullptr) break;
    bool atBoundary = false;
    if (!ReadBlockRecord(area, &atBoundary)) break;
    const unsigned int rest = wanted - delivered;
    if (rest <= fill_) {
      std::memcpy(out + delivered, block_, rest);
      cursor_ = rest;
      delivered += rest;
      break;
    }
    std::memcpy(out + delivered, block_, fill_);
    cursor_ = fill_;
    delivered += fill_;
  }
  if (got != nullptr) *got = static_cast<int>(delivered);
}

// A write that crosses the end of the block buffer fills the buffer up but
// leaves the cursor where it was, so the block written first holds only the
// bytes buffered before the call and the bytes that filled it are
// overwritten by the next ones. Files in this format have always been
// written so; writes that do not cross a multiple of 131072 bytes are not
// affected. put counts every byte taken into the buffer.
void C_FILE::WriteCompress(int count, const void* data, int* put) {
  if (put != nullptr) *put = 0;
  if (count <= 0) return;
  const unsigned char* in = static_cast<const unsigned char*>(data);
  const unsigned int total = static_cast<unsigned int>(count);
  const unsigned int block = COMPRESS_BLOCK_SIZE;
  if (cursor_ + total <= block) {
    std::memcpy(block_ + cursor_, in, total);
    cursor_ += total;
    if (put != nullptr) *put = count;
    return;
  }
  unsigned int done = block - cursor_;
  std::memcpy(block_ + cursor_, in, done);
  Scratch scratch(nullptr);
  while (done < total) {
    unsigned char* area = scratch.Get();
    if (area == nullptr) break;
    WriteCompressBlock(area);
    if (C_ERROR::Is()) break;
    if (total - done <= block) {
      std::memcpy(block_, in + done, total - done);
      cursor_ = total - done;
      done = total;
      break;
    }
    std::memcpy(block_, in + done, block);
    done += block;
  }
  if (put != nullptr) *put = static_cast<int>(done);
}

// The block table ------------------------------------------------------------------

void C_FILE::UpdateCompressBlockTable() const {
  if (blockCount_ != -1) return;
  const long long remembered = qorc::platform::StreamTell(stream_);
  char magic[16];
  qorc::platform::StreamSeek(stream_, 0, SEEK_SET);
  if (std::fread(magic, 1, sizeof magic, stream_) != sizeof magic ||
      std::memcmp(magic, COMPRESS_MAGIC, sizeof magic) != 0) {
    // No table without the magic; callers take the count -1 as no blocks.
    std::clearerr(stream_);
    qorc::platform::StreamSeek(stream_, remembered, SEEK_SET);
    return;
  }
  long long offset = 16;
  long long start = 0;
  int count = -1;
  int capacity = 0;
  long long* offsets = nullptr;
  long long* starts = nullptr;
  bool complete = false;
  for (;;) {
    ++count;
    if (count >= capacity) {
      const int grown = capacity == 0 ? kTableStart : 2 * capacity;
      long long* moreOffsets = qorc::NewArray<long long>(static_cast<std::size_t>(grown));
      long long* moreStarts =
          moreOffsets == nullptr ? nullptr : qorc::NewArray<long long>(static_cast<std::size_t>(grown));
      if (moreStarts == nullptr) {
        delete[] moreOffsets;
        break;
      }
      for (int i = 0; i < count; ++i) {
        moreOffsets[i] = offsets[i];
        moreStarts[i] = starts[i];
      }
      delete[] offsets;
      delete[] starts;
      offsets = moreOffsets;
      starts = moreStarts;
      capacity = grown;
    }
    offsets[count] = offset;
    starts[count] = start;
    unsigned char field[4];
    if (std::fread(field, 1, 4, stream_) != 4) {
      // The end of the file where a record would begin ends the table.
      if (std::ferror(stream_)) {
        CerrFileCannotRead.TriggerMild(&pathExp_);
      } else {
        complete = true;
      }
      break;
    }
    const unsigned int stored = LoadLE32(field);
    if (std::fread(field, 1, 4, stream_) != 4) {
      if (std::ferror(stream_)) {
        CerrFileCannotRead.TriggerMild(&pathExp_);
      } else {
        CerrFileEndReached.TriggerMild(&pathExp_);
      }
      break;
    }
    const unsigned int packed = LoadLE32(field);
    // The data are skipped, not read: a record cut short shows when its
    // block is read.
    if (!qorc::platform::StreamSeek(stream_, packed, SEEK_CUR)) {
      CerrFileCannotRead.TriggerMild(&pathExp_);
      break;
    }
    offset += static_cast<long long>(packed) + 8;
    start += stored;
  }
  if (complete) {
    blockCount_ = count;
    blockOffsets_ = offsets;
    blockStarts_ = starts;
  } else {
    delete[] offsets;
    delete[] starts;
  }
  std::clearerr(stream_);
  qorc::platform::StreamSeek(stream_, remembered, SEEK_SET);
}

void C_FILE::SearchCompressBlockPosition(long long position, long long* block, long long* offset) {
  UpdateCompressBlockTable();
  int count = blockCount_;
  if (C_ERROR::Is()) {
    C_ERROR::ClearPending();
    count = 0;
  }
  if (count <= 0) {
    *block = -1;
    *offset = -1;
    return;
  }
  if (position >= blockStarts_[count]) {
    // Beyond the data: the end of the last block.
    *block = count - 1;
    *offset = blockStarts_[count] - blockStarts_[count - 1];
    return;
  }
  int lo = 0;
  int hi = count;
  while (hi - lo >= 2) {
    const int mid = (lo + hi) / 2;
    if (blockStarts_[mid] > position) {
      hi = mid;
    } else {
      lo = mid;
    }
  }
  *block = lo;
  *offset = position > blockStarts_[lo] ? position - blockStarts_[lo] : 0;
}

void C_FILE::PositionDirect(long long position) {
  if (mode_ != READ || position < 0) {
    CerrFileCannotSeek.TriggerMild(&pathExp_);
    return;
  }
  long long block = -1;
  long long offset = -1;
  SearchCompressBlockPosition(position, &block, &offset);
  // Inside the block in the buffer only the cursor moves. When a read that met
  // the end has emptied the buffer, the block is read again instead of the
  // position being refused.
  if (block == currentBlock_ && fill_ != 0) {
    cursor_ = offset < fill_ ? static_cast<unsigned int>(offset) : fill_;
    return;
  }
  if (block < 0 || block >= blockCount_ || !qorc::platform::StreamSeek(stream_, blockOffsets_[block], SEEK_SET)) {
    CerrFileCannotSeek.TriggerMild(&pathExp_);
    return;
  }
  currentBlock_ = block - 1;
  bool atBoundary = false;
  // A block that says it holds more than it gives keeps the cursor inside
  // what it gave.
  if (ReadBlockRecord(nullptr, &atBoundary)) cursor_ = offset < fill_ ? static_cast<unsigned int>(offset) : fill_;
}

// The temporary-file route ------------------------------------------------------------

void C_FILE::DecompressToTemp() {
  std::FILE* temp = CreateTempFile();
  if (temp == nullptr) {
    CloseStream();
    return;
  }
  unsigned char* scratch = qorc::NewArray<unsigned char>(COMPRESS_SCRATCH_SIZE);
  if (scratch != nullptr) {
    for (;;) {
      bool atBoundary = false;
      if (!ReadBlockRecord(scratch, &atBoundary)) {
        // The end of the file ends the blocks, also inside a record cut
        // short: the blocks before it are kept.
        if (CerrFileEndReached.IsPending()) C_ERROR::ClearPending();
        break;
      }
      if (std::fwrite(block_, 1, fill_, temp) != fill_) {
        if (qorc::platform::LastFailureWasNoSpace()) {
          CerrFileNotEnoughSpace.TriggerMild();
        } else {
          CerrFileCannotWrite.TriggerMild();
        }
        break;
      }
    }
  }
  delete[] scratch;
  std::fclose(stream_);
  std::rewind(temp);
  stream_ = temp;
  delete[] block_;
  block_ = nullptr;
  cursor_ = 0;
  fill_ = 0;
}

// Each flush point ends a block. Points that do not lie ahead of the data
// already taken (a flush repeated at one position, or made after moving
// back) end nothing.
void C_FILE::CompressFromTemp() {
  std::FILE* temp = stream_;
  std::rewind(temp);
  std::FILE* target = OpenPath("wb");
  if (target == nullptr) {
    CloseStream();
    CerrFileCannotCreate.TriggerMild(&pathExp_);
    return;
  }
  stream_ = target;
  if (std::fwrite(COMPRESS_MAGIC, 1, 16, stream_) != 16) {
    ReportWriteFailure();
  } else {
    if (block_ == nullptr) block_ = qorc::NewArray<unsigned char>(COMPRESS_BUFFER_SIZE);
    unsigned char* scratch = block_ == nullptr ? nullptr : qorc::NewArray<unsigned char>(COMPRESS_SCRATCH_SIZE);
    if (scratch != nullptr) {
      long long position = 0;
      int next = 0;
      for (;;) {
        while (next < flushCount_ && flushPoints_[next] <= position) ++next;
        long long take = COMPRESS_BLOCK_SIZE;
        if (next < flushCount_ && position + COMPRESS_BLOCK_SIZE >= flushPoints_[next]) {
          take = flushPoints_[next] - position;
          ++next;
        }
        const std::size_t got = std::fread(block_, 1, static_cast<std::size_t>(take), temp);
        if (got == 0) {
          if (std::ferror(temp)) CerrFileCannotRead.TriggerMild(&pathExp_);
          break;
        }
        position += static_cast<long long>(got);
        cursor_ = static_cast<unsigned int>(got);
        WriteCompressBlock(scratch);
        if (C_ERROR::Is()) break;
      }
      // The blocks taken before a failure are written all the same, as
      // they would have been one by one.
      if (compressor_ != nullptr) WriteCompressedBlocks(true);
    }
    delete[] scratch;
  }
  // The target is closed by the caller with the other streams; the
  // temporary file disappears as it closes.
  std::fclose(temp);
}

// Checking a file -------------------------------------------------------------------

// A file that does not begin with the magic holds no blocks of the format
// and fails the check. A record cut short by the end of the file fails it
// too (CerrFileEndReached stays pending); only the end of the file where a
// record would begin ends a sound file.
void C_FILE::CheckCompression(const C_STRING& path) {
  C_FILE file(path, READ | DIRECT, COMPRESSED);
  if (C_ERROR::Is()) return;
  if (!file.IsDirectCompressed()) {
    CerrFileCannotDecompress.TriggerMild(&file.pathExp_);
    return;
  }
  unsigned char* scratch = qorc::NewArray<unsigned char>(COMPRESS_SCRATCH_SIZE);
  if (scratch == nullptr) return;
  bool atBoundary = false;
  while (file.ReadBlockRecord(scratch, &atBoundary)) {
  }
  if (atBoundary && CerrFileEndReached.IsPending()) C_ERROR::ClearPending();
  delete[] scratch;
}
