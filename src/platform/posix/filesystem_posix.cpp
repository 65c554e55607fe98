// File-system services on POSIX, with the Windows semantics the library
// relies on reproduced here: the read-only attribute is the absence of write
// permission and holds even for root, a rename never replaces its target, a
// copy refuses or replaces its target on request and leaves nothing behind
// when it fails, temporary files vanish when closed.
#include <fcntl.h>
#include <sys/stat.h>
#include <unicode/ustring.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <sstream>
#include <vector>

#include "platform/filesystem.h"
#include "platform/posix/mountinfo.h"
#include "platform/posix/native_path.h"

namespace qorc::platform {
namespace posix {

std::string NativePath(const char16_t* path) {
  std::u16string text(path);
  for (char16_t& c : text) {
    if (c == u'\\') c = u'/';
  }
  std::string out(text.size() * 3, '\0');
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8WithSub(out.data(), static_cast<int32_t>(out.size()), &length, reinterpret_cast<const UChar*>(text.data()),
                     static_cast<int32_t>(text.size()), 0xFFFD, nullptr, &status);
  if (U_FAILURE(status)) return std::string();
  out.resize(static_cast<std::size_t>(length));
  return out;
}

std::u16string LibraryPath(const std::string& native) {
  std::u16string out(native.size(), u'\0');
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8WithSub(reinterpret_cast<UChar*>(out.data()), static_cast<int32_t>(out.size()), &length, native.data(),
                       static_cast<int32_t>(native.size()), 0xFFFD, nullptr, &status);
  if (U_FAILURE(status)) return std::u16string();
  out.resize(static_cast<std::size_t>(length));
  for (char16_t& c : out) {
    if (c == u'/') c = u'\\';
  }
  return out;
}

namespace {

// Undoes the octal escapes (\040 for a space, ...) of a mountinfo field.
std::string Unescape(const std::string& field) {
  std::string out;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size()) {
      const char a = field[i + 1], b = field[i + 2], c = field[i + 3];
      if (a >= '0' && a <= '3' && b >= '0' && b <= '7' && c >= '0' && c <= '7') {
        out += static_cast<char>((a - '0') * 64 + (b - '0') * 8 + (c - '0'));
        i += 3;
        continue;
      }
    }
    out += field[i];
  }
  return out;
}

bool IsNetworkType(const std::string& type) {
  static const char* const kTypes[] = {"nfs",   "nfs4",       "cifs", "smb3", "smbfs",
                                       "sshfs", "fuse.sshfs", "9p",   "afs",  "ncpfs"};
  for (const char* known : kTypes) {
    if (type == known) return true;
  }
  return false;
}

std::string WithoutTrailingSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

}  // namespace

bool FindNetworkSource(const std::string& mountinfo, const std::string& mountPoint, std::string* source) {
  const std::string wanted = WithoutTrailingSlash(mountPoint);
  bool found = false;
  std::istringstream lines(mountinfo);
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::vector<std::string> fields;
    std::string word;
    while (words >> word) fields.push_back(word);
    // id, parent, device, root, mount point, options, optional fields, "-",
    // type, source, super options.
    std::size_t dash = 6;
    while (dash < fields.size() && fields[dash] != "-") ++dash;
    if (fields.size() < 5 || dash + 2 >= fields.size()) continue;
    if (WithoutTrailingSlash(Unescape(fields[4])) != wanted) continue;
    found = IsNetworkType(fields[dash + 1]);
    if (found) *source = Unescape(fields[dash + 2]);
  }
  return found;
}

}  // namespace posix

namespace {

using posix::NativePath;

FileError FromErrno(int error) {
  switch (error) {
    case 0:
      return FileError::None;
    case ENOENT:
    case ENOTDIR:
      return FileError::NotFound;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
      return FileError::AccessDenied;
    case EEXIST:
    case ENOTEMPTY:
      return FileError::AlreadyExists;
    default:
      return FileError::Other;
  }
}

bool HasNoWritePermission(const struct stat& status) { return (status.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0; }

// Runs a seam operation; running out of memory while converting names gives
// the failure value (the library's allocation hook has reported it).
template <typename Result, typename Body>
Result Guarded(Result onFailure, Body body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return onFailure;
  }
}

bool WriteAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(fd, data, size);
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

// The copy loop behind CopyFile, on open descriptors.
bool CopyContents(int in, int out, long long total, CopyProgress progress, void* context, const volatile bool* cancel) {
  constexpr std::size_t kChunk = 64 * 1024;
  std::vector<char> buffer(kChunk);
  long long done = 0;
  if (progress != nullptr && !progress(0, total, true, context)) return false;
  for (;;) {
    if (cancel != nullptr && *cancel) return false;
    const ssize_t got = ::read(in, buffer.data(), buffer.size());
    if (got < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (got == 0) return true;
    if (!WriteAll(out, buffer.data(), static_cast<std::size_t>(got))) return false;
    done += got;
    if (progress != nullptr && !progress(done, total, false, context)) return false;
  }
}

bool CopyNative(const std::string& from, const std::string& to, bool failIfExists, CopyProgress progress, void* context,
                const volatile bool* cancel) {
  const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  if (in < 0) return false;
  struct stat source;
  if (::fstat(in, &source) != 0 || !S_ISREG(source.st_mode)) {
    ::close(in);
    return false;
  }
  struct stat existing;
  if (::stat(to.c_str(), &existing) == 0) {
    // Refused: an existing target when asked, the source itself under
    // another name, a directory, a read-only target.
    if (failIfExists || (existing.st_dev == source.st_dev && existing.st_ino == source.st_ino) ||
        !S_ISREG(existing.st_mode) || HasNoWritePermission(existing)) {
      ::close(in);
      return false;
    }
  }
  const int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | (failIfExists ? O_EXCL : O_TRUNC), 0600);
  if (out < 0) {
    ::close(in);
    return false;
  }
  bool copied = false;
  try {
    copied = CopyContents(in, out, static_cast<long long>(source.st_size), progress, context, cancel);
  } catch (const std::bad_alloc&) {
    copied = false;
  }
  if (copied) {
    // The copy keeps the source's permissions (its read-only attribute
    // included) and its modification time.
    const struct timespec times[2] = {source.st_atim, source.st_mtim};
    copied = ::fchmod(out, source.st_mode & 07777) == 0 && ::futimens(out, times) == 0;
  }
  if (::close(out) != 0) copied = false;
  ::close(in);
  // Nothing of a failed or cancelled copy is left behind.
  if (!copied) ::unlink(to.c_str());
  return copied;
}

}  // namespace

bool PathExists(const char16_t* path) {
  return Guarded(false, [&] { return ::access(NativePath(path).c_str(), F_OK) == 0; });
}

FileError CheckWritable(const char16_t* path) {
  return Guarded(FileError::Other, [&] {
    const std::string name = NativePath(path);
    struct stat status;
    if (::stat(name.c_str(), &status) != 0) return FromErrno(errno);
    // Without write permission a file is read-only for everyone, root included.
    if (HasNoWritePermission(status)) return FileError::AccessDenied;
    if (::access(name.c_str(), W_OK) == 0) return FileError::None;
    return FromErrno(errno);
  });
}

FileError SetWritable(const char16_t* path, bool writable) {
  return Guarded(FileError::Other, [&] {
    const std::string name = NativePath(path);
    struct stat status;
    if (::stat(name.c_str(), &status) != 0) return FromErrno(errno);
    mode_t mode = status.st_mode & 07777;
    mode =
        writable ? (mode | S_IRUSR | S_IWUSR) : ((mode & ~static_cast<mode_t>(S_IWUSR | S_IWGRP | S_IWOTH)) | S_IRUSR);
    return ::chmod(name.c_str(), mode) == 0 ? FileError::None : FromErrno(errno);
  });
}

FileError RemoveFile(const char16_t* path) {
  return Guarded(FileError::Other, [&] {
    const std::string name = NativePath(path);
    struct stat status;
    if (::lstat(name.c_str(), &status) != 0) return FromErrno(errno);
    // A directory is not a file to delete, and a read-only file is protected.
    if (S_ISDIR(status.st_mode)) return FileError::AccessDenied;
    if (!S_ISLNK(status.st_mode) && HasNoWritePermission(status)) return FileError::AccessDenied;
    return ::unlink(name.c_str()) == 0 ? FileError::None : FromErrno(errno);
  });
}

FileError RenameNoReplace(const char16_t* from, const char16_t* to) {
  return Guarded(FileError::Other, [&] {
    const std::string source = NativePath(from);
    const std::string target = NativePath(to);
    if (::renameat2(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) == 0) return FileError::None;
    const int error = errno;
    if (error == EINVAL || error == ENOSYS) {
      // A file system without the no-replace flag: link and unlink do the
      // same for a file; other entries are renamed after a check.
      struct stat status;
      if (::lstat(source.c_str(), &status) != 0) return FromErrno(errno);
      if (::lstat(target.c_str(), &status) == 0) return FileError::AlreadyExists;
      if (S_ISREG(status.st_mode) && ::link(source.c_str(), target.c_str()) == 0) {
        return ::unlink(source.c_str()) == 0 ? FileError::None : FromErrno(errno);
      }
      return ::rename(source.c_str(), target.c_str()) == 0 ? FileError::None : FromErrno(errno);
    }
    if (error == EXDEV) {
      // Moving a file to another file system: copy, then remove the source.
      struct stat status;
      if (::lstat(source.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return FileError::Other;
      if (::lstat(target.c_str(), &status) == 0) return FileError::AlreadyExists;
      if (!CopyNative(source, target, true, nullptr, nullptr, nullptr)) return FileError::Other;
      if (::unlink(source.c_str()) != 0) {
        const int unlinkError = errno;
        ::unlink(target.c_str());
        return FromErrno(unlinkError);
      }
      return FileError::None;
    }
    return FromErrno(error);
  });
}

bool CopyFile(const char16_t* from, const char16_t* to, bool failIfExists, CopyProgress progress, void* context,
              const volatile bool* cancel) {
  return Guarded(false,
                 [&] { return CopyNative(NativePath(from), NativePath(to), failIfExists, progress, context, cancel); });
}

FileError ModificationTime(const char16_t* path, long long* seconds) {
  return Guarded(FileError::Other, [&] {
    struct stat status;
    if (::stat(NativePath(path).c_str(), &status) != 0) return FromErrno(errno);
    *seconds = static_cast<long long>(status.st_mtim.tv_sec);
    return FileError::None;
  });
}

std::FILE* CreateDeleteOnCloseFile(const char16_t* path) {
  return Guarded(static_cast<std::FILE*>(nullptr), [&]() -> std::FILE* {
    const std::string name = NativePath(path);
    if (name.empty()) return nullptr;
    const int fd = ::open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd < 0) return nullptr;
    // Unlinked at once: the open descriptor keeps the file alive until it is
    // closed, and nothing is left if the process dies.
    if (::unlink(name.c_str()) != 0) {
      ::close(fd);
      return nullptr;
    }
    std::FILE* stream = ::fdopen(fd, "w+");
    if (stream == nullptr) ::close(fd);
    return stream;
  });
}

bool CurrentDirectory(std::u16string* out) {
  return Guarded(false, [&] {
    std::vector<char> buffer(256);
    while (::getcwd(buffer.data(), buffer.size()) == nullptr) {
      if (errno != ERANGE) return false;
      buffer.resize(buffer.size() * 2);
    }
    *out = posix::LibraryPath(buffer.data());
    return true;
  });
}

bool ExecutablePath(std::u16string* out) {
  return Guarded(false, [&] {
    std::vector<char> buffer(256);
    for (;;) {
      const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
      if (length < 0) return false;
      if (static_cast<std::size_t>(length) < buffer.size()) {
        *out = posix::LibraryPath(std::string(buffer.data(), static_cast<std::size_t>(length)));
        return true;
      }
      buffer.resize(buffer.size() * 2);
    }
  });
}

bool TemporaryDirectory(std::u16string* out) {
  return Guarded(false, [&] {
    const char* variable = std::getenv("TMPDIR");
    std::string dir = variable != nullptr && *variable != '\0' ? variable : "/tmp";
    if (dir.back() != '/') dir += '/';
    *out = posix::LibraryPath(dir);
    return true;
  });
}

bool NetworkSource(const char16_t* path, std::u16string* out) {
  return Guarded(false, [&] {
    const std::string mountPoint = NativePath(path);
    if (mountPoint.empty()) return false;
    std::ifstream file("/proc/self/mountinfo");
    if (!file) return false;
    std::ostringstream text;
    text << file.rdbuf();
    std::string source;
    if (!posix::FindNetworkSource(text.str(), mountPoint, &source)) return false;
    *out = posix::LibraryPath(source);
    return true;
  });
}

}  // namespace qorc::platform
