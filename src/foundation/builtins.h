// The compiler's builtins that the library uses, behind one header: bit
// scans and counts, byte swaps, and 128-bit products. Targets whose compiler
// has no 128-bit integer (32-bit ones) get a small class with the same
// arithmetic.
#ifndef QORC_FOUNDATION_BUILTINS_H
#define QORC_FOUNDATION_BUILTINS_H

#include <cstdint>

namespace qorc {

// Zero bits above the highest one; value must not be 0.
inline int CountLeadingZeros32(std::uint32_t value) { return __builtin_clz(value); }
inline int CountLeadingZeros64(std::uint64_t value) { return __builtin_clzll(value); }
// Zero bits below the lowest one; value must not be 0.
inline int CountTrailingZeros32(std::uint32_t value) { return __builtin_ctz(value); }
inline int PopulationCount32(std::uint32_t value) { return __builtin_popcount(value); }
inline bool OddParity32(std::uint32_t value) { return __builtin_parity(value) != 0; }
inline std::uint32_t SwapBytes32(std::uint32_t value) { return __builtin_bswap32(value); }

// Unsigned 128-bit arithmetic modulo 2^128 in two 64-bit words, as far as
// the library needs it: Uint128 on targets without a 128-bit integer. Built
// on every target, so that it is checked against the compiler's own.
class Uint128Words {
 public:
  constexpr Uint128Words(std::uint64_t value = 0) : low_(value), high_(0) {}  // NOLINT: converts like an integer
  constexpr Uint128Words(std::uint64_t high, std::uint64_t low) : low_(low), high_(high) {}
  explicit constexpr operator std::uint64_t() const { return low_; }

  friend Uint128Words operator+(Uint128Words a, Uint128Words b) {
    const std::uint64_t low = a.low_ + b.low_;
    return Uint128Words(a.high_ + b.high_ + (low < a.low_ ? 1 : 0), low);
  }
  friend Uint128Words operator-(Uint128Words a, Uint128Words b) {
    return Uint128Words(a.high_ - b.high_ - (a.low_ < b.low_ ? 1 : 0), a.low_ - b.low_);
  }
  friend Uint128Words operator*(Uint128Words a, Uint128Words b) {
    Uint128Words product = MultiplyWide(a.low_, b.low_);
    product.high_ += a.low_ * b.high_ + a.high_ * b.low_;
    return product;
  }
  friend Uint128Words operator>>(Uint128Words a, int shift) {
    if (shift == 0) return a;
    if (shift >= 64) return Uint128Words(0, a.high_ >> (shift - 64));
    return Uint128Words(a.high_ >> shift, (a.low_ >> shift) | (a.high_ << (64 - shift)));
  }
  friend Uint128Words operator<<(Uint128Words a, int shift) {
    if (shift == 0) return a;
    if (shift >= 64) return Uint128Words(a.low_ << (shift - 64), 0);
    return Uint128Words((a.high_ << shift) | (a.low_ >> (64 - shift)), a.low_ << shift);
  }
  friend Uint128Words operator|(Uint128Words a, Uint128Words b) { return Uint128Words(a.high_ | b.high_, a.low_ | b.low_); }
  friend Uint128Words operator&(Uint128Words a, Uint128Words b) { return Uint128Words(a.high_ & b.high_, a.low_ & b.low_); }
  friend bool operator<(Uint128Words a, Uint128Words b) { return a.high_ != b.high_ ? a.high_ < b.high_ : a.low_ < b.low_; }
  friend bool operator==(Uint128Words a, Uint128Words b) { return a.high_ == b.high_ && a.low_ == b.low_; }
  friend bool operator!=(Uint128Words a, Uint128Words b) { return !(a == b); }
  Uint128Words& operator+=(Uint128Words other) { return *this = *this + other; }

 private:
  // The full product of two 64-bit words, from their 32-bit halves.
  static Uint128Words MultiplyWide(std::uint64_t a, std::uint64_t b) {
    const std::uint64_t a0 = a & 0xFFFFFFFFu, a1 = a >> 32, b0 = b & 0xFFFFFFFFu, b1 = b >> 32;
    const std::uint64_t p00 = a0 * b0, p01 = a0 * b1, p10 = a1 * b0, p11 = a1 * b1;
    const std::uint64_t middle = (p00 >> 32) + (p01 & 0xFFFFFFFFu) + (p10 & 0xFFFFFFFFu);
    return Uint128Words(p11 + (p01 >> 32) + (p10 >> 32) + (middle >> 32), (middle << 32) | (p00 & 0xFFFFFFFFu));
  }

  std::uint64_t low_;
  std::uint64_t high_;
};

#if defined(__SIZEOF_INT128__)
using Uint128 = unsigned __int128;
#else
using Uint128 = Uint128Words;
#endif

}  // namespace qorc

#endif
