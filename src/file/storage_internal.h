// The open storage behind IStorage: one storage of a compound document as
// the platform keeps it.
#ifndef QORC_FILE_STORAGE_INTERNAL_H
#define QORC_FILE_STORAGE_INTERNAL_H

#include <qorc/storage.h>

#include <memory>

#include "platform/compound_storage.h"

class IStorage::Impl {
 public:
  explicit Impl(std::unique_ptr<qorc::platform::DocumentStorage> storage) : storage(std::move(storage)) {}

  std::unique_ptr<qorc::platform::DocumentStorage> storage;
};

#endif
