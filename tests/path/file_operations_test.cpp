#include <sys/stat.h>

#include <filesystem>
#include <vector>

#include "file/file_test_util.h"
#include "path/roots.h"
#include "support/os_support.h"

namespace {

// Runs `call`, which is to leave `error` pending with `extra` as its text
// (cleared here), or to succeed.
template <class Call>
void Fails(Call call, const C_ERROR& error, const C_STRING& extra) {
  call();
  EXPECT_TRUE(error.IsPending()) << (C_ERROR::GetPending() ? C_ERROR::GetPending()->GetKey().GetANSI() : "none");
  EXPECT_EQ(Text(C_ERROR::GetPendingExtra()), Text(extra));
  C_ERROR::ClearPending();
}
template <class Call>
void Succeeds(Call call) {
  call();
  EXPECT_EQ(TakeError(), nullptr);
}

// The fractions of the copy progress calls, and the call that answers false
// (0: none). Every call carries the data 42; only the first starts a stream.
std::vector<double> g_fractions;
int g_stopAt = 0;

C_BOOL Record(double fraction, C_BOOL start, int data) {
  EXPECT_EQ(static_cast<int>(start), g_fractions.empty() ? 1 : 0);
  EXPECT_EQ(data, 42);
  g_fractions.push_back(fraction);
  return static_cast<int>(g_fractions.size()) != g_stopAt;
}

// Files in a fresh directory, which is also the root $T.
class FileOperations : public testing::Test {
 protected:
  void SetUp() override {
    qorc::DestroyRootTables();
    C_FILE::AddRoot(C_STRING(u"T"), Lib(""));
  }
  void TearDown() override {
    qorc::DestroyRootTables();
    C_FILE::ProgressCallback = nullptr;
  }
  std::string F(const std::string& name) const { return dir_.File(name); }
  C_STRING Lib(const std::string& name) const {
    std::string path = name.empty() ? dir_.path().string() : F(name);
    for (char& c : path) c = c == '/' ? '\\' : c;
    return C_STRING(path.c_str());
  }
  void ArmProgress(int stopAt) {
    g_fractions.clear();
    g_stopAt = stopAt;
    C_FILE::SetCopyProgress(Record, 42);
  }
  TempDir dir_;
};

TEST_F(FileOperations, ExistenceReadOnlyRemoveRenameAndDate) {
  WriteBytes(F("ro.txt"), "keep");
  EXPECT_TRUE(C_FILE::Exists(C_STRING(u"$T\\ro.txt")) && C_FILE::Exists(Lib("")));
  EXPECT_FALSE(C_FILE::Exists(Lib("missing.txt")));
  const C_STRING missing(u"$T\\missing.txt");  // errors name the path as passed
  Fails([&] { C_FILE::CheckExists(missing); }, CerrFileNotFound, missing);
  Fails([&] { C_FILE::IsReadOnly(missing); }, CerrFileNotFound, missing);
  Fails([&] { C_FILE::SetReadOnly(missing, true); }, CerrFileNotFound, missing);

  const C_STRING path = Lib("ro.txt");
  EXPECT_FALSE(C_FILE::IsReadOnly(path));
  Succeeds([&] { C_FILE::SetReadOnly(path, true); });
  EXPECT_TRUE(C_FILE::IsReadOnly(path));
  // A read-only file is not removed, not even by root.
  Fails([&] { C_FILE::Remove(path); }, CerrFileReadOnly, path);
  EXPECT_EQ(ReadBytes(F("ro.txt")), "keep");
  Succeeds([&] { C_FILE::SetReadOnly(path, false); });
  EXPECT_FALSE(C_FILE::IsReadOnly(path));

  WriteBytes(F("gone.txt"), "x");
  const C_STRING gone(u"$T/gone.txt");
  Succeeds([&] { C_FILE::Remove(gone); });
  EXPECT_FALSE(std::filesystem::exists(F("gone.txt")));
  Fails([&] { C_FILE::Remove(gone); }, CerrFileNotFound, gone);
  // Directories are not removed.
  std::filesystem::create_directory(F("sub"));
  Fails([&] { C_FILE::Remove(C_STRING(u"$T\\sub")); }, CerrFileReadOnly, C_STRING(u"$T\\sub"));
  EXPECT_TRUE(std::filesystem::exists(F("sub")));

  WriteBytes(F("a.txt"), "first");
  Succeeds([&] { C_FILE::Rename(Lib("a.txt"), Lib("b.txt")); });
  EXPECT_EQ(ReadBytes(F("b.txt")), "first");
  // An existing target is never replaced.
  WriteBytes(F("a.txt"), "second");
  Fails([&] { C_FILE::Rename(Lib("a.txt"), Lib("b.txt")); }, CerrFileCannotWrite, Lib("a.txt"));
  EXPECT_EQ(ReadBytes(F("a.txt")) + ReadBytes(F("b.txt")), "secondfirst");
  Fails([&] { C_FILE::Rename(Lib("missing.txt"), Lib("c.txt")); }, CerrFileNotFound, Lib("missing.txt"));
  // A read-only file can still be moved into another directory.
  C_FILE::SetReadOnly(Lib("b.txt"), true);
  Succeeds([&] { C_FILE::Rename(Lib("b.txt"), Lib("sub/b.txt")); });
  EXPECT_EQ(ReadBytes(F("sub/b.txt")), "first");
  // Other failures: a directory moved into itself.
  Fails([&] { C_FILE::Rename(Lib("sub"), Lib("sub/inner")); }, CerrFileCannotRead, Lib("sub"));

  // Modification dates are read in UTC (here 2007-05-14 13:45:30), hundredths dropped.
  WriteBytes(F("dated.txt"), "x");
  ASSERT_TRUE(SetModificationTime(F("dated.txt"), 1179150330, 990000000));
  C_DATE date;
  Succeeds([&] { C_FILE::GetDateModif(Lib("dated.txt"), &date); });
  EXPECT_TRUE(date == C_DATE(2007, 5, 14, 13, 45, 30, 0));
  Fails([&] { C_FILE::GetDateModif(Lib("missing.txt"), &date); }, CerrFileNotFound, Lib("missing.txt"));
  // Before 1970 the runtime's conversion refuses: the date is left alone.
  ASSERT_TRUE(SetModificationTime(F("dated.txt"), -86400));
  Fails([&] { C_FILE::GetDateModif(Lib("dated.txt"), &date); }, CerrInvalidValue, C_STRING());
  EXPECT_TRUE(date == C_DATE(2007, 5, 14, 13, 45, 30, 0));
}

TEST_F(FileOperations, CopyKeepsContentPermissionsAndTime) {
  const std::string content = std::string(100000, 'a') + std::string(100000, 'b');
  WriteBytes(F("src.bin"), content);
  ASSERT_TRUE(SetModificationTime(F("src.bin"), 1179150330));
#ifndef _WIN32
  chmod(F("src.bin").c_str(), 0640);
#endif
  const C_STRING source = Lib("src.bin");
  Succeeds([&] { C_FILE::Copy(source, Lib("copy.bin"), false); });
  EXPECT_EQ(ReadBytes(F("copy.bin")), content);
#ifndef _WIN32
  // (Windows files have no permission bits; their read-only attribute is
  // copied as the one below shows.)
  struct stat status;
  ASSERT_EQ(stat(F("copy.bin").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
#endif
  EXPECT_EQ(ModificationSeconds(F("copy.bin")), 1179150330);

  // An existing target is replaced only when asked, and never a read-only one.
  WriteBytes(F("old.bin"), "old");
  Fails([&] { C_FILE::Copy(source, Lib("old.bin"), false); }, CerrFileNotFound, source);
  EXPECT_EQ(ReadBytes(F("old.bin")), "old");
  Succeeds([&] { C_FILE::Copy(source, Lib("old.bin"), true); });
  EXPECT_EQ(ReadBytes(F("old.bin")), content);
  WriteBytes(F("ro.bin"), "ro");
  C_FILE::SetReadOnly(Lib("ro.bin"), true);
  Fails([&] { C_FILE::Copy(source, Lib("ro.bin"), true); }, CerrFileNotFound, source);
  EXPECT_EQ(ReadBytes(F("ro.bin")), "ro");
  // A missing source: the expanded source is named.
  Fails([] { C_FILE::Copy(C_STRING(u"$T\\none.bin"), C_STRING(u"$T\\x.bin"), true); }, CerrFileNotFound,
        Lib("none.bin"));
  EXPECT_FALSE(std::filesystem::exists(F("x.bin")));

  // The narrow form copies too, without progress.
  const C_BOOL saved = CcharUnicode;
  CcharUnicode = false;
  ArmProgress(0);
  EXPECT_EQ(C_FILE::ProgressCallback, nullptr);
  Succeeds([&] { C_FILE::Copy(source, Lib("narrow.bin"), false); });
  Fails([&] { C_FILE::Copy(source, Lib("narrow.bin"), false); }, CerrFileNotFound, source);
  CcharUnicode = saved;
  EXPECT_EQ(ReadBytes(F("narrow.bin")), content);
  EXPECT_TRUE(g_fractions.empty());

  // A copy onto the file itself does nothing.
  WriteBytes(F("self.txt"), "content");
  Succeeds([&] { C_FILE::Copy(Lib("self.txt"), Lib("self.txt"), true); });
  // Written two ways: the same file by its text.
  std::filesystem::create_directory(F("sub"));
  Succeeds([&] { C_FILE::Copy(Lib("sub/../self.txt"), C_STRING(F("./self.txt").c_str()), true); });
  EXPECT_EQ(ReadBytes(F("self.txt")), "content");
#ifndef _WIN32
  // Through a link the texts differ; the copy is refused and the file kept.
  // (Windows symbolic links need a privilege that tests do not have.)
  ASSERT_EQ(symlink(F("self.txt").c_str(), F("link.txt").c_str()), 0);
  Fails([&] { C_FILE::Copy(Lib("self.txt"), Lib("link.txt"), true); }, CerrFileNotFound, Lib("self.txt"));
  EXPECT_EQ(ReadBytes(F("self.txt")), "content");
#endif
}

TEST_F(FileOperations, CopyProgressIsOneShot) {
  if (RunningUnderWine()) GTEST_SKIP() << "Wine's CopyFileExW calls no progress routine (Windows does)";
  WriteBytes(F("big.bin"), std::string(300000, 'q'));
  ArmProgress(0);
  Succeeds([&] { C_FILE::Copy(Lib("big.bin"), Lib("a.bin"), false); });
  EXPECT_EQ(C_FILE::ProgressCallback, nullptr);
  ASSERT_GE(g_fractions.size(), 3u);
  EXPECT_TRUE(g_fractions.front() == 0.0 && g_fractions.back() == 1.0);
  // The next copy runs without the callback.
  const std::size_t calls = g_fractions.size();
  Succeeds([&] { C_FILE::Copy(Lib("big.bin"), Lib("b.bin"), false); });
  EXPECT_EQ(g_fractions.size(), calls);
  // An empty file is complete from the start.
  WriteBytes(F("empty.bin"), "");
  ArmProgress(0);
  Succeeds([&] { C_FILE::Copy(Lib("empty.bin"), Lib("empty2.bin"), false); });
  EXPECT_EQ(g_fractions, std::vector<double>{1.0});

  // Stopped by the callback: reported as a failed copy, with no partial
  // target left, also when it was to replace an existing file.
  WriteBytes(F("existing.bin"), "old");
  for (const auto& [stopAt, target] : {std::pair{2, "partial.bin"}, std::pair{1, "existing.bin"}}) {
    ArmProgress(stopAt);
    Fails([&] { C_FILE::Copy(Lib("big.bin"), Lib(target), true); }, CerrFileNotFound, Lib("big.bin"));
    EXPECT_EQ(g_fractions.size(), static_cast<std::size_t>(stopAt));
    EXPECT_FALSE(std::filesystem::exists(F(target)));
    EXPECT_EQ(C_FILE::ProgressCallback, nullptr);
  }
}

}  // namespace
