// Files in compound documents: the stream "Contents" through the file
// object, storages and commits, damaged documents, and documents exchanged
// with other programs (olefile, gsf).
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <vector>

#include "file/storage_test_util.h"
#include "support/child_process.h"

namespace {

// Output of a shell command, "<failed>" appended when it did not exit with 0.
std::string Shell(const std::string& command) {
  std::string out;
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return "<failed>";
  char buffer[4096];
  for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
  if (pclose(pipe) != 0) out += "<failed>";
  return out;
}

std::string Python(const std::string& script) { return Shell("/usr/bin/python3 -c '" + script + "' 2>&1"); }

// What olefile sees in a document: its entries, then the bytes of each of
// `streams` in hexadecimal, a line each.
std::string Olefile(const std::string& doc, const std::vector<std::string>& streams) {
  std::string script = "import olefile; o = olefile.OleFileIO(\"" + doc +
                       "\"); print(sorted(\"/\".join(e) for e in o.listdir(streams=True, storages=True)))";
  for (const std::string& stream : streams) script += "; print(o.openstream(\"" + stream + "\").read().hex())";
  return Python(script);
}

class StorageTest : public FileTest {
 protected:
  const std::string doc = dir.File("doc.ole");
};

TEST_F(StorageTest, ContentsAreWrittenInUpdateReadBackAndSeenByOtherPrograms) {
  const std::string big = RandomBytes(100000);
  WriteContents(OpenStorage(doc, true).get(), big);
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_EQ(ReadContents(OpenStorage(doc, false).get()), big);
  EXPECT_EQ(Olefile(doc, {"Contents"}), "['Contents']\n" + Hex(big) + "\n");
  const std::string listed = Shell("gsf list " + doc);
  EXPECT_NE(listed.find("100000 Contents"), std::string::npos) << listed;
  EXPECT_EQ(Shell("gsf cat " + doc + " Contents"), big);
}

TEST_F(StorageTest, ReadingTellsCompressedStreamsAndShortOnes) {
  Storage storage = OpenStorage(doc, true);
  ASSERT_NE(storage, nullptr);
  const std::string magic(C_FILE::COMPRESS_MAGIC, 16);
  const struct {
    std::string contents;
    bool compressed;
    int position;
    const C_ERROR* error;
    std::string next;  // four bytes read after the opening
  } cases[] = {
      {magic + "abcdREST", true, 20, nullptr, "REST"},
      {std::string(25, 'x'), false, 0, nullptr, "xxxx"},
      // Too short to tell: the end stays pending, the switch set.
      {magic + "ab", true, 18, &CerrFileEndReached, ""},
  };
  for (const auto& c : cases) {
    WriteContents(storage.get(), c.contents);
    C_FILE file(storage.get(), C_FILE::READ);
    EXPECT_EQ(TakeError(), c.error) << c.next;
    EXPECT_EQ(file.IsCompressed(), c.compressed) << c.next;
    EXPECT_EQ(file.GetPosit(), c.position) << c.next;
    EXPECT_EQ(file.GetType(), C_FILE::BINARY);
    EXPECT_EQ(file.GetMode(), C_FILE::READ);
    EXPECT_TRUE(file.IsCoding() && file.GetPath().IsVoid() && file.GetPathExp().IsVoid());
    char next[4];
    int got = 0;
    file.Read(4, next, &got);
    C_ERROR::ClearPending();
    EXPECT_EQ(std::string(next, got), c.next);
  }
}

TEST_F(StorageTest, ModeTableRefusalsAndPositions) {
  Storage storage = OpenStorage(doc, true);
  ASSERT_NE(storage, nullptr);
  const std::string empty = ReadBytes(doc);
  {  // Reading a storage without "Contents" makes an empty stream, neither written nor committed.
    C_FILE file(storage.get(), C_FILE::READ);
    EXPECT_EQ(TakeError(), &CerrFileEndReached);
    file.Write(1, "x");
    EXPECT_EQ(TakeError(), &CerrFileCannotWrite);
  }
  EXPECT_EQ(ReadBytes(doc), empty);
  for (int mode : {static_cast<int>(C_FILE::WRITE), 3, -1}) {
    C_FILE file(storage.get(), mode);
    EXPECT_EQ(TakeError(), &CerrFileCannotCreateOleStream) << mode;
    file.Write(1, "x");
    EXPECT_FALSE(C_ERROR::Is());  // a file that failed to open does nothing
  }
  C_FILE none(nullptr, C_FILE::READ);
  EXPECT_EQ(TakeError(), &CerrFileCannotCreateOleStream);
  C_FILE file(storage.get(), C_FILE::UPDATE);
  ASSERT_FALSE(C_ERROR::Is());
  {  // the stream is opened by one file at a time
    C_FILE second(storage.get(), C_FILE::READ);
    EXPECT_EQ(TakeError(), &CerrFileCannotCreateOleStream);
  }

  // Text, size, line and flush are refused as internal errors; string writes do nothing.
  C_STRING line;
  C_CHAR c;
  const std::vector<std::pair<const char*, std::function<void()>>> refused = {
      {"GetSize", [&] { EXPECT_EQ(file.GetSize(), 0); }},
      {"GetLine", [&] { EXPECT_EQ(file.GetLine(), 0); }},
      {"Flush", [&] { file.Flush(); }},
      {"WriteEOL", [&] { file.WriteEOL(); }},
      {"Write(char)", [&] { file.Write('a'); }},
      {"Write(C_CHAR)", [&] { file.Write(C_CHAR(u'a')); }},
      {"Write(int, format)", [&] { file.Write(12, C_STRING(u"%d")); }},
      {"Write(double, format)", [&] { file.Write(1.5, C_STRING(u"%g")); }},
      {"Read(C_CHAR*)", [&] { file.Read(&c); }},
      {"Read(C_STRING*)", [&] { file.Read(&line); }},
      {"ReadToken", [&] { file.ReadToken(&line); }},
  };
  for (const auto& [name, operation] : refused) {
    operation();
    EXPECT_EQ(TakeError(), &CerrInternalError) << name;
  }
  file.Write(C_STRING(u"text"));
  file.Write("text");
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(file.GetPosit(), 0);

  file.Write(10, "0123456789");
  EXPECT_EQ(file.GetPosit(), 10);
  file.SetPosit(4);
  char all[16] = {};
  file.Read(2, all);
  EXPECT_EQ(std::string(all, 2), "45");
  file.SetPosit(2);
  file.Write(3, "abc");
  file.Rewind();
  int got = 0;
  file.Read(12, all, &got);
  EXPECT_EQ(got, 10);
  EXPECT_EQ(TakeError(), &CerrFileEndReached);
  EXPECT_EQ(std::string(all, 10), "01abc56789");
  // Past the end: a write leaves zeros in the gap. Unwind also reports the refused size.
  file.SetPosit(12);
  file.Write(1, "z");
  file.Unwind();
  EXPECT_EQ(TakeError(), &CerrInternalError);
  EXPECT_EQ(file.GetPosit(), 13);
  file.Rewind();
  file.Read(13, all);
  EXPECT_EQ(std::string(all, 13), std::string("01abc56789\0\0z", 13));
  file.SetPosit(-1);
  EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
  EXPECT_EQ(file.GetPosit(), 13);
}

TEST_F(StorageTest, CommitKeepsWhatItDidNotTouchInAnotherProgramsDocument) {
  // A document made by gsf, with a storage, a nested stream and a stream large
  // enough to live in whole sectors; olefile then rewrites the nested one in place.
  const std::filesystem::path source = dir.path() / "source";
  std::filesystem::create_directories(source / "Sub");
  const std::string large = RandomBytes(70000, 3);
  WriteBytes((source / "Contents").string(), "old contents");
  WriteBytes((source / "Large").string(), large);
  WriteBytes((source / "Sub" / "Inner").string(), "inner bytes");
  ASSERT_EQ(Shell("cd " + source.string() + " && gsf createole " + doc + " Contents Large Sub >/dev/null 2>&1"), "");
  Python("import olefile; o = olefile.OleFileIO(\"" + doc +
         "\", write_mode=True); o.write_stream(\"Sub/Inner\", b\"INNER BYTES\"); o.close()");
  {
    Storage storage = OpenStorage(doc, false);
    ASSERT_NE(storage, nullptr);
    EXPECT_EQ(ReadContents(storage.get()), "old contents");
    // Child storages: names compare without case; missing ones, invalid names
    // and names held by a stream are refused.
    Storage sub = Child(storage.get(), u"sUB", false);
    ASSERT_NE(sub, nullptr);
    WriteContents(sub.get(), "sub contents");
    WriteContents(storage.get(), "new contents");
    EXPECT_EQ(Child(storage.get(), u"Missing", false), nullptr);
    EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
    for (const char16_t* bad : {u"", u"a/b", u"a\\b", u"a:b", u"a!b", u"12345678901234567890123456789012", u"Large"}) {
      EXPECT_EQ(Child(storage.get(), bad, true), nullptr);
      EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
    }
    Storage a = Child(storage.get(), u"A", true);
    ASSERT_NE(a, nullptr);
    WriteContents(Child(a.get(), u"B", true).get(), "deep");
  }
  EXPECT_EQ(Olefile(doc, {"Contents", "Sub/Contents", "Sub/Inner", "A/B/Contents"}),
            "['A', 'A/B', 'A/B/Contents', 'Contents', 'Large', 'Sub', 'Sub/Contents', 'Sub/Inner']\n" +
                Hex("new contents") + "\n" + Hex("sub contents") + "\n" + Hex("INNER BYTES") + "\n" + Hex("deep") +
                "\n");
  EXPECT_EQ(Shell("gsf cat " + doc + " Large"), large);
  Storage storage = OpenStorage(doc, false);
  EXPECT_EQ(ReadContents(Child(Child(storage.get(), u"a", false).get(), u"b", false).get()), "deep");
  // The new file took the old one's place: nothing else is left beside it.
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 2);
}

TEST_F(StorageTest, AFailedCommitLeavesTheFileAsItWas) {
  { WriteContents(OpenStorage(doc, true).get(), "first"); }
  // Changed on disk since it was opened: a file destroyed in UPDATE commits
  // only if the document is current, and reports the failure.
  {
    Storage storage = OpenStorage(doc, false);
    ASSERT_NE(storage, nullptr);
    WriteContents(OpenStorage(doc, false).get(), "other");
    const std::string other = ReadBytes(doc);
    WriteContents(storage.get(), "mine");
    EXPECT_EQ(TakeError(), &CerrInternalError);
    EXPECT_EQ(ReadBytes(doc), other);
    // The plain condition writes it over.
    EXPECT_TRUE(storage->Commit(IStorage::COMMIT_DEFAULT));
    EXPECT_EQ(ReadContents(storage.get()), "mine");
  }
  Storage storage = OpenStorage(doc, false);
  EXPECT_EQ(ReadContents(storage.get()), "mine");
  const std::string mine = ReadBytes(doc);
  // A read-only document is not replaced.
  ASSERT_EQ(chmod(doc.c_str(), 0444), 0);
  WriteContents(storage.get(), "refused");
  EXPECT_EQ(TakeError(), &CerrInternalError);
  EXPECT_FALSE(storage->Commit(IStorage::COMMIT_OVERWRITE));
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(ReadBytes(doc), mine);
  // Released without a commit: the changes are dropped.
  ASSERT_EQ(chmod(doc.c_str(), 0644), 0);
  storage.reset();
  ASSERT_NE(Child(OpenStorage(doc, false).get(), u"Dropped", true), nullptr);
  EXPECT_EQ(ReadBytes(doc), mine);

  // A stream that can no longer be read (the file was cut short behind the
  // document's back) stops the commit midway: the file is not replaced and
  // nothing is left beside it.
  WriteContents(Child(OpenStorage(doc, false).get(), u"Big", true).get(), RandomBytes(70000));
  Storage opened = OpenStorage(doc, false);
  ASSERT_NE(opened, nullptr);
  const std::string cut = ReadBytes(doc).substr(0, 1024);
  WriteBytes(doc, cut);
  WriteContents(opened.get(), "changed");
  EXPECT_EQ(TakeError(), &CerrInternalError);
  EXPECT_FALSE(opened->Commit(IStorage::COMMIT_OVERWRITE));
  EXPECT_EQ(ReadBytes(doc), cut);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
}

TEST_F(StorageTest, DamagedDocumentsAreRefusedAndNeverWritten) {
  { WriteContents(OpenStorage(doc, true).get(), RandomBytes(20000)); }
  const std::string sound = ReadBytes(doc);
  const auto cases = DamagedDocuments(sound);
  ASSERT_FALSE(cases.empty());
  const std::u16string named = Text(LibraryPath(doc, true));
  for (const auto& [name, bytes] : cases) {
    WriteBytes(doc, bytes);
    for (const bool create : {false, true}) {
      EXPECT_EQ(IStorage::Open(LibraryPath(doc), create), nullptr) << name;
      EXPECT_EQ(C_ERROR::GetPending(), &CerrFileCannotOpen) << name;
      EXPECT_EQ(Text(C_ERROR::GetPendingExtra()), named) << name;
      C_ERROR::ClearPending();
      EXPECT_EQ(ReadBytes(doc), bytes) << name;
    }
  }
  EXPECT_EQ(IStorage::Open(LibraryPath(dir.File("missing.ole")), false), nullptr);
  EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
  EXPECT_FALSE(std::filesystem::exists(dir.File("missing.ole")));
  EXPECT_EQ(IStorage::Open(LibraryPath(dir.File("no/such/dir.ole")), true), nullptr);
  EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
}

TEST_F(StorageTest, A64MiBContentsIsWrittenAndReadBackWithoutHoldingItInMemory) {
  constexpr int kChunk = 1 << 20, kChunks = 64;
  std::string chunk = RandomBytes(kChunk, 11);
  {
    Storage storage = OpenStorage(doc, true);
    ASSERT_NE(storage, nullptr);
    C_FILE file(storage.get(), C_FILE::UPDATE);
    for (int i = 0; i < kChunks; ++i) {
      chunk[0] = static_cast<char>(i);
      file.Write(kChunk, chunk.data());
    }
    ASSERT_FALSE(C_ERROR::Is());
  }
  EXPECT_NE(Shell("gsf list " + doc).find(std::to_string(kChunk * kChunks) + " Contents"), std::string::npos);
  // Read in a child, so that its peak resident size is the reading's own.
  long peakKiB = -1;
  int pipeEnds[2];
  ASSERT_EQ(pipe(pipeEnds), 0);
  const int status = RunInChild([&] {
    struct rusage before, after;
    getrusage(RUSAGE_SELF, &before);
    Storage storage = OpenStorage(doc, false);
    if (storage == nullptr) return 1;
    C_FILE file(storage.get(), C_FILE::READ);
    std::string buffer(kChunk, '\0');
    for (int i = 0; i < kChunks; ++i) {
      chunk[0] = static_cast<char>(i);
      int got = 0;
      file.Read(kChunk, buffer.data(), &got);
      if (got != kChunk || buffer != chunk) return 2;
    }
    file.Read(1, buffer.data());
    if (TakeError() != &CerrFileEndReached) return 3;
    getrusage(RUSAGE_SELF, &after);
    const long grown = after.ru_maxrss - before.ru_maxrss;
    return write(pipeEnds[1], &grown, sizeof grown) == sizeof grown ? 0 : 4;
  });
  close(pipeEnds[1]);
  ASSERT_EQ(status, 0);
  ASSERT_EQ(read(pipeEnds[0], &peakKiB, sizeof peakKiB), static_cast<ssize_t>(sizeof peakKiB));
  close(pipeEnds[0]);
  RecordProperty("read_peak_growth_kib", static_cast<int>(peakKiB));
  std::printf("reading 64 MiB of Contents grew the peak resident size by %ld KiB\n", peakKiB);
  EXPECT_LT(peakKiB, 16 * 1024);
}

}  // namespace
