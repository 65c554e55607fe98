// glibc offers no walk of its heap comparable to the Windows runtime's
// consistency check. It verifies chunks itself on every malloc and free and
// aborts the process on corruption, so a damaged heap never reaches this
// function; what can still be checked from outside is that the allocator's
// own accounting of the main arena is coherent.
#include "platform/heap.h"

#include <malloc.h>

namespace qorc::platform {

bool HeapIsConsistent() {
  const struct mallinfo2 info = mallinfo2();
  // The main arena is exactly its allocated plus its free bytes.
  return info.arena == info.uordblks + info.fordblks && info.fordblks <= info.arena;
}

}  // namespace qorc::platform
