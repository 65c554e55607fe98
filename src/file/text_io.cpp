// Reading and writing through the file object. Each operation takes one of
// four routes from the file's state:
// - coded text (TEXT with coding on): bytes, each the character of the same
//   code; characters from 0x00FF up travel as the escape 0x00FF + "%04X";
// - direct compressed (a compressed file read or written in place): UTF-16
//   units, little-endian, through the block buffer;
// - wide stream (every other file): on TEXT files characters in the library
//   code page, written with LF line ends and read accepting LF, CR LF and
//   CR; on UNICODE and BINARY files raw UTF-16 units;
// - storage stream (a file in structured storage): text operations refused.
// Streams stay byte-oriented: the wide semantics are the library's own.
#include <qorc/file.h>

#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "file/file_internal.h"
#include "file/storage_stream.h"
#include "foundation/library.h"
#include "platform/file_stream.h"
#include "platform/text.h"
#include "string/format.h"
#include "string/string_internal.h"

using qorc::file::ReadUnit;
using qorc::file::Swapped;

namespace {

// The line buffers are process-wide: line reading is not re-entrant.
constexpr int kLineUnits = 4098;
// The wide line function reads at most 4095 characters, its LF included.
constexpr int kWideLineUnits = 4095;
char16_t g_line[kLineUnits + 1];
char16_t g_fileLine[kWideLineUnits + 1];

constexpr char16_t kLF = 0x000A;
constexpr char16_t kCR = 0x000D;
constexpr char16_t kReplacement = 0xFFFD;
constexpr int kUtf8 = 65001;

// How each byte of the library code page reads: a character of its own, or
// the first byte of a longer one. Rebuilt when the code page changes.
struct ByteTable {
  int codePage = -1;
  int maxLength = 1;
  char16_t single[256];
  bool lead[256];
};
ByteTable g_table;

const ByteTable& TableFor(int codePage) {
  if (g_table.codePage == codePage) return g_table;
  g_table.codePage = codePage;
  g_table.maxLength = qorc::platform::MaxCharBytes(codePage);
  char16_t probe = 0;
  const char letter = 'A';
  const bool usable = qorc::platform::DecodeOneChar(codePage, &letter, 1, &probe) == 1;
  for (int b = 0; b < 256; ++b) {
    const char byte = static_cast<char>(b);
    char16_t c = 0;
    const int used = usable ? qorc::platform::DecodeOneChar(codePage, &byte, 1, &c) : 1;
    if (!usable) c = static_cast<char16_t>(b);  // no converter: bytes as Latin-1
    g_table.lead[b] = used < 0;
    g_table.single[b] = used < 0 ? kReplacement : c;
  }
  if (!usable) g_table.maxLength = 1;
  return g_table;
}

// The rest of a character whose first byte `lead` began a longer sequence.
int ReadCharTail(std::FILE* stream, const ByteTable& table, int lead) {
  char bytes[8];
  bytes[0] = static_cast<char>(lead);
  const int longest = table.maxLength < 8 ? table.maxLength : 8;
  for (int length = 2; length <= longest; ++length) {
    const int next = std::getc(stream);
    if (next == EOF) return kReplacement;
    if (table.codePage == kUtf8 && (next & 0xC0) != 0x80) {
      // Not a continuation byte: it begins the next character.
      std::ungetc(next, stream);
      return kReplacement;
    }
    bytes[length - 1] = static_cast<char>(next);
    char16_t c = 0;
    if (qorc::platform::DecodeOneChar(table.codePage, bytes, length, &c) == length) return c;
  }
  return kReplacement;
}

// One character of a TEXT stream, CR LF read as LF; -1 at the end.
int ReadTextChar(std::FILE* stream) {
  const int b = std::getc(stream);
  if (b == EOF) return -1;
  if (b == '\r') {
    const int next = std::getc(stream);
    if (next == '\n') return kLF;
    if (next != EOF) std::ungetc(next, stream);
    return kCR;
  }
  const ByteTable& table = TableFor(qorc::LibraryCodePage());
  return table.lead[b] ? ReadCharTail(stream, table, b) : table.single[b];
}

// A line of a TEXT stream into out, its LF stored (CR LF read as LF). With
// crEnds a lone CR ends the line too and is stored as LF. Returns the units
// stored; 0 at the end of the file.
int ReadTextLine(std::FILE* stream, char16_t* out, int capacity, bool crEnds) {
  const ByteTable& table = TableFor(qorc::LibraryCodePage());
  qorc::platform::StreamLock lock(stream);
  int n = 0;
  while (n < capacity) {
    const int b = qorc::platform::ReadByteUnlocked(stream);
    if (b == EOF) break;
    if (b == '\r') {
      const int next = qorc::platform::ReadByteUnlocked(stream);
      if (next == '\n' || crEnds) {
        if (next != '\n' && next != EOF) std::ungetc(next, stream);
        out[n++] = kLF;
        break;
      }
      if (next != EOF) std::ungetc(next, stream);
      out[n++] = kCR;
      continue;
    }
    const int c = table.lead[b] ? ReadCharTail(stream, table, b) : table.single[b];
    out[n++] = static_cast<char16_t>(c);
    if (c == kLF) break;
  }
  return n;
}

// Drops one trailing LF, then one trailing CR.
int WithoutLineEnd(const char16_t* units, int n) {
  if (n > 0 && units[n - 1] == kLF) --n;
  if (n > 0 && units[n - 1] == kCR) --n;
  return n;
}

// Each byte becomes the unit of the same code.
void Widen(const unsigned char* in, int n, char16_t* out) {
  int i = 0;
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  for (; i + 16 <= n; i += 16) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_unpacklo_epi8(bytes, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 8), _mm_unpackhi_epi8(bytes, zero));
  }
#endif
  for (; i < n; ++i) out[i] = in[i];
}

// The target's storage ready for n units and a terminator: its own buffer
// when that is large enough, else a new one of exactly n + 1 (as assigning
// a string of n units does). Null, with the target emptied, when no memory.
C_CHAR* LineStorage(C_STRING* target, int n, int* size) {
  int number = 0;
  C_CHAR* storage = target->Detach(&number, size);
  if (*size >= n + 1) return storage;
  delete[] storage;
  *size = n + 1;
  return qorc::NewArray<C_CHAR>(static_cast<std::size_t>(n) + 1);
}

// The n units become the target's text, zero units included.
void Assign(C_STRING* target, const char16_t* units, int n) {
  if (n <= 0) return;
  int size = 0;
  C_CHAR* storage = LineStorage(target, n, &size);
  if (storage == nullptr) return;
  std::memcpy(qorc::Units(storage), units, static_cast<std::size_t>(n) * sizeof(char16_t));
  storage[n] = C_CHAR::VOID;
  target->Replace(size, n, &storage);
}

// The n bytes become the target's text, each the character of the same code.
void AssignBytes(C_STRING* target, const char* bytes, int n) {
  if (n <= 0) return;
  int size = 0;
  C_CHAR* storage = LineStorage(target, n, &size);
  if (storage == nullptr) return;
  Widen(reinterpret_cast<const unsigned char*>(bytes), n, qorc::Units(storage));
  storage[n] = C_CHAR::VOID;
  target->Replace(size, n, &storage);
}

// Text in the library code page; characters it lacks become its default character.
bool WriteCodePage(std::FILE* stream, const char16_t* units, int count) {
  const int codePage = qorc::LibraryCodePage();
  char small[512];
  const int needed = qorc::platform::WideToMultiByte(codePage, units, count, nullptr, 0);
  if (needed <= 0) {
    // No converter for the code page: one byte a character, as Latin-1.
    for (int i = 0; i < count; ++i) {
      if (std::fputc(units[i] < 0x100 ? units[i] : '?', stream) == EOF) return false;
    }
    return true;
  }
  char* bytes =
      needed <= static_cast<int>(sizeof small) ? small : qorc::NewArray<char>(static_cast<std::size_t>(needed));
  if (bytes == nullptr) return true;  // the allocation failure is pending
  qorc::platform::WideToMultiByte(codePage, units, count, bytes, needed);
  const bool written =
      std::fwrite(bytes, 1, static_cast<std::size_t>(needed), stream) == static_cast<std::size_t>(needed);
  if (bytes != small) delete[] bytes;
  return written;
}

bool IsAsciiControl(int c) { return c < 0x20 || c == 0x7F; }

bool IsControl(int c) {
  return c < 0x80 ? IsAsciiControl(c) : static_cast<bool>(C_CHAR(static_cast<char16_t>(c)).IsControl());
}

bool IsControlOrSpace(int c) {
  if (c < 0x80) return IsAsciiControl(c) || c == ' ';
  const C_CHAR character(static_cast<char16_t>(c));
  return character.IsControl() || character.IsSpace();
}

int HexDigit(int c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

const C_STRING& Unspecified() {
  static const C_STRING name(u"unspecified");
  return name;
}

}  // namespace

// Raw data --------------------------------------------------------------------------

void C_FILE::Read(int count, void* data, int* got) {
  if (storageStream_ != nullptr) return storageStream_->Read(count, data, got);
  if (got != nullptr) *got = 0;
  if (stream_ == nullptr || count <= 0) return;
  if (IsDirectCompressed()) {
    ReadCompress(count, data, got);
    return;
  }
  const std::size_t read = std::fread(data, 1, static_cast<std::size_t>(count), stream_);
  if (got != nullptr) *got = static_cast<int>(read);
  if (read < static_cast<std::size_t>(count)) ReportReadFailure();
}

void C_FILE::Write(int count, const void* data, int* put) {
  if (storageStream_ != nullptr) return storageStream_->Write(count, data, put);
  if (put != nullptr) *put = 0;
  if (stream_ == nullptr || count <= 0) return;
  if (IsDirectCompressed()) {
    WriteCompress(count, data, put);
    return;
  }
  const std::size_t written = std::fwrite(data, 1, static_cast<std::size_t>(count), stream_);
  if (put != nullptr) *put = static_cast<int>(written);
  if (written < static_cast<std::size_t>(count)) ReportWriteFailure();
}

// Characters ------------------------------------------------------------------------

void C_FILE::Write(char c) {
  if (RefusedOnStorage()) return;
  if (stream_ == nullptr) return;
  if (IsDirectCompressed()) {
    WriteCompress(1, &c, nullptr);
    return;
  }
  if (type_ == UNICODE) {
    const char16_t unit = static_cast<unsigned char>(c);
    WriteUnits(&unit, 1);
    return;
  }
  if (std::fputc(static_cast<unsigned char>(c), stream_) == EOF) ReportWriteFailure();
}

void C_FILE::Write(C_CHAR c) {
  if (RefusedOnStorage()) return;
  if (stream_ == nullptr) return;
  const char16_t unit = c;
  if (type_ == TEXT && coding_) {
    if (c.NeedsCoding()) {
      static const char kHex[] = "0123456789ABCDEF";
      const char escape[5] = {static_cast<char>(0xFF), kHex[(unit >> 12) & 0xF], kHex[(unit >> 8) & 0xF],
                              kHex[(unit >> 4) & 0xF], kHex[unit & 0xF]};
      if (std::fwrite(escape, 1, sizeof escape, stream_) != sizeof escape) ReportWriteFailure();
      return;
    }
    // Coded text is one byte a character, read back as the same code.
    if (std::fputc(unit, stream_) == EOF) ReportWriteFailure();
    return;
  }
  if (IsDirectCompressed()) {
    WriteCompress(2, &unit, nullptr);
    return;
  }
  WriteUnits(&unit, 1);
}

void C_FILE::Read(C_CHAR* c) {
  c->Clear();
  if (RefusedOnStorage()) return;
  if (stream_ == nullptr) return;
  if (IsDirectCompressed()) {
    char16_t unit = 0;
    int got = 0;
    ReadCompress(2, &unit, &got);
    if (got == 2) *c = C_CHAR(unit);
    return;
  }
  if (type_ != TEXT) {
    char16_t unit = 0;
    if (!ReadUnit(stream_, &unit)) {
      ReportReadFailure();
      return;
    }
    if (unit == (swapped_ ? 0x0D00 : kCR) && !ReadUnit(stream_, &unit)) {
      ReportReadFailure();
      return;
    }
    *c = C_CHAR(swapped_ ? Swapped(unit) : unit);
    return;
  }
  if (!coding_) {
    int read = ReadTextChar(stream_);
    if (read == kCR) read = ReadTextChar(stream_);
    if (read < 0) {
      ReportReadFailure();
      return;
    }
    *c = C_CHAR(static_cast<char16_t>(read));
    return;
  }
  int b = std::getc(stream_);
  if (b == '\r') b = std::getc(stream_);
  if (b == EOF) {
    ReportReadFailure();
    return;
  }
  if (b != static_cast<int>(C_CHAR::CODE)) {
    *c = C_CHAR(static_cast<char16_t>(b));
    return;
  }
  unsigned char digits[4];
  if (std::fread(digits, 1, sizeof digits, stream_) != sizeof digits) {
    ReportReadFailure();
    return;
  }
  int code = 0;
  for (unsigned char digit : digits) {
    const int value = HexDigit(digit);
    if (value < 0) {
      CerrFileContainsInvalidCode.TriggerMild(&pathExp_);
      return;
    }
    code = code * 16 + value;
  }
  *c = C_CHAR(static_cast<char16_t>(code));
}

// Strings ----------------------------------------------------------------------------

void C_FILE::WriteUnits(const char16_t* units, int count) {
  if (count <= 0) return;
  bool written = false;
  if (type_ == TEXT) {
    written = WriteCodePage(stream_, units, count);
  } else {
    written = std::fwrite(units, sizeof(char16_t), static_cast<std::size_t>(count), stream_) ==
              static_cast<std::size_t>(count);
  }
  if (!written) ReportWriteFailure();
}

void C_FILE::Write(const char* text) {
  if (text == nullptr || stream_ == nullptr) return;
  if (type_ == UNICODE || IsDirectCompressed()) {
    const C_STRING wide(text);
    if (IsDirectCompressed()) {
      WriteCompress(2 * wide.GetNumber(), wide.GetWCHAR(), nullptr);
    } else {
      WriteUnits(wide.GetWCHAR(), wide.GetNumber());
    }
    return;
  }
  // The bytes as they are, unchecked.
  std::fwrite(text, 1, std::strlen(text), stream_);
}

void C_FILE::Write(const C_STRING& text) {
  if (text.IsVoid() || stream_ == nullptr) return;
  if (type_ == TEXT && coding_) {
    C_STRING coded(text);
    coded.Encode();
    if (C_ERROR::Is()) return;
    // Encoded text is Latin-1 by construction; written unchecked.
    const int count = coded.GetNumber();
    const char16_t* units = coded.GetWCHAR();
    char small[512];
    char* bytes =
        count <= static_cast<int>(sizeof small) ? small : qorc::NewArray<char>(static_cast<std::size_t>(count));
    if (bytes == nullptr) return;
    for (int i = 0; i < count; ++i) bytes[i] = units[i] < 0x100 ? static_cast<char>(units[i]) : '?';
    std::fwrite(bytes, 1, static_cast<std::size_t>(count), stream_);
    if (bytes != small) delete[] bytes;
    return;
  }
  if (IsDirectCompressed()) {
    WriteCompress(2 * text.GetNumber(), text.GetWCHAR(), nullptr);
    return;
  }
  WriteUnits(text.GetWCHAR(), text.GetNumber());
}

// The three forms differ on purpose: UNICODE files have always ended lines
// with CR LF, compressed files written in place with the unit LF, and the
// others with the byte LF.
void C_FILE::WriteEOL() {
  if (RefusedOnStorage()) return;
  if (stream_ == nullptr) return;
  if (type_ == UNICODE) {
    const char16_t end[2] = {kCR, kLF};
    if (std::fwrite(end, sizeof(char16_t), 2, stream_) != 2) ReportWriteFailure();
    return;
  }
  if (IsDirectCompressed()) {
    const char16_t end = kLF;
    WriteCompress(2, &end, nullptr);
    return;
  }
  if (std::fputc('\n', stream_) == EOF) ReportWriteFailure();
}

// Lines --------------------------------------------------------------------------------

void C_FILE::Read(C_STRING* line) {
  line->Clear();
  if (RefusedOnStorage()) return;
  if (stream_ == nullptr) return;
  if (type_ == TEXT && coding_) {
    ReadCodedLine(line);
  } else if (IsDirectCompressed()) {
    ReadDirectLine(line);
  } else {
    ReadStreamLine(line);
  }
}

// CR, LF, CR LF and LF CR each end one line; a line longer than the buffer
// comes back in pieces, with nothing peeked after a full piece.
void C_FILE::ReadCodedLine(C_STRING* line) {
  char bytes[kLineUnits];
  int stop = EOF;
  const int n = qorc::platform::ReadBytesUntil(stream_, bytes, kLineUnits, '\r', '\n', &stop, true);
  if (stop == EOF && n == 0) {
    ReportReadFailure();
    return;
  }
  AssignBytes(line, bytes, n);
  // Only a line holding the code character has escapes to decode.
  if (std::memchr(bytes, static_cast<char16_t>(C_CHAR::CODE), static_cast<std::size_t>(n)) != nullptr) {
    line->Decode();
  }
}

// A CR before the LF stays in the line: lines written in place end with the
// unit LF alone, and a CR there is data.
void C_FILE::ReadDirectLine(C_STRING* line) {
  int n = 0;
  while (n < kLineUnits) {
    char16_t unit;
    if (cursor_ + 2 <= fill_) {
      std::memcpy(&unit, block_ + cursor_, sizeof unit);
      cursor_ += 2;
    } else {
      int got = 0;
      ReadCompress(2, &unit, &got);
      // The error is pending; the line is given up.
      if (got != 2) return;
    }
    if (unit == kLF) break;
    g_line[n++] = unit;
  }
  Assign(line, g_line, n);
}

// Line ends are found in the file's own byte order.
void C_FILE::ReadStreamLine(C_STRING* line) {
  int n = 0;
  if (type_ == TEXT) {
    n = ReadTextLine(stream_, g_line, kWideLineUnits, true);
  } else {
    n = qorc::platform::ReadUnitsUntil(stream_, g_line, kWideLineUnits, swapped_ ? Swapped(kLF) : kLF);
    if (swapped_) {
      for (int i = 0; i < n; ++i) g_line[i] = Swapped(g_line[i]);
    }
  }
  if (n == 0) {
    ReportReadFailure();
    return;
  }
  Assign(line, g_line, WithoutLineEnd(g_line, n));
}

// Tokens ---------------------------------------------------------------------------------

void C_FILE::ReadToken(C_STRING* token) { ReadTokenUntil(token, true); }

void C_FILE::ReadTokenSpace(C_STRING* token) { ReadTokenUntil(token, false); }

int C_FILE::ReadTokenChar() {
  if (IsDirectCompressed()) {
    char16_t unit = 0;
    int got = 0;
    ReadCompress(2, &unit, &got);
    return got == 2 ? unit : -1;
  }
  int c = -1;
  if (type_ == TEXT) {
    c = ReadTextChar(stream_);
  } else {
    char16_t unit = 0;
    if (ReadUnit(stream_, &unit)) c = swapped_ ? Swapped(unit) : unit;
  }
  if (c < 0) ReportReadFailure();
  return c;
}

// Tokens are never decoded: coded-text escapes stay in them as written. A
// token that the end of the file cuts keeps what was read, with the read
// failure pending.
void C_FILE::ReadTokenUntil(C_STRING* token, bool spaceEnds) {
  token->Clear();
  if (RefusedOnStorage()) return;
  if (stream_ == nullptr) return;
  int c = 0;
  do {
    c = ReadTokenChar();
    if (c < 0) return;
  } while (IsControlOrSpace(c));
  const bool quoted = c == '"';
  if (quoted && (c = ReadTokenChar()) < 0) return;
  for (;;) {
    if (c == '\\') {
      // The character after a backslash is kept whatever it is.
      token->Append(C_CHAR(static_cast<char16_t>(c)));
      if ((c = ReadTokenChar()) < 0) return;
    } else if (quoted ? c == '"' : (spaceEnds ? IsControlOrSpace(c) : IsControl(c))) {
      if (!IsDirectCompressed() && std::ferror(stream_)) CerrFileCannotRead.TriggerMild(&pathExp_);
      return;
    }
    token->Append(C_CHAR(static_cast<char16_t>(c)));
    if ((c = ReadTokenChar()) < 0) return;
  }
}

// Formatted values ---------------------------------------------------------------------------

namespace {

using qorc::FormatValue;

// Formats into a buffer of `first` characters, doubled while the text does
// not fit. A text beyond the longest string leaves CerrValueTooHigh pending.
C_STRING FormatHere(const C_STRING& format, const FormatValue* values, int count, int first) {
  C_STRING text;
  int capacity = first;
  for (;;) {
    if (capacity > C_STRING::MAX_SIZE) capacity = C_STRING::MAX_SIZE;
    C_CHAR* buffer = qorc::NewArray<C_CHAR>(static_cast<std::size_t>(capacity));
    if (buffer == nullptr) return text;
    const int length =
        qorc::FormatMany(format.GetWCHAR(), format.GetNumber(), values, count, qorc::Units(buffer), capacity);
    if (length < capacity) {
      text.Replace(capacity, length, &buffer);
      return text;
    }
    delete[] buffer;
    if (capacity == C_STRING::MAX_SIZE) {
      CerrValueTooHigh.Trigger();
      return text;
    }
    capacity *= 2;
  }
}

// The values by the format, in a first buffer of the format's length and
// `perValue` characters more for each value.
template <typename... T>
C_STRING FormatValues(const C_STRING& format, int perValue, T... values) {
  const FormatValue list[] = {FormatValue::Of(values)...};
  const int count = static_cast<int>(sizeof...(T));
  return FormatHere(format, list, count, format.GetNumber() + perValue * count);
}

}  // namespace

void C_FILE::WriteFormatted(const C_STRING& text) {
  if (RefusedOnStorage()) return;
  if (C_ERROR::Is()) return;
  Write(text);
}

void C_FILE::Write(int value, const C_STRING& format) { WriteFormatted(C_STRING(value, format)); }

void C_FILE::Write(int a, int b, const C_STRING& format) { WriteFormatted(FormatValues(format, 15, a, b)); }

void C_FILE::Write(int a, int b, int c, const C_STRING& format) { WriteFormatted(FormatValues(format, 15, a, b, c)); }

void C_FILE::Write(int a, int b, int c, int d, const C_STRING& format) {
  WriteFormatted(FormatValues(format, 15, a, b, c, d));
}

void C_FILE::Write(long long value, const C_STRING& format) { WriteFormatted(C_STRING(value, format)); }

void C_FILE::Write(unsigned long long value, int a, int b, const C_STRING& format) {
  WriteFormatted(FormatValues(format, 15, static_cast<long long>(value), a, b));
}

void C_FILE::Write(double value, const C_STRING& format) { WriteFormatted(C_STRING(value, format)); }

void C_FILE::Write(double a, double b, const C_STRING& format) { WriteFormatted(FormatValues(format, 20, a, b)); }

void C_FILE::Write(double a, double b, double c, const C_STRING& format) {
  WriteFormatted(FormatValues(format, 20, a, b, c));
}

void C_FILE::Write(double a, double b, double c, double d, const C_STRING& format) {
  WriteFormatted(FormatValues(format, 20, a, b, c, d));
}

void C_FILE::Write(const C_STRING& text, const C_STRING& format) { WriteFormatted(C_STRING(text, format)); }

// Bare streams ----------------------------------------------------------------------------------

void C_FILE::WriteFile(std::FILE* stream, const C_STRING& text) {
  if (stream == nullptr || text.IsVoid()) return;
  if (!WriteCodePage(stream, text.GetWCHAR(), text.GetNumber()) || std::ferror(stream)) {
    if (qorc::platform::LastFailureWasNoSpace()) {
      CerrFileNotEnoughSpace.TriggerMild(&Unspecified());
    } else {
      CerrFileCannotWrite.TriggerMild(&Unspecified());
    }
  }
}

void C_FILE::ReadFile(std::FILE* stream, C_STRING* line) {
  line->Clear();
  if (stream == nullptr) return;
  const int n = ReadTextLine(stream, g_fileLine, kWideLineUnits, false);
  if (n == 0) {
    if (std::ferror(stream)) {
      CerrFileCannotRead.TriggerMild(&Unspecified());
    } else {
      CerrFileEndReached.TriggerMild(&Unspecified());
    }
    return;
  }
  Assign(line, g_fileLine, WithoutLineEnd(g_fileLine, n));
}
