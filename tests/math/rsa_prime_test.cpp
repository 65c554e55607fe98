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

TEST(RsaPrimeTest, AgreesWithCryptoppIsPrime) {
  // Odd candidates of the sizes key generation draws, and others, from the
  // library's generator; some of them prime.
  int primesSeen = 0;
  for (int bits : {5, 12, 24, 32, 33, 64, 100, 256, 512}) {
    for (int i = 0; i < 300; ++i) {
      std::vector<unsigned char> bytes(static_cast<size_t>(bits + 7) / 8);
      for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(CmathIntRand() >> 7);
      Integer n = Integer(bytes.data(), bytes.size()) >> static_cast<unsigned int>(8 * bytes.size() - bits);
      n.SetBit(static_cast<size_t>(bits - 1));
      n.SetBit(0);
      ASSERT_TRUE(Agrees(n)) << n;
      primesSeen += CryptoPP::IsPrime(n) ? 1 : 0;
    }
  }
  EXPECT_GT(primesSeen, 50);
  // Small numbers, around the end of the prime table and its square, and
  // products with table primes and with primes just beyond the table.
  unsigned int table = 0;
  const CryptoPP::word16* primes = CryptoPP::GetPrimeTable(table);
  const Integer last(static_cast<long>(primes[table - 1]));
  for (long n = 0; n < 2000; ++n) ASSERT_TRUE(Agrees(Integer(n)));
  for (long d = -40; d <= 40; ++d) ASSERT_TRUE(Agrees(last + Integer(d)) && Agrees(last.Squared() + Integer(d))) << d;
  Integer big = Integer::Power2(200) + Integer::One();
  while (!CryptoPP::IsPrime(big)) big += Integer(2);
  for (unsigned int i = 0; i < table; i += 7) ASSERT_TRUE(Agrees(big * Integer(static_cast<long>(primes[i]))));
  const Integer beyond(32749);  // the first prime above the table
  for (const Integer& n : {big, big * last, beyond * Integer(32771), beyond * big}) ASSERT_TRUE(Agrees(n)) << n;
}

}  // namespace
