// Arbitrary lock files read through GetLockers and IsLocked, each entry
// judged by IsLockerAlive; with the first byte odd, the caller also locks
// and unlocks, rewriting the damaged file.
#include <string>

#include "file_fuzz_support.h"

QORC_FUZZ_INITIALIZE

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string document = ScratchPath("lock.dat");
  static const std::string lockFile = document + ".lck";
  const bool rewrite = size > 0 && (data[0] & 1) != 0;
  WriteScratch(lockFile, data, size);
  const C_STRING path = LibraryPath(document);
  C_ERROR::ClearPending();
  int count = 0;
  C_STRING* lockers = nullptr;
  C_FILE::GetLockers(path, &count, &lockers);
  if ((count == 0) != (lockers == nullptr)) __builtin_trap();
  for (int i = 0; i < count; ++i) {
    C_FILE::IsLockerAlive(lockers[i]);
    if (C_ERROR::Is()) __builtin_trap();
  }
  delete[] lockers;
  C_ERROR::ClearPending();
  C_FILE::IsLocked(path);
  C_ERROR::ClearPending();
  if (rewrite) {
    C_FILE::Lock(path);
    C_FILE::Unlock(path);
    C_ERROR::ClearPending();
  }
  return 0;
}
