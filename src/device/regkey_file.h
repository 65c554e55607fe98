// The text files of the Windows registry editor ("Windows Registry Editor
// Version 5.00" and "REGEDIT4"): reading them, a line at a time, into keys
// and entries handed to a visitor, and writing keys and entries in their form.
#ifndef QORC_DEVICE_REGKEY_FILE_H
#define QORC_DEVICE_REGKEY_FILE_H

#include <cstddef>
#include <string>
#include <vector>

namespace qorc::regfile {

// The first line of the files written here, after the byte-order mark.
extern const char16_t kHeader[];
// The first line of the older, 8-bit form.
extern const char16_t kHeader4[];

// The longest names, as the Windows registry has them.
constexpr std::size_t kMaxKeyNameLength = 255;
constexpr std::size_t kMaxEntryNameLength = 16383;

// The roots whose keys are kept: HKEY_CLASSES_ROOT is the machine's
// Software\Classes, as Windows merges it.
enum class Root { kUser, kMachine };

// Whether two key or entry names are the same, compared as the store
// compares them: each UTF-16 unit upper-cased.
bool SameKeyName(const std::u16string& a, const std::u16string& b);

// The name a file gives a root ("HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE").
const char16_t* RootName(Root root);
// Reads a key path that begins with a root name (compared without case):
// false, with the reason, when it names no root kept here.
bool SplitRootPath(const std::u16string& fullPath, Root* root, std::u16string* path, std::u16string* reason);

struct Entry {
  std::u16string name;  // empty: the key's default entry ("@")
  bool remove = false;  // "name"=-
  unsigned type = 0;
  std::vector<unsigned char> data;
};

struct Section {
  Root root = Root::kUser;
  std::u16string path;  // below the root, "\"-separated; empty for the root itself
  bool remove = false;  // [-path]: the key with everything under it
  int line = 0;         // the line of its [key]
};

struct ParseError {
  int line = 0;
  std::u16string reason;
};

// Thrown by a visitor that refuses what the file says; the parse reports it
// with the line given, or else the line it is at.
struct Refusal {
  std::u16string reason;
  int line = 0;
};

// Where the bytes of a file come from.
class Source {
 public:
  virtual ~Source() = default;
  // Fills up to `capacity` bytes: the count, 0 at the end, -1 when reading fails.
  virtual long Read(unsigned char* buffer, std::size_t capacity) = 0;
  // Starts again at the first byte; false when that fails.
  virtual bool Rewind() = 0;
};

class MemorySource : public Source {
 public:
  MemorySource(const unsigned char* bytes, std::size_t size) : bytes_(bytes), size_(size) {}
  long Read(unsigned char* buffer, std::size_t capacity) override;
  bool Rewind() override;

 private:
  const unsigned char* bytes_;
  std::size_t size_;
  std::size_t at_ = 0;
};

// What a parse hands on, in the order of the file. A visitor refuses with
// Refusal, or returns false to stop the parse (a store that fails).
class Visitor {
 public:
  virtual ~Visitor() = default;
  virtual bool OnSection(const Section& section) = 0;
  // An entry of the last section.
  virtual bool OnEntry(const Entry& entry) = 0;
};

// How the text of a file is coded. A byte-order mark decides (UTF-16 LE or
// UTF-8); without one, the file is UTF-8 when all of it is, else 8-bit text
// in the library code page.
enum class Encoding { kDetect, kUtf16, kUtf8, kCodePage };

enum class Status { kDone, kMalformed, kStopped, kReadFailed };

// Reads the file from its first byte, handing every key and entry to the
// visitor. `*encoding` kDetect finds the coding (reading an unmarked file
// once more to tell UTF-8 from 8-bit text) and gives it back for the next
// parse of the same file. kMalformed fills `error`. May throw std::bad_alloc.
Status Parse(Source* source, Encoding* encoding, Visitor* visitor, ParseError* error);

// A whole file in memory, read into a list of sections with their entries.
struct ParsedSection {
  Section section;
  std::vector<Entry> entries;
};
bool ParseAll(const unsigned char* bytes, std::size_t size, std::vector<ParsedSection>* sections, ParseError* error);

// "[path]" and a line end.
std::u16string SectionLine(const std::u16string& fullPath);
// One entry with its line end: a string when the data is exactly what a text
// entry of this library holds, dword: for four-byte type-4 data, hex: for
// binary entries and hex(type): for any other; long data is continued on
// further lines.
std::u16string EntryLine(const Entry& entry);
// Text as the bytes of a file: the byte-order mark (with `mark`) and UTF-16 LE units.
std::string FileBytes(const std::u16string& text, bool mark = true);

}  // namespace qorc::regfile

#endif
