// Functions on zero-terminated 8-bit text in the library code page and on UTF-16 text.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cstring>
#include <string>
#include <vector>

#include "foundation/library.h"

namespace {

// Restores the library code page after a test that changes it.
class CodePage : public testing::Test {
 protected:
  ~CodePage() override { qorc::SetLibraryCodePage(saved_); }
  const int saved_ = qorc::LibraryCodePage();
};

// Shift-JIS: hiragana a and i, and katakana so, whose trail byte is a backslash.
const std::string kA = "\x82\xa0", kI = "\x82\xa2", kSo = "\x83\x5c";

TEST_F(CodePage, DoubleByteCharactersCountAsOne) {
  qorc::SetLibraryCodePage(932);
  EXPECT_TRUE(CastrLength((kA + kI).c_str()) == 4 && CastrCharNumber((kA + kI).c_str()) == 2);
  EXPECT_EQ(CastrCharNumber(""), 0);
  EXPECT_EQ(CastrCharNumber("a\x82"), 2);  // a lead byte cut by the terminator is a character of its own

  // Inc steps over the trail byte, Dec finds the lead byte again even where
  // the trail byte looks like an ASCII character.
  const std::string mixed = "x" + kSo + "y";
  const char* start = mixed.c_str();
  EXPECT_EQ(CastrCharNumber(start), 3);
  EXPECT_TRUE(CastrInc(start) == start + 1 && CastrInc(start + 1) == start + 3);
  EXPECT_EQ(CastrDec(start + 3, start), start + 1);
  EXPECT_EQ(CastrDec(start + 4, start), start + 3);
  EXPECT_TRUE(CastrDec(start + 1, start) == start && CastrDec(start, start) == nullptr);
}

TEST_F(CodePage, CopyConcatenateAndConvertByCharacters) {
  qorc::SetLibraryCodePage(932);
  const std::string text = kA + "b" + kI;
  char area[16];
  std::memset(area, '#', sizeof area);
  CastrNcopy(2, text.c_str(), area);
  EXPECT_EQ(std::string(area, 4), kA + "b#");  // three bytes, no terminator
  std::memset(area, '#', sizeof area);
  CastrNcopy(5, text.c_str(), area);
  EXPECT_EQ(std::string(area, 8), text + std::string(2, '\0') + "#");
  std::strcpy(area, "x");
  CastrNconcat(1, text.c_str(), area);
  EXPECT_EQ(std::string(area), "x" + kA);
  CastrNconcat(9, "yz", area);
  CastrNconcat(0, "never", area);
  EXPECT_EQ(std::string(area), "x" + kA + "yz");

  char16_t wide = 1;
  EXPECT_TRUE(CastrCharToWideChar(kA.c_str(), &wide) == 2 && wide == u'\u3042');
  EXPECT_TRUE(CastrCharToWideChar("", &wide) == 0 && wide == 0);
  EXPECT_EQ(CastrCharToWideChar("\x82", &wide), -1);  // cut by the terminator
  EXPECT_EQ(CastrWideCharToChar(u'\u3044', area), 2);
  EXPECT_EQ(std::string(area, 2), kI);
  EXPECT_EQ(CastrWideCharToChar(u'\u00e9', area), -1);  // no form in this code page

  qorc::SetLibraryCodePage(1252);
  EXPECT_TRUE(CastrWideCharToChar(u'\u20ac', area) == 1 && area[0] == '\x80');
  EXPECT_EQ(CastrWideCharToChar(u'\u3042', area), -1);
  EXPECT_TRUE(CastrCharToWideChar("\x80", &wide) == 1 && wide == u'\u20ac');
  EXPECT_EQ(CastrCharNumber("d\xe9j\xe0"), 4);
}

TEST_F(CodePage, CollationOrdersByLanguageNotByCode) {
  // By code "B" (0x42) comes before "a" (0x61); collation puts a first.
  EXPECT_TRUE(CastrComp("a", "B") < 0 && CstrComp(u"a", u"B") < 0 && CwstrComp(u"", u"a") < 0);
  EXPECT_TRUE(CastrComp("same", "same") == 0 && CastrComp("ABC", "abc") != 0 && CastrCompI("ABC", "abc") == 0);
  EXPECT_EQ(CwstrCompI(u"\u00c9T\u00c9", u"\u00e9t\u00e9"), 0);
  EXPECT_NE(CstrCompI(u"ete", u"\u00e9t\u00e9"), 0);  // accents still count
  // The counted forms compare so many characters.
  EXPECT_TRUE(CastrNcomp(2, "abX", "abY") == 0 && CastrNcomp(3, "abX", "abY") < 0 && CastrNcomp(0, "x", "y") == 0);
  EXPECT_TRUE(CastrNcompI(3, "ABcd", "abCE") == 0 && CastrNcompI(4, "ABcd", "abCE") < 0);
  EXPECT_TRUE(CstrNcomp(10, u"ab", u"ab") == 0 && CwstrNcomp(3, u"abc", u"abd") < 0);
  EXPECT_TRUE(CstrNcompI(3, u"ABz", u"aby") > 0 && CwstrNcompI(2, u"ABz", u"aby") == 0);

  qorc::SetLibraryCodePage(932);  // one character of each is the whole kana
  EXPECT_LT(CastrNcomp(1, (kA + "x").c_str(), (kI + "a").c_str()), 0);
  EXPECT_EQ(CastrNcomp(1, (kA + "x").c_str(), (kA + "y").c_str()), 0);
  EXPECT_LT(CastrNcomp(2, (kA + "x").c_str(), (kA + "y").c_str()), 0);
}

TEST(RawString, CopiesAndDuplicates) {
  char area[32];
  CastrCopy("abc", area);
  CastrConcat("de", area);
  EXPECT_TRUE(std::string(area) == "abcde" && CastrLength(area) == 5);
  std::memset(area, '#', sizeof area);
  CastrNcopy(3, "abcde", area);
  EXPECT_EQ(std::string(area, 4), "abc#");
  CastrNcopy(3, "a", area);
  EXPECT_EQ(std::string(area, 4), std::string("a\0\0#", 4));

  char16_t wide[16];
  CstrCopy(u"abc", wide);
  CstrConcat(u"de", wide);
  CwstrConcat(u"f", wide);
  CstrNconcat(2, u"ghij", wide);
  CwstrNconcat(0, u"ghij", wide);
  EXPECT_EQ(std::u16string(wide), u"abcdefgh");
  CwstrCopy(u"xyz#", wide);
  CwstrNcopy(2, u"ab", wide);  // no terminator
  EXPECT_EQ(std::u16string(wide, 4), u"abz#");
  CstrNcopy(3, u"a", wide);  // padded with zeros
  EXPECT_EQ(std::u16string(wide, 4), std::u16string(u"a\0\0#", 4));

  char* copy = nullptr;
  CastrDuplic("", &copy);
  ASSERT_TRUE(copy != nullptr && copy[0] == '\0');
  CmemFree(&copy);
  CastrDuplic("text", &copy);
  EXPECT_STREQ(copy, "text");
  CmemFree(&copy);
  EXPECT_EQ(copy, nullptr);
  char16_t* wideCopy = nullptr;
  CwstrDuplic(u"dup", &wideCopy);
  EXPECT_EQ(std::u16string(wideCopy), u"dup");
  CmemFree(&wideCopy);
}

TEST(RawString, WideUnitsAreCharacters) {
  // One unit is one character, surrogates included.
  EXPECT_TRUE(CstrLength(u"\U0001F600x") == 3 && CstrCharNumber(u"\U0001F600x") == 3 && CwstrCharNumber(u"") == 0);
  const char16_t* text = u"abc";
  EXPECT_TRUE(CstrInc(text) == text + 1 && CwstrInc(text + 1) == text + 2);
  EXPECT_TRUE(CstrDec(text + 1, text) == text && CwstrDec(text + 3, text) == text + 2);
  EXPECT_TRUE(CstrDec(text, text) == nullptr && CwstrDec(text, text + 1) == nullptr);
}

TEST(RawString, SortRecords) {
  int values[] = {5, -1, 9, 0, 5, 3};
  Cqsort(values, 6, sizeof(int),
         [](const void* a, const void* b) { return *static_cast<const int*>(a) - *static_cast<const int*>(b); });
  EXPECT_EQ(std::vector<int>(values, values + 6), (std::vector<int>{-1, 0, 3, 5, 5, 9}));
  Cqsort(values, 0, sizeof(int), nullptr);  // nothing to sort, the routine is not called
  Cqsort(values, 1, sizeof(int), nullptr);
}

}  // namespace
