#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cstring>
#include <vector>

#include "math/generators.h"

namespace {

using Bytes = std::vector<unsigned char>;

struct KeyPair {
  Bytes publicKey;
  Bytes privateKey;
};

// Exactly sized copies of the library's buffers, so that the sanitizers see
// any access beyond them.
Bytes Take(unsigned char* buffer, int size) {
  Bytes bytes(buffer, buffer + size);
  delete[] buffer;
  return bytes;
}

KeyPair Generate(int bits, unsigned int seed) {
  unsigned char* publicKey = nullptr;
  unsigned char* privateKey = nullptr;
  int keySize = 0;
  CrsaGenerateKeys(bits, &publicKey, &privateKey, &keySize, seed);
  EXPECT_FALSE(C_ERROR::Is()) << bits;
  EXPECT_EQ(keySize, bits / 4);
  return {Take(publicKey, keySize), Take(privateKey, keySize)};
}

Bytes Encrypt(int bits, const Bytes& key, const Bytes& data) {
  int size = -1;
  unsigned char* result = nullptr;
  CrsaEncrypt(bits, key.data(), static_cast<int>(data.size()), data.data(), &size, &result);
  EXPECT_FALSE(C_ERROR::Is());
  return Take(result, size);
}

Bytes Decrypt(int bits, const Bytes& key, const Bytes& data) {
  int size = -1;
  unsigned char* result = nullptr;
  CrsaDecrypt(bits, key.data(), static_cast<int>(data.size()), data.data(), &size, &result);
  EXPECT_FALSE(C_ERROR::Is());
  return Take(result, size);
}

Bytes Pattern(size_t size, unsigned int salt) {
  Bytes data(size);
  for (size_t i = 0; i < size; ++i) data[i] = static_cast<unsigned char>(i * 37 + salt * 11 + (i >> 8));
  return data;
}

unsigned long long BigEndian(const unsigned char* bytes, int count) {
  unsigned long long value = 0;
  for (int i = 0; i < count; ++i) value = (value << 8) | bytes[i];
  return value;
}

unsigned long long PowMod(unsigned long long base, unsigned long long exponent, unsigned long long modulus) {
  unsigned __int128 result = 1;
  unsigned __int128 b = base % modulus;
  while (exponent != 0) {
    if (exponent & 1) result = result * b % modulus;
    b = b * b % modulus;
    exponent >>= 1;
  }
  return static_cast<unsigned long long>(result);
}

TEST(Rsa, KeyBlobsHoldAModulusOfTheFullSize) {
  const KeyPair keys = Generate(512, 1234);
  ASSERT_EQ(keys.publicKey.size(), 128u);
  EXPECT_NE(keys.publicKey[0] & 0x80, 0);
  // Both blobs share the modulus and differ in the exponent.
  EXPECT_EQ(0, std::memcmp(keys.publicKey.data(), keys.privateKey.data(), 64));
  EXPECT_NE(0, std::memcmp(keys.publicKey.data() + 64, keys.privateKey.data() + 64, 64));
  EXPECT_EQ(keys.publicKey[63] & 1, 1);  // a product of two odd primes
}

TEST(Rsa, ASeedReproducesThePairAndRestoresTheGenerator) {
  const unsigned int before = qorc::IntRandState();
  const KeyPair first = Generate(256, 77);
  EXPECT_EQ(qorc::IntRandState(), before);
  const KeyPair second = Generate(256, 77);
  EXPECT_EQ(qorc::IntRandState(), before);
  EXPECT_EQ(first.publicKey, second.publicKey);
  EXPECT_EQ(first.privateKey, second.privateKey);
  const KeyPair other = Generate(256, 78);
  EXPECT_NE(first.publicKey, other.publicKey);
  // Without a seed the pair comes from the generator as it stands, which moves on.
  qorc::SetIntRandState(77);
  const KeyPair unseeded = Generate(256, 0);
  EXPECT_EQ(unseeded.publicKey, first.publicKey);
  EXPECT_NE(qorc::IntRandState(), 77u);
  qorc::SetIntRandState(before);
}

TEST(Rsa, RoundTripsForSeveralKeySizes) {
  for (int bits : {8, 16, 24, 32, 40, 64, 72, 128, 256, 512, 1024}) {
    const KeyPair keys = Generate(bits, static_cast<unsigned int>(bits) * 7919u);
    const int k = bits / 8;
    for (size_t size : {size_t{0}, size_t{1}, size_t(k - 1 > 0 ? k - 1 : 1), size_t(k), size_t(k + 1),
                        size_t(3 * k + 2), size_t(bits - 1), size_t(bits), size_t(2 * bits + 3)}) {
      const Bytes data = Pattern(size, static_cast<unsigned int>(bits));
      const Bytes cipher = Encrypt(bits, keys.publicKey, data);
      const long long pieces = (8LL * static_cast<long long>(size) + bits - 2) / (bits - 1);
      ASSERT_EQ(static_cast<long long>(cipher.size()), pieces * k) << bits << " " << size;
      const Bytes plain = Decrypt(bits, keys.privateKey, cipher);
      ASSERT_EQ(static_cast<long long>(plain.size()), (pieces * (bits - 1) + 7) / 8) << bits << " " << size;
      ASSERT_TRUE(std::equal(data.begin(), data.end(), plain.begin())) << bits << " " << size;
      // The other way round, as for a signature.
      const Bytes signature = Encrypt(bits, keys.privateKey, data);
      const Bytes checked = Decrypt(bits, keys.publicKey, signature);
      ASSERT_TRUE(std::equal(data.begin(), data.end(), checked.begin())) << bits << " " << size;
    }
  }
}

TEST(Rsa, TinyKeysFromManySeeds) {
  // With 8 bits the only modulus of two distinct 4-bit primes is 11 * 13.
  const Bytes data = Pattern(40, 6);
  for (unsigned int seed = 1; seed <= 1500; ++seed) {
    const int bits = seed % 2 == 0 ? 8 : 16;
    const KeyPair keys = Generate(bits, seed);
    ASSERT_FALSE(C_ERROR::Is()) << seed;
    if (bits == 8) {
      ASSERT_EQ(keys.publicKey[0], 143) << seed;
    }
    const Bytes plain = Decrypt(bits, keys.privateKey, Encrypt(bits, keys.publicKey, data));
    ASSERT_TRUE(std::equal(data.begin(), data.end(), plain.begin())) << seed;
  }
}

TEST(Rsa, ShortDataMakesOnePaddedBlock) {
  const KeyPair keys = Generate(512, 99);
  const Bytes data = Pattern(10, 3);
  const Bytes cipher = Encrypt(512, keys.publicKey, data);
  ASSERT_EQ(cipher.size(), 64u);
  const Bytes plain = Decrypt(512, keys.privateKey, cipher);
  ASSERT_EQ(plain.size(), 64u);
  EXPECT_TRUE(std::equal(data.begin(), data.end(), plain.begin()));
  // The padding is random: the same data encrypts differently each time.
  const Bytes again = Encrypt(512, keys.publicKey, data);
  EXPECT_NE(cipher, again);
  EXPECT_TRUE(std::equal(data.begin(), data.end(), Decrypt(512, keys.privateKey, again).begin()));
  // From the same generator state the padding repeats.
  const unsigned int state = qorc::IntRandState();
  const Bytes first = Encrypt(512, keys.publicKey, data);
  qorc::SetIntRandState(state);
  EXPECT_EQ(Encrypt(512, keys.publicKey, data), first);
}

TEST(Rsa, BlockBoundariesWithA64BitKey) {
  const KeyPair keys = Generate(64, 4242);
  // 504 bytes are 64 pieces of 63 bits exactly: no padded block.
  const Bytes exact = Pattern(504, 1);
  const unsigned int state = qorc::IntRandState();
  const Bytes cipher = Encrypt(64, keys.publicKey, exact);
  EXPECT_EQ(cipher.size(), 64u * 8u);
  EXPECT_EQ(qorc::IntRandState(), state);  // nothing drawn for padding
  const Bytes plain = Decrypt(64, keys.privateKey, cipher);
  EXPECT_EQ(plain, exact);
  // One byte more makes a 65th, padded block, whose 8 random bytes take three draws.
  const Bytes longer = Pattern(505, 1);
  const Bytes cipher2 = Encrypt(64, keys.publicKey, longer);
  EXPECT_EQ(cipher2.size(), 65u * 8u);
  unsigned int expectedState = state;
  qorc::SetIntRandState(state);
  for (int i = 0; i < 3; ++i) CmathIntRand();
  expectedState = qorc::IntRandState();
  qorc::SetIntRandState(state);
  Encrypt(64, keys.publicKey, longer);
  EXPECT_EQ(qorc::IntRandState(), expectedState);
  const Bytes plain2 = Decrypt(64, keys.privateKey, cipher2);
  ASSERT_EQ(plain2.size(), (65u * 63u + 7) / 8);
  EXPECT_TRUE(std::equal(longer.begin(), longer.end(), plain2.begin()));
  // The data's last byte is followed by the zero bits that end the copied byte.
  // 505 bytes: the last piece holds 8 bits at block bits 1 to 8, so block bits
  // 9 to 15 are zero: result bits 4040 to 4046.
  EXPECT_EQ(plain2[505] & 0xFE, 0);
}

TEST(Rsa, BlocksArePiecesBehindAZeroBit) {
  // An independent check of the layout with 64-bit arithmetic.
  const KeyPair keys = Generate(64, 31337);
  const unsigned long long n = BigEndian(keys.publicKey.data(), 8);
  const unsigned long long e = BigEndian(keys.publicKey.data() + 8, 8);
  const unsigned long long d = BigEndian(keys.privateKey.data() + 8, 8);
  EXPECT_GE(n, 1ull << 63);
  const Bytes data = Pattern(16, 5);  // 128 bits: two pieces of 63 bits and one of 2
  const Bytes cipher = Encrypt(64, keys.publicKey, data);
  ASSERT_EQ(cipher.size(), 24u);
  const unsigned long long all = BigEndian(data.data(), 8);
  const unsigned long long next = BigEndian(data.data() + 8, 8);
  const unsigned long long piece0 = all >> 1;
  const unsigned long long piece1 = ((all & 1) << 62) | (next >> 2);
  EXPECT_EQ(BigEndian(cipher.data(), 8), PowMod(piece0, e, n));
  EXPECT_EQ(BigEndian(cipher.data() + 8, 8), PowMod(piece1, e, n));
  // The last block: the two remaining bits at bits 1 and 2, zeros to the end
  // of its first byte, then random bytes.
  const unsigned long long last = PowMod(BigEndian(cipher.data() + 16, 8), d, n);
  EXPECT_EQ(last >> 56, (next & 3) << 5);
}

TEST(Rsa, BadKeySizesLeaveTheOutputsUntouched) {
  unsigned char sentinel = 0;
  unsigned char* publicKey = &sentinel;
  unsigned char* privateKey = &sentinel;
  int keySize = -7;
  const unsigned int state = qorc::IntRandState();
  for (int bits : {12, 513, 1, 0, -8, -512}) {
    C_ERROR::ClearPending();
    CrsaGenerateKeys(bits, &publicKey, &privateKey, &keySize, 5);
    EXPECT_EQ(C_ERROR::GetPending(), &CerrInvalidValue) << bits;
    EXPECT_EQ(publicKey, &sentinel);
    EXPECT_EQ(privateKey, &sentinel);
    EXPECT_EQ(keySize, -7);
    EXPECT_EQ(qorc::IntRandState(), state);
  }
  // A seed that is a multiple of 2^31 - 1 would repeat one value for ever.
  for (unsigned int seed : {0x7FFFFFFFu, 0xFFFFFFFEu}) {
    C_ERROR::ClearPending();
    CrsaGenerateKeys(64, &publicKey, &privateKey, &keySize, seed);
    EXPECT_EQ(C_ERROR::GetPending(), &CerrInvalidValue) << seed;
    EXPECT_EQ(publicKey, &sentinel);
    EXPECT_EQ(qorc::IntRandState(), state);
  }

  C_ERROR::ClearPending();
  const KeyPair keys = Generate(64, 11);
  const Bytes data = Pattern(20, 2);
  int size = -3;
  unsigned char* result = &sentinel;
  for (int bits : {63, 65, 4, 0, -64}) {
    C_ERROR::ClearPending();
    CrsaEncrypt(bits, keys.publicKey.data(), static_cast<int>(data.size()), data.data(), &size, &result);
    EXPECT_EQ(C_ERROR::GetPending(), &CerrInvalidValue) << bits;
    C_ERROR::ClearPending();
    CrsaDecrypt(bits, keys.publicKey.data(), static_cast<int>(data.size()), data.data(), &size, &result);
    EXPECT_EQ(C_ERROR::GetPending(), &CerrInvalidValue) << bits;
    EXPECT_EQ(size, -3);
    EXPECT_EQ(result, &sentinel);
  }
  C_ERROR::ClearPending();
  CrsaEncrypt(64, keys.publicKey.data(), -1, data.data(), &size, &result);
  EXPECT_EQ(C_ERROR::GetPending(), &CerrInvalidValue);
  C_ERROR::ClearPending();
  CrsaEncrypt(64, nullptr, 4, data.data(), &size, &result);
  EXPECT_EQ(C_ERROR::GetPending(), &CerrInvalidPointer);
  C_ERROR::ClearPending();
  CrsaDecrypt(64, keys.publicKey.data(), 8, nullptr, &size, &result);
  EXPECT_EQ(C_ERROR::GetPending(), &CerrInvalidPointer);
  EXPECT_EQ(size, -3);
  EXPECT_EQ(result, &sentinel);
}

TEST(Rsa, ShortInputsStayInsideTheirBuffers) {
  const KeyPair keys = Generate(128, 5);
  // Fewer bytes than one block: one zero byte and a size of 0.
  for (int dataSize = 0; dataSize < 16; ++dataSize) {
    const Bytes data = Pattern(static_cast<size_t>(dataSize), 9);
    int size = -1;
    unsigned char* result = nullptr;
    CrsaDecrypt(128, keys.privateKey.data(), dataSize, data.data(), &size, &result);
    ASSERT_FALSE(C_ERROR::Is());
    EXPECT_EQ(size, 0);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result[0], 0);
    delete[] result;
  }
  // Trailing bytes of an incomplete block are ignored.
  const Bytes data = Pattern(40, 4);
  const Bytes cipher = Encrypt(128, keys.publicKey, data);
  ASSERT_EQ(cipher.size(), 48u);
  Bytes extended = cipher;
  extended.insert(extended.end(), {1, 2, 3, 4, 5});
  EXPECT_EQ(Decrypt(128, keys.privateKey, extended), Decrypt(128, keys.privateKey, cipher));
  // Empty data encrypts to nothing.
  int size = -1;
  unsigned char* result = nullptr;
  CrsaEncrypt(128, keys.publicKey.data(), 0, nullptr, &size, &result);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(size, 0);
  delete[] result;
  // A blob that is not a key: arbitrary output, but no access outside the buffers.
  Bytes garbage(32, 0xFF);
  const Bytes scrambled = Encrypt(128, garbage, data);
  EXPECT_EQ(scrambled.size(), 48u);
  EXPECT_EQ(Decrypt(128, garbage, scrambled).size(), 48u);
  // A zero modulus cannot be computed with.
  Bytes zero(32, 0);
  result = nullptr;
  CrsaEncrypt(128, zero.data(), static_cast<int>(data.size()), data.data(), &size, &result);
  EXPECT_EQ(C_ERROR::GetPending(), &CerrInvalidValue);
  EXPECT_EQ(result, nullptr);
}

}  // namespace
