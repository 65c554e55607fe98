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
  EXPECT_TRUE(C_STRING::VOID.IsVoid());
  EXPECT_TRUE(C_CHAR::VOID.IsVoid());
  EXPECT_FALSE(C_DATE::VOID.IsValid());
  EXPECT_EQ(C_DATE::VOID.GetYear(), 0);
  EXPECT_EQ(C_SERIAL::BAUD_110, 110u);
  EXPECT_EQ(C_SERIAL::BAUD_256000, 256000u);
  EXPECT_EQ(C_SERIAL::PARITY_NONE, 0);
  EXPECT_EQ(C_SERIAL::PARITY_SPACE, 4);

  // What the system's macros stood for is still there.
  EXPECT_EQ(CBR_9600, 9600u);
  EXPECT_EQ(EVENPARITY, C_SERIAL::PARITY_EVEN);
  EXPECT_NE(GetCurrentProcessId(), 0u);

  // And the library works as anywhere else.
  C_SERIAL port(C_STRING(u"COM1"), C_SERIAL::BAUD_19200, C_SERIAL::PARITY_EVEN, C_SERIAL::STOP_2);
  EXPECT_EQ(port.GetBaudRate(), C_SERIAL::BAUD_19200);
  EXPECT_FALSE(C_ERROR::Is());
}

}  // namespace
