#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <vector>

#include "math/generators.h"

namespace {

struct IntRandStateGuard {
  unsigned int saved = qorc::IntRandState();
  ~IntRandStateGuard() { qorc::SetIntRandState(saved); }
};

TEST(MathTrigonometry, WorksInDegreesWithGuardedInverses) {
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_FALSE(CmathIsFinite(inf) || CmathIsFinite(-inf) || CmathIsFinite(std::nan("")) || !CmathIsFinite(1e308));
  EXPECT_NEAR(CmathTan(45.0), 1.0, 1e-15);
  EXPECT_DOUBLE_EQ(CmathSinH(180.0), std::sinh(std::acos(-1.0)));  // degrees here too
  EXPECT_NEAR(CmathAtan2(-1.0, -1.0), -135.0, 1e-13);
  double sine = 0, cosine = 0;  // either result of the pair may be left out
  CmathSinCos(60.0, nullptr, &cosine);
  CmathSinCos(-30.0, &sine, nullptr);
  EXPECT_TRUE(std::fabs(cosine - 0.5) < 1e-15 && std::fabs(sine + 0.5) < 1e-15) << cosine << " " << sine;
  // The inverse functions give the end angles near and beyond +-1.
  EXPECT_TRUE(std::fabs(CmathAsin(0.5) - 30.0) < 1e-13 && std::fabs(CmathAcos(0.5) - 60.0) < 1e-13);
  for (double x : {1.0, 1.5}) {
    EXPECT_TRUE(CmathAsin(x) == 90 && CmathAsin(-x) == -90 && CmathAcos(x) == 0 && CmathAcos(-x) == 180) << x;
  }
  EXPECT_TRUE(CmathAsin(0.9999999999989) < 90.0 && CmathAcos(0.9999999999989) > 0.0);
  // The lower limits differ: -0.999999999999 itself is clamped by the arc
  // sine but computed by the arc cosine.
  EXPECT_EQ(CmathAsin(-0.999999999999), -90.0);
  EXPECT_NEAR(CmathAcos(-0.999999999999), 180.0 - 8.1e-5, 1e-6);
  EXPECT_EQ(CmathAcos(-0.9999999999991), 180.0);
}

TEST(MathArithmetic, RoundModCanDivAndInterpolate) {
  // Halves go up, also just below a half within the tolerance.
  const double rounds[][2] = {{2.5, 3},   {-2.5, -2}, {2.4999999999995, 3},  {2.49999999, 2}, {-3, -3},
                              {-2.6, -3}, {0.4, 0},   {1e15 + 0.5, 1e15 + 1}};
  for (const auto& row : rounds) EXPECT_EQ(CmathRound(row[0]), row[1]) << row[0];
  // Negative remainders are shifted by the divisor, whatever its sign.
  const double mods[][3] = {{7, 3, 1}, {-1, 3, 2}, {-1, -3, -4}, {1, -3, 1}, {6, 3, 0}};
  for (const auto& row : mods) EXPECT_EQ(CmathMod(row[0], row[1]), row[2]) << row[0] << " " << row[1];
  EXPECT_NEAR(CmathMod(-370.0, 360.0), 350.0, 1e-12);
  // Division is allowed with a relative tolerance.
  EXPECT_FALSE(CmathCanDiv(1000, 1e-10) || CmathCanDiv(1000, -1e-10) || CmathCanDiv(0, 0) || CmathCanDiv(1, 0));
  EXPECT_TRUE(CmathCanDiv(1000, 1e-8) && CmathCanDiv(-1000, -1e-8) && CmathCanDiv(0, 1e-300));
  EXPECT_EQ(CmathInterpolate(0, 10, 10, 20, 20), 30.0);
}

TEST(MathRand, RuntimeDrawsFollowTheHostsSrand) {
  IntRandStateGuard guard;
  // After srand(s) both functions scale the same draws of rand(), reduced
  // to 0..32767 as its top 15 bits; srand(s) again repeats them.
  for (unsigned int seed : {1u, 77u, 0xDEADBEEFu}) {
    std::srand(seed);
    std::vector<int> expected;
    // (The Microsoft runtime's rand() has 15 bits already.)
    for (int i = 0; i < 64; ++i) expected.push_back(std::rand() >> (RAND_MAX == 0x7FFF ? 0 : 16));
    std::srand(seed);
    for (int i = 0; i < 64; ++i) {
      const double value = i % 2 == 0 ? CmathRand() * 32767 : CmathRandPer() * 32768;
      ASSERT_EQ(value, expected[static_cast<size_t>(i)]) << seed << " " << i;
    }
  }
  // The range: CmathRand reaches both ends of [0, 1], CmathRandPer stays below 1.
  std::srand(5);
  double lowest = 1, highest = 0, highestPer = 0;
  for (int i = 0; i < 400000; ++i) {
    const double value = CmathRand();
    lowest = std::min(lowest, value);
    highest = std::max(highest, value);
    highestPer = std::max(highestPer, CmathRandPer());
  }
  EXPECT_TRUE(lowest == 0.0 && highest == 1.0 && highestPer == 32767 / 32768.0) << lowest << highest << highestPer;
  // The library's own generator is another one: srand and rand do not move it.
  qorc::SetIntRandState(0x12345678u);
  std::srand(9);
  CmathRand();
  EXPECT_EQ(CmathIntRand(), 706275741u);
}

TEST(MathRand, CopenSeedsBothGeneratorsWithTheTime) {
  IntRandStateGuard guard;
  const unsigned int before = static_cast<unsigned int>(std::time(nullptr));
  Copen();
  const unsigned int after = static_cast<unsigned int>(std::time(nullptr));
  const unsigned int intState = qorc::IntRandState();
  const int draws[] = {std::rand(), std::rand(), std::rand()};
  bool found = false;
  for (unsigned int seconds = before; seconds <= after && !found; ++seconds) {
    std::srand(seconds);
    found = std::rand() == draws[0] && std::rand() == draws[1] && std::rand() == draws[2] && intState == seconds;
  }
  EXPECT_TRUE(found);
}

TEST(MathRand, IntegerGeneratorFromItsState) {
  IntRandStateGuard guard;
  // The integer generator from the load state; the unreduced sum is kept, with
  // no final subtraction past 2^31 - 1, and the state is the number drawn plus one.
  const unsigned int draws[][2] = {{0x12345678u, 706275741u}, {0x80000000u, 16806u}, {0xFFFFFFFFu, 0x800041A5u}};
  for (const auto& row : draws) {
    qorc::SetIntRandState(row[0]);
    EXPECT_TRUE(CmathIntRand() == row[1] && qorc::IntRandState() == row[1] + 1) << row[0];
  }
  // A seed sets the state; seeding with 0 keeps it.
  qorc::SeedIntRand(42);
  qorc::SeedIntRand(0);
  EXPECT_EQ(CmathIntRand(), 42u * 16807u - 1);
}

TEST(MathIntSqrt, ExactAtTheEdgesOfEveryRange) {
  // Root r owns r^2 to (r + 1)^2 - 1: every value below 2^22 (every table
  // estimate of the first ranges), then both ends of each other root's run.
  for (unsigned long long r = 0; r < 65536; ++r) {
    const unsigned long long low = r * r, high = (r + 1) * (r + 1) - 1;
    for (unsigned long long n = low; n <= high; n += r < 2048 ? 1 : high - low)
      ASSERT_EQ(CmathIntSqrt(static_cast<unsigned int>(n)), r) << n;
  }
}

TEST(MathIsPrime, KeepsItsParityRule) {
  IntRandStateGuard guard;
  for (unsigned int n : {0u, 1u, 2u, 3u}) EXPECT_TRUE(CmathIsPrime(n)) << n;
  // Odd numbers above 3, primes included, are reported not prime, and so are
  // even numbers with a factor 3, 5 or 7.
  for (unsigned int n : {5u, 97u, 2147483647u, 4294967291u, 4294967295u, 6u, 10u, 14u, 4294967290u})
    EXPECT_FALSE(CmathIsPrime(n)) << n;
  // Other even numbers go through random-base rounds whose squarings may never
  // reach 1 or n - 1; the test still ends.
  for (unsigned int n = 0xFFFFFFFEu; n > 0xFFFFFFFEu - 40000; n -= 2) CmathIsPrime(n);
  // 5^25 = 5 and 5^2 = 25 = -1 modulo 26, so a state that draws only bases
  // congruent to 1, 5, 21 or 25 modulo 26 must pass 26, and any other must not.
  for (unsigned int seed = 1; seed < 200000; ++seed) {
    qorc::SetIntRandState(seed);
    bool allPass = true;
    for (int round = 0; round < 5 && allPass; ++round) {
      const unsigned int a = CmathIntRand() % 26;
      allPass = a == 1 || a == 5 || a == 21 || a == 25;
    }
    qorc::SetIntRandState(seed);
    ASSERT_EQ(static_cast<bool>(CmathIsPrime(26)), allPass) << seed;
  }
}

TEST(MathBits, RotationsSwapsCountsAndSingleBits) {
  EXPECT_TRUE(CmathIntRol(0x80000001u, 1) == 3u && CmathIntRol(0x12345678u, 36) == 0x23456781u);
  EXPECT_TRUE(CmathIntRol(0x12345678u, -4) == 0x81234567u && CmathIntRor(0x12345678u, 68) == 0x81234567u);
  EXPECT_EQ(CmathIntSwapBytes(0x12345678u), 0x78563412u);
  // value, bits set, parity, reversed, lowest bit, highest bit, index of the highest bit
  const unsigned int rows[][7] = {{0, 0, 0, 0, 0, 0, ~0u},
                                  {0x12345678u, 13, 1, 0x1E6A2C48u, 8, 0x10000000u, 28},
                                  {0x80000001u, 2, 0, 0x80000001u, 1, 0x80000000u, 31},
                                  {0xFFFFFFFFu, 32, 0, 0xFFFFFFFFu, 1, 0x80000000u, 31}};
  for (const auto& r : rows) {
    EXPECT_EQ(static_cast<unsigned int>(CmathBitCount32(r[0])), r[1]) << r[0];
    EXPECT_EQ(static_cast<unsigned int>(CmathBitGetParity32(r[0])), r[2]) << r[0];
    EXPECT_EQ(CmathBitReverse32(r[0]), r[3]) << r[0];
    EXPECT_TRUE(CmathBitGetLSB(r[0]) == r[4] && CmathBitGetMSB(r[0]) == r[5]) << r[0];
    EXPECT_EQ(CmathBitGetPower2(r[0]), static_cast<int>(r[6])) << r[0];
  }
  EXPECT_TRUE(CmathBitCount8(0x81) == 2 && CmathBitCount8(0xFF) == 8 && CmathBitReverse8(0x36) == 0x6C);
  EXPECT_TRUE(CmathBitGetParity8(0x07) && !CmathBitGetParity8(0x81));
}

// Agreement with zlib over all lengths is tested in checksum_test.cpp.
TEST(Checksums, PublishedCheckValuesAndInitialValuesForNothing) {
  EXPECT_TRUE(CchecksumCRC(9, "123456789") == 0xCBF43926u && CchecksumAdler(9, "123456789") == 0x091E01DEu);
  for (int size : {0, -5}) EXPECT_TRUE(CchecksumCRC(size, "1") == 0 && CchecksumAdler(size, "1") == 1) << size;
  EXPECT_TRUE(CchecksumCRC(10, nullptr) == 0 && CchecksumAdler(10, nullptr) == 1 && !C_ERROR::Is());
}

}  // namespace
