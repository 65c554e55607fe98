#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "file/file_test_util.h"
#include "support/environment.h"

namespace {

// The variable that names the temporary directory: the first that
// GetTempPathW reads on Windows, TMPDIR on POSIX.
#ifdef _WIN32
constexpr char kTempVariable[] = "TMP";
#else
constexpr char kTempVariable[] = "TMPDIR";
#endif

std::u16string Lib(std::string native) {
  for (char& c : native) c = c == '/' ? '\\' : c;
  return std::u16string(native.begin(), native.end());
}

TEST(TempFiles, FirstFreeNamesAndAnonymousFiles) {
  TempDir dir;
  const char* saved = std::getenv(kTempVariable);
  const std::string savedValue = saved != nullptr ? saved : "";
  SetEnv(kTempVariable, dir.path().string().c_str());
  const std::string base = dir.path().string() + "/";
  EXPECT_EQ(Text(C_FILE::GetTempDir()), Lib(base));

  // The anonymous file leaves no name behind, on POSIX even while it is
  // open (Windows keeps the name of a delete-on-close file until it closes).
  std::FILE* stream = C_FILE::CreateTempFile();
  ASSERT_NE(stream, nullptr);
#ifndef _WIN32
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
#endif
  char area[8] = {};
  EXPECT_TRUE(std::fputs("scratch", stream) >= 0 && std::fseek(stream, 0, SEEK_SET) == 0);
  EXPECT_NE(std::fgets(area, sizeof area, stream), nullptr);
  EXPECT_STREQ(area, "scratch");
  std::fclose(stream);

  // Names are not reserved: the first free one comes back until it is taken.
  EXPECT_EQ(Text(C_FILE::GetTempFilePath()), Lib(base + "qor0000.tmp"));
  EXPECT_EQ(Text(C_FILE::GetTempFilePath()), Lib(base + "qor0000.tmp"));
  WriteBytes(dir.File("qor0000.tmp"), "taken");
  WriteBytes(dir.File("qor0002.tmp"), "taken");
  EXPECT_EQ(Text(C_FILE::GetTempFilePath()), Lib(base + "qor0001.tmp"));
  EXPECT_FALSE(C_ERROR::Is());

  SetEnv(kTempVariable, dir.File("no/such").c_str());
  EXPECT_EQ(C_FILE::CreateTempFile(), nullptr);
  EXPECT_TRUE(CerrFileCannotCreateTemporary.IsPending());
  EXPECT_EQ(Text(C_ERROR::GetPendingExtra()), Lib(dir.File("no/such/qor0000.tmp")));
  UnsetEnv(kTempVariable);
#ifndef _WIN32
  // Without the variable, POSIX's temporary directory (Windows goes on to
  // TEMP and the user's profile).
  EXPECT_EQ(Text(C_FILE::GetTempDir()), u"\\tmp\\");
#endif
  if (saved != nullptr) SetEnv(kTempVariable, savedValue.c_str());
}

}  // namespace
