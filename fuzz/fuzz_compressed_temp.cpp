// Compressed files decompressed through a temporary file when opened.
#include <string>
#include <vector>

#include "file_fuzz_support.h"

QORC_FUZZ_INITIALIZE

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = ScratchPath("temp.qz");
  std::string bytes;
  if (size == 0 || (data[0] & 7) != 0) bytes = C_FILE::COMPRESS_MAGIC;
  bytes.append(reinterpret_cast<const char*>(data), size);
  WriteScratch(path, bytes.data(), bytes.size());
  C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::COMPRESSED);
  C_ERROR::ClearPending();
  std::vector<char> buffer(65536);
  for (int i = 0; i < 64 && !C_ERROR::Is(); ++i) file.Read(static_cast<int>(buffer.size()), buffer.data());
  C_ERROR::ClearPending();
  file.Rewind();
  C_STRING line;
  for (int i = 0; i < 64 && !C_ERROR::Is(); ++i) file.Read(&line);
  C_ERROR::ClearPending();
  return 0;
}
