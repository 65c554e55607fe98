// Text reading and writing in each route: coded text, wide streams (TEXT,
// UNICODE, BINARY), compressed in place; lines, tokens, characters,
// formatted values and bare streams. In coded text "\377" is the escape
// byte 0xFF, followed by four hexadecimal digits.

#include <cstdio>
#include <tuple>

#include "file/file_test_util.h"
#include "support/os_support.h"
#include "foundation/library.h"

using TextIo = FileTest;

namespace {

struct CodePage {
  explicit CodePage(int page) : saved(qorc::LibraryCodePage()) { qorc::SetLibraryCodePage(page); }
  ~CodePage() { qorc::SetLibraryCodePage(saved); }
  int saved;
};

}  // namespace

TEST_F(TextIo, WritingAndReadingLinesTokensAndCharacters) {
  const std::tuple<C_FILE::TYPE, bool, std::string> cases[] = {
      {C_FILE::TEXT, true, TextLineEnds("\37720AC\351\nnarrow!\3774E2D\n")},
      {C_FILE::TEXT, false, TextLineEnds("\342\202\254\303\251\nnarrow!\344\270\255\n")},
      {C_FILE::UNICODE, true, std::string("\377\376\254 \351\0\r\0\n\0n\0a\0r\0r\0o\0w\0!\0-N\r\0\n\0", 30)},
      {C_FILE::BINARY, true, std::string("\254 \351\0\nnarrow!-N\n", 15)},
  };
  CodePage utf8(65001);
  for (const auto& [type, coding, bytes] : cases) {
    {
      C_FILE file(LibraryPath(path), C_FILE::WRITE, type);
      file.SetCoding(coding);
      file.Write(C_STRING(u"\u20AC\u00E9"));
      file.WriteEOL();
      file.Write("narrow");
      file.Write('!');
      file.Write(C_CHAR(u'\u4E2D'));
      file.WriteEOL();
    }
    EXPECT_EQ(ReadBytes(path), bytes);
    if (type == C_FILE::BINARY) continue;
    C_FILE file(LibraryPath(path), C_FILE::READ, coding ? C_FILE::AUTO : C_FILE::TEXT);
    file.SetCoding(coding);
    EXPECT_EQ(ReadLines(&file), u"\u20AC\u00E9|narrow!\u4E2D|");
  }

  // Line ends across the stream's buffer boundaries.
  std::string across;
  std::u16string acrossLines;
  for (int i = 0; i < 4; ++i) {
    const std::size_t length = 4096u * static_cast<std::size_t>(i + 1) - 1 - across.size();
    across += std::string(length, static_cast<char>('a' + i)) + (i % 2 == 0 ? "\n\r" : "\r\n");
    acrossLines += std::u16string(length, static_cast<char16_t>(u'a' + i)) + u"|";
  }
  // Code page (0: coded text), bytes, the reads and what they give.
  const std::tuple<int, std::string, const char*, std::u16string> reads[] = {
      // Coded text: CR, LF, CR LF and LF CR each end a line; escapes are decoded.
      {0, "A\r\nB\n\rC", "llll", u"A|B|C|<end>|"},
      {0, "x\r\ry\n\nz\n", "llllll", u"x||y||z|<end>|"},
      {0, across, "lllll", acrossLines + u"<end>|"},
      {0, std::string(5000, 'L') + "\n", "ll", std::u16string(4098, u'L') + u"|" + std::u16string(902, u'L') + u"|"},
      {0, "caf\xE9 \37720AC\n", "l", u"caf\u00E9 \u20AC|"},
      {0, "a\r\nb\37700E9\37700G9", "cccccc", u"a|\n|b|\u00E9|<invalid>|<end>|"},
      {0, "\37700", "c", u"<end>|"},
      // Tokens: quotes and backslashes, never decoded.
      {0, "  abc def", "ttt", u"abc|def<end>|<end>|"},
      {0, "\t\"a \\\" b\\\\\" rest of\tline\r\n\37700E9", "tsst", u"a \\\" b\\\\|rest of|line|\u00FF00E9<end>|"},
      // Uncoded text in the code page; CR LF reads as LF.
      {1252, "\x80\xE9\r\n", "ccc", u"\u20AC|\u00E9|\n|"},
      {65001, "a\r\nb\rc\nd\xE2z\n", "lllll", u"a|b|c|d\uFFFDz|<end>|"},
      // UNICODE files give their units, in the order of their mark.
      {0, std::string("\xFF\xFE \0x\0\xAC\x20\n\0z\0", 12), "tt", u"x\u20AC|z<end>|"},
      {0, std::string("\xFE\xFF\0a\0\r\0b\0\n\0c", 12), "cclll", u"a|b||c|<end>|"},
  };
  for (const auto& [page, bytes, kinds, read] : reads) {
    CodePage scoped(page == 0 ? 1252 : page);
    WriteBytes(path, bytes);
    C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::AUTO);
    file.SetCoding(page == 0);
    EXPECT_EQ(Reads(&file, kinds), read) << kinds;
  }
}

TEST_F(TextIo, CompressedInPlaceText) {
  {
    C_FILE file(LibraryPath(path), C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    file.Write(C_STRING(u"first\r"));
    file.WriteEOL();
    file.Write("second");
    file.Write(C_CHAR(u'\u00E9'));
    file.WriteEOL();
    file.Write(2, 3, C_STRING(u"%d-%d"));
    file.WriteEOL();
    file.Write(C_STRING(u"  tok \"q\\\"x\" end"));
  }
  // The CR stays.
  C_FILE file(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
  EXPECT_EQ(Reads(&file, "llctttt"), u"first\r|second\u00E9|2|-3|tok|q\\\"x|end<end>|");
  // Read to its end, the file still rewinds and positions; a line the end of
  // the file cuts is given up.
  file.Rewind();
  EXPECT_EQ(ReadLines(&file), u"first\r|second\u00E9|2-3|");
  file.SetPosit(14);  // just after "first\r\n" in UTF-16
  EXPECT_EQ(Reads(&file, "l"), u"second\u00E9|");
}

TEST_F(TextIo, FormattedValuesAndBareStreams) {
  {
    C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::TEXT);
    file.Write(2, 3, C_STRING(u"%d-%d"));
    file.Write(1, 2, 3, C_STRING(u"|%d%d%d"));
    file.Write(1, 2, 3, 4, C_STRING(u"|%d%d%d%d"));
    file.Write(-7, C_STRING(u"|%04d"));
    file.Write(9000000000LL, C_STRING(u"|%I64d"));
    file.Write(18446744073709551615ULL, 5, 6, C_STRING(u"|%I64u %d %d"));
    file.Write(1.5, C_STRING(u"|%.2f"));
    file.Write(1.5, 2.5, C_STRING(u"|%g %g"));
    file.Write(1.0, 2.0, 3.0, C_STRING(u"|%.0f%.0f%.0f"));
    file.Write(1.0, 2.0, 3.0, 4.0, C_STRING(u"|%.0f%.0f%.0f%.0f"));
    file.Write(C_STRING(u"\u20AC"), C_STRING(u"|[%s]"));
    file.Write(1, 2, C_STRING(u"|%d"));  // values beyond the directives are left out
    file.Write(1, C_STRING(u"|%d%d"));   // directives beyond the values write nothing
    file.Write(1, 2, C_STRING(u"|%*d|"));
    file.Write(1, 2, C_STRING(u"|%300d%d"));  // longer than the first buffer
  }
  EXPECT_EQ(ReadBytes(path),
            "2-3|123|1234|-007|9000000000|18446744073709551615 5 6|1.50|1.5 2.5|123|1234|[\37720AC]|1|1|1||" +
                std::string(299, ' ') + "12");
  // Too long for a string: nothing is written.
  C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::BINARY);
  file.Write(1, 2, C_STRING(u"%70000d"));
  EXPECT_EQ(TakeError(), &CerrValueTooHigh);
  EXPECT_EQ(file.GetSize(), 0);

  // Bare streams, in the code page.
  CodePage utf8(65001);
  std::FILE* out = std::fopen(path.c_str(), "w");
  for (const char16_t* text : {u"\u00E9t\u00E9\r\n", u"", u"last"}) C_FILE::WriteFile(out, C_STRING(text));
  C_FILE::FlushFile(out);
  C_FILE::FlushFile(nullptr);
  std::fclose(out);
  // (A text-mode stream stores the LF of "\r\n" as CR LF on Windows.)
  EXPECT_EQ(ReadBytes(path), TextLineEnds("\xC3\xA9t\xC3\xA9\r\nlast"));
  std::FILE* in = std::fopen(path.c_str(), "r");
  std::u16string lines;
  for (C_STRING line; C_FILE::ReadFile(in, &line), !C_ERROR::Is();) lines.append(line.GetWCHAR()) += u'|';
  EXPECT_EQ(lines, u"\u00E9t\u00E9|last|");
  EXPECT_TRUE(C_ERROR::GetPendingExtra() == C_STRING(u"unspecified"));
  EXPECT_EQ(TakeError(), &CerrFileEndReached);
  std::fclose(in);
  C_STRING line(u"x");
  C_FILE::ReadFile(nullptr, &line);
  EXPECT_TRUE(line.IsVoid());
  if (QORC_ON_WINDOWS(!RunningUnderWine())) GTEST_SKIP() << "Windows has no always-full device (Wine has Z:\\dev\\full)";
  std::FILE* full = std::fopen(kFullDevice, "w");
  C_FILE::WriteFile(full, C_STRING(std::string(10000, 'x').c_str()));
  EXPECT_EQ(TakeError(), &CerrFileNotEnoughSpace);
  std::fclose(full);
}

TEST_F(TextIo, UnicodeLinesEndOnlyAtAWholeLineFeedUnit) {
  // Units whose bytes hold 0x0A without being LF, in both byte orders, and a
  // stored line reusing the target's storage when it is large enough.
  const std::u16string units = u"\u0A0A\u0B0A\u0A41x\u000A\u0A00y\u000A";
  for (const bool swapped : {false, true}) {
    std::string bytes = swapped ? "\xFE\xFF" : "\xFF\xFE";
    for (const char16_t unit : units) {
      const char low = static_cast<char>(unit & 0xFF), high = static_cast<char>(unit >> 8);
      bytes += swapped ? std::string{high, low} : std::string{low, high};
    }
    WriteBytes(path, bytes);
    C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::AUTO);
    C_STRING line(u"a longer text than any line here");
    const int capacity = line.GetSize();
    file.Read(&line);
    EXPECT_EQ(Text(line), u"\u0A0A\u0B0A\u0A41x");
    EXPECT_EQ(line.GetSize(), capacity);
    file.Read(&line);
    EXPECT_EQ(Text(line), u"\u0A00y");
    file.Read(&line);
    EXPECT_EQ(TakeError(), &CerrFileEndReached);
    EXPECT_TRUE(line.IsVoid());
  }
}
