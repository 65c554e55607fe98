// What each kind of settings store implements behind the seam's functions
// (settings_store.h): the store files of this system, and stores kept in a
// PostgreSQL database. The seam picks the back-end once, from the store's
// name; after that every key handle is served by the back-end that made it.
#ifndef QORC_PLATFORM_SETTINGS_BACKEND_H
#define QORC_PLATFORM_SETTINGS_BACKEND_H

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/settings_store.h"

// One open key, as every back-end hands it out: the back-end's own store
// object, the key's row id in that store (ids are never reused, so an id
// either still names its key or names none), the rights of the handle and
// the path it was opened by.
struct C_REGKEY::STORE_KEY {
  void* store;
  long long id;
  unsigned access;
  std::u16string path;  // from the top of the store, as it was opened
};

namespace qorc::platform {

// The operations of one back-end, with the contracts of the seam functions
// of the same names. `owns` tells whether a pointer is a handle this
// back-end handed out and has not released, without following it.
struct SettingsBackend {
  SettingsKey* (*open_store)(const char16_t* name);
  void (*close_all)();
  bool (*owns)(const SettingsKey* key);
  SettingsResult (*open_key)(SettingsKey* parent, const std::u16string& path, unsigned access, bool create,
                             SettingsKey** key);
  bool (*close_key)(SettingsKey* key);
  SettingsResult (*query_entry)(SettingsKey* key, const std::u16string& name, unsigned* type,
                                std::vector<unsigned char>* data);
  SettingsResult (*set_entry)(SettingsKey* key, const std::u16string& name, unsigned type, const unsigned char* data,
                              std::size_t size);
  SettingsResult (*delete_entry)(SettingsKey* key, const std::u16string& name);
  SettingsResult (*delete_subkey)(SettingsKey* key, const std::u16string& name);
  SettingsResult (*delete_tree)(SettingsKey* key, const std::u16string& path);
  SettingsResult (*list_subkeys)(SettingsKey* key, std::vector<std::u16string>* names);
  SettingsResult (*list_entries)(SettingsKey* key, std::vector<std::u16string>* names);
  bool (*begin_batch)(SettingsKey* key);
  bool (*commit_batch)(SettingsKey* key);
  void (*abandon_batch)(SettingsKey* key);
  std::u16string (*key_path)(const SettingsKey* key);
  bool (*same_store)(const SettingsKey* a, const SettingsKey* b);
};

// The store files of this system.
const SettingsBackend& LocalSettingsBackend();
// Stores in PostgreSQL databases, named by libpq connection URIs; null in a
// build without libpq.
const SettingsBackend* PostgresSettingsBackend();

// The id of the top key of every store.
constexpr long long kTopSettingsKeyId = 1;
// The longest name of one key, as on Windows.
constexpr std::size_t kMaxSettingsKeyNameLength = 255;

// A name as stored: UTF-16 LE bytes, with the case it was given.
std::string SettingsNameBytes(const std::u16string& name);
// The form names are looked up, kept unique and ordered by: every unit
// upper-cased, big-endian so that byte order is code-unit order.
std::string SettingsFoldBytes(const std::u16string& name);
// A name from its stored bytes (a trailing odd byte is ignored).
std::u16string SettingsNameFromBytes(const unsigned char* bytes, std::size_t size);
// Splits a key path at "\"; false when a component is empty or too long.
bool SplitSettingsKeyPath(const std::u16string& path, std::vector<std::u16string>* parts);
// The path of `path` opened under a key opened by `parent`.
std::u16string JoinSettingsKeyPath(const std::u16string& parent, const std::u16string& path);

// The key ids a back-end has looked up, by parent id and folded name. Key ids
// are never reused, so a remembered id either still names its key or names
// none; a handle whose key turns out gone finds its path again
// (RefreshSettingsKey).
class SettingsKeyIds {
 public:
  // Finds (or, as the back-end decides, makes) the child of `parent` named
  // `name`, whose folded form is `fold`; false when that failed, the back-end
  // keeping why.
  using Lookup =
      std::function<bool(long long parent, const std::u16string& name, const std::string& fold, long long* child)>;

  // Walks `parts` down from the key `id`, asking `lookup` at each step and
  // remembering what it answers; with `remembered`, ids found before are
  // taken without asking. False as soon as a lookup fails.
  bool Resolve(long long id, const std::vector<std::u16string>& parts, bool remembered, const Lookup& lookup,
               long long* found);
  // Forgets every id, as when the change that found them was rolled back.
  void Clear() { ids_.clear(); }

 private:
  std::unordered_map<std::string, long long> ids_;
};

// When `gone` says the key's id no longer names a key, finds the key's path
// again from the top with `resolve` (a walk without remembered ids); true
// when the handle now names another id, so that the failed operation is worth
// repeating. The top key is never gone.
bool RefreshSettingsKey(C_REGKEY::STORE_KEY* key, const std::function<bool(long long id)>& gone,
                        const std::function<bool(const std::vector<std::u16string>& parts, long long* id)>& resolve);

}  // namespace qorc::platform

#endif
