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

#include "foundation/builtins.h"
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

// A number as 64-bit words, least significant first.
using Words = std::vector<std::uint64_t>;

Words WordsFromBytes(const unsigned char* bytes, size_t size) {
  Words words((size + 7) / 8, 0);
  for (size_t i = 0; i < size; ++i) {
    const size_t bit = 8 * (size - 1 - i);
    words[bit / 64] |= static_cast<std::uint64_t>(bytes[i]) << (bit % 64);
  }
  return words;
}

Integer IntegerFromWords(const Words& words) {
  std::vector<CryptoPP::byte> bytes(8 * words.size());
  for (size_t i = 0; i < words.size(); ++i) {
    for (size_t j = 0; j < 8; ++j)
      bytes[bytes.size() - 1 - (8 * i + j)] = static_cast<CryptoPP::byte>(words[i] >> (8 * j));
  }
  return Integer(bytes.data(), bytes.size());
}

Words WordsFromInteger(const Integer& value, size_t count) {
  std::vector<CryptoPP::byte> bytes(8 * count);
  value.Encode(bytes.data(), bytes.size());
  return WordsFromBytes(bytes.data(), bytes.size());
}

// Montgomery squaring of an L-word x below the modulus n: x * x / 2^(64 L)
// modulo n, into out (which may be x). minusInverse is -n^-1 modulo 2^64.
// Column by column: each column of the square (cross products once,
// doubled) and of the reduction is summed in a three-word accumulator, which
// keeps the carries off the multiplications' path.
template <size_t L>
void MontgomerySquare(const std::uint64_t* x, const std::uint64_t* n, std::uint64_t minusInverse, std::uint64_t* out) {
  using Wide = qorc::Uint128;
  std::uint64_t m[L];
  std::uint64_t r[L + 1];
  Wide low = 0;            // the accumulator's two low words
  std::uint64_t high = 0;  // its third word
  auto add = [&](Wide product) {
    low += product;
    high += low < product;
  };
  for (size_t k = 0; k < 2 * L - 1; ++k) {
    const size_t first = k < L ? 0 : k - L + 1;
    // Cross products x[i] x[k-i] with i < k - i, twice; then the square term.
    for (size_t i = first; i < k - i; ++i) {
      const Wide product = static_cast<Wide>(x[i]) * x[k - i];
      add(product);
      add(product);
    }
    if (k % 2 == 0) add(static_cast<Wide>(x[k / 2]) * x[k / 2]);
    // Reduction terms m[i] n[k-i] for the m already known.
    const size_t last = k < L ? k : L;  // exclusive
    for (size_t i = first; i < last; ++i) add(static_cast<Wide>(m[i]) * n[k - i]);
    if (k < L) {
      m[k] = static_cast<std::uint64_t>(low) * minusInverse;
      add(static_cast<Wide>(m[k]) * n[0]);
    } else {
      r[k - L] = static_cast<std::uint64_t>(low);
    }
    low = (low >> 64) | (static_cast<Wide>(high) << 64);
    high = 0;
  }
  r[L - 1] = static_cast<std::uint64_t>(low);
  r[L] = static_cast<std::uint64_t>(low >> 64);
  bool subtract = r[L] != 0;
  if (!subtract) {
    size_t i = L;
    while (i > 0 && r[i - 1] == n[i - 1]) --i;
    subtract = i == 0 || r[i - 1] > n[i - 1];
  }
  if (subtract) {
    std::uint64_t borrow = 0;
    for (size_t i = 0; i < L; ++i) {
      const Wide difference = static_cast<Wide>(r[i]) - n[i] - borrow;
      out[i] = static_cast<std::uint64_t>(difference);
      borrow = static_cast<std::uint64_t>(difference >> 64) & 1;
    }
  } else {
    std::copy(r, r + L, out);
  }
}

// x = 3 x modulo n, for an L-word x below n.
template <size_t L>
void TripleModulo(std::uint64_t* x, const std::uint64_t* n) {
  using Wide = qorc::Uint128;
  std::uint64_t carry = 0;
  for (size_t i = 0; i < L; ++i) {
    const Wide product = static_cast<Wide>(x[i]) * 3 + carry;
    x[i] = static_cast<std::uint64_t>(product);
    carry = static_cast<std::uint64_t>(product >> 64);
  }
  // 3x is below 3n: at most two subtractions.
  for (int round = 0; round < 2; ++round) {
    if (carry == 0) {
      size_t i = L;
      while (i > 0 && x[i - 1] == n[i - 1]) --i;
      if (i > 0 && x[i - 1] < n[i - 1]) return;
    }
    std::uint64_t borrow = 0;
    for (size_t i = 0; i < L; ++i) {
      const Wide difference = static_cast<Wide>(x[i]) - n[i] - borrow;
      x[i] = static_cast<std::uint64_t>(difference);
      borrow = static_cast<std::uint64_t>(difference >> 64) & 1;
    }
    carry -= borrow;
  }
}

// Strong probable-prime test to base 3 of an odd L-word modulus n above 3
// that 3 does not divide: the answer of Crypto++'s IsStrongProbablePrime(n,
// 3). The powers of 3 need only Montgomery squarings and multiplications by
// 3, which are additions.
template <size_t L>
bool StrongProbablePrimeBase3Words(const std::uint64_t* n, const Integer& value) {
  std::uint64_t inverse = n[0];  // Newton's iteration for n^-1 modulo 2^64
  for (int step = 0; step < 6; ++step) inverse *= 2 - n[0] * inverse;
  const std::uint64_t minusInverse = 0 - inverse;
  // One and minus one in Montgomery form: R mod n and n - (R mod n).
  const Words oneWords = WordsFromInteger(Integer::Power2(64 * L) % value, L);
  std::uint64_t one[L];
  std::uint64_t minusOne[L];
  std::copy(oneWords.begin(), oneWords.end(), one);
  std::uint64_t borrow = 0;
  for (size_t i = 0; i < L; ++i) {
    const qorc::Uint128 difference = static_cast<qorc::Uint128>(n[i]) - one[i] - borrow;
    minusOne[i] = static_cast<std::uint64_t>(difference);
    borrow = static_cast<std::uint64_t>(difference >> 64) & 1;
  }
  const auto bit = [n](unsigned int i) { return ((n[i / 64] >> (i % 64)) & 1) != 0; };
  // n - 1 = d * 2^s with d odd; n and n - 1 share their bits above bit 0.
  unsigned int s = 1;
  while (!bit(s)) ++s;
  const unsigned int top = static_cast<unsigned int>(64 * L - 1 - static_cast<size_t>(qorc::CountLeadingZeros64(n[L - 1])));
  // 3^d from the top bit of d down; d's top bit gives 3 itself.
  std::uint64_t x[L];
  std::copy(one, one + L, x);
  TripleModulo<L>(x, n);
  for (unsigned int b = top; b-- > s;) {
    MontgomerySquare<L>(x, n, minusInverse, x);
    if (bit(b)) TripleModulo<L>(x, n);
  }
  const auto equals = [&x](const std::uint64_t* other) { return std::equal(x, x + L, other); };
  if (equals(one) || equals(minusOne)) return true;
  for (unsigned int j = 1; j < s; ++j) {
    MontgomerySquare<L>(x, n, minusInverse, x);
    if (equals(minusOne)) return true;
    if (equals(one)) return false;
  }
  return false;
}

// The word-sized test for the sizes that keys of usual lengths give, else
// Crypto++'s. n has no leading zero word.
bool StrongProbablePrimeBase3(const Words& n, const Integer& value) {
  switch (n.size()) {
    case 1:
      return StrongProbablePrimeBase3Words<1>(n.data(), value);
    case 2:
      return StrongProbablePrimeBase3Words<2>(n.data(), value);
    case 3:
      return StrongProbablePrimeBase3Words<3>(n.data(), value);
    case 4:
      return StrongProbablePrimeBase3Words<4>(n.data(), value);
    case 6:
      return StrongProbablePrimeBase3Words<6>(n.data(), value);
    case 8:
      return StrongProbablePrimeBase3Words<8>(n.data(), value);
    case 12:
      return StrongProbablePrimeBase3Words<12>(n.data(), value);
    case 16:
      return StrongProbablePrimeBase3Words<16>(n.data(), value);
    case 24:
      return StrongProbablePrimeBase3Words<24>(n.data(), value);
    case 32:
      return StrongProbablePrimeBase3Words<32>(n.data(), value);
    default:
      return CryptoPP::IsStrongProbablePrime(value, Integer(3));
  }
}

// Residues of a number modulo a block of primes: the number is given in
// 32-bit chunks, least significant first, and powers[i * stride + l] holds
// 2^(32 i) modulo prime l. Each residue is left as a sum below 2^64 (chunks
// below 2^32 times powers below 2^15, at most kMaxChunks of them) that is
// congruent to the number. The loops are independent across primes, so they
// run on vector units; where the processor has wider ones, a second version
// of the function uses them.
constexpr size_t kPrimeBlock = 32;
constexpr size_t kMaxChunks = 1024;

#if defined(__x86_64__) && defined(__ELF__) && defined(__GNUC__)
__attribute__((target_clones("avx2", "default")))
#endif
void ResidueSums(const std::uint32_t* chunks, size_t chunkCount, const std::uint32_t* powers, size_t stride,
                 std::uint64_t* sums) {
  std::uint64_t block[kPrimeBlock] = {};
  for (size_t i = 0; i < chunkCount; ++i) {
    const std::uint64_t chunk = chunks[i];
    const std::uint32_t* power = powers + i * stride;
    for (size_t l = 0; l < kPrimeBlock; ++l) block[l] += chunk * power[l];
  }
  std::copy(block, block + kPrimeBlock, sums);
}

// Crypto++'s IsPrime, answer for answer, faster. IsPrime tries every prime of
// Crypto++'s table (up to 32719) by a division of the big integer, then runs
// a strong probable-prime test to base 3 and a strong Lucas test. Most random
// candidates that key generation draws go through much of the table, which
// makes the divisions a large part of the cost. Here divisibility by the
// table's odd primes is decided 32 primes at a time from residue sums (above),
// by multiplication with each prime's inverse modulo 2^64. The base-3 test
// works on machine words (above); the Lucas test, run only for the few
// candidates that pass both, is Crypto++'s.
class PrimeTest {
 public:
  PrimeTest() {
    unsigned int size = 0;
    const CryptoPP::word16* table = CryptoPP::GetPrimeTable(size);
    const std::uint64_t lastSmallPrime = table[size - 1];
    lastSmallPrimeSquared_ = lastSmallPrime * lastSmallPrime;
    // table[0] is 2, which an odd candidate passes. The last block is padded
    // by repeating the last prime, which changes no answer.
    for (unsigned int i = 1; i < size; ++i) primes_.push_back(table[i]);
    while (primes_.size() % kPrimeBlock != 0) primes_.push_back(table[size - 1]);
    for (std::uint32_t prime : primes_) {
      std::uint64_t inverse = prime;  // Newton's iteration for prime^-1 modulo 2^64
      for (int step = 0; step < 5; ++step) inverse *= 2 - prime * inverse;
      inverses_.push_back(inverse);
      limits_.push_back(~std::uint64_t{0} / prime);
      powers_.push_back(1);  // 2^0 modulo the prime
    }
  }

  // The candidate as words, least significant first.
  bool IsPrime(const Words& candidate) const {
    size_t used = candidate.size();
    while (used > 0 && candidate[used - 1] == 0) --used;
    const Words n(candidate.begin(), candidate.begin() + static_cast<long>(used));
    if ((used <= 1 && (used == 0 || n[0] <= lastSmallPrimeSquared_)) || 2 * used > kMaxChunks) {
      return CryptoPP::IsPrime(IntegerFromWords(n));
    }
    if ((n[0] & 1) == 0 || HasSmallDivisor(n)) return false;
    const Integer value = IntegerFromWords(n);
    return StrongProbablePrimeBase3(n, value) && CryptoPP::IsStrongLucasProbablePrime(value);
  }

 private:
  bool HasSmallDivisor(const Words& n) const {
    std::vector<std::uint32_t> chunks;
    chunks.reserve(2 * n.size());
    for (std::uint64_t word : n) {
      chunks.push_back(static_cast<std::uint32_t>(word));
      chunks.push_back(static_cast<std::uint32_t>(word >> 32));
    }
    EnsurePowers(chunks.size());
    const size_t stride = primes_.size();
    std::uint64_t sums[kPrimeBlock];
    for (size_t b = 0; b < stride; b += kPrimeBlock) {
      ResidueSums(chunks.data(), chunks.size(), powers_.data() + b, stride, sums);
      for (size_t l = 0; l < kPrimeBlock; ++l) {
        if (sums[l] * inverses_[b + l] <= limits_[b + l]) return true;
      }
    }
    return false;
  }

  // Rows of 2^(32 i) modulo each prime, for i below chunkCount.
  void EnsurePowers(size_t chunkCount) const {
    const size_t stride = primes_.size();
    for (size_t row = powers_.size() / stride; row < chunkCount; ++row) {
      for (size_t l = 0; l < stride; ++l) {
        const std::uint64_t previous = powers_[(row - 1) * stride + l];
        powers_.push_back(static_cast<std::uint32_t>((previous << 32) % primes_[l]));
      }
    }
  }

  std::uint64_t lastSmallPrimeSquared_;
  std::vector<std::uint32_t> primes_;
  std::vector<std::uint64_t> inverses_;
  std::vector<std::uint64_t> limits_;
  // Grows with the largest candidate seen; the library runs on one thread.
  mutable std::vector<std::uint32_t> powers_;
};

const PrimeTest& ThePrimeTest() {
  static const PrimeTest test;
  return test;
}

// Draws candidates as Crypto++'s Integer::Randomize(source, bits) would:
// bits / 8 + 1 bytes from the source, most significant first, the first
// one cut to its low bits % 8 bits. The top bit and bit 0 are then set.
// The candidates stay machine words until one of them is prime.
Integer RandomPrime(IntRandByteSource& source, int bits) {
  const PrimeTest& test = ThePrimeTest();
  const size_t byteCount = static_cast<size_t>(bits) / 8 + 1;
  std::vector<CryptoPP::byte> bytes(byteCount);
  for (;;) {
    source.GenerateBlock(bytes.data(), byteCount);
    bytes[0] = static_cast<CryptoPP::byte>(bytes[0] & ((1u << (bits % 8)) - 1));
    Words candidate = WordsFromBytes(bytes.data(), byteCount);
    const size_t top = static_cast<size_t>(bits - 1);
    candidate[top / 64] |= std::uint64_t{1} << (top % 64);
    candidate[0] |= 1;
    if (test.IsPrime(candidate)) return IntegerFromWords(candidate);
  }
}

// True when e and phi have no common divisor. phi = (p - 1)(q - 1) is even,
// and often divisible by other small primes: a common small factor settles
// the question without the Euclidean algorithm on the whole numbers.
class CoprimeTest {
 public:
  explicit CoprimeTest(const Integer& phi) : phi_(phi) {
    for (CryptoPP::word prime : {3, 5, 7, 11, 13, 17, 19, 23, 29, 31, 37, 41, 43, 47}) {
      if (phi.Modulo(prime) == 0) sharedPrimes_.push_back(prime);
    }
  }

  bool Coprime(const Integer& e) const {
    if (phi_.IsEven() && e.IsEven()) return false;
    for (CryptoPP::word prime : sharedPrimes_) {
      if (e.Modulo(prime) == 0) return false;
    }
    return Integer::Gcd(e, phi_) == Integer::One();
  }

 private:
  Integer phi_;
  std::vector<CryptoPP::word> sharedPrimes_;
};

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
  Guarded([&] { prime = ThePrimeTest().IsPrime(WordsFromBytes(number, size)); });
  return prime;
}

bool RsaIsStrongProbablePrimeBase3(const unsigned char* number, std::size_t size) {
  bool probablePrime = false;
  Guarded([&] {
    Words words = WordsFromBytes(number, size);
    while (words.size() > 1 && words.back() == 0) words.pop_back();
    probablePrime = StrongProbablePrimeBase3(words, Integer(number, size));
  });
  return probablePrime;
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
      const CoprimeTest coprime(phi);
      Integer e;
      do e.Randomize(source, Integer(3), n);
      while (!coprime.Coprime(e));
      const Integer d = e.InverseMod(phi);

      Bytes publicBlob = NewBytes(2 * static_cast<long long>(k));
      if (!publicBlob) return;
      Bytes privateBlob = NewBytes(2 * static_cast<long long>(k));
      if (!privateBlob) return;
      n.Encode(publicBlob.get(), k);
      e.Encode(publicBlob.get() + k, k);
      n.Encode(privateBlob.get(), k);
      d.Encode(privateBlob.get() + k, k);

      // Generation has always ended with a round trip of a random number
      // through both keys, whose outcome was never used. Its number is still
      // drawn, because the generator's later draws (and every pair made
      // after an unseeded generation) have always followed it; computing
      // the round trip itself would only cost time.
      Integer m;
      m.Randomize(source, Integer::Zero(), n);
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
