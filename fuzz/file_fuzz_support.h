// Shared by the file fuzz targets: the library opened once, and the input
// written to a scratch file that the target opens with C_FILE.
#ifndef QORC_FUZZ_FILE_FUZZ_SUPPORT_H
#define QORC_FUZZ_FILE_FUZZ_SUPPORT_H

#include <qorc/qorc.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

inline std::string ScratchPath(const char* name) { return "/tmp/qorc-fuzz-" + std::to_string(getpid()) + "-" + name; }

inline void WriteScratch(const std::string& path, const void* data, std::size_t size) {
  std::FILE* out = std::fopen(path.c_str(), "wb");
  if (out == nullptr) return;
  if (size > 0) std::fwrite(data, 1, size, out);
  std::fclose(out);
}

inline C_STRING LibraryPath(const std::string& path) { return C_STRING(path.c_str()); }

#define QORC_FUZZ_INITIALIZE                           \
  extern "C" int LLVMFuzzerInitialize(int*, char***) { \
    Copen();                                           \
    return 0;                                          \
  }

#endif
