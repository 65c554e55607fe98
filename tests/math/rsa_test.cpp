#include <cryptopp/integer.h>
#include <cryptopp/nbtheory.h>
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cstring>
#include <vector>

#include "math/generators.h"
#include "math/rsa_internal.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Crypt = decltype(&CrsaEncrypt);

// Exactly sized copies of the library's buffers, for the sanitizers.
Bytes Take(unsigned char* buffer, int size) {
  Bytes bytes(buffer, buffer + size);
  delete[] buffer;
  return bytes;
}

struct KeyPair {
  Bytes publicKey, privateKey;
};

struct IntRandStateGuard {
  unsigned int saved = qorc::IntRandState();
  ~IntRandStateGuard() { qorc::SetIntRandState(saved); }
};

unsigned int Crc(const Bytes& bytes) { return CchecksumCRC(static_cast<int>(bytes.size()), bytes.data()); }

KeyPair Generate(int bits, unsigned int seed) {
  unsigned char* publicKey = nullptr;
  unsigned char* privateKey = nullptr;
  int keySize = 0;
  CrsaGenerateKeys(bits, &publicKey, &privateKey, &keySize, seed);
  EXPECT_FALSE(C_ERROR::Is()) << bits;
  EXPECT_EQ(keySize, bits / 4);
  return {Take(publicKey, keySize), Take(privateKey, keySize)};
}

Bytes Apply(Crypt crypt, int bits, const Bytes& key, const Bytes& data) {
  int size = -1;
  unsigned char* result = nullptr;
  crypt(bits, key.data(), static_cast<int>(data.size()), data.data(), &size, &result);
  EXPECT_FALSE(C_ERROR::Is());
  return Take(result, size);
}

Bytes Pattern(size_t size, unsigned int salt) {
  Bytes data(size);
  for (size_t i = 0; i < size; ++i) data[i] = static_cast<unsigned char>(i * 37 + salt * 11 + (i >> 8));
  return data;
}

bool StartsWith(const Bytes& whole, const Bytes& part) {
  return whole.size() >= part.size() && std::equal(part.begin(), part.end(), whole.begin());
}

unsigned long long BigEndian(const unsigned char* bytes) {
  unsigned long long value = 0;
  for (int i = 0; i < 8; ++i) value = (value << 8) | bytes[i];
  return value;
}

// (a + b) mod m, for a and b below m, without overflow.
unsigned long long AddMod(unsigned long long a, unsigned long long b, unsigned long long m) {
  return a >= m - b ? a - (m - b) : a + b;
}

// a * b mod m by doubling, so that no 128-bit integer is needed (32-bit targets have none).
unsigned long long MulMod(unsigned long long a, unsigned long long b, unsigned long long m) {
  unsigned long long product = 0;
  for (a %= m; b != 0; b >>= 1, a = AddMod(a, a, m)) {
    if (b & 1) product = AddMod(product, a, m);
  }
  return product;
}

unsigned long long PowMod(unsigned long long base, unsigned long long exponent, unsigned long long modulus) {
  unsigned long long result = 1 % modulus;
  for (unsigned long long b = base % modulus; exponent != 0; exponent >>= 1, b = MulMod(b, b, modulus)) {
    if (exponent & 1) result = MulMod(result, b, modulus);
  }
  return result;
}

TEST(Rsa, ASeedReproducesThePairAndRestoresTheGenerator) {
  IntRandStateGuard guard;
  const KeyPair first = Generate(512, 77);
  EXPECT_EQ(qorc::IntRandState(), guard.saved);
  // Both blobs hold the full-size, odd modulus and differ in the exponent.
  EXPECT_TRUE((first.publicKey[0] & 0x80) != 0 && (first.publicKey[63] & 1) == 1);
  EXPECT_EQ(0, std::memcmp(first.publicKey.data(), first.privateKey.data(), 64));
  EXPECT_NE(0, std::memcmp(first.publicKey.data() + 64, first.privateKey.data() + 64, 64));
  const KeyPair second = Generate(512, 77);
  EXPECT_TRUE(first.publicKey == second.publicKey && first.privateKey == second.privateKey);
  EXPECT_NE(first.publicKey, Generate(512, 78).publicKey);
  // Without a seed the pair comes from the generator as it stands, which moves on.
  qorc::SetIntRandState(77);
  EXPECT_EQ(Generate(512, 0).publicKey, first.publicKey);
  EXPECT_NE(qorc::IntRandState(), 77u);
}

// Pairs from fixed generator states, as every earlier version made them: a
// faster generation must draw the same numbers and leave the generator as before.
TEST(Rsa, FixedGeneratorStatesGiveTheKeysTheyAlwaysGave) {
  IntRandStateGuard guard;
  // bits, seed, CRC of the public key, CRC of the private key
  const unsigned int known[][4] = {{1024, 1u, 0x2554849Cu, 0xBEC09D37u},
                                   {1024, 20260101u, 0x0B392337u, 0x9C98C4F8u},
                                   {1024, 0xDEADBEEFu, 0xA8BE541Cu, 0x2CCFCC55u},
                                   {512, 77u, 0x27C6EA48u, 0xBA8393BDu},
                                   {2048, 5u, 0x4F1A2FD1u, 0xDA194B23u},
                                   {64, 3u, 0xEBC2E553u, 0xB76E2540u},
                                   {72, 4u, 0xA5D0FE3Cu, 0xC0F3E020u},
                                   {256, 9u, 0xCEC17B89u, 0xA4384F4Fu},
                                   {384, 11u, 0x4FE91520u, 0x0DA0F73Fu},
                                   {520, 12u, 0x2D90FC85u, 0xBDBE8657u},
                                   {1536, 13u, 0xFE7032E2u, 0xE93F5B36u}};
  for (const auto& k : known) {
    const KeyPair keys = Generate(static_cast<int>(k[0]), k[1]);
    EXPECT_TRUE(Crc(keys.publicKey) == k[2] && Crc(keys.privateKey) == k[3]) << k[1];
  }
  qorc::SetIntRandState(12345);
  const KeyPair keys = Generate(1024, 0);
  EXPECT_TRUE(Crc(keys.publicKey) == 0xA38CE887u && Crc(keys.privateKey) == 0xE10864C9u);
  EXPECT_EQ(qorc::IntRandState(), 0x793B08E2u);
}

TEST(Rsa, RoundTripsForSeveralKeySizes) {
  for (int bits : {8, 16, 24, 32, 40, 64, 72, 128, 256, 512, 1024}) {
    const KeyPair keys = Generate(bits, static_cast<unsigned int>(bits) * 7919u);
    const int k = bits / 8;
    // Around one block, and bits - 1 bytes: 8 pieces of bits - 1 exactly.
    for (int size : {0, 1, k - 1, k, k + 1, 3 * k + 2, bits - 1, bits, 2 * bits + 3}) {
      SCOPED_TRACE(testing::Message() << bits << " " << size);
      const Bytes data = Pattern(static_cast<size_t>(size), static_cast<unsigned int>(bits));
      const unsigned int state = qorc::IntRandState();
      const Bytes cipher = Apply(CrsaEncrypt, bits, keys.publicKey, data);
      const long long pieces = (8LL * size + bits - 2) / (bits - 1);
      ASSERT_EQ(static_cast<long long>(cipher.size()), pieces * k);
      // Whole pieces need no padding and draw nothing.
      ASSERT_TRUE(8LL * size % (bits - 1) != 0 || qorc::IntRandState() == state);
      const Bytes plain = Apply(CrsaDecrypt, bits, keys.privateKey, cipher);
      ASSERT_EQ(static_cast<long long>(plain.size()), (pieces * (bits - 1) + 7) / 8);
      ASSERT_TRUE(StartsWith(plain, data));
      // The other way round, as for a signature.
      const Bytes signature = Apply(CrsaEncrypt, bits, keys.privateKey, data);
      ASSERT_TRUE(StartsWith(Apply(CrsaDecrypt, bits, keys.publicKey, signature), data));
    }
  }
  // Tiny keys from other seeds; 8 bits allow only the modulus 11 * 13.
  const Bytes data = Pattern(40, 6);
  for (unsigned int seed = 1; seed <= 300; ++seed) {
    const int bits = seed % 2 == 0 ? 8 : 16;
    const KeyPair keys = Generate(bits, seed);
    ASSERT_TRUE(bits != 8 || keys.publicKey[0] == 143) << seed;
    const Bytes plain = Apply(CrsaDecrypt, bits, keys.privateKey, Apply(CrsaEncrypt, bits, keys.publicKey, data));
    ASSERT_TRUE(StartsWith(plain, data)) << seed;
  }
}

TEST(Rsa, BlocksArePiecesBehindAZeroBitThenRandomPadding) {
  // The layout checked independently with a 64-bit key and 64-bit arithmetic.
  const KeyPair keys = Generate(64, 4242);
  const unsigned long long n = BigEndian(keys.publicKey.data()), e = BigEndian(keys.publicKey.data() + 8),
                           d = BigEndian(keys.privateKey.data() + 8);
  // 16 bytes are two pieces of 63 bits and one of 2 bits, whose block is
  // padded with 8 random bytes from three draws.
  const Bytes data = Pattern(16, 5);
  const unsigned int state = qorc::IntRandState();
  for (int i = 0; i < 3; ++i) CmathIntRand();
  const unsigned int afterPadding = qorc::IntRandState();
  qorc::SetIntRandState(state);
  const Bytes cipher = Apply(CrsaEncrypt, 64, keys.publicKey, data);
  ASSERT_EQ(cipher.size(), 24u);
  EXPECT_EQ(qorc::IntRandState(), afterPadding);
  const unsigned long long all = BigEndian(data.data()), next = BigEndian(data.data() + 8);
  EXPECT_EQ(BigEndian(cipher.data()), PowMod(all >> 1, e, n));
  EXPECT_EQ(BigEndian(cipher.data() + 8), PowMod(((all & 1) << 62) | (next >> 2), e, n));
  // The last block: the two remaining bits at bits 1 and 2, zeros to the end
  // of its first byte, then the random bytes.
  EXPECT_EQ(PowMod(BigEndian(cipher.data() + 16), d, n) >> 56, (next & 3) << 5);
  // The padding changes with the generator and repeats from the same state.
  EXPECT_NE(Apply(CrsaEncrypt, 64, keys.publicKey, data), cipher);
  qorc::SetIntRandState(state);
  EXPECT_EQ(Apply(CrsaEncrypt, 64, keys.publicKey, data), cipher);
}

TEST(Rsa, BadArgumentsLeaveTheOutputsUntouchedAndShortInputsStayInBounds) {
  unsigned char sentinel = 0, *publicKey = &sentinel, *privateKey = &sentinel;
  int keySize = -7;
  const unsigned int state = qorc::IntRandState();
  // Sizes not a positive multiple of 8; seeds a multiple of 2^31 - 1 (they repeat one value).
  const int badGenerations[][2] = {{12, 5}, {513, 5}, {1, 5}, {0, 5}, {-8, 5}, {64, 0x7FFFFFFF}, {64, -2}};
  for (const auto& bad : badGenerations) {
    C_ERROR::ClearPending();
    CrsaGenerateKeys(bad[0], &publicKey, &privateKey, &keySize, static_cast<unsigned int>(bad[1]));
    EXPECT_EQ(C_ERROR::GetPending(), &CerrInvalidValue) << bad[0];
    EXPECT_TRUE(publicKey == &sentinel && privateKey == &sentinel && keySize == -7 && qorc::IntRandState() == state)
        << bad[0];
  }
  C_ERROR::ClearPending();
  const KeyPair keys = Generate(64, 11);
  const unsigned char* key = keys.publicKey.data();
  const Bytes data = Pattern(20, 2);
  int size = -3;
  unsigned char* result = &sentinel;
  const auto expectError = [&](Crypt crypt, int bits, const unsigned char* k, int count, const unsigned char* source,
                               const C_ERROR& error) {
    C_ERROR::ClearPending();
    crypt(bits, k, count, source, &size, &result);
    EXPECT_EQ(C_ERROR::GetPending(), &error) << bits << " " << count;
    EXPECT_TRUE(size == -3 && result == &sentinel) << bits;
  };
  for (int bits : {63, 65, 4, 0, -64}) {
    expectError(CrsaEncrypt, bits, key, 20, data.data(), CerrInvalidValue);
    expectError(CrsaDecrypt, bits, key, 20, data.data(), CerrInvalidValue);
  }
  expectError(CrsaEncrypt, 64, key, -1, data.data(), CerrInvalidValue);
  expectError(CrsaEncrypt, 64, nullptr, 4, data.data(), CerrInvalidPointer);
  expectError(CrsaDecrypt, 64, key, 8, nullptr, CerrInvalidPointer);
  // A zero modulus cannot be computed with.
  expectError(CrsaEncrypt, 64, Bytes(16, 0).data(), 20, data.data(), CerrInvalidValue);
  C_ERROR::ClearPending();

  // Fewer bytes than one block give nothing; a trailing incomplete block is ignored.
  EXPECT_TRUE(Apply(CrsaEncrypt, 64, keys.publicKey, Bytes()).empty());
  for (size_t count : {1, 7}) EXPECT_TRUE(Apply(CrsaDecrypt, 64, keys.privateKey, Pattern(count, 9)).empty()) << count;
  const Bytes cipher = Apply(CrsaEncrypt, 64, keys.publicKey, data);
  ASSERT_EQ(cipher.size(), 24u);
  Bytes extended = cipher;
  extended.insert(extended.end(), {1, 2, 3, 4, 5});
  EXPECT_EQ(Apply(CrsaDecrypt, 64, keys.privateKey, extended), Apply(CrsaDecrypt, 64, keys.privateKey, cipher));
  // A blob that is not a key: arbitrary output, but no access outside the buffers.
  const Bytes garbage(16, 0xFF);
  EXPECT_EQ(Apply(CrsaDecrypt, 64, garbage, Apply(CrsaEncrypt, 64, garbage, data)).size(), 24u);
}

// Key generation tests its candidates with a faster equivalent of Crypto++'s
// IsPrime; the keys drawn from a seed depend on the two giving the same answers.
using CryptoPP::Integer;

bool Agrees(const Integer& n, bool base3 = false) {
  std::vector<unsigned char> bytes(n.MinEncodedSize());
  n.Encode(bytes.data(), bytes.size());
  if (base3) {
    return qorc::RsaIsStrongProbablePrimeBase3(bytes.data(), bytes.size()) ==
           CryptoPP::IsStrongProbablePrime(n, Integer(3));
  }
  return qorc::RsaIsPrime(bytes.data(), bytes.size()) == CryptoPP::IsPrime(n);
}

// An odd number of exactly `bits` bits from the library's generator.
Integer RandomOdd(int bits) {
  std::vector<unsigned char> bytes(static_cast<size_t>(bits + 7) / 8);
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(CmathIntRand() >> 7);
  Integer n = Integer(bytes.data(), bytes.size()) >> static_cast<unsigned int>(8 * bytes.size() - bits);
  n.SetBit(static_cast<size_t>(bits - 1));
  n.SetBit(0);
  return n;
}

TEST(Rsa, CandidateTestAgreesWithCryptoppIsPrime) {
  int primesSeen = 0;
  for (int bits : {5, 12, 24, 32, 33, 64, 100, 256, 512}) {
    for (int i = 0; i < 300; ++i) {
      const Integer n = RandomOdd(bits);
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

TEST(Rsa, BaseThreeTestAgreesWithCryptoppOnPrimesCompositesAndPseudoprimes) {
  // Sizes of the word-sized code (4, 8, 12, 16 and 32 words) and others; every
  // fourth number a prime, so that the passing path is taken too.
  int probablePrimes = 0;
  for (int bits : {33, 64, 100, 256, 500, 512, 520, 768, 1024, 2048}) {
    for (int i = 0; i < 60; ++i) {
      Integer n = RandomOdd(bits);
      if (n % Integer(3) == Integer::Zero()) n += Integer(2);
      while (i % 4 == 0 && bits <= 1024 && !CryptoPP::IsPrime(n)) n += Integer(n % Integer(3) == Integer(2) ? 4 : 2);
      ASSERT_TRUE(Agrees(n, true)) << n;
      probablePrimes += CryptoPP::IsStrongProbablePrime(n, Integer(3)) ? 1 : 0;
    }
  }
  EXPECT_GE(probablePrimes, 130);
  // Strong pseudoprimes to base 3, the square of a prime p with 3^(p-1) = 1
  // modulo p^2, and primes whose n - 1 holds a high power of 2.
  for (long n : {121L, 703L, 1891L, 3281L, 8401L, 8911L, 10585L, 12403L, 16531L, 18721L, 19345L, 23521L, 31621L}) {
    ASSERT_TRUE(CryptoPP::IsStrongProbablePrime(Integer(n), Integer(3)) && Agrees(Integer(n), true)) << n;
  }
  EXPECT_TRUE(Agrees(Integer(1006003L).Squared(), true));
  for (unsigned int power : {64u, 130u, 200u}) {
    Integer n = Integer::Power2(power) * Integer(5) + Integer::One();
    for (int found = 0; found < 2; n += Integer::Power2(power) * Integer(2)) {
      if (n % Integer(3) == Integer::Zero()) continue;
      ASSERT_TRUE(Agrees(n, true)) << n;
      found += CryptoPP::IsPrime(n) ? 1 : 0;
    }
  }
}

}  // namespace
