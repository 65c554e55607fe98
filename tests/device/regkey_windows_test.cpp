// Settings keys in the Windows registry: the key operations on a key of the
// real registry (a fresh one under HKEY_CURRENT_USER\Software per test,
// removed after) and on an application hive, the entries as Windows' own
// reg.exe sees and writes them, two processes writing one key, and the
// environment's fallback on HKEY_CURRENT_USER\Environment.
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <algorithm>
#include <string>
#include <vector>

#include "file/file_test_util.h"
#include "support/wine_host.h"

namespace {

using NameList = std::vector<std::u16string>;

const std::string kStoredFields("\x05\0\0\0\x02\0\0\0a\0b\0\x01\0\0\0", 16);

HKEY Hkey(C_REGKEY::HANDLE handle) { return reinterpret_cast<HKEY>(handle); }
C_REGKEY::HANDLE Handle(HKEY key) { return reinterpret_cast<C_REGKEY::HANDLE>(key); }

const wchar_t* Wide(const std::u16string& text) { return reinterpret_cast<const wchar_t*>(text.c_str()); }

bool ErrorIsInternal() { return TakeError() == &CerrInternalError; }

NameList Names(C_REGKEY& key, bool subkeys = false) {
  int count = 0;
  C_STRING* names = nullptr;
  subkeys ? key.GetSubkeys(&count, &names) : key.GetEntries(&count, &names);
  NameList out;
  for (int i = 0; i < count; ++i) out.push_back(Text(names[i]));
  delete[] names;
  return out;
}

// The type and bytes of an entry as the registry holds them.
std::pair<DWORD, std::string> Stored(HKEY parent, const std::u16string& path, const std::u16string& entry) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(parent, Wide(path), 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS) return {0, "<no key>"};
  DWORD type = 0;
  DWORD size = 0;
  std::string data;
  if (RegQueryValueExW(key, Wide(entry), nullptr, &type, nullptr, &size) == ERROR_SUCCESS) {
    data.resize(size);
    RegQueryValueExW(key, Wide(entry), nullptr, &type, reinterpret_cast<BYTE*>(&data[0]), &size);
  } else {
    data = "<no entry>";
  }
  RegCloseKey(key);
  return {type, data};
}

std::string Hex(const std::string& bytes) {
  std::string out;
  for (unsigned char c : bytes) (out += "0123456789ABCDEF"[c >> 4]) += "0123456789ABCDEF"[c & 15];
  return out;
}

// A name no other test or run uses.
std::u16string UniqueName(const char16_t* prefix) {
  static int counter = 0;
  const std::wstring tail = std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(GetTickCount64()) + L"-" +
                            std::to_wstring(++counter);
  return prefix + std::u16string(tail.begin(), tail.end());
}

enum class Where { Registry, Hive };

// Each test works below a key of its own: "Software\QorcTest-..." of the
// current user, or the top of a fresh application hive.
class RegistryKeyTest : public testing::TestWithParam<Where> {
 protected:
  void SetUp() override {
    if (GetParam() == Where::Registry) {
      parent_ = Handle(HKEY_CURRENT_USER);
      base_ = u"Software\\" + UniqueName(u"QorcTest-");
      C_REGKEY key;
      key.Open(parent_, C_STRING(base_.c_str()), C_REGKEY::READ_WRITE, true);
      ASSERT_FALSE(C_ERROR::Is());
      return;
    }
    parent_ = C_REGKEY::OpenStore(LibraryPath(dir_.File("settings.hive")));
    if (parent_ == nullptr && RunningUnderWine()) {
      C_ERROR::ClearPending();
      GTEST_SKIP() << "Wine difference: RegLoadAppKeyW is a stub there that loads no hive and returns a handle "
                      "the registry refuses, so application hives cannot be tested under Wine";
    }
    ASSERT_NE(parent_, nullptr);
  }
  void TearDown() override {
    if (GetParam() == Where::Registry && !base_.empty()) RegDeleteTreeW(HKEY_CURRENT_USER, Wide(base_));
    C_ERROR::ClearPending();
  }

  // The path of a key below the test's own.
  C_STRING At(const char16_t* path) const {
    return C_STRING((base_.empty() ? std::u16string(path) : base_ + u"\\" + path).c_str());
  }
  void Open(C_REGKEY* key, const char16_t* path, C_REGKEY::MODE mode, bool create) const {
    key->Open(parent_, At(path), mode, create);
  }
  HKEY Parent() const { return Hkey(parent_); }

  TempDir dir_;
  C_REGKEY::HANDLE parent_ = nullptr;
  std::u16string base_;
};

TEST_P(RegistryKeyTest, BinaryAndTextEntriesAreStoredByteForByteAndReadWithTheirRules) {
  {
    C_REGKEY key;
    Open(&key, u"Qorc", C_REGKEY::READ_WRITE, true);
    key.SetEntry(u"Fields");
    key.Write(5);
    key.Write(C_STRING(u"ab"));
    key.Write(C_BOOL(true));
    key.SetEntry(u"Text");
    key.WriteReadableString(u"12");
    key.SetEntry(u"Real");
    key.Write(2.5);
    ASSERT_FALSE(C_ERROR::Is());
  }
  const std::u16string path = Text(At(u"Qorc"));
  EXPECT_EQ(Stored(Parent(), path, u"Fields"), std::make_pair(DWORD{REG_BINARY}, kStoredFields));
  // Text with its terminator, rounded up to whole 4-byte words.
  const std::string storedText(
      "1\0"
      "2\0\0\0\0\0",
      8);
  EXPECT_EQ(Stored(Parent(), path, u"Text"), std::make_pair(DWORD{REG_SZ}, storedText));
  EXPECT_EQ(Stored(Parent(), path, u"Real").second.size(), 8u);

  C_REGKEY key;
  Open(&key, u"qORC", C_REGKEY::READ, false);
  ASSERT_FALSE(C_ERROR::Is());
  int number = 0;
  C_STRING text;
  C_BOOL flag = false;
  key.SetEntry(u"FIELDS");
  key.Read(&number);
  key.Read(&text);
  key.Read(&flag);
  EXPECT_EQ(number, 5);
  EXPECT_EQ(Text(text), u"ab");
  EXPECT_TRUE(flag);
  EXPECT_FALSE(C_ERROR::Is());
  key.Read(&number);
  EXPECT_TRUE(ErrorIsInternal());  // "No more data", at debug level
  // A text entry holding 12 is the int 12, the real 12.0 and true.
  double real = 0;
  key.SetEntry(u"Text");
  key.Read(&number);
  key.SetEntry(u"Text");
  key.Read(&real);
  key.SetEntry(u"Text");
  key.Read(&flag);
  EXPECT_EQ(number, 12);
  EXPECT_EQ(real, 12.0);
  EXPECT_TRUE(flag);
  key.SetEntry(u"Real");
  key.Read(&real);
  EXPECT_EQ(real, 2.5);
  // The read access of mode READ: the entry cannot be cleared, and what is
  // written to the buffer is never stored.
  key.SetEntry(u"Missing");
  EXPECT_TRUE(ErrorIsInternal());
  key.SetEntry(u"Text");
  key.Clear();
  EXPECT_TRUE(ErrorIsInternal());
  key.WriteReadableString(u"never stored");
  key.Close();
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(Stored(Parent(), path, u"Text").second, storedText);
}

TEST_P(RegistryKeyTest, ModesNamesDeletionAndRecursiveCopy) {
  C_REGKEY key;
  Open(&key, u"Tree", C_REGKEY::READ_WRITE, true);
  // READ_WRITE forgives a missing entry, so that it can be written.
  key.SetEntry(u"New");
  EXPECT_FALSE(C_ERROR::Is());
  key.Write(7);
  for (const char16_t* name : {u"zeta", u"Beta", u"alpha\\deep"}) {
    C_REGKEY child;
    child.Open(&key, name, C_REGKEY::WRITE, true);
    child.SetEntry(u"v");
    child.Write(1);
  }
  key.SetEntry(u"Other");
  key.Write(8);
  key.SetEntry(u"New");  // stores "Other"
  EXPECT_EQ(Names(key, true), (NameList{u"alpha", u"Beta", u"zeta"}));
  NameList entries = Names(key);
  std::sort(entries.begin(), entries.end());
  EXPECT_EQ(entries, (NameList{u"New", u"Other"}));
  // Only keys without subkeys are deleted.
  key.Delete(u"alpha");
  EXPECT_TRUE(ErrorIsInternal());
  key.Delete(u"ZETA");
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(Names(key, true), (NameList{u"alpha", u"Beta"}));
  key.SetEntry(u"Other");
  key.Clear();
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(Names(key), NameList{u"New"});

  C_REGKEY copy;
  Open(&copy, u"Copy", C_REGKEY::WRITE, true);
  key.Copy(&copy);
  EXPECT_FALSE(C_ERROR::Is());
  copy.Close();
  const std::u16string copied = Text(At(u"Copy"));
  EXPECT_EQ(Stored(Parent(), copied, u"New"), std::make_pair(DWORD{REG_BINARY}, std::string("\x07\0\0\0", 4)));
  EXPECT_EQ(Stored(Parent(), copied + u"\\alpha\\deep", u"v").second, std::string("\x01\0\0\0", 4));

  // WRITE selects without reading; READ refuses to write a missing key.
  C_REGKEY writer;
  Open(&writer, u"Tree", C_REGKEY::WRITE, false);
  writer.SetEntry(u"New");
  int number = -1;
  writer.Read(&number);
  EXPECT_TRUE(ErrorIsInternal());
  C_REGKEY missing;
  Open(&missing, u"Nowhere", C_REGKEY::READ, false);
  EXPECT_TRUE(ErrorIsInternal());
  EXPECT_FALSE(missing.IsOpened());
}

TEST_P(RegistryKeyTest, ExportedKeysImportBackByteForByte) {
  C_REGKEY key;
  Open(&key, u"Exchange", C_REGKEY::READ_WRITE, true);
  key.SetEntry(u"Fields");
  key.Write(5);
  key.Write(C_STRING(u"ab"));
  key.Write(C_BOOL(true));
  key.SetEntry(u"Text");
  key.WriteReadableString(u"t\u00e9xt");
  C_REGKEY child;
  child.Open(&key, u"Child", C_REGKEY::WRITE, true);
  child.SetEntry(u"");
  child.WriteReadableString(u"default");
  child.Close();
  key.Close();
  Open(&key, u"Exchange", C_REGKEY::READ, false);
  const std::string file = dir_.File("exchange.reg");
  CregkeyExport(&key, LibraryPath(file));
  ASSERT_FALSE(C_ERROR::Is());
  const std::string exported = ReadBytes(file);
  const std::u16string section = GetParam() == Where::Registry ? u"[HKEY_CURRENT_USER\\" + Text(At(u"Exchange")) + u"]"
                                                               : u"[HKEY_CURRENT_USER\\Exchange]";
  std::string sectionBytes;
  for (char16_t c : section) sectionBytes += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
  EXPECT_NE(exported.find(sectionBytes), std::string::npos);

  C_REGKEY target;
  Open(&target, u"Imported", C_REGKEY::READ_WRITE, true);
  CregkeyImport(&target, LibraryPath(file));
  ASSERT_FALSE(C_ERROR::Is());
  const std::u16string imported = Text(At(u"Imported"));
  EXPECT_EQ(Stored(Parent(), imported, u"Fields"), std::make_pair(DWORD{REG_BINARY}, kStoredFields));
  EXPECT_EQ(Stored(Parent(), imported, u"Text"), Stored(Parent(), Text(At(u"Exchange")), u"Text"));
  EXPECT_EQ(Stored(Parent(), imported + u"\\Child", u"").first, DWORD{REG_SZ});
}

INSTANTIATE_TEST_SUITE_P(RealRegistryAndHive, RegistryKeyTest, testing::Values(Where::Registry, Where::Hive),
                         [](const testing::TestParamInfo<Where>& info) {
                           return info.param == Where::Registry ? std::string("Registry") : std::string("Hive");
                         });

// The real registry only --------------------------------------------------------------

class RegistryTest : public testing::Test {
 protected:
  void SetUp() override { base_ = u"Software\\" + UniqueName(u"QorcTest-"); }
  void TearDown() override {
    RegDeleteTreeW(HKEY_CURRENT_USER, Wide(base_));
    C_ERROR::ClearPending();
  }
  std::wstring RegPath() const { return L"HKCU\\" + std::wstring(Wide(base_)); }

  std::u16string base_;
};

TEST_F(RegistryTest, RootsAreTheRegistrysOwnFromTheStart) {
  // No wiring: USER is HKEY_CURRENT_USER, and InitUser keeps it.
  C_REGKEY::InitUser(nullptr);
  C_REGKEY key;
  key.Open(C_REGKEY::USER, C_STRING(base_.c_str()), C_REGKEY::WRITE, true);
  key.SetEntry(u"Root");
  key.Write(1);
  key.Close();
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(Stored(HKEY_CURRENT_USER, base_, u"Root").second, std::string("\x01\0\0\0", 4));
  C_REGKEY machine;
  machine.Open(C_REGKEY::MACHINE, u"Software", C_REGKEY::READ, false);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_TRUE(machine.IsOpened());
  EXPECT_TRUE(C_REGKEY::DefaultStorePath(C_REGKEY::USER).IsVoid());
  // A store file that is not a hive is refused.
  TempDir dir;
  const std::string garbage = dir.File("garbage.hive");
  WriteBytes(garbage, "this is no hive");
  EXPECT_EQ(C_REGKEY::OpenStore(LibraryPath(garbage)), nullptr);
  EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
  EXPECT_EQ(ReadBytes(garbage), "this is no hive");
}

TEST_F(RegistryTest, EntriesWrittenByTheLibraryAreThoseOfRegExeAndTheOtherWayRound) {
  C_REGKEY key;
  key.Open(C_REGKEY::USER, C_STRING(base_.c_str()), C_REGKEY::READ_WRITE, true);
  key.SetEntry(u"Fields");
  key.Write(5);
  key.Write(C_STRING(u"ab"));
  key.Write(C_BOOL(true));
  key.SetEntry(u"Name");
  key.WriteReadableString(u"plain text");
  key.Close();
  ASSERT_FALSE(C_ERROR::Is());

  std::string output;
  ASSERT_EQ(RunProgram(L"reg.exe query " + RegPath() + L" /v Fields", &output), 0) << output;
  EXPECT_NE(output.find("Fields    REG_BINARY    " + Hex(kStoredFields)), std::string::npos) << output;
  ASSERT_EQ(RunProgram(L"reg.exe query " + RegPath() + L" /v Name", &output), 0) << output;
  EXPECT_NE(output.find("Name    REG_SZ    plain text"), std::string::npos) << output;

  ASSERT_EQ(RunProgram(L"reg.exe add " + RegPath() + L" /v Added /t REG_BINARY /d 2A00000003000000780079007A0001 /f",
                       &output),
            0)
      << output;
  ASSERT_EQ(RunProgram(L"reg.exe add " + RegPath() + L" /v Said /t REG_SZ /d \"-42\" /f", &output), 0) << output;
  key.Open(C_REGKEY::USER, C_STRING(base_.c_str()), C_REGKEY::READ, false);
  int number = 0;
  C_STRING text;
  C_BOOL flag = false;
  key.SetEntry(u"Added");
  key.Read(&number);
  key.Read(&text);
  key.Read(&flag);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(number, 42);
  EXPECT_EQ(Text(text), u"xyz");
  EXPECT_TRUE(flag);
  key.SetEntry(u"Said");
  key.Read(&number);
  EXPECT_EQ(number, -42);
  // reg.exe stores what it was given, without the library's padding.
  EXPECT_EQ(Stored(HKEY_CURRENT_USER, base_, u"Added").second.size(), 15u);
}

// The writer run by the two processes of the next test, in a process of its
// own: QORC_REGKEY_WRITER names the key, the prefix of the entries and their count.
TEST(RegistryWriter, DISABLED_WritesEntries) {
  wchar_t value[512];
  const DWORD length = GetEnvironmentVariableW(L"QORC_REGKEY_WRITER", value, 512);
  ASSERT_GT(length, 0u);
  const std::wstring order(value, length);
  const std::size_t first = order.find(L'|');
  const std::size_t second = order.find(L'|', first + 1);
  const std::wstring path = order.substr(0, first);
  const std::wstring prefix = order.substr(first + 1, second - first - 1);
  const int count = std::stoi(order.substr(second + 1));
  for (int i = 0; i < count && !C_ERROR::Is(); ++i) {
    C_REGKEY key;
    key.Open(C_REGKEY::USER, C_STRING(reinterpret_cast<const char16_t*>(path.c_str())), C_REGKEY::READ_WRITE, true);
    key.SetEntry(C_STRING(reinterpret_cast<const char16_t*>((prefix + std::to_wstring(i)).c_str())));
    key.Write(i);
    key.Close();
  }
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(RegistryTest, TwoProcessesWritingOneKeyLoseNoWrite) {
  constexpr int kEach = 150;
  wchar_t self[MAX_PATH];
  ASSERT_GT(GetModuleFileNameW(nullptr, self, MAX_PATH), 0u);
  const std::wstring command =
      L"\"" + std::wstring(self) +
      L"\" --gtest_also_run_disabled_tests --gtest_filter=RegistryWriter.DISABLED_WritesEntries";
  std::vector<PROCESS_INFORMATION> writers;
  for (const wchar_t* prefix : {L"a", L"b"}) {
    SetEnvironmentVariableW(L"QORC_REGKEY_WRITER",
                            (std::wstring(Wide(base_)) + L"|" + prefix + L"|" + std::to_wstring(kEach)).c_str());
    // The writers' reports stay out of this test's output.
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    PROCESS_INFORMATION process = {};
    std::wstring line = command;
    ASSERT_TRUE(CreateProcessW(nullptr, &line[0], nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                               &process));
    writers.push_back(process);
  }
  SetEnvironmentVariableW(L"QORC_REGKEY_WRITER", nullptr);
  for (const PROCESS_INFORMATION& process : writers) {
    EXPECT_EQ(WaitForSingleObject(process.hProcess, 120000), WAIT_OBJECT_0);
    DWORD code = 1;
    GetExitCodeProcess(process.hProcess, &code);
    EXPECT_EQ(code, 0u);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
  }
  C_REGKEY key;
  key.Open(C_REGKEY::USER, C_STRING(base_.c_str()), C_REGKEY::READ, false);
  EXPECT_EQ(Names(key).size(), 2u * kEach);
  for (int i = 0; i < kEach; i += 37) {
    for (const char16_t* prefix : {u"a", u"b"}) {
      int number = -1;
      key.SetEntry(C_STRING(prefix) + C_STRING(i));
      key.Read(&number);
      EXPECT_EQ(number, i);
    }
  }
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(RegistryTest, GetEnvFallsBackOnTheUsersEnvironmentKey) {
  const std::u16string name = UniqueName(u"QORC_TEST_");
  const C_STRING variable(name.c_str());
  C_REGKEY key;
  key.Open(C_REGKEY::USER, u"Environment", C_REGKEY::READ_WRITE, true);
  key.SetEntry(variable);
  key.WriteReadableString(u"from the registry");
  key.Close();
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(Text(variable.GetEnv()), u"from the registry");
  // The process environment comes first.
  (variable + C_STRING(u"=from the process")).PutEnv();
  EXPECT_EQ(Text(variable.GetEnv()), u"from the process");
  (variable + C_STRING(u"=")).PutEnv();
  EXPECT_EQ(Text(variable.GetEnv()), u"from the registry");
  HKEY environment = nullptr;
  ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, L"Environment", 0, KEY_SET_VALUE, &environment), ERROR_SUCCESS);
  RegDeleteValueW(environment, Wide(name));
  RegCloseKey(environment);
  EXPECT_TRUE(variable.GetEnv().IsVoid());
  EXPECT_FALSE(C_ERROR::Is());
}

}  // namespace
