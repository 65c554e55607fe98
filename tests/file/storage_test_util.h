// What the compound-document suites of both systems share: storages that
// release themselves, and the "Contents" of a storage written and read
// through a file object.
#ifndef QORC_TESTS_FILE_STORAGE_TEST_UTIL_H
#define QORC_TESTS_FILE_STORAGE_TEST_UTIL_H

#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

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

// Damaged copies of `sound`, a document whose "Contents" spans several
// sectors, each with the name of its damage: not a document at all, cut
// short, or with the allocation table, a stream's size or the directory
// pointing astray.
inline std::vector<std::pair<const char*, std::string>> DamagedDocuments(const std::string& sound) {
  const auto load32 = [&](std::size_t at) {
    unsigned value = 0;
    std::memcpy(&value, sound.data() + at, 4);
    return value;
  };
  const auto with32 = [&](std::size_t at, unsigned value) {
    std::string bytes = sound;
    std::memcpy(&bytes[at], &value, 4);
    return bytes;
  };
  const std::size_t sector = std::size_t{1} << static_cast<unsigned char>(sound[0x1E]);
  const std::size_t fat = (load32(0x4C) + 1) * sector, directory = (load32(0x30) + 1) * sector;
  std::size_t entry = directory;
  while (entry + 128 <= sound.size() && std::memcmp(sound.data() + entry, u"Contents", 16) != 0) entry += 128;
  EXPECT_LE(entry + 128, sound.size()) << "no \"Contents\" entry";
  if (entry + 128 > sound.size()) return {};
  const unsigned start = load32(entry + 0x74);
  return {
      {"empty", ""},
      {"text", "this is not a compound document\n"},
      {"header only", sound.substr(0, 512)},
      {"truncated", sound.substr(0, sound.size() / 2)},
      {"cyclic chain", with32(fat + 4 * (start + 3), start + 1)},
      {"size beyond the file", with32(entry + 0x78, 0x7FFFFF00)},
      {"chain leaving the table", with32(fat + 4 * (start + 3), 0x00FFFFFF)},
      {"directory entry linked to itself", with32(entry + 0x44, static_cast<unsigned>((entry - directory) / 128))},
  };
}

#endif
