#include <time.h>

#include <cerrno>
#include <ctime>

#include "platform/clock.h"

namespace qorc::platform {
namespace {

long long g_tickShift = 0;

}  // namespace

long long CurrentTimeSeconds() { return static_cast<long long>(std::time(nullptr)); }

bool CurrentTimeMilliseconds(long long* milliseconds) {
  struct timespec now;
  if (::clock_gettime(CLOCK_REALTIME, &now) != 0) return false;
  *milliseconds = static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
  return true;
}

bool CurrentUtcOffset(long long* seconds) {
  // The zone is read again each time, so a change of TZ is followed.
  ::tzset();
  const std::time_t now = std::time(nullptr);
  struct tm local;
  if (now == static_cast<std::time_t>(-1) || ::localtime_r(&now, &local) == nullptr) return false;
  *seconds = static_cast<long long>(local.tm_gmtoff);
  return true;
}

unsigned int TickCount() {
  struct timespec now;
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const unsigned long long milliseconds =
      static_cast<unsigned long long>(now.tv_sec) * 1000ULL + static_cast<unsigned long long>(now.tv_nsec / 1000000);
  return static_cast<unsigned int>(milliseconds + static_cast<unsigned long long>(g_tickShift));
}

void ShiftTickCount(long long milliseconds) { g_tickShift += milliseconds; }

void SleepMilliseconds(unsigned int milliseconds) {
  struct timespec rest = {static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
  while (::nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

}  // namespace qorc::platform
