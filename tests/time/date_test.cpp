#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "support/environment.h"

namespace {

std::u16string Text(const C_STRING& s) { return std::u16string(s.GetWCHAR(), static_cast<std::size_t>(s.GetNumber())); }

std::string Str(const C_DATE& d) {
  C_STRING out;
  d.GetString(&out);
  return out.GetANSI();
}

template <class Form>
std::u16string Fmt(const C_DATE& d, Form form) {
  C_STRING out;
  d.GetString(form, &out);
  return Text(out);
}

struct ScopedEnv {
  ScopedEnv(const char* name, const char* value) : name(name), had(std::getenv(name) != nullptr) {
    if (had) old = std::getenv(name);
    SetEnv(name, value);
    tzset();
  }
  ~ScopedEnv() {
    had ? SetEnv(name, old.c_str()) : UnsetEnv(name);
    tzset();
  }
  const char* name;
  bool had;
  std::string old;
};

C_DATE Utc(std::time_t t) {
  const std::tm b = *std::gmtime(&t);
  return C_DATE(b.tm_year + 1900, b.tm_mon + 1, b.tm_mday, b.tm_hour, b.tm_min, b.tm_sec);
}

TEST(Date, ValidityComparisonLayoutsTokensAndReading) {
  EXPECT_TRUE(C_DATE() == C_DATE::VOID);
  for (const C_DATE& d : {C_DATE(2004, 2, 29), C_DATE(2000, 2, 29), C_DATE(2007, 4, 30, 23, 59, 59, 99),
                          C_DATE(100, 1, 1), C_DATE(9999, 12, 31)}) {
    EXPECT_TRUE(d.IsValid()) << Str(d);
  }
  for (const C_DATE& d :
       {C_DATE::VOID, C_DATE(2005, 2, 29), C_DATE(1900, 2, 29), C_DATE(2007, 4, 31), C_DATE(2007, 4, 30, 0, 0, 0, 100),
        C_DATE(2007, 4, 30, 24), C_DATE(2007, 4, 30, 0, 60), C_DATE(2007, 4, 30, 0, 0, 60), C_DATE(99, 12, 31),
        C_DATE(10000, 1, 1), C_DATE(2007, 13, 1), C_DATE(2007, 1, 0)}) {
    EXPECT_FALSE(d.IsValid()) << Str(d);
  }
  // Members are truncated to their width, not validated.
  C_DATE truncated(70000, 256 + 5, 14);
  truncated.SetDay(300);
  EXPECT_EQ(Str(truncated), "4464/05/44-00:00:00.00");
  // Comparison goes field by field; the year is signed.
  const C_DATE a(2007, 5, 14, 13, 45, 30, 25);
  EXPECT_TRUE(a == C_DATE(2007, 5, 14, 13, 45, 30, 25) && a <= a && a >= a && a != C_DATE(2007, 5, 14));
  EXPECT_TRUE(a < C_DATE(2007, 5, 14, 13, 45, 30, 26) && a > C_DATE(2006, 12, 31, 23, 59, 59, 99));
  EXPECT_TRUE(C_DATE(-1, 1, 1) < C_DATE(1, 1, 1));

  EXPECT_EQ(Str(C_DATE(2007, 5, 14, 13, 45, 30, 25)), "2007/05/14-13:45:30.25");
  EXPECT_EQ(Str(C_DATE(812, 1, 2, 3, 4, 5, 6)), "0812/01/02-03:04:05.06");
  const C_DATE d(2007, 5, 4);
  EXPECT_EQ(Fmt(d, 1) + Fmt(d, 2) + Fmt(d, 3) + Fmt(d, 7), u"04/05/200705/04/20072007/05/0404/05/2007");
  EXPECT_EQ(Fmt(C_DATE(812, 5, 4), 1), u"04/05/812");
  EXPECT_EQ(Fmt(d, u"yyyy-mm-dd YY.MM.DD ddd yyy Le \u00e9t\u00e9"), u"2007-05-04 07.05.04 04d 07y Le \u00e9t\u00e9");
  EXPECT_EQ(Fmt(d, u""), u"");
  // "yy" subtracts 1900 or 2000 without reducing modulo 100.
  const std::pair<int, const char16_t*> years[] = {
      {1899, u"-1"}, {1999, u"99"}, {2000, u"00"}, {1850, u"-50"}, {2150, u"150"}};
  for (const auto& [year, text] : years) EXPECT_EQ(Fmt(C_DATE(year, 1, 1), u"yy"), text) << year;

  EXPECT_EQ(Text(C_DATE::GetDefaultDateFormat()), u"dd/mm/yyyy");
  C_DATE::SetDefaultDateFormat(C_STRING(u"yyyy.mm.dd"));
  EXPECT_EQ(Fmt(d, C_DATE::GetDefaultDateFormat()), u"2007.05.04");
  C_DATE::SetDefaultDateFormat(C_STRING(u"dd/mm/yyyy"));

  const C_DATE full(2007, 5, 14, 13, 45, 30, 25);
  EXPECT_TRUE(C_DATE(C_STRING(Str(full).c_str())) == full);
  // The separators are not examined.
  EXPECT_EQ(Str(C_DATE(C_STRING(u"1999x12y31z23:59:58+07"))), "1999/12/31-23:59:58.07");
  EXPECT_FALSE(C_ERROR::Is());

  // Missing or malformed fields read as 0; the others are still read.
  const std::pair<const char16_t*, const char*> partial[] = {{u"2007/05/04", "2007/05/04-00:00:00.00"},
                                                             {u"2007/0x/14-13:45:30.25", "2007/00/14-13:45:30.25"},
                                                             {u"", "0000/00/00-00:00:00.00"}};
  for (const auto& [input, read] : partial) {
    const C_DATE date{C_STRING(input)};
    EXPECT_TRUE(CerrStringNotInt.IsPending());
    C_ERROR::ClearPending();
    EXPECT_EQ(Str(date), read);
  }
}

TEST(Date, ClockZonesAndLocaleFormats) {
  const std::time_t before = std::time(nullptr);
  C_DATE gmt;
  gmt.SetCurrentGMT();
  EXPECT_FALSE(C_ERROR::Is());
  gmt.SetHundredth(0);
  // time() reads a coarse clock that may lag the precise one by a tick, so
  // the upper bound allows one second more.
  EXPECT_TRUE(Utc(before) <= gmt && gmt <= Utc(std::time(nullptr) + 1));
#ifdef _WIN32
  GTEST_SKIP() << "On Windows the time zone and the locale formats are the user's settings, not TZ and LC_ALL";
#else

  {
    ScopedEnv zone("TZ", "XYZ-3");
    C_DATE local;
    local.SetCurrentLocale();
    local.SetHundredth(0);
    EXPECT_TRUE(Utc(before + 3 * 3600) <= local && local <= Utc(std::time(nullptr) + 1 + 3 * 3600));

    C_DATE d(2007, 5, 14, 22, 30, 15, 25);
    d.GMTToLocal();
    EXPECT_EQ(Str(d), "2007/05/15-01:30:15.25");
    d.LocalToGMT();
    EXPECT_EQ(Str(d), "2007/05/14-22:30:15.25");
    C_DATE leap(2004, 2, 29, 23, 0, 0);
    leap.GMTToLocal();
    EXPECT_EQ(Str(leap), "2004/03/01-02:00:00.00");

    // A conversion that fails leaves the date as it was.
    const std::pair<C_DATE, bool> failing[] = {
        {C_DATE(2007, 2, 30, 12), false}, {C_DATE(9999, 12, 31, 23), false}, {C_DATE(100, 1, 1, 1), true}};
    for (const auto& [date, toGmt] : failing) {
      C_DATE converted = date;
      toGmt ? converted.LocalToGMT() : converted.GMTToLocal();
      EXPECT_TRUE(CerrInvalidValue.IsPending()) << Str(date);
      EXPECT_TRUE(converted == date);
      C_ERROR::ClearPending();
    }
  }
  // With daylight saving time, a winter date moves by today's offset.
  ScopedEnv zone("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
  const std::time_t now = std::time(nullptr);
  std::tm broken{};
  localtime_r(&now, &broken);
  C_DATE winter(2007, 1, 10, 12, 0, 0);
  winter.GMTToLocal();
  EXPECT_TRUE(winter == C_DATE(2007, 1, 10, 12 + static_cast<int>(broken.tm_gmtoff / 3600)));

  C_STRING out;
  {
    ScopedEnv locale("LC_ALL", "de_DE.UTF-8");
    const C_DATE d(2007, 5, 14, 13, 45, 30, 25);
    d.GetSystemString(false, &out);
    EXPECT_EQ(Text(out), u"14.05.07 13:45:30");
    d.GetSystemString(true, &out);
    EXPECT_EQ(Text(out), u"Montag, 14. Mai 2007 13:45:30");
  }
  // The neutral formats; old dates stay in the Gregorian calendar.
  ScopedEnv locale("LC_ALL", "C");
  C_DATE(1200, 3, 1, 8, 5, 9).GetSystemString(false, &out);
  EXPECT_EQ(Text(out), u"1200-03-01 08:05:09");
  EXPECT_FALSE(C_ERROR::Is());
  C_DATE(2007, 2, 30).GetSystemString(false, &out);
  EXPECT_TRUE(CerrInvalidValue.IsPending());
  EXPECT_EQ(Text(out), u"");
#endif
}

}  // namespace
