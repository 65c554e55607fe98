// Shielded blocks read from files, plain and compressed in place; the first
// two bytes of the input give the byte count the reader expects.
#include <string>
#include <vector>

#include "file_fuzz_support.h"

QORC_FUZZ_INITIALIZE

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = ScratchPath("shielded");
  if (size < 2) return 0;
  const int n = (data[0] | data[1] << 8) % 20000;
  const char* body = reinterpret_cast<const char*>(data + 2);
  const int length = static_cast<int>(size - 2);
  std::vector<unsigned char> out(static_cast<std::size_t>(n) + 1);
  WriteScratch(path, body, static_cast<std::size_t>(length));
  {
    C_FILE file(LibraryPath(path), C_FILE::READ, (data[0] & 1) ? C_FILE::TEXT : C_FILE::BINARY);
    int decoded = 0, read = 0;
    file.ReadShielded(n, out.data(), &decoded, &read);
    if (decoded > n || read > length) __builtin_trap();
    C_ERROR::ClearPending();
  }
  {
    C_FILE writer(LibraryPath(path), C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    writer.Write(length, body);
  }
  C_ERROR::ClearPending();
  C_FILE file(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
  int decoded = 0;
  file.ReadShielded(n, out.data(), &decoded, nullptr);
  if (decoded > n) __builtin_trap();
  C_ERROR::ClearPending();
  return 0;
}
