// The Cmem family: the C runtime heap with the library's calling shape.
#include <qorc/memory.h>

#include <cstdlib>
#include <cstring>

#include <qorc/error.h>

#include "platform/heap.h"

namespace {
C_BOOL g_memoryDebug;
}

void CmemAlloc(int size, void** result) {
  if (size <= 0) {
    *result = nullptr;
    return;
  }
  *result = std::malloc(static_cast<std::size_t>(size));
  if (*result == nullptr) CerrMemoryFull.Trigger();
}

void CmemRealloc(int size, void** block) {
  if (size <= 0) {
    std::free(*block);
    *block = nullptr;
    return;
  }
  if (*block == nullptr) {
    CmemAlloc(size, block);
    return;
  }
  void* moved = std::realloc(*block, static_cast<std::size_t>(size));
  // On failure the caller keeps the old block.
  if (moved == nullptr) {
    CerrMemoryFull.Trigger();
    return;
  }
  *block = moved;
}

void CmemFree(void** block) {
  if (*block == nullptr) return;
  std::free(*block);
  *block = nullptr;
}

void CmemDuplic(int size, const void* source, void** result) {
  if (size <= 0) {
    *result = nullptr;
    return;
  }
  CmemAlloc(size, result);
  if (C_ERROR::Is()) return;
  std::memcpy(*result, source, static_cast<std::size_t>(size));
}

void CmemDuplic(const char* source, char** result) {
  void* copy = nullptr;
  CmemDuplic(static_cast<int>(std::strlen(source)) + 1, source, &copy);
  *result = static_cast<char*>(copy);
}

void CmemCopy(int size, const void* source, void* destination) {
  if (size > 0) std::memcpy(destination, source, static_cast<std::size_t>(size));
}

void CmemSet(unsigned char value, int size, void* destination) {
  if (size > 0) std::memset(destination, value, static_cast<std::size_t>(size));
}

void CmemClear(int size, void* destination) {
  if (size > 0) std::memset(destination, 0, static_cast<std::size_t>(size));
}

int CmemComp(int size, const void* first, const void* second) {
  if (size <= 0) return 0;
  const int order = std::memcmp(first, second, static_cast<std::size_t>(size));
  return order == 0 ? 0 : (order > 0 ? 1 : -1);
}

C_BOOL CmemDebug(C_BOOL on) {
  const C_BOOL previous = g_memoryDebug;
  g_memoryDebug = on;
  return previous;
}

C_BOOL CmemHeapCheck() { return qorc::platform::HeapIsConsistent(); }
