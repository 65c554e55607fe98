// Helpers shared by the file-object sources.
#ifndef QORC_FILE_FILE_INTERNAL_H
#define QORC_FILE_FILE_INTERNAL_H

#include <cstdio>
#include <cstring>

namespace qorc::file {

// Reads one native UTF-16 unit; false when two bytes could not be read.
inline bool ReadUnit(std::FILE* stream, char16_t* unit) {
  unsigned char bytes[2];
  if (std::fread(bytes, 1, 2, stream) != 2) return false;
  std::memcpy(unit, bytes, sizeof *unit);
  return true;
}

inline char16_t Swapped(char16_t unit) { return static_cast<char16_t>((unit >> 8) | (unit << 8)); }

// The unsigned little-endian 32-bit fields of the compressed format.
inline unsigned int LoadLE32(const unsigned char* bytes) {
  return static_cast<unsigned int>(bytes[0]) | static_cast<unsigned int>(bytes[1]) << 8 |
         static_cast<unsigned int>(bytes[2]) << 16 | static_cast<unsigned int>(bytes[3]) << 24;
}

inline void StoreLE32(unsigned int value, unsigned char* bytes) {
  bytes[0] = static_cast<unsigned char>(value);
  bytes[1] = static_cast<unsigned char>(value >> 8);
  bytes[2] = static_cast<unsigned char>(value >> 16);
  bytes[3] = static_cast<unsigned char>(value >> 24);
}

}  // namespace qorc::file

#endif
