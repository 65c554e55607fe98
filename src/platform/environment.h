// The seam's process environment: variables by UTF-16 name and value.
#ifndef QORC_PLATFORM_ENVIRONMENT_H
#define QORC_PLATFORM_ENVIRONMENT_H

#include <string>

namespace qorc::platform {

// False when the variable is not set.
bool ReadEnvironmentVariable(const std::u16string& name, std::u16string* value);
// Sets the variable; an empty value removes it. False when the name is empty
// or holds "=", or the environment refuses the change.
bool WriteEnvironmentVariable(const std::u16string& name, const std::u16string& value);

}  // namespace qorc::platform

#endif
