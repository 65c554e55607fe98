/// @file
/// Memory services: the C runtime heap with the library's calling shape, and the
/// Cema small-object allocator.
#ifndef QORC_MEMORY_H
#define QORC_MEMORY_H

#include <cstddef>
#include <new>

#include <qorc/export.h>
#include <qorc/types.h>

// C runtime heap. A failure leaves CerrMemoryFull pending.
/// A new uninitialised heap block of size bytes in *result, released with
/// CmemFree; size 0 gives null without an error, exhausted memory null and
/// CerrMemoryFull.
QORC_API void CmemAlloc(int size, void** result);
/// Resizes *block (which may move), keeping its contents; size 0 releases it and
/// gives null, a null block is allocated as CmemAlloc. CerrMemoryFull when memory
/// runs out, the block then left as it was.
QORC_API void CmemRealloc(int size, void** block);
/// Releases a block of CmemAlloc or CmemRealloc and sets *block to null; null is left alone.
QORC_API void CmemFree(void** block);
/// A new copy of size bytes in *result, released with CmemFree; null for size 0, null and CerrMemoryFull when memory
/// runs out.
QORC_API void CmemDuplic(int size, const void* source, void** result);
/// A new copy of the terminated 8-bit text in *result, released with CmemFree; CerrMemoryFull when memory runs out.
QORC_API void CmemDuplic(const char* source, char** result);
/// Copies size bytes between areas that do not overlap.
QORC_API void CmemCopy(int size, const void* source, void* destination);
/// Fills size bytes with the value.
QORC_API void CmemSet(unsigned char value, int size, void* destination);
/// Fills size bytes with 0.
QORC_API void CmemClear(int size, void* destination);
/// Compares size bytes as unsigned values, 1 when the first block's byte is the greater.
/// Only the sign of the first difference: -1, 0 or 1.
QORC_API int CmemComp(int size, const void* first, const void* second);
/// Sets the memory-debug flag, kept for the host (the library does not read it), and returns its previous value.
QORC_API C_BOOL CmemDebug(C_BOOL on);
/// True when the C runtime's heap is consistent.
QORC_API C_BOOL CmemHeapCheck();

// Typed conveniences over CmemAlloc and CmemFree, for pointers of any type.
template <typename T>
/// CmemAlloc for a pointer of any type.
inline void CmemAlloc(int size, T** result) {
  void* block = nullptr;
  CmemAlloc(size, &block);
  *result = static_cast<T*>(block);
}
template <typename T>
/// CmemFree for a pointer of any type; *block becomes null.
inline void CmemFree(T** block) {
  void* raw = const_cast<void*>(static_cast<const void*>(*block));
  CmemFree(&raw);
  *block = nullptr;
}

/// A block of size bytes (0 counts as 4) from the small-object allocator,
/// released only with CemaFree; null with CerrMemoryFull when none is available.
/// Sizes above the page's limit come from the C runtime's heap.
/// Cema: 4096-byte pages holding blocks of one size each, no per-block header.
QORC_API void* CemaAlloc(unsigned int size);
/// Returns a block of CemaAlloc; null is ignored.
QORC_API void CemaFree(void* block);

/// Derive a class from C_EMA to allocate its objects with the Cema allocator.
/// Classes derived from C_EMA are allocated by the Cema allocator.
class QORC_API C_EMA {
 public:
  /// Non-throwing: an allocation that fails leaves CerrMemoryFull pending and yields null.
  static void* operator new(std::size_t size) noexcept { return CemaAlloc(static_cast<unsigned int>(size)); }
  /// An array of objects from the Cema allocator; null with CerrMemoryFull when it fails.
  static void* operator new[](std::size_t size) noexcept { return CemaAlloc(static_cast<unsigned int>(size)); }
  /// The same as the plain form, which never throws either.
  static void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return CemaAlloc(static_cast<unsigned int>(size));
  }
  /// Returns an object's block to the Cema allocator.
  static void operator delete(void* block) { CemaFree(block); }
  /// Returns an array's block to the Cema allocator.
  static void operator delete[](void* block) { CemaFree(block); }
};

#endif
