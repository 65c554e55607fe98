// The one pending error of the process, its context stack and its hooks.
#include <qorc/error.h>

#include "foundation/library.h"

const C_ERROR* C_ERROR::Pending = nullptr;
C_STRING C_ERROR::PendingExtra;
C_BOOL C_ERROR::Hidden;
C_STRING* C_ERROR::ContextStrings = nullptr;
int C_ERROR::ContextNb = 0;
int C_ERROR::ContextNba = 0;
C_ERROR::TRIGGER_HANDLER C_ERROR::TriggerHandler = nullptr;
C_ERROR::REPORT_HANDLER C_ERROR::ReportHandler = nullptr;
C_ERROR::REPORT_HANDLER C_ERROR::ReportWindowHandler = nullptr;

namespace {

// Each static overload that records by text owns one descriptor of its own,
// created on first use; a later recording through it overwrites its key.
template <int Overload>
C_ERROR& TextDescriptor() {
  static C_ERROR descriptor;
  return descriptor;
}

}  // namespace

C_ERROR::C_ERROR() = default;
C_ERROR::C_ERROR(const char* key) : key_(key) {}
C_ERROR::C_ERROR(const C_ERROR& other) = default;
C_ERROR& C_ERROR::operator=(const C_ERROR& other) = default;
C_ERROR::~C_ERROR() = default;

C_BOOL C_ERROR::IsPending() const { return Pending == this; }

const C_ERROR* C_ERROR::GetPending() { return Pending; }
const C_STRING& C_ERROR::GetPendingExtra() { return PendingExtra; }
void C_ERROR::ClearPending() { Pending = nullptr; }
void C_ERROR::Hide(C_BOOL hidden) { Hidden = hidden; }
C_BOOL C_ERROR::IsHidden() { return Hidden; }
void C_ERROR::SetPendingExtra(const C_STRING& extra) { PendingExtra = extra; }
void C_ERROR::TriggerExtra(const C_STRING& extra) { PendingExtra = extra; }

void C_ERROR::SetPending(const C_STRING* extra) const {
  Pending = this;
  if (extra != nullptr) {
    PendingExtra = *extra;
  } else {
    PendingExtra.Clear();
  }
  if (TriggerHandler != nullptr) TriggerHandler(*this, extra);
}

void C_ERROR::SetPendingMild(const C_STRING* extra) const { SetPending(extra); }

// The blocking rule looks at the pending pointer itself: a hidden error still blocks.
void C_ERROR::Trigger(const C_STRING* extra) const {
  if (Pending == nullptr) SetPending(extra);
}
void C_ERROR::Trigger(const char* key, const C_STRING* extra) {
  if (Pending != nullptr) return;
  C_ERROR& descriptor = TextDescriptor<0>();
  descriptor.key_ = key;
  descriptor.SetPending(extra);
}
void C_ERROR::Trigger(const C_STRING& key, const C_STRING* extra) {
  if (Pending != nullptr) return;
  C_ERROR& descriptor = TextDescriptor<1>();
  descriptor.key_ = key;
  descriptor.SetPending(extra);
}

// The Mild forms behave exactly as the plain ones; the names say what kind of
// failure the caller meant.
void C_ERROR::TriggerMild(const C_STRING* extra) const {
  if (Pending == nullptr) SetPending(extra);
}
void C_ERROR::TriggerMild(const char* key, const C_STRING* extra) {
  if (Pending != nullptr) return;
  C_ERROR& descriptor = TextDescriptor<2>();
  descriptor.key_ = key;
  descriptor.SetPending(extra);
}
void C_ERROR::TriggerMild(const C_STRING& key, const C_STRING* extra) {
  if (Pending != nullptr) return;
  C_ERROR& descriptor = TextDescriptor<3>();
  descriptor.key_ = key;
  descriptor.SetPending(extra);
}

void C_ERROR::Retrigger(const C_STRING* extra) const { SetPending(extra); }
void C_ERROR::Retrigger(const char* key, const C_STRING* extra) {
  C_ERROR& descriptor = TextDescriptor<4>();
  descriptor.key_ = key;
  descriptor.SetPending(extra);
}
void C_ERROR::Retrigger(const C_STRING& key, const C_STRING* extra) {
  C_ERROR& descriptor = TextDescriptor<5>();
  descriptor.key_ = key;
  descriptor.SetPending(extra);
}
void C_ERROR::RetriggerMild(const C_STRING* extra) const { SetPending(extra); }
void C_ERROR::RetriggerMild(const char* key, const C_STRING* extra) {
  C_ERROR& descriptor = TextDescriptor<6>();
  descriptor.key_ = key;
  descriptor.SetPending(extra);
}
void C_ERROR::RetriggerMild(const C_STRING& key, const C_STRING* extra) {
  C_ERROR& descriptor = TextDescriptor<7>();
  descriptor.key_ = key;
  descriptor.SetPending(extra);
}

// Debug failures are recorded uniformly as an internal error without extra
// text, and never replace a pending error, the Re forms included: the
// asymmetry with Retrigger is deliberate.
void C_ERROR::TriggerDbg(const C_STRING*) const { CerrInternalError.Trigger(); }
void C_ERROR::TriggerDbg(const char*, const C_STRING*) { CerrInternalError.Trigger(); }
void C_ERROR::TriggerDbg(const C_STRING&, const C_STRING*) { CerrInternalError.Trigger(); }
void C_ERROR::TriggerDbgMild(const char*, const C_STRING*) { CerrInternalError.Trigger(); }
void C_ERROR::TriggerDbgMild(const C_STRING&, const C_STRING*) { CerrInternalError.Trigger(); }
void C_ERROR::RetriggerDbg(const char*, const C_STRING*) { CerrInternalError.Trigger(); }
void C_ERROR::RetriggerDbg(const C_STRING&, const C_STRING*) { CerrInternalError.Trigger(); }
void C_ERROR::RetriggerDbgMild(const char*, const C_STRING*) { CerrInternalError.Trigger(); }
void C_ERROR::RetriggerDbgMild(const C_STRING&, const C_STRING*) { CerrInternalError.Trigger(); }

void C_ERROR::ContextPush(const C_STRING& text) {
  if (ContextNb == ContextNba) {
    const int capacity = ContextNba == 0 ? 10 : 2 * ContextNba;
    C_STRING* grown = qorc::NewArray<C_STRING>(static_cast<std::size_t>(capacity));
    // A push made while an error is visible, or whose growth ran out of
    // memory, is dropped, and the stack stays as it was. The allocations'
    // own results tell their failures: behind a hidden error, the failure
    // records nothing that Is() could see.
    if (grown == nullptr || Is()) {
      delete[] grown;
      return;
    }
    bool copied = true;
    for (int i = 0; i < ContextNb && copied; ++i) {
      grown[i] = ContextStrings[i];
      copied = grown[i].GetNumber() == ContextStrings[i].GetNumber();
    }
    if (!copied || Is()) {
      delete[] grown;
      return;
    }
    delete[] ContextStrings;
    ContextStrings = grown;
    ContextNba = capacity;
  }
  ContextStrings[ContextNb] = text;
  ++ContextNb;
}

void C_ERROR::ContextPop() {
  if (ContextNb > 0) --ContextNb;
}

void C_ERROR::SetTriggerHandler(TRIGGER_HANDLER handler) { TriggerHandler = handler; }
void C_ERROR::SetReportHandler(REPORT_HANDLER handler) { ReportHandler = handler; }
void C_ERROR::SetReportWindowHandler(REPORT_HANDLER handler) { ReportWindowHandler = handler; }

void C_ERROR::Report(REPORT_HANDLER handler, C_STRING& text) {
  if (Pending == nullptr || Hidden) return;
  const C_ERROR* reported = Pending;
  Pending = nullptr;
  // The extra text, then the innermost context only.
  text = PendingExtra;
  if (ContextNb != 0) {
    if (!text.IsVoid()) text += u" ";
    text += ContextStrings[ContextNb - 1];
  }
  if (handler != nullptr) handler(reported->key_, text);
}

void C_ERROR::ReportPending() {
  static C_STRING text;
  Report(ReportHandler, text);
}

void C_ERROR::ReportPendingWindow() {
  static C_STRING text;
  Report(ReportWindowHandler, text);
}
