// Editing, case, search, prefix/suffix and wildcard operations of C_STRING.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <string>
#include <utility>

namespace {

std::u16string Text(const C_STRING& s) { return std::u16string(s.GetWCHAR(), s.GetNumber()); }

// The text left by one edit of a fresh string.
template <class Edit>
std::u16string After(const char16_t* text, Edit edit) {
  C_STRING s(text);
  edit(s);
  return Text(s);
}

TEST(StringEditing, InsertRemoveAndReplaceRanges) {
  C_STRING s(u"ac");
  s.Insert(1, C_CHAR(u'b'));
  s.Insert(3, C_CHAR(u'd'));  // at the end
  s.Insert(0, C_STRING(u"xy"));
  s.Insert(2, s);              // a string into itself
  s.Insert(-1, C_CHAR(u'z'));  // positions outside the text are ignored
  s.Insert(13, C_CHAR(u'z'));
  s.Insert(17, C_STRING(u"zz"));
  EXPECT_EQ(Text(s), u"xyxyabcdabcd");
  C_STRING empty;
  empty.Insert(0, C_CHAR(u'q'));
  EXPECT_TRUE(Text(empty) == u"q" && empty.GetSize() == 10);
  s = u"abcdef";
  for (int i : {-1, 6, 0, 4}) s.Remove(i);
  EXPECT_EQ(Text(s), u"bcde");

  // Ranges are clamped to the text; one that starts beyond it or ends before it
  // starts changes nothing. A null text removes the range.
  const struct {
    int first, last;
    const char16_t *text, *result;
  } ranges[] = {{2, 100, nullptr, u"ab"},     {-5, 0, nullptr, u"bcdef"}, {4, 2, nullptr, u"abcdef"},
                {10, 20, nullptr, u"abcdef"}, {-3, 99, nullptr, u""},     {1, 1, u"XYZ", u"aXYZcdef"},
                {1, 3, u"b", u"abef"},        {-4, 0, u"AA", u"AAbcdef"}, {2, 50, u"", u"ab"},
                {7, 9, u"x", u"abcdef"}};
  for (const auto& c : ranges) {
    C_STRING t(u"abcdef");
    c.text == nullptr ? t.Remove(c.first, c.last) : t.Replace(c.first, c.last, C_STRING(c.text));
    EXPECT_EQ(Text(t), c.result) << c.first << " " << c.last;
  }
  EXPECT_EQ(After(u"AA", [](C_STRING& t) { t.Replace(0, 0, t); }), u"AAA");
  C_STRING big(u"0123456789");
  const int size = big.GetSize();
  big.Replace(0, 8, C_STRING(u"x"));
  EXPECT_TRUE(Text(big) == u"x9" && big.GetSize() == size);  // shrinking keeps the buffer
}

TEST(StringEditing, ReplaceEveryOccurrence) {
  // Occurrences do not overlap, and replaced text is not scanned again.
  const struct {
    const char16_t *text, *from, *to, *result;
  } cases[] = {{u"aaaa", u"aa", u"a", u"aa"},    {u"a.b.c", u".", u"...", u"a...b...c"},
               {u"xxaxxbxx", u"xx", u"", u"ab"}, {u"ab", u"a", u"aa", u"aab"},
               {u"abc", u"", u"z", u"abc"},      {u"abc", u"abcd", u"z", u"abc"},
               {u"abc", u"q", u"z", u"abc"}};
  for (const auto& c : cases) {
    EXPECT_EQ(After(c.text, [&](C_STRING& s) { s.Replace(C_STRING(c.from), C_STRING(c.to)); }), c.result);
  }
  EXPECT_EQ(After(u"ab", [](C_STRING& s) { s.Replace(s, C_STRING(u"[ab]")); }), u"[ab]");

  // Many occurrences, into a buffer with room and into a new one.
  std::u16string pairs, expected;
  for (int i = 0; i < 300; ++i) {
    pairs += i % 7 == 0 ? u"ab-" : u"ab";
    expected += i % 7 == 0 ? u"xyb-" : u"xyb";
  }
  C_STRING roomy;
  roomy.Grow(2000);
  roomy = pairs.c_str();
  roomy.Replace(C_STRING(u"a"), C_STRING(u"xy"));
  EXPECT_TRUE(Text(roomy) == expected && roomy.GetSize() == 2000);
  C_STRING tight(pairs.c_str());
  tight.Replace(C_STRING(u"a"), C_STRING(u"xy"));
  EXPECT_EQ(Text(tight), expected);

  C_STRING many(std::u16string(40000, u'x').c_str());
  many.Replace(C_STRING(u"x"), C_STRING(u"yy"));  // would outgrow the longest string
  EXPECT_TRUE(CerrValueTooHigh.IsPending() && Text(many) == std::u16string(40000, u'x'));
}

TEST(StringEditing, TranslateTrimPadAndSlice) {
  EXPECT_EQ(After(u"a-b-c", [](C_STRING& s) { s.ReplaceAll(C_CHAR(u'-'), C_CHAR(u'+')); }), u"a+b+c");
  // The first occurrence in the source table wins.
  EXPECT_EQ(After(u"abcab", [](C_STRING& s) { s.SubstituteChars(C_STRING(u"aba"), C_STRING(u"xyz")); }), u"xycxy");
  // Tables of different lengths are refused, unless there is nothing to do.
  const auto unequal = [](C_STRING& s) { s.SubstituteChars(C_STRING(u"ab"), C_STRING(u"x")); };
  EXPECT_TRUE(After(u"", unequal).empty() && !C_ERROR::Is());
  EXPECT_TRUE(After(u"abc", unequal) == u"abc" && CerrInvalidValue.IsPending());
  C_ERROR::ClearPending();

  const struct {
    int first, last;
    const char16_t* left;
  } trims[] = {{1, 3, u"bcd"}, {1, 99, u"bcdef"}, {2, 6, u"cdef"}, {3, 1, u""}, {-2, 1, u"ab"}, {6, 9, u""}};
  for (const auto& c : trims) {
    EXPECT_EQ(After(u"abcdef", [&](C_STRING& s) { s.Trim(c.first, c.last); }), c.left);
    EXPECT_EQ(Text(C_STRING(u"abcdef").GetSlice(c.first, c.last)), c.left);
  }
  C_STRING none;
  none.Trim(0, 5);
  EXPECT_TRUE(none.GetSize() == 0 && none.GetSlice(0, 3).IsVoid());

  EXPECT_EQ(After(u" a b\tc ", [](C_STRING& s) { s.RemoveAllSpaces(); }), u"ab\tc");
  EXPECT_EQ(After(u"7", [](C_STRING& s) { s.Pad(C_CHAR(u'0'), 3, true); }), u"007");
  EXPECT_EQ(After(u"7", [](C_STRING& s) { s.Pad(C_CHAR(u'0'), 3, false); }), u"700");
  const auto padToLimit = [](C_STRING& s) { s.Pad(C_CHAR(u'0'), C_STRING::MAX_SIZE, true); };
  EXPECT_TRUE(After(u"12345", padToLimit) == u"12345" && CerrValueTooHigh.IsPending());
  C_ERROR::ClearPending();
  EXPECT_EQ(After(u"--a--", [](C_STRING& s) { s.Unpad(C_CHAR(u'-'), false); }), u"--a");
  EXPECT_EQ(After(u"----a", [](C_STRING& s) { s.Unpad(C_CHAR(u'-'), true); }), u"a");
  EXPECT_EQ(After(u"----", [](C_STRING& s) { s.Unpad(C_CHAR(u'-'), false); }), u"");
  EXPECT_EQ(After(u" \t\r\n x y \n", [](C_STRING& s) { s.UnpadSpaces(); }), u"x y");
  EXPECT_EQ(After(u" \t \n", [](C_STRING& s) { s.UnpadSpaces(); }), u"");
}

TEST(StringCase, MappingAndTests) {
  C_STRING s(u"Hello \u00c9t\u00e9 \u03a9");
  s.MakeUpper();
  EXPECT_EQ(Text(s), u"HELLO \u00c9T\u00c9 \u03a9");
  s.MakeLower();
  EXPECT_EQ(Text(s), u"hello \u00e9t\u00e9 \u03c9");
  s.MakeUpper1();
  EXPECT_EQ(Text(s), u"Hello \u00e9t\u00e9 \u03c9");
  s.MakeLower1();
  EXPECT_EQ(Text(s), u"hello \u00e9t\u00e9 \u03c9");

  EXPECT_TRUE(C_STRING(u"A1B").IsUpper() && C_STRING(u"x-y \u00e9").IsLower() && C_STRING(u"Ab").IsUpper1());
  for (const char16_t* text : {u"123", u"", u"AbC"}) EXPECT_FALSE(C_STRING(text).IsUpper());
  EXPECT_FALSE(C_STRING(u"123").IsLower());
  for (const char16_t* text : {u"aB", u"1A", u""}) EXPECT_FALSE(C_STRING(text).IsUpper1());
}

TEST(StringSearch, Characters) {
  const C_STRING s(u"abcabc");
  EXPECT_TRUE(s.Search(C_CHAR(u'c'), 3) == 5 && s.Search(C_CHAR(u'c'), 6) == -1);
  EXPECT_EQ(C_STRING().Search(C_CHAR(u'a')), -1);
  EXPECT_EQ(s.SearchNoCase(C_CHAR(u'B'), 2), 4);
  EXPECT_TRUE(s.SearchFromEnd(C_CHAR(u'a')) == 3 && s.SearchFromEnd(C_CHAR(u'a'), 2) == 0);
  EXPECT_EQ(s.SearchFromEnd(C_CHAR(u'a'), -1), -1);
  EXPECT_EQ(s.SearchFromEnd(C_CHAR(u'c'), 99), 5);  // taken as the last character
  EXPECT_EQ(C_STRING().SearchFromEnd(C_CHAR(u'a')), -1);
  EXPECT_EQ(s.BackwardSearch(C_CHAR(u'b'), 3), 1);

  std::u16string longText(1000, u'.');  // long texts take the wide path
  longText[777] = u'#';
  const C_STRING l(longText.c_str());
  EXPECT_TRUE(l.Search(C_CHAR(u'#')) == 777 && l.Search(C_CHAR(u'#'), 778) == -1);
  EXPECT_EQ(l.Search(C_CHAR(u'.'), 995), 995);

  int which = -1;
  EXPECT_TRUE(C_STRING(u"a,b;c").SearchCharSet(C_STRING(u",;"), 5, &which) == 1 && which == 0);
  EXPECT_TRUE(C_STRING(u"a;b,c").SearchCharSet(C_STRING(u",;"), 0, &which) == 1 && which == 1);
  EXPECT_TRUE(C_STRING(u"abc").SearchCharSet(C_STRING(u",;")) == -1 &&
              C_STRING(u"abc").SearchCharSet(C_STRING()) == -1);
}

TEST(StringSearch, Texts) {
  const C_STRING s(u"the cat and the hat");
  EXPECT_EQ(s.Search(C_STRING(u"the"), 1), 12);
  EXPECT_TRUE(s.Search(C_STRING(u"hat"), 16) == 16 && s.Search(C_STRING(u"hat"), 17) == -1);
  EXPECT_TRUE(s.Search(C_STRING()) == -1 && C_STRING().Search(C_STRING(u"a")) == -1);
  EXPECT_EQ(C_STRING(u"ab").Search(C_STRING(u"abc")), -1);
  EXPECT_EQ(s.SearchNoCase(C_STRING(u"THE"), 1), 12);
  // Candidates that agree at both ends but not in the middle.
  std::u16string hay(300, u'a');
  hay.replace(200, 5, u"abxba");
  hay.replace(250, 5, u"abcba");
  EXPECT_EQ(C_STRING(hay.c_str()).Search(C_STRING(u"abcba")), 250);
  EXPECT_EQ(C_STRING(hay.c_str()).Search(C_STRING(u"abcbaa"), 251), -1);

  // Find is Search that leaves "not found" pending, with what it looked for.
  EXPECT_TRUE(s.Find(C_STRING(u"cat")) == 4 && s.FindFromEnd(C_CHAR(u'h'), 13) == 13 && !C_ERROR::Is());
  EXPECT_EQ(s.Find(C_CHAR(u'z')), -1);
  EXPECT_EQ(Text(C_ERROR::GetPendingExtra()), u"z");
  C_ERROR::ClearPending();
  EXPECT_TRUE(s.Find(C_STRING(u"hats")) == -1 && CerrStringNotFound.IsPending());
  C_ERROR::ClearPending();
  EXPECT_TRUE(s.FindFromEnd(C_CHAR(u'c'), 3) == -1 && CerrStringNotFound.IsPending());
}

TEST(StringSearch, PrefixAndSuffix) {
  const C_STRING s(u"Report.TXT");
  EXPECT_TRUE(s.StartsWith(C_STRING(u"Rep")) && s.StartsWithNoCase(C_STRING(u"rEP")) && s.StartsWith(C_STRING()));
  EXPECT_TRUE(s.EndsWith(C_STRING(u".TXT")) && s.EndsWithNoCase(C_STRING(u".txt")) && s.EndsWithNoCase(C_STRING()));
  EXPECT_FALSE(s.StartsWith(C_STRING(u"rep")) || s.EndsWith(C_STRING(u".txt")));
  EXPECT_TRUE(C_STRING().EndsWith(C_STRING()));
  EXPECT_FALSE(C_STRING(u"ab").StartsWith(C_STRING(u"abc")) || C_STRING(u"ab").EndsWithNoCase(C_STRING(u"xab")));
}

TEST(StringWildcards, Matching) {
  using Pair = std::pair<const char16_t*, const char16_t*>;
  // The last star takes over again when the pattern is used up before the text ("abab" against "*ab").
  for (const Pair& c : {Pair{u"abc", u"a?c"}, Pair{u"abc", u"a*"}, Pair{u"abc", u"*c"}, Pair{u"abc", u"*"},
                        Pair{u"abc", u"abc"}, Pair{u"abc", u"???"}, Pair{u"abc", u"*b*"}, Pair{u"abc", u"a*c"},
                        Pair{u"abc", u"?*"}, Pair{u"", u"*"}, Pair{u"", u""}, Pair{u"a.txt", u"*.txt"},
                        Pair{u"xab", u"x*ab"}, Pair{u"abab", u"*ab"}, Pair{u"a.txt.txt", u"*.txt"}}) {
    EXPECT_TRUE(C_STRING(c.first).MatchWildCard(C_STRING(c.second))) << C_STRING(c.second).GetANSI();
  }
  // One forward pass that never moves back in the text: a backtracking
  // matcher would accept "aab" against "*ab", the library's rule refuses it.
  for (const Pair& c :
       {Pair{u"abc", u"ab"}, Pair{u"abc", u""}, Pair{u"abc", u"abcd"}, Pair{u"abc", u"??"}, Pair{u"abc", u"????"},
        Pair{u"abc", u"b*"}, Pair{u"abc", u"*b"}, Pair{u"abc", u"A*"}, Pair{u"", u"?"}, Pair{u"", u"**"},
        Pair{u"a.txt.bak", u"*.txt"}, Pair{u"aab", u"*ab"}, Pair{u"xaab", u"x*ab"}}) {
    EXPECT_FALSE(C_STRING(c.first).MatchWildCard(C_STRING(c.second))) << C_STRING(c.second).GetANSI();
  }
  EXPECT_TRUE(C_STRING(u"README.Txt").MatchWildCardNoCase(C_STRING(u"*.TXT"), false) &&
              C_STRING(u"README.Txt").MatchWildCardNoCase(C_STRING(u"read*"), true));
  // A pattern said to be lower case is used as it is.
  EXPECT_FALSE(C_STRING(u"README.Txt").MatchWildCardNoCase(C_STRING(u"READ*"), true));
}

}  // namespace
