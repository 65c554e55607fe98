/// @file
/// C_ERROR: error descriptors and the one pending error of the process.
#ifndef QORC_ERROR_H
#define QORC_ERROR_H

#include <qorc/export.h>
#include <qorc/string.h>
#include <qorc/types.h>

/// An error descriptor, and the one pending error of the process. An operation
/// that fails triggers a descriptor (with an extra text, usually the path or the
/// value concerned) and returns a neutral result; the first error recorded stays
/// pending until the host reports or clears it. Callers test C_ERROR::Is() after
/// each call that can fail. Descriptors are told apart by address, not by key.
/// Process-wide and unguarded: use the library from one thread at a time.
class QORC_API C_ERROR {
 public:
  /// Called each time an error is recorded, with the descriptor and the extra text (null when none).
  using TRIGGER_HANDLER = void (*)(const C_ERROR& error, const C_STRING* extra);
  /// Shows or logs a reported error: the message key and the composed text.
  using REPORT_HANDLER = void (*)(const C_STRING& key, const C_STRING& text);

  /// A descriptor with an empty key.
  C_ERROR();
  /// A descriptor with the key, from 8-bit text ("C#Err#" and an English sentence).
  C_ERROR(const char* key);
  /// A descriptor with the same key (and an identity of its own).
  C_ERROR(const C_ERROR& other);
  /// Takes the other's key.
  C_ERROR& operator=(const C_ERROR& other);
  /// Releases the key.
  ~C_ERROR();

  /// The message key, "C#Err#" followed by an English sentence.
  operator const C_STRING&() const { return key_; }
  /// The message key, "C#Err#" followed by an English sentence.
  const C_STRING& GetKey() const { return key_; }

  /// This very descriptor (by address) is the pending one; the hidden flag is not consulted.
  C_BOOL IsPending() const;

  // Querying and clearing.
  /// True when an error is pending and not hidden: the test after each call that can fail.
  static C_BOOL Is() { return Pending != nullptr && !Hidden; }
  /// The pending descriptor, or null; whether hidden or not.
  static const C_ERROR* GetPending();
  /// The extra text of the pending error (the path or value concerned).
  static const C_STRING& GetPendingExtra();
  /// Forgets the pending error without reporting it (the extra text is kept).
  static void ClearPending();
  /// While hidden, a pending error is invisible to Is() and not reported, and new
  /// triggers are still ignored. Not counted: one Hide(false) undoes any number of Hide(true).
  static void Hide(C_BOOL hidden);
  /// Whether the pending error is hidden.
  static C_BOOL IsHidden();
  /// Sets the extra text, whether an error is pending or not; records nothing.
  static void SetPendingExtra(const C_STRING& extra);
  /// The same as SetPendingExtra.
  static void TriggerExtra(const C_STRING& extra);

  /// Records this descriptor as pending with the extra text (none when null) and
  /// calls the trigger handler; does nothing while an error is pending.
  /// Recording. The plain and Mild forms yield to a pending error, the Re forms
  /// replace it; every Dbg form records CerrInternalError and never replaces.
  void Trigger(const C_STRING* extra = nullptr) const;
  /// As Trigger, with a library-held descriptor of that key.
  static void Trigger(const char* key, const C_STRING* extra = nullptr);
  /// As Trigger, with a library-held descriptor of that key.
  static void Trigger(const C_STRING& key, const C_STRING* extra = nullptr);
  /// The form for ordinary failures (a missing file, the end of a file); behaves exactly as Trigger.
  void TriggerMild(const C_STRING* extra = nullptr) const;
  /// As TriggerMild, with a library-held descriptor of that key.
  static void TriggerMild(const char* key, const C_STRING* extra = nullptr);
  /// As TriggerMild, with a library-held descriptor of that key.
  static void TriggerMild(const C_STRING& key, const C_STRING* extra = nullptr);
  /// As Trigger, but replaces an error that is already pending.
  void Retrigger(const C_STRING* extra = nullptr) const;
  /// As Retrigger, with a library-held descriptor of that key.
  static void Retrigger(const char* key, const C_STRING* extra = nullptr);
  /// As Retrigger, with a library-held descriptor of that key.
  static void Retrigger(const C_STRING& key, const C_STRING* extra = nullptr);
  /// Behaves exactly as Retrigger.
  void RetriggerMild(const C_STRING* extra = nullptr) const;
  /// As RetriggerMild, with a library-held descriptor of that key.
  static void RetriggerMild(const char* key, const C_STRING* extra = nullptr);
  /// As RetriggerMild, with a library-held descriptor of that key.
  static void RetriggerMild(const C_STRING& key, const C_STRING* extra = nullptr);
  /// Records CerrInternalError without extra text (this descriptor and the text are
  /// ignored); does nothing while an error is pending.
  void TriggerDbg(const C_STRING* extra = nullptr) const;
  /// Records CerrInternalError without extra text (key and text ignored); yields to a pending error.
  static void TriggerDbg(const char* key, const C_STRING* extra = nullptr);
  /// Records CerrInternalError without extra text (key and text ignored); yields to a pending error.
  static void TriggerDbg(const C_STRING& key, const C_STRING* extra = nullptr);
  /// Records CerrInternalError without extra text (key and text ignored); yields to a pending error.
  static void TriggerDbgMild(const char* key, const C_STRING* extra = nullptr);
  /// Records CerrInternalError without extra text (key and text ignored); yields to a pending error.
  static void TriggerDbgMild(const C_STRING& key, const C_STRING* extra = nullptr);
  /// Records CerrInternalError without extra text; despite its name it never
  /// replaces a pending error, as the library always did.
  static void RetriggerDbg(const char* key, const C_STRING* extra = nullptr);
  /// As RetriggerDbg(const char*, const C_STRING*): never replaces a pending error.
  static void RetriggerDbg(const C_STRING& key, const C_STRING* extra = nullptr);
  /// As RetriggerDbg: records CerrInternalError, never replaces a pending error.
  static void RetriggerDbgMild(const char* key, const C_STRING* extra = nullptr);
  /// As RetriggerDbg: records CerrInternalError, never replaces a pending error.
  static void RetriggerDbgMild(const C_STRING& key, const C_STRING* extra = nullptr);
  /// The recording step itself: this descriptor becomes pending with the extra
  /// text, replacing any pending error, and the trigger handler is called.
  void SetPendingMild(const C_STRING* extra = nullptr) const;

  /// Pushes a text that says what the program is doing (the document being
  /// loaded); a report shows the innermost one after the extra text. Dropped while
  /// an error is pending when the stack must grow.
  /// Context stack: what the program is doing, innermost last.
  static void ContextPush(const C_STRING& text);
  /// Removes the most recently pushed text; nothing when the stack is empty.
  static void ContextPop();

  /// Installs the handler called at each recorded error; null removes it.
  /// Hooks and reporting.
  static void SetTriggerHandler(TRIGGER_HANDLER handler);
  /// Installs the handler of ReportPending; null removes it.
  static void SetReportHandler(REPORT_HANDLER handler);
  /// Installs the handler of ReportPendingWindow; null removes it.
  static void SetReportWindowHandler(REPORT_HANDLER handler);
  /// Reports and clears the pending error: the report handler gets the key and the
  /// extra text followed by the innermost context text. Nothing while none is
  /// pending or it is hidden; without a handler the error is cleared unseen.
  static void ReportPending();
  /// As ReportPending, through the window handler (the host shows a window of its own).
  static void ReportPendingWindow();

  /// The context stack, bottom first (owned by the library).
  static C_STRING* ContextStrings;
  /// The number of texts on the context stack.
  static int ContextNb;
  /// The number of slots of the context stack.
  static int ContextNba;

 protected:
  /// The recording step (see SetPendingMild).
  void SetPending(const C_STRING* extra) const;

  /// The pending descriptor; null when none.
  static const C_ERROR* Pending;
  /// The extra text of the pending error.
  static C_STRING PendingExtra;
  /// Whether the pending error is hidden.
  static C_BOOL Hidden;
  /// The handler called at each recorded error, or null.
  static TRIGGER_HANDLER TriggerHandler;
  /// The handler of ReportPending, or null.
  static REPORT_HANDLER ReportHandler;
  /// The handler of ReportPendingWindow, or null.
  static REPORT_HANDLER ReportWindowHandler;

 private:
  static void Report(REPORT_HANDLER handler, C_STRING& text);

  C_STRING key_;
};

// The library's catalogue of error descriptors.
/// "C#Err#Function failure": what the Dbg forms of triggering record, and any impossible state.
extern QORC_API const C_ERROR CerrInternalError;
/// "C#Err#Unable to create file": file object and directory creation.
extern QORC_API const C_ERROR CerrFileCannotCreate;
/// "C#Err#Not an OLE stream function": storage streams.
extern QORC_API const C_ERROR CerrNotAnOleStreamFunction;
/// "C#Err#Unable to create OLE stream file": storage streams.
extern QORC_API const C_ERROR CerrFileCannotCreateOleStream;
/// "C#Err#Unable to create temporary file": temporary files.
extern QORC_API const C_ERROR CerrFileCannotCreateTemporary;
/// "C#Err#Unable to open file": file object.
extern QORC_API const C_ERROR CerrFileCannotOpen;
/// "C#Err#Unable to read file": file object and text input.
extern QORC_API const C_ERROR CerrFileCannotRead;
/// "C#Err#Unable to write file": file object and text output.
extern QORC_API const C_ERROR CerrFileCannotWrite;
/// "C#Err#Unable to change position in file": file object.
extern QORC_API const C_ERROR CerrFileCannotSeek;
/// "C#Err#File copy canceled": file copy with progress.
extern QORC_API const C_ERROR CerrFileCopyCanceled;
/// "C#Err#End of file reached": reading, compressed files and lock files.
extern QORC_API const C_ERROR CerrFileEndReached;
/// "C#Err#File is Unicode": file object.
extern QORC_API const C_ERROR CerrFileIsUnicode;
/// "C#Err#File is not Unicode": file object.
extern QORC_API const C_ERROR CerrFileIsNotUnicode;
/// "C#Err#File contains invalid encoding": reading, compressed files and lock files.
extern QORC_API const C_ERROR CerrFileContainsInvalidCode;
/// "C#Err#File not found": file object and file-system operations.
extern QORC_API const C_ERROR CerrFileNotFound;
/// "C#Err#Unable to lock file": locks.
extern QORC_API const C_ERROR CerrFileLock;
/// "C#Err#Unable to unlock file": locks.
extern QORC_API const C_ERROR CerrFileUnlock;
/// "C#Err#File is locked": locks.
extern QORC_API const C_ERROR CerrFileLocked;
/// "C#Err#File is in read only mode": file operations.
extern QORC_API const C_ERROR CerrFileReadOnly;
/// "C#Err#Disk full": a write that fails because the device has no space left (any other failed write gives
/// CerrFileCannotWrite).
extern QORC_API const C_ERROR CerrFileNotEnoughSpace;
/// "C#Err#Error while compressing": compressed files.
extern QORC_API const C_ERROR CerrFileCannotCompress;
/// "C#Err#Error while decompressing": compressed files.
extern QORC_API const C_ERROR CerrFileCannotDecompress;
/// "C#Err#Not enough memory": every allocation.
extern QORC_API const C_ERROR CerrMemoryFull;
/// "C#Err#Cannot convert string to real": string numbers.
extern QORC_API const C_ERROR CerrStringNotReal;
/// "C#Err#Cannot convert string to integer": string numbers.
extern QORC_API const C_ERROR CerrStringNotInt;
/// "C#Err#Not found": string search.
extern QORC_API const C_ERROR CerrStringNotFound;
/// "C#Err#Cannot convert string to MBCS": string conversions.
extern QORC_API const C_ERROR CerrStringCannotConvertMBCS;
/// "C#Err#Invalid pointer": an operation given a null pointer where one is required.
extern QORC_API const C_ERROR CerrInvalidPointer;
/// "C#Err#Invalid value": an argument out of its domain: RSA key sizes, file dates, character substitution lists.
extern QORC_API const C_ERROR CerrInvalidValue;
/// "C#Err#Value is too low": a number below its range.
extern QORC_API const C_ERROR CerrValueTooLow;
/// "C#Err#Value is too high": string storage asked to grow beyond its limit.
extern QORC_API const C_ERROR CerrValueTooHigh;
/// "C#Err#Cannot open serial line": serial line.
extern QORC_API const C_ERROR CerrSerialCannotOpen;
/// "C#Err#Cannot get serial line state": serial line.
extern QORC_API const C_ERROR CerrSerialCannotGetState;
/// "C#Err#Cannot set serial line state": serial line.
extern QORC_API const C_ERROR CerrSerialCannotSetState;
/// "C#Err#Writing operation on serial line failed": serial line.
extern QORC_API const C_ERROR CerrSerialCannotWrite;
/// "C#Err#Reading operation on serial line failed": serial line.
extern QORC_API const C_ERROR CerrSerialCannotRead;

/// Appends one character (declared with C_STRING).
/// Appending one character: grow when needed, and leave the string unchanged
/// while an error is visible. The length is worked on as a full-width value
/// and stored last, so that a run of appends keeps it in a register instead
/// of narrowing it to 16 bits again at every character.
inline void C_STRING::Append(C_CHAR c) {
  const unsigned int number = number_;
  const unsigned int next = number + 1;
  if (next < size_ && !C_ERROR::Is()) {
    C_CHAR* const buffer = buffer_;
    buffer[number] = c;
    buffer[next] = C_CHAR(0);
    number_ = static_cast<unsigned short>(next);
  } else {
    AppendGrowing(c);
  }
}

#endif
