// C_SERIAL: line-oriented instruments on a serial port.
#include <qorc/serial.h>

#include <algorithm>
#include <vector>

#include "device/serial_rules.h"
#include "foundation/library.h"
#include "platform/serial_line.h"

namespace {

namespace platform = qorc::platform;

// Each read of one byte waits this long.
constexpr int kByteTimeoutMs = 1000;
// GetANSI converts at most this many characters.
constexpr int kAnsiLimit = 1023;
// The name array has at least the slots of the 50 "COMn" ports.
constexpr int kPortSlots = 50;
constexpr unsigned char kLineFeed = 10;
constexpr unsigned char kCarriageReturn = 13;
// The handshake numbers, sent as their decimal text.
constexpr int kResume = 17;
constexpr int kPause = 19;

// The lines of every C_SERIAL are collected here, terminator included.
char16_t g_line[C_SERIAL::LINE_LIMIT + 1];

}  // namespace

namespace qorc {

unsigned ForgivenSerialSettings(bool isVirtual) {
  // No parity bit travels on a virtual line, so its driver drops the parity
  // it is given; the line works as asked in every other respect, as a
  // virtual COM port opens on Windows. A real port is held to every setting.
  return isVirtual ? platform::kSerialParity : 0u;
}

platform::SerialSetup JudgeSerialOutcome(const platform::SerialOutcome& outcome) {
  if (outcome.setup != platform::SerialSetup::Done) return outcome.setup;
  const unsigned refused = outcome.untaken & ~ForgivenSerialSettings(outcome.isVirtual);
  return refused == 0 ? platform::SerialSetup::Done : platform::SerialSetup::CannotSetState;
}

}  // namespace qorc

C_SERIAL::C_SERIAL() : line_(nullptr), port_(u"COM1"), baud_(BAUD_9600), parity_(PARITY_NONE), stop_(STOP_1) {}

C_SERIAL::C_SERIAL(const C_STRING& port, BAUDRATE baud, PARITY parity, STOP stop)
    : line_(nullptr), port_(port), baud_(baud), parity_(parity), stop_(stop) {
  Open();
}

C_SERIAL::C_SERIAL(const C_SERIAL& other)
    : line_(nullptr), port_(other.port_), baud_(other.baud_), parity_(other.parity_), stop_(other.stop_) {}

C_SERIAL& C_SERIAL::operator=(const C_SERIAL& other) {
  if (this != &other) {
    Close();
    port_ = other.port_;
    baud_ = other.baud_;
    parity_ = other.parity_;
    stop_ = other.stop_;
  }
  return *this;
}

C_SERIAL::~C_SERIAL() { Close(); }

void C_SERIAL::Close() {
  platform::CloseSerialLine(line_);
  line_ = nullptr;
}

void C_SERIAL::Open() {
  line_ = platform::OpenSerialLine(port_.GetWCHAR());
  if (line_ == nullptr) {
    CerrSerialCannotOpen.Trigger(&port_);
    return;
  }
  const platform::SerialSetup setup =
      qorc::JudgeSerialOutcome(platform::ConfigureSerialLine(line_, baud_, parity_, stop_));
  if (setup != platform::SerialSetup::Done) {
    const C_ERROR& error =
        setup == platform::SerialSetup::CannotGetState ? CerrSerialCannotGetState : CerrSerialCannotSetState;
    error.Trigger(&port_);
    Close();
    return;
  }
  if (!SendHandshake(kPause)) {
    Close();
    return;
  }
  if (!platform::DrainSerialLine(line_)) {
    CerrSerialCannotWrite.Trigger(&port_);
    Close();
  }
}

C_BOOL C_SERIAL::SendHandshake(int number) { return Send(C_STRING(number)); }

C_BOOL C_SERIAL::Send(const C_STRING& text) {
  if (line_ == nullptr) return false;
  const char* bytes = text.GetANSI();
  const int count = std::min(text.GetNumber(), kAnsiLimit);
  if (platform::WriteSerialLine(line_, bytes, count)) return true;
  CerrSerialCannotWrite.Trigger(&port_);
  return false;
}

void C_SERIAL::Write(const C_STRING& text) { Send(text); }

void C_SERIAL::Read(C_STRING* line) {
  if (line == nullptr) return;
  line->Clear();
  if (line_ == nullptr) return;

  SendHandshake(kResume);
  if (C_ERROR::Is() || !platform::DrainSerialLine(line_)) {
    CerrSerialCannotRead.Trigger(&port_);
    return;
  }

  // The line under way when the instrument resumed is incomplete: skip it.
  unsigned char byte = 0;
  do {
    const platform::SerialRead got = platform::ReadSerialByte(line_, kByteTimeoutMs, &byte);
    if (got == platform::SerialRead::TimedOut) return;
    if (got == platform::SerialRead::Failed) {
      CerrSerialCannotRead.Trigger(&port_);
      return;
    }
  } while (byte != kLineFeed);

  int length = 0;
  while (length < LINE_LIMIT) {
    const platform::SerialRead got = platform::ReadSerialByte(line_, kByteTimeoutMs, &byte);
    if (got == platform::SerialRead::TimedOut) return;
    if (got == platform::SerialRead::Failed) {
      CerrSerialCannotRead.Trigger(&port_);
      return;
    }
    if (byte == kCarriageReturn) continue;
    if (byte == kLineFeed) {
      if (length > 0) break;
      continue;  // empty lines are passed over
    }
    g_line[length++] = static_cast<char16_t>(byte);
  }
  g_line[length] = 0;
  *line = C_STRING(length, g_line);

  SendHandshake(kPause);
  if (C_ERROR::Is() || !platform::DrainSerialLine(line_) || !platform::PurgeSerialInput(line_)) {
    CerrSerialCannotRead.Trigger(&port_);
  }
}

void C_SERIAL::GetSerialPorts(int* count, C_STRING** names) {
  if (count == nullptr || names == nullptr) return;
  *count = 0;
  const std::vector<std::u16string> ports = platform::SerialPortsPresent();
  const int slots = std::max(kPortSlots, static_cast<int>(ports.size()));
  *names = qorc::NewArray<C_STRING>(static_cast<std::size_t>(slots));
  if (*names == nullptr) return;
  for (const std::u16string& port : ports) (*names)[(*count)++] = C_STRING(port.c_str());
}
