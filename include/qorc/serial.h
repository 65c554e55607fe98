/// @file
/// C_SERIAL: an instrument on a serial line that sends text lines.
///
/// The port is opened exclusively and set to the given rate, parity and stop
/// bits with 8 data bits, no CTS/DSR output flow control, DTR and RTS raised
/// and XON/XOFF flow control both ways. A read waits at most one second for
/// each byte. Around each read the line carries the handshake texts "17"
/// (before) and "19" (after, and once after opening): the two decimal digits,
/// not the control characters of those numbers, which is what the instruments
/// on these lines expect.
///
/// Port names: "COMn" is the n-th serial port of the machine (`/dev/ttyS<n-1>`
/// on POSIX); a name that begins with "\" or "/" is a device path, such as a
/// USB adapter or a pseudo-terminal.
///
/// Failures leave the pending error (CerrSerial...) with the port name as its
/// extra text. A port that failed to open stays closed, and Write and Read on
/// a closed port do nothing.
#ifndef QORC_SERIAL_H
#define QORC_SERIAL_H

#include <qorc/export.h>
#include <qorc/string.h>
#include <qorc/types.h>
#include <qorc/windows_names.h>

/// An instrument on a serial line that sends text lines (see the file's
/// description for the line settings, the handshake and the port names).
/// Failures leave CerrSerialCannotOpen, CerrSerialCannotGetState,
/// CerrSerialCannotSetState, CerrSerialCannotWrite or CerrSerialCannotRead
/// pending with the port name.
class QORC_API C_SERIAL {
 public:
  /// Rates in bits per second; any other rate the device supports may be
  /// given as a BAUDRATE too.
  enum BAUDRATE : unsigned int {
    BAUD_110 = 110,
    BAUD_300 = 300,
    BAUD_600 = 600,
    BAUD_1200 = 1200,
    BAUD_2400 = 2400,
    BAUD_4800 = 4800,
    BAUD_9600 = 9600,
    BAUD_14400 = 14400,
    BAUD_19200 = 19200,
    BAUD_38400 = 38400,
    BAUD_56000 = 56000,
    BAUD_57600 = 57600,
    BAUD_115200 = 115200,
    BAUD_128000 = 128000,
    BAUD_256000 = 256000
  };
  /// Parity of each character.
  enum PARITY : int { PARITY_NONE = 0, PARITY_ODD = 1, PARITY_EVEN = 2, PARITY_MARK = 3, PARITY_SPACE = 4 };
  /// One and a half stop bits exist only with 5 data bits: with the 8 data
  /// bits used here the port refuses STOP_1_5.
  enum STOP : int { STOP_1 = 0, STOP_1_5 = 1, STOP_2 = 2 };

  /// An open line, as the system keeps it; opaque: only the library looks
  /// inside.
  struct LINE;

  /// "COM1" at 9600 bits per second, no parity, one stop bit; not open.
  C_SERIAL();
  /// Opens and configures the port, then sends "19". On failure the object
  /// keeps the settings and stays closed; CerrSerialCannotOpen,
  /// CerrSerialCannotGetState, CerrSerialCannotSetState (also for a rate,
  /// parity or stop code the device refuses) or CerrSerialCannotWrite is
  /// pending with the port name.
  C_SERIAL(const C_STRING& port, BAUDRATE baud, PARITY parity, STOP stop);
  /// A copy has the settings, not the port: it is closed.
  C_SERIAL(const C_SERIAL& other);
  /// Closes this object's port and takes the other's settings.
  C_SERIAL& operator=(const C_SERIAL& other);
  /// Closes the port when it is open.
  virtual ~C_SERIAL();

  /// The port name, as given.
  const C_STRING& GetPort() const { return port_; }
  /// The rate in bits per second.
  BAUDRATE GetBaudRate() const { return baud_; }
  /// The parity.
  PARITY GetParity() const { return parity_; }
  /// The stop bits.
  STOP GetStop() const { return stop_; }
  /// Whether the port is open.
  C_BOOL IsOpen() const { return line_ != nullptr; }

  /// CerrSerialCannotWrite when the line refuses it.
  /// Sends the text as 8-bit bytes (C_STRING::GetANSI: characters above U+00FF
  /// become "?", at most the first 1023 characters), without a line end.
  void Write(const C_STRING& text);
  /// CerrSerialCannotRead (or CerrSerialCannotWrite for the handshake) when the line fails.
  /// The next complete line: sends "17", skips the rest of the line under way,
  /// collects the next non-empty line (carriage returns ignored, bytes 128 to
  /// 255 taken as U+0080 to U+00FF, at most 4098 characters), then sends "19"
  /// and discards what arrived meanwhile. An instrument silent for one second
  /// gives an empty line without an error, dropping a partial line.
  void Read(C_STRING* line);

  /// The ports that can be opened now (not held by another program), in a
  /// stable order: "COMn" by number, then on POSIX the USB adapters present
  /// (`/dev/ttyACM<n>`, `/dev/ttyUSB<n>` by number, then their stable names under
  /// /dev/serial/by-id), as device paths in the library's form. The new array
  /// (release it with delete[]) has at least 50 slots; *count gets the names.
  static void GetSerialPorts(int* count, C_STRING** names);

  /// The length limit of a line collected by Read.
  static constexpr int LINE_LIMIT = 4098;

 private:
  void Open();
  C_BOOL Send(const C_STRING& text);
  C_BOOL SendHandshake(int number);
  void Close();

  // The open line; null when closed.
  LINE* line_;
  C_STRING port_;
  BAUDRATE baud_;
  PARITY parity_;
  STOP stop_;
};

#endif
