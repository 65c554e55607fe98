// The environment of C_STRING: process variables, with the settings key
// "Environment" of the user and machine roots behind them.
#include <qorc/regkey.h>
#include <qorc/string.h>

#include <new>
#include <string>

#include "device/regkey_internal.h"
#include "platform/environment.h"

namespace {

// The entry `name` under "Environment" of a root; false when the key or the
// entry cannot be selected.
bool ReadRootSetting(C_REGKEY* root, const C_STRING& name, C_STRING* value) {
  C_REGKEY key;
  key.Open(root, C_STRING(u"Environment"), C_REGKEY::READ, false);
  if (!C_ERROR::Is()) key.SetEntry(name);
  if (!C_ERROR::Is()) key.Read(value);
  const bool found = !C_ERROR::Is();
  C_ERROR::ClearPending();
  key.Close();
  C_ERROR::ClearPending();
  return found;
}

}  // namespace

C_STRING C_STRING::GetEnv() const {
  static C_STRING value;
  if (IsVoid()) return VOID;
  value = VOID;
  std::u16string found;
  bool set = false;
  try {
    set = qorc::platform::ReadEnvironmentVariable(qorc::Units(*this), &found);
    if (set) value = qorc::FromUnits(found);
  } catch (const std::bad_alloc&) {
    CerrMemoryFull.Trigger();
    return VOID;
  }
  if (!set && !ReadRootSetting(C_REGKEY::USER, *this, &value) && !ReadRootSetting(C_REGKEY::MACHINE, *this, &value)) {
    value = VOID;
  }
  return value;
}

void C_STRING::PutEnv() const {
  bool done = false;
  try {
    const std::u16string assignment = qorc::Units(*this);
    const std::size_t equals = assignment.find(u'=');
    done = equals != std::u16string::npos &&
           qorc::platform::WriteEnvironmentVariable(assignment.substr(0, equals), assignment.substr(equals + 1));
  } catch (const std::bad_alloc&) {
  }
  if (!done) C_ERROR::TriggerMild("C#Err#Cannot add or modify environment variable", this);
}
