// The checksums give zlib's CRC-32 and Adler-32 for every length and alignment.
#include <gtest/gtest.h>
#include <qorc/qorc.h>
#include <zlib.h>

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

}  // namespace
