#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "file/file_test_util.h"
#include "support/child_process.h"

namespace {

// One value of the store read directly through SQLite, as bytes; "" when absent.
std::string Sql(const std::string& database, const std::string& query) {
  sqlite3* db = nullptr;
  std::string out;
  if (sqlite3_open_v2(database.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_busy_timeout(db, 10000);
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, query.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW) {
      const char* bytes = static_cast<const char*>(sqlite3_column_blob(statement, 0));
      out.assign(bytes != nullptr ? bytes : "", static_cast<std::size_t>(sqlite3_column_bytes(statement, 0)));
    }
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
  return out;
}

std::string Utf16Bytes(const std::u16string& text) {
  std::string bytes;
  for (char16_t c : text) {
    bytes.push_back(static_cast<char>(c & 0xFF));
    bytes.push_back(static_cast<char>(c >> 8));
  }
  return bytes;
}

std::string Hex(const std::string& bytes) {
  std::string hex;
  char digits[3];
  for (unsigned char c : bytes) {
    std::snprintf(digits, sizeof digits, "%02x", c);
    hex += digits;
  }
  return hex;
}

// The stored bytes of the entry of a key named `key` (at any level).
std::string StoredData(const std::string& database, const std::u16string& key, const std::u16string& entry) {
  return Sql(database, "SELECT e.data FROM entries e JOIN keys k ON k.id = e.key WHERE k.name = x'" +
                           Hex(Utf16Bytes(key)) + "' AND e.name = x'" + Hex(Utf16Bytes(entry)) + "'");
}

bool ErrorIsInternal() {
  const bool internal = C_ERROR::GetPending() == &CerrInternalError;
  C_ERROR::ClearPending();
  return internal;
}

class RegkeyTest : public testing::Test {
 protected:
  TempDir dir;
  const std::string database = dir.File("settings.sqlite");
  // Stores opened by the test process itself; children open their own.
  C_REGKEY::HANDLE Store() { return C_REGKEY::OpenStore(LibraryPath(database)); }
};

// Writes the fields 5, "ab" and true into Software\Qorc, entry "Fields".
void WriteFields(C_REGKEY::HANDLE store) {
  C_REGKEY key;
  key.Open(store, C_STRING(u"Software\\Qorc"), C_REGKEY::READ_WRITE, true);
  key.SetEntry(C_STRING(u"Fields"));
  key.Write(5);
  key.Write(C_STRING(u"ab"));
  key.Write(C_BOOL(true));
  key.Close();
}

TEST_F(RegkeyTest, BinaryEntryIsStoredRoundedAndReadBackInOrder) {
  WriteFields(Store());
  ASSERT_FALSE(C_ERROR::Is());
  // 4 + (4 + 2 * 2) + 1 = 13 bytes of fields, stored as 16.
  EXPECT_EQ(StoredData(database, u"Qorc", u"Fields"), std::string("\x05\0\0\0\x02\0\0\0a\0b\0\x01\0\0\0", 16));

  C_REGKEY key;
  key.Open(Store(), C_STRING(u"SOFTWARE\\qorc"), C_REGKEY::READ, false);
  key.SetEntry(C_STRING(u"fields"));
  int number = 0;
  C_STRING text;
  C_BOOL flag = false;
  key.Read(&number);
  key.Read(&text);
  key.Read(&flag);
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(number, 5);
  EXPECT_EQ(Text(text), u"ab");
  EXPECT_TRUE(flag);
  key.Read(&number);  // three bytes of padding remain: no more data
  EXPECT_TRUE(ErrorIsInternal());
  key.Close();

  // Reals, and a string whose count promises more than the entry holds.
  key.Open(Store(), C_STRING(u"Software\\Qorc"), C_REGKEY::READ_WRITE, false);
  key.SetEntry(C_STRING(u"Real"));
  key.Write(2.5);
  key.Close();
  key.Open(Store(), C_STRING(u"Software\\Qorc"), C_REGKEY::READ_WRITE, false);
  key.SetEntry(C_STRING(u"Real"));
  double real = 0;
  key.Read(&real);
  EXPECT_EQ(real, 2.5);
  key.SetEntry(C_STRING(u"Real"));
  key.Read(&number);
  key.Read(&text);  // the count 0x40040000 lies far beyond the entry
  EXPECT_TRUE(ErrorIsInternal());
  key.Close();
}

TEST_F(RegkeyTest, TextEntriesModesAndUnstoredData) {
  C_REGKEY key;
  key.Open(Store(), C_STRING(u"Text"), C_REGKEY::WRITE, true);
  key.SetEntry(C_STRING(u"Twelve"));
  key.WriteReadableString(C_STRING(u"12"));
  key.Close();
  EXPECT_EQ(StoredData(database, u"Text", u"Twelve"), std::string("1\0002\0\0\0\0\0", 8));

  key.Open(Store(), C_STRING(u"Text"), C_REGKEY::READ, false);
  int number = 0;
  double real = 0;
  C_BOOL flag = false;
  key.SetEntry(C_STRING(u"Twelve"));
  key.Read(&number);
  key.SetEntry(C_STRING(u"Twelve"));
  key.Read(&real);
  key.SetEntry(C_STRING(u"Twelve"));
  key.Read(&flag);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(number, 12);
  EXPECT_EQ(real, 12.0);
  EXPECT_TRUE(flag);
  // A missing entry: refused for reading, forgiven for reading and writing.
  key.SetEntry(C_STRING(u"Missing"));
  EXPECT_TRUE(ErrorIsInternal());
  key.Open(Store(), C_STRING(u"Text"), C_REGKEY::READ, false);
  EXPECT_TRUE(ErrorIsInternal());  // already opened
  key.Close();

  key.Open(Store(), C_STRING(u"Text"), C_REGKEY::READ_WRITE, false);
  key.SetEntry(C_STRING(u"Missing"));
  EXPECT_FALSE(C_ERROR::Is());
  C_STRING text;
  key.Read(&text);  // an empty entry gives nothing and no error
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_TRUE(text.IsVoid());
  key.Close();
  EXPECT_EQ(StoredData(database, u"Text", u"Missing"), "");
  // A read-only key writes nothing; without create a missing key cannot be opened.
  key.Open(Store(), C_STRING(u"Text"), C_REGKEY::READ, false);
  key.SetEntry(C_STRING(u"Twelve"));
  key.Write(1);
  key.Close();
  EXPECT_EQ(StoredData(database, u"Text", u"Twelve").size(), 8u);
  key.Open(Store(), C_STRING(u"Nowhere"), C_REGKEY::READ, false);
  EXPECT_TRUE(ErrorIsInternal());
  EXPECT_FALSE(key.IsOpened());

  // Data never followed by SetEntry or Close is lost with the process.
  EXPECT_EQ(RunInChild([&] {
              C_REGKEY* lost = new C_REGKEY;
              lost->Open(C_REGKEY::OpenStore(LibraryPath(database)), C_STRING(u"Text"), C_REGKEY::WRITE, false);
              lost->SetEntry(C_STRING(u"Lost"));
              lost->Write(7);
              return C_ERROR::Is() ? 1 : 0;
            }),
            0);
  key.Open(Store(), C_STRING(u"Text"), C_REGKEY::READ, false);
  int count = 0;
  C_STRING* names = nullptr;
  key.GetEntries(&count, &names);
  ASSERT_EQ(count, 1);
  EXPECT_EQ(Text(names[0]), u"Twelve");
  delete[] names;
}

TEST_F(RegkeyTest, NamesKeepTheirCaseAndComeInADocumentedOrder) {
  C_REGKEY key;
  key.Open(Store(), C_STRING(u"Order"), C_REGKEY::WRITE, true);
  for (const char16_t* name : {u"gamma", u"Beta", u"alpha", u"_under"}) {
    C_REGKEY child;
    child.Open(&key, C_STRING(name), C_REGKEY::WRITE, true);
  }
  for (const char16_t* name : {u"Zulu", u"echo", u"Alpha", u"ZULU"}) {
    key.SetEntry(C_STRING(name));
    key.Write(1);
  }
  key.Close();
  ASSERT_FALSE(C_ERROR::Is());

  key.Open(Store(), C_STRING(u"ORDER"), C_REGKEY::READ, false);
  int count = 0;
  C_STRING* names = nullptr;
  key.GetSubkeys(&count, &names);
  std::vector<std::u16string> found;
  for (int i = 0; i < count; ++i) found.push_back(Text(names[i]));
  delete[] names;
  // Subkeys by name without case ("_" sorts after the letters once they are upper case).
  EXPECT_EQ(found, (std::vector<std::u16string>{u"alpha", u"Beta", u"gamma", u"_under"}));
  key.GetEntries(&count, &names);
  found.clear();
  for (int i = 0; i < count; ++i) found.push_back(Text(names[i]));
  delete[] names;
  // Entries in the order first stored; "ZULU" rewrote "Zulu" in its place.
  EXPECT_EQ(found, (std::vector<std::u16string>{u"Zulu", u"echo", u"Alpha"}));
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(RegkeyTest, KeysRemadeByAnotherProcessAreFoundAgain) {
  C_REGKEY key;
  key.Open(Store(), C_STRING(u"Volatile\\Leaf"), C_REGKEY::WRITE, true);
  key.SetEntry(C_STRING(u"Value"));
  key.Write(1);
  key.Close();
  C_REGKEY held;
  held.Open(Store(), C_STRING(u"Volatile\\Leaf"), C_REGKEY::READ, false);
  ASSERT_FALSE(C_ERROR::Is());
  // Another process deletes the keys and makes them anew, with new ids.
  ASSERT_EQ(RunInChild([&] {
              C_REGKEY other;
              other.Open(C_REGKEY::OpenStore(LibraryPath(database)), C_STRING(u"Volatile"), C_REGKEY::WRITE, false);
              other.Delete(C_STRING(u"Leaf"));
              other.Close();
              other.Open(C_REGKEY::OpenStore(LibraryPath(database)), C_STRING(u"Volatile\\LEAF"), C_REGKEY::WRITE,
                         true);
              other.SetEntry(C_STRING(u"Value"));
              other.Write(2);
              other.Close();
              return C_ERROR::Is() ? 1 : 0;
            }),
            0);
  int value = 0;
  held.SetEntry(C_STRING(u"Value"));
  held.Read(&value);
  EXPECT_EQ(value, 2);
  key.Open(Store(), C_STRING(u"Volatile\\Leaf"), C_REGKEY::READ, false);
  key.SetEntry(C_STRING(u"Value"));
  key.Read(&value);
  EXPECT_EQ(value, 2);
  key.Close();
  // Deleted for good: opening still works from what was known, the first use fails.
  ASSERT_EQ(RunInChild([&] {
              C_REGKEY other;
              other.Open(C_REGKEY::OpenStore(LibraryPath(database)), C_STRING(u"Volatile"), C_REGKEY::WRITE, false);
              other.Delete(C_STRING(u"Leaf"));
              return C_ERROR::Is() ? 1 : 0;
            }),
            0);
  held.SetEntry(C_STRING(u"Value"));
  EXPECT_TRUE(ErrorIsInternal());
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(RegkeyTest, ClearDeleteAndRecursiveCopy) {
  C_REGKEY key;
  key.Open(Store(), C_STRING(u"Source\\Inner\\Deepest"), C_REGKEY::WRITE, true);
  key.SetEntry(C_STRING(u"Deep"));
  key.Write(C_STRING(u"deep"));
  key.Close();
  key.Open(Store(), C_STRING(u"Source"), C_REGKEY::READ_WRITE, false);
  key.SetEntry(C_STRING(u"Top"));
  key.Write(42);
  key.SetEntry(C_STRING(u"Gone"));
  key.Write(1);
  key.SetEntry(C_STRING(u"Gone"));
  key.Clear();
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(StoredData(database, u"Source", u"Gone"), "");

  C_REGKEY target;
  target.Open(Store(), C_STRING(u"Target"), C_REGKEY::WRITE, true);
  key.Copy(&target);
  target.Close();
  key.Close();
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(Sql(database, "SELECT count(*) FROM keys WHERE name = x'" + Hex(Utf16Bytes(u"Deepest")) + "'"), "2");
  key.Open(Store(), C_STRING(u"Target\\Inner\\Deepest"), C_REGKEY::READ, false);
  key.SetEntry(C_STRING(u"Deep"));
  C_STRING deep;
  key.Read(&deep);
  key.Close();
  EXPECT_EQ(Text(deep), u"deep");
  EXPECT_FALSE(C_ERROR::Is());

  // A key with subkeys cannot be deleted; a leaf can, with its entries.
  key.Open(Store(), C_STRING(u"Target"), C_REGKEY::READ_WRITE, false);
  key.Delete(C_STRING(u"Inner"));
  EXPECT_TRUE(ErrorIsInternal());
  key.Delete(C_STRING(u"inner\\deepest"));
  key.Delete(C_STRING(u"Inner"));
  EXPECT_FALSE(C_ERROR::Is());
  int count = 0;
  C_STRING* names = nullptr;
  key.GetSubkeys(&count, &names);
  EXPECT_EQ(count, 0);
  key.SetEntry(C_STRING(u"Top"));
  int top = 0;
  key.Read(&top);
  EXPECT_EQ(top, 42);
  key.Close();
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(RegkeyTest, RootsPersistenceAndEnvironment) {
  // Roots are process-wide and set once, so each case runs in a child.
  const std::string machine = dir.File("machine.sqlite");
  EXPECT_EQ(RunInChild([&] {
              C_REGKEY key;
              key.Open(C_REGKEY::USER, C_STRING(u"Environment"), C_REGKEY::READ, false);
              if (!ErrorIsInternal()) return 1;  // no user root yet
              C_REGKEY::InitUser(C_REGKEY::OpenStore(LibraryPath(database)));
              C_REGKEY::InitMachine(C_REGKEY::OpenStore(LibraryPath(machine)));
              C_REGKEY::InitMachine(C_REGKEY::OpenStore(LibraryPath(database)));  // the first call wins
              key.Open(C_REGKEY::USER, C_STRING(u"Environment"), C_REGKEY::WRITE, true);
              key.SetEntry(C_STRING(u"QORC_TEST_USER"));
              key.WriteReadableString(C_STRING(u"from user"));
              key.SetEntry(C_STRING(u"QORC_TEST_BOTH"));
              key.WriteReadableString(C_STRING(u"user wins"));
              key.SetEntry(C_STRING(u"QORC_TEST_PROCESS"));
              key.WriteReadableString(C_STRING(u"hidden by the process"));
              key.Close();
              key.Open(C_REGKEY::MACHINE, C_STRING(u"Environment"), C_REGKEY::WRITE, true);
              key.SetEntry(C_STRING(u"QORC_TEST_MACHINE"));
              key.Write(C_STRING(u"counted"));  // a binary entry reads as its first string
              key.SetEntry(C_STRING(u"QORC_TEST_BOTH"));
              key.WriteReadableString(C_STRING(u"machine"));
              key.Close();
              // The special objects refuse entry operations and closing.
              C_REGKEY::USER->SetEntry(C_STRING(u"x"));
              if (!ErrorIsInternal()) return 2;
              C_REGKEY::USER->Write(1.5);
              if (!ErrorIsInternal()) return 3;
              C_REGKEY::MACHINE->Close();
              if (!ErrorIsInternal()) return 4;
              return C_ERROR::Is() ? 5 : 0;
            }),
            0);
  // Another process finds everything the first one stored.
  EXPECT_EQ(RunInChild([&] {
              C_REGKEY::InitUser(C_REGKEY::OpenStore(LibraryPath(database)));
              C_REGKEY::InitMachine(C_REGKEY::OpenStore(LibraryPath(machine)));
              if (Text(C_STRING(u"QORC_TEST_USER").GetEnv()) != u"from user") return 1;
              if (Text(C_STRING(u"QORC_TEST_BOTH").GetEnv()) != u"user wins") return 2;
              if (Text(C_STRING(u"QORC_TEST_MACHINE").GetEnv()) != u"counted") return 3;
              setenv("QORC_TEST_PROCESS", "from process", 1);
              if (Text(C_STRING(u"QORC_TEST_PROCESS").GetEnv()) != u"from process") return 4;
              if (!C_STRING(u"QORC_TEST_NOWHERE").GetEnv().IsVoid() || C_ERROR::Is()) return 5;
              C_STRING(u"QORC_TEST_USER=from process").PutEnv();
              if (Text(C_STRING(u"QORC_TEST_USER").GetEnv()) != u"from process") return 6;
              C_STRING(u"QORC_TEST_USER=").PutEnv();  // removed: the key's value shows again
              if (Text(C_STRING(u"QORC_TEST_USER").GetEnv()) != u"from user") return 7;
              C_STRING(u"no assignment").PutEnv();
              if (C_ERROR::GetPending() == nullptr ||
                  Text(C_ERROR::GetPending()->GetKey()) != u"C#Err#Cannot add or modify environment variable" ||
                  Text(C_ERROR::GetPendingExtra()) != u"no assignment") {
                return 8;
              }
              C_ERROR::ClearPending();
              // Cclose forgets the roots: the key is no longer reachable.
              Cclose();
              return C_STRING(u"QORC_TEST_USER").GetEnv().IsVoid() && !C_ERROR::Is() ? 0 : 9;
            }),
            0);
}

TEST_F(RegkeyTest, DefaultStorePathsFollowTheConventions) {
  EXPECT_EQ(
      RunInChild([] {
        setenv("XDG_CONFIG_HOME", "/cfg", 1);
        if (Text(C_REGKEY::DefaultStorePath(C_REGKEY::USER)) != u"\\cfg\\qorc\\settings.sqlite") return 1;
        unsetenv("XDG_CONFIG_HOME");
        setenv("HOME", "/home/someone", 1);
        if (Text(C_REGKEY::DefaultStorePath(C_REGKEY::USER)) != u"\\home\\someone\\.config\\qorc\\settings.sqlite") {
          return 2;
        }
        if (Text(C_REGKEY::DefaultStorePath(C_REGKEY::MACHINE)) != u"\\var\\lib\\qorc\\settings.sqlite") return 3;
        C_REGKEY other;
        return C_REGKEY::DefaultStorePath(&other).IsVoid() ? 0 : 4;
      }),
      0);
}

// A writer that commits one large entry after the other until it is killed.
int WriteUntilKilled(const std::string& database) {
  const C_REGKEY::HANDLE store = C_REGKEY::OpenStore(LibraryPath(database));
  const std::u16string filler(20000, u'x');
  for (int i = 0;; ++i) {
    C_REGKEY key;
    key.Open(store, C_STRING(u"Crash"), C_REGKEY::WRITE, true);
    key.SetEntry(C_STRING(i));
    key.Write(i);
    key.Write(C_STRING(static_cast<int>(filler.size()), filler.data()));
    key.Close();
    if (C_ERROR::Is()) return 1;
  }
}

TEST_F(RegkeyTest, WriterKilledInTheMiddleLosesNothingStoredBefore) {
  ASSERT_EQ(RunInChild([&] {
              WriteFields(C_REGKEY::OpenStore(LibraryPath(database)));
              return C_ERROR::Is() ? 1 : 0;
            }),
            0);
  for (int round = 0; round < 3; ++round) {
    const pid_t writer = fork();
    if (writer == 0) _exit(WriteUntilKilled(database));
    std::this_thread::sleep_for(std::chrono::milliseconds(150 + 70 * round));
    kill(writer, SIGKILL);
    int status = 0;
    waitpid(writer, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the writer stopped by itself";
    EXPECT_EQ(Sql(database, "PRAGMA integrity_check"), "ok");
  }
  EXPECT_EQ(StoredData(database, u"Qorc", u"Fields").size(), 16u);
  // Every entry the writers committed is whole.
  C_REGKEY key;
  key.Open(Store(), C_STRING(u"Crash"), C_REGKEY::READ, false);
  int count = 0;
  C_STRING* names = nullptr;
  key.GetEntries(&count, &names);
  EXPECT_GT(count, 0);
  for (int i = 0; i < count; ++i) {
    key.SetEntry(names[i]);
    int number = -1;
    C_STRING filler;
    key.Read(&number);
    key.Read(&filler);
    EXPECT_EQ(C_STRING(number), names[i]);
    EXPECT_EQ(filler.GetNumber(), 20000);
  }
  delete[] names;
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(RegkeyTest, TwoProcessesWritingOneKeyLoseNoWrite) {
  constexpr int kEntries = 150;
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  pid_t writers[2];
  for (int w = 0; w < 2; ++w) {
    writers[w] = fork();
    if (writers[w] == 0) {
      const C_REGKEY::HANDLE store = C_REGKEY::OpenStore(LibraryPath(database));
      char go;
      if (read(ready[0], &go, 1) != 1) _exit(2);
      for (int i = 0; i < kEntries; ++i) {
        C_REGKEY key;
        key.Open(store, C_STRING(u"Shared"), C_REGKEY::READ_WRITE, true);
        key.SetEntry(C_STRING(w == 0 ? u"a" : u"b") + C_STRING(i));
        key.Write(1000 * w + i);
        key.Close();
        if (C_ERROR::Is()) _exit(1);
      }
      _exit(0);
    }
  }
  close(ready[0]);
  ASSERT_EQ(write(ready[1], "gg", 2), 2);  // both start at once
  close(ready[1]);
  for (pid_t writer : writers) {
    int status = 0;
    waitpid(writer, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  C_REGKEY key;
  key.Open(Store(), C_STRING(u"Shared"), C_REGKEY::READ, false);
  int count = 0;
  C_STRING* names = nullptr;
  key.GetEntries(&count, &names);
  delete[] names;
  EXPECT_EQ(count, 2 * kEntries);
  for (int w = 0; w < 2; ++w) {
    for (int i = 0; i < kEntries; i += 37) {
      key.SetEntry(C_STRING(w == 0 ? u"a" : u"b") + C_STRING(i));
      int value = -1;
      key.Read(&value);
      EXPECT_EQ(value, 1000 * w + i);
    }
  }
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(RegkeyTest, BadStoresFailWithoutCrashOrLoss) {
  // Not a database: refused, and the file is left as it was.
  const std::string text = dir.File("notes.txt");
  WriteBytes(text, std::string(5000, 'n'));
  const std::u16string named = Text(LibraryPath(text, true));
  EXPECT_EQ(C_REGKEY::OpenStore(LibraryPath(text)), nullptr);
  EXPECT_EQ(C_ERROR::GetPending(), &CerrFileCannotOpen);
  EXPECT_EQ(Text(C_ERROR::GetPendingExtra()), named);
  C_ERROR::ClearPending();
  EXPECT_EQ(ReadBytes(text), std::string(5000, 'n'));
  C_REGKEY key;
  key.Open(C_REGKEY::HANDLE(nullptr), C_STRING(u"Any"), C_REGKEY::READ, false);
  EXPECT_TRUE(ErrorIsInternal());

  // A store made by another process and closed, so that it is one file.
  ASSERT_EQ(RunInChild([&] {
              const C_REGKEY::HANDLE store = C_REGKEY::OpenStore(LibraryPath(database));
              C_REGKEY filler;
              filler.Open(store, C_STRING(u"Bulk"), C_REGKEY::WRITE, true);
              for (int i = 0; i < 200; ++i) {
                filler.SetEntry(C_STRING(i));
                filler.Write(C_STRING(std::string(100, 'v').c_str()));
              }
              filler.Close();
              WriteFields(store);
              Cclose();
              return C_ERROR::Is() ? 1 : 0;
            }),
            0);
  const std::string intact = ReadBytes(database);

  // Without write permission: readable, every write refused, nothing changed.
  chmod(database.c_str(), 0444);
  EXPECT_EQ(RunInChild([&] {
              const C_REGKEY::HANDLE store = C_REGKEY::OpenStore(LibraryPath(database));
              C_REGKEY reader;
              reader.Open(store, C_STRING(u"Software\\Qorc"), C_REGKEY::READ_WRITE, false);
              reader.SetEntry(C_STRING(u"Fields"));
              int number = 0;
              reader.Read(&number);
              if (C_ERROR::Is() || number != 5) return 1;
              reader.SetEntry(C_STRING(u"New"));
              reader.Write(1);
              reader.Close();
              if (!ErrorIsInternal()) return 2;
              reader.Open(store, C_STRING(u"Software\\Other"), C_REGKEY::WRITE, true);
              return ErrorIsInternal() ? 0 : 3;
            }),
            0);
  EXPECT_EQ(ReadBytes(database), intact);
  chmod(database.c_str(), 0644);

  // Damaged pages: every use fails as the library's internal error, no crash.
  std::string damaged = intact;
  for (std::size_t i = 4096 * 2; i < damaged.size() && i < 4096 * 6; ++i) damaged[i] = static_cast<char>(i * 7);
  const std::string broken = dir.File("broken.sqlite");
  WriteBytes(broken, damaged);
  EXPECT_EQ(RunInChild([&] {
              const C_REGKEY::HANDLE store = C_REGKEY::OpenStore(LibraryPath(broken));
              if (store == nullptr) return 1;  // the first page is whole: the damage lies further in
              C_REGKEY bulk;
              bulk.Open(store, C_STRING(u"Bulk"), C_REGKEY::READ, false);
              int count = 0;
              C_STRING* names = nullptr;
              if (!C_ERROR::Is()) bulk.GetEntries(&count, &names);
              delete[] names;
              for (int i = 0; i < 200 && !C_ERROR::Is(); ++i) {
                C_STRING value;
                bulk.SetEntry(C_STRING(i));
                bulk.Read(&value);
              }
              return ErrorIsInternal() ? 0 : 2;
            }),
            0);
}

TEST_F(RegkeyTest, FullDiskFailsTheWriteAndKeepsEarlierEntries) {
  const std::string mountPoint = dir.File("small");
  std::filesystem::create_directory(mountPoint);
  const int result = RunInChild([&] {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=256k") != 0) {
      return 77;
    }
    const std::string store = mountPoint + "/settings.sqlite";
    const C_REGKEY::HANDLE handle = C_REGKEY::OpenStore(LibraryPath(store));
    WriteFields(handle);
    if (C_ERROR::Is()) return 1;
    const std::string big(30000, 'b');
    bool full = false;
    for (int i = 0; i < 100 && !full; ++i) {
      C_REGKEY key;
      key.Open(handle, C_STRING(u"Big"), C_REGKEY::WRITE, true);
      key.SetEntry(C_STRING(i));
      key.Write(C_STRING(big.c_str()));
      key.Close();
      full = C_ERROR::Is();
    }
    if (!full || !ErrorIsInternal()) return 2;
    C_REGKEY key;
    key.Open(handle, C_STRING(u"Software\\Qorc"), C_REGKEY::READ, false);
    key.SetEntry(C_STRING(u"Fields"));
    int number = 0;
    key.Read(&number);
    if (C_ERROR::Is() || number != 5) return 3;
    return Sql(store, "PRAGMA integrity_check") == "ok" ? 0 : 4;
  });
  if (result == 77) GTEST_SKIP() << "no private mount namespace here";
  EXPECT_EQ(result, 0);
}

}  // namespace
