// Storages of compound documents on Windows: the system's structured storage.
// A document is opened in transacted mode, so that its changes stay with it
// until a commit and are dropped with it otherwise; the storages inside it are
// opened directly, so that a commit of any of them is the commit of the
// document, which writes them all. The system's reader follows damaged sector
// chains (a loop hangs it, a stream longer than its chain reads short), so
// every file passes the library's structure check before the system opens it.
#include <objbase.h>

#include <cstdio>
#include <memory>
#include <new>
#include <set>
#include <string>

#include "platform/compound_storage.h"
#include "platform/gsf/compound_structure.h"
#include "platform/windows/win32.h"

namespace qorc::platform {

namespace {

const wchar_t* Wide(const std::u16string& text) { return reinterpret_cast<const wchar_t*>(text.c_str()); }
const wchar_t* Wide(const char16_t* text) { return reinterpret_cast<const wchar_t*>(text); }

template <class T>
struct ComReleaser {
  void operator()(T* object) const {
    if (object != nullptr) object->Release();
  }
};
template <class T>
using ComPtr = std::unique_ptr<T, ComReleaser<T>>;

// The document's root storage: every storage and stream of the document
// holds it, since the system reverts what is open below a released root.
struct Document {
  std::wstring path;
  ComPtr<IStorage> root;
  bool writable = false;
};

// Whether the file at `path` holds a compound document sound enough for the
// system's reader.
bool IsSoundDocument(const char16_t* path) {
  std::FILE* file = _wfopen(Wide(path), L"rb");
  if (file == nullptr) return false;
  bool sound = false;
  if (_fseeki64(file, 0, SEEK_END) == 0) {
    const long long size = _ftelli64(file);
    int entries = 0;
    sound = size > 0 && _fseeki64(file, 0, SEEK_SET) == 0 && posix::HasSoundStructure(file, size, &entries);
  }
  std::fclose(file);
  return sound;
}

// Tells a full disk to the callers that ask the file-system seam.
void NoteFailure(HRESULT result) {
  if (result == STG_E_MEDIUMFULL) SetLastError(ERROR_DISK_FULL);
}

// The streams of one storage that are open now, by upper-cased name. The
// system refuses to open an open stream again but, under Wine, replaces it
// when asked to create it; the library holds one stream for one file at a
// time on every system.
using OpenNames = std::set<std::wstring>;

std::wstring UpperCased(const std::u16string& name) {
  std::wstring upper(Wide(name));
  if (!upper.empty()) CharUpperBuffW(&upper[0], static_cast<DWORD>(upper.size()));
  return upper;
}

class OleStream : public DocumentStream {
 public:
  OleStream(std::shared_ptr<Document> document, ComPtr<IStream> stream, std::shared_ptr<OpenNames> open,
            std::wstring name)
      : document_(std::move(document)), stream_(std::move(stream)), open_(std::move(open)), name_(std::move(name)) {
    open_->insert(name_);
  }
  ~OleStream() override { open_->erase(name_); }

  int ReadAt(long long position, int count, void* data) override {
    if (position < 0 || count < 0) return -1;
    if (count == 0) return 0;
    if (!SeekTo(position)) return -1;
    ULONG got = 0;
    const HRESULT result = stream_->Read(data, static_cast<ULONG>(count), &got);
    return FAILED(result) ? -1 : static_cast<int>(got);
  }

  bool WriteAt(long long position, int count, const void* data) override {
    if (position < 0 || count < 0) return false;
    const long long size = Size();
    if (size < 0) return false;
    // The system leaves a gap undefined; the library's streams read it as zeros.
    if (position > size && !FillWithZeros(size, position)) return false;
    if (!SeekTo(position)) return false;
    ULONG put = 0;
    const HRESULT result = stream_->Write(data, static_cast<ULONG>(count), &put);
    NoteFailure(result);
    return SUCCEEDED(result) && put == static_cast<ULONG>(count);
  }

  long long Size() override {
    STATSTG status = {};
    if (FAILED(stream_->Stat(&status, STATFLAG_NONAME))) return -1;
    return static_cast<long long>(status.cbSize.QuadPart);
  }

 private:
  bool SeekTo(long long position) {
    LARGE_INTEGER to;
    to.QuadPart = position;
    return SUCCEEDED(stream_->Seek(to, STREAM_SEEK_SET, nullptr));
  }

  bool FillWithZeros(long long from, long long to) {
    static const unsigned char zeros[4096] = {};
    if (!SeekTo(from)) return false;
    for (long long at = from; at < to;) {
      const ULONG chunk = to - at < static_cast<long long>(sizeof zeros) ? static_cast<ULONG>(to - at) : sizeof zeros;
      ULONG put = 0;
      const HRESULT result = stream_->Write(zeros, chunk, &put);
      NoteFailure(result);
      if (FAILED(result) || put != chunk) return false;
      at += chunk;
    }
    return true;
  }

  std::shared_ptr<Document> document_;
  ComPtr<IStream> stream_;
  std::shared_ptr<OpenNames> open_;
  std::wstring name_;
};

class OleStorage : public DocumentStorage {
 public:
  OleStorage(std::shared_ptr<Document> document, ComPtr<IStorage> storage)
      : document_(std::move(document)), storage_(std::move(storage)) {}

  std::unique_ptr<DocumentStorage> OpenStorage(const std::u16string& name, bool create) override {
    IStorage* child = nullptr;
    HRESULT result = storage_->OpenStorage(Wide(name), nullptr, Access() | STGM_SHARE_EXCLUSIVE, nullptr, 0, &child);
    if (result == STG_E_FILENOTFOUND && create && document_->writable) {
      // Never in place of a stream of that name.
      result =
          storage_->CreateStorage(Wide(name), STGM_FAILIFTHERE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, &child);
    }
    if (FAILED(result)) return nullptr;
    return std::make_unique<OleStorage>(document_, ComPtr<IStorage>(child));
  }

  std::unique_ptr<DocumentStream> OpenStream(const std::u16string& name) override {
    const std::wstring key = UpperCased(name);
    if (open_->count(key) != 0) return nullptr;
    IStream* stream = nullptr;
    if (FAILED(storage_->OpenStream(Wide(name), nullptr, Access() | STGM_SHARE_EXCLUSIVE, 0, &stream))) {
      return nullptr;
    }
    return std::make_unique<OleStream>(document_, ComPtr<IStream>(stream), open_, key);
  }

  std::unique_ptr<DocumentStream> CreateStream(const std::u16string& name) override {
    const std::wstring key = UpperCased(name);
    if (!document_->writable || open_->count(key) != 0) return nullptr;
    IStream* stream = nullptr;
    if (FAILED(
            storage_->CreateStream(Wide(name), STGM_CREATE | STGM_READWRITE | STGM_SHARE_EXCLUSIVE, 0, 0, &stream))) {
      return nullptr;
    }
    return std::make_unique<OleStream>(document_, ComPtr<IStream>(stream), open_, key);
  }

  // The storages below the root are direct: their changes are already the
  // root's, whose commit writes the file.
  // A file made read-only since it was opened is not written either, though
  // the system's open handle still could.
  bool Commit(int flags) override {
    if (!document_->writable) return false;
    const DWORD attributes = GetFileAttributesW(document_->path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0) return false;
    return SUCCEEDED(document_->root->Commit(static_cast<DWORD>(flags)));
  }

 private:
  DWORD Access() const { return document_->writable ? STGM_READWRITE : STGM_READ; }

  std::shared_ptr<Document> document_;
  ComPtr<IStorage> storage_;
  std::shared_ptr<OpenNames> open_ = std::make_shared<OpenNames>();
};

// Several holders may open one document, each with its own transaction; the
// commit condition tells whether another one committed meanwhile.
constexpr DWORD kDocumentShare = STGM_TRANSACTED | STGM_SHARE_DENY_NONE;

IStorage* OpenExisting(const char16_t* path, bool* writable) {
  IStorage* root = nullptr;
  *writable = true;
  HRESULT result = StgOpenStorageEx(Wide(path), kDocumentShare | STGM_READWRITE, STGFMT_DOCFILE, 0, nullptr, nullptr,
                                    IID_IStorage, reinterpret_cast<void**>(&root));
  if (FAILED(result)) {
    // A read-only file is read; its changes are refused by the commit.
    *writable = false;
    result = StgOpenStorageEx(Wide(path), kDocumentShare | STGM_READ, STGFMT_DOCFILE, 0, nullptr, nullptr, IID_IStorage,
                              reinterpret_cast<void**>(&root));
  }
  return SUCCEEDED(result) ? root : nullptr;
}

// A new document is on disk at once, empty, as the place it will take.
IStorage* CreateNew(const char16_t* path) {
  IStorage* root = nullptr;
  if (FAILED(StgCreateDocfile(Wide(path), kDocumentShare | STGM_READWRITE | STGM_FAILIFTHERE, 0, &root))) {
    return nullptr;
  }
  if (FAILED(root->Commit(STGC_DEFAULT))) {
    root->Release();
    DeleteFileW(Wide(path));
    return nullptr;
  }
  return root;
}

}  // namespace

std::unique_ptr<DocumentStorage> OpenDocumentStorage(const char16_t* path, bool create) {
  if (path == nullptr || path[0] == u'\0') return nullptr;
  try {
    auto document = std::make_shared<Document>();
    document->path = Wide(path);
    const DWORD attributes = GetFileAttributesW(Wide(path));
    IStorage* root = nullptr;
    if (attributes != INVALID_FILE_ATTRIBUTES) {
      if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 || !IsSoundDocument(path)) return nullptr;
      root = OpenExisting(path, &document->writable);
    } else if (create) {
      root = CreateNew(path);
      document->writable = true;
    }
    if (root == nullptr) return nullptr;
    document->root.reset(root);
    root->AddRef();
    return std::make_unique<OleStorage>(document, ComPtr<IStorage>(root));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace qorc::platform
