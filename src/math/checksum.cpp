// CRC-32 and Adler-32 checksums: zlib's published algorithms, computed by
// libdeflate, which gives zlib's values at several times its speed.
#include <libdeflate.h>
#include <qorc/numerics.h>

#include <cstddef>

namespace {

// The values zlib starts from, which are also the checksums of no bytes.
constexpr unsigned int kCrcStart = 0;
constexpr unsigned int kAdlerStart = 1;

}  // namespace

unsigned int CchecksumCRC(int size, const void* data) {
  if (size <= 0 || data == nullptr) return kCrcStart;
  return libdeflate_crc32(kCrcStart, data, static_cast<std::size_t>(size));
}

unsigned int CchecksumAdler(int size, const void* data) {
  if (size <= 0 || data == nullptr) return kAdlerStart;
  return libdeflate_adler32(kAdlerStart, data, static_cast<std::size_t>(size));
}
