// Compression of one block of the compressed format.
#ifndef QORC_FILE_BLOCK_DEFLATE_H
#define QORC_FILE_BLOCK_DEFLATE_H

#include <cstddef>
#include <memory>

namespace qorc::file {

// zlib's compress at the default level, byte for byte, with the memory zlib
// asks for taken from an area kept from one block to the next instead of
// fresh from the heap for every block: allocating and releasing a quarter
// of a megabyte per block made the system zero new pages over and over.
// One per thread; the area is the deflater's own, so nothing is shared.
class BlockDeflater {
 public:
  BlockDeflater();
  ~BlockDeflater();
  BlockDeflater(const BlockDeflater&) = delete;
  BlockDeflater& operator=(const BlockDeflater&) = delete;

  // Compresses `size` bytes into `packed` (room for `room` bytes); true
  // with *packedSize set where compress would answer Z_OK.
  bool Compress(const unsigned char* data, unsigned int size, unsigned char* packed, unsigned int room,
                unsigned int* packedSize);

 private:
  static void* Allocate(void* self, unsigned int items, unsigned int size);
  static void Free(void* self, void* address);

  std::unique_ptr<unsigned char[]> area_;  // null: zlib's own allocations
  std::size_t used_ = 0;
};

// The calling thread's deflater, made at its first block.
BlockDeflater& ThreadDeflater();

}  // namespace qorc::file

#endif
