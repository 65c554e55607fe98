// The seam's settings functions: the one place that chooses a back-end. A
// store named by a PostgreSQL connection URI lives in that database; any
// other name is a store file of this system. Key handles then go to the
// back-end that handed them out; a pointer that no back-end knows is refused
// without being followed.
#include <new>
#include <string>
#include <vector>

#include "platform/settings_backend.h"
#include "platform/text.h"

namespace qorc::platform {

namespace {

const char16_t kPostgresScheme[] = u"postgresql://";
const char16_t kPostgresShortScheme[] = u"postgres://";

bool StartsWith(const char16_t* text, const char16_t* prefix) {
  for (; *prefix != u'\0'; ++text, ++prefix) {
    if (*text != *prefix) return false;
  }
  return true;
}

// libpq takes its URI schemes in lower case only; so does the seam.
bool IsPostgresName(const char16_t* name) {
  return name != nullptr && (StartsWith(name, kPostgresScheme) || StartsWith(name, kPostgresShortScheme));
}

const SettingsBackend* BackendForName(const char16_t* name) {
  return IsPostgresName(name) ? PostgresSettingsBackend() : &LocalSettingsBackend();
}

const SettingsBackend* BackendOf(const SettingsKey* key) {
  if (key == nullptr) return nullptr;
  const SettingsBackend& local = LocalSettingsBackend();
  if (local.owns(key)) return &local;
  const SettingsBackend* postgres = PostgresSettingsBackend();
  if (postgres != nullptr && postgres->owns(key)) return postgres;
  return nullptr;
}

}  // namespace

#ifndef QORC_HAVE_LIBPQ
const SettingsBackend* PostgresSettingsBackend() { return nullptr; }
#endif

bool SettingsStoreIsFile(const char16_t* name) { return !IsPostgresName(name); }

// Leaves out what follows "user:" up to the "@" of the authority, and every
// "password=" parameter of the query.
std::u16string SettingsStoreShownName(const std::u16string& name) {
  if (!IsPostgresName(name.c_str())) return name;
  const std::size_t queryStart = name.find(u'?');
  std::u16string shown = name.substr(0, queryStart);
  const std::size_t authority = shown.find(u"://") + 3;
  const std::size_t slash = shown.find(u'/', authority);
  const std::size_t authorityEnd = slash == std::u16string::npos ? shown.size() : slash;
  const std::size_t at = authorityEnd > authority ? shown.rfind(u'@', authorityEnd - 1) : std::u16string::npos;
  if (at != std::u16string::npos && at >= authority) {
    const std::size_t colon = shown.find(u':', authority);
    if (colon < at) shown.erase(colon, at - colon);
  }
  if (queryStart == std::u16string::npos) return shown;
  char16_t separator = u'?';
  std::size_t start = queryStart + 1;
  while (start <= name.size()) {
    std::size_t end = name.find(u'&', start);
    if (end == std::u16string::npos) end = name.size();
    const std::u16string parameter = name.substr(start, end - start);
    if (!parameter.empty() && parameter.compare(0, 9, u"password=") != 0) {
      shown += separator + parameter;
      separator = u'&';
    }
    start = end + 1;
  }
  return shown;
}

SettingsKey* OpenSettingsStore(const char16_t* path) {
  const SettingsBackend* backend = BackendForName(path);
  return backend != nullptr ? backend->open_store(path) : nullptr;
}

void CloseAllSettingsStores() {
  LocalSettingsBackend().close_all();
  if (const SettingsBackend* postgres = PostgresSettingsBackend()) postgres->close_all();
}

SettingsResult OpenSettingsKey(SettingsKey* parent, const std::u16string& path, unsigned access, bool create,
                               SettingsKey** key) {
  *key = nullptr;
  const SettingsBackend* backend = BackendOf(parent);
  return backend != nullptr ? backend->open_key(parent, path, access, create, key) : SettingsResult::Failed;
}

bool CloseSettingsKey(SettingsKey* key) {
  const SettingsBackend* backend = BackendOf(key);
  return backend != nullptr && backend->close_key(key);
}

SettingsResult QuerySettingsEntry(SettingsKey* key, const std::u16string& name, unsigned* type,
                                  std::vector<unsigned char>* data) {
  const SettingsBackend* backend = BackendOf(key);
  return backend != nullptr ? backend->query_entry(key, name, type, data) : SettingsResult::Failed;
}

SettingsResult SetSettingsEntry(SettingsKey* key, const std::u16string& name, unsigned type, const unsigned char* data,
                                std::size_t size) {
  const SettingsBackend* backend = BackendOf(key);
  return backend != nullptr ? backend->set_entry(key, name, type, data, size) : SettingsResult::Failed;
}

SettingsResult DeleteSettingsEntry(SettingsKey* key, const std::u16string& name) {
  const SettingsBackend* backend = BackendOf(key);
  return backend != nullptr ? backend->delete_entry(key, name) : SettingsResult::Failed;
}

SettingsResult DeleteSettingsSubkey(SettingsKey* key, const std::u16string& name) {
  const SettingsBackend* backend = BackendOf(key);
  return backend != nullptr ? backend->delete_subkey(key, name) : SettingsResult::Failed;
}

SettingsResult DeleteSettingsTree(SettingsKey* key, const std::u16string& path) {
  const SettingsBackend* backend = BackendOf(key);
  return backend != nullptr ? backend->delete_tree(key, path) : SettingsResult::Failed;
}

SettingsResult ListSettingsSubkeys(SettingsKey* key, std::vector<std::u16string>* names) {
  const SettingsBackend* backend = BackendOf(key);
  return backend != nullptr ? backend->list_subkeys(key, names) : SettingsResult::Failed;
}

SettingsResult ListSettingsEntries(SettingsKey* key, std::vector<std::u16string>* names) {
  const SettingsBackend* backend = BackendOf(key);
  return backend != nullptr ? backend->list_entries(key, names) : SettingsResult::Failed;
}

bool BeginSettingsBatch(SettingsKey* key) {
  const SettingsBackend* backend = BackendOf(key);
  return backend != nullptr && backend->begin_batch(key);
}

bool CommitSettingsBatch(SettingsKey* key) {
  const SettingsBackend* backend = BackendOf(key);
  return backend != nullptr && backend->commit_batch(key);
}

void AbandonSettingsBatch(SettingsKey* key) {
  if (const SettingsBackend* backend = BackendOf(key)) backend->abandon_batch(key);
}

std::u16string SettingsKeyPath(const SettingsKey* key) {
  const SettingsBackend* backend = BackendOf(key);
  return backend != nullptr ? backend->key_path(key) : std::u16string();
}

bool SameSettingsStore(const SettingsKey* a, const SettingsKey* b) {
  const SettingsBackend* backend = BackendOf(a);
  return backend != nullptr && backend == BackendOf(b) && backend->same_store(a, b);
}

// Names ---------------------------------------------------------------------------------

std::string SettingsNameBytes(const std::u16string& name) {
  std::string bytes(name.size() * 2, '\0');
  for (std::size_t i = 0; i < name.size(); ++i) {
    bytes[2 * i] = static_cast<char>(name[i] & 0xFF);
    bytes[2 * i + 1] = static_cast<char>(name[i] >> 8);
  }
  return bytes;
}

std::string SettingsFoldBytes(const std::u16string& name) {
  std::string bytes(name.size() * 2, '\0');
  for (std::size_t i = 0; i < name.size(); ++i) {
    const char16_t upper = CharToUpper(name[i]);
    bytes[2 * i] = static_cast<char>(upper >> 8);
    bytes[2 * i + 1] = static_cast<char>(upper & 0xFF);
  }
  return bytes;
}

std::u16string SettingsNameFromBytes(const unsigned char* bytes, std::size_t size) {
  std::u16string name(size / 2, u'\0');
  for (std::size_t i = 0; i < name.size(); ++i) {
    name[i] = static_cast<char16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
  }
  return name;
}

bool SplitSettingsKeyPath(const std::u16string& path, std::vector<std::u16string>* parts) {
  if (path.empty()) return true;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = path.find(u'\\', start);
    const std::size_t length = (end == std::u16string::npos ? path.size() : end) - start;
    if (length == 0 || length > kMaxSettingsKeyNameLength) return false;
    parts->push_back(path.substr(start, length));
    if (end == std::u16string::npos) return true;
    start = end + 1;
  }
}

std::u16string JoinSettingsKeyPath(const std::u16string& parent, const std::u16string& path) {
  return parent.empty() || path.empty() ? parent + path : parent + u'\\' + path;
}

// Key ids ---------------------------------------------------------------------------------

bool SettingsKeyIds::Resolve(long long id, const std::vector<std::u16string>& parts, bool remembered,
                             const Lookup& lookup, long long* found) {
  for (const std::u16string& part : parts) {
    const std::string fold = SettingsFoldBytes(part);
    std::string childKey(reinterpret_cast<const char*>(&id), sizeof id);
    childKey += fold;
    if (remembered) {
      const auto known = ids_.find(childKey);
      if (known != ids_.end()) {
        id = known->second;
        continue;
      }
    }
    long long child = 0;
    if (!lookup(id, part, fold, &child)) return false;
    ids_[childKey] = child;
    id = child;
  }
  *found = id;
  return true;
}

bool RefreshSettingsKey(C_REGKEY::STORE_KEY* key, const std::function<bool(long long id)>& gone,
                        const std::function<bool(const std::vector<std::u16string>& parts, long long* id)>& resolve) {
  if (key->id == kTopSettingsKeyId || !gone(key->id)) return false;
  std::vector<std::u16string> parts;
  long long id = 0;
  if (!SplitSettingsKeyPath(key->path, &parts) || !resolve(parts, &id)) return false;
  key->id = id;
  return true;
}

}  // namespace qorc::platform
