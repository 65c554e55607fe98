// The structure check of a compound document, made before it is read.
#ifndef QORC_PLATFORM_POSIX_COMPOUND_STRUCTURE_H
#define QORC_PLATFORM_POSIX_COMPOUND_STRUCTURE_H

#include <cstdio>

namespace qorc::platform::posix {

// Whether the file holds a compound document whose header, allocation
// tables and directory tree are sound: every sector chain stays inside the
// file and ends without a loop, every stream's chain holds its size, every
// directory entry is reached once. *entries receives the number of storages
// and streams below the root. Leaves the stream at its start.
bool HasSoundStructure(std::FILE* file, long long fileSize, int* entries);

}  // namespace qorc::platform::posix

#endif
