// The checksums give zlib's CRC-32 and Adler-32 for every length and alignment.
#include <gtest/gtest.h>
#include <qorc/qorc.h>
#include <zlib.h>

#include <random>
#include <vector>

namespace {

TEST(ChecksumsAgainstZlib, EveryLengthAndAlignment) {
  std::mt19937 random(17);
  std::vector<unsigned char> bytes((1 << 20) + 64);
  for (unsigned char& b : bytes) b = static_cast<unsigned char>(random());
  auto zlibCrc = [&](int offset, int size) {
    return static_cast<unsigned int>(crc32(crc32(0L, Z_NULL, 0), bytes.data() + offset, static_cast<uInt>(size)));
  };
  auto zlibAdler = [&](int offset, int size) {
    return static_cast<unsigned int>(adler32(adler32(0L, Z_NULL, 0), bytes.data() + offset, static_cast<uInt>(size)));
  };
  for (int offset = 0; offset < 16; ++offset) {
    for (int size = 0; size <= 600; ++size) {
      ASSERT_EQ(CchecksumCRC(size, bytes.data() + offset), zlibCrc(offset, size)) << offset << " " << size;
      ASSERT_EQ(CchecksumAdler(size, bytes.data() + offset), zlibAdler(offset, size)) << offset << " " << size;
    }
  }
  // Lengths around Adler-32's reduction interval (5552) and large buffers,
  // including one of all 0xFF, the sums' worst case.
  std::vector<unsigned char> ones(3 << 20, 0xFF);
  for (int size : {5551, 5552, 5553, 65536, 1 << 20}) {
    EXPECT_EQ(CchecksumCRC(size, bytes.data() + 3), zlibCrc(3, size)) << size;
    EXPECT_EQ(CchecksumAdler(size, bytes.data() + 3), zlibAdler(3, size)) << size;
    EXPECT_EQ(CchecksumAdler(size, ones.data()), static_cast<unsigned int>(adler32(1, ones.data(), size))) << size;
  }
  const int large = static_cast<int>(ones.size());
  EXPECT_EQ(CchecksumAdler(large, ones.data()), static_cast<unsigned int>(adler32(1, ones.data(), large)));
  EXPECT_EQ(CchecksumCRC(large, ones.data()), static_cast<unsigned int>(crc32(0, ones.data(), large)));
}

}  // namespace
