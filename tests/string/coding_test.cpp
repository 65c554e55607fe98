// Text coding, quote escaping and the input/display form of the technical symbols.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <string>

namespace {

std::u16string Text(const C_STRING& s) { return std::u16string(s.GetWCHAR(), s.GetNumber()); }

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

TEST(StringCoding, EncodeAndDecode) {
  C_STRING omega(u"x\u03a9y");
  omega.Encode();
  EXPECT_EQ(Text(omega), u"x\u00ff03A9y");
  EXPECT_EQ(omega.GetSize(), 8);
  omega.Decode();
  EXPECT_EQ(Text(omega), u"x\u03a9y");

  C_STRING code(u"\u00ff");
  code.Encode();
  EXPECT_EQ(Text(code), u"\u00ff00FF");
  code.Decode();
  EXPECT_EQ(Text(code), u"\u00ff");

  C_STRING mixed(u"\uabcd\u0100 \u00fe\u00ff\uffff");
  const std::u16string original = Text(mixed);
  mixed.Encode();
  for (char16_t c : Text(mixed)) EXPECT_LE(c, 0x00FF);
  mixed.Decode();
  EXPECT_EQ(Text(mixed), original);

  // Latin-1 text needs no coding: nothing changes, nothing is allocated.
  C_STRING latin(u"caf\u00e9 \u00fe");
  const C_CHAR* before = reinterpret_cast<const C_CHAR*>(latin.GetWCHAR());
  latin.Encode();
  EXPECT_EQ(Text(latin), u"caf\u00e9 \u00fe");
  EXPECT_EQ(reinterpret_cast<const C_CHAR*>(latin.GetWCHAR()), before);
  C_STRING empty;
  empty.Encode();
  empty.Decode();
  EXPECT_EQ(empty.GetSize(), 0);
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(StringCoding, EncodeRefusesTextThatWouldOutgrowTheLongestString) {
  C_STRING wide(std::u16string(20000, u'\u4e00').c_str());
  wide.Encode();
  EXPECT_TRUE(CerrValueTooHigh.IsPending());
  EXPECT_EQ(wide.GetNumber(), 20000);
  EXPECT_EQ(wide.Get(0), C_CHAR(0x4e00));
}

TEST(StringCoding, DecodeOfShortOrStrayEscapes) {
  // Fewer than four digits give the value of those digits; reading still
  // moves on five places.
  C_STRING cut(u"a\u00ff41");
  cut.Decode();
  EXPECT_EQ(Text(cut), u"a\u0041");
  C_STRING skipped(u"\u00ff4!xyz");
  skipped.Decode();
  EXPECT_EQ(Text(skipped), u"\u0004z");
  // An escape with no digit behind it stays as it is.
  C_STRING stray(u"\u00ffnot coded");
  stray.Decode();
  EXPECT_EQ(Text(stray), u"\u00ffnot coded");
  C_STRING last(u"end\u00ff");
  last.Decode();
  EXPECT_EQ(Text(last), u"end\u00ff");
}

TEST(StringCoding, DecodeOfAnEightBitLine) {
  C_STRING s;
  s.Decode(
      "\xff"
      "03A9 and \xe9");
  EXPECT_EQ(Text(s), u"\u03a9 and \u00e9");
  s.Decode("");
  EXPECT_TRUE(s.IsVoid());
}

TEST(StringCoding, QuoteEscaping) {
  C_STRING s(u"a\"b");
  s.ToSpecial();
  EXPECT_EQ(Text(s), u"a\\\"b");
  s.FromSpecial();
  EXPECT_EQ(Text(s), u"a\"b");

  C_STRING plain(u"a\\b");
  plain.FromSpecial();
  EXPECT_EQ(Text(plain), u"a\\b");
  plain.ToSpecial();
  EXPECT_EQ(Text(plain), u"a\\b");

  C_STRING quotes(u"\"\"");
  quotes.ToSpecial();
  EXPECT_EQ(Text(quotes), u"\\\"\\\"");
  // Backslashes already present are not doubled: a reader that takes a
  // doubled backslash as one would misread this form.
  C_STRING lossy(u"\\\"");
  lossy.ToSpecial();
  EXPECT_EQ(Text(lossy), u"\\\\\"");
  lossy.FromSpecial();
  EXPECT_EQ(Text(lossy), u"\\\"");
  C_STRING trailing(u"x\\");
  trailing.FromSpecial();
  EXPECT_EQ(Text(trailing), u"x\\");
}

TEST_F(StringSpecial, InputFormWithEverySymbolShown) {
  const C_STRING percent(u"10%d");
  EXPECT_EQ(std::u16string(percent.GetInputTCHAR()), u"10%%d");
  C_STRING back;
  back.FromInputTCHAR(u"10%%d");
  EXPECT_EQ(Text(back), u"10%d");

  // The diameter is shown as it is; a percent sign before it is doubled.
  const C_STRING diameter(u"\u00d8 20 %\u00d8 %%");
  EXPECT_EQ(std::u16string(diameter.GetInputTCHAR()), u"\u00d8 20 %%\u00d8 %%%");
  back.FromInputTCHAR(diameter.GetInputTCHAR());
  EXPECT_EQ(Text(back), u"\u00d8 20 %\u00d8 %%");

  // Text without anything to escape is returned as it stands.
  const C_STRING plain(u"50% off, 45\u00b0");
  EXPECT_EQ(plain.GetInputTCHAR(), plain.GetWCHAR());
  EXPECT_EQ(std::u16string(C_STRING().GetInputTCHAR()), u"");
}

TEST_F(StringSpecial, InputFormWithoutTheDiameter) {
  Display::Set(false, true);
  const C_STRING s(u"\u00d8 20");
  EXPECT_EQ(std::u16string(s.GetInputTCHAR()), u"%d 20");
  C_STRING back;
  back.FromInputTCHAR(s.GetInputTCHAR());
  EXPECT_EQ(Text(back), u"\u00d8 20");

  const C_STRING tricky(u"%d and %%d and \u00d8");
  const std::u16string shown = tricky.GetInputTCHAR();
  EXPECT_EQ(shown, u"%%d and %%%%d and %d");
  back.FromInputTCHAR(shown.c_str());
  EXPECT_EQ(Text(back), u"%d and %%d and \u00d8");

  // FromInputTCHAR turns "%d" into the diameter whatever the flags say.
  Display::Set(true, true);
  back.FromInputTCHAR(u"%d 20");
  EXPECT_EQ(Text(back), u"\u00d8 20");
}

TEST_F(StringSpecial, InputFormWithoutTheDegree) {
  Display::Set(true, false);
  const C_STRING angle(u"45\u00b0");
  EXPECT_EQ(std::u16string(angle.GetInputTCHAR()), u"45deg");
  C_STRING back;
  back.FromInputTCHAR(angle.GetInputTCHAR());
  EXPECT_EQ(Text(back), u"45deg");  // spelled out, it stays spelled out

  Display::Set(false, false);
  const C_STRING both(u"\u00d8\u00b0%\u00b0\u00b0");
  EXPECT_EQ(std::u16string(both.GetInputTCHAR()), u"%ddeg%degdeg");

  // The symbols are the ones the host set.
  C_CHAR::SetSpecialChar(C_CHAR::DEGREE, C_CHAR(u'~'));
  C_CHAR::SetSpecialChar(C_CHAR::DIAMETER, C_CHAR(u'#'));
  const C_STRING custom(u"#5 ~3 \u00b0");
  EXPECT_EQ(std::u16string(custom.GetInputTCHAR()), u"%d5 deg3 \u00b0");
  back.FromInputTCHAR(u"%d5");
  EXPECT_EQ(Text(back), u"#5");
}

TEST_F(StringSpecial, InputFormReturnsTheTextWhileAnErrorIsPending) {
  Display::Set(false, false);
  const C_STRING s(std::u16string(3000, u'\u00d8').c_str());
  CerrInvalidValue.Trigger();
  EXPECT_EQ(s.GetInputTCHAR(), s.GetWCHAR());
}

}  // namespace
