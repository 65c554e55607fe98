#include <tuple>

#include "device/settings_store_fixture.h"

namespace {

std::string Utf16(const std::u16string& text) {
  std::string bytes;
  for (char16_t c : text) bytes += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
  return bytes;
}
std::string RegBytes(const std::u16string& text) { return "\xFF\xFE" + Utf16(text); }

// Both suites run against every kind of store, each test with two stores of its kind.
class RegkeyExchangeTest : public testing::TestWithParam<StoreKind> {
 protected:
  void SetUp() override {
    MAKE_STORE_OR_SKIP(firstStore, GetParam(), dir, "first.sqlite");
    MAKE_STORE_OR_SKIP(secondStore, GetParam(), dir, "second.sqlite");
  }
  TempDir dir;
  StoreUnderTest firstStore, secondStore;
  const StoreUnderTest& first = firstStore;
  const StoreUnderTest& second = secondStore;

  void OpenExchange(const StoreUnderTest& store, C_REGKEY* key, C_REGKEY::MODE mode = C_REGKEY::READ_WRITE) {
    key->Open(store.Open(), u"Software\\Exchange", mode, true);
  }
};

INSTANTIATE_TEST_SUITE_P(Stores, RegkeyExchangeTest, testing::Values(StoreKind::Sqlite, StoreKind::Postgres),
                         StoreKindName);

const char16_t kForeignFile[] =
    u"Windows Registry Editor Version 5.00\r\n\r\n"
    u"; written by hand, as a Windows user would\r\n"
    u"[HKEY_CURRENT_USER\\Software\\Vendor]\r\n"
    u"\"Dword\"=dword:0000002a\r\n"
    u"\"Expand\"=hex(2):25,00,50,00,00,00\r\n"
    u"\"Long\"=hex:00,01,02,\\\r\n"
    u"  03,04\r\n"
    u"\"Stale\"=-\r\n"
    u"@=\"default\"\r\n\r\n"
    u"[HKEY_CURRENT_USER\\Software\\Vendor\\Child]\r\n"
    u"\"x\" = \"y \\\"quoted\\\" \\\\ back\"\r\n\r\n"
    u"[-HKEY_CURRENT_USER\\Software\\Vendor\\Old]\r\n";

TEST_P(RegkeyExchangeTest, ForeignFileImportsAndExportsBackByteForByte) {
  C_REGKEY key;
  OpenExchange(first, &key);
  C_REGKEY().Open(&key, u"Old\\Inner", C_REGKEY::WRITE, true);
  Put(key, u"Stale", 1);
  Put(key, u"Kept", 2);
  key.Close();
  OpenExchange(first, &key);
  const std::string foreign = dir.File("foreign.reg");
  WriteBytes(foreign, RegBytes(kForeignFile));
  CregkeyImport(&key, LibraryPath(foreign));
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(Names(key), (NameList{u"Kept", u"Dword", u"Expand", u"Long", u""}));
  EXPECT_EQ(Names(key, true), NameList{u"Child"});
  EXPECT_EQ(Text(ReadEntry<C_STRING>(key, C_STRING::VOID)), u"default");  // stored as WriteReadableString would
  key.Close();
  OpenExchange(first, &key, C_REGKEY::READ);
  key.SetEntry(u"Dword");  // neither text nor binary: not selectable
  EXPECT_TRUE(ErrorIsInternal());
  const std::string rows = first.AllEntries();
  for (const char* row : {"|4|2A000000\n", "|2|250050000000\n", "|3|0001020304\n"}) {
    EXPECT_NE(rows.find(row), std::string::npos) << rows;
  }
  C_REGKEY child;
  child.Open(&key, u"Child", C_REGKEY::READ, false);
  EXPECT_EQ(Text(ReadEntry<C_STRING>(child, u"X")), u"y \"quoted\" \\ back");
  child.Close();
  key.Close();
  EXPECT_FALSE(C_ERROR::Is());

  OpenExchange(first, &key);
  PutTexts(key, {{C_STRING::VOID, u"root value"},
                 {u"Odd", u"ab"},  // 6 bytes, stored as 8
                 {u"Empty", C_STRING::VOID},
                 {u"Lines", u"a\r\nb"},  // kept as hex(1): a string cannot hold a line end
                 {u"Say \"hi\" \\ there", u"caf\u00e9 \u4e2d \"q\" \\"}});
  WriteFields(key);
  C_REGKEY deeper;
  deeper.Open(&key, u"Sub\\Deeper", C_REGKEY::WRITE, true);
  deeper.SetEntry(u"Big");
  for (int i = 0; i < 75; ++i) deeper.Write(i * 7919);
  deeper.Close();
  key.Close();
  ASSERT_FALSE(C_ERROR::Is());
  key.Open(first.Open(), u"software\\exchange", C_REGKEY::READ, false);
  const std::string exported = dir.File("first.reg");
  CregkeyExport(&key, LibraryPath(exported));
  ASSERT_FALSE(C_ERROR::Is());
  const std::string bytes = ReadBytes(exported);
  EXPECT_EQ(bytes.substr(0, 82), RegBytes(u"Windows Registry Editor Version 5.00\r\n\r\n"));
  for (const char16_t* line :
       {u"\r\n[HKEY_CURRENT_USER\\Software\\Exchange]\r\n", u"\r\n@=\"root value\"\r\n",
        u"\r\n\"Fields\"=hex:05,00,00,00,02,00,00,00,61,00,62,00,01,00,00,00\r\n", u"\r\n\"Odd\"=\"ab\"\r\n",
        u"\r\n\"Empty\"=\"\"\r\n", u"\r\n\"Dword\"=dword:0000002a\r\n",
        u"\r\n\"Lines\"=hex(1):61,00,0d,00,0a,00,62,00,00,00,00,00\r\n",
        u"\r\n\"Say \\\"hi\\\" \\\\ there\"=\"caf\u00e9 \u4e2d \\\"q\\\" \\\\\"\r\n",
        u"\r\n[HKEY_CURRENT_USER\\Software\\Exchange\\Sub\\Deeper]\r\n", u",\\\r\n  "}) {
    EXPECT_NE(bytes.find(Utf16(line)), std::string::npos) << testing::PrintToString(std::u16string(line));
  }

  C_REGKEY copy;
  OpenExchange(second, &copy);
  CregkeyImport(&copy, LibraryPath(exported));
  const std::string again = dir.File("second.reg");
  CregkeyExport(&copy, LibraryPath(again));
  copy.Close();
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(ReadBytes(again), bytes);
  EXPECT_EQ(second.AllEntries(), first.AllEntries());

  // The roots export whole, named by their store.
  EXPECT_EQ(RunInChild([&] {
              C_REGKEY::InitMachine(second.Open());
              CregkeyExport(C_REGKEY::MACHINE, LibraryPath(dir.File("machine.reg")));
              return C_ERROR::Is() ? 1 : 0;
            }),
            0);
  EXPECT_NE(ReadBytes(dir.File("machine.reg"))
                .find(Utf16(u"\r\n[HKEY_LOCAL_MACHINE]\r\n\r\n[HKEY_LOCAL_MACHINE\\Software]\r\n")),
            std::string::npos);
}

TEST_P(RegkeyExchangeTest, MalformedFilesImportNothingAndNameTheLine) {
  C_REGKEY key;
  OpenExchange(first, &key);
  Put(key, u"Before", 1);
  key.Close();
  OpenExchange(first, &key);
  const std::string before = first.AllEntries();
  const std::u16string head =
      u"Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\A]\r\n\"ok\"=hex:01\r\n";
  const std::tuple<std::string, int> cases[] = {
      {RegBytes(u"Windows Registry Editor Version 6.00\r\n"), 1},
      {RegBytes(u"Windows Registry Editor Version 5.00\r\n[-HKEY_CURRENT_USER\\A\\B]\r\n"), 2},  // nothing to be about
      {RegBytes(u"Windows Registry Editor Version 5.00\r\n[-HKEY_CURRENT_USER\\B\\C]\r\n[HKEY_CURRENT_USER\\A]\r\n"),
       2},                                                          // deleted outside the key that comes later
      {RegBytes(head + u"\r\n[HKEY_LOCAL_MACHINE\\A\\B]\r\n"), 6},  // under another root
      {RegBytes(head + u"\"bad\"=hex:zz\r\n"), 5},
      {RegBytes(head + u"\r\n[HKEY_CURRENT_USER\\B]\r\n"), 6},  // outside the first key
      {RegBytes(head + u"\"open=\"text\r\n"), 5},
      {RegBytes(head + u"\"n\"=dword:123456789\r\n"), 5},
      {RegBytes(head + u"\"n\"=hex:01,\\"), 5},
      {RegBytes(head + u"\"n\"=\"a\\b\"\r\n"), 5},
      {RegBytes(head + u"\r\n[-HKEY_CURRENT_USER\\A]\r\n"), 6},
      {RegBytes(u"Windows Registry Editor Version 5.00\r\n\"x\"=\"y\"\r\n"), 2},
      {RegBytes(head) + "!", 5},  // half a character at the end
  };
  const std::string file = dir.File("bad.reg");
  for (const auto& [bytes, line] : cases) {
    WriteBytes(file, bytes);
    CregkeyImport(&key, LibraryPath(file));
    EXPECT_EQ(C_ERROR::GetPending(), &CerrFileContainsInvalidCode) << bytes;
    const std::u16string extra = Text(C_ERROR::GetPendingExtra());
    C_ERROR::ClearPending();
    const std::u16string where = Text(LibraryPath(file, true)) + u", line " + Text(C_STRING(line)) + u": ";
    EXPECT_EQ(extra.substr(0, where.size()), where) << testing::PrintToString(extra);
    EXPECT_GT(extra.size(), where.size() + 10);
    EXPECT_EQ(first.AllEntries(), before);
  }

  // Deletions may come before the key the file is about.
  C_REGKEY().Open(&key, u"Gone\\Inner", C_REGKEY::WRITE, true);
  WriteBytes(file,
             "Windows Registry Editor Version 5.00\n[-HKEY_CURRENT_USER\\Software\\Exchange\\Gone]\n"
             "[HKEY_CURRENT_USER\\Software\\Exchange]\n\"After\"=dword:7\n");
  CregkeyImport(&key, LibraryPath(file));
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(Names(key, true), NameList{});
  EXPECT_EQ(Names(key), (NameList{u"Before", u"After"}));

  CregkeyImport(&key, LibraryPath(dir.File("absent.reg")));
  EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
  CregkeyExport(&key, LibraryPath(dir.File("no/such/folder.reg")));
  EXPECT_EQ(TakeError(), &CerrFileCannotCreate);
  CregkeyExport(&key, C_STRING(u"/dev/full"));
  EXPECT_EQ(TakeError(), &CerrFileNotEnoughSpace);
  C_REGKEY closed;
  CregkeyExport(&closed, LibraryPath(file));
  EXPECT_EQ(TakeError(), &CerrInternalError);
}

}  // namespace
