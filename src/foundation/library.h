// Internal services shared by every subsystem: the library code page and
// allocation that reports failure as the pending error.
#ifndef QORC_FOUNDATION_LIBRARY_H
#define QORC_FOUNDATION_LIBRARY_H

#include <cstddef>
#include <new>

#include <qorc/error.h>

namespace qorc {

// The code page of every conversion between C_STRING and 8-bit text;
// 0 (the system's ANSI code page) until Copen sets it.
int LibraryCodePage();
void SetLibraryCodePage(int codePage);
// The OEM code page paired with the library code page.
int OemCodePage();

// A new array of n default-constructed objects, or null with CerrMemoryFull
// pending. Works before Copen too, when no new-handler is installed yet.
template <typename T>
T* NewArray(std::size_t n) {
  T* array = new (std::nothrow) T[n];
  if (array == nullptr) CerrMemoryFull.Trigger();
  return array;
}

// A new object, or null with CerrMemoryFull pending.
template <typename T, typename... Args>
T* NewObject(Args&&... args) {
  T* object = new (std::nothrow) T(static_cast<Args&&>(args)...);
  if (object == nullptr) CerrMemoryFull.Trigger();
  return object;
}

}  // namespace qorc

#endif
