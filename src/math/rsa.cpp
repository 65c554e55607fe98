// Textbook RSA on byte strings over Crypto++'s big integers. Key blobs, the
// bit packing of blocks and the key generation procedure are the library's
// own; every random byte comes from the library's integer generator, so that
// a seed reproduces a key pair.
#include <cryptopp/cryptlib.h>
#include <cryptopp/integer.h>
#include <cryptopp/nbtheory.h>
#include <qorc/error.h>
#include <qorc/numerics.h>
#include <qorc/rsa.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "foundation/library.h"
#include "math/generators.h"
#include "math/rsa_internal.h"

namespace {

using CryptoPP::Integer;

// Random bytes for Crypto++ drawn from CmathIntRand: each result gives three
// bytes, its bits 4 to 11, 12 to 19 and 20 to 27, in that order.
class IntRandByteSource : public CryptoPP::RandomNumberGenerator {
 public:
  CryptoPP::byte GenerateByte() override {
    if (left_ == 0) {
      buffer_ = CmathIntRand() >> 4;
      left_ = 3;
    }
    const CryptoPP::byte byte = static_cast<CryptoPP::byte>(buffer_ & 0xFF);
    buffer_ >>= 8;
    --left_;
    return byte;
  }

  void GenerateBlock(CryptoPP::byte* output, size_t size) override {
    for (size_t i = 0; i < size; ++i) output[i] = GenerateByte();
  }

  // A copy would hand out the same bytes twice.
  CryptoPP::Clonable* Clone() const override { throw CryptoPP::NotImplemented("Clone() is not implemented yet."); }

 private:
  unsigned int buffer_ = 0;
  int left_ = 0;
};

// base^exponent modulo modulus. Crypto++ declares the function a friend of
// Integer, so only argument-dependent lookup finds it.
Integer PowerMod(const Integer& base, const Integer& exponent, const Integer& modulus) {
  return a_exp_b_mod_c(base, exponent, modulus);
}

bool ValidKeySize(int bits) { return bits >= 8 && bits % 8 == 0; }

bool GetBit(const unsigned char* bytes, long long bit) { return (bytes[bit >> 3] >> (7 - (bit & 7))) & 1; }

// Copies count bits, numbered from the most significant bit of the first byte,
// from source at sourceBit into destination at destinationBit. The
// destination's bits in that range must be zero. Only the source bytes that
// hold the bits are read, and only the destination bytes that receive them are
// written.
void CopyBits(const unsigned char* source, long long sourceBit, long long count, unsigned char* destination,
              long long destinationBit) {
  for (long long i = 0; i < count; ++i) {
    if (GetBit(source, sourceBit + i)) {
      const long long bit = destinationBit + i;
      destination[bit >> 3] = static_cast<unsigned char>(destination[bit >> 3] | (0x80 >> (bit & 7)));
    }
  }
}

// Runs an operation that uses Crypto++, turning its exceptions into the
// pending error: exhausted memory, or arithmetic that a blob which is not a
// key makes impossible (a zero modulus).
template <typename Operation>
void Guarded(Operation operation) {
  try {
    operation();
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
  } catch (const CryptoPP::Exception&) {
    CerrInvalidValue.Trigger();
  }
}

// Crypto++'s IsPrime, answer for answer, with a faster search for small
// divisors. IsPrime tries every prime of Crypto++'s table (up to 32719) by a
// division of the big integer, then runs a strong probable-prime test to base
// 3 and a strong Lucas test. Most random candidates that key generation draws
// go through the whole table, which makes the divisions most of the cost.
// Here the candidate is reduced once modulo each product of two table primes,
// 32 bits at a time with a precomputed reciprocal instead of a division, and
// divisibility by each prime is read off the residue by multiplication with
// the prime's inverse modulo 2^32.
class PrimeTest {
 public:
  PrimeTest() {
    unsigned int size = 0;
    const CryptoPP::word16* primes = CryptoPP::GetPrimeTable(size);
    lastSmallPrimeSquared_ = Integer(static_cast<long>(primes[size - 1])).Squared();
    // primes[0] is 2, which an odd candidate passes.
    for (unsigned int i = 1; i < size; i += 2) {
      Group group;
      group.count = i + 1 < size ? 2 : 1;
      group.modulus = 1;
      for (int j = 0; j < group.count; ++j) {
        const std::uint32_t prime = primes[i + static_cast<unsigned int>(j)];
        std::uint32_t inverse = prime;  // Newton's iteration for prime^-1 modulo 2^32
        for (int step = 0; step < 4; ++step) inverse *= 2 - prime * inverse;
        group.inverse[j] = inverse;
        group.limit[j] = 0xFFFFFFFFu / prime;
        group.modulus *= prime;
      }
      group.reciprocal = ~std::uint64_t{0} / group.modulus;
      groups_.push_back(group);
    }
    // Padding to whole sets of groups: modulus 1, no prime to test.
    while (groups_.size() % kInterleave != 0) groups_.push_back(Group{1, ~std::uint64_t{0}, 0, {0, 0}, {0, 0}});
  }

  bool IsPrime(const Integer& candidate) const {
    if (candidate <= lastSmallPrimeSquared_ || candidate.IsNegative()) return CryptoPP::IsPrime(candidate);
    if (candidate.IsEven() || HasSmallDivisor(candidate)) return false;
    return CryptoPP::IsStrongProbablePrime(candidate, Integer(3)) && CryptoPP::IsStrongLucasProbablePrime(candidate);
  }

 private:
  struct Group {
    std::uint64_t modulus;     // product of at most two table primes, below 2^30
    std::uint64_t reciprocal;  // floor((2^64 - 1) / modulus)
    int count;
    std::uint32_t inverse[2];
    std::uint32_t limit[2];
  };

  bool HasSmallDivisor(const Integer& candidate) const {
    // The candidate in 32-bit words, most significant first.
    const size_t words = (candidate.ByteCount() + 3) / 4;
    std::vector<CryptoPP::byte> bytes(words * 4);
    candidate.Encode(bytes.data(), bytes.size());
    std::vector<std::uint32_t> chunks(words);
    for (size_t i = 0; i < words; ++i) {
      chunks[i] = static_cast<std::uint32_t>(bytes[4 * i]) << 24 | static_cast<std::uint32_t>(bytes[4 * i + 1]) << 16 |
                  static_cast<std::uint32_t>(bytes[4 * i + 2]) << 8 | bytes[4 * i + 3];
    }
    // Four groups at a time, so that their independent reductions overlap.
    for (size_t g = 0; g < groups_.size(); g += kInterleave) {
      const Group* group = &groups_[g];
      std::uint64_t residue[kInterleave] = {};
      for (std::uint32_t chunk : chunks) {
        for (size_t i = 0; i < kInterleave; ++i) residue[i] = Reduce((residue[i] << 32) | chunk, group[i]);
      }
      for (size_t i = 0; i < kInterleave; ++i) {
        for (int j = 0; j < group[i].count; ++j) {
          if (static_cast<std::uint32_t>(residue[i]) * group[i].inverse[j] <= group[i].limit[j]) return true;
        }
      }
    }
    return false;
  }

  // x modulo the group's modulus, for x below 2^62: the quotient estimate
  // from the reciprocal is at most one short.
  static std::uint64_t Reduce(std::uint64_t x, const Group& group) {
    const std::uint64_t quotient =
        static_cast<std::uint64_t>((static_cast<unsigned __int128>(x) * group.reciprocal) >> 64);
    const std::uint64_t residue = x - quotient * group.modulus;
    return residue >= group.modulus ? residue - group.modulus : residue;
  }

  static constexpr size_t kInterleave = 8;

  Integer lastSmallPrimeSquared_;
  std::vector<Group> groups_;
};

const PrimeTest& ThePrimeTest() {
  static const PrimeTest test;
  return test;
}

Integer RandomPrime(IntRandByteSource& source, int bits) {
  const PrimeTest& test = ThePrimeTest();
  Integer prime;
  do {
    prime.Randomize(source, static_cast<size_t>(bits));
    prime.SetBit(static_cast<size_t>(bits - 1));
    prime.SetBit(0);
  } while (!test.IsPrime(prime));
  return prime;
}

// The buffers handed to the caller are arrays of bytes, released with
// delete[]; they are held here until the operation has succeeded.
using Bytes = std::unique_ptr<unsigned char[]>;

// A zeroed array, or null with CerrMemoryFull pending.
Bytes NewBytes(long long size) {
  Bytes bytes(qorc::NewArray<unsigned char>(static_cast<size_t>(size)));
  if (bytes) std::memset(bytes.get(), 0, static_cast<size_t>(size));
  return bytes;
}

}  // namespace

namespace qorc {

bool RsaIsPrime(const unsigned char* number, std::size_t size) {
  bool prime = false;
  Guarded([&] { prime = ThePrimeTest().IsPrime(Integer(number, size)); });
  return prime;
}

}  // namespace qorc

void CrsaGenerateKeys(int bits, unsigned char** publicKey, unsigned char** privateKey, int* keySize,
                      unsigned int seed) {
  if (!ValidKeySize(bits)) {
    CerrInvalidValue.Trigger();
    return;
  }
  if (publicKey == nullptr || privateKey == nullptr || keySize == nullptr) {
    CerrInvalidPointer.Trigger();
    return;
  }
  const unsigned int savedState = qorc::IntRandState();
  if (seed != 0) qorc::SeedIntRand(seed);
  // A state that is a multiple of 2^31 - 1 repeats one value for ever: no
  // prime would ever be drawn from it.
  if (qorc::IntRandIsStuck()) {
    CerrInvalidValue.Trigger();
  } else {
    const size_t k = static_cast<size_t>(bits / 8);
    Guarded([&] {
      IntRandByteSource source;
      Integer p;
      Integer q;
      Integer n;
      do {
        p = RandomPrime(source, bits / 2);
        // Equal factors would make a modulus whose totient is not (p-1)(q-1),
        // and so a key that does not decrypt.
        do q = RandomPrime(source, bits / 2);
        while (q == p);
        n = p * q;
      } while (n.BitCount() != static_cast<unsigned int>(bits));
      const Integer phi = (p - Integer::One()) * (q - Integer::One());
      Integer e;
      do e.Randomize(source, Integer(3), n);
      while (Integer::Gcd(e, phi) != Integer::One());
      const Integer d = e.InverseMod(phi);

      Bytes publicBlob = NewBytes(2 * static_cast<long long>(k));
      if (!publicBlob) return;
      Bytes privateBlob = NewBytes(2 * static_cast<long long>(k));
      if (!privateBlob) return;
      n.Encode(publicBlob.get(), k);
      e.Encode(publicBlob.get() + k, k);
      n.Encode(privateBlob.get(), k);
      d.Encode(privateBlob.get() + k, k);

      // A round trip through both keys. Besides checking the pair, it draws a
      // number from the generator, and the draws after a seeded generation
      // have always followed it. The number may be n itself, which stands
      // for 0.
      Integer m;
      m.Randomize(source, Integer::Zero(), n);
      const Integer c = PowerMod(m, e, n);
      if (PowerMod(c, d, n) != m % n) {
        CerrInternalError.Trigger();
        return;
      }
      *publicKey = publicBlob.release();
      *privateKey = privateBlob.release();
      *keySize = static_cast<int>(2 * k);
    });
  }
  if (seed != 0) qorc::SeedIntRand(savedState);
}

void CrsaEncrypt(int bits, const unsigned char* key, int dataSize, const unsigned char* data, int* resultSize,
                 unsigned char** result) {
  if (!ValidKeySize(bits) || dataSize < 0) {
    CerrInvalidValue.Trigger();
    return;
  }
  if (key == nullptr || (data == nullptr && dataSize > 0) || resultSize == nullptr || result == nullptr) {
    CerrInvalidPointer.Trigger();
    return;
  }
  const size_t k = static_cast<size_t>(bits / 8);
  const long long pieceBits = bits - 1;
  const long long totalBits = 8LL * dataSize;
  const long long full = totalBits / pieceBits;
  const long long rest = totalBits % pieceBits;
  const long long size = (full + (rest != 0 ? 1 : 0)) * static_cast<long long>(k);
  if (size >= INT_MAX) {
    CerrValueTooHigh.Trigger();
    return;
  }
  Guarded([&] {
    const Integer modulus(key, k);
    const Integer exponent(key + k, k);
    std::vector<unsigned char> work(k + 1);
    Bytes output = NewBytes(size + 1);
    if (!output) return;
    for (long long i = 0; i < full; ++i) {
      std::fill(work.begin(), work.end(), 0);
      CopyBits(data, i * pieceBits, pieceBits, work.data(), 1);
      PowerMod(Integer(work.data(), k), exponent, modulus).Encode(output.get() + i * k, k);
    }
    if (rest != 0) {
      // The last block is padded with random bytes. k bytes are drawn, the
      // last of them behind the block, and the data overwrites the bytes it
      // reaches, its last byte ending in zero bits; no length is recorded.
      IntRandByteSource source;
      work[0] = 0;
      for (size_t j = 1; j <= k; ++j) work[j] = source.GenerateByte();
      std::fill(work.begin(), work.begin() + static_cast<long>(rest / 8 + 1), 0);
      CopyBits(data, full * pieceBits, rest, work.data(), 1);
      PowerMod(Integer(work.data(), k), exponent, modulus).Encode(output.get() + full * k, k);
    }
    *resultSize = static_cast<int>(size);
    *result = output.release();
  });
}

void CrsaDecrypt(int bits, const unsigned char* key, int dataSize, const unsigned char* data, int* resultSize,
                 unsigned char** result) {
  if (!ValidKeySize(bits) || dataSize < 0) {
    CerrInvalidValue.Trigger();
    return;
  }
  if ((data == nullptr && dataSize > 0) || resultSize == nullptr || result == nullptr) {
    CerrInvalidPointer.Trigger();
    return;
  }
  const size_t k = static_cast<size_t>(bits / 8);
  const long long pieceBits = bits - 1;
  const long long blocks = dataSize / static_cast<long long>(k);
  const long long size = (blocks * pieceBits + 7) / 8;
  if (blocks > 0 && key == nullptr) {
    CerrInvalidPointer.Trigger();
    return;
  }
  Guarded([&] {
    Bytes output = NewBytes(size + 1);
    if (!output) return;
    if (blocks > 0) {
      const Integer modulus(key, k);
      const Integer exponent(key + k, k);
      std::vector<unsigned char> work(k);
      for (long long i = 0; i < blocks; ++i) {
        PowerMod(Integer(data + i * k, k), exponent, modulus).Encode(work.data(), k);
        CopyBits(work.data(), 1, pieceBits, output.get(), i * pieceBits);
      }
    }
    *resultSize = static_cast<int>(size);
    *result = output.release();
  });
}
