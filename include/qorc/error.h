// C_ERROR: error descriptors and the one pending error of the process.
#ifndef QORC_ERROR_H
#define QORC_ERROR_H

#include <qorc/export.h>
#include <qorc/string.h>
#include <qorc/types.h>

class QORC_API C_ERROR {
 public:
  using TRIGGER_HANDLER = void (*)(const C_ERROR& error, const C_STRING* extra);
  using REPORT_HANDLER = void (*)(const C_STRING& key, const C_STRING& text);

  C_ERROR();
  C_ERROR(const char* key);
  C_ERROR(const C_ERROR& other);
  C_ERROR& operator=(const C_ERROR& other);
  ~C_ERROR();

  // The message key, "C#Err#" followed by an English sentence.
  operator const C_STRING&() const { return key_; }
  const C_STRING& GetKey() const { return key_; }

  // This very descriptor (by address) is the pending one; the hidden flag is not consulted.
  C_BOOL IsPending() const;

  // Querying and clearing.
  static C_BOOL Is() { return Pending != nullptr && !Hidden; }
  static const C_ERROR* GetPending();
  static const C_STRING& GetPendingExtra();
  static void ClearPending();
  static void Hide(C_BOOL hidden);
  static C_BOOL IsHidden();
  static void SetPendingExtra(const C_STRING& extra);
  static void TriggerExtra(const C_STRING& extra);

  // Recording. The plain and Mild forms yield to a pending error, the Re forms
  // replace it; every Dbg form records CerrInternalError and never replaces.
  void Trigger(const C_STRING* extra = nullptr) const;
  static void Trigger(const char* key, const C_STRING* extra = nullptr);
  static void Trigger(const C_STRING& key, const C_STRING* extra = nullptr);
  void TriggerMild(const C_STRING* extra = nullptr) const;
  static void TriggerMild(const char* key, const C_STRING* extra = nullptr);
  static void TriggerMild(const C_STRING& key, const C_STRING* extra = nullptr);
  void Retrigger(const C_STRING* extra = nullptr) const;
  static void Retrigger(const char* key, const C_STRING* extra = nullptr);
  static void Retrigger(const C_STRING& key, const C_STRING* extra = nullptr);
  void RetriggerMild(const C_STRING* extra = nullptr) const;
  static void RetriggerMild(const char* key, const C_STRING* extra = nullptr);
  static void RetriggerMild(const C_STRING& key, const C_STRING* extra = nullptr);
  void TriggerDbg(const C_STRING* extra = nullptr) const;
  static void TriggerDbg(const char* key, const C_STRING* extra = nullptr);
  static void TriggerDbg(const C_STRING& key, const C_STRING* extra = nullptr);
  static void TriggerDbgMild(const char* key, const C_STRING* extra = nullptr);
  static void TriggerDbgMild(const C_STRING& key, const C_STRING* extra = nullptr);
  static void RetriggerDbg(const char* key, const C_STRING* extra = nullptr);
  static void RetriggerDbg(const C_STRING& key, const C_STRING* extra = nullptr);
  static void RetriggerDbgMild(const char* key, const C_STRING* extra = nullptr);
  static void RetriggerDbgMild(const C_STRING& key, const C_STRING* extra = nullptr);
  void SetPendingMild(const C_STRING* extra = nullptr) const;

  // Context stack: what the program is doing, innermost last.
  static void ContextPush(const C_STRING& text);
  static void ContextPop();

  // Hooks and reporting.
  static void SetTriggerHandler(TRIGGER_HANDLER handler);
  static void SetReportHandler(REPORT_HANDLER handler);
  static void SetReportWindowHandler(REPORT_HANDLER handler);
  static void ReportPending();
  static void ReportPendingWindow();

  static C_STRING* ContextStrings;
  static int ContextNb;
  static int ContextNba;

 protected:
  void SetPending(const C_STRING* extra) const;

  static const C_ERROR* Pending;
  static C_STRING PendingExtra;
  static C_BOOL Hidden;
  static TRIGGER_HANDLER TriggerHandler;
  static REPORT_HANDLER ReportHandler;
  static REPORT_HANDLER ReportWindowHandler;

 private:
  static void Report(REPORT_HANDLER handler, C_STRING& text);

  C_STRING key_;
};

// The library's catalogue of error descriptors.
extern QORC_API const C_ERROR CerrInternalError;
extern QORC_API const C_ERROR CerrFileCannotCreate;
extern QORC_API const C_ERROR CerrNotAnOleStreamFunction;
extern QORC_API const C_ERROR CerrFileCannotCreateOleStream;
extern QORC_API const C_ERROR CerrFileCannotCreateTemporary;
extern QORC_API const C_ERROR CerrFileCannotOpen;
extern QORC_API const C_ERROR CerrFileCannotRead;
extern QORC_API const C_ERROR CerrFileCannotWrite;
extern QORC_API const C_ERROR CerrFileCannotSeek;
extern QORC_API const C_ERROR CerrFileCopyCanceled;
extern QORC_API const C_ERROR CerrFileEndReached;
extern QORC_API const C_ERROR CerrFileIsUnicode;
extern QORC_API const C_ERROR CerrFileIsNotUnicode;
extern QORC_API const C_ERROR CerrFileContainsInvalidCode;
extern QORC_API const C_ERROR CerrFileNotFound;
extern QORC_API const C_ERROR CerrFileLock;
extern QORC_API const C_ERROR CerrFileUnlock;
extern QORC_API const C_ERROR CerrFileLocked;
extern QORC_API const C_ERROR CerrFileReadOnly;
extern QORC_API const C_ERROR CerrFileNotEnoughSpace;
extern QORC_API const C_ERROR CerrFileCannotCompress;
extern QORC_API const C_ERROR CerrFileCannotDecompress;
extern QORC_API const C_ERROR CerrMemoryFull;
extern QORC_API const C_ERROR CerrStringNotReal;
extern QORC_API const C_ERROR CerrStringNotInt;
extern QORC_API const C_ERROR CerrStringNotFound;
extern QORC_API const C_ERROR CerrStringCannotConvertMBCS;
extern QORC_API const C_ERROR CerrInvalidPointer;
extern QORC_API const C_ERROR CerrInvalidValue;
extern QORC_API const C_ERROR CerrValueTooLow;
extern QORC_API const C_ERROR CerrValueTooHigh;
extern QORC_API const C_ERROR CerrSerialCannotOpen;
extern QORC_API const C_ERROR CerrSerialCannotGetState;
extern QORC_API const C_ERROR CerrSerialCannotSetState;
extern QORC_API const C_ERROR CerrSerialCannotWrite;
extern QORC_API const C_ERROR CerrSerialCannotRead;

// Appending one character: grow when needed, and leave the string unchanged
// while an error is visible. The length is worked on as a full-width value
// and stored last, so that a run of appends keeps it in a register instead
// of narrowing it to 16 bits again at every character.
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
