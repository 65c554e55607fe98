/// @file
/// The host's user interface, reached through handlers: the progress display
/// (C_PROGRESS) and the interruption test, the editor and the file dialogs
/// (Csystem). Without a handler an operation does nothing and a question is
/// answered false, so code built on the library runs unchanged in a program
/// without a user interface. Installing a handler replaces the previous one;
/// installing null restores the default.
#ifndef QORC_PROGRESS_H
#define QORC_PROGRESS_H

#include <qorc/export.h>
#include <qorc/string.h>
#include <qorc/types.h>

/// The progress display of the host, reached through handlers: each call goes to
/// its handler unchanged, and without one it does nothing (IsOpen answers false).
class QORC_API C_PROGRESS {
 public:
  /// Opens the display with a range, a title and a flag of the host's.
  using OPEN_HANDLER = void (*)(int range, const C_STRING& title, C_BOOL flag);
  /// Receives a range, a position or an offset.
  using VALUE_HANDLER = void (*)(int value);
  /// Steps or closes the display.
  using ACTION_HANDLER = void (*)();
  /// Tells whether the display is open.
  using QUERY_HANDLER = C_BOOL (*)();

  /// A facade: it holds nothing.
  C_PROGRESS() = default;
  /// A facade: it holds nothing.
  C_PROGRESS(const C_PROGRESS&) = default;
  /// The facade has no state of its own: assignment does nothing.
  C_PROGRESS& operator=(const C_PROGRESS&) { return *this; }

  /// Opens the display: the range of positions, a title, and a flag of the host's.
  /// Each call goes to its handler with its arguments unchanged; the facade
  /// keeps no count, range or position.
  static void Open(int range, const C_STRING& title, C_BOOL flag);
  /// Changes the range of positions.
  static void SetRange(int range);
  /// Moves to a position.
  static void SetPos(int position);
  /// Moves one step on.
  static void Step();
  /// Moves by an offset.
  static void OffsetValue(int offset);
  /// Closes the display.
  static void Close();
  /// Whether the display is open; false without a handler.
  static C_BOOL IsOpen();

  /// Installs the handler of Open; null restores the default (nothing).
  static void SetOpenHandler(OPEN_HANDLER handler);
  /// Installs the handler of SetRange; null restores the default.
  static void SetSetRangeHandler(VALUE_HANDLER handler);
  /// Installs the handler of SetPos; null restores the default.
  static void SetSetPosHandler(VALUE_HANDLER handler);
  /// Installs the handler of Step; null restores the default.
  static void SetStepHandler(ACTION_HANDLER handler);
  /// Installs the handler of OffsetValue; null restores the default.
  static void SetOffsetValueHandler(VALUE_HANDLER handler);
  /// Installs the handler of Close; null restores the default.
  static void SetCloseHandler(ACTION_HANDLER handler);
  /// Installs the handler of IsOpen; null restores the default (false).
  static void SetIsOpenHandler(QUERY_HANDLER handler);

 protected:
  /// The handler of Open, or null.
  static OPEN_HANDLER OpenHandler;
  /// The handler of SetRange, or null.
  static VALUE_HANDLER SetRangeHandler;
  /// The handler of Step, or null.
  static ACTION_HANDLER StepHandler;
  /// The handler of SetPos, or null.
  static VALUE_HANDLER SetPosHandler;
  /// The handler of OffsetValue, or null.
  static VALUE_HANDLER OffsetHandler;
  /// The handler of Close, or null.
  static ACTION_HANDLER CloseHandler;
  /// The handler of IsOpen, or null.
  static QUERY_HANDLER IsOpenHandler;
};

/// Answers whether the user asked to stop.
using CSYSTEM_INTERRUPT_HANDLER = C_BOOL (*)();
/// Opens a file in the host's editor, with a flag of the host's.
using CSYSTEM_EDIT_FILE_HANDLER = void (*)(const C_STRING& path, C_BOOL flag);
/// The four texts are the host's (for example title, directory, name and
/// filter); the library passes them through unread.
using CSYSTEM_FILE_DIALOG_HANDLER = C_BOOL (*)(const C_STRING& first, const C_STRING& second, const C_STRING& third,
                                               const C_STRING& fourth, C_STRING* result);

/// Whether the user asked to stop; false without a handler.
QORC_API C_BOOL CsystemIsInterrupted();
/// Opens a file in the host's editor; nothing without a handler.
QORC_API void CsystemEditFile(const C_STRING& path, C_BOOL flag);
/// Asks the user for a file to load: true and *result when one was chosen.
/// Ask the user for a file to load or to save; without a handler false, and
/// the result is left as it is.
QORC_API C_BOOL CsystemFileDialogLoad(const C_STRING& first, const C_STRING& second, const C_STRING& third,
                                      const C_STRING& fourth, C_STRING* result);
/// Asks the user for a file to save: true and *result when one was chosen;
/// without a handler false, and the result is left as it is.
QORC_API C_BOOL CsystemFileDialogSave(const C_STRING& first, const C_STRING& second, const C_STRING& third,
                                      const C_STRING& fourth, C_STRING* result);

/// Installs the handler of CsystemIsInterrupted; null restores the default.
QORC_API void CsystemSetInterruptHandler(CSYSTEM_INTERRUPT_HANDLER handler);
/// Installs the handler of CsystemEditFile; null restores the default.
QORC_API void CsystemSetEditFileHandler(CSYSTEM_EDIT_FILE_HANDLER handler);
/// Installs the handler of CsystemFileDialogLoad; null restores the default.
QORC_API void CsystemSetFileDialogLoadHandler(CSYSTEM_FILE_DIALOG_HANDLER handler);
/// Installs the handler of CsystemFileDialogSave; null restores the default.
QORC_API void CsystemSetFileDialogSaveHandler(CSYSTEM_FILE_DIALOG_HANDLER handler);

#endif
