/// @file
/// IStorage: a storage of a compound document (the OLE2 compound file format
/// that other programs also read and write): a tree of named storages and
/// byte streams in one file. A C_FILE opened on a storage reads and writes
/// its stream "Contents".
///
/// Changes stay with the open document until a storage of it is committed;
/// a commit writes the whole document, as the storages of it show it then,
/// to a new file beside the old one and puts it in the old one's place in
/// one step, keeping every stream and storage that was not changed byte for
/// byte. A failed commit leaves the file as it was. A document released
/// without a commit leaves its file untouched.
#ifndef QORC_STORAGE_H
#define QORC_STORAGE_H

#include <qorc/export.h>
#include <qorc/string.h>
#include <qorc/types.h>

// COM declares an IStorage of its own in <objidl.h>, which <windows.h> brings
// in unless WIN32_LEAN_AND_MEAN is defined, and <ole2.h> always: the two
// cannot share a file.
#if defined(_WIN32) && defined(__IStorage_FWD_DEFINED__)
#error "COM's IStorage is declared: include <windows.h> with WIN32_LEAN_AND_MEAN defined, and no <ole2.h> or <objbase.h>, in files that use the library's IStorage"
#endif

/// A storage of a compound document (the OLE2 compound file format): a tree of
/// named storages and byte streams in one file. Handles come from Open and
/// OpenStorage and end with Release (never delete). Changes reach the file only
/// when a storage of the document is committed, all of the document at once.
class QORC_API IStorage {
 public:
  /// Values for Commit.
  /// Commit conditions (the values are those of the platform's structured storage).
  enum COMMIT {
    /// Write the document.
    COMMIT_DEFAULT = 0,
    /// Write the document (the same as COMMIT_DEFAULT here).
    COMMIT_OVERWRITE = 1,
    /// Refused when the file was replaced or changed by someone else since
    /// the document was opened or last committed.
    COMMIT_ONLY_IF_CURRENT = 2,
  };

  /// The document's top storage; the caller ends it with Release.
  /// Opens the document at path (which may begin with an installation root).
  /// With create, a missing document is made at once as an empty one. Null
  /// with CerrFileCannotOpen and the path pending when the file cannot be
  /// read, is not a sound compound document, or cannot be created.
  static IStorage* Open(const C_STRING& path, C_BOOL create);

  /// A child storage; the caller ends it with Release.
  /// A storage inside this one, by name (compared without case, as the format
  /// does). With create a missing one is made. Null with CerrFileCannotOpen
  /// and the name pending when there is none, the name is held by a stream,
  /// or it is not a valid name (1 to 31 characters, none of "\/:!").
  IStorage* OpenStorage(const C_STRING& name, C_BOOL create);

  /// Writes the document (see above); flags is a COMMIT value. FALSE when the
  /// condition refuses it, the file is read-only or cannot be written; no
  /// error is left pending, the caller decides what a failure means.
  C_BOOL Commit(int flags);

  /// Ends this handle. The document stays open while a handle of it (the
  /// document's or a child storage's) is still held; uncommitted changes are
  /// dropped with the last one. A C_FILE on the storage must be destroyed first.
  void Release();

  /// Not copyable: a handle stands for one open storage.
  IStorage(const IStorage&) = delete;
  /// Not copyable: a handle stands for one open storage.
  IStorage& operator=(const IStorage&) = delete;

  /// Internal to the library.
  /// The library's own view of the storage, used by the file object.
  class Impl;
  /// The library's own view of the storage (internal to the library; owned by the handle).
  Impl* GetImpl() const { return impl_; }

 private:
  explicit IStorage(Impl* impl);
  static IStorage* Adopt(Impl* impl);
  ~IStorage();
  Impl* impl_;
};

#endif
