// What the library asks of each system's side of the seam, stated once and
// passed by the POSIX and the Windows implementations alike: the Windows
// semantics of files (a rename never replaces, read-only holds, a failed copy
// leaves nothing), listings, clocks, code pages and the environment.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/directory.h"
#include "platform/environment.h"
#include "platform/filesystem.h"
#include "platform/process.h"
#include "platform/text.h"
#include "support/os_support.h"
#include "support/temp_dir.h"

// <windows.h> (through os_support.h) names CopyFileA or CopyFileW by this macro.
#undef CopyFile

namespace {

namespace seam = qorc::platform;

// A path in the library's form: "\" between the parts on every system.
std::u16string Lib(const std::filesystem::path& path) {
  std::u16string text = path.u16string();
  for (char16_t& c : text) c = c == u'/' ? u'\\' : c;
  return text;
}

void Put(const std::filesystem::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string Get(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

class SeamContract : public testing::Test {
 protected:
  std::filesystem::path At(const std::string& name) const { return dir.path() / name; }
  TempDir dir;
};

TEST_F(SeamContract, RenamesNeverReplaceAndReadOnlyFilesAreKept) {
  Put(At("a"), "first");
  Put(At("b"), "second");
  EXPECT_EQ(seam::RenameNoReplace(Lib(At("a")).c_str(), Lib(At("b")).c_str()), seam::FileError::AlreadyExists);
  EXPECT_EQ(Get(At("b")), "second");
  EXPECT_EQ(seam::RenameNoReplace(Lib(At("a")).c_str(), Lib(At("c")).c_str()), seam::FileError::None);
  EXPECT_FALSE(seam::PathExists(Lib(At("a")).c_str()));
  EXPECT_EQ(Get(At("c")), "first");
  EXPECT_EQ(seam::RenameNoReplace(Lib(At("none")).c_str(), Lib(At("d")).c_str()), seam::FileError::NotFound);

  EXPECT_EQ(seam::CheckWritable(Lib(At("c")).c_str()), seam::FileError::None);
  ASSERT_EQ(seam::SetWritable(Lib(At("c")).c_str(), false), seam::FileError::None);
  EXPECT_EQ(seam::CheckWritable(Lib(At("c")).c_str()), seam::FileError::AccessDenied);
  EXPECT_EQ(seam::RemoveFile(Lib(At("c")).c_str()), seam::FileError::AccessDenied);
  // A read-only target is never overwritten by a copy, with or without failIfExists.
  EXPECT_FALSE(seam::CopyFile(Lib(At("b")).c_str(), Lib(At("c")).c_str(), false, nullptr, nullptr, nullptr));
  EXPECT_EQ(Get(At("c")), "first");
  ASSERT_EQ(seam::SetWritable(Lib(At("c")).c_str(), true), seam::FileError::None);
  EXPECT_EQ(seam::RemoveFile(Lib(At("c")).c_str()), seam::FileError::None);
  EXPECT_EQ(seam::RemoveFile(Lib(At("c")).c_str()), seam::FileError::NotFound);
  std::filesystem::create_directory(At("folder"));
  EXPECT_EQ(seam::RemoveFile(Lib(At("folder")).c_str()), seam::FileError::AccessDenied);
}

TEST_F(SeamContract, CopiesRefuseWhatTheyMustAndLeaveNothingWhenTheyFail) {
  Put(At("source"), std::string(300000, 'x'));
  Put(At("target"), "old");
  EXPECT_FALSE(seam::CopyFile(Lib(At("source")).c_str(), Lib(At("target")).c_str(), true, nullptr, nullptr, nullptr));
  EXPECT_EQ(Get(At("target")), "old");
  EXPECT_TRUE(seam::CopyFile(Lib(At("source")).c_str(), Lib(At("target")).c_str(), false, nullptr, nullptr, nullptr));
  EXPECT_EQ(Get(At("target")), std::string(300000, 'x'));
  // The modification time travels with the contents.
  ASSERT_TRUE(SetModificationTime(At("source").string(), 1000000000));
  ASSERT_TRUE(seam::CopyFile(Lib(At("source")).c_str(), Lib(At("copy")).c_str(), true, nullptr, nullptr, nullptr));
  long long seconds = 0;
  EXPECT_EQ(seam::ModificationTime(Lib(At("copy")).c_str(), &seconds), seam::FileError::None);
  EXPECT_EQ(seconds, 1000000000);
  // A copy cancelled before it starts, or from a missing source, makes no target.
  const volatile bool cancelled = true;
  EXPECT_FALSE(seam::CopyFile(Lib(At("source")).c_str(), Lib(At("new")).c_str(), true, nullptr, nullptr, &cancelled));
  EXPECT_FALSE(seam::CopyFile(Lib(At("none")).c_str(), Lib(At("new")).c_str(), true, nullptr, nullptr, nullptr));
  EXPECT_FALSE(seam::PathExists(Lib(At("new")).c_str()));
}

TEST_F(SeamContract, DeleteOnCloseFilesAndWellKnownDirectories) {
  std::FILE* scratch = seam::CreateDeleteOnCloseFile(Lib(At("scratch")).c_str());
  ASSERT_NE(scratch, nullptr);
  EXPECT_GE(std::fputs("data", scratch), 0);
  std::fclose(scratch);
  // Made exclusively: an existing file is never taken over.
  Put(At("kept"), "kept");
  EXPECT_EQ(seam::CreateDeleteOnCloseFile(Lib(At("kept")).c_str()), nullptr);
  EXPECT_EQ(Get(At("kept")), "kept");
  EXPECT_FALSE(std::filesystem::exists(At("scratch")));

  std::u16string temporary, current;
  ASSERT_TRUE(seam::TemporaryDirectory(&temporary));
  EXPECT_EQ(temporary.back(), u'\\');
  ASSERT_TRUE(seam::CurrentDirectory(&current));
  EXPECT_EQ(current, Lib(std::filesystem::current_path()));
}

TEST_F(SeamContract, ListingsNameEveryEntryAndIdentifyDirectories) {
  Put(At("plain.txt"), "");
  Put(dir.path() / std::filesystem::u8path("caf\xC3\xA9"), "");
  std::filesystem::create_directory(At("sub"));
  seam::DirectoryListing listing;
  ASSERT_TRUE(seam::ListDirectory(Lib(dir.path()).c_str(), &listing));
  std::map<std::u16string, bool> seen;
  for (const seam::DirectoryEntry& entry : listing.entries) {
    seen[std::u16string(listing.NameOf(entry), entry.length)] = entry.isDirectory;
  }
  EXPECT_EQ(seen.count(u"plain.txt"), 1u);
  EXPECT_EQ(seen.count(u"caf\u00E9"), 1u);
  EXPECT_TRUE(seen[u"sub"]);
  EXPECT_FALSE(seen[u"plain.txt"]);
  EXPECT_FALSE(seam::ListDirectory(Lib(At("none")).c_str(), &listing));

  EXPECT_FALSE(seam::MakeDirectory(Lib(At("none/deeper")).c_str()));
  EXPECT_TRUE(seam::MakeDirectory(Lib(At("made")).c_str()));
  seam::DirectoryIdentity made{}, again{}, other{};
  ASSERT_TRUE(seam::IdentifyDirectory(Lib(At("made")).c_str(), &made));
  ASSERT_TRUE(seam::IdentifyDirectory(Lib(At("sub/../made")).c_str(), &again));
  ASSERT_TRUE(seam::IdentifyDirectory(Lib(At("sub")).c_str(), &other));
  EXPECT_TRUE(made == again);
  EXPECT_FALSE(made == other);
}

TEST(SeamText, CodePagesRoundTripAndMeasureFirst) {
  // Every byte that code page 1252 defines comes back as it went.
  std::string bytes;
  for (int b = 0x20; b < 0x100; ++b) {
    if (b != 0x7F && b != 0x81 && b != 0x8D && b != 0x8F && b != 0x90 && b != 0x9D) bytes += static_cast<char>(b);
  }
  const int count = static_cast<int>(bytes.size());
  const int units = seam::MultiByteToWide(1252, bytes.data(), count, nullptr, 0);
  ASSERT_EQ(units, count);
  std::u16string wide(static_cast<std::size_t>(units), u'\0');
  ASSERT_EQ(seam::MultiByteToWide(1252, bytes.data(), count, &wide[0], units), units);
  EXPECT_EQ(wide[0x80 - 0x20 - 1], u'\u20AC');  // 0x80, the euro sign
  std::string back(bytes.size(), '\0');
  ASSERT_EQ(seam::WideToMultiByte(1252, wide.data(), units, &back[0], count), count);
  EXPECT_EQ(back, bytes);
  // A double-byte page: two characters of two bytes each.
  const std::u16string japanese = u"\u65E5\u672C";
  char encoded[8] = {};
  ASSERT_EQ(seam::WideToMultiByte(932, japanese.data(), 2, encoded, 8), 4);
  EXPECT_EQ(std::string(encoded, 4), "\x93\xFA\x96\x7B");
  EXPECT_EQ(seam::MaxCharBytes(932), 2);
  EXPECT_EQ(seam::CharByteLength(932, encoded, 4), 2);
  EXPECT_EQ(seam::CharToUpper(u'\u00E9'), u'\u00C9');
  EXPECT_EQ(seam::CharToLower(u'A'), u'a');
  EXPECT_TRUE(seam::CharIs(u'\u00E9', seam::CharClass::Alpha));
  EXPECT_FALSE(seam::CharIs(u'1', seam::CharClass::Alpha));
  EXPECT_EQ(seam::Collate(u"abc", 3, u"ABC", 3, true), 0);
  EXPECT_LT(seam::Collate(u"abc", 3, u"abd", 3, false), 0);
}

TEST(SeamServices, ClockEnvironmentAndNames) {
  const long long now = seam::CurrentTimeSeconds();
  EXPECT_LE(std::llabs(now - static_cast<long long>(std::time(nullptr))), 2);
  const unsigned int before = seam::TickCount();
  seam::SleepMilliseconds(50);
  // Less one step of the counter, which is up to 16 ms on Windows.
  EXPECT_GE(seam::TickCount() - before, 34u);

  const std::u16string name = u"QORC_SEAM_CONTRACT";
  ASSERT_TRUE(seam::WriteEnvironmentVariable(name, u"caf\u00E9"));
  std::u16string value;
  ASSERT_TRUE(seam::ReadEnvironmentVariable(name, &value));
  EXPECT_EQ(value, u"caf\u00E9");

  std::u16string computer, user;
  EXPECT_TRUE(seam::ComputerName(&computer) && !computer.empty());
  EXPECT_TRUE(seam::UserName(&user) && !user.empty());
  EXPECT_EQ(seam::ProcessOfUser(seam::CurrentProcessId(), user), seam::ProcessState::Alive);
}

TEST(SeamServices, TheSearchPathComesBackAsItsDirectories) {
  // Split at the system's own separator, each directory in library form; an
  // empty entry stays, for the scan above to judge.
#ifdef _WIN32
  const std::u16string list = u"C:\\tools;;D:\\b c";
  const std::vector<std::u16string> expected = {u"C:\\tools", u"", u"D:\\b c"};
#else
  // A ";" is part of a POSIX directory's name.
  const std::u16string list = u"/usr/tools::/opt/b;c";
  const std::vector<std::u16string> expected = {u"\\usr\\tools", u"", u"\\opt\\b;c"};
#endif
  std::u16string saved;
  const bool hadPath = seam::ReadEnvironmentVariable(u"PATH", &saved);
  ASSERT_TRUE(seam::WriteEnvironmentVariable(u"PATH", list));
  std::vector<std::u16string> directories;
  const bool found = seam::ExecutableSearchPath(&directories);
  seam::WriteEnvironmentVariable(u"PATH", hadPath ? saved : u"");
  EXPECT_TRUE(found);
  EXPECT_EQ(directories, expected);
}

}  // namespace
