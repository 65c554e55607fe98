// A host's file that includes <windows.h> before the library's headers, as
// Windows programs do. The system header defines some of the library's names
// as macros (VOID; the BAUD_ and PARITY_ masks of COMMPROP): the library's
// names stand in the host's code, and the system's calls and the values a
// DCB takes stay usable beside them.
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <gtest/gtest.h>
#include <qorc/qorc.h>

namespace {

TEST(HostHeaders, TheLibrarysNamesStandInAFileThatIncludedWindowsHFirst) {
  // Each name below is a macro of <windows.h> until the library's headers
  // undefine it: this file compiles only if they do.
  EXPECT_TRUE(C_STRING::VOID.IsVoid() && C_CHAR::VOID.IsVoid() && !C_DATE::VOID.IsValid());
  const C_SERIAL port;  // not opened
  EXPECT_EQ(port.GetBaudRate(), C_SERIAL::BAUD_9600);
  EXPECT_EQ(port.GetParity(), C_SERIAL::PARITY_NONE);
  // What the system's macros stood for is still there beside them.
  EXPECT_EQ(CBR_9600, C_SERIAL::BAUD_9600);
  EXPECT_EQ(EVENPARITY, C_SERIAL::PARITY_EVEN);
}

}  // namespace
