// Internal services of the RSA code, reachable by its tests.
#ifndef QORC_MATH_RSA_INTERNAL_H
#define QORC_MATH_RSA_INTERNAL_H

#include <cstddef>

namespace qorc {

// The primality test of key generation (Crypto++'s IsPrime, answer for
// answer), on an unsigned number given most significant byte first.
bool RsaIsPrime(const unsigned char* number, std::size_t size);
// Crypto++'s IsStrongProbablePrime(n, 3), for an odd n above 3 that 3 does
// not divide, given most significant byte first.
bool RsaIsStrongProbablePrimeBase3(const unsigned char* number, std::size_t size);

}  // namespace qorc

#endif
