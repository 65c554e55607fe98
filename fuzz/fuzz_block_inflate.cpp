// Block decompression, differential: every record goes through the fast path
// and through zlib's uncompress alone, and any difference in whether the
// block is taken, its fill or its bytes is a failure. Most inputs are made
// into sound zlib streams first (compressed at a level the input picks, so
// stored, fixed and dynamic deflate blocks all occur, and repeated so that
// blocks reach and pass the block size) and then damaged as the input says:
// cut, bytes changed, bytes added behind, a different stored length.
#include <qorc/qorc.h>
#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "file/block_inflate.h"

namespace {

struct Outcome {
  bool taken = false;
  unsigned int fill = 0;
};

Outcome Decode(const std::string& packed, unsigned int stored, bool zlibAlone, std::vector<unsigned char>* block) {
  block->resize(C_FILE::COMPRESS_BUFFER_SIZE);
  std::memset(block->data(), zlibAlone ? 0x11 : 0x22, block->size());
  Outcome outcome;
  const auto* bytes = reinterpret_cast<const unsigned char*>(packed.data());
  const auto size = static_cast<unsigned int>(packed.size());
  outcome.taken = zlibAlone ? qorc::file::InflateBlockWithZlib(bytes, size, stored, block->data(), &outcome.fill)
                            : qorc::file::InflateBlock(bytes, size, stored, block->data(), &outcome.fill);
  if (!outcome.taken) outcome.fill = 0;
  return outcome;
}

// compress2 at the given level, through one stream kept for each level, so
// that runs do not allocate the compressor's state again and again.
const std::string& Deflated(const std::string& data, int level) {
  static z_stream streams[10];
  static bool ready[10];
  static std::string out;
  z_stream& stream = streams[level];
  if (!ready[level]) {
    ready[level] = deflateInit(&stream, level) == Z_OK;
  } else {
    deflateReset(&stream);
  }
  out.resize(compressBound(data.size()));
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
  stream.avail_in = static_cast<uInt>(data.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const bool done = ready[level] && deflate(&stream, Z_FINISH) == Z_STREAM_END;
  out.resize(done ? stream.total_out : 0);
  return out;
}

unsigned int Le32(const std::uint8_t* bytes) {
  unsigned int v = 0;
  std::memcpy(&v, bytes, 4);
  return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 8) return 0;
  const std::uint8_t how = data[0];
  unsigned int stored = Le32(data + 1) % (C_FILE::COMPRESS_BLOCK_SIZE + 1);
  const std::uint8_t* rest = data + 8;
  const std::size_t restSize = size - 8;
  static std::string packed;
  packed.clear();
  if ((how & 3) == 0) {
    // The bytes as they come.
    packed.assign(reinterpret_cast<const char*>(rest), restSize);
  } else {
    static std::string plain, repeated;
    plain.assign(reinterpret_cast<const char*>(rest), restSize);
    // One input in four is repeated up to past the block and buffer sizes.
    const std::size_t wanted = (data[5] & 3) == 0 ? 120000 + static_cast<std::size_t>(data[5]) * 64 : 0;
    repeated = plain;
    while (!plain.empty() && repeated.size() < wanted) repeated += plain;
    // Levels 0 to 6, which give stored, fixed and dynamic deflate blocks.
    packed = Deflated(repeated, static_cast<int>((how >> 2) % 7));
    if ((how & 0x40) == 0) stored = static_cast<unsigned int>(std::min<std::size_t>(repeated.size(), 131072));
    const unsigned int where = Le32(data + 4);
    if (!packed.empty() && (how & 3) == 2) packed[where % packed.size()] ^= static_cast<char>(data[6] | 1);
    if (!packed.empty() && (how & 3) == 3) packed.resize(where % packed.size());
    if ((how & 0x80) != 0) packed.append(reinterpret_cast<const char*>(data + 5), 1 + data[7] % 3);
  }
  static std::vector<unsigned char> fastBlock, zlibBlock;
  const Outcome fast = Decode(packed, stored, false, &fastBlock);
  const Outcome reference = Decode(packed, stored, true, &zlibBlock);
  if (fast.taken != reference.taken || fast.fill != reference.fill ||
      std::memcmp(fastBlock.data(), zlibBlock.data(), fast.fill) != 0) {
    std::abort();
  }
  return 0;
}
