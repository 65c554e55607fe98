// qorc_instrument_sim: a line instrument simulated on a pseudo-terminal, for
// the tests of C_SERIAL and of programs built on it.
//
// Usage:
//   qorc_instrument_sim [--fd N] [--timeout MS] STEP...
//
// Without --fd the program opens a new pseudo-terminal, writes the path of its
// slave side (the port to open) as the first line of its standard output, and
// plays the instrument on the master side. With --fd N it plays on the master
// descriptor N that it inherited instead, and writes nothing. --timeout sets
// how long the steps wait for bytes (default 10000 ms).
//
// Steps run in order; TEXT takes the escapes \r \n \t \\ and \xHH.
//   expect=TEXT    the next bytes received are exactly TEXT
//   send=TEXT      sends TEXT
//   repeat=N:TEXT  sends TEXT N times in one go
//   sleep=MS       waits MS milliseconds without reading
//   quiet=MS       nothing arrives for MS milliseconds
//   serve=N        serves N reads as a streaming instrument (0: until the
//                  other side closes): a text up to a line feed is a command
//                  (carriage returns dropped) that sets the reading to "="
//                  followed by the command; on "17" the instrument ends the
//                  line under way ("\r\n") and sends its reading and "\r\n";
//                  "19" pauses it. A command may not begin with "17" or "19".
//   hangup         closes the master: the port vanishes, as an unplugged
//                  adapter does
//   closed         the other side closes the port with nothing more sent
//   line=R,P,S     the port is set as an instrument at R bits per second,
//                  parity P (N none, O odd, E even, M mark, S space) and S
//                  stop bits (1 or 2) needs it: 8 data bits, raw bytes both
//                  ways, XON/XOFF flow control both ways, no RTS/CTS (of the
//                  parity, only its kind shows on a pseudo-terminal)
//
// Every byte received is checked by the step that reads it: a byte no step
// expects fails the run. Exit status: 0 every step done, 1 bad usage, 2 an
// unexpected byte, 3 a step waited too long, 4 a failure of the terminal.
// What went wrong is told on standard error.
#include <asm/termbits.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

enum Exit { kDone = 0, kUsage = 1, kUnexpected = 2, kTooLong = 3, kFailure = 4 };

int g_master = -1;
int g_timeoutMs = 10000;
bool g_seenOpen = false;
std::string g_step;

[[noreturn]] void Fail(Exit code, const std::string& message) {
  std::fprintf(stderr, "instrument: %s: %s\n", g_step.c_str(), message.c_str());
  std::exit(code);
}

[[noreturn]] void FailErrno(const char* call) { Fail(kFailure, std::string(call) + ": " + std::strerror(errno)); }

long long NowMs() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void SleepMs(int ms) {
  struct timespec rest = {ms / 1000, (ms % 1000) * 1000000L};
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

std::string Printable(unsigned char byte) {
  char text[16];
  std::snprintf(text, sizeof text, byte >= 0x20 && byte < 0x7F ? "'%c'" : "0x%02X", byte);
  return text;
}

std::string Unescape(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = i + 1 < text.size() && text[i] == '\\' ? text[++i] : '\0';
    if (c == '\0') {
      out += text[i];
    } else if (c == 'x' && i + 2 < text.size() && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
               std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
      out += static_cast<char>(std::strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
      i += 2;
    } else {
      out += c == 'r' ? '\r' : c == 'n' ? '\n' : c == 't' ? '\t' : c;
    }
  }
  return out;
}

int Number(const std::string& text) {
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || value < 0 || value > 100000000) Fail(kUsage, "not a number: " + text);
  return static_cast<int>(value);
}

enum class Got { Byte, Nothing, Closed };

// One byte within `ms` milliseconds. A master without an open slave reports a
// hang-up: before the port is first opened that only means "not yet".
Got ReadByte(int ms, bool seenOpen, unsigned char* byte) {
  const long long deadline = NowMs() + ms;
  for (;;) {
    const long long left = deadline - NowMs();
    struct pollfd entry = {g_master, POLLIN, 0};
    const int ready = poll(&entry, 1, left > 0 ? static_cast<int>(left) : 0);
    if (ready < 0 && errno != EINTR) FailErrno("poll");
    if (ready > 0 && (entry.revents & POLLIN)) {
      const ssize_t got = read(g_master, byte, 1);
      if (got == 1) return Got::Byte;
      if (got < 0 && errno != EIO && errno != EAGAIN && errno != EINTR) FailErrno("read");
      if (got < 0 && errno == EIO && seenOpen) return Got::Closed;
    } else if (ready > 0 && (entry.revents & POLLHUP)) {
      if (seenOpen) return Got::Closed;
      SleepMs(5);
    }
    if (NowMs() >= deadline) return Got::Nothing;
  }
}

unsigned char NextByte(const std::string& waitingFor) {
  unsigned char byte = 0;
  const Got got = ReadByte(g_timeoutMs, g_seenOpen, &byte);
  if (got == Got::Nothing) Fail(kTooLong, "nothing arrived while waiting for " + waitingFor);
  if (got == Got::Closed) Fail(kUnexpected, "the port was closed while waiting for " + waitingFor);
  g_seenOpen = true;
  return byte;
}

void Send(const std::string& bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t written = write(g_master, bytes.data() + done, bytes.size() - done);
    if (written > 0) {
      done += static_cast<std::size_t>(written);
    } else if (written < 0 && (errno == EAGAIN || errno == EINTR || errno == EIO)) {
      // EIO: the slave is not open yet or just reopening.
      struct pollfd entry = {g_master, POLLOUT, 0};
      poll(&entry, 1, 10);
    } else {
      FailErrno("write");
    }
  }
}

void Expect(const std::string& text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const unsigned char byte = NextByte("the expected text"), wanted = static_cast<unsigned char>(text[i]);
    if (byte != wanted) {
      Fail(kUnexpected, "byte " + std::to_string(i) + " is " + Printable(byte) + ", expected " + Printable(wanted));
    }
  }
}

// Nothing may arrive for `ms`; `closing` waits for the other side to close instead.
void Silence(int ms, bool closing) {
  unsigned char byte = 0;
  const Got got = ReadByte(ms, true, &byte);
  if (got == Got::Byte) {
    Fail(kUnexpected, "received " + Printable(byte) + (closing ? " where the port should close" : " in a quiet time"));
  }
  if (closing && got == Got::Nothing) Fail(kTooLong, "the port stayed open");
}

void Serve(int requests) {
  std::string reading = "=", command;
  for (int served = 0; requests == 0 || served < requests;) {
    unsigned char byte = 0;
    const Got got = ReadByte(g_timeoutMs, g_seenOpen, &byte);
    if (got == Got::Closed && requests == 0) return;
    if (got != Got::Byte) Fail(got == Got::Nothing ? kTooLong : kUnexpected, "no request arrived");
    g_seenOpen = true;
    if (command.empty() && byte == '1') {
      const unsigned char second = NextByte("the second handshake digit");
      if (second == '7') {
        Send("\r\n" + reading + "\r\n");
      } else if (second == '9') {
        ++served;
      } else {
        command = std::string("1") + static_cast<char>(second);
      }
    } else if (byte == '\n') {
      reading = "=" + command;
      command.clear();
    } else if (byte != '\r') {
      command += static_cast<char>(byte);
    }
  }
}

// The slave's settings, as its master sees them.
void CheckLine(const std::string& value) {
  unsigned int rate = 0;
  char parity = 0;
  int stop = 0;
  if (std::sscanf(value.c_str(), "%u,%c,%d", &rate, &parity, &stop) != 3) Fail(kUsage, "line needs R,P,S");
  struct termios2 t;
  if (ioctl(g_master, TCGETS2, &t) != 0) FailErrno("TCGETS2");
  const char* const letters = "NOEMS";
  const tcflag_t parities[] = {0, PARENB | PARODD, PARENB, PARENB | PARODD | CMSPAR, PARENB | CMSPAR};
  const char* const letter = parity != '\0' ? std::strchr(letters, parity) : nullptr;
  const tcflag_t wantedParity = letter != nullptr ? parities[letter - letters] : ~tcflag_t(0);
  std::string wrong;
  if (t.c_ospeed != rate || t.c_ispeed != rate) wrong += " rate " + std::to_string(t.c_ospeed);
  if ((t.c_cflag & CSIZE) != CS8) wrong += " data bits";
  // No parity bit travels on a pseudo-terminal: its driver drops the
  // parity-enable flag and keeps the kind of parity, which is what can be
  // checked here (even parity shows as none).
  if ((t.c_cflag & (PARENB | PARODD | CMSPAR)) != (wantedParity & ~static_cast<tcflag_t>(PARENB))) wrong += " parity";
  if (((t.c_cflag & CSTOPB) != 0) != (stop == 2)) wrong += " stop bits";
  if ((t.c_cflag & CRTSCTS) != 0) wrong += " RTS/CTS";
  if ((t.c_iflag & (IXON | IXOFF)) != (IXON | IXOFF)) wrong += " XON/XOFF";
  if ((t.c_iflag & (ICRNL | INLCR | IGNCR | ISTRIP)) != 0 || (t.c_oflag & OPOST) != 0 ||
      (t.c_lflag & (ICANON | ECHO | ISIG | IEXTEN)) != 0) {
    wrong += " not raw";
  }
  if (!wrong.empty()) Fail(kUnexpected, "wrong settings:" + wrong);
}

void RunStep(const std::string& step) {
  g_step = step;
  const std::size_t equals = step.find('=');
  const std::string name = step.substr(0, equals);
  const std::string value = equals == std::string::npos ? std::string() : step.substr(equals + 1);
  const std::size_t colon = value.find(':');
  if (name == "expect") {
    Expect(Unescape(value));
  } else if (name == "send") {
    Send(Unescape(value));
  } else if (name == "repeat") {
    if (colon == std::string::npos) Fail(kUsage, "repeat needs N:TEXT");
    std::string all, text = Unescape(value.substr(colon + 1));
    for (int times = Number(value.substr(0, colon)); times > 0; --times) all += text;
    Send(all);
  } else if (name == "sleep") {
    SleepMs(Number(value));
  } else if (name == "quiet") {
    Silence(Number(value), false);
  } else if (name == "serve") {
    Serve(Number(value));
  } else if (name == "hangup") {
    close(g_master);
    g_master = -1;
  } else if (name == "line") {
    CheckLine(value);
  } else if (name == "closed") {
    Silence(g_timeoutMs, true);
  } else {
    Fail(kUsage, "unknown step");
  }
}

int OpenPseudoTerminal() {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) Fail(kFailure, "cannot open a pseudo-terminal");
  std::printf("%s\n", ptsname(master));
  std::fflush(stdout);
  return master;
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGPIPE, SIG_IGN);
  g_step = "arguments";
  int first = 1, fd = -1;
  for (; first + 1 < argc && argv[first][0] == '-' && argv[first][1] == '-'; first += 2) {
    const std::string option = argv[first];
    if (option != "--fd" && option != "--timeout") Fail(kUsage, "unknown option " + option);
    (option == "--fd" ? fd : g_timeoutMs) = Number(argv[first + 1]);
  }
  g_master = fd >= 0 ? fd : OpenPseudoTerminal();
  const int flags = fcntl(g_master, F_GETFL);
  if (flags < 0 || fcntl(g_master, F_SETFL, flags | O_NONBLOCK) != 0) Fail(kFailure, "not a descriptor");
  for (int i = first; i < argc; ++i) {
    if (g_master < 0) {
      g_step = argv[i];
      Fail(kUsage, "no step can follow hangup");
    }
    RunStep(argv[i]);
  }
  return kDone;
}
