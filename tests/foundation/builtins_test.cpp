// The two-word 128-bit arithmetic that targets without a 128-bit integer use
// (32-bit Windows), checked against the compiler's own where it has one.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>

#include "foundation/builtins.h"

namespace {

#if defined(__SIZEOF_INT128__)
using Native = unsigned __int128;

Native NativeOf(qorc::Uint128Words value) {
  return static_cast<Native>(static_cast<std::uint64_t>(value >> 64)) << 64 | static_cast<std::uint64_t>(value);
}

qorc::Uint128Words WordsOf(Native value) {
  return qorc::Uint128Words(static_cast<std::uint64_t>(value >> 64), static_cast<std::uint64_t>(value));
}
#endif

TEST(Uint128Words, AgreesWithTheCompilersIntegerModulo2To128) {
#if defined(__SIZEOF_INT128__)
  std::mt19937_64 random(128);
  // Random words, and the edges where carries and borrows cross the halves.
  const std::uint64_t edges[] = {0, 1, 0xFFFFFFFFu, 0x100000000u, ~std::uint64_t{0}, std::uint64_t{1} << 63};
  for (int i = 0; i < 20000; ++i) {
    const Native a = static_cast<Native>(i < 36 ? edges[i % 6] : random()) << 64 | (i < 36 ? edges[i / 6] : random());
    const Native b = static_cast<Native>(random()) << 64 | (i % 3 == 0 ? edges[i % 6] : random());
    const int shift = static_cast<int>(random() % 128);
    const qorc::Uint128Words x = WordsOf(a), y = WordsOf(b);
    ASSERT_TRUE(NativeOf(x + y) == a + b) << i;
    ASSERT_TRUE(NativeOf(x - y) == a - b) << i;
    ASSERT_TRUE(NativeOf(x * y) == a * b) << i;
    ASSERT_TRUE(NativeOf(x >> shift) == a >> shift) << i << " >> " << shift;
    ASSERT_TRUE(NativeOf(x << shift) == a << shift) << i << " << " << shift;
    ASSERT_TRUE(NativeOf(x | y) == (a | b) && NativeOf(x & y) == (a & b)) << i;
    ASSERT_EQ(x < y, a < b) << i;
    ASSERT_EQ(x == y, a == b) << i;
    qorc::Uint128Words sum = x;
    sum += y;
    ASSERT_TRUE(sum == x + y);
  }
#else
  GTEST_SKIP() << "this target has no 128-bit integer to check against; the 64-bit builds check the same code";
#endif
}

}  // namespace
