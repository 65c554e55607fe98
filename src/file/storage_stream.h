// The stream wrapper of a file object opened on a storage: the stream
// "Contents" with its own position, opened for reading or for reading and
// writing.
#ifndef QORC_FILE_STORAGE_STREAM_H
#define QORC_FILE_STORAGE_STREAM_H

#include <qorc/file.h>
#include <qorc/storage.h>

#include <memory>

#include "platform/compound_storage.h"

class C_FILE::StorageStream {
 public:
  // READ opens the stream, or makes an empty one when there is none; UPDATE
  // always makes it anew. Null for any other mode and when the stream is
  // open already.
  static StorageStream* Open(IStorage* storage, MODE mode);
  ~StorageStream() = default;
  StorageStream(const StorageStream&) = delete;
  StorageStream& operator=(const StorageStream&) = delete;

  // A short read leaves CerrFileEndReached pending.
  void Read(int count, void* data, int* got);
  void Write(int count, const void* data, int* put);
  // Positions before the start are refused with CerrFileCannotSeek.
  void Seek(long long position);
  void SeekEnd() { position_ = stream_->Size(); }
  long long Position() const { return position_; }

 private:
  StorageStream(std::unique_ptr<qorc::platform::DocumentStream> stream, bool writable)
      : stream_(std::move(stream)), writable_(writable) {}

  std::unique_ptr<qorc::platform::DocumentStream> stream_;
  bool writable_;
  long long position_ = 0;
};

#endif
