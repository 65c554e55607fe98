// Functions on zero-terminated 8-bit text in the library code page and on UTF-16 text.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cstring>
#include <string>
#include <vector>

#include "foundation/library.h"

namespace {

// Runs a test under one code page and restores the library's afterwards.
class CodePage : public testing::Test {
 protected:
  void Use(int codePage) { qorc::SetLibraryCodePage(codePage); }
  void SetUp() override { saved_ = qorc::LibraryCodePage(); }
  void TearDown() override { qorc::SetLibraryCodePage(saved_); }

 private:
  int saved_ = 0;
};

// Shift-JIS: hiragana a and i, and katakana so, whose trail byte is a backslash.
constexpr const char kA[] = "\x82\xa0";
constexpr const char kI[] = "\x82\xa2";
constexpr const char kSo[] = "\x83\x5c";

TEST_F(CodePage, DoubleByteCharactersCountAsOne) {
  Use(932);
  const std::string text = std::string(kA) + kI;
  EXPECT_EQ(CastrLength(text.c_str()), 4);
  EXPECT_EQ(CastrCharNumber(text.c_str()), 2);
  const std::string mixed = std::string("x") + kSo + "y";
  EXPECT_EQ(CastrCharNumber(mixed.c_str()), 3);
  EXPECT_EQ(CastrCharNumber(""), 0);

  // Inc steps over the trail byte, Dec finds the lead byte again even where
  // the trail byte looks like an ASCII character.
  const char* start = mixed.c_str();
  EXPECT_EQ(CastrInc(start), start + 1);
  EXPECT_EQ(CastrInc(start + 1), start + 3);
  EXPECT_EQ(CastrDec(start + 3, start), start + 1);
  EXPECT_EQ(CastrDec(start + 4, start), start + 3);
  EXPECT_EQ(CastrDec(start + 1, start), start);
  EXPECT_EQ(CastrDec(start, start), nullptr);

  // A lead byte cut by the terminator is a character of its own.
  EXPECT_EQ(CastrCharNumber("a\x82"), 2);
}

TEST_F(CodePage, CopyAndConcatenateByCharacters) {
  Use(932);
  const std::string text = std::string(kA) + "b" + kI;
  char area[16];
  std::memset(area, '#', sizeof area);
  CastrNcopy(2, text.c_str(), area);
  EXPECT_EQ(std::string(area, 4), std::string(kA) + "b#");  // three bytes, no terminator

  std::memset(area, '#', sizeof area);
  CastrNcopy(5, text.c_str(), area);
  EXPECT_EQ(std::string(area, 8), text + std::string(2, '\0') + "#");

  std::strcpy(area, "x");
  CastrNconcat(1, text.c_str(), area);
  EXPECT_EQ(std::string(area), std::string("x") + kA);
  CastrNconcat(9, "yz", area);
  EXPECT_EQ(std::string(area), std::string("x") + kA + "yz");
  CastrNconcat(0, "never", area);
  EXPECT_EQ(std::string(area), std::string("x") + kA + "yz");
}

TEST_F(CodePage, SingleCharacterConversions) {
  Use(932);
  char16_t wide = 0;
  EXPECT_EQ(CastrCharToWideChar(kA, &wide), 2);
  EXPECT_EQ(wide, u'\u3042');
  EXPECT_EQ(CastrCharToWideChar("q", &wide), 1);
  EXPECT_EQ(wide, u'q');
  EXPECT_EQ(CastrCharToWideChar("", &wide), 0);
  EXPECT_EQ(wide, 0);
  EXPECT_EQ(CastrCharToWideChar("\x82", &wide), -1);  // cut by the terminator

  char bytes[8] = {};
  EXPECT_EQ(CastrWideCharToChar(u'\u3044', bytes), 2);
  EXPECT_EQ(std::string(bytes, 2), kI);
  EXPECT_EQ(CastrWideCharToChar(u'\u00e9', bytes), -1);  // no form in this code page

  Use(1252);
  EXPECT_EQ(CastrWideCharToChar(u'\u00e9', bytes), 1);
  EXPECT_EQ(bytes[0], '\xe9');
  EXPECT_EQ(CastrWideCharToChar(u'\u20ac', bytes), 1);
  EXPECT_EQ(bytes[0], '\x80');
  EXPECT_EQ(CastrWideCharToChar(u'\u3042', bytes), -1);
  EXPECT_EQ(CastrCharToWideChar("\x80", &wide), 1);
  EXPECT_EQ(wide, u'\u20ac');
  EXPECT_EQ(CastrCharNumber("d\xe9j\xe0"), 4);
}

TEST(RawString, EightBitBasics) {
  char area[32];
  CastrCopy("abc", area);
  EXPECT_STREQ(area, "abc");
  CastrConcat("de", area);
  EXPECT_STREQ(area, "abcde");
  EXPECT_EQ(CastrLength(area), 5);

  char pad[8];
  std::memset(pad, '#', sizeof pad);
  CastrNcopy(3, "abcde", pad);
  EXPECT_EQ(std::string(pad, 4), "abc#");
  CastrNcopy(3, "a", pad);
  EXPECT_EQ(std::string(pad, 4), std::string("a\0\0#", 4));

  char* copy = nullptr;
  CastrDuplic("", &copy);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy[0], '\0');
  CmemFree(&copy);
  CastrDuplic("text", &copy);
  EXPECT_STREQ(copy, "text");
  CmemFree(&copy);
  EXPECT_EQ(copy, nullptr);
}

TEST(RawString, CollationOrdersByLanguageNotByCode) {
  // By code "B" (0x42) comes before "a" (0x61); collation puts a first.
  EXPECT_LT(CastrComp("a", "B"), 0);
  EXPECT_LT(CstrComp(u"a", u"B"), 0);
  EXPECT_LT(CastrComp("abc", "abd"), 0);
  EXPECT_GT(CastrComp("abd", "abc"), 0);
  EXPECT_EQ(CastrComp("same", "same"), 0);
  EXPECT_LT(CastrComp("", "a"), 0);
  EXPECT_NE(CastrComp("ABC", "abc"), 0);
  EXPECT_EQ(CastrCompI("ABC", "abc"), 0);
  EXPECT_EQ(CstrCompI(u"\u00c9T\u00c9", u"\u00e9t\u00e9"), 0);
  EXPECT_NE(CstrCompI(u"ete", u"\u00e9t\u00e9"), 0);  // accents still count

  EXPECT_EQ(CastrNcomp(2, "abX", "abY"), 0);
  EXPECT_LT(CastrNcomp(3, "abX", "abY"), 0);
  EXPECT_EQ(CastrNcomp(0, "x", "y"), 0);
  EXPECT_EQ(CastrNcompI(3, "ABcd", "abCE"), 0);
  EXPECT_LT(CastrNcompI(4, "ABcd", "abCE"), 0);
  EXPECT_EQ(CstrNcomp(2, u"abX", u"abY"), 0);
  EXPECT_EQ(CstrNcomp(10, u"ab", u"ab"), 0);
  EXPECT_EQ(CstrNcompI(2, u"ABx", u"aby"), 0);
  EXPECT_GT(CwstrNcompI(3, u"ABz", u"aby"), 0);
  EXPECT_EQ(CwstrComp(u"x", u"x"), 0);
  EXPECT_EQ(CwstrCompI(u"X", u"x"), 0);
  EXPECT_LT(CwstrNcomp(3, u"abc", u"abd"), 0);
}

TEST_F(CodePage, CollationOfDoubleByteText) {
  Use(932);
  const std::string a = std::string(kA) + "x";
  const std::string i = std::string(kI) + "a";
  EXPECT_LT(CastrComp(a.c_str(), i.c_str()), 0);
  // One character of each: the two kana differ.
  EXPECT_LT(CastrNcomp(1, a.c_str(), i.c_str()), 0);
  const std::string a2 = std::string(kA) + "y";
  EXPECT_EQ(CastrNcomp(1, a.c_str(), a2.c_str()), 0);
  EXPECT_LT(CastrNcomp(2, a.c_str(), a2.c_str()), 0);
}

TEST(RawString, WideFamilies) {
  char16_t area[16];
  CstrCopy(u"abc", area);
  EXPECT_EQ(std::u16string(area), u"abc");
  CstrConcat(u"de", area);
  EXPECT_EQ(std::u16string(area), u"abcde");
  CwstrConcat(u"f", area);
  EXPECT_EQ(std::u16string(area), u"abcdef");
  CstrNconcat(2, u"ghij", area);
  EXPECT_EQ(std::u16string(area), u"abcdefgh");
  CwstrNconcat(0, u"ghij", area);
  EXPECT_EQ(std::u16string(area), u"abcdefgh");

  for (char16_t& unit : area) unit = u'#';
  CstrNcopy(3, u"abcde", area);
  EXPECT_EQ(std::u16string(area, 4), u"abc#");
  CwstrNcopy(3, u"a", area);
  EXPECT_EQ(std::u16string(area, 4), std::u16string(u"a\0\0#", 4));
  CwstrCopy(u"xy", area);
  EXPECT_EQ(std::u16string(area), u"xy");

  // One unit is one character, surrogates included.
  for (const char16_t* text : {u"", u"a", u"\u00e9t\u00e9", u"\U0001F600x"}) {
    EXPECT_EQ(CstrCharNumber(text), CstrLength(text));
    EXPECT_EQ(CwstrCharNumber(text), CstrLength(text));
  }
  EXPECT_EQ(CstrLength(u"\U0001F600x"), 3);

  const char16_t* text = u"abc";
  EXPECT_EQ(CstrInc(text), text + 1);
  EXPECT_EQ(CwstrInc(text + 1), text + 2);
  EXPECT_EQ(CstrDec(text, text), nullptr);
  EXPECT_EQ(CstrDec(text + 1, text), text);
  EXPECT_EQ(CwstrDec(text + 3, text), text + 2);
  EXPECT_EQ(CwstrDec(text, text + 1), nullptr);

  char16_t* copy = nullptr;
  CstrDuplic(u"", &copy);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy[0], 0);
  CmemFree(&copy);
  CwstrDuplic(u"dup", &copy);
  EXPECT_EQ(std::u16string(copy), u"dup");
  CmemFree(&copy);
}

TEST(RawString, SortRecords) {
  int values[] = {5, -1, 9, 0, 5, 3};
  Cqsort(values, 6, sizeof(int), [](const void* a, const void* b) {
    const int x = *static_cast<const int*>(a);
    const int y = *static_cast<const int*>(b);
    return x < y ? -1 : (x > y ? 1 : 0);
  });
  EXPECT_EQ(std::vector<int>(values, values + 6), (std::vector<int>{-1, 0, 3, 5, 5, 9}));

  const C_STRING names[] = {C_STRING(u"delta"), C_STRING(u"Alpha"), C_STRING(u"charlie"), C_STRING(u"Bravo")};
  const C_STRING* order[] = {&names[0], &names[1], &names[2], &names[3]};
  Cqsort(order, 4, sizeof(const C_STRING*), [](const void* a, const void* b) {
    return C_STRING::CompareNoCase(*static_cast<const C_STRING* const*>(a), *static_cast<const C_STRING* const*>(b));
  });
  EXPECT_TRUE(*order[0] == u"Alpha");
  EXPECT_TRUE(*order[1] == u"Bravo");
  EXPECT_TRUE(*order[2] == u"charlie");
  EXPECT_TRUE(*order[3] == u"delta");

  Cqsort(values, 0, sizeof(int), nullptr);  // nothing to sort, the routine is not called
  Cqsort(values, 1, sizeof(int), nullptr);
}

}  // namespace
