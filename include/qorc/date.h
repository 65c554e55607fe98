/// @file
/// C_DATE: a calendar date and time of day to the hundredth of a second, with
/// no time zone of its own (the same value holds local time or UTC).
#ifndef QORC_DATE_H
#define QORC_DATE_H

#include <qorc/export.h>
#include <qorc/string.h>
#include <qorc/types.h>
#include <qorc/windows_names.h>

/// A calendar date and time of day to the hundredth of a second, without a time
/// zone (the same value holds local time or UTC). Values are stored as given and
/// validated only by IsValid.
class QORC_API C_DATE {
 public:
  /// All members 0: the library's value for no date (not a valid date).
  static const C_DATE VOID;

  /// All members 0: VOID.
  C_DATE() : year_(0), month_(0), day_(0), hour_(0), minute_(0), second_(0), hundredth_(0) {}
  /// Each value is truncated to its member's width; nothing is validated.
  C_DATE(int year, int month, int day, int hour = 0, int minute = 0, int second = 0, int hundredth = 0)
      : year_(static_cast<short>(year)),
        month_(static_cast<unsigned char>(month)),
        day_(static_cast<unsigned char>(day)),
        hour_(static_cast<unsigned char>(hour)),
        minute_(static_cast<unsigned char>(minute)),
        second_(static_cast<unsigned char>(second)),
        hundredth_(static_cast<unsigned char>(hundredth)) {}
  /// Reads the default text form, yyyy/mm/dd-hh:mm:ss.hh, by character
  /// positions. A missing or malformed field gives 0 and leaves
  /// CerrStringNotInt pending; IsValid tells whether the result is usable.
  explicit C_DATE(const C_STRING& text);

  /// The year.
  int GetYear() const { return year_; }
  /// The month, 1 to 12 in a valid date.
  int GetMonth() const { return month_; }
  /// The day of the month, from 1.
  int GetDay() const { return day_; }
  /// The hour, 0 to 23.
  int GetHour() const { return hour_; }
  /// The minute, 0 to 59.
  int GetMinute() const { return minute_; }
  /// The second, 0 to 59.
  int GetSecond() const { return second_; }
  /// The hundredth of a second, 0 to 99.
  int GetHundredth() const { return hundredth_; }
  /// Sets the year (truncated to 16 bits; not validated).
  void SetYear(int year) { year_ = static_cast<short>(year); }
  /// Sets the month (truncated to 8 bits; not validated).
  void SetMonth(int month) { month_ = static_cast<unsigned char>(month); }
  /// Sets the day (truncated to 8 bits; not validated).
  void SetDay(int day) { day_ = static_cast<unsigned char>(day); }
  /// Sets the hour (truncated to 8 bits; not validated).
  void SetHour(int hour) { hour_ = static_cast<unsigned char>(hour); }
  /// Sets the minute (truncated to 8 bits; not validated).
  void SetMinute(int minute) { minute_ = static_cast<unsigned char>(minute); }
  /// Sets the second (truncated to 8 bits; not validated).
  void SetSecond(int second) { second_ = static_cast<unsigned char>(second); }
  /// Sets the hundredth (truncated to 8 bits; not validated).
  void SetHundredth(int hundredth) { hundredth_ = static_cast<unsigned char>(hundredth); }

  /// Earlier than the other.
  /// Field by field, from the year down; no validation, no time zone.
  C_BOOL operator<(const C_DATE& o) const { return Compare(o) < 0; }
  /// Earlier than or the same as the other.
  C_BOOL operator<=(const C_DATE& o) const { return Compare(o) <= 0; }
  /// Later than the other.
  C_BOOL operator>(const C_DATE& o) const { return Compare(o) > 0; }
  /// Later than or the same as the other.
  C_BOOL operator>=(const C_DATE& o) const { return Compare(o) >= 0; }
  /// The same date and time, field by field.
  C_BOOL operator==(const C_DATE& o) const { return Compare(o) == 0; }
  /// A different date or time.
  C_BOOL operator!=(const C_DATE& o) const { return Compare(o) != 0; }

  /// Years 100 to 9999 of the proleptic Gregorian calendar, time fields in range.
  C_BOOL IsValid() const;

  /// Becomes the system clock's local time.
  /// The system clock, as local time or UTC.
  void SetCurrentLocale();
  /// Becomes the system clock's time in UTC.
  void SetCurrentGMT();
  /// Turns a UTC time into local time.
  /// Conversions between UTC and local time with the zone rules in force now.
  /// An invalid date, or a result outside the valid years, leaves the date as
  /// it was with CerrInvalidValue pending.
  void GMTToLocal();
  /// Turns a local time into UTC (same failures as GMTToLocal).
  void LocalToGMT();

  /// The default text form: 2007/05/14-13:45:30.25 (22 characters).
  void GetString(C_STRING* out) const;
  /// Date only: 1 day/month/year, 2 month/day/year, 3 year/month/day, others as 1.
  void GetString(int layout, C_STRING* out) const;
  /// Tokens dd, mm, yyyy and yy (any case); every other character is copied.
  void GetString(const C_STRING& format, C_STRING* out) const;
  /// The user locale's short (or long) date format, a space, and its time format.
  void GetSystemString(C_BOOL longForm, C_STRING* out) const;

  /// Sets the format hosts pass to GetString by default.
  /// The format hosts pass to GetString by default, initially "dd/mm/yyyy".
  static void SetDefaultDateFormat(const C_STRING& format);
  /// The format hosts pass to GetString by default, initially "dd/mm/yyyy".
  static const C_STRING& GetDefaultDateFormat();

 private:
  int Compare(const C_DATE& o) const;

  static C_STRING DateFormat;

  short year_;
  unsigned char month_;
  unsigned char day_;
  unsigned char hour_;
  unsigned char minute_;
  unsigned char second_;
  unsigned char hundredth_;
};

#endif
