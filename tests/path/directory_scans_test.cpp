#ifndef _WIN32
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <tuple>
#include <vector>

#include "file/file_test_util.h"
#include "path/roots.h"
#include "path/directory_listing.h"
#include "support/child_process.h"
#include "support/environment.h"
#include "support/os_support.h"

namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

std::string Narrow(const C_STRING& s) {
  std::string out;
  for (int i = 0; i < s.GetNumber(); ++i) out += static_cast<char>(static_cast<char16_t>(s.Get(i)));
  return out;
}

// A native path in the library's form ("\" as separator).
std::string Lib(std::string native) {
  for (char& c : native) c = c == '/' ? '\\' : c;
  return native;
}
C_STRING L(const std::string& native) { return C_STRING(Lib(native).c_str()); }

// Calls a listing with a count and an array, and returns the names.
template <typename Listing>
Names Listed(Listing listing) {
  int count = -1;
  C_STRING* names = nullptr;
  listing(&count, &names);
  Names out;
  for (int i = 0; i < count; ++i) out.push_back(Narrow(names[i]));
  delete[] names;
  return out;
}

Names Scan(const std::string& dir, const char* pattern) {
  return Listed([&](int* count, C_STRING** names) { C_FILE::ScanDir(L(dir), C_STRING(pattern), count, names); });
}

Names Dirs(const std::string& dir) {
  return Listed([&](int* count, C_STRING** names) { C_FILE::GetDirs(L(dir), count, names); });
}

Names Tree(const C_STRING& dir, const char* pattern) {
  return Listed([&](int* count, C_STRING** paths) {
    C_FILE::ScanDirRecursive(dir, C_STRING(pattern), count, paths);
    EXPECT_EQ(*paths == nullptr, *count == 0);
  });
}

// Runs a search for one file and returns the path it found.
std::string Found(void (*search)(const C_STRING&, C_STRING*), const char* name) {
  C_STRING path;
  search(C_STRING(name), &path);
  return Narrow(path);
}

// Creates files, and directories where the name ends in "/", with every
// missing directory above them.
void Make(const TempDir& dir, std::initializer_list<std::string> paths) {
  for (const std::string& path : paths) {
    fs::create_directories(fs::path(dir.File(path)).parent_path());
    if (path.back() != '/') WriteBytes(dir.File(path), "x");
  }
}

// Works in another current directory until the end of the scope.
class InDir {
 public:
  explicit InDir(const std::string& dir) : saved_(fs::current_path()) { fs::current_path(dir); }
  ~InDir() { fs::current_path(saved_); }

 private:
  const fs::path saved_;
};

class ScanTest : public testing::Test {
 protected:
  void SetUp() override { qorc::DestroyRootTables(); }
  void TearDown() override {
    qorc::DestroyRootTables();
    C_FILE::ConfigVersion.Clear();
  }
  TempDir dir;
  const std::string root = dir.path().string();
};

TEST_F(ScanTest, ScanDirListsMatchingFilesSortedAndSkipsHiddenOnes) {
  for (int i = 149; i >= 0; --i) Make(dir, {"f" + std::to_string(1000 + i).substr(1) + ".dll"});
  Make(dir, {".hidden.dll", "Notes.TXT", "README", "plan", "plan.dat", "sub.dll/", ".git/", "mixed/b", "mixed/B2",
             "mixed/a", "mixed/C", "mixed/A"});

  int count = 0;
  C_STRING* names = nullptr;
  C_FILE::ScanDir(L(root), u"*.dll", &count, &names);
  ASSERT_EQ(count, 150);
  EXPECT_EQ(Narrow(names[0]), "f000.dll");
  EXPECT_EQ(Narrow(names[149]), "f149.dll");
  // The array grew by doubling from 100: 200 slots, the last ones empty.
  EXPECT_TRUE(names[199].IsVoid());
  delete[] names;

  // The pattern rules are those of MatchesPattern (see WindowsRules below).
  EXPECT_EQ(Scan(root, "*.txt"), Names{"Notes.TXT"});
  EXPECT_EQ(Scan(root, "plan.*"), (Names{"plan", "plan.dat"}));
  EXPECT_EQ(Scan(root, "*").size(), 154u);
  EXPECT_EQ(Scan(root, "*.*"), Scan(root, "*"));
  EXPECT_EQ(Dirs(root), (Names{"mixed", "sub.dll"}));
  // Sorted by name without case, ties in code-unit order.
  // (On Windows "A" and "a" name one file: the file system ignores case.)
  const Names mixed = QORC_ON_WINDOWS(true) ? Names{"a", "b", "B2", "C"} : Names{"A", "a", "b", "B2", "C"};
  EXPECT_EQ(Scan(dir.File("mixed"), "*"), mixed);

  // Missing: nothing, no array, no error. Present but holding only what is
  // never listed: the count is 0 (the array may be there).
  count = -1;
  names = nullptr;
  C_FILE::ScanDir(L(dir.File("missing")), u"*", &count, &names);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(names, nullptr);
  EXPECT_TRUE(Scan(dir.File("sub.dll"), "*").empty());
  EXPECT_TRUE(Dirs(dir.File("sub.dll")).empty());
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(ScanTest, RecursiveScanListsFilesBeforeSubdirectoriesAndFollowsLinksOnce) {
  Make(dir, {"top.txt", "b/1.txt", "a/2.txt", "a/y/deep/3.TXT", "a/x/.hidden.txt", "a/x/4.dat", ".cache/5.txt"});
  C_FILE::AddRoot(u"SCANTOP", L(root));
  EXPECT_EQ(Tree(u"$SCANTOP", "*.txt"),
            (Names{"$SCANTOP\\top.txt", "$SCANTOP\\a\\2.txt", "$SCANTOP\\a\\y\\deep\\3.TXT", "$SCANTOP\\b\\1.txt"}));
  EXPECT_TRUE(Tree(u"$SCANTOP", "*.none").empty());
  EXPECT_TRUE(Tree(L(dir.File("missing")), "*").empty());

#ifdef _WIN32
  GTEST_SKIP() << "Symbolic links on Windows need a privilege that tests do not have (Wine makes none)";
#else
  // A link counts as what it points to; broken and looped links as files.
  Make(dir, {"flat/real/inside.txt", "flat/file.txt"});
  fs::create_symlink("file.txt", dir.File("flat/to-file.txt"));
  fs::create_directory_symlink("real", dir.File("flat/to-real"));
  fs::create_symlink("nowhere", dir.File("flat/broken.txt"));
  fs::create_symlink("looped.txt", dir.File("flat/looped.txt"));
  EXPECT_EQ(Scan(dir.File("flat"), "*"), (Names{"broken.txt", "file.txt", "looped.txt", "to-file.txt"}));
  EXPECT_EQ(Dirs(dir.File("flat")), (Names{"real", "to-real"}));
  fs::remove_all(dir.File("flat"));

  // Links that lead back up are not entered again: the scan ends, and each
  // file comes once for every way down that does not go round in a circle.
  fs::create_directory_symlink("..", dir.File("a/up"));
  fs::create_directory_symlink(".", dir.File("a/y/self"));
  fs::create_directory_symlink(dir.File("b"), dir.File("a/to-b"));
  fs::create_symlink("knot", dir.File("b/knot"));
  EXPECT_EQ(Tree(L(root), "*.txt"), (Names{Lib(root + "/top.txt"), Lib(root + "/a/2.txt"), Lib(root + "/a/to-b/1.txt"),
                                           Lib(root + "/a/y/deep/3.TXT"), Lib(root + "/b/1.txt")}));
  EXPECT_FALSE(C_ERROR::Is());
#endif
}

TEST_F(ScanTest, UnreadableAndVanishingDirectoriesEndTheirPartQuietly) {
#ifdef _WIN32
  GTEST_SKIP() << "Acting as another user (seteuid), removing the current directory and a forked churner are POSIX's";
#else
  Make(dir, {"open/inner/1.txt", "closed/2.txt", "closed/inner/3.txt", "4.txt"});
  chmod(root.c_str(), 0755);
  chmod(dir.File("closed").c_str(), 0700);
  // Root reads everything, so the scan runs as another user where we are root.
  EXPECT_EQ(RunInChild([&] {
              if (geteuid() == 0 && seteuid(65534) != 0) return 90;
              const Names expected = {Lib(root + "/4.txt"), Lib(root + "/open/inner/1.txt")};
              return Tree(L(root), "*.txt") == expected && !C_ERROR::Is() ? 0 : 1;
            }),
            0);
  {
    // The current directory removed under us lists nothing.
    Make(dir, {"gone/x.txt", "stable/churn/"});
    const InDir gone(dir.File("gone"));
    fs::remove_all(dir.File("gone"));
    EXPECT_TRUE(Scan(".", "*").empty());
    EXPECT_TRUE(Tree(u".", "*").empty());
  }

  // Subtrees that come and go while the tree is scanned: their files are
  // found only whole or not at all, and nothing is ever pending.
  const pid_t churner = fork();
  if (churner == 0) {
    for (unsigned n = 0;; ++n) {
      const std::string sub = dir.File("stable/churn/t" + std::to_string(n % 4));
      std::error_code ignored;
      fs::create_directories(sub + "/d1/d2", ignored);
      std::FILE* file = std::fopen((sub + "/d1/d2/c.txt").c_str(), "w");
      if (file != nullptr) std::fclose(file);
      fs::remove_all(sub, ignored);
    }
  }
  for (int round = 0; round < 200; ++round) {
    const Names found = Tree(L(dir.File("stable")), "*");
    ASSERT_FALSE(C_ERROR::Is());
    for (const std::string& path : found) {
      EXPECT_EQ(path.rfind(Lib(dir.File("stable/churn/t")), 0), 0u) << path;
      EXPECT_EQ(path.substr(path.size() - 12), "\\d1\\d2\\c.txt") << path;
    }
  }
  kill(churner, SIGKILL);
  waitpid(churner, nullptr, 0);
#endif
}

TEST_F(ScanTest, ExecutableSearchFollowsPathUntilAnEmptyElement) {
  Make(dir, {"cwd/tool.sh", "a/tool.sh", "a/other.sh", "b/tool.sh", "c/tool.sh", "a/.tool.sh"});
  const InDir cwd(dir.File("cwd"));
  const char* savedPath = std::getenv("PATH");
  const std::string saved = savedPath != nullptr ? savedPath : "";
  auto exe = [](std::string path, const char* pattern) {
#ifdef _WIN32
    // Windows separates the list with ";" (a drive's colon is followed by "\").
    for (std::size_t i = 0; i < path.size(); ++i) {
      if (path[i] == ':' && (i + 1 == path.size() || path[i + 1] != '\\')) path[i] = ';';
    }
#endif
    SetEnv("PATH", path.c_str());
    return Listed([&](int* count, C_STRING** paths) { C_FILE::ScanExeDirs(C_STRING(pattern), count, paths); });
  };
  const std::string a = dir.File("a"), b = dir.File("b"), c = dir.File("c");
  EXPECT_EQ(exe(a + ":" + b + ":" + a, "tool.*"), (Names{".\\tool.sh", Lib(a + "/tool.sh"), Lib(b + "/tool.sh")}));
  EXPECT_EQ(exe(a + "::" + b, "*.sh"), (Names{".\\tool.sh", Lib(a + "/other.sh"), Lib(a + "/tool.sh")}));
  EXPECT_EQ(exe(b + ":" + c + ":", "*"), (Names{".\\tool.sh", Lib(b + "/tool.sh"), Lib(c + "/tool.sh")}));
  EXPECT_EQ(exe("", "*"), Names{".\\tool.sh"});
  EXPECT_EQ(exe(a, "*.none"), Names{});
  SetEnv("PATH", saved.c_str());
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(ScanTest, ProductDirectoriesAreSearchedInTheirOrders) {
  Make(dir, {"config/app.ini", "config/v2/app.ini", "lang/app.ini", "home/bin/app.ini", "home/binext/tool.dll",
             "home/bin/tool.dll", "target/bin/only.dll", "ext/bin/", "group/", "cwd/here.ini"});
  const std::pair<const char*, const char*> roots[] = {{"QORGROUP", "group"},   {"QORCONFIG", "config"},
                                                       {"QORLANG", "lang"},     {"QORHOME", "home"},
                                                       {"QORTARGET", "target"}, {"QOREXTTARGET", "ext"}};
  for (const auto& [name, sub] : roots) C_FILE::AddRoot(C_STRING(name), L(dir.File(sub)));
  InDir cwd(dir.File("cwd"));
  EXPECT_EQ(Found(C_FILE::ScanQorDirs, "app.ini"), Lib(dir.File("config/app.ini")));
  C_FILE::ConfigVersion = u"v2";
  EXPECT_EQ(Found(C_FILE::ScanQorDirs, "app.ini"), Lib(dir.File("config") + "/v2/app.ini"));
  EXPECT_EQ(Found(C_FILE::ScanQorDirs, "only.dll"), Lib(dir.File("target") + "/bin/only.dll"));
  EXPECT_EQ(Found(C_FILE::ScanQorDirs, "here.ini"), Lib(dir.File("cwd") + "/") + "\\here.ini");
  EXPECT_EQ(Found(C_FILE::ScanBinDirs, "tool.dll"), Lib(dir.File("home") + "/binext/tool.dll"));
  EXPECT_EQ(Found(C_FILE::ScanBinDirs, "app.ini"), Lib(dir.File("home") + "/bin/app.ini"));
  EXPECT_FALSE(C_ERROR::Is());
  // Not found: the last candidate, as written.
  EXPECT_EQ(Found(C_FILE::ScanQorDirs, "absent.ini"), Lib(dir.File("cwd") + "/") + "/absent.ini");
  EXPECT_TRUE(CerrFileNotFound.IsPending());
  EXPECT_EQ(Narrow(C_ERROR::GetPendingExtra()), "absent.ini");
  C_ERROR::ClearPending();
  Found(C_FILE::ScanBinDirs, "only.dll");
  EXPECT_TRUE(CerrFileNotFound.IsPending());
  C_ERROR::ClearPending();

  // Collecting: the versioned configuration after the plain one, the
  // directories as written, then the current directory.
  auto all = [](const char* pattern) {
    return Listed([&](int* count, C_STRING** paths) { C_FILE::ScanQorDirs(C_STRING(pattern), count, paths); });
  };
  EXPECT_EQ(all("*.ini"), (Names{"$QORCONFIG/app.ini", "$QORCONFIG/v2/app.ini", "$QORLANG/app.ini",
                                 "$QORHOME/bin/app.ini", Lib(dir.File("cwd") + "/") + "here.ini"}));
  EXPECT_TRUE(all("*.none").empty());
  // The current directory is left out when it is the bin directory, but
  // not when it is binext: its files then come twice.
  fs::current_path(dir.File("home/bin"));
  EXPECT_EQ(all("tool.*"), (Names{"$QORHOME/binext/tool.dll", "$QORHOME/bin/tool.dll"}));
  fs::current_path(dir.File("home/binext"));
  EXPECT_EQ(all("tool.*"), (Names{"$QORHOME/binext/tool.dll", "$QORHOME/bin/tool.dll",
                                  Lib(dir.File("home/binext") + "/") + "tool.dll"}));
  EXPECT_FALSE(C_ERROR::Is());
}

TEST_F(ScanTest, MakeDirCreatesEveryMissingLevel) {
  C_FILE::MakeDir(L(dir.File("x/y/z/")));
  EXPECT_TRUE(fs::is_directory(dir.File("x/y/z")));
  C_FILE::MakeDir(L(dir.File("x/y/z")));
  C_FILE::AddRoot(u"MADE", L(dir.File("x")));
  C_FILE::MakeDir(u"$MADE\\q\\r");
  EXPECT_TRUE(fs::is_directory(dir.File("x/q/r")));
  EXPECT_FALSE(C_ERROR::Is());
  C_FILE::MakeDir(C_STRING());
  EXPECT_TRUE(CerrFileCannotCreate.IsPending());
  EXPECT_TRUE(C_ERROR::GetPendingExtra().IsVoid());
  C_ERROR::ClearPending();
  Make(dir, {"blocker"});
  C_FILE::MakeDir(L(dir.File("blocker/sub")));
  EXPECT_TRUE(CerrFileCannotCreate.IsPending());
  C_ERROR::ClearPending();
}

TEST(ScanPatterns, WindowsRules) {
  // clang-format off
  const std::tuple<const char16_t*, const char16_t*, bool> cases[] = {
      {u"a.txt", u"*", true},         {u"README", u"*.*", true},        {u"a.b.c", u"*.c", true},
      {u"abc", u"a?c", true},         {u"ac", u"a?c", false},           {u"ABC.Txt", u"abc.TXT", true},
      {u"plan", u"plan.*", true},     {u"planet", u"plan.*", false},    {u"x.tar.gz", u"*.tar.*", true},
      {u"aaaaaaaaab", u"*a*a*a*b", true}, {u"aaaaaaaaaa", u"*a*a*b", false},
      {u"\u00C9t\u00E9", u"\u00E9T\u00C9", true}, {u"", u"*", true}, {u"a", u"", false}, {u"a*b", u"a*b", true}};
  // clang-format on
  for (const auto& [name, pattern, matches] : cases) {
    EXPECT_EQ(qorc::MatchesPattern(name, pattern), matches)
        << Narrow(C_STRING(name)) << " ~ " << Narrow(C_STRING(pattern));
  }
}

}  // namespace
