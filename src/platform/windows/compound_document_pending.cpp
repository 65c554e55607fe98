// Compound documents on Windows are the system's structured storage (OLE32);
// until that side of the seam is built, no document opens or is written.
#include "platform/compound_document.h"
#include "platform/windows/win32.h"

namespace qorc::platform {

FileIdentity IdentifyFile(const char16_t* path) {
  FileIdentity identity;
  windows::HandleGuard file(::CreateFileW(windows::Wide(path), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                          nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  BY_HANDLE_FILE_INFORMATION information;
  if (!file.valid() || !::GetFileInformationByHandle(file.get(), &information)) return identity;
  identity.device = information.dwVolumeSerialNumber;
  identity.inode = (static_cast<unsigned long long>(information.nFileIndexHigh) << 32) | information.nFileIndexLow;
  identity.size = static_cast<long long>((static_cast<unsigned long long>(information.nFileSizeHigh) << 32) |
                                         information.nFileSizeLow);
  identity.modified = windows::FileTimeTicks(information.ftLastWriteTime) * 100;
  return identity;
}

std::unique_ptr<CompoundEntry> OpenCompoundDocument(const char16_t*, FileIdentity* identity) {
  *identity = FileIdentity();
  return nullptr;
}

std::unique_ptr<CompoundWriter> CreateCompoundWriter(const char16_t*, const unsigned char[16]) { return nullptr; }

}  // namespace qorc::platform
