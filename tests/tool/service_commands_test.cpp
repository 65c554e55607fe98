// qor lock, reg, storage and serial, run as a program against real lock
// files, settings stores, compound documents read by olefile, and the
// simulated serial instrument.
#include <gtest/gtest.h>
#include <qorc/qorc.h>
#include <qorc/regkey.h>
#include <qorc/storage.h>
#include <signal.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <sstream>

#include "support/instrument.h"
#include "tool/qor_runner.h"

namespace {

using ServiceCommandsTest = QorTest;

C_STRING Library(const std::string& text) {
  C_STRING result;
  result.FromUTF8(text.c_str());
  return result;
}

std::string Utf8Of(const C_STRING& text) {
  char* bytes = text.GetNewUTF8();
  const std::string result = bytes != nullptr ? bytes : "";
  delete[] bytes;
  return result;
}

// A child process that locks the document and then waits to be killed.
pid_t LockingChild(const std::string& document) {
  const pid_t pid = fork();
  if (pid == 0) {
    C_FILE::Lock(Library(document));
    for (;;) pause();
  }
  // Waits until the child's entry is in the lock file.
  for (int i = 0; i < 500; ++i) {
    if (ReadWholeFile(document + ".lck").find("\\" + std::to_string(pid)) != std::string::npos) break;
    usleep(10000);
  }
  return pid;
}

// What python's olefile prints for a script, with `o` the opened document.
std::string Olefile(const TempDir& dir, const std::string& document, const std::string& script) {
  const std::string out = dir.File("olefile.out");
  const std::string program = "import olefile, sys; o = olefile.OleFileIO(\"" + document + "\"); " + script;
  EXPECT_EQ(std::system(("/usr/bin/python3 -c '" + program + "' >" + out).c_str()), 0);
  const std::string printed = ReadWholeFile(out);
  std::filesystem::remove(out);
  return printed;
}

std::vector<std::string> SortedLines(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  return lines;
}

void Kill(pid_t pid) {
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

TEST_F(ServiceCommandsTest, LockStatusNamesStaleEntriesAndClearStaleRemovesOnlyThem) {
  const std::string document = dir.File("plan.dat");
  EXPECT_EQ(Run({"lock", "status", document}).out, document + ": not locked\n");
  // An entry of another machine, then one of a child killed while it held the lock.
  WriteWholeFile(document + ".lck", "\\\\faraway\\bob\\77\n");
  const pid_t dead = LockingChild(document);
  Kill(dead);
  C_STRING own;
  C_FILE::BuildLockerName(&own);
  const std::string self = Utf8Of(own);
  const std::string machineAndUser = self.substr(0, self.rfind('\\') + 1);
  const std::string deadEntry = machineAndUser + std::to_string(dead);
  const QorResult status = Run({"lock", "status", document});
  EXPECT_EQ(status.status, 0) << status.err;
  EXPECT_EQ(status.out, "\\\\faraway\\bob\\77  unknown (another machine)\n" + deadEntry + "  gone (stale)\n");
  // Asked first: "n" keeps the entry, "y" removes it.
  WriteWholeFile(dir.File("no"), "n\n");
  EXPECT_EQ(Run({"lock", "clear-stale", document}, dir.File("no")).out,
            deadEntry + "  gone (stale)\nnothing removed\n");
  WriteWholeFile(dir.File("yes"), "y\n");
  const QorResult cleared = Run({"lock", "clear-stale", document}, dir.File("yes"));
  EXPECT_EQ(cleared.status, 0) << cleared.err;
  EXPECT_EQ(cleared.out, deadEntry + "  gone (stale)\n1 stale entries removed\n");
  EXPECT_EQ(cleared.err, "Remove 1 stale entries from " + document + ".lck? [y/N] ");
  // The lock file keeps its format: the other machine's entry alone.
  EXPECT_EQ(ReadWholeFile(document + ".lck"), "\\\\faraway\\bob\\77");
  // A running locker is never stale.
  const pid_t running = LockingChild(document);
  const QorResult live = Run({"lock", "clear-stale", "--yes", document});
  EXPECT_EQ(live.out, document + ": no stale entries\n");
  EXPECT_NE(Run({"lock", "status", document}).out.find(machineAndUser + std::to_string(running) + "  running\n"),
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

  const QorResult exported = Run({"reg", "--store", first, "export", "Software\\Qorc", dir.File("a.reg")});
  ASSERT_EQ(exported.status, 0) << exported.err;
  const std::string second = dir.File("second.sqlite");
  EXPECT_EQ(Outcome(Run({"reg", "--store", second, "import", dir.File("a.reg")})), kSuccess);
  ASSERT_EQ(Run({"reg", "--store", second, "export", "Software\\Qorc", dir.File("b.reg")}).status, 0);
  EXPECT_EQ(ReadWholeFile(dir.File("b.reg")), ReadWholeFile(dir.File("a.reg")));

  // Messages show key paths with "/".
  EXPECT_EQ(Outcome(Run({"reg", "--store", second, "list", "Software\\Nothing"})),
            Failure("qor: Not found: no key Software/Nothing in " + second + "\n"));
}

TEST_F(ServiceCommandsTest, StoragePutIsReadByOlefileAndGetGivesItBack) {
  const std::string data = SampleData(300000, 13);
  const std::string document = dir.File("doc.cfb");
  ASSERT_EQ(Outcome(Run({"storage", "put", document, Write("data", data)})), kSuccess);
  EXPECT_EQ(Olefile(dir, document, "sys.stdout.buffer.write(o.openstream(\"Contents\").read())"), data);
  EXPECT_EQ(Outcome(Run({"storage", "get", document, dir.File("back")})), kSuccess);
  EXPECT_EQ(ReadWholeFile(dir.File("back")), data);
  EXPECT_EQ(Outcome(Run({"storage", "get", dir.File("data"), "-"})),
            Failure("qor: Unable to open file: " + dir.File("data") + "\n"));
}

TEST_F(ServiceCommandsTest, StorageListAgreesWithOlefile) {
  const std::string document = dir.File("parts.cfb");
  {
    // Streams in the document and in storages of it, made by the library.
    IStorage* root = IStorage::Open(Library(document), true);
    ASSERT_NE(root, nullptr);
    for (const char* name : {"Beta", "alpha", "Gamma"}) {
      IStorage* part = root->OpenStorage(Library(name), true);
      ASSERT_NE(part, nullptr);
      {
        C_FILE contents(part, C_FILE::UPDATE);
        contents.Write(static_cast<int>(std::strlen(name)), name);
      }
      part->Release();
    }
    {
      C_FILE contents(root, C_FILE::UPDATE);
      contents.Write(3, "top");
    }
    ASSERT_TRUE(root->Commit(IStorage::COMMIT_DEFAULT));
    root->Release();
  }
  ASSERT_FALSE(C_ERROR::Is());
  const std::string list = Output({"storage", "list", document});
  // olefile's view of the same document, in the same form; qor keeps the
  // directory's order, so both are compared sorted.
  const std::string theirs =
      Olefile(dir, document,
              "[print(\"/\".join(p) + (\"/\" if o.get_type(p) == 1 else \"  %d bytes\" % o.get_size(p)))"
              " for p in o.listdir(streams=True, storages=True)]");
  EXPECT_NE(theirs.find("alpha/Contents  5 bytes\n"), std::string::npos) << theirs;
  EXPECT_NE(list.find("alpha/\n"), std::string::npos) << list;
  EXPECT_EQ(SortedLines(list), SortedLines(theirs));
  const std::string notDocument = Write("plain", "not a compound document");
  EXPECT_EQ(Outcome(Run({"storage", "list", notDocument})),
            Failure("qor: File contains invalid encoding: " + notDocument + " is not a sound compound document\n"));
}

TEST_F(ServiceCommandsTest, SerialReadAndSendTalkToTheInstrument) {
  Instrument reader(QORC_INSTRUMENT_SIM, {"expect=19", "expect=17", "send=\\nfirst reading\\r\\n", "expect=19",
                                          "expect=17", "send=\\nsecond\\r\\n", "expect=19", "closed"});
  ASSERT_FALSE(reader.port().empty());
  EXPECT_EQ(Output({"serial", "read", reader.port(), "--lines", "2", "--baud", "19200"}), "first reading\nsecond\n");
  EXPECT_EQ(reader.Finish(), 0);
  Instrument listener(QORC_INSTRUMENT_SIM, {"expect=19", "expect=MEAS?", "closed"});
  EXPECT_EQ(Outcome(Run({"serial", "send", listener.port(), "MEAS?"})), kSuccess);
  EXPECT_EQ(listener.Finish(), 0);
  const QorResult absent = Run({"serial", "send", dir.File("no-port"), "x"});
  EXPECT_EQ(absent.status, 1);
  EXPECT_EQ(absent.err.rfind("qor: Cannot open serial line: ", 0), 0u) << absent.err;
}

}  // namespace
