// pack, unpack, cat, check and info: the library's block-compressed files.
//
// The file is a 16-byte magic followed by block records: the uncompressed
// length U and the compressed length C (32-bit little-endian), then one
// zlib stream of C bytes. The library reads damaged streams leniently (a
// block yields what could be decompressed), so the commands that must not
// pass damage on (unpack, check) also compare every block with its record:
// its length, and the Adler-32 that ends each zlib stream.
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <functional>

#include "commands.h"
#include "support.h"

namespace qor {

namespace {

constexpr int kMagicSize = 16;
constexpr int kRecordHeaderSize = 8;
// A zlib stream has a 2-byte header, at least one deflate byte and a 4-byte
// Adler-32 trailer.
constexpr unsigned int kSmallestStream = 7;
constexpr int kAdlerSize = 4;
constexpr int kListedFlushPoints = 20;

struct BlockRecord {
  long long offset;  // of the record in the file
  long long start;   // uncompressed position of its first byte
  unsigned int stored;
  unsigned int packed;
  unsigned int adler;
};

struct BlockIndex {
  long long fileSize = 0;
  long long dataSize = 0;
  std::vector<BlockRecord> blocks;
};

unsigned int LoadLittleEndian32(const unsigned char* bytes) {
  return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<unsigned int>(bytes[3]) << 24;
}

unsigned int LoadBigEndian32(const unsigned char* bytes) {
  return static_cast<unsigned int>(bytes[0]) << 24 | bytes[1] << 16 | bytes[2] << 8 | bytes[3];
}

std::string BlockPlace(const std::string& path, std::size_t block, long long offset) {
  return path + " (block " + std::to_string(block) + " at byte " + std::to_string(offset) + ")";
}

bool ReadExactly(C_FILE* file, long long position, int count, unsigned char* data) {
  file->SetPosit(position);
  int got = 0;
  if (!C_ERROR::Is()) file->Read(count, data, &got);
  return !C_ERROR::Is() && got == count;
}

// Walks the record headers of a compressed file, as any reader of the
// format can, reading the file as plain bytes.
bool ReadBlockIndex(const Input& input, BlockIndex* index) {
  const std::string shown = input.Shown();
  C_FILE file(LibraryText(input.Path()), C_FILE::READ, C_FILE::BINARY);
  if (C_ERROR::Is()) return false;
  index->fileSize = file.GetSize();
  unsigned char bytes[kMagicSize];
  if (index->fileSize < kMagicSize || !ReadExactly(&file, 0, kMagicSize, bytes) ||
      std::memcmp(bytes, C_FILE::COMPRESS_MAGIC, kMagicSize) != 0) {
    if (C_ERROR::Is() && !CerrFileEndReached.IsPending()) return false;
    C_ERROR::ClearPending();
    return Fail(CerrFileCannotDecompress, shown + " is not a compressed file (it does not begin with " +
                                              std::string(C_FILE::COMPRESS_MAGIC, kMagicSize) + ")");
  }
  long long offset = kMagicSize;
  long long start = 0;
  while (offset < index->fileSize) {
    const std::string place = BlockPlace(shown, index->blocks.size(), offset);
    if (offset + kRecordHeaderSize > index->fileSize)
      return Fail(CerrFileEndReached, place + ": the record is cut short");
    if (!ReadExactly(&file, offset, kRecordHeaderSize, bytes)) return false;
    const unsigned int stored = LoadLittleEndian32(bytes);
    const unsigned int packed = LoadLittleEndian32(bytes + 4);
    if (stored == 0 || stored > static_cast<unsigned int>(C_FILE::COMPRESS_BLOCK_SIZE) || packed < kSmallestStream ||
        packed > static_cast<unsigned int>(C_FILE::COMPRESS_SCRATCH_SIZE)) {
      return Fail(CerrFileCannotDecompress, place + ": impossible lengths " + std::to_string(stored) + " and " +
                                                std::to_string(packed) + " in the record");
    }
    const long long end = offset + kRecordHeaderSize + packed;
    if (end > index->fileSize) return Fail(CerrFileEndReached, place + ": the record is cut short");
    if (!ReadExactly(&file, end - kAdlerSize, kAdlerSize, bytes)) return false;
    index->blocks.push_back(BlockRecord{offset, start, stored, packed, LoadBigEndian32(bytes)});
    offset = end;
    start += stored;
  }
  index->dataSize = start;
  return true;
}

// Reads every block through the library's in-place route, in order, checks
// it against its record and hands it to the sink.
bool ForEachSoundBlock(const Input& input, const BlockIndex& index, const std::string& title,
                       const std::function<bool(const unsigned char*, int)>& sink) {
  C_FILE file(LibraryText(input.Path()), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
  if (C_ERROR::Is()) return false;
  Progress progress(title, index.fileSize);
  std::vector<unsigned char> block(C_FILE::COMPRESS_BLOCK_SIZE);
  for (std::size_t i = 0; i < index.blocks.size(); ++i) {
    const BlockRecord& record = index.blocks[i];
    int got = 0;
    file.Read(static_cast<int>(record.stored), block.data(), &got);
    if (C_ERROR::Is()) {
      AddContextToPending(BlockPlace(input.Shown(), i, record.offset));
      return false;
    }
    if (CchecksumAdler(got, block.data()) != record.adler) {
      return Fail(CerrFileCannotDecompress,
                  BlockPlace(input.Shown(), i, record.offset) + ": the data do not match their Adler-32 checksum");
    }
    if (!sink(block.data(), got)) return false;
    progress.Advance(kRecordHeaderSize + record.packed);
  }
  return true;
}

std::string Ratio(long long packed, long long data) {
  if (data == 0) return "-";
  char text[64];
  std::snprintf(text, sizeof text, "%.1f %% of the data (%.2f:1)", 100.0 * static_cast<double>(packed) / data,
                static_cast<double>(data) / static_cast<double>(packed));
  return text;
}

}  // namespace

bool Pack(const std::string& in, const std::string& out, bool replace, int jobs) {
  // The workers are chosen when the output opens and serve that file alone.
  CfileCompressThreads = jobs;
  Input input;
  Output output;
  if (!input.Open(in) || !output.Open(out, replace, Output::kCompressedFile)) return false;
  Progress progress("packing " + in, input.Size());
  std::vector<unsigned char> chunk(kChunkSize);
  int got = kChunkSize;
  while (got == kChunkSize) {
    if (!input.Read(kChunkSize, chunk.data(), &got)) return false;
    if (got == 0) break;
    // Whole blocks only, and no flush between them, so that the workers
    // always have blocks to compress. The in-place writer keeps an old
    // behaviour: a write that crosses the end of its block buffer loses the
    // bytes that filled the buffer. A write of one whole block into a full
    // or empty buffer fills nothing, so it loses nothing: every block but
    // the last holds a full block, as when each was flushed.
    output.File()->Write(got, chunk.data());
    if (C_ERROR::Is()) return false;
    progress.Advance(got);
  }
  return output.Finish();
}

bool Unpack(const std::string& in, const std::string& out, bool replace) {
  Input input;
  BlockIndex index;
  Output output;
  if (!input.OpenAsFile(in) || !ReadBlockIndex(input, &index) || !output.Open(out, replace)) return false;
  const bool sound = ForEachSoundBlock(input, index, "unpacking " + in,
                                       [&](const unsigned char* data, int size) { return output.Write(size, data); });
  return sound && output.Finish();
}

bool Cat(const std::string& name, long long offset, long long length) {
  Input input;
  BlockIndex index;
  if (!input.OpenAsFile(name) || !ReadBlockIndex(input, &index)) return false;
  long long remaining = length < 0 ? index.dataSize : length;
  if (offset >= index.dataSize) remaining = 0;
  Output output;
  if (!output.Open("-", false)) return false;
  if (remaining > 0) {
    C_FILE file(LibraryText(input.Path()), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
    // The library finds the block that holds the offset and decompresses
    // only the blocks that are read.
    file.SetPosit(offset);
    std::vector<unsigned char> chunk(kChunkSize);
    while (remaining > 0 && !C_ERROR::Is()) {
      int got = 0;
      file.Read(static_cast<int>(std::min<long long>(remaining, kChunkSize)), chunk.data(), &got);
      if (CerrFileEndReached.IsPending()) {
        C_ERROR::ClearPending();
        remaining = 0;
      } else {
        remaining -= got;
      }
      if (!C_ERROR::Is()) output.Write(got, chunk.data());
    }
    if (C_ERROR::Is()) {
      AddContextToPending(input.Shown());
      return false;
    }
  }
  return output.Finish();
}

int Check(const std::vector<std::string>& files) {
  int result = kExitSuccess;
  for (const std::string& name : files) {
    Input input;
    BlockIndex index;
    // The records first (their messages say which block is wrong), then the
    // library's own check, then the checksums that its lenient reading of
    // damaged blocks lets pass.
    bool sound = input.OpenAsFile(name) && ReadBlockIndex(input, &index);
    if (sound) {
      C_FILE::CheckCompression(LibraryText(input.Path()));
      AddContextToPending(input.Shown());
    }
    sound = sound && !C_ERROR::Is() &&
            ForEachSoundBlock(input, index, "checking " + name, [](const unsigned char*, int) { return true; });
    if (!sound) {
      result = ReportPendingFailure();
      continue;
    }
    std::printf("%s: sound, %zu blocks, %lld bytes\n", name.c_str(), index.blocks.size(), index.dataSize);
  }
  return result;
}

bool Info(const std::string& name, bool listBlocks) {
  Input input;
  BlockIndex index;
  if (!input.OpenAsFile(name) || !ReadBlockIndex(input, &index)) return false;
  // A block shorter than the block size that is not the last one was ended
  // by a flush of the writer.
  std::vector<long long> flushPoints;
  for (std::size_t i = 0; i + 1 < index.blocks.size(); ++i) {
    const BlockRecord& block = index.blocks[i];
    if (block.stored < static_cast<unsigned int>(C_FILE::COMPRESS_BLOCK_SIZE)) {
      flushPoints.push_back(block.start + block.stored);
    }
  }
  std::printf("file:              %s\n", name.c_str());
  std::printf("compressed size:   %lld bytes\n", index.fileSize);
  std::printf("uncompressed size: %lld bytes\n", index.dataSize);
  std::printf("blocks:            %zu (of at most %d bytes)\n", index.blocks.size(), C_FILE::COMPRESS_BLOCK_SIZE);
  std::printf("ratio:             %s\n", Ratio(index.fileSize, index.dataSize).c_str());
  std::printf("flush points:      %zu", flushPoints.size());
  for (std::size_t i = 0; i < flushPoints.size() && i < kListedFlushPoints; ++i) {
    std::printf("%s%lld", i == 0 ? " at " : ", ", flushPoints[i]);
  }
  std::printf("%s\n", flushPoints.size() > kListedFlushPoints ? ", ..." : "");
  if (listBlocks) {
    std::printf("%8s %14s %14s %8s %8s %10s\n", "block", "file offset", "data offset", "data", "packed", "adler-32");
    for (std::size_t i = 0; i < index.blocks.size(); ++i) {
      const BlockRecord& block = index.blocks[i];
      std::printf("%8zu %14lld %14lld %8u %8u   %08x\n", i, block.offset, block.start, block.stored, block.packed,
                  block.adler);
    }
  }
  return true;
}

}  // namespace qor
