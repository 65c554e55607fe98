// The seam's settings store: hierarchical keys holding typed entries, kept in
// store files that several processes may use at once, or in a PostgreSQL
// database that several machines share. Names are UTF-16, kept
// with their case and compared without it (each unit upper-cased). Subkeys
// come in the order of their names so compared; entries in the order they
// were first stored. A write is all or nothing: a process that dies while
// writing leaves what was stored before it intact.
#ifndef QORC_PLATFORM_SETTINGS_STORE_H
#define QORC_PLATFORM_SETTINGS_STORE_H

#include <qorc/regkey.h>

#include <string>
#include <type_traits>
#include <vector>

namespace qorc::platform {

using SettingsKey = std::remove_pointer_t<C_REGKEY::HANDLE>;

// Access rights of a key handle, with their Windows numbers.
constexpr unsigned kSettingsQuery = 0x0001;
constexpr unsigned kSettingsSet = 0x0002;
constexpr unsigned kSettingsCreateSubkey = 0x0004;
constexpr unsigned kSettingsEnumerate = 0x0008;

enum class SettingsResult { Ok, NotFound, Denied, Failed };

// Whether a store name is a file path (in library form, to be expanded
// through the roots before it is opened); false for a "postgresql://" or
// "postgres://" connection URI.
bool SettingsStoreIsFile(const char16_t* name);
// The store name as messages may show it: a URI without its password.
std::u16string SettingsStoreShownName(const std::u16string& name);

// Opens or creates the store file (library path, expanded), or the store in
// the database of a connection URI, and returns its top key, which has every
// right and lives until CloseAllSettingsStores. A store opened a second time
// gives the same top key. Null on failure. A file without write permission is
// opened for reading only, for every user.
SettingsKey* OpenSettingsStore(const char16_t* path);
// Closes every store and every handle still open on them.
void CloseAllSettingsStores();

// Opens (with `create`, creates as needed) the key at the "\"-separated path
// under `parent`; an empty path opens `parent` itself again.
SettingsResult OpenSettingsKey(SettingsKey* parent, const std::u16string& path, unsigned access, bool create,
                               SettingsKey** key);
// Releases a handle; the top key of a store stays open.
bool CloseSettingsKey(SettingsKey* key);

SettingsResult QuerySettingsEntry(SettingsKey* key, const std::u16string& name, unsigned* type,
                                  std::vector<unsigned char>* data);
SettingsResult SetSettingsEntry(SettingsKey* key, const std::u16string& name, unsigned type, const unsigned char* data,
                                std::size_t size);
SettingsResult DeleteSettingsEntry(SettingsKey* key, const std::u16string& name);
// Deletes a subkey with its entries; Denied when it has subkeys of its own.
SettingsResult DeleteSettingsSubkey(SettingsKey* key, const std::u16string& name);
// Deletes the key at the path under `key` with everything under it; Ok when
// there is none.
SettingsResult DeleteSettingsTree(SettingsKey* key, const std::u16string& path);
SettingsResult ListSettingsSubkeys(SettingsKey* key, std::vector<std::u16string>* names);
SettingsResult ListSettingsEntries(SettingsKey* key, std::vector<std::u16string>* names);

// Gathers the writes that follow into one change of the key's store, stored
// by CommitSettingsBatch or dropped by AbandonSettingsBatch.
bool BeginSettingsBatch(SettingsKey* key);
bool CommitSettingsBatch(SettingsKey* key);
void AbandonSettingsBatch(SettingsKey* key);

// The key's path from the top of its store ("\"-separated, empty for the top).
std::u16string SettingsKeyPath(const SettingsKey* key);
// Whether two keys belong to the same store.
bool SameSettingsStore(const SettingsKey* a, const SettingsKey* b);

// The conventional store files, in library form; empty when no home is known
// or the system's own roots serve instead.
std::u16string UserSettingsStorePath();
std::u16string MachineSettingsStorePath();

// The roots the user and machine keys stand for before a host sets them: the
// system's own where it has a registry, null where the host must wire them.
SettingsKey* SystemUserSettingsKey();
SettingsKey* SystemMachineSettingsKey();

}  // namespace qorc::platform

#endif
