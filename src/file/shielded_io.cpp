// Shielded data in files: n bytes written as lines of 20 groups of four
// printable characters, each line ended by a line feed. The block carries no
// length: the reader knows n.
#include <qorc/file.h>

#include <cstring>

#include "file/shielding_code.h"
#include "foundation/library.h"

using qorc::shield::FileBlockSize;

namespace {

// The largest n whose block size still fits an int.
constexpr int kLargestShielded = 1589137896;

// A buffer for the block of n bytes and its size, or null: nothing to do, or
// an error pending (a block beyond an int, or no memory).
char* NewBlock(int n, const C_STRING& path, int* size) {
  if (n <= 0) return nullptr;
  if (n > kLargestShielded) {
    CerrValueTooHigh.TriggerMild(&path);
    return nullptr;
  }
  *size = FileBlockSize(n);
  return qorc::NewArray<char>(static_cast<std::size_t>(*size));
}

}  // namespace

void C_FILE::WriteShielded(int n, void* data, int* consumed, int* written) {
  if (consumed != nullptr) *consumed = 0;
  if (written != nullptr) *written = 0;
  if (stream_ == nullptr) return;
  int size = 0;
  char* block = NewBlock(n, pathExp_, &size);
  if (block == nullptr) return;
  qorc::shield::EncodeFileBlock(static_cast<const unsigned char*>(data), n, block);
  int put = 0;
  if (IsDirectCompressed()) {
    WriteCompress(size, block, &put);
  } else {
    put = static_cast<int>(std::fwrite(block, 1, static_cast<std::size_t>(size), stream_));
  }
  delete[] block;
  if (written != nullptr) *written = put;
  if (put < size) {
    if (!IsDirectCompressed()) ReportWriteFailure();
    // The groups written whole, in bytes of data.
    if (consumed != nullptr) *consumed = static_cast<int>((static_cast<long long>(put) * 3 + 3) / 4);
    return;
  }
  if (consumed != nullptr) *consumed = n;
}

void C_FILE::ReadShielded(int n, void* data, int* decoded, int* read) {
  if (decoded != nullptr) *decoded = 0;
  if (read != nullptr) *read = 0;
  if (RefusedOnStorage()) return;
  if (stream_ == nullptr) return;
  int size = 0;
  char* block = NewBlock(n, pathExp_, &size);
  if (block == nullptr) return;
  int got = 0;
  if (IsDirectCompressed()) {
    ReadCompress(size, block, &got);
    // A block cut by the end of the file is judged below; other errors end here.
    if (CerrFileEndReached.IsPending()) C_ERROR::ClearPending();
    if (C_ERROR::Is()) {
      delete[] block;
      return;
    }
  } else {
    got = static_cast<int>(std::fread(block, 1, static_cast<std::size_t>(size), stream_));
  }
  if (read != nullptr) *read = got;
  bool invalid = false;
  const int stored = qorc::shield::DecodeFileBlock(block, got, n, static_cast<unsigned char*>(data), &invalid);
  delete[] block;
  if (decoded != nullptr) *decoded = stored;
  if (invalid) {
    CerrFileContainsInvalidCode.TriggerMild(&pathExp_);
  } else if (got < size) {
    ReportReadFailure();
  }
}
