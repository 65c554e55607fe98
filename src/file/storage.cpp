// Compound documents: the tree of storages and streams read from the file,
// changed in place by the file objects and storages that use it, and written
// whole to a new file at each commit.
#include <qorc/error.h>
#include <qorc/file.h>
#include <qorc/storage.h>

#include <new>
#include <unordered_map>

#include "file/storage_internal.h"
#include "platform/compound_document.h"
#include "platform/file_stream.h"
#include "platform/filesystem.h"

namespace qorc::file {

namespace {

// Streams are copied through a buffer of this size when a document is
// written, and the temporary file of a stream is read and written with it.
constexpr int kCopyChunk = 1 << 16;
// The format's longest element name, in UTF-16 units.
constexpr std::size_t kMaxNameUnits = 31;

std::u16string Units(const C_STRING& text) {
  return std::u16string(text.GetWCHAR(), static_cast<std::size_t>(text.GetNumber()));
}

bool IsElementName(const std::u16string& name) {
  if (name.empty() || name.size() > kMaxNameUnits) return false;
  for (const char16_t unit : name) {
    if (unit == u'\\' || unit == u'/' || unit == u':' || unit == u'!') return false;
  }
  return true;
}

std::shared_ptr<StorageNode> NodeFromEntry(platform::CompoundEntry* entry,
                                           std::unique_ptr<platform::CompoundEntry> own) {
  auto node = std::make_shared<StorageNode>();
  node->name = entry->Name();
  node->storage = entry->IsStorage();
  if (node->storage) {
    entry->GetClassId(node->classId);
    for (int i = 0; i < entry->ChildCount(); ++i) {
      std::unique_ptr<platform::CompoundEntry> child = entry->Child(i);
      // The document was checked whole when it was opened.
      if (child == nullptr) continue;
      platform::CompoundEntry* raw = child.get();
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

// Writing a document ------------------------------------------------------------

bool WriteStreamBytes(StorageNode* stream, platform::CompoundWriter* writer) {
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

bool WriteChildren(StorageNode* storage, platform::CompoundWriter* writer) {
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
void RebindStreams(StorageNode* storage, platform::CompoundEntry* entry) {
  std::unordered_map<std::u16string, int> byName;
  for (int i = 0; i < entry->ChildCount(); ++i) {
    std::unique_ptr<platform::CompoundEntry> child = entry->Child(i);
    if (child != nullptr) byName.emplace(child->Name(), i);
  }
  for (const auto& node : storage->children) {
    const auto found = byName.find(node->name);
    if (found == byName.end()) continue;
    std::unique_ptr<platform::CompoundEntry> child = entry->Child(found->second);
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
  std::unique_ptr<platform::CompoundWriter> writer =
      platform::CreateCompoundWriter(document->path.GetWCHAR(), document->root->classId);
  if (writer == nullptr || !WriteChildren(document->root.get(), writer.get())) return false;
  platform::FileIdentity identity;
  if (!writer->Replace(&identity)) return false;
  document->identity = identity;
  document->changed = false;
  platform::FileIdentity reread;
  std::unique_ptr<platform::CompoundEntry> root = platform::OpenCompoundDocument(document->path.GetWCHAR(), &reread);
  if (root != nullptr && reread == identity) RebindStreams(document->root.get(), root.get());
  return true;
}

bool CommitDocument(StorageDocument* document, int flags) {
  const platform::FileIdentity now = platform::IdentifyFile(document->path.GetWCHAR());
  const bool current = now == document->identity;
  if ((flags & IStorage::COMMIT_ONLY_IF_CURRENT) != 0 && !current) return false;
  if (now.size >= 0 && platform::CheckWritable(document->path.GetWCHAR()) != platform::FileError::None) return false;
  if (!document->changed && current) return true;
  try {
    return WriteDocument(document);
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace

StorageNode::~StorageNode() {
  if (working != nullptr) std::fclose(working);
}

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

// Stream bytes --------------------------------------------------------------------

namespace {

// A seek also ends the previous direction, as the C runtime requires
// between writing and reading.
bool SeekWorking(StorageNode* stream, long long position, bool writing) {
  if (stream->workingPosition == position && stream->workingWritten == writing) return true;
  if (!platform::StreamSeek(stream->working, position, SEEK_SET)) return false;
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

}  // namespace

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

}  // namespace qorc::file

using qorc::file::StorageDocument;
using qorc::file::StorageNode;

// The file object's streams ---------------------------------------------------------

std::shared_ptr<StorageNode> IStorage::Impl::OpenStream(const std::u16string& name) {
  std::shared_ptr<StorageNode> stream = qorc::file::FindChild(node.get(), name);
  if (stream == nullptr || stream->storage || stream->open) return nullptr;
  stream->open = true;
  return stream;
}

std::shared_ptr<StorageNode> IStorage::Impl::CreateStream(const std::u16string& name) {
  auto stream = std::make_shared<StorageNode>();
  stream->name = name;
  stream->open = true;
  for (auto& child : node->children) {
    if (!qorc::file::SameElementName(child->name, name)) continue;
    if (child->open) return nullptr;
    child = stream;
    document->changed = true;
    return stream;
  }
  node->children.push_back(stream);
  document->changed = true;
  return stream;
}

void IStorage::Impl::CloseStream(StorageNode* stream) { stream->open = false; }

// Storages ------------------------------------------------------------------------

IStorage::IStorage(Impl* impl) : impl_(impl) {}

IStorage::~IStorage() { delete impl_; }

void IStorage::Release() { delete this; }

// The object a host holds for one storage of an open document; it owns the
// implementation, which is released again when the object cannot be made.
IStorage* IStorage::Adopt(Impl* impl) {
  IStorage* storage = new (std::nothrow) IStorage(impl);
  if (storage == nullptr) delete impl;
  return storage;
}

IStorage* IStorage::Open(const C_STRING& path, C_BOOL create) {
  C_STRING expanded(path);
  C_FILE::ExpandPath(&expanded);
  if (C_ERROR::Is()) return nullptr;
  try {
    auto document = std::make_shared<StorageDocument>();
    document->path = expanded;
    bool opened = false;
    if (!expanded.IsVoid() && qorc::platform::PathExists(expanded.GetWCHAR())) {
      std::unique_ptr<qorc::platform::CompoundEntry> root =
          qorc::platform::OpenCompoundDocument(expanded.GetWCHAR(), &document->identity);
      if (root != nullptr) {
        qorc::platform::CompoundEntry* raw = root.get();
        document->root = qorc::file::NodeFromEntry(raw, std::move(root));
        opened = true;
      }
    } else if (!expanded.IsVoid() && create) {
      // A new document is on disk at once, empty, as the place it will take.
      document->root = std::make_shared<StorageNode>();
      document->root->storage = true;
      opened = qorc::file::WriteDocument(document.get());
    }
    if (!opened) {
      CerrFileCannotOpen.TriggerMild(&expanded);
      return nullptr;
    }
    return Adopt(new Impl(document, document->root));
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
    return nullptr;
  }
}

IStorage* IStorage::OpenStorage(const C_STRING& name, C_BOOL create) {
  try {
    const std::u16string units = qorc::file::Units(name);
    std::shared_ptr<StorageNode> child;
    if (qorc::file::IsElementName(units)) {
      child = qorc::file::FindChild(impl_->node.get(), units);
      if (child == nullptr && create) {
        child = std::make_shared<StorageNode>();
        child->name = units;
        child->storage = true;
        impl_->node->children.push_back(child);
        impl_->document->changed = true;
      }
    }
    if (child == nullptr || !child->storage) {
      CerrFileCannotOpen.TriggerMild(&name);
      return nullptr;
    }
    return Adopt(new Impl(impl_->document, child));
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
    return nullptr;
  }
}

C_BOOL IStorage::Commit(int flags) { return qorc::file::CommitDocument(impl_->document.get(), flags); }
