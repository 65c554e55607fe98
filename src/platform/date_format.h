// The seam's locale formats for dates and times: those of the user's locale
// (the environment's LC_TIME), independent of the locales a machine has
// installed.
#ifndef QORC_PLATFORM_DATE_FORMAT_H
#define QORC_PLATFORM_DATE_FORMAT_H

#include <string>

namespace qorc::platform {

// The date in the locale's short date format, or in its long one (with the
// day of the week). The calendar is the proleptic Gregorian one. False when
// the date cannot be formatted.
bool FormatLocaleDate(int year, int month, int day, bool longForm, std::u16string* out);
// The time of day in the locale's time format, seconds included.
bool FormatLocaleTime(int hour, int minute, int second, std::u16string* out);

}  // namespace qorc::platform

#endif
