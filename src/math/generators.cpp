#include "math/generators.h"

#include <cstdlib>

namespace qorc {
namespace {
unsigned int g_intRandState = 0x12345678;

constexpr unsigned int kLehmerModulus = 0x7FFFFFFF;  // 2^31 - 1
constexpr unsigned long long kLehmerMultiplier = 16807;
}  // namespace

void SeedRuntimeRand(unsigned int seed) { std::srand(seed); }

// Hosts expect the Windows runtime's range, 0 to 32767, which the Microsoft
// runtime's rand() gives as it is. glibc's rand() reaches 2^31 - 1, and its
// top 15 bits are its best ones.
int RuntimeRand() {
  static_assert(RAND_MAX == 0x7FFF || RAND_MAX == 0x7FFFFFFF, "the reduction assumes a 15- or 31-bit rand()");
  constexpr int kShift = RAND_MAX == 0x7FFF ? 0 : 16;
  return std::rand() >> kShift;
}

unsigned int IntRandState() { return g_intRandState; }
void SetIntRandState(unsigned int state) { g_intRandState = state; }

void SeedIntRand(unsigned int seed) {
  if (seed != 0) g_intRandState = seed;
}

// Multiplier 16807 with the fast reduction modulo 2^31 - 1. The reduction
// leaves out the final subtraction of the modulus when the sum exceeds it:
// sequences drawn from a given state must repeat exactly as they always have,
// so the omission stays.
unsigned int NextIntRand() {
  const unsigned long long product = g_intRandState * kLehmerMultiplier;
  g_intRandState = static_cast<unsigned int>(product >> 31) + static_cast<unsigned int>(product & kLehmerModulus);
  return g_intRandState - 1;
}

bool IntRandIsStuck() { return g_intRandState % kLehmerModulus == 0; }

}  // namespace qorc
