// Mixed numbers and fractions.
#include <cstdlib>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Prepare();
  const C_STRING text = fuzz::MakeString(fuzz::Units(data, size));
  double result = -1.0;
  C_STRING::ConvertFraction(text, &result);
  if (result == -1.0 && text.Search(C_CHAR(u'-')) < 0) std::abort();  // always written
  return 0;
}
