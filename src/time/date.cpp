// C_DATE: validity, comparison, the clock, UTC and local time, and text.
#include <qorc/date.h>

#include <cstdio>
#include <string>

#include "platform/clock.h"
#include "platform/date_format.h"
#include "time/calendar.h"

using qorc::calendar::Civil;

const C_DATE C_DATE::VOID;
C_STRING C_DATE::DateFormat(u"dd/mm/yyyy");

namespace {

Civil ToCivil(const C_DATE& date) {
  Civil time;
  time.year = date.GetYear();
  time.month = date.GetMonth();
  time.day = date.GetDay();
  time.hour = date.GetHour();
  time.minute = date.GetMinute();
  time.second = date.GetSecond();
  time.millisecond = date.GetHundredth() * 10;
  return time;
}

C_DATE FromCivil(const Civil& time) {
  return C_DATE(time.year, time.month, time.day, time.hour, time.minute, time.second, time.millisecond / 10);
}

// The years a date may hold.
bool InRange(const Civil& time) { return time.year >= 100 && time.year <= 9999; }

// Moves the date by the local time's offset from UTC, forwards (`sign` 1) or
// backwards (-1). The offset in force now applies to every date, as the
// platform's file-time conversions do: a winter date converted in summer moves
// by the summer offset. An invalid date, or a result outside the years a date
// may hold, is left as it was with CerrInvalidValue pending.
void MoveByUtcOffset(C_DATE* date, int sign) {
  long long offset = 0;
  if (!date->IsValid() || !qorc::platform::CurrentUtcOffset(&offset)) {
    CerrInvalidValue.TriggerMild();
    return;
  }
  const Civil moved =
      qorc::calendar::FromMilliseconds(qorc::calendar::ToMilliseconds(ToCivil(*date)) + sign * offset * 1000);
  if (!InRange(moved)) {
    CerrInvalidValue.TriggerMild();
    return;
  }
  *date = FromCivil(moved);
}

// printf-style text of plain numbers, which is ASCII in every code page.
template <typename... Values>
C_STRING Printed(const char* format, Values... values) {
  char area[64];
  const int length = std::snprintf(area, sizeof area, format, values...);
  return C_STRING(
      length < 0 ? 0 : (length < static_cast<int>(sizeof area) ? length : static_cast<int>(sizeof area) - 1), area);
}

// Whether the lower-cased format holds the token at position i.
bool TokenAt(const C_STRING& lower, int i, const char16_t* token) {
  for (int k = 0; token[k] != 0; ++k) {
    if (lower.Get(i + k) != C_CHAR(token[k])) return false;
  }
  return true;
}

}  // namespace

// Each field is read at its fixed place; the separators between the fields
// are not examined. A missing or malformed field reads as 0 and leaves the
// integer reader's error pending; the rest is still read.
C_DATE::C_DATE(const C_STRING& text) : C_DATE() {
  const auto field = [&text](int first, int last) { return text.GetSlice(first, last).ToInt(); };
  SetYear(field(0, 3));
  SetMonth(field(5, 6));
  SetDay(field(8, 9));
  SetHour(field(11, 12));
  SetMinute(field(14, 15));
  SetSecond(field(17, 18));
  SetHundredth(field(20, 21));
}

int C_DATE::Compare(const C_DATE& o) const {
  const int mine[7] = {year_, month_, day_, hour_, minute_, second_, hundredth_};
  const int theirs[7] = {o.year_, o.month_, o.day_, o.hour_, o.minute_, o.second_, o.hundredth_};
  for (int i = 0; i < 7; ++i) {
    if (mine[i] != theirs[i]) return mine[i] < theirs[i] ? -1 : 1;
  }
  return 0;
}

C_BOOL C_DATE::IsValid() const {
  return year_ >= 100 && year_ <= 9999 && month_ >= 1 && month_ <= 12 && day_ >= 1 &&
         day_ <= qorc::calendar::DaysInMonth(year_, month_) && hour_ < 24 && minute_ < 60 && second_ < 60 &&
         hundredth_ < 100;
}

void C_DATE::SetCurrentGMT() {
  long long now = 0;
  if (!qorc::platform::CurrentTimeMilliseconds(&now)) {
    CerrInvalidValue.TriggerMild();
    return;
  }
  *this = FromCivil(qorc::calendar::FromMilliseconds(now));
}

void C_DATE::SetCurrentLocale() {
  long long now = 0;
  long long offset = 0;
  if (!qorc::platform::CurrentTimeMilliseconds(&now) || !qorc::platform::CurrentUtcOffset(&offset)) {
    CerrInvalidValue.TriggerMild();
    return;
  }
  *this = FromCivil(qorc::calendar::FromMilliseconds(now + offset * 1000));
}

void C_DATE::GMTToLocal() { MoveByUtcOffset(this, 1); }

void C_DATE::LocalToGMT() { MoveByUtcOffset(this, -1); }

void C_DATE::GetString(C_STRING* out) const {
  *out = Printed("%04d/%02d/%02d-%02d:%02d:%02d.%02d", GetYear(), GetMonth(), GetDay(), GetHour(), GetMinute(),
                 GetSecond(), GetHundredth());
}

void C_DATE::GetString(int layout, C_STRING* out) const {
  switch (layout) {
    case 2:
      *out = Printed("%02d/%02d/%d", GetMonth(), GetDay(), GetYear());
      break;
    case 3:
      *out = Printed("%d/%02d/%02d", GetYear(), GetMonth(), GetDay());
      break;
    default:
      *out = Printed("%02d/%02d/%d", GetDay(), GetMonth(), GetYear());
      break;
  }
}

// "dd" and "mm" are tried before "yyyy", so "ddd" gives the day and a d.
// The two-digit year is not reduced modulo 100 on purpose: 1850 gives -50
// and 2150 gives 150, as stored documents expect.
void C_DATE::GetString(const C_STRING& format, C_STRING* out) const {
  C_STRING lower(format);
  lower.MakeLower();
  C_STRING result;
  int i = 0;
  while (i < format.GetNumber()) {
    if (TokenAt(lower, i, u"dd")) {
      result += Printed("%02d", GetDay());
      i += 2;
    } else if (TokenAt(lower, i, u"mm")) {
      result += Printed("%02d", GetMonth());
      i += 2;
    } else if (TokenAt(lower, i, u"yyyy")) {
      result += Printed("%04d", GetYear());
      i += 4;
    } else if (TokenAt(lower, i, u"yy")) {
      result += Printed("%02d", GetYear() < 2000 ? GetYear() - 1900 : GetYear() - 2000);
      i += 2;
    } else {
      result += format.Get(i);
      ++i;
    }
  }
  *out = result;
}

void C_DATE::GetSystemString(C_BOOL longForm, C_STRING* out) const {
  std::u16string date;
  std::u16string time;
  if (!IsValid() || !qorc::platform::FormatLocaleDate(GetYear(), GetMonth(), GetDay(), longForm != 0, &date) ||
      !qorc::platform::FormatLocaleTime(GetHour(), GetMinute(), GetSecond(), &time)) {
    out->Clear();
    CerrInvalidValue.TriggerMild();
    return;
  }
  C_STRING result(static_cast<int>(date.size()), date.data());
  result += C_CHAR(u' ');
  result += C_STRING(static_cast<int>(time.size()), time.data());
  *out = result;
}

void C_DATE::SetDefaultDateFormat(const C_STRING& format) { DateFormat = format; }

const C_STRING& C_DATE::GetDefaultDateFormat() { return DateFormat; }
