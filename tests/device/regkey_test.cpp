#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "device/settings_store_fixture.h"

namespace {

const std::string kStoredFields("\x05\0\0\0\x02\0\0\0a\0b\0\x01\0\0\0", 16);

// The suites that every kind of store passes alike.
class RegkeyTest : public testing::TestWithParam<StoreKind> {
 protected:
  void SetUp() override { MAKE_STORE_OR_SKIP(store, GetParam(), dir, "settings.sqlite"); }
  TempDir dir;
  StoreUnderTest store;
  C_REGKEY::HANDLE Store() const { return store.Open(); }
  // Writes one entry of the key at `path`, made if missing.
  template <class T>
  void PutAt(const C_STRING& path, const C_STRING& entry, const T& value) const {
    C_REGKEY key;
    key.Open(Store(), path, C_REGKEY::WRITE, true);
    Put(key, entry, value);
    key.Close();
  }
  // Forks a writer of entries `prefix`0, `prefix`1, ... of key "Writes", each its number and
  // `filler` characters, one commit each. It starts when `go` gives a byte (if given) and stops
  // after `count` entries (never if 0) or at the first error. The key is under `root` as this
  // process wired it, else under the store opened by the child.
  pid_t ForkWriter(const C_STRING& prefix, int count, int filler, int go = -1, const C_REGKEY* root = nullptr) const {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    const C_REGKEY::HANDLE handle = root == nullptr ? Store() : nullptr;
    char byte;
    if (go >= 0 && read(go, &byte, 1) != 1) _exit(2);
    const std::u16string characters(filler, u'x');
    for (int i = 0; (count == 0 || i < count) && !C_ERROR::Is(); ++i) {
      C_REGKEY key;
      root != nullptr ? key.Open(root, u"Writes", C_REGKEY::READ_WRITE, true)
                      : key.Open(handle, u"Writes", C_REGKEY::READ_WRITE, true);
      Put(key, prefix + C_STRING(i), i);
      if (filler > 0) key.Write(C_STRING(filler, characters.data()));
      key.Close();
    }
    _exit(C_ERROR::Is() ? 1 : 0);
  }
};

INSTANTIATE_TEST_SUITE_P(Stores, RegkeyTest, testing::Values(StoreKind::Sqlite, StoreKind::Postgres), StoreKindName);

// What only store files have: a path, permissions, pages on a disk.
class RegkeyFileTest : public testing::Test {
 protected:
  TempDir dir;
  const std::string database = dir.File("settings.sqlite");
  C_REGKEY::HANDLE Store() const { return C_REGKEY::OpenStore(LibraryPath(database)); }
};

void WriteFieldsTo(C_REGKEY::HANDLE store) {
  C_REGKEY key;
  key.Open(store, u"Software\\Qorc", C_REGKEY::READ_WRITE, true);
  WriteFields(key);
  key.Close();
}

int ExitStatus(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_P(RegkeyTest, EntriesAreStoredByteForByteAndReadWithTheirQuirks) {
  WriteFieldsTo(Store());
  C_REGKEY key;
  key.Open(Store(), u"Software\\Qorc", C_REGKEY::READ_WRITE, false);
  Put(key, u"Real", 2.5);
  PutTexts(key, {{u"Twelve", u"12"}});
  key.Close();
  ASSERT_FALSE(C_ERROR::Is());
  const std::string twelve("1\0002\0\0\0\0\0", 8);
  EXPECT_EQ(store.StoredData(u"Qorc", u"Fields"), kStoredFields);
  EXPECT_EQ(store.StoredData(u"Qorc", u"Twelve"), twelve);

  key.Open(Store(), u"SOFTWARE\\qorc", C_REGKEY::READ, false);
  EXPECT_EQ(ReadEntry<int>(key, u"fields"), 5);
  C_STRING text;
  C_BOOL flag = false;
  key.Read(&text);
  key.Read(&flag);
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(Text(text), u"ab");
  EXPECT_TRUE(flag);
  int number = 0;
  key.Read(&number);  // three bytes of padding remain: no more data
  EXPECT_TRUE(ErrorIsInternal());
  EXPECT_EQ(ReadEntry<double>(key, u"Real"), 2.5);
  ReadEntry<int>(key, u"Real");
  key.Read(&text);  // the count 0x40040000 lies far beyond the entry
  EXPECT_TRUE(ErrorIsInternal());
  EXPECT_EQ(ReadEntry<int>(key, u"Twelve"), 12);  // a text entry reads as any field
  EXPECT_EQ(ReadEntry<double>(key, u"Twelve"), 12.0);
  EXPECT_TRUE(ReadEntry<C_BOOL>(key, u"Twelve"));
  EXPECT_FALSE(C_ERROR::Is());
  // Refused on a key opened for reading: a missing entry, a second Open. Writes are ignored.
  key.SetEntry(u"Missing");
  EXPECT_TRUE(ErrorIsInternal());
  key.Open(Store(), u"Software\\Qorc", C_REGKEY::READ, false);
  EXPECT_TRUE(ErrorIsInternal());
  Put(key, u"Twelve", 1);
  key.Close();
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(store.StoredData(u"Qorc", u"Twelve"), twelve);
  // Forgiven when reading and writing: the empty entry gives nothing and is not stored.
  key.Open(Store(), u"Software\\Qorc", C_REGKEY::READ_WRITE, false);
  EXPECT_TRUE(ReadEntry<C_STRING>(key, u"Missing").IsVoid());
  EXPECT_FALSE(C_ERROR::Is());
  key.Close();
  EXPECT_EQ(store.StoredData(u"Qorc", u"Missing"), "");
  key.Open(Store(), u"Nowhere", C_REGKEY::READ, false);  // without create
  EXPECT_TRUE(ErrorIsInternal());
  EXPECT_FALSE(key.IsOpened());

  // Data never followed by SetEntry or Close is lost with the process.
  EXPECT_EQ(RunInChild([&] {
              C_REGKEY* lost = new C_REGKEY;
              lost->Open(Store(), u"Software\\Qorc", C_REGKEY::WRITE, false);
              Put(*lost, u"Lost", 7);
              return C_ERROR::Is() ? 1 : 0;
            }),
            0);
  key.Open(Store(), u"Software\\Qorc", C_REGKEY::READ, false);
  EXPECT_EQ(Names(key), (NameList{u"Fields", u"Real", u"Twelve"}));
}

TEST_P(RegkeyTest, NamesKeepTheirCaseAndComeInADocumentedOrder) {
  C_REGKEY key;
  key.Open(Store(), u"Order", C_REGKEY::WRITE, true);
  for (const char16_t* name : {u"gamma", u"Beta", u"alpha", u"_under"}) C_REGKEY().Open(&key, name, key.WRITE, true);
  for (const char16_t* name : {u"Zulu", u"echo", u"Alpha", u"ZULU"}) Put(key, name, 1);
  key.Close();
  key.Open(Store(), u"ORDER", C_REGKEY::READ, false);
  // Subkeys by name without case ("_" sorts after the letters once they are upper case).
  EXPECT_EQ(Names(key, true), (NameList{u"alpha", u"Beta", u"gamma", u"_under"}));
  // Entries in the order first stored; "ZULU" rewrote "Zulu" in its place.
  EXPECT_EQ(Names(key), (NameList{u"Zulu", u"echo", u"Alpha"}));
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_P(RegkeyTest, KeysRemadeByAnotherProcessAreFoundAgain) {
  PutAt(u"Volatile\\Leaf", u"Value", 1);
  C_REGKEY held;
  held.Open(Store(), u"Volatile\\Leaf", C_REGKEY::READ, false);
  ASSERT_FALSE(C_ERROR::Is());
  // Another process deletes the leaf and, if asked, makes it anew with a new id.
  const auto deleteLeaf = [&](bool remake) {
    return RunInChild([&] {
      C_REGKEY other;
      other.Open(Store(), u"Volatile", C_REGKEY::WRITE, false);
      other.Delete(u"Leaf");
      other.Close();
      if (remake) PutAt(u"Volatile\\LEAF", u"Value", 2);
      return C_ERROR::Is() ? 1 : 0;
    });
  };
  ASSERT_EQ(deleteLeaf(true), 0);
  EXPECT_EQ(ReadEntry<int>(held, u"Value"), 2);
  // Deleted for good: the key held open fails at its first use.
  ASSERT_EQ(deleteLeaf(false), 0);
  held.SetEntry(u"Value");
  EXPECT_TRUE(ErrorIsInternal());
}

TEST_P(RegkeyTest, ClearDeleteAndRecursiveCopy) {
  C_REGKEY key;
  PutAt(u"Source\\Inner\\Deepest", u"Deep", C_STRING(u"deep"));
  key.Open(Store(), u"Source", C_REGKEY::READ_WRITE, false);
  Put(key, u"Top", 42);
  Put(key, u"Gone", 1);
  key.SetEntry(u"Gone");
  key.Clear();
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(store.StoredData(u"Source", u"Gone"), "");

  C_REGKEY target;
  target.Open(Store(), u"Target", C_REGKEY::WRITE, true);
  key.Copy(&target);
  target.Close();
  key.Close();
  EXPECT_EQ(store.CountKeysNamed(u"Deepest"), "2");
  key.Open(Store(), u"Target\\Inner\\Deepest", C_REGKEY::READ, false);
  EXPECT_EQ(Text(ReadEntry<C_STRING>(key, u"Deep")), u"deep");
  key.Close();
  EXPECT_FALSE(C_ERROR::Is());

  // A key with subkeys cannot be deleted; a leaf can, with its entries.
  key.Open(Store(), u"Target", C_REGKEY::READ_WRITE, false);
  key.Delete(u"Inner");
  EXPECT_TRUE(ErrorIsInternal());
  key.Delete(u"inner\\deepest");
  key.Delete(u"Inner");
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(store.CountKeysNamed(u"Deepest"), "1");
  EXPECT_TRUE(Names(key, true).empty());
  EXPECT_EQ(ReadEntry<int>(key, u"Top"), 42);
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(RegkeyFileTest, RootsDefaultPathsPersistenceAndEnvironment) {
  // Roots are process-wide and set once, so each case runs in a child.
  const std::string machine = dir.File("machine.sqlite");
  EXPECT_EQ(RunInChild([&] {
              const auto path = [](const C_REGKEY* root) { return Text(C_REGKEY::DefaultStorePath(root)); };
              setenv("XDG_CONFIG_HOME", "/cfg", 1);
              if (path(C_REGKEY::USER) != u"\\cfg\\qorc\\settings.sqlite") return 11;
              unsetenv("XDG_CONFIG_HOME");
              setenv("HOME", "/home/someone", 1);
              if (path(C_REGKEY::USER) != u"\\home\\someone\\.config\\qorc\\settings.sqlite") return 12;
              if (path(C_REGKEY::MACHINE) != u"\\var\\lib\\qorc\\settings.sqlite") return 13;
              C_REGKEY key;
              if (!C_REGKEY::DefaultStorePath(&key).IsVoid()) return 14;
              key.Open(C_REGKEY::USER, u"Environment", C_REGKEY::READ, false);
              if (!ErrorIsInternal()) return 1;  // no user root yet
              C_REGKEY::InitUser(Store());
              C_REGKEY::InitMachine(C_REGKEY::OpenStore(LibraryPath(machine)));
              C_REGKEY::InitMachine(Store());  // the first call wins
              key.Open(C_REGKEY::USER, u"Environment", C_REGKEY::WRITE, true);
              PutTexts(key, {{u"QORC_TEST_USER", u"from user"},
                             {u"QORC_TEST_BOTH", u"user wins"},
                             {u"QORC_TEST_PROCESS", u"hidden by the process"}});
              key.Close();
              key.Open(C_REGKEY::MACHINE, u"Environment", C_REGKEY::WRITE, true);
              Put(key, u"QORC_TEST_MACHINE", C_STRING(u"counted"));  // a binary entry reads as its first string
              PutTexts(key, {{u"QORC_TEST_BOTH", u"machine"}});
              key.Close();
              // The special objects refuse entry operations and closing.
              C_REGKEY::USER->SetEntry(u"x");
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
              C_REGKEY::InitUser(Store());
              C_REGKEY::InitMachine(C_REGKEY::OpenStore(LibraryPath(machine)));
              const auto env = [](const char16_t* name) { return Text(C_STRING(name).GetEnv()); };
              if (env(u"QORC_TEST_USER") != u"from user") return 1;
              if (env(u"QORC_TEST_BOTH") != u"user wins") return 2;
              if (env(u"QORC_TEST_MACHINE") != u"counted") return 3;
              setenv("QORC_TEST_PROCESS", "from process", 1);
              if (env(u"QORC_TEST_PROCESS") != u"from process") return 4;
              if (!C_STRING(u"QORC_TEST_NOWHERE").GetEnv().IsVoid() || C_ERROR::Is()) return 5;
              C_STRING(u"QORC_TEST_USER=from process").PutEnv();
              if (env(u"QORC_TEST_USER") != u"from process") return 6;
              C_STRING(u"QORC_TEST_USER=").PutEnv();  // removed: the key's value shows again
              if (env(u"QORC_TEST_USER") != u"from user") return 7;
              C_STRING(u"no assignment").PutEnv();
              if (C_ERROR::GetPending() == nullptr ||
                  Text(C_ERROR::GetPending()->GetKey()) != u"C#Err#Cannot add or modify environment variable" ||
                  Text(C_ERROR::GetPendingExtra()) != u"no assignment") {
                return 8;
              }
              C_ERROR::ClearPending();
              Cclose();  // forgets the roots: the key is no longer reachable
              return C_STRING(u"QORC_TEST_USER").GetEnv().IsVoid() && !C_ERROR::Is() ? 0 : 9;
            }),
            0);
}

TEST_P(RegkeyTest, WriterKilledInTheMiddleLosesNothingStoredBefore) {
  WriteFieldsTo(Store());
  ASSERT_FALSE(C_ERROR::Is());
  for (int round = 0; round < 3; ++round) {
    const pid_t writer = ForkWriter(u"", 0, 20000);
    // Killed once it has stored something (a slow machine may take its time to start), then some way on.
    for (int wait = 0; wait < 1000 && store.StoredData(u"Writes", u"0").empty(); ++wait) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50 + 70 * round));
    kill(writer, SIGKILL);
    ASSERT_EQ(ExitStatus(writer), -1) << "the writer stopped by itself";
    EXPECT_EQ(store.Consistency(), "ok");
  }
  EXPECT_EQ(store.StoredData(u"Qorc", u"Fields"), kStoredFields);
  // Every entry the writers committed is whole.
  C_REGKEY key;
  key.Open(Store(), u"Writes", C_REGKEY::READ, false);
  const NameList names = Names(key);
  EXPECT_FALSE(names.empty());
  for (const std::u16string& name : names) {
    EXPECT_EQ(Text(C_STRING(ReadEntry<int>(key, name.c_str()))), name);
    C_STRING filler;
    key.Read(&filler);
    EXPECT_EQ(filler.GetNumber(), 20000);
  }
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_P(RegkeyTest, TwoProcessesWritingOneKeyLoseNoWrite) {
  constexpr int kEntries = 200;
  int go[2];
  ASSERT_EQ(pipe(go), 0);
  const pid_t writers[] = {ForkWriter(u"a", kEntries, 0, go[0]), ForkWriter(u"b", kEntries, 0, go[0])};
  close(go[0]);
  ASSERT_EQ(write(go[1], "gg", 2), 2);  // both start at once
  close(go[1]);
  for (pid_t writer : writers) EXPECT_EQ(ExitStatus(writer), 0);
  C_REGKEY key;
  key.Open(Store(), u"Writes", C_REGKEY::READ, false);
  EXPECT_EQ(Names(key).size(), 2u * kEntries);
  for (const char16_t* prefix : {u"a", u"b"}) {
    for (int i = 0; i < kEntries; i += 37) EXPECT_EQ(ReadEntry<int>(key, C_STRING(prefix) + C_STRING(i)), i);
  }
  EXPECT_FALSE(C_ERROR::Is());
  // Both made the store, which did not exist: one kept, nothing left of the other's.
  for (const auto& entry : std::filesystem::directory_iterator(dir.File(""))) {
    EXPECT_EQ(entry.path().filename().string().find(".new-"), std::string::npos) << entry.path();
  }
}

TEST_P(RegkeyTest, ChildrenGoOnUsingTheRootsAndHandlesTheirParentWired) {
  // The roots are process-wide and set once: the parent here is a child of the test, which
  // wires the user root, uses it, keeps a handle open and then forks.
  EXPECT_EQ(RunInChild([&] {
              C_REGKEY::InitUser(Store());
              C_REGKEY environment;
              environment.Open(C_REGKEY::USER, u"Environment", C_REGKEY::WRITE, true);
              PutTexts(environment, {{u"QORC_FORK_SETTING", u"from the parent's key"}});
              environment.Close();
              C_REGKEY held;
              held.Open(C_REGKEY::USER, u"Software\\Held", C_REGKEY::READ_WRITE, true);
              Put(held, u"parent", 1);
              held.SetEntry(u"parent");
              if (C_ERROR::Is()) return 1;

              // A child reads through the root and the held handle, and writes through both.
              const pid_t child = fork();
              if (child == 0) {
                int code = 0;
                if (Text(C_STRING(u"QORC_FORK_SETTING").GetEnv()) != u"from the parent's key") code = 10;
                if (ReadEntry<int>(held, u"parent") != 1) code = 11;
                Put(held, u"child", 2);
                held.SetEntry(u"child");
                C_REGKEY own;
                own.Open(C_REGKEY::USER, u"Software\\Child", C_REGKEY::WRITE, true);
                Put(own, u"made", C_STRING(u"in the child"));
                own.Close();
                _exit(C_ERROR::Is() ? 12 : code);
              }
              if (ExitStatus(child) != 0) return 2;
              if (ReadEntry<int>(held, u"child") != 2) return 3;
              C_REGKEY made;
              made.Open(C_REGKEY::USER, u"Software\\Child", C_REGKEY::READ, false);
              C_STRING text;
              made.SetEntry(u"made");
              made.Read(&text);
              if (Text(text) != u"in the child" || C_ERROR::Is()) return 4;

              // Two children writing one key at once lose nothing.
              constexpr int kEntries = 200;
              int go[2];
              if (pipe(go) != 0) return 5;
              const pid_t writers[] = {ForkWriter(u"a", kEntries, 0, go[0], C_REGKEY::USER),
                                       ForkWriter(u"b", kEntries, 0, go[0], C_REGKEY::USER)};
              close(go[0]);
              if (write(go[1], "gg", 2) != 2) return 6;
              close(go[1]);
              for (pid_t writer : writers) {
                if (ExitStatus(writer) != 0) return 7;
              }
              C_REGKEY writes;
              writes.Open(C_REGKEY::USER, u"Writes", C_REGKEY::READ, false);
              if (Names(writes).size() != 2u * kEntries) return 8;
              for (const char16_t* prefix : {u"a", u"b"}) {
                for (int i = 0; i < kEntries; ++i) {
                  if (ReadEntry<int>(writes, C_STRING(prefix) + C_STRING(i)) != i) return 9;
                }
              }
              writes.Close();

              // A child killed while it writes loses nothing stored before; the parent goes on.
              const pid_t killed = ForkWriter(u"k", 0, 20000, -1, C_REGKEY::USER);
              for (int wait = 0; wait < 1000 && store.StoredData(u"Writes", u"k0").empty(); ++wait) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
              }
              std::this_thread::sleep_for(std::chrono::milliseconds(100));
              kill(killed, SIGKILL);
              if (ExitStatus(killed) != -1) return 20;
              if (store.Consistency() != "ok") return 21;
              writes.Open(C_REGKEY::USER, u"Writes", C_REGKEY::READ, false);
              if (ReadEntry<int>(writes, u"a199") != 199 || ReadEntry<int>(writes, u"b0") != 0) return 22;
              int whole = 0;
              for (const std::u16string& name : Names(writes)) {
                if (name[0] != u'k') continue;
                C_STRING filler;
                if (u"k" + Text(C_STRING(ReadEntry<int>(writes, name.c_str()))) != name) return 23;
                writes.Read(&filler);
                if (filler.GetNumber() != 20000) return 24;
                ++whole;
              }
              if (whole == 0) return 25;
              writes.Close();
              writes.Open(C_REGKEY::USER, u"Writes", C_REGKEY::WRITE, false);
              Put(writes, u"after", 3);
              writes.Close();
              Put(held, u"after", 4);
              held.Close();
              if (C_ERROR::Is()) return 26;
              return 0;
            }),
            0);
  // What every process stored is in the file, read by a process of its own.
  C_REGKEY key;
  key.Open(Store(), u"Writes", C_REGKEY::READ, false);
  EXPECT_EQ(ReadEntry<int>(key, u"after"), 3);
  key.Close();
  key.Open(Store(), u"Software\\Held", C_REGKEY::READ, false);
  EXPECT_EQ(ReadEntry<int>(key, u"child"), 2);
  EXPECT_EQ(ReadEntry<int>(key, u"after"), 4);
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_P(RegkeyTest, AChildKeepsWritingWhenItsParentClosesTheStore) {
  // The child's connection holds its own locks on the store: when the parent
  // closes its connection (Cclose), the journal the child writes to is kept.
  EXPECT_EQ(RunInChild([&] {
              C_REGKEY::InitUser(Store());
              PutAt(u"Software\\Qorc", u"parent", 1);
              int ready[2], go[2];
              if (pipe(ready) != 0 || pipe(go) != 0) return 1;
              const pid_t child = fork();
              if (child == 0) {
                char byte = 0;
                C_REGKEY key;
                key.Open(C_REGKEY::USER, u"Software\\Qorc", C_REGKEY::WRITE, false);
                Put(key, u"first", 2);
                key.Close();
                if (write(ready[1], "r", 1) != 1 || read(go[0], &byte, 1) != 1) _exit(2);
                key.Open(C_REGKEY::USER, u"Software\\Qorc", C_REGKEY::WRITE, false);
                Put(key, u"second", 3);
                key.Close();
                _exit(C_ERROR::Is() ? 3 : 0);
              }
              char byte = 0;
              if (read(ready[0], &byte, 1) != 1) return 4;
              Cclose();
              if (write(go[1], "g", 1) != 1) return 5;
              return ExitStatus(child) == 0 ? 0 : 6;
            }),
            0);
  for (const char16_t* entry : {u"parent", u"first", u"second"}) {
    EXPECT_EQ(store.StoredData(u"Qorc", entry).size(), 4u);
  }
}

TEST_F(RegkeyFileTest, BadStoresFailWithoutCrashOrLoss) {
  // Not a database: refused, and the file is left as it was.
  const std::string text = dir.File("notes.txt");
  WriteBytes(text, std::string(5000, 'n'));
  const std::u16string named = Text(LibraryPath(text, true));  // before the error: it stops path expansion
  EXPECT_EQ(C_REGKEY::OpenStore(LibraryPath(text)), nullptr);
  EXPECT_EQ(C_ERROR::GetPending(), &CerrFileCannotOpen);
  EXPECT_EQ(Text(C_ERROR::GetPendingExtra()), named);
  C_ERROR::ClearPending();
  EXPECT_EQ(ReadBytes(text), std::string(5000, 'n'));
  C_REGKEY key;
  key.Open(C_REGKEY::HANDLE(nullptr), u"Any", C_REGKEY::READ, false);
  EXPECT_TRUE(ErrorIsInternal());

  // A store made by another process and closed, so that it is one file.
  ASSERT_EQ(RunInChild([&] {
              C_REGKEY bulk;
              bulk.Open(Store(), u"Bulk", C_REGKEY::WRITE, true);
              for (int i = 0; i < 200; ++i) Put(bulk, C_STRING(i), C_STRING(std::string(100, 'v').c_str()));
              bulk.Close();
              WriteFieldsTo(Store());
              Cclose();
              return C_ERROR::Is() ? 1 : 0;
            }),
            0);
  const std::string intact = ReadBytes(database);

  // Without write permission: readable, every write refused, nothing changed.
  chmod(database.c_str(), 0444);
  EXPECT_EQ(RunInChild([&] {
              C_REGKEY reader;
              reader.Open(Store(), u"Software\\Qorc", C_REGKEY::READ_WRITE, false);
              if (ReadEntry<int>(reader, u"Fields") != 5 || C_ERROR::Is()) return 1;
              Put(reader, u"New", 1);
              reader.Close();
              if (!ErrorIsInternal()) return 2;
              reader.Open(Store(), u"Software\\Other", C_REGKEY::WRITE, true);
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
              bulk.Open(store, u"Bulk", C_REGKEY::READ, false);
              if (!C_ERROR::Is()) Names(bulk);
              for (int i = 0; i < 200 && !C_ERROR::Is(); ++i) ReadEntry<C_STRING>(bulk, C_STRING(i));
              return ErrorIsInternal() ? 0 : 2;
            }),
            0);
}

TEST_F(RegkeyFileTest, FullDiskFailsTheWriteAndKeepsEarlierEntries) {
  const std::string mountPoint = dir.File("small");
  std::filesystem::create_directory(mountPoint);
  const int result = RunInChild([&] {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=256k") != 0) {
      return 77;
    }
    const std::string store = mountPoint + "/settings.sqlite";
    const C_REGKEY::HANDLE handle = C_REGKEY::OpenStore(LibraryPath(store));
    WriteFieldsTo(handle);
    if (C_ERROR::Is()) return 1;
    const std::string big(30000, 'b');
    for (int i = 0; i < 100 && !C_ERROR::Is(); ++i) {
      C_REGKEY key;
      key.Open(handle, u"Big", C_REGKEY::WRITE, true);
      Put(key, C_STRING(i), C_STRING(big.c_str()));
      key.Close();
    }
    if (!ErrorIsInternal()) return 2;  // the disk filled up
    C_REGKEY key;
    key.Open(handle, u"Software\\Qorc", C_REGKEY::READ, false);
    if (ReadEntry<int>(key, u"Fields") != 5 || C_ERROR::Is()) return 3;
    return Sql(store, "PRAGMA integrity_check") == "ok" ? 0 : 4;
  });
  if (result == 77) GTEST_SKIP() << "no private mount namespace here";
  EXPECT_EQ(result, 0);
}

}  // namespace
