// The process environment through the C runtime, with UTF-8 names and values.
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "platform/environment.h"
#include "platform/text.h"

namespace qorc::platform {
namespace {

constexpr int kUtf8 = 65001;

std::string Utf8(const std::u16string& text) {
  const int count = static_cast<int>(text.size());
  const int length = WideToMultiByte(kUtf8, text.data(), count, nullptr, 0);
  std::string out(static_cast<std::size_t>(length > 0 ? length : 0), '\0');
  WideToMultiByte(kUtf8, text.data(), count, out.data(), static_cast<int>(out.size()));
  return out;
}

std::u16string Utf16(const char* text) {
  const int count = static_cast<int>(std::strlen(text));
  const int length = MultiByteToWide(kUtf8, text, count, nullptr, 0);
  std::u16string out(static_cast<std::size_t>(length > 0 ? length : 0), u'\0');
  MultiByteToWide(kUtf8, text, count, out.data(), static_cast<int>(out.size()));
  return out;
}

}  // namespace

bool ReadEnvironmentVariable(const std::u16string& name, std::u16string* value) {
  try {
    const char* found = std::getenv(Utf8(name).c_str());
    if (found == nullptr) return false;
    *value = Utf16(found);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool WriteEnvironmentVariable(const std::u16string& name, const std::u16string& value) {
  if (name.empty() || name.find(u'=') != std::u16string::npos) return false;
  try {
    const std::string native = Utf8(name);
    if (value.empty()) return unsetenv(native.c_str()) == 0;
    return setenv(native.c_str(), Utf8(value).c_str(), 1) == 0;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace qorc::platform
