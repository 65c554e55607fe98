// The host's user interface, reached through handlers: the progress display
// (C_PROGRESS) and the interruption test, the editor and the file dialogs
// (Csystem). Without a handler an operation does nothing and a question is
// answered false, so code built on the library runs unchanged in a program
// without a user interface. Installing a handler replaces the previous one;
// installing null restores the default.
#ifndef QORC_PROGRESS_H
#define QORC_PROGRESS_H

#include <qorc/export.h>
#include <qorc/string.h>
#include <qorc/types.h>

class QORC_API C_PROGRESS {
 public:
  using OPEN_HANDLER = void (*)(int range, const C_STRING& title, C_BOOL flag);
  using VALUE_HANDLER = void (*)(int value);
  using ACTION_HANDLER = void (*)();
  using QUERY_HANDLER = C_BOOL (*)();

  C_PROGRESS() = default;
  C_PROGRESS(const C_PROGRESS&) = default;
  // The facade has no state of its own: assignment does nothing.
  C_PROGRESS& operator=(const C_PROGRESS&) { return *this; }

  // Each call goes to its handler with its arguments unchanged; the facade
  // keeps no count, range or position.
  static void Open(int range, const C_STRING& title, C_BOOL flag);
  static void SetRange(int range);
  static void SetPos(int position);
  static void Step();
  static void OffsetValue(int offset);
  static void Close();
  static C_BOOL IsOpen();

  static void SetOpenHandler(OPEN_HANDLER handler);
  static void SetSetRangeHandler(VALUE_HANDLER handler);
  static void SetSetPosHandler(VALUE_HANDLER handler);
  static void SetStepHandler(ACTION_HANDLER handler);
  static void SetOffsetValueHandler(VALUE_HANDLER handler);
  static void SetCloseHandler(ACTION_HANDLER handler);
  static void SetIsOpenHandler(QUERY_HANDLER handler);

 protected:
  static OPEN_HANDLER OpenHandler;
  static VALUE_HANDLER SetRangeHandler;
  static ACTION_HANDLER StepHandler;
  static VALUE_HANDLER SetPosHandler;
  static VALUE_HANDLER OffsetHandler;
  static ACTION_HANDLER CloseHandler;
  static QUERY_HANDLER IsOpenHandler;
};

using CSYSTEM_INTERRUPT_HANDLER = C_BOOL (*)();
using CSYSTEM_EDIT_FILE_HANDLER = void (*)(const C_STRING& path, C_BOOL flag);
// The four texts are the host's (for example title, directory, name and
// filter); the library passes them through unread.
using CSYSTEM_FILE_DIALOG_HANDLER = C_BOOL (*)(const C_STRING& first, const C_STRING& second, const C_STRING& third,
                                               const C_STRING& fourth, C_STRING* result);

// Whether the user asked to stop; false without a handler.
QORC_API C_BOOL CsystemIsInterrupted();
// Opens a file in the host's editor; nothing without a handler.
QORC_API void CsystemEditFile(const C_STRING& path, C_BOOL flag);
// Ask the user for a file to load or to save; without a handler false, and
// the result is left as it is.
QORC_API C_BOOL CsystemFileDialogLoad(const C_STRING& first, const C_STRING& second, const C_STRING& third,
                                      const C_STRING& fourth, C_STRING* result);
QORC_API C_BOOL CsystemFileDialogSave(const C_STRING& first, const C_STRING& second, const C_STRING& third,
                                      const C_STRING& fourth, C_STRING* result);

QORC_API void CsystemSetInterruptHandler(CSYSTEM_INTERRUPT_HANDLER handler);
QORC_API void CsystemSetEditFileHandler(CSYSTEM_EDIT_FILE_HANDLER handler);
QORC_API void CsystemSetFileDialogLoadHandler(CSYSTEM_FILE_DIALOG_HANDLER handler);
QORC_API void CsystemSetFileDialogSaveHandler(CSYSTEM_FILE_DIALOG_HANDLER handler);

#endif
