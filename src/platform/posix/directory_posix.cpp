// Directory enumeration on POSIX: every entry of a directory, as readdir
// gives them.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "platform/directory.h"
#include "platform/posix/native_path.h"

namespace qorc::platform {
namespace {

using posix::NativePath;

// Appends a name from the file system to the text; file names are mostly
// ASCII, which needs no converter.
void AppendName(const char* native, std::u16string* text) {
  const std::size_t start = text->size();
  const std::size_t length = std::strlen(native);
  text->resize(start + length);
  char16_t* out = &(*text)[start];
  for (std::size_t i = 0; i < length; ++i) {
    const unsigned char c = static_cast<unsigned char>(native[i]);
    if (c >= 0x80) {
      text->resize(start);
      *text += posix::LibraryPath(native);
      return;
    }
    out[i] = c;
  }
}

bool IsDirectoryEntry(int dirFd, const struct dirent* entry) {
  if (entry->d_type == DT_DIR) return true;
  if (entry->d_type != DT_LNK && entry->d_type != DT_UNKNOWN) return false;
  // Links are what they point to; a link that leads nowhere (missing
  // target, a loop) is a file.
  struct stat status;
  return ::fstatat(dirFd, entry->d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

bool ListDirectory(const char16_t* dir, DirectoryListing* out) {
  out->names.clear();
  out->entries.clear();
  try {
    const std::string nativeDir = NativePath(dir);
    if (nativeDir.empty()) return false;
    DIR* stream = ::opendir(nativeDir.c_str());
    if (stream == nullptr) return false;
    const int dirFd = ::dirfd(stream);
    out->names.reserve(8192);
    // A directory removed while it is read simply ends the listing; what was
    // read until then is kept.
    while (const struct dirent* entry = ::readdir(stream)) {
      const std::size_t offset = out->names.size();
      AppendName(entry->d_name, &out->names);
      out->entries.push_back(DirectoryEntry{offset, out->names.size() - offset, IsDirectoryEntry(dirFd, entry)});
    }
    ::closedir(stream);
    return true;
  } catch (const std::bad_alloc&) {
    out->names.clear();
    out->entries.clear();
    return false;
  }
}

bool MakeDirectory(const char16_t* path) {
  try {
    const std::string native = NativePath(path);
    return !native.empty() && ::mkdir(native.c_str(), 0777) == 0;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool IdentifyDirectory(const char16_t* path, DirectoryIdentity* identity) {
  try {
    struct stat status;
    if (::stat(NativePath(path).c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return false;
    identity->device = static_cast<unsigned long long>(status.st_dev);
    identity->inode = static_cast<unsigned long long>(status.st_ino);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace qorc::platform
