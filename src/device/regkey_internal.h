// Services of the settings keys shared inside the library.
#ifndef QORC_DEVICE_REGKEY_INTERNAL_H
#define QORC_DEVICE_REGKEY_INTERNAL_H

#include <qorc/regkey.h>

#include <string>

namespace qorc {

// The UTF-16 units of a string and back. May throw std::bad_alloc.
std::u16string Units(const C_STRING& text);
C_STRING FromUnits(const std::u16string& text);
// The root handle behind USER or MACHINE (null when not set or for any other key).
C_REGKEY::HANDLE RootHandle(const C_REGKEY* key);
// Forgets the roots and closes every store; part of Cclose.
void CloseSettings();

}  // namespace qorc

#endif
