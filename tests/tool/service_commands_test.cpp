// qor lock, reg, storage and serial, run as a program against real lock
// files, settings stores, compound documents read by olefile, and the
// simulated serial instrument.
#include <qorc/qorc.h>
#include <qorc/regkey.h>
#include <qorc/storage.h>
#include <signal.h>

#include <cstring>
#include <filesystem>
#include <sstream>

#include "support/instrument.h"
#include "support/postgres_server.h"
#include "tool/qor_runner.h"

namespace {

using namespace std::string_literals;
using ServiceCommandsTest = QorTest;

C_STRING Library(const std::string& text) {
  C_STRING result;
  result.FromUTF8(text.c_str());
  return result;
}

// A child process that locks the document and then waits to be killed;
// returns once its entry is in the lock file.
pid_t LockingChild(const std::string& document) {
  const pid_t pid = fork();
  if (pid == 0) {
    C_FILE::Lock(Library(document));
    for (;;) pause();
  }
  for (int i = 0; i < 500 && ReadWholeFile(document + ".lck").find("\\" + std::to_string(pid)) == std::string::npos;
       ++i) {
    usleep(10000);
  }
  return pid;
}

void Kill(pid_t pid) {
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

// What python's olefile prints for a script, with `o` the opened document.
std::string Olefile(const TempDir& dir, const std::string& document, const std::string& script) {
  const std::string out = dir.File("olefile.out");
  const std::string program = "import olefile, sys; o = olefile.OleFileIO(\"" + document + "\"); " + script;
  EXPECT_EQ(std::system(("/usr/bin/python3 -c '" + program + "' >" + out).c_str()), 0);
  return ReadWholeFile(out);
}

std::vector<std::string> SortedLines(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  return lines;
}

TEST_F(ServiceCommandsTest, LockStatusNamesStaleEntriesAndClearStaleRemovesOnlyThem) {
  const std::string document = dir.File("plan.dat");
  EXPECT_EQ(Output({"lock", "status", document}), document + ": not locked\n");
  // An entry of another machine, then one of a child killed while it held the lock.
  WriteWholeFile(document + ".lck", "\\\\faraway\\bob\\77\n");
  const pid_t dead = LockingChild(document);
  Kill(dead);
  C_STRING own;
  C_FILE::BuildLockerName(&own);
  char* self = own.GetNewUTF8();
  const std::string machineAndUser(self, std::strrchr(self, '\\') + 1);
  delete[] self;
  const std::string deadEntry = machineAndUser + std::to_string(dead);
  EXPECT_EQ(Output({"lock", "status", document}),
            "\\\\faraway\\bob\\77  unknown (another machine)\n" + deadEntry + "  gone (stale)\n");
  // Asked first: "n" keeps the entry, "y" removes it.
  EXPECT_EQ(Run({"lock", "clear-stale", document}, Write("no", "n\n")).out,
            deadEntry + "  gone (stale)\nnothing removed\n");
  const QorResult cleared = Run({"lock", "clear-stale", document}, Write("yes", "y\n"));
  EXPECT_EQ(Outcome(cleared), std::make_pair(0, "Remove 1 stale entries from " + document + ".lck? [y/N] "));
  EXPECT_EQ(cleared.out, deadEntry + "  gone (stale)\n1 stale entries removed\n");
  // The lock file keeps its format: the other machine's entry alone.
  EXPECT_EQ(ReadWholeFile(document + ".lck"), "\\\\faraway\\bob\\77");
  // A running locker is never stale.
  const pid_t running = LockingChild(document);
  EXPECT_EQ(Output({"lock", "clear-stale", "--yes", document}), document + ": no stale entries\n");
  EXPECT_NE(Output({"lock", "status", document}).find(machineAndUser + std::to_string(running) + "  running\n"),
            std::string::npos);
  Kill(running);
}

TEST_F(ServiceCommandsTest, RegExportAndImportRoundTrip) {
  const std::string first = dir.File("first.sqlite");
  {
    C_REGKEY key;
    key.Open(C_REGKEY::OpenStore(Library(first)), Library("Software\\Qorc\\Test"), C_REGKEY::READ_WRITE, true);
    key.SetEntry(Library("Name"));
    key.WriteReadableString(Library("caf\xC3\xA9 \"quoted\""));
    key.SetEntry(Library("Numbers"));
    key.Write(42);
    key.Write(2.5);
    C_REGKEY child;
    child.Open(&key, Library("Child"), C_REGKEY::READ_WRITE, true);
    child.SetEntry(Library(""));
    child.WriteReadableString(Library("default"));
  }
  ASSERT_FALSE(C_ERROR::Is());
  // Key paths with "/" or "\\", entry names in any case.
  EXPECT_EQ(Output({"reg", "--store", first, "list", "Software/Qorc/Test"}), "Child\\\n\"Name\"\n\"Numbers\"\n");
  EXPECT_EQ(Output({"reg", "get", "Software\\Qorc\\Test", "name", "--store", first}),
            "\"Name\"=\"caf\xC3\xA9 \\\"quoted\\\"\"\n");
  EXPECT_EQ(Output({"reg", "--store", first, "get", "Software\\Qorc\\Test\\Child", ""}), "@=\"default\"\n");
  const std::string second = dir.File("second.sqlite");
  Output({"reg", "--store", first, "export", "Software\\Qorc", dir.File("a.reg")});
  Output({"reg", "--store", second, "import", dir.File("a.reg")});
  Output({"reg", "--store", second, "export", "Software\\Qorc", dir.File("b.reg")});
  EXPECT_EQ(ReadWholeFile(dir.File("b.reg")), ReadWholeFile(dir.File("a.reg")));
  // Messages show key paths with "/".
  EXPECT_EQ(Outcome(Run({"reg", "--store", second, "list", "Software\\Nothing"})),
            Failure("qor: Not found: no key Software/Nothing in " + second + "\n"));
}

std::string Utf16(const std::string& ascii) {
  std::string bytes;
  for (char c : ascii) bytes += {c, '\0'};
  return bytes;
}

const char kMixedFile[] =
    "Windows Registry Editor Version 5.00\r\n\r\n"
    "[HKEY_LOCAL_MACHINE\\Software\\Vendor]\r\n\"Installed\"=dword:00000001\r\n\r\n"
    "[HKEY_CURRENT_USER\\Software\\Vendor]\r\n@=\"mine\"\r\n\"Blob\"=hex:01,02\r\n\r\n"
    "[HKEY_CLASSES_ROOT\\.vnd]\r\n@=\"Vendor.Document\"\r\n";

TEST_F(ServiceCommandsTest, RegImportSendsEachSectionToTheStoreOfItsRoot) {
  const std::string user = dir.File("user.sqlite"), machine = dir.File("machine.sqlite");
  const auto reg = [](const std::string& userStore, const std::string& machineStore, std::vector<std::string> args) {
    args.insert(args.begin(), {"reg", "--store", userStore, "--machine-store", machineStore});
    return args;
  };
  const std::string file = Write("mixed.reg", kMixedFile);
  EXPECT_EQ(Output(reg(user, machine, {"import", file})),
            file + " imported: HKEY_CURRENT_USER into " + user + ", HKEY_LOCAL_MACHINE into " + machine + "\n");
  // Full key paths, roots in any case; HKEY_CLASSES_ROOT is the machine's Software\Classes.
  EXPECT_EQ(Output(reg(user, machine, {"list", "HKEY_LOCAL_MACHINE\\Software"})), "Classes\\\nVendor\\\n");
  EXPECT_EQ(Output(reg(user, machine, {"list", "hkey_classes_root/.vnd"})), "@\n");
  EXPECT_EQ(Output(reg(user, machine, {"get", "HKEY_CURRENT_USER\\Software\\Vendor", ""})), "@=\"mine\"\n");
  EXPECT_EQ(Output(reg(user, machine, {"--machine", "get", "Software\\Vendor", "installed"})),
            "\"Installed\"=dword:00000001\n");
  EXPECT_EQ(Output(reg(user, machine, {"list", "HKEY_CURRENT_USER"})), "Software\\\n");
  EXPECT_EQ(Outcome(Run(reg(user, machine, {"list", "HKEY_USERS\\.DEFAULT"}))),
            Failure("qor: Not found: HKEY_USERS is not kept here: keys belong under HKEY_CURRENT_USER, "
                    "HKEY_LOCAL_MACHINE or HKEY_CLASSES_ROOT\n"));

  // A root alone exports all of its store, named by that root.
  const std::string userFile = dir.File("user.reg"), machineFile = dir.File("machine.reg");
  Output(reg(user, machine, {"export", "HKEY_LOCAL_MACHINE", machineFile}));
  Output(reg(user, machine, {"export", "HKEY_CURRENT_USER", userFile}));
  const std::string machineText = ReadWholeFile(machineFile);
  EXPECT_NE(machineText.find(Utf16("\r\n[HKEY_LOCAL_MACHINE\\Software\\Classes\\.vnd]\r\n@=\"Vendor.Document\"\r\n")),
            std::string::npos);
  EXPECT_EQ(machineText.find(Utf16("HKEY_CURRENT_USER")), std::string::npos);
  EXPECT_NE(ReadWholeFile(userFile).find(Utf16("\r\n[HKEY_CURRENT_USER\\Software\\Vendor]\r\n@=\"mine\"\r\n")),
            std::string::npos);
  Output(reg(user, machine, {"export", "HKEY_LOCAL_MACHINE/Software/Vendor", dir.File("vendor.reg")}));
  EXPECT_NE(ReadWholeFile(dir.File("vendor.reg")).find(Utf16("\r\n\r\n[HKEY_LOCAL_MACHINE\\Software\\Vendor]\r\n")),
            std::string::npos);

  // Into fresh stores and out again: the same files.
  const std::string user2 = dir.File("user2.sqlite"), machine2 = dir.File("machine2.sqlite");
  Output(reg(user2, machine2, {"import", machineFile}));
  Output(reg(user2, machine2, {"import", userFile}));
  Output(reg(user2, machine2, {"export", "HKEY_LOCAL_MACHINE", dir.File("machine2.reg")}));
  Output(reg(user2, machine2, {"export", "HKEY_CURRENT_USER", dir.File("user2.reg")}));
  EXPECT_EQ(ReadWholeFile(dir.File("machine2.reg")), machineText);
  EXPECT_EQ(ReadWholeFile(dir.File("user2.reg")), ReadWholeFile(userFile));

  // A file of one root opens only that root's store.
  const std::string user3 = dir.File("user3.sqlite"), machine3 = dir.File("machine3.sqlite");
  Output(reg(user3, machine3, {"import", userFile}));
  EXPECT_TRUE(std::filesystem::exists(user3));
  EXPECT_FALSE(std::filesystem::exists(machine3));
}

TEST_F(ServiceCommandsTest, RegImportOfARefusedFileChangesAndMakesNoStore) {
  const std::string user = dir.File("user.sqlite"), machine = dir.File("machine.sqlite");
  const std::vector<std::string> stores{"reg", "--store", user, "--machine-store", machine};
  const auto import = [&](const std::string& file) {
    std::vector<std::string> args = stores;
    args.insert(args.end(), {"import", file});
    return Outcome(Run(args));
  };
  const std::string bad = Write("bad.reg", std::string(kMixedFile) + "\"Broken\"=hex:0g\r\n");
  EXPECT_EQ(import(bad), Failure("qor: File contains invalid encoding: " + bad +
                                 ", line 12: hexadecimal data must be bytes of two digits separated by commas\n"));
  const std::string users = Write("users.reg", std::string(kMixedFile) + "[HKEY_USERS\\S-1-5-18]\r\n");
  EXPECT_EQ(import(users), Failure("qor: File contains invalid encoding: " + users +
                                   ", line 12: HKEY_USERS is not kept here: keys belong under HKEY_CURRENT_USER, "
                                   "HKEY_LOCAL_MACHINE or HKEY_CLASSES_ROOT\n"));
  EXPECT_FALSE(std::filesystem::exists(user));
  EXPECT_FALSE(std::filesystem::exists(machine));
  // Stores that exist keep every byte.
  EXPECT_EQ(import(Write("good.reg", kMixedFile)), kSuccess);
  const std::string userBytes = ReadWholeFile(user), machineBytes = ReadWholeFile(machine);
  EXPECT_EQ(import(bad).first, 1);
  EXPECT_EQ(ReadWholeFile(user), userBytes);
  EXPECT_EQ(ReadWholeFile(machine), machineBytes);
}

TEST_F(ServiceCommandsTest, RegWorksOnAStoreInPostgresql) {
  std::string why;
  bool absent = false;
  PostgresServer* server = PostgresServer::Shared(&why, &absent);
  if (absent) GTEST_SKIP() << why;
  ASSERT_NE(server, nullptr) << why;
  const std::string uri = server->NewStoreUri();
  const std::string file = dir.File("file.sqlite");
  {
    C_REGKEY key;
    key.Open(C_REGKEY::OpenStore(Library(file)), Library("Software\\Qorc\\Shared"), C_REGKEY::READ_WRITE, true);
    key.SetEntry(Library("Name"));
    key.WriteReadableString(Library("caf\xC3\xA9"));
    key.SetEntry(Library("Numbers"));
    key.Write(42);
    key.Write(2.5);
    C_REGKEY child;
    child.Open(&key, Library("Child"), C_REGKEY::WRITE, true);
  }
  ASSERT_FALSE(C_ERROR::Is());
  // From a store file into the database and back out: the same .reg file.
  Output({"reg", "--store", file, "export", "Software\\Qorc", dir.File("file.reg")});
  Output({"reg", "--store", uri, "import", dir.File("file.reg")});
  Output({"reg", "--store", uri, "export", "Software\\Qorc", dir.File("database.reg")});
  EXPECT_EQ(ReadWholeFile(dir.File("database.reg")), ReadWholeFile(dir.File("file.reg")));
  EXPECT_EQ(Output({"reg", "--store", uri, "list", "Software/Qorc/Shared"}), "Child\\\n\"Name\"\n\"Numbers\"\n");
  EXPECT_EQ(Output({"reg", "--store", uri, "get", "Software/Qorc/Shared", "name"}), "\"Name\"=\"caf\xC3\xA9\"\n");
  EXPECT_EQ(server->Query(uri, "SELECT count(*) FROM qorc_settings.entries"), "2");
  // Passwords stay out of messages, whether the store opens or not.
  server->Query(uri,
                "GRANT USAGE ON SCHEMA qorc_settings TO secretive; GRANT SELECT ON ALL TABLES IN SCHEMA "
                "qorc_settings TO secretive");
  const std::string secret = "postgresql://secretive:" + std::string(PostgresServer::kSecretPassword) + "@/" +
                             uri.substr(14, uri.find('?') - 14) + "?host=" + server->SocketDirectory() + "&port=5432";
  const std::string shown = "postgresql://secretive@/" + uri.substr(14, uri.find('?') - 14) +
                            "?host=" + server->SocketDirectory() + "&port=5432";
  EXPECT_EQ(Outcome(Run({"reg", "--store", secret, "list", "Software\\Nothing"})),
            Failure("qor: Not found: no key Software/Nothing in " + shown + "\n"));
  std::string wrong = secret;
  wrong.replace(wrong.find(PostgresServer::kSecretPassword), std::strlen(PostgresServer::kSecretPassword),
                "Wrong-Pa55");
  const QorResult refused = Run({"reg", "--store", wrong, "list", "Software"});
  EXPECT_NE(refused.status, 0);
  EXPECT_EQ(refused.err.find("Wrong-Pa55"), std::string::npos) << refused.err;
  EXPECT_NE(refused.err.find(shown), std::string::npos) << refused.err;
}

TEST_F(ServiceCommandsTest, StorageRoundTripAndListAgreeWithOlefile) {
  const std::string data = SampleData(300000, 13);
  const std::string single = dir.File("doc.cfb");
  Output({"storage", "put", single, Write("data", data)});
  EXPECT_EQ(Olefile(dir, single, "sys.stdout.buffer.write(o.openstream(\"Contents\").read())"), data);
  Output({"storage", "get", single, dir.File("back")});
  EXPECT_EQ(ReadWholeFile(dir.File("back")), data);
  // A stream shorter than the compressed format's header comes back too.
  Output({"storage", "put", single, Write("short", "13 bytes long")});
  EXPECT_EQ(Output({"storage", "get", single, "-"}), "13 bytes long");
  // Streams in storages of a document made by the library, and "top" in its root.
  const std::string document = dir.File("parts.cfb");
  IStorage* root = IStorage::Open(Library(document), true);
  ASSERT_NE(root, nullptr);
  for (const std::string name : {"Beta", "alpha", "Gamma", "top"}) {
    IStorage* part = name == "top" ? root : root->OpenStorage(Library(name), true);
    ASSERT_NE(part, nullptr);
    C_FILE(part, C_FILE::UPDATE).Write(static_cast<int>(name.size()), name.c_str());
    if (part != root) part->Release();
  }
  ASSERT_TRUE(root->Commit(IStorage::COMMIT_DEFAULT));
  root->Release();
  ASSERT_FALSE(C_ERROR::Is());
  // olefile's view of the same document, in the same form; qor keeps the
  // directory's order, so both are compared sorted.
  const std::string list = Output({"storage", "list", document});
  const std::string theirs =
      Olefile(dir, document,
              "[print(\"/\".join(p) + (\"/\" if o.get_type(p) == 1 else \"  %d bytes\" % o.get_size(p)))"
              " for p in o.listdir(streams=True, storages=True)]");
  EXPECT_NE(theirs.find("alpha/Contents  5 bytes\n"), std::string::npos) << theirs;
  EXPECT_NE(list.find("alpha/\n"), std::string::npos) << list;
  EXPECT_EQ(SortedLines(list), SortedLines(theirs));
  EXPECT_EQ(
      Outcome(Run({"storage", "get", dir.File("data"), "-"})),
      Failure("qor: File contains invalid encoding: " + dir.File("data") + " is not a sound compound document\n"));
  EXPECT_EQ(Outcome(Run({"storage", "get", dir.File("absent"), "-"})),
            Failure("qor: Unable to open file: " + dir.File("absent") + "\n"));
  EXPECT_EQ(
      Outcome(Run({"storage", "list", dir.File("data")})),
      Failure("qor: File contains invalid encoding: " + dir.File("data") + " is not a sound compound document\n"));
}

unsigned int Le32(const std::string& bytes, std::size_t at) {
  return static_cast<unsigned char>(bytes[at]) | static_cast<unsigned char>(bytes[at + 1]) << 8 |
         static_cast<unsigned char>(bytes[at + 2]) << 16 |
         static_cast<unsigned int>(static_cast<unsigned char>(bytes[at + 3])) << 24;
}

TEST_F(ServiceCommandsTest, StorageGetNamesWhatIsMissingOrDamaged) {
  // Storages only, no Contents of the document's own.
  const std::string parts = dir.File("parts.cfb");
  IStorage* root = IStorage::Open(Library(parts), true);
  ASSERT_NE(root, nullptr);
  IStorage* alpha = root->OpenStorage(Library("alpha"), true);
  C_FILE(alpha, C_FILE::UPDATE).Write(5, "alpha");
  alpha->Release();
  ASSERT_TRUE(root->Commit(IStorage::COMMIT_DEFAULT));
  root->Release();
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(Outcome(Run({"storage", "get", parts, "-"})),
            Failure("qor: File not found: " + parts +
                    " has no stream Contents in its root storage (see qor storage list)\n"));
  // Contents shorter than any header, and empty.
  const std::string small = dir.File("small.cfb");
  Output({"storage", "put", small, Write("hello", "hello")});
  EXPECT_EQ(Output({"storage", "get", small, "-"}), "hello");
  Output({"storage", "put", small, "/dev/null"});
  EXPECT_EQ(Output({"storage", "get", small, "-"}), "");

  // A Contents whose chain of sectors loops: the directory still lists it.
  const std::string damaged = dir.File("damaged.cfb");
  Output({"storage", "put", damaged, Write("data", SampleData(5000, 3))});
  std::string bytes = ReadWholeFile(damaged);
  const std::size_t sectorSize = std::size_t(1) << (static_cast<unsigned char>(bytes[0x1E]));
  const std::size_t directory = (Le32(bytes, 0x30) + 1) * sectorSize;
  const std::size_t table = (Le32(bytes, 0x4C) + 1) * sectorSize;
  const std::string name = "C\0o\0n\0t\0e\0n\0t\0s\0"s;
  std::size_t entry = directory;
  while (entry < bytes.size() && bytes.compare(entry, name.size(), name) != 0) entry += 128;
  ASSERT_LT(entry, bytes.size());
  const unsigned int start = Le32(bytes, entry + 0x74);
  const unsigned int next = Le32(bytes, table + 4 * start);
  ASSERT_LT(next, 0xFFFFFFFAu);
  for (int i = 0; i < 4; ++i) bytes[table + 4 * next + i] = static_cast<char>(start >> (8 * i));  // back to the first
  WriteWholeFile(damaged, bytes);
  EXPECT_EQ(Output({"storage", "list", damaged}), "Contents  5000 bytes\n");
  const QorResult refused = Run({"storage", "get", damaged, "-"});
  EXPECT_EQ(Outcome(refused), Failure("qor: Unable to read file: " + damaged +
                                      ": the stream Contents cannot be read: its chain of sectors runs in a loop at "
                                      "sector " +
                                      std::to_string(start) + "\n"));
}

TEST_F(ServiceCommandsTest, SerialReadAndSendTalkToTheInstrument) {
  Instrument reader(QORC_INSTRUMENT_SIM, {"expect=19", "expect=17", "send=\\nfirst reading\\r\\n", "expect=19",
                                          "expect=17", "send=\\nsecond\\r\\n", "expect=19", "closed"});
  ASSERT_FALSE(reader.port().empty());
  EXPECT_EQ(Output({"serial", "read", reader.port(), "--lines", "2", "--baud", "19200"}), "first reading\nsecond\n");
  EXPECT_EQ(reader.Finish(), 0);
  Instrument listener(QORC_INSTRUMENT_SIM, {"expect=19", "expect=MEAS?", "closed"});
  Output({"serial", "send", listener.port(), "MEAS?"});
  EXPECT_EQ(listener.Finish(), 0);
  const QorResult absent = Run({"serial", "send", dir.File("no-port"), "x"});
  EXPECT_EQ(absent.status, 1);
  EXPECT_EQ(absent.err.rfind("qor: Cannot open serial line: ", 0), 0u) << absent.err;
}

}  // namespace
