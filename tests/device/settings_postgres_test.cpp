// Stores in a PostgreSQL database: the same bytes as a store file, several
// clients at once, clients and servers that go away, credentials.
#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <cmath>
#include <functional>
#include <thread>

#include "device/settings_store_fixture.h"
#include "platform/settings_store.h"

namespace {

namespace store = qorc::platform;

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// Starts `body` in a forked child that exits with what it returns.
pid_t StartChild(const std::function<int()>& body) {
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  return pid;
}

int WaitForChild(pid_t pid) {
  int status = 0;
  waitpid(pid, &status, 0);
  return status;
}

// Whether opening the store is refused as a file that cannot be opened.
bool OpenRefused(const C_STRING& name) {
  return C_REGKEY::OpenStore(name) == nullptr && TakeError() == &CerrFileCannotOpen;
}

class SettingsPostgresTest : public testing::Test {
 protected:
  void SetUp() override {
    MAKE_STORE_OR_SKIP(pg, StoreKind::Postgres, dir, std::string());
    server = pg.server();
    database = DatabaseOf(pg.name());
    handle = pg.Open();
    ASSERT_NE(handle, nullptr);
  }
  TempDir dir;
  StoreUnderTest pg;
  PostgresServer* server = nullptr;
  C_REGKEY::HANDLE handle = nullptr;
  std::string database;  // of the store `handle`
  static std::string DatabaseOf(const std::string& uri) { return uri.substr(14, uri.find('?') - 14); }
  // Stores one number as `entry` of the key `path`, made when missing.
  void PutAt(const C_STRING& path, const C_STRING& entry, int value) const {
    C_REGKEY key;
    key.Open(handle, path, C_REGKEY::WRITE, true);
    Put(key, entry, value);
    key.Close();
  }
  // The store's URI for another role, with extra parameters.
  std::string UriFor(const std::string& credentials, const std::string& parameters = std::string()) const {
    return "postgresql://" + credentials + "@/" + database + "?host=" + server->SocketDirectory() + "&port=5432" +
           parameters;
  }
};

// Every kind of entry the library writes or imports, in both stores.
void WriteEveryKindOfEntry(C_REGKEY::HANDLE handle, const std::string& foreign) {
  C_REGKEY key;
  key.Open(handle, u"Software\\Kinds\\\u00c9t\u00e9", C_REGKEY::READ_WRITE, true);
  WriteFields(key);  // 13 bytes, stored as 16
  key.SetEntry(u"Every field");
  key.Write(-7);
  key.Write(-0.0);
  key.Write(1e308);
  key.Write(C_BOOL(false));
  key.Write(C_STRING(u"\u4e2d\u6587 \U0001F600"));
  key.Write(C_STRING::VOID);
  for (int size = 1; size <= 5; ++size) {  // every padding
    key.SetEntry(C_STRING(size, C_STRING(u"Bytes%d")));
    for (int i = 0; i < size; ++i) key.Write(C_BOOL(true));
  }
  PutTexts(key, {{C_STRING::VOID, u"default"}, {u"Empty", C_STRING::VOID}, {u"Odd", u"abc"}, {u"MiXeD", u"case"}});
  key.SetEntry(u"mixed");  // the same entry, another case: rewritten in its place
  key.WriteReadableString(u"CASE");
  key.SetEntry(u"Large");
  for (int i = 0; i < 20000; ++i) key.Write(static_cast<int>(i * 2654435761u));
  key.Close();
  key.Open(handle, u"Software\\Kinds", C_REGKEY::READ_WRITE, false);
  CregkeyImport(&key, LibraryPath(foreign));  // types the library does not write itself
  key.Close();
}

TEST_F(SettingsPostgresTest, EveryKindOfEntryHasTheSameBytesAsInAStoreFile) {
  StoreUnderTest file;
  MAKE_STORE_OR_SKIP(file, StoreKind::Sqlite, dir, "file.sqlite");
  const std::string foreign = dir.File("foreign.reg");
  const std::u16string text =
      u"Windows Registry Editor Version 5.00\r\n\r\n[HKEY_CURRENT_USER\\Software\\Kinds]\r\n"
      u"\"Dword\"=dword:8000002a\r\n\"Expand\"=hex(2):25,00,50,00,00,00\r\n\"None\"=hex(0):\r\n"
      u"\"Multi\"=hex(7):61,00,00,00,62,00,00,00,00,00\r\n\"Big type\"=hex(ffffffff):01\r\n\"Odd\"=hex:01,02,03\r\n";
  std::string bytes = "\xFF\xFE";
  for (char16_t c : text) bytes += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
  WriteBytes(foreign, bytes);
  WriteEveryKindOfEntry(file.Open(), foreign);
  WriteEveryKindOfEntry(handle, foreign);
  ASSERT_FALSE(C_ERROR::Is());
  const std::string rows = pg.AllEntries();
  EXPECT_EQ(rows, file.AllEntries());
  EXPECT_EQ(pg.StoredData(u"\u00c9t\u00e9", u"Fields"), std::string("\x05\0\0\0\x02\0\0\0a\0b\0\x01\0\0\0", 16));
  EXPECT_NE(rows.find("|4294967295|01\n"), std::string::npos) << rows;
  // Both export the same file, byte for byte, and read back the same values.
  C_REGKEY fromFile, fromDatabase;
  fromFile.Open(file.Open(), u"Software", C_REGKEY::READ, false);
  fromDatabase.Open(handle, u"Software", C_REGKEY::READ, false);
  CregkeyExport(&fromFile, LibraryPath(dir.File("file.reg")));
  CregkeyExport(&fromDatabase, LibraryPath(dir.File("database.reg")));
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(ReadBytes(dir.File("database.reg")), ReadBytes(dir.File("file.reg")));
  C_REGKEY kinds;
  kinds.Open(&fromDatabase, u"KINDS\\\u00c9T\u00c9", C_REGKEY::READ, false);
  EXPECT_EQ(ReadEntry<int>(kinds, u"every FIELD"), -7);
  double real = 1;
  kinds.Read(&real);
  EXPECT_TRUE(real == 0 && std::signbit(real));
  EXPECT_EQ(Names(kinds), (NameList{u"Fields", u"Every field", u"Bytes1", u"Bytes2", u"Bytes3", u"Bytes4", u"Bytes5",
                                    u"", u"Empty", u"Odd", u"MiXeD", u"Large"}));
  EXPECT_EQ(Text(ReadEntry<C_STRING>(kinds, u"mixed")), u"CASE");
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(SettingsPostgresTest, ClientKilledInsideATransactionLeavesNothingOfIt) {
  PutAt(u"Batch", u"Kept", 1);
  ASSERT_FALSE(C_ERROR::Is());
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t client = StartChild([&] {
    // The parent's handle, in a connection of the child's own.
    store::SettingsKey* batch = nullptr;
    if (store::OpenSettingsKey(handle, u"Batch", 0xF003F, false, &batch) != store::SettingsResult::Ok ||
        !store::BeginSettingsBatch(batch)) {
      return 1;
    }
    const std::string data(1000, 'd');
    for (int i = 0; i < 100; ++i) {
      const std::u16string name = u"Half" + Text(C_STRING(i));
      if (store::SetSettingsEntry(batch, name, 3, reinterpret_cast<const unsigned char*>(data.data()), data.size()) !=
          store::SettingsResult::Ok) {
        return 2;
      }
    }
    store::SetSettingsEntry(batch, u"Kept", 3, reinterpret_cast<const unsigned char*>("\x02\0\0\0"), 4);
    if (write(ready[1], "r", 1) != 1) return 3;
    pause();
    return 4;
  });
  close(ready[1]);
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1) << "the client did not get into its transaction";
  close(ready[0]);
  kill(client, SIGKILL);
  ASSERT_TRUE(WIFSIGNALED(WaitForChild(client)));
  // Nothing of the transaction, the entry it had rewritten (and locked) is free at once.
  const auto start = Clock::now();
  PutAt(u"Batch", u"Kept", 3);
  EXPECT_LT(SecondsSince(start), 5.0);
  C_REGKEY key;
  key.Open(handle, u"Batch", C_REGKEY::READ, false);
  EXPECT_EQ(Names(key), NameList{u"Kept"});
  EXPECT_EQ(ReadEntry<int>(key, u"Kept"), 3);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(pg.Consistency(), "ok");
}

TEST_F(SettingsPostgresTest, SerializableDatabaseMakesWritersTryAgainAndLosesNothing) {
  // Under serializable isolation, two clients making subkeys of one key at once conflict
  // (each read the key's children that the other adds to): the loser is run again.
  server->Execute(database, "ALTER DATABASE " + database + " SET default_transaction_isolation = 'serializable'");
  constexpr int kKeys = 200;
  const auto rollbacks = [&] {
    return std::atoll(
        server->Query(pg.name(), "SELECT xact_rollback FROM pg_stat_database WHERE datname = current_database()")
            .c_str());
  };
  const long long before = rollbacks();
  int go[2];
  ASSERT_EQ(pipe(go), 0);
  pid_t writers[2];
  for (int w = 0; w < 2; ++w) {
    writers[w] = StartChild([&] {
      char byte;
      if (read(go[0], &byte, 1) != 1) return 2;
      for (int i = 0; i < kKeys && !C_ERROR::Is(); ++i) {
        PutAt(C_STRING(u"Writes\\") + C_STRING(w == 0 ? u"a" : u"b") + C_STRING(i), u"Value", i);
      }
      return C_ERROR::Is() ? 1 : 0;
    });
  }
  close(go[0]);
  ASSERT_EQ(write(go[1], "gg", 2), 2);
  close(go[1]);
  for (pid_t writer : writers) EXPECT_EQ(WaitForChild(writer), 0);
  C_REGKEY key;
  key.Open(handle, u"Writes", C_REGKEY::READ, false);
  EXPECT_EQ(Names(key, true).size(), 2u * kKeys);
  C_REGKEY last;
  last.Open(&key, u"b199", C_REGKEY::READ, false);
  EXPECT_EQ(ReadEntry<int>(last, u"Value"), 199);
  EXPECT_FALSE(C_ERROR::Is());
  std::this_thread::sleep_for(std::chrono::milliseconds(700));  // statistics reach the view with a delay
  EXPECT_GT(rollbacks(), before) << "no writer met a serialization failure: the test proved nothing";
  EXPECT_EQ(pg.Consistency(), "ok");
}

TEST_F(SettingsPostgresTest, ServerGoneOrFrozenFailsCallsInTimeAndTheSameHandlesWorkAgainAfterwards) {
  PutAt(u"Live", u"Before", 1);
  C_REGKEY reader, writer;
  writer.Open(handle, u"Live", C_REGKEY::WRITE, false);
  reader.Open(handle, u"Live", C_REGKEY::READ, false);
  ASSERT_FALSE(C_ERROR::Is());
  // A server that is gone is told at once, to reads, writes, keys and stores.
  ASSERT_TRUE(server->Stop());
  auto start = Clock::now();
  reader.SetEntry(u"Before");
  EXPECT_TRUE(ErrorIsInternal());
  Put(writer, u"During", 2);
  writer.SetEntry(u"Next");  // stores "During": refused
  EXPECT_TRUE(ErrorIsInternal());
  C_REGKEY fresh;
  fresh.Open(handle, u"Elsewhere", C_REGKEY::WRITE, true);
  EXPECT_TRUE(ErrorIsInternal());
  EXPECT_TRUE(OpenRefused(LibraryPath(server->Uri(database) + "&application_name=other")));
  EXPECT_LT(SecondsSince(start), 5.0);
  // Back, the same handles work on a new connection.
  ASSERT_TRUE(server->Start());
  Put(writer, u"After", 3);
  writer.SetEntry(u"Frozen");  // stores "After"
  EXPECT_EQ(ReadEntry<int>(reader, u"After"), 3);
  ASSERT_FALSE(C_ERROR::Is());
  // A server that stops answering: each call ends with an internal error within the call
  // time-out (15 s), first waiting for a reply, then (the connection dropped) connecting again.
  server->Freeze(true);
  start = Clock::now();
  writer.Write(4);
  writer.SetEntry(u"Thawed");
  const double storing = SecondsSince(start);
  const bool storingFailed = ErrorIsInternal();
  start = Clock::now();
  reader.SetEntry(u"Before");
  const double reading = SecondsSince(start);
  const bool readingFailed = ErrorIsInternal();
  server->Freeze(false);
  EXPECT_TRUE(storingFailed);
  EXPECT_TRUE(readingFailed);
  EXPECT_GT(storing, 14.0);
  EXPECT_LT(storing, 17.0);
  EXPECT_GT(reading, 9.0);  // the connect time-out
  EXPECT_LT(reading, 17.0);
  // Once it answers again, the same handles work. A write whose reply never came is in
  // doubt, as with any server: the frozen server may still have stored it, whole.
  EXPECT_EQ(ReadEntry<int>(reader, u"Before"), 1);
  Put(writer, u"Thawed", 5);
  writer.Close();
  NameList names = Names(reader);
  if (names.size() == 4 && names[2] == u"Frozen") {
    EXPECT_EQ(ReadEntry<int>(reader, u"Frozen"), 4);
    names.erase(names.begin() + 2);
  }
  EXPECT_EQ(names, (NameList{u"Before", u"After", u"Thawed"}));
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(SettingsPostgresTest, CredentialsComeAsLibpqTakesThemAndPasswordsAreNeverShown) {
  // A database of its own, where the role makes the store itself.
  database = DatabaseOf(server->NewStoreUri());
  const std::string password = PostgresServer::kSecretPassword;
  handle = C_REGKEY::OpenStore(LibraryPath(UriFor("secretive:" + password)));
  ASSERT_NE(handle, nullptr);
  PutAt(u"Secret", u"Value", 1);
  EXPECT_FALSE(C_ERROR::Is());
  // A wrong password, in the authority or as a parameter, refuses the store and is not shown.
  for (const std::string& uri : {UriFor("secretive:Wrong-Pa55"), UriFor("secretive", "&password=Wrong-Pa55")}) {
    EXPECT_EQ(C_REGKEY::OpenStore(LibraryPath(uri)), nullptr);
    EXPECT_EQ(C_ERROR::GetPending(), &CerrFileCannotOpen);
    const std::u16string extra = Text(C_ERROR::GetPendingExtra());
    C_ERROR::ClearPending();
    EXPECT_EQ(extra.find(u"Wrong-Pa55"), std::u16string::npos) << testing::PrintToString(extra);
    EXPECT_EQ(extra.find(u"password"), std::u16string::npos);
    EXPECT_NE(extra.find(u"postgresql://secretive@/"), std::u16string::npos) << testing::PrintToString(extra);
    EXPECT_NE(extra.find(u"&port=5432"), std::u16string::npos);
  }
  // From a password file, and from the environment.
  const std::string passfile = dir.File("pgpass");
  WriteBytes(passfile, "*:*:*:secretive:" + password + "\n");
  chmod(passfile.c_str(), 0600);
  EXPECT_EQ(RunInChild([&] {
              setenv("PGPASSFILE", passfile.c_str(), 1);
              C_REGKEY secret;
              secret.Open(C_REGKEY::OpenStore(LibraryPath(UriFor("secretive"))), u"Secret", C_REGKEY::READ, false);
              return ReadEntry<int>(secret, u"Value") == 1 && !C_ERROR::Is() ? 0 : 1;
            }),
            0);
  EXPECT_EQ(RunInChild([&] {
              setenv("PGPASSWORD", password.c_str(), 1);
              return C_REGKEY::OpenStore(LibraryPath(UriFor("secretive", "&application_name=env"))) != nullptr ? 0 : 1;
            }),
            0);
}

TEST_F(SettingsPostgresTest, ForkedChildrenUseConnectionsOfTheirOwn) {
  C_REGKEY key;
  key.Open(handle, u"Shared", C_REGKEY::READ_WRITE, true);
  Put(key, u"Parent", 1);
  key.SetEntry(u"Parent");
  ASSERT_FALSE(C_ERROR::Is());
  const std::string sessions =
      "SELECT string_agg(pid::text, ',' ORDER BY pid) FROM pg_stat_activity WHERE "
      "application_name = 'qorc' AND datname = '" +
      database + "'";
  const std::string before = server->Query(pg.name(), sessions);
  ASSERT_NE(before.find_first_of("0123456789"), std::string::npos);
  for (int child = 0; child < 2; ++child) {
    EXPECT_EQ(RunInChild([&] {
                // The parent's open key, in the child's own connection; Cclose leaves the parent's alone.
                Put(key, C_STRING(u"Child") + C_STRING(child), 10 + child);
                key.SetEntry(u"Parent");
                int value = 0;
                key.Read(&value);
                const bool ok = value == 1 && !C_ERROR::Is();
                Cclose();
                return ok ? 0 : 1;
              }),
              0);
  }
  EXPECT_EQ(ReadEntry<int>(key, u"Child0"), 10);
  EXPECT_EQ(ReadEntry<int>(key, u"Child1"), 11);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(server->Query(pg.name(), sessions), before);  // the parent's session was never ended
}

TEST_F(SettingsPostgresTest, OtherSchemasAndRolesWithoutRightsAreRefused) {
  // The same database through another spelling of its URI is the same store.
  EXPECT_EQ(C_REGKEY::OpenStore(LibraryPath(pg.name() + "&connect_timeout=5")), handle);
  PutAt(u"Readable", u"Value", 5);
  // A role that may only read: reads work, writes are refused as internal errors.
  server->Execute(database, "CREATE ROLE reader LOGIN");
  server->Execute(database, "GRANT USAGE ON SCHEMA qorc_settings TO reader");
  server->Execute(database, "GRANT SELECT ON ALL TABLES IN SCHEMA qorc_settings TO reader");
  EXPECT_EQ(RunInChild([&] {
              const C_REGKEY::HANDLE readOnly = C_REGKEY::OpenStore(LibraryPath(UriFor("reader")));
              C_REGKEY readable;
              readable.Open(readOnly, u"Readable", C_REGKEY::READ_WRITE, false);
              if (ReadEntry<int>(readable, u"Value") != 5 || C_ERROR::Is()) return 1;
              Put(readable, u"Value", 6);
              readable.Close();
              if (!ErrorIsInternal()) return 2;
              readable.Open(readOnly, u"Readable\\New", C_REGKEY::WRITE, true);
              return ErrorIsInternal() ? 0 : 3;
            }),
            0);
  EXPECT_EQ(pg.StoredData(u"Readable", u"Value"), std::string("\x05\0\0\0", 4));
  server->Execute(database, "DROP OWNED BY reader");
  server->Execute(database, "DROP ROLE reader");
  // A schema of that name that is not a settings store, or of another version.
  const std::string foreign = server->NewStoreUri();
  server->Query(foreign, "CREATE SCHEMA qorc_settings; CREATE TABLE qorc_settings.keys(x int)");
  EXPECT_TRUE(OpenRefused(LibraryPath(foreign)));
  const std::string later = server->NewStoreUri();
  EXPECT_EQ(RunInChild([&] { return C_REGKEY::OpenStore(LibraryPath(later)) != nullptr ? 0 : 1; }), 0);
  server->Query(later, "UPDATE qorc_settings.meta SET version = 99");
  EXPECT_TRUE(OpenRefused(LibraryPath(later)));
  EXPECT_TRUE(OpenRefused(C_STRING(u"postgresql://[broken")));
}

TEST(SettingsStoreNames, UrisAreShownWithoutTheirPasswords) {
  const auto shown = [](const char* name) { return Text(C_REGKEY::ShownStoreName(LibraryPath(name))); };
  EXPECT_EQ(shown("postgresql://ann:pw@db.example:5432/settings"), u"postgresql://ann@db.example:5432/settings");
  EXPECT_EQ(shown("postgres://ann:p@ss:w@host/db?sslmode=require"), u"postgres://ann@host/db?sslmode=require");
  EXPECT_EQ(shown("postgresql:///db?password=pw&host=/run/pg&port=5433"), u"postgresql:///db?host=/run/pg&port=5433");
  EXPECT_EQ(shown("postgresql://h1:1,h2:2/db?user=ann&password=pw"), u"postgresql://h1:1,h2:2/db?user=ann");
  EXPECT_EQ(shown("postgresql://ann@host"), u"postgresql://ann@host");
  EXPECT_EQ(shown("/home/ann/.config/qorc/pass:word@store.sqlite"), u"/home/ann/.config/qorc/pass:word@store.sqlite");
  EXPECT_FALSE(C_ERROR::Is());
}

}  // namespace
