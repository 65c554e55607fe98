// Runs the built qor program as a user would: a separate process with its
// standard streams on files, in a temporary directory of the test.
#ifndef QORC_TESTS_TOOL_QOR_RUNNER_H
#define QORC_TESTS_TOOL_QOR_RUNNER_H

#include <gtest/gtest.h>
// The library's headers come before <windows.h>, whose macros would clash with their names.
#include <qorc/qorc.h>
#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#undef VOID  // the library's "empty" constants are named VOID
#else
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/temp_dir.h"

#ifndef _WIN32
extern char** environ;
#endif

// The file that reads as empty.
#ifdef _WIN32
constexpr char kNullDevice[] = "NUL";
#else
constexpr char kNullDevice[] = "/dev/null";
#endif

struct QorResult {
  int status = -1;  // the exit code, or -1 when the program did not exit
  std::string out;
  std::string err;
};

inline std::string ReadWholeFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

inline void WriteWholeFile(const std::string& path, const std::string& data) {
  std::ofstream(path, std::ios::binary).write(data.data(), static_cast<std::streamsize>(data.size()));
}

#ifdef _WIN32
// One argument on a Windows command line, quoted as the runtime parses it.
inline std::wstring QuotedArgument(const std::wstring& word) {
  if (!word.empty() && word.find_first_of(L" \t\"") == std::wstring::npos) return word;
  std::wstring out = L"\"";
  std::size_t backslashes = 0;
  for (wchar_t c : word) {
    if (c == L'\\') {
      ++backslashes;
      continue;
    }
    out.append(c == L'"' ? 2 * backslashes + 1 : backslashes, L'\\');
    backslashes = 0;
    out += c;
  }
  out.append(2 * backslashes, L'\\');
  return out + L"\"";
}

inline HANDLE InheritableFile(const std::string& path, bool write) {
  SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
  return CreateFileW(std::filesystem::path(path).wstring().c_str(), write ? GENERIC_WRITE : GENERIC_READ,
                     FILE_SHARE_READ | FILE_SHARE_WRITE, &inherit, write ? CREATE_ALWAYS : OPEN_EXISTING,
                     FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Starts qor with its standard streams on the paths given.
inline HANDLE StartQor(const std::vector<std::string>& args, const std::string& input, const std::string& output,
                       const std::string& errors) {
  std::wstring line = QuotedArgument(std::filesystem::path(QOR_PROGRAM).wstring());
  for (const std::string& arg : args) line += L" " + QuotedArgument(std::filesystem::path(arg).wstring());
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = InheritableFile(input, false);
  startup.hStdOutput = InheritableFile(output, true);
  startup.hStdError = InheritableFile(errors, true);
  PROCESS_INFORMATION process = {};
  const BOOL started = CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                                      &process);
  for (HANDLE handle : {startup.hStdInput, startup.hStdOutput, startup.hStdError}) {
    if (handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
  }
  if (!started) return nullptr;
  CloseHandle(process.hThread);
  return process.hProcess;
}

inline int WaitForExit(HANDLE process) {
  if (process == nullptr) return -1;
  DWORD code = 0;
  const bool exited = WaitForSingleObject(process, INFINITE) == WAIT_OBJECT_0 && GetExitCodeProcess(process, &code);
  CloseHandle(process);
  return exited ? static_cast<int>(code) : -1;
}
#else
// Starts qor with its standard streams on the paths given.
inline pid_t StartQor(const std::vector<std::string>& args, const std::string& input, const std::string& output,
                      const std::string& errors) {
  std::vector<std::string> words{QOR_PROGRAM};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, input.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  pid_t pid = -1;
  if (posix_spawn(&pid, QOR_PROGRAM, &actions, nullptr, argv.data(), environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

inline int WaitForExit(pid_t pid) {
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

#endif

// Data that compresses somewhat, as real files do: runs of numbered text
// lines between stretches of random bytes.
inline std::string SampleData(std::size_t size, unsigned int seed) {
  std::mt19937 random(seed);
  std::string data;
  data.reserve(size + 64);
  while (data.size() < size) {
    if (random() % 3 == 0) {
      for (int i = random() % 512; i > 0; --i) data += static_cast<char>(random());
    } else {
      data += "line " + std::to_string(random() % 100000) + " of the sample\n";
    }
  }
  data.resize(size);
  return data;
}

// The names in a directory, sorted.
inline std::vector<std::string> DirectoryNames(const TempDir& dir) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

// The exit code and standard error, compared in one step.
inline std::pair<int, std::string> Outcome(const QorResult& result) { return {result.status, result.err}; }
inline std::pair<int, std::string> Failure(const std::string& err) { return {1, err}; }
inline const std::pair<int, std::string> kSuccess{0, ""};

// A test with its own temporary directory to run qor in.
class QorTest : public testing::Test {
 protected:
  // Runs qor and waits for it; its own files for the streams are gone when it returns.
  QorResult Run(const std::vector<std::string>& args, const std::string& input = kNullDevice,
                const std::string& output = "") {
    const std::string outputPath = output.empty() ? dir.File(".qor-stdout") : output;
    QorResult result;
    result.status = WaitForExit(StartQor(args, input, outputPath, dir.File(".qor-stderr")));
    result.out = output.empty() ? ReadWholeFile(outputPath) : "";
    result.err = ReadWholeFile(dir.File(".qor-stderr"));
#ifdef _WIN32
    // Messages on standard error end their lines as Windows text does (CR LF).
    for (std::size_t at = result.err.find("\r\n"); at != std::string::npos; at = result.err.find("\r\n", at)) {
      result.err.erase(at, 1);
    }
#endif
    if (output.empty()) std::remove(outputPath.c_str());
    std::remove(dir.File(".qor-stderr").c_str());
    return result;
  }
  // Runs qor, expects it to succeed without a word on standard error, and
  // returns its standard output.
  std::string Output(const std::vector<std::string>& args, const std::string& input = kNullDevice) {
    const QorResult result = Run(args, input);
    EXPECT_EQ(Outcome(result), kSuccess) << testing::PrintToString(args);
    return result.out;
  }
  // Writes `data` to the file `name` in the directory and returns its path.
  std::string Write(const std::string& name, const std::string& data) {
    WriteWholeFile(dir.File(name), data);
    return dir.File(name);
  }

  TempDir dir;
};

#endif
