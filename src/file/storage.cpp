// Compound documents: the storages a host holds, over the platform's open
// documents. The rules on names are the format's and are checked here, the
// same on every system.
#include <qorc/error.h>
#include <qorc/file.h>
#include <qorc/storage.h>

#include <new>
#include <string>

#include "file/storage_internal.h"
#include "platform/compound_storage.h"

namespace {

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

}  // namespace

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
    std::unique_ptr<qorc::platform::DocumentStorage> document;
    if (!expanded.IsVoid()) document = qorc::platform::OpenDocumentStorage(expanded.GetWCHAR(), create);
    if (document == nullptr) {
      CerrFileCannotOpen.TriggerMild(&expanded);
      return nullptr;
    }
    return Adopt(new Impl(std::move(document)));
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
    return nullptr;
  }
}

IStorage* IStorage::OpenStorage(const C_STRING& name, C_BOOL create) {
  try {
    const std::u16string units = Units(name);
    std::unique_ptr<qorc::platform::DocumentStorage> child;
    if (IsElementName(units)) child = impl_->storage->OpenStorage(units, create);
    if (child == nullptr) {
      CerrFileCannotOpen.TriggerMild(&name);
      return nullptr;
    }
    return Adopt(new Impl(std::move(child)));
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
    return nullptr;
  }
}

C_BOOL IStorage::Commit(int flags) {
  try {
    return impl_->storage->Commit(flags);
  } catch (const std::bad_alloc&) {
    return false;
  }
}
