// What the compound-document suites of both systems share: storages that
// release themselves, and the "Contents" of a storage written and read
// through a file object.
#ifndef QORC_TESTS_FILE_STORAGE_TEST_UTIL_H
#define QORC_TESTS_FILE_STORAGE_TEST_UTIL_H

#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <memory>
#include <string>

#include "file/file_test_util.h"

struct StorageDeleter {
  void operator()(IStorage* storage) const { storage->Release(); }
};
using Storage = std::unique_ptr<IStorage, StorageDeleter>;

inline Storage OpenStorage(const std::string& path, bool create) {
  return Storage(IStorage::Open(LibraryPath(path), create));
}
inline Storage Child(IStorage* parent, const char16_t* name, bool create) {
  return Storage(parent->OpenStorage(C_STRING(name), create));
}

inline void WriteContents(IStorage* storage, const std::string& bytes) {
  C_FILE file(storage, C_FILE::UPDATE);
  int put = -1;
  file.Write(static_cast<int>(bytes.size()), bytes.data(), &put);
  EXPECT_EQ(put, static_cast<int>(bytes.size()));
}

// The whole "Contents" through a file opened for reading, up to the end.
inline std::string ReadContents(IStorage* storage) {
  C_FILE file(storage, C_FILE::READ);
  // A stream shorter than the compressed format's magic leaves the end pending.
  if (C_ERROR::Is() && TakeError() != &CerrFileEndReached) return "<error>";
  file.Rewind();
  std::string out;
  char buffer[65536];
  for (int got = 0; !C_ERROR::Is(); out.append(buffer, static_cast<std::size_t>(got))) {
    file.Read(sizeof buffer, buffer, &got);
  }
  EXPECT_EQ(TakeError(), &CerrFileEndReached);
  return out;
}

// Bytes in lower-case hexadecimal, as olefile's dumps give them.
inline std::string Hex(const std::string& bytes) {
  std::string out;
  for (unsigned char c : bytes) (out += "0123456789abcdef"[c >> 4]) += "0123456789abcdef"[c & 15];
  return out;
}

#endif
