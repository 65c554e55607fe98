// Clock services over Win32: the system time as a FILETIME, the zone of the
// system's time-zone settings, the millisecond tick counter and Sleep.
#include "platform/clock.h"
#include "platform/windows/win32.h"

namespace qorc::platform {
namespace {

long long g_tickShift = 0;

long long SystemTimeTicks() {
  FILETIME now;
  ::GetSystemTimeAsFileTime(&now);
  return windows::FileTimeTicks(now) - windows::kFileTimeEpochOffset;
}

}  // namespace

long long CurrentTimeSeconds() { return SystemTimeTicks() / 10000000; }

bool CurrentTimeMilliseconds(long long* milliseconds) {
  *milliseconds = SystemTimeTicks() / 10000;
  return true;
}

bool CurrentUtcOffset(long long* seconds) {
  // Local time minus UTC for the current moment, daylight saving included
  // when it applies now: the two renderings of one instant compared.
  FILETIME utc;
  ::GetSystemTimeAsFileTime(&utc);
  FILETIME local;
  SYSTEMTIME utcParts, localParts;
  if (!::FileTimeToSystemTime(&utc, &utcParts) || !::SystemTimeToTzSpecificLocalTime(nullptr, &utcParts, &localParts) ||
      !::SystemTimeToFileTime(&localParts, &local)) {
    return false;
  }
  const long long difference = windows::FileTimeTicks(local) - windows::FileTimeTicks(utc);
  // Rounded to whole seconds: both renderings keep milliseconds only.
  *seconds = (difference >= 0 ? difference + 5000000 : difference - 5000000) / 10000000;
  return true;
}

unsigned int TickCount() {
  return static_cast<unsigned int>(::GetTickCount64() + static_cast<unsigned long long>(g_tickShift));
}

void ShiftTickCount(long long milliseconds) { g_tickShift += milliseconds; }

void SleepMilliseconds(unsigned int milliseconds) { ::Sleep(milliseconds); }

}  // namespace qorc::platform
