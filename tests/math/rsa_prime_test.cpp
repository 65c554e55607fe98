// Key generation tests its candidates with a faster equivalent of Crypto++'s
// IsPrime; the keys drawn from a seed depend on the two giving the same answers.
#include <cryptopp/integer.h>
#include <cryptopp/nbtheory.h>
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <vector>

#include "math/rsa_internal.h"

namespace {

using CryptoPP::Integer;

bool Agrees(const Integer& n) {
  std::vector<unsigned char> bytes(n.MinEncodedSize());
  n.Encode(bytes.data(), bytes.size());
  return qorc::RsaIsPrime(bytes.data(), bytes.size()) == CryptoPP::IsPrime(n);
}

// Deterministic numbers of a given size from the library's generator.
Integer Draw(int bits) {
  Integer n;
  for (int i = 0; i < bits; i += 28) n = (n << 28) + Integer(static_cast<long>(CmathIntRand() >> 3));
  n = n >> static_cast<unsigned int>(((bits + 27) / 28) * 28 - bits);
  n.SetBit(static_cast<size_t>(bits - 1));
  return n;
}

Integer NextPrime(Integer n) {
  if (n.IsEven()) ++n;
  while (!CryptoPP::IsPrime(n)) n += Integer(2);
  return n;
}

TEST(RsaPrimeTest, AgreesWithCryptoppIsPrime) {
  unsigned int table = 0;
  const CryptoPP::word16* primes = CryptoPP::GetPrimeTable(table);
  const Integer last(static_cast<long>(primes[table - 1]));
  int primesSeen = 0;
  // Random odd candidates of the sizes key generation draws, and others.
  for (int bits : {2, 5, 8, 12, 16, 24, 31, 32, 33, 48, 64, 65, 100, 128, 256, 512}) {
    for (int i = 0; i < 400; ++i) {
      Integer n = Draw(bits);
      n.SetBit(0);
      ASSERT_TRUE(Agrees(n)) << n;
      primesSeen += CryptoPP::IsPrime(n) ? 1 : 0;
    }
  }
  EXPECT_GT(primesSeen, 100);
  // Around the end of the table and its square.
  for (long d = -40; d <= 40; ++d) {
    ASSERT_TRUE(Agrees(last + Integer(d)));
    ASSERT_TRUE(Agrees(last.Squared() + Integer(d)));
  }
  // Products with each table prime, and with primes just beyond the table.
  const Integer big = NextPrime(Integer::Power2(200));
  for (unsigned int i = 0; i < table; i += 7) ASSERT_TRUE(Agrees(big * Integer(static_cast<long>(primes[i]))));
  ASSERT_TRUE(Agrees(big * last));
  const Integer beyond(32749);  // the first prime above the table
  ASSERT_TRUE(Agrees(beyond * Integer(32771)));
  ASSERT_TRUE(Agrees(beyond * big));
  ASSERT_TRUE(Agrees(big));
  // Small numbers and primes that Crypto++ itself finds.
  for (long n = 0; n < 2000; ++n) ASSERT_TRUE(Agrees(Integer(n)));
  Integer p = Integer::Power2(511);
  for (int i = 0; i < 5; ++i) {
    p = NextPrime(p + Integer::One());
    ASSERT_TRUE(Agrees(p));
    ASSERT_TRUE(Agrees(p + Integer(2)));
  }
}

}  // namespace
