// Decoding of coded text: wide text with escapes, and coded 8-bit lines.
#include <cstdlib>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Prepare();
  if (size == 0) return 0;
  const std::u16string units = fuzz::Units(data + 1, size - 1);
  C_STRING text = fuzz::MakeString(units);
  if (data[0] & 1) {
    text.Decode();
    if (text.GetNumber() > static_cast<int>(units.size())) std::abort();
  } else {
    // Coding then decoding gives the text back.
    const C_STRING original(text);
    text.Encode();
    if (!C_ERROR::Is()) {
      for (int i = 0; i < text.GetNumber(); ++i) {
        if (text.Get(i) > C_CHAR(0x00FF)) std::abort();
      }
      text.Decode();
      if (!(text == original)) std::abort();
    }
  }
  // The same bytes as a coded 8-bit line.
  std::string line(reinterpret_cast<const char*>(data), size);
  line.resize(std::strlen(line.c_str()));
  C_STRING fromLine;
  fromLine.Decode(line.c_str());
  if (fromLine.GetNumber() > static_cast<int>(line.size())) std::abort();
  return 0;
}
