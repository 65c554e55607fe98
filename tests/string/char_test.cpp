#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include "foundation/library.h"

namespace {

// Runs a check under another library code page and switch, then restores them.
class CodePageScope {
 public:
  CodePageScope(int codePage, bool mbcs) : savedPage_(qorc::LibraryCodePage()), savedMbcs_(CcharMBCS) {
    qorc::SetLibraryCodePage(codePage);
    CcharMBCS = mbcs;
  }
  ~CodePageScope() {
    qorc::SetLibraryCodePage(savedPage_);
    CcharMBCS = savedMbcs_;
  }

 private:
  int savedPage_;
  C_BOOL savedMbcs_;
};

}  // namespace

TEST(Character, ConstantsAndByteConversions) {
  EXPECT_EQ(int(C_CHAR::VOID), 0);
  EXPECT_EQ(int(C_CHAR::EOL), 0x0A);
  EXPECT_EQ(int(C_CHAR::BOM), 0xFEFF);
  EXPECT_EQ(int(C_CHAR::BOMINV), 0xFFFE);
  EXPECT_EQ(int(C_CHAR::CODE), 0xFF);

  EXPECT_EQ(char(C_CHAR(0x0100)), '?');
  EXPECT_EQ(static_cast<unsigned char>(char(C_CHAR(0x00E9))), 0xE9);
  C_CHAR c;
  c = static_cast<char>(0xE9);  // Latin-1, zero-extended
  EXPECT_EQ(int(c), 0xE9);
  EXPECT_TRUE(c == static_cast<char>(0xE9));

  EXPECT_FALSE(C_CHAR(0x00FE).NeedsCoding());
  EXPECT_TRUE(C_CHAR(0x00FF).NeedsCoding());
  EXPECT_TRUE(C_CHAR(0x0100).NeedsCoding());
  EXPECT_FALSE(C_CHAR(0x000D).IsEOL());
  EXPECT_TRUE(C_CHAR(0x000A).IsEOL());
  EXPECT_TRUE(C_CHAR(0x7F).IsASCII());
  EXPECT_FALSE(C_CHAR(0x80).IsASCII());
  EXPECT_TRUE(C_CHAR(0xFF).IsANSI());
}

TEST(Character, AsciiReductionTable) {
  const std::pair<char16_t, char16_t> cases[] = {
      {0x00E9, u'e'}, {0x00D7, u'x'}, {0x0085, u' '}, {0x20AC, u'?'}, {0x00B1, u'#'}, {0x00A0, u' '},
      {0x00A6, u'|'}, {0x00A8, u'"'}, {0x00AB, u'<'}, {0x00B4, u'\''}, {0x00B8, u','}, {0x00BB, u'>'},
      {0x00C7, u'C'}, {0x00DF, u'B'}, {0x00F0, u'?'}, {0x00FF, u'y'}, {0x0041, u'A'}, {0x00D8, u'O'}};
  for (const auto& c : cases) {
    C_CHAR ch(c.first);
    ch.MakeASCII();
    EXPECT_EQ(int(ch), c.second) << std::hex << int(c.first);
  }
  C_CHAR euro(0x20AC);
  euro.MakeANSI();
  EXPECT_EQ(int(euro), '?');
}

TEST(Character, ClassificationAndCase) {
  EXPECT_TRUE(C_CHAR(u'a').IsAlpha());
  EXPECT_TRUE(C_CHAR(0x00E9).IsAlpha());
  EXPECT_TRUE(C_CHAR(0x00E9).IsLower());
  EXPECT_TRUE(C_CHAR(u' ').IsSpace());
  EXPECT_TRUE(C_CHAR(u'7').IsDigit());
  EXPECT_TRUE(C_CHAR(u'f').IsHexa());
  EXPECT_FALSE(C_CHAR(u'g').IsHexa());
  EXPECT_TRUE(C_CHAR(u'+').IsPunct());  // symbols count as punctuation, as in the C runtime
  EXPECT_TRUE(C_CHAR(u'!').IsPunct());
  EXPECT_FALSE(C_CHAR(u'a').IsPunct());
  EXPECT_TRUE(C_CHAR(0x0007).IsControl());
  EXPECT_FALSE(C_CHAR(u' ').IsGraph());
  EXPECT_TRUE(C_CHAR(u' ').IsPrint());

  C_CHAR e(0x00C9);
  e.MakeLower();
  EXPECT_EQ(int(e), 0x00E9);
  e.MakeUpper();
  EXPECT_EQ(int(e), 0x00C9);
}

TEST(Character, MultibyteWithoutCodePage) {
  CodePageScope scope(1252, false);
  C_CHAR c;
  const char e9[] = "\xE9";
  EXPECT_EQ(c.FromMBCS(e9, 2), -1);
  EXPECT_EQ(c.FromMBCS(e9, 1), 1);
  EXPECT_EQ(int(c), 0xFFE9);  // sign-extended on purpose
  EXPECT_EQ(c.FromMBCS("", 1), 0);
  char out[8];
  EXPECT_EQ(C_CHAR(0x1234).GetMBCS(out), 1);
  EXPECT_EQ(static_cast<unsigned char>(out[0]), 0x34);
}

TEST(Character, MultibyteThroughCodePages) {
  {
    CodePageScope scope(932, true);
    EXPECT_EQ(C_CHAR::GetMBCSMaxLength(), 2);
    C_CHAR c;
    const char hiragana[] = "\x82\xA0";  // U+3042 in code page 932
    EXPECT_EQ(c.FromMBCS(hiragana, 0), 2);
    EXPECT_EQ(int(c), 0x3042);
    EXPECT_EQ(c.FromMBCS(hiragana, 1), -1);  // lead byte alone is incomplete
    char out[4];
    EXPECT_EQ(C_CHAR(0x3042).GetMBCS(out), 2);
    EXPECT_EQ(std::string(out, 2), std::string(hiragana));
  }
  {
    CodePageScope scope(1252, true);
    C_CHAR c;
    EXPECT_EQ(c.FromMBCS("\x80", 0), 1);
    EXPECT_EQ(int(c), 0x20AC);
    char out[4];
    EXPECT_EQ(C_CHAR(0x3042).GetMBCS(out), 1);  // not in the page: the default character
    EXPECT_EQ(out[0], '?');
  }
}

class SymbolDisplay : public C_CHAR {
 public:
  static void WithoutDiameter() { SupportsDiameterSymbol = false; }
};

TEST(Character, SpecialCharactersAndDisplayFlags) {
  EXPECT_EQ(int(C_CHAR::GetSpecialChar(C_CHAR::DIAMETER)), 0x00D8);
  EXPECT_EQ(int(C_CHAR::GetSpecialChar(C_CHAR::PLUS_MINUS)), 0x00B1);
  C_CHAR::SetSpecialChar(C_CHAR::DIAMETER, C_CHAR(0x2300));
  EXPECT_EQ(int(C_CHAR::GetSpecialChar(C_CHAR::DIAMETER)), 0x2300);
  C_CHAR::SetSpecialChar(C_CHAR::DIAMETER, C_CHAR(0x00D8));

  EXPECT_TRUE(C_CHAR::IsDiameterSymbolSupported());
  SymbolDisplay::WithoutDiameter();
  EXPECT_FALSE(C_CHAR::IsDiameterSymbolSupported());
  EXPECT_TRUE(C_CHAR::IsDegreeSymbolSupported());
  C_CHAR::Open();
  EXPECT_TRUE(C_CHAR::IsDiameterSymbolSupported());
}
