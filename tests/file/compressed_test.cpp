// The block-compressed format: its bytes, both routes, positioning in place,
// flush points, damaged files.
#include <gtest/gtest.h>
#include <qorc/qorc.h>
#include <zlib.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "file/file_test_util.h"
#include "support/temp_dir.h"

namespace {

constexpr int kBlock = C_FILE::COMPRESS_BLOCK_SIZE;
const std::string kMagic = "QORCOMPRESS_V1.0";

unsigned Le32(const std::string& bytes, std::size_t at) {
  unsigned v = 0;
  for (int i = 3; i >= 0; --i) v = v << 8 | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]);
  return v;
}

std::string Le32Bytes(unsigned v) {
  std::string out(4, '\0');
  for (int i = 0; i < 4; ++i) out[static_cast<std::size_t>(i)] = static_cast<char>(v >> (8 * i));
  return out;
}

// The blocks of a compressed file decoded with zlib alone; fails the test on
// any inconsistency.
std::vector<std::string> DecodeWithZlib(const std::string& file) {
  std::vector<std::string> blocks;
  EXPECT_GE(file.size(), 16u);
  EXPECT_EQ(file.substr(0, 16), kMagic);
  std::size_t at = 16;
  while (at < file.size()) {
    EXPECT_LE(at + 8, file.size());
    if (at + 8 > file.size()) break;
    const unsigned stored = Le32(file, at);
    const unsigned packed = Le32(file, at + 4);
    EXPECT_LE(at + 8 + packed, file.size());
    EXPECT_GE(stored, 1u);
    EXPECT_LE(stored, static_cast<unsigned>(kBlock));
    std::string out(stored, '\0');
    uLongf length = stored;
    EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(out.data()), &length,
                         reinterpret_cast<const Bytef*>(file.data() + at + 8), packed),
              Z_OK);
    EXPECT_EQ(length, stored);
    blocks.push_back(out);
    at += 8 + packed;
  }
  return blocks;
}

std::string Record(const std::string& data) {
  uLongf packed = compressBound(data.size());
  std::string out(packed, '\0');
  compress(reinterpret_cast<Bytef*>(out.data()), &packed, reinterpret_cast<const Bytef*>(data.data()), data.size());
  out.resize(packed);
  return Le32Bytes(static_cast<unsigned>(data.size())) + Le32Bytes(static_cast<unsigned>(packed)) + out;
}

void WriteCompressed(const std::string& path, const std::string& data, int mode = C_FILE::WRITE) {
  C_FILE file(LibraryPath(path), mode, C_FILE::COMPRESSED);
  ASSERT_FALSE(C_ERROR::Is());
  file.Write(static_cast<int>(data.size()), data.data());
  ASSERT_FALSE(C_ERROR::Is());
}

std::string ReadWhole(const std::string& path, int mode) {
  C_FILE file(LibraryPath(path), mode, C_FILE::COMPRESSED);
  std::string out;
  char chunk[50000];
  for (;;) {
    int got = 0;
    file.Read(static_cast<int>(sizeof chunk), chunk, &got);
    out.append(chunk, static_cast<std::size_t>(got));
    if (C_ERROR::Is()) break;
  }
  EXPECT_TRUE(TakePending(CerrFileEndReached));
  return out;
}

class Probe : public C_FILE {
 public:
  using C_FILE::C_FILE;
  using C_FILE::SearchCompressBlockPosition;
  using C_FILE::WriteCompress;
};

}  // namespace

TEST(Compressed, BytesDecodeWithZlibBlockByBlock) {
  TempDir dir;
  const std::string path = dir.File("doc.qz");
  const std::string data = TextLikeBytes(2 * kBlock + 37856);
  WriteCompressed(path, data);
  const std::vector<std::string> blocks = DecodeWithZlib(ReadBytes(path));
  ASSERT_EQ(blocks.size(), 3u);
  EXPECT_EQ(blocks[0].size(), static_cast<std::size_t>(kBlock));
  EXPECT_EQ(blocks[2].size(), 37856u);
  EXPECT_EQ(blocks[0] + blocks[1] + blocks[2], data);
  EXPECT_EQ(ReadWhole(path, C_FILE::READ), data);
  EXPECT_EQ(ReadWhole(path, C_FILE::READ | C_FILE::DIRECT), data);
}

TEST(Compressed, BlockLimitsAndFlushPoints) {
  TempDir dir;
  const std::string one = dir.File("one"), two = dir.File("two"), flushed = dir.File("flushed");
  WriteCompressed(one, std::string(kBlock, 'a'));
  WriteCompressed(two, std::string(kBlock + 1, 'b'));
  EXPECT_EQ(DecodeWithZlib(ReadBytes(one)).size(), 1u);
  const std::vector<std::string> split = DecodeWithZlib(ReadBytes(two));
  ASSERT_EQ(split.size(), 2u);
  EXPECT_EQ(split[1], "b");
  {
    C_FILE file(LibraryPath(flushed), C_FILE::WRITE, C_FILE::COMPRESSED);
    file.Write(10, "0123456789");
    file.Flush();
    file.Flush();  // a flush repeated at one position ends nothing more
    file.Write(20, "abcdefghijklmnopqrst");
    EXPECT_FALSE(C_ERROR::Is());
    EXPECT_EQ(file.GetType(), C_FILE::BINARY);
    EXPECT_TRUE(file.IsCompressed());
  }
  const std::vector<std::string> blocks = DecodeWithZlib(ReadBytes(flushed));
  ASSERT_EQ(blocks.size(), 2u);
  EXPECT_EQ(blocks[0], "0123456789");
  EXPECT_EQ(blocks[1], "abcdefghijklmnopqrst");
  // Nothing written: the magic alone.
  const std::string empty = dir.File("empty");
  { C_FILE file(LibraryPath(empty), C_FILE::WRITE, C_FILE::COMPRESSED); }
  EXPECT_EQ(ReadBytes(empty), kMagic);
}

TEST(Compressed, TemporaryRouteReadsPlainBytes) {
  TempDir dir;
  const std::string path = dir.File("doc.qz");
  const std::string data = RandomBytes(3 * kBlock + 5);
  WriteCompressed(path, data);
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::COMPRESSED);
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_TRUE(file.IsCompressed());
  EXPECT_EQ(file.GetSize(), static_cast<long long>(data.size()));  // the temporary file
  file.SetPosit(kBlock + 3);
  char bytes[4];
  file.Read(4, bytes);
  EXPECT_EQ(std::string(bytes, 4), data.substr(kBlock + 3, 4));
  file.Unwind();
  EXPECT_EQ(file.GetPosit(), static_cast<long long>(data.size()));
  // The file on disk is untouched by reading.
  EXPECT_EQ(DecodeWithZlib(ReadBytes(path)).size(), 4u);
}

TEST(Compressed, DirectReadingAtRandomPositions) {
  TempDir dir;
  const std::string path = dir.File("doc.qz");
  const std::string data = TextLikeBytes(5 * kBlock + 1234, 3);
  {
    // Blocks of uneven sizes through flush points.
    C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::COMPRESSED);
    std::size_t at = 0;
    for (std::size_t piece : {1000u, 200000u, 7u, 400000u}) {
      file.Write(static_cast<int>(piece), data.data() + at);
      file.Flush();
      at += piece;
    }
    file.Write(static_cast<int>(data.size() - at), data.data() + at);
  }
  ASSERT_FALSE(C_ERROR::Is());
  Probe file(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(file.GetMode(), C_FILE::READ);
  EXPECT_EQ(file.GetPosit(), 0);
  std::mt19937 random(5);
  std::vector<char> buffer(9000);
  for (int i = 0; i < 300; ++i) {
    const long long position = static_cast<long long>(random() % data.size());
    const int count = static_cast<int>(random() % buffer.size()) + 1;
    file.SetPosit(position);
    ASSERT_EQ(file.GetPosit(), position);
    int got = 0;
    file.Read(count, buffer.data(), &got);
    const std::string expected = data.substr(static_cast<std::size_t>(position), static_cast<std::size_t>(count));
    ASSERT_EQ(std::string(buffer.data(), static_cast<std::size_t>(got)), expected) << position;
    if (expected.size() < static_cast<std::size_t>(count)) {
      EXPECT_TRUE(TakePending(CerrFileEndReached));
    } else {
      ASSERT_FALSE(C_ERROR::Is());
      EXPECT_EQ(file.GetPosit(), position + count);
    }
  }
  // A position equal to a block's start belongs to that block; beyond the
  // end clamps to the end of the last block.
  long long block = 0, offset = 0;
  file.SearchCompressBlockPosition(1000, &block, &offset);
  EXPECT_EQ(block, 1);
  EXPECT_EQ(offset, 0);
  file.SearchCompressBlockPosition(static_cast<long long>(data.size()) + 99, &block, &offset);
  EXPECT_GT(block, 4);
  file.SetPosit(static_cast<long long>(data.size()) + 99);
  EXPECT_EQ(file.GetPosit(), static_cast<long long>(data.size()));
  char c;
  file.Read(1, &c);
  EXPECT_TRUE(TakePending(CerrFileEndReached));
  file.Rewind();
  file.Read(1, &c);
  EXPECT_EQ(c, data[0]);
  // What a compressed file read in place does not offer.
  file.Unwind();
  EXPECT_TRUE(TakePending(CerrFileCannotSeek));
  EXPECT_EQ(file.GetLine(), 0);
  EXPECT_TRUE(TakePending(CerrFileCannotSeek));
  EXPECT_EQ(file.GetSize(), static_cast<long long>(ReadBytes(path).size()));  // the compressed length
  C_FILE::CheckCompression(LibraryPath(path));
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(Compressed, MagicAloneAndMissingMagic) {
  TempDir dir;
  const std::string magic = dir.File("magic"), plain = dir.File("plain"), tiny = dir.File("tiny");
  WriteBytes(magic, kMagic);
  WriteBytes(plain, "not a compressed file at all");
  WriteBytes(tiny, "QORC");
  EXPECT_EQ(ReadWhole(magic, C_FILE::READ), "");
  {
    Probe file(LibraryPath(magic), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
    char c;
    file.Read(1, &c);
    EXPECT_TRUE(TakePending(CerrFileEndReached));
    long long block = 0, offset = 0;
    file.SearchCompressBlockPosition(0, &block, &offset);
    EXPECT_EQ(block, -1);
    EXPECT_EQ(offset, -1);
    file.SetPosit(0);
    EXPECT_TRUE(TakePending(CerrFileCannotSeek));
  }
  C_FILE::CheckCompression(LibraryPath(magic));
  EXPECT_FALSE(C_ERROR::Is());
  for (const std::string& path : {plain, tiny}) {
    for (int mode : {static_cast<int>(C_FILE::READ), C_FILE::READ | C_FILE::DIRECT}) {
      C_FILE file(LibraryPath(path), mode, C_FILE::COMPRESSED);
      EXPECT_FALSE(C_ERROR::Is());
      EXPECT_FALSE(file.IsCompressed());
      EXPECT_EQ(file.GetType(), C_FILE::BINARY);
      char bytes[4];
      file.Read(4, bytes);
      EXPECT_EQ(std::string(bytes, 4), ReadBytes(path).substr(0, 4));
    }
    C_FILE::CheckCompression(LibraryPath(path));
    EXPECT_TRUE(TakePending(CerrFileCannotDecompress));
  }
}

TEST(Compressed, DamagedFiles) {
  TempDir dir;
  const std::string good = Record(std::string(5000, 'g'));
  const std::string second = Record(std::string(3000, 'h'));
  struct Case {
    const char* name;
    std::string bytes;
    const C_ERROR* directError;  // of reading everything in place
    const C_ERROR* checkError;   // left by CheckCompression
    std::size_t tempBytes;       // what the temporary route delivers
  };
  const Case cases[] = {
      {"sound", kMagic + good + second, &CerrFileEndReached, nullptr, 8000},
      {"cut data", kMagic + good + second.substr(0, second.size() - 5), &CerrFileEndReached, &CerrFileEndReached, 5000},
      {"cut header", kMagic + good + second.substr(0, 6), &CerrFileEndReached, &CerrFileEndReached, 5000},
      {"compressed length beyond scratch", kMagic + good + Le32Bytes(10) + Le32Bytes(0x7FFFFFFF) + "xx",
       &CerrFileCannotDecompress, &CerrFileCannotDecompress, 5000},
      {"uncompressed length beyond block", kMagic + good + Le32Bytes(kBlock + 1) + second.substr(4),
       &CerrFileCannotDecompress, &CerrFileCannotDecompress, 5000},
      {"more than the buffer inside", kMagic + Le32Bytes(100) + Record(std::string(kBlock + 200, 'z')).substr(4),
       &CerrFileCannotDecompress, &CerrFileCannotDecompress, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = dir.File("damaged");
    WriteBytes(path, c.bytes);
    {
      C_FILE file(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
      std::vector<char> all(20000);
      int got = 0;
      file.Read(static_cast<int>(all.size()), all.data(), &got);
      EXPECT_TRUE(TakePending(*c.directError));
    }
    C_FILE::CheckCompression(LibraryPath(path));
    if (c.checkError == nullptr) {
      EXPECT_FALSE(C_ERROR::Is());
    } else {
      EXPECT_TRUE(TakePending(*c.checkError));
    }
    C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::COMPRESSED);
    if (c.checkError == &CerrFileCannotDecompress) {
      EXPECT_TRUE(TakePending(CerrFileCannotDecompress));
    } else {
      EXPECT_FALSE(C_ERROR::Is());  // a cut record ends the blocks
    }
    EXPECT_EQ(file.GetSize(), static_cast<long long>(c.tempBytes));
  }
  // Garbage in place of zlib data is a data error, which readers take as a
  // block holding what came out before it: here nothing.
  const std::string path = dir.File("garbage");
  WriteBytes(path, kMagic + Le32Bytes(100) + Le32Bytes(20) + std::string(20, '\x55') + good);
  EXPECT_EQ(ReadWhole(path, C_FILE::READ), std::string(5000, 'g'));
}

TEST(Compressed, WritingInPlace) {
  TempDir dir;
  const std::string path = dir.File("direct.qz");
  const std::string data = TextLikeBytes(3 * kBlock);
  {
    C_FILE file(LibraryPath(path), C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    ASSERT_FALSE(C_ERROR::Is());
    EXPECT_EQ(file.GetMode(), C_FILE::WRITE);
    // Pieces that divide the block size never cross its end.
    for (std::size_t at = 0; at < data.size(); at += 4096) file.Write(4096, data.data() + at);
    file.GetPosit();
    EXPECT_TRUE(TakePending(CerrFileCannotSeek));
    file.SetPosit(0);
    EXPECT_TRUE(TakePending(CerrFileCannotSeek));
    file.Rewind();
    EXPECT_TRUE(TakePending(CerrFileCannotSeek));
    file.Write(C_STRING(u"end"));
    file.Flush();  // ends a block early
    file.WriteEOL();
  }
  const std::vector<std::string> blocks = DecodeWithZlib(ReadBytes(path));
  ASSERT_EQ(blocks.size(), 5u);
  EXPECT_EQ(blocks[3], std::string("e\0n\0d\0", 6));
  EXPECT_EQ(blocks[4], std::string("\n\0", 2));
  EXPECT_EQ(ReadWhole(path, C_FILE::READ).substr(0, data.size()), data);
}

TEST(Compressed, InPlaceWriteCrossingTheBufferEndKeepsItsCursor) {
  TempDir dir;
  const std::string path = dir.File("cross.qz");
  const std::string first(kBlock - 1, 'a');
  {
    Probe file(LibraryPath(path), C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    int put = 0;
    file.WriteCompress(static_cast<int>(first.size()), first.data(), &put);
    EXPECT_EQ(put, kBlock - 1);
    file.WriteCompress(3, "xyz", &put);
    EXPECT_EQ(put, 3);
  }
  // The first block holds the bytes buffered before the call; the byte that
  // filled the buffer up is overwritten by the next ones.
  const std::vector<std::string> blocks = DecodeWithZlib(ReadBytes(path));
  ASSERT_EQ(blocks.size(), 2u);
  EXPECT_EQ(blocks[0], first);
  EXPECT_EQ(blocks[1], "yz");
}

TEST(Compressed, SwitchAndUpdate) {
  TempDir dir;
  const std::string path = dir.File("doc.qz");
  WriteCompressed(path, "payload");
  const std::string stored = ReadBytes(path);
  {
    // Update works on the stored bytes and never recompresses.
    C_FILE file(LibraryPath(path), C_FILE::UPDATE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    EXPECT_TRUE(file.IsCompressed());
    char bytes[16];
    file.Read(16, bytes);
    EXPECT_EQ(std::string(bytes, 16), kMagic);
  }
  EXPECT_EQ(ReadBytes(path), stored);
  C_FILE text(LibraryPath(dir.File("t.txt")), C_FILE::WRITE, C_FILE::TEXT);
  text.SetCompressed(false);
  EXPECT_EQ(text.GetType(), C_FILE::TEXT);
  EXPECT_FALSE(text.IsCompressed());
  text.SetCompressed(true);
  EXPECT_EQ(text.GetType(), C_FILE::BINARY);
  EXPECT_TRUE(text.IsCompressed());
  text.SetCompressed(false);
  EXPECT_TRUE(text.IsCompressed());
  text.Write(C_STRING(u"x"));
  EXPECT_FALSE(C_ERROR::Is());
}
