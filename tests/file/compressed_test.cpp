// The block-compressed format: its bytes, both reading routes, flush points,
// positioning in place, damaged files.
#include <gtest/gtest.h>
#include <qorc/qorc.h>
#include <zlib.h>

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
  for (std::size_t i = 4; i-- > 0;) v = v << 8 | static_cast<unsigned char>(bytes[at + i]);
  return v;
}

std::string Le32Bytes(unsigned v) {
  return {static_cast<char>(v), static_cast<char>(v >> 8), static_cast<char>(v >> 16), static_cast<char>(v >> 24)};
}

// The blocks of a compressed file decoded with zlib alone.
std::vector<std::string> DecodeWithZlib(const std::string& file) {
  EXPECT_EQ(file.substr(0, 16), kMagic);
  std::vector<std::string> blocks;
  std::size_t at = 16;
  for (; at + 8 <= file.size() && at + 8 + Le32(file, at + 4) <= file.size(); at += 8 + Le32(file, at + 4)) {
    std::string out(Le32(file, at), '\0');
    uLongf length = out.size();
    EXPECT_EQ(uncompress(reinterpret_cast<Bytef*>(out.data()), &length,
                         reinterpret_cast<const Bytef*>(file.data() + at + 8), Le32(file, at + 4)),
              Z_OK);
    EXPECT_EQ(length, out.size());
    blocks.push_back(out);
  }
  EXPECT_EQ(at, file.size());
  return blocks;
}

std::string Record(const std::string& data) {
  uLongf packed = compressBound(data.size());
  std::string out(packed, '\0');
  compress(reinterpret_cast<Bytef*>(out.data()), &packed, reinterpret_cast<const Bytef*>(data.data()), data.size());
  return Le32Bytes(static_cast<unsigned>(data.size())) + Le32Bytes(static_cast<unsigned>(packed)) +
         out.substr(0, packed);
}

void WriteCompressed(const std::string& path, const std::string& data) {
  C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::COMPRESSED);
  file.Write(static_cast<int>(data.size()), data.data());
  ASSERT_FALSE(C_ERROR::Is());
}

std::string ReadWhole(const std::string& path, int mode) {
  C_FILE file(LibraryPath(path), mode, C_FILE::COMPRESSED);
  std::string out;
  char chunk[50000];
  while (!C_ERROR::Is()) {
    int got = 0;
    file.Read(static_cast<int>(sizeof chunk), chunk, &got);
    out.append(chunk, static_cast<std::size_t>(got));
  }
  EXPECT_EQ(TakeError(), &CerrFileEndReached);
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
  const std::string path = dir.File("doc.qz"), exact = dir.File("exact"), empty = dir.File("empty");
  const std::string data = TestBytes(2 * kBlock + 37856, true);
  WriteCompressed(path, data);
  const std::vector<std::string> blocks = DecodeWithZlib(ReadBytes(path));
  ASSERT_EQ(blocks.size(), 3u);
  EXPECT_EQ(blocks[0].size(), static_cast<std::size_t>(kBlock));
  EXPECT_EQ(blocks[0] + blocks[1] + blocks[2], data);
  EXPECT_EQ(ReadWhole(path, C_FILE::READ), data);
  EXPECT_EQ(ReadWhole(path, C_FILE::READ | C_FILE::DIRECT), data);
  WriteCompressed(exact, std::string(kBlock, 'a'));
  EXPECT_EQ(DecodeWithZlib(ReadBytes(exact)).size(), 1u);
  WriteCompressed(empty, "");
  EXPECT_EQ(ReadBytes(empty), kMagic);
  // Through the temporary file, positions and size are the plain bytes'.
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::COMPRESSED);
  EXPECT_EQ(file.GetSize(), static_cast<long long>(data.size()));
  file.SetPosit(kBlock + 3);
  char bytes[4];
  file.Read(4, bytes);
  EXPECT_EQ(std::string(bytes, 4), data.substr(kBlock + 3, 4));
}

TEST(Compressed, FlushPointsAndReadingInPlaceAtRandomPositions) {
  TempDir dir;
  const std::string path = dir.File("doc.qz");
  const std::string data = TestBytes(5 * kBlock + 1234, true, 3);
  {
    C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::COMPRESSED);
    std::size_t at = 0;
    for (std::size_t piece : {1000u, 200000u, 7u, 400000u}) {
      file.Write(static_cast<int>(piece), data.data() + at);
      file.Flush();
      file.Flush();  // a flush repeated at one position ends nothing more
      at += piece;
    }
    file.Write(static_cast<int>(data.size() - at), data.data() + at);
  }
  const std::vector<std::string> blocks = DecodeWithZlib(ReadBytes(path));
  ASSERT_EQ(blocks.size(), 9u);
  EXPECT_EQ(blocks[0].size(), 1000u);
  EXPECT_EQ(blocks[3], data.substr(201000, 7));
  Probe file(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
  std::mt19937 random(5);
  std::vector<char> buffer(9000);
  for (int i = 0; i < 300; ++i) {
    const long long position = static_cast<long long>(random() % data.size());
    const int count = static_cast<int>(random() % buffer.size()) + 1;
    file.SetPosit(position);
    int got = 0;
    file.Read(count, buffer.data(), &got);
    const std::string expected = data.substr(static_cast<std::size_t>(position), static_cast<std::size_t>(count));
    ASSERT_EQ(std::string(buffer.data(), static_cast<std::size_t>(got)), expected) << position;
    if (expected.size() < static_cast<std::size_t>(count)) {
      EXPECT_EQ(TakeError(), &CerrFileEndReached);
    } else {
      ASSERT_FALSE(C_ERROR::Is());
      EXPECT_EQ(file.GetPosit(), position + count);
    }
  }
  // A position at a block's start belongs to that block; one beyond the end
  // clamps to the end.
  long long block = 0, offset = 0;
  file.SearchCompressBlockPosition(1000, &block, &offset);
  EXPECT_EQ(block, 1);
  EXPECT_EQ(offset, 0);
  file.SetPosit(static_cast<long long>(data.size()) + 99);
  EXPECT_EQ(file.GetPosit(), static_cast<long long>(data.size()));
  file.Rewind();
  char c;
  file.Read(1, &c);
  EXPECT_EQ(c, data[0]);
  // Without an index there is no end to go to nor lines to count.
  file.Unwind();
  EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
  EXPECT_EQ(file.GetLine(), 0);
  EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
  EXPECT_EQ(file.GetSize(), static_cast<long long>(ReadBytes(path).size()));  // the compressed length
}

TEST(Compressed, MagicAloneAndMissingMagic) {
  TempDir dir;
  const std::string magic = dir.File("magic"), plain = dir.File("plain"), tiny = dir.File("tiny");
  WriteBytes(magic, kMagic);
  WriteBytes(plain, "not a compressed file at all");
  WriteBytes(tiny, "QORC");
  EXPECT_EQ(ReadWhole(magic, C_FILE::READ), "");
  EXPECT_EQ(ReadWhole(magic, C_FILE::READ | C_FILE::DIRECT), "");
  C_FILE file(LibraryPath(magic), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
  file.SetPosit(0);
  EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
  C_FILE::CheckCompression(LibraryPath(magic));
  EXPECT_EQ(TakeError(), nullptr);
  // Without the magic, the file is read as it stands.
  for (const std::string& path : {plain, tiny}) {
    EXPECT_EQ(ReadWhole(path, C_FILE::READ), ReadBytes(path));
    EXPECT_EQ(ReadWhole(path, C_FILE::READ | C_FILE::DIRECT), ReadBytes(path));
    C_FILE::CheckCompression(LibraryPath(path));
    EXPECT_EQ(TakeError(), &CerrFileCannotDecompress);
  }
}

TEST(Compressed, DamagedFiles) {
  TempDir dir;
  const std::string path = dir.File("damaged");
  const std::string good = Record(std::string(5000, 'g'));
  const std::string second = Record(std::string(3000, 'h'));
  struct Case {
    const char* name;
    std::string bytes;
    const C_ERROR* error;   // of reading everything in place, and of the check
    std::size_t tempBytes;  // what the temporary route delivers
  };
  const Case cases[] = {
      {"sound", kMagic + good + second, nullptr, 8000},
      {"cut data", kMagic + good + second.substr(0, second.size() - 5), &CerrFileEndReached, 5000},
      {"cut header", kMagic + good + second.substr(0, 6), &CerrFileEndReached, 5000},
      {"compressed length beyond scratch", kMagic + good + Le32Bytes(10) + Le32Bytes(0x7FFFFFFF) + "xx",
       &CerrFileCannotDecompress, 5000},
      {"uncompressed length beyond block", kMagic + good + Le32Bytes(kBlock + 1) + second.substr(4),
       &CerrFileCannotDecompress, 5000},
      {"more than the buffer inside", kMagic + Le32Bytes(100) + Record(std::string(kBlock + 200, 'z')).substr(4),
       &CerrFileCannotDecompress, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    WriteBytes(path, c.bytes);
    {
      C_FILE file(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
      std::vector<char> all(20000);
      file.Read(static_cast<int>(all.size()), all.data());
      EXPECT_EQ(TakeError(), c.error != nullptr ? c.error : &CerrFileEndReached);
    }
    C_FILE::CheckCompression(LibraryPath(path));
    EXPECT_EQ(TakeError(), c.error);
    // The temporary route takes a cut record as the end of the blocks.
    C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::COMPRESSED);
    EXPECT_EQ(TakeError(), c.error == &CerrFileCannotDecompress ? c.error : nullptr);
    EXPECT_EQ(file.GetSize(), static_cast<long long>(c.tempBytes));
  }
  // Garbage in place of zlib data is a data error, which readers take as a
  // block holding what came out before it: here nothing.
  WriteBytes(path, kMagic + Le32Bytes(100) + Le32Bytes(20) + std::string(20, '\x55') + good);
  EXPECT_EQ(ReadWhole(path, C_FILE::READ), std::string(5000, 'g'));
}

TEST(Compressed, WritingInPlace) {
  TempDir dir;
  const std::string path = dir.File("direct.qz"), cross = dir.File("cross.qz");
  const std::string data = TestBytes(3 * kBlock, true);
  {
    C_FILE file(LibraryPath(path), C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    for (std::size_t at = 0; at < data.size(); at += 4096) file.Write(4096, data.data() + at);
    file.GetPosit();
    EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
    file.Rewind();
    EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
    file.Write(C_STRING(u"end"));
    file.Flush();
    file.WriteEOL();
  }
  EXPECT_EQ(DecodeWithZlib(ReadBytes(path)),
            (std::vector<std::string>{data.substr(0, kBlock), data.substr(kBlock, kBlock), data.substr(2 * kBlock),
                                      std::string("e\0n\0d\0", 6), std::string("\n\0", 2)}));
  // A write crossing the buffer's end: the first block holds the bytes
  // buffered before the call, and the byte that filled the buffer up is
  // overwritten by the next ones.
  {
    Probe file(LibraryPath(cross), C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    int put = 0;
    file.WriteCompress(kBlock - 1, data.data(), &put);
    EXPECT_EQ(put, kBlock - 1);
    file.WriteCompress(3, "xyz", &put);
    EXPECT_EQ(put, 3);
  }
  EXPECT_EQ(DecodeWithZlib(ReadBytes(cross)), (std::vector<std::string>{data.substr(0, kBlock - 1), "yz"}));
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
  // The switch cannot be turned off, and alone makes no compressed file.
  C_FILE text(LibraryPath(dir.File("t.txt")), C_FILE::WRITE, C_FILE::TEXT);
  text.SetCompressed(true);
  text.SetCompressed(false);
  EXPECT_EQ(text.GetType(), C_FILE::BINARY);
  EXPECT_TRUE(text.IsCompressed());
  text.Write(C_STRING(u"x"));
  EXPECT_EQ(TakeError(), nullptr);
}
