// Reading integers, reals, hexadecimal values, fractions and tokens out of a C_STRING.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <climits>
#include <cmath>
#include <string>

namespace {

const C_ERROR* const kNotInt = &CerrStringNotInt;
const C_ERROR* const kNotReal = &CerrStringNotReal;
constexpr int kNoEnd = INT_MIN;

// One reading: the value, the error left pending (null: none) and, for the
// scanners, where reading started and where it says it ended.
template <class T>
struct Reading {
  const char16_t* text;
  T value;
  const C_ERROR* error;
  int start = 0;
  int end = kNoEnd;
};

template <class T, size_t N, class Read>
void ExpectReadings(const Reading<T> (&cases)[N], Read read) {
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(C_STRING(c.text).GetANSI()));
    int end = kNoEnd;
    const T value = read(C_STRING(c.text), c.start, &end);
    EXPECT_EQ(value, c.value);  // reals are read to the nearest double
    EXPECT_EQ(end, c.end);
    EXPECT_EQ(C_ERROR::GetPending(), c.error);
    C_ERROR::ClearPending();
  }
}

TEST(StringNumbers, IntegerScannersReportTheirEnd) {
  // Beyond 32 bits the value saturates; beyond 64 bits it wraps silently.
  const Reading<int> ints[] = {{u"12ab", 12, nullptr, 0, 2},
                               {u"x = -34;", -34, nullptr, 3, 7},
                               {u"\t+7", 7, nullptr, 0, 3},
                               {u"99999999999", INT_MAX, nullptr, 0, 11},
                               {u"-2147483648", INT_MIN, nullptr, 0, 11},
                               {u"-99999999999", INT_MIN, nullptr, 0, 12},
                               {u"  -x", 0, kNotInt, 0, 0},
                               {u"12", 0, kNotInt, 2, 2},
                               {u"12", 0, kNotInt, -3, -3}};
  ExpectReadings(ints, [](const C_STRING& s, int start, int* end) { return s.ScanInt(start, end); });
  const Reading<long long> longs[] = {{u"  -9000000000000z", -9000000000000LL, nullptr, 0, 16},
                                      {u"9223372036854775808", LLONG_MIN, nullptr, 0, 19},
                                      {u"18446744073709551617", 1, nullptr, 0, 20},
                                      {u"   x", 0, kNotInt, 0, 0},
                                      {u"  -", 0, kNotInt, 0, 0},
                                      {u"1", 0, kNotInt, 1, 1}};
  ExpectReadings(longs, [](const C_STRING& s, int start, int* end) { return s.ScanLong(start, end); });

  // Asking is not failing: the Has forms leave no error.
  int value = 99, end = -1;
  EXPECT_TRUE(C_STRING(u"a 42").HasInt(1, &value, &end) && value == 42 && end == 4);
  EXPECT_TRUE(!C_STRING(u"a 42").HasInt(0, &value, &end) && value == 0 && end == 0);
  long long wide = 5;
  EXPECT_TRUE(!C_STRING(u"  -").HasLong(0, &wide, &end) && wide == 0 && end == 0 && !C_ERROR::Is());

  EXPECT_TRUE(C_STRING(u"0123").IsInt() && C_STRING(u"09afAF").IsHexa());
  for (const char16_t* text : {u"-5", u" 5", u""}) EXPECT_FALSE(C_STRING(text).IsInt());
  for (const char16_t* text : {u"0x1A", u"g", u""}) EXPECT_FALSE(C_STRING(text).IsHexa());
}

TEST(StringNumbers, Reals) {
  // An exponent without digits is not read.
  const Reading<double> scanned[] = {{u"2e+x", 2.0, nullptr, 0, 1},       {u"3.25 m", 3.25, nullptr, 0, 4},
                                     {u"1e999", HUGE_VAL, nullptr, 0, 5}, {u"-1e999", -HUGE_VAL, nullptr, 0, 6},
                                     {u"1e-999", 0.0, nullptr, 0, 6},     {u".", 0.0, kNotReal, 0, 0},
                                     {u"inf", 0.0, kNotReal, 0, 0}};
  ExpectReadings(scanned, [](const C_STRING& s, int start, int* end) { return s.ScanReal(start, end); });
  const Reading<double> wholeReals[] = {
      {u"1.5e3", 1500.0, nullptr}, {u" -0.25", -0.25, nullptr}, {u".5", 0.5, nullptr},   {u"5.", 5.0, nullptr},
      {u"+2E-2", 0.02, nullptr},   {u"0.1", 0.1, nullptr},      {u"1,5", 0.0, kNotReal}, {u"", 0.0, kNotReal}};
  ExpectReadings(wholeReals, [](const C_STRING& s, int, int*) { return s.ToReal(); });
}

TEST(StringNumbers, WholeStringConversions) {
  const Reading<int> wholeInts[] = {{u" -5", -5, nullptr}, {u"5 ", 0, kNotInt}, {u"", 0, kNotInt}};
  ExpectReadings(wholeInts, [](const C_STRING& s, int, int*) { return s.ToInt(); });
  // Past 32 bits the value saturates.
  const Reading<int> hexas[] = {{u"ff", 255, nullptr}, {u"0x1A", 26, nullptr},     {u" 0X1a", 26, nullptr},
                                {u"-1", -1, nullptr},  {u"FFFFFFFF", -1, nullptr}, {u"123456789", -1, nullptr},
                                {u"", 0, nullptr},     {u"1g", 0, kNotInt},        {u"0x", 0, kNotInt}};
  ExpectReadings(hexas, [](const C_STRING& s, int, int*) { return s.HexaToInt(); });
  // HexaToLong keeps its odd rule. On hexadecimal digits alone it stops on the
  // terminator and looks one place beyond the end, so it always fails. When
  // the last character is the first rejected one it returns the accumulator of
  // the codes that followed each accepted character.
  const Reading<long long> oddHexas[] = {{u"ff", 0, kNotInt},
                                         {u"12", 0, kNotInt},
                                         {u"", 0, kNotInt},
                                         {u"1z", u'z' - 48, nullptr},
                                         {u" 12z", (u'2' - 48) * 10 + u'z' - 48, nullptr},
                                         {u"x", 0, nullptr},
                                         {u"1zz", 0, kNotInt}};
  ExpectReadings(oddHexas, [](const C_STRING& s, int, int*) { return s.HexaToLong(); });
}

TEST(StringNumbers, Fractions) {
  // A trailing blank is not a number; a missing numerator counts as 0.
  const Reading<double> fractions[] = {{u"3 1/4", 3.25, nullptr}, {u"3/4", 0.75, nullptr}, {u"2.5", 2.5, nullptr},
                                       {u"1/0", 0.0, nullptr},    {u"1/-2", 0.0, nullptr}, {u"1 2", 0.0, nullptr},
                                       {u"2.5 ", 0.0, nullptr},   {u"x/4", 0.0, kNotReal}, {u"2 /4", 2.0, kNotReal},
                                       {u"", 0.0, kNotReal}};
  ExpectReadings(fractions, [](const C_STRING& s, int, int*) {
    double result = -1.0;
    C_STRING::ConvertFraction(s, &result);
    return result;
  });
}

TEST(StringNumbers, Tokens) {
  // Inner quotes stay; a lone quote is kept; an open quote runs to the end.
  const struct {
    const char16_t *line, *token;
    int start, end;
  } cases[] = {{u"  \"a b\" c", u"a b", 0, 7},
               {u"  \"a b\" c", u"c", 7, 9},
               {u"  \"a b\" c", u"", 9, 9},
               {u"\tword\tnext", u"word", 0, 5},
               {u"x=\"1 2\"", u"x=\"1 2\"", 0, 7},
               {u"\" ", u"\" ", 0, 2},
               {u"\"\" b", u"", 0, 2},
               {u"   ", u"", 0, 3}};
  for (const auto& c : cases) {
    C_STRING token(u"previous contents");
    const int size = token.GetSize();
    int end = -1;
    C_STRING(c.line).ScanToken(&token, c.start, &end);
    EXPECT_TRUE(token == c.token);
    EXPECT_EQ(end, c.end);
    EXPECT_EQ(token.GetSize(), size);  // the buffer was large enough
  }
  C_STRING small;
  int end = -1;
  C_STRING(u"\tword\tnext").ScanToken(&small, 0, &end);
  EXPECT_EQ(small.GetSize(), 5);
  C_STRING self(u" one two");
  self.ScanToken(&self, 0, &end);
  EXPECT_TRUE(self == u"one" && end == 4 && !C_ERROR::Is());
}

}  // namespace
