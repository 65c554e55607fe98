// Decompression of one block of the compressed format.
#ifndef QORC_FILE_BLOCK_INFLATE_H
#define QORC_FILE_BLOCK_INFLATE_H

namespace qorc::file {

// Decompresses the zlib stream `packed` (packedSize bytes) of a block record
// whose stored length is `stored` into `block` (131200 bytes). True with
// *fill set when the block is taken; false when it is refused. The result is
// zlib's uncompress as the format's readers have always applied it; a block
// that libdeflate decodes exactly (no error, all input used, the stored
// length out) takes that faster path to the same bytes.
bool InflateBlock(const unsigned char* packed, unsigned int packedSize, unsigned int stored, unsigned char* block,
                  unsigned int* fill);

// The same through zlib's uncompress alone: the reference.
bool InflateBlockWithZlib(const unsigned char* packed, unsigned int packedSize, unsigned int stored,
                          unsigned char* block, unsigned int* fill);

}  // namespace qorc::file

#endif
