#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cstring>
#include <string>

#include "foundation/library.h"

namespace {

std::string Utf8(const C_STRING& s) {
  char* bytes = s.GetNewUTF8();
  std::string out = bytes != nullptr ? bytes : "<null>";
  delete[] bytes;
  return out;
}

C_STRING Repeated(char16_t c, int count) {
  C_STRING s;
  for (int i = 0; i < count; ++i) s += c;
  return s;
}

class CodePageScope {
 public:
  explicit CodePageScope(int codePage) : saved_(qorc::LibraryCodePage()) { qorc::SetLibraryCodePage(codePage); }
  ~CodePageScope() { qorc::SetLibraryCodePage(saved_); }

 private:
  int saved_;
};

}  // namespace

TEST(StringStorage, GrowthPolicyAndLimit) {
  C_STRING s;
  EXPECT_EQ(s.GetSize(), 0);
  EXPECT_NE(s.GetWCHAR(), nullptr);  // an empty string never yields a null pointer
  EXPECT_EQ(s.GetWCHAR()[0], 0);
  s += C_CHAR(u'a');
  EXPECT_EQ(s.GetSize(), 10);
  while (s.GetNumber() < 9) s += u'b';
  EXPECT_EQ(s.GetSize(), 10);
  s += u'c';
  EXPECT_EQ(s.GetSize(), 20);

  C_STRING big;
  big.Grow(40000);
  big += u'x';
  EXPECT_EQ(big.GetSize(), 40000);
  C_STRING full;
  full.Grow(40000);
  while (full.GetNumber() < 39999) full += u'y';
  EXPECT_EQ(full.GetSize(), 40000);
  full += u'z';
  EXPECT_EQ(full.GetSize(), 65535);  // doubling capped at the limit

  C_STRING kept(u"keep");
  const int size = kept.GetSize();
  kept.Grow(65536);
  EXPECT_EQ(C_ERROR::GetPending(), &CerrValueTooHigh);
  EXPECT_TRUE(kept == u"keep");
  EXPECT_EQ(kept.GetSize(), size);
  C_ERROR::ClearPending();
  kept.GrowAuto(70000);
  EXPECT_EQ(C_ERROR::GetPending(), &CerrValueTooHigh);
  EXPECT_EQ(kept.GetSize(), size);
}

TEST(StringStorage, AppendBeyondTheLongestStringIsRefused) {
  C_STRING s = Repeated(u'a', 65534);
  EXPECT_EQ(s.GetNumber(), 65534);
  EXPECT_FALSE(C_ERROR::Is());
  s += u'b';
  EXPECT_EQ(C_ERROR::GetPending(), &CerrValueTooHigh);
  EXPECT_EQ(s.GetNumber(), 65534);
  EXPECT_EQ(s.Get(65533), C_CHAR(u'a'));
}

TEST(StringStorage, AppendingWhileAnErrorIsVisibleChangesNothing) {
  C_STRING s(u"ab");
  s.Grow(20);
  CerrInvalidValue.Trigger();
  s += u'c';
  s += C_STRING(u"def");
  s += "gh";
  EXPECT_TRUE(s == u"ab");
  C_ERROR::Hide(true);
  s += u'c';
  EXPECT_TRUE(s == u"abc");
}

TEST(StringStorage, IndexesOutsideTheStringAreHarmless) {
  C_STRING s(u"abc");
  EXPECT_EQ(s.Get(-1), C_CHAR::VOID);
  EXPECT_EQ(s.Get(3), C_CHAR::VOID);
  s.Replace(3, C_CHAR(u'x'));
  s.Replace(-1, C_CHAR(u'x'));
  s.Replace(1, C_CHAR(u'X'));
  EXPECT_TRUE(s == u"aXc");
  s.Clear();
  EXPECT_TRUE(s.IsVoid());
  EXPECT_EQ(s.GetSize(), 4);  // Clear keeps the buffer
  s.ClearAndDelete();
  EXPECT_EQ(s.GetSize(), 0);
}

TEST(StringStorage, OwnershipTransfers) {
  C_STRING empty;
  int number = 7, size = 7;
  EXPECT_EQ(empty.Detach(&number, &size), nullptr);
  EXPECT_EQ(number, 0);
  EXPECT_EQ(size, 0);

  C_STRING s(u"hello");
  C_CHAR* buffer = s.Detach(&number, &size);
  EXPECT_EQ(number, 5);
  EXPECT_EQ(size, 6);
  EXPECT_TRUE(s.IsVoid());
  C_STRING other;
  other.Attach(&buffer, 3);  // a size not above the length is raised to length + 1
  EXPECT_EQ(buffer, nullptr);
  EXPECT_TRUE(other == u"hello");
  EXPECT_EQ(other.GetSize(), 6);

  C_CHAR* raw = new C_CHAR[8]{C_CHAR(u'x'), C_CHAR(u'y')};
  other.Replace(8, 1, &raw);  // adopts as told, measuring nothing
  EXPECT_EQ(raw, nullptr);
  EXPECT_EQ(other.GetNumber(), 1);
  EXPECT_EQ(other.GetSize(), 8);

  C_STRING* copy = other.Clone();
  C_STRING* same = other.CloneSame();
  EXPECT_TRUE(*copy == other);
  EXPECT_TRUE(*same == other);
  delete copy;
  delete same;
}

TEST(StringConstruction, NumbersAndFormats) {
  EXPECT_EQ(Utf8(C_STRING(-42)), "-42");
  EXPECT_EQ(Utf8(C_STRING(0)), "0");
  EXPECT_EQ(Utf8(C_STRING(-9223372036854775807LL - 1)), "-9223372036854775808");
  EXPECT_EQ(Utf8(C_STRING(3.14159, 2, 'f')), "3.14");
  EXPECT_EQ(Utf8(C_STRING(3.14159, 2, 'e')), "3.14e+00");
  EXPECT_EQ(Utf8(C_STRING(3.14159, 2, 'g')), "3.1");
  EXPECT_EQ(Utf8(C_STRING(3.14159, 2, 0)), "3.1");
  EXPECT_EQ(Utf8(C_STRING(255, C_STRING(u"<%5d|%-4x|%04X>"))), "<  255||>");
  EXPECT_EQ(Utf8(C_STRING(255, C_STRING(u"%04X%%"))), "00FF%");
  EXPECT_EQ(Utf8(C_STRING(1LL << 40, C_STRING(u"%I64d"))), "1099511627776");
  EXPECT_EQ(Utf8(C_STRING(1LL << 40, C_STRING(u"%lld"))), "1099511627776");
  EXPECT_EQ(Utf8(C_STRING((1LL << 32) + 5, C_STRING(u"%d"))), "5");  // a 32-bit directive sees 32 bits
  EXPECT_EQ(Utf8(C_STRING(-1, C_STRING(u"%u"))), "4294967295");
  EXPECT_EQ(Utf8(C_STRING(2.5, C_STRING(u"x=%6.2f"))), "x=  2.50");
  EXPECT_EQ(Utf8(C_STRING(C_STRING(u"\u00e9t\u00e9"), C_STRING(u"[%s|%S]"))), "[\u00e9t\u00e9|]");
  EXPECT_EQ(Utf8(C_STRING(C_STRING(u"ab"), C_STRING(u"[%5s][%-3.1s]"))), "[   ab][]");
  EXPECT_EQ(Utf8(C_STRING(C_STRING(), C_STRING(u"<%s>"))), "<>");
  EXPECT_EQ(Utf8(C_STRING(65, C_STRING(u"%c"))), "A");
  EXPECT_EQ(Utf8(C_STRING(1, C_STRING(u"50%"))), "50%");  // an incomplete directive stands for itself
}

TEST(StringConstruction, TextIntoFormatGrowsItsOwnBuffer) {
  const C_STRING text = Repeated(u'q', 3000);
  const C_STRING format(u"<%s>");
  C_STRING formatted(text, format);
  EXPECT_EQ(formatted.GetNumber(), 3002);
  // (3000 + 4 + 100) is enough at the first try: the string keeps that buffer.
  EXPECT_EQ(formatted.GetSize(), 3104);
  EXPECT_EQ(formatted.Get(0), C_CHAR(u'<'));
  EXPECT_EQ(formatted.Get(3001), C_CHAR(u'>'));

  // A width makes the result outgrow the first limit: it doubles.
  C_STRING padded(Repeated(u'w', 2000), C_STRING(u"%5000s"));
  EXPECT_EQ(padded.GetNumber(), 5000);
  EXPECT_EQ(padded.GetSize(), 8424);  // 2106, 4212, 8424

  // Other formatting constructors stop at the scratch area.
  C_STRING wide(1, C_STRING(u"%3000d"));
  EXPECT_EQ(wide.GetNumber(), 1999);
}

TEST(StringConstruction, FromEightBitAndWideText) {
  CodePageScope scope(1252);
  C_STRING euro("\x80 5");
  EXPECT_EQ(int(euro.Get(0)), 0x20AC);
  EXPECT_EQ(euro.GetNumber(), 3);
  C_STRING emptyText("");
  EXPECT_TRUE(emptyText.IsVoid());
  EXPECT_EQ(emptyText.GetSize(), 1);  // the conversion asks for the terminator only
  C_STRING nullText(static_cast<const char*>(nullptr));
  EXPECT_TRUE(nullText.IsVoid());

  C_STRING counted(3, "a\0b");
  EXPECT_EQ(counted.GetNumber(), 3);
  EXPECT_EQ(int(counted.Get(1)), 0);
  C_STRING latin(1, "\xE9");
  EXPECT_EQ(int(latin.Get(0)), 0xE9);

  C_STRING fromUtf32(L"a\U0001F600");
  EXPECT_EQ(fromUtf32.GetNumber(), 3);
  EXPECT_EQ(int(fromUtf32.Get(1)), 0xD83D);

  C_STRING assigned;
  assigned = "\x80";
  EXPECT_EQ(int(assigned.Get(0)), 0x20AC);
  assigned += "\x80x";
  EXPECT_TRUE(assigned == u"\u20ac\u20acx");

  C_BOOL saved = CcharMBCS;
  CcharMBCS = false;
  C_STRING bytewise("\x80");
  EXPECT_EQ(int(bytewise.Get(0)), 0x80);  // zero-extended
  bytewise += "\xE9";
  EXPECT_EQ(int(bytewise.Get(1)), 0xE9);
  CcharMBCS = saved;
}

TEST(StringComparison, CodeOrderAndCollation) {
  EXPECT_TRUE(C_STRING(u"abc") < C_STRING(u"abd"));
  EXPECT_TRUE(C_STRING(u"ab") < C_STRING(u"abc"));
  EXPECT_TRUE(C_STRING() < C_STRING(u"a"));
  EXPECT_TRUE(C_STRING() == C_STRING(u""));
  EXPECT_TRUE(C_STRING(u"B") < C_STRING(u"a"));  // code units, no locale
  EXPECT_TRUE(C_STRING(u"abc") != u"abd");
  EXPECT_TRUE(C_STRING() == u"");

  EXPECT_EQ(C_STRING().Compare(C_STRING()), 0);
  EXPECT_EQ(C_STRING().Compare(C_STRING(u"a")), -1);
  EXPECT_EQ(C_STRING(u"a").Compare(C_STRING()), 1);
  EXPECT_LT(C_STRING(u"a").Compare(C_STRING(u"B")), 0);  // collation puts a before B
  EXPECT_NE(C_STRING(u"abc").Compare(C_STRING(u"ABC")), 0);
  EXPECT_EQ(C_STRING(u"abc").CompareNoCase(C_STRING(u"ABC")), 0);
  EXPECT_LT(C_STRING(u"\u00e9a").Compare(C_STRING(u"fa")), 0);  // accented e sorts with e
  const C_STRING x(u"x"), y(u"Y");
  EXPECT_LT(C_STRING::CompareNoCase(&x, &y), 0);
  EXPECT_GT(C_STRING::Compare(&y, &x), 0);
}

TEST(StringConversion, EightBitForms) {
  CodePageScope scope(1252);
  const C_STRING mixed(u"\u00e9\u20ac\u3042");
  EXPECT_STREQ(mixed.GetANSI(), "\xE9?\?");
  char* ansi = mixed.GetNewANSI();
  EXPECT_STREQ(ansi, "\xE9?\?");
  delete[] ansi;
  EXPECT_STREQ(mixed.GetMBCS(), "\xE9\x80?");
  char* mbcs = mixed.GetNewMBCS();
  EXPECT_STREQ(mbcs, "\xE9\x80?");
  delete[] mbcs;
  EXPECT_STREQ(C_STRING(u"e\u0301").GetMBCS(), "\xE9");  // composed before conversion
  EXPECT_STREQ(mixed.GetOEM(), "\x82?\?");                // code page 850
  char* oem = mixed.GetNewOEM();
  EXPECT_STREQ(oem, "\x82?\?");
  delete[] oem;

  const C_STRING long2000 = Repeated(u'k', 2000);
  EXPECT_EQ(std::strlen(long2000.GetANSI()), 1023u);
  EXPECT_STREQ(long2000.GetMBCS(), "");  // does not fit the kept area: the conversion fails

  char16_t* wide = mixed.GetNewWCHAR();
  EXPECT_EQ(std::u16string(wide), std::u16string(u"\u00e9\u20ac\u3042"));
  delete[] wide;
}

TEST(StringConversion, DoubleByteCodePage) {
  CodePageScope scope(932);
  const C_STRING kana(u"a\u3042");
  char* bytes = kana.GetNewMBCS();
  EXPECT_STREQ(bytes, "a\x82\xA0");
  C_STRING back(bytes);
  EXPECT_TRUE(back == kana);
  delete[] bytes;
  EXPECT_STREQ(C_STRING(u"\u00e9").GetMBCS(), "?");
}

TEST(StringConversion, Utf8BothWays) {
  char* e = C_STRING(u"\u00e9").GetNewUTF8();
  EXPECT_STREQ(e, "\xC3\xA9");
  delete[] e;
  char* pair = C_STRING(u"\U0001F600").GetNewUTF8();  // each surrogate on its own
  EXPECT_STREQ(pair, "\xED\xA0\xBD\xED\xB8\x80");
  delete[] pair;

  C_STRING s;
  s.FromUTF8("\xE2\x82\xAC");
  EXPECT_EQ(s.GetNumber(), 1);
  EXPECT_EQ(int(s.Get(0)), 0x20AC);
  s.FromUTF8("\xF0\x9F\x98\x80");  // a four-byte lead counts as three bytes
  EXPECT_EQ(s.GetNumber(), 2);
  s.FromUTF8("ab\xE2");  // cut sequence: no read past the terminator
  EXPECT_EQ(s.GetNumber(), 3);
  EXPECT_EQ(int(s.Get(2)), 0x2000);  // the lead's bits alone, kept to 16 bits
  s.FromANSI("\xE9t\xE9");
  EXPECT_TRUE(s == u"\u00e9t\u00e9");
  EXPECT_GE(s.GetSize(), 4);
}

TEST(StringConcatenation, OperatorsAndSelfAppend) {
  const C_STRING a(u"ab"), b(u"cde");
  const C_STRING joined = a + b;
  EXPECT_TRUE(joined == u"abcde");
  EXPECT_EQ(joined.GetSize(), 6);
  EXPECT_EQ((C_STRING() + C_STRING()).GetSize(), 0);

  C_STRING self(u"xy");
  self += self;
  EXPECT_TRUE(self == u"xyxy");
  self.Append(self);
  EXPECT_TRUE(self == u"xyxyxyxy");
  self = self;
  EXPECT_TRUE(self == u"xyxyxyxy");
  self = static_cast<const char16_t*>(nullptr);
  EXPECT_TRUE(self.IsVoid());
  EXPECT_GT(self.GetSize(), 0);  // the buffer is kept for reuse
}
