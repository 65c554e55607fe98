// Compressed files read in place: blocks, the block table, positioning and
// the check, on hostile bytes behind the magic.
#include <cstring>
#include <string>
#include <vector>

#include "file_fuzz_support.h"

QORC_FUZZ_INITIALIZE

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = ScratchPath("direct.qz");
  // Most inputs get the magic, so that the records behind it are reached.
  std::string bytes;
  if (size == 0 || (data[0] & 7) != 0) bytes = C_FILE::COMPRESS_MAGIC;
  bytes.append(reinterpret_cast<const char*>(data), size);
  WriteScratch(path, bytes.data(), bytes.size());
  {
    C_FILE file(LibraryPath(path), C_FILE::READ | C_FILE::DIRECT, C_FILE::COMPRESSED);
    std::vector<char> buffer(70000);
    // Sequential reading, then positions taken from the input.
    for (int i = 0; i < 64 && !C_ERROR::Is(); ++i) file.Read(static_cast<int>(buffer.size()), buffer.data());
    C_ERROR::ClearPending();
    for (std::size_t i = 0; i + 4 <= size && i < 64; i += 4) {
      long long position = 0;
      std::memcpy(&position, data + i, 4);
      if (data[i] & 1) position = position * 31 - 1000;
      file.SetPosit(position);
      file.GetPosit();
      int got = 0;
      file.Read(static_cast<int>(data[i + 1]) * 257 + 1, buffer.data(), &got);
      C_STRING line;
      if (data[i + 2] & 1) file.Read(&line);
      if (data[i + 2] & 2) file.ReadToken(&line);
      if (data[i + 2] & 4) file.Rewind();
      C_ERROR::ClearPending();
    }
    file.GetSize();
    C_ERROR::ClearPending();
  }
  C_FILE::CheckCompression(LibraryPath(path));
  C_ERROR::ClearPending();
  return 0;
}
