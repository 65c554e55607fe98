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

#include "file/file_test_util.h"
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

struct StorageDeleter {
  void operator()(IStorage* storage) const { storage->Release(); }
};
using Storage = std::unique_ptr<IStorage, StorageDeleter>;

Storage OpenStorage(const std::string& path, bool create) { return Storage(IStorage::Open(LibraryPath(path), create)); }

void WriteContents(IStorage* storage, const std::string& bytes) {
  C_FILE file(storage, C_FILE::UPDATE);
  int put = -1;
  file.Write(static_cast<int>(bytes.size()), bytes.data(), &put);
  EXPECT_EQ(put, static_cast<int>(bytes.size()));
}

// The whole "Contents" through a file opened for reading; the error left
// by the last read (the end) is taken.
std::string ReadContents(IStorage* storage) {
  C_FILE file(storage, C_FILE::READ);
  // A stream shorter than the compressed format's magic leaves the end pending.
  if (C_ERROR::Is() && TakeError() != &CerrFileEndReached) return "<error>";
  file.Rewind();
  std::string out;
  char buffer[65536];
  for (int got = 0; !C_ERROR::Is(); out.append(buffer, static_cast<std::size_t>(got))) {
    file.Read(sizeof buffer, buffer, &got);
  }
  EXPECT_EQ(TakeError(), &CerrFileEndReached);
  return out;
}

std::string WithMagic(const std::string& rest) { return std::string(C_FILE::COMPRESS_MAGIC, 16) + rest; }

class StorageTest : public FileTest {
 protected:
  const std::string doc = dir.File("doc.ole");
  // What a script gets for the document: its entries, then the bytes of
  // "Contents" in hexadecimal.
  std::string OlefileView(const std::string& stream = "Contents") {
    return Python(
        "import olefile; o = olefile.OleFileIO(\"" + doc +
        "\"); print(sorted(\"/\".join(e) for e in o.listdir(streams=True, storages=True))); print(o.openstream(\"" +
        stream + "\").read().hex())");
  }
};

TEST_F(StorageTest, ContentsWrittenInUpdateAreReadBackAndSeenByOtherPrograms) {
  const std::string big = RandomBytes(100000);
  {
    Storage storage = OpenStorage(doc, true);
    ASSERT_NE(storage, nullptr);
    WriteContents(storage.get(), big);
    ASSERT_FALSE(C_ERROR::Is());
  }
  Storage storage = OpenStorage(doc, false);
  ASSERT_NE(storage, nullptr);
  {
    C_FILE file(storage.get(), C_FILE::READ);
    EXPECT_FALSE(C_ERROR::Is());
    EXPECT_EQ(file.GetType(), C_FILE::BINARY);
    EXPECT_EQ(file.GetMode(), C_FILE::READ);
    EXPECT_TRUE(file.IsCoding());
    EXPECT_TRUE(file.GetPath().IsVoid() && file.GetPathExp().IsVoid());
    EXPECT_FALSE(file.IsCompressed());
    EXPECT_EQ(file.GetPosit(), 0);
  }
  EXPECT_EQ(ReadContents(storage.get()), big);

  const std::string seen = OlefileView();
  EXPECT_EQ(seen.substr(0, seen.find('\n')), "['Contents']");
  std::string hex;
  for (unsigned char c : big) {
    char two[3];
    std::snprintf(two, sizeof two, "%02x", c);
    hex += two;
  }
  EXPECT_EQ(seen.substr(seen.find('\n') + 1), hex + "\n");
  const std::string listed = Shell("gsf list " + doc);
  EXPECT_NE(listed.find("100000 Contents"), std::string::npos) << listed;
  EXPECT_EQ(Shell("gsf cat " + doc + " Contents"), big);
}

TEST_F(StorageTest, ReadingTellsCompressedStreamsAndShortOnes) {
  Storage storage = OpenStorage(doc, true);
  ASSERT_NE(storage, nullptr);
  WriteContents(storage.get(), WithMagic("abcdREST"));
  {
    C_FILE file(storage.get(), C_FILE::READ);
    EXPECT_FALSE(C_ERROR::Is());
    EXPECT_TRUE(file.IsCompressed());
    EXPECT_EQ(file.GetPosit(), 20);
    char rest[4];
    file.Read(4, rest);
    EXPECT_EQ(std::string(rest, 4), "REST");
  }
  WriteContents(storage.get(), std::string(25, 'x'));
  {
    C_FILE file(storage.get(), C_FILE::READ);
    EXPECT_FALSE(C_ERROR::Is());
    EXPECT_FALSE(file.IsCompressed());
    EXPECT_EQ(file.GetPosit(), 0);
  }
  // Shorter than the magic and its four bytes: the end stays pending, the
  // switch set.
  WriteContents(storage.get(), WithMagic("ab"));
  {
    C_FILE file(storage.get(), C_FILE::READ);
    EXPECT_EQ(TakeError(), &CerrFileEndReached);
    EXPECT_TRUE(file.IsCompressed());
    EXPECT_EQ(file.GetPosit(), 18);
  }
}

TEST_F(StorageTest, ReadingAStorageWithoutContentsMakesAnEmptyStreamThatIsNotWritten) {
  { ASSERT_NE(OpenStorage(doc, true), nullptr); }
  const std::string before = ReadBytes(doc);
  {
    Storage storage = OpenStorage(doc, false);
    ASSERT_NE(storage, nullptr);
    {
      C_FILE file(storage.get(), C_FILE::READ);
      EXPECT_EQ(TakeError(), &CerrFileEndReached);
      char byte = 'x';
      file.Write(1, &byte);  // opened for reading only
      EXPECT_EQ(TakeError(), &CerrFileCannotWrite);
    }
    // The empty stream is there for the storage, but nothing committed it.
    C_FILE again(storage.get(), C_FILE::READ);
    EXPECT_EQ(TakeError(), &CerrFileEndReached);
  }
  EXPECT_EQ(ReadBytes(doc), before);
  EXPECT_EQ(Shell("gsf list " + doc).find("Contents"), std::string::npos);
}

TEST_F(StorageTest, ModesOtherThanReadAndUpdateAndMissingStoragesAreRefused) {
  Storage storage = OpenStorage(doc, true);
  ASSERT_NE(storage, nullptr);
  for (int mode : {static_cast<int>(C_FILE::WRITE), 3, -1}) {
    C_FILE file(storage.get(), mode);
    EXPECT_EQ(TakeError(), &CerrFileCannotCreateOleStream) << mode;
    char byte = 'x';
    file.Write(1, &byte);
    EXPECT_FALSE(C_ERROR::Is());  // a file that failed to open does nothing
  }
  C_FILE none(nullptr, C_FILE::READ);
  EXPECT_EQ(TakeError(), &CerrFileCannotCreateOleStream);
  // The stream is opened by one file at a time.
  C_FILE first(storage.get(), C_FILE::UPDATE);
  ASSERT_FALSE(C_ERROR::Is());
  C_FILE second(storage.get(), C_FILE::READ);
  EXPECT_EQ(TakeError(), &CerrFileCannotCreateOleStream);
}

TEST_F(StorageTest, TextSizeLineAndFlushAreRefusedAsInternalErrorsAndStringWritesDoNothing) {
  Storage storage = OpenStorage(doc, true);
  ASSERT_NE(storage, nullptr);
  C_FILE file(storage.get(), C_FILE::UPDATE);
  ASSERT_FALSE(C_ERROR::Is());
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
}

TEST_F(StorageTest, PositionsMoveInTheStreamAndUnwindAlsoReportsTheRefusedSize) {
  Storage storage = OpenStorage(doc, true);
  ASSERT_NE(storage, nullptr);
  C_FILE file(storage.get(), C_FILE::UPDATE);
  file.Write(10, "0123456789");
  EXPECT_EQ(file.GetPosit(), 10);
  file.SetPosit(4);
  char two[2];
  file.Read(2, two);
  EXPECT_EQ(std::string(two, 2), "45");
  file.SetPosit(2);
  file.Write(3, "abc");
  file.Rewind();
  char all[16] = {};
  int got = 0;
  file.Read(12, all, &got);
  EXPECT_EQ(got, 10);
  EXPECT_EQ(TakeError(), &CerrFileEndReached);
  EXPECT_EQ(std::string(all, 10), "01abc56789");
  // Past the end: a write leaves zeros in the gap.
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

TEST_F(StorageTest, CommitKeepsEveryUntouchedStreamAndStorageOfAnotherProgramsDocument) {
  // A document made by gsf, with a storage, a class-less nested stream and a
  // stream large enough to live in whole sectors.
  const std::filesystem::path source = dir.path() / "source";
  std::filesystem::create_directories(source / "Sub");
  const std::string large = RandomBytes(70000, 3);
  WriteBytes((source / "Contents").string(), "old contents");
  WriteBytes((source / "Large").string(), large);
  WriteBytes((source / "Sub" / "Inner").string(), "inner bytes");
  ASSERT_EQ(Shell("cd " + source.string() + " && gsf createole " + doc + " Contents Large Sub >/dev/null 2>&1"), "");
  // olefile rewrites a stream of the same size in place.
  Python("import olefile; o = olefile.OleFileIO(\"" + doc +
         "\", write_mode=True); o.write_stream(\"Sub/Inner\", b\"INNER BYTES\"); o.close()");

  {
    Storage storage = OpenStorage(doc, false);
    ASSERT_NE(storage, nullptr);
    EXPECT_EQ(ReadContents(storage.get()), "old contents");
    Storage sub(storage->OpenStorage(C_STRING(u"sUB"), false));  // names compare without case
    ASSERT_NE(sub, nullptr);
    WriteContents(sub.get(), "sub contents");
    WriteContents(storage.get(), "new contents");
  }
  EXPECT_EQ(
      Python("import olefile; o = olefile.OleFileIO(\"" + doc +
             "\"); print(sorted(\"/\".join(e) for e in o.listdir(streams=True, storages=True))); "
             "print(o.openstream(\"Contents\").read(), o.openstream(\"Sub/Contents\").read(), "
             "o.openstream(\"Sub/Inner\").read())"),
      "['Contents', 'Large', 'Sub', 'Sub/Contents', 'Sub/Inner']\nb'new contents' b'sub contents' b'INNER BYTES'\n");
  EXPECT_EQ(Shell("gsf cat " + doc + " Large"), large);
  EXPECT_EQ(std::filesystem::directory_entry(doc).is_regular_file(), true);
  // Nothing but the document is left in the directory.
  int entries = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) entries += entry.path() != source;
  EXPECT_EQ(entries, 1);
}

TEST_F(StorageTest, ChildStoragesAreOpenedMadeAndRefusedByName) {
  {
    Storage storage = OpenStorage(doc, true);
    ASSERT_NE(storage, nullptr);
    EXPECT_EQ(storage->OpenStorage(C_STRING(u"Missing"), false), nullptr);
    EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
    for (const char16_t* bad : {u"", u"a/b", u"a\\b", u"a:b", u"a!b", u"12345678901234567890123456789012"}) {
      EXPECT_EQ(storage->OpenStorage(C_STRING(bad), true), nullptr);
      EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
    }
    Storage a(storage->OpenStorage(C_STRING(u"A"), true));
    ASSERT_NE(a, nullptr);
    Storage b(a->OpenStorage(C_STRING(u"B"), true));
    ASSERT_NE(b, nullptr);
    WriteContents(b.get(), "deep");
    // "Contents" of A is a stream: not a storage.
    WriteContents(a.get(), "mid");
    EXPECT_EQ(a->OpenStorage(C_STRING(u"Contents"), true), nullptr);
    EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
  }
  Storage storage = OpenStorage(doc, false);
  Storage a(storage->OpenStorage(C_STRING(u"a"), false));
  ASSERT_NE(a, nullptr);
  Storage b(a->OpenStorage(C_STRING(u"b"), false));
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(ReadContents(b.get()), "deep");
  EXPECT_EQ(ReadContents(a.get()), "mid");
  EXPECT_NE(Shell("gsf list " + doc).find("A/B/Contents"), std::string::npos);
}

TEST_F(StorageTest, AFailedCommitLeavesTheFileAsItWas) {
  { WriteContents(OpenStorage(doc, true).get(), "first"); }
  const std::string first = ReadBytes(doc);

  // Changed on disk since it was opened: a file destroyed in UPDATE commits
  // only if the document is current, and reports the failure.
  {
    Storage storage = OpenStorage(doc, false);
    ASSERT_NE(storage, nullptr);
    { WriteContents(OpenStorage(doc, false).get(), "other"); }
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
  EXPECT_NE(first, mine);
  // Released without a commit: the changes are dropped.
  ASSERT_EQ(chmod(doc.c_str(), 0644), 0);
  storage.reset();
  {
    Storage again = OpenStorage(doc, false);
    C_FILE file(again.get(), C_FILE::UPDATE);
    file.Write(3, "abc");
  }
  EXPECT_EQ(ReadContents(OpenStorage(doc, false).get()), "abc");
  {
    Storage again = OpenStorage(doc, false);
    Storage child(again->OpenStorage(C_STRING(u"Dropped"), true));
    ASSERT_NE(child, nullptr);
  }
  EXPECT_EQ(Shell("gsf list " + doc).find("Dropped"), std::string::npos);

  // A stream that can no longer be read (the file was cut short behind the
  // document's back) stops the commit midway: the file is not replaced and
  // nothing is left beside it.
  {
    Storage writer = OpenStorage(doc, false);
    WriteContents(Storage(writer->OpenStorage(C_STRING(u"Big"), true)).get(), RandomBytes(70000));
  }
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

// Damaged documents ---------------------------------------------------------------

// The sector size, the first sector of the allocation table and the directory
// entry of a stream, found in a document's bytes.
struct Layout {
  std::size_t sector = 512;
  std::size_t fat = 0;
  std::size_t directory = 0;
  std::size_t entry = 0;  // offset of the directory entry
  unsigned start = 0;     // first sector of the stream
};

unsigned Load32(const std::string& bytes, std::size_t at) {
  unsigned value = 0;
  std::memcpy(&value, bytes.data() + at, 4);
  return value;
}

void Store32(std::string* bytes, std::size_t at, unsigned value) { std::memcpy(bytes->data() + at, &value, 4); }

Layout Find(const std::string& bytes, const std::u16string& name) {
  Layout layout;
  layout.sector = std::size_t{1} << (static_cast<unsigned char>(bytes[0x1E]));
  layout.fat = (Load32(bytes, 0x4C) + 1) * layout.sector;
  layout.directory = (Load32(bytes, 0x30) + 1) * layout.sector;
  for (std::size_t at = layout.directory; at + 128 <= bytes.size(); at += 128) {
    if (std::memcmp(bytes.data() + at, name.data(), name.size() * 2) == 0) {
      layout.entry = at;
      layout.start = Load32(bytes, at + 0x74);
      break;
    }
  }
  return layout;
}

TEST_F(StorageTest, DamagedDocumentsAreRefusedAndNeverWritten) {
  { WriteContents(OpenStorage(doc, true).get(), RandomBytes(20000)); }
  const std::string sound = ReadBytes(doc);
  const Layout layout = Find(sound, u"Contents");
  ASSERT_NE(layout.entry, 0u);

  std::string cyclic = sound;
  Store32(&cyclic, layout.fat + 4 * (layout.start + 3), layout.start + 1);
  std::string oversized = sound;
  Store32(&oversized, layout.entry + 0x78, 0x7FFFFF00);
  std::string outside = sound;
  Store32(&outside, layout.fat + 4 * (layout.start + 3), 0x00FFFFFF);
  std::string looped = sound;
  Store32(&looped, layout.entry + 0x44, static_cast<unsigned>((layout.entry - layout.directory) / 128));
  const std::vector<std::pair<const char*, std::string>> cases = {
      {"empty", ""},
      {"text", "this is not a compound document\n"},
      {"header only", sound.substr(0, 512)},
      {"truncated", sound.substr(0, sound.size() / 2)},
      {"cyclic chain", cyclic},
      {"size beyond the file", oversized},
      {"chain leaving the table", outside},
      {"directory entry linked to itself", looped},
  };
  const std::u16string named = Text(LibraryPath(doc, true));
  for (const auto& [name, bytes] : cases) {
    WriteBytes(doc, bytes);
    for (const bool create : {false, true}) {
      EXPECT_EQ(IStorage::Open(LibraryPath(doc), create), nullptr) << name;
      const C_ERROR* error = C_ERROR::GetPending();
      EXPECT_EQ(error, &CerrFileCannotOpen) << name;
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

// Large streams ---------------------------------------------------------------------

TEST_F(StorageTest, A64MiBContentsIsWrittenAndReadBackWithoutHoldingItInMemory) {
  constexpr int kChunk = 1 << 20;
  constexpr int kChunks = 64;
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
    struct rusage before;
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
    char extra;
    file.Read(1, &extra);
    if (TakeError() != &CerrFileEndReached) return 3;
    struct rusage after;
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
