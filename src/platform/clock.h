// The seam's clock services.
#ifndef QORC_PLATFORM_CLOCK_H
#define QORC_PLATFORM_CLOCK_H

namespace qorc::platform {

// Seconds since 1970-01-01 UTC.
long long CurrentTimeSeconds();
// Milliseconds since 1970-01-01 UTC, from the system clock. False when the
// clock cannot be read.
bool CurrentTimeMilliseconds(long long* milliseconds);
// Local time minus UTC, in seconds, under the zone rules in force now
// (daylight saving time included when it applies now). False when unknown.
bool CurrentUtcOffset(long long* seconds);

// The millisecond tick counter: the low 32 bits of a monotonic clock, so it
// wraps after about 49.7 days as the Windows counter does.
unsigned int TickCount();
// Moves the tick counter by `milliseconds` for the rest of the process, so
// that the behaviour around its wrap can be exercised.
void ShiftTickCount(long long milliseconds);
// Blocks the calling thread.
void SleepMilliseconds(unsigned int milliseconds);

}  // namespace qorc::platform

#endif
