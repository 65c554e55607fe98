// The text files of the Windows registry editor, version 5: reading them into
// a list of changes, and writing keys and entries in their form.
#ifndef QORC_DEVICE_REGKEY_FILE_H
#define QORC_DEVICE_REGKEY_FILE_H

#include <cstddef>
#include <string>
#include <vector>

namespace qorc::regfile {

// The first line of every file, after the byte-order mark.
extern const char16_t kHeader[];

struct Entry {
  std::u16string name;  // empty: the key's default entry ("@")
  bool remove = false;  // "name"=-
  unsigned type = 0;
  std::vector<unsigned char> data;
};

struct Section {
  std::u16string path;  // below the file's first key, "\"-separated; empty for that key
  bool remove = false;  // [-path]: the key with everything under it
  std::vector<Entry> entries;
};

struct ParseError {
  int line = 0;
  std::u16string reason;
};

// Reads a whole file (UTF-16 LE with its byte-order mark). The first section
// names the key the file is about; every other section must lie under it.
// False, with the line and the reason, when the file is malformed.
// May throw std::bad_alloc.
bool Parse(const unsigned char* bytes, std::size_t size, std::vector<Section>* sections, ParseError* error);

// "[path]" and a line end.
std::u16string SectionLine(const std::u16string& fullPath);
// One entry with its line end: a string when the data is exactly what a text
// entry of this library holds, dword: for four-byte type-4 data, hex: for
// binary entries and hex(type): for any other; long data is continued on
// further lines.
std::u16string EntryLine(const Entry& entry);
// The whole file as bytes: byte-order mark and UTF-16 LE units.
std::string FileBytes(const std::u16string& text);

}  // namespace qorc::regfile

#endif
