// C_DATE: a calendar date and time of day to the hundredth of a second, with
// no time zone of its own (the same value holds local time or UTC).
#ifndef QORC_DATE_H
#define QORC_DATE_H

#include <qorc/export.h>
#include <qorc/string.h>
#include <qorc/types.h>

class QORC_API C_DATE {
 public:
  // All members 0: the library's value for no date (not a valid date).
  static const C_DATE VOID;

  C_DATE() : year_(0), month_(0), day_(0), hour_(0), minute_(0), second_(0), hundredth_(0) {}
  // Each value is truncated to its member's width; nothing is validated.
  C_DATE(int year, int month, int day, int hour = 0, int minute = 0, int second = 0, int hundredth = 0)
      : year_(static_cast<short>(year)),
        month_(static_cast<unsigned char>(month)),
        day_(static_cast<unsigned char>(day)),
        hour_(static_cast<unsigned char>(hour)),
        minute_(static_cast<unsigned char>(minute)),
        second_(static_cast<unsigned char>(second)),
        hundredth_(static_cast<unsigned char>(hundredth)) {}
  // Reads the default text form, yyyy/mm/dd-hh:mm:ss.hh, by character
  // positions. A missing or malformed field gives 0 and leaves
  // CerrStringNotInt pending; IsValid tells whether the result is usable.
  explicit C_DATE(const C_STRING& text);

  int GetYear() const { return year_; }
  int GetMonth() const { return month_; }
  int GetDay() const { return day_; }
  int GetHour() const { return hour_; }
  int GetMinute() const { return minute_; }
  int GetSecond() const { return second_; }
  int GetHundredth() const { return hundredth_; }
  void SetYear(int year) { year_ = static_cast<short>(year); }
  void SetMonth(int month) { month_ = static_cast<unsigned char>(month); }
  void SetDay(int day) { day_ = static_cast<unsigned char>(day); }
  void SetHour(int hour) { hour_ = static_cast<unsigned char>(hour); }
  void SetMinute(int minute) { minute_ = static_cast<unsigned char>(minute); }
  void SetSecond(int second) { second_ = static_cast<unsigned char>(second); }
  void SetHundredth(int hundredth) { hundredth_ = static_cast<unsigned char>(hundredth); }

  // Field by field, from the year down; no validation, no time zone.
  C_BOOL operator<(const C_DATE& o) const { return Compare(o) < 0; }
  C_BOOL operator<=(const C_DATE& o) const { return Compare(o) <= 0; }
  C_BOOL operator>(const C_DATE& o) const { return Compare(o) > 0; }
  C_BOOL operator>=(const C_DATE& o) const { return Compare(o) >= 0; }
  C_BOOL operator==(const C_DATE& o) const { return Compare(o) == 0; }
  C_BOOL operator!=(const C_DATE& o) const { return Compare(o) != 0; }

  // Years 100 to 9999 of the proleptic Gregorian calendar, time fields in range.
  C_BOOL IsValid() const;

  // The system clock, as local time or UTC.
  void SetCurrentLocale();
  void SetCurrentGMT();
  // Conversions between UTC and local time with the zone rules in force now.
  // An invalid date, or a result outside the valid years, leaves the date as
  // it was with CerrInvalidValue pending.
  void GMTToLocal();
  void LocalToGMT();

  // The default text form: 2007/05/14-13:45:30.25 (22 characters).
  void GetString(C_STRING* out) const;
  // Date only: 1 day/month/year, 2 month/day/year, 3 year/month/day, others as 1.
  void GetString(int layout, C_STRING* out) const;
  // Tokens dd, mm, yyyy and yy (any case); every other character is copied.
  void GetString(const C_STRING& format, C_STRING* out) const;
  // The user locale's short (or long) date format, a space, and its time format.
  void GetSystemString(C_BOOL longForm, C_STRING* out) const;

  // The format hosts pass to GetString by default, initially "dd/mm/yyyy".
  static void SetDefaultDateFormat(const C_STRING& format);
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
