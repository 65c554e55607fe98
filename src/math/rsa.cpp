// Textbook RSA on byte strings over Crypto++'s big integers. Key blobs, the
// bit packing of blocks and the key generation procedure are the library's
// own; every random byte comes from the library's integer generator, so that
// a seed reproduces a key pair.
#include <algorithm>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include <cryptopp/cryptlib.h>
#include <cryptopp/integer.h>
#include <cryptopp/nbtheory.h>

#include <qorc/error.h>
#include <qorc/numerics.h>
#include <qorc/rsa.h>

#include "foundation/library.h"
#include "math/generators.h"

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

Integer RandomPrime(IntRandByteSource& source, int bits) {
  Integer prime;
  do {
    prime.Randomize(source, static_cast<size_t>(bits));
    prime.SetBit(static_cast<size_t>(bits - 1));
    prime.SetBit(0);
  } while (!CryptoPP::IsPrime(prime));
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
      // have always followed it.
      Integer m;
      m.Randomize(source, Integer::Zero(), n);
      const Integer c = PowerMod(m, e, n);
      if (PowerMod(c, d, n) != m) {
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
