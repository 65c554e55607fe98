// Compound documents from hostile bytes: opened as a storage, "Contents"
// and a child storage's "Contents" read through the file object, and some
// documents written back by a commit. Half of the inputs are patches to a
// sound document, so that the allocation tables and the directory behind a
// valid header are reached.
#include <qorc/storage.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "file_fuzz_support.h"

namespace {

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void WriteContents(IStorage* storage, int size) {
  std::vector<char> bytes(static_cast<std::size_t>(size));
  for (int i = 0; i < size; ++i) bytes[static_cast<std::size_t>(i)] = static_cast<char>(i * 7);
  C_FILE file(storage, C_FILE::UPDATE);
  file.Write(size, bytes.data());
}

// A document with a stream in whole sectors, a storage and a small stream.
std::string SoundDocument() {
  const std::string path = ScratchPath("template.ole");
  IStorage* storage = IStorage::Open(LibraryPath(path), true);
  if (storage == nullptr) return std::string();
  WriteContents(storage, 5000);
  IStorage* child = storage->OpenStorage(C_STRING(u"Child"), true);
  if (child != nullptr) {
    WriteContents(child, 100);
    child->Release();
  }
  storage->Release();
  C_ERROR::ClearPending();
  std::string bytes = ReadAll(path);
  std::remove(path.c_str());
  return bytes;
}

void ReadContents(IStorage* storage) {
  C_FILE file(storage, C_FILE::READ);
  std::vector<char> buffer(4096);
  for (int i = 0; i < 64 && !C_ERROR::Is(); ++i) file.Read(static_cast<int>(buffer.size()), buffer.data());
  C_ERROR::ClearPending();
}

}  // namespace

QORC_FUZZ_INITIALIZE

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = ScratchPath("storage.ole");
  static const std::string sound = SoundDocument();
  std::string bytes;
  const std::uint8_t mode = size == 0 ? 0 : data[0];
  if ((mode & 1) != 0 || sound.empty()) {
    bytes.assign(reinterpret_cast<const char*>(data), size);
  } else {
    // Four bytes at a time written over the sound document at offsets the
    // input gives.
    bytes = sound;
    for (std::size_t i = 1; i + 6 <= size; i += 6) {
      const std::size_t at = (static_cast<std::size_t>(data[i]) << 8 | data[i + 1]) * 4 % bytes.size();
      std::memcpy(&bytes[at], data + i + 2, at + 4 <= bytes.size() ? 4 : bytes.size() - at);
    }
    if ((mode & 2) != 0) bytes.resize(bytes.size() * (mode >> 2) / 64);
  }
  WriteScratch(path, bytes.data(), bytes.size());
  IStorage* storage = IStorage::Open(LibraryPath(path), false);
  C_ERROR::ClearPending();
  if (storage == nullptr) return 0;
  ReadContents(storage);
  if (IStorage* child = storage->OpenStorage(C_STRING(u"Child"), false)) {
    ReadContents(child);
    if ((mode & 4) != 0) WriteContents(child, 300);
    child->Release();
  }
  C_ERROR::ClearPending();
  storage->Commit(IStorage::COMMIT_DEFAULT);
  storage->Release();
  return 0;
}
