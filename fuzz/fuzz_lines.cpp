// Line, token and character reading of every kind of file: coded and plain
// TEXT in two code pages, UNICODE in both byte orders, BINARY, and
// compressed in place. The first byte of the input chooses.
#include <string>

#include "file_fuzz_support.h"
#include "foundation/library.h"

QORC_FUZZ_INITIALIZE

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = ScratchPath("lines");
  if (size == 0) return 0;
  const int choice = data[0] % 8;
  const int operations = data[0] / 8;
  const std::string body(reinterpret_cast<const char*>(data + 1), size - 1);
  C_FILE::TYPE type = C_FILE::TEXT;
  int mode = C_FILE::READ;
  bool coding = true;
  std::string bytes;
  switch (choice) {
    case 0:
      bytes = body;
      break;
    case 1:
      bytes = body;
      coding = false;
      qorc::SetLibraryCodePage(65001);
      break;
    case 2:
      bytes = body;
      coding = false;
      qorc::SetLibraryCodePage(932);
      break;
    case 3:
      bytes = "\xFF\xFE" + body;
      type = C_FILE::UNICODE;
      break;
    case 4:
      bytes = "\xFE\xFF" + body;
      type = C_FILE::UNICODE;
      break;
    case 5:
      bytes = body;
      type = C_FILE::BINARY;
      break;
    case 6:
      bytes = body;
      type = C_FILE::AUTO;
      break;
    default:
      type = C_FILE::COMPRESSED;
      mode = C_FILE::READ | C_FILE::DIRECT;
      break;
  }
  if (type == C_FILE::COMPRESSED) {
    C_FILE writer(LibraryPath(path), C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    writer.Write(static_cast<int>(body.size()), body.data());
  } else {
    WriteScratch(path, bytes.data(), bytes.size());
  }
  C_ERROR::ClearPending();
  {
    C_FILE file(LibraryPath(path), mode, type);
    file.SetCoding(coding);
    C_ERROR::ClearPending();
    C_STRING text;
    C_CHAR c;
    for (int i = 0; i < 10000; ++i) {
      switch ((operations + i) % 4) {
        case 0:
          file.Read(&text);
          break;
        case 1:
          file.ReadToken(&text);
          break;
        case 2:
          file.ReadTokenSpace(&text);
          break;
        default:
          file.Read(&c);
          break;
      }
      if (C_ERROR::Is()) {
        const bool end = CerrFileEndReached.IsPending();
        C_ERROR::ClearPending();
        if (end) break;
      }
    }
    if (mode == C_FILE::READ) file.GetLine();
    C_ERROR::ClearPending();
  }
  qorc::SetLibraryCodePage(65001);
  return 0;
}
