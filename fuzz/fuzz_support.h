// Shared set-up of the fuzz targets: the library is opened once, and every
// input starts without a pending error.
#ifndef QORC_FUZZ_FUZZ_SUPPORT_H
#define QORC_FUZZ_FUZZ_SUPPORT_H

#include <qorc/qorc.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace fuzz {

inline void Prepare() {
  static const bool opened = [] {
    Copen();
    return true;
  }();
  (void)opened;
  C_ERROR::ClearPending();
}

// The input as UTF-16 units (pairs of bytes), at most the longest string.
inline std::u16string Units(const std::uint8_t* data, std::size_t size) {
  std::u16string units(size / 2, u'\0');
  if (!units.empty()) std::memcpy(&units[0], data, units.size() * 2);
  if (units.size() > static_cast<std::size_t>(C_STRING::MAX_SIZE - 1)) units.resize(C_STRING::MAX_SIZE - 1);
  return units;
}

inline C_STRING MakeString(const std::u16string& units) {
  return C_STRING(static_cast<int>(units.size()), units.data());
}

}  // namespace fuzz

#endif
