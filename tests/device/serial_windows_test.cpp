// Serial lines on Windows: the simulated instrument of the Linux suite runs on
// the Linux host (see WineInstrument) on a pseudo-terminal that the Wine
// prefix's dosdevices link names as a COM port, and the library reaches it as
// "COMn" through the system's communication functions.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "file/file_test_util.h"
#include "support/wine_host.h"

// <windows.h> names communication properties as macros that shadow the
// enumerators of C_SERIAL.
#undef PARITY_NONE
#undef PARITY_ODD
#undef PARITY_EVEN
#undef PARITY_MARK
#undef PARITY_SPACE
#undef BAUD_300
#undef BAUD_4800
#undef BAUD_9600
#undef BAUD_115200

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Steps = std::vector<std::string>;

std::wstring WidePath(const std::string& path) { return std::wstring(path.begin(), path.end()); }

// The instrument, started through Wine on the Linux host: a shell there runs
// it, links "dosdevices/comN" of the prefix to its pseudo-terminal once it
// has told the terminal's name, and removes the link when it ends.
class WineInstrument {
 public:
  explicit WineInstrument(const Steps& steps) {
    static int started = 0;
    number_ = 20 + static_cast<int>((GetCurrentProcessId() / 4 + started++) % 30);
    port_ = u"COM" + Units(std::to_string(number_));
    wchar_t prefix[1024];
    const DWORD length = GetEnvironmentVariableW(L"WINEPREFIX", prefix, 1024);
    if (length == 0 || length >= 1024) return;
    const std::string link = UnixPath(std::wstring(prefix, length)) + "/dosdevices/com" + std::to_string(number_);
    base_ = WidePath(dir_.File("instrument"));
    const std::string unixBase = UnixPath(base_);
    std::string command = ShellQuoted(QORC_INSTRUMENT_SIM_HOST);
    for (const std::string& step : steps) command += " " + ShellQuoted(step);
    const std::string portFile = ShellQuoted(unixBase + ".port");
    const std::string script = command + " >" + portFile + " & sim=$!; echo $sim >" + ShellQuoted(unixBase + ".pid") +
                               "; for i in $(seq 200); do [ -s " + portFile +
                               " ] && break; sleep 0.05; done; ln -sfn " + "\"$(head -n 1 " + portFile + ")\" " +
                               ShellQuoted(link) + "; touch " + ShellQuoted(unixBase + ".ready") +
                               "; wait $sim; status=$?; rm -f " + ShellQuoted(link) + "; exit $status";
    if (StartOnHost(script, base_)) ready_ = WaitForFile(base_ + L".ready", 15000);
  }
  ~WineInstrument() {
    if (finished_ || base_.empty()) return;
    std::string ignored;
    RunOnHost("kill -9 $(cat " + ShellQuoted(UnixPath(base_) + ".pid") + ")", base_ + L"-kill", &ignored, 10000);
    WaitForFile(base_ + L".rc", 10000);
  }
  WineInstrument(const WineInstrument&) = delete;
  WineInstrument& operator=(const WineInstrument&) = delete;

  bool ready() const { return ready_; }
  C_STRING port() const { return C_STRING(port_.c_str()); }

  // The instrument's exit status (0 when every step went as written); -1 when
  // it did not end within `limitMs`.
  int Finish(int limitMs = 30000) {
    if (!ready_ || !WaitForFile(base_ + L".rc", limitMs)) return -1;
    finished_ = true;
    const std::string status = ReadWhole(base_ + L".rc");
    if (status != "0\n") ADD_FAILURE() << "instrument: " << ReadWhole(base_ + L".out");
    return std::atoi(status.c_str());
  }

 private:
  static std::u16string Units(const std::string& text) { return std::u16string(text.begin(), text.end()); }

  TempDir dir_;
  int number_ = 0;
  std::u16string port_;
  std::wstring base_;
  bool ready_ = false;
  bool finished_ = false;
};

std::unique_ptr<WineInstrument> StartInstrument(const Steps& steps) {
  auto instrument = std::make_unique<WineInstrument>(steps);
  EXPECT_TRUE(instrument->ready()) << "the simulated instrument did not start";
  return instrument;
}

void ExpectSerialError(const C_ERROR& error, const C_STRING& port) {
  ASSERT_TRUE(C_ERROR::Is());
  EXPECT_TRUE(error.IsPending()) << C_STRING(*C_ERROR::GetPending()).GetANSI();
  EXPECT_TRUE(C_ERROR::GetPendingExtra() == port);
  C_ERROR::ClearPending();
}

long long MillisecondsSince(steady_clock::time_point start) {
  return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start).count();
}

void Pause(int ms) { std::this_thread::sleep_for(milliseconds(ms)); }

// The instrument runs on the Linux host, which only Wine gives.
#define SKIP_WITHOUT_LINUX_HOST()                                                           \
  if (!RunningUnderWine())                                                                  \
  GTEST_SKIP() << "the simulated instrument runs on the Linux host of Wine; here there is " \
                  "none"

TEST(SerialWindows, LineSettingsReachTheDeviceAndParityIsRefusedByAPseudoTerminal) {
  SKIP_WITHOUT_LINUX_HOST();
  const std::tuple<C_SERIAL::BAUDRATE, C_SERIAL::PARITY, C_SERIAL::STOP> cases[] = {
      {C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1},
      {C_SERIAL::BAUD_115200, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_2},
      {C_SERIAL::BAUD_300, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1},
      {C_SERIAL::BAUD_4800, C_SERIAL::PARITY_ODD, C_SERIAL::STOP_2},
      {C_SERIAL::BAUD_4800, C_SERIAL::PARITY_EVEN, C_SERIAL::STOP_1}};
  for (const auto& [baud, parity, stop] : cases) {
    SCOPED_TRACE(testing::Message() << baud << " parity " << parity);
    const bool opens = parity == C_SERIAL::PARITY_NONE;
    const std::string line = "line=" + std::to_string(baud) + ",N," + (stop == C_SERIAL::STOP_2 ? "2" : "1");
    auto instrument = StartInstrument(opens ? Steps{"expect=19", line, "closed"} : Steps{"closed"});
    {
      C_SERIAL serial(instrument->port(), baud, parity, stop);
      EXPECT_EQ(serial.IsOpen(), opens);
      if (!opens) ExpectSerialError(CerrSerialCannotSetState, instrument->port());
      EXPECT_FALSE(C_ERROR::Is());
      if (opens) Pause(300);  // the instrument looks at the line while it is open
    }
    EXPECT_EQ(instrument->Finish(), 0);
  }
}

TEST(SerialWindows, RefusedSettingsAndUnopenablePortsLeaveThePortClosed) {
  SKIP_WITHOUT_LINUX_HOST();
  // Wine lets the port be opened twice (see below): the second opening sends
  // its "19" too.
  auto instrument =
      StartInstrument(RunningUnderWine() ? Steps{"expect=19", "expect=19", "closed"} : Steps{"expect=19", "closed"});
  const C_STRING port = instrument->port();
  const struct {
    C_SERIAL::BAUDRATE baud;
    int parity;
    int stop;
  } refused[] = {{C_SERIAL::BAUD_9600, 5, 0}, {C_SERIAL::BAUD_9600, -1, 0}, {C_SERIAL::BAUD_9600, 0, 3}};
  for (const auto& settings : refused) {
    C_SERIAL serial(port, settings.baud, static_cast<C_SERIAL::PARITY>(settings.parity),
                    static_cast<C_SERIAL::STOP>(settings.stop));
    EXPECT_FALSE(serial.IsOpen());
    ExpectSerialError(CerrSerialCannotSetState, port);
    C_STRING line;
    serial.Read(&line);
    serial.Write(u"x");
    EXPECT_FALSE(C_ERROR::Is());
  }
  TempDir dir;
  const std::string file = dir.File("not-a-port");
  WriteBytes(file, "text");
  const std::pair<C_STRING, const C_ERROR*> unopenable[] = {{C_STRING(u"COM0"), &CerrSerialCannotOpen},
                                                            {C_STRING(u"COM49"), &CerrSerialCannotOpen},
                                                            {C_STRING(u"LPT9"), &CerrSerialCannotOpen},
                                                            {LibraryPath(file), &CerrSerialCannotGetState}};
  for (const auto& [name, error] : unopenable) {
    C_SERIAL serial(name, C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
    EXPECT_FALSE(serial.IsOpen());
    ExpectSerialError(*error, name);
  }
  EXPECT_EQ(ReadBytes(file), "text");

  C_SERIAL serial(port, C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  EXPECT_TRUE(serial.IsOpen());
  EXPECT_FALSE(C_ERROR::Is());
  int count = 0;
  C_STRING* names = nullptr;
  C_SERIAL::GetSerialPorts(&count, &names);
  std::vector<std::u16string> listed;
  for (int i = 0; i < count; ++i) listed.push_back(Text(names[i]));
  delete[] names;
  // Windows holds a port for the one program that opened it; Wine's ports
  // open again from anywhere.
  C_SERIAL second(port, C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  if (RunningUnderWine()) {
    EXPECT_TRUE(second.IsOpen()) << "Wine now holds COM ports exclusively: this test can check it";
    EXPECT_NE(std::find(listed.begin(), listed.end(), Text(port)), listed.end());
  } else {
    EXPECT_FALSE(second.IsOpen());
    ExpectSerialError(CerrSerialCannotOpen, port);
    EXPECT_EQ(std::find(listed.begin(), listed.end(), Text(port)), listed.end());
  }
  C_ERROR::ClearPending();
  second = C_SERIAL();
  serial = C_SERIAL();
  EXPECT_EQ(instrument->Finish(), 0);
}

TEST(SerialWindows, ReadCollectsLinesByTheRules) {
  SKIP_WITHOUT_LINUX_HOST();
  auto instrument = StartInstrument({"expect=19", "expect=17", "send=1\\r\\nA1\\r\\nA1\\r\\nA1\\r\\n", "expect=19",
                                     "expect=17", "send=tail\\n\\r\\n\\n\\r\\nB\\r2\\nC3\\n", "expect=19", "expect=17",
                                     "send=x\\n\\x80\\xA9\\xE9\\xFF\\x01\\r\\n", "expect=19", "expect=17", "send=\\n",
                                     "repeat=4100:L", "send=\\r\\n", "expect=19", "expect=17", "send=\\nnext\\r\\n",
                                     "expect=19", "closed"});
  C_SERIAL serial(instrument->port(), C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  ASSERT_TRUE(serial.IsOpen());
  C_STRING line;
  const std::u16string expected[] = {u"A1", u"B2", u"\u0080\u00A9\u00E9\u00FF\u0001",
                                     std::u16string(C_SERIAL::LINE_LIMIT, u'L'), u"next"};
  for (const std::u16string& text : expected) {
    serial.Read(&line);
    EXPECT_FALSE(C_ERROR::Is());
    EXPECT_EQ(Text(line), text);
  }
  serial = C_SERIAL();
  EXPECT_EQ(instrument->Finish(), 0);
}

TEST(SerialWindows, WriteSendsTheEightBitTextAsItIs) {
  SKIP_WITHOUT_LINUX_HOST();
  const std::string kept(1023, 'w');
  auto instrument = StartInstrument(
      {"expect=19", "expect=ABC\\r\\n\\xE9\\xB1\\xFF?x", "expect=" + kept, "quiet=300", "expect=end", "closed"});
  C_SERIAL serial(instrument->port(), C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  serial.Write(u"ABC\r\n");
  serial.Write(u"\u00E9\u00B1\u00FF\u20ACx");
  serial.Write(C_STRING::VOID);
  serial.Write(C_STRING(std::u16string(2000, u'w').c_str()));
  EXPECT_FALSE(C_ERROR::Is());
  Pause(500);
  serial.Write(u"end");
  serial = C_SERIAL();
  EXPECT_EQ(instrument->Finish(), 0);
}

TEST(SerialWindows, InstrumentHoldsTheLineWithXoff) {
  SKIP_WITHOUT_LINUX_HOST();
  auto instrument = StartInstrument({"expect=19", "send=\\x13", "quiet=1000", "send=\\x11", "expect=held", "expect=17",
                                     "send=\\n\\x13\\x11ok\\r\\n", "expect=19", "closed"});
  C_SERIAL serial(instrument->port(), C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  ASSERT_TRUE(serial.IsOpen());
  Pause(200);
  const auto start = steady_clock::now();
  serial.Write(u"held");
  EXPECT_FALSE(C_ERROR::Is());
  C_STRING line;
  serial.Read(&line);
  EXPECT_EQ(Text(line), u"ok");
  // The write returns at once (Wine's driver queues it) or after the XON;
  // either way the bytes left only after it, which the instrument checks.
  EXPECT_LE(MillisecondsSince(start), 5000);
  serial = C_SERIAL();
  EXPECT_EQ(instrument->Finish(), 0);
}

TEST(SerialWindows, SilentInstrumentTimesOutAfterOneSecondAndAVanishedPortGivesErrors) {
  SKIP_WITHOUT_LINUX_HOST();
  auto instrument = StartInstrument({"expect=19", "expect=17", "quiet=900", "expect=17", "send=\\npartial", "quiet=900",
                                     "expect=17", "send=\\npart", "sleep=300", "hangup"});
  const C_STRING port = instrument->port();
  C_SERIAL serial(port, C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  ASSERT_TRUE(serial.IsOpen());
  for (int i = 0; i < 3; ++i) {
    C_STRING line(u"stale");
    const auto start = steady_clock::now();
    serial.Read(&line);
    const long long elapsed = MillisecondsSince(start);
    EXPECT_TRUE(line.IsVoid());
    if (i < 2) {
      EXPECT_FALSE(C_ERROR::Is());
      EXPECT_GE(elapsed, 950);
      EXPECT_LE(elapsed, 3000);
    } else if (RunningUnderWine()) {
      // Wine difference: a read from a pseudo-terminal whose other side has
      // closed waits out the time-out and returns nothing, where the port
      // of an unplugged adapter fails at once on Windows.
      EXPECT_FALSE(C_ERROR::Is());
    } else {
      EXPECT_LT(elapsed, 950);
      ExpectSerialError(CerrSerialCannotRead, port);
    }
  }
  EXPECT_EQ(instrument->Finish(), 0);
  // Writing to the vanished port fails.
  serial.Write(u"anyone?");
  ExpectSerialError(CerrSerialCannotWrite, port);
}

}  // namespace
