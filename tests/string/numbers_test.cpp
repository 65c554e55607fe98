// Reading integers, reals, hexadecimal values, fractions and tokens out of a C_STRING.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

std::u16string Text(const C_STRING& s) { return std::u16string(s.GetWCHAR(), s.GetNumber()); }

// Expects the given descriptor pending, then clears it.
void ExpectPendingAndClear(const C_ERROR& error) {
  EXPECT_TRUE(error.IsPending());
  C_ERROR::ClearPending();
}

TEST(StringNumbers, WholeStringTests) {
  EXPECT_TRUE(C_STRING(u"0123").IsInt());
  EXPECT_FALSE(C_STRING(u"-5").IsInt());
  EXPECT_FALSE(C_STRING(u" 5").IsInt());
  EXPECT_FALSE(C_STRING().IsInt());
  EXPECT_TRUE(C_STRING(u"09afAF").IsHexa());
  EXPECT_FALSE(C_STRING(u"0x1A").IsHexa());
  EXPECT_FALSE(C_STRING(u"g").IsHexa());
  EXPECT_FALSE(C_STRING().IsHexa());
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(StringNumbers, ScanIntReportsItsEnd) {
  int end = -1;
  EXPECT_EQ(C_STRING(u"12ab").ScanInt(0, &end), 12);
  EXPECT_EQ(end, 2);
  EXPECT_EQ(C_STRING(u"x = -34;").ScanInt(3, &end), -34);
  EXPECT_EQ(end, 7);
  EXPECT_EQ(C_STRING(u"\t+7").ScanInt(0, &end), 7);
  EXPECT_EQ(end, 3);
  // Beyond the 32-bit range the value saturates.
  EXPECT_EQ(C_STRING(u"99999999999").ScanInt(0, &end), 2147483647);
  EXPECT_EQ(end, 11);
  EXPECT_EQ(C_STRING(u"-2147483648").ScanInt(), -2147483647 - 1);
  EXPECT_EQ(C_STRING(u"-99999999999").ScanInt(), -2147483647 - 1);
  EXPECT_FALSE(C_ERROR::Is());

  EXPECT_EQ(C_STRING(u"  -x").ScanInt(0, &end), 0);
  EXPECT_EQ(end, 0);
  ExpectPendingAndClear(CerrStringNotInt);
  EXPECT_EQ(C_STRING(u"12").ScanInt(2, &end), 0);
  EXPECT_EQ(end, 2);
  ExpectPendingAndClear(CerrStringNotInt);
  EXPECT_EQ(C_STRING(u"12").ScanInt(-3, &end), 0);
  EXPECT_EQ(end, -3);
  ExpectPendingAndClear(CerrStringNotInt);

  int value = 99;
  EXPECT_TRUE(C_STRING(u"a 42").HasInt(1, &value, &end));
  EXPECT_EQ(value, 42);
  EXPECT_EQ(end, 4);
  EXPECT_FALSE(C_STRING(u"a 42").HasInt(0, &value, &end));
  EXPECT_EQ(value, 0);
  EXPECT_EQ(end, 0);
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(StringNumbers, SixtyFourBitReader) {
  int end = -1;
  long long value = 5;
  EXPECT_FALSE(C_STRING(u"   x").HasLong(0, &value, &end));
  EXPECT_EQ(value, 0);
  EXPECT_EQ(end, 0);
  EXPECT_FALSE(C_STRING(u"  -").HasLong(0, &value, &end));
  EXPECT_EQ(end, 0);
  EXPECT_FALSE(C_ERROR::Is());

  EXPECT_TRUE(C_STRING(u"  -9000000000000z").HasLong(0, &value, &end));
  EXPECT_EQ(value, -9000000000000LL);
  EXPECT_EQ(end, 16);
  // Overflow wraps silently.
  EXPECT_EQ(C_STRING(u"9223372036854775808").ScanLong(), std::numeric_limits<long long>::min());
  EXPECT_EQ(C_STRING(u"18446744073709551617").ScanLong(), 1);
  EXPECT_FALSE(C_ERROR::Is());

  EXPECT_EQ(C_STRING(u"abc").ScanLong(0, &end), 0);
  EXPECT_EQ(end, 0);
  ExpectPendingAndClear(CerrStringNotInt);
  EXPECT_EQ(C_STRING(u"1").ScanLong(1, &end), 0);
  EXPECT_EQ(end, 1);
  ExpectPendingAndClear(CerrStringNotInt);
}

TEST(StringNumbers, Reals) {
  int end = -1;
  EXPECT_DOUBLE_EQ(C_STRING(u"1.5e3").ToReal(), 1500.0);
  EXPECT_DOUBLE_EQ(C_STRING(u" -0.25").ToReal(), -0.25);
  EXPECT_DOUBLE_EQ(C_STRING(u".5").ToReal(), 0.5);
  EXPECT_DOUBLE_EQ(C_STRING(u"5.").ToReal(), 5.0);
  EXPECT_DOUBLE_EQ(C_STRING(u"+2E-2").ToReal(), 0.02);
  EXPECT_DOUBLE_EQ(C_STRING(u"0.1").ToReal(), 0.1);
  EXPECT_FALSE(C_ERROR::Is());

  // An exponent without digits is not read.
  EXPECT_DOUBLE_EQ(C_STRING(u"2e+x").ScanReal(0, &end), 2.0);
  EXPECT_EQ(end, 1);
  EXPECT_DOUBLE_EQ(C_STRING(u"3.25 m").ScanReal(0, &end), 3.25);
  EXPECT_EQ(end, 4);
  EXPECT_TRUE(std::isinf(C_STRING(u"1e999").ScanReal()));
  EXPECT_LT(C_STRING(u"-1e999").ScanReal(), 0.0);
  EXPECT_EQ(C_STRING(u"1e-999").ScanReal(0, &end), 0.0);
  EXPECT_EQ(end, 6);
  EXPECT_FALSE(C_ERROR::Is());

  EXPECT_EQ(C_STRING(u"1,5").ToReal(), 0.0);
  ExpectPendingAndClear(CerrStringNotReal);
  EXPECT_EQ(C_STRING(u".").ScanReal(0, &end), 0.0);
  EXPECT_EQ(end, 0);
  ExpectPendingAndClear(CerrStringNotReal);
  EXPECT_EQ(C_STRING(u"inf").ScanReal(0, &end), 0.0);
  ExpectPendingAndClear(CerrStringNotReal);
  EXPECT_EQ(C_STRING().ToReal(), 0.0);
  ExpectPendingAndClear(CerrStringNotReal);
}

TEST(StringNumbers, WholeStringConversions) {
  EXPECT_EQ(C_STRING(u" -5").ToInt(), -5);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(C_STRING(u"5 ").ToInt(), 0);
  ExpectPendingAndClear(CerrStringNotInt);
  EXPECT_EQ(C_STRING().ToInt(), 0);
  ExpectPendingAndClear(CerrStringNotInt);

  EXPECT_EQ(C_STRING(u"ff").HexaToInt(), 255);
  EXPECT_EQ(C_STRING(u"0x1A").HexaToInt(), 26);
  EXPECT_EQ(C_STRING(u" 0X1a").HexaToInt(), 26);
  EXPECT_EQ(C_STRING(u"-1").HexaToInt(), -1);
  EXPECT_EQ(C_STRING(u"FFFFFFFF").HexaToInt(), -1);
  EXPECT_EQ(C_STRING(u"123456789").HexaToInt(), -1);  // saturates at 32 bits
  EXPECT_EQ(C_STRING().HexaToInt(), 0);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(C_STRING(u"1g").HexaToInt(), 0);
  ExpectPendingAndClear(CerrStringNotInt);
  EXPECT_EQ(C_STRING(u"0x").HexaToInt(), 0);
  ExpectPendingAndClear(CerrStringNotInt);
}

TEST(StringNumbers, HexaToLongKeepsItsOddRule) {
  // Only hexadecimal digits: the reader stops on the terminator and looks one
  // place beyond the end, so it always fails.
  EXPECT_EQ(C_STRING(u"ff").HexaToLong(), 0);
  ExpectPendingAndClear(CerrStringNotInt);
  EXPECT_EQ(C_STRING(u"12").HexaToLong(), 0);
  ExpectPendingAndClear(CerrStringNotInt);
  EXPECT_EQ(C_STRING().HexaToLong(), 0);
  ExpectPendingAndClear(CerrStringNotInt);

  // The last character being the first rejected one returns the accumulator
  // of the codes that followed each accepted character.
  EXPECT_EQ(C_STRING(u"1z").HexaToLong(), u'z' - 48);
  EXPECT_EQ(C_STRING(u" 12z").HexaToLong(), (u'2' - 48) * 10 + (u'z' - 48));
  EXPECT_EQ(C_STRING(u"x").HexaToLong(), 0);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(C_STRING(u"1zz").HexaToLong(), 0);
  ExpectPendingAndClear(CerrStringNotInt);
}

TEST(StringNumbers, Fractions) {
  double result = -1.0;
  C_STRING::ConvertFraction(C_STRING(u"3 1/4"), &result);
  EXPECT_DOUBLE_EQ(result, 3.25);
  C_STRING::ConvertFraction(C_STRING(u"3/4"), &result);
  EXPECT_DOUBLE_EQ(result, 0.75);
  C_STRING::ConvertFraction(C_STRING(u"2.5"), &result);
  EXPECT_DOUBLE_EQ(result, 2.5);
  C_STRING::ConvertFraction(C_STRING(u"1/0"), &result);
  EXPECT_EQ(result, 0.0);
  C_STRING::ConvertFraction(C_STRING(u"1/-2"), &result);
  EXPECT_EQ(result, 0.0);
  C_STRING::ConvertFraction(C_STRING(u"1 2"), &result);
  EXPECT_EQ(result, 0.0);
  C_STRING::ConvertFraction(C_STRING(u"2.5 "), &result);  // a trailing blank is not a number
  EXPECT_EQ(result, 0.0);
  EXPECT_FALSE(C_ERROR::Is());

  C_STRING::ConvertFraction(C_STRING(u"x/4"), &result);
  EXPECT_EQ(result, 0.0);
  ExpectPendingAndClear(CerrStringNotReal);
  C_STRING::ConvertFraction(C_STRING(u"2 /4"), &result);  // no numerator: counts as 0
  EXPECT_DOUBLE_EQ(result, 2.0);
  ExpectPendingAndClear(CerrStringNotReal);
  C_STRING::ConvertFraction(C_STRING(), &result);
  EXPECT_EQ(result, 0.0);
  ExpectPendingAndClear(CerrStringNotReal);
}

TEST(StringNumbers, Tokens) {
  const C_STRING line(u"  \"a b\" c");
  C_STRING token(u"previous contents");
  const int size = token.GetSize();
  int end = -1;
  line.ScanToken(&token, 0, &end);
  EXPECT_EQ(Text(token), u"a b");
  EXPECT_EQ(end, 7);
  EXPECT_EQ(token.GetSize(), size);  // the buffer was large enough
  line.ScanToken(&token, end, &end);
  EXPECT_EQ(Text(token), u"c");
  EXPECT_EQ(end, 9);
  line.ScanToken(&token, end, &end);
  EXPECT_TRUE(token.IsVoid());
  EXPECT_EQ(end, 9);

  C_STRING small;
  C_STRING(u"\tword\tnext").ScanToken(&small, 0, &end);
  EXPECT_EQ(Text(small), u"word");
  EXPECT_EQ(small.GetSize(), 5);
  EXPECT_EQ(end, 5);

  // Inner quotes stay; a lone quote is kept; an open quote runs to the end.
  C_STRING(u"x=\"1 2\"").ScanToken(&small, 0, &end);
  EXPECT_EQ(Text(small), u"x=\"1 2\"");
  C_STRING(u"\" ").ScanToken(&small, 0, &end);
  EXPECT_EQ(Text(small), u"\" ");
  EXPECT_EQ(end, 2);
  C_STRING(u"\"\" b").ScanToken(&small, 0, &end);
  EXPECT_TRUE(small.IsVoid());
  EXPECT_EQ(end, 2);
  C_STRING(u"   ").ScanToken(&small, 0, &end);
  EXPECT_TRUE(small.IsVoid());
  EXPECT_EQ(end, 3);

  C_STRING self(u" one two");
  self.ScanToken(&self, 0, &end);
  EXPECT_EQ(Text(self), u"one");
  EXPECT_EQ(end, 4);
  EXPECT_FALSE(C_ERROR::Is());
}

}  // namespace
