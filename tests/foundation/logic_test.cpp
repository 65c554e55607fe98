#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include "foundation/library.h"
#include "platform/text.h"

TEST(LogicalValues, BoolStoresOneForAnyNonZero) {
  EXPECT_EQ(int(C_BOOL(5)), 1);
  EXPECT_EQ(int(C_BOOL(-1)), 1);
  EXPECT_EQ(int(C_BOOL()), 0);
  C_BOOL b;
  EXPECT_EQ(int(b = 7), 1);
  EXPECT_TRUE(b.IsTrue());
  EXPECT_TRUE(b == 3);  // any non-zero integer compares as true
  EXPECT_EQ(sizeof(C_BOOL), 1u);

  C_BOOL x(1);
  EXPECT_EQ(int(x ^= C_BOOL(1)), 0);
  C_BOOL y(1);
  EXPECT_EQ(int(y &= C_BOOL(0)), 0);
  C_BOOL z(0);
  EXPECT_EQ(int(z |= C_BOOL(1)), 1);
  z.Invert();
  EXPECT_TRUE(z.IsFalse());
  z.SetTrue();
  EXPECT_TRUE(z.IsTrue());
}

TEST(LogicalValues, LogHasThreeStates) {
  EXPECT_EQ(int(C_LOG()), -1);
  EXPECT_EQ(int(C_LOG(-7)), -1);
  EXPECT_EQ(int(C_LOG(0)), 0);
  EXPECT_EQ(int(C_LOG(3)), 1);
  EXPECT_EQ(int(C_LOG(C_BOOL(1))), 1);
  EXPECT_EQ(sizeof(C_LOG), 1u);

  C_LOG unknown;
  unknown.Invert();
  EXPECT_TRUE(unknown.IsUnknown());
  EXPECT_FALSE(unknown.IsKnown());
  EXPECT_FALSE(unknown.IsTrue());
  EXPECT_FALSE(unknown.IsFalse());

  C_LOG truth(1);
  truth.Invert();
  EXPECT_TRUE(truth.IsFalse());
  truth.Invert();
  EXPECT_TRUE(truth.IsTrue());
  EXPECT_EQ(int(truth = -4), -1);
  EXPECT_EQ(int(truth = C_BOOL(0)), 0);
}

TEST(LibraryFrame, OpenSetsSwitchesAndCodePage) {
  // The test program has called Copen: every code page takes the multibyte path.
  EXPECT_TRUE(CcharMBCS.IsTrue());
  EXPECT_TRUE(CcharUnicode.IsTrue());
  EXPECT_FALSE(CfileManageIndex.IsTrue());
  EXPECT_NE(qorc::LibraryCodePage(), 0);
  EXPECT_TRUE(qorc::platform::IsCodePageAvailable(qorc::LibraryCodePage()));
  // A second Copen repeats its steps harmlessly.
  Copen();
  EXPECT_TRUE(CcharMBCS.IsTrue());
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(LibraryFrame, CodePageFollowsTheEnvironmentCodeset) {
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
}
