// One block compressed as zlib's compress does it, zlib's memory taken from
// an area of the deflater's own.
#include "file/block_deflate.h"

#include <zlib.h>

#include <cstdlib>
#include <new>

namespace qorc::file {

namespace {

// What deflateInit at the default level asks for on a 64-bit system: the
// state, the window, the two hash tables and the pending buffer, about
// 268 KiB; the rest is slack. A request that does not fit goes to the heap.
constexpr std::size_t kAreaSize = 320u * 1024u;
constexpr std::size_t kAlignment = 64;

}  // namespace

BlockDeflater::BlockDeflater() : area_(new (std::nothrow) unsigned char[kAreaSize]) {}

BlockDeflater::~BlockDeflater() = default;

void* BlockDeflater::Allocate(void* self, unsigned int items, unsigned int size) {
  BlockDeflater* deflater = static_cast<BlockDeflater*>(self);
  const std::size_t bytes = static_cast<std::size_t>(items) * size;
  const std::size_t start = (deflater->used_ + kAlignment - 1) / kAlignment * kAlignment;
  if (deflater->area_ != nullptr && start + bytes <= kAreaSize) {
    deflater->used_ = start + bytes;
    return deflater->area_.get() + start;
  }
  return std::malloc(bytes);
}

void BlockDeflater::Free(void* self, void* address) {
  BlockDeflater* deflater = static_cast<BlockDeflater*>(self);
  const unsigned char* byte = static_cast<const unsigned char*>(address);
  const unsigned char* area = deflater->area_.get();
  // Memory of the area is taken back all at once when the block is done.
  if (area == nullptr || byte < area || byte >= area + kAreaSize) std::free(address);
}

// The calls of zlib's compress2 at Z_DEFAULT_COMPRESSION for a block that
// fits in one call: deflateInit, one deflate with Z_FINISH, deflateEnd.
bool BlockDeflater::Compress(const unsigned char* data, unsigned int size, unsigned char* packed, unsigned int room,
                             unsigned int* packedSize) {
  used_ = 0;
  z_stream stream{};
  stream.zalloc = &BlockDeflater::Allocate;
  stream.zfree = &BlockDeflater::Free;
  stream.opaque = this;
  if (deflateInit(&stream, Z_DEFAULT_COMPRESSION) != Z_OK) return false;
  stream.next_in = const_cast<unsigned char*>(data);
  stream.avail_in = size;
  stream.next_out = packed;
  stream.avail_out = room;
  const int answer = deflate(&stream, Z_FINISH);
  *packedSize = static_cast<unsigned int>(stream.total_out);
  deflateEnd(&stream);
  used_ = 0;
  return answer == Z_STREAM_END;
}

BlockDeflater& ThreadDeflater() {
  thread_local BlockDeflater deflater;
  return deflater;
}

}  // namespace qorc::file
