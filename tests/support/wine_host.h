// Helpers of the Windows tests that meet other programs: Windows programs run
// with their output captured, and, under Wine, programs of the Linux host
// (olefile, gsf, the simulated instrument) started through Wine, which runs
// a Linux executable named by its Unix path. Wine gives such a program no
// process handle and none of the pipes it was given, so its output and exit
// status come back through files that the tests wait for.
#ifndef QORC_TESTS_SUPPORT_WINE_HOST_H
#define QORC_TESTS_SUPPORT_WINE_HOST_H

// Without the OLE headers, whose IStorage is not the library's, and without
// the VOID macro, which would replace the library's members of that name.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#undef VOID

#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

// Whether the tests run under Wine rather than on Windows itself.
inline bool RunningUnderWine() {
  const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

// Runs a Windows program's command line, waits for it (at most `limitMs`)
// and gives its exit code (-1 when it did not start or end) and its
// standard output.
inline int RunProgram(const std::wstring& commandLine, std::string* output, DWORD limitMs = 60000) {
  output->clear();
  SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  if (!CreatePipe(&readEnd, &writeEnd, &inherit, 0)) return -1;
  SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = writeEnd;
  startup.hStdError = writeEnd;
  startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
  PROCESS_INFORMATION process = {};
  std::wstring line = commandLine;
  const BOOL started =
      CreateProcessW(nullptr, &line[0], nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr, &startup, &process);
  CloseHandle(writeEnd);
  if (!started) {
    CloseHandle(readEnd);
    return -1;
  }
  char buffer[4096];
  DWORD got = 0;
  while (ReadFile(readEnd, buffer, sizeof buffer, &got, nullptr) && got > 0) output->append(buffer, got);
  CloseHandle(readEnd);
  DWORD code = static_cast<DWORD>(-1);
  if (WaitForSingleObject(process.hProcess, limitMs) != WAIT_OBJECT_0 || !GetExitCodeProcess(process.hProcess, &code)) {
    TerminateProcess(process.hProcess, 1);
    code = static_cast<DWORD>(-1);
  }
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return static_cast<int>(code);
}

// The Unix path of a Windows path under Wine; empty elsewhere.
inline std::string UnixPath(const std::wstring& windowsPath) {
  using ToUnix = char*(CDECL*)(const wchar_t*);
  const auto toUnix = reinterpret_cast<ToUnix>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "wine_get_unix_file_name")));
  if (toUnix == nullptr) return std::string();
  char* unix = toUnix(windowsPath.c_str());
  if (unix == nullptr) return std::string();
  std::string path(unix);
  HeapFree(GetProcessHeap(), 0, unix);
  return path;
}

inline std::string ReadWhole(const std::wstring& path) {
  std::ifstream in(path.c_str(), std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// Waits until the file exists (at most `limitMs`); false when it never came.
inline bool WaitForFile(const std::wstring& path, int limitMs) {
  for (int waited = 0; waited <= limitMs; waited += 20) {
    if (GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

// Quotes a text for the Linux shell.
inline std::string ShellQuoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// A shell command of the Linux host, started through Wine. Its standard
// output and error go to `<base>.out`, its exit status to `<base>.rc` once it
// has ended; `base` is a Windows path.
inline bool StartOnHost(const std::string& command, const std::wstring& base) {
  const std::string unixBase = UnixPath(base);
  if (unixBase.empty()) return false;
  const std::string script = "(" + command + ") >" + ShellQuoted(unixBase + ".out") + " 2>&1; echo $? >" +
                             ShellQuoted(unixBase + ".rc.tmp") + "; mv " + ShellQuoted(unixBase + ".rc.tmp") + " " +
                             ShellQuoted(unixBase + ".rc");
  // Quoted by the rules by which the command line is split into arguments:
  // backslashes count only before a quotation mark.
  std::wstring line = L"/bin/sh -c \"";
  std::size_t backslashes = 0;
  for (const char c : script) {
    if (c == '\\') {
      ++backslashes;
    } else {
      if (c == '"') line.append(backslashes + 1, L'\\');
      backslashes = 0;
    }
    line += static_cast<wchar_t>(static_cast<unsigned char>(c));
  }
  line.append(backslashes, L'\\');
  line += L"\"";
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(nullptr, &line[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process)) {
    return false;
  }
  if (process.hThread != nullptr) CloseHandle(process.hThread);
  if (process.hProcess != nullptr) CloseHandle(process.hProcess);
  return true;
}

// Runs a shell command of the Linux host and waits for it: its exit status
// (-1 when it did not end within `limitMs`) and its output.
inline int RunOnHost(const std::string& command, const std::wstring& base, std::string* output, int limitMs = 60000) {
  output->clear();
  DeleteFileW((base + L".rc").c_str());
  if (!StartOnHost(command, base) || !WaitForFile(base + L".rc", limitMs)) return -1;
  *output = ReadWhole(base + L".out");
  return std::atoi(ReadWhole(base + L".rc").c_str());
}

#endif
