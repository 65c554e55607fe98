// Conversions between the library's path form (UTF-16, "\" as separator) and
// the file names of POSIX calls (UTF-8, "/" as separator).
#ifndef QORC_PLATFORM_POSIX_NATIVE_PATH_H
#define QORC_PLATFORM_POSIX_NATIVE_PATH_H

#include <string>

namespace qorc::platform::posix {

// Unpaired surrogates become U+FFFD. May throw std::bad_alloc.
std::string NativePath(const char16_t* path);
// Invalid UTF-8 sequences become U+FFFD. May throw std::bad_alloc.
std::u16string LibraryPath(const std::string& native);

}  // namespace qorc::platform::posix

#endif
