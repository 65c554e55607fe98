// The seam's serial-line services: opening a port by its name, applying the
// fixed line settings, single-byte reads with a time-out, writes, draining
// and purging, and the list of ports present.
#ifndef QORC_PLATFORM_SERIAL_LINE_H
#define QORC_PLATFORM_SERIAL_LINE_H

#include <qorc/serial.h>

#include <string>
#include <vector>

namespace qorc::platform {

// An open port, as each system's side defines C_SERIAL::LINE (the
// descriptor, the handle and what goes with it); kNoSerialLine when closed.
using SerialLine = C_SERIAL::LINE*;
constexpr SerialLine kNoSerialLine = nullptr;

// Opens an existing port for reading and writing, held exclusively: "COMn" is
// the n-th serial port of the machine, a name that begins with "\" or "/" is
// a device path. Fails for a missing device and for a port that another
// program holds; a device that is not a terminal opens, and then has no line
// settings. kNoSerialLine on failure.
SerialLine OpenSerialLine(const char16_t* name);
void CloseSerialLine(SerialLine line);

// Whether the device took the line settings: Done, or the request itself was
// refused.
enum class SerialSetup { Done, CannotGetState, CannotSetState };

// The settings a driver may leave untaken while it accepts the request, as
// bits of SerialOutcome::untaken.
constexpr unsigned kSerialRate = 1u << 0;
constexpr unsigned kSerialDataBits = 1u << 1;
constexpr unsigned kSerialParity = 1u << 2;
constexpr unsigned kSerialStopBits = 1u << 3;
constexpr unsigned kSerialFlowControl = 1u << 4;

struct SerialOutcome {
  SerialSetup setup = SerialSetup::CannotGetState;
  // What the line shows otherwise than asked once the request was accepted:
  // drivers take what they can and stay silent about the rest.
  unsigned untaken = 0;
  // A virtual line (a pseudo-terminal, a virtual COM port) has no
  // transmitter of its own: no parity bit travels on it.
  bool isVirtual = false;
};

// Raw 8-bit line at `baud` bits per second, parity by code (0 none, 1 odd,
// 2 even, 3 mark, 4 space), stop bits by code (0 one, 1 one and a half,
// 2 two), no CTS/DSR output flow control, DTR and RTS raised, XON/XOFF flow
// control in both directions. A code or rate the line cannot express, or a
// request the device refuses, is CannotSetState; settings that it accepts
// but does not apply are told in `untaken`, and are left for the caller to
// judge.
SerialOutcome ConfigureSerialLine(SerialLine line, unsigned int baud, int parity, int stop);

// Writes every byte; false when the device fails or accepts nothing for a
// long while (a line held by XOFF that never resumes).
bool WriteSerialLine(SerialLine line, const char* bytes, int count);
// Waits until the bytes written have left; false as for writing.
bool DrainSerialLine(SerialLine line);
// Discards what was received and not read yet.
bool PurgeSerialInput(SerialLine line);

enum class SerialRead { Byte, TimedOut, Failed };
// One received byte, waiting at most `timeoutMs` for it. Failed when the
// device fails or has gone (an unplugged adapter, a closed pseudo-terminal).
SerialRead ReadSerialByte(SerialLine line, int timeoutMs, unsigned char* byte);

// The ports that can be opened now, in a stable order: "COMn" for the
// machine's serial ports by number, then the USB adapters (ttyACM, ttyUSB by
// number) and their stable names under serial/by-id, as device paths in the
// library's form.
std::vector<std::u16string> SerialPortsPresent();
// The same under another device directory (a path in library form) instead
// of the system's.
std::vector<std::u16string> SerialPortsPresentIn(const char16_t* deviceDirectory);

}  // namespace qorc::platform

#endif
