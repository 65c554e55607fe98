// Serial lines on Windows: the communication ports "\\.\COMn" with their
// device control block (line settings, DTR and RTS, XON/XOFF) and time-outs.
#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include "platform/serial_line.h"
#include "platform/windows/win32.h"

// An open port on Windows: its handle, and the read time-out last set on
// it, so that it is set again only when a read asks for another.
struct C_SERIAL::LINE {
  HANDLE handle;
  DWORD readTimeoutMs;
};

namespace qorc::platform {

namespace {

// A write that makes no progress for this long fails: the device holds the
// line (XOFF) and does not let go, or has stopped working. Used only when the
// port sets no write time-out of its own.
constexpr DWORD kStallLimitMs = 10000;
// Ports named "COMn" are tried from 1 to this.
constexpr int kHighestComPort = 50;

// The number of a port name "COMn" (any case), 0 for any other name.
int ComNumber(const std::u16string& name) {
  if (name.size() < 4 || name.size() > 9) return 0;
  for (int i = 0; i < 3; ++i) {
    if ((name[i] | 0x20) != u"com"[i]) return 0;
  }
  int number = 0;
  for (std::size_t i = 3; i < name.size(); ++i) {
    if (name[i] < u'0' || name[i] > u'9') return 0;
    number = number * 10 + (name[i] - u'0');
  }
  return number;
}

// "COMn" is opened in the device namespace, where every port number works;
// any other name is the system's to resolve (a device path, another DOS
// device name), as a port name always was on Windows.
std::wstring DeviceName(const char16_t* name) {
  const std::u16string text(name);
  if (ComNumber(text) > 0) return L"\\\\.\\" + std::wstring(windows::Wide(name));
  return std::wstring(windows::Wide(name));
}

HANDLE OpenPort(const std::wstring& device) {
  return CreateFileW(device.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
}

bool SetReadTimeout(SerialLine line, DWORD timeoutMs) {
  if (line->readTimeoutMs == timeoutMs) return true;
  COMMTIMEOUTS timeouts = {};
  if (!GetCommTimeouts(line->handle, &timeouts)) return false;
  // A read returns what arrived within the time-out, possibly nothing.
  timeouts.ReadIntervalTimeout = 0;
  timeouts.ReadTotalTimeoutMultiplier = 0;
  timeouts.ReadTotalTimeoutConstant = timeoutMs;
  if (!SetCommTimeouts(line->handle, &timeouts)) return false;
  line->readTimeoutMs = timeoutMs;
  return true;
}

// The port names the system knows: the serial device map and the DOS device
// names that begin with "COM".
void AddSystemPortNumbers(std::vector<int>* numbers) {
  HKEY map = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"HARDWARE\\DEVICEMAP\\SERIALCOMM", 0, KEY_QUERY_VALUE, &map) ==
      ERROR_SUCCESS) {
    for (DWORD index = 0;; ++index) {
      wchar_t name[256];
      wchar_t value[256] = {};
      DWORD nameUnits = 256;
      DWORD valueBytes = sizeof value - sizeof(wchar_t);
      DWORD type = 0;
      if (RegEnumValueW(map, index, name, &nameUnits, nullptr, &type, reinterpret_cast<BYTE*>(value), &valueBytes) !=
          ERROR_SUCCESS) {
        break;
      }
      if (type == REG_SZ) numbers->push_back(ComNumber(windows::Units(value)));
    }
    RegCloseKey(map);
  }
  std::vector<wchar_t> devices(65536);
  const DWORD units = QueryDosDeviceW(nullptr, devices.data(), static_cast<DWORD>(devices.size()));
  for (DWORD at = 0; at < units && devices[at] != L'\0';) {
    const std::wstring name(&devices[at]);
    numbers->push_back(ComNumber(windows::Units(name.c_str())));
    at += static_cast<DWORD>(name.size()) + 1;
  }
}

std::vector<std::u16string> PortsThatOpen(std::vector<int> numbers) {
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  std::vector<std::u16string> present;
  for (const int number : numbers) {
    if (number <= 0) continue;
    const std::u16string name = u"COM" + std::u16string(windows::Units(std::to_wstring(number).c_str()));
    const HANDLE port = OpenPort(DeviceName(name.c_str()));
    if (port == INVALID_HANDLE_VALUE) continue;
    CloseHandle(port);
    present.push_back(name);
  }
  return present;
}

}  // namespace

SerialLine OpenSerialLine(const char16_t* name) {
  if (name == nullptr) return kNoSerialLine;
  try {
    const std::wstring device = DeviceName(name);
    if (device.empty()) return kNoSerialLine;
    const HANDLE port = OpenPort(device);
    if (port == INVALID_HANDLE_VALUE) return kNoSerialLine;
    // No read time-out is known until the line is configured.
    SerialLine line = new (std::nothrow) C_SERIAL::LINE{port, MAXDWORD};
    if (line == kNoSerialLine) CloseHandle(port);
    return line;
  } catch (const std::bad_alloc&) {
    return kNoSerialLine;
  }
}

void CloseSerialLine(SerialLine line) {
  if (line == kNoSerialLine) return;
  CloseHandle(line->handle);
  delete line;
}

namespace {

// What the line shows otherwise than `asked`, as SerialOutcome::untaken bits.
unsigned UntakenSettings(const DCB& asked, const DCB& taken) {
  unsigned untaken = 0;
  if (taken.BaudRate != asked.BaudRate) untaken |= kSerialRate;
  if (taken.ByteSize != asked.ByteSize) untaken |= kSerialDataBits;
  if (taken.Parity != asked.Parity) untaken |= kSerialParity;
  if (taken.StopBits != asked.StopBits) untaken |= kSerialStopBits;
  if (taken.fOutX != asked.fOutX || taken.fInX != asked.fInX) untaken |= kSerialFlowControl;
  return untaken;
}

// A port whose provider is no RS-232, RS-422 or RS-423 line has no
// transmitter of its own. (Wine reports a pseudo-terminal as RS-232.)
bool IsVirtualLine(SerialLine line) {
  COMMPROP properties = {};
  if (!GetCommProperties(line->handle, &properties)) return false;
  return properties.dwProvSubType != PST_RS232 && properties.dwProvSubType != PST_RS422 &&
         properties.dwProvSubType != PST_RS423;
}

}  // namespace

SerialOutcome ConfigureSerialLine(SerialLine line, unsigned int baud, int parity, int stop) {
  SerialOutcome outcome;
  DCB state = {};
  state.DCBlength = sizeof state;
  if (!GetCommState(line->handle, &state)) return outcome;
  outcome.setup = SerialSetup::CannotSetState;
  if (baud == 0 || parity < NOPARITY || parity > SPACEPARITY || stop < ONESTOPBIT || stop > TWOSTOPBITS) {
    return outcome;
  }
  state.BaudRate = baud;
  state.Parity = static_cast<BYTE>(parity);
  state.StopBits = static_cast<BYTE>(stop);
  state.ByteSize = 8;
  state.fBinary = TRUE;
  state.fParity = parity != NOPARITY;
  state.fOutxCtsFlow = FALSE;
  state.fOutxDsrFlow = FALSE;
  state.fDtrControl = DTR_CONTROL_ENABLE;
  state.fRtsControl = RTS_CONTROL_ENABLE;
  state.fOutX = TRUE;
  state.fInX = TRUE;
  if (!SetCommState(line->handle, &state)) return outcome;
  // Some devices take settings they cannot keep (a pseudo-terminal has no
  // parity): what reads back is what the line does.
  DCB taken = {};
  taken.DCBlength = sizeof taken;
  if (!GetCommState(line->handle, &taken)) {
    outcome.setup = SerialSetup::CannotGetState;
    return outcome;
  }
  COMMTIMEOUTS timeouts = {};
  if (!GetCommTimeouts(line->handle, &timeouts)) {
    outcome.setup = SerialSetup::CannotGetState;
    return outcome;
  }
  timeouts.ReadIntervalTimeout = 0;
  timeouts.ReadTotalTimeoutMultiplier = 0;
  timeouts.ReadTotalTimeoutConstant = 1000;
  // The port's write time-outs are kept; without any, a write held by XOFF
  // would wait for ever.
  if (timeouts.WriteTotalTimeoutMultiplier == 0 && timeouts.WriteTotalTimeoutConstant == 0) {
    timeouts.WriteTotalTimeoutConstant = kStallLimitMs;
  }
  if (!SetCommTimeouts(line->handle, &timeouts)) return outcome;
  line->readTimeoutMs = timeouts.ReadTotalTimeoutConstant;
  outcome.setup = SerialSetup::Done;
  outcome.untaken = UntakenSettings(state, taken);
  outcome.isVirtual = IsVirtualLine(line);
  return outcome;
}

bool WriteSerialLine(SerialLine line, const char* bytes, int count) {
  for (int done = 0; done < count;) {
    DWORD put = 0;
    if (!WriteFile(line->handle, bytes + done, static_cast<DWORD>(count - done), &put, nullptr) || put == 0) {
      return false;
    }
    done += static_cast<int>(put);
  }
  return true;
}

bool DrainSerialLine(SerialLine line) { return FlushFileBuffers(line->handle) != FALSE; }

bool PurgeSerialInput(SerialLine line) { return PurgeComm(line->handle, PURGE_RXCLEAR) != FALSE; }

SerialRead ReadSerialByte(SerialLine line, int timeoutMs, unsigned char* byte) {
  if (!SetReadTimeout(line, timeoutMs < 0 ? 0 : static_cast<DWORD>(timeoutMs))) return SerialRead::Failed;
  DWORD got = 0;
  if (!ReadFile(line->handle, byte, 1, &got, nullptr)) return SerialRead::Failed;
  return got == 1 ? SerialRead::Byte : SerialRead::TimedOut;
}

// Every "COMn" up to COM50 is tried, as well as the ports the system lists
// (which may number higher).
std::vector<std::u16string> SerialPortsPresent() {
  try {
    std::vector<int> numbers;
    for (int number = 1; number <= kHighestComPort; ++number) numbers.push_back(number);
    AddSystemPortNumbers(&numbers);
    return PortsThatOpen(std::move(numbers));
  } catch (const std::bad_alloc&) {
    return {};
  }
}

// The ports of a device folder: its entries named "COMn" that open as ports.
std::vector<std::u16string> SerialPortsPresentIn(const char16_t* deviceDirectory) {
  std::vector<std::u16string> present;
  try {
    const std::wstring folder = windows::Wide(deviceDirectory);
    WIN32_FIND_DATAW found;
    const HANDLE search = FindFirstFileW((folder + L"\\COM*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) return present;
    std::vector<std::pair<int, std::wstring>> ports;
    do {
      const int number = ComNumber(windows::Units(found.cFileName));
      if (number > 0) ports.emplace_back(number, found.cFileName);
    } while (FindNextFileW(search, &found));
    FindClose(search);
    std::sort(ports.begin(), ports.end());
    for (const auto& [number, name] : ports) {
      const std::wstring path = folder + L"\\" + name;
      const HANDLE port = OpenPort(path);
      if (port == INVALID_HANDLE_VALUE) continue;
      CloseHandle(port);
      present.push_back(windows::LibraryText(path));
    }
  } catch (const std::bad_alloc&) {
  }
  return present;
}

}  // namespace qorc::platform
