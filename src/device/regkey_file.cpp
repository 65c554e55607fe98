// Reading and writing the registry editor's text files.
//
// Lines end in CR LF. An entry is "name"=value or @=value; names and strings
// escape only "\" and the double quote. Hexadecimal data is continued on the
// next line by a final "\", as the editor writes it past 76 columns.
#include "device/regkey_file.h"

#include <cstdio>

namespace qorc::regfile {

const char16_t kHeader[] = u"Windows Registry Editor Version 5.00";

namespace {

constexpr unsigned kTextType = 1;
constexpr unsigned kBinaryType = 3;
constexpr unsigned kDwordType = 4;
// Where the editor breaks long hexadecimal lines.
constexpr std::size_t kHexLineWidth = 76;

std::u16string Ascii(const char* text) { return std::u16string(text, text + std::char_traits<char>::length(text)); }

// Stops parsing with the reason; the caller knows the line.
struct Malformed {
  const char* reason;
};

bool IsBlank(char16_t c) { return c == u' ' || c == u'\t'; }

int HexValue(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

std::u16string TrimRight(const std::u16string& text) {
  std::size_t end = text.size();
  while (end > 0 && IsBlank(text[end - 1])) --end;
  return text.substr(0, end);
}

std::size_t SkipBlanks(const std::u16string& text, std::size_t at) {
  while (at < text.size() && IsBlank(text[at])) ++at;
  return at;
}

char16_t Upper(char16_t c) { return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - u'a' + u'A') : c; }

// Key paths compare without case; the editor's own files name keys in ASCII
// roots, and names below are compared unit by unit as the store does.
bool SameName(const std::u16string& a, const std::u16string& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (Upper(a[i]) != Upper(b[i])) return false;
  }
  return true;
}

// A double-quoted text from `at` (on the opening quote); *at moves past the
// closing quote.
std::u16string QuotedText(const std::u16string& line, std::size_t* at) {
  std::u16string text;
  std::size_t i = *at + 1;
  for (; i < line.size() && line[i] != u'"'; ++i) {
    if (line[i] == u'\\') {
      if (i + 1 >= line.size() || (line[i + 1] != u'\\' && line[i + 1] != u'"')) {
        throw Malformed{"a backslash in a quoted text must be followed by \\ or \""};
      }
      ++i;
    }
    text.push_back(line[i]);
  }
  if (i >= line.size()) throw Malformed{"a quoted text is not closed"};
  *at = i + 1;
  return text;
}

std::vector<unsigned char> HexBytes(const std::u16string& text) {
  std::vector<unsigned char> bytes;
  std::size_t at = SkipBlanks(text, 0);
  if (at == text.size()) return bytes;
  for (;;) {
    at = SkipBlanks(text, at);
    int value = 0;
    int digits = 0;
    for (; at < text.size() && HexValue(text[at]) >= 0; ++at, ++digits) value = value * 16 + HexValue(text[at]);
    if (digits < 1 || digits > 2) throw Malformed{"hexadecimal data must be bytes of two digits separated by commas"};
    bytes.push_back(static_cast<unsigned char>(value));
    at = SkipBlanks(text, at);
    if (at == text.size()) return bytes;
    if (text[at] != u',') throw Malformed{"hexadecimal data must be bytes of two digits separated by commas"};
    ++at;
  }
}

unsigned HexNumber(const std::u16string& text, std::size_t first, std::size_t last, const char* reason) {
  if (first >= last || last - first > 8) throw Malformed{reason};
  unsigned value = 0;
  for (std::size_t i = first; i < last; ++i) {
    if (HexValue(text[i]) < 0) throw Malformed{reason};
    value = value * 16 + static_cast<unsigned>(HexValue(text[i]));
  }
  return value;
}

// What a text entry of this library holds for `text`: the units, a zero, and
// zeros up to a multiple of four bytes.
std::vector<unsigned char> TextData(const std::u16string& text) {
  const std::size_t size = 2 * (text.size() + 1);
  std::vector<unsigned char> data((size + 3) & ~static_cast<std::size_t>(3), 0);
  for (std::size_t i = 0; i < text.size(); ++i) {
    data[2 * i] = static_cast<unsigned char>(text[i] & 0xFF);
    data[2 * i + 1] = static_cast<unsigned char>(text[i] >> 8);
  }
  return data;
}

Entry ParseEntry(const std::u16string& line) {
  Entry entry;
  std::size_t at = 0;
  if (line[0] == u'@') {
    at = 1;
  } else if (line[0] == u'"') {
    entry.name = QuotedText(line, &at);
  } else {
    throw Malformed{"a line must be a [key], an entry \"name\"=value or @=value, or a ; comment"};
  }
  at = SkipBlanks(line, at);
  if (at >= line.size() || line[at] != u'=') throw Malformed{"an entry name must be followed by ="};
  at = SkipBlanks(line, at + 1);
  const std::u16string value = line.substr(at);
  if (value == u"-") {
    entry.remove = true;
  } else if (!value.empty() && value[0] == u'"') {
    std::size_t end = 0;
    const std::u16string text = QuotedText(value, &end);
    if (SkipBlanks(value, end) != value.size()) throw Malformed{"nothing may follow a quoted text"};
    entry.type = kTextType;
    entry.data = TextData(text);
  } else if (value.compare(0, 6, u"dword:") == 0) {
    const unsigned number =
        HexNumber(value, 6, TrimRight(value).size(), "dword: needs one to eight hexadecimal digits");
    entry.type = kDwordType;
    for (int i = 0; i < 4; ++i) entry.data.push_back(static_cast<unsigned char>(number >> (8 * i)));
  } else if (value.compare(0, 4, u"hex:") == 0) {
    entry.type = kBinaryType;
    entry.data = HexBytes(value.substr(4));
  } else if (value.compare(0, 4, u"hex(") == 0) {
    const std::size_t close = value.find(u"):", 4);
    if (close == std::u16string::npos) throw Malformed{"hex( must be followed by a type and ):"};
    entry.type = HexNumber(value, 4, close, "hex( needs a type of one to eight hexadecimal digits");
    entry.data = HexBytes(value.substr(close + 2));
  } else {
    throw Malformed{"a value must be a quoted text, dword:, hex:, hex(type): or -"};
  }
  return entry;
}

// The file's text as lines, split at CR LF, LF or CR.
std::vector<std::u16string> Lines(const std::u16string& text) {
  std::vector<std::u16string> lines(1);
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == u'\r' || text[i] == u'\n') {
      if (text[i] == u'\r' && i + 1 < text.size() && text[i + 1] == u'\n') ++i;
      lines.emplace_back();
    } else {
      lines.back().push_back(text[i]);
    }
  }
  return lines;
}

// The section's path below the file's first key.
bool RelativePath(const std::u16string& base, const std::u16string& path, std::u16string* relative) {
  if (SameName(base, path)) {
    relative->clear();
    return true;
  }
  if (path.size() <= base.size() + 1 || path[base.size()] != u'\\' || !SameName(base, path.substr(0, base.size()))) {
    return false;
  }
  *relative = path.substr(base.size() + 1);
  return true;
}

void ParseLines(const std::vector<std::u16string>& lines, std::vector<Section>* sections, int* lineNumber) {
  std::u16string base;
  std::size_t i = 0;
  *lineNumber = 1;
  if (TrimRight(lines[0]) != kHeader)
    throw Malformed{"the file must begin with \"Windows Registry Editor Version 5.00\""};
  for (i = 1; i < lines.size(); ++i) {
    *lineNumber = static_cast<int>(i + 1);
    std::u16string line = TrimRight(lines[i]);
    const std::size_t first = SkipBlanks(line, 0);
    if (first == line.size() || line[first] == u';') continue;
    line = line.substr(first);
    if (line[0] == u'[') {
      if (line.back() != u']' || line.size() < 3) throw Malformed{"a key line must be [path]"};
      Section section;
      section.remove = line[1] == u'-';
      const std::u16string path = line.substr(section.remove ? 2 : 1, line.size() - (section.remove ? 3 : 2));
      if (path.empty() || path.front() == u'\\' || path.back() == u'\\' || path.find(u"\\\\") != std::u16string::npos) {
        throw Malformed{"a key path must be names separated by single backslashes"};
      }
      if (sections->empty()) {
        if (section.remove) throw Malformed{"the first key of the file is the key imported into; it cannot be deleted"};
        base = path;
      } else if (!RelativePath(base, path, &section.path)) {
        throw Malformed{"every key must lie under the first key of the file"};
      } else if (section.remove && section.path.empty()) {
        throw Malformed{"the key imported into cannot be deleted"};
      }
      sections->push_back(std::move(section));
      continue;
    }
    if (sections->empty()) throw Malformed{"an entry must follow a [key] line"};
    if (sections->back().remove) throw Malformed{"a deleted key cannot hold entries"};
    // Long hexadecimal data goes on over lines that end in a backslash.
    while (line.back() == u'\\') {
      if (i + 1 >= lines.size()) throw Malformed{"the last line ends in a continuation"};
      line.pop_back();
      line += TrimRight(lines[++i]);
    }
    sections->back().entries.push_back(ParseEntry(line));
  }
}

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

}  // namespace

bool Parse(const unsigned char* bytes, std::size_t size, std::vector<Section>* sections, ParseError* error) {
  sections->clear();
  int lineNumber = 1;
  try {
    if (size < 2 || bytes[0] != 0xFF || bytes[1] != 0xFE)
      throw Malformed{"the file must be UTF-16 LE with a byte-order mark"};
    std::u16string text;
    text.reserve(size / 2);
    for (std::size_t i = 2; i + 1 < size; i += 2) text.push_back(static_cast<char16_t>(bytes[i] | (bytes[i + 1] << 8)));
    const std::vector<std::u16string> lines = Lines(text);
    if (size % 2 != 0) {
      lineNumber = static_cast<int>(lines.size());
      throw Malformed{"the file ends in half a character"};
    }
    ParseLines(lines, sections, &lineNumber);
    if (sections->empty()) throw Malformed{"the file holds no key"};
    return true;
  } catch (const Malformed& malformed) {
    sections->clear();
    error->line = lineNumber;
    error->reason = Ascii(malformed.reason);
    return false;
  }
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

std::string FileBytes(const std::u16string& text) {
  std::string bytes("\xFF\xFE", 2);
  bytes.reserve(2 + 2 * text.size());
  for (char16_t c : text) {
    bytes.push_back(static_cast<char>(c & 0xFF));
    bytes.push_back(static_cast<char>(c >> 8));
  }
  return bytes;
}

}  // namespace qorc::regfile
