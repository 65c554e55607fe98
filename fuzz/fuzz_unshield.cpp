// Shielded text from files and users: the string form and the file form.
#include <qorc/qorc.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "file/shielding_code.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Copen();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  void* decoded = nullptr;
  int n = 0;
  CastrUnshieldData(text.c_str(), static_cast<int>(text.size()), &decoded, &n);
  std::free(decoded);
  CastrUnshieldData(text.c_str(), -1, &decoded, &n);
  std::free(decoded);
  C_ERROR::ClearPending();

  // The file form, decoding as many bytes as the block could hold.
  const int wanted = static_cast<int>(size * 3 / 4) + 3;
  std::vector<unsigned char> out(static_cast<std::size_t>(wanted));
  bool invalid = false;
  qorc::shield::DecodeFileBlock(text.data(), static_cast<int>(size), wanted, out.data(), &invalid);
  return 0;
}
