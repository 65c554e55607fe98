#include "platform/clock.h"

#include <ctime>

namespace qorc::platform {

long long CurrentTimeSeconds() { return static_cast<long long>(std::time(nullptr)); }

}  // namespace qorc::platform
