// Locale dates and times from the user's locale through Win32 NLS.
#include <new>

#include "platform/date_format.h"
#include "platform/windows/win32.h"

namespace qorc::platform {
namespace {

template <typename Format>
bool Formatted(std::u16string* out, Format format) {
  try {
    const int needed = format(nullptr, 0);
    if (needed <= 0) return false;
    std::wstring text(static_cast<std::size_t>(needed), L'\0');
    const int written = format(text.data(), needed);
    if (written <= 0) return false;
    text.resize(static_cast<std::size_t>(written - 1));  // the terminator
    *out = windows::LibraryText(text);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

bool FormatLocaleDate(int year, int month, int day, bool longForm, std::u16string* out) {
  // A SYSTEMTIME holds the years 1601 to 30827; the system formats no other.
  if (year < 1601 || year > 30827) return false;
  SYSTEMTIME date = {};
  date.wYear = static_cast<WORD>(year);
  date.wMonth = static_cast<WORD>(month);
  date.wDay = static_cast<WORD>(day);
  // The day of the week, for the long form.
  FILETIME asFileTime;
  if (!::SystemTimeToFileTime(&date, &asFileTime) || !::FileTimeToSystemTime(&asFileTime, &date)) return false;
  const DWORD flags = longForm ? DATE_LONGDATE : DATE_SHORTDATE;
  return Formatted(out, [&](wchar_t* buffer, int size) {
    return ::GetDateFormatW(LOCALE_USER_DEFAULT, flags, &date, nullptr, buffer, size);
  });
}

bool FormatLocaleTime(int hour, int minute, int second, std::u16string* out) {
  SYSTEMTIME time = {};
  time.wYear = 2000;
  time.wMonth = 1;
  time.wDay = 1;
  time.wHour = static_cast<WORD>(hour);
  time.wMinute = static_cast<WORD>(minute);
  time.wSecond = static_cast<WORD>(second);
  return Formatted(out, [&](wchar_t* buffer, int size) {
    return ::GetTimeFormatW(LOCALE_USER_DEFAULT, 0, &time, nullptr, buffer, size);
  });
}

}  // namespace qorc::platform
