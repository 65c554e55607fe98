#include <sqlite3.h>

#include <tuple>

#include "file/file_test_util.h"
#include "support/child_process.h"

namespace {

std::string RegBytes(const std::u16string& text) {
  std::string bytes("\xFF\xFE", 2);
  for (char16_t c : text) {
    bytes.push_back(static_cast<char>(c & 0xFF));
    bytes.push_back(static_cast<char>(c >> 8));
  }
  return bytes;
}

std::u16string RegText(const std::string& bytes) {
  std::u16string text;
  for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
    text.push_back(
        static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) | (static_cast<unsigned char>(bytes[i + 1]) << 8)));
  }
  return text;
}

// Every entry of a store, by key name, entry name, type and data, sorted.
std::string AllEntries(const std::string& database) {
  sqlite3* db = nullptr;
  std::string out;
  sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(db,
                     "SELECT hex(k.name) || '|' || hex(e.name) || '|' || e.type || '|' || hex(e.data) AS row "
                     "FROM entries e JOIN keys k ON k.id = e.key ORDER BY row",
                     -1, &statement, nullptr);
  while (sqlite3_step(statement) == SQLITE_ROW) {
    out += reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    out += '\n';
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  return out;
}

class RegkeyExchangeTest : public testing::Test {
 protected:
  TempDir dir;
  const std::string first = dir.File("first.sqlite");
  const std::string second = dir.File("second.sqlite");

  // Opens Software\Exchange of a store for reading and writing.
  void OpenExchange(const std::string& database, C_REGKEY* key) {
    key->Open(C_REGKEY::OpenStore(LibraryPath(database)), C_STRING(u"Software\\Exchange"), C_REGKEY::READ_WRITE, true);
  }
  void Import(C_REGKEY* key, const std::u16string& text) {
    const std::string file = dir.File("in.reg");
    WriteBytes(file, RegBytes(text));
    CregkeyImport(key, LibraryPath(file));
  }
};

const char16_t kForeignFile[] =
    u"Windows Registry Editor Version 5.00\r\n"
    u"\r\n"
    u"; written by hand, as a Windows user would\r\n"
    u"[HKEY_CURRENT_USER\\Software\\Vendor]\r\n"
    u"\"Dword\"=dword:0000002a\r\n"
    u"\"Expand\"=hex(2):25,00,50,00,00,00\r\n"
    u"\"Long\"=hex:00,01,02,\\\r\n"
    u"  03,04\r\n"
    u"\"Stale\"=-\r\n"
    u"@=\"default\"\r\n"
    u"\r\n"
    u"[HKEY_CURRENT_USER\\Software\\Vendor\\Child]\r\n"
    u"\"x\" = \"y \\\"quoted\\\" \\\\ back\"\r\n"
    u"\r\n"
    u"[-HKEY_CURRENT_USER\\Software\\Vendor\\Old]\r\n";

TEST_F(RegkeyExchangeTest, ForeignFileIsImportedWithItsTypesAndDeletions) {
  C_REGKEY key;
  OpenExchange(first, &key);
  C_REGKEY old;
  old.Open(&key, C_STRING(u"Old\\Inner"), C_REGKEY::WRITE, true);
  old.Close();
  key.SetEntry(C_STRING(u"Stale"));
  key.Write(1);
  key.SetEntry(C_STRING(u"Kept"));
  key.Write(2);
  key.Close();
  OpenExchange(first, &key);
  Import(&key, kForeignFile);
  ASSERT_FALSE(C_ERROR::Is());

  int count = 0;
  C_STRING* names = nullptr;
  key.GetEntries(&count, &names);
  std::vector<std::u16string> entries;
  for (int i = 0; i < count; ++i) entries.push_back(Text(names[i]));
  delete[] names;
  EXPECT_EQ(entries, (std::vector<std::u16string>{u"Kept", u"Dword", u"Expand", u"Long", u""}));
  key.GetSubkeys(&count, &names);
  ASSERT_EQ(count, 1);
  EXPECT_EQ(Text(names[0]), u"Child");
  delete[] names;
  // Text entries hold what WriteReadableString would have stored.
  C_STRING text;
  key.SetEntry(C_STRING::VOID);
  key.Read(&text);
  EXPECT_EQ(Text(text), u"default");
  key.Close();
  key.Open(C_REGKEY::OpenStore(LibraryPath(first)), C_STRING(u"Software\\Exchange"), C_REGKEY::READ, false);
  key.SetEntry(C_STRING(u"Dword"));  // neither text nor binary: not selectable
  EXPECT_EQ(C_ERROR::GetPending(), &CerrInternalError);
  C_ERROR::ClearPending();
  key.Close();
  const std::string rows = AllEntries(first);
  EXPECT_NE(rows.find("|4|2A000000\n"), std::string::npos) << rows;
  EXPECT_NE(rows.find("|2|250050000000\n"), std::string::npos) << rows;
  EXPECT_NE(rows.find("|3|0001020304\n"), std::string::npos) << rows;

  key.Open(C_REGKEY::OpenStore(LibraryPath(first)), C_STRING(u"Software\\Exchange\\Child"), C_REGKEY::READ, false);
  key.SetEntry(C_STRING(u"X"));
  key.Read(&text);
  EXPECT_EQ(Text(text), u"y \"quoted\" \\ back");
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(RegkeyExchangeTest, ExportedKeysImportBackByteForByte) {
  C_REGKEY key;
  OpenExchange(first, &key);
  Import(&key, kForeignFile);
  key.SetEntry(C_STRING::VOID);
  key.WriteReadableString(C_STRING(u"root value"));
  key.SetEntry(C_STRING(u"Fields"));
  key.Write(5);
  key.Write(C_STRING(u"ab"));
  key.Write(C_BOOL(true));
  key.SetEntry(C_STRING(u"Odd"));
  key.WriteReadableString(C_STRING(u"ab"));  // 6 bytes, stored as 8
  key.SetEntry(C_STRING(u"Empty"));
  key.WriteReadableString(C_STRING::VOID);
  key.SetEntry(C_STRING(u"Lines"));
  key.WriteReadableString(C_STRING(u"a\r\nb"));  // kept as hex(1): a string cannot hold a line end
  key.SetEntry(C_STRING(u"Say \"hi\" \\ there"));
  key.WriteReadableString(C_STRING(u"caf\u00e9 \u4e2d \"q\" \\"));
  key.Close();
  C_REGKEY deeper;
  deeper.Open(C_REGKEY::OpenStore(LibraryPath(first)), C_STRING(u"Software\\Exchange\\Sub\\Deeper"), C_REGKEY::WRITE,
              true);
  deeper.SetEntry(C_STRING(u"Big"));
  for (int i = 0; i < 75; ++i) deeper.Write(i * 7919);
  deeper.Close();
  ASSERT_FALSE(C_ERROR::Is());

  key.Open(C_REGKEY::OpenStore(LibraryPath(first)), C_STRING(u"software\\exchange"), C_REGKEY::READ, false);
  const std::string exported = dir.File("first.reg");
  CregkeyExport(&key, LibraryPath(exported));
  ASSERT_FALSE(C_ERROR::Is());
  const std::string bytes = ReadBytes(exported);
  ASSERT_EQ(bytes.substr(0, 2), "\xFF\xFE");
  const std::u16string text = RegText(bytes);
  EXPECT_EQ(text.substr(0, 40), u"Windows Registry Editor Version 5.00\r\n\r\n");
  for (const char16_t* line :
       {u"\r\n[HKEY_CURRENT_USER\\Software\\Exchange]\r\n", u"\r\n@=\"root value\"\r\n",
        u"\r\n\"Fields\"=hex:05,00,00,00,02,00,00,00,61,00,62,00,01,00,00,00\r\n", u"\r\n\"Odd\"=\"ab\"\r\n",
        u"\r\n\"Empty\"=\"\"\r\n", u"\r\n\"Dword\"=dword:0000002a\r\n",
        u"\r\n\"Lines\"=hex(1):61,00,0d,00,0a,00,62,00,00,00,00,00\r\n",
        u"\r\n\"Say \\\"hi\\\" \\\\ there\"=\"caf\u00e9 \u4e2d \\\"q\\\" \\\\\"\r\n",
        u"\r\n[HKEY_CURRENT_USER\\Software\\Exchange\\Sub\\Deeper]\r\n", u",\\\r\n  "}) {
    EXPECT_NE(text.find(line), std::u16string::npos) << testing::PrintToString(std::u16string(line));
  }

  C_REGKEY copy;
  OpenExchange(second, &copy);
  CregkeyImport(&copy, LibraryPath(exported));
  const std::string again = dir.File("second.reg");
  CregkeyExport(&copy, LibraryPath(again));
  copy.Close();
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(ReadBytes(again), bytes);
  EXPECT_EQ(AllEntries(second), AllEntries(first));

  // The roots export whole, named by their store.
  EXPECT_EQ(RunInChild([&] {
              C_REGKEY::InitMachine(C_REGKEY::OpenStore(LibraryPath(second)));
              CregkeyExport(C_REGKEY::MACHINE, LibraryPath(dir.File("machine.reg")));
              return C_ERROR::Is() ? 1 : 0;
            }),
            0);
  const std::u16string machine = RegText(ReadBytes(dir.File("machine.reg")));
  EXPECT_NE(machine.find(u"\r\n[HKEY_LOCAL_MACHINE]\r\n\r\n[HKEY_LOCAL_MACHINE\\Software]\r\n"), std::u16string::npos);
}

TEST_F(RegkeyExchangeTest, MalformedFilesImportNothingAndNameTheLine) {
  C_REGKEY key;
  OpenExchange(first, &key);
  key.SetEntry(C_STRING(u"Before"));
  key.Write(1);
  key.Close();
  OpenExchange(first, &key);
  const std::string before = AllEntries(first);
  const std::u16string head =
      u"Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\A]\r\n\"ok\"=hex:01\r\n";
  const std::tuple<std::string, int> cases[] = {
      {std::string("Windows Registry Editor Version 5.00\r\n"), 1},  // no byte-order mark
      {RegBytes(u"REGEDIT4\r\n"), 1},
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
    EXPECT_EQ(AllEntries(first), before);
  }

  CregkeyImport(&key, LibraryPath(dir.File("absent.reg")));
  EXPECT_EQ(C_ERROR::GetPending(), &CerrFileCannotOpen);
  C_ERROR::ClearPending();
  CregkeyExport(&key, LibraryPath(dir.File("no/such/folder.reg")));
  EXPECT_EQ(C_ERROR::GetPending(), &CerrFileCannotCreate);
  C_ERROR::ClearPending();
  CregkeyExport(&key, C_STRING(u"/dev/full"));
  EXPECT_EQ(C_ERROR::GetPending(), &CerrFileNotEnoughSpace);
  C_ERROR::ClearPending();
  C_REGKEY closed;
  CregkeyExport(&closed, LibraryPath(file));
  EXPECT_EQ(C_ERROR::GetPending(), &CerrInternalError);
}

}  // namespace
