// Helpers of the file and path tests: temporary directories, whole files as
// byte strings, texts and library paths, and reads with their errors as text.
#ifndef QORC_TESTS_FILE_FILE_TEST_UTIL_H
#define QORC_TESTS_FILE_FILE_TEST_UTIL_H

#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "support/temp_dir.h"

inline std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

// Each test gets a fresh temporary directory and a file path in it.
class FileTest : public testing::Test {
 protected:
  TempDir dir;
  const std::string path = dir.File("file");
};

inline std::u16string Text(const C_STRING& s) { return std::u16string(s.GetWCHAR(), s.GetNumber()); }

inline C_STRING LibraryPath(const std::string& path, bool expanded = false) {
  C_STRING text;
  text.FromUTF8(path.c_str());
  if (expanded) C_FILE::ExpandPath(&text);  // as the file object names it in errors
  return text;
}

inline std::string RandomBytes(std::size_t size, unsigned seed = 7) {
  std::mt19937 random(seed);
  std::string out(size, '\0');
  for (char& c : out) c = static_cast<char>(random());
  return out;
}

inline const C_ERROR* TakeError() {
  const C_ERROR* error = C_ERROR::GetPending();
  C_ERROR::ClearPending();
  return error;
}

// Reads in turn a line (l), a token (t), a token ending only at a control
// character (s) or a character (c), each result followed by "<end>",
// "<invalid>" or "<error>" if the read left an error, then by "|".
inline std::u16string Reads(C_FILE* file, const char* kinds) {
  std::u16string out;
  for (; *kinds != '\0'; ++kinds) {
    C_STRING text;
    C_CHAR c;
    if (*kinds == 'c') {
      file->Read(&c);
      if (!c.IsVoid()) out += static_cast<char16_t>(c);
    } else {
      *kinds == 'l' ? file->Read(&text) : *kinds == 't' ? file->ReadToken(&text) : file->ReadTokenSpace(&text);
      out += Text(text);
    }
    if (const C_ERROR* error = TakeError()) {
      out += error == &CerrFileEndReached            ? u"<end>"
             : error == &CerrFileContainsInvalidCode ? u"<invalid>"
                                                     : u"<error>";
    }
    out += u'|';
  }
  return out;
}

inline std::u16string ReadLines(C_FILE* file) {
  std::u16string out;
  for (C_STRING line; file->Read(&line), !C_ERROR::Is();) (out += Text(line)) += u'|';
  EXPECT_EQ(TakeError(), &CerrFileEndReached);
  return out;
}

#endif
