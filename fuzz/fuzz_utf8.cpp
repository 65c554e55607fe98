// Reading UTF-8 text, then writing it back.
#include <cstdlib>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Prepare();
  std::string bytes(reinterpret_cast<const char*>(data), size);
  C_STRING text;
  text.FromUTF8(bytes.c_str());
  if (C_ERROR::Is()) return 0;
  if (text.GetNumber() > static_cast<int>(std::strlen(bytes.c_str()))) std::abort();
  // A sequence cut by the end of the text reads its missing bytes as zeros,
  // so the text may hold U+0000, which ends the UTF-8 written back.
  for (int i = 0; i < text.GetNumber(); ++i) {
    if (text.Get(i) == C_CHAR::VOID) return 0;
  }
  char* back = text.GetNewUTF8();
  if (back != nullptr) {
    // Text written by the library reads back unchanged.
    C_STRING again;
    again.FromUTF8(back);
    if (!C_ERROR::Is() && !(again == text)) std::abort();
    delete[] back;
  }
  return 0;
}
