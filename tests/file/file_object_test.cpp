// The file object: opening, Unicode detection, closed objects, position,
// size and lines, copies, and write failures on full devices.
#include <gtest/gtest.h>
#include <qorc/qorc.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <string>

#include "file/file_test_util.h"
#include "support/child_process.h"
#include "support/temp_dir.h"

namespace {

const std::string kBom = "\xFF\xFE";
const std::string kBomSwapped = "\xFE\xFF";

}  // namespace

TEST(FileObject, AutoBecomesTextOrUnicode) {
  TempDir dir;
  struct Case {
    std::string bytes;
    C_FILE::TYPE type;
    const char16_t* firstLine;
  };
  const Case cases[] = {
      {"plain\nnext\n", C_FILE::TEXT, u"plain"},
      {"", C_FILE::TEXT, nullptr},
      {kBom + std::string("h\0i\0\r\0\n\0", 8), C_FILE::UNICODE, u"hi"},
      {kBomSwapped + std::string("\0h\0i\0\r\0\n\0z", 10), C_FILE::UNICODE, u"hi"},
  };
  for (const Case& c : cases) {
    const std::string path = dir.File("auto.txt");
    WriteBytes(path, c.bytes);
    C_FILE file(LibraryPath(path), C_FILE::READ, C_FILE::AUTO);
    ASSERT_FALSE(C_ERROR::Is());
    EXPECT_EQ(file.GetType(), c.type);
    EXPECT_EQ(file.GetMode(), C_FILE::READ);
    EXPECT_TRUE(file.IsCoding());
    C_STRING line;
    file.Read(&line);
    if (c.firstLine == nullptr) {
      EXPECT_TRUE(TakePending(CerrFileEndReached));
    } else {
      EXPECT_TRUE(line == C_STRING(c.firstLine));
      EXPECT_EQ(file.GetLine(), 1);
      file.Read(&line);
      if (c.type == C_FILE::UNICODE) {
        EXPECT_TRUE(line == C_STRING(u"z") || TakePending(CerrFileEndReached));
      }
    }
  }
}

TEST(FileObject, RequestedTypeMustMatchTheMark) {
  TempDir dir;
  const std::string plain = dir.File("plain.txt"), marked = dir.File("marked.txt");
  WriteBytes(plain, "abc");
  WriteBytes(marked, kBom + std::string("a\0", 2));
  {
    C_FILE file(LibraryPath(plain), C_FILE::READ, C_FILE::UNICODE);
    EXPECT_TRUE(TakePending(CerrFileIsNotUnicode));
  }
  {
    const C_STRING expanded = ExpandedPath(marked);
    C_FILE file(LibraryPath(marked), C_FILE::READ, C_FILE::TEXT);
    EXPECT_TRUE(CerrFileIsUnicode.IsPending());
    EXPECT_TRUE(C_ERROR::GetPendingExtra() == expanded);
    C_ERROR::ClearPending();
  }
  C_FILE text(LibraryPath(plain), C_FILE::READ, C_FILE::TEXT);
  C_FILE unicode(LibraryPath(marked), C_FILE::READ, C_FILE::UNICODE);
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(FileObject, FailedOpensLeaveAClosedObject) {
  TempDir dir;
  const C_STRING expanded = ExpandedPath(dir.File("missing.txt"));
  C_FILE missing(LibraryPath(dir.File("missing.txt")), C_FILE::READ, C_FILE::AUTO);
  EXPECT_TRUE(CerrFileCannotOpen.IsPending());
  EXPECT_TRUE(C_ERROR::GetPendingExtra() == expanded);
  C_ERROR::ClearPending();
  C_FILE update(LibraryPath(dir.File("missing.txt")), 7, C_FILE::BINARY);
  EXPECT_EQ(update.GetMode(), C_FILE::UPDATE);  // any other mode is an update
  EXPECT_TRUE(TakePending(CerrFileCannotOpen));
  C_FILE create(LibraryPath(dir.File("no/such/dir/x.txt")), C_FILE::WRITE, C_FILE::TEXT);
  EXPECT_TRUE(TakePending(CerrFileCannotCreate));
  C_FILE empty(C_STRING(u""), C_FILE::READ, C_FILE::TEXT);
  EXPECT_TRUE(TakePending(CerrFileCannotOpen));
  // Every operation on a closed object does nothing, without error.
  C_STRING line(u"kept?");
  C_CHAR c(u'x');
  char bytes[4];
  int got = -1;
  missing.Read(&line);
  missing.Read(&c);
  missing.Read(4, bytes, &got);
  missing.Write(C_STRING(u"text"));
  missing.Write(3, 4, C_STRING(u"%d%d"));
  missing.WriteEOL();
  missing.Flush();
  missing.SetPosit(10);
  missing.Rewind();
  missing.Unwind();
  missing.ReadToken(&line);
  EXPECT_EQ(missing.GetPosit(), 0);
  EXPECT_EQ(missing.GetSize(), 0);
  EXPECT_EQ(missing.GetLine(), 0);
  EXPECT_EQ(got, 0);
  EXPECT_TRUE(line.IsVoid());
  EXPECT_TRUE(c.IsVoid());
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(FileObject, PositionSizeAndLines) {
  TempDir dir;
  const std::string path = dir.File("lines.txt");
  C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::TEXT);
  EXPECT_TRUE(file.GetPath() == LibraryPath(path));
  EXPECT_EQ(file.GetLine(), 0);
  file.Write(11, "one\ntwo\nthr");
  EXPECT_EQ(file.GetSize(), 11);
  EXPECT_EQ(file.GetPosit(), 11);
  EXPECT_EQ(file.GetLine(), 2);
  EXPECT_EQ(file.GetPosit(), 11);  // counting puts the position back
  file.SetPosit(4);
  EXPECT_EQ(file.GetLine(), 1);
  file.Rewind();
  EXPECT_EQ(file.GetPosit(), 0);
  file.Unwind();
  EXPECT_EQ(file.GetPosit(), 11);
  file.SetPosit(-1);
  EXPECT_TRUE(TakePending(CerrFileCannotSeek));
  // Positions and sizes are 64-bit.
  const long long far = 5LL * 1024 * 1024 * 1024;
  file.SetPosit(far);
  file.Write(1, "!");
  EXPECT_EQ(file.GetSize(), far + 1);
  EXPECT_EQ(file.GetPosit(), far + 1);
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(FileObject, UnicodeUpdateBeginsWithTheMark) {
  TempDir dir;
  const std::string path = dir.File("u.txt");
  WriteBytes(path, std::string("a\0b\0c\0", 6));
  {
    C_FILE file(LibraryPath(path), C_FILE::UPDATE, C_FILE::UNICODE);
    EXPECT_FALSE(C_ERROR::Is());
    EXPECT_EQ(file.GetPosit(), 2);
  }
  EXPECT_EQ(ReadBytes(path), kBom + std::string("b\0c\0", 4));
  {
    C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::UNICODE);
    file.Write(C_STRING(u"\u20AC"));
  }
  EXPECT_EQ(ReadBytes(path), kBom + "\xAC\x20");
}

TEST(FileObject, AnonymousTemporaryFile) {
  C_FILE file;
  ASSERT_FALSE(C_ERROR::Is());
  EXPECT_TRUE(file.GetPath().IsVoid());
  EXPECT_EQ(file.GetMode(), C_FILE::WRITE);
  EXPECT_EQ(file.GetType(), C_FILE::BINARY);
  EXPECT_FALSE(file.IsCoding());
  file.Write(C_STRING(u"w"));
  file.Write(5, "bytes");
  EXPECT_EQ(file.GetSize(), 7);
  file.Rewind();
  C_CHAR c;
  file.Read(&c);
  EXPECT_EQ(c, u'w');
  char bytes[5];
  file.Read(5, bytes);
  EXPECT_EQ(std::string(bytes, 5), "bytes");
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(FileObject, CopiesAreClosed) {
  TempDir dir;
  const std::string path = dir.File("c.txt");
  C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::TEXT);
  file.SetCoding(false);
  C_FILE copy(file);
  EXPECT_TRUE(copy.GetPath() == file.GetPath());
  EXPECT_EQ(copy.GetType(), C_FILE::TEXT);
  EXPECT_FALSE(copy.IsCoding());
  copy.Write(C_STRING(u"lost"));
  file.Write(C_STRING(u"kept"));
  C_FILE assigned;
  assigned = file;
  assigned.Write(C_STRING(u"lost too"));
  file.Flush();
  EXPECT_EQ(ReadBytes(path), "kept");
  EXPECT_FALSE(C_ERROR::Is());
}

TEST(FileObject, FullDeviceGivesNotEnoughSpace) {
  const C_STRING expanded = ExpandedPath("/dev/full");
  {
    C_FILE file(C_STRING(u"/dev/full"), C_FILE::WRITE, C_FILE::BINARY);
    ASSERT_FALSE(C_ERROR::Is());
    file.Write(3, "abc");  // buffered
    EXPECT_FALSE(C_ERROR::Is());
    file.Flush();
    EXPECT_TRUE(CerrFileNotEnoughSpace.IsPending());
    EXPECT_TRUE(C_ERROR::GetPendingExtra() == expanded);
    C_ERROR::ClearPending();
    const std::string big(100000, 'x');
    int put = -1;
    file.Write(static_cast<int>(big.size()), big.data(), &put);
    EXPECT_LT(put, 100000);
    EXPECT_TRUE(TakePending(CerrFileNotEnoughSpace));
    file.Write(C_STRING(u"text"));
  }
  EXPECT_TRUE(TakePending(CerrFileNotEnoughSpace));  // at close
  { C_FILE file(C_STRING(u"/dev/full"), C_FILE::WRITE, C_FILE::UNICODE); }
  EXPECT_TRUE(TakePending(CerrFileNotEnoughSpace));
  {
    C_FILE file(C_STRING(u"/dev/full"), C_FILE::WRITE, C_FILE::COMPRESSED);
    const std::string data = RandomBytes(300000);
    file.Write(static_cast<int>(data.size()), data.data());
    EXPECT_FALSE(C_ERROR::Is());  // the temporary file takes it
  }
  EXPECT_TRUE(TakePending(CerrFileNotEnoughSpace));
  {
    C_FILE file(C_STRING(u"/dev/full"), C_FILE::WRITE | C_FILE::DIRECT, C_FILE::COMPRESSED);
    const std::string data = RandomBytes(C_FILE::COMPRESS_BLOCK_SIZE);
    file.Write(static_cast<int>(data.size()), data.data());
    file.Flush();
    EXPECT_TRUE(TakePending(CerrFileNotEnoughSpace));
  }
  C_ERROR::ClearPending();
}

// A small file system that fills up part way through a file.
TEST(FileObject, DeviceFillingUpPartWay) {
  TempDir dir;
  const std::string mountPoint = dir.File("small");
  std::filesystem::create_directory(mountPoint);
  const int status = RunInChild([&]() -> int {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=64k") != 0) {
      return 77;
    }
    const std::string data = TextLikeBytes(48 * 1024);
    int result = 0;
    {
      C_FILE file(LibraryPath(mountPoint + "/a.txt"), C_FILE::WRITE, C_FILE::TEXT);
      for (int i = 0; i < 3 && !C_ERROR::Is(); ++i) file.Write(static_cast<int>(data.size()), data.data());
      if (!CerrFileNotEnoughSpace.IsPending()) result = 1;
    }
    C_ERROR::ClearPending();
    {
      C_FILE file(LibraryPath(mountPoint + "/b.qz"), C_FILE::WRITE, C_FILE::COMPRESSED);
      const std::string random = RandomBytes(200000);
      file.Write(static_cast<int>(random.size()), random.data());
    }
    if (!CerrFileNotEnoughSpace.IsPending()) result |= 2;
    return result;
  });
  if (status == 77) GTEST_SKIP() << "no private mount namespace here";
  EXPECT_EQ(status, 0);
}

TEST(FileObject, WriteFailingForOtherReasons) {
  TempDir dir;
  const std::string path = dir.File("limited.bin");
  // A file-size limit stops the writes part way with another cause than a
  // full device.
  const int status = RunInChild([&]() -> int {
    signal(SIGXFSZ, SIG_IGN);
    struct rlimit limit = {10000, 10000};
    setrlimit(RLIMIT_FSIZE, &limit);
    C_FILE file(LibraryPath(path), C_FILE::WRITE, C_FILE::BINARY);
    const std::string data(30000, 'q');
    int put = 0;
    file.Write(static_cast<int>(data.size()), data.data(), &put);
    return CerrFileCannotWrite.IsPending() && put < 30000 ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}
