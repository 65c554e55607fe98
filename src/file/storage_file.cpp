// A file object on a storage: the stream "Contents" of a compound document,
// read and written as raw bytes. Opening it for reading tells through the
// compressed switch whether the stream holds the library's compressed format;
// its bytes are never decompressed here.
#include <qorc/error.h>
#include <qorc/file.h>
#include <qorc/storage.h>

#include <cstring>
#include <new>

#include "file/storage_internal.h"
#include "file/storage_stream.h"
#include "platform/file_stream.h"

namespace {

const char16_t kContents[] = u"Contents";
// The compressed format's magic and four bytes after it are read at once.
constexpr int kHeadBytes = 20;

}  // namespace

// The stream wrapper -----------------------------------------------------------

C_FILE::StorageStream* C_FILE::StorageStream::Open(IStorage* storage, MODE mode) {
  qorc::platform::DocumentStorage* document = storage->GetImpl()->storage.get();
  try {
    std::unique_ptr<qorc::platform::DocumentStream> stream;
    if (mode == READ) {
      stream = document->OpenStream(kContents);
      if (stream == nullptr) stream = document->CreateStream(kContents);
    } else if (mode == UPDATE) {
      // Written anew each time: what the stream held before is dropped.
      stream = document->CreateStream(kContents);
    }
    if (stream == nullptr) return nullptr;
    return new (std::nothrow) StorageStream(std::move(stream), mode == UPDATE);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void C_FILE::StorageStream::Read(int count, void* data, int* got) {
  if (got != nullptr) *got = 0;
  if (count <= 0) return;
  const int read = stream_->ReadAt(position_, count, data);
  if (read < 0) {
    CerrFileCannotRead.TriggerMild(&C_STRING::VOID);
    return;
  }
  position_ += read;
  if (got != nullptr) *got = read;
  if (read < count) CerrFileEndReached.Trigger(&C_STRING::VOID);
}

void C_FILE::StorageStream::Write(int count, const void* data, int* put) {
  if (put != nullptr) *put = 0;
  if (count <= 0) return;
  // A stream opened for reading is not written.
  if (!writable_) {
    CerrFileCannotWrite.TriggerMild(&C_STRING::VOID);
    return;
  }
  if (!stream_->WriteAt(position_, count, data)) {
    if (C_ERROR::Is()) return;
    if (qorc::platform::LastFailureWasNoSpace()) {
      CerrFileNotEnoughSpace.TriggerMild(&C_STRING::VOID);
    } else {
      CerrFileCannotWrite.TriggerMild(&C_STRING::VOID);
    }
    return;
  }
  position_ += count;
  if (put != nullptr) *put = count;
}

void C_FILE::StorageStream::Seek(long long position) {
  if (position < 0) {
    CerrFileCannotSeek.TriggerMild(&C_STRING::VOID);
    return;
  }
  position_ = position;
}

// The file object ----------------------------------------------------------------

C_FILE::C_FILE(IStorage* storage, int mode) {
  coding_ = true;
  type_ = BINARY;
  // Bit 31 means nothing here. A storage file is read in READ and written in
  // UPDATE; WRITE, which would have to create the stream empty, is refused
  // like every other mode.
  const int given = mode & ~DIRECT;
  mode_ = given == READ ? READ : (given == WRITE ? WRITE : UPDATE);
  if (storage == nullptr) {
    CerrFileCannotCreateOleStream.Trigger();
    return;
  }
  if (given == READ || given == UPDATE) storageStream_ = StorageStream::Open(storage, mode_);
  if (storageStream_ == nullptr) {
    CerrFileCannotCreateOleStream.Trigger();
    return;
  }
  storage_ = storage;
  if (mode_ != READ) return;
  // The switch stays set when the stream is too short to tell: the caller
  // sees the end of the stream pending and gives up on it anyway.
  compressed_ = true;
  char head[kHeadBytes];
  Read(kHeadBytes, head);
  if (C_ERROR::Is()) return;
  if (std::memcmp(head, COMPRESS_MAGIC, 16) != 0) {
    compressed_ = false;
    storageStream_->Seek(0);
  }
}

void C_FILE::CloseStorageStream() {
  delete storageStream_;
  storageStream_ = nullptr;
  IStorage* storage = storage_;
  storage_ = nullptr;
  if (mode_ == UPDATE && !storage->Commit(IStorage::COMMIT_ONLY_IF_CURRENT)) CerrInternalError.Trigger();
}
