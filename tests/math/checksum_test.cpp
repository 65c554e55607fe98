// The checksums give zlib's CRC-32 and Adler-32 for every length and alignment.
#include <gtest/gtest.h>
#include <qorc/qorc.h>
#include <zlib.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

bool SameAsZlib(const unsigned char* data, int size) {
  return CchecksumCRC(size, data) == static_cast<unsigned int>(crc32(0, data, static_cast<uInt>(size))) &&
         CchecksumAdler(size, data) == static_cast<unsigned int>(adler32(1, data, static_cast<uInt>(size)));
}

TEST(ChecksumsAgainstZlib, EveryLengthAndAlignment) {
  std::mt19937 random(17);
  std::vector<unsigned char> bytes((3 << 20) + 16), ones(3 << 20, 0xFF);
  for (unsigned char& b : bytes) b = static_cast<unsigned char>(random());
  for (int offset = 0; offset < 16; ++offset) {
    for (int size = 0; size <= 600; ++size)
      ASSERT_TRUE(SameAsZlib(bytes.data() + offset, size)) << offset << " " << size;
  }
  // Lengths around Adler-32's reduction interval (5552) and large buffers,
  // also of all 0xFF, the sums' worst case.
  for (int size : {5551, 5552, 5553, 65536, 1 << 20, 3 << 20}) {
    EXPECT_TRUE(SameAsZlib(bytes.data() + 3, size)) << size;
    EXPECT_TRUE(SameAsZlib(ones.data(), size)) << size;
  }
}

TEST(ChecksumsAgainstZlib, ContinueOverSplitBuffersAsZlibDoes) {
  std::mt19937 random(23);
  std::vector<unsigned char> bytes(200000);
  for (unsigned char& b : bytes) b = static_cast<unsigned char>(random());
  const int total = static_cast<int>(bytes.size());
  const unsigned int wholeCrc = CchecksumCRC(total, bytes.data());
  const unsigned int wholeAdler = CchecksumAdler(total, bytes.data());
  // Pieces of every kind of length: empty, single bytes, around Adler-32's
  // reduction interval, large.
  for (int piece : {1, 7, 5552, 5553, 65536, 100000}) {
    unsigned int crc = CchecksumCRC(0, bytes.data());
    unsigned int adler = CchecksumAdler(0, bytes.data());
    uLong zlibCrc = crc32(0, Z_NULL, 0), zlibAdler = adler32(0, Z_NULL, 0);
    for (int at = 0; at < total; at += piece) {
      const int size = std::min(piece, total - at);
      crc = CchecksumCRC(size, bytes.data() + at, crc);
      adler = CchecksumAdler(size, bytes.data() + at, adler);
      zlibCrc = crc32(zlibCrc, bytes.data() + at, static_cast<uInt>(size));
      zlibAdler = adler32(zlibAdler, bytes.data() + at, static_cast<uInt>(size));
      ASSERT_EQ(crc, static_cast<unsigned int>(zlibCrc)) << piece << " " << at;
      ASSERT_EQ(adler, static_cast<unsigned int>(zlibAdler)) << piece << " " << at;
      // No bytes leave the sum as it is.
      ASSERT_EQ(CchecksumCRC(0, bytes.data(), crc), crc);
      ASSERT_EQ(CchecksumAdler(-1, bytes.data(), adler), adler);
    }
    EXPECT_EQ(crc, wholeCrc) << piece;
    EXPECT_EQ(adler, wholeAdler) << piece;
  }
  // A null pointer asks for the initial value, as it does of zlib.
  EXPECT_EQ(CchecksumCRC(10, nullptr, 1234u), static_cast<unsigned int>(crc32(1234u, Z_NULL, 10)));
  EXPECT_EQ(CchecksumAdler(10, nullptr, 1234u), static_cast<unsigned int>(adler32(1234u, Z_NULL, 10)));
}

}  // namespace
