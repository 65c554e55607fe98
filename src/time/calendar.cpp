#include "time/calendar.h"

namespace qorc::calendar {
namespace {

constexpr long long kMillisecondsPerDay = 86400LL * 1000;

// Floor division, for instants before 1970.
long long FloorDiv(long long a, long long b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0)) ? 1 : 0); }

}  // namespace

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) {
  static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (month < 1 || month > 12) return 0;
  return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

// Counts whole 400-year eras, whose length is fixed, from 0000-03-01.
long long DaysFromCivil(int year, int month, int day) {
  const long long y = static_cast<long long>(year) - (month <= 2 ? 1 : 0);
  const long long era = FloorDiv(y, 400);
  const long long yearOfEra = y - era * 400;
  const long long dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const long long dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

long long ToMilliseconds(const Civil& time) {
  const long long days = DaysFromCivil(time.year, time.month, time.day);
  return days * kMillisecondsPerDay +
         ((static_cast<long long>(time.hour) * 60 + time.minute) * 60 + time.second) * 1000 + time.millisecond;
}

Civil FromMilliseconds(long long milliseconds) {
  Civil time;
  const long long days = FloorDiv(milliseconds, kMillisecondsPerDay);
  long long rest = milliseconds - days * kMillisecondsPerDay;
  time.millisecond = static_cast<int>(rest % 1000);
  rest /= 1000;
  time.second = static_cast<int>(rest % 60);
  rest /= 60;
  time.minute = static_cast<int>(rest % 60);
  time.hour = static_cast<int>(rest / 60);

  const long long z = days + 719468;
  const long long era = FloorDiv(z, 146097);
  const long long dayOfEra = z - era * 146097;
  const long long yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const long long mp = (5 * dayOfYear + 2) / 153;
  time.day = static_cast<int>(dayOfYear - (153 * mp + 2) / 5 + 1);
  time.month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
  time.year = static_cast<int>(yearOfEra + era * 400 + (time.month <= 2 ? 1 : 0));
  return time;
}

bool RuntimeUtcTime(long long seconds, Civil* out) {
  static const long long kLast = DaysFromCivil(3001, 1, 1) * 86400 - 1;
  if (seconds < 0 || seconds > kLast) return false;
  *out = FromMilliseconds(seconds * 1000);
  return true;
}

}  // namespace qorc::calendar
