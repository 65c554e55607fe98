#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "math/generators.h"

namespace {

// Restores the library generator's state when a test has set it.
class IntRandStateGuard {
 public:
  IntRandStateGuard() : saved_(qorc::IntRandState()) {}
  ~IntRandStateGuard() { qorc::SetIntRandState(saved_); }

 private:
  unsigned int saved_;
};

TEST(MathWrappers, FollowTheRuntime) {
  EXPECT_DOUBLE_EQ(CmathExp(1.0), std::exp(1.0));
  EXPECT_DOUBLE_EQ(CmathLog(10.0), std::log(10.0));
  EXPECT_DOUBLE_EQ(CmathPow(2.0, 10.0), 1024.0);
  EXPECT_DOUBLE_EQ(CmathSqrt(2.0), std::sqrt(2.0));
  EXPECT_EQ(CmathCeil(-1.5), -1.0);
  EXPECT_EQ(CmathFloor(-1.5), -2.0);
  EXPECT_EQ(CmathAbs(-3.25), 3.25);
  EXPECT_TRUE(std::isnan(CmathSqrt(-1.0)));
  EXPECT_TRUE(CmathIsFinite(1e308));
  EXPECT_FALSE(CmathIsFinite(std::numeric_limits<double>::infinity()));
  EXPECT_FALSE(CmathIsFinite(-std::numeric_limits<double>::infinity()));
  EXPECT_FALSE(CmathIsFinite(std::numeric_limits<double>::quiet_NaN()));
}

TEST(MathTrigonometry, WorksInDegrees) {
  EXPECT_NEAR(CmathSin(30.0), 0.5, 1e-15);
  EXPECT_NEAR(CmathCos(60.0), 0.5, 1e-15);
  EXPECT_NEAR(CmathTan(45.0), 1.0, 1e-15);
  EXPECT_NEAR(CmathSin(-90.0), -1.0, 1e-15);
  double sine = 0;
  double cosine = 0;
  CmathSinCos(120.0, &sine, &cosine);
  EXPECT_NEAR(sine, std::sqrt(3.0) / 2, 1e-15);
  EXPECT_NEAR(cosine, -0.5, 1e-15);
  CmathSinCos(30.0, nullptr, &cosine);
  EXPECT_NEAR(cosine, std::sqrt(3.0) / 2, 1e-15);
  CmathSinCos(30.0, &sine, nullptr);
  EXPECT_NEAR(sine, 0.5, 1e-15);

  // The hyperbolic functions convert their argument from degrees as well.
  EXPECT_DOUBLE_EQ(CmathSinH(180.0), std::sinh(M_PI));
  EXPECT_DOUBLE_EQ(CmathCosH(57.29577951308232), std::cosh(1.0));
  EXPECT_EQ(CmathCosH(0.0), 1.0);

  EXPECT_NEAR(CmathAtan(1.0), 45.0, 1e-13);
  EXPECT_NEAR(CmathAtan2(1.0, -1.0), 135.0, 1e-13);
  EXPECT_NEAR(CmathAtan2(-1.0, -1.0), -135.0, 1e-13);
  EXPECT_NEAR(CmathAtan2(0.0, -1.0), 180.0, 1e-13);
}

TEST(MathTrigonometry, InverseFunctionsAreGuardedNearTheEnds) {
  EXPECT_NEAR(CmathAsin(0.5), 30.0, 1e-13);
  EXPECT_NEAR(CmathAcos(0.5), 60.0, 1e-13);
  EXPECT_EQ(CmathAsin(1.0), 90.0);
  EXPECT_EQ(CmathAsin(1.5), 90.0);
  EXPECT_EQ(CmathAsin(-1.0), -90.0);
  EXPECT_EQ(CmathAsin(-2.0), -90.0);
  EXPECT_EQ(CmathAcos(1.0), 0.0);
  EXPECT_EQ(CmathAcos(3.0), 0.0);
  EXPECT_EQ(CmathAcos(-1.0), 180.0);
  EXPECT_EQ(CmathAcos(-1.5), 180.0);

  // Just beyond the limits on the inside, the functions compute.
  EXPECT_LT(CmathAsin(0.9999999999989), 90.0);
  EXPECT_GT(CmathAcos(0.9999999999989), 0.0);

  // The lower limits differ: -0.999999999999 itself is clamped by the arc
  // sine but computed by the arc cosine.
  EXPECT_EQ(CmathAsin(-0.999999999999), -90.0);
  const double computed = CmathAcos(-0.999999999999);
  EXPECT_LT(computed, 180.0);
  EXPECT_NEAR(computed, 180.0, 1e-4);
  EXPECT_EQ(CmathAcos(-0.9999999999991), 180.0);
}

TEST(MathRound, HalvesGoUp) {
  EXPECT_EQ(CmathRound(2.5), 3.0);
  EXPECT_EQ(CmathRound(-2.5), -2.0);
  EXPECT_EQ(CmathRound(2.4999999999995), 3.0);
  EXPECT_EQ(CmathRound(2.49999999), 2.0);
  EXPECT_EQ(CmathRound(3.0), 3.0);
  EXPECT_EQ(CmathRound(-3.0), -3.0);
  EXPECT_EQ(CmathRound(-2.6), -3.0);
  EXPECT_EQ(CmathRound(0.4), 0.0);
  EXPECT_EQ(CmathRound(1e15 + 0.5), 1e15 + 1);
}

TEST(MathMod, NegativeRemaindersAreShifted) {
  EXPECT_EQ(CmathMod(7, 3), 1.0);
  EXPECT_EQ(CmathMod(-1, 3), 2.0);
  EXPECT_EQ(CmathMod(-1, -3), -4.0);
  EXPECT_EQ(CmathMod(1, -3), 1.0);
  EXPECT_NEAR(CmathMod(-370.0, 360.0), 350.0, 1e-12);
  EXPECT_EQ(CmathMod(6, 3), 0.0);
}

TEST(MathCanDiv, UsesARelativeTolerance) {
  EXPECT_FALSE(CmathCanDiv(1000, 1e-10));
  EXPECT_TRUE(CmathCanDiv(1000, 1e-8));
  EXPECT_FALSE(CmathCanDiv(1000, -1e-10));
  EXPECT_TRUE(CmathCanDiv(-1000, -1e-8));
  EXPECT_TRUE(CmathCanDiv(0, 1e-300));
  EXPECT_FALSE(CmathCanDiv(0, 0));
  EXPECT_FALSE(CmathCanDiv(1, 0));
}

TEST(MathInterpolate, FollowsTheLine) {
  EXPECT_EQ(CmathInterpolate(0, 10, 10, 20, 5), 15.0);
  EXPECT_EQ(CmathInterpolate(0, 10, 10, 20, 20), 30.0);
  EXPECT_EQ(CmathInterpolate(2, 4, 1, 2, 0), 0.0);
}

TEST(MathRand, RuntimeGeneratorRanges) {
  qorc::SeedRuntimeRand(1);
  // The runtime's first numbers for seed 1.
  EXPECT_DOUBLE_EQ(CmathRand(), 41 / 32767.0);
  EXPECT_DOUBLE_EQ(CmathRandPer(), 18467 / 32768.0);
  double low = 1;
  double high = 0;
  for (int i = 0; i < 200000; ++i) {
    const double r = CmathRand();
    const double p = CmathRandPer();
    ASSERT_GE(r, 0.0);
    ASSERT_LE(r, 1.0);
    ASSERT_GE(p, 0.0);
    ASSERT_LT(p, 1.0);
    low = std::min(low, r);
    high = std::max(high, r);
  }
  EXPECT_EQ(low, 0.0);
  EXPECT_EQ(high, 1.0);
}

TEST(MathIntRand, SequenceFromTheLoadState) {
  IntRandStateGuard guard;
  qorc::SetIntRandState(0x12345678);
  EXPECT_EQ(CmathIntRand(), 706275741u);
  EXPECT_EQ(qorc::IntRandState(), 0x2A18E99Eu);
  // The same seed repeats the sequence; seeding with 0 keeps the state.
  qorc::SeedIntRand(42);
  const unsigned int first = CmathIntRand();
  const unsigned int second = CmathIntRand();
  qorc::SeedIntRand(42);
  qorc::SeedIntRand(0);
  EXPECT_EQ(CmathIntRand(), first);
  EXPECT_EQ(CmathIntRand(), second);
  EXPECT_EQ(first, 42u * 16807u - 1);
}

TEST(MathIntRand, KeepsTheUnreducedSum) {
  IntRandStateGuard guard;
  qorc::SetIntRandState(0x80000000u);
  // 2^31 * 16807: high part 16807, low part 0.
  EXPECT_EQ(CmathIntRand(), 16806u);
  // A state whose reduced sum passes 2^31 - 1 keeps it: no final subtraction.
  qorc::SetIntRandState(0xFFFFFFFFu);
  const unsigned long long product = 0xFFFFFFFFull * 16807ull;
  const unsigned int expected = static_cast<unsigned int>((product >> 31) + (product & 0x7FFFFFFF));
  EXPECT_GT(expected, 0x7FFFFFFFu);
  EXPECT_EQ(CmathIntRand(), expected - 1);
}

unsigned int ExactRoot(unsigned int n) {
  unsigned long long r = static_cast<unsigned long long>(std::sqrt(static_cast<double>(n)));
  while (r * r > n) --r;
  while ((r + 1) * (r + 1) <= n) ++r;
  return static_cast<unsigned int>(r);
}

TEST(MathIntSqrt, ExactAtTheEdgesOfEveryRange) {
  EXPECT_EQ(CmathIntSqrt(0), 0u);
  EXPECT_EQ(CmathIntSqrt(1), 1u);
  EXPECT_EQ(CmathIntSqrt(255), 15u);
  EXPECT_EQ(CmathIntSqrt(0xFFFFFFFFu), 65535u);
  EXPECT_EQ(CmathIntSqrt(65535u * 65535u), 65535u);
  EXPECT_EQ(CmathIntSqrt(65535u * 65535u - 1), 65534u);
  // Every value below 2^22 (every table estimate of the first ranges), and
  // around each perfect square and power of two above.
  for (unsigned int n = 0; n < (1u << 22); ++n) ASSERT_EQ(CmathIntSqrt(n), ExactRoot(n)) << n;
  for (unsigned int r = 2048; r < 65536; ++r) {
    const unsigned int square = r * r;
    for (unsigned int n = square - 2; n != square + 3; ++n) ASSERT_EQ(CmathIntSqrt(n), ExactRoot(n)) << n;
  }
  for (int shift = 22; shift < 32; ++shift) {
    const unsigned int power = 1u << shift;
    for (unsigned int n = power - 3; n != power + 3; ++n) ASSERT_EQ(CmathIntSqrt(n), ExactRoot(n)) << n;
  }
}

TEST(MathIsPrime, KeepsItsParityRule) {
  EXPECT_TRUE(CmathIsPrime(0));
  EXPECT_TRUE(CmathIsPrime(1));
  EXPECT_TRUE(CmathIsPrime(2));
  EXPECT_TRUE(CmathIsPrime(3));
  // Odd numbers above 3, primes included, are reported not prime.
  for (unsigned int n : {5u, 7u, 13u, 97u, 7919u, 2147483647u, 4294967291u, 9u, 15u, 4294967295u})
    EXPECT_FALSE(CmathIsPrime(n)) << n;
  // Even numbers with a factor 3, 5 or 7 are not prime.
  for (unsigned int n : {6u, 10u, 14u, 30u, 4294967290u}) EXPECT_FALSE(CmathIsPrime(n)) << n;
}

TEST(MathIsPrime, EvenNumbersAlwaysGetAnAnswer) {
  IntRandStateGuard guard;
  // Even numbers go through random-base rounds whose squarings may never reach
  // 1 or n - 1; the test still ends for each of them. 4 has a^3 = 1 or 3 only
  // for odd bases, so some seed must reject it.
  for (unsigned int n = 4; n < 20000; n += 2) {
    const C_BOOL answer = CmathIsPrime(n);
    (void)answer;
  }
  for (unsigned int n = 0xFFFFFFFEu; n > 0xFFFFFFFEu - 20000; n -= 2) {
    const C_BOOL answer = CmathIsPrime(n);
    (void)answer;
  }
  // With bases 0 to n - 1 drawn at random, 4 is rejected for some state and
  // never loops: base 0 or 2 gives 0, which squares to 0 for ever.
  bool rejected = false;
  for (unsigned int seed = 1; seed < 50 && !rejected; ++seed) {
    qorc::SeedIntRand(seed);
    rejected = !CmathIsPrime(4);
  }
  EXPECT_TRUE(rejected);
  // A round through n - 1: 5^25 = 5 and 5^2 = 25 = -1 modulo 26, so a state
  // that draws only bases congruent to 1 or 5 modulo 26 must pass 26. Find
  // states by the first draw and check that the answer follows the bases.
  for (unsigned int seed = 1; seed < 200000; ++seed) {
    qorc::SetIntRandState(seed);
    bool allPass = true;
    for (int round = 0; round < 5 && allPass; ++round) {
      const unsigned int a = CmathIntRand() % 26;
      allPass = a == 1 || a == 5 || a == 21 || a == 25;
    }
    qorc::SetIntRandState(seed);
    EXPECT_EQ(static_cast<int>(CmathIsPrime(26)), allPass ? 1 : 0) << seed;
  }
}

TEST(MathBits, RotationsAndSwaps) {
  EXPECT_EQ(CmathIntRol(0x80000001u, 1), 0x00000003u);
  EXPECT_EQ(CmathIntRol(0x12345678u, 0), 0x12345678u);
  EXPECT_EQ(CmathIntRol(0x12345678u, 32), 0x12345678u);
  EXPECT_EQ(CmathIntRol(0x12345678u, 36), 0x23456781u);
  EXPECT_EQ(CmathIntRol(0x12345678u, -4), 0x81234567u);
  EXPECT_EQ(CmathIntRor(0x12345678u, 4), 0x81234567u);
  EXPECT_EQ(CmathIntRor(0x00000003u, 1), 0x80000001u);
  EXPECT_EQ(CmathIntRor(0x12345678u, 64), 0x12345678u);
  EXPECT_EQ(CmathIntSwapBytes(0x12345678u), 0x78563412u);
}

TEST(MathBits, CountsReversalsAndSingleBits) {
  EXPECT_EQ(CmathBitCount32(0), 0);
  EXPECT_EQ(CmathBitCount32(0xFFFFFFFFu), 32);
  EXPECT_EQ(CmathBitCount32(0x80000001u), 2);
  EXPECT_EQ(CmathBitCount8(0xFF), 8);
  EXPECT_EQ(CmathBitCount8(0x81), 2);
  EXPECT_EQ(CmathBitReverse32(1u), 0x80000000u);
  EXPECT_EQ(CmathBitReverse32(0x12345678u), 0x1E6A2C48u);
  EXPECT_EQ(CmathBitReverse8(0x01), 0x80);
  EXPECT_EQ(CmathBitReverse8(0x36), 0x6C);
  for (unsigned int b = 0; b < 256; ++b) {
    EXPECT_EQ(CmathBitReverse8(CmathBitReverse8(static_cast<unsigned char>(b))), b);
    EXPECT_EQ(static_cast<int>(CmathBitGetParity8(static_cast<unsigned char>(b))),
              CmathBitCount8(static_cast<unsigned char>(b)) % 2);
  }
  EXPECT_EQ(CmathBitGetLSB(12), 4u);
  EXPECT_EQ(CmathBitGetLSB(0), 0u);
  EXPECT_EQ(CmathBitGetLSB(0x80000000u), 0x80000000u);
  EXPECT_EQ(CmathBitGetMSB(0x80000001u), 0x80000000u);
  EXPECT_EQ(CmathBitGetMSB(12), 8u);
  EXPECT_EQ(CmathBitGetMSB(0), 0u);
  EXPECT_EQ(CmathBitGetPower2(0), -1);
  EXPECT_EQ(CmathBitGetPower2(1), 0);
  EXPECT_EQ(CmathBitGetPower2(12), 3);
  EXPECT_EQ(CmathBitGetPower2(0xFFFFFFFFu), 31);
  EXPECT_TRUE(CmathBitGetParity32(0x80000000u));
  EXPECT_FALSE(CmathBitGetParity32(0x80000001u));
  EXPECT_FALSE(CmathBitGetParity32(0));
  EXPECT_TRUE(CmathBitGetParity32(0x7u));
}

TEST(Checksums, MatchThePublishedCheckValues) {
  const char text[] = "123456789";
  EXPECT_EQ(CchecksumCRC(9, text), 0xCBF43926u);
  EXPECT_EQ(CchecksumAdler(9, text), 0x091E01DEu);
  const char wiki[] = "Wikipedia";
  EXPECT_EQ(CchecksumAdler(9, wiki), 0x11E60398u);
  // Nothing to check gives the initial values.
  EXPECT_EQ(CchecksumCRC(0, text), 0u);
  EXPECT_EQ(CchecksumAdler(0, text), 1u);
  EXPECT_EQ(CchecksumCRC(-5, text), 0u);
  EXPECT_EQ(CchecksumAdler(-5, text), 1u);
  EXPECT_EQ(CchecksumCRC(10, nullptr), 0u);
  EXPECT_EQ(CchecksumAdler(10, nullptr), 1u);
  // A large buffer, and no error recorded.
  std::vector<unsigned char> zeros(1 << 20);
  EXPECT_EQ(CchecksumAdler(static_cast<int>(zeros.size()), zeros.data()), 0x00F00001u);
  EXPECT_NE(CchecksumCRC(static_cast<int>(zeros.size()), zeros.data()), 0u);
  EXPECT_FALSE(C_ERROR::Is());
}

}  // namespace
