// Text reading and writing in each route: coded text, wide stream (TEXT,
// UNICODE, BINARY), compressed in place; lines, tokens, characters,
// formatted values and bare streams.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cstdio>
#include <string>
#include <vector>

#include "file/file_test_util.h"
#include "foundation/library.h"
#include "support/temp_dir.h"

namespace {

std::vector<std::string> ReadLines(const std::string& path, C_FILE::TYPE type, int mode = C_FILE::READ,
                                   bool coding = true) {
  C_FILE file(LibraryPath(path), mode, type);
  file.SetCoding(coding);
  std::vector<std::string> lines;
  for (;;) {
    C_STRING line;
    file.Read(&line);
    if (C_ERROR::Is()) break;
    char* utf8 = line.GetNewUTF8();
    lines.emplace_back(utf8);
    delete[] utf8;
  }
  EXPECT_TRUE(TakePending(CerrFileEndReached));
  return lines;
}

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
  WriteBytes(path, "A\r\nB\n\rC");
  EXPECT_EQ(ReadLines(path, C_FILE::TEXT), (std::vector<std::string>{"A", "B", "C"}));
  WriteBytes(path, "x\r\ry\n\nz\n");
  EXPECT_EQ(ReadLines(path, C_FILE::TEXT), (std::vector<std::string>{"x", "", "y", "", "z"}));
  WriteBytes(path, std::string(5000, 'L') + "\n");
  const std::vector<std::string> pieces = ReadLines(path, C_FILE::TEXT);
  ASSERT_EQ(pieces.size(), 2u);
  EXPECT_EQ(pieces[0].size(), 4098u);
  EXPECT_EQ(pieces[1].size(), 902u);
  // Line ends across the stream's buffer boundaries.
  std::string across;
  std::vector<std::string> expected;
  for (std::size_t end : {4095u, 8191u, 12287u, 16383u}) {
    const std::string line(end - across.size(), static_cast<char>('a' + expected.size()));
    expected.push_back(line);
    across += line + (expected.size() % 2 == 0 ? "\r\n" : "\n\r");
  }
  WriteBytes(path, across);
  EXPECT_EQ(ReadLines(path, C_FILE::TEXT), expected);
  // Bytes are characters of the same code, then decoded.
  WriteBytes(path,
             "caf\xE9 \xFF"
             "20AC\n");
  EXPECT_EQ(ReadLines(path, C_FILE::TEXT), (std::vector<std::string>{"caf\xC3\xA9 \xE2\x82\xAC"}));
}

TEST(TextIo, CodedWritingRoundTrips) {
  TempDir dir;
  const std::string path = dir.File("coded.txt");
  const C_STRING text(u"Gr\u00FC\u00DFe \u20AC \u00FF \u4E2D");
  {
    C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::TEXT);
    file.Write(text);
    file.WriteEOL();
    file.Write(C_CHAR(u'\u03A9'));
    file.Write(C_CHAR(u'\u00E9'));
    file.Write('!');
    file.WriteEOL();
  }
  EXPECT_EQ(ReadBytes(path),
            "Gr\xFC\xDF"
            "e \xFF"
            "20AC \xFF"
            "00FF \xFF"
            "4E2D\n\xFF"
            "03A9\xE9!\n");
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::AUTO);
  C_STRING line;
  file.Read(&line);
  EXPECT_TRUE(line == text);
  C_CHAR c;
  file.Read(&c);
  EXPECT_EQ(c, u'\u03A9');
  file.Read(&c);
  EXPECT_EQ(c, u'\u00E9');
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(TextIo, CodedCharacters) {
  TempDir dir;
  const std::string path = dir.File("chars.txt");
  WriteBytes(path,
             "a\r\nb\xFF"
             "00E9\xFF"
             "00G9");
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::TEXT);
  std::u16string read;
  C_CHAR c;
  for (int i = 0; i < 4; ++i) {
    file.Read(&c);
    read += static_cast<char16_t>(c);
  }
  EXPECT_EQ(read, u"a\nb\u00E9");
  file.Read(&c);
  EXPECT_TRUE(c.IsVoid());
  EXPECT_TRUE(TakePending(CerrFileContainsInvalidCode));
  file.Read(&c);
  EXPECT_TRUE(TakePending(CerrFileEndReached));
  WriteBytes(path,
             "\xFF"
             "00");
  C_FILE cut(LibraryPath(path), C_FILE::READ, C_FILE::TEXT);
  cut.Read(&c);
  EXPECT_TRUE(TakePending(CerrFileEndReached));
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
    EXPECT_EQ(ReadBytes(path),
              "\xE2\x82\xAC"
              "1 \xC3\xA9\n\xE4\xB8\xAD");
    EXPECT_EQ(ReadLines(path, C_FILE::TEXT, C_FILE::READ, false), (std::vector<std::string>{"\xE2\x82\xAC"
                                                                                            "1 \xC3\xA9",
                                                                                            "\xE4\xB8\xAD"}));
    // LF, CR LF and CR all end lines; a bad sequence reads as U+FFFD.
    WriteBytes(path, "a\r\nb\rc\nd\xE2z\n");
    EXPECT_EQ(ReadLines(path, C_FILE::TEXT, C_FILE::READ, false),
              (std::vector<std::string>{"a", "b", "c", "d\xEF\xBF\xBDz"}));
  }
  CodePage latin(1252);
  WriteBytes(path, "\x80\xE9\r\n");
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::TEXT);
  file.SetCoding(false);
  C_CHAR c;
  file.Read(&c);
  EXPECT_EQ(c, u'\u20AC');
  file.Read(&c);
  EXPECT_EQ(c, u'\u00E9');
  file.Read(&c);  // CR LF reads as LF
  EXPECT_EQ(c, u'\n');
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(TextIo, UnicodeAndBinaryLines) {
  TempDir dir;
  const std::string path = dir.File("u.txt");
  {
    C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::UNICODE);
    file.Write(C_STRING(u"\u20AC line"));
    file.WriteEOL();
    file.Write("narrow");
    file.Write('!');
    file.WriteEOL();
  }
  EXPECT_EQ(ReadBytes(path), std::string("\xFF\xFE\xAC\x20 \0l\0i\0n\0e\0\r\0\n\0n\0a\0r\0r\0o\0w\0!\0\r\0\n\0", 36));
  EXPECT_EQ(ReadLines(path, C_FILE::AUTO), (std::vector<std::string>{"\xE2\x82\xAC line", "narrow!"}));
  const std::string binary = dir.File("b.bin");
  {
    C_FILE file(LibraryPath(binary), C_FILE::WRITE, C_FILE::BINARY);
    file.Write(C_STRING(u"ab"));
    file.WriteEOL();
    file.Write("cd");
  }
  EXPECT_EQ(ReadBytes(binary), std::string("a\0b\0\ncd", 7));
  // A byte-swapped file reads in its own order, CR skipped by characters.
  WriteBytes(path, std::string("\xFE\xFF\0a\0\r\0b\0\n\0c", 12));
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::AUTO);
  C_CHAR c;
  file.Read(&c);
  EXPECT_EQ(c, u'a');
  file.Read(&c);
  EXPECT_EQ(c, u'b');
  C_STRING line;
  file.Read(&line);
  EXPECT_TRUE(line.IsVoid());
  file.Read(&line);
  EXPECT_TRUE(line == C_STRING(u"c"));
  EXPECT_FALSE(C_ERROR::Is());
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
  C_FILE file(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
  C_STRING line;
  file.Read(&line);
  EXPECT_TRUE(line == C_STRING(u"first\r"));  // the CR stays
  file.Read(&line);
  EXPECT_TRUE(line == C_STRING(u"second\u00E9"));
  C_CHAR c;
  file.Read(&c);
  EXPECT_EQ(c, u'2');
  file.ReadToken(&line);
  EXPECT_TRUE(line == C_STRING(u"-3"));
  file.ReadToken(&line);
  EXPECT_TRUE(line == C_STRING(u"tok"));
  file.ReadToken(&line);
  EXPECT_TRUE(line == C_STRING(u"q\\\"x"));
  file.ReadToken(&line);
  EXPECT_TRUE(line == C_STRING(u"end"));
  EXPECT_TRUE(TakePending(CerrFileEndReached));
  // A line the end of the file cuts is given up.
  file.Rewind();
  for (int i = 0; i < 3; ++i) file.Read(&line);
  file.Read(&line);
  EXPECT_TRUE(line.IsVoid());
  EXPECT_TRUE(TakePending(CerrFileEndReached));
}

TEST(TextIo, Tokens) {
  TempDir dir;
  const std::string path = dir.File("tokens.txt");
  WriteBytes(path, "  abc def");
  {
    C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::TEXT);
    C_STRING token;
    file.ReadToken(&token);
    EXPECT_TRUE(token == C_STRING(u"abc"));
    EXPECT_FALSE(C_ERROR::Is());
    file.ReadToken(&token);
    EXPECT_TRUE(token == C_STRING(u"def"));
    EXPECT_TRUE(TakePending(CerrFileEndReached));
    file.ReadToken(&token);
    EXPECT_TRUE(token.IsVoid());
    EXPECT_TRUE(TakePending(CerrFileEndReached));
  }
  {
    C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::TEXT);
    C_STRING token;
    file.ReadTokenSpace(&token);
    EXPECT_TRUE(token == C_STRING(u"abc def"));
    EXPECT_TRUE(TakePending(CerrFileEndReached));
  }
  WriteBytes(path,
             "\t\"a \\\" b\\\\\" rest of\tline\r\n\xFF"
             "00E9");
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::TEXT);
  C_STRING token;
  file.ReadToken(&token);
  EXPECT_TRUE(token == C_STRING(u"a \\\" b\\\\"));
  file.ReadTokenSpace(&token);
  EXPECT_TRUE(token == C_STRING(u"rest of"));
  file.ReadTokenSpace(&token);
  EXPECT_TRUE(token == C_STRING(u"line"));
  file.ReadToken(&token);  // never decoded
  EXPECT_EQ(token.GetNumber(), 5);
  EXPECT_TRUE(TakePending(CerrFileEndReached));
  // UNICODE files give their units.
  WriteBytes(path, std::string("\xFF\xFE \0x\0\xAC\x20\n\0z\0", 12));
  C_FILE unicode(LibraryPath(path), C_FILE::READ, C_FILE::AUTO);
  unicode.ReadToken(&token);
  EXPECT_TRUE(token == C_STRING(u"x\u20AC"));
  unicode.ReadToken(&token);
  EXPECT_TRUE(token == C_STRING(u"z"));
  EXPECT_TRUE(TakePending(CerrFileEndReached));
}

TEST(TextIo, EndOfLineForms) {
  TempDir dir;
  const std::string binary = dir.File("b"), unicode = dir.File("u"), text = dir.File("t");
  {
    C_FILE file(LibraryPath(binary), C_FILE::WRITE, C_FILE::BINARY);
    file.WriteEOL();
  }
  {
    C_FILE file(LibraryPath(unicode), C_FILE::WRITE, C_FILE::UNICODE);
    file.WriteEOL();
  }
  {
    C_FILE file(LibraryPath(text), C_FILE::WRITE, C_FILE::TEXT);
    file.WriteEOL();
  }
  EXPECT_EQ(ReadBytes(binary), "\n");
  EXPECT_EQ(ReadBytes(unicode), std::string("\xFF\xFE\r\0\n\0", 6));
  EXPECT_EQ(ReadBytes(text), "\n");
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
    // A result longer than the first buffer grows it.
    file.Write(1, 2, C_STRING(u"|%300d%d"));
  }
  const std::string bytes = ReadBytes(path);
  EXPECT_EQ(bytes.substr(0, bytes.size() - 302),
            "2-3|123|1234|-007|9000000000|18446744073709551615 5 6|1.50|1.5 2.5|123|1234|[\xFF"
            "20AC]|1|1|1|");
  EXPECT_EQ(bytes.substr(bytes.size() - 302), "|" + std::string(299, ' ') + "12");
  // Too long for a string: nothing is written.
  C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::BINARY);
  file.Write(1, 2, C_STRING(u"%70000d"));
  EXPECT_TRUE(TakePending(CerrValueTooHigh));
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
  EXPECT_TRUE(line == C_STRING(u"\u00E9t\u00E9"));
  C_FILE::ReadFile(in, &line);
  EXPECT_TRUE(line == C_STRING(u"last"));
  C_FILE::ReadFile(in, &line);
  EXPECT_TRUE(line.IsVoid());
  EXPECT_TRUE(CerrFileEndReached.IsPending());
  EXPECT_TRUE(C_ERROR::GetPendingExtra() == C_STRING(u"unspecified"));
  C_ERROR::ClearPending();
  std::fclose(in);
  line = C_STRING(u"x");
  C_FILE::ReadFile(nullptr, &line);
  EXPECT_TRUE(line.IsVoid());
  std::FILE* full = std::fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  C_FILE::WriteFile(full, C_STRING(std::string(10000, 'x').c_str()));
  EXPECT_TRUE(TakePending(CerrFileNotEnoughSpace));
  std::fclose(full);
}
