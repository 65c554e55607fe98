// The seam's storages of compound documents: an open document whose storages
// and streams are changed in place and written to its file only by a commit.
// Windows has them in its structured storage; elsewhere the library keeps the
// tree itself over the document reader and writer of compound_document.h.
// Paths are in the library's form, expanded; element names are UTF-16 and
// compare without case.
#ifndef QORC_PLATFORM_COMPOUND_STORAGE_H
#define QORC_PLATFORM_COMPOUND_STORAGE_H

#include <memory>
#include <string>

namespace qorc::platform {

// A stream opened by one holder at a time.
class DocumentStream {
 public:
  virtual ~DocumentStream() = default;
  // Reads up to `count` bytes from `position`: the count read (0 at or past
  // the end), -1 when the bytes cannot be read.
  virtual int ReadAt(long long position, int count, void* data) = 0;
  // Writes at `position`, a gap past the end filled with zeros. False when
  // it fails: an error may be left pending, else LastFailureWasNoSpace tells
  // a full disk.
  virtual bool WriteAt(long long position, int count, const void* data) = 0;
  virtual long long Size() = 0;
};

// One storage of an open document. The document stays open while any of its
// storages or streams is held; what was not committed is dropped with the
// last of them.
class DocumentStorage {
 public:
  virtual ~DocumentStorage() = default;
  // The storage of that name inside this one, made when missing with
  // `create`; null when there is none, the name is a stream's, or it is open
  // already where the system holds storages exclusively.
  virtual std::unique_ptr<DocumentStorage> OpenStorage(const std::u16string& name, bool create) = 0;
  // The stream of that name; null when there is none or it is open already.
  virtual std::unique_ptr<DocumentStream> OpenStream(const std::u16string& name) = 0;
  // A new empty stream in place of any element of that name; null when that
  // name is open already or the document cannot be changed.
  virtual std::unique_ptr<DocumentStream> CreateStream(const std::u16string& name) = 0;
  // Writes the whole document as its storages show it now; `flags` are the
  // structured-storage commit conditions (2: only if the file was not changed
  // by anyone else since it was opened or last committed). False when the
  // condition refuses it or the file cannot be written; the file then stays
  // as it was.
  virtual bool Commit(int flags) = 0;
};

// Opens the document at `path`; with `create` a missing one is made on disk
// at once, empty, and an existing file is never replaced. A damaged document
// is refused before anything reads it. Null when the file cannot be read, is
// not a sound compound document, or cannot be made.
std::unique_ptr<DocumentStorage> OpenDocumentStorage(const char16_t* path, bool create);

}  // namespace qorc::platform

#endif
