// qor's command line: help, version, usage errors and the progress bar.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>

#include <chrono>

#include "tool/qor_runner.h"

namespace {

class CommandLineTest : public testing::Test {
 protected:
  TempDir dir;
};

int LineCount(const std::string& text) { return static_cast<int>(std::count(text.begin(), text.end(), '\n')); }

TEST_F(CommandLineTest, HelpAndVersionSucceed) {
  const QorResult help = RunQor(dir, {"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("Works with the files and services of the qorc library.\nUsage: ", 0), 0u) << help.out;
  for (const char* command : {"pack", "unpack", "cat", "check", "info", "shield", "unshield", "crc", "adler", "lock",
                              "reg", "storage", "serial", "rsa"}) {
    EXPECT_NE(help.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
  }
  const QorResult cat = RunQor(dir, {"cat", "--help"});
  EXPECT_EQ(cat.status, 0);
  EXPECT_NE(cat.out.find("--offset"), std::string::npos) << cat.out;
  EXPECT_NE(cat.out.find("--length"), std::string::npos) << cat.out;
  // The RSA commands say what kind of RSA they are.
  for (const char* command : {"keygen", "encrypt", "decrypt"}) {
    const QorResult rsa = RunQor(dir, {"rsa", command, "--help"});
    EXPECT_EQ(rsa.status, 0);
    EXPECT_NE(rsa.out.find("Warning: this is textbook RSA"), std::string::npos) << rsa.out;
  }
  const QorResult version = RunQor(dir, {"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out.rfind("qor 0.", 0), 0u) << version.out;
}

TEST_F(CommandLineTest, UsageErrorsGiveOneLineAndExitCodeTwo) {
  const std::vector<std::vector<std::string>> mistakes = {
      {},
      {"frobnicate"},
      {"pack"},
      {"pack", "only-one"},
      {"pack", "--bogus", "a", "b"},
      {"cat", "file", "--offset", "-5"},
      {"cat", "file", "--length", "many"},
      {"rsa"},
      {"rsa", "keygen", "4"},
      {"check"},
      {"lock", "status"},
      {"reg", "get", "Software"},
      {"serial", "read", "COM1", "--baud", "0"},
  };
  for (const auto& args : mistakes) {
    std::string line;
    for (const std::string& arg : args) line += arg + " ";
    SCOPED_TRACE(line);
    const QorResult result = RunQor(dir, args);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(LineCount(result.err), 1) << result.err;
    EXPECT_EQ(result.err.rfind("qor: ", 0), 0u) << result.err;
    EXPECT_NE(result.err.find("--help')"), std::string::npos) << result.err;
  }
  EXPECT_EQ(RunQor(dir, {"pack", "a"}).err, "qor: OUT is required (see 'qor pack --help')\n");
}

// Runs qor with standard error on a pseudo-terminal, standard input from a
// pipe fed in two parts a little more than a second apart, and returns what
// appeared on the terminal.
std::string TerminalErrorsOfSlowPack(const TempDir& dir, const std::vector<std::string>& extra) {
  int master = -1;
  int terminal = -1;
  if (openpty(&master, &terminal, nullptr, nullptr, nullptr) != 0) return "no pseudo-terminal";
  fcntl(master, F_SETFD, FD_CLOEXEC);
  fcntl(terminal, F_SETFD, FD_CLOEXEC);
  int pipeEnds[2];
  if (pipe2(pipeEnds, O_CLOEXEC) != 0) return "no pipe";
  std::vector<std::string> args{"pack", "-", dir.File("out.qz"), "--force"};
  args.insert(args.end(), extra.begin(), extra.end());
  const pid_t pid = StartQor(args, "/dev/fd/" + std::to_string(pipeEnds[0]), dir.File("stdout"),
                             "/dev/fd/" + std::to_string(terminal));
  close(pipeEnds[0]);
  close(terminal);
  const std::string part = SampleData(3 << 20, 8);
  bool written = write(pipeEnds[1], part.data(), part.size()) == static_cast<ssize_t>(part.size());
  usleep(1300 * 1000);
  written = written && write(pipeEnds[1], part.data(), part.size()) == static_cast<ssize_t>(part.size());
  close(pipeEnds[1]);
  std::string shown;
  char buffer[4096];
  pollfd ready{master, POLLIN, 0};
  while (poll(&ready, 1, 5000) > 0) {
    const ssize_t got = read(master, buffer, sizeof buffer);
    if (got <= 0) break;
    shown.append(buffer, static_cast<std::size_t>(got));
  }
  close(master);
  const int status = WaitForExit(pid);
  return written && status == 0 ? shown : "pack failed";
}

TEST_F(CommandLineTest, ProgressBarOnlyOnATerminalAndNotWhenQuiet) {
  const std::string shown = TerminalErrorsOfSlowPack(dir, {});
  EXPECT_NE(shown.find("\rpacking - "), std::string::npos) << shown;
  EXPECT_NE(shown.find(" MiB"), std::string::npos) << shown;
  // The bar is erased at the end.
  EXPECT_EQ(shown.substr(shown.size() - 4), "\r\033[K") << shown;
  EXPECT_EQ(TerminalErrorsOfSlowPack(dir, {"--quiet"}), "");
  // Not a terminal: nothing, however long the work.
  const std::string data = SampleData(1 << 20, 4);
  WriteWholeFile(dir.File("data"), data);
  const QorResult plain = RunQor(dir, {"pack", dir.File("data"), dir.File("data.qz")});
  EXPECT_EQ(plain.status, 0);
  EXPECT_EQ(plain.err, "");
}

}  // namespace
