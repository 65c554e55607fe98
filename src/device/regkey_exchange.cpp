// Export of settings keys to the registry editor's text files, and import
// from them.
//
// An import reads the file twice: once to check all of it, storing nothing,
// then again to store it section by section. A refused file therefore
// changes no store, also on stores that cannot gather several writes into
// one change; where a store can, the writes of the second reading are one
// change of it as well, so that a store that fails half-way keeps nothing.
// Neither reading holds more than one entry in memory.
#include <qorc/file.h>
#include <qorc/regkey.h>

#include <cstdio>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "device/regkey_file.h"
#include "device/regkey_internal.h"
#include "platform/file_stream.h"
#include "platform/filesystem.h"
#include "platform/settings_store.h"

namespace {

namespace store = qorc::platform;
namespace regfile = qorc::regfile;
using Handle = C_REGKEY::HANDLE;
using regfile::Root;

constexpr unsigned kReadAccess = store::kSettingsQuery | store::kSettingsEnumerate;
constexpr unsigned kAllAccess = kReadAccess | store::kSettingsSet | store::kSettingsCreateSubkey;
// Export text is written out in pieces of this many units.
constexpr std::size_t kWriteChunk = 1 << 15;

void Fail(const char* key) { C_ERROR::TriggerDbgMild(key); }

const C_REGKEY* RootKey(Root root) { return root == Root::kMachine ? C_REGKEY::MACHINE : C_REGKEY::USER; }

// A handle of its own on the key, with the rights the exchange needs.
Handle OwnHandle(Handle key, unsigned access) {
  Handle own = nullptr;
  if (key == nullptr ||
      store::OpenSettingsKey(key, std::u16string(), access, false, &own) != store::SettingsResult::Ok) {
    Fail("C#Err#Unable to open key");
    return nullptr;
  }
  return own;
}

// Export ----------------------------------------------------------------------------------

// The export file, written as the text grows. A file that fails half-way is
// removed, unless it was there before (a device, or a file the export was
// meant to replace).
class ExportFile {
 public:
  explicit ExportFile(const C_STRING& path) : path_(path), existed_(store::PathExists(path.GetWCHAR())) {}
  ~ExportFile() {
    if (file_ != nullptr) std::fclose(file_);
  }
  ExportFile(const ExportFile&) = delete;
  ExportFile& operator=(const ExportFile&) = delete;

  bool Open() {
    file_ = store::OpenStream(path_.GetWCHAR(), "wb");
    if (file_ == nullptr) CerrFileCannotCreate.TriggerMild(&path_);
    return file_ != nullptr && Put(u"\xFEFF");
  }
  // False with the error pending when the file cannot take the text.
  bool Put(const std::u16string& text) {
    pending_ += text;
    return pending_.size() < kWriteChunk || Flush();
  }
  bool Finish() {
    if (!Flush()) return false;
    const bool closed = std::fclose(file_) == 0;
    file_ = nullptr;
    return closed || Failed(store::LastFailureWasNoSpace());
  }
  // Removes what was written (the error is already pending).
  void Abandon() {
    if (file_ != nullptr) std::fclose(file_);
    file_ = nullptr;
    if (!existed_) store::RemoveFile(path_.GetWCHAR());
  }

 private:
  bool Flush() {
    const std::string bytes = regfile::FileBytes(pending_, false);
    pending_.clear();
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file_) == bytes.size() && std::fflush(file_) == 0;
    return written || Failed(store::LastFailureWasNoSpace());
  }
  bool Failed(bool noSpace) {
    (noSpace ? CerrFileNotEnoughSpace : CerrFileCannotWrite).TriggerMild(&path_);
    return false;
  }

  C_STRING path_;
  bool existed_;
  std::FILE* file_ = nullptr;
  std::u16string pending_;
};

// Writes the key's section, its entries and, in their order, its subkeys.
// False when the store cannot be read (nothing pending) or the file cannot
// be written (its error pending).
bool WriteKey(Handle key, const std::u16string& fullPath, ExportFile* file) {
  if (!file->Put(regfile::SectionLine(fullPath))) return false;
  std::vector<std::u16string> names;
  if (store::ListSettingsEntries(key, &names) != store::SettingsResult::Ok) return false;
  for (const std::u16string& name : names) {
    regfile::Entry entry;
    entry.name = name;
    if (store::QuerySettingsEntry(key, name, &entry.type, &entry.data) != store::SettingsResult::Ok) return false;
    if (!file->Put(regfile::EntryLine(entry))) return false;
  }
  if (!file->Put(u"\r\n")) return false;
  names.clear();
  if (store::ListSettingsSubkeys(key, &names) != store::SettingsResult::Ok) return false;
  for (const std::u16string& name : names) {
    Handle child = nullptr;
    if (store::OpenSettingsKey(key, name, kReadAccess, false, &child) != store::SettingsResult::Ok) return false;
    const bool written = WriteKey(child, fullPath + u'\\' + name, file);
    store::CloseSettingsKey(child);
    if (!written) return false;
  }
  return true;
}

// Reading the file ------------------------------------------------------------------------

class FileSource : public regfile::Source {
 public:
  explicit FileSource(std::FILE* file) : file_(file) {}
  long Read(unsigned char* buffer, std::size_t capacity) override {
    const std::size_t got = std::fread(buffer, 1, capacity, file_);
    return got == 0 && std::ferror(file_) != 0 ? -1 : static_cast<long>(got);
  }
  bool Rewind() override {
    std::clearerr(file_);
    return store::StreamSeek(file_, 0, SEEK_SET);
  }

 private:
  std::FILE* file_;
};

// The file being imported, open for both readings.
class ImportFile {
 public:
  explicit ImportFile(const C_STRING& path) : path_(path) {
    C_FILE::ExpandPath(&path_);
    file_ = store::OpenStream(path_.GetWCHAR(), "rb");
    if (file_ == nullptr) CerrFileCannotOpen.TriggerMild(&path_);
  }
  ~ImportFile() {
    if (file_ != nullptr) std::fclose(file_);
  }
  ImportFile(const ImportFile&) = delete;
  ImportFile& operator=(const ImportFile&) = delete;

  bool IsOpen() const { return file_ != nullptr; }

  // Reads the whole file into the visitor; false with the error pending when
  // it is malformed or cannot be read, false alone when the visitor stopped.
  bool Read(regfile::Visitor* visitor) {
    FileSource source(file_);
    regfile::ParseError error;
    switch (regfile::Parse(&source, &encoding_, visitor, &error)) {
      case regfile::Status::kDone:
        return true;
      case regfile::Status::kStopped:
        return false;
      case regfile::Status::kReadFailed:
        CerrFileCannotRead.TriggerMild(&path_);
        return false;
      case regfile::Status::kMalformed:
        break;
    }
    Refuse(error.line, error.reason);
    return false;
  }

  // Refuses the file as malformed at the line.
  void Refuse(int line, const std::u16string& reason) const {
    const C_STRING where = path_ + C_STRING(line, C_STRING(u", line %d: ")) + qorc::FromUnits(reason);
    CerrFileContainsInvalidCode.TriggerMild(&where);
  }

 private:
  C_STRING path_;
  std::FILE* file_ = nullptr;
  // Found by the first reading, kept for the second.
  regfile::Encoding encoding_ = regfile::Encoding::kDetect;
};

// The path of `path` below `base` (both below one root): false when it does
// not lie there.
bool PathBelow(const std::u16string& base, const std::u16string& path, std::u16string* relative) {
  if (base.empty()) {
    *relative = path;
    return true;
  }
  if (path.size() == base.size() && regfile::SameKeyName(path, base)) {
    relative->clear();
    return true;
  }
  if (path.size() <= base.size() || path[base.size()] != u'\\' ||
      !regfile::SameKeyName(path.substr(0, base.size()), base)) {
    return false;
  }
  *relative = path.substr(base.size() + 1);
  return true;
}

// Checking --------------------------------------------------------------------------------

// Notes which roots the file stores into.
class RootCheck : public regfile::Visitor {
 public:
  bool OnSection(const regfile::Section& section) override {
    (section.root == Root::kMachine ? machine : user) = true;
    return true;
  }
  bool OnEntry(const regfile::Entry&) override { return true; }

  bool user = false;
  bool machine = false;
};

// A file imported into one key is about the first key it stores into; every
// other key it names, deleted ones included, lies under that key.
class KeyCheck : public regfile::Visitor {
 public:
  bool OnSection(const regfile::Section& section) override {
    if (!found_ && section.remove) {
      early_.push_back(section);
      return true;
    }
    if (!found_) {
      found_ = true;
      base_ = section;
      for (const regfile::Section& deleted : early_) CheckBelow(deleted);
      early_.clear();
    }
    CheckBelow(section);
    return true;
  }
  bool OnEntry(const regfile::Entry&) override { return true; }

  // At the end of the file: a file of deletions alone has no key to be
  // about. False, with what is refused, when that is so.
  bool Complete(regfile::Refusal* refusal) const {
    if (early_.empty()) return true;
    *refusal = regfile::Refusal{u"a file imported into a key must name that key in a [key] that is not deleted",
                                early_.front().line};
    return false;
  }
  const regfile::Section& Base() const { return base_; }

 private:
  void CheckBelow(const regfile::Section& section) const {
    std::u16string relative;
    if (section.root != base_.root || !PathBelow(base_.path, section.path, &relative)) {
      throw regfile::Refusal{u"every key must lie under the first key of the file", section.line};
    }
    if (section.remove && relative.empty()) {
      throw regfile::Refusal{u"the key imported into cannot be deleted", section.line};
    }
  }

  bool found_ = false;
  regfile::Section base_;
  std::vector<regfile::Section> early_;
};

// Storing ---------------------------------------------------------------------------------

// Where a section goes: the key to write under and the path below it.
using Placement = std::function<void(const regfile::Section&, Handle*, std::u16string*)>;

// Stores the sections and entries as the second reading hands them on.
class Writer : public regfile::Visitor {
 public:
  explicit Writer(Placement place) : place_(std::move(place)) {}
  ~Writer() override { CloseCurrent(); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  bool OnSection(const regfile::Section& section) override {
    CloseCurrent();
    Handle target = nullptr;
    std::u16string path;
    place_(section, &target, &path);
    if (section.remove) return store::DeleteSettingsTree(target, path) == store::SettingsResult::Ok;
    return store::OpenSettingsKey(target, path, kAllAccess, true, &current_) == store::SettingsResult::Ok;
  }

  bool OnEntry(const regfile::Entry& entry) override {
    const store::SettingsResult result =
        entry.remove ? store::DeleteSettingsEntry(current_, entry.name)
                     : store::SetSettingsEntry(current_, entry.name, entry.type, entry.data.data(), entry.data.size());
    return result == store::SettingsResult::Ok || (entry.remove && result == store::SettingsResult::NotFound);
  }

 private:
  void CloseCurrent() {
    if (current_ != nullptr) store::CloseSettingsKey(current_);
    current_ = nullptr;
  }

  Placement place_;
  Handle current_ = nullptr;
};

// The stores written by one import, each gathering its writes into one change.
class Changes {
 public:
  ~Changes() { Abandon(); }
  Changes() = default;
  Changes(const Changes&) = delete;
  Changes& operator=(const Changes&) = delete;

  bool Begin(Handle key) {
    for (Handle begun : begun_) {
      if (store::SameSettingsStore(begun, key)) return true;
    }
    if (!store::BeginSettingsBatch(key)) return false;
    begun_.push_back(key);
    return true;
  }
  bool Commit() {
    bool committed = true;
    for (Handle key : begun_) committed = store::CommitSettingsBatch(key) && committed;
    begun_.clear();
    return committed;
  }
  void Abandon() {
    for (Handle key : begun_) store::AbandonSettingsBatch(key);
    begun_.clear();
  }

 private:
  std::vector<Handle> begun_;
};

// The second reading, inside one change of every store it writes.
void Store(ImportFile* file, const std::vector<Handle>& writers, Placement place) {
  Changes changes;
  for (Handle writer : writers) {
    if (!changes.Begin(writer)) return Fail("C#Err#Unable to write data");
  }
  Writer writer(std::move(place));
  // A file that changed since it was checked is refused now; its error is pending.
  if (!file->Read(&writer)) {
    if (!C_ERROR::Is()) Fail("C#Err#Unable to write data");
    return;
  }
  if (!changes.Commit()) Fail("C#Err#Unable to write data");
}

class Handles {
 public:
  ~Handles() {
    for (Handle handle : handles) store::CloseSettingsKey(handle);
  }
  std::vector<Handle> handles;
};

}  // namespace

struct RegkeyExchangeAccess {
  static Handle KeyHandle(const C_REGKEY* key) { return key->KeyHandle(); }
};

void CregkeyExport(const C_REGKEY* key, const C_STRING& path) {
  if (key == nullptr) return Fail("C#Err#Key is not open");
  const Handle handle = RegkeyExchangeAccess::KeyHandle(key);
  if (handle == nullptr) return;
  C_STRING expanded(path);
  C_FILE::ExpandPath(&expanded);
  try {
    Handles own;
    const Handle reader = OwnHandle(handle, kReadAccess);
    if (reader == nullptr) return;
    own.handles.push_back(reader);
    const bool machine = store::SameSettingsStore(handle, qorc::RootHandle(C_REGKEY::MACHINE));
    const std::u16string relative = store::SettingsKeyPath(reader);
    std::u16string fullPath = regfile::RootName(machine ? Root::kMachine : Root::kUser);
    if (!relative.empty()) fullPath += u'\\' + relative;
    ExportFile file(expanded);
    if (!file.Open()) return;
    const bool written =
        file.Put(std::u16string(regfile::kHeader) + u"\r\n\r\n") && WriteKey(reader, fullPath, &file) && file.Finish();
    if (written) return;
    if (!C_ERROR::Is()) Fail("C#Err#Unable to read entry");
    file.Abandon();
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
  }
}

void CregkeyImport(const C_REGKEY* key, const C_STRING& path) {
  if (key == nullptr) return Fail("C#Err#Key is not open");
  const Handle handle = RegkeyExchangeAccess::KeyHandle(key);
  if (handle == nullptr) return;
  try {
    ImportFile file(path);
    KeyCheck check;
    if (!file.IsOpen() || !file.Read(&check)) return;
    regfile::Refusal refusal;
    if (!check.Complete(&refusal)) return file.Refuse(refusal.line, refusal.reason);
    Handles own;
    const Handle writer = OwnHandle(handle, kAllAccess);
    if (writer == nullptr) return;
    own.handles.push_back(writer);
    const regfile::Section base = check.Base();
    Store(&file, own.handles, [&](const regfile::Section& section, Handle* target, std::u16string* below) {
      *target = writer;
      PathBelow(base.path, section.path, below);
    });
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
  }
}

void CregkeyCheck(const C_STRING& path, C_BOOL* user, C_BOOL* machine) {
  if (user != nullptr) *user = false;
  if (machine != nullptr) *machine = false;
  try {
    ImportFile file(path);
    RootCheck check;
    if (!file.IsOpen() || !file.Read(&check)) return;
    if (user != nullptr) *user = check.user;
    if (machine != nullptr) *machine = check.machine;
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
  }
}

void CregkeyImport(const C_STRING& path) {
  try {
    ImportFile file(path);
    RootCheck check;
    if (!file.IsOpen() || !file.Read(&check)) return;
    // Every root the file names must be wired before anything is stored.
    Handles own;
    Handle writers[2] = {nullptr, nullptr};
    for (Root root : {Root::kUser, Root::kMachine}) {
      if (!(root == Root::kMachine ? check.machine : check.user)) continue;
      const Handle handle = qorc::RootHandle(RootKey(root));
      if (handle == nullptr) return Fail("C#Err#Unable to open root key");
      writers[root == Root::kMachine] = OwnHandle(handle, kAllAccess);
      if (writers[root == Root::kMachine] == nullptr) return;
      own.handles.push_back(writers[root == Root::kMachine]);
    }
    Store(&file, own.handles, [&](const regfile::Section& section, Handle* target, std::u16string* below) {
      *target = writers[section.root == Root::kMachine];
      *below = section.path;
    });
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
  }
}
