/// @file
/// Textbook RSA on byte strings.
///
/// A key blob is 2k bytes for a key of bits = 8k bits: the modulus, then the
/// exponent (public or private), each unsigned, most significant byte first,
/// padded with leading zeros to k bytes.
///
/// Encryption cuts the data, taken as a bit string (most significant bit of
/// each byte first), into pieces of bits - 1 bits; each piece becomes one k-byte
/// cipher block. The last, partial piece is padded with random bits, and the
/// data's length is not recorded: decryption returns whole pieces, so the host
/// keeps the length and cuts the result.
///
/// Keys, blobs and results are arrays of bytes owned by the caller, released
/// with delete[].
#ifndef QORC_RSA_H
#define QORC_RSA_H

#include <qorc/export.h>

/// Makes a key pair of bits bits (a multiple of 8, at least 8) from the
/// library's integer generator; *keySize receives the size of each blob. A
/// non-zero seed makes the pair reproducible and leaves the generator as it
/// was; 0 draws from the generator as it stands. A bad size gives
/// CerrInvalidValue and leaves the outputs untouched.
QORC_API void CrsaGenerateKeys(int bits, unsigned char** publicKey, unsigned char** privateKey, int* keySize,
                               unsigned int seed);
/// The result (*resultSize bytes, one k-byte block per piece) is a new array
/// released by the caller with delete[]; CerrInvalidValue for a bad key size,
/// CerrInvalidPointer for a null key, data or result pointer.
/// Encrypts dataSize bytes with the exponent of the given blob (2 * bits / 8
/// bytes are read from it).
QORC_API void CrsaEncrypt(int bits, const unsigned char* key, int dataSize, const unsigned char* data, int* resultSize,
                          unsigned char** result);
/// The result is a new array of *resultSize bytes released by the caller with
/// delete[]; CerrInvalidValue for a bad key size, CerrInvalidPointer for a null pointer.
/// Decrypts the whole k-byte blocks of data; trailing bytes are ignored.
QORC_API void CrsaDecrypt(int bits, const unsigned char* key, int dataSize, const unsigned char* data, int* resultSize,
                          unsigned char** result);

#endif
