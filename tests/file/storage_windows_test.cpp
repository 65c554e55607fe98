// Files in compound documents on Windows, through the system's structured
// storage: the stream "Contents" through the file object, transactions and
// commits, damaged documents refused before the system reads them, and
// documents exchanged with programs of the Linux host (olefile, gsf).
#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "file/storage_test_util.h"
#include "support/wine_host.h"

namespace {

std::wstring WidePath(const std::string& path) { return std::wstring(path.begin(), path.end()); }

class StorageWindowsTest : public FileTest {
 protected:
  const std::string doc = dir.File("doc.ole");

  // Runs a command of the Linux host; skipped where there is none.
  std::string OnHost(const std::string& command) {
    std::string output;
    const int status = RunOnHost(command, WidePath(dir.File("host")), &output);
    return status == 0 ? output : output + "<exit " + std::to_string(status) + ">";
  }
  std::string UnixDoc() const { return UnixPath(WidePath(doc)); }
  // What olefile sees: the entries, then the bytes of each of `streams` in hexadecimal.
  std::string Olefile(const std::vector<std::string>& streams) {
    std::string script = "import olefile; o = olefile.OleFileIO(\"" + UnixDoc() +
                         "\"); print(sorted(\"/\".join(e) for e in o.listdir(streams=True, storages=True)))";
    for (const std::string& stream : streams) script += "; print(o.openstream(\"" + stream + "\").read().hex())";
    return OnHost("/usr/bin/python3 -c " + ShellQuoted(script));
  }
};

// The programs of the other system run only where Wine gives a Linux host.
#define SKIP_WITHOUT_LINUX_HOST() \
  if (!RunningUnderWine()) GTEST_SKIP() << "olefile and gsf run on the Linux host of Wine; here there is none"

TEST_F(StorageWindowsTest, DocumentsWrittenHereAreReadByOlefileByteForByte) {
  SKIP_WITHOUT_LINUX_HOST();
  const std::string big = RandomBytes(100000);
  {
    Storage storage = OpenStorage(doc, true);
    ASSERT_NE(storage, nullptr);
    WriteContents(storage.get(), big);
    WriteContents(Child(storage.get(), u"Sub", true).get(), "inner");
    EXPECT_TRUE(storage->Commit(IStorage::COMMIT_DEFAULT));
  }
  EXPECT_EQ(Olefile({"Contents", "Sub/Contents"}),
            "['Contents', 'Sub', 'Sub/Contents']\n" + Hex(big) + "\n" + Hex("inner") + "\n");
  EXPECT_EQ(ReadContents(OpenStorage(doc, false).get()), big);
}

TEST_F(StorageWindowsTest, GsfDocumentsAreChangedKeepingEveryOtherStream) {
  SKIP_WITHOUT_LINUX_HOST();
  const std::string other = RandomBytes(9000, 3);
  WriteBytes(dir.File("Contents"), "written by gsf");
  WriteBytes(dir.File("Other"), other);
  const std::string folder = UnixPath(WidePath(dir.path().string()));
  ASSERT_EQ(OnHost("cd " + ShellQuoted(folder) + " && gsf createole doc.ole Contents Other >/dev/null 2>&1"), "");
  {
    Storage storage = OpenStorage(doc, false);
    ASSERT_NE(storage, nullptr);
    EXPECT_EQ(ReadContents(storage.get()), "written by gsf");
    WriteContents(storage.get(), "changed on Windows");
  }
  EXPECT_EQ(Olefile({"Contents", "Other"}),
            "['Contents', 'Other']\n" + Hex("changed on Windows") + "\n" + Hex(other) + "\n");
}

TEST_F(StorageWindowsTest, TransactionsCommitsAndTheFileObjectsModes) {
  { WriteContents(OpenStorage(doc, true).get(), "first"); }
  const std::string first = ReadBytes(doc);
  // Released without a commit: the changes are dropped.
  {
    Storage storage = OpenStorage(doc, false);
    ASSERT_NE(Child(storage.get(), u"Dropped", true), nullptr);
  }
  EXPECT_EQ(ReadBytes(doc), first);
  // A holder that is no longer current is refused by the condition.
  Storage stale = OpenStorage(doc, false);
  ASSERT_NE(stale, nullptr);
  { WriteContents(OpenStorage(doc, false).get(), "other holder"); }
  WriteContents(stale.get(), "stale");
  EXPECT_EQ(TakeError(), &CerrInternalError);
  EXPECT_FALSE(stale->Commit(IStorage::COMMIT_ONLY_IF_CURRENT));
  stale.reset();
  EXPECT_EQ(ReadContents(OpenStorage(doc, false).get()), "other holder");

  Storage storage = OpenStorage(doc, false);
  ASSERT_NE(storage, nullptr);
  // Storage names compare without case; a stream's name is no storage.
  { WriteContents(Child(storage.get(), u"Sub", true).get(), "deep"); }
  EXPECT_EQ(ReadContents(Child(storage.get(), u"sUB", false).get()), "deep");
  EXPECT_EQ(Child(storage.get(), u"Contents", true), nullptr);
  EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
  EXPECT_EQ(Child(storage.get(), u"a:b", true), nullptr);
  EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
  // WRITE is refused; READ of a storage without "Contents" leaves the end pending.
  { C_FILE refused(storage.get(), C_FILE::WRITE); }
  EXPECT_EQ(TakeError(), &CerrFileCannotCreateOleStream);
  Storage empty = Child(storage.get(), u"Empty", true);
  { C_FILE reader(empty.get(), C_FILE::READ); }
  EXPECT_EQ(TakeError(), &CerrFileEndReached);
  // The compressed format's magic is told, the position left behind it.
  WriteContents(empty.get(), std::string(C_FILE::COMPRESS_MAGIC, 16) + "rest of it");
  {
    C_FILE reader(empty.get(), C_FILE::READ);
    EXPECT_TRUE(reader.IsCompressed());
    EXPECT_EQ(reader.GetPosit(), 20);
  }
  // One stream is held by one file at a time.
  {
    C_FILE holder(empty.get(), C_FILE::READ);
    C_FILE second(empty.get(), C_FILE::UPDATE);
    EXPECT_EQ(TakeError(), &CerrFileCannotCreateOleStream);
  }
  empty.reset();
  EXPECT_TRUE(storage->Commit(IStorage::COMMIT_DEFAULT));
  const std::string committed = ReadBytes(doc);
  // A read-only file is not written.
  ASSERT_TRUE(SetFileAttributesW(WidePath(doc).c_str(), FILE_ATTRIBUTE_READONLY));
  WriteContents(storage.get(), "refused");
  EXPECT_EQ(TakeError(), &CerrInternalError);
  EXPECT_FALSE(storage->Commit(IStorage::COMMIT_OVERWRITE));
  EXPECT_FALSE(C_ERROR::Is());
  storage.reset();
  EXPECT_EQ(ReadBytes(doc), committed);
  ASSERT_TRUE(SetFileAttributesW(WidePath(doc).c_str(), FILE_ATTRIBUTE_NORMAL));
}

// The system's reader hangs on a looped chain and reads damaged streams
// short: each of these must be refused before it gets the file.
TEST_F(StorageWindowsTest, DamagedDocumentsAreRefusedAndNeverWritten) {
  { WriteContents(OpenStorage(doc, true).get(), RandomBytes(20000)); }
  const std::string sound = ReadBytes(doc);
  const auto cases = DamagedDocuments(sound);
  ASSERT_FALSE(cases.empty());
  for (const auto& [name, bytes] : cases) {
    WriteBytes(doc, bytes);
    for (const bool create : {false, true}) {
      EXPECT_EQ(IStorage::Open(LibraryPath(doc), create), nullptr) << name;
      EXPECT_EQ(TakeError(), &CerrFileCannotOpen) << name;
      EXPECT_EQ(ReadBytes(doc), bytes) << name;
    }
  }
  EXPECT_EQ(IStorage::Open(LibraryPath(dir.File("missing.ole")), false), nullptr);
  EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
  EXPECT_EQ(GetFileAttributesW(WidePath(dir.File("missing.ole")).c_str()), INVALID_FILE_ATTRIBUTES);
}

}  // namespace
