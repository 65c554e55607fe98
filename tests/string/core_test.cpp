// Storage, construction, comparison and code-page conversions of C_STRING, and the C_CHAR unit.
#include <gtest/gtest.h>

#include "support/os_support.h"
#include <qorc/qorc.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "foundation/library.h"

namespace {

// Takes ownership of a converted copy.
std::string Take(char* bytes) {
  std::string out = bytes != nullptr ? bytes : "<null>";
  delete[] bytes;
  return out;
}

// Restores the library code page and the multibyte switch at the end of a test.
struct CodePageScope {
  const int page = qorc::LibraryCodePage();
  const C_BOOL mbcs = CcharMBCS;
  ~CodePageScope() {
    qorc::SetLibraryCodePage(page);
    CcharMBCS = mbcs;
  }
};

TEST(StringStorage, GrowthPolicyAndLimit) {
  C_STRING s;
  EXPECT_EQ(s.GetSize(), 0);
  ASSERT_TRUE(s.GetWCHAR() != nullptr && s.GetWCHAR()[0] == 0);  // never a null pointer
  s += C_CHAR(u'a');
  EXPECT_EQ(s.GetSize(), 10);
  while (s.GetNumber() < 9) s += u'b';
  EXPECT_EQ(s.GetSize(), 10);
  s += u'c';
  EXPECT_EQ(s.GetSize(), 20);

  C_STRING full;
  full.Grow(40000);
  while (full.GetNumber() < 39999) full += u'y';
  EXPECT_EQ(full.GetSize(), 40000);
  full += u'z';
  EXPECT_EQ(full.GetSize(), 65535);  // doubling capped at the limit

  C_STRING kept(u"keep");
  const int size = kept.GetSize();
  kept.Grow(65536);
  EXPECT_TRUE(CerrValueTooHigh.IsPending());
  C_ERROR::ClearPending();
  kept.GrowAuto(70000);
  EXPECT_TRUE(CerrValueTooHigh.IsPending() && kept == u"keep" && kept.GetSize() == size);
  C_ERROR::ClearPending();

  C_STRING longest(std::u16string(65534, u'a').c_str());
  EXPECT_TRUE(longest.GetNumber() == 65534 && !C_ERROR::Is());
  longest += u'b';
  EXPECT_TRUE(CerrValueTooHigh.IsPending() && longest.GetNumber() == 65534);
}

TEST(StringStorage, AppendsAndEditsChangeNothingWhileAnErrorIsVisible) {
  C_STRING s(u"a-b");
  s.Grow(20);
  CerrInvalidValue.Trigger();
  s += u'c';
  s += C_STRING(u"def");
  s += "gh";
  s.Replace(C_STRING(u"-"), C_STRING(u"--"));
  s.Insert(0, C_CHAR(u'x'));
  s.Pad(C_CHAR(u' '), 10, true);
  EXPECT_TRUE(s == u"a-b");
  C_ERROR::Hide(true);
  s += u'c';
  EXPECT_TRUE(s == u"a-bc");
}

TEST(StringStorage, OutOfRangeIndexesAndOwnership) {
  C_STRING s(u"abc");
  EXPECT_TRUE(s.Get(-1) == C_CHAR::VOID && s.Get(3) == C_CHAR::VOID);
  for (int outside : {3, -1}) s.Replace(outside, C_CHAR(u'x'));
  s.Replace(1, C_CHAR(u'X'));
  EXPECT_TRUE(s == u"aXc");
  s.Clear();
  EXPECT_EQ(s.GetSize(), 4);  // Clear keeps the buffer
  s.ClearAndDelete();
  int number = 7, size = 7;
  EXPECT_TRUE(s.Detach(&number, &size) == nullptr && number == 0 && size == 0);

  C_STRING hello(u"hello");
  C_CHAR* buffer = hello.Detach(&number, &size);
  EXPECT_TRUE(number == 5 && size == 6 && hello.IsVoid());
  s.Attach(&buffer, 3);  // a size not above the length is raised to length + 1
  EXPECT_TRUE(buffer == nullptr && s == u"hello" && s.GetSize() == 6);
  C_CHAR* raw = new C_CHAR[8]{C_CHAR(u'x'), C_CHAR(u'y')};
  s.Replace(8, 1, &raw);  // adopts as told, measuring nothing
  EXPECT_TRUE(raw == nullptr && s.GetNumber() == 1 && s.GetSize() == 8);
}

TEST(StringConstruction, NumbersAndFormats) {
  const std::pair<C_STRING, const char*> cases[] = {
      {C_STRING(-42), "-42"},
      {C_STRING(-9223372036854775807LL - 1), "-9223372036854775808"},
      {C_STRING(3.14159, 2, 'f'), "3.14"},
      {C_STRING(3.14159, 2, 'e'), "3.14e+00"},
      {C_STRING(3.14159, 2, 0), "3.1"},
      {C_STRING(255, C_STRING(u"<%5d|%-4x|%04X>")), "<  255||>"},
      {C_STRING(255, C_STRING(u"%04X%%")), "00FF%"},
      {C_STRING(1LL << 40, C_STRING(u"%I64d")), "1099511627776"},
      {C_STRING(1LL << 40, C_STRING(u"%lld")), "1099511627776"},
      {C_STRING((1LL << 32) + 5, C_STRING(u"%d")), "5"},  // a 32-bit directive sees 32 bits
      {C_STRING(-1, C_STRING(u"%u")), "4294967295"},
      {C_STRING(2.5, C_STRING(u"x=%6.2f")), "x=  2.50"},
      {C_STRING(C_STRING(u"\u00e9t\u00e9"), C_STRING(u"[%s|%S]")), "[\u00e9t\u00e9|]"},
      {C_STRING(C_STRING(u"ab"), C_STRING(u"[%5s][%-3.1s]")), "[   ab][]"},
      {C_STRING(C_STRING(), C_STRING(u"<%s>")), "<>"},
      {C_STRING(65, C_STRING(u"%c")), "A"},
      {C_STRING(1, C_STRING(u"50%")), "50%"}};  // an incomplete directive stands for itself
  for (const auto& c : cases) EXPECT_EQ(Take(c.first.GetNewUTF8()), c.second);
}

TEST(StringConstruction, TextIntoFormatGrowsItsOwnBuffer) {
  C_STRING formatted(C_STRING(std::u16string(3000, u'q').c_str()), C_STRING(u"<%s>"));
  EXPECT_TRUE(formatted.GetNumber() == 3002 && formatted.Get(3001) == C_CHAR(u'>'));
  EXPECT_EQ(formatted.GetSize(), 3104);  // (3000 + 4 + 100) was enough at the first try
  // A width makes the result outgrow the first limit: it doubles (2106, 4212, 8424).
  C_STRING padded(C_STRING(std::u16string(2000, u'w').c_str()), C_STRING(u"%5000s"));
  EXPECT_TRUE(padded.GetNumber() == 5000 && padded.GetSize() == 8424);
  // Other formatting constructors stop at the scratch area.
  EXPECT_EQ(C_STRING(1, C_STRING(u"%3000d")).GetNumber(), 1999);
}

TEST(StringConstruction, FromEightBitAndWideText) {
  CodePageScope scope;
  qorc::SetLibraryCodePage(1252);
  EXPECT_TRUE(C_STRING("\x80 5") == u"\u20ac 5");
  C_STRING emptyText("");
  EXPECT_TRUE(emptyText.IsVoid() && emptyText.GetSize() == 1);  // the conversion asks for the terminator only
  EXPECT_TRUE(C_STRING(static_cast<const char*>(nullptr)).IsVoid());
  const C_STRING counted(3, "a\0b");
  EXPECT_EQ(std::u16string(counted.GetWCHAR(), counted.GetNumber()), std::u16string(u"a\0b", 3));
  EXPECT_TRUE(C_STRING(1, "\xE9") == u"\u00e9");
  EXPECT_TRUE(C_STRING(L"a\U0001F600") == u"a\U0001F600");
  C_STRING assigned;
  (assigned = "\x80") += "\x80x";
  EXPECT_TRUE(assigned == u"\u20ac\u20acx");
  CcharMBCS = false;
  C_STRING bytewise("\x80");
  bytewise += "\xE9";
  EXPECT_TRUE(bytewise == u"\u0080\u00e9");  // zero-extended
}

TEST(StringComparison, CodeOrderAndCollation) {
  EXPECT_TRUE(C_STRING(u"ab") < C_STRING(u"abc") && C_STRING() < C_STRING(u"a"));
  EXPECT_TRUE(C_STRING(u"B") < C_STRING(u"a"));  // code units, no locale
  EXPECT_TRUE(C_STRING(u"abc") != u"abd" && C_STRING() == u"");
  EXPECT_TRUE(C_STRING().Compare(C_STRING()) == 0 && C_STRING().Compare(C_STRING(u"a")) == -1);
  EXPECT_EQ(C_STRING(u"a").Compare(C_STRING()), 1);
  EXPECT_LT(C_STRING(u"a").Compare(C_STRING(u"B")), 0);  // collation puts a before B
  EXPECT_TRUE(C_STRING(u"abc").Compare(C_STRING(u"ABC")) != 0 && C_STRING(u"abc").CompareNoCase(C_STRING(u"ABC")) == 0);
  EXPECT_LT(C_STRING(u"\u00e9a").Compare(C_STRING(u"fa")), 0);  // accented e sorts with e
  const C_STRING x(u"x"), y(u"Y");
  EXPECT_TRUE(C_STRING::CompareNoCase(&x, &y) < 0 && C_STRING::Compare(&y, &x) > 0);
}

TEST(StringConversion, EightBitForms) {
  CodePageScope scope;
  qorc::SetLibraryCodePage(1252);
  const C_STRING mixed(u"\u00e9\u20ac\u3042");
  EXPECT_EQ(Take(mixed.GetNewANSI()), "\xE9?\?");
  EXPECT_STREQ(mixed.GetMBCS(), "\xE9\x80?");
  EXPECT_STREQ(C_STRING(u"e\u0301").GetMBCS(), "\xE9");  // composed before conversion
  EXPECT_EQ(Take(mixed.GetNewOEM()), "\x82?\?");         // code page 850
  EXPECT_STREQ(mixed.GetOEM(), "\x82?\?");
  EXPECT_EQ(std::u16string(std::unique_ptr<char16_t[]>(mixed.GetNewWCHAR()).get()), u"\u00e9\u20ac\u3042");
  const C_STRING long2000(std::u16string(2000, u'k').c_str());
  EXPECT_EQ(std::strlen(long2000.GetANSI()), 1023u);
  EXPECT_STREQ(long2000.GetMBCS(), "");  // does not fit the kept area: the conversion fails

  qorc::SetLibraryCodePage(932);
  const std::string bytes = Take(C_STRING(u"a\u3042").GetNewMBCS());
  EXPECT_EQ(bytes, "a\x82\xA0");
  EXPECT_TRUE(C_STRING(bytes.c_str()) == u"a\u3042");
  // A character that the code page lacks: ICU gives the default character;
  // Windows gives its best fit when it has one ("e" for "\u00e9").
  EXPECT_STREQ(C_STRING(u"\u00e9").GetMBCS(), QORC_ON_WINDOWS(true) ? "e" : "?");
}

TEST(StringConversion, Utf8BothWays) {
  EXPECT_EQ(Take(C_STRING(u"\u00e9").GetNewUTF8()), "\xC3\xA9");
  EXPECT_EQ(Take(C_STRING(u"\U0001F600").GetNewUTF8()), "\xED\xA0\xBD\xED\xB8\x80");  // each surrogate alone
  C_STRING s;
  s.FromUTF8("\xE2\x82\xAC");
  EXPECT_TRUE(s == u"\u20ac");
  s.FromUTF8("\xF0\x9F\x98\x80");  // a four-byte lead counts as three bytes
  EXPECT_EQ(s.GetNumber(), 2);
  s.FromANSI("\xE9t\xE9");
  EXPECT_TRUE(s == u"\u00e9t\u00e9");
}

TEST(StringConcatenation, OperatorsAndSelfAppend) {
  const C_STRING joined = C_STRING(u"ab") + C_STRING(u"cde");
  EXPECT_TRUE(joined == u"abcde" && joined.GetSize() == 6 && (C_STRING() + C_STRING()).GetSize() == 0);
  C_STRING self(u"xy");
  self += self;
  self.Append(self);
  self = self;
  EXPECT_TRUE(self == u"xyxyxyxy");
  self = static_cast<const char16_t*>(nullptr);
  EXPECT_TRUE(self.IsVoid() && self.GetSize() > 0);  // the buffer is kept for reuse
}

TEST(Character, ConversionsClassificationAndCase) {
  C_CHAR c;
  c = '\xE9';  // Latin-1, zero-extended
  EXPECT_TRUE(int(c) == 0xE9 && char(c) == '\xE9');
  EXPECT_EQ(char(C_CHAR(0x0100)), '?');
  EXPECT_TRUE(C_CHAR(0x00FF).NeedsCoding() && C_CHAR(0x0100).NeedsCoding() && !C_CHAR(0x00FE).NeedsCoding());
  EXPECT_TRUE(C_CHAR(0x000A).IsEOL() && !C_CHAR(0x000D).IsEOL() && !C_CHAR(0x80).IsASCII());
  EXPECT_TRUE(C_CHAR(0x00E9).IsAlpha() && C_CHAR(0x00E9).IsLower() && C_CHAR(0x0007).IsControl());
  EXPECT_TRUE(C_CHAR(u'7').IsDigit() && C_CHAR(u'f').IsHexa() && !C_CHAR(u'g').IsHexa());
  EXPECT_TRUE(C_CHAR(u'+').IsPunct() && !C_CHAR(u'a').IsPunct());  // symbols count, as in the C runtime
  EXPECT_TRUE(C_CHAR(u' ').IsSpace() && C_CHAR(u' ').IsPrint() && !C_CHAR(u' ').IsGraph());
  c = C_CHAR(0x00C9);
  c.MakeLower();
  EXPECT_EQ(int(c), 0x00E9);
  c.MakeUpper();
  EXPECT_EQ(int(c), 0x00C9);
  c = C_CHAR(0x20AC);
  c.MakeANSI();
  EXPECT_EQ(int(c), '?');

  const std::pair<char16_t, char16_t> ascii[] = {
      {0x00E9, u'e'}, {0x00D7, u'x'}, {0x0085, u' '}, {0x20AC, u'?'},  {0x00B1, u'#'}, {0x00A0, u' '},
      {0x00A6, u'|'}, {0x00A8, u'"'}, {0x00AB, u'<'}, {0x00B4, u'\''}, {0x00B8, u','}, {0x00BB, u'>'},
      {0x00C7, u'C'}, {0x00DF, u'B'}, {0x00F0, u'?'}, {0x00FF, u'y'},  {0x0041, u'A'}, {0x00D8, u'O'}};
  for (const auto& pair : ascii) {
    c = C_CHAR(pair.first);
    c.MakeASCII();
    EXPECT_EQ(int(c), pair.second) << std::hex << int(pair.first);
  }
}

TEST(Character, MultibyteForms) {
  CodePageScope scope;
  C_CHAR c;
  char out[4];
  qorc::SetLibraryCodePage(1252);
  CcharMBCS = false;
  EXPECT_EQ(c.FromMBCS("\xE9", 2), -1);
  EXPECT_EQ(c.FromMBCS("\xE9", 1), 1);
  EXPECT_EQ(int(c), 0xFFE9);  // sign-extended on purpose
  EXPECT_EQ(c.FromMBCS("", 1), 0);
  EXPECT_TRUE(C_CHAR(0x1234).GetMBCS(out) == 1 && out[0] == '\x34');

  CcharMBCS = true;
  EXPECT_TRUE(c.FromMBCS("\x80", 0) == 1 && int(c) == 0x20AC);
  EXPECT_TRUE(C_CHAR(0x3042).GetMBCS(out) == 1 && out[0] == '?');  // not in the page: the default character

  qorc::SetLibraryCodePage(932);
  EXPECT_EQ(C_CHAR::GetMBCSMaxLength(), 2);
  EXPECT_TRUE(c.FromMBCS("\x82\xA0", 0) == 2 && int(c) == 0x3042);
  EXPECT_EQ(c.FromMBCS("\x82\xA0", 1), -1);  // lead byte alone is incomplete
  EXPECT_TRUE(C_CHAR(0x3042).GetMBCS(out) == 2 && std::string(out, 2) == "\x82\xA0");
}

}  // namespace
