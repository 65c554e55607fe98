// The library's integer generator, integer square root, primality test and
// bit functions.
#include <qorc/numerics.h>

#include "foundation/builtins.h"
#include "math/generators.h"

namespace {

// floor(16 * sqrt(i)) for i from 0 to 255, that is the integer square root
// of 256 * i: the starting estimates of CmathIntSqrt.
struct SquareRootTable {
  unsigned char entry[256];
};

constexpr unsigned int ExactIntSqrt(unsigned int n) {
  unsigned int root = 0;
  while ((root + 1) * (root + 1) <= n) ++root;
  return root;
}

constexpr SquareRootTable MakeSquareRootTable() {
  SquareRootTable table{};
  for (unsigned int i = 0; i < 256; ++i) table.entry[i] = static_cast<unsigned char>(ExactIntSqrt(256 * i));
  return table;
}

constexpr SquareRootTable kSquareRoots = MakeSquareRootTable();
static_assert(kSquareRoots.entry[255] == 255 && kSquareRoots.entry[64] == 128, "square root table");

unsigned int NewtonStep(unsigned int n, unsigned int x) { return (n / x + x + 1) / 2; }

// a^exponent modulo m by square-and-multiply, with 64-bit products.
unsigned int PowMod(unsigned int a, unsigned int exponent, unsigned int m) {
  unsigned long long result = 1 % m;
  unsigned long long base = a % m;
  while (exponent != 0) {
    if ((exponent & 1) != 0) result = result * base % m;
    base = base * base % m;
    exponent >>= 1;
  }
  return static_cast<unsigned int>(result);
}

constexpr int kPrimeRounds = 5;
// A round whose squarings reach neither 1 nor n - 1 within this many steps
// never would: the order of any unit modulo a 32-bit n is below 2^32.
constexpr int kMaxSquarings = 40;

}  // namespace

unsigned int CmathIntRand() { return qorc::NextIntRand(); }

unsigned int CmathIntSqrt(unsigned int n) {
  const unsigned char* table = kSquareRoots.entry;
  unsigned int x;
  if (n < 0x100) return table[n] >> 4;
  if (n < 0x10000) {
    if (n < 0x400) {
      x = (table[n >> 2] >> 3) + 1;
    } else if (n < 0x1000) {
      x = (table[n >> 4] >> 2) + 1;
    } else if (n < 0x4000) {
      x = (table[n >> 6] >> 1) + 1;
    } else {
      x = table[n >> 8] + 1u;
    }
    if (x * x > n) --x;
    return x;
  }
  if (n < 0x1000000) {
    if (n < 0x40000) {
      x = table[n >> 10] * 2u;
    } else if (n < 0x100000) {
      x = table[n >> 12] * 4u;
    } else if (n < 0x400000) {
      x = table[n >> 14] * 8u;
    } else {
      x = table[n >> 16] * 16u;
    }
    x = NewtonStep(n, x);
  } else {
    if (n >= 0xFFFE0001u) return 65535;  // 65535 squared and above
    if (n < 0x4000000) {
      x = table[n >> 18] * 32u;
    } else if (n < 0x10000000) {
      x = table[n >> 20] * 64u;
    } else if (n < 0x40000000) {
      x = table[n >> 22] * 128u;
    } else {
      x = table[n >> 24] * 256u;
    }
    x = NewtonStep(n, NewtonStep(n, x));
  }
  // The estimate is at most one too high; n - x * x is computed in 32 bits and
  // its sign bit tells.
  if ((n - x * x) & 0x80000000u) --x;
  return x;
}

// The parity test stands as it always has: every odd number above 3 is
// reported not prime and even numbers go on to the later tests. Hosts depend
// on these answers, so the rule is kept exactly.
C_BOOL CmathIsPrime(unsigned int n) {
  if (n <= 3) return true;
  if ((n & 1) != 0) return false;
  if (n % 3 == 0 || n % 5 == 0 || n % 7 == 0) return false;
  unsigned int d = n - 1;
  int s = 0;
  while ((d & 1) == 0) {
    d >>= 1;
    ++s;
  }
  for (int round = 0; round < kPrimeRounds; ++round) {
    const unsigned int a = CmathIntRand() % n;
    unsigned long long x = PowMod(a, d, n);
    if (x == 1 || x == n - 1) continue;
    bool passed = false;
    for (int count = 0; count <= kMaxSquarings;) {
      if (count > 0 && x == 1) break;
      ++count;
      if (count == s) {
        passed = x == n - 1;
        break;
      }
      if (x == n - 1) {
        passed = true;
        break;
      }
      x = x * x % n;
    }
    if (!passed) return false;
  }
  return true;
}

unsigned int CmathIntRol(unsigned int value, int count) {
  const unsigned int shift = static_cast<unsigned int>(count) & 31u;
  return shift == 0 ? value : (value << shift) | (value >> (32 - shift));
}

unsigned int CmathIntRor(unsigned int value, int count) {
  const unsigned int shift = static_cast<unsigned int>(count) & 31u;
  return shift == 0 ? value : (value >> shift) | (value << (32 - shift));
}

unsigned int CmathIntSwapBytes(unsigned int value) { return qorc::SwapBytes32(value); }

int CmathBitCount32(unsigned int value) { return qorc::PopulationCount32(value); }
int CmathBitCount8(unsigned char value) { return qorc::PopulationCount32(value); }

unsigned int CmathBitReverse32(unsigned int value) {
  value = ((value >> 1) & 0x55555555u) | ((value & 0x55555555u) << 1);
  value = ((value >> 2) & 0x33333333u) | ((value & 0x33333333u) << 2);
  value = ((value >> 4) & 0x0F0F0F0Fu) | ((value & 0x0F0F0F0Fu) << 4);
  return qorc::SwapBytes32(value);
}

unsigned char CmathBitReverse8(unsigned char value) {
  return static_cast<unsigned char>(CmathBitReverse32(value) >> 24);
}

unsigned int CmathBitGetLSB(unsigned int value) { return value & (0u - value); }

unsigned int CmathBitGetMSB(unsigned int value) { return value == 0 ? 0 : 0x80000000u >> qorc::CountLeadingZeros32(value); }

int CmathBitGetPower2(unsigned int value) { return value == 0 ? -1 : 31 - qorc::CountLeadingZeros32(value); }

C_BOOL CmathBitGetParity32(unsigned int value) { return qorc::OddParity32(value); }
C_BOOL CmathBitGetParity8(unsigned char value) { return qorc::OddParity32(value); }
