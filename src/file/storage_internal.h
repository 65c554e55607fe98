// The open compound document behind IStorage: a tree of storages and
// streams kept by the library until it is committed. A stream not rewritten
// since the document was read is read from the file on disk; one that was
// written has its bytes in a temporary file.
#ifndef QORC_FILE_STORAGE_INTERNAL_H
#define QORC_FILE_STORAGE_INTERNAL_H

#include <qorc/storage.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "platform/compound_document.h"

namespace qorc::file {

struct StorageNode {
  StorageNode() = default;
  StorageNode(const StorageNode&) = delete;
  StorageNode& operator=(const StorageNode&) = delete;
  ~StorageNode();

  std::u16string name;
  bool storage = false;
  unsigned char classId[16] = {};
  std::vector<std::shared_ptr<StorageNode>> children;

  // A stream's bytes: in the document on disk while `working` is null.
  std::unique_ptr<platform::CompoundEntry> source;
  std::FILE* working = nullptr;
  // Where the temporary file's own position is, and whether it was last
  // written: a position change or a turn between writing and reading needs
  // a seek, anything else goes on through the stream's buffer.
  long long workingPosition = -1;
  bool workingWritten = false;
  long long size = 0;
  // Opened by a file object: a stream is open once at a time.
  bool open = false;
};

struct StorageDocument {
  C_STRING path;  // expanded
  platform::FileIdentity identity;
  std::shared_ptr<StorageNode> root;
  bool changed = false;
};

// The format's comparison of names: without case.
bool SameElementName(const std::u16string& a, const std::u16string& b);

// Bytes of a stream from `position`: the count read (0 at or past the end),
// -1 when they cannot be read.
int ReadStreamAt(StorageNode* stream, long long position, int count, void* data);
// Writes at `position`, a gap past the end filled with zeros; false when the
// temporary file cannot be made or written (the error is left pending).
bool WriteStreamAt(StorageDocument* document, StorageNode* stream, long long position, int count, const void* data);

}  // namespace qorc::file

class IStorage::Impl {
 public:
  Impl(std::shared_ptr<qorc::file::StorageDocument> document, std::shared_ptr<qorc::file::StorageNode> node)
      : document(std::move(document)), node(std::move(node)) {}

  // The stream of that name, opened for the caller alone; null when there is
  // none or it is open already.
  std::shared_ptr<qorc::file::StorageNode> OpenStream(const std::u16string& name);
  // A new empty stream in place of any element of that name, opened for the
  // caller alone; null when that name is open already.
  std::shared_ptr<qorc::file::StorageNode> CreateStream(const std::u16string& name);
  void CloseStream(qorc::file::StorageNode* stream);

  std::shared_ptr<qorc::file::StorageDocument> document;
  std::shared_ptr<qorc::file::StorageNode> node;
};

#endif
