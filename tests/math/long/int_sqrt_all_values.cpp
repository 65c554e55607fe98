// CmathIntSqrt against the exact integer square root of every 32-bit value.
// Each root r owns the values from r^2 to (r + 1)^2 - 1, so the reference costs
// nothing. Under the sanitizers the full sweep would take many minutes: there
// every value below 2^24 and of every 16th root are checked, and both ends of
// the other roots' runs.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <algorithm>
#include <atomic>
#include <thread>

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr unsigned int kEvery = 16;
#else
constexpr unsigned int kEvery = 1;
#endif

// The number of values whose root, from first to last - 1, comes out wrong.
unsigned long long CheckRoots(unsigned int first, unsigned int last, unsigned int every) {
  unsigned long long wrong = 0;
  for (unsigned long long r = first; r < last; ++r) {
    const unsigned long long low = r * r;
    const unsigned long long high = std::min((r + 1) * (r + 1), 0x100000000ull);
    const unsigned long long step = r % every == 0 ? 1 : high - low - 1;  // all values, or both ends
    for (unsigned long long n = low; n < high; n += step) wrong += CmathIntSqrt(static_cast<unsigned int>(n)) != r;
  }
  return wrong;
}

TEST(MathIntSqrtAllValues, MatchesTheExactRoot) {
  EXPECT_EQ(CheckRoots(0, 4096, 1), 0u);  // below 2^24
  // The rest in two halves of about equal work, one per core (46341 is about
  // the square root of 2^31).
  std::atomic<unsigned long long> wrong{0};
  std::thread upper([&] { wrong += CheckRoots(46341, 65536, kEvery); });
  wrong += CheckRoots(4096, 46341, kEvery);
  upper.join();
  EXPECT_EQ(wrong.load(), 0u);
}

}  // namespace
