// The seam's clock services.
#ifndef QORC_PLATFORM_CLOCK_H
#define QORC_PLATFORM_CLOCK_H

namespace qorc::platform {

// Seconds since 1970-01-01 UTC.
long long CurrentTimeSeconds();

}  // namespace qorc::platform

#endif
