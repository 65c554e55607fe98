// Serial lines on Windows are the system's COM ports (\\.\COMn); until that
// side of the seam is built, no port opens and none is listed.
#include "platform/serial_line.h"

namespace qorc::platform {

SerialLine OpenSerialLine(const char16_t*) { return kNoSerialLine; }
void CloseSerialLine(SerialLine) {}
SerialSetup ConfigureSerialLine(SerialLine, unsigned int, int, int) { return SerialSetup::CannotGetState; }
bool WriteSerialLine(SerialLine, const char*, int) { return false; }
bool DrainSerialLine(SerialLine) { return false; }
bool PurgeSerialInput(SerialLine) { return false; }
SerialRead ReadSerialByte(SerialLine, int, unsigned char*) { return SerialRead::Failed; }
std::vector<std::u16string> SerialPortsPresent() { return {}; }
std::vector<std::u16string> SerialPortsPresentIn(const char16_t*) { return {}; }

}  // namespace qorc::platform
