// Text reading and writing in each route: coded text, wide streams (TEXT,
// UNICODE, BINARY), compressed in place; lines, tokens, characters,
// formatted values and bare streams. In coded text "\377" is the escape
// byte 0xFF, followed by four hexadecimal digits.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cstdio>
#include <string>
#include <utility>

#include "file/file_test_util.h"
#include "foundation/library.h"
#include "support/temp_dir.h"

namespace {

// Runs with the library code page set, then restores it.
class CodePage {
 public:
  explicit CodePage(int page) : saved_(qorc::LibraryCodePage()) { qorc::SetLibraryCodePage(page); }
  ~CodePage() { qorc::SetLibraryCodePage(saved_); }

 private:
  int saved_;
};

}  // namespace

TEST(TextIo, CodedLinesEndAtAnyPairing) {
  TempDir dir;
  const std::string path = dir.File("coded.txt");
  const std::pair<std::string, std::u16string> cases[] = {
      {"A\r\nB\n\rC", u"A|B|C|"},
      {"x\r\ry\n\nz\n", u"x||y||z|"},
      {"caf\xE9 \37720AC\n", u"caf\u00E9 \u20AC|"},
      // Longer lines come in pieces of the line buffer's size.
      {std::string(5000, 'L') + "\n", std::u16string(4098, u'L') + u"|" + std::u16string(902, u'L') + u"|"},
  };
  for (const auto& [bytes, lines] : cases) {
    WriteBytes(path, bytes);
    EXPECT_EQ(ReadLines(path, C_FILE::TEXT), lines);
  }
  // Line ends across the stream's buffer boundaries.
  std::string across;
  std::u16string expected;
  int i = 0;
  for (std::size_t end : {4095u, 8191u, 12287u, 16383u}) {
    const std::size_t length = end - across.size();
    across += std::string(length, static_cast<char>('a' + i)) + (i % 2 == 0 ? "\n\r" : "\r\n");
    expected += std::u16string(length, static_cast<char16_t>(u'a' + i++)) + u"|";
  }
  WriteBytes(path, across);
  EXPECT_EQ(ReadLines(path, C_FILE::TEXT), expected);
}

TEST(TextIo, CodedWritingAndCharacters) {
  TempDir dir;
  const std::string path = dir.File("coded.txt");
  {
    C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::TEXT);
    file.Write(C_STRING(u"Gr\u00FC\u00DFe \u20AC \u00FF \u4E2D"));
    file.WriteEOL();
    file.Write(C_CHAR(u'\u03A9'));
    file.Write(C_CHAR(u'\u00E9'));
    file.Write('!');
  }
  EXPECT_EQ(ReadBytes(path), "Gr\374\337e \37720AC \37700FF \3774E2D\n\37703A9\351!");
  EXPECT_EQ(ReadLines(path, C_FILE::AUTO), u"Gr\u00FC\u00DFe \u20AC \u00FF \u4E2D|\u03A9\u00E9!|");
  // Characters skip CR; a bad or a cut escape is an error.
  WriteBytes(path, "a\r\nb\37700E9\37700G9");
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::TEXT);
  EXPECT_EQ(Reads(&file, "cccccc"), u"a|\n|b|\u00E9|<invalid>|<end>|");
  WriteBytes(path, "\37700");
  C_FILE cut(LibraryPath(path), C_FILE::READ, C_FILE::TEXT);
  EXPECT_EQ(Reads(&cut, "c"), u"<end>|");
}

TEST(TextIo, UncodedTextUsesTheCodePage) {
  TempDir dir;
  const std::string path = dir.File("plain.txt");
  {
    CodePage utf8(65001);
    {
      C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::TEXT);
      file.SetCoding(false);
      file.Write(C_STRING(u"\u20AC1 \u00E9"));
      file.WriteEOL();
      file.Write(C_CHAR(u'\u4E2D'));
    }
    EXPECT_EQ(ReadBytes(path), "\xE2\x82\xAC\x31 \xC3\xA9\n\xE4\xB8\xAD");
    EXPECT_EQ(ReadLines(path, C_FILE::TEXT, false), u"\u20AC1 \u00E9|\u4E2D|");
    // LF, CR LF and CR all end lines; a bad sequence reads as U+FFFD.
    WriteBytes(path, "a\r\nb\rc\nd\xE2z\n");
    EXPECT_EQ(ReadLines(path, C_FILE::TEXT, false), u"a|b|c|d\uFFFDz|");
  }
  CodePage latin(1252);
  WriteBytes(path, "\x80\xE9\r\n");
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::TEXT);
  file.SetCoding(false);
  EXPECT_EQ(Reads(&file, "ccc"), u"\u20AC|\u00E9|\n|");  // CR LF reads as LF
}

TEST(TextIo, WideStreamsAndLineEnds) {
  TempDir dir;
  const std::string path = dir.File("w.txt");
  const std::pair<C_FILE::TYPE, std::string> cases[] = {
      {C_FILE::TEXT, "\37720AC\nnarrow!\n"},
      {C_FILE::UNICODE, std::string("\xFF\xFE\xAC\x20\r\0\n\0n\0a\0r\0r\0o\0w\0!\0\r\0\n\0", 26)},
      {C_FILE::BINARY, "\xAC\x20\nnarrow!\n"},
  };
  for (const auto& [type, bytes] : cases) {
    {
      C_FILE file(LibraryPath(path), C_FILE::WRITE, type);
      file.Write(C_STRING(u"\u20AC"));
      file.WriteEOL();
      file.Write("narrow");
      file.Write('!');
      file.WriteEOL();
    }
    EXPECT_EQ(ReadBytes(path), bytes);
    if (type != C_FILE::BINARY) {
      EXPECT_EQ(ReadLines(path, C_FILE::AUTO), u"\u20AC|narrow!|");
    }
  }
  // A byte-swapped file reads in its own order.
  WriteBytes(path, std::string("\xFE\xFF\0a\0\r\0b\0\n\0c", 12));
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::AUTO);
  EXPECT_EQ(Reads(&file, "cclll"), u"a|b||c|<end>|");
}

TEST(TextIo, CompressedInPlaceText) {
  TempDir dir;
  const std::string path = dir.File("t.qz");
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
  // A line the end of the file cuts is given up.
  C_FILE again(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
  EXPECT_EQ(ReadLines(&again), u"first\r|second\u00E9|2-3|");
}

TEST(TextIo, Tokens) {
  TempDir dir;
  const std::string path = dir.File("tokens.txt");
  WriteBytes(path, "  abc def");
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::TEXT);
  EXPECT_EQ(Reads(&file, "ttt"), u"abc|def<end>|<end>|");
  C_FILE spaced(LibraryPath(path), C_FILE::READ, C_FILE::TEXT);
  EXPECT_EQ(Reads(&spaced, "s"), u"abc def<end>|");
  // Quotes and backslashes; a token is never decoded.
  CodePage latin(1252);
  WriteBytes(path, "\t\"a \\\" b\\\\\" rest of\tline\r\n\37700E9");
  C_FILE quoted(LibraryPath(path), C_FILE::READ, C_FILE::TEXT);
  EXPECT_EQ(Reads(&quoted, "tsst"), u"a \\\" b\\\\|rest of|line|\u00FF00E9<end>|");
  // UNICODE files give their units.
  WriteBytes(path, std::string("\xFF\xFE \0x\0\xAC\x20\n\0z\0", 12));
  C_FILE unicode(LibraryPath(path), C_FILE::READ, C_FILE::AUTO);
  EXPECT_EQ(Reads(&unicode, "tt"), u"x\u20AC|z<end>|");
}

TEST(TextIo, FormattedValues) {
  TempDir dir;
  const std::string path = dir.File("f.txt");
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
}

TEST(TextIo, BareStreams) {
  TempDir dir;
  const std::string path = dir.File("bare.txt");
  CodePage utf8(65001);
  std::FILE* out = std::fopen(path.c_str(), "w");
  C_FILE::WriteFile(out, C_STRING(u"\u00E9t\u00E9\r\n"));
  C_FILE::WriteFile(out, C_STRING(u""));
  C_FILE::WriteFile(out, C_STRING(u"last"));
  C_FILE::FlushFile(out);
  C_FILE::FlushFile(nullptr);
  std::fclose(out);
  EXPECT_EQ(ReadBytes(path), "\xC3\xA9t\xC3\xA9\r\nlast");
  std::FILE* in = std::fopen(path.c_str(), "r");
  C_STRING line;
  C_FILE::ReadFile(in, &line);
  EXPECT_TRUE(line == u"\u00E9t\u00E9");
  C_FILE::ReadFile(in, &line);
  EXPECT_TRUE(line == u"last");
  C_FILE::ReadFile(in, &line);
  EXPECT_TRUE(line.IsVoid());
  EXPECT_TRUE(C_ERROR::GetPendingExtra() == C_STRING(u"unspecified"));
  EXPECT_EQ(TakeError(), &CerrFileEndReached);
  std::fclose(in);
  line = C_STRING(u"x");
  C_FILE::ReadFile(nullptr, &line);
  EXPECT_TRUE(line.IsVoid());
  std::FILE* full = std::fopen("/dev/full", "w");
  C_FILE::WriteFile(full, C_STRING(std::string(10000, 'x').c_str()));
  EXPECT_EQ(TakeError(), &CerrFileNotEnoughSpace);
  std::fclose(full);
}
