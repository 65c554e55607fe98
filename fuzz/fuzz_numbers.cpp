// The number readers, from every position of the text.
#include <cstdlib>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Prepare();
  if (size == 0) return 0;
  const C_STRING text = fuzz::MakeString(fuzz::Units(data + 1, size - 1));
  const int length = text.GetNumber();
  const int start = static_cast<int>(data[0] % 8) - 2;  // before, inside and past the text
  int end = -1;
  int value = 0;
  long long wide = 0;
  text.HasInt(start, &value, &end);
  if (end < start || end > (length > start ? length : start)) std::abort();
  text.HasLong(start, &wide, &end);
  if (end < start || end > (length > start ? length : start)) std::abort();
  text.ScanInt(start, &end);
  text.ScanLong(start, &end);
  text.ScanReal(start, &end);
  if (end < start || end > (length > start ? length : start)) std::abort();
  C_ERROR::ClearPending();
  text.IsInt();
  text.IsHexa();
  text.ToInt();
  text.ToReal();
  text.HexaToInt();
  text.HexaToLong();
  C_ERROR::ClearPending();
  return 0;
}
