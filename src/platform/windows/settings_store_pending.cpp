// Settings keys on Windows belong in the system registry; until that side of
// the seam is built, the Windows library has no settings store: every store
// fails to open (the library reports it), and nothing else is reachable.
#include "platform/settings_store.h"

namespace qorc::platform {

SettingsKey* OpenSettingsStore(const char16_t*) { return nullptr; }
void CloseAllSettingsStores() {}
SettingsResult OpenSettingsKey(SettingsKey*, const std::u16string&, unsigned, bool, SettingsKey** key) {
  *key = nullptr;
  return SettingsResult::Failed;
}
bool CloseSettingsKey(SettingsKey*) { return false; }
SettingsResult QuerySettingsEntry(SettingsKey*, const std::u16string&, unsigned*, std::vector<unsigned char>*) {
  return SettingsResult::Failed;
}
SettingsResult SetSettingsEntry(SettingsKey*, const std::u16string&, unsigned, const unsigned char*, std::size_t) {
  return SettingsResult::Failed;
}
SettingsResult DeleteSettingsEntry(SettingsKey*, const std::u16string&) { return SettingsResult::Failed; }
SettingsResult DeleteSettingsSubkey(SettingsKey*, const std::u16string&) { return SettingsResult::Failed; }
SettingsResult DeleteSettingsTree(SettingsKey*, const std::u16string&) { return SettingsResult::Failed; }
SettingsResult ListSettingsSubkeys(SettingsKey*, std::vector<std::u16string>*) { return SettingsResult::Failed; }
SettingsResult ListSettingsEntries(SettingsKey*, std::vector<std::u16string>*) { return SettingsResult::Failed; }
bool BeginSettingsBatch(SettingsKey*) { return false; }
bool CommitSettingsBatch(SettingsKey*) { return false; }
void AbandonSettingsBatch(SettingsKey*) {}
std::u16string SettingsKeyPath(const SettingsKey*) { return std::u16string(); }
bool SameSettingsStore(const SettingsKey* a, const SettingsKey* b) { return a == b; }
std::u16string UserSettingsStorePath() { return std::u16string(); }
std::u16string MachineSettingsStorePath() { return std::u16string(); }

}  // namespace qorc::platform
