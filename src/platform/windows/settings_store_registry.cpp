// The settings store on Windows: the system registry itself. A key handle is
// an HKEY; the user and machine roots are HKEY_CURRENT_USER and
// HKEY_LOCAL_MACHINE, and a store file is an application hive. Access rights
// are the registry's own, so each mode gets what the system grants.
//
// The seam's header comes before <windows.h>: the library's public headers
// cannot follow it, since its VOID macro would replace members of that name.
#include <cstring>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "platform/settings_backend.h"
#include "platform/windows/win32.h"

namespace qorc::platform {

namespace registry {

SettingsResult QuerySettingsEntry(SettingsKey* key, const std::u16string& name, unsigned* type,
                                  std::vector<unsigned char>* data);
SettingsResult ListSettingsSubkeys(SettingsKey* key, std::vector<std::u16string>* names);
SettingsResult ListSettingsEntries(SettingsKey* key, std::vector<std::u16string>* names);

namespace {

// Longest names the registry allows, terminator included.
constexpr DWORD kKeyNameUnits = 256;
constexpr DWORD kValueNameUnits = 16384;

HKEY AsHkey(SettingsKey* key) { return reinterpret_cast<HKEY>(key); }
SettingsKey* AsKey(HKEY key) { return reinterpret_cast<SettingsKey*>(key); }

const wchar_t* Wide(const std::u16string& text) { return reinterpret_cast<const wchar_t*>(text.c_str()); }

SettingsResult ResultOf(LSTATUS status) {
  switch (status) {
    case ERROR_SUCCESS:
      return SettingsResult::Ok;
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      return SettingsResult::NotFound;
    case ERROR_ACCESS_DENIED:
      return SettingsResult::Denied;
    default:
      return SettingsResult::Failed;
  }
}

// The predefined roots are not handles of this process and are never closed.
bool IsPredefined(HKEY key) {
  return key == HKEY_CLASSES_ROOT || key == HKEY_CURRENT_USER || key == HKEY_LOCAL_MACHINE || key == HKEY_USERS ||
         key == HKEY_PERFORMANCE_DATA || key == HKEY_CURRENT_CONFIG || key == HKEY_DYN_DATA;
}

// Application hives by the upper-cased path of their file.
std::map<std::u16string, HKEY>& LoadedHives() {
  static std::map<std::u16string, HKEY> hives;
  return hives;
}

bool IsHiveTop(HKEY key) {
  for (const auto& [path, top] : LoadedHives()) {
    if (top == key) return true;
  }
  return false;
}

std::u16string UpperCased(const std::u16string& text) {
  std::u16string upper(text);
  if (!upper.empty()) {
    CharUpperBuffW(reinterpret_cast<wchar_t*>(&upper[0]), static_cast<DWORD>(upper.size()));
  }
  return upper;
}

// Makes the folders above a file that are missing.
void MakeParentFolders(const std::u16string& path) {
  for (std::size_t at = path.find(u'\\', 3); at != std::u16string::npos; at = path.find(u'\\', at + 1)) {
    const std::u16string folder = path.substr(0, at);
    if (folder.size() > 2 && folder.back() != u':') CreateDirectoryW(Wide(folder), nullptr);
  }
}

// The key's name in the registry's own namespace ("\REGISTRY\USER\<sid>\...");
// empty when the system does not tell.
std::u16string KernelName(HKEY key) {
  using QueryKey = LONG(WINAPI*)(HANDLE, int, PVOID, ULONG, PULONG);
  static const QueryKey query =
      reinterpret_cast<QueryKey>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryKey")));
  constexpr int kKeyNameInformation = 3;
  if (query == nullptr) return std::u16string();
  HKEY real = key;
  // A predefined root is a pseudo-handle; ask a real handle of it.
  if (key == HKEY_CURRENT_USER) {
    if (RegOpenCurrentUser(KEY_QUERY_VALUE, &real) != ERROR_SUCCESS) return std::u16string();
  } else if (IsPredefined(key)) {
    if (key == HKEY_LOCAL_MACHINE) return u"\\REGISTRY\\MACHINE";
    if (key == HKEY_USERS) return u"\\REGISTRY\\USER";
    return std::u16string();
  }
  std::vector<unsigned char> buffer(4 + 2 * 4096);
  ULONG got = 0;
  const LONG status = query(real, kKeyNameInformation, buffer.data(), static_cast<ULONG>(buffer.size()), &got);
  if (real != key) RegCloseKey(real);
  if (status != 0) return std::u16string();
  ULONG bytes = 0;
  std::memcpy(&bytes, buffer.data(), 4);
  if (bytes > buffer.size() - 4) return std::u16string();
  std::u16string name(bytes / 2, u'\0');
  std::memcpy(&name[0], buffer.data() + 4, bytes);
  return name;
}

// Splits a kernel name into its hive ("\REGISTRY\MACHINE", or
// "\REGISTRY\USER\<sid>" and "\REGISTRY\A\<hive>" with their one component)
// and the path below it.
void SplitKernelName(const std::u16string& name, std::u16string* hive, std::u16string* path) {
  const std::u16string upper = UpperCased(name);
  std::size_t end = std::u16string::npos;
  for (const std::u16string prefix : {u"\\REGISTRY\\USER\\", u"\\REGISTRY\\A\\"}) {
    if (upper.compare(0, prefix.size(), prefix) == 0) {
      end = upper.find(u'\\', prefix.size());
      break;
    }
  }
  if (end == std::u16string::npos && upper.compare(0, 18, u"\\REGISTRY\\MACHINE\\") == 0) end = 17;
  if (end == std::u16string::npos) {
    *hive = upper;
    path->clear();
    return;
  }
  *hive = upper.substr(0, end);
  *path = name.substr(end + 1);
}

// Data of the entries and subkeys of a key, kept while a batch may still be
// dropped.
struct KeySnapshot {
  struct Value {
    std::u16string name;
    DWORD type = 0;
    std::vector<unsigned char> data;
  };
  std::vector<Value> values;
  std::vector<std::pair<std::u16string, KeySnapshot>> subkeys;
};

std::map<HKEY, KeySnapshot>& OpenBatches() {
  static std::map<HKEY, KeySnapshot> batches;
  return batches;
}

bool TakeSnapshot(HKEY key, KeySnapshot* snapshot) {
  std::vector<std::u16string> names;
  if (ListSettingsEntries(AsKey(key), &names) != SettingsResult::Ok) return false;
  for (const std::u16string& name : names) {
    KeySnapshot::Value value;
    value.name = name;
    unsigned type = 0;
    if (QuerySettingsEntry(AsKey(key), name, &type, &value.data) != SettingsResult::Ok) return false;
    value.type = type;
    snapshot->values.push_back(std::move(value));
  }
  names.clear();
  if (ListSettingsSubkeys(AsKey(key), &names) != SettingsResult::Ok) return false;
  for (const std::u16string& name : names) {
    HKEY child = nullptr;
    if (RegOpenKeyExW(key, Wide(name), 0, KEY_READ, &child) != ERROR_SUCCESS) return false;
    snapshot->subkeys.emplace_back(name, KeySnapshot());
    const bool taken = TakeSnapshot(child, &snapshot->subkeys.back().second);
    RegCloseKey(child);
    if (!taken) return false;
  }
  return true;
}

bool RestoreSnapshot(HKEY key, const KeySnapshot& snapshot) {
  if (RegDeleteTreeW(key, nullptr) != ERROR_SUCCESS) return false;
  bool restored = true;
  for (const KeySnapshot::Value& value : snapshot.values) {
    restored = RegSetValueExW(key, Wide(value.name), 0, value.type, value.data.data(),
                              static_cast<DWORD>(value.data.size())) == ERROR_SUCCESS &&
               restored;
  }
  for (const auto& [name, below] : snapshot.subkeys) {
    HKEY child = nullptr;
    if (RegCreateKeyExW(key, Wide(name), 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &child,
                        nullptr) != ERROR_SUCCESS) {
      restored = false;
      continue;
    }
    restored = RestoreSnapshot(child, below) && restored;
    RegCloseKey(child);
  }
  return restored;
}

}  // namespace

SettingsKey* OpenSettingsStore(const char16_t* path) {
  if (path == nullptr || path[0] == u'\0') return nullptr;
  try {
    const std::u16string file(path);
    const std::u16string id = UpperCased(file);
    const auto loaded = LoadedHives().find(id);
    if (loaded != LoadedHives().end()) return AsKey(loaded->second);
    MakeParentFolders(file);
    HKEY top = nullptr;
    if (RegLoadAppKeyW(Wide(file), &top, KEY_ALL_ACCESS, 0, 0) != ERROR_SUCCESS) return nullptr;
    // A handle the registry cannot answer for is no store: refuse it now
    // rather than fail at every later use.
    DWORD subkeys = 0;
    if (RegQueryInfoKeyW(top, nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                         nullptr) != ERROR_SUCCESS) {
      RegCloseKey(top);
      return nullptr;
    }
    LoadedHives().emplace(id, top);
    return AsKey(top);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

// Keys opened below a hive keep it loaded until they are closed too.
void CloseAllSettingsStores() {
  for (const auto& [path, top] : LoadedHives()) RegCloseKey(top);
  LoadedHives().clear();
  OpenBatches().clear();
}

SettingsResult OpenSettingsKey(SettingsKey* parent, const std::u16string& path, unsigned access, bool create,
                               SettingsKey** key) {
  *key = nullptr;
  if (parent == nullptr) return SettingsResult::Failed;
  HKEY opened = nullptr;
  const LSTATUS status = create ? RegCreateKeyExW(AsHkey(parent), Wide(path), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                                  access, nullptr, &opened, nullptr)
                                : RegOpenKeyExW(AsHkey(parent), Wide(path), 0, access, &opened);
  if (status != ERROR_SUCCESS) return ResultOf(status);
  *key = AsKey(opened);
  return SettingsResult::Ok;
}

bool CloseSettingsKey(SettingsKey* key) {
  if (key == nullptr) return false;
  const HKEY handle = AsHkey(key);
  if (IsPredefined(handle) || IsHiveTop(handle)) return true;
  OpenBatches().erase(handle);
  return RegCloseKey(handle) == ERROR_SUCCESS;
}

SettingsResult QuerySettingsEntry(SettingsKey* key, const std::u16string& name, unsigned* type,
                                  std::vector<unsigned char>* data) {
  data->clear();
  DWORD kind = 0;
  DWORD size = 0;
  LSTATUS status = RegQueryValueExW(AsHkey(key), Wide(name), nullptr, &kind, nullptr, &size);
  // The entry may grow between asking its size and reading it.
  while (status == ERROR_SUCCESS || status == ERROR_MORE_DATA) {
    data->resize(size);
    DWORD got = size;
    status = RegQueryValueExW(AsHkey(key), Wide(name), nullptr, &kind, data->empty() ? nullptr : data->data(), &got);
    if (status == ERROR_SUCCESS) {
      data->resize(got);
      *type = kind;
      return SettingsResult::Ok;
    }
    if (status == ERROR_MORE_DATA) size = got > size ? got : size + 256;
  }
  data->clear();
  return ResultOf(status);
}

SettingsResult SetSettingsEntry(SettingsKey* key, const std::u16string& name, unsigned type, const unsigned char* data,
                                std::size_t size) {
  if (size > 0xFFFFFFFFu) return SettingsResult::Failed;
  return ResultOf(RegSetValueExW(AsHkey(key), Wide(name), 0, type, data, static_cast<DWORD>(size)));
}

SettingsResult DeleteSettingsEntry(SettingsKey* key, const std::u16string& name) {
  return ResultOf(RegDeleteValueW(AsHkey(key), Wide(name)));
}

// The registry deletes only keys without subkeys, and says "access denied"
// for the others.
SettingsResult DeleteSettingsSubkey(SettingsKey* key, const std::u16string& name) {
  return ResultOf(RegDeleteKeyW(AsHkey(key), Wide(name)));
}

SettingsResult DeleteSettingsTree(SettingsKey* key, const std::u16string& path) {
  if (path.empty()) return SettingsResult::NotFound;
  const LSTATUS status = RegDeleteTreeW(AsHkey(key), Wide(path));
  if (status == ERROR_FILE_NOT_FOUND) return SettingsResult::Ok;
  if (status != ERROR_SUCCESS) return ResultOf(status);
  // The tree's own key is left empty by RegDeleteTree on some systems.
  const LSTATUS removed = RegDeleteKeyW(AsHkey(key), Wide(path));
  return removed == ERROR_SUCCESS || removed == ERROR_FILE_NOT_FOUND ? SettingsResult::Ok : ResultOf(removed);
}

SettingsResult ListSettingsSubkeys(SettingsKey* key, std::vector<std::u16string>* names) {
  names->clear();
  wchar_t name[kKeyNameUnits];
  for (DWORD index = 0;; ++index) {
    DWORD units = kKeyNameUnits;
    const LSTATUS status = RegEnumKeyExW(AsHkey(key), index, name, &units, nullptr, nullptr, nullptr, nullptr);
    if (status == ERROR_NO_MORE_ITEMS) return SettingsResult::Ok;
    if (status != ERROR_SUCCESS) return ResultOf(status);
    names->emplace_back(reinterpret_cast<const char16_t*>(name), units);
  }
}

SettingsResult ListSettingsEntries(SettingsKey* key, std::vector<std::u16string>* names) {
  names->clear();
  std::vector<wchar_t> name(kValueNameUnits);
  for (DWORD index = 0;; ++index) {
    DWORD units = kValueNameUnits;
    const LSTATUS status = RegEnumValueW(AsHkey(key), index, name.data(), &units, nullptr, nullptr, nullptr, nullptr);
    if (status == ERROR_NO_MORE_ITEMS) return SettingsResult::Ok;
    if (status != ERROR_SUCCESS) return ResultOf(status);
    names->emplace_back(reinterpret_cast<const char16_t*>(name.data()), units);
  }
}

// The registry has no transactions that every system offers: a batch keeps
// what the key held when it began, and dropping the batch puts that back.
bool BeginSettingsBatch(SettingsKey* key) {
  try {
    KeySnapshot snapshot;
    if (!TakeSnapshot(AsHkey(key), &snapshot)) return false;
    OpenBatches()[AsHkey(key)] = std::move(snapshot);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool CommitSettingsBatch(SettingsKey* key) {
  OpenBatches().erase(AsHkey(key));
  return RegFlushKey(AsHkey(key)) == ERROR_SUCCESS;
}

void AbandonSettingsBatch(SettingsKey* key) {
  const auto batch = OpenBatches().find(AsHkey(key));
  if (batch == OpenBatches().end()) return;
  RestoreSnapshot(AsHkey(key), batch->second);
  OpenBatches().erase(batch);
}

std::u16string SettingsKeyPath(const SettingsKey* key) {
  std::u16string hive;
  std::u16string path;
  SplitKernelName(KernelName(AsHkey(const_cast<SettingsKey*>(key))), &hive, &path);
  return path;
}

bool SameSettingsStore(const SettingsKey* a, const SettingsKey* b) {
  if (a == nullptr || b == nullptr) return false;
  std::u16string hiveA;
  std::u16string hiveB;
  std::u16string path;
  SplitKernelName(KernelName(AsHkey(const_cast<SettingsKey*>(a))), &hiveA, &path);
  SplitKernelName(KernelName(AsHkey(const_cast<SettingsKey*>(b))), &hiveB, &path);
  return !hiveA.empty() && hiveA == hiveB;
}

// Every handle may be a key: the registry itself refuses one it never gave.
bool OwnsKey(const SettingsKey* key) { return key != nullptr; }

}  // namespace registry

const SettingsBackend& LocalSettingsBackend() {
  static const SettingsBackend backend = {
      registry::OpenSettingsStore,  registry::CloseAllSettingsStores, registry::OwnsKey,
      registry::OpenSettingsKey,    registry::CloseSettingsKey,       registry::QuerySettingsEntry,
      registry::SetSettingsEntry,   registry::DeleteSettingsEntry,    registry::DeleteSettingsSubkey,
      registry::DeleteSettingsTree, registry::ListSettingsSubkeys,    registry::ListSettingsEntries,
      registry::BeginSettingsBatch, registry::CommitSettingsBatch,    registry::AbandonSettingsBatch,
      registry::SettingsKeyPath,    registry::SameSettingsStore,
  };
  return backend;
}

// The registry's own roots serve: no store file is conventional.
std::u16string UserSettingsStorePath() { return std::u16string(); }
std::u16string MachineSettingsStorePath() { return std::u16string(); }

SettingsKey* SystemUserSettingsKey() { return reinterpret_cast<SettingsKey*>(HKEY_CURRENT_USER); }
SettingsKey* SystemMachineSettingsKey() { return reinterpret_cast<SettingsKey*>(HKEY_LOCAL_MACHINE); }

}  // namespace qorc::platform
