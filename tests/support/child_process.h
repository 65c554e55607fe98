// Runs a piece of a test in a child process, for cases that must exhaust
// memory for real or could bring the process down.
#ifndef QORC_TESTS_SUPPORT_CHILD_PROCESS_H
#define QORC_TESTS_SUPPORT_CHILD_PROCESS_H

// POSIX only: a forked child shares the test's state at the moment of the
// call, which Windows has no way to give (tests that need it say so).
#ifndef _WIN32
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

// Bytes of address space the calling process uses now.
inline rlim_t AddressSpaceInUse() {
  unsigned long pages = 0;
  if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(statm, "%lu", &pages) != 1) pages = 0;
    std::fclose(statm);
  }
  return static_cast<rlim_t>(pages) * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

// Runs `body` in a forked child whose address space is limited to `limitBytes`
// more than it uses now (0: no limit). Returns the child's exit status, or -1
// when it did not exit normally.
inline int RunInChild(const std::function<int()>& body, rlim_t limitBytes = 0) {
  const pid_t pid = fork();
  if (pid == 0) {
    if (limitBytes != 0) {
      const rlim_t total = AddressSpaceInUse() + limitBytes;
      struct rlimit limit = {total, total};
      setrlimit(RLIMIT_AS, &limit);
    }
    int code = 99;
    try {
      code = body();
    } catch (...) {
    }
    _exit(code);
  }
  int status = 0;
  if (pid < 0 || waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

#endif  // _WIN32

#endif
