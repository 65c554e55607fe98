// Layout constants of the Cema small-object allocator. Every derived number
// comes from these, in the code and in the tests.
#ifndef QORC_FOUNDATION_EMA_H
#define QORC_FOUNDATION_EMA_H

#include <cstddef>
#include <cstdint>

namespace qorc::ema {

constexpr std::size_t kPageSize = 4096;
// The page header is six machine words: on 64-bit it is 48 bytes.
constexpr std::size_t kHeaderWords = 6;
constexpr std::size_t kHeaderSize = kHeaderWords * sizeof(void*);
// Rounded sizes from this limit on are large; the limit itself deliberately
// goes the large way although one block of it would just fit in a page.
constexpr std::size_t kSmallLimit = kPageSize - kHeaderSize;
// A large block takes its rounded size plus a page and a header from the heap.
constexpr std::size_t kLargeExtra = kPageSize + kHeaderSize;
// The page pool is refilled 1 MiB at a time.
constexpr std::size_t kPoolChunk = 1024 * 1024;

// Block size used for a request: at least 1, rounded up to a multiple of 4.
constexpr std::size_t BlockSize(std::size_t request) { return ((request == 0 ? 1 : request) + 3) & ~std::size_t{3}; }
// Blocks of one size that one page holds.
constexpr std::size_t BlocksPerPage(std::size_t blockSize) { return kSmallLimit / blockSize; }

// Number of pages currently in the pool (for tests and diagnostics).
std::size_t PoolPageCount();

}  // namespace qorc::ema

#endif
