// rsa keygen, encrypt and decrypt: the library's textbook RSA on files.
//
// Key files are the library's key blobs as they are: the modulus, then the
// exponent, each of bits / 8 bytes, most significant byte first; the key
// size is read from the file's size. The library's cipher text does not
// record the length of the data, so an encrypted file begins with
// "QORRSA01" and the data's length (64-bit little-endian), followed by the
// cipher blocks; --raw leaves that header out (and decrypting --raw gives
// whole blocks, padding included).
#include <cstdio>
#include <cstring>
#include <memory>

#include "commands.h"
#include "support.h"

namespace qor {

namespace {

constexpr char kCipherMagic[] = "QORRSA01";
constexpr int kCipherMagicSize = 8;
constexpr int kCipherHeaderSize = 16;
constexpr long long kLargestKeyFile = 1 << 20;
constexpr long long kLargestData = 1LL << 28;

// A blob the library hands out, released with delete[].
using Blob = std::unique_ptr<unsigned char[]>;

bool ReadKey(const std::string& name, std::vector<unsigned char>* key, int* bits) {
  Input input;
  if (!input.Open(name) || !input.ReadAll(kLargestKeyFile, key)) return false;
  // A modulus of the library has exactly `bits` bits: its first byte has
  // its top bit set. Anything else is no key of the library.
  if (key->empty() || key->size() % 2 != 0 || ((*key)[0] & 0x80) == 0) {
    return Fail(CerrInvalidValue, name + " is not a key made by qor rsa keygen");
  }
  *bits = static_cast<int>(key->size() / 2 * 8);
  return true;
}

void StoreLittleEndian64(unsigned long long value, unsigned char* bytes) {
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

unsigned long long LoadLittleEndian64(const unsigned char* bytes) {
  unsigned long long value = 0;
  for (int i = 7; i >= 0; --i) value = value << 8 | bytes[i];
  return value;
}

bool WriteFile(const std::string& name, const unsigned char* data, int size, bool replace, bool secret) {
  Output output;
  if (!output.Open(name, replace)) return false;
  if (secret) output.MakePrivate();
  return output.Write(size, data) && output.Finish();
}

}  // namespace

bool RsaKeygen(int bits, const std::string& prefix, unsigned int seed, bool replace) {
  unsigned char* publicKey = nullptr;
  unsigned char* privateKey = nullptr;
  int keySize = 0;
  CrsaGenerateKeys(bits, &publicKey, &privateKey, &keySize, seed);
  const Blob publicBlob(publicKey);
  const Blob privateBlob(privateKey);
  if (C_ERROR::Is()) {
    AddContextToPending(std::to_string(bits) + " bits: key sizes are multiples of 8");
    return false;
  }
  if (!WriteFile(prefix + ".pub", publicKey, keySize, replace, false) ||
      !WriteFile(prefix + ".key", privateKey, keySize, replace, true)) {
    return false;
  }
  std::printf("%s.pub: public key, %d bits\n%s.key: private key, %d bits\n", prefix.c_str(), bits, prefix.c_str(),
              bits);
  return true;
}

bool RsaEncrypt(const std::string& keyName, const std::string& in, const std::string& out, bool raw, bool replace) {
  std::vector<unsigned char> key;
  std::vector<unsigned char> data;
  int bits = 0;
  Input input;
  if (!ReadKey(keyName, &key, &bits) || !input.Open(in) || !input.ReadAll(kLargestData, &data)) return false;
  int resultSize = 0;
  unsigned char* result = nullptr;
  CrsaEncrypt(bits, key.data(), static_cast<int>(data.size()), data.data(), &resultSize, &result);
  const Blob cipher(result);
  if (C_ERROR::Is()) return false;
  Output output;
  if (!output.Open(out, replace)) return false;
  if (!raw) {
    unsigned char header[kCipherHeaderSize];
    std::memcpy(header, kCipherMagic, kCipherMagicSize);
    StoreLittleEndian64(data.size(), header + kCipherMagicSize);
    if (!output.Write(kCipherHeaderSize, header)) return false;
  }
  return output.Write(resultSize, cipher.get()) && output.Finish();
}

bool RsaDecrypt(const std::string& keyName, const std::string& in, const std::string& out, bool raw, bool replace) {
  std::vector<unsigned char> key;
  std::vector<unsigned char> data;
  int bits = 0;
  Input input;
  if (!ReadKey(keyName, &key, &bits) || !input.Open(in) || !input.ReadAll(kLargestData, &data)) return false;
  unsigned long long length = 0;
  std::size_t skipped = 0;
  if (!raw) {
    if (data.size() < kCipherHeaderSize || std::memcmp(data.data(), kCipherMagic, kCipherMagicSize) != 0) {
      return Fail(CerrFileContainsInvalidCode, in + " was not made by qor rsa encrypt (--raw reads bare blocks)");
    }
    length = LoadLittleEndian64(data.data() + kCipherMagicSize);
    skipped = kCipherHeaderSize;
  }
  const std::size_t cipherSize = data.size() - skipped;
  if (cipherSize % (bits / 8) != 0) {
    return Fail(CerrInvalidValue, in + " is not made of blocks of the key's size (" + std::to_string(bits / 8) +
                                      " bytes): another key encrypted it");
  }
  int resultSize = 0;
  unsigned char* result = nullptr;
  CrsaDecrypt(bits, key.data(), static_cast<int>(cipherSize), data.data() + skipped, &resultSize, &result);
  const Blob plain(result);
  if (C_ERROR::Is()) return false;
  if (raw) length = static_cast<unsigned long long>(resultSize);
  if (length > static_cast<unsigned long long>(resultSize)) {
    return Fail(CerrFileContainsInvalidCode, in + " holds fewer blocks than its header's length needs");
  }
  return WriteFile(out, plain.get(), static_cast<int>(length), replace, false);
}

}  // namespace qor
