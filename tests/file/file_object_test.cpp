// The file object: the kind of file, closed objects, position, size and
// lines, copies, and writes that fail.
#ifndef _WIN32
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#endif

#include <tuple>
#include <vector>

#include "file/file_test_util.h"
#include "support/child_process.h"
#include "support/os_support.h"

using FileObject = FileTest;

TEST_F(FileObject, KindOpensPositionSizeLinesAndCopies) {
  const std::string bom = "\xFF\xFE";
  const C_STRING expanded = LibraryPath(path, true);
  // Bytes, the type asked for, the type found, the error and the lines.
  const std::tuple<std::string, C_FILE::TYPE, C_FILE::TYPE, const C_ERROR*, const char16_t*> cases[] = {
      {"plain\nnext", C_FILE::AUTO, C_FILE::TEXT, nullptr, u"plain|next|"},
      {"", C_FILE::AUTO, C_FILE::TEXT, nullptr, u""},
      {bom + std::string("h\0i\0\r\0\n\0", 8), C_FILE::AUTO, C_FILE::UNICODE, nullptr, u"hi|"},
      {"\xFE\xFF" + std::string("\0h\0i\0\r\0\n\0z", 10), C_FILE::AUTO, C_FILE::UNICODE, nullptr, u"hi|z|"},
      {bom + std::string("h\0i\0", 4), C_FILE::UNICODE, C_FILE::UNICODE, nullptr, u"hi|"},
      {"abc", C_FILE::UNICODE, C_FILE::UNICODE, &CerrFileIsNotUnicode, u""},
      {bom + std::string("a\0", 2), C_FILE::TEXT, C_FILE::TEXT, &CerrFileIsUnicode, u""},
  };
  for (const auto& [bytes, requested, type, error, lines] : cases) {
    WriteBytes(path, bytes);
    C_FILE file(LibraryPath(path), C_FILE::READ, requested);
    EXPECT_TRUE(error == nullptr || C_ERROR::GetPendingExtra() == expanded);
    EXPECT_EQ(TakeError(), error);
    if (error != nullptr) continue;
    EXPECT_EQ(file.GetType(), type);
    EXPECT_EQ(ReadLines(&file), lines);
  }
  // An unmarked file updated as UNICODE gets the mark over its first unit.
  WriteBytes(path, std::string("a\0b\0", 4));
  {
    C_FILE file(LibraryPath(path), C_FILE::UPDATE, C_FILE::UNICODE);
    EXPECT_EQ(file.GetPosit(), 2);
  }
  EXPECT_EQ(ReadBytes(path), std::string("\377\376b\0", 4));
  EXPECT_EQ(TakeError(), nullptr);

  // A failed open leaves a closed object.
  std::filesystem::remove(path);
  C_FILE missing(LibraryPath(path), C_FILE::READ, C_FILE::AUTO);
  EXPECT_TRUE(C_ERROR::GetPendingExtra() == expanded);
  EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
  C_FILE update(LibraryPath(path), 7, C_FILE::BINARY);
  EXPECT_EQ(update.GetMode(), C_FILE::UPDATE);  // any other mode is an update
  EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
  C_FILE create(LibraryPath(dir.File("no/such/dir/x.txt")), C_FILE::WRITE, C_FILE::TEXT);
  EXPECT_EQ(TakeError(), &CerrFileCannotCreate);
  C_FILE empty(C_STRING(u""), C_FILE::READ, C_FILE::TEXT);
  EXPECT_EQ(TakeError(), &CerrFileCannotOpen);
  // Every operation on a closed object does nothing, without error.
  char bytes[4];
  int got = -1;
  missing.Read(4, bytes, &got);
  missing.Write(C_STRING(u"text"));
  missing.Write(3, 4, C_STRING(u"%d%d"));
  missing.WriteEOL();
  missing.Flush();
  missing.SetPosit(10);
  missing.Rewind();
  missing.Unwind();
  EXPECT_EQ(Reads(&missing, "lctc"), u"||||");
  EXPECT_EQ((std::vector<long long>{missing.GetPosit(), missing.GetSize(), missing.GetLine(), got}),
            (std::vector<long long>{0, 0, 0, 0}));
  EXPECT_EQ(TakeError(), nullptr);

  // Position, size and lines.
  C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::TEXT);
  EXPECT_TRUE(file.GetPath() == LibraryPath(path));
  file.Write(11, "one\ntwo\nthr");
  // The bytes on disk: two more on Windows, whose text mode stores CR LF.
  const long long written = static_cast<long long>(TextLineEnds("one\ntwo\nthr").size());
  EXPECT_EQ(file.GetSize(), written);
  EXPECT_EQ(file.GetLine(), 2);
  EXPECT_EQ(file.GetPosit(), written);  // counting puts the position back
  file.SetPosit(4);
  EXPECT_EQ(file.GetLine(), 1);
  file.Unwind();
  EXPECT_EQ(file.GetPosit(), written);
  file.SetPosit(-1);
  EXPECT_EQ(TakeError(), &CerrFileCannotSeek);
  // Positions and sizes are 64-bit.
  const long long far = 5LL * 1024 * 1024 * 1024;
  file.SetPosit(far);
  file.Write(1, "!");
  EXPECT_EQ(file.GetSize(), far + 1);
  EXPECT_EQ(file.GetPosit(), far + 1);
  // An object made without a file writes to an anonymous temporary one.
  C_FILE temporary;
  EXPECT_TRUE(temporary.GetPath().IsVoid() && temporary.GetMode() == C_FILE::WRITE &&
              temporary.GetType() == C_FILE::BINARY);
  temporary.Write(C_STRING(u"w"));
  temporary.Write(5, "bytes");
  EXPECT_EQ(temporary.GetSize(), 7);
  temporary.Rewind();
  EXPECT_EQ(Reads(&temporary, "c"), u"w|");
  // A copy describes the file but is closed.
  const std::string copied = dir.File("c.txt");
  C_FILE original(LibraryPath(copied), C_FILE::WRITE, C_FILE::TEXT);
  original.SetCoding(false);
  C_FILE copy(original);
  EXPECT_TRUE(copy.GetPath() == original.GetPath());
  EXPECT_FALSE(copy.IsCoding());
  copy.Write(C_STRING(u"lost"));
  original.Write(C_STRING(u"kept"));
  temporary = original;
  temporary.Write(C_STRING(u"lost too"));
  original.Flush();
  EXPECT_EQ(ReadBytes(copied), "kept");
  EXPECT_EQ(TakeError(), nullptr);
}

TEST_F(FileObject, FullDevicesAndWritesFailingPartWay) {
  if (QORC_ON_WINDOWS(!RunningUnderWine())) GTEST_SKIP() << "Windows has no always-full device (Wine has Z:\\dev\\full)";
  const C_STRING expanded = LibraryPath(kFullDevice, true);
  // Buffered bytes fail at the flush, or at the close where the temporary
  // file of the compressed format took them first.
  const std::tuple<int, C_FILE::TYPE, bool> cases[] = {{0, C_FILE::BINARY, true},
                                                       {0, C_FILE::UNICODE, true},
                                                       {0, C_FILE::COMPRESSED, false},
                                                       {C_FILE::DIRECT, C_FILE::COMPRESSED, true}};
  for (const auto& [direct, type, atFlush] : cases) {
    {
      C_FILE file(C_STRING(kFullDeviceUnits), C_FILE::WRITE | direct, type);
      file.Write(3, "abc");
      EXPECT_EQ(TakeError(), nullptr);
      file.Flush();
      EXPECT_TRUE(!atFlush || C_ERROR::GetPendingExtra() == expanded);
      EXPECT_EQ(TakeError(), atFlush ? &CerrFileNotEnoughSpace : nullptr);
    }
    // Bytes that failed at the flush fail again at the close where the
    // runtime keeps them (Windows'); POSIX's drops them.
    EXPECT_EQ(TakeError(), atFlush && !QORC_ON_WINDOWS(true) ? nullptr : &CerrFileNotEnoughSpace);
  }
  // An unbuffered write stops part way.
  C_FILE file(C_STRING(kFullDeviceUnits), C_FILE::WRITE, C_FILE::BINARY);
  int put = -1;
  file.Write(100000, RandomBytes(100000).data(), &put);
  EXPECT_LT(put, 100000);
  EXPECT_EQ(TakeError(), &CerrFileNotEnoughSpace);
#ifdef _WIN32
  GTEST_SKIP() << "A file-size limit and a small private file system (setrlimit, mount namespaces) are POSIX's";
#else
  // A file-size limit is another cause than a full device.
  const int limited = RunInChild([&]() -> int {
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {10000, 10000};
    setrlimit(RLIMIT_FSIZE, &limit);
    C_FILE file(LibraryPath(dir.File("limited.bin")), C_FILE::WRITE, C_FILE::BINARY);
    int put = 0;
    file.Write(30000, RandomBytes(30000).data(), &put);
    return CerrFileCannotWrite.IsPending() && put < 30000 ? 0 : 1;
  });
  EXPECT_EQ(limited, 0);
  // A small file system that fills up part way through a file.
  const std::string mountPoint = dir.File("small");
  std::filesystem::create_directory(mountPoint);
  const int full = RunInChild([&]() -> int {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=64k") != 0) {
      return 77;
    }
    const std::string data = RandomBytes(48 * 1024);
    int result = 0;
    {
      C_FILE file(LibraryPath(mountPoint + "/a.txt"), C_FILE::WRITE, C_FILE::TEXT);
      for (int i = 0; i < 3 && !C_ERROR::Is(); ++i) file.Write(static_cast<int>(data.size()), data.data());
      result = CerrFileNotEnoughSpace.IsPending() ? 0 : 1;
    }
    C_ERROR::ClearPending();
    {
      C_FILE file(LibraryPath(mountPoint + "/b.qz"), C_FILE::WRITE, C_FILE::COMPRESSED);
      file.Write(200000, RandomBytes(200000).data());
    }
    return result | (CerrFileNotEnoughSpace.IsPending() ? 0 : 2);
  });
  if (full == 77) GTEST_SKIP() << "no private mount namespace here";
  EXPECT_EQ(full, 0);
#endif
}
