// The block-compressed format: its bytes, both reading routes, flush points,
// positioning in place, damaged files.
#include <zlib.h>

#include <cstring>
#include <tuple>
#include <vector>

#include "file/file_test_util.h"

using Compressed = FileTest;

namespace {

constexpr int kBlock = C_FILE::COMPRESS_BLOCK_SIZE;
const std::string kMagic = "QORCOMPRESS_V1.0";

// Record headers are little-endian, as is the host.
unsigned Le32(const std::string& bytes, std::size_t at) {
  unsigned v = 0;
  std::memcpy(&v, bytes.data() + at, 4);
  return v;
}

std::string Le32Bytes(unsigned v) { return std::string(reinterpret_cast<const char*>(&v), 4); }

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

std::string Record(std::size_t count, char c) {
  const std::string data(count, c);
  uLongf packed = compressBound(count);
  std::string out(packed, '\0');
  compress(reinterpret_cast<Bytef*>(out.data()), &packed, reinterpret_cast<const Bytef*>(data.data()), count);
  return Le32Bytes(static_cast<unsigned>(count)) + Le32Bytes(static_cast<unsigned>(packed)) + out.substr(0, packed);
}

void WriteCompressed(const std::string& path, const std::string& data) {
  C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::COMPRESSED);
  file.Write(static_cast<int>(data.size()), data.data());
  ASSERT_FALSE(C_ERROR::Is());
}

std::string ReadWhole(const std::string& path, int mode) {
  C_FILE file(LibraryPath(path), mode, C_FILE::COMPRESSED);
  std::string out(1 << 20, '\0');
  int got = 0;
  file.Read(static_cast<int>(out.size()), out.data(), &got);
  EXPECT_EQ(TakeError(), &CerrFileEndReached);
  return out.substr(0, static_cast<std::size_t>(got));
}

struct Probe : C_FILE {
  using C_FILE::C_FILE;
  using C_FILE::WriteCompress;
};

}  // namespace

TEST_F(Compressed, BytesDecodeWithZlibBlockByBlock) {
  const std::string data = RandomBytes(5 * kBlock + 1234);
  {
    // Flush points end blocks; a flush repeated at one position ends nothing more.
    C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::COMPRESSED);
    std::size_t at = 0;
    for (std::size_t piece : {1000u, 200000u, 7u, 400000u}) {
      file.Write(static_cast<int>(piece), data.data() + at);
      file.Flush();
      file.Flush();
      at += piece;
    }
    file.Write(static_cast<int>(data.size() - at), data.data() + at);
  }
  std::vector<std::size_t> sizes;
  std::string joined;
  for (const std::string& block : DecodeWithZlib(ReadBytes(path))) {
    sizes.push_back(block.size());
    joined += block;
  }
  EXPECT_EQ(sizes, (std::vector<std::size_t>{1000, kBlock, 68928, 7, kBlock, kBlock, kBlock, 6784, 55587}));
  EXPECT_EQ(joined, data);
  EXPECT_EQ(ReadWhole(path, C_FILE::READ), data);
  EXPECT_EQ(ReadWhole(path, C_FILE::READ | C_FILE::DIRECT), data);
  WriteCompressed(dir.File("exact"), std::string(kBlock, 'a'));
  EXPECT_EQ(DecodeWithZlib(ReadBytes(dir.File("exact"))).size(), 1u);
  WriteCompressed(dir.File("empty"), "");
  EXPECT_EQ(ReadBytes(dir.File("empty")), kMagic);
  // Through the temporary file, positions and size are the plain bytes'.
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::COMPRESSED);
  EXPECT_EQ(file.GetSize(), static_cast<long long>(data.size()));
  file.SetPosit(kBlock + 3);
  std::string bytes(4, '\0');
  file.Read(4, bytes.data());
  EXPECT_EQ(bytes, data.substr(kBlock + 3, 4));
}

TEST_F(Compressed, ReadingInPlaceAtRandomPositions) {
  const std::string data = RandomBytes(5 * kBlock + 1234, 3);
  {
    C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::COMPRESSED);
    file.Write(1000, data.data());
    file.Flush();  // blocks of uneven sizes
    file.Write(static_cast<int>(data.size()) - 1000, data.data() + 1000);
  }
  C_FILE file(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
  const long long size = static_cast<long long>(data.size()), edges[] = {999, 1000, 1000 + kBlock, size - 1};
  std::mt19937 random(5);
  std::vector<char> buffer(9000);
  for (int i = 0; i < 300; ++i) {
    const long long position = i < 4 ? edges[i] : static_cast<long long>(random() % data.size());
    const int count = static_cast<int>(random() % buffer.size()) + 1;
    file.SetPosit(position);
    int got = 0;
    file.Read(count, buffer.data(), &got);
    ASSERT_EQ(std::string(buffer.data(), static_cast<std::size_t>(got)),
              data.substr(static_cast<std::size_t>(position), static_cast<std::size_t>(count)))
        << position;
    EXPECT_EQ(TakeError(), got < count ? &CerrFileEndReached : nullptr);
    EXPECT_TRUE(got < count || file.GetPosit() == position + count);
  }
  // Beyond the end clamps to the end.
  file.SetPosit(size + 99);
  EXPECT_EQ(file.GetPosit(), size);
  file.Rewind();
  EXPECT_EQ(file.GetPosit(), 0);
  // Without an index there is no end to go to nor lines to count.
  file.Unwind();
  EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
  EXPECT_EQ(file.GetLine(), 0);
  EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
  EXPECT_EQ(file.GetSize(), static_cast<long long>(ReadBytes(path).size()));  // the compressed length
}

TEST_F(Compressed, DamagedFilesWritingInPlaceAndTheSwitch) {
  const std::string good = Record(5000, 'g'), second = Record(3000, 'h');
  const C_ERROR* const kEnd = &CerrFileEndReached;
  const C_ERROR* const kBad = &CerrFileCannotDecompress;
  // Errors of reading all in place and of CheckCompression, bytes read either way.
  const std::tuple<const char*, std::string, const C_ERROR*, const C_ERROR*, int> cases[] = {
      {"sound", kMagic + good + second, kEnd, nullptr, 8000},
      {"magic alone", kMagic, kEnd, nullptr, 0},
      // Without the magic, the file is read as it stands.
      {"no magic", "not a compressed file", kEnd, kBad, 21},
      {"shorter than the magic", "QORC", kEnd, kBad, 4},
      {"cut data", kMagic + good + second.substr(0, second.size() - 5), kEnd, kEnd, 5000},
      {"cut header", kMagic + good + second.substr(0, 6), kEnd, kEnd, 5000},
      {"compressed length beyond scratch", kMagic + good + Le32Bytes(10) + Le32Bytes(~0u >> 1) + "x", kBad, kBad, 5000},
      {"uncompressed length beyond block", kMagic + good + Le32Bytes(kBlock + 1) + second.substr(4), kBad, kBad, 5000},
      {"more than the buffer inside", kMagic + Le32Bytes(100) + Record(kBlock + 200, 'z').substr(4), kBad, kBad, 0},
  };
  for (const auto& [name, bytes, readError, checkError, bytesRead] : cases) {
    SCOPED_TRACE(name);
    WriteBytes(path, bytes);
    C_FILE direct(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
    std::vector<char> all(20000);
    int got = -1;
    direct.Read(static_cast<int>(all.size()), all.data(), &got);
    EXPECT_EQ(TakeError(), readError);
    EXPECT_EQ(got, bytesRead);
    C_FILE::CheckCompression(LibraryPath(path));
    EXPECT_EQ(TakeError(), checkError);
    // The temporary route takes a cut record as the end of the blocks.
    C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::COMPRESSED);
    EXPECT_EQ(TakeError(), readError == kBad ? kBad : nullptr);
    EXPECT_EQ(file.GetSize(), bytesRead);
  }
  // A file without blocks has no position to go to.
  WriteBytes(path, kMagic);
  C_FILE file(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
  file.SetPosit(0);
  EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
  // Garbage in place of zlib data is a data error, which readers take as a
  // block holding what came out before it: here nothing.
  WriteBytes(path, kMagic + Le32Bytes(100) + Le32Bytes(20) + std::string(20, '\x55') + good);
  EXPECT_EQ(ReadWhole(path, C_FILE::READ), std::string(5000, 'g'));

  // Writing in place.
  const std::string cross = dir.File("cross.qz");
  const std::string data = RandomBytes(3 * kBlock);
  {
    C_FILE file(LibraryPath(path), C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    for (std::size_t at = 0; at < data.size(); at += 4096) file.Write(4096, data.data() + at);
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

  // The switch cannot be turned off, and alone makes no compressed file.
  C_FILE text(LibraryPath(dir.File("t.txt")), C_FILE::WRITE, C_FILE::TEXT);
  text.SetCompressed(true);
  text.SetCompressed(false);
  EXPECT_EQ(text.GetType(), C_FILE::BINARY);
  EXPECT_TRUE(text.IsCompressed());
  text.Write(C_STRING(u"x"));
  EXPECT_EQ(TakeError(), nullptr);
}

TEST_F(Compressed, PositionsRefusedInPlaceUnlessReading) {
  WriteCompressed(path, "payload");
  const std::string stored = ReadBytes(path);
  for (const int mode : {C_FILE::UPDATE, C_FILE::WRITE}) {
    SCOPED_TRACE(mode);
    {
      C_FILE file(LibraryPath(path), mode | C_FILE::DIRECT, C_FILE::COMPRESSED);
      ASSERT_EQ(TakeError(), nullptr);
      std::string bytes(4, '\0');
      if (mode == C_FILE::UPDATE) {
        file.Read(4, bytes.data());
        EXPECT_EQ(bytes, "QORC");
      }
      EXPECT_EQ(file.GetPosit(), 0);
      EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
      file.SetPosit(0);
      EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
      file.Rewind();
      EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
      file.Unwind();
      EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
      EXPECT_EQ(file.GetLine(), 0);
      EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
      if (mode == C_FILE::UPDATE) {
        // None of the refused calls moved the stream.
        file.Read(4, bytes.data());
        EXPECT_EQ(bytes, "OMPR");
      }
    }
    // Update works on the stored bytes, never recompressing; writing in place starts afresh.
    EXPECT_EQ(ReadBytes(path), mode == C_FILE::UPDATE ? stored : kMagic);
  }
}
