// What every qor command shares: text conversion, failures reported through
// the library's pending error, the progress display, byte sources and sinks
// ("-" is standard input or output) and output files that appear only whole.
#ifndef QOR_SUPPORT_H
#define QOR_SUPPORT_H

#include <qorc/qorc.h>

#include <memory>
#include <string>
#include <vector>

namespace qor {

constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

// Reads and writes move this many bytes at a time: one block of the
// compressed format.
constexpr int kChunkSize = C_FILE::COMPRESS_BLOCK_SIZE;

C_STRING LibraryText(const std::string& utf8);
std::string Utf8(const C_STRING& text);
bool IsStandardStream(const std::string& name);

// Records a failure as the pending error (unless one is pending already,
// which then says more) and returns false, so that callers can write
// `return Fail(...)`.
bool Fail(const C_ERROR& error, const std::string& extra);
// Adds what the tool knows (the file, the block) to the pending error.
void AddContextToPending(const std::string& context);
// Prints the pending error as "qor: SENTENCE: EXTRA" on standard error,
// clears it and gives the exit code of a failure.
int ReportPendingFailure();
// Operations that hand their failures to the report handler (lock files)
// are reported by the tool's handler, installed by this, which prints them
// as above and counts them.
void InstallReportHandler();
int ReportedFailures();

// The progress display: C_PROGRESS handlers drawing a bar on standard error,
// installed only when standard error is a terminal. The bar appears once the
// work has lasted about a second.
void InstallProgressDisplay();

// One piece of work shown through C_PROGRESS, from Open to Close. With an
// unknown total (0 or less) the display counts the bytes done instead.
class Progress {
 public:
  Progress(const std::string& title, long long total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  void Advance(long long bytes);
  long long Done() const { return done_; }

 private:
  long long total_;
  long long done_ = 0;
  int shown_ = -1;
};

// A file under a temporary name that is removed unless it is committed,
// also when the process is ended by a signal. Committing gives it the
// target's name; an existing target is replaced only when that is allowed.
class StagedFile {
 public:
  StagedFile() = default;
  ~StagedFile();
  StagedFile(const StagedFile&) = delete;
  StagedFile& operator=(const StagedFile&) = delete;
  // A temporary name beside the target (so that the rename stays on one file
  // system); failures on it are told as failures on the target. False with the error pending when the target exists and
  // may not be replaced.
  bool Begin(const std::string& target, bool replace);
  // A name in the temporary directory for a scratch file, never committed.
  // Failures on it are told as failures on `shown`.
  bool BeginScratch(const std::string& shown);
  const std::string& Path() const { return temporary_; }
  bool Commit();

 private:
  void Discard();

  std::string target_;
  std::string temporary_;
  bool replace_ = false;
};

// A byte source: a file read through the library, or standard input. A
// source that must be positioned or read by the library itself spools
// standard input to a scratch file first.
class Input {
 public:
  // False with the error pending when the file cannot be opened.
  bool Open(const std::string& name);
  // As Open, but standard input is first copied to a scratch file.
  bool OpenAsFile(const std::string& name);
  // The file to read (OpenAsFile always gives one; Open gives none for "-").
  C_FILE* File() { return file_.get(); }
  // The path to open again, for readers that need their own file object.
  const std::string& Path() const { return path_; }
  // Fills up to count bytes; *got < count only at the end of the data.
  // False with the error pending on a read failure.
  bool Read(int count, void* data, int* got);
  // The whole remaining data, at most limit bytes (more is CerrValueTooHigh).
  bool ReadAll(long long limit, std::vector<unsigned char>* data);
  // The size in bytes, or -1 for standard input.
  long long Size();
  // The name for messages: the file as the user gave it, or "standard input".
  std::string Shown() const;

 private:
  std::string name_;
  std::string path_;
  StagedFile spool_;
  std::unique_ptr<C_FILE> file_;
};

// A byte sink: a staged file written through the library, or standard
// output. Writers that need the library's file object (compressed or
// shielded output) write standard output through a scratch file that is
// copied out when they finish.
class Output {
 public:
  enum Kind { kBytes, kFileObject, kCompressedFile };
  bool Open(const std::string& name, bool replace, Kind kind = kBytes);
  // Null when the bytes go straight to standard output.
  C_FILE* File() { return file_.get(); }
  bool Write(int count, const void* data);
  // Closes the file and gives it its name, or completes standard output.
  bool Finish();
  // Lets only the owner read the file (private keys).
  void MakePrivate();

 private:
  std::string name_;
  StagedFile staged_;
  std::unique_ptr<C_FILE> file_;
};

}  // namespace qor

#endif
