// Reading integers, reals, hexadecimal values, fractions and tokens out of a C_STRING.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <climits>
#include <cmath>
#include <initializer_list>
#include <string>
#include <type_traits>

namespace {

std::u16string Text(const C_STRING& s) { return std::u16string(s.GetWCHAR(), s.GetNumber()); }

constexpr int kUnchecked = INT_MIN;

// One reading: the value, the error left pending (null: none) and, for the
// scanners, where reading started and where it says it ended.
template <class T>
struct Reading {
  const char16_t* text;
  T value;
  const C_ERROR* error;
  int start = 0;
  int end = kUnchecked;
};

template <class T, class Read>
void ExpectReadings(std::initializer_list<Reading<T>> cases, Read read) {
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(C_STRING(c.text).GetANSI()));
    int end = kUnchecked;
    const T value = read(C_STRING(c.text), c.start, &end);
    if constexpr (std::is_floating_point<T>::value) {
      EXPECT_DOUBLE_EQ(value, c.value);
    } else {
      EXPECT_EQ(value, c.value);
    }
    EXPECT_EQ(end, c.end);
    EXPECT_EQ(C_ERROR::GetPending(), c.error);
    C_ERROR::ClearPending();
  }
}

const C_ERROR* const kNotInt = &CerrStringNotInt;
const C_ERROR* const kNotReal = &CerrStringNotReal;

TEST(StringNumbers, WholeStringTests) {
  EXPECT_TRUE(C_STRING(u"0123").IsInt());
  for (const char16_t* text : {u"-5", u" 5", u""}) EXPECT_FALSE(C_STRING(text).IsInt());
  EXPECT_TRUE(C_STRING(u"09afAF").IsHexa());
  for (const char16_t* text : {u"0x1A", u"g", u""}) EXPECT_FALSE(C_STRING(text).IsHexa());
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(StringNumbers, IntegerScannersReportTheirEnd) {
  ExpectReadings<int>({{u"12ab", 12, nullptr, 0, 2},
                       {u"x = -34;", -34, nullptr, 3, 7},
                       {u"\t+7", 7, nullptr, 0, 3},
                       {u"99999999999", INT_MAX, nullptr, 0, 11},  // beyond 32 bits the value saturates
                       {u"-2147483648", INT_MIN, nullptr, 0, 11},
                       {u"-99999999999", INT_MIN, nullptr, 0, 12},
                       {u"  -x", 0, kNotInt, 0, 0},
                       {u"12", 0, kNotInt, 2, 2},
                       {u"12", 0, kNotInt, -3, -3}},
                      [](const C_STRING& s, int start, int* end) { return s.ScanInt(start, end); });
  ExpectReadings<long long>({{u"  -9000000000000z", -9000000000000LL, nullptr, 0, 16},
                             {u"9223372036854775808", LLONG_MIN, nullptr, 0, 19},  // overflow wraps silently
                             {u"18446744073709551617", 1, nullptr, 0, 20},
                             {u"   x", 0, kNotInt, 0, 0},
                             {u"  -", 0, kNotInt, 0, 0},
                             {u"1", 0, kNotInt, 1, 1}},
                            [](const C_STRING& s, int start, int* end) { return s.ScanLong(start, end); });

  // Asking is not failing: the Has forms leave no error.
  int value = 99, end = -1;
  EXPECT_TRUE(C_STRING(u"a 42").HasInt(1, &value, &end));
  EXPECT_EQ(value, 42);
  EXPECT_EQ(end, 4);
  EXPECT_FALSE(C_STRING(u"a 42").HasInt(0, &value, &end));
  EXPECT_EQ(value, 0);
  EXPECT_EQ(end, 0);
  long long wide = 5;
  EXPECT_FALSE(C_STRING(u"  -").HasLong(0, &wide, &end));
  EXPECT_EQ(wide, 0);
  EXPECT_EQ(end, 0);
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(StringNumbers, Reals) {
  ExpectReadings<double>({{u"2e+x", 2.0, nullptr, 0, 1},  // an exponent without digits is not read
                          {u"3.25 m", 3.25, nullptr, 0, 4},
                          {u"1e999", HUGE_VAL, nullptr, 0, 5},
                          {u"-1e999", -HUGE_VAL, nullptr, 0, 6},
                          {u"1e-999", 0.0, nullptr, 0, 6},
                          {u".", 0.0, kNotReal, 0, 0},
                          {u"inf", 0.0, kNotReal, 0, 0}},
                         [](const C_STRING& s, int start, int* end) { return s.ScanReal(start, end); });
  ExpectReadings<double>({{u"1.5e3", 1500.0, nullptr},
                          {u" -0.25", -0.25, nullptr},
                          {u".5", 0.5, nullptr},
                          {u"5.", 5.0, nullptr},
                          {u"+2E-2", 0.02, nullptr},
                          {u"0.1", 0.1, nullptr},
                          {u"1,5", 0.0, kNotReal},
                          {u"", 0.0, kNotReal}},
                         [](const C_STRING& s, int, int*) { return s.ToReal(); });
}

TEST(StringNumbers, WholeStringConversions) {
  ExpectReadings<int>({{u" -5", -5, nullptr}, {u"5 ", 0, kNotInt}, {u"", 0, kNotInt}},
                      [](const C_STRING& s, int, int*) { return s.ToInt(); });
  ExpectReadings<int>({{u"ff", 255, nullptr},
                       {u"0x1A", 26, nullptr},
                       {u" 0X1a", 26, nullptr},
                       {u"-1", -1, nullptr},
                       {u"FFFFFFFF", -1, nullptr},
                       {u"123456789", -1, nullptr},  // saturates at 32 bits
                       {u"", 0, nullptr},
                       {u"1g", 0, kNotInt},
                       {u"0x", 0, kNotInt}},
                      [](const C_STRING& s, int, int*) { return s.HexaToInt(); });
}

TEST(StringNumbers, HexaToLongKeepsItsOddRule) {
  // Only hexadecimal digits: the reader stops on the terminator and looks one
  // place beyond the end, so it always fails. The last character being the
  // first rejected one returns the accumulator of the codes that followed each
  // accepted character.
  ExpectReadings<long long>({{u"ff", 0, kNotInt},
                             {u"12", 0, kNotInt},
                             {u"", 0, kNotInt},
                             {u"1z", u'z' - 48, nullptr},
                             {u" 12z", (u'2' - 48) * 10 + (u'z' - 48), nullptr},
                             {u"x", 0, nullptr},
                             {u"1zz", 0, kNotInt}},
                            [](const C_STRING& s, int, int*) { return s.HexaToLong(); });
}

TEST(StringNumbers, Fractions) {
  ExpectReadings<double>({{u"3 1/4", 3.25, nullptr},
                          {u"3/4", 0.75, nullptr},
                          {u"2.5", 2.5, nullptr},
                          {u"1/0", 0.0, nullptr},
                          {u"1/-2", 0.0, nullptr},
                          {u"1 2", 0.0, nullptr},
                          {u"2.5 ", 0.0, nullptr},  // a trailing blank is not a number
                          {u"x/4", 0.0, kNotReal},
                          {u"2 /4", 2.0, kNotReal},  // no numerator: counts as 0
                          {u"", 0.0, kNotReal}},
                         [](const C_STRING& s, int, int*) {
                           double result = -1.0;
                           C_STRING::ConvertFraction(s, &result);
                           return result;
                         });
}

TEST(StringNumbers, Tokens) {
  // Inner quotes stay; a lone quote is kept; an open quote runs to the end.
  const struct {
    const char16_t* line;
    int start;
    const char16_t* token;
    int end;
  } cases[] = {{u"  \"a b\" c", 0, u"a b", 7},
               {u"  \"a b\" c", 7, u"c", 9},
               {u"  \"a b\" c", 9, u"", 9},
               {u"\tword\tnext", 0, u"word", 5},
               {u"x=\"1 2\"", 0, u"x=\"1 2\"", 7},
               {u"\" ", 0, u"\" ", 2},
               {u"\"\" b", 0, u"", 2},
               {u"   ", 0, u"", 3}};
  for (const auto& c : cases) {
    C_STRING token(u"previous contents");
    int end = -1;
    C_STRING(c.line).ScanToken(&token, c.start, &end);
    EXPECT_EQ(Text(token), c.token);
    EXPECT_EQ(end, c.end);
  }
  C_STRING token(u"previous contents");
  const int size = token.GetSize();
  int end = -1;
  C_STRING(u"  \"a b\" c").ScanToken(&token, 0, &end);
  EXPECT_EQ(token.GetSize(), size);  // the buffer was large enough
  C_STRING small;
  C_STRING(u"\tword\tnext").ScanToken(&small, 0, &end);
  EXPECT_EQ(small.GetSize(), 5);
  C_STRING self(u" one two");
  self.ScanToken(&self, 0, &end);
  EXPECT_EQ(Text(self), u"one");
  EXPECT_EQ(end, 4);
  EXPECT_FALSE(C_ERROR::Is());
}

}  // namespace
