// qor's command line: help, version, usage errors and the progress bar.
#include <poll.h>
#include <pty.h>

#include "tool/qor_runner.h"

namespace {

using CommandLineTest = QorTest;

TEST_F(CommandLineTest, HelpAndVersionSucceed) {
  const QorResult help = Run({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("Works with the files and services of the qorc library.\nUsage: ", 0), 0u) << help.out;
  for (const char* command : {"pack", "unpack", "cat", "check", "info", "shield", "unshield", "crc", "adler", "lock",
                              "reg", "storage", "serial", "rsa"}) {
    EXPECT_NE(help.out.find(std::string("\n  ") + command + " "), std::string::npos) << command;
  }
  // Each row: a command's help, and a text it must contain.
  const std::vector<std::pair<std::vector<std::string>, std::string>> helps = {
      {{"cat", "--help"}, "--offset"},
      {{"cat", "--help"}, "--length"},
      {{"rsa", "keygen", "--help"}, "Warning: this is textbook RSA"},
      {{"rsa", "encrypt", "--help"}, "Warning: this is textbook RSA"},
      {{"rsa", "decrypt", "--help"}, "Warning: this is textbook RSA"},
      {{"--version"}, "qor 0."}};
  for (const auto& [args, text] : helps) {
    const QorResult result = Run(args);
    EXPECT_EQ(result.status, 0) << args[0];
    EXPECT_NE(result.out.find(text), std::string::npos) << result.out;
  }
  EXPECT_EQ(Run({"--version"}).out.rfind("qor 0.", 0), 0u);
}

TEST_F(CommandLineTest, UsageErrorsGiveOneLineAndExitCodeTwo) {
  const std::vector<std::vector<std::string>> mistakes = {{},
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
                                                          {"serial", "read", "COM1", "--baud", "0"}};
  for (const auto& args : mistakes) {
    SCOPED_TRACE(testing::PrintToString(args));
    const QorResult result = Run(args);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_EQ(result.err.rfind("qor: ", 0), 0u) << result.err;
    EXPECT_NE(result.err.find("--help')"), std::string::npos) << result.err;
  }
  EXPECT_EQ(Run({"pack", "a"}).err, "qor: OUT is required (see 'qor pack --help')\n");
}

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

}  // namespace
