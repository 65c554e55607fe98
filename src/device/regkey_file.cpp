// Reading and writing the registry editor's text files.
//
// The files are read as people and the editor write them: either header,
// UTF-16 LE or UTF-8 behind a byte-order mark, or unmarked 8-bit text; lines
// ending in CR LF, LF or CR, the last one perhaps without; blank lines, ";"
// comments, blanks around every line; keys under any root kept here, in any
// order and as often as wanted. An entry is "name"=value or @=value; names and
// strings escape only "\" and the double quote; hexadecimal data goes on over
// lines that end in "\". The file is read a line at a time, so that its size
// does not count in memory.
//
// Files written here are version 5, UTF-16 LE with a mark, lines in CR LF.
#include "device/regkey_file.h"

#include <cstdio>
#include <cstring>

#include "foundation/library.h"
#include "platform/text.h"

namespace qorc::regfile {

const char16_t kHeader[] = u"Windows Registry Editor Version 5.00";
const char16_t kHeader4[] = u"REGEDIT4";

namespace {

constexpr unsigned kTextType = 1;
constexpr unsigned kExpandTextType = 2;
constexpr unsigned kBinaryType = 3;
constexpr unsigned kDwordType = 4;
constexpr unsigned kMultiTextType = 7;
// Where the editor breaks long hexadecimal lines.
constexpr std::size_t kHexLineWidth = 76;
constexpr std::size_t kReadChunk = 1 << 16;
constexpr int kUtf8CodePage = 65001;
// How much of a wrong root name a message repeats.
constexpr std::size_t kShownNameLength = 40;

const char16_t kUserRoot[] = u"HKEY_CURRENT_USER";
const char16_t kMachineRoot[] = u"HKEY_LOCAL_MACHINE";
const char16_t kClassesRoot[] = u"HKEY_CLASSES_ROOT";
// Where Windows keeps the keys shown under HKEY_CLASSES_ROOT.
const char16_t kClassesPath[] = u"Software\\Classes";
const char16_t* const kRootsNotKept[] = {u"HKEY_USERS", u"HKEY_CURRENT_CONFIG"};

std::u16string Ascii(const char* text) { return std::u16string(text, text + std::char_traits<char>::length(text)); }

// Stops parsing with the reason; the parser knows the line.
struct Malformed {
  std::u16string reason;
};
Malformed Because(const char* reason) { return Malformed{Ascii(reason)}; }

struct ReadFailure {};

bool IsBlank(char16_t c) { return c == u' ' || c == u'\t'; }

int HexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

std::u16string Trim(const std::u16string& text) {
  std::size_t first = 0, end = text.size();
  while (first < end && IsBlank(text[first])) ++first;
  while (end > first && IsBlank(text[end - 1])) --end;
  return text.substr(first, end - first);
}

std::size_t SkipBlanks(const std::u16string& text, std::size_t at) {
  while (at < text.size() && IsBlank(text[at])) ++at;
  return at;
}

bool StartsWithNoCase(const std::u16string& text, const char16_t* prefix) {
  const std::u16string wanted(prefix);
  return text.size() >= wanted.size() && SameKeyName(text.substr(0, wanted.size()), wanted);
}

bool LibraryCodePageIsUtf8() {
  const int codePage = LibraryCodePage() != 0 ? LibraryCodePage() : platform::SystemAnsiCodePage();
  return codePage == kUtf8CodePage;
}

// Reading the coded text ----------------------------------------------------------

// One character of strict UTF-8 from `bytes` (at most `available`): the
// bytes it takes, with its one or two UTF-16 units; 0 when the bytes there
// are no character (overlong forms, surrogates and values past U+10FFFF
// included), or are cut by the end.
int DecodeUtf8(const unsigned char* bytes, std::size_t available, char16_t units[2], int* unitCount) {
  const unsigned lead = bytes[0];
  int length;
  unsigned value, least;
  if (lead < 0x80) {
    units[0] = static_cast<char16_t>(lead);
    *unitCount = 1;
    return 1;
  } else if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2, value = lead & 0x1F, least = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3, value = lead & 0x0F, least = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4, value = lead & 0x07, least = 0x10000;
  } else {
    return 0;
  }
  if (available < static_cast<std::size_t>(length)) return 0;
  for (int i = 1; i < length; ++i) {
    if ((bytes[i] & 0xC0) != 0x80) return 0;
    value = (value << 6) | (bytes[i] & 0x3F);
  }
  if (value < least || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return 0;
  if (value < 0x10000) {
    units[0] = static_cast<char16_t>(value);
    *unitCount = 1;
  } else {
    units[0] = static_cast<char16_t>(0xD800 + ((value - 0x10000) >> 10));
    units[1] = static_cast<char16_t>(0xDC00 + ((value - 0x10000) & 0x3FF));
    *unitCount = 2;
  }
  return length;
}

bool DecodeUtf8Line(const std::string& bytes, std::u16string* line) {
  const unsigned char* data = reinterpret_cast<const unsigned char*>(bytes.data());
  for (std::size_t i = 0; i < bytes.size();) {
    char16_t units[2];
    int count = 0;
    const int used = DecodeUtf8(data + i, bytes.size() - i, units, &count);
    if (used == 0) return false;
    line->append(units, static_cast<std::size_t>(count));
    i += static_cast<std::size_t>(used);
  }
  return true;
}

// 8-bit text in the library code page as UTF-16.
std::u16string FromCodePage(const char* bytes, std::size_t size) {
  std::u16string text;
  if (size == 0) return text;
  const int count = static_cast<int>(size);
  const int needed = platform::MultiByteToWide(LibraryCodePage(), bytes, count, nullptr, 0);
  if (needed < 0) throw Because("the text cannot be read in the library code page");
  text.resize(static_cast<std::size_t>(needed) + 1);
  const int written = platform::MultiByteToWide(LibraryCodePage(), bytes, count, &text[0], needed + 1);
  text.resize(written < 0 ? 0 : static_cast<std::size_t>(written));
  return text;
}

// The file's lines, one at a time, as UTF-16 without their line ends.
class LineReader {
 public:
  LineReader(Source* source, Encoding encoding, std::size_t markBytes)
      : source_(source), encoding_(encoding), buffer_(kReadChunk) {
    Skip(markBytes);
  }

  // False at the end of the file.
  bool Next(std::u16string* line) {
    line->clear();
    if (ended_) return false;
    ++line_;
    return encoding_ == Encoding::kUtf16 ? NextUtf16(line) : NextBytes(line);
  }
  int Line() const { return line_; }

 private:
  // The next byte, or -1 at the end of the file.
  int Byte() {
    if (at_ == filled_) {
      const long got = source_->Read(buffer_.data(), buffer_.size());
      if (got < 0) throw ReadFailure{};
      filled_ = static_cast<std::size_t>(got);
      at_ = 0;
      if (filled_ == 0) return -1;
    }
    return buffer_[at_++];
  }

  void Skip(std::size_t count) {
    while (count-- > 0) Byte();
  }

  // The next unit of a UTF-16 LE file, or -1 at its end.
  long Unit() {
    const int low = Byte();
    if (low < 0) return -1;
    const int high = Byte();
    if (high < 0) throw Because("the file ends in half a character");
    return low | (high << 8);
  }

  bool NextUtf16(std::u16string* line) {
    for (;;) {
      long unit = Unit();
      if (skipLineFeed_) {
        skipLineFeed_ = false;
        if (unit == u'\n') unit = Unit();
      }
      if (unit < 0) {
        ended_ = true;
        // A last line without its line end is a line; nothing after a line end is none.
        return !line->empty();
      }
      if (unit == u'\r' || unit == u'\n') {
        skipLineFeed_ = unit == u'\r';
        return true;
      }
      line->push_back(static_cast<char16_t>(unit));
    }
  }

  // 8-bit files split at byte values that no code page uses inside a
  // character, then decode the line.
  bool NextBytes(std::u16string* line) {
    bytes_.clear();
    bool any = false;
    for (;;) {
      int byte = Byte();
      if (skipLineFeed_) {
        skipLineFeed_ = false;
        if (byte == '\n') byte = Byte();
      }
      if (byte < 0) {
        ended_ = true;
        if (!any) return false;
        break;
      }
      any = true;
      if (byte == '\r' || byte == '\n') {
        skipLineFeed_ = byte == '\r';
        break;
      }
      bytes_.push_back(static_cast<char>(byte));
    }
    Decode(line);
    return true;
  }

  void Decode(std::u16string* line) {
    bool ascii = true;
    for (char c : bytes_) ascii = ascii && static_cast<unsigned char>(c) < 0x80;
    if (ascii) {
      line->assign(bytes_.begin(), bytes_.end());
    } else if (encoding_ == Encoding::kUtf8 || LibraryCodePageIsUtf8()) {
      if (!DecodeUtf8Line(bytes_, line)) {
        throw Because(encoding_ == Encoding::kUtf8
                          ? "the text is not UTF-8"
                          : "the text is neither UTF-8 nor UTF-16 with a byte-order mark (the library code page is "
                            "UTF-8)");
      }
    } else {
      *line = FromCodePage(bytes_.data(), bytes_.size());
    }
  }

  Source* source_;
  Encoding encoding_;
  std::vector<unsigned char> buffer_;
  std::size_t filled_ = 0;
  std::size_t at_ = 0;
  std::string bytes_;
  int line_ = 0;
  bool ended_ = false;
  bool skipLineFeed_ = false;
};

// Up to `count` first bytes of the file.
std::size_t ReadHead(Source* source, unsigned char* head, std::size_t count) {
  std::size_t got = 0;
  while (got < count) {
    const long read = source->Read(head + got, count - got);
    if (read < 0) throw ReadFailure{};
    if (read == 0) break;
    got += static_cast<std::size_t>(read);
  }
  return got;
}

// Whether all of an unmarked file is UTF-8.
bool IsAllUtf8(Source* source) {
  std::vector<unsigned char> buffer(kReadChunk + 4);
  std::size_t carried = 0;
  for (;;) {
    const long read = source->Read(buffer.data() + carried, kReadChunk);
    if (read < 0) throw ReadFailure{};
    const std::size_t size = carried + static_cast<std::size_t>(read);
    std::size_t i = 0;
    while (i < size) {
      char16_t units[2];
      int count = 0;
      const int used = DecodeUtf8(buffer.data() + i, size - i, units, &count);
      if (used > 0) {
        i += static_cast<std::size_t>(used);
      } else if (read > 0 && size - i < 4) {
        break;  // perhaps a character cut by the chunk
      } else {
        return false;
      }
    }
    carried = size - i;
    std::memmove(buffer.data(), buffer.data() + i, carried);
    if (read == 0) return carried == 0;
  }
}

// Finds the coding and the length of the byte-order mark; leaves the source
// at its start.
std::size_t DetectEncoding(Source* source, Encoding* encoding) {
  unsigned char head[3] = {0, 0, 0};
  const std::size_t got = ReadHead(source, head, sizeof head);
  std::size_t mark = 0;
  if (got >= 2 && head[0] == 0xFF && head[1] == 0xFE) {
    *encoding = Encoding::kUtf16, mark = 2;
  } else if (got >= 3 && head[0] == 0xEF && head[1] == 0xBB && head[2] == 0xBF) {
    *encoding = Encoding::kUtf8, mark = 3;
  } else if (got >= 2 && head[0] == 0xFE && head[1] == 0xFF) {
    throw Because("UTF-16 files must be little-endian (the byte-order mark FF FE)");
  } else if (*encoding == Encoding::kDetect || *encoding == Encoding::kUtf16) {
    if (!source->Rewind()) throw ReadFailure{};
    *encoding = IsAllUtf8(source) ? Encoding::kUtf8 : Encoding::kCodePage;
  }
  if (!source->Rewind()) throw ReadFailure{};
  return mark;
}

// Values ---------------------------------------------------------------------------------

// A double-quoted text from `at` (on the opening quote); *at moves past the
// closing quote. Besides \\ and \", the escapes \r and \n stand for line
// ends, as Wine's registry editor writes them.
std::u16string QuotedText(const std::u16string& line, std::size_t* at) {
  std::u16string text;
  std::size_t i = *at + 1;
  for (; i < line.size() && line[i] != u'"'; ++i) {
    if (line[i] != u'\\') {
      text.push_back(line[i]);
      continue;
    }
    const char16_t escaped = i + 1 < line.size() ? line[++i] : u'\0';
    if (escaped == u'\\' || escaped == u'"') {
      text.push_back(escaped);
    } else if (escaped == u'r' || escaped == u'n') {
      text.push_back(escaped == u'r' ? u'\r' : u'\n');
    } else {
      throw Because("a backslash in a quoted text must be followed by \\, \", r or n");
    }
  }
  if (i >= line.size()) throw Because("a quoted text is not closed");
  *at = i + 1;
  return text;
}

// Bytes of two hexadecimal digits separated by commas; a comma may end the list.
std::vector<unsigned char> HexBytes(const std::u16string& text) {
  std::vector<unsigned char> bytes;
  std::size_t at = SkipBlanks(text, 0);
  while (at < text.size()) {
    int value = 0;
    int digits = 0;
    for (; at < text.size() && HexValue(text[at]) >= 0; ++at, ++digits) value = value * 16 + HexValue(text[at]);
    if (digits < 1 || digits > 2) throw Because("hexadecimal data must be bytes of two digits separated by commas");
    bytes.push_back(static_cast<unsigned char>(value));
    at = SkipBlanks(text, at);
    if (at == text.size()) break;
    if (text[at] != u',') throw Because("hexadecimal data must be bytes of two digits separated by commas");
    at = SkipBlanks(text, at + 1);
  }
  return bytes;
}

unsigned HexNumber(const std::u16string& text, std::size_t first, std::size_t last, const char* reason) {
  if (first >= last || last - first > 8) throw Because(reason);
  unsigned value = 0;
  for (std::size_t i = first; i < last; ++i) {
    if (HexValue(text[i]) < 0) throw Because(reason);
    value = value * 16 + static_cast<unsigned>(HexValue(text[i]));
  }
  return value;
}

std::vector<unsigned char> UnitBytes(const std::u16string& text, std::size_t size) {
  std::vector<unsigned char> data(size, 0);
  for (std::size_t i = 0; i < text.size(); ++i) {
    data[2 * i] = static_cast<unsigned char>(text[i] & 0xFF);
    data[2 * i + 1] = static_cast<unsigned char>(text[i] >> 8);
  }
  return data;
}

// What a text entry of this library holds for `text`: the units, a zero, and
// zeros up to a multiple of four bytes.
std::vector<unsigned char> TextData(const std::u16string& text) {
  const std::size_t size = 2 * (text.size() + 1);
  return UnitBytes(text, (size + 3) & ~static_cast<std::size_t>(3));
}

bool IsTextType(unsigned type) { return type == kTextType || type == kExpandTextType || type == kMultiTextType; }

// The parser ------------------------------------------------------------------------------

class Parser {
 public:
  // `*line` follows the line being read, for the messages.
  Parser(LineReader* reader, Visitor* visitor, int* line) : reader_(reader), visitor_(visitor), line_(*line) {}

  // Throws Malformed or Refusal at the line `*line` names; false when the
  // visitor stopped.
  bool Run() {
    std::u16string line;
    line_ = 1;
    if (!reader_->Next(&line)) throw Because("the file is empty");
    line = Trim(line);
    if (line == kHeader4) {
      version4_ = true;
    } else if (line != kHeader) {
      throw Because("the file must begin with \"Windows Registry Editor Version 5.00\" or \"REGEDIT4\"");
    }
    for (line_ = reader_->Line() + 1; reader_->Next(&line); line_ = reader_->Line() + 1) {
      line = Trim(line);
      if (line.empty() || line[0] == u';') continue;
      const bool going = line[0] == u'[' ? OnKeyLine(line) : OnEntryLine(line);
      if (!going) return false;
    }
    return true;
  }

 private:
  bool OnKeyLine(const std::u16string& line) {
    if (line.size() < 3 || line.back() != u']') throw Because("a key line must be [path]");
    Section section;
    section.remove = line[1] == u'-';
    section.line = line_;
    const std::u16string full = line.substr(section.remove ? 2 : 1, line.size() - (section.remove ? 3 : 2));
    std::u16string reason;
    if (!SplitRootPath(full, &section.root, &section.path, &reason)) throw Malformed{reason};
    if (section.remove && full.find(u'\\') == std::u16string::npos) throw Because("a root cannot be deleted");
    inSection_ = true;
    sectionRemoved_ = section.remove;
    return visitor_->OnSection(section);
  }

  bool OnEntryLine(const std::u16string& line) {
    if (line[0] != u'@' && line[0] != u'"') {
      throw Because("a line must be a [key], an entry \"name\"=value or @=value, or a ; comment");
    }
    if (!inSection_) throw Because("an entry must follow a [key] line");
    if (sectionRemoved_) throw Because("a deleted key cannot hold entries");
    Entry entry;
    std::size_t at = 1;
    if (line[0] == u'"') {
      at = 0;
      entry.name = QuotedText(line, &at);
      if (entry.name.size() > kMaxEntryNameLength) throw Because("an entry name may have at most 16383 characters");
    }
    at = SkipBlanks(line, at);
    if (at >= line.size() || line[at] != u'=') throw Because("an entry name must be followed by =");
    ReadValue(line.substr(SkipBlanks(line, at + 1)), &entry);
    return visitor_->OnEntry(entry);
  }

  void ReadValue(const std::u16string& value, Entry* entry) {
    if (value == u"-") {
      entry->remove = true;
    } else if (!value.empty() && value[0] == u'"') {
      std::size_t end = 0;
      const std::u16string text = QuotedText(value, &end);
      if (SkipBlanks(value, end) != value.size()) throw Because("nothing may follow a quoted text");
      entry->type = kTextType;
      entry->data = TextData(text);
    } else if (StartsWithNoCase(value, u"dword:")) {
      const unsigned number = HexNumber(value, 6, value.size(), "dword: needs one to eight hexadecimal digits");
      entry->type = kDwordType;
      for (int i = 0; i < 4; ++i) entry->data.push_back(static_cast<unsigned char>(number >> (8 * i)));
    } else if (StartsWithNoCase(value, u"hex:")) {
      entry->type = kBinaryType;
      entry->data = HexBytes(Continued(value.substr(4)));
    } else if (StartsWithNoCase(value, u"hex(")) {
      const std::size_t close = value.find(u"):", 4);
      if (close == std::u16string::npos) throw Because("hex( must be followed by a type and ):");
      entry->type = HexNumber(value, 4, close, "hex( needs a type of one to eight hexadecimal digits");
      entry->data = HexBytes(Continued(value.substr(close + 2)));
      // The older files hold text data as 8-bit text, which the registry
      // keeps as UTF-16.
      if (version4_ && IsTextType(entry->type)) {
        const std::u16string text = FromCodePage(reinterpret_cast<const char*>(entry->data.data()), entry->data.size());
        entry->data = UnitBytes(text, 2 * text.size());
      }
    } else {
      throw Because("a value must be a quoted text, dword:, hex:, hex(type): or -");
    }
  }

  // Hexadecimal data with the lines that a final "\" continues it over.
  std::u16string Continued(std::u16string text) {
    std::u16string next;
    while (!text.empty() && text.back() == u'\\') {
      text.pop_back();
      if (!reader_->Next(&next)) throw Because("the last line ends in a continuation");
      text += Trim(next);
    }
    return text;
  }

  LineReader* reader_;
  Visitor* visitor_;
  int& line_;
  bool version4_ = false;
  bool inSection_ = false;
  bool sectionRemoved_ = false;
};

// Writing --------------------------------------------------------------------------------

std::u16string Quoted(const std::u16string& text) {
  std::u16string out(1, u'"');
  for (char16_t c : text) {
    if (c == u'\\' || c == u'"') out.push_back(u'\\');
    out.push_back(c);
  }
  out.push_back(u'"');
  return out;
}

// The text when `data` is exactly what this library stores for a text entry
// that fits a line; false otherwise.
bool PlainText(const std::vector<unsigned char>& data, std::u16string* text) {
  if (data.size() < 2 || data.size() % 2 != 0) return false;
  std::u16string units;
  std::size_t i = 0;
  for (; i + 1 < data.size(); i += 2) {
    const char16_t unit = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
    if (unit == 0) break;
    if (unit < 0x20) return false;
    units.push_back(unit);
  }
  if (i + 1 >= data.size()) return false;
  if (TextData(units) != data) return false;
  *text = units;
  return true;
}

std::u16string HexDigits(unsigned value, int width) {
  char digits[16];
  std::snprintf(digits, sizeof digits, "%0*x", width, value);
  return Ascii(digits);
}

class Collector : public Visitor {
 public:
  explicit Collector(std::vector<ParsedSection>* sections) : sections_(sections) {}
  bool OnSection(const Section& section) override {
    sections_->push_back(ParsedSection{section, {}});
    return true;
  }
  bool OnEntry(const Entry& entry) override {
    sections_->back().entries.push_back(entry);
    return true;
  }

 private:
  std::vector<ParsedSection>* sections_;
};

}  // namespace

bool SameKeyName(const std::u16string& a, const std::u16string& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (platform::CharToUpper(a[i]) != platform::CharToUpper(b[i])) return false;
  }
  return true;
}

const char16_t* RootName(Root root) { return root == Root::kMachine ? kMachineRoot : kUserRoot; }

bool SplitRootPath(const std::u16string& fullPath, Root* root, std::u16string* path, std::u16string* reason) {
  const std::size_t slash = fullPath.find(u'\\');
  const std::u16string name = fullPath.substr(0, slash);
  std::u16string below = slash == std::u16string::npos ? std::u16string() : fullPath.substr(slash + 1);
  if (SameKeyName(name, kUserRoot)) {
    *root = Root::kUser;
  } else if (SameKeyName(name, kMachineRoot)) {
    *root = Root::kMachine;
  } else if (SameKeyName(name, kClassesRoot)) {
    *root = Root::kMachine;
    below = below.empty() ? std::u16string(kClassesPath) : kClassesPath + (u'\\' + below);
  } else {
    for (const char16_t* other : kRootsNotKept) {
      if (SameKeyName(name, other)) {
        *reason = std::u16string(other) +
                  u" is not kept here: keys belong under HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE or HKEY_CLASSES_ROOT";
        return false;
      }
    }
    const std::u16string shown = name.size() > kShownNameLength ? name.substr(0, kShownNameLength) + u"..." : name;
    *reason = u"\"" + shown +
              u"\" is not a root: a key path begins with HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE or "
              u"HKEY_CLASSES_ROOT";
    return false;
  }
  if (slash != std::u16string::npos) {
    for (std::size_t start = 0;;) {
      const std::size_t end = below.find(u'\\', start);
      const std::size_t length = (end == std::u16string::npos ? below.size() : end) - start;
      if (length == 0) {
        *reason = Ascii("a key path must be names separated by single backslashes");
        return false;
      }
      if (length > kMaxKeyNameLength) {
        *reason = Ascii("a key name may have at most 255 characters");
        return false;
      }
      if (end == std::u16string::npos) break;
      start = end + 1;
    }
  }
  *path = below;
  return true;
}

long MemorySource::Read(unsigned char* buffer, std::size_t capacity) {
  const std::size_t count = capacity < size_ - at_ ? capacity : size_ - at_;
  if (count > 0) std::memcpy(buffer, bytes_ + at_, count);
  at_ += count;
  return static_cast<long>(count);
}

bool MemorySource::Rewind() {
  at_ = 0;
  return true;
}

Status Parse(Source* source, Encoding* encoding, Visitor* visitor, ParseError* error) {
  int line = 1;
  try {
    if (!source->Rewind()) return Status::kReadFailed;
    const std::size_t mark = DetectEncoding(source, encoding);
    LineReader reader(source, *encoding, mark);
    Parser parser(&reader, visitor, &line);
    return parser.Run() ? Status::kDone : Status::kStopped;
  } catch (const ReadFailure&) {
    return Status::kReadFailed;
  } catch (const Malformed& malformed) {
    error->reason = malformed.reason;
  } catch (const Refusal& refusal) {
    error->reason = refusal.reason;
    if (refusal.line > 0) line = refusal.line;
  }
  error->line = line;
  return Status::kMalformed;
}

bool ParseAll(const unsigned char* bytes, std::size_t size, std::vector<ParsedSection>* sections, ParseError* error) {
  sections->clear();
  MemorySource source(bytes, size);
  Collector collector(sections);
  Encoding encoding = Encoding::kDetect;
  if (Parse(&source, &encoding, &collector, error) == Status::kDone) return true;
  sections->clear();
  return false;
}

std::u16string SectionLine(const std::u16string& fullPath) { return u"[" + fullPath + u"]\r\n"; }

std::u16string EntryLine(const Entry& entry) {
  std::u16string line = entry.name.empty() ? std::u16string(u"@") : Quoted(entry.name);
  line += u'=';
  std::u16string text;
  if (entry.remove) {
    line += u'-';
  } else if (entry.type == kTextType && PlainText(entry.data, &text)) {
    line += Quoted(text);
  } else if (entry.type == kDwordType && entry.data.size() == 4) {
    const unsigned value =
        entry.data[0] | (entry.data[1] << 8) | (entry.data[2] << 16) | (static_cast<unsigned>(entry.data[3]) << 24);
    line += u"dword:" + HexDigits(value, 8);
  } else {
    line += entry.type == kBinaryType ? std::u16string(u"hex:") : u"hex(" + HexDigits(entry.type, 1) + u"):";
    std::size_t column = line.size();
    for (std::size_t i = 0; i < entry.data.size(); ++i) {
      line += HexDigits(entry.data[i], 2);
      column += 2;
      if (i + 1 < entry.data.size()) {
        line += u',';
        ++column;
        if (column >= kHexLineWidth) {
          line += u"\\\r\n  ";
          column = 2;
        }
      }
    }
  }
  return line + u"\r\n";
}

std::string FileBytes(const std::u16string& text, bool mark) {
  std::string bytes = mark ? std::string("\xFF\xFE", 2) : std::string();
  bytes.reserve(bytes.size() + 2 * text.size());
  for (char16_t c : text) {
    bytes.push_back(static_cast<char>(c & 0xFF));
    bytes.push_back(static_cast<char>(c >> 8));
  }
  return bytes;
}

}  // namespace qorc::regfile
