#include <fcntl.h>
#include <gtest/gtest.h>
#include <qorc/qorc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "path/roots.h"
#include "support/temp_dir.h"

namespace {

std::u16string Text(const C_STRING& s) { return std::u16string(s.GetWCHAR(), static_cast<std::size_t>(s.GetNumber())); }

// A POSIX path in the library's form.
C_STRING Lib(const std::string& native) {
  C_STRING path(native.c_str());
  for (int i = 0; i < path.GetNumber(); ++i) {
    if (path.Get(i) == u'/') path.Replace(i, C_CHAR(u'\\'));
  }
  return path;
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool Present(const std::string& path) {
  struct stat status;
  return lstat(path.c_str(), &status) == 0;
}

// The pending error is `error`, with `extra` as its text; clears it.
void ExpectPending(const C_ERROR& error, const C_STRING& extra) {
  EXPECT_TRUE(error.IsPending()) << "pending: "
                                 << (C_ERROR::GetPending() ? C_ERROR::GetPending()->GetKey().GetANSI() : "none");
  EXPECT_EQ(Text(C_ERROR::GetPendingExtra()), Text(extra));
  C_ERROR::ClearPending();
}

class FileOperations : public testing::Test {
 protected:
  void SetUp() override { qorc::DestroyRootTables(); }
  void TearDown() override {
    qorc::DestroyRootTables();
    C_FILE::ProgressCallback = nullptr;
  }
  TempDir dir_;
};

TEST_F(FileOperations, ExistenceOfFilesAndDirectories) {
  WriteFile(dir_.File("a.txt"), "x");
  EXPECT_TRUE(C_FILE::Exists(Lib(dir_.File("a.txt"))));
  EXPECT_TRUE(C_FILE::Exists(Lib(dir_.path().string())));
  EXPECT_FALSE(C_FILE::Exists(Lib(dir_.File("missing.txt"))));
  EXPECT_FALSE(C_ERROR::Is());

  C_FILE::AddRoot(C_STRING(u"T"), Lib(dir_.path().string()));
  C_FILE::CheckExists(C_STRING(u"$T\\a.txt"));
  EXPECT_FALSE(C_ERROR::Is());
  C_FILE::CheckExists(C_STRING(u"$T\\missing.txt"));
  ExpectPending(CerrFileNotFound, C_STRING(u"$T\\missing.txt"));
}

TEST_F(FileOperations, ReadOnlyAttributeHoldsForEveryUser) {
  const std::string file = dir_.File("ro.txt");
  WriteFile(file, "keep");
  const C_STRING path = Lib(file);
  EXPECT_FALSE(C_FILE::IsReadOnly(path));
  C_FILE::SetReadOnly(path, true);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_TRUE(C_FILE::IsReadOnly(path));
  EXPECT_EQ(ReadFile(file), "keep");

  // A read-only file is not removed, not even by root.
  C_FILE::Remove(path);
  ExpectPending(CerrFileReadOnly, path);
  EXPECT_TRUE(Present(file));

  C_FILE::SetReadOnly(path, false);
  EXPECT_FALSE(C_FILE::IsReadOnly(path));
  C_FILE::Remove(path);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_FALSE(Present(file));

  const C_STRING missing = Lib(dir_.File("missing.txt"));
  EXPECT_FALSE(C_FILE::IsReadOnly(missing));
  ExpectPending(CerrFileNotFound, missing);
  C_FILE::SetReadOnly(missing, true);
  ExpectPending(CerrFileNotFound, missing);
}

TEST_F(FileOperations, RemoveReportsWhatWentWrong) {
  C_FILE::AddRoot(C_STRING(u"T"), Lib(dir_.path().string()));
  WriteFile(dir_.File("gone.txt"), "x");
  C_FILE::Remove(C_STRING(u"$T/gone.txt"));
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_FALSE(Present(dir_.File("gone.txt")));

  // The path as passed, unexpanded.
  C_FILE::Remove(C_STRING(u"$T/gone.txt"));
  ExpectPending(CerrFileNotFound, C_STRING(u"$T/gone.txt"));

  // Directories are not removed.
  std::filesystem::create_directory(dir_.File("sub"));
  C_FILE::Remove(C_STRING(u"$T\\sub"));
  ExpectPending(CerrFileReadOnly, C_STRING(u"$T\\sub"));
  EXPECT_TRUE(Present(dir_.File("sub")));
}

TEST_F(FileOperations, RenameNeverReplacesItsTarget) {
  const std::string a = dir_.File("a.txt");
  const std::string b = dir_.File("b.txt");
  WriteFile(a, "first");
  C_FILE::Rename(Lib(a), Lib(b));
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_FALSE(Present(a));
  EXPECT_EQ(ReadFile(b), "first");

  WriteFile(a, "second");
  C_FILE::Rename(Lib(a), Lib(b));
  ExpectPending(CerrFileCannotWrite, Lib(a));
  EXPECT_EQ(ReadFile(a), "second");
  EXPECT_EQ(ReadFile(b), "first");

  const C_STRING missing = Lib(dir_.File("missing.txt"));
  C_FILE::Rename(missing, Lib(dir_.File("c.txt")));
  ExpectPending(CerrFileNotFound, missing);

  // A read-only file can still be renamed, into another directory too.
  std::filesystem::create_directory(dir_.File("sub"));
  C_FILE::SetReadOnly(Lib(b), true);
  C_FILE::Rename(Lib(b), Lib(dir_.File("sub/b.txt")));
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(ReadFile(dir_.File("sub/b.txt")), "first");

  // Other failures: a directory moved into itself.
  C_FILE::Rename(Lib(dir_.File("sub")), Lib(dir_.File("sub/inner")));
  ExpectPending(CerrFileCannotRead, Lib(dir_.File("sub")));
}

TEST_F(FileOperations, CopyKeepsContentPermissionsAndTime) {
  const std::string source = dir_.File("src.bin");
  std::string content(200000, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7);
  WriteFile(source, content);
  const struct timespec times[2] = {{1179150330, 0}, {1179150330, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, source.c_str(), times, 0), 0);
  chmod(source.c_str(), 0640);

  C_FILE::Copy(Lib(source), Lib(dir_.File("copy.bin")), false);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(ReadFile(dir_.File("copy.bin")), content);
  struct stat status;
  ASSERT_EQ(stat(dir_.File("copy.bin").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  EXPECT_EQ(status.st_mtim.tv_sec, 1179150330);

  // Onto an existing file: refused unless overwriting is asked for.
  WriteFile(dir_.File("old.bin"), "old");
  C_FILE::Copy(Lib(source), Lib(dir_.File("old.bin")), false);
  ExpectPending(CerrFileNotFound, Lib(source));
  EXPECT_EQ(ReadFile(dir_.File("old.bin")), "old");
  C_FILE::Copy(Lib(source), Lib(dir_.File("old.bin")), true);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(ReadFile(dir_.File("old.bin")), content);

  // A read-only target is never overwritten.
  WriteFile(dir_.File("ro.bin"), "ro");
  C_FILE::SetReadOnly(Lib(dir_.File("ro.bin")), true);
  C_FILE::Copy(Lib(source), Lib(dir_.File("ro.bin")), true);
  ExpectPending(CerrFileNotFound, Lib(source));
  EXPECT_EQ(ReadFile(dir_.File("ro.bin")), "ro");

  // A missing source: the expanded source is named.
  C_FILE::AddRoot(C_STRING(u"T"), Lib(dir_.path().string()));
  C_FILE::Copy(C_STRING(u"$T\\none.bin"), C_STRING(u"$T\\x.bin"), true);
  ExpectPending(CerrFileNotFound, Lib(dir_.File("none.bin")));
  EXPECT_FALSE(Present(dir_.File("x.bin")));
}

TEST_F(FileOperations, CopyOntoItselfDoesNothing) {
  const std::string file = dir_.File("self.txt");
  WriteFile(file, "content");
  C_FILE::Copy(Lib(file), Lib(file), true);
  EXPECT_FALSE(C_ERROR::Is());
  // Written two ways: the same file by its text.
  std::filesystem::create_directory(dir_.File("sub"));
  C_FILE::Copy(Lib(dir_.File("sub/../self.txt")), C_STRING(dir_.File("./self.txt").c_str()), true);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(ReadFile(file), "content");

  // Through a link the texts differ; the copy is refused and the file kept.
  ASSERT_EQ(symlink(file.c_str(), dir_.File("link.txt").c_str()), 0);
  C_FILE::Copy(Lib(file), Lib(dir_.File("link.txt")), true);
  ExpectPending(CerrFileNotFound, Lib(file));
  EXPECT_EQ(ReadFile(file), "content");
}

struct ProgressLog {
  std::vector<double> fractions;
  std::vector<int> starts;
  std::vector<int> data;
  int stopAtCall = 0;  // 0: never stop
};
ProgressLog g_log;

C_BOOL RecordProgress(double fraction, C_BOOL streamStart, int data) {
  g_log.fractions.push_back(fraction);
  g_log.starts.push_back(streamStart);
  g_log.data.push_back(data);
  return g_log.stopAtCall == 0 || static_cast<int>(g_log.fractions.size()) < g_log.stopAtCall;
}

TEST_F(FileOperations, CopyProgressIsOneShot) {
  const std::string source = dir_.File("big.bin");
  WriteFile(source, std::string(300000, 'q'));
  g_log = ProgressLog{};
  C_FILE::SetCopyProgress(RecordProgress, 42);
  C_FILE::Copy(Lib(source), Lib(dir_.File("a.bin")), false);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(C_FILE::ProgressCallback, nullptr);
  ASSERT_GE(g_log.fractions.size(), 3u);
  EXPECT_EQ(g_log.fractions.front(), 0.0);
  EXPECT_EQ(g_log.starts.front(), 1);
  EXPECT_EQ(g_log.fractions.back(), 1.0);
  for (std::size_t i = 1; i < g_log.fractions.size(); ++i) {
    EXPECT_EQ(g_log.starts[i], 0);
    EXPECT_GT(g_log.fractions[i], g_log.fractions[i - 1]);
  }
  for (int data : g_log.data) EXPECT_EQ(data, 42);

  // The next copy runs without the callback.
  const std::size_t calls = g_log.fractions.size();
  C_FILE::Copy(Lib(source), Lib(dir_.File("b.bin")), false);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(g_log.fractions.size(), calls);

  // An empty file is complete from the start.
  WriteFile(dir_.File("empty.bin"), "");
  g_log = ProgressLog{};
  C_FILE::SetCopyProgress(RecordProgress, 0);
  C_FILE::Copy(Lib(dir_.File("empty.bin")), Lib(dir_.File("empty2.bin")), false);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(g_log.fractions, std::vector<double>{1.0});
}

TEST_F(FileOperations, CancelledCopyLeavesNoTarget) {
  const std::string source = dir_.File("big.bin");
  WriteFile(source, std::string(300000, 'c'));
  g_log = ProgressLog{};
  g_log.stopAtCall = 2;
  C_FILE::SetCopyProgress(RecordProgress, 0);
  C_FILE::Copy(Lib(source), Lib(dir_.File("partial.bin")), false);
  // Stopped by the callback: reported as a failed copy.
  ExpectPending(CerrFileNotFound, Lib(source));
  EXPECT_EQ(g_log.fractions.size(), 2u);
  EXPECT_FALSE(Present(dir_.File("partial.bin")));
  EXPECT_EQ(C_FILE::ProgressCallback, nullptr);

  // Also when it was to replace an existing file.
  WriteFile(dir_.File("existing.bin"), "old");
  g_log = ProgressLog{};
  g_log.stopAtCall = 1;
  C_FILE::SetCopyProgress(RecordProgress, 0);
  C_FILE::Copy(Lib(source), Lib(dir_.File("existing.bin")), true);
  ExpectPending(CerrFileNotFound, Lib(source));
  EXPECT_FALSE(Present(dir_.File("existing.bin")));
}

TEST_F(FileOperations, NarrowFormCopiesWithoutProgress) {
  const C_BOOL saved = CcharUnicode;
  CcharUnicode = false;
  WriteFile(dir_.File("n.txt"), "narrow");
  g_log = ProgressLog{};
  C_FILE::SetCopyProgress(RecordProgress, 0);
  EXPECT_EQ(C_FILE::ProgressCallback, nullptr);
  C_FILE::Copy(Lib(dir_.File("n.txt")), Lib(dir_.File("m.txt")), false);
  C_FILE::Copy(Lib(dir_.File("n.txt")), Lib(dir_.File("m.txt")), false);
  CcharUnicode = saved;
  ExpectPending(CerrFileNotFound, Lib(dir_.File("n.txt")));
  EXPECT_EQ(ReadFile(dir_.File("m.txt")), "narrow");
  EXPECT_TRUE(g_log.fractions.empty());
}

TEST_F(FileOperations, ModificationDateInUtc) {
  const std::string file = dir_.File("dated.txt");
  WriteFile(file, "x");
  // 2007-05-14 13:45:30 UTC.
  struct timespec times[2] = {{1179150330, 500000000}, {1179150330, 990000000}};
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  C_DATE date;
  C_FILE::GetDateModif(Lib(file), &date);
  EXPECT_FALSE(C_ERROR::Is());
  EXPECT_EQ(date, C_DATE(2007, 5, 14, 13, 45, 30, 0));

  const C_STRING missing = Lib(dir_.File("missing.txt"));
  C_FILE::GetDateModif(missing, &date);
  ExpectPending(CerrFileNotFound, missing);

  // Before 1970 the runtime's conversion refuses: the date is left alone.
  times[1].tv_sec = -86400;
  ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
  C_FILE::GetDateModif(Lib(file), &date);
  ExpectPending(CerrInvalidValue, C_STRING());
  EXPECT_EQ(date, C_DATE(2007, 5, 14, 13, 45, 30, 0));
}

}  // namespace
