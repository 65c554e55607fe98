#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include "foundation/library.h"
#include "platform/text.h"

TEST(LogicalValues, BoolStoresOneForAnyNonZero) {
  C_BOOL b;
  EXPECT_EQ(int(b), 0);
  EXPECT_EQ(int(b = 7), 1);
  EXPECT_EQ(int(C_BOOL(-1)), 1);
  EXPECT_TRUE(b == 3);  // any non-zero integer compares as true
  C_BOOL x(1), y(1), z(0);
  EXPECT_EQ(int(x ^= C_BOOL(1)), 0);
  EXPECT_EQ(int(y &= C_BOOL(0)), 0);
  EXPECT_EQ(int(z |= C_BOOL(1)), 1);
  z.Invert();
  EXPECT_TRUE(z.IsFalse());
}

TEST(LogicalValues, LogHasThreeStates) {
  EXPECT_EQ(int(C_LOG()), -1);
  EXPECT_EQ(int(C_LOG(-7)), -1);
  EXPECT_EQ(int(C_LOG(3)), 1);
  C_LOG unknown;
  unknown.Invert();  // unknown stays unknown
  EXPECT_TRUE(unknown.IsUnknown() && !unknown.IsKnown() && !unknown.IsTrue() && !unknown.IsFalse());
  C_LOG truth(C_BOOL(1));
  truth.Invert();
  EXPECT_TRUE(truth.IsFalse());
  EXPECT_EQ(int(truth = -4), -1);
}

TEST(LibraryFrame, OpenSetsSwitchesAndCodePage) {
  // The test program has called Copen: every code page takes the multibyte path.
  EXPECT_TRUE(CcharMBCS.IsTrue());
  EXPECT_TRUE(CcharUnicode.IsTrue());
  EXPECT_FALSE(CfileManageIndex.IsTrue());
  EXPECT_TRUE(qorc::platform::IsCodePageAvailable(qorc::LibraryCodePage()));
  Copen();  // a second Copen is harmless
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(LibraryFrame, CodePageFollowsTheEnvironmentCodeset) {
#ifdef _WIN32
  GTEST_SKIP() << "On Windows the code pages are the user's locale settings, not the environment's codeset";
#else
  const char* saved = std::getenv("LC_ALL");
  const std::string keep = saved != nullptr ? saved : "";
  struct Case {
    const char* locale;
    int ansi;
    int oem;
  };
  // The codeset named wins even where the machine lacks that locale.
  for (const Case& c : {Case{"C.UTF-8", 65001, 65001}, Case{"ja_JP.SJIS", 932, 932},
                        Case{"de_DE.ISO-8859-15@euro", 28605, 437}, Case{"ru_RU.CP1251", 1251, 866},
                        Case{"en_US.CP1252", 1252, 850}, Case{"POSIX", 1252, 850}}) {
    setenv("LC_ALL", c.locale, 1);
    EXPECT_EQ(qorc::platform::SystemAnsiCodePage(), c.ansi) << c.locale;
    EXPECT_EQ(qorc::platform::OemCodePageFor(c.ansi), c.oem) << c.locale;
  }
  if (saved != nullptr) {
    setenv("LC_ALL", keep.c_str(), 1);
  } else {
    unsetenv("LC_ALL");
  }
#endif
}
