// Library start and stop, the process-wide switches and the library code page.
#include "foundation/library.h"

#include <new>

#include <qorc/types.h>

#include "device/regkey_internal.h"
#include "math/generators.h"
#include "path/roots.h"
#include "platform/clock.h"
#include "platform/text.h"

C_BOOL CcharMBCS;
C_BOOL CcharUnicode;
C_BOOL CfileManageIndex;
int CfileCompressThreads = 1;

namespace qorc {
namespace {

int g_libraryCodePage = 0;

// A failed object allocation leaves CerrMemoryFull pending; throwing lets the
// library's non-throwing allocations yield null instead of retrying.
void AllocationFailureHook() {
  CerrMemoryFull.Trigger();
  throw std::bad_alloc();
}

void DestroyErrorContext() {
  delete[] C_ERROR::ContextStrings;
}

}  // namespace

int LibraryCodePage() { return g_libraryCodePage; }
void SetLibraryCodePage(int codePage) { g_libraryCodePage = codePage; }
int OemCodePage() {
  return platform::OemCodePageFor(g_libraryCodePage != 0 ? g_libraryCodePage : platform::SystemAnsiCodePage());
}

}  // namespace qorc

void Copen() {
  std::set_new_handler(qorc::AllocationFailureHook);

  const unsigned int seed = static_cast<unsigned int>(qorc::platform::CurrentTimeSeconds());
  qorc::SeedRuntimeRand(seed);
  qorc::SeedIntRand(seed);

  qorc::platform::ApplyEnvironmentLocale();
  qorc::SetLibraryCodePage(qorc::platform::SystemAnsiCodePage());

  // Every code page, single-byte ones included, goes through the multibyte path.
  CcharMBCS = true;
  CcharUnicode = qorc::platform::WideFileNames();
}

// A one-way step: no operation of the library may be called afterwards. The
// error context's pointer and counts are left as they are; the root tables
// come back empty, so a stray path expansion finds no root instead of freed
// memory.
void Cclose() {
  // Temporary files of the library are unlinked as soon as they are created,
  // so none can be left behind here.
  qorc::DestroyRootTables();
  qorc::CloseSettings();
  qorc::DestroyErrorContext();
}
