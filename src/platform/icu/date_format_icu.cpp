// Locale date and time formats through ICU, which carries its own locale
// data: results do not depend on the locales a machine has installed.
#include <unicode/ucal.h>
#include <unicode/udat.h>

#include <cstdlib>
#include <new>
#include <string>

#include "platform/date_format.h"

namespace qorc::platform {
namespace {

// The ICU locale of the environment's LC_TIME: "de_DE.UTF-8@euro" gives
// "de_DE"; C and POSIX give the root locale.
std::string TimeLocale() {
  std::string name = "C";
  for (const char* variable : {"LC_ALL", "LC_TIME", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') {
      name = value;
      break;
    }
  }
  name = name.substr(0, name.find_first_of(".@"));
  return name.empty() || name == "C" || name == "POSIX" ? "root" : name;
}

// The earliest instant ICU dates handle; as the change to the Gregorian
// calendar, it makes the calendar proleptic Gregorian.
constexpr UDate kPureGregorian = -8.64e15;
// The work area of one formatted part.
constexpr int kAreaLength = 256;

bool Format(UDateFormatStyle timeStyle, UDateFormatStyle dateStyle, int year, int month, int day, int hour, int minute,
            int second, std::u16string* out) {
  static const UChar kUtc[] = u"UTC";
  const std::string locale = TimeLocale();
  UErrorCode status = U_ZERO_ERROR;
  UCalendar* calendar = ucal_open(kUtc, -1, locale.c_str(), UCAL_GREGORIAN, &status);
  if (U_FAILURE(status)) return false;
  ucal_setGregorianChange(calendar, kPureGregorian, &status);
  ucal_clear(calendar);
  ucal_setDateTime(calendar, year, month - 1, day, hour, minute, second, &status);
  const UDate instant = ucal_getMillis(calendar, &status);
  UDateFormat* format = udat_open(timeStyle, dateStyle, locale.c_str(), kUtc, -1, nullptr, 0, &status);
  if (U_SUCCESS(status)) udat_setCalendar(format, calendar);
  UChar area[kAreaLength];
  int32_t length = 0;
  if (U_SUCCESS(status)) length = udat_format(format, instant, area, kAreaLength, nullptr, &status);
  if (format != nullptr) udat_close(format);
  ucal_close(calendar);
  if (U_FAILURE(status) || status == U_STRING_NOT_TERMINATED_WARNING) return false;
  try {
    out->assign(reinterpret_cast<const char16_t*>(area), static_cast<std::size_t>(length));
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

}  // namespace

bool FormatLocaleDate(int year, int month, int day, bool longForm, std::u16string* out) {
  return Format(UDAT_NONE, longForm ? UDAT_FULL : UDAT_SHORT, year, month, day, 0, 0, 0, out);
}

bool FormatLocaleTime(int hour, int minute, int second, std::u16string* out) {
  // A fixed ordinary day carries the time.
  return Format(UDAT_MEDIUM, UDAT_NONE, 2000, 1, 1, hour, minute, second, out);
}

}  // namespace qorc::platform
