#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cstdlib>
#include <ctime>
#include <string>

namespace {

std::u16string Text(const C_STRING& s) { return std::u16string(s.GetWCHAR(), static_cast<std::size_t>(s.GetNumber())); }

// Sets an environment variable for the life of the object.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name) {
    const char* old = std::getenv(name);
    had_ = old != nullptr;
    if (had_) old_ = old;
    setenv(name, value, 1);
    tzset();
  }
  ~ScopedEnv() {
    if (had_) {
      setenv(name_, old_.c_str(), 1);
    } else {
      unsetenv(name_);
    }
    tzset();
  }

 private:
  const char* name_;
  bool had_ = false;
  std::string old_;
};

C_DATE FromTm(const std::tm& t) {
  return C_DATE(t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec, 0);
}

C_DATE Utc(std::time_t t) {
  std::tm broken{};
  gmtime_r(&t, &broken);
  return FromTm(broken);
}

// Drops the hundredths, for comparing with whole-second clocks.
C_DATE Whole(C_DATE d) {
  d.SetHundredth(0);
  return d;
}

TEST(Date, VoidAndValidity) {
  EXPECT_TRUE(C_DATE() == C_DATE::VOID);
  EXPECT_FALSE(C_DATE::VOID.IsValid());
  EXPECT_TRUE(C_DATE(2004, 2, 29).IsValid());
  EXPECT_FALSE(C_DATE(2005, 2, 29).IsValid());
  EXPECT_FALSE(C_DATE(1900, 2, 29).IsValid());
  EXPECT_TRUE(C_DATE(2000, 2, 29).IsValid());
  EXPECT_FALSE(C_DATE(2007, 4, 31).IsValid());
  EXPECT_FALSE(C_DATE(2007, 4, 30, 0, 0, 0, 100).IsValid());
  EXPECT_TRUE(C_DATE(2007, 4, 30, 23, 59, 59, 99).IsValid());
  EXPECT_FALSE(C_DATE(2007, 4, 30, 24, 0, 0).IsValid());
  EXPECT_FALSE(C_DATE(2007, 4, 30, 0, 60, 0).IsValid());
  EXPECT_FALSE(C_DATE(2007, 4, 30, 0, 0, 60).IsValid());
  EXPECT_FALSE(C_DATE(99, 12, 31).IsValid());
  EXPECT_TRUE(C_DATE(100, 1, 1).IsValid());
  EXPECT_TRUE(C_DATE(9999, 12, 31).IsValid());
  EXPECT_FALSE(C_DATE(10000, 1, 1).IsValid());
  EXPECT_FALSE(C_DATE(2007, 13, 1).IsValid());
  EXPECT_FALSE(C_DATE(2007, 1, 0).IsValid());
}

TEST(Date, MembersAreTruncatedNotValidated) {
  C_DATE d(2007, 256 + 5, 14, 13, 45, 30, 25);
  EXPECT_EQ(d.GetMonth(), 5);
  d.SetYear(70000);  // 70000 - 65536
  EXPECT_EQ(d.GetYear(), 4464);
  d.SetDay(300);
  EXPECT_EQ(d.GetDay(), 44);
  EXPECT_FALSE(d.IsValid());
}

TEST(Date, ComparesFieldByField) {
  const C_DATE a(2007, 5, 14, 13, 45, 30, 25);
  EXPECT_TRUE(a == C_DATE(2007, 5, 14, 13, 45, 30, 25));
  EXPECT_TRUE(a < C_DATE(2007, 5, 14, 13, 45, 30, 26));
  EXPECT_TRUE(a > C_DATE(2006, 12, 31, 23, 59, 59, 99));
  EXPECT_TRUE(a <= a);
  EXPECT_TRUE(a >= a);
  EXPECT_TRUE(a != C_DATE(2007, 5, 14));
  // The year is signed.
  EXPECT_TRUE(C_DATE(-1, 1, 1) < C_DATE(1, 1, 1));
}

TEST(Date, FixedLayouts) {
  C_STRING out;
  C_DATE(2007, 5, 14, 13, 45, 30, 25).GetString(&out);
  EXPECT_EQ(Text(out), u"2007/05/14-13:45:30.25");
  C_DATE(812, 1, 2, 3, 4, 5, 6).GetString(&out);
  EXPECT_EQ(Text(out), u"0812/01/02-03:04:05.06");

  const C_DATE d(2007, 5, 4);
  d.GetString(1, &out);
  EXPECT_EQ(Text(out), u"04/05/2007");
  d.GetString(2, &out);
  EXPECT_EQ(Text(out), u"05/04/2007");
  d.GetString(3, &out);
  EXPECT_EQ(Text(out), u"2007/05/04");
  d.GetString(7, &out);
  EXPECT_EQ(Text(out), u"04/05/2007");
  C_DATE(812, 5, 4).GetString(1, &out);
  EXPECT_EQ(Text(out), u"04/05/812");
}

TEST(Date, TokenFormats) {
  const C_DATE d(2007, 5, 4);
  const auto format = [](const C_DATE& date, const char16_t* text) {
    C_STRING out;
    date.GetString(C_STRING(text), &out);
    return Text(out);
  };
  EXPECT_EQ(format(d, u"yyyy-mm-dd"), u"2007-05-04");
  EXPECT_EQ(format(d, u"YY.MM.DD"), u"07.05.04");
  EXPECT_EQ(format(d, u"hh:dd"), u"hh:04");
  EXPECT_EQ(format(d, u"ddd"), u"04d");
  EXPECT_EQ(format(d, u"yyy"), u"07y");
  EXPECT_EQ(format(C_DATE(1899, 1, 1), u"yy"), u"-1");
  EXPECT_EQ(format(C_DATE(2000, 1, 1), u"yy"), u"00");
  EXPECT_EQ(format(C_DATE(1999, 1, 1), u"yy"), u"99");
  EXPECT_EQ(format(C_DATE(1850, 1, 1), u"yy"), u"-50");
  EXPECT_EQ(format(C_DATE(2150, 1, 1), u"yy"), u"150");
  EXPECT_EQ(format(d, u"Le dd \u00e9t\u00e9"), u"Le 04 \u00e9t\u00e9");
  EXPECT_EQ(format(d, u""), u"");

  EXPECT_EQ(Text(C_DATE::GetDefaultDateFormat()), u"dd/mm/yyyy");
  C_DATE::SetDefaultDateFormat(C_STRING(u"yyyy.mm.dd"));
  EXPECT_EQ(format(d, C_DATE::GetDefaultDateFormat().GetWCHAR()), u"2007.05.04");
  C_DATE::SetDefaultDateFormat(C_STRING(u"dd/mm/yyyy"));
}

TEST(Date, ReadsTheDefaultTextForm) {
  const C_DATE d(2007, 5, 14, 13, 45, 30, 25);
  C_STRING text;
  d.GetString(&text);
  EXPECT_TRUE(C_DATE(text) == d);
  EXPECT_FALSE(C_ERROR::Is());
  // The separators are not examined.
  EXPECT_TRUE(C_DATE(C_STRING(u"1999x12y31z23:59:58+07")) == C_DATE(1999, 12, 31, 23, 59, 58, 7));
  EXPECT_FALSE(C_ERROR::Is());

  // Only the date: the time fields are missing.
  const C_DATE dateOnly{C_STRING(u"2007/05/04")};
  EXPECT_TRUE(dateOnly == C_DATE(2007, 5, 4));
  EXPECT_TRUE(dateOnly.IsValid());
  EXPECT_TRUE(CerrStringNotInt.IsPending());
  C_ERROR::ClearPending();

  // A malformed field reads as 0; the others are still read.
  const C_DATE bad{C_STRING(u"2007/0x/14-13:45:30.25")};
  EXPECT_TRUE(bad == C_DATE(2007, 0, 14, 13, 45, 30, 25));
  EXPECT_FALSE(bad.IsValid());
  EXPECT_TRUE(CerrStringNotInt.IsPending());
  C_ERROR::ClearPending();

  const C_DATE empty{C_STRING()};
  EXPECT_TRUE(empty == C_DATE::VOID);
  EXPECT_TRUE(CerrStringNotInt.IsPending());
}

TEST(Date, ClockReadings) {
  const std::time_t before = std::time(nullptr);
  C_DATE gmt;
  gmt.SetCurrentGMT();
  const std::time_t after = std::time(nullptr);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_TRUE(gmt.IsValid());
  EXPECT_TRUE(Utc(before) <= Whole(gmt));
  EXPECT_TRUE(Whole(gmt) <= Utc(after));

  ScopedEnv zone("TZ", "XYZ-3");
  C_DATE local;
  local.SetCurrentLocale();
  EXPECT_TRUE(Utc(before + 3 * 3600) <= Whole(local));
  EXPECT_TRUE(Whole(local) <= Utc(std::time(nullptr) + 3 * 3600));
}

TEST(Date, ConversionsUseTheOffsetInForceNow) {
  {
    ScopedEnv zone("TZ", "XYZ-3");
    C_DATE d(2007, 5, 14, 22, 30, 15, 25);
    d.GMTToLocal();
    EXPECT_TRUE(d == C_DATE(2007, 5, 15, 1, 30, 15, 25));
    d.LocalToGMT();
    EXPECT_TRUE(d == C_DATE(2007, 5, 14, 22, 30, 15, 25));
    // Across a leap day.
    C_DATE leap(2004, 2, 29, 23, 0, 0);
    leap.GMTToLocal();
    EXPECT_TRUE(leap == C_DATE(2004, 3, 1, 2, 0, 0));
  }
  {
    // With daylight saving time, a winter date moves by today's offset.
    ScopedEnv zone("TZ", "CET-1CEST,M3.5.0,M10.5.0/3");
    const std::time_t now = std::time(nullptr);
    std::tm broken{};
    localtime_r(&now, &broken);
    const long offset = broken.tm_gmtoff;
    C_DATE winter(2007, 1, 10, 12, 0, 0);
    winter.GMTToLocal();
    EXPECT_TRUE(winter == C_DATE(2007, 1, 10, 12 + static_cast<int>(offset / 3600), 0, 0));
  }
}

TEST(Date, FailedConversionsLeaveTheDate) {
  ScopedEnv zone("TZ", "XYZ-3");
  C_DATE invalid(2007, 2, 30, 12, 0, 0);
  invalid.GMTToLocal();
  EXPECT_TRUE(CerrInvalidValue.IsPending());
  EXPECT_TRUE(invalid == C_DATE(2007, 2, 30, 12, 0, 0));
  C_ERROR::ClearPending();

  C_DATE last(9999, 12, 31, 23, 0, 0);
  last.GMTToLocal();
  EXPECT_TRUE(CerrInvalidValue.IsPending());
  EXPECT_TRUE(last == C_DATE(9999, 12, 31, 23, 0, 0));
  C_ERROR::ClearPending();

  C_DATE first(100, 1, 1, 1, 0, 0);
  first.LocalToGMT();
  EXPECT_TRUE(CerrInvalidValue.IsPending());
  EXPECT_TRUE(first == C_DATE(100, 1, 1, 1, 0, 0));
}

TEST(Date, LocaleFormats) {
  const C_DATE d(2007, 5, 14, 13, 45, 30, 25);
  C_STRING out;
  {
    ScopedEnv locale("LC_ALL", "de_DE.UTF-8");
    d.GetSystemString(false, &out);
    EXPECT_EQ(Text(out), u"14.05.07 13:45:30");
    d.GetSystemString(true, &out);
    EXPECT_EQ(Text(out), u"Montag, 14. Mai 2007 13:45:30");
  }
  {
    ScopedEnv locale("LC_ALL", "en_US.UTF-8");
    d.GetSystemString(true, &out);
    const std::u16string text = Text(out);
    EXPECT_EQ(text.rfind(u"Monday, May 14, 2007 1:45:30", 0), 0u) << out.GetANSI();
    EXPECT_NE(text.find(u"PM"), std::u16string::npos);
  }
  {
    // The C locale: the neutral formats. Old dates stay in the Gregorian calendar.
    ScopedEnv locale("LC_ALL", "C");
    C_DATE(1200, 3, 1, 8, 5, 9).GetSystemString(false, &out);
    EXPECT_EQ(Text(out), u"1200-03-01 08:05:09");
  }
  EXPECT_FALSE(C_ERROR::Is());

  C_DATE(2007, 2, 30).GetSystemString(false, &out);
  EXPECT_TRUE(CerrInvalidValue.IsPending());
  EXPECT_EQ(Text(out), u"");
}

}  // namespace
