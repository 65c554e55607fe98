// CmathIntSqrt against the exact integer square root of every 32-bit value.
// Each root r owns the values from r^2 to (r + 1)^2 - 1, so the reference costs
// nothing and the loop measures the function alone. Under the sanitizers the
// full sweep would take many minutes: there every value near a perfect square,
// every value below 2^24 and a strided sample of the rest are checked instead.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kFullSweep = false;
#else
constexpr bool kFullSweep = true;
#endif

// Checks the roots from first to last - 1 and returns the number of values
// that disagree; stride 1 checks every value.
unsigned long long CheckRoots(unsigned int first, unsigned int last, unsigned int stride) {
  unsigned long long wrong = 0;
  for (unsigned long long r = first; r < last; ++r) {
    const unsigned long long low = r * r;
    const unsigned long long high = std::min((r + 1) * (r + 1), 0x100000000ull);
    const unsigned int root = static_cast<unsigned int>(r);
    if (stride == 1 || high - low < 64) {
      for (unsigned long long n = low; n < high; ++n) wrong += CmathIntSqrt(static_cast<unsigned int>(n)) != root;
    } else {
      for (unsigned long long n = low; n < low + 8; ++n) wrong += CmathIntSqrt(static_cast<unsigned int>(n)) != root;
      for (unsigned long long n = high - 8; n < high; ++n) wrong += CmathIntSqrt(static_cast<unsigned int>(n)) != root;
      for (unsigned long long n = low + 8; n < high - 8; n += stride)
        wrong += CmathIntSqrt(static_cast<unsigned int>(n)) != root;
    }
  }
  return wrong;
}

TEST(MathIntSqrtAllValues, MatchesTheExactRoot) {
  const unsigned int stride = kFullSweep ? 1 : 7;
  // Below 2^24 every value, in both modes.
  EXPECT_EQ(CheckRoots(0, 4096, 1), 0u);
  // The rest in two halves of equal work, one per core.
  const unsigned int split = 46341;  // about sqrt(2^31): half of the values on each side
  std::atomic<unsigned long long> wrong{0};
  std::thread upper([&] { wrong += CheckRoots(split, 65536, stride); });
  wrong += CheckRoots(4096, split, stride);
  upper.join();
  EXPECT_EQ(wrong.load(), 0u);
}

}  // namespace
