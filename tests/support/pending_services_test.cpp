// Built into a test program in place of the suites of a service whose side
// of the seam this system does not have yet (the build defines which): each
// says so instead of passing unseen.
#include <gtest/gtest.h>

#ifdef QORC_PENDING_SETTINGS_STORE
TEST(PendingServices, SettingsKeys) {
  GTEST_SKIP() << "Settings keys on Windows are the system registry; that side of the seam is not built yet";
}
#endif
#ifdef QORC_PENDING_SERIAL_LINE
TEST(PendingServices, SerialLines) {
  GTEST_SKIP() << "Serial lines on Windows are the system's COM ports; that side of the seam is not built yet";
}
#endif
#ifdef QORC_PENDING_COMPOUND_DOCUMENT
TEST(PendingServices, CompoundDocuments) {
  GTEST_SKIP() << "Compound documents on Windows are OLE32 structured storage; that side of the seam is not built yet";
}
#endif
