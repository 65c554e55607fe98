// The seam's compound documents (the OLE2 compound file format): reading the
// tree of an existing document with random access to its streams, writing a
// whole new document entry by entry, and replacing a document atomically.
// Paths are in the library's form; element names are UTF-16.
#ifndef QORC_PLATFORM_COMPOUND_DOCUMENT_H
#define QORC_PLATFORM_COMPOUND_DOCUMENT_H

#include <memory>
#include <string>

namespace qorc::platform {

// A storage or a stream of a document read from disk. An entry keeps the
// document open; the file may be replaced meanwhile without disturbing it.
class CompoundEntry {
 public:
  virtual ~CompoundEntry() = default;
  virtual const std::u16string& Name() const = 0;
  virtual bool IsStorage() const = 0;
  // Bytes of a stream (0 for a storage).
  virtual long long Size() const = 0;
  // The class identifier of a storage (16 bytes, zero when it has none).
  virtual void GetClassId(unsigned char id[16]) const = 0;
  virtual int ChildCount() const = 0;
  // Null when the child cannot be read.
  virtual std::unique_ptr<CompoundEntry> Child(int index) const = 0;
  // Reads `count` bytes of a stream from `offset`; returns the bytes read,
  // -1 when the document's sectors cannot be read.
  virtual int ReadAt(long long offset, int count, void* data) = 0;
};

// What tells one version of a file from another: replacing or rewriting it
// changes this.
struct FileIdentity {
  unsigned long long device = 0;
  unsigned long long inode = 0;
  long long size = -1;
  long long modified = 0;  // nanoseconds
  bool operator==(const FileIdentity& other) const {
    return device == other.device && inode == other.inode && size == other.size && modified == other.modified;
  }
};

// The identity of the file now; size -1 when it does not exist.
FileIdentity IdentifyFile(const char16_t* path);

// Opens a document and checks its structure: every sector chain ends inside
// the file without a cycle, and every stream fits in its chain. Null when the
// file cannot be read or is not a sound compound document. *identity
// receives the identity of the file that was read.
std::unique_ptr<CompoundEntry> OpenCompoundDocument(const char16_t* path, FileIdentity* identity);

// Writes a new document beside the target, to replace it once complete.
// Entries are written depth first: a storage is begun, its children written,
// then it is ended. Every call answers false after the first failure.
class CompoundWriter {
 public:
  virtual ~CompoundWriter() = default;
  virtual bool BeginStorage(const std::u16string& name, const unsigned char classId[16]) = 0;
  virtual bool EndStorage() = 0;
  virtual bool BeginStream(const std::u16string& name, long long size) = 0;
  virtual bool Write(const void* data, int count) = 0;
  virtual bool EndStream() = 0;
  // Completes the document, puts it in place of the target in one step and
  // returns the identity of the new file. Without a successful call the
  // target stays as it was and the new file is removed.
  virtual bool Replace(FileIdentity* identity) = 0;
};

// Null when no file can be created beside the target.
std::unique_ptr<CompoundWriter> CreateCompoundWriter(const char16_t* target, const unsigned char rootClassId[16]);

}  // namespace qorc::platform

#endif
