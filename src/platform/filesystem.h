// The seam's file-system services. Paths come and go in the library's form
// ("\" as separator, terminated UTF-16); the implementation converts them at
// each call. The operations keep the Windows semantics the library relies on:
// a rename never replaces its target, the read-only attribute (no write
// permission) holds for every user, a copy can refuse an existing target and
// leaves nothing behind when it fails.
#ifndef QORC_PLATFORM_FILESYSTEM_H
#define QORC_PLATFORM_FILESYSTEM_H

#include <cstdio>
#include <string>

namespace qorc::platform {

// What went wrong, in the classes the library reports.
enum class FileError { None, NotFound, AccessDenied, AlreadyExists, Other };

// The file or directory exists.
bool PathExists(const char16_t* path);
// None when the file may be written; AccessDenied when it is read-only.
FileError CheckWritable(const char16_t* path);
// Read-only: write permission removed; writable: read and write for the owner.
FileError SetWritable(const char16_t* path, bool writable);
// Deletes a file; a read-only file or a directory gives AccessDenied.
FileError RemoveFile(const char16_t* path);
// Renames or moves a file (also across file systems); an existing target
// gives AlreadyExists.
FileError RenameNoReplace(const char16_t* from, const char16_t* to);

// Progress of a copy: bytes done and total, and whether a new stream starts.
// Returning false cancels the copy.
using CopyProgress = bool (*)(long long transferred, long long total, bool streamStart, void* context);
// Copies contents, permissions and modification time. With `failIfExists` an
// existing target is refused; a read-only target is never overwritten. The
// copy stops when *cancel turns true or the progress routine says so. A copy
// that fails leaves no target behind. Returns whether the copy completed.
bool CopyFile(const char16_t* from, const char16_t* to, bool failIfExists, CopyProgress progress, void* context,
              const volatile bool* cancel);

// Last modification, in whole seconds since 1970-01-01 UTC.
FileError ModificationTime(const char16_t* path, long long* seconds);

// Creates the file exclusively (read and write for the owner) and opens a
// stream on it; the name is gone at once, so the file disappears when the
// stream is closed, even if the process dies. Null when it cannot be done.
std::FILE* CreateDeleteOnCloseFile(const char16_t* path);

// The process's well-known paths, in library form. False when unavailable.
bool CurrentDirectory(std::u16string* out);
bool ExecutablePath(std::u16string* out);
// The temporary directory, ending in "\".
bool TemporaryDirectory(std::u16string* out);
// The source of the network file system mounted exactly at `path`, in
// library form. False when none is mounted there.
bool NetworkSource(const char16_t* path, std::u16string* out);

}  // namespace qorc::platform

#endif
