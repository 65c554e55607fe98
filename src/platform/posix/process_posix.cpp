// Process facts on POSIX: the host name, the effective user's login name,
// the process id, and what /proc tells about another process.
#include <pthread.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>
#include <string>
#include <vector>

#include "platform/posix/native_path.h"
#include "platform/process.h"

namespace qorc::platform {
namespace {

std::u16string FromUtf8(const std::string& text) {
  // LibraryPath turns "/" into "\", which never occurs in these names.
  return posix::LibraryPath(text);
}

std::string ToUtf8(const std::u16string& text) { return posix::NativePath(text.c_str()); }

enum class Lookup { Found, Missing, Failed };

// The passwd entry of a user id or of a name.
Lookup LookUpUser(const uid_t* uid, const std::string* name, std::string* nameOut, uid_t* uidOut) {
  long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 1024);
  for (;;) {
    struct passwd entry;
    struct passwd* result = nullptr;
    const int error = uid != nullptr ? ::getpwuid_r(*uid, &entry, buffer.data(), buffer.size(), &result)
                                     : ::getpwnam_r(name->c_str(), &entry, buffer.data(), buffer.size(), &result);
    if (error == ERANGE && buffer.size() < (1u << 20)) {
      buffer.resize(buffer.size() * 2);
      continue;
    }
    if (result == nullptr) {
      // No entry is reported as 0 or as one of the "not found" codes.
      return error == 0 || error == ENOENT || error == ESRCH || error == EBADF || error == EPERM ? Lookup::Missing
                                                                                                 : Lookup::Failed;
    }
    if (nameOut != nullptr) *nameOut = entry.pw_name;
    if (uidOut != nullptr) *uidOut = entry.pw_uid;
    return Lookup::Found;
  }
}

struct ProcessStatus {
  bool zombie = false;
  long threadGroup = -1;
  long effectiveUid = -1;
};

// Reads /proc/<id>/status. False when the process does not exist.
bool ReadProcessStatus(unsigned long id, ProcessStatus* status, bool* procAvailable) {
  *procAvailable = ::access("/proc/self/status", R_OK) == 0;
  if (!*procAvailable) return false;
  std::ifstream file("/proc/" + std::to_string(id) + "/status");
  if (!file) return false;
  std::string line;
  while (std::getline(file, line)) {
    if (line.compare(0, 6, "State:") == 0) {
      const std::size_t at = line.find_first_not_of(" \t", 6);
      status->zombie = at != std::string::npos && (line[at] == 'Z' || line[at] == 'X');
    } else if (line.compare(0, 5, "Tgid:") == 0) {
      status->threadGroup = std::strtol(line.c_str() + 5, nullptr, 10);
    } else if (line.compare(0, 4, "Uid:") == 0) {
      // Real, effective, saved and file-system user ids.
      char* end = nullptr;
      std::strtol(line.c_str() + 4, &end, 10);
      status->effectiveUid = std::strtol(end, nullptr, 10);
    }
  }
  return true;
}

ProcessState StateOf(unsigned long id, const std::u16string& user) {
  if (id == 0 || id > static_cast<unsigned long>(INT_MAX)) return ProcessState::Gone;
  uid_t userId = 0;
  const std::string userName = ToUtf8(user);
  const Lookup lookup = userName.empty() ? Lookup::Missing : LookUpUser(nullptr, &userName, nullptr, &userId);
  if (lookup == Lookup::Failed) return ProcessState::Unknown;
  ProcessStatus status;
  bool procAvailable = false;
  if (ReadProcessStatus(id, &status, &procAvailable)) {
    // /proc also answers for thread ids, which are not processes.
    if (status.zombie || status.threadGroup != static_cast<long>(id)) return ProcessState::Gone;
    if (lookup == Lookup::Missing) return ProcessState::Gone;
    return status.effectiveUid == static_cast<long>(userId) ? ProcessState::Alive : ProcessState::Gone;
  }
  if (procAvailable) return ProcessState::Gone;
  // Without /proc only the existence can be asked, and only a refusal to
  // a user who is not root tells that the owner is another one.
  if (::kill(static_cast<pid_t>(id), 0) != 0 && errno == ESRCH) return ProcessState::Gone;
  return ProcessState::Unknown;
}

}  // namespace

bool ComputerName(std::u16string* out) {
  try {
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return false;
    *out = FromUtf8(name);
    return !out->empty();
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool UserName(std::u16string* out) {
  try {
    const uid_t uid = ::geteuid();
    std::string name;
    if (LookUpUser(&uid, nullptr, &name, nullptr) != Lookup::Found || name.empty()) return false;
    *out = FromUtf8(name);
    return !out->empty();
  } catch (const std::bad_alloc&) {
    return false;
  }
}

namespace {

// The id is asked once per process: the settings stores ask for it at every
// operation, and getpid is a system call. A child made by fork forgets the
// parent's id before it runs anything else.
std::atomic<unsigned long> g_processId{0};
void ForgetProcessId() { g_processId.store(0, std::memory_order_relaxed); }

}  // namespace

unsigned long CurrentProcessId() {
  static const bool watchingForks = ::pthread_atfork(nullptr, nullptr, ForgetProcessId) == 0;
  unsigned long id = g_processId.load(std::memory_order_relaxed);
  if (id == 0 || !watchingForks) {
    id = static_cast<unsigned long>(::getpid());
    if (watchingForks) g_processId.store(id, std::memory_order_relaxed);
  }
  return id;
}

void CallBeforeEachFork(void (*prepare)()) { ::pthread_atfork(prepare, nullptr, nullptr); }

ProcessState ProcessOfUser(unsigned long id, const std::u16string& user) {
  try {
    return StateOf(id, user);
  } catch (const std::bad_alloc&) {
    return ProcessState::Unknown;
  }
}

bool ExecutableSearchPath(std::vector<std::u16string>* directories) {
  try {
    const char* value = std::getenv("PATH");
    if (value == nullptr) return false;
    const std::string list(value);
    for (std::size_t start = 0;;) {
      const std::size_t end = std::min(list.find(':', start), list.size());
      directories->push_back(posix::LibraryPath(list.substr(start, end - start)));
      if (end == list.size()) return true;
      start = end + 1;
    }
  } catch (const std::bad_alloc&) {
    return false;
  }
}

}  // namespace qorc::platform
