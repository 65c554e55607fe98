#include "string/format.h"

#include <cstdint>
#include <cstdio>
#include <new>
#include <string>

#include <qorc/error.h>

namespace qorc {
namespace {

// Collects the output, counting what does not fit.
class Sink {
 public:
  Sink(char16_t* out, int capacity) : out_(out), capacity_(capacity) {}
  void Put(char16_t c) {
    if (length_ + 1 < capacity_) out_[length_] = c;
    ++length_;
  }
  void PutRepeated(char16_t c, int count) {
    for (int i = 0; i < count; ++i) Put(c);
  }
  void PutNarrow(const char* text, int count) {
    for (int i = 0; i < count; ++i) Put(static_cast<unsigned char>(text[i]));
  }
  int Finish() {
    if (capacity_ > 0) out_[length_ < capacity_ ? length_ : capacity_ - 1] = 0;
    return length_;
  }

 private:
  char16_t* out_;
  int capacity_;
  int length_ = 0;
};

struct Directive {
  std::string flags;
  int width = -1;
  int precision = -1;
  enum class Size { Default, Short, Long, LongLong } size = Size::Default;
  char conversion = 0;
};

bool IsDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

// Reads a number of at most five digits (larger widths are clamped).
int ReadCount(const char16_t* format, int length, int& i) {
  int value = 0;
  while (i < length && IsDigit(format[i])) {
    if (value < 100000) value = value * 10 + (format[i] - u'0');
    ++i;
  }
  return value;
}

// Parses the directive after '%'; false when it is not a complete one.
bool ParseDirective(const char16_t* format, int length, int& i, Directive& d) {
  while (i < length && (format[i] == u'-' || format[i] == u'+' || format[i] == u' ' || format[i] == u'#' ||
                        format[i] == u'0')) {
    d.flags += static_cast<char>(format[i]);
    ++i;
  }
  if (i < length && format[i] == u'*') {
    ++i;  // no value is there for a starred width
  } else if (i < length && IsDigit(format[i])) {
    d.width = ReadCount(format, length, i);
  }
  if (i < length && format[i] == u'.') {
    ++i;
    d.precision = 0;
    if (i < length && format[i] == u'*') {
      ++i;
    } else {
      d.precision = ReadCount(format, length, i);
    }
  }
  while (i < length) {
    const char16_t c = format[i];
    if (c == u'I' && i + 2 < length && format[i + 1] == u'6' && format[i + 2] == u'4') {
      d.size = Directive::Size::LongLong;
      i += 3;
    } else if (c == u'I' && i + 2 < length && format[i + 1] == u'3' && format[i + 2] == u'2') {
      d.size = Directive::Size::Default;
      i += 3;
    } else if (c == u'l') {
      d.size = d.size == Directive::Size::Long ? Directive::Size::LongLong : Directive::Size::Long;
      ++i;
    } else if (c == u'h') {
      d.size = Directive::Size::Short;
      ++i;
    } else if (c == u'L' || c == u'w' || c == u'q' || c == u'j' || c == u'z' || c == u't' || c == u'I') {
      if (c == u'q' || c == u'j' || c == u'L') d.size = Directive::Size::LongLong;
      ++i;
    } else {
      break;
    }
  }
  if (i >= length) return false;
  const char16_t conversion = format[i++];
  if (conversion > 0x7F) return false;
  d.conversion = static_cast<char>(conversion);
  return true;
}

// Integer conversions read as many bits as the directive names, as a
// variadic call would: a 32-bit directive sees the low 32 bits of the value.
long long IntegerFor(const Directive& d, const FormatValue& value) {
  long long v = value.kind == FormatValue::Kind::Real ? static_cast<long long>(value.real) : value.integer;
  const bool isSigned = d.conversion == 'd' || d.conversion == 'i';
  switch (d.size) {
    case Directive::Size::LongLong: return v;
    case Directive::Size::Short:
      return isSigned ? static_cast<long long>(static_cast<int16_t>(v)) : static_cast<long long>(static_cast<uint16_t>(v));
    default:
      return isSigned ? static_cast<long long>(static_cast<int32_t>(v)) : static_cast<long long>(static_cast<uint32_t>(v));
  }
}

std::string NarrowSpec(const Directive& d, const char* length, char conversion) {
  std::string narrowFormat = "%" + d.flags;
  if (d.width >= 0) narrowFormat += std::to_string(d.width);
  if (d.precision >= 0) narrowFormat += "." + std::to_string(d.precision);
  narrowFormat += length;
  narrowFormat += conversion;
  return narrowFormat;
}

template <typename T>
void PutPrintf(Sink& sink, const std::string& narrowFormat, T v) {
  char small[128];
  const int needed = std::snprintf(small, sizeof small, narrowFormat.c_str(), v);
  if (needed < 0) return;
  if (needed < static_cast<int>(sizeof small)) {
    sink.PutNarrow(small, needed);
    return;
  }
  std::string large(static_cast<std::size_t>(needed) + 1, '\0');
  std::snprintf(large.data(), large.size(), narrowFormat.c_str(), v);
  sink.PutNarrow(large.data(), needed);
}

void PutPadded(Sink& sink, const Directive& d, const char16_t* text, int count) {
  if (d.precision >= 0 && d.precision < count) count = d.precision;
  const int padding = d.width > count ? d.width - count : 0;
  const bool left = d.flags.find('-') != std::string::npos;
  if (!left) sink.PutRepeated(u' ', padding);
  for (int i = 0; i < count; ++i) sink.Put(text[i]);
  if (left) sink.PutRepeated(u' ', padding);
}

void PutDirective(Sink& sink, const Directive& d, const FormatValue& value) {
  switch (d.conversion) {
    case 'd': case 'i': case 'u': case 'o': case 'x': case 'X':
      if (value.kind == FormatValue::Kind::Text) return;
      PutPrintf(sink, NarrowSpec(d, "ll", d.conversion), IntegerFor(d, value));
      return;
    case 'e': case 'E': case 'f': case 'F': case 'g': case 'G': case 'a': case 'A': {
      if (value.kind == FormatValue::Kind::Text) return;
      const double v = value.kind == FormatValue::Kind::Real ? value.real : static_cast<double>(value.integer);
      PutPrintf(sink, NarrowSpec(d, "", d.conversion), v);
      return;
    }
    case 'c': case 'C': {
      if (value.kind == FormatValue::Kind::Text) return;
      const char16_t c = static_cast<char16_t>(value.kind == FormatValue::Kind::Real ? static_cast<long long>(value.real)
                                                                                        : value.integer);
      Directive noPrecision = d;
      noPrecision.precision = -1;
      PutPadded(sink, noPrecision, &c, 1);
      return;
    }
    case 's': case 'S':
      if (value.kind == FormatValue::Kind::Text) PutPadded(sink, d, value.text, value.textLength);
      return;
    case 'p':
      PutPrintf(sink, NarrowSpec(d, "ll", 'X'), value.integer);
      return;
    default:
      return;  // %n writes nothing anywhere; unknown conversions produce nothing
  }
}

}  // namespace

namespace {

int FormatInto(const char16_t* format, int formatLength, const FormatValue* values, int count, char16_t* out,
               int capacity) {
  Sink sink(out, capacity);
  int consumed = 0;
  int i = 0;
  while (i < formatLength) {
    const char16_t c = format[i++];
    if (c != u'%') {
      sink.Put(c);
      continue;
    }
    if (i < formatLength && format[i] == u'%') {
      sink.Put(u'%');
      ++i;
      continue;
    }
    const int start = i - 1;
    Directive d;
    if (!ParseDirective(format, formatLength, i, d)) {
      // An incomplete directive stands for itself.
      for (int k = start; k < i; ++k) sink.Put(format[k]);
      continue;
    }
    if (consumed < count) PutDirective(sink, d, values[consumed]);
    ++consumed;
  }
  return sink.Finish();
}

}  // namespace

int FormatOne(const char16_t* format, int formatLength, const FormatValue& value, char16_t* out, int capacity) {
  return FormatMany(format, formatLength, &value, 1, out, capacity);
}

int FormatMany(const char16_t* format, int formatLength, const FormatValue* values, int count, char16_t* out,
               int capacity) {
  try {
    return FormatInto(format, formatLength, values, count, out, capacity);
  } catch (const std::bad_alloc&) {
    // Wide fields are formatted through a heap buffer: no memory, no text.
    CerrMemoryFull.Trigger();
    if (capacity > 0) out[0] = 0;
    return 0;
  }
}

}  // namespace qorc
