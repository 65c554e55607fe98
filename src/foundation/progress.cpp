// The progress facade: every call goes to the host's handler, or does nothing.
#include <qorc/progress.h>

C_PROGRESS::OPEN_HANDLER C_PROGRESS::OpenHandler = nullptr;
C_PROGRESS::VALUE_HANDLER C_PROGRESS::SetRangeHandler = nullptr;
C_PROGRESS::ACTION_HANDLER C_PROGRESS::StepHandler = nullptr;
C_PROGRESS::VALUE_HANDLER C_PROGRESS::SetPosHandler = nullptr;
C_PROGRESS::VALUE_HANDLER C_PROGRESS::OffsetHandler = nullptr;
C_PROGRESS::ACTION_HANDLER C_PROGRESS::CloseHandler = nullptr;
C_PROGRESS::QUERY_HANDLER C_PROGRESS::IsOpenHandler = nullptr;

void C_PROGRESS::Open(int range, const C_STRING& title, C_BOOL flag) {
  if (OpenHandler != nullptr) OpenHandler(range, title, flag);
}

void C_PROGRESS::SetRange(int range) {
  if (SetRangeHandler != nullptr) SetRangeHandler(range);
}

void C_PROGRESS::SetPos(int position) {
  if (SetPosHandler != nullptr) SetPosHandler(position);
}

void C_PROGRESS::Step() {
  if (StepHandler != nullptr) StepHandler();
}

void C_PROGRESS::OffsetValue(int offset) {
  if (OffsetHandler != nullptr) OffsetHandler(offset);
}

void C_PROGRESS::Close() {
  if (CloseHandler != nullptr) CloseHandler();
}

C_BOOL C_PROGRESS::IsOpen() { return IsOpenHandler != nullptr ? IsOpenHandler() : C_BOOL(false); }

void C_PROGRESS::SetOpenHandler(OPEN_HANDLER handler) { OpenHandler = handler; }
void C_PROGRESS::SetSetRangeHandler(VALUE_HANDLER handler) { SetRangeHandler = handler; }
void C_PROGRESS::SetSetPosHandler(VALUE_HANDLER handler) { SetPosHandler = handler; }
void C_PROGRESS::SetStepHandler(ACTION_HANDLER handler) { StepHandler = handler; }
void C_PROGRESS::SetOffsetValueHandler(VALUE_HANDLER handler) { OffsetHandler = handler; }
void C_PROGRESS::SetCloseHandler(ACTION_HANDLER handler) { CloseHandler = handler; }
void C_PROGRESS::SetIsOpenHandler(QUERY_HANDLER handler) { IsOpenHandler = handler; }
