// qor's command line: help, version, usage errors and the progress bar.
#ifndef _WIN32
#include <poll.h>
#include <pty.h>
#endif

#include <sstream>

#include "tool/qor_runner.h"

namespace {

using CommandLineTest = QorTest;

// The words of a command line.
std::vector<std::string> Words(const std::string& line) {
  std::istringstream stream(line);
  return {std::istream_iterator<std::string>(stream), std::istream_iterator<std::string>()};
}

TEST_F(CommandLineTest, HelpAndVersionSucceed) {
  const std::string help = Output({"--help"});
  EXPECT_EQ(help.rfind("Works with the files and services of the qorc library.\nUsage: ", 0), 0u) << help;
  for (const char* command : {"pack", "unpack", "cat", "check", "info", "shield", "unshield", "crc", "adler", "lock",
                              "reg", "storage", "serial", "rsa"}) {
    EXPECT_NE(help.find(std::string("\n  ") + command + " "), std::string::npos) << command;
  }
  const std::string cat = Output({"cat", "--help"});
  EXPECT_NE(cat.find("--offset"), std::string::npos) << cat;
  EXPECT_NE(cat.find("--length"), std::string::npos) << cat;
  for (const char* command : {"keygen", "encrypt", "decrypt"}) {
    EXPECT_NE(Output({"rsa", command, "--help"}).find("Warning: this is textbook RSA"), std::string::npos) << command;
  }
  EXPECT_EQ(Output({"--version"}).rfind("qor 0.", 0), 0u);
}

TEST_F(CommandLineTest, UsageErrorsGiveOneLineAndExitCodeTwo) {
  for (const char* line :
       {"", "frobnicate", "pack", "pack only-one", "pack --bogus a b", "cat file --offset -5", "cat file --length many",
        "rsa", "rsa keygen 4", "check", "lock status", "reg get Software", "serial read COM1 --baud 0"}) {
    SCOPED_TRACE(line);
    const QorResult result = Run(Words(line));
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ(result.err.rfind("qor: ", 0), 0u) << result.err;
    EXPECT_NE(result.err.find("--help')"), std::string::npos) << result.err;
  }
  EXPECT_EQ(Run({"pack", "a"}).err, "qor: OUT is required (see 'qor pack --help')\n");
}

#ifdef _WIN32
TEST_F(CommandLineTest, ProgressBarOnlyOnATerminalAndNotWhenQuiet) {
  GTEST_SKIP() << "Standard error on a terminal needs a pseudo-terminal, which is POSIX's";
}
#else
// Runs a pack with standard error on a pseudo-terminal and standard input a
// pipe fed in two parts a little over a second apart; returns what the
// terminal showed.
std::string TerminalErrorsOfSlowPack(const TempDir& dir, const std::vector<std::string>& extra) {
  int master = -1;
  int terminal = -1;
  int pipeEnds[2];
  if (openpty(&master, &terminal, nullptr, nullptr, nullptr) != 0 || pipe2(pipeEnds, O_CLOEXEC) != 0) return "none";
  fcntl(master, F_SETFD, FD_CLOEXEC);
  fcntl(terminal, F_SETFD, FD_CLOEXEC);
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
  for (ssize_t got = 0; poll(&ready, 1, 5000) > 0 && (got = read(master, buffer, sizeof buffer)) > 0;) {
    shown.append(buffer, static_cast<std::size_t>(got));
  }
  close(master);
  return written && WaitForExit(pid) == 0 ? shown : "pack failed";
}

TEST_F(CommandLineTest, ProgressBarOnlyOnATerminalAndNotWhenQuiet) {
  const std::string shown = TerminalErrorsOfSlowPack(dir, {});
  EXPECT_NE(shown.find("\rpacking - "), std::string::npos) << shown;
  EXPECT_NE(shown.find(" MiB"), std::string::npos) << shown;
  EXPECT_EQ(shown.substr(shown.size() - 4), "\r\033[K") << shown;  // erased at the end
  EXPECT_EQ(TerminalErrorsOfSlowPack(dir, {"--quiet"}), "");
  // Not a terminal: nothing, however long the work.
  const QorResult plain = Run({"pack", Write("data", SampleData(1 << 20, 4)), dir.File("data.qz")});
  EXPECT_EQ(Outcome(plain), kSuccess);
}
#endif

}  // namespace
