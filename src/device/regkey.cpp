// C_REGKEY: one open settings key and a cursor on one of its entries.
#include <qorc/file.h>
#include <qorc/memory.h>
#include <qorc/regkey.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "device/regkey_internal.h"
#include "foundation/library.h"
#include "platform/settings_store.h"

namespace {

namespace store = qorc::platform;

// The message keys name each failure where it happens; the debug-level
// trigger records them all as CerrInternalError, as hosts expect of settings.
const char kCannotOpenRoot[] = "C#Err#Unable to open root key";
const char kAlreadyOpened[] = "C#Err#Key is already opened";
const char kCannotOpen[] = "C#Err#Unable to open key";
const char kCannotOpenOrCreate[] = "C#Err#Unable to open or create key";
const char kRootCannotClose[] = "C#Err#Root key cannot be closed";
const char kCannotClose[] = "C#Err#Unable to close key";
const char kCannotWrite[] = "C#Err#Unable to write data";
const char kInvalidOnRoot[] = "C#Err#Invalid operation on root key";
const char kNotOpen[] = "C#Err#Key is not open";
const char kUnsupportedFormat[] = "C#Err#Unsupported format of entry";
const char kCannotRead[] = "C#Err#Unable to read entry";
const char kCannotClear[] = "C#Err#Unable to clear entry";
const char kCannotDelete[] = "C#Err#Unable to delete key";
const char kNotEnoughData[] = "C#Err#Not enough data";
const char kNoMoreData[] = "C#Err#No more data";

void Fail(const char* key) { C_ERROR::TriggerDbgMild(key); }

// The Windows access masks of the three modes.
unsigned AccessOf(C_REGKEY::MODE mode) {
  switch (mode) {
    case C_REGKEY::READ:
      return 0x20019;
    case C_REGKEY::WRITE:
      return 0x20006;
    default:
      return 0xF003F;
  }
}

C_REGKEY::MODE NormalMode(C_REGKEY::MODE mode) {
  return mode == C_REGKEY::READ || mode == C_REGKEY::WRITE ? mode : C_REGKEY::READ_WRITE;
}

// Stored sizes are rounded up to a multiple of 4; so are the buffers, whose
// padding is zeroed before it is stored.
unsigned RoundedSize(unsigned size) { return (size + 3u) & ~3u; }

C_REGKEY userRoot;
C_REGKEY machineRoot;
// Where the system has a registry, its roots serve from the start.
C_REGKEY::HANDLE userKey = store::SystemUserSettingsKey();
C_REGKEY::HANDLE machineKey = store::SystemMachineSettingsKey();

}  // namespace

C_REGKEY* const C_REGKEY::USER = &userRoot;
C_REGKEY* const C_REGKEY::MACHINE = &machineRoot;

namespace qorc {

std::u16string Units(const C_STRING& text) { return std::u16string(text.GetWCHAR(), text.GetNumber()); }

C_STRING FromUnits(const std::u16string& text) { return C_STRING(static_cast<int>(text.size()), text.data()); }

C_REGKEY::HANDLE RootHandle(const C_REGKEY* key) {
  if (key == C_REGKEY::USER) return userKey;
  if (key == C_REGKEY::MACHINE) return machineKey;
  return nullptr;
}

void CloseSettings() {
  userKey = store::SystemUserSettingsKey();
  machineKey = store::SystemMachineSettingsKey();
  store::CloseAllSettingsStores();
}

}  // namespace qorc

C_REGKEY::C_REGKEY()
    : key_(nullptr), mode_(READ), type_(TYPE_BINARY), size_(0), buffer_(nullptr), opened_(false), position_(0) {}

C_REGKEY::C_REGKEY(const C_REGKEY& other) : C_REGKEY() { CopyFrom(other); }

C_REGKEY& C_REGKEY::operator=(const C_REGKEY& other) {
  if (this != &other) {
    if (opened_ && !IsSpecial()) store::CloseSettingsKey(key_);
    ReleaseBuffer();
    key_ = nullptr;
    opened_ = false;
    CopyFrom(other);
  }
  return *this;
}

C_REGKEY::~C_REGKEY() {
  if (opened_ && !IsSpecial()) Close();
  ReleaseBuffer();
}

// A copy gets a handle of its own on the same key, so that each object can
// close what it holds.
void C_REGKEY::CopyFrom(const C_REGKEY& other) {
  mode_ = other.mode_;
  type_ = other.type_;
  position_ = other.position_;
  name_ = other.name_;
  if (other.size_ > 0) {
    CmemAlloc(static_cast<int>(RoundedSize(other.size_)), &buffer_);
    if (buffer_ != nullptr) {
      std::memcpy(buffer_, other.buffer_, RoundedSize(other.size_));
      size_ = other.size_;
    }
  }
  if (other.opened_ && other.key_ != nullptr) {
    try {
      HANDLE copy = nullptr;
      if (store::OpenSettingsKey(other.key_, std::u16string(), AccessOf(other.mode_), false, &copy) ==
          store::SettingsResult::Ok) {
        key_ = copy;
        opened_ = true;
      }
    } catch (const std::bad_alloc&) {
      CerrMemoryFull.Trigger();
    }
  }
}

void C_REGKEY::InitUser(HANDLE handle) {
  if (userKey == nullptr) userKey = handle;
}

void C_REGKEY::InitMachine(HANDLE handle) {
  if (machineKey == nullptr) machineKey = handle;
}

C_REGKEY::HANDLE C_REGKEY::OpenStore(const C_STRING& path) {
  C_STRING name(path);
  if (store::SettingsStoreIsFile(name.GetWCHAR())) C_FILE::ExpandPath(&name);
  HANDLE top = store::OpenSettingsStore(name.GetWCHAR());
  if (top != nullptr) return top;
  const C_STRING shown = ShownStoreName(name);
  CerrFileCannotOpen.TriggerMild(&shown);
  return nullptr;
}

C_STRING C_REGKEY::ShownStoreName(const C_STRING& store) {
  try {
    return qorc::FromUnits(store::SettingsStoreShownName(qorc::Units(store)));
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
    return C_STRING::VOID;
  }
}

C_STRING C_REGKEY::DefaultStorePath(const C_REGKEY* root) {
  try {
    if (root == USER) return qorc::FromUnits(store::UserSettingsStorePath());
    if (root == MACHINE) return qorc::FromUnits(store::MachineSettingsStorePath());
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
  }
  return C_STRING::VOID;
}

C_BOOL C_REGKEY::IsSpecial() const { return this == USER || this == MACHINE; }

C_REGKEY::HANDLE C_REGKEY::SpecialHandle() const {
  HANDLE root = qorc::RootHandle(this);
  if (root == nullptr) Fail(kCannotOpenRoot);
  return root;
}

C_BOOL C_REGKEY::RefuseSpecial() const {
  if (!IsSpecial()) return false;
  Fail(kInvalidOnRoot);
  return true;
}

C_BOOL C_REGKEY::RefuseClosed() const {
  if (opened_) return false;
  Fail(kNotOpen);
  return true;
}

// The handle that key-wide operations work on: the root's for the special
// objects, else this key's own while it is open.
C_REGKEY::HANDLE C_REGKEY::KeyHandle() const {
  if (IsSpecial()) return SpecialHandle();
  if (RefuseClosed()) return nullptr;
  return key_;
}

void C_REGKEY::ReleaseBuffer() {
  CmemFree(&buffer_);
  size_ = 0;
}

void C_REGKEY::Open(HANDLE parent, const C_STRING& path, MODE mode, C_BOOL create) {
  if (opened_) {
    Fail(kAlreadyOpened);
    return;
  }
  ReleaseBuffer();
  position_ = 0;
  HANDLE key = nullptr;
  store::SettingsResult result = store::SettingsResult::Failed;
  try {
    result = store::OpenSettingsKey(parent, qorc::Units(path), AccessOf(NormalMode(mode)), create, &key);
  } catch (const std::bad_alloc&) {
  }
  if (result != store::SettingsResult::Ok) {
    Fail(create ? kCannotOpenOrCreate : kCannotOpen);
    return;
  }
  key_ = key;
  mode_ = NormalMode(mode);
  opened_ = true;
}

void C_REGKEY::Open(const C_REGKEY* parent, const C_STRING& path, MODE mode, C_BOOL create) {
  HANDLE handle = nullptr;
  if (parent != nullptr) handle = parent->IsSpecial() ? parent->SpecialHandle() : parent->key_;
  Open(handle, path, mode, create);
}

void C_REGKEY::StorePending() {
  if (mode_ != READ && size_ > 0) {
    const unsigned stored = RoundedSize(size_);
    std::memset(buffer_ + size_, 0, stored - size_);
    store::SettingsResult result = store::SettingsResult::Failed;
    try {
      result = store::SetSettingsEntry(key_, qorc::Units(name_), type_, buffer_, stored);
    } catch (const std::bad_alloc&) {
    }
    if (result != store::SettingsResult::Ok) Fail(kCannotWrite);
  }
  ReleaseBuffer();
}

void C_REGKEY::Close() {
  if (IsSpecial()) {
    Fail(kRootCannotClose);
    return;
  }
  if (!opened_) return;
  if (mode_ != READ) StorePending();
  if (!store::CloseSettingsKey(key_)) Fail(kCannotClose);
  key_ = nullptr;
  opened_ = false;
  ReleaseBuffer();
}

void C_REGKEY::SetEntry(const C_STRING& name) {
  if (RefuseSpecial() || RefuseClosed()) return;
  StorePending();
  type_ = TYPE_BINARY;
  if (mode_ == WRITE) {
    name_ = name;
    position_ = 0;
    return;
  }
  // A failure to select the entry is forgiven in READ_WRITE, so that a new
  // entry can be written; an earlier failure to store is not.
  const bool failedBefore = C_ERROR::Is();
  bool selected = false;
  unsigned type = 0;
  std::vector<unsigned char> data;
  store::SettingsResult result = store::SettingsResult::Failed;
  try {
    result = store::QuerySettingsEntry(key_, qorc::Units(name), &type, &data);
  } catch (const std::bad_alloc&) {
  }
  if (result != store::SettingsResult::Ok) {
    Fail(kCannotRead);
  } else if (type != TYPE_TEXT && type != TYPE_BINARY) {
    Fail(kUnsupportedFormat);
  } else if (!data.empty()) {
    CmemAlloc(static_cast<int>(RoundedSize(static_cast<unsigned>(data.size()))), &buffer_);
    if (buffer_ == nullptr) {
      Fail(kCannotRead);
    } else {
      std::memcpy(buffer_, data.data(), data.size());
      size_ = static_cast<unsigned>(data.size());
      type_ = type;
      selected = true;
    }
  } else {
    type_ = type;
    selected = true;
  }
  if (mode_ == READ_WRITE) {
    if (!selected && !failedBefore) C_ERROR::ClearPending();
    selected = true;
  }
  if (selected) {
    name_ = name;
    position_ = 0;
  }
}

// Grows into a new block, so that a failed allocation is told apart from an
// error that was already pending; the buffer stays as it was then.
void C_REGKEY::Append(const void* bytes, unsigned count) {
  unsigned char* grown = nullptr;
  CmemAlloc(static_cast<int>(RoundedSize(size_ + count)), &grown);
  if (grown == nullptr) return;
  if (size_ > 0) std::memcpy(grown, buffer_, size_);
  std::memcpy(grown + size_, bytes, count);
  const unsigned size = size_ + count;
  ReleaseBuffer();
  buffer_ = grown;
  size_ = size;
}

namespace {

void PutLittleEndian(unsigned long long value, int count, unsigned char* out) {
  for (int i = 0; i < count; ++i) out[i] = static_cast<unsigned char>(value >> (8 * i));
}

unsigned long long GetLittleEndian(const unsigned char* in, int count) {
  unsigned long long value = 0;
  for (int i = 0; i < count; ++i) value |= static_cast<unsigned long long>(in[i]) << (8 * i);
  return value;
}

}  // namespace

void C_REGKEY::Write(int value) {
  if (RefuseSpecial() || RefuseClosed()) return;
  unsigned char bytes[4];
  PutLittleEndian(static_cast<unsigned>(value), 4, bytes);
  Append(bytes, 4);
}

// Unlike the other fields, a real is not refused on the special objects
// first: they are never open, so it fails as on any closed key.
void C_REGKEY::Write(double value) {
  if (RefuseClosed()) return;
  unsigned long long bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  unsigned char bytes[8];
  PutLittleEndian(bits, 8, bytes);
  Append(bytes, 8);
}

void C_REGKEY::Write(C_BOOL value) {
  if (RefuseSpecial() || RefuseClosed()) return;
  const unsigned char byte = value ? 1 : 0;
  Append(&byte, 1);
}

void C_REGKEY::Write(const C_STRING& value) {
  if (RefuseSpecial() || RefuseClosed()) return;
  const unsigned count = static_cast<unsigned>(value.GetNumber());
  std::vector<unsigned char> bytes;
  try {
    bytes.resize(4 + 2 * static_cast<std::size_t>(count));
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
    return;
  }
  PutLittleEndian(count, 4, bytes.data());
  const char16_t* units = value.GetWCHAR();
  for (unsigned i = 0; i < count; ++i) PutLittleEndian(units[i], 2, bytes.data() + 4 + 2 * i);
  Append(bytes.data(), static_cast<unsigned>(bytes.size()));
}

void C_REGKEY::WriteReadableString(const C_STRING& text) {
  if (RefuseSpecial() || RefuseClosed()) return;
  const unsigned bytes = 2u * (static_cast<unsigned>(text.GetNumber()) + 1u);
  unsigned char* replaced = nullptr;
  CmemAlloc(static_cast<int>(RoundedSize(bytes)), &replaced);
  if (replaced == nullptr) return;
  const char16_t* units = text.GetWCHAR();
  for (int i = 0; i <= text.GetNumber(); ++i) {
    PutLittleEndian(i < text.GetNumber() ? units[i] : 0, 2, replaced + 2 * i);
  }
  ReleaseBuffer();
  buffer_ = replaced;
  size_ = bytes;
  type_ = TYPE_TEXT;
}

// The text of a text entry from the read position to its first zero unit;
// the position then rests just before the terminator.
C_BOOL C_REGKEY::ReadTextValue(C_STRING* text) {
  std::u16string units;
  try {
    for (unsigned at = position_; at + 1 < size_; at += 2) {
      const char16_t unit = static_cast<char16_t>(GetLittleEndian(buffer_ + at, 2));
      if (unit == 0) break;
      units.push_back(unit);
    }
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
    return false;
  }
  *text = qorc::FromUnits(units);
  position_ = size_ >= 2 ? size_ - 2 : 0;
  return true;
}

C_BOOL C_REGKEY::ReadBinary(void* out, unsigned count) {
  if (position_ > size_ || size_ - position_ < count) {
    Fail(kNoMoreData);
    return false;
  }
  std::memcpy(out, buffer_ + position_, count);
  position_ += count;
  return true;
}

void C_REGKEY::Read(int* value) {
  if (RefuseSpecial() || RefuseClosed()) return;
  if (type_ == TYPE_TEXT) {
    C_STRING text;
    if (ReadTextValue(&text)) *value = text.ScanInt();
    return;
  }
  unsigned char bytes[4];
  if (ReadBinary(bytes, 4)) *value = static_cast<int>(static_cast<unsigned>(GetLittleEndian(bytes, 4)));
}

void C_REGKEY::Read(double* value) {
  if (RefuseSpecial() || RefuseClosed()) return;
  if (type_ == TYPE_TEXT) {
    C_STRING text;
    if (ReadTextValue(&text)) *value = text.ScanReal();
    return;
  }
  unsigned char bytes[8];
  if (!ReadBinary(bytes, 8)) return;
  const unsigned long long bits = GetLittleEndian(bytes, 8);
  std::memcpy(value, &bits, sizeof bits);
}

void C_REGKEY::Read(C_BOOL* value) {
  if (RefuseSpecial() || RefuseClosed()) return;
  if (type_ == TYPE_TEXT) {
    C_STRING text;
    if (ReadTextValue(&text)) *value = text.ScanInt() != 0;
    return;
  }
  unsigned char byte = 0;
  if (ReadBinary(&byte, 1)) *value = byte != 0;
}

void C_REGKEY::Read(C_STRING* value) {
  if (RefuseSpecial() || RefuseClosed()) return;
  if (size_ == 0) return;
  if (type_ == TYPE_TEXT) {
    ReadTextValue(value);
    return;
  }
  unsigned char countBytes[4];
  if (!ReadBinary(countBytes, 4)) return;
  const unsigned count = static_cast<unsigned>(GetLittleEndian(countBytes, 4));
  const unsigned left = size_ - position_;
  // The check weighs the bytes left against the count of units, not of bytes;
  // the string is built all the same. Units past the end of the entry read
  // as zeros, and a string cannot hold more than its largest length.
  if (left < count) Fail(kNotEnoughData);
  const unsigned kept = count < static_cast<unsigned>(C_STRING::MAX_SIZE - 1) ? count : C_STRING::MAX_SIZE - 1;
  std::u16string units;
  try {
    units.assign(kept, u'\0');
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
    return;
  }
  for (unsigned i = 0; i < kept && 2ull * i + 1 < left; ++i) {
    units[i] = static_cast<char16_t>(GetLittleEndian(buffer_ + position_ + 2 * i, 2));
  }
  *value = qorc::FromUnits(units);
  const unsigned long long next = static_cast<unsigned long long>(position_) + 2ull * count;
  position_ = next < size_ ? static_cast<unsigned>(next) : size_;
}

void C_REGKEY::Clear() {
  if (RefuseSpecial() || RefuseClosed()) return;
  store::SettingsResult result = store::SettingsResult::Failed;
  try {
    result = store::DeleteSettingsEntry(key_, qorc::Units(name_));
  } catch (const std::bad_alloc&) {
  }
  if (result != store::SettingsResult::Ok) {
    Fail(kCannotClear);
    return;
  }
  ReleaseBuffer();
  position_ = 0;
}

void C_REGKEY::Delete(const C_STRING& name) {
  HANDLE handle = IsSpecial() ? SpecialHandle() : key_;
  if (handle == nullptr && IsSpecial()) return;
  store::SettingsResult result = store::SettingsResult::Failed;
  try {
    result = store::DeleteSettingsSubkey(handle, qorc::Units(name));
  } catch (const std::bad_alloc&) {
  }
  if (result != store::SettingsResult::Ok) Fail(kCannotDelete);
}

void C_REGKEY::ListNames(C_BOOL subkeys, int* count, C_STRING** names) {
  *count = 0;
  *names = nullptr;
  HANDLE handle = KeyHandle();
  if (handle == nullptr) return;
  std::vector<std::u16string> found;
  store::SettingsResult result = store::SettingsResult::Failed;
  try {
    result = subkeys ? store::ListSettingsSubkeys(handle, &found) : store::ListSettingsEntries(handle, &found);
  } catch (const std::bad_alloc&) {
  }
  if (result != store::SettingsResult::Ok) {
    Fail(kCannotRead);
    return;
  }
  if (found.empty()) return;
  C_STRING* array = qorc::NewArray<C_STRING>(found.size());
  if (array == nullptr) return;
  for (std::size_t i = 0; i < found.size(); ++i) array[i] = qorc::FromUnits(found[i]);
  *count = static_cast<int>(found.size());
  *names = array;
}

void C_REGKEY::GetSubkeys(int* count, C_STRING** names) { ListNames(true, count, names); }

void C_REGKEY::GetEntries(int* count, C_STRING** names) {
  if (RefuseSpecial()) {
    *count = 0;
    *names = nullptr;
    return;
  }
  ListNames(false, count, names);
}

void C_REGKEY::Copy(C_REGKEY* target) {
  HANDLE source = KeyHandle();
  if (source == nullptr) return;
  HANDLE destination = target == nullptr ? nullptr : target->IsSpecial() ? target->SpecialHandle() : target->key_;
  try {
    std::vector<std::u16string> entries;
    if (store::ListSettingsEntries(source, &entries) != store::SettingsResult::Ok) {
      Fail(kCannotRead);
      return;
    }
    for (const std::u16string& entry : entries) {
      unsigned type = 0;
      std::vector<unsigned char> data;
      if (store::QuerySettingsEntry(source, entry, &type, &data) != store::SettingsResult::Ok) {
        Fail(kCannotRead);
        return;
      }
      data.resize(RoundedSize(static_cast<unsigned>(data.size())), 0);
      if (store::SetSettingsEntry(destination, entry, type, data.data(), data.size()) != store::SettingsResult::Ok) {
        Fail(kCannotWrite);
        return;
      }
    }
    std::vector<std::u16string> subkeys;
    if (store::ListSettingsSubkeys(source, &subkeys) != store::SettingsResult::Ok) {
      Fail(kCannotRead);
      return;
    }
    for (const std::u16string& name : subkeys) {
      const C_STRING subkeyName = qorc::FromUnits(name);
      C_REGKEY from;
      from.Open(this, subkeyName, READ, false);
      C_REGKEY to;
      to.Open(target, subkeyName, WRITE, true);
      if (!C_ERROR::Is()) from.Copy(&to);
      to.Close();
      from.Close();
      if (C_ERROR::Is()) return;
    }
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
  }
}
