// Memory services: the C runtime heap with the library's calling shape, and the
// Cema small-object allocator.
#ifndef QORC_MEMORY_H
#define QORC_MEMORY_H

#include <cstddef>
#include <new>

#include <qorc/export.h>
#include <qorc/types.h>

// C runtime heap. A failure leaves CerrMemoryFull pending.
QORC_API void CmemAlloc(int size, void** result);
QORC_API void CmemRealloc(int size, void** block);
QORC_API void CmemFree(void** block);
QORC_API void CmemDuplic(int size, const void* source, void** result);
QORC_API void CmemDuplic(const char* source, char** result);
QORC_API void CmemCopy(int size, const void* source, void* destination);
QORC_API void CmemSet(unsigned char value, int size, void* destination);
QORC_API void CmemClear(int size, void* destination);
// Only the sign of the first difference: -1, 0 or 1.
QORC_API int CmemComp(int size, const void* first, const void* second);
QORC_API C_BOOL CmemDebug(C_BOOL on);
QORC_API C_BOOL CmemHeapCheck();

// Typed conveniences over CmemAlloc and CmemFree, for pointers of any type.
template <typename T>
inline void CmemAlloc(int size, T** result) {
  void* block = nullptr;
  CmemAlloc(size, &block);
  *result = static_cast<T*>(block);
}
template <typename T>
inline void CmemFree(T** block) {
  void* raw = const_cast<void*>(static_cast<const void*>(*block));
  CmemFree(&raw);
  *block = nullptr;
}

// Cema: 4096-byte pages holding blocks of one size each, no per-block header.
QORC_API void* CemaAlloc(unsigned int size);
QORC_API void CemaFree(void* block);

// Classes derived from C_EMA are allocated by the Cema allocator.
class QORC_API C_EMA {
 public:
  // Non-throwing: an allocation that fails leaves CerrMemoryFull pending and yields null.
  static void* operator new(std::size_t size) noexcept { return CemaAlloc(static_cast<unsigned int>(size)); }
  static void* operator new[](std::size_t size) noexcept { return CemaAlloc(static_cast<unsigned int>(size)); }
  static void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return CemaAlloc(static_cast<unsigned int>(size));
  }
  static void operator delete(void* block) { CemaFree(block); }
  static void operator delete[](void* block) { CemaFree(block); }
};

#endif
