// Helpers of the file tests: whole files as byte strings, library paths.
#ifndef QORC_TESTS_FILE_FILE_TEST_UTIL_H
#define QORC_TESTS_FILE_FILE_TEST_UTIL_H

#include <qorc/qorc.h>

#include <fstream>
#include <iterator>
#include <random>
#include <string>

inline std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

inline C_STRING LibraryPath(const std::string& path) {
  C_STRING text;
  text.FromUTF8(path.c_str());
  return text;
}

// The path as the file object reports it, expanded.
inline C_STRING ExpandedPath(const std::string& path) {
  C_STRING text = LibraryPath(path);
  C_FILE::ExpandPath(&text);
  return text;
}

// Bytes that compress like text: words from a small vocabulary, lines.
inline std::string TextLikeBytes(std::size_t size, unsigned seed = 7) {
  static const char* const kWords[] = {"alpha", "beam", "column", "load",   "node",    "3.1415", "support", "x",
                                       "force", "=",    "12",     "moment", "segment", "-0.25",  "plate",   "steel"};
  std::mt19937 random(seed);
  std::string out;
  out.reserve(size + 16);
  while (out.size() < size) {
    out += kWords[random() % 16];
    out += random() % 9 == 0 ? '\n' : ' ';
  }
  out.resize(size);
  return out;
}

inline std::string RandomBytes(std::size_t size, unsigned seed = 11) {
  std::mt19937 random(seed);
  std::string out(size, '\0');
  for (char& c : out) c = static_cast<char>(random());
  return out;
}

// The pending error is this descriptor; it is cleared.
inline bool TakePending(const C_ERROR& error) {
  const bool pending = error.IsPending();
  C_ERROR::ClearPending();
  return pending;
}

#endif
