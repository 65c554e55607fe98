// CRC-32 and Adler-32 checksums, computed by zlib.
#include <qorc/numerics.h>
#include <zlib.h>

unsigned int CchecksumCRC(int size, const void* data) {
  const uLong initial = crc32(0L, Z_NULL, 0);
  if (size <= 0 || data == nullptr) return static_cast<unsigned int>(initial);
  return static_cast<unsigned int>(crc32(initial, static_cast<const Bytef*>(data), static_cast<uInt>(size)));
}

unsigned int CchecksumAdler(int size, const void* data) {
  const uLong initial = adler32(0L, Z_NULL, 0);
  if (size <= 0 || data == nullptr) return static_cast<unsigned int>(initial);
  return static_cast<unsigned int>(adler32(initial, static_cast<const Bytef*>(data), static_cast<uInt>(size)));
}
