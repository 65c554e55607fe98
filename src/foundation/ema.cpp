// The Cema allocator: 4096-byte aligned pages, each holding blocks of one
// size with no per-block header; a block's page header is found by rounding
// its address down to the page.
#include "foundation/ema.h"

#include <cstdlib>
#include <cstring>

#include <qorc/error.h>
#include <qorc/memory.h>

namespace qorc::ema {
namespace {

// Six machine words at the start of every page.
struct PageHeader {
  PageHeader* next;      // next page of the size class (or of the pool)
  PageHeader* prev;      // previous page of the size class
  std::uintptr_t size;   // block size of the page; 0 marks a large block
  std::uintptr_t inUse;  // blocks of the page in use
  // Released blocks, last in first out: offset of the first from the page
  // start, 0 when none. Each released block keeps the next offset in its
  // first 32 bits, so 4-byte blocks work on 64-bit too.
  std::uintptr_t released;
  // Next never-used block, 0 when the page has no room for one; for a large
  // block, the address the C runtime heap returned for it.
  std::uintptr_t unused;
};
static_assert(sizeof(PageHeader) == kHeaderSize, "the page header is six machine words");

constexpr std::size_t kClassCount = kSmallLimit / 4 + 1;

// One sentinel per block size, heading a circular list of the pages of that
// size that still have room. Zero at load; made circular on first use.
PageHeader g_classes[kClassCount];
PageHeader* g_pool = nullptr;

PageHeader* PageOf(const void* block) {
  return reinterpret_cast<PageHeader*>(reinterpret_cast<std::uintptr_t>(block) & ~(kPageSize - 1));
}

std::uintptr_t AlignUp(std::uintptr_t address) { return (address + kPageSize - 1) & ~(kPageSize - 1); }

void Unlink(PageHeader* page) {
  page->prev->next = page->next;
  page->next->prev = page->prev;
  page->next = nullptr;
  page->prev = nullptr;
}

void AppendToClass(PageHeader* head, PageHeader* page) {
  page->next = head;
  page->prev = head->prev;
  head->prev->next = page;
  head->prev = page;
}

void PushPool(PageHeader* page) {
  page->next = g_pool;
  g_pool = page;
}

// Memory taken for the pool is never given back. Pages are pushed from the
// lowest address up, so the highest is taken first.
bool RefillPool() {
  void* chunk = std::malloc(kPoolChunk);
  if (chunk == nullptr) return false;
  const std::uintptr_t start = AlignUp(reinterpret_cast<std::uintptr_t>(chunk));
  const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(chunk) + kPoolChunk;
  for (std::uintptr_t page = start; page + kPageSize <= end; page += kPageSize) {
    PushPool(reinterpret_cast<PageHeader*>(page));
  }
  return true;
}

__attribute__((noinline)) void* AllocateLarge(std::size_t size) {
  void* raw = std::malloc(size + kLargeExtra);
  if (raw == nullptr) return nullptr;
  PageHeader* header = reinterpret_cast<PageHeader*>(AlignUp(reinterpret_cast<std::uintptr_t>(raw)));
  header->size = 0;
  header->unused = reinterpret_cast<std::uintptr_t>(raw);
  return reinterpret_cast<char*>(header) + kHeaderSize;
}

__attribute__((noinline)) PageHeader* NewPage(PageHeader* head, std::size_t size) {
  if (head->next == nullptr) head->next = head->prev = head;
  if (g_pool == nullptr && !RefillPool()) return nullptr;
  PageHeader* page = g_pool;
  g_pool = page->next;
  AppendToClass(head, page);
  page->size = size;
  page->inUse = 0;
  page->released = 0;
  page->unused = reinterpret_cast<std::uintptr_t>(page) + kHeaderSize;
  return page;
}

void* AllocateSmall(std::size_t size) {
  PageHeader* head = &g_classes[size / 4];
  // The most recently appended page serves first; a class without pages
  // (or never used yet) takes one from the pool.
  PageHeader* page = head->prev;
  if (__builtin_expect(page == head || page == nullptr, 0)) {
    page = NewPage(head, size);
    if (page == nullptr) return nullptr;
  }
  ++page->inUse;
  char* block;
  if (page->released != 0) {
    block = reinterpret_cast<char*>(page) + page->released;
    std::uint32_t next;
    std::memcpy(&next, block, sizeof next);
    page->released = next;
  } else {
    block = reinterpret_cast<char*>(page->unused);
    const std::uintptr_t following = page->unused + size;
    page->unused = following + size <= reinterpret_cast<std::uintptr_t>(page) + kPageSize ? following : 0;
  }
  // A full page belongs to no list.
  if (page->released == 0 && page->unused == 0) Unlink(page);
  return block;
}

}  // namespace

std::size_t PoolPageCount() {
  std::size_t count = 0;
  for (const PageHeader* page = g_pool; page != nullptr; page = page->next) ++count;
  return count;
}

}  // namespace qorc::ema

using namespace qorc::ema;

void* CemaAlloc(unsigned int size) {
  const std::size_t blockSize = BlockSize(size);
  void* block = __builtin_expect(blockSize >= kSmallLimit, 0) ? AllocateLarge(blockSize) : AllocateSmall(blockSize);
  if (__builtin_expect(block == nullptr, 0)) CerrMemoryFull.Trigger();
  return block;
}

void CemaFree(void* block) {
  if (block == nullptr) return;
  PageHeader* page = PageOf(block);
  if (__builtin_expect(page->size == 0, 0)) {
    std::free(reinterpret_cast<void*>(page->unused));
    return;
  }
  const bool wasInList = page->released != 0 || page->unused != 0;
  --page->inUse;
  const std::uint32_t next = static_cast<std::uint32_t>(page->released);
  std::memcpy(block, &next, sizeof next);
  page->released = reinterpret_cast<std::uintptr_t>(block) - reinterpret_cast<std::uintptr_t>(page);
  if (wasInList) {
    if (page->inUse == 0) {
      Unlink(page);
      PushPool(page);
    }
  } else if (page->inUse != 0) {
    // A page that was full serves the next allocation of its size.
    AppendToClass(&g_classes[page->size / 4], page);
  } else {
    PushPool(page);
  }
}
