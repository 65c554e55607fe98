// Serial lines on POSIX terminals. The line is driven through the kernel's
// termios2 interface, which also carries rates without a B-constant (14400,
// 56000, 128000, 256000, ...); glibc's <termios.h> cannot be included beside it.
//
// The descriptor stays non-blocking and every wait goes through poll with a
// limit, so a device that vanishes (an unplugged USB adapter, a closed
// pseudo-terminal master) or a line held by XOFF never blocks the caller for
// good: a hung-up terminal reads end-of-file or EIO and writes EIO.
#include <asm/termbits.h>
#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "platform/posix/native_path.h"
#include "platform/serial_line.h"

// An open port on POSIX: its descriptor.
struct C_SERIAL::LINE {
  int fd;
};

namespace qorc::platform {
namespace {

// A write or drain that makes no progress for this long fails: the device
// holds the line (XOFF) and does not let go, or has stopped working.
constexpr int kStallLimitMs = 10000;
// Pause between two looks at the output queue while it drains.
constexpr int kDrainPollMs = 2;
// Serial ports named "COMn" are numbered from 1 to this.
constexpr int kHighestComPort = 50;

long long MonotonicMilliseconds() {
  struct timespec now;
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

int RemainingMs(long long deadline) {
  const long long left = deadline - MonotonicMilliseconds();
  return left > 0 ? static_cast<int>(left) : 0;
}

// Waits for `events`; false when the time ran out first.
bool WaitFor(int fd, short events, int timeoutMs) {
  const long long deadline = MonotonicMilliseconds() + timeoutMs;
  for (;;) {
    struct pollfd entry = {fd, events, 0};
    const int ready = ::poll(&entry, 1, RemainingMs(deadline));
    if (ready > 0) return true;
    if (ready == 0) return false;
    if (errno != EINTR) return true;  // the next call reports the failure
  }
}

// The decimal number behind `prefix` in `name`, or -1.
long NumberAfter(const std::string& name, const char* prefix) {
  const std::size_t length = std::strlen(prefix);
  if (name.compare(0, length, prefix) != 0 || name.size() == length || name.size() > length + 6) return -1;
  long value = 0;
  for (std::size_t i = length; i < name.size(); ++i) {
    if (name[i] < '0' || name[i] > '9') return -1;
    value = value * 10 + (name[i] - '0');
  }
  return value;
}

// "COMn", in any case as on Windows, is /dev/ttyS<n-1>.
bool ComPortPath(const std::u16string& name, std::string* path) {
  if (name.size() < 4 || name.size() > 9) return false;
  for (int i = 0; i < 3; ++i) {
    if ((name[i] | 0x20) != u"com"[i]) return false;
  }
  long number = 0;
  for (std::size_t i = 3; i < name.size(); ++i) {
    if (name[i] < u'0' || name[i] > u'9') return false;
    number = number * 10 + (name[i] - u'0');
  }
  if (number < 1) return false;
  *path = "/dev/ttyS" + std::to_string(number - 1);
  return true;
}

bool DevicePath(const char16_t* name, std::string* path) {
  const std::u16string text(name);
  if (ComPortPath(text, path)) return true;
  if (text.empty() || (text[0] != u'\\' && text[0] != u'/')) return false;
  *path = posix::NativePath(name);
  return !path->empty();
}

// Opens the device held exclusively: an advisory lock that every program
// honouring the convention respects (root included), and the terminal's own
// exclusive mode for further opens by other users.
int OpenExclusive(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return -1;
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

bool IsTerminal(int fd) {
  struct termios2 settings;
  return ::ioctl(fd, TCGETS2, &settings) == 0;
}

// The B-constant of a standard rate, or BOTHER for any other.
tcflag_t RateCode(unsigned int baud) {
  static const struct {
    unsigned int baud;
    tcflag_t code;
  } kRates[] = {
      {50, B50},           {75, B75},           {110, B110},         {134, B134},         {150, B150},
      {200, B200},         {300, B300},         {600, B600},         {1200, B1200},       {1800, B1800},
      {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},     {38400, B38400},
      {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
      {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
      {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000}};
  for (const auto& rate : kRates) {
    if (rate.baud == baud) return rate.code;
  }
  return BOTHER;
}

// The parity bits for a parity code; false for a code the line does not know.
bool ParityFlags(int parity, tcflag_t* flags) {
  switch (parity) {
    case 0:
      *flags = 0;
      return true;
    case 1:
      *flags = PARENB | PARODD;
      return true;
    case 2:
      *flags = PARENB;
      return true;
    case 3:
      *flags = PARENB | CMSPAR | PARODD;
      return true;
    case 4:
      *flags = PARENB | CMSPAR;
      return true;
    default:
      return false;
  }
}

// One and a half stop bits exist only with 5 data bits, so with 8 data bits
// the code 1 is refused, as serial drivers refuse it.
bool StopFlags(int stop, tcflag_t* flags) {
  switch (stop) {
    case 0:
      *flags = 0;
      return true;
    case 2:
      *flags = CSTOPB;
      return true;
    default:
      return false;
  }
}

constexpr tcflag_t kLineBits = CBAUD | (CBAUD << IBSHIFT) | CSIZE | CSTOPB | PARENB | PARODD | CMSPAR | CRTSCTS;

void MakeRaw(struct termios2* t) {
  t->c_iflag &= ~static_cast<tcflag_t>(IGNBRK | BRKINT | PARMRK | ISTRIP | INLCR | IGNCR | ICRNL | IUCLC | IXANY |
                                       IMAXBEL | INPCK);
  t->c_iflag |= IXON | IXOFF;
  t->c_oflag &= ~static_cast<tcflag_t>(OPOST);
  t->c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHOE | ECHOK | ECHONL | ICANON | ISIG | IEXTEN);
  // Reads by other means than ReadSerialByte also give up after one second.
  t->c_cc[VMIN] = 0;
  t->c_cc[VTIME] = 10;
}

// Raises DTR and RTS. A line without modem-control lines (a pseudo-terminal)
// has nothing to raise.
bool RaiseDtrRts(int fd) {
  int bits = TIOCM_DTR | TIOCM_RTS;
  if (::ioctl(fd, TIOCMBIS, &bits) == 0) return true;
  return errno == ENOTTY || errno == EINVAL;
}

// The settings asked for that the line does not show.
unsigned UntakenSettings(const struct termios2& wanted, const struct termios2& got) {
  unsigned untaken = 0;
  const auto differ = [&](tcflag_t bits) { return (wanted.c_cflag & bits) != (got.c_cflag & bits); };
  if (differ(CBAUD | (CBAUD << IBSHIFT)) || ((wanted.c_cflag & CBAUD) == BOTHER && wanted.c_ospeed != got.c_ospeed)) {
    untaken |= kSerialRate;
  }
  if (differ(CSIZE)) untaken |= kSerialDataBits;
  if (differ(PARENB | PARODD | CMSPAR)) untaken |= kSerialParity;
  if (differ(CSTOPB)) untaken |= kSerialStopBits;
  if (differ(CRTSCTS) || (wanted.c_iflag & (IXON | IXOFF)) != (got.c_iflag & (IXON | IXOFF))) {
    untaken |= kSerialFlowControl;
  }
  return untaken;
}

// The device numbers of pseudo-terminals, fixed by the kernel: BSD masters
// and slaves, Unix98 masters and slaves.
constexpr unsigned kBsdPtyMasterMajor = 2;
constexpr unsigned kBsdPtySlaveMajor = 3;
constexpr unsigned kUnix98PtyMasterMajor = 128;
constexpr unsigned kUnix98PtySlaveMajor = 136;
constexpr unsigned kUnix98PtyMajorCount = 8;

bool IsPseudoTerminal(int fd) {
  struct stat status;
  if (::fstat(fd, &status) != 0 || !S_ISCHR(status.st_mode)) return false;
  const unsigned kind = major(status.st_rdev);
  return kind == kBsdPtyMasterMajor || kind == kBsdPtySlaveMajor ||
         (kind >= kUnix98PtyMasterMajor && kind < kUnix98PtyMasterMajor + kUnix98PtyMajorCount) ||
         (kind >= kUnix98PtySlaveMajor && kind < kUnix98PtySlaveMajor + kUnix98PtyMajorCount);
}

}  // namespace

SerialLine OpenSerialLine(const char16_t* name) {
  try {
    std::string path;
    if (!DevicePath(name, &path)) return kNoSerialLine;
    const int fd = OpenExclusive(path);
    if (fd < 0) return kNoSerialLine;
    // Not every device is a terminal; the settings will tell.
    (void)::ioctl(fd, TIOCEXCL);
    SerialLine line = new (std::nothrow) C_SERIAL::LINE{fd};
    if (line == kNoSerialLine) ::close(fd);
    return line;
  } catch (const std::bad_alloc&) {
    return kNoSerialLine;
  }
}

void CloseSerialLine(SerialLine line) {
  if (line == kNoSerialLine) return;
  // The exclusive mode would outlive this descriptor if another one were open.
  (void)::ioctl(line->fd, TIOCNXCL);
  ::close(line->fd);
  delete line;
}

SerialOutcome ConfigureSerialLine(SerialLine line, unsigned int baud, int parity, int stop) {
  SerialOutcome outcome;
  struct termios2 settings;
  if (::ioctl(line->fd, TCGETS2, &settings) != 0) return outcome;
  outcome.setup = SerialSetup::CannotSetState;
  tcflag_t parityFlags = 0;
  tcflag_t stopFlags = 0;
  if (baud == 0 || !ParityFlags(parity, &parityFlags) || !StopFlags(stop, &stopFlags)) return outcome;
  const tcflag_t rate = RateCode(baud);
  settings.c_cflag &= ~kLineBits;
  settings.c_cflag |= rate | CS8 | parityFlags | stopFlags | CREAD | CLOCAL;
  settings.c_ispeed = baud;
  settings.c_ospeed = baud;
  MakeRaw(&settings);
  if (::ioctl(line->fd, TCSETS2, &settings) != 0) return outcome;
  // The driver takes what it can and stays silent about the rest (a
  // pseudo-terminal, for one, carries no parity and drops it). What it took
  // stays: the next opening sets every field again.
  struct termios2 applied;
  if (::ioctl(line->fd, TCGETS2, &applied) != 0) {
    outcome.setup = SerialSetup::CannotGetState;
    return outcome;
  }
  if (!RaiseDtrRts(line->fd)) return outcome;
  outcome.setup = SerialSetup::Done;
  outcome.untaken = UntakenSettings(settings, applied);
  outcome.isVirtual = IsPseudoTerminal(line->fd);
  return outcome;
}

bool WriteSerialLine(SerialLine line, const char* bytes, int count) {
  int done = 0;
  while (done < count) {
    const ssize_t written = ::write(line->fd, bytes + done, static_cast<std::size_t>(count - done));
    if (written > 0) {
      done += static_cast<int>(written);
    } else if (written < 0 && errno == EINTR) {
      continue;
    } else if (written < 0 && errno != EAGAIN) {
      return false;
    } else if (!WaitFor(line->fd, POLLOUT, kStallLimitMs)) {
      return false;
    }
  }
  return true;
}

bool DrainSerialLine(SerialLine line) {
  // The queue is watched here, where a stall can be noticed; the kernel's own
  // wait then only covers the few bytes in the transmitter.
  int queued = 0;
  int lastQueued = -1;
  long long stalledSince = MonotonicMilliseconds();
  for (;;) {
    if (::ioctl(line->fd, TIOCOUTQ, &queued) != 0) return false;
    if (queued == 0) break;
    if (queued != lastQueued) {
      lastQueued = queued;
      stalledSince = MonotonicMilliseconds();
    } else if (MonotonicMilliseconds() - stalledSince > kStallLimitMs) {
      return false;
    }
    struct timespec pause = {0, kDrainPollMs * 1000000L};
    ::nanosleep(&pause, nullptr);
  }
  while (::ioctl(line->fd, TCSBRK, 1) != 0) {
    if (errno != EINTR) return false;
  }
  return true;
}

bool PurgeSerialInput(SerialLine line) { return ::ioctl(line->fd, TCFLSH, TCIFLUSH) == 0; }

SerialRead ReadSerialByte(SerialLine line, int timeoutMs, unsigned char* byte) {
  const long long deadline = MonotonicMilliseconds() + timeoutMs;
  for (;;) {
    const ssize_t got = ::read(line->fd, byte, 1);
    if (got == 1) return SerialRead::Byte;
    // A raw non-blocking terminal reads 0 bytes only once it has hung up.
    if (got == 0) return SerialRead::Failed;
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return SerialRead::Failed;
    const int left = RemainingMs(deadline);
    if (left == 0 || !WaitFor(line->fd, POLLIN, left)) return SerialRead::TimedOut;
  }
}

namespace {

struct PortEntry {
  int group;  // 0 COMn, 1 ttyACM, 2 ttyUSB, 3 serial/by-id
  long number;
  std::string name;
};

std::vector<std::string> DirectoryEntries(const std::string& directory) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(directory.c_str());
  if (dir == nullptr) return names;
  while (const struct dirent* entry = ::readdir(dir)) {
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  }
  ::closedir(dir);
  return names;
}

// A terminal device that no one holds now.
bool CanOpenNow(const std::string& path) {
  const int fd = OpenExclusive(path);
  if (fd < 0) return false;
  const bool terminal = IsTerminal(fd);
  ::close(fd);
  return terminal;
}

std::vector<PortEntry> DeviceEntries(const std::string& root) {
  std::vector<PortEntry> entries;
  for (const std::string& name : DirectoryEntries(root)) {
    long number = NumberAfter(name, "ttyS");
    if (number >= 0 && number < kHighestComPort) {
      entries.push_back({0, number, name});
    } else if ((number = NumberAfter(name, "ttyACM")) >= 0) {
      entries.push_back({1, number, name});
    } else if ((number = NumberAfter(name, "ttyUSB")) >= 0) {
      entries.push_back({2, number, name});
    }
  }
  for (const std::string& name : DirectoryEntries(root + "/serial/by-id")) {
    entries.push_back({3, 0, "serial/by-id/" + name});
  }
  return entries;
}

}  // namespace

std::vector<std::u16string> SerialPortsPresentIn(const char16_t* deviceDirectory) {
  std::vector<std::u16string> ports;
  try {
    std::string root = posix::NativePath(deviceDirectory);
    while (root.size() > 1 && root.back() == '/') root.pop_back();
    std::vector<PortEntry> entries = DeviceEntries(root);
    std::sort(entries.begin(), entries.end(), [](const PortEntry& a, const PortEntry& b) {
      if (a.group != b.group) return a.group < b.group;
      if (a.number != b.number) return a.number < b.number;
      return a.name < b.name;
    });
    for (const PortEntry& entry : entries) {
      const std::string path = root + "/" + entry.name;
      if (!CanOpenNow(path)) continue;
      if (entry.group == 0) {
        const std::string com = "COM" + std::to_string(entry.number + 1);
        ports.emplace_back(com.begin(), com.end());
      } else {
        ports.push_back(posix::LibraryPath(path));
      }
    }
  } catch (const std::bad_alloc&) {
    ports.clear();
  }
  return ports;
}

std::vector<std::u16string> SerialPortsPresent() { return SerialPortsPresentIn(u"\\dev"); }

}  // namespace qorc::platform
