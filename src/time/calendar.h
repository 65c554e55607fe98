// Calendar arithmetic in the proleptic Gregorian calendar, free of any OS
// service.
#ifndef QORC_TIME_CALENDAR_H
#define QORC_TIME_CALENDAR_H

namespace qorc::calendar {

struct Civil {
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  int millisecond = 0;
};

bool IsLeapYear(int year);
// Days in the month (1 to 12) of the year; 0 for another month.
int DaysInMonth(int year, int month);
// Days from 1970-01-01 to the date, negative before it.
long long DaysFromCivil(int year, int month, int day);
// Milliseconds from 1970-01-01 00:00:00 to the instant, and back.
long long ToMilliseconds(const Civil& time);
Civil FromMilliseconds(long long milliseconds);
// The C runtime's conversion of seconds since 1970 to UTC, which refuses
// instants before 1970 and after the end of the year 3000.
bool RuntimeUtcTime(long long seconds, Civil* out);

}  // namespace qorc::calendar

#endif
