// Text coding, quote escaping and the technical symbols with their input/display form.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <string>
#include <utility>

namespace {

std::u16string Text(const C_STRING& s) { return std::u16string(s.GetWCHAR(), s.GetNumber()); }

TEST(StringCoding, EncodeAndDecode) {
  // Fewer than four digits give the value of those digits, yet reading moves
  // on five places; an escape with no digit behind it stays as it is.
  const struct {
    const char16_t *plain, *coded;
    bool encoded;  // whether Encode gives this coded form
  } cases[] = {{u"x\u03a9y", u"x\u00ff03A9y", true},
               {u"\u00ff", u"\u00ff00FF", true},
               {u"\uabcd\u0100 \u00fe\uffff", u"\u00ffABCD\u00ff0100 \u00fe\u00ffFFFF", true},
               {u"caf\u00e9 \u00fe", u"caf\u00e9 \u00fe", true},
               {u"", u"", true},
               {u"a\u0041", u"a\u00ff41", false},
               {u"\u0004z", u"\u00ff4!xyz", false},
               {u"\u00ffnot coded", u"\u00ffnot coded", false},
               {u"end\u00ff", u"end\u00ff", false}};
  for (const auto& c : cases) {
    C_STRING s(c.coded);
    s.Decode();
    EXPECT_EQ(Text(s), c.plain);
    if (c.encoded) {
      s.Encode();
      EXPECT_EQ(Text(s), c.coded);
    }
  }
  C_STRING s;
  s.Decode((std::string("\xff") + "03A9 and \xe9").c_str());  // an 8-bit line
  EXPECT_EQ(Text(s), u"\u03a9 and \u00e9");
  s.Decode("");
  EXPECT_TRUE(s.IsVoid());
  C_STRING omega(u"x\u03a9y");
  omega.Encode();
  EXPECT_EQ(omega.GetSize(), 8);
  C_STRING latin(u"caf\u00e9");
  const char16_t* before = latin.GetWCHAR();
  latin.Encode();
  EXPECT_TRUE(latin.GetWCHAR() == before && !C_ERROR::Is());  // Latin-1 needs no coding: nothing is allocated

  C_STRING wide(std::u16string(20000, u'\u4e00').c_str());
  wide.Encode();  // would outgrow the longest string
  EXPECT_TRUE(CerrValueTooHigh.IsPending() && Text(wide) == std::u16string(20000, u'\u4e00'));
}

TEST(StringCoding, QuoteEscaping) {
  // Backslashes already present are not doubled: a reader that takes a
  // doubled backslash as one would misread the escaped form.
  const struct {
    const char16_t *text, *escaped;
  } cases[] = {
      {u"a\"b", u"a\\\"b"}, {u"a\\b", u"a\\b"}, {u"\"\"", u"\\\"\\\""}, {u"\\\"", u"\\\\\""}, {u"x\\", u"x\\"}};
  for (const auto& c : cases) {
    C_STRING s(c.text);
    s.ToSpecial();
    EXPECT_EQ(Text(s), c.escaped);
    s.FromSpecial();
    EXPECT_EQ(Text(s), c.text);
  }
}

// A host whose display lacks symbols clears the flags through a derived class.
class Display : public C_CHAR {
 public:
  static void Set(bool diameter, bool degree) {
    SupportsDiameterSymbol = diameter;
    SupportsDegreeSymbol = degree;
  }
};

class StringSpecial : public testing::Test {
 protected:
  void TearDown() override {
    C_CHAR::Open();
    C_CHAR::SetSpecialChar(C_CHAR::DIAMETER, C_CHAR(0x00D8));
    C_CHAR::SetSpecialChar(C_CHAR::DEGREE, C_CHAR(0x00B0));
  }
};

TEST_F(StringSpecial, InputFormFollowsTheDisplayFlags) {
  const struct {
    bool diameter, degree;
    const char16_t *text, *shown, *back;
  } cases[] = {{true, true, u"10%d", u"10%%d", u"10%d"},
               // The diameter is shown as it is; a percent sign before it is doubled.
               {true, true, u"\u00d8 20 %\u00d8 %%", u"\u00d8 20 %%\u00d8 %%%", u"\u00d8 20 %\u00d8 %%"},
               {true, true, u"", u"", u""},
               {false, true, u"\u00d8 20", u"%d 20", u"\u00d8 20"},
               {false, true, u"%d and %%d and \u00d8", u"%%d and %%%%d and %d", u"%d and %%d and \u00d8"},
               {true, false, u"45\u00b0", u"45deg", u"45deg"},  // spelled out, it stays spelled out
               // The shown form is ambiguous: "%deg" reads back as the diameter and "eg".
               {false, false, u"\u00d8\u00b0%\u00b0\u00b0", u"%ddeg%degdeg", u"\u00d8deg\u00d8egdeg"}};
  for (const auto& c : cases) {
    Display::Set(c.diameter, c.degree);
    const std::u16string shown = C_STRING(c.text).GetInputTCHAR();
    EXPECT_EQ(shown, c.shown);
    C_STRING back;
    back.FromInputTCHAR(shown.c_str());
    EXPECT_EQ(Text(back), c.back);
  }
  // FromInputTCHAR turns "%d" into the diameter whatever the flags say.
  Display::Set(true, true);
  C_STRING back;
  back.FromInputTCHAR(u"%d 20");
  EXPECT_EQ(Text(back), u"\u00d8 20");
  // Text without anything to escape is returned as it stands.
  const C_STRING plain(u"50% off, 45\u00b0");
  EXPECT_EQ(plain.GetInputTCHAR(), plain.GetWCHAR());
}

TEST_F(StringSpecial, SymbolsAreTheHostsChoice) {
  EXPECT_TRUE(int(C_CHAR::GetSpecialChar(C_CHAR::DIAMETER)) == 0x00D8 && C_CHAR::IsDiameterSymbolSupported() &&
              C_CHAR::IsDegreeSymbolSupported());
  Display::Set(false, false);
  EXPECT_FALSE(C_CHAR::IsDiameterSymbolSupported() || C_CHAR::IsDegreeSymbolSupported());
  C_CHAR::SetSpecialChar(C_CHAR::DEGREE, C_CHAR(u'~'));
  C_CHAR::SetSpecialChar(C_CHAR::DIAMETER, C_CHAR(u'#'));
  EXPECT_EQ(int(C_CHAR::GetSpecialChar(C_CHAR::DIAMETER)), u'#');
  EXPECT_EQ(std::u16string(C_STRING(u"#5 ~3 \u00b0").GetInputTCHAR()), u"%d5 deg3 \u00b0");
  C_STRING back;
  back.FromInputTCHAR(u"%d5~");
  EXPECT_EQ(Text(back), u"#5~");

  // While an error is pending the text is returned as it stands.
  const C_STRING s(std::u16string(3000, u'#').c_str());
  CerrInvalidValue.Trigger();
  EXPECT_EQ(s.GetInputTCHAR(), s.GetWCHAR());
  C_CHAR::Open();
  EXPECT_TRUE(C_CHAR::IsDiameterSymbolSupported() && C_CHAR::IsDegreeSymbolSupported());
}

}  // namespace
