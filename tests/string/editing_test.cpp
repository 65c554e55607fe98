// Editing, case, search, prefix/suffix and wildcard operations of C_STRING.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <string>

namespace {

std::u16string Text(const C_STRING& s) { return std::u16string(s.GetWCHAR(), s.GetNumber()); }

TEST(StringEditing, InsertAndRemove) {
  C_STRING s(u"ac");
  s.Insert(1, C_CHAR(u'b'));
  EXPECT_EQ(Text(s), u"abc");
  s.Insert(3, C_CHAR(u'd'));  // at the end
  EXPECT_EQ(Text(s), u"abcd");
  s.Insert(0, C_STRING(u"xy"));
  EXPECT_EQ(Text(s), u"xyabcd");
  s.Insert(2, s);  // a string into itself
  EXPECT_EQ(Text(s), u"xyxyabcdabcd");

  // Positions outside the text are ignored.
  C_STRING t(u"ab");
  t.Insert(-1, C_CHAR(u'z'));
  t.Insert(3, C_CHAR(u'z'));
  t.Insert(7, C_STRING(u"zz"));
  EXPECT_EQ(Text(t), u"ab");

  C_STRING empty;
  empty.Insert(0, C_CHAR(u'q'));
  EXPECT_EQ(Text(empty), u"q");
  EXPECT_EQ(empty.GetSize(), 10);

  C_STRING r(u"abcdef");
  r.Remove(-1);
  r.Remove(6);
  EXPECT_EQ(Text(r), u"abcdef");
  r.Remove(0);
  EXPECT_EQ(Text(r), u"bcdef");
  r.Remove(4);
  EXPECT_EQ(Text(r), u"bcde");

  C_STRING a(u"abcdef");
  a.Remove(2, 100);
  EXPECT_EQ(Text(a), u"ab");
  C_STRING b(u"abcdef");
  b.Remove(-5, 0);
  EXPECT_EQ(Text(b), u"bcdef");
  C_STRING c(u"abcdef");
  c.Remove(4, 2);  // empty range
  c.Remove(10, 20);
  EXPECT_EQ(Text(c), u"abcdef");
  c.Remove(-3, 99);
  EXPECT_TRUE(c.IsVoid());
}

TEST(StringEditing, ReplaceRange) {
  C_STRING s(u"abc");
  s.Replace(1, 1, C_STRING(u"XYZ"));
  EXPECT_EQ(Text(s), u"aXYZc");
  s.Replace(1, 3, C_STRING(u"b"));
  EXPECT_EQ(Text(s), u"abc");
  s.Replace(-4, 0, C_STRING(u"AA"));
  EXPECT_EQ(Text(s), u"AAbc");
  s.Replace(2, 50, C_STRING());
  EXPECT_EQ(Text(s), u"AA");
  s.Replace(5, 9, C_STRING(u"never"));
  EXPECT_EQ(Text(s), u"AA");
  s.Replace(0, 0, s);
  EXPECT_EQ(Text(s), u"AAA");

  // Shrinking keeps the buffer.
  C_STRING big(u"0123456789");
  const int size = big.GetSize();
  big.Replace(0, 8, C_STRING(u"x"));
  EXPECT_EQ(Text(big), u"x9");
  EXPECT_EQ(big.GetSize(), size);
}

TEST(StringEditing, ReplaceEveryOccurrence) {
  C_STRING s(u"aaaa");
  s.Replace(C_STRING(u"aa"), C_STRING(u"a"));
  EXPECT_EQ(Text(s), u"aa");  // replaced text is not scanned again

  C_STRING grow(u"a.b.c");
  grow.Replace(C_STRING(u"."), C_STRING(u"..."));
  EXPECT_EQ(Text(grow), u"a...b...c");

  C_STRING same(u"one two one");
  same.Replace(C_STRING(u"one"), C_STRING(u"ONE"));
  EXPECT_EQ(Text(same), u"ONE two ONE");

  C_STRING gone(u"xxaxxbxx");
  gone.Replace(C_STRING(u"xx"), C_STRING());
  EXPECT_EQ(Text(gone), u"ab");

  C_STRING loop(u"ab");
  loop.Replace(C_STRING(u"a"), C_STRING(u"aa"));  // the inserted a is not replaced again
  EXPECT_EQ(Text(loop), u"aab");

  C_STRING untouched(u"abc");
  untouched.Replace(C_STRING(), C_STRING(u"z"));
  untouched.Replace(C_STRING(u"abcd"), C_STRING(u"z"));
  untouched.Replace(C_STRING(u"q"), C_STRING(u"z"));
  EXPECT_EQ(Text(untouched), u"abc");

  C_STRING self(u"ab");
  self.Replace(self, C_STRING(u"[ab]"));
  EXPECT_EQ(Text(self), u"[ab]");

  // Many occurrences, into a buffer with room and into a new one.
  std::u16string pairs;
  std::u16string expected;
  for (int i = 0; i < 300; ++i) {
    pairs += i % 7 == 0 ? u"ab-" : u"ab";
    expected += i % 7 == 0 ? u"xyb-" : u"xyb";
  }
  C_STRING roomy;
  roomy.Grow(2000);
  roomy = pairs.c_str();
  roomy.Replace(C_STRING(u"a"), C_STRING(u"xy"));
  EXPECT_EQ(Text(roomy), expected);
  EXPECT_EQ(roomy.GetSize(), 2000);
  C_STRING tight(pairs.c_str());
  tight.Replace(C_STRING(u"a"), C_STRING(u"xy"));
  EXPECT_EQ(Text(tight), expected);
  tight.Replace(C_STRING(u"xy"), C_STRING(u"a"));
  EXPECT_EQ(Text(tight), pairs);

  // Growing past the longest string changes nothing.
  C_STRING many(std::u16string(40000, u'x').c_str());
  many.Replace(C_STRING(u"x"), C_STRING(u"yy"));
  EXPECT_TRUE(CerrValueTooHigh.IsPending());
  EXPECT_EQ(many.GetNumber(), 40000);
  EXPECT_EQ(many.Get(0), C_CHAR(u'x'));
}

TEST(StringEditing, ReplaceLeavesTextAloneWhileAnErrorIsPending) {
  C_STRING s(u"a-b");
  CerrInvalidValue.Trigger();
  s.Replace(C_STRING(u"-"), C_STRING(u"--"));
  s.Insert(0, C_CHAR(u'x'));
  s.Pad(C_CHAR(u' '), 10, true);
  EXPECT_EQ(Text(s), u"a-b");
}

TEST(StringEditing, CharacterTranslation) {
  C_STRING s(u"a-b-c");
  s.ReplaceAll(C_CHAR(u'-'), C_CHAR(u'+'));
  EXPECT_EQ(Text(s), u"a+b+c");

  C_STRING t(u"abcab");
  t.SubstituteChars(C_STRING(u"aba"), C_STRING(u"xyz"));  // first occurrence in from wins
  EXPECT_EQ(Text(t), u"xycxy");

  C_STRING u(u"abc");
  u.SubstituteChars(C_STRING(u"ab"), C_STRING(u"x"));
  EXPECT_TRUE(CerrInvalidValue.IsPending());
  EXPECT_EQ(Text(u), u"abc");
  C_ERROR::ClearPending();

  C_STRING empty;
  empty.SubstituteChars(C_STRING(u"ab"), C_STRING(u"x"));  // nothing to do, no error
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(StringEditing, TrimPadUnpad) {
  C_STRING s(u"abcdef");
  s.Trim(1, 3);
  EXPECT_EQ(Text(s), u"bcd");
  s.Trim(1, 99);
  EXPECT_EQ(Text(s), u"cd");
  s.Trim(2, 1);
  EXPECT_TRUE(s.IsVoid());
  C_STRING none;
  none.Trim(0, 5);
  EXPECT_EQ(none.GetSize(), 0);
  C_STRING negative(u"xyz");
  negative.Trim(-2, 1);
  EXPECT_EQ(Text(negative), u"xy");

  C_STRING spaces(u" a b\tc ");
  spaces.RemoveAllSpaces();
  EXPECT_EQ(Text(spaces), u"ab\tc");

  C_STRING seven(u"7");
  seven.Pad(C_CHAR(u'0'), 3, true);
  EXPECT_EQ(Text(seven), u"007");
  C_STRING right(u"7");
  right.Pad(C_CHAR(u'0'), 3, false);
  EXPECT_EQ(Text(right), u"700");
  C_STRING longer(u"12345");
  longer.Pad(C_CHAR(u'0'), 3, true);
  EXPECT_EQ(Text(longer), u"12345");
  longer.Pad(C_CHAR(u'0'), C_STRING::MAX_SIZE, true);
  EXPECT_TRUE(CerrValueTooHigh.IsPending());
  EXPECT_EQ(Text(longer), u"12345");
  C_ERROR::ClearPending();

  C_STRING dashes(u"--a--");
  dashes.Unpad(C_CHAR(u'-'), false);
  EXPECT_EQ(Text(dashes), u"--a");
  dashes.Unpad(C_CHAR(u'-'), true);
  EXPECT_EQ(Text(dashes), u"a");
  C_STRING all(u"----");
  all.Unpad(C_CHAR(u'-'), true);
  EXPECT_TRUE(all.IsVoid());

  C_STRING blanks(u" \t\r\n x y \n");
  blanks.UnpadSpaces();
  EXPECT_EQ(Text(blanks), u"x y");
  C_STRING allBlank(u" \t \n");
  allBlank.UnpadSpaces();
  EXPECT_TRUE(allBlank.IsVoid());
}

TEST(StringEditing, Slices) {
  const C_STRING s(u"abcdef");
  EXPECT_EQ(Text(s.GetSlice(1, 3)), u"bcd");
  EXPECT_EQ(Text(s.GetSlice(-7, 1)), u"ab");
  EXPECT_EQ(Text(s.GetSlice(4, 70)), u"ef");
  EXPECT_TRUE(s.GetSlice(3, 1).IsVoid());
  EXPECT_TRUE(s.GetSlice(6, 9).IsVoid());
  EXPECT_TRUE(C_STRING().GetSlice(0, 3).IsVoid());
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

  EXPECT_TRUE(C_STRING(u"A1B").IsUpper());
  EXPECT_FALSE(C_STRING(u"123").IsUpper());
  EXPECT_FALSE(C_STRING(u"123").IsLower());
  EXPECT_FALSE(C_STRING().IsUpper());
  EXPECT_FALSE(C_STRING(u"AbC").IsUpper());
  EXPECT_TRUE(C_STRING(u"x-y \u00e9").IsLower());
  EXPECT_TRUE(C_STRING(u"Ab").IsUpper1());
  EXPECT_FALSE(C_STRING(u"aB").IsUpper1());
  EXPECT_FALSE(C_STRING(u"1A").IsUpper1());
  EXPECT_FALSE(C_STRING().IsUpper1());
}

TEST(StringSearch, Characters) {
  const C_STRING s(u"abcabc");
  EXPECT_EQ(s.Search(C_CHAR(u'c')), 2);
  EXPECT_EQ(s.Search(C_CHAR(u'c'), 3), 5);
  EXPECT_EQ(s.Search(C_CHAR(u'c'), 6), -1);
  EXPECT_EQ(s.Search(C_CHAR(u'z')), -1);
  EXPECT_EQ(C_STRING().Search(C_CHAR(u'a')), -1);
  EXPECT_EQ(s.SearchNoCase(C_CHAR(u'B'), 2), 4);

  EXPECT_EQ(s.SearchFromEnd(C_CHAR(u'a')), 3);
  EXPECT_EQ(s.SearchFromEnd(C_CHAR(u'a'), 2), 0);
  EXPECT_EQ(s.SearchFromEnd(C_CHAR(u'a'), -1), -1);
  EXPECT_EQ(s.SearchFromEnd(C_CHAR(u'c'), 99), 5);  // taken as the last character
  EXPECT_EQ(C_STRING().SearchFromEnd(C_CHAR(u'a')), -1);
  EXPECT_EQ(s.BackwardSearch(C_CHAR(u'b')), 4);
  EXPECT_EQ(s.BackwardSearch(C_CHAR(u'b'), 3), 1);

  // Long texts take the wide path.
  std::u16string longText(1000, u'.');
  longText[777] = u'#';
  const C_STRING l(longText.c_str());
  EXPECT_EQ(l.Search(C_CHAR(u'#')), 777);
  EXPECT_EQ(l.Search(C_CHAR(u'#'), 778), -1);
  EXPECT_EQ(l.Search(C_CHAR(u'.'), 995), 995);

  int which = -1;
  EXPECT_EQ(C_STRING(u"a,b;c").SearchCharSet(C_STRING(u",;"), 5, &which), 1);
  EXPECT_EQ(which, 0);
  EXPECT_EQ(C_STRING(u"a;b,c").SearchCharSet(C_STRING(u",;"), 0, &which), 1);
  EXPECT_EQ(which, 1);
  EXPECT_EQ(C_STRING(u"abc").SearchCharSet(C_STRING(u",;")), -1);
  EXPECT_EQ(C_STRING(u"abc").SearchCharSet(C_STRING()), -1);
}

TEST(StringSearch, Texts) {
  const C_STRING s(u"the cat and the hat");
  EXPECT_EQ(s.Search(C_STRING(u"the")), 0);
  EXPECT_EQ(s.Search(C_STRING(u"the"), 1), 12);
  EXPECT_EQ(s.Search(C_STRING(u"hat")), 16);
  EXPECT_EQ(s.Search(C_STRING(u"hat"), 16), 16);
  EXPECT_EQ(s.Search(C_STRING(u"hat"), 17), -1);
  EXPECT_EQ(s.Search(C_STRING(u"dog")), -1);
  EXPECT_EQ(s.Search(C_STRING()), -1);
  EXPECT_EQ(C_STRING().Search(C_STRING(u"a")), -1);
  EXPECT_EQ(C_STRING(u"ab").Search(C_STRING(u"abc")), -1);
  EXPECT_EQ(s.SearchNoCase(C_STRING(u"THE"), 1), 12);
  EXPECT_EQ(s.SearchNoCase(C_STRING(u"HAT")), 16);

  // Candidates that agree at both ends but not in the middle.
  std::u16string hay(300, u'a');
  hay.replace(200, 5, u"abxba");
  hay.replace(250, 5, u"abcba");
  EXPECT_EQ(C_STRING(hay.c_str()).Search(C_STRING(u"abcba")), 250);
  EXPECT_EQ(C_STRING(hay.c_str()).Search(C_STRING(u"abcbaa"), 251), -1);
}

TEST(StringSearch, FindLeavesNotFoundPending) {
  const C_STRING s(u"abc");
  EXPECT_EQ(s.Find(C_CHAR(u'b')), 1);
  EXPECT_EQ(s.Find(C_STRING(u"bc")), 1);
  EXPECT_EQ(s.FindFromEnd(C_CHAR(u'a')), 0);
  EXPECT_EQ(s.FindFromEnd(C_CHAR(u'c'), 2), 2);
  EXPECT_FALSE(C_ERROR::Is());

  EXPECT_EQ(s.Find(C_CHAR(u'z')), -1);
  EXPECT_TRUE(CerrStringNotFound.IsPending());
  EXPECT_EQ(Text(C_ERROR::GetPendingExtra()), u"z");
  C_ERROR::ClearPending();
  EXPECT_EQ(s.Find(C_STRING(u"cd")), -1);
  EXPECT_TRUE(CerrStringNotFound.IsPending());
  C_ERROR::ClearPending();
  EXPECT_EQ(s.FindFromEnd(C_CHAR(u'c'), 1), -1);
  EXPECT_TRUE(CerrStringNotFound.IsPending());
  C_ERROR::ClearPending();
  EXPECT_EQ(s.FindFromEnd(C_CHAR(u'q')), -1);
  EXPECT_TRUE(CerrStringNotFound.IsPending());
}

TEST(StringSearch, PrefixAndSuffix) {
  const C_STRING s(u"Report.TXT");
  EXPECT_TRUE(s.StartsWith(C_STRING(u"Rep")));
  EXPECT_FALSE(s.StartsWith(C_STRING(u"rep")));
  EXPECT_TRUE(s.StartsWithNoCase(C_STRING(u"rEP")));
  EXPECT_TRUE(s.EndsWith(C_STRING(u".TXT")));
  EXPECT_FALSE(s.EndsWith(C_STRING(u".txt")));
  EXPECT_TRUE(s.EndsWithNoCase(C_STRING(u".txt")));
  EXPECT_TRUE(s.StartsWith(C_STRING()));
  EXPECT_TRUE(s.EndsWithNoCase(C_STRING()));
  EXPECT_TRUE(C_STRING().EndsWith(C_STRING()));
  EXPECT_FALSE(C_STRING(u"ab").StartsWith(C_STRING(u"abc")));
  EXPECT_FALSE(C_STRING(u"ab").EndsWithNoCase(C_STRING(u"xab")));
}

TEST(StringWildcards, Matching) {
  const C_STRING abc(u"abc");
  for (const char16_t* pattern : {u"a?c", u"a*", u"*c", u"*", u"abc", u"???", u"*b*", u"a*c", u"?*"}) {
    EXPECT_TRUE(abc.MatchWildCard(C_STRING(pattern))) << std::string(C_STRING(pattern).GetANSI());
  }
  for (const char16_t* pattern : {u"ab", u"", u"abcd", u"??", u"????", u"b*", u"*b", u"A*"}) {
    EXPECT_FALSE(abc.MatchWildCard(C_STRING(pattern))) << std::string(C_STRING(pattern).GetANSI());
  }
  const C_STRING empty;
  EXPECT_TRUE(empty.MatchWildCard(C_STRING(u"*")));
  EXPECT_TRUE(empty.MatchWildCard(C_STRING()));
  EXPECT_FALSE(empty.MatchWildCard(C_STRING(u"?")));
  EXPECT_FALSE(empty.MatchWildCard(C_STRING(u"**")));
  EXPECT_TRUE(C_STRING(u"a.txt").MatchWildCard(C_STRING(u"*.txt")));
  EXPECT_FALSE(C_STRING(u"a.txt.bak").MatchWildCard(C_STRING(u"*.txt")));

  // One forward pass that never moves back in the text: a backtracking
  // matcher would accept these, the library's rule refuses them.
  EXPECT_FALSE(C_STRING(u"aab").MatchWildCard(C_STRING(u"*ab")));
  EXPECT_FALSE(C_STRING(u"xaab").MatchWildCard(C_STRING(u"x*ab")));
  EXPECT_TRUE(C_STRING(u"xab").MatchWildCard(C_STRING(u"x*ab")));

  EXPECT_TRUE(C_STRING(u"README.Txt").MatchWildCardNoCase(C_STRING(u"*.TXT"), false));
  EXPECT_TRUE(C_STRING(u"README.Txt").MatchWildCardNoCase(C_STRING(u"read*"), true));
  // A pattern said to be lower case is used as it is.
  EXPECT_FALSE(C_STRING(u"README.Txt").MatchWildCardNoCase(C_STRING(u"READ*"), true));
}

}  // namespace
