// Runs the simulated serial instrument (qorc_instrument_sim, see its source
// for the steps) in a child process on a new pseudo-terminal.
#ifndef QORC_TESTS_SUPPORT_INSTRUMENT_H
#define QORC_TESTS_SUPPORT_INSTRUMENT_H

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

extern char** environ;

class Instrument {
 public:
  // Starts the instrument with its steps; port() is then the device to open.
  Instrument(const std::string& program, const std::vector<std::string>& steps) {
    int out[2];
    if (pipe(out) != 0) return;
    std::vector<std::string> args = {program};
    args.insert(args.end(), steps.begin(), steps.end());
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    if (posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    if (pid_ > 0) ReadPort(out[0]);
    close(out[0]);
  }
  ~Instrument() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }
  Instrument(const Instrument&) = delete;
  Instrument& operator=(const Instrument&) = delete;

  // The slave side of the pseudo-terminal, empty when the start failed.
  const std::string& port() const { return port_; }

  // Waits for the end of the run: the exit status (0 when every step went as
  // written), or -1 when the instrument did not end within `limitMs`.
  int Finish(int limitMs = 30000) {
    if (pid_ <= 0) return -1;
    int status = 0;
    for (int waited = 0; waited <= limitMs; waited += 10) {
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      }
      struct timespec pause = {0, 10000000L};
      nanosleep(&pause, nullptr);
    }
    return -1;
  }

 private:
  void ReadPort(int fd) {
    char c = 0;
    for (;;) {
      struct pollfd entry = {fd, POLLIN, 0};
      if (poll(&entry, 1, 10000) <= 0 || read(fd, &c, 1) != 1 || c == '\n') return;
      port_ += c;
    }
  }

  pid_t pid_ = -1;
  std::string port_;
};

#endif
