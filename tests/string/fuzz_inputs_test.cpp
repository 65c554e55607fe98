// Inputs the fuzz targets found, kept as regression cases.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

namespace {

TEST(StringFuzzInputs, Utf8LeadByteCutByTheEnd) {
  // A two-byte lead with nothing behind it: its missing byte reads as zero,
  // and nothing past the terminator is read. The unit it gives (U+0000)
  // cannot be written back as UTF-8 text.
  C_STRING text;
  text.FromUTF8("\x80");
  EXPECT_TRUE(text.GetNumber() == 1 && text.Get(0) == C_CHAR::VOID);
  text.FromUTF8("ab\xc3");
  EXPECT_TRUE(text.GetNumber() == 3 && text.Get(2) == C_CHAR(0x00C0));
  text.FromUTF8("\xe2\x82");
  EXPECT_TRUE(text.GetNumber() == 1 && text.Get(0) == C_CHAR(0x2080) && !C_ERROR::Is());
}

}  // namespace
