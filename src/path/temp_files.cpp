// Temporary files in the platform's temporary directory, named qor0000.tmp
// to qorFFFF.tmp.
#include <qorc/file.h>

#include "platform/filesystem.h"

C_STRING C_FILE::GetTempFilePath() {
  const C_STRING dir = GetTempDir();
  if (C_ERROR::Is()) {
    C_ERROR::ClearPending();
    return C_STRING();
  }
  const C_STRING format(u"qor%04X.tmp");
  for (int n = 0; n <= 0xFFFF; ++n) {
    C_STRING name(dir);
    name += C_STRING(n, format);
    if (C_ERROR::Is()) return C_STRING();
    // The name is not reserved: another process may be given it too.
    if (!Exists(name)) return name;
  }
  return C_STRING();
}

// Another process may take the free name between the look and the exclusive
// creation; the next free name is tried then, a few times over.
std::FILE* C_FILE::CreateTempFile() {
  constexpr int kAttempts = 8;
  C_STRING name;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    name = GetTempFilePath();
    if (C_ERROR::Is()) return nullptr;
    if (std::FILE* stream = qorc::platform::CreateDeleteOnCloseFile(name.GetWCHAR())) return stream;
  }
  CerrFileCannotCreateTemporary.TriggerMild(&name);
  return nullptr;
}
