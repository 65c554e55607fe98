// The Microsoft runtime walks its heap on request and reports what it finds.
#include <malloc.h>

#include "platform/heap.h"

namespace qorc::platform {

bool HeapIsConsistent() {
  const int state = ::_heapchk();
  return state == _HEAPOK || state == _HEAPEMPTY;
}

}  // namespace qorc::platform
