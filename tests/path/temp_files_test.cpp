#include <gtest/gtest.h>
#include <qorc/qorc.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/temp_dir.h"

namespace {

std::u16string Text(const C_STRING& s) { return std::u16string(s.GetWCHAR(), static_cast<std::size_t>(s.GetNumber())); }

std::u16string LibraryForm(std::string native) {
  for (char& c : native) c = c == '/' ? '\\' : c;
  return std::u16string(native.begin(), native.end());
}

// The temporary directory is a fresh one for each test.
class TempFiles : public testing::Test {
 protected:
  void SetUp() override {
    const char* saved = std::getenv("TMPDIR");
    hadTmpdir_ = saved != nullptr;
    if (hadTmpdir_) saved_ = saved;
    setenv("TMPDIR", dir_.path().c_str(), 1);
  }
  void TearDown() override {
    if (hadTmpdir_) {
      setenv("TMPDIR", saved_.c_str(), 1);
    } else {
      unsetenv("TMPDIR");
    }
  }
  int Entries() const {
    int n = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
      (void)entry;
      ++n;
    }
    return n;
  }

  TempDir dir_;
  bool hadTmpdir_ = false;
  std::string saved_;
};

TEST_F(TempFiles, NamesAreTheFirstFreeOnes) {
  const std::u16string base = LibraryForm(dir_.path().string() + "/");
  EXPECT_EQ(Text(C_FILE::GetTempFilePath()), base + u"qor0000.tmp");
  // Not reserved: the same name comes back until the file exists.
  EXPECT_EQ(Text(C_FILE::GetTempFilePath()), base + u"qor0000.tmp");
  std::ofstream(dir_.File("qor0000.tmp")) << "taken";
  std::ofstream(dir_.File("qor0002.tmp")) << "taken";
  EXPECT_EQ(Text(C_FILE::GetTempFilePath()), base + u"qor0001.tmp");
  std::ofstream(dir_.File("qor0001.tmp")) << "taken";
  EXPECT_EQ(Text(C_FILE::GetTempFilePath()), base + u"qor0003.tmp");
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(TempFiles, CreatedFileDisappearsWhenClosed) {
  std::FILE* stream = C_FILE::CreateTempFile();
  ASSERT_NE(stream, nullptr);
  EXPECT_FALSE(C_ERROR::Is());
  // No name is left behind, even while the file is open.
  EXPECT_EQ(Entries(), 0);
  ASSERT_GE(std::fputs("scratch data", stream), 0);
  std::rewind(stream);
  char area[32] = {};
  ASSERT_NE(std::fgets(area, sizeof area, stream), nullptr);
  EXPECT_STREQ(area, "scratch data");
  std::fclose(stream);
  EXPECT_EQ(Entries(), 0);
  // The next one takes the same free name.
  stream = C_FILE::CreateTempFile();
  ASSERT_NE(stream, nullptr);
  std::fclose(stream);
}

TEST_F(TempFiles, MissingDirectoryIsReported) {
  const std::string missing = dir_.File("no/such/dir");
  setenv("TMPDIR", missing.c_str(), 1);
  EXPECT_EQ(C_FILE::CreateTempFile(), nullptr);
  ASSERT_TRUE(CerrFileCannotCreateTemporary.IsPending());
  EXPECT_EQ(Text(C_ERROR::GetPendingExtra()), LibraryForm(missing + "/qor0000.tmp"));
}

}  // namespace
