#include <fcntl.h>
#include <gtest/gtest.h>
#include <qorc/qorc.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "device/serial_rules.h"
#include "platform/serial_line.h"
#include "support/instrument.h"
#include "support/temp_dir.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Steps = std::vector<std::string>;

std::unique_ptr<Instrument> StartInstrument(const Steps& steps) {
  auto instrument = std::make_unique<Instrument>(QORC_INSTRUMENT_SIM, steps);
  EXPECT_FALSE(instrument->port().empty()) << "the simulated instrument did not start";
  return instrument;
}

C_STRING PortName(const std::string& path) { return C_STRING(path.c_str()); }

// The pending error is `error`, with the port name as its text.
void ExpectSerialError(const C_ERROR& error, const C_STRING& port) {
  ASSERT_TRUE(C_ERROR::Is());
  EXPECT_TRUE(error.IsPending()) << C_STRING(*C_ERROR::GetPending()).GetANSI();
  EXPECT_TRUE(C_ERROR::GetPendingExtra() == port);
  C_ERROR::ClearPending();
}

long long MillisecondsSince(steady_clock::time_point start) {
  return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start).count();
}

TEST(Serial, DefaultObjectCopiesAndAssignment) {
  C_SERIAL closed;
  EXPECT_TRUE(closed.GetPort() == u"COM1");
  EXPECT_EQ(closed.GetBaudRate(), C_SERIAL::BAUD_9600);
  EXPECT_EQ(closed.GetParity(), C_SERIAL::PARITY_NONE);
  EXPECT_EQ(closed.GetStop(), C_SERIAL::STOP_1);
  EXPECT_FALSE(closed.IsOpen());
  C_STRING line(u"old");
  closed.Write(u"ignored");
  closed.Read(&line);
  EXPECT_TRUE(line.IsVoid());
  EXPECT_FALSE(C_ERROR::Is());

  // The instrument sees exactly one opening, then the port closes: neither the
  // copy nor the assignment sends a byte. It keeps the line a while after the
  // close, so that the port can be seen to open again.
  auto instrument = StartInstrument({"expect=19", "line=19200,N,2", "closed", "sleep=2000"});
  const C_STRING port = PortName(instrument->port());
  {
    C_SERIAL open(port, C_SERIAL::BAUD_19200, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_2);
    ASSERT_FALSE(C_ERROR::Is());
    ASSERT_TRUE(open.IsOpen());
    C_SERIAL copy(open);
    EXPECT_FALSE(copy.IsOpen());
    EXPECT_TRUE(copy.GetPort() == port);
    EXPECT_EQ(copy.GetBaudRate(), C_SERIAL::BAUD_19200);
    EXPECT_EQ(copy.GetParity(), C_SERIAL::PARITY_NONE);
    EXPECT_EQ(copy.GetStop(), C_SERIAL::STOP_2);
    copy.Write(u"not sent");
    EXPECT_FALSE(C_ERROR::Is());

    // Assignment releases the port, which then opens again at once.
    open = closed;
    EXPECT_FALSE(open.IsOpen());
    EXPECT_TRUE(open.GetPort() == u"COM1");
    const qorc::platform::SerialLine held = qorc::platform::OpenSerialLine(port.GetWCHAR());
    EXPECT_NE(held, qorc::platform::kNoSerialLine);
    qorc::platform::CloseSerialLine(held);
  }
  EXPECT_EQ(instrument->Finish(), 0);
}

// Rate, parity and stop bits as given, everything else as an instrument line
// needs, read back on a second descriptor. A speed of 0: a rate without a
// B-constant, checked by the instrument alone. A pseudo-terminal carries bytes,
// not framed characters: its driver drops the parity enable, so the library
// refuses to open with parity there; the odd and stick (mark/space) selections
// it asked for stay visible on the line.
TEST(Serial, LineReadsBackAsSetAndAPseudoTerminalTakesAnyParity) {
  const std::tuple<C_SERIAL::BAUDRATE, speed_t, C_SERIAL::PARITY, C_SERIAL::STOP> cases[] = {
      {C_SERIAL::BAUD_9600, B9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1},
      {C_SERIAL::BAUD_115200, B115200, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_2},
      {C_SERIAL::BAUD_300, B300, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1},
      {C_SERIAL::BAUD_14400, speed_t(0), C_SERIAL::PARITY_NONE, C_SERIAL::STOP_2},
      {C_SERIAL::BAUD_256000, speed_t(0), C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1},
      {C_SERIAL::BAUD_4800, B4800, C_SERIAL::PARITY_ODD, C_SERIAL::STOP_2},
      {C_SERIAL::BAUD_4800, B4800, C_SERIAL::PARITY_EVEN, C_SERIAL::STOP_2},
      {C_SERIAL::BAUD_4800, B4800, C_SERIAL::PARITY_MARK, C_SERIAL::STOP_1},
      {C_SERIAL::BAUD_19200, B19200, C_SERIAL::PARITY_SPACE, C_SERIAL::STOP_2}};
  const tcflag_t parityBits[] = {0, PARENB | PARODD, PARENB, PARENB | PARODD | CMSPAR, PARENB | CMSPAR};
  for (const auto& [baud, speed, parity, stop] : cases) {
    SCOPED_TRACE(testing::Message() << baud << " parity " << parity);
    // No parity bit travels on a pseudo-terminal and its driver drops the
    // parity; the line opens with every other setting applied and works.
    const std::string line =
        "line=" + std::to_string(baud) + "," + "NOEMS"[parity] + "," + (stop == C_SERIAL::STOP_2 ? "2" : "1");
    const std::string reading = "reading " + std::to_string(parity);
    auto instrument = StartInstrument(
        {"expect=19", line, "expect=17", "send=x\\r\\n" + reading + "\\r\\n", "expect=19", "expect=ok", "closed"});
    const C_STRING port = PortName(instrument->port());
    const int observer = open(instrument->port().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    ASSERT_GE(observer, 0);
    {
      C_SERIAL serial(port, baud, parity, stop);
      EXPECT_TRUE(serial.IsOpen());
      EXPECT_FALSE(C_ERROR::Is());
      struct termios t;
      ASSERT_EQ(tcgetattr(observer, &t), 0);
      if (speed != 0) {
        EXPECT_EQ(cfgetospeed(&t), speed);
        EXPECT_EQ(cfgetispeed(&t), speed);
      }
      EXPECT_EQ(t.c_cflag & (PARENB | PARODD | CMSPAR), parityBits[parity] & ~static_cast<tcflag_t>(PARENB));
      EXPECT_EQ(t.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
      EXPECT_EQ((t.c_cflag & CSTOPB) != 0, stop == C_SERIAL::STOP_2);
      EXPECT_EQ(t.c_cflag & (CRTSCTS | CLOCAL | CREAD), static_cast<tcflag_t>(CLOCAL | CREAD));
      EXPECT_EQ(t.c_iflag & (IXON | IXOFF | IXANY), static_cast<tcflag_t>(IXON | IXOFF));
      EXPECT_EQ(t.c_iflag & (ICRNL | INLCR | IGNCR | ISTRIP | INPCK | PARMRK), 0u);
      EXPECT_EQ(t.c_oflag & OPOST, 0u);
      EXPECT_EQ(t.c_lflag & (ICANON | ECHO | ISIG | IEXTEN), 0u);
      EXPECT_EQ(t.c_cc[VMIN], 0);
      EXPECT_EQ(t.c_cc[VTIME], 10);
      C_STRING text;
      serial.Read(&text);
      EXPECT_TRUE(text == C_STRING(reading.c_str())) << text.GetANSI();
      serial.Write(u"ok");
      EXPECT_FALSE(C_ERROR::Is());
    }
    close(observer);
    EXPECT_EQ(instrument->Finish(), 0);

    // The parity forgiven, a setting the line refuses still fails the opening.
    auto refusing = StartInstrument({"closed"});
    const C_STRING refusingPort = PortName(refusing->port());
    C_SERIAL refused(refusingPort, baud, parity, C_SERIAL::STOP_1_5);
    EXPECT_FALSE(refused.IsOpen());
    ExpectSerialError(CerrSerialCannotSetState, refusingPort);
    refused = C_SERIAL();
    EXPECT_EQ(refusing->Finish(), 0);
  }
}

TEST(Serial, ThePseudoTerminalIsAVirtualLineThatDropsOnlyTheParity) {
  namespace platform = qorc::platform;
  auto instrument = StartInstrument({"closed"});
  const std::u16string port(instrument->port().begin(), instrument->port().end());
  const platform::SerialLine line = platform::OpenSerialLine(port.c_str());
  ASSERT_NE(line, platform::kNoSerialLine);
  for (int parity = 0; parity <= 4; ++parity) {
    const platform::SerialOutcome outcome = platform::ConfigureSerialLine(line, 4800, parity, 2);
    EXPECT_EQ(outcome.setup, platform::SerialSetup::Done);
    EXPECT_TRUE(outcome.isVirtual);
    EXPECT_EQ(outcome.untaken, parity == 0 ? 0u : platform::kSerialParity) << parity;
  }
  platform::CloseSerialLine(line);
  EXPECT_EQ(instrument->Finish(), 0);
}

TEST(Serial, OnlyAVirtualLineIsForgivenADroppedParity) {
  namespace platform = qorc::platform;
  using platform::SerialSetup;
  const auto judge = [](SerialSetup setup, unsigned untaken, bool isVirtual) {
    platform::SerialOutcome outcome;
    outcome.setup = setup;
    outcome.untaken = untaken;
    outcome.isVirtual = isVirtual;
    return qorc::JudgeSerialOutcome(outcome);
  };
  for (bool isVirtual : {false, true}) {
    EXPECT_EQ(judge(SerialSetup::Done, 0, isVirtual), SerialSetup::Done);
    EXPECT_EQ(judge(SerialSetup::CannotGetState, 0, isVirtual), SerialSetup::CannotGetState);
    EXPECT_EQ(judge(SerialSetup::CannotSetState, 0, isVirtual), SerialSetup::CannotSetState);
    for (unsigned other :
         {platform::kSerialRate, platform::kSerialDataBits, platform::kSerialStopBits, platform::kSerialFlowControl}) {
      EXPECT_EQ(judge(SerialSetup::Done, other, isVirtual), SerialSetup::CannotSetState);
      EXPECT_EQ(judge(SerialSetup::Done, other | platform::kSerialParity, isVirtual), SerialSetup::CannotSetState);
    }
  }
  // A real port is held to the parity its driver did not take.
  EXPECT_EQ(judge(SerialSetup::Done, platform::kSerialParity, true), SerialSetup::Done);
  EXPECT_EQ(judge(SerialSetup::Done, platform::kSerialParity, false), SerialSetup::CannotSetState);
}

TEST(Serial, RefusedSettingsAndUnopenablePortsLeaveThePortClosed) {
  // Every refused attempt opens and releases the port without a byte; the
  // last opening, with the path in the library's form, succeeds.
  auto instrument = StartInstrument({"expect=19", "closed"});
  const C_STRING port = PortName(instrument->port());
  const struct {
    C_SERIAL::BAUDRATE baud;
    int parity;
    int stop;
  } refused[] = {{static_cast<C_SERIAL::BAUDRATE>(0), 0, 0},
                 {C_SERIAL::BAUD_9600, 5, 0},
                 {C_SERIAL::BAUD_9600, -1, 0},
                 {C_SERIAL::BAUD_9600, 0, C_SERIAL::STOP_1_5},
                 {C_SERIAL::BAUD_9600, 0, 3}};
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
  std::ofstream(file) << "text";
  const std::pair<C_STRING, const C_ERROR*> unopenable[] = {
      {C_STRING(u"/dev/qorc-no-such-port"), &CerrSerialCannotOpen},
      {C_STRING(u"COM0"), &CerrSerialCannotOpen},
      {C_STRING(u"LPT1"), &CerrSerialCannotOpen},
      {C_STRING(u"pts/0"), &CerrSerialCannotOpen},
      {PortName(file), &CerrSerialCannotGetState}};
  for (const auto& [name, error] : unopenable) {
    C_SERIAL serial(name, C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
    EXPECT_FALSE(serial.IsOpen());
    ExpectSerialError(*error, name);
  }
  std::ifstream written(file);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(written), {}), "text");

  C_STRING libraryForm = port;
  libraryForm.ReplaceAll(C_CHAR(u'/'), C_CHAR(u'\\'));
  C_SERIAL serial(libraryForm, C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  EXPECT_TRUE(serial.IsOpen());
  EXPECT_FALSE(C_ERROR::Is());
  // Held: a second opening of the same port is refused, the first goes on.
  C_SERIAL second(port, C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  EXPECT_FALSE(second.IsOpen());
  ExpectSerialError(CerrSerialCannotOpen, port);
  EXPECT_TRUE(serial.IsOpen());
  serial = C_SERIAL();
  EXPECT_EQ(instrument->Finish(), 0);
}

TEST(Serial, ReadCollectsLinesByTheRules) {
  auto instrument = StartInstrument({"expect=19",
                                     // A streaming instrument: the partial first line is skipped.
                                     "expect=17", "send=1\\r\\nA1\\r\\nA1\\r\\nA1\\r\\n", "expect=19",
                                     // Empty lines passed over, carriage returns dropped, bare line feeds end lines.
                                     "expect=17", "send=tail\\n\\r\\n\\n\\r\\nB\\r2\\nC3\\n", "expect=19",
                                     // Bytes above 127 are the characters of the same number.
                                     "expect=17", "send=x\\n\\x80\\xA9\\xE9\\xFF\\x01\\r\\n", "expect=19",
                                     // An over-long line is cut; its rest is skipped by the next read.
                                     "expect=17", "send=\\n", "repeat=4100:L", "send=\\r\\n", "expect=19", "expect=17",
                                     "send=\\nnext\\r\\n", "expect=19", "closed"});
  const C_STRING port = PortName(instrument->port());
  C_SERIAL serial(port, C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  ASSERT_TRUE(serial.IsOpen());
  C_STRING line;
  const std::u16string expected[] = {u"A1", u"B2", u"\u0080\u00A9\u00E9\u00FF\u0001",
                                     std::u16string(C_SERIAL::LINE_LIMIT, u'L'), u"next"};
  for (const std::u16string& text : expected) {
    serial.Read(&line);
    EXPECT_FALSE(C_ERROR::Is());
    EXPECT_EQ(line.GetNumber(), static_cast<int>(text.size()));
    EXPECT_TRUE(line == text.c_str());
  }
  serial = C_SERIAL();
  EXPECT_EQ(instrument->Finish(), 0);
}

TEST(Serial, WriteSendsTheEightBitTextAsItIs) {
  const std::string kept(1023, 'w');
  auto instrument = StartInstrument(
      {"expect=19", "expect=ABC\\r\\n\\xE9\\xB1\\xFF?x", "expect=" + kept, "quiet=300", "expect=end", "closed"});
  C_SERIAL serial(PortName(instrument->port()), C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  serial.Write(u"ABC\r\n");
  serial.Write(u"\u00E9\u00B1\u00FF\u20ACx");
  serial.Write(C_STRING::VOID);
  // The 8-bit conversion keeps at most 1023 characters: the rest is not sent.
  serial.Write(C_STRING(std::u16string(2000, u'w').c_str()));
  EXPECT_FALSE(C_ERROR::Is());
  usleep(500000);
  serial.Write(u"end");
  serial = C_SERIAL();
  EXPECT_EQ(instrument->Finish(), 0);
}

TEST(Serial, InstrumentHoldsTheLineWithXoff) {
  // XOFF from the instrument holds what the library sends until XON; the
  // flow-control characters never reach the text read.
  auto instrument = StartInstrument({"expect=19", "send=\\x13", "quiet=1000", "send=\\x11", "expect=held", "expect=17",
                                     "send=\\n\\x13\\x11ok\\r\\n", "expect=19", "closed"});
  C_SERIAL serial(PortName(instrument->port()), C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  ASSERT_TRUE(serial.IsOpen());
  usleep(200000);
  const auto start = steady_clock::now();
  serial.Write(u"held");
  EXPECT_GE(MillisecondsSince(start), 250);
  EXPECT_FALSE(C_ERROR::Is());
  C_STRING line;
  serial.Read(&line);
  EXPECT_TRUE(line == u"ok");
  serial = C_SERIAL();
  EXPECT_EQ(instrument->Finish(), 0);
}

TEST(Serial, SilentInstrumentTimesOutAfterOneSecondAndAVanishedPortGivesErrors) {
  // No "19" follows a time-out: the read ends where it stands, dropping the
  // partial line. Then the master closes while the library waits for a line.
  auto instrument = StartInstrument({"expect=19", "expect=17", "quiet=900", "expect=17", "send=\\npartial", "quiet=900",
                                     "expect=17", "send=\\npart", "sleep=300", "hangup"});
  const C_STRING port = PortName(instrument->port());
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
    } else {
      EXPECT_LT(elapsed, 950);
      ExpectSerialError(CerrSerialCannotRead, port);
    }
  }
  EXPECT_EQ(instrument->Finish(), 0);

  serial.Write(u"anyone?");
  ExpectSerialError(CerrSerialCannotWrite, port);
  // The handshake before reading is a write: its failure is the one reported.
  C_STRING line;
  serial.Read(&line);
  ExpectSerialError(CerrSerialCannotWrite, port);
}

std::vector<std::u16string> PortsIn(const C_STRING& dir) { return qorc::platform::SerialPortsPresentIn(dir); }

TEST(Serial, PortsPresentInAStableOrderOnlyWhenFree) {
  // A device directory of links to pseudo-terminals and other files.
  TempDir dev;
  std::filesystem::create_directories(dev.path() / "serial" / "by-id");
  const auto link = [&](const std::string& name, const std::string& target) {
    std::filesystem::create_symlink(target, dev.path() / name);
  };
  const auto libraryPath = [&](const std::string& name) {
    C_STRING path = PortName(dev.File(name));
    path.ReplaceAll(C_CHAR(u'/'), C_CHAR(u'\\'));
    return std::u16string(path.GetWCHAR());
  };
  EXPECT_TRUE(PortsIn(libraryPath("").c_str()).empty());
  std::vector<int> masters;
  for (const char* name :
       {"ttyS0", "ttyS3", "ttyS12", "ttyS50", "ttyUSB10", "ttyUSB2", "ttyACM1", "ttyUSBx", "console"}) {
    masters.push_back(posix_openpt(O_RDWR | O_NOCTTY));
    EXPECT_TRUE(masters.back() >= 0 && grantpt(masters.back()) == 0 && unlockpt(masters.back()) == 0);
    link(name, ptsname(masters.back()));
  }
  link("ttyACM0", "/dev/null");  // not a terminal
  link("ttyUSB7", dev.File("gone"));
  link("serial/by-id/usb-Maker_Probe_42-if00-port0", "../../ttyUSB2");
  link("serial/by-id/usb-Maker_Adapter_7-if00", "../../ttyACM1");
  link("serial/by-id/usb-Maker_Gone-if00", "../../ttyUSB7");

  // ttyS3 is held; ttyS50 is beyond COM50.
  C_SERIAL holder(PortName(ptsname(masters[1])), C_SERIAL::BAUD_9600, C_SERIAL::PARITY_NONE, C_SERIAL::STOP_1);
  EXPECT_TRUE(holder.IsOpen());
  const std::vector<std::u16string> expected = {
      u"COM1",
      u"COM13",
      libraryPath("ttyACM1"),
      libraryPath("ttyUSB2"),
      libraryPath("ttyUSB10"),
      libraryPath("serial/by-id/usb-Maker_Adapter_7-if00"),
      libraryPath("serial/by-id/usb-Maker_Probe_42-if00-port0"),
  };
  EXPECT_EQ(PortsIn(libraryPath("").c_str()), expected);
  holder = C_SERIAL();
  EXPECT_EQ(PortsIn(libraryPath("").c_str()).size(), expected.size() + 1);
  for (int master : masters) close(master);

  // The machine's own list: names of ports or devices, in slots beyond the
  // count left empty, at least 50 slots.
  int count = -1;
  C_STRING* names = nullptr;
  C_SERIAL::GetSerialPorts(&count, &names);
  ASSERT_NE(names, nullptr);
  EXPECT_GE(count, 0);
  for (int i = 0; i < count; ++i) {
    EXPECT_TRUE(names[i].StartsWith(u"COM") || names[i].StartsWith(u"\\dev\\")) << names[i].GetANSI();
  }
  for (int i = count; i < 50; ++i) EXPECT_TRUE(names[i].IsVoid());
  delete[] names;
}

}  // namespace
