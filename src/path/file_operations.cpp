// Whole-file operations on named files: existence, read-only attribute,
// removal, renaming, copying with progress, modification date. Every path is
// expanded through the root table first.
#include <qorc/file.h>

#include "platform/filesystem.h"
#include "time/calendar.h"

using qorc::platform::FileError;

C_FILE::PROGRESS_CALLBACK C_FILE::ProgressCallback = nullptr;
int C_FILE::ProgressData = 0;

namespace {

C_STRING Expanded(const C_STRING& path) {
  C_STRING expanded(path);
  C_FILE::ExpandPath(&expanded);
  return expanded;
}

struct ProgressContext {
  C_FILE::PROGRESS_CALLBACK callback;
  int data;
};

// Turns the copy's byte counts into the host's fraction. An empty file is
// complete from the start.
bool ReportCopyProgress(long long transferred, long long total, bool streamStart, void* context) {
  const ProgressContext* progress = static_cast<const ProgressContext*>(context);
  const double fraction = total > 0 ? static_cast<double>(transferred) / static_cast<double>(total) : 1.0;
  return progress->callback(fraction, streamStart, progress->data) != 0;
}

// Reports a failed removal or renaming of `path`, mildly: a missing file as
// such, a refusal as `refused`, an existing target as `existing`, anything
// else as a read failure.
void ReportFailure(FileError error, const C_STRING& path, const C_ERROR& refused, const C_ERROR& existing) {
  switch (error) {
    case FileError::None:
      break;
    case FileError::NotFound:
      CerrFileNotFound.TriggerMild(&path);
      break;
    case FileError::AccessDenied:
      refused.TriggerMild(&path);
      break;
    case FileError::AlreadyExists:
      existing.TriggerMild(&path);
      break;
    default:
      CerrFileCannotRead.TriggerMild(&path);
      break;
  }
}

}  // namespace

C_BOOL C_FILE::Exists(const C_STRING& path) { return qorc::platform::PathExists(Expanded(path).GetWCHAR()); }

void C_FILE::CheckExists(const C_STRING& path) {
  if (!Exists(path)) CerrFileNotFound.TriggerMild(&path);
}

C_BOOL C_FILE::IsReadOnly(const C_STRING& path) {
  switch (qorc::platform::CheckWritable(Expanded(path).GetWCHAR())) {
    case FileError::None:
      return false;
    case FileError::AccessDenied:
      return true;
    case FileError::NotFound:
      CerrFileNotFound.TriggerMild(&path);
      return false;
    default:
      return false;
  }
}

void C_FILE::SetReadOnly(const C_STRING& path, C_BOOL readOnly) {
  const FileError error = qorc::platform::SetWritable(Expanded(path).GetWCHAR(), !readOnly);
  if (error == FileError::NotFound) {
    CerrFileNotFound.TriggerMild(&path);
  } else if (error != FileError::None) {
    CerrFileCannotWrite.TriggerMild(&path);
  }
}

void C_FILE::Remove(const C_STRING& path) {
  ReportFailure(qorc::platform::RemoveFile(Expanded(path).GetWCHAR()), path, CerrFileReadOnly, CerrFileCannotRead);
}

void C_FILE::Rename(const C_STRING& from, const C_STRING& to) {
  ReportFailure(qorc::platform::RenameNoReplace(Expanded(from).GetWCHAR(), Expanded(to).GetWCHAR()), from,
                CerrFileCannotWrite, CerrFileCannotWrite);
}

void C_FILE::Copy(const C_STRING& from, const C_STRING& to, C_BOOL overwrite) {
  // A file copied onto itself, however written, is left alone.
  if (HasSamePath(from, to)) return;
  const C_STRING source = Expanded(from);
  const C_STRING target = Expanded(to);
  if (!CcharUnicode) {
    // The narrow form copies without progress.
    if (!qorc::platform::CopyFile(source.GetWCHAR(), target.GetWCHAR(), !overwrite, nullptr, nullptr, nullptr)) {
      CerrFileNotFound.TriggerMild(&source);
    }
    return;
  }
  // The cancel flag belongs to the copy routine's contract; the library never
  // raises it, so a copy that the callback stops is reported as a failed
  // copy (CerrFileNotFound), which is what hosts test for.
  volatile bool cancel = false;
  bool copied = false;
  if (ProgressCallback == nullptr) {
    copied = qorc::platform::CopyFile(source.GetWCHAR(), target.GetWCHAR(), !overwrite, nullptr, nullptr, &cancel);
  } else {
    ProgressContext context{ProgressCallback, ProgressData};
    copied = qorc::platform::CopyFile(source.GetWCHAR(), target.GetWCHAR(), !overwrite, ReportCopyProgress, &context,
                                      &cancel);
    // One-shot: the callback serves this copy only, whatever its outcome.
    ProgressCallback = nullptr;
  }
  if (!copied) {
    if (cancel) {
      CerrFileCopyCanceled.TriggerMild(&source);
    } else {
      CerrFileNotFound.TriggerMild(&source);
    }
  }
}

void C_FILE::SetCopyProgress(PROGRESS_CALLBACK callback, int data) {
  // Progress comes only with the wide copy routine.
  if (!CcharUnicode) return;
  ProgressCallback = callback;
  ProgressData = data;
}

void C_FILE::GetDateModif(const C_STRING& path, C_DATE* date) {
  const C_STRING expanded = Expanded(path);
  if (C_ERROR::Is()) return;
  long long seconds = 0;
  if (qorc::platform::ModificationTime(expanded.GetWCHAR(), &seconds) != FileError::None) {
    CerrFileNotFound.TriggerMild(&path);
    return;
  }
  qorc::calendar::Civil utc;
  if (!qorc::calendar::RuntimeUtcTime(seconds, &utc)) {
    CerrInvalidValue.TriggerMild();
    return;
  }
  *date = C_DATE(utc.year, utc.month, utc.day, utc.hour, utc.minute, utc.second, 0);
}
