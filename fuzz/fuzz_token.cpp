// Reading every token of a line, as a host splits a command line.
#include <cstdlib>

#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Prepare();
  const C_STRING line = fuzz::MakeString(fuzz::Units(data, size));
  C_STRING token;
  int start = 0;
  for (;;) {
    int end = -1;
    line.ScanToken(&token, start, &end);
    if (end < start || end > line.GetNumber()) std::abort();
    if (token.GetNumber() > end - start) std::abort();
    if (end == start || end >= line.GetNumber()) break;
    start = end;
  }
  return 0;
}
