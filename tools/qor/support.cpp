#include "support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace qor {

namespace {

constexpr char kKeyPrefix[] = "C#Err#";

// The library writes paths with "\"; on POSIX the user knows them with "/".
std::string SystemPath(std::string path) {
#ifndef _WIN32
  std::replace(path.begin(), path.end(), '\\', '/');
#endif
  return path;
}

// Temporary files to remove when a signal ends the process. The table is
// read by the signal handler, so it holds plain character arrays.
constexpr int kMaxStaged = 8;
constexpr int kMaxStagedPath = 4096;
char stagedPaths[kMaxStaged][kMaxStagedPath];
volatile std::sig_atomic_t stagedUsed[kMaxStaged];

void RemoveStagedFilesAndDie(int signal) {
  for (int i = 0; i < kMaxStaged; ++i) {
    if (stagedUsed[i] != 0) std::remove(stagedPaths[i]);
  }
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

void WatchSignalsOnce() {
  static bool watching = false;
  if (watching) return;
  watching = true;
#ifdef _WIN32
  // Windows has no hang-up or broken-pipe signal.
  for (int signal : {SIGINT, SIGTERM}) std::signal(signal, RemoveStagedFilesAndDie);
#else
  for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) std::signal(signal, RemoveStagedFilesAndDie);
#endif
}

void RegisterStaged(const std::string& path) {
  WatchSignalsOnce();
  if (path.size() >= kMaxStagedPath) return;
  for (int i = 0; i < kMaxStaged; ++i) {
    if (stagedUsed[i] == 0) {
      std::memcpy(stagedPaths[i], path.c_str(), path.size() + 1);
      stagedUsed[i] = 1;
      return;
    }
  }
}

// The name the user knows for each temporary file of this run. Messages
// name that, never the temporary, which may be gone by the time a failure is
// printed.
std::vector<std::pair<std::string, std::string>>& ShownNames() {
  static std::vector<std::pair<std::string, std::string>> names;
  return names;
}

// Both in the system's form, with its own separators, as the library's
// messages name files.
void RememberShownName(const std::string& temporary, const std::string& shown) {
  ShownNames().emplace_back(std::filesystem::path(temporary).make_preferred().string(),
                            std::filesystem::path(shown).make_preferred().string());
}

// A failure's extra text as the user should read it: "/" paths, and the
// user's names in place of temporary ones.
std::string ShownExtra(const C_STRING& text) {
  std::string extra = SystemPath(Utf8(text));
  for (const auto& [temporary, shown] : ShownNames()) {
    for (std::size_t at = extra.find(temporary); at != std::string::npos;
         at = extra.find(temporary, at + shown.size())) {
      extra.replace(at, temporary.size(), shown);
    }
  }
  return extra;
}

void UnregisterStaged(const std::string& path) {
  for (int i = 0; i < kMaxStaged; ++i) {
    if (stagedUsed[i] != 0 && path == stagedPaths[i]) stagedUsed[i] = 0;
  }
}

// The progress display's state, between the C_PROGRESS Open and Close calls.
struct ProgressDisplay {
  std::chrono::steady_clock::time_point start;
  std::string title;
  int range = 0;
  bool drawn = false;
};
ProgressDisplay display;

constexpr auto kQuietPeriod = std::chrono::seconds(1);
constexpr int kBarWidth = 30;
constexpr std::size_t kTitleWidth = 40;

void OpenDisplay(int range, const C_STRING& title, C_BOOL) {
  display = ProgressDisplay{std::chrono::steady_clock::now(), Utf8(title), range, false};
  if (display.title.size() > kTitleWidth) {
    display.title = "..." + display.title.substr(display.title.size() - (kTitleWidth - 3));
  }
}

void DrawDisplay(int value) {
  // Short work never shows a bar.
  if (std::chrono::steady_clock::now() - display.start < kQuietPeriod) return;
  if (display.range > 0) {
    const int filled = std::min(kBarWidth, value * kBarWidth / display.range);
    std::fprintf(stderr, "\r%s [%s%s] %3d%%", display.title.c_str(), std::string(filled, '#').c_str(),
                 std::string(kBarWidth - filled, '.').c_str(), value * 100 / display.range);
  } else {
    std::fprintf(stderr, "\r%s %d MiB", display.title.c_str(), value);
  }
  std::fflush(stderr);
  display.drawn = true;
}

void CloseDisplay() {
  // The finished bar is erased, so that what follows starts on a clean line.
  if (display.drawn) std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
  display.drawn = false;
}

C_BOOL DisplayIsOpen() { return !display.title.empty(); }

}  // namespace

C_STRING LibraryText(const std::string& utf8) {
  C_STRING text;
  text.FromUTF8(utf8.c_str());
  return text;
}

std::string Utf8(const C_STRING& text) {
  char* bytes = text.GetNewUTF8();
  std::string result = bytes != nullptr ? bytes : "";
  delete[] bytes;
  return result;
}

bool IsStandardStream(const std::string& name) { return name == "-"; }

bool Fail(const C_ERROR& error, const std::string& extra) {
  if (C_ERROR::Is()) return false;
  const C_STRING text = LibraryText(extra);
  error.Trigger(&text);
  return false;
}

void AddContextToPending(const std::string& context) {
  if (!C_ERROR::Is()) return;
  // Strings refuse to grow while an error is visible: hide it meanwhile.
  C_ERROR::Hide(true);
  const std::string extra = Utf8(C_ERROR::GetPendingExtra());
  const bool known = extra.empty() || SystemPath(extra) == context;
  const C_STRING text = LibraryText(known ? context : context + ": " + extra);
  C_ERROR::Hide(false);
  C_ERROR::SetPendingExtra(text);
}

namespace {

int reportedFailures = 0;

void PrintReport(const C_STRING& key, const C_STRING& text) {
  std::string sentence = Utf8(key);
  if (sentence.compare(0, sizeof kKeyPrefix - 1, kKeyPrefix) == 0) sentence.erase(0, sizeof kKeyPrefix - 1);
  const std::string extra = ShownExtra(text);
  if (extra.empty()) {
    std::fprintf(stderr, "qor: %s\n", sentence.c_str());
  } else {
    std::fprintf(stderr, "qor: %s: %s\n", sentence.c_str(), extra.c_str());
  }
  ++reportedFailures;
}

}  // namespace

void InstallReportHandler() { C_ERROR::SetReportHandler(PrintReport); }

int ReportedFailures() { return reportedFailures; }

int ReportPendingFailure() {
  const C_ERROR* pending = C_ERROR::GetPending();
  if (pending == nullptr) {
    // Already printed by the report handler, or nothing to say.
    if (reportedFailures == 0) std::fprintf(stderr, "qor: the operation failed\n");
    return kExitFailure;
  }
  C_ERROR::Hide(true);
  std::string sentence = Utf8(pending->GetKey());
  if (sentence.compare(0, sizeof kKeyPrefix - 1, kKeyPrefix) == 0) sentence.erase(0, sizeof kKeyPrefix - 1);
  const std::string extra = ShownExtra(C_ERROR::GetPendingExtra());
  C_ERROR::ClearPending();
  C_ERROR::Hide(false);
  if (extra.empty()) {
    std::fprintf(stderr, "qor: %s\n", sentence.c_str());
  } else {
    std::fprintf(stderr, "qor: %s: %s\n", sentence.c_str(), extra.c_str());
  }
  return kExitFailure;
}

// Progress -------------------------------------------------------------------------

void InstallProgressDisplay() {
  if (isatty(STDERR_FILENO) == 0) return;
  C_PROGRESS::SetOpenHandler(OpenDisplay);
  C_PROGRESS::SetSetPosHandler(DrawDisplay);
  C_PROGRESS::SetCloseHandler(CloseDisplay);
  C_PROGRESS::SetIsOpenHandler(DisplayIsOpen);
}

Progress::Progress(const std::string& title, long long total) : total_(total) {
  C_PROGRESS::Open(total > 0 ? 1000 : 0, LibraryText(title), false);
}

Progress::~Progress() { C_PROGRESS::Close(); }

void Progress::Advance(long long bytes) {
  done_ += bytes;
  const long long value = total_ > 0 ? std::min(1000LL, done_ * 1000 / total_) : done_ >> 20;
  if (value == shown_) return;
  shown_ = static_cast<int>(value);
  C_PROGRESS::SetPos(shown_);
}

// Staged files ---------------------------------------------------------------------

StagedFile::~StagedFile() { Discard(); }

bool StagedFile::Begin(const std::string& target, bool replace) {
  if (!replace && C_FILE::Exists(LibraryText(target))) {
    return Fail(CerrFileCannotCreate, target + " already exists (--force replaces it)");
  }
  const std::filesystem::path where(target);
  const std::string name = "." + where.filename().string() + ".qor-" + std::to_string(getpid()) + ".tmp";
  target_ = target;
  replace_ = replace;
  temporary_ = (where.parent_path() / name).string();
  RegisterStaged(temporary_);
  RememberShownName(temporary_, target);
  return true;
}

bool StagedFile::BeginScratch(const std::string& shown) {
  // Names of the tool's own, unique to the process: the library's temporary
  // names are handed out first-free without being reserved, so a scratch file
  // under one could take the name that another program is about to create.
  static int scratchFiles = 0;
  const std::string directory = SystemPath(Utf8(C_FILE::GetTempDir()));
  if (directory.empty()) return Fail(CerrFileCannotCreateTemporary, "no temporary directory");
  temporary_ = directory + "qor-" + std::to_string(getpid()) + "-" + std::to_string(++scratchFiles) + ".tmp";
  RegisterStaged(temporary_);
  RememberShownName(temporary_, shown);
  return true;
}

bool StagedFile::Commit() {
  const C_STRING target = LibraryText(target_);
  // The library's rename never replaces a file: an allowed replacement
  // removes the old target first.
  if (replace_ && C_FILE::Exists(target)) C_FILE::Remove(target);
  if (!C_ERROR::Is()) C_FILE::Rename(LibraryText(temporary_), target);
  if (C_ERROR::Is()) {
    AddContextToPending(target_);
    return false;
  }
  UnregisterStaged(temporary_);
  temporary_.clear();
  return true;
}

void StagedFile::Discard() {
  if (temporary_.empty()) return;
  // The C runtime's remove, not the library's: this also runs while a
  // failure is pending, when the library's work is not to be relied on.
  std::remove(temporary_.c_str());
  UnregisterStaged(temporary_);
  temporary_.clear();
}

// Input ----------------------------------------------------------------------------

bool Input::Open(const std::string& name) {
  name_ = name;
  if (IsStandardStream(name)) return true;
  path_ = name;
  file_ = std::make_unique<C_FILE>(LibraryText(name), C_FILE::READ, C_FILE::BINARY);
  return !C_ERROR::Is();
}

bool Input::OpenAsFile(const std::string& name) {
  if (!IsStandardStream(name)) return Open(name);
  name_ = name;
  if (!spool_.BeginScratch(Shown())) return false;
  {
    C_FILE copy(LibraryText(spool_.Path()), C_FILE::WRITE, C_FILE::BINARY);
    std::vector<unsigned char> chunk(kChunkSize);
    int got = kChunkSize;
    while (!C_ERROR::Is() && got == kChunkSize) {
      if (!Read(kChunkSize, chunk.data(), &got)) return false;
      copy.Write(got, chunk.data());
    }
  }
  if (C_ERROR::Is()) return false;
  path_ = spool_.Path();
  file_ = std::make_unique<C_FILE>(LibraryText(path_), C_FILE::READ, C_FILE::BINARY);
  return !C_ERROR::Is();
}

bool Input::Read(int count, void* data, int* got) {
  *got = 0;
  if (file_ != nullptr) {
    file_->Read(count, data, got);
    if (CerrFileEndReached.IsPending()) C_ERROR::ClearPending();
    return !C_ERROR::Is();
  }
  auto* bytes = static_cast<unsigned char*>(data);
  while (*got < count) {
    const std::size_t read = std::fread(bytes + *got, 1, static_cast<std::size_t>(count - *got), stdin);
    *got += static_cast<int>(read);
    if (read == 0) break;
  }
  if (std::ferror(stdin)) return Fail(CerrFileCannotRead, "standard input");
  return true;
}

bool Input::ReadAll(long long limit, std::vector<unsigned char>* data) {
  data->clear();
  int got = kChunkSize;
  while (got == kChunkSize) {
    const std::size_t used = data->size();
    if (static_cast<long long>(used) > limit) {
      return Fail(CerrValueTooHigh, Shown() + " holds more than " + std::to_string(limit) + " bytes");
    }
    data->resize(used + kChunkSize);
    if (!Read(kChunkSize, data->data() + used, &got)) return false;
    data->resize(used + got);
  }
  if (static_cast<long long>(data->size()) > limit) {
    return Fail(CerrValueTooHigh, Shown() + " holds more than " + std::to_string(limit) + " bytes");
  }
  return true;
}

std::string Input::Shown() const { return IsStandardStream(name_) ? "standard input" : name_; }

long long Input::Size() { return file_ != nullptr ? file_->GetSize() : -1; }

// Output ---------------------------------------------------------------------------

bool Output::Open(const std::string& name, bool replace, Kind kind) {
  name_ = name;
  if (IsStandardStream(name)) {
    if (kind == kBytes) return true;
    if (!staged_.BeginScratch("standard output")) return false;
  } else if (!staged_.Begin(name, replace)) {
    return false;
  }
  const C_STRING path = LibraryText(staged_.Path());
  if (kind == kCompressedFile) {
    file_ = std::make_unique<C_FILE>(path, C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
  } else {
    file_ = std::make_unique<C_FILE>(path, C_FILE::WRITE, C_FILE::BINARY);
  }
  return !C_ERROR::Is();
}

bool Output::Write(int count, const void* data) {
  if (file_ != nullptr) {
    file_->Write(count, data);
    return !C_ERROR::Is();
  }
  if (std::fwrite(data, 1, static_cast<std::size_t>(count), stdout) != static_cast<std::size_t>(count)) {
    return Fail(CerrFileCannotWrite, "standard output");
  }
  return true;
}

bool Output::Finish() {
  if (file_ != nullptr) {
    file_->Flush();
    // Closing writes what the library still holds (the last block).
    file_.reset();
    if (C_ERROR::Is()) return false;
    if (!IsStandardStream(name_)) return staged_.Commit();
    Input scratch;
    if (!scratch.Open(staged_.Path())) return false;
    std::vector<unsigned char> chunk(kChunkSize);
    int got = kChunkSize;
    while (got == kChunkSize) {
      if (!scratch.Read(kChunkSize, chunk.data(), &got) || !Write(got, chunk.data())) return false;
    }
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) return Fail(CerrFileCannotWrite, "standard output");
  return true;
}

void Output::MakePrivate() {
#ifndef _WIN32
  // (Windows files have no permission bits for their owner alone.)
  if (!staged_.Path().empty()) chmod(staged_.Path().c_str(), S_IRUSR | S_IWUSR);
#endif
}

}  // namespace qor
