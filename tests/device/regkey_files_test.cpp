// .reg files as the registry editor and people write them, imported into the
// roots they name: the user's and the machine's stores, each a real store
// file. The roots are set once per process, so every import runs in a child
// process of its own; the stores are then read directly through SQLite.
#include <algorithm>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <tuple>

#include "device/regkey_test_util.h"
#include "foundation/library.h"

namespace {

std::string Utf16(const std::u16string& text) {
  std::string bytes;
  for (char16_t c : text) bytes += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
  return bytes;
}

std::string Utf8(const std::u16string& text) {
  char* bytes = C_STRING(static_cast<int>(text.size()), text.data()).GetNewUTF8();
  std::string out(bytes);
  delete[] bytes;
  return out;
}

std::u16string FromHex(const std::string& hex) {
  std::u16string units;
  for (std::size_t i = 0; i + 3 < hex.size(); i += 4) {
    units.push_back(static_cast<char16_t>(std::stoi(hex.substr(i, 2), nullptr, 16) |
                                          (std::stoi(hex.substr(i + 2, 2), nullptr, 16) << 8)));
  }
  return units;
}

// Every key and entry of a store, one sorted line each: "path|name|type|data"
// with path and name readable and data in hexadecimal; a key without entries
// is "path|-".
std::string Contents(const std::string& database) {
  std::istringstream rows(
      Sql(database,
          "WITH RECURSIVE p(id, path) AS (SELECT id, '' FROM keys WHERE parent IS NULL UNION ALL "
          "SELECT k.id, p.path || CASE WHEN p.path = '' THEN '' ELSE '5C00' END || hex(k.name) FROM keys k JOIN p "
          "ON k.parent = p.id) SELECT group_concat(row, char(10)) FROM (SELECT p.path || '|' || "
          "coalesce(hex(e.name) || '|' || e.type || '|' || hex(e.data), '-') AS row FROM p LEFT JOIN entries e "
          "ON e.key = p.id)"));
  std::vector<std::string> lines;
  for (std::string row; std::getline(rows, row);) {
    std::istringstream fields(row);
    std::string path, name, rest;
    std::getline(fields, path, '|');
    std::getline(fields, name, '|');
    std::getline(fields, rest);
    lines.push_back(Utf8(FromHex(path)) + "|" + (name == "-" ? name : Utf8(FromHex(name)) + "|" + rest));
  }
  std::sort(lines.begin(), lines.end());
  std::string out;
  for (const std::string& line : lines) out += line + "\n";
  return out;
}

// The store file as it lies on disk, write-ahead log included.
std::string StoreBytes(const std::string& database) { return ReadBytes(database) + "|" + ReadBytes(database + "-wal"); }

class RegkeyFilesTest : public testing::Test {
 protected:
  TempDir dir;
  const std::string user = dir.File("user.sqlite");
  const std::string machine = dir.File("machine.sqlite");
  const std::string file = dir.File("import.reg");

  // Runs `body` in a child whose roots are the stores (an empty path leaves
  // a root unset); returns the error it left: "" when none, else the name of
  // the descriptor and the extra text.
  std::string InChild(const std::function<void()>& body, const std::string& userStore,
                      const std::string& machineStore) {
    const std::string result = dir.File("child.out");
    std::remove(result.c_str());
    const int status = RunInChild([&] {
      if (!userStore.empty()) C_REGKEY::InitUser(C_REGKEY::OpenStore(LibraryPath(userStore)));
      if (!machineStore.empty()) C_REGKEY::InitMachine(C_REGKEY::OpenStore(LibraryPath(machineStore)));
      body();
      const C_ERROR* pending = C_ERROR::GetPending();
      const char* kind = pending == &CerrFileContainsInvalidCode ? "invalid: "
                         : pending == &CerrInternalError         ? "internal: "
                                                                 : "other: ";
      WriteBytes(result, pending != nullptr ? kind + Utf8(Text(C_ERROR::GetPendingExtra())) : std::string());
      C_ERROR::ClearPending();
      Cclose();
      return 0;
    });
    EXPECT_EQ(status, 0);
    return ReadBytes(result);
  }
  // Imports the files in a child whose roots are the stores, 8-bit files
  // being UTF-8 or else in the library code page `codePage`.
  std::string ImportFiles(const std::vector<std::string>& files, const std::string& userStore,
                          const std::string& machineStore, int codePage = 65001) {
    return InChild(
        [&] {
          qorc::SetLibraryCodePage(codePage);
          for (const std::string& name : files) CregkeyImport(LibraryPath(name));
        },
        userStore, machineStore);
  }
  // Imports a file of these bytes into both roots.
  std::string Import(const std::string& bytes, int codePage = 65001) {
    WriteBytes(file, bytes);
    return ImportFiles({file}, user, machine, codePage);
  }
  std::string Where(int line) { return Utf8(Text(LibraryPath(file, true))) + ", line " + std::to_string(line) + ": "; }
};

// A file as people write them: comments, blank lines holding blanks, blanks
// after "]" and around lines, roots in any case and order, a key named twice,
// deletions first and later, HKEY_CLASSES_ROOT, continued hexadecimal data.
const char kPeoplesFile[] =
    "; tweaks collected by hand\n"
    "[-HKEY_CURRENT_USER\\Software\\Vendor\\Old]\n"
    "\n"
    "[hkey_local_machine\\SOFTWARE\\Vendor]  \t\n"
    "\"Installed\"=dword:00000001\n"
    "   \n"
    "\t[HKEY_CURRENT_USER\\Software\\Vendor]\n"
    "@=\"default text\"\n"
    "  \"Path\" = \"C:\\\\Program Files\\\\Vendor\"  \n"
    "\"Expand\"=hex(2):25,00,50,00,00,00\n"
    "\"Blob\"=hex:00,01,02,\\\n"
    "  03,04,\\\n"
    "\t05\n"
    "; the stale entry goes\n"
    "\"Stale\"=-\n"
    "[HKEY_CLASSES_ROOT\\.vnd]\n"
    "@=\"Vendor.Document\"\n"
    "[HKEY_CURRENT_USER\\Software\\Vendor]\n"
    "\"Second\"=hex(b):01,00,00,00,00,00,00,00\n"
    "[-HKEY_LOCAL_MACHINE\\Software\\Vendor\\Legacy]\n"
    "[HKEY_CURRENT_USER\\Software\\Vendor\\Caf\xC3\xA9]\n"
    "\"Name\"=\"\xC3\xA9t\xC3\xA9 \xE2\x82\xAC\"";  // no line end after the last line

// What that file leaves, with the keys it deletes made beforehand.
const char kPeoplesUser[] =
    "Software\\Vendor\\Caf\xC3\xA9|Name|1|E9007400E9002000AC200000\n"
    "Software\\Vendor|Blob|3|000102030405\n"
    "Software\\Vendor|Expand|2|250050000000\n"
    "Software\\Vendor|Kept|1|6B000000\n"
    "Software\\Vendor|Path|1|"
    "43003A005C00500072006F006700720061006D002000460069006C00650073005C00560065006E0064006F0072000000\n"
    "Software\\Vendor|Second|11|0100000000000000\n"
    "Software\\Vendor||1|640065006600610075006C0074002000740065007800740000000000\n"
    "Software|-\n"
    "|-\n";

// The same file in every form the editor and editors save it in.
std::vector<std::pair<std::string, std::string>> PeoplesFileForms() {
  const std::string lf = std::string("Windows Registry Editor Version 5.00\n\n") + kPeoplesFile;
  std::string crlf;
  for (char c : lf) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
  C_STRING text;
  text.FromUTF8(crlf.c_str());
  const std::u16string units = Text(text);
  return {{"UTF-16 LE, CR LF", "\xFF\xFE" + Utf16(units)},
          {"UTF-16 LE, LF", "\xFF\xFE" + Utf16(Text(LibraryPath(lf)))},
          {"UTF-8 with a mark, CR LF", "\xEF\xBB\xBF" + crlf},
          {"UTF-8 without a mark, LF", lf}};
}

void MakeDeletedKeys(const std::string& userStore, const std::string& machineStore) {
  C_REGKEY key;
  key.Open(C_REGKEY::OpenStore(LibraryPath(userStore)), u"Software\\Vendor\\Old\\Inner", C_REGKEY::WRITE, true);
  key.Close();
  key.Open(C_REGKEY::OpenStore(LibraryPath(userStore)), u"Software\\Vendor", C_REGKEY::WRITE, true);
  PutTexts(key, {{u"Stale", u"x"}, {u"Kept", u"k"}});
  key.Close();
  key.Open(C_REGKEY::OpenStore(LibraryPath(machineStore)), u"Software\\Vendor\\Legacy", C_REGKEY::WRITE, true);
  Put(key, u"Old", 1);
  key.Close();
}

TEST_F(RegkeyFilesTest, PeoplesFilesImportIntoTheRootsTheyNameInEveryForm) {
  std::string machineRows;
  for (const auto& [form, bytes] : PeoplesFileForms()) {
    SCOPED_TRACE(form);
    std::remove(user.c_str());
    std::remove(machine.c_str());
    InChild([&] { MakeDeletedKeys(user, machine); }, "", "");
    EXPECT_EQ(Import(bytes), "");
    EXPECT_EQ(Contents(user), kPeoplesUser);
    if (machineRows.empty()) machineRows = Contents(machine);
    EXPECT_EQ(Contents(machine), machineRows);
  }
  // The machine's keys, HKEY_CLASSES_ROOT's among them; the deleted key is gone with its entries.
  for (const char* row : {"Software\\Classes\\.vnd||1|", "Software\\Vendor|Installed|4|01000000\n"}) {
    EXPECT_NE(machineRows.find(row), std::string::npos) << machineRows;
  }
  EXPECT_EQ(machineRows.find("Legacy"), std::string::npos) << machineRows;
}

TEST_F(RegkeyFilesTest, Regedit4FilesAreTextInTheLibraryCodePage) {
  // As the old editor writes them: 8-bit text, hex(2) and hex(7) data as
  // 8-bit text too, which the registry keeps as UTF-16.
  const std::string bytes =
      "REGEDIT4\r\n\r\n"
      "[HKEY_CURRENT_USER\\Software\\Caf\xE9]\r\n"
      "\"Name\"=\"d\xE9j\xE0\"\r\n"
      "\"Expand\"=hex(2):25,e9,25,00\r\n"
      "\"Multi\"=hex(7):61,00,e0,00,00\r\n"
      "\"Raw\"=hex:e9\r\n";
  EXPECT_EQ(Import(bytes, 1252), "");
  EXPECT_EQ(Contents(user),
            "Software\\Caf\xC3\xA9|Expand|2|2500E90025000000\n"
            "Software\\Caf\xC3\xA9|Multi|7|61000000E00000000000\n"
            "Software\\Caf\xC3\xA9|Name|1|6400E9006A00E00000000000\n"
            "Software\\Caf\xC3\xA9|Raw|3|E9\n"
            "Software|-\n"
            "|-\n");
  // Nothing names the machine's root: its store is left alone.
  EXPECT_EQ(Contents(machine), "|-\n");
}

TEST_F(RegkeyFilesTest, ExportImportRoundTripThroughBothStores) {
  // Keys written by the library itself, and foreign entries from a file.
  InChild(
      [&] {
        MakeDeletedKeys(user, machine);
        C_REGKEY key;
        key.Open(C_REGKEY::USER, u"Software\\Library", C_REGKEY::WRITE, true);
        WriteFields(key);
        PutTexts(key, {{C_STRING::VOID, u"root value"}, {u"Odd", u"ab"}, {u"Lines", u"a\r\nb"}});
        key.Close();
        key.Open(C_REGKEY::MACHINE, u"Software\\Library\\Deep\\Deeper", C_REGKEY::WRITE, true);
        key.SetEntry(u"Big");
        for (int i = 0; i < 75; ++i) key.Write(i * 7919);
        key.Close();
      },
      user, machine);
  EXPECT_EQ(Import(PeoplesFileForms()[0].second), "");
  const std::string userRows = Contents(user), machineRows = Contents(machine);

  const std::string userFile = dir.File("user.reg"), machineFile = dir.File("machine.reg");
  const auto exportBoth = [&](const std::string& userStore, const std::string& machineStore) {
    return InChild(
        [&] {
          CregkeyExport(C_REGKEY::USER, LibraryPath(userFile));
          CregkeyExport(C_REGKEY::MACHINE, LibraryPath(machineFile));
        },
        userStore, machineStore);
  };
  EXPECT_EQ(exportBoth(user, machine), "");
  const std::string userExport = ReadBytes(userFile), machineExport = ReadBytes(machineFile);
  EXPECT_NE(userExport.find(Utf16(u"\r\n[HKEY_CURRENT_USER\\Software\\Library]\r\n")), std::string::npos);
  EXPECT_NE(machineExport.find(Utf16(u"\r\n[HKEY_LOCAL_MACHINE\\Software\\Classes\\.vnd]\r\n")), std::string::npos);
  EXPECT_EQ(machineExport.find(Utf16(u"HKEY_CURRENT_USER")), std::string::npos);

  // Into fresh stores, each file into its own root, then out again.
  const std::string user2 = dir.File("user2.sqlite"), machine2 = dir.File("machine2.sqlite");
  EXPECT_EQ(ImportFiles({machineFile, userFile}, user2, machine2), "");
  EXPECT_EQ(Contents(user2), userRows);
  EXPECT_EQ(Contents(machine2), machineRows);
  EXPECT_EQ(exportBoth(user2, machine2), "");
  EXPECT_EQ(ReadBytes(userFile), userExport);
  EXPECT_EQ(ReadBytes(machineFile), machineExport);
}

TEST_F(RegkeyFilesTest, RefusedFilesChangeNeitherStoreAndNameTheLine) {
  InChild([&] { MakeDeletedKeys(user, machine); }, user, machine);
  const std::string userBefore = StoreBytes(user), machineBefore = StoreBytes(machine);
  ASSERT_NE(Contents(user).find("Stale"), std::string::npos);

  // Each fault comes after sections of both roots that would be stored first.
  const std::string head =
      "Windows Registry Editor Version 5.00\r\n\r\n"
      "[-HKEY_CURRENT_USER\\Software\\Vendor\\Old]\r\n"
      "[HKEY_LOCAL_MACHINE\\Software\\New]\r\n\"n\"=dword:1\r\n"
      "[HKEY_CURRENT_USER\\Software\\Vendor]\r\n\"Stale\"=-\r\n";  // lines 3 to 7
  const std::string longKey(256, 'k'), longName(16384, 'n');
  const std::tuple<std::string, int, std::string> cases[] = {
      {"Windows Registry Editor Version 4.00\r\n[HKEY_CURRENT_USER\\A]\r\n", 1, "must begin with"},
      {"", 1, "empty"},
      {"\xFE\xFFstuff", 1, "little-endian"},
      {"\xFF\xFE" + Utf16(u"REGEDIT4\r\n[HKEY_CURRENT_USER\\A]\r\n") + "!", 3, "half a character"},
      {head + "\"x\"=\"y\"\r\n[HKEY_USERS\\S-1-5-18\\Software]\r\n", 9, "HKEY_USERS"},
      {head + "[HKCU\\Software]\r\n", 8, "\"HKCU\" is not a root"},
      {head + "[-HKEY_LOCAL_MACHINE]\r\n", 8, "root cannot be deleted"},
      {head + "[HKEY_CURRENT_USER\\Software\\" + longKey + "]\r\n", 8, "255"},
      {head + "[HKEY_CURRENT_USER\\Software\\\\Twice]\r\n", 8, "single backslashes"},
      {head + "[HKEY_CURRENT_USER\\Software\r\n", 8, "[path]"},
      {head + "\"" + longName + "\"=dword:1\r\n", 8, "16383"},
      {head + "[-HKEY_CURRENT_USER\\Software\\Gone]\r\n\"x\"=\"y\"\r\n", 9, "deleted key"},
      {head + "\"n\"=dword:123456789\r\n", 8, "dword"},
      {head + "\"n\"=hex:01,\\\r\n  zz\r\n", 8, "hexadecimal"},
      {head + "\"n\"=hex:01,\\", 8, "continuation"},
      {head + "\"n\"=\"a\\b\"\r\n", 8, "backslash"},
      {head + "\"open=\"text\r\n", 8, "="},
      {head + "\"n\"=text\r\n", 8, "a value must be"},
      {head + "name=\"text\"\r\n", 8, "a line must be"},
      {head + "\"n\"=\"caf\xC3\r\n", 8, "neither UTF-8 nor"},
      {"Windows Registry Editor Version 5.00\r\n\"x\"=\"y\"\r\n", 2, "must follow a [key]"},
  };
  for (const auto& [bytes, line, reason] : cases) {
    SCOPED_TRACE(bytes.substr(0, 200));
    const std::string error = Import(bytes), where = "invalid: " + Where(line);
    EXPECT_EQ(error.rfind(where, 0), 0u) << error;
    EXPECT_NE(error.find(reason, where.size()), std::string::npos) << error;
    // Neither file changed at all, not even its write-ahead log.
    EXPECT_EQ(StoreBytes(user), userBefore);
    EXPECT_EQ(StoreBytes(machine), machineBefore);
  }

  // The longest names are taken, in a later section too.
  const std::string longest = head + "[HKEY_CURRENT_USER\\Software\\" + std::string(255, 'k') + "]\r\n\"" +
                              std::string(16383, 'n') + "\"=dword:2\r\n";
  EXPECT_EQ(Import(longest), "");
  EXPECT_NE(Contents(user).find(std::string(255, 'k') + "|" + std::string(16383, 'n') + "|4|02000000"),
            std::string::npos);

  // A root the file names must be set: with the machine's unset, nothing is stored.
  const std::string userNow = StoreBytes(user);
  WriteBytes(file, head);
  EXPECT_EQ(ImportFiles({file}, user, ""), "internal: ");
  EXPECT_EQ(StoreBytes(user), userNow);
  // Checking tells the roots a file names, and stores nothing.
  EXPECT_EQ(InChild(
                [&] {
                  C_BOOL names[2] = {true, true};
                  CregkeyCheck(LibraryPath(file), &names[0], &names[1]);
                  if (!names[0] || !names[1]) CerrValueTooLow.Trigger();
                  WriteBytes(file, "Windows Registry Editor Version 5.00\n[HKEY_CLASSES_ROOT\\x]\n");
                  CregkeyCheck(LibraryPath(file), &names[0], &names[1]);
                  if (names[0] || !names[1]) CerrValueTooHigh.Trigger();
                },
                "", ""),
            "");
}

// The registry editor of Wine reads what the library writes, and the library
// reads what that editor writes, with the same types and data.
TEST_F(RegkeyFilesTest, WinesRegistryEditorAgreesInBothDirections) {
  if (std::system("command -v wine >/dev/null 2>&1 && command -v wineserver >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "Wine is not installed";
  }
  const std::string wine = "WINEPREFIX=" + dir.File("prefix") + " WINEDEBUG=-all ";
  if (std::system((wine + "wineboot -i >/dev/null 2>&1").c_str()) != 0) GTEST_SKIP() << "no Wine prefix can be made";
  const auto windowsPath = [](std::string path) {
    std::replace(path.begin(), path.end(), '/', '\\');
    return "'Z:" + path + "'";
  };
  const std::string ours = dir.File("ours.reg"), theirs = dir.File("theirs.reg");
  WriteBytes(file,
             "Windows Registry Editor Version 5.00\n[HKEY_CURRENT_USER\\Software\\QorcWine]\n@=\"default\"\n"
             "\"Text\"=\"caf\xC3\xA9 \\\"q\\\" \\\\\"\n\"Dword\"=dword:0000002a\n\"Expand\"=hex(2):25,00,50,00,00,00\n"
             "\"Multi\"=hex(7):61,00,00,00,62,00,00,00,00,00\n\"Qword\"=hex(b):01,00,00,00,00,00,00,00\n"
             "\"Blob\"=hex:00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,16,17,18,19,1a,1b,1c,1d\n"
             "[HKEY_CURRENT_USER\\Software\\QorcWine\\Child]\n\"x\"=\"y\"\n");
  EXPECT_EQ(InChild(
                [&] {
                  CregkeyImport(LibraryPath(file));
                  C_REGKEY key;
                  key.Open(C_REGKEY::USER, u"Software\\QorcWine", C_REGKEY::WRITE, false);
                  PutTexts(key, {{u"Lines", u"a\r\nb"}});
                  WriteFields(key);
                  key.Close();
                  key.Open(C_REGKEY::USER, u"Software\\QorcWine", C_REGKEY::READ, false);
                  CregkeyExport(&key, LibraryPath(ours));
                },
                user, machine),
            "");
  const int imported = std::system((wine + "wine regedit /S " + windowsPath(ours)).c_str());
  const int exported = std::system(
      (wine + "wine regedit /E " + windowsPath(theirs) + " 'HKEY_CURRENT_USER\\Software\\QorcWine'").c_str());
  std::system((wine + "wineserver -k").c_str());
  ASSERT_EQ(imported, 0);
  ASSERT_EQ(exported, 0);
  // Wine writes line ends in strings as \r and \n.
  EXPECT_NE(ReadBytes(theirs).find(Utf16(u"\"Lines\"=\"a\\r\\nb\"")), std::string::npos);
  const std::string user2 = dir.File("user2.sqlite");
  EXPECT_EQ(ImportFiles({theirs}, user2, ""), "");
  EXPECT_EQ(Contents(user2), Contents(user));
}

}  // namespace
