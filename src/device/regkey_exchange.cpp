// Export of settings keys to the registry editor's text files, and import
// from them.
#include <qorc/file.h>
#include <qorc/regkey.h>

#include <cstdio>
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
using Handle = C_REGKEY::HANDLE;

constexpr unsigned kReadAccess = store::kSettingsQuery | store::kSettingsEnumerate;
constexpr unsigned kAllAccess = kReadAccess | store::kSettingsSet | store::kSettingsCreateSubkey;

void Fail(const char* key) { C_ERROR::TriggerDbgMild(key); }

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

// Appends the key's section, its entries and, in their order, its subkeys.
bool WriteKey(Handle key, const std::u16string& fullPath, std::u16string* text) {
  *text += qorc::regfile::SectionLine(fullPath);
  std::vector<std::u16string> names;
  if (store::ListSettingsEntries(key, &names) != store::SettingsResult::Ok) return false;
  for (const std::u16string& name : names) {
    qorc::regfile::Entry entry;
    entry.name = name;
    if (store::QuerySettingsEntry(key, name, &entry.type, &entry.data) != store::SettingsResult::Ok) return false;
    *text += qorc::regfile::EntryLine(entry);
  }
  *text += u"\r\n";
  names.clear();
  if (store::ListSettingsSubkeys(key, &names) != store::SettingsResult::Ok) return false;
  for (const std::u16string& name : names) {
    Handle child = nullptr;
    if (store::OpenSettingsKey(key, name, kReadAccess, false, &child) != store::SettingsResult::Ok) return false;
    const bool written = WriteKey(child, fullPath + u'\\' + name, text);
    store::CloseSettingsKey(child);
    if (!written) return false;
  }
  return true;
}

// A file that fails half-way is removed, unless it was there before (a
// device, or a file the export was meant to replace).
void WriteFile(const C_STRING& path, const std::string& bytes) {
  const bool existed = store::PathExists(path.GetWCHAR());
  std::FILE* file = store::OpenStream(path.GetWCHAR(), "wb");
  if (file == nullptr) {
    CerrFileCannotCreate.TriggerMild(&path);
    return;
  }
  bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size() && std::fflush(file) == 0;
  const bool noSpace = !written && store::LastFailureWasNoSpace();
  written = std::fclose(file) == 0 && written;
  if (written) return;
  (noSpace || store::LastFailureWasNoSpace() ? CerrFileNotEnoughSpace : CerrFileCannotWrite).TriggerMild(&path);
  if (!existed) store::RemoveFile(path.GetWCHAR());
}

// The whole file, or false with the error pending.
bool ReadFile(const C_STRING& path, std::vector<unsigned char>* bytes) {
  std::FILE* file = store::OpenStream(path.GetWCHAR(), "rb");
  if (file == nullptr) {
    CerrFileCannotOpen.TriggerMild(&path);
    return false;
  }
  unsigned char chunk[65536];
  std::size_t read;
  while ((read = std::fread(chunk, 1, sizeof chunk, file)) > 0) bytes->insert(bytes->end(), chunk, chunk + read);
  const bool failed = std::ferror(file) != 0;
  std::fclose(file);
  if (failed) CerrFileCannotRead.TriggerMild(&path);
  return !failed;
}

bool ApplySection(Handle target, const qorc::regfile::Section& section) {
  if (section.remove) return store::DeleteSettingsTree(target, section.path) == store::SettingsResult::Ok;
  Handle key = nullptr;
  if (store::OpenSettingsKey(target, section.path, kAllAccess, true, &key) != store::SettingsResult::Ok) return false;
  bool applied = true;
  for (const qorc::regfile::Entry& entry : section.entries) {
    const store::SettingsResult result =
        entry.remove ? store::DeleteSettingsEntry(key, entry.name)
                     : store::SetSettingsEntry(key, entry.name, entry.type, entry.data.data(), entry.data.size());
    if (result != store::SettingsResult::Ok && !(entry.remove && result == store::SettingsResult::NotFound)) {
      applied = false;
      break;
    }
  }
  store::CloseSettingsKey(key);
  return applied;
}

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
    const Handle reader = OwnHandle(handle, kReadAccess);
    if (reader == nullptr) return;
    const bool machine = store::SameSettingsStore(handle, qorc::RootHandle(C_REGKEY::MACHINE));
    const std::u16string relative = store::SettingsKeyPath(reader);
    std::u16string fullPath = machine ? u"HKEY_LOCAL_MACHINE" : u"HKEY_CURRENT_USER";
    if (!relative.empty()) fullPath += u'\\' + relative;
    std::u16string text = std::u16string(qorc::regfile::kHeader) + u"\r\n\r\n";
    const bool complete = WriteKey(reader, fullPath, &text);
    store::CloseSettingsKey(reader);
    if (!complete) return Fail("C#Err#Unable to read entry");
    WriteFile(expanded, qorc::regfile::FileBytes(text));
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
  }
}

void CregkeyImport(const C_REGKEY* key, const C_STRING& path) {
  if (key == nullptr) return Fail("C#Err#Key is not open");
  const Handle handle = RegkeyExchangeAccess::KeyHandle(key);
  if (handle == nullptr) return;
  C_STRING expanded(path);
  C_FILE::ExpandPath(&expanded);
  try {
    std::vector<unsigned char> bytes;
    if (!ReadFile(expanded, &bytes)) return;
    std::vector<qorc::regfile::Section> sections;
    qorc::regfile::ParseError error;
    if (!qorc::regfile::Parse(bytes.data(), bytes.size(), &sections, &error)) {
      const C_STRING where = expanded + C_STRING(error.line, C_STRING(u", line %d: ")) + qorc::FromUnits(error.reason);
      CerrFileContainsInvalidCode.TriggerMild(&where);
      return;
    }
    const Handle writer = OwnHandle(handle, kAllAccess);
    if (writer == nullptr) return;
    // All of the file or nothing: the changes are stored as one.
    bool applied = store::BeginSettingsBatch(writer);
    for (std::size_t i = 0; applied && i < sections.size(); ++i) applied = ApplySection(writer, sections[i]);
    if (applied) {
      applied = store::CommitSettingsBatch(writer);
    } else {
      store::AbandonSettingsBatch(writer);
    }
    store::CloseSettingsKey(writer);
    if (!applied) Fail("C#Err#Unable to write data");
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
  }
}
