// qor lock, reg, storage and serial as a Windows host runs them: settings in
// the registry itself (read back through the registry's own functions),
// compound documents in the system's structured storage, lockers' processes
// looked up by the system.
#include "support/os_support.h"
#include "tool/qor_runner.h"

#include <cstring>
#include <string>

namespace {

using ServiceCommandsWindowsTest = QorTest;

C_STRING Library(const std::string& text) {
  C_STRING result;
  result.FromUTF8(text.c_str());
  return result;
}

std::wstring Wide(const std::string& ascii) { return std::wstring(ascii.begin(), ascii.end()); }

// A key of its own under HKEY_CURRENT_USER\Software, removed afterwards.
class UserKey {
 public:
  UserKey()
      : path_("Software\\qorc-tool-test-" + std::to_string(GetCurrentProcessId()) + "-" +
              std::to_string(GetTickCount())) {}
  ~UserKey() {
    RegDeleteTreeW(HKEY_CURRENT_USER, Wide(path_).c_str());
    RegDeleteKeyW(HKEY_CURRENT_USER, Wide(path_).c_str());
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// A value as the registry holds it: its type and bytes; type 0 when absent.
std::pair<DWORD, std::string> RegistryValue(const std::string& key, const std::string& name) {
  HKEY opened = nullptr;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, Wide(key).c_str(), 0, KEY_QUERY_VALUE, &opened) != ERROR_SUCCESS) return {0, ""};
  DWORD type = 0;
  DWORD size = 0;
  std::string bytes;
  if (RegQueryValueExW(opened, Wide(name).c_str(), nullptr, &type, nullptr, &size) == ERROR_SUCCESS) {
    bytes.resize(size);
    RegQueryValueExW(opened, Wide(name).c_str(), nullptr, &type,
                     bytes.empty() ? nullptr : reinterpret_cast<BYTE*>(&bytes[0]), &size);
    bytes.resize(size);
  } else {
    type = 0;
  }
  RegCloseKey(opened);
  return {type, bytes};
}

// The text of a .reg file of version 5, which is UTF-16: ASCII lines come
// back as they are.
std::string AsciiOfUtf16(const std::string& bytes) {
  std::string text;
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) text += bytes[i];
  return text;
}

TEST_F(ServiceCommandsWindowsTest, RegWorksOnTheUsersRegistryWithoutAStore) {
  const UserKey key;
  const std::string root = "HKEY_CURRENT_USER\\" + key.path();
  const std::string file = Write("in.reg", "Windows Registry Editor Version 5.00\r\n\r\n[" + root +
                                               "]\r\n\"Name\"=\"caf\xC3\xA9\"\r\n\"Blob\"=hex:01,02,03\r\n\r\n[" +
                                               root + "\\Child]\r\n@=\"default\"\r\n");
  EXPECT_NE(Output({"reg", "import", file}).find("HKEY_CURRENT_USER"), std::string::npos);
  // What the registry itself holds: a UTF-16 string with its terminator, in
  // whole 32-bit words as the library stores entries; the bytes as given.
  EXPECT_EQ(RegistryValue(key.path(), "Name"),
            std::make_pair(DWORD{REG_SZ}, std::string("c\0a\0f\0\xE9\0\0\0\0\0", 12)));
  EXPECT_EQ(RegistryValue(key.path(), "Blob"), std::make_pair(DWORD{REG_BINARY}, std::string("\1\2\3")));
  // The registry chooses the order of entries: the listing is compared as a set.
  const std::string list = Output({"reg", "list", root});
  EXPECT_NE(list.find("Child\\\n"), std::string::npos) << list;
  EXPECT_NE(list.find("\"Name\"\n"), std::string::npos) << list;
  EXPECT_NE(list.find("\"Blob\"\n"), std::string::npos) << list;
  EXPECT_EQ(Output({"reg", "get", key.path() + "/Child", ""}), "@=\"default\"\n");
  // Exported as the registry editor writes it.
  Output({"reg", "export", root, dir.File("a.reg")});
  const std::string exported = AsciiOfUtf16(ReadWholeFile(dir.File("a.reg")));
  EXPECT_NE(exported.find("\"Blob\"=hex:01,02,03"), std::string::npos) << exported;
  EXPECT_EQ(Outcome(Run({"reg", "list", key.path() + "\\Nothing"})),
            Failure("qor: Not found: no key " + key.path() + "\\Nothing in HKEY_CURRENT_USER\n"));
}

TEST_F(ServiceCommandsWindowsTest, StoragePutGetAndListThroughTheSystemsStructuredStorage) {
  const std::string data = SampleData(300000, 13);
  const std::string document = dir.File("doc.cfb");
  Output({"storage", "put", document, Write("data", data)});
  // A compound document: the format's signature.
  EXPECT_EQ(ReadWholeFile(document).substr(0, 8), "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1");
  Output({"storage", "get", document, dir.File("back")});
  EXPECT_EQ(ReadWholeFile(dir.File("back")), data);
  EXPECT_EQ(Output({"storage", "list", document}), "Contents  300000 bytes\n");
  Output({"storage", "put", document, Write("short", "13 bytes long")});
  EXPECT_EQ(Output({"storage", "get", document, "-"}), "13 bytes long");
  // A file that is no compound document is refused before the system reads it, and stays as it was.
  EXPECT_EQ(Outcome(Run({"storage", "get", dir.File("data"), "-"})),
            Failure("qor: File contains invalid encoding: " + dir.File("data") +
                    " is not a sound compound document\n"));
  EXPECT_EQ(ReadWholeFile(dir.File("data")), data);
}

TEST_F(ServiceCommandsWindowsTest, LockStatusAsksTheSystemWhetherLockersRun) {
  const std::string document = dir.File("plan.dat");
  EXPECT_EQ(Output({"lock", "status", document}), document + ": not locked\n");
  C_STRING own;
  C_FILE::BuildLockerName(&own);
  char* self = own.GetNewUTF8();
  const std::string machineAndUser(self, std::strrchr(self, '\\') + 1);
  delete[] self;
  // A process that has ended: the id of a qor run that is over.
  const HANDLE ended = StartQor({"--version"}, kNullDevice, dir.File("version"), kNullDevice);
  ASSERT_NE(ended, nullptr);
  const std::string endedId = std::to_string(GetProcessId(ended));
  ASSERT_EQ(WaitForExit(ended), 0);
  C_FILE::Lock(Library(document));
  ASSERT_FALSE(C_ERROR::Is());
  WriteWholeFile(document + ".lck", ReadWholeFile(document + ".lck") + "\n" + machineAndUser + endedId);
  const std::string running = machineAndUser + std::to_string(GetCurrentProcessId()) + "  running\n";
  EXPECT_EQ(Output({"lock", "status", document}), running + machineAndUser + endedId + "  gone (stale)\n");
  EXPECT_EQ(Output({"lock", "clear-stale", "--yes", document}),
            machineAndUser + endedId + "  gone (stale)\n1 stale entries removed\n");
  EXPECT_EQ(Output({"lock", "status", document}), running);
  C_FILE::Unlock(Library(document));
}

TEST_F(ServiceCommandsWindowsTest, SerialNamesAPortThatCannotBeOpened) {
  const QorResult absent = Run({"serial", "send", "COM77", "x"});
  EXPECT_EQ(absent.status, 1);
  EXPECT_EQ(absent.err.rfind("qor: Cannot open serial line: ", 0), 0u) << absent.err;
}

}  // namespace
