// The host's interruption test, editor and file dialogs, reached through
// handlers; without one, nothing happens and the answer is false.
#include <qorc/progress.h>

namespace {
CSYSTEM_INTERRUPT_HANDLER g_interruptHandler = nullptr;
CSYSTEM_EDIT_FILE_HANDLER g_editFileHandler = nullptr;
CSYSTEM_FILE_DIALOG_HANDLER g_fileDialogLoadHandler = nullptr;
CSYSTEM_FILE_DIALOG_HANDLER g_fileDialogSaveHandler = nullptr;
}  // namespace

C_BOOL CsystemIsInterrupted() { return g_interruptHandler != nullptr ? g_interruptHandler() : C_BOOL(false); }

void CsystemEditFile(const C_STRING& path, C_BOOL flag) {
  if (g_editFileHandler != nullptr) g_editFileHandler(path, flag);
}

C_BOOL CsystemFileDialogLoad(const C_STRING& first, const C_STRING& second, const C_STRING& third,
                             const C_STRING& fourth, C_STRING* result) {
  if (g_fileDialogLoadHandler == nullptr) return false;
  return g_fileDialogLoadHandler(first, second, third, fourth, result);
}

C_BOOL CsystemFileDialogSave(const C_STRING& first, const C_STRING& second, const C_STRING& third,
                             const C_STRING& fourth, C_STRING* result) {
  if (g_fileDialogSaveHandler == nullptr) return false;
  return g_fileDialogSaveHandler(first, second, third, fourth, result);
}

void CsystemSetInterruptHandler(CSYSTEM_INTERRUPT_HANDLER handler) { g_interruptHandler = handler; }
void CsystemSetEditFileHandler(CSYSTEM_EDIT_FILE_HANDLER handler) { g_editFileHandler = handler; }
void CsystemSetFileDialogLoadHandler(CSYSTEM_FILE_DIALOG_HANDLER handler) { g_fileDialogLoadHandler = handler; }
void CsystemSetFileDialogSaveHandler(CSYSTEM_FILE_DIALOG_HANDLER handler) { g_fileDialogSaveHandler = handler; }
