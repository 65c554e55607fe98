// Storages of compound documents kept by the library itself, for systems
// without structured storage of their own: the tree of storages and streams
// is read from the file, changed in memory (a stream that is written moves to
// a temporary file), and written whole to a new file at each commit, which
// then takes the old one's place in one step.
#include <qorc/char.h>
#include <qorc/error.h>
#include <qorc/file.h>

#include <cstdio>
#include <memory>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/compound_document.h"
#include "platform/compound_storage.h"
#include "platform/file_stream.h"
#include "platform/filesystem.h"

namespace qorc::platform {

namespace {

// Streams are copied through a buffer of this size when a document is
// written, and the temporary file of a stream is read and written with it.
constexpr int kCopyChunk = 1 << 16;

struct StorageNode {
  StorageNode() = default;
  StorageNode(const StorageNode&) = delete;
  StorageNode& operator=(const StorageNode&) = delete;
  ~StorageNode() {
    if (working != nullptr) std::fclose(working);
  }

  std::u16string name;
  bool storage = false;
  unsigned char classId[16] = {};
  std::vector<std::shared_ptr<StorageNode>> children;

  // A stream's bytes: in the document on disk while `working` is null.
  std::unique_ptr<CompoundEntry> source;
  std::FILE* working = nullptr;
  // Where the temporary file's own position is, and whether it was last
  // written: a position change or a turn between writing and reading needs
  // a seek, anything else goes on through the stream's buffer.
  long long workingPosition = -1;
  bool workingWritten = false;
  long long size = 0;
  // Opened by a holder: a stream is open once at a time.
  bool open = false;
};

struct StorageDocument {
  std::u16string path;
  FileIdentity identity;
  std::shared_ptr<StorageNode> root;
  bool changed = false;
};

// The format's comparison of names: without case.
bool SameElementName(const std::u16string& a, const std::u16string& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    C_CHAR x(a[i]);
    C_CHAR y(b[i]);
    x.MakeUpper();
    y.MakeUpper();
    if (!(x == y)) return false;
  }
  return true;
}

std::shared_ptr<StorageNode> NodeFromEntry(CompoundEntry* entry, std::unique_ptr<CompoundEntry> own) {
  auto node = std::make_shared<StorageNode>();
  node->name = entry->Name();
  node->storage = entry->IsStorage();
  if (node->storage) {
    entry->GetClassId(node->classId);
    for (int i = 0; i < entry->ChildCount(); ++i) {
      std::unique_ptr<CompoundEntry> child = entry->Child(i);
      // The document was checked whole when it was opened.
      if (child == nullptr) continue;
      CompoundEntry* raw = child.get();
      node->children.push_back(NodeFromEntry(raw, std::move(child)));
    }
  } else {
    node->size = entry->Size();
    node->source = std::move(own);
  }
  return node;
}

std::shared_ptr<StorageNode> FindChild(StorageNode* storage, const std::u16string& name) {
  for (const auto& child : storage->children) {
    if (SameElementName(child->name, name)) return child;
  }
  return nullptr;
}

// Stream bytes --------------------------------------------------------------------

// A seek also ends the previous direction, as the C runtime requires
// between writing and reading.
bool SeekWorking(StorageNode* stream, long long position, bool writing) {
  if (stream->workingPosition == position && stream->workingWritten == writing) return true;
  if (!StreamSeek(stream->working, position, SEEK_SET)) return false;
  stream->workingPosition = position;
  stream->workingWritten = writing;
  return true;
}

// The stream's bytes move to a temporary file before it is first changed.
bool MakeWorking(StorageNode* stream) {
  if (stream->working != nullptr) return true;
  std::FILE* temp = C_FILE::CreateTempFile();
  if (temp == nullptr) return false;
  std::unique_ptr<unsigned char[]> chunk(new (std::nothrow) unsigned char[kCopyChunk]);
  bool copied = chunk != nullptr;
  for (long long done = 0; copied && done < stream->size;) {
    const long long left = stream->size - done;
    const int want = left < kCopyChunk ? static_cast<int>(left) : kCopyChunk;
    copied = stream->source != nullptr && stream->source->ReadAt(done, want, chunk.get()) == want &&
             std::fwrite(chunk.get(), 1, static_cast<std::size_t>(want), temp) == static_cast<std::size_t>(want);
    done += want;
  }
  if (!copied) {
    std::fclose(temp);
    CerrFileCannotWrite.TriggerMild();
    return false;
  }
  stream->working = temp;
  stream->workingPosition = stream->size;
  stream->workingWritten = true;
  stream->source.reset();
  return true;
}

int ReadStreamAt(StorageNode* stream, long long position, int count, void* data) {
  if (position < 0 || count < 0) return -1;
  if (position >= stream->size || count == 0) return 0;
  const long long left = stream->size - position;
  const int want = left < count ? static_cast<int>(left) : count;
  if (stream->working == nullptr) {
    return stream->source == nullptr ? -1 : stream->source->ReadAt(position, want, data);
  }
  if (!SeekWorking(stream, position, false)) return -1;
  const std::size_t got = std::fread(data, 1, static_cast<std::size_t>(want), stream->working);
  stream->workingPosition = position + static_cast<long long>(got);
  return got == static_cast<std::size_t>(want) ? want : -1;
}

bool WriteStreamAt(StorageDocument* document, StorageNode* stream, long long position, int count, const void* data) {
  if (!MakeWorking(stream)) return false;
  document->changed = true;
  if (!SeekWorking(stream, position, true)) return false;
  const std::size_t put = std::fwrite(data, 1, static_cast<std::size_t>(count), stream->working);
  stream->workingPosition = position + static_cast<long long>(put);
  if (stream->workingPosition > stream->size) stream->size = stream->workingPosition;
  return put == static_cast<std::size_t>(count);
}

// Writing a document ------------------------------------------------------------

bool WriteStreamBytes(StorageNode* stream, CompoundWriter* writer) {
  std::unique_ptr<unsigned char[]> chunk(new (std::nothrow) unsigned char[kCopyChunk]);
  if (chunk == nullptr) return false;
  for (long long done = 0; done < stream->size;) {
    const long long left = stream->size - done;
    const int want = left < kCopyChunk ? static_cast<int>(left) : kCopyChunk;
    if (ReadStreamAt(stream, done, want, chunk.get()) != want) return false;
    if (!writer->Write(chunk.get(), want)) return false;
    done += want;
  }
  return true;
}

bool WriteChildren(StorageNode* storage, CompoundWriter* writer) {
  for (const auto& child : storage->children) {
    if (child->storage) {
      if (!writer->BeginStorage(child->name, child->classId) || !WriteChildren(child.get(), writer) ||
          !writer->EndStorage()) {
        return false;
      }
    } else if (!writer->BeginStream(child->name, child->size) || !WriteStreamBytes(child.get(), writer) ||
               !writer->EndStream()) {
      return false;
    }
  }
  return true;
}

// After a commit every stream is read from the new file, so that the old one
// is let go and the temporary files of rewritten streams are closed.
void RebindStreams(StorageNode* storage, CompoundEntry* entry) {
  std::unordered_map<std::u16string, int> byName;
  for (int i = 0; i < entry->ChildCount(); ++i) {
    std::unique_ptr<CompoundEntry> child = entry->Child(i);
    if (child != nullptr) byName.emplace(child->Name(), i);
  }
  for (const auto& node : storage->children) {
    const auto found = byName.find(node->name);
    if (found == byName.end()) continue;
    std::unique_ptr<CompoundEntry> child = entry->Child(found->second);
    if (child == nullptr || child->IsStorage() != node->storage) continue;
    if (node->storage) {
      RebindStreams(node.get(), child.get());
    } else if (child->Size() == node->size) {
      node->source = std::move(child);
      if (node->working != nullptr) std::fclose(node->working);
      node->working = nullptr;
      node->workingPosition = -1;
    }
  }
}

bool WriteDocument(StorageDocument* document) {
  std::unique_ptr<CompoundWriter> writer = CreateCompoundWriter(document->path.c_str(), document->root->classId);
  if (writer == nullptr || !WriteChildren(document->root.get(), writer.get())) return false;
  FileIdentity identity;
  if (!writer->Replace(&identity)) return false;
  document->identity = identity;
  document->changed = false;
  FileIdentity reread;
  std::unique_ptr<CompoundEntry> root = OpenCompoundDocument(document->path.c_str(), &reread);
  if (root != nullptr && reread == identity) RebindStreams(document->root.get(), root.get());
  return true;
}

// A commit writes nothing when nothing changed and the file is still the one
// read; a read-only file is never replaced.
bool CommitDocument(StorageDocument* document, int flags) {
  constexpr int kOnlyIfCurrent = 2;
  const FileIdentity now = IdentifyFile(document->path.c_str());
  const bool current = now == document->identity;
  if ((flags & kOnlyIfCurrent) != 0 && !current) return false;
  if (now.size >= 0 && CheckWritable(document->path.c_str()) != FileError::None) return false;
  if (!document->changed && current) return true;
  try {
    return WriteDocument(document);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// The holders of a document ---------------------------------------------------------

class TreeStream : public DocumentStream {
 public:
  TreeStream(std::shared_ptr<StorageDocument> document, std::shared_ptr<StorageNode> node)
      : document_(std::move(document)), node_(std::move(node)) {}
  ~TreeStream() override { node_->open = false; }

  int ReadAt(long long position, int count, void* data) override {
    return ReadStreamAt(node_.get(), position, count, data);
  }
  bool WriteAt(long long position, int count, const void* data) override {
    return WriteStreamAt(document_.get(), node_.get(), position, count, data);
  }
  long long Size() override { return node_->size; }

 private:
  std::shared_ptr<StorageDocument> document_;
  std::shared_ptr<StorageNode> node_;
};

class TreeStorage : public DocumentStorage {
 public:
  TreeStorage(std::shared_ptr<StorageDocument> document, std::shared_ptr<StorageNode> node)
      : document_(std::move(document)), node_(std::move(node)) {}

  std::unique_ptr<DocumentStorage> OpenStorage(const std::u16string& name, bool create) override {
    std::shared_ptr<StorageNode> child = FindChild(node_.get(), name);
    if (child == nullptr && create) {
      child = std::make_shared<StorageNode>();
      child->name = name;
      child->storage = true;
      node_->children.push_back(child);
      document_->changed = true;
    }
    if (child == nullptr || !child->storage) return nullptr;
    return std::make_unique<TreeStorage>(document_, child);
  }

  std::unique_ptr<DocumentStream> OpenStream(const std::u16string& name) override {
    std::shared_ptr<StorageNode> stream = FindChild(node_.get(), name);
    if (stream == nullptr || stream->storage || stream->open) return nullptr;
    stream->open = true;
    return std::make_unique<TreeStream>(document_, stream);
  }

  std::unique_ptr<DocumentStream> CreateStream(const std::u16string& name) override {
    auto stream = std::make_shared<StorageNode>();
    stream->name = name;
    bool placed = false;
    for (auto& child : node_->children) {
      if (!SameElementName(child->name, name)) continue;
      if (child->open) return nullptr;
      child = stream;
      placed = true;
      break;
    }
    if (!placed) node_->children.push_back(stream);
    document_->changed = true;
    stream->open = true;
    return std::make_unique<TreeStream>(document_, stream);
  }

  bool Commit(int flags) override { return CommitDocument(document_.get(), flags); }

 private:
  std::shared_ptr<StorageDocument> document_;
  std::shared_ptr<StorageNode> node_;
};

}  // namespace

std::unique_ptr<DocumentStorage> OpenDocumentStorage(const char16_t* path, bool create) {
  if (path == nullptr || path[0] == u'\0') return nullptr;
  try {
    auto document = std::make_shared<StorageDocument>();
    document->path = path;
    if (PathExists(path)) {
      std::unique_ptr<CompoundEntry> root = OpenCompoundDocument(path, &document->identity);
      if (root == nullptr) return nullptr;
      CompoundEntry* raw = root.get();
      document->root = NodeFromEntry(raw, std::move(root));
    } else {
      if (!create) return nullptr;
      // A new document is on disk at once, empty, as the place it will take.
      document->root = std::make_shared<StorageNode>();
      document->root->storage = true;
      if (!WriteDocument(document.get())) return nullptr;
    }
    return std::make_unique<TreeStorage>(document, document->root);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace qorc::platform
