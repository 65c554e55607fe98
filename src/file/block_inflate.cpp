// One block of the compressed format decompressed: libdeflate first, zlib's
// uncompress whenever libdeflate does not decode the block exactly.
#include "file/block_inflate.h"

#include <libdeflate.h>
#include <qorc/file.h>
#include <zlib.h>

#include <memory>

namespace qorc::file {

namespace {

struct DecompressorRelease {
  void operator()(libdeflate_decompressor* decompressor) const { libdeflate_free_decompressor(decompressor); }
};

// One decompressor per thread, made at the first block; null when it could
// not be made (zlib then does every block).
libdeflate_decompressor* Decompressor() {
  thread_local std::unique_ptr<libdeflate_decompressor, DecompressorRelease> decompressor(
      libdeflate_alloc_decompressor());
  return decompressor.get();
}

// Only an exact decoding is taken: no error, every input byte used, and
// exactly the stored length out (which the block size bounds). Anything else
// goes to zlib, whose answers decide what a damaged block yields.
bool InflateExactly(const unsigned char* packed, unsigned int packedSize, unsigned int stored, unsigned char* block) {
  libdeflate_decompressor* decompressor = Decompressor();
  if (decompressor == nullptr || stored == 0) return false;
  std::size_t used = 0;
  std::size_t produced = 0;
  const libdeflate_result result = libdeflate_zlib_decompress_ex(decompressor, packed, packedSize, block,
                                                                 C_FILE::COMPRESS_BLOCK_SIZE, &used, &produced);
  return result == LIBDEFLATE_SUCCESS && used == packedSize && produced == stored;
}

}  // namespace

bool InflateBlockWithZlib(const unsigned char* packed, unsigned int packedSize, unsigned int stored,
                          unsigned char* block, unsigned int* fill) {
  uLongf produced = C_FILE::COMPRESS_BLOCK_SIZE;
  int answer = uncompress(block, &produced, packed, packedSize);
  if (answer == Z_BUF_ERROR) {
    // More than a block came out: once more into the whole buffer, and the
    // block holds what its record says.
    produced = C_FILE::COMPRESS_BUFFER_SIZE;
    answer = uncompress(block, &produced, packed, packedSize);
    produced = stored;
  }
  // A data error is taken as success with what came out before it: a
  // damaged block still yields its readable part, which is what the
  // format's readers have always delivered.
  if (answer != Z_OK && answer != Z_DATA_ERROR) return false;
  *fill = static_cast<unsigned int>(produced);
  return true;
}

bool InflateBlock(const unsigned char* packed, unsigned int packedSize, unsigned int stored, unsigned char* block,
                  unsigned int* fill) {
  if (InflateExactly(packed, packedSize, stored, block)) {
    *fill = stored;
    return true;
  }
  return InflateBlockWithZlib(packed, packedSize, stored, block, fill);
}

}  // namespace qorc::file
