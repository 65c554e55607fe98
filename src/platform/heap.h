// The seam's view of the C runtime heap.
#ifndef QORC_PLATFORM_HEAP_H
#define QORC_PLATFORM_HEAP_H

namespace qorc::platform {

// True when the C runtime reports a sound (or empty) heap.
bool HeapIsConsistent();

}  // namespace qorc::platform

#endif
